"""Bodies of replies and contents of release files: bytes, or many bytes that nobody has to hold."""

import functools
import hashlib
import random

PERIOD = 65521  # prime, so that no boundary of ours repeats the pattern in step


class SyntheticBody:
    """`size` bytes without meaning, always the same for the same seed, made where they are needed."""

    def __init__(self, size, seed=1):
        self.size = size
        self.seed = seed
        self._pattern = random.Random(seed).randbytes(PERIOD)

    def __len__(self):
        return self.size

    def slice(self, start, end):
        end = min(end, self.size)
        if start >= end:
            return b""
        first = start % PERIOD
        length = end - start
        repeats = (first + length + PERIOD - 1) // PERIOD
        return (self._pattern * repeats)[first : first + length]

    @functools.cached_property
    def sha256(self):
        digest = hashlib.sha256()
        for start in range(0, self.size, 1 << 20):
            digest.update(self.slice(start, start + (1 << 20)))
        return digest.hexdigest()

    def read_all(self):
        return self.slice(0, self.size)


class BytesBody:
    def __init__(self, content):
        self.content = bytes(content)
        self.size = len(self.content)

    def __len__(self):
        return self.size

    def slice(self, start, end):
        return self.content[start:end]

    @functools.cached_property
    def sha256(self):
        return hashlib.sha256(self.content).hexdigest()

    def read_all(self):
        return self.content


def body_of(content):
    if isinstance(content, str):
        content = content.encode()
    return BytesBody(content) if isinstance(content, (bytes, bytearray, memoryview)) else content

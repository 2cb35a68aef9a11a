"""Where the built programs lie, and the file version inside a program."""

import functools
import os
import random
import struct
from pathlib import Path

from .server import LabError

TOP = Path(__file__).resolve().parents[3]
BUILD = Path(os.environ.get("VPR_BUILD_DIR", TOP / "build/windows-release"))

LAUNCHER = BUILD / "Velmora Pine Relay.exe"
SAMPLE_APP = BUILD / "tests/sample_app/sample_app.exe"
DRIVER = BUILD / "tests/support/driver/launcher_driver.exe"
WINDOW_DOUBLE = BUILD / "tests/support/driver/window_double.exe"

# dwSignature and dwStrucVersion of VS_FIXEDFILEINFO; the file version follows in two numbers.
FIXED_INFO = struct.pack("<II", 0xFEEF04BD, 0x00010000)


def read_program(path):
    try:
        return Path(path).read_bytes()
    except OSError as problem:
        raise LabError(f"no program at {path} ({problem.strerror}); ./dev build makes it") from None


def _version_offset(image):
    offset = image.find(FIXED_INFO)
    if offset < 0 or image.find(FIXED_INFO, offset + 1) >= 0:
        raise LabError("the program does not hold exactly one version block")
    return offset + len(FIXED_INFO)


def file_version(image):
    """The four numbers of the file version of a program's bytes, as text."""
    high, low = struct.unpack_from("<II", image, _version_offset(image))
    return f"{high >> 16}.{high & 0xFFFF}.{low >> 16}.{low & 0xFFFF}"


def with_file_version(image, version):
    """The same program with another file version. The product version stays."""
    first, second, third, fourth = (int(part) for part in version.split("."))
    patched = bytearray(image)
    struct.pack_into("<II", patched, _version_offset(image), first << 16 | second, third << 16 | fourth)
    return bytes(patched)


@functools.cache
def app_binary(version="1.0.0.0", padding=0, seed=0):
    """The sample application with this file version; `padding` bytes behind it, made from `seed`, change size and
    digest."""
    return with_file_version(read_program(SAMPLE_APP), version) + random.Random(seed).randbytes(padding)

"""Package archives: made by other programs, damaged in known places, judged and installed by package_runner.exe."""

import dataclasses
import hashlib
import io
import json
import os
import struct
import subprocess
import zipfile

from . import programs
from .server import LabError

PACKAGE_RUNNER = programs.BUILD / "tests/support/package_runner/package_runner.exe"
PACKAGE_ID, PACKAGE_VERSION = "model", "1.0.0.0"

CANNOT_OPEN = "無法開啟已下載的資源包。"
ENTRY_COUNT = "資源包內容與 inventory 數量不符。"
INVALID_ENTRY = "資源包包含無效或重複的 ZIP 項目。"
INVALID_RUNTIME_MANIFEST = "資源包包含無效的 Runtime manifest。"
SIZE_DIFFERS = "資源包 ZIP 項目的解壓大小與 inventory 不符。"
ENTRIES_DIFFER = "資源包 ZIP 項目與 inventory 不符。"


def payload_fails(path):
    return f"資源包 payload 驗證失敗：{path}"


@dataclasses.dataclass
class Verdict:
    """What came of one job."""

    ok: bool
    message: str
    installed_path: str
    peak_before: int
    peak_after: int

    @property
    def growth(self):
        """By how many bytes the program's peak rose during the job."""
        return self.peak_after - self.peak_before


class Bench:
    """A folder for archives, and the means to have them judged. `content` is what a good one holds."""

    def __init__(self, lab, content):
        self.lab = lab
        self.content = content
        self.folder = lab.folder / "archives"
        self.folder.mkdir()
        self.roots = lab.folder / "roots"
        self.roots.mkdir()
        self._runs = 0

    def path(self, name):
        return self.folder / f"{name}.vprpack"

    def write(self, name, archive):
        """Puts an archive's bytes there, unless another program has put a file there already."""
        if archive is not None:
            self.path(name).write_bytes(archive)
        elif not self.path(name).exists():
            raise LabError(f"no archive {name!r} was made")
        return self.path(name)

    def stage(self, name, content=None):
        """A folder with the content below payload/, for programs that pack folders."""
        folder = self.lab.folder / name
        for path, data in (self.content if content is None else content).items():
            place = folder / "payload" / path
            place.parent.mkdir(parents=True, exist_ok=True)
            place.write_bytes(data)
        return folder

    def judge(self, archives, content=None):
        """{name: Verdict} of archives {name: bytes, or None for one that is there already}."""
        return self._run({name: ["verify", self._windows(name, archive)] for name, archive in archives.items()},
                         content)

    def install(self, archives, content=None):
        """The same by installing each into a folder of its own."""
        return self._run({name: ["install", self._windows(name, archive), self.lab.windows_path(self.roots / name),
                                 PACKAGE_ID, PACKAGE_VERSION] for name, archive in archives.items()}, content)

    def installed(self, name):
        """{path: bytes} of all that lies in the folder that an archive was installed into."""
        root = self.roots / name
        return {str(path.relative_to(root)): path.read_bytes() for path in sorted(root.rglob("*")) if path.is_file()}

    def _windows(self, name, archive):
        return self.lab.windows_path(self.write(name, archive))

    def _run(self, jobs, content):
        self._runs += 1
        files = [["file", path, hashlib.sha256(data).hexdigest(), str(len(data))]
                 for path, data in (self.content if content is None else content).items()]
        lines = [line for job in jobs.values() for line in [job, *files]]
        told = self.lab.folder / f"jobs{self._runs}"
        report = self.lab.folder / f"verdicts{self._runs}"
        told.write_text("".join("\t".join(line) + "\n" for line in lines), encoding="utf-8", newline="")
        words = [os.environ["WINE"], str(PACKAGE_RUNNER), self.lab.windows_path(report), self.lab.windows_path(told)]
        run = subprocess.run(words, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, timeout=300)
        if run.returncode != 0:
            raise LabError(f"the package runner ended with {run.returncode}")
        verdicts = [Verdict(**json.loads(line)) for line in report.read_text(encoding="ascii").splitlines()]
        if len(verdicts) != len(jobs):
            raise LabError(f"{len(verdicts)} verdicts on {len(jobs)} jobs")
        return dict(zip(jobs, verdicts))


# Archives by Python's own library, and places inside any archive.


class Unseekable(io.RawIOBase):
    """A pipe: sizes and CRCs are then told behind the data."""

    def __init__(self):
        self.bytes = bytearray()

    def writable(self):
        return True

    def write(self, data):
        self.bytes += data
        return len(data)


def entries_of(content):
    return [(f"payload/{path}", data) for path, data in content.items()]


def pack(entries, method=zipfile.ZIP_DEFLATED, zip64=False, seekable=True, comment=b""):
    """An archive of these (name, bytes), as Python's library writes it."""
    target = io.BytesIO() if seekable else Unseekable()
    with zipfile.ZipFile(target, "w", method) as packed:
        packed.comment = comment
        for name, data in entries:
            info = zipfile.ZipInfo(name, (1980, 1, 1, 0, 0, 0))
            info.compress_type = method
            with packed.open(info, "w", force_zip64=zip64) as entry:
                entry.write(data)
    return target.getvalue() if seekable else bytes(target.bytes)


def with_name(archive, placeholder, name):
    """The same archive with other bytes of the same length for a name, wherever it stands."""
    if len(placeholder) != len(name) or archive.count(placeholder) != 2:
        raise LabError(f"{placeholder!r} is no placeholder")
    return archive.replace(placeholder, name)


@dataclasses.dataclass
class Place:
    """Where an entry stands in its archive."""

    directory: int  # its record in the directory
    data: int
    packed_size: int


def place_of(archive, name):
    with zipfile.ZipFile(io.BytesIO(archive)) as packed:
        info = packed.getinfo(name)
        names = [other.orig_filename for other in packed.infolist()]
        directory = packed.start_dir
    for _ in range(names.index(info.orig_filename)):
        directory += 46 + sum(struct.unpack_from("<HHH", archive, directory + 28))
    data = info.header_offset + 30 + sum(struct.unpack_from("<HH", archive, info.header_offset + 26))
    return Place(directory, data, info.compress_size)


def patched(archive, offset, form, value):
    changed = bytearray(archive)
    struct.pack_into(form, changed, offset, value)
    return bytes(changed)


def with_crc(archive, name, change):
    """The directory's CRC of an entry, changed by these bits."""
    offset = place_of(archive, name).directory + 16
    return patched(archive, offset, "<I", struct.unpack_from("<I", archive, offset)[0] ^ change)


def with_told_sizes(archive, name, packed=None, unpacked=None):
    """Other sizes of an entry in the directory."""
    directory = place_of(archive, name).directory
    if packed is not None:
        archive = patched(archive, directory + 20, "<I", packed)
    return archive if unpacked is None else patched(archive, directory + 24, "<I", unpacked)


def with_turned_byte(archive, offset):
    changed = bytearray(archive)
    changed[offset] ^= 0xFF
    return bytes(changed)

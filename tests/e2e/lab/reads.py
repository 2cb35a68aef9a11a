"""Which files of a folder were read: by the kernel's own notices, so that nothing of the launcher is believed."""

import ctypes
import os
import struct
from pathlib import Path

from .server import LabError

IN_ACCESS = 0x1  # inotify(7): the content was read; opening or asking for facts does not count
IN_Q_OVERFLOW = 0x4000

_libc = ctypes.CDLL(None, use_errno=True)
_EVENT = struct.Struct("iIII")


class ReadWatch:
    """Notes every file below `folder` that is read while the block runs: `with ReadWatch(folder) as watch`, then
    `watch.files()`, relative paths. Folders must exist when the watch begins."""

    def __init__(self, folder):
        self.folder = Path(folder)
        self._names = {}

    def __enter__(self):
        self._handle = _libc.inotify_init1(os.O_NONBLOCK | os.O_CLOEXEC)
        if self._handle < 0:
            raise LabError(f"inotify: {os.strerror(ctypes.get_errno())}")
        for path in [self.folder, *(path for path in self.folder.rglob("*") if path.is_dir() and not path.is_symlink())]:
            number = _libc.inotify_add_watch(self._handle, os.fsencode(path), IN_ACCESS)
            if number < 0:
                raise LabError(f"inotify: {path}: {os.strerror(ctypes.get_errno())}")
            self._names[number] = path
        return self

    def __exit__(self, *_):
        self._found = set()
        try:
            while True:
                self._take(os.read(self._handle, 1 << 16))
        except BlockingIOError:
            pass
        finally:
            os.close(self._handle)

    def _take(self, events):
        at = 0
        while at < len(events):
            number, mask, _, length = _EVENT.unpack_from(events, at)
            name = events[at + _EVENT.size : at + _EVENT.size + length].rstrip(b"\0")
            at += _EVENT.size + length
            if mask & IN_Q_OVERFLOW:
                raise LabError("more files were read than the kernel could tell")
            path = self._names[number] / os.fsdecode(name)
            if path.is_file():  # listing a folder counts as reading it
                self._found.add(path.relative_to(self.folder).as_posix())

    def files(self):
        return self._found

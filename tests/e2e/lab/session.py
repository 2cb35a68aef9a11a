"""The Lab: what a test holds in its hands."""

import itertools
import os
import re
import shutil
import socket
from pathlib import Path

from . import names
from .install import Tree
from .launcher import LaunchHandle, command_line, make_request
from .server import LabError, Servers

# A program's working directory cannot be longer on Windows, whatever its own path may be.
MAX_WORKING_DIRECTORY = 250


def require_lab():
    """Refuses to go on outside a lab: the names must lead nowhere but to the servers here."""
    try:
        inside = os.environ.get("VPR_LAB") == "1" and all(
            socket.gethostbyname(name) == address for name, address in names.HOSTS.items()
        )
    except OSError:
        inside = False
    if not inside:
        raise LabError("these tests run inside the lab only: use ./dev test e2e [filter], or tools/lab COMMAND")


class Lab:
    """Servers, a drive C: and the means to run programs there. One for all tests; begin_test and end_test frame each."""

    def __init__(self):
        require_lab()
        self.servers = Servers(os.environ["VPR_LAB_CERTIFICATES"])
        self.drive = Path(os.environ["WINEPREFIX"]) / "drive_c"
        self.folder = None  # this test's part of the drive
        self.allow_plain_http = False  # True in a test that means to speak http
        self._tests = 0
        self._runs = []
        self._run_numbers = itertools.count(1)
        # The servers' scripting, at hand.
        self.on = self.servers.on
        self.gate = self.servers.gate
        self.set_mode = self.servers.set_mode
        self.set_certificate = self.servers.set_certificate
        self.requests_to = self.servers.requests_to
        self.wait_for_request = self.servers.wait_for_request
        self.wait_for_bytes = self.servers.wait_for_bytes
        self.wait_for_finish = self.servers.wait_for_finish

    @property
    def requests(self):
        """All requests of this test, in order of arrival."""
        return self.servers.requests_to()

    @property
    def connections(self):
        """All connections of this test; `handshake` is "ok", "plain", None while open, or the error's text."""
        return list(self.servers.connections)

    # Frames of a test.

    def begin_test(self, name):
        self.servers.reset()
        self._tests += 1
        self.allow_plain_http = False
        # Short, so that depths of paths are the test's choice.
        self.folder = self.drive / "lab" / f"t{self._tests}"
        self.folder.mkdir(parents=True)
        (self.folder / "test.txt").write_text(re.sub(r"[^\x20-\x7e]", "?", name) + "\n")

    def end_test(self, failed=False):
        """Ends what the test left running and tells faults that no assertion of the test can see."""
        for run in self._runs:
            run.end()
        self._runs.clear()
        problems = list(self.servers.problems)
        plain = self.servers.requests_to(secure=False)
        self.servers.reset()
        if not failed:
            shutil.rmtree(self.folder)
        if problems:
            raise LabError(f"faults inside the lab: {problems}")
        if plain and not self.allow_plain_http:
            raise LabError(f"plain http was spoken: {[str(request) for request in plain]}")

    def close(self):
        self.servers.close()

    # Running programs.

    def windows_path(self, path):
        return Tree(self.folder, self.drive).windows(path)

    def start(self, program, args=(), answers=(), timeout=180, *, raw_command_line=None, env=None, unix_env=None,
              cwd=None, strict=True, poll_ms=10):
        """Starts a program and gives a LaunchHandle.

        program           a Tree (its launcher) or the Path of an .exe
        args              arguments, quoted properly; the program's path goes before them
        raw_command_line  the whole command line instead, exactly
        answers           for windows that want one, in order: yes, no, ok, close, or wait (the test answers itself)
        env               variables of the program; unix_env: of the Wine process (LC_ALL, LOCPATH)
        cwd               a Windows path; None: the program's folder, or the test's if that is too long
        strict            wait() fails on a time-out, on a window without a fitting answer and on a failed start
        """
        exe_path = program.launcher if isinstance(program, Tree) else Path(program)
        exe = self._windows_program(exe_path)
        line = command_line(exe, *args) if raw_command_line is None else raw_command_line
        if cwd is None:
            cwd = exe.rpartition("\\")[0]
            cwd = cwd if len(cwd) < MAX_WORKING_DIRECTORY else self.windows_path(self.folder)
        folder = self.folder / f"run{next(self._run_numbers)}"
        folder.mkdir()
        request = make_request(self, folder, exe, line, cwd, answers, timeout, env, poll_ms)
        run = LaunchHandle(self, folder, request, timeout, strict, unix_env)
        self._runs.append(run)  # tests may start runs from several threads; appending is atomic
        return run

    def run(self, program, args=(), answers=(), timeout=180, **options):
        """Runs a program to its end and gives the RunResult; options as for start()."""
        return self.start(program, args, answers, timeout, **options).wait()

    def _windows_program(self, path):
        if path.is_relative_to(self.drive):
            return self.windows_path(path)
        return "Z:" + str(path).replace("/", "\\")  # the drive of everything else

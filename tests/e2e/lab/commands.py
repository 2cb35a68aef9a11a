"""The built-in verification commands, called as a release pipeline calls them."""

import contextlib
import dataclasses
import os
import subprocess

from .install import Tree
from .server import Host, LabError

LOOPBACK = "127.0.0.1"  # the one host that a command may speak plain http to


@dataclasses.dataclass(frozen=True)
class Answer:
    code: int
    output: bytes  # standard output, exactly


def call(lab, program, *words, cwd=None, env=None, timeout=180):
    """Runs a program without the driver, which costs more than a short command itself. Linux sees the low 8 bits of the
    exit code only; `told` gives all of it. `cwd` is a folder of drive C:."""
    program = program.launcher if isinstance(program, Tree) else program
    try:
        run = subprocess.run([os.environ["WINE"], str(program), *words], stdin=subprocess.DEVNULL,
                             stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, cwd=cwd or lab.folder,
                             env={**os.environ, **(env or {})}, timeout=timeout)
    except subprocess.TimeoutExpired as problem:
        raise LabError(f"this did not end in time: {words}") from problem
    return Answer(run.returncode, run.stdout)


@dataclasses.dataclass(frozen=True)
class Told:
    """A run that the driver watched."""

    code: int  # all 32 bits
    output: bytes
    run: object  # the RunResult


def told(handle):
    """What came of a run that lab.start began."""
    run = handle.wait()
    return Told(run.exit_code, run.output, run)


def tell(lab, tree, *words, **options):
    return told(lab.start(tree, words, **options))


@contextlib.contextmanager
def loopback_server(lab):
    """A server on 127.0.0.1 that speaks plain http, scripted as `lab.on(LOOPBACK, path, reply, secure=False)`."""
    servers = lab.servers
    host = servers.hosts[LOOPBACK] = Host(LOOPBACK, LOOPBACK)
    servers.set_mode(LOOPBACK, "serve")
    lab.allow_plain_http = True
    try:
        yield
    finally:
        servers.set_mode(LOOPBACK, "refuse")
        del servers.hosts[LOOPBACK]

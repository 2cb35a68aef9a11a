"""The download engine alone, run through transfer_runner.exe against the servers of the lab."""

import concurrent.futures
import dataclasses
import hashlib
import itertools
import json
import os
import socket
import struct
import subprocess
import time

from . import names, programs
from .bodies import SyntheticBody, body_of
from .replies import Reply
from .server import LabError

TRANSFER_RUNNER = programs.BUILD / "tests/support/transfer_runner/transfer_runner.exe"
KILLED = 177  # exit code of a run that met the fault "kill"
WORKERS = 12  # runs at once; most of them wait most of the time
POLL_SECONDS = 0.01
SOLO_SIZE = 200_000

VERSION = "1.1.0.0"
PHASES = ("connecting", "receiving", "slow", "retrying", "verifying", "cached", "complete", "failed", "cancelled",
          "switching-source", "comparing-source")


class Payload:
    """Bytes that are to be fetched, with their places. The name is part of the URL.

    "primary" and "backup" are the two places of a release: whoever fetches from the first may go over to the second.
    "single" is a place that has no other, on `single_host`. `source` is the place that is meant if no other is named.
    """

    def __init__(self, content, name="payload.bin", source="primary", single_host=names.CDN):
        self.body = body_of(content)
        self.size = len(self.body)
        self.sha256 = self.body.sha256
        self.name = name
        self.source = source
        self.single_host = single_host

    def place(self, source=None):
        """(host, path) as the lab's scripting takes it."""
        source = source or self.source
        if source == "single":
            return self.single_host, f"/files/{self.name}"
        host, folder = names.release_place(source, VERSION)
        return host, folder + self.name

    def url(self, source=None):
        return "https://" + "".join(self.place(source))

    def reply(self, etag='"one"', **changes):
        """An honest answer with the whole payload; ranges and If-Range are honoured."""
        return Reply(200, self.body, etag=etag, **changes)

    def publish(self, lab, *replies, source=None):
        """Serves these replies one after the other, the last for ever; an honest one if none is given."""
        lab.on(*self.place(source), list(replies) or self.reply())

    def requests(self, lab, source=None):
        return lab.requests_to(*self.place(source))


@dataclasses.dataclass
class Fetched:
    """One download's result and reports, as the caller got them."""

    success: bool
    canceled: bool
    path: str
    reason: str
    os_error: int
    http_status: int
    attempts: int
    elapsed_ms: int
    cancel_ms: int  # from the first "yes, cancelled" to the return; -1 if there was none
    reports: list  # dicts

    def course(self):
        """The phases in order, without repeats."""
        return [phase for phase, _ in itertools.groupby(report["phase"] for report in self.reports)]

    def of_phase(self, phase):
        return [report for report in self.reports if report["phase"] == phase]


@dataclasses.dataclass
class Transfers:
    results: list
    preference: int  # of the session that all downloads of one run share
    calls: list  # mutating calls, as (function, path)
    reached: bool  # whether the fault that was asked for came to pass

    @property
    def only(self):
        assert len(self.results) == 1
        return self.results[0]


class Cache:
    """A cache directory on drive C:. `source` is None, "github" or "r2": two sources have a folder each."""

    def __init__(self, lab, folder="cache"):
        self.root = lab.folder / folder / "downloads-v1"
        self.windows = lab.windows_path(self.root)

    def folder(self, source=None):
        return self.root / source if source else self.root

    def part(self, payload, source=None):
        return self.folder(source) / f"{payload.sha256}.part"

    def resume(self, payload, source=None):
        return self.folder(source) / f"{payload.sha256}.resume"

    def trace(self, source=None):
        """The lines of the trace as dicts; one that is just being written does not count yet."""
        path = self.folder(source) / "download-trace.jsonl"
        lines = path.read_text(encoding="utf-8").splitlines(keepends=True) if path.exists() else []
        return [json.loads(line) for line in lines if line.endswith("\n")]

    def leave(self, payload, length, etag='"one"', url=None, source=None):
        """Puts the payload's first bytes there with the resume file that vouches for them."""
        self.folder(source).mkdir(parents=True, exist_ok=True)
        self.part(payload, source).write_bytes(payload.body.slice(0, length))
        url = url or payload.url("backup" if source == "r2" else None)
        self.resume(payload, source).write_text(resume_text(payload.size, url, etag), newline="\n")


def resume_text(size, url, etag):
    digest = hashlib.sha256(url.encode("utf-16-le")).hexdigest()
    return f"vpr-resume-1\n{size}\n{digest}\n{etag}\n"


def errand(payload, cache, *options, url=None):
    """The runner's words for one download; `options` as transfer_runner tells them."""
    return ["--get", url or payload.url(), payload.sha256, str(payload.size), cache.windows, *map(str, options)]


_numbers = itertools.count(1)


def _words(lab, errands):
    """(where the report will be, arguments)"""
    report = lab.folder / f"transfers{next(_numbers)}.json"
    return report, [lab.windows_path(report)] + [word for each in errands for word in each]


def start_transfers(lab, *errands, env=None, timeout=120):
    """Begins a run of downloads, one after the other in one session; wait with finish_transfers."""
    report, words = _words(lab, errands)
    return lab.start(TRANSFER_RUNNER, words, timeout=timeout, env=env), report


def finish_transfers(started):
    """The Transfers of a run, or None if it was killed by the fault that it was asked for."""
    run, report = started
    result = run.wait()
    return _read_report(report, result.exit_code, result)


def transfer(lab, *errands, env=None, timeout=120):
    """The same to its end; without the driver, which is for windows and costs as much as the run itself."""
    report, words = _words(lab, errands)
    log_path = report.with_suffix(".log")
    try:
        with open(log_path, "wb") as log:
            run = subprocess.run([os.environ["WINE"], str(TRANSFER_RUNNER), *words], stdin=subprocess.DEVNULL,
                                 stdout=log, stderr=log, env={**os.environ, **(env or {})}, timeout=timeout)
    except subprocess.TimeoutExpired as problem:
        raise LabError(f"the transfer runner did not end in time: {words}") from problem
    return _read_report(report, run.returncode, f"{words}: {log_path.read_text(errors='replace')}")


def _read_report(report, exit_code, what):
    if exit_code == KILLED:
        return None
    if exit_code != 0 or not report.exists():
        raise LabError(f"the transfer runner failed with {exit_code}: {what}")
    told = json.loads(report.read_text())
    results = [Fetched(**each) for each in told["results"]]
    return Transfers(results, told["preference"], [tuple(call) for call in told["calls"]], told["reached"])


def fetch(lab, payload, cache, *options, url=None, env=None, timeout=120):
    """One download; its Fetched."""
    return transfer(lab, errand(payload, cache, *options, url=url), env=env, timeout=timeout).only


class Solo:
    """A payload at a place that has no other, with a cache of its own: any number of these may be fetched at once."""

    def __init__(self, lab, name="payload", content=None, host=names.CDN):
        self.lab = lab
        self.payload = Payload(SyntheticBody(SOLO_SIZE) if content is None else content, name, "single", host)
        self.cache = Cache(lab, name)

    def reply(self, **changes):
        return self.payload.reply(**changes)

    def serve(self, *replies):
        """Serves these replies one after the other, the last for ever; an honest one if none is given."""
        self.payload.publish(self.lab, *replies)

    def leave(self, length, **changes):
        self.cache.leave(self.payload, length, **changes)

    def errand(self, *options):
        return errand(self.payload, self.cache, *options)

    def fetch(self, *options, **more):
        return fetch(self.lab, self.payload, self.cache, *options, **more)

    # What the server saw.

    @property
    def requests(self):
        return self.payload.requests(self.lab)

    @property
    def asked(self):
        """(Range, If-Range) of each request."""
        return [(request.range, request.headers.get("if-range")) for request in self.requests]

    @property
    def sent(self):
        """Body bytes of each answer, which is waited for."""
        for request in self.requests:
            self.lab.wait_for_finish(request)
        return [request.body_sent for request in self.requests]

    @property
    def pauses(self):
        """Seconds from the end of each answer to the next request."""
        return [later.time - earlier.finish_time for earlier, later in zip(self.requests, self.requests[1:])]

    # What lies on the disk.

    @property
    def part(self):
        return self.cache.part(self.payload).read_bytes()

    @property
    def resume(self):
        """The text of the resume file; None if there is none."""
        path = self.cache.resume(self.payload)
        return path.read_bytes().decode("ascii") if path.exists() else None

    def resume_text(self, etag='"one"'):
        """What stands in a resume file that vouches for bytes of the entity with this tag."""
        return resume_text(self.payload.size, self.payload.url(), etag)

    @property
    def words(self):
        """The last word of each line of the trace."""
        return [line["reason"] for line in self.cache.trace()]

    def wait_for_part(self, length):
        """Until so many bytes are stored."""
        path = self.cache.part(self.payload)
        wait_until(lambda: path.exists() and path.stat().st_size >= length, f"{length} bytes in {path.name}")

    def wait_for_line(self, **wanted):
        """Until the trace has a line with these values; that line."""
        def find():
            return next((line for line in self.cache.trace() if wanted.items() <= line.items()), None)

        wait_until(find, f"a line with {wanted}")
        return find()


def wait_until(condition, what, timeout=30):
    """For what only the disk can tell."""
    deadline = time.monotonic() + timeout
    while not condition():
        if time.monotonic() > deadline:
            raise LabError(f"waited {timeout} s in vain for {what}")
        time.sleep(POLL_SECONDS)


def reset_connection(lab, request):
    """Ends the connection of an answer that stalls by a reset. What the client has not read by then is lost with it,
    so a test that counts bytes waits for them first."""
    handle = _set_to_reset(lab, request)
    handle.shutdown(socket.SHUT_RD)  # says nothing to the client but wakes the server's thread, which then closes


def reset_before_headers(lab):
    """A script whose answer is a reset of the connection."""
    def answer(request):
        _set_to_reset(lab, request)
        raise ConnectionResetError("as the script wants it")

    return answer


def _set_to_reset(lab, request):
    """From here on closing means a reset."""
    handle = lab.connections[request.connection - 1]._handle
    handle.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    return handle


def together(work, items, workers=WORKERS):
    """Runs `work` over the items, several at a time and all of them even if some fail; what each gave. The first
    failure is raised, with its item's name."""
    def one(item):
        try:
            return work(item)
        except AssertionError as problem:
            raise AssertionError(f"{getattr(item, '__name__', repr(item))}: {problem}") from problem

    with concurrent.futures.ThreadPoolExecutor(workers) as pool:
        futures = [pool.submit(one, item) for item in items]
        concurrent.futures.wait(futures)
        return [future.result() for future in futures]

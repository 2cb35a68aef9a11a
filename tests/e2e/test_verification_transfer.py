"""The built-in verification commands that move bytes: one source, two sources, several files, whole updates."""

import dataclasses
import itertools
import re
import time

import pytest

from lab import APPLICATION_PATH, Reply, SyntheticBody, html, install, names, redirect, update
from lab.commands import LOOPBACK, loopback_server, tell, told
from lab.transfer import Payload, together, wait_until

LOOPBACK_TRANSFER = "--launcher-download-loopback-self-test"
MIRROR = "--launcher-download-mirror-self-test"
SESSION = "--launcher-source-session-self-test"
INSTALL = "--launcher-r2-install-self-test"
UPDATE = "--launcher-r2-update-self-test"

CANCELLED, FAILED, NOT_DONE = 1313, 1314, 1317
CONNECTING, RECEIVING, RETRYING, VERIFYING, CACHED, COMPLETE, LOST, STOPPED, SWITCHING, COMPARING = (
    0, 1, 3, 4, 5, 6, 7, 8, 9, 10)
PLAIN_COURSE = [CONNECTING, RECEIVING, VERIFYING, COMPLETE]
CANNOT_CONNECT = 12029

_numbers = itertools.count(1)


# What the commands print.


@dataclasses.dataclass(frozen=True)
class Line:
    """One printed line: its first word and its fields."""

    word: str
    fields: dict

    def __getattr__(self, name):
        try:
            return self.fields[name]
        except KeyError:
            raise AttributeError(name) from None


FLAG, COUNT, RATE = "[01]", r"0|[1-9]\d*", r"-1\.000|(?:0|[1-9]\d*)\.\d{3}"
FORMS = {
    "SESSION_RESULT": {"file": "[01]", "success": FLAG, "canceled": FLAG, "preference": "[012]"},
    "MIRROR_RESULT": {"success": FLAG, "canceled": FLAG, "http": COUNT},
    "MIRROR_OBSERVATION": {"phase": "[0-9]|10", "bytes": COUNT, "backup": FLAG, "slow": FLAG},
    "DOWNLOAD_RESULT": {"success": FLAG, "canceled": FLAG, "attempts": "[0-3]", "http": COUNT, "os": COUNT},
    "DOWNLOAD_OBSERVATION": {
        "phase": "[0-9]|10", "bytes": COUNT, "network": COUNT, "attempt": "[0-3]", "rate": RATE, "restarted": FLAG},
    "R2_INSTALL_RESULT": {"outcome": "[0-6]", "safe": FLAG},
    "R2_UPDATE_RESULT": {"outcome": "[0-6]", "safe": FLAG},
}


def read_lines(output):
    """Every line, which must be of its word's form to the letter."""
    assert output.endswith(b"\n") and b"\r" not in output, output
    lines = []
    for text in output.decode("ascii").split("\n")[:-1]:
        word = text.split(" ")[0]
        form = word + "".join(f" {name}=({pattern})" for name, pattern in FORMS[word].items())
        match = re.fullmatch(form, text)
        assert match, text
        values = [float(value) if name == "rate" else int(value) for name, value in zip(FORMS[word], match.groups())]
        lines.append(Line(word, dict(zip(FORMS[word], values))))
    return lines


@dataclasses.dataclass(frozen=True)
class Report:
    code: int
    result: Line
    seen: list  # the observations

    def course(self):
        """The phases in order, without repeats."""
        return [phase for phase, _ in itertools.groupby(line.phase for line in self.seen)]

    def of_phase(self, phase):
        return [line for line in self.seen if line.phase == phase]

    def values(self, name):
        return [getattr(line, name) for line in self.seen]


def read_report(done, name, size):
    """A result and its observations, judged for what must hold of every transfer."""
    result, *seen = read_lines(done.output)
    assert result.word == f"{name}_RESULT"
    assert {line.word for line in seen} <= {f"{name}_OBSERVATION"}
    report = Report(done.code, result, seen)
    assert done.code == (0 if result.success else CANCELLED if result.canceled else FAILED)
    assert not (result.success and result.canceled)
    endings = [line.phase for line in seen if line.phase in (CACHED, COMPLETE, LOST, STOPPED)]
    if seen:
        last = seen[-1]
        assert endings == [last.phase], "one ending, and it comes last"
        assert last.phase in ((CACHED, COMPLETE) if result.success else (STOPPED,) if result.canceled else (LOST,))
        assert not result.success or last.bytes == size
    assert all(line.bytes <= size for line in seen)
    return report


def read_download(done, size):
    """Of one source: all counters besides."""
    report = read_report(done, "DOWNLOAD", size)
    network = report.values("network")
    assert network == sorted(network)
    attempts = report.values("attempt")
    assert attempts == sorted(attempts)
    assert report.result.attempts == (attempts[-1] if attempts else 0)
    assert all(line.phase in (VERIFYING, CACHED) for line in report.seen if line.attempt == 0)
    for before, after in itertools.pairwise(report.seen):
        # What lay in the cache and was found wrong is no part of the transfer.
        assert after.bytes >= before.bytes or after.restarted or before.attempt == 0, "bytes go back in silence"
    return report


def read_mirror(done, size):
    report = read_report(done, "MIRROR", size)
    switches = [line for line in report.seen if line.phase == SWITCHING]
    assert len(switches) <= 1
    assert all(line.bytes == 0 for line in switches)
    for before, after in itertools.pairwise(report.seen):
        assert after.bytes >= before.bytes or after.phase == SWITCHING
        assert after.backup == before.backup or after.phase == SWITCHING
    return report


# One source.


class Download:
    """A payload with a place and a cache of its own: any number may be under way at once."""

    def __init__(self, lab, size=60_000, secure=True):
        number = next(_numbers)
        self.lab = lab
        self.size = size
        self.body = SyntheticBody(size, seed=number)
        self.sha256 = self.body.sha256
        self.place = (names.CDN if secure else LOOPBACK, f"/payload{number}")
        self.secure = secure
        self.url = f"http{'s' if secure else ''}://" + "".join(self.place)
        self.cache = lab.folder / f"cache{number}"
        self.cancel_at = 0

    @property
    def honest(self):
        return Reply(200, self.body, etag='"one"')

    def serve(self, *replies):
        self.lab.on(*self.place, list(replies) or self.honest, secure=self.secure)
        return self

    def start(self):
        words = [self.url, str(self.size), self.sha256, self.lab.windows_path(self.cache), str(self.cancel_at)]
        return self.lab.start(self.lab.tree, [LOOPBACK_TRANSFER, *words])

    def fetch(self, end=None):
        run = self.start()
        if end:
            end.let_go(self.cache)
        return read_download(told(run), self.size)

    @property
    def requests(self):
        return self.lab.requests_to(*self.place)

    @property
    def part(self):
        path = self.cache / f"{self.sha256}.part"
        return path.read_bytes() if path.exists() else None

    def assert_arrived(self, report):
        assert report.code == 0
        assert (report.result.success, report.result.canceled, report.result.os) == (1, 0, 0)
        assert self.part == self.body.read_all()


@pytest.fixture
def lab(lab, tree):
    """With a launcher to call."""
    lab.tree = tree
    return lab


@pytest.fixture
def http(lab):
    with loopback_server(lab):
        yield


def test_whole_payload_in_one_piece(lab, http):
    def check(secure):
        download = Download(lab, secure=secure).serve()
        report = download.fetch()
        download.assert_arrived(report)
        assert (report.result.attempts, report.result.http) == (1, 200)
        assert report.course() == PLAIN_COURSE
        assert set(report.values("restarted")) == {0}
        assert report.seen[0].fields == {
            "phase": CONNECTING, "bytes": 0, "network": 0, "attempt": 1, "rate": -1.0, "restarted": 0}
        assert report.seen[-1].network == download.size
        [request] = download.requests
        assert request.range is None

    together(check, [True, False])


def test_broken_transfer_goes_on_where_it_stopped(lab):
    download = Download(lab)
    download.serve(download.honest.but(cut_at=25_000), download.honest)
    report = download.fetch()
    download.assert_arrived(report)
    assert (report.result.attempts, report.result.http) == (2, 206)
    assert report.course() == [CONNECTING, RECEIVING, RETRYING, *PLAIN_COURSE]
    assert set(report.values("restarted")) == {0}
    assert [line.bytes for line in report.of_phase(RETRYING)] == [25_000]
    assert report.seen[-1].network == download.size
    assert [request.range for request in download.requests] == [None, "bytes=25000-"]


def test_transfers_that_begin_anew_say_so(lab):
    """Without a tag, with a server that lost its place, and with one that does not know ranges."""
    untagged, lost, rangeless = downloads = [Download(lab) for _ in range(3)]
    untagged.serve(untagged.honest.but(etag=None, cut_at=25_000), untagged.honest)
    lost.serve(lost.honest.but(cut_at=25_000), Reply(416), lost.honest)
    rangeless.serve(rangeless.honest.but(cut_at=25_000), rangeless.honest.but(honour_range=False))
    reports = together(Download.fetch, downloads)
    for download, report, attempts in zip(downloads, reports, (2, 3, 2)):
        download.assert_arrived(report)
        assert (report.result.attempts, report.result.http) == (attempts, 200)
        assert report.seen[-1].network == download.size + 25_000
        restarts = [line.attempt for line in report.seen if line.restarted]
        assert restarts and min(restarts) == attempts - 1 + (download is rangeless)
        assert [line.bytes for line in report.seen if line.restarted][0] == 0
    assert [request.range for request in lost.requests] == [None, "bytes=25000-", None]


def test_speed_is_told_once_it_is_known(lab):
    download = Download(lab, 260_000)
    download.serve(download.honest.but(throttle=100_000))
    report = download.fetch()
    download.assert_arrived(report)
    received = [line.bytes for line in report.of_phase(RECEIVING)]
    assert received[0] == 0 and len(set(received)) > 3
    rates = report.values("rate")
    known = [rate for rate in rates if rate >= 0]
    assert known and all(rate == -1.0 for rate in rates[: rates.index(known[0])])
    assert -1.0 not in rates[rates.index(known[0]) :]


REPORT_SECONDS = 0.25  # the least time between two reports of one body


class LateEnd:
    """Bytes that come so long after the others that they have a report of their own, however late the others were
    read. `held` are changes of the reply that is to end late."""

    def __init__(self, lab):
        self._gate = lab.gate()
        self.held = {"stall_for": self._gate, "after_stall": "continue"}

    def let_go(self, cache):
        """`cache` is the folder of the transfer, whose trace tells that the body has begun."""
        trace = cache / "download-trace.jsonl"
        wait_until(lambda: trace.exists() and b'"headers-accepted"' in trace.read_bytes(), f"a body below {cache}")
        time.sleep(2 * REPORT_SECONDS)  # the clock of a report is coarse
        self._gate.release()


def test_transfer_is_cancelled_where_it_was_told_to(lab):
    def check(case):
        cancel_at, cancelled = case
        download, end = Download(lab), LateEnd(lab)
        download.serve(download.honest.but(stall_at=download.size - 1, **end.held))
        download.cancel_at = cancel_at
        report = download.fetch(end)
        assert report.result.canceled == cancelled
        assert report.code == (CANCELLED if cancelled else 0)
        if not cancelled:
            download.assert_arrived(report)
            return
        assert report.result.attempts == 1 and report.result.http == 200
        assert report.course() == [CONNECTING, RECEIVING, STOPPED]
        told_first = [line.bytes >= cancel_at for line in report.of_phase(RECEIVING)]
        assert told_first.index(True) == len(told_first) - 1, "nothing is received after it"
        assert report.seen[-1].bytes >= cancel_at

    sizes = (1, 30_000, 59_999, 60_000)
    together(check, [(at, 1) for at in sizes] + [(60_001, 0), (2**64 - 1, 0), (0, 0)])


def test_cancelled_transfer_goes_on_with_the_next_run(lab):
    download, end = Download(lab), LateEnd(lab)
    download.serve(download.honest.but(stall_at=40_000, cut_at=50_000, **end.held), download.honest)
    download.cancel_at = 20_000
    assert download.fetch(end).code == CANCELLED
    kept = len(download.part)
    assert 20_000 <= kept < download.size
    download.cancel_at = 0
    report = download.fetch()
    download.assert_arrived(report)
    assert report.result.http == 206 and report.seen[0].bytes == kept
    assert report.seen[-1].network == download.size - kept


def test_second_run_is_served_from_the_cache(lab):
    """And not cancelled, since nothing is received."""
    download = Download(lab).serve()
    download.assert_arrived(download.fetch())
    download.cancel_at = 1
    report = download.fetch()
    download.assert_arrived(report)
    assert report.seen[-1].phase == CACHED and set(report.course()) <= {VERIFYING, CACHED}
    assert set(report.values("network")) == {0} and report.result.http == 0
    assert len(download.requests) == 1


def test_damaged_cache_is_fetched_anew(lab):
    download = Download(lab).serve()
    download.assert_arrived(download.fetch())
    (download.cache / f"{download.sha256}.part").write_bytes(bytes(download.size))
    report = download.fetch()
    download.assert_arrived(report)
    assert report.course() == [VERIFYING, *PLAIN_COURSE]
    assert len(download.requests) == 2


def test_answers_that_end_a_transfer_at_once(lab, http):
    """(what is served, status that is told)"""
    cases = {
        "gone": (lambda honest: Reply(404), 404),
        "out of range": (lambda honest: Reply(416), 416),
        "not implemented": (lambda honest: Reply(501), 501),
        "too long": (lambda honest: honest.but(body=SyntheticBody(60_001)), 200),
        "too short": (lambda honest: honest.but(body=SyntheticBody(59_999)), 200),
        "other bytes": (lambda honest: honest.but(body=SyntheticBody(60_000, seed=99)), 200),
        "sign-in page": (lambda honest: html(), 200),
        "compressed": (lambda honest: honest.but(content_encoding="gzip"), 200),
        "long wait": (lambda honest: Reply(503, headers={"Retry-After": "61"}), 503),
    }

    def check(kind):
        answer, status = cases[kind]
        download = Download(lab)
        download.serve(answer(download.honest))
        report = download.fetch()
        assert report.code == FAILED
        assert (report.result.success, report.result.canceled) == (0, 0)
        assert (report.result.attempts, report.result.http, report.result.os) == (1, status, 0)
        received = [RECEIVING, VERIFYING] if kind == "other bytes" else []
        assert report.course() == [CONNECTING, *received, LOST]
        assert len(download.requests) == 1

    together(check, cases)


def test_redirect_is_never_followed_from_the_loopback(lab, http):
    elsewhere = Download(lab).serve()
    download = Download(lab, secure=False).serve(redirect(elsewhere.url))
    report = download.fetch()
    assert (report.code, report.result.http) == (FAILED, 302)
    assert elsewhere.requests == []


def test_unreachable_server_is_tried_three_times(lab, http):
    """One that nobody is at, and one that is never ready."""
    nobody, busy = Download(lab, secure=False), Download(lab).serve(Reply(503))
    nobody.url = nobody.url.replace(LOOPBACK, f"{LOOPBACK}:9")
    for report, http_status, error in zip(together(Download.fetch, [nobody, busy]), (0, 503), (CANNOT_CONNECT, 0)):
        assert report.code == FAILED
        assert (report.result.attempts, report.result.http, report.result.os) == (3, http_status, error)
        assert report.course() == [CONNECTING, RETRYING, CONNECTING, RETRYING, CONNECTING, LOST]
        assert report.values("attempt") == [1, 1, 2, 2, 3, 3]
    assert len(busy.requests) == 3


def test_orders_that_the_engine_refuses_make_a_result_and_nothing_else(lab, http):
    changes = {
        "no address": {"url": ""},
        "words": {"url": "payload"},
        "plain http elsewhere": {"url": f"http://{names.CDN}/payload"},
        "plain http by name": {"url": "http://localhost/payload"},
        "plain http beside the loopback": {"url": "http://127.0.0.2/payload"},
        "with a user": {"url": f"http://user:word@{LOOPBACK}/payload"},
        "ftp": {"url": f"ftp://{names.CDN}/payload"},
        "local file": {"url": "C:\\payload"},
        "digest in capitals": {"sha256": "A" * 64},
        "short digest": {"sha256": "a" * 63},
        "no digest": {"sha256": ""},
        "no bytes": {"size": 0},
        "too many bytes": {"size": 0x80000001},
        "as many bytes as can be counted": {"size": 2**64 - 1},
    }

    def check(change):
        download = Download(lab, secure=False)
        for name, value in changes[change].items():
            setattr(download, name, value)
        report = download.fetch()
        assert report.code == FAILED
        assert set(report.result.fields.values()) == {0}
        assert report.seen == []
        assert not download.cache.exists()

    together(check, changes)
    assert lab.requests == []


def test_largest_payload_is_asked_for(lab):
    """The size alone refuses nothing."""
    download = Download(lab)
    download.serve(Reply(404))
    download.size = 0x80000000
    report = download.fetch()
    assert (report.code, report.result.http, report.result.attempts) == (FAILED, 404, 1)


# Two sources.


class Mirrored:
    """A payload with its places at both sources and a cache of its own."""

    FOLDERS = {"primary": "github", "backup": "r2"}

    def __init__(self, lab, size=60_000):
        number = next(_numbers)
        self.lab = lab
        self.size = size
        self.payload = Payload(SyntheticBody(size, seed=number), f"payload{number}.bin")
        self.cache = lab.folder / f"cache{number}"
        self.cancel_at = 0
        self.window = 0
        self.serve("primary").serve("backup")

    def honest(self, source):
        return self.payload.reply(etag=f'"{source}"')

    def serve(self, source, *replies):
        self.payload.publish(self.lab, *(replies or [self.honest(source)]), source=source)
        return self

    def start(self, backup=None):
        backup = self.payload.url("backup") if backup is None else backup
        words = [self.payload.url(), backup, str(self.size), self.payload.sha256,
                 self.lab.windows_path(self.cache), str(self.cancel_at), str(self.window)]
        return self.lab.start(self.lab.tree, [MIRROR, *words])

    def run(self, backup=None):
        return told(self.start(backup))

    def fetch(self, backup=None):
        return read_mirror(self.run(backup), self.size)

    def requests(self, source):
        return self.payload.requests(self.lab, source)

    def part(self, folder):
        path = self.cache / folder / f"{self.payload.sha256}.part"
        return path.read_bytes() if path.exists() else None

    def assert_arrived(self, report, source):
        assert report.code == 0
        assert self.part(self.FOLDERS[source]) == self.payload.body.read_all()
        assert report.seen[-1].backup == (source == "backup")


def test_primary_brings_the_payload_if_it_can(lab):
    mirrored = Mirrored(lab)
    report = mirrored.fetch()
    mirrored.assert_arrived(report, "primary")
    assert report.result.http == 200
    assert report.course() == PLAIN_COURSE, "nothing is compared before the first byte"
    assert {(line.backup, line.slow) for line in report.seen} == {(0, 0)}
    assert mirrored.requests("backup") == [] and len(mirrored.requests("primary")) == 1


def test_without_a_backup_there_is_one_source_and_one_folder(lab):
    good, gone = Mirrored(lab), Mirrored(lab).serve("primary", Reply(404))
    report, lost = together(lambda mirrored: mirrored.fetch(backup=""), [good, gone])
    assert report.code == 0 and report.course() == PLAIN_COURSE
    assert good.part("") == good.payload.body.read_all()
    assert (lost.code, lost.result.http, lost.course()) == (FAILED, 404, [CONNECTING, LOST])
    assert good.requests("backup") == gone.requests("backup") == []


def test_backup_takes_over_from_a_primary_that_fails(lab):
    reasons = {
        "gone": (lambda honest: Reply(404), [CONNECTING]),
        "other bytes": (lambda honest: honest.but(body=SyntheticBody(60_000, seed=99)),
                        [CONNECTING, RECEIVING, VERIFYING]),
        "sign-in page": (lambda honest: html(), [CONNECTING]),
        "too long": (lambda honest: honest.but(body=SyntheticBody(60_001)), [CONNECTING]),
        "long wait": (lambda honest: Reply(503, headers={"Retry-After": "61"}), [CONNECTING]),
    }

    def check(reason):
        answer, course = reasons[reason]
        mirrored = Mirrored(lab)
        mirrored.serve("primary", answer(mirrored.honest("primary")))
        report = mirrored.fetch()
        mirrored.assert_arrived(report, "backup")
        assert report.result.http == 200
        assert report.course() == [*course, SWITCHING, *PLAIN_COURSE]
        [switch] = report.of_phase(SWITCHING)
        assert (switch.backup, switch.slow) == (1, 0)
        assert {line.slow for line in report.seen} == {0}

    together(check, reasons)


def test_failure_that_another_source_cannot_cure_is_final(lab):
    mirrored = Mirrored(lab)
    mirrored.serve("primary", mirrored.honest("primary").but(content_encoding="gzip"))
    done = mirrored.run()
    result, *seen = read_lines(done.output)
    assert done.code == FAILED and result.fields == {"success": 0, "canceled": 0, "http": 200}
    assert [line.phase for line in seen] == [CONNECTING], "the first source's failure is not reported"
    assert mirrored.requests("backup") == []


def test_both_sources_down_fail_once(lab):
    mirrored = Mirrored(lab).serve("primary", Reply(404)).serve("backup", Reply(410))
    report = mirrored.fetch()
    assert (report.code, report.result.http) == (FAILED, 410)
    assert report.course() == [CONNECTING, SWITCHING, CONNECTING, LOST]
    assert report.values("backup") == [0, 1, 1, 1]


def test_cancel_holds_at_either_source(lab):
    def check(source):
        mirrored = Mirrored(lab)
        mirrored.cancel_at = 30_000
        if source == "backup":
            mirrored.serve("primary", Reply(404))
        end = LateEnd(lab)
        mirrored.serve(source, mirrored.honest(source).but(stall_at=mirrored.size - 1, **end.held))
        run = mirrored.start()
        end.let_go(mirrored.cache / mirrored.FOLDERS[source])
        report = read_mirror(told(run), mirrored.size)
        assert (report.code, report.result.canceled, report.result.http) == (CANCELLED, 1, 200)
        assert report.seen[-1].phase == STOPPED and report.seen[-1].bytes >= 30_000
        assert report.seen[-1].backup == (source == "backup")
        if source == "primary":
            assert mirrored.requests("backup") == []

    together(check, names.SOURCES)


def test_second_run_of_a_mirrored_transfer_is_served_from_the_cache(lab):
    """From the folder of whichever source brought it, in one report."""
    def check(source):
        mirrored = Mirrored(lab)
        if source == "backup":
            mirrored.serve("primary", Reply(404))
        mirrored.assert_arrived(mirrored.fetch(), source)
        before = len(mirrored.requests("primary")) + len(mirrored.requests("backup"))
        report = mirrored.fetch()
        mirrored.assert_arrived(report, source)
        assert [line.fields for line in report.seen] == [
            {"phase": CACHED, "bytes": mirrored.size, "backup": int(source == "backup"), "slow": 0}]
        assert report.result.http == 0
        assert len(mirrored.requests("primary")) + len(mirrored.requests("backup")) == before

    together(check, names.SOURCES)


def test_window_lets_a_faster_backup_take_over(lab):
    """And leaves the primary alone if the backup is no faster. More than ten seconds remain, so they are compared."""
    def check(backup_is_fast):
        mirrored = Mirrored(lab, 6_000_000)
        mirrored.window = 300
        mirrored.cancel_at = 0 if backup_is_fast else 400_000
        mirrored.serve("primary", mirrored.honest("primary").but(throttle=150_000))
        if not backup_is_fast:
            mirrored.serve("backup", mirrored.honest("backup").but(throttle=150_000))
        report = mirrored.fetch()
        probe, *transfers = mirrored.requests("backup")
        assert probe.range == f"bytes=0-{0x400000 - 1}"
        [comparing] = report.of_phase(COMPARING)
        assert (comparing.backup, comparing.slow) == (0, 0)
        assert 0x20000 <= comparing.bytes < mirrored.size
        if backup_is_fast:
            mirrored.assert_arrived(report, "backup")
            assert report.course() == [CONNECTING, RECEIVING, COMPARING, SWITCHING, *PLAIN_COURSE]
            [switch] = report.of_phase(SWITCHING)
            assert (switch.backup, switch.slow) == (1, 1)
            assert not any(line.slow for line in report.seen if line.phase != SWITCHING)
            assert len(transfers) == 1
        else:
            assert report.code == CANCELLED and transfers == []
            assert report.course() == [CONNECTING, RECEIVING, COMPARING, RECEIVING, STOPPED]
            assert set(report.values("backup")) == {0}

    together(check, [True, False])


def test_long_window_is_not_reached(lab):
    """The window's length is the one that was given."""
    mirrored = Mirrored(lab, 6_000_000)
    mirrored.window, mirrored.cancel_at = 600_000, 300_000
    mirrored.serve("primary", mirrored.honest("primary").but(throttle=150_000))
    report = mirrored.fetch()
    assert report.code == CANCELLED and COMPARING not in report.course()
    assert mirrored.requests("backup") == []


# Several files.


class Session:
    """Two payloads of the same bytes at places of their own, as one update would fetch them."""

    def __init__(self, lab, size=60_000):
        self.lab = lab
        self.size = size
        body = SyntheticBody(size, seed=next(_numbers))
        self.payloads = [Payload(body, f"file{next(_numbers)}.bin") for _ in range(2)]
        self.cache = lab.folder / f"cache{next(_numbers)}"
        self.cancel_at = 0
        for file, source in itertools.product((0, 1), names.SOURCES):
            self.serve(file, source)

    def serve(self, file, source, reply=None):
        self.payloads[file].publish(self.lab, reply or self.payloads[file].reply(etag=f'"{source}"'), source=source)
        return self

    def fetch(self, end=None, file=0):
        """Exit code and fields of each line. `end` is that of a file from the primary."""
        urls = [payload.url(source) for payload in self.payloads for source in names.SOURCES]
        run = self.lab.start(self.lab.tree, [SESSION, *urls, str(self.size), self.payloads[0].sha256,
                                             self.lab.windows_path(self.cache), str(self.cancel_at)])
        if end:
            end.let_go(self.cache / f"payload-{file}/github")
        done = told(run)
        lines = read_lines(done.output)
        assert {line.word for line in lines} == {"SESSION_RESULT"}
        return done.code, [tuple(line.fields.values()) for line in lines]

    def requests(self, file, source):
        return self.payloads[file].requests(self.lab, source)

    def files(self):
        """Which payloads lie whole in which folder."""
        whole = self.payloads[0].body.read_all()
        return {path.parent.relative_to(self.cache).as_posix() for path in self.cache.rglob("*.part")
                if path.read_bytes() == whole}


ONE, TWO = (0, 1, 0), (1, 1, 0)  # file, success, canceled; the preference comes behind


def test_files_of_a_session_have_folders_of_their_own(lab):
    session = Session(lab)
    assert session.fetch() == (0, [(*ONE, 1), (*TWO, 1)])
    assert session.files() == {"payload-0/github", "payload-1/github"}
    # They are compared once, before the first byte of the first file; its transfer is the second request.
    assert [len(session.requests(0, source)) for source in names.SOURCES] == [2, 1]
    assert [len(session.requests(1, source)) for source in names.SOURCES] == [1, 0]


def test_source_that_took_over_is_the_first_for_the_next_file(lab):
    """Too small to be measured, so that the primary is asked first at all."""
    session = Session(lab).serve(0, "primary", Reply(404))
    assert session.fetch() == (0, [(*ONE, 2), (*TWO, 2)])
    assert session.files() == {"payload-0/r2", "payload-1/r2"}
    assert session.requests(1, "primary") == []


def test_preferred_backup_that_fails_gives_the_primary_its_place_back(lab):
    session = Session(lab).serve(0, "primary", Reply(404)).serve(1, "backup", Reply(404))
    assert session.fetch() == (0, [(*ONE, 2), (*TWO, 1)])
    assert session.files() == {"payload-0/r2", "payload-1/github"}


def test_measured_backup_comes_first_for_both_files(lab):
    session = Session(lab, 400_000).serve(0, "primary", Reply(404))
    assert session.fetch() == (0, [(*ONE, 2), (*TWO, 2)])
    [probe] = session.requests(0, "primary")
    assert probe.range == "bytes=0-399999", "no transfer was tried there"
    assert session.requests(1, "primary") == []


def test_session_ends_with_the_first_file_that_fails(lab):
    first = Session(lab).serve(0, "primary", Reply(404)).serve(0, "backup", Reply(404))
    second = Session(lab).serve(1, "primary", Reply(404)).serve(1, "backup", Reply(404))
    cancelled, end = Session(lab), LateEnd(lab)
    for source in names.SOURCES:
        slow = cancelled.payloads[0].reply(etag=f'"{source}"').but(stall_at=59_999, **end.held)
        cancelled.serve(0, source, slow)
    cancelled.cancel_at = 30_000
    done = together(lambda session: session.fetch(end if session is cancelled else None), [first, second, cancelled])
    assert done == [
        (FAILED, [(0, 0, 0, 0)]),
        (FAILED, [(*ONE, 1), (1, 0, 0, 1)]),
        (CANCELLED, [(0, 0, 1, 0)]),
    ]
    for session in (first, cancelled):
        assert not (session.cache / "payload-1").exists()
        assert [session.requests(1, source) for source in names.SOURCES] == [[], []]


def test_second_session_is_served_from_the_cache_and_prefers_nobody(lab):
    session = Session(lab).serve(0, "primary", Reply(404))
    assert session.fetch()[0] == 0
    before = len(lab.requests)
    assert session.fetch() == (0, [(*ONE, 0), (*TWO, 0)])
    assert len(lab.requests) == before


def test_cancel_reaches_the_second_file_too(lab):
    """The first one lies in the cache, where nothing is received and so nothing cancelled."""
    session = Session(lab).serve(1, "primary", Reply(404)).serve(1, "backup", Reply(404))
    assert session.fetch()[0] == FAILED
    end = LateEnd(lab)
    for source in names.SOURCES:
        slow = session.payloads[1].reply(etag=f'"{source}"').but(stall_at=59_999, **end.held)
        session.serve(1, source, slow)
    session.cancel_at = 30_000
    assert session.fetch(end, file=1) == (CANCELLED, [(*ONE, 0), (1, 0, 1, 0)])


# Whole updates of another folder.

UP_TO_DATE, APPLIED, TOO_OLD, UPDATE_FAILED = 1, 4, 5, 6
BEFORE, AFTER = "1.0.0.0", "1.1.0.0"


class Site:
    """An installation that the launcher of another one is sent to."""

    def __init__(self, lab, name="site", **options):
        self.lab = lab
        self.tree = install(lab, name, **options)
        self.begin = self.tree.snapshot()

    def send(self, switch, *words):
        """(exit code, outcome, safe) after a look at all that must hold in any case."""
        before = self.lab.tree.snapshot(folders=True)
        # A prompt is left alone: it must say yes by itself.
        done = tell(self.lab, self.lab.tree, switch, self.tree.windows().rstrip("\\"), *words, answers=["wait"])
        assert self.lab.tree.snapshot(folders=True) == before, "the launcher's own folder is none of this"
        assert done.run.app is None
        assert switch == INSTALL or done.run.windows == []
        self.run = done.run
        [line] = read_lines(done.output)
        assert line.word == {INSTALL: "R2_INSTALL_RESULT", UPDATE: "R2_UPDATE_RESULT"}[switch]
        return done.code, line.outcome, line.safe

    def assert_updated(self):
        assert self.tree.application_version() == AFTER
        assert self.tree.read_configuration()["productVersion"] == AFTER
        self.tree.assert_no_leftovers()

    def assert_unchanged(self):
        state = (".vpr-update", ".vpr-update/*", "update-state.json")
        assert self.tree.snapshot(exclude=state) == {
            path: content for path, content in self.begin.items() if not path.startswith(".vpr-update")}


def shown_fields(tree):
    """What lies where, but for what tells the time."""
    return tree.snapshot(exclude=("update-state.json", "*/download-trace.jsonl", "*.resume"), folders=True)


def test_update_from_the_backup_leaves_what_a_normal_one_leaves(lab):
    update().publish(lab, "backup")
    site, other = Site(lab), Site(lab, "other", manifest_url=names.BACKUP_MANIFEST_URL)
    assert site.send(INSTALL, BEFORE) == (0, APPLIED, 1)
    site.assert_updated()
    assert {request.host for request in lab.requests} == {names.BACKUP}
    assert site.run.windows, "it is shown"
    assert lab.run(other.tree, answers=["yes"]).app.version == AFTER
    normal, sent = other.tree.read_configuration(), site.tree.read_configuration()
    assert normal | {"updateManifestUrl": None} == sent | {"updateManifestUrl": None}
    different = {"current.json", "update-state.json"}
    assert {path: content for path, content in shown_fields(site.tree).items() if path not in different} == {
        path: content for path, content in shown_fields(other.tree).items() if path not in different}
    assert site.tree.path("update-state.json").exists()


def test_update_from_the_backup_is_not_put_off(lab):
    """Asked for once more at once, when the schedule says nothing of it."""
    site = Site(lab, interval=43200)
    update(BEFORE).publish(lab, "backup")
    assert site.send(INSTALL, BEFORE) == (NOT_DONE, UP_TO_DATE, 1)
    update().publish(lab, "backup")
    assert site.send(INSTALL, BEFORE) == (0, APPLIED, 1)
    site.assert_updated()


def test_update_from_the_backup_must_come_from_there_alone(lab):
    new = update()
    new.publish(lab, "both", foreign_url={APPLICATION_PATH: "https://" + "".join(new.place(APPLICATION_PATH))})
    site = Site(lab)
    assert site.send(INSTALL, BEFORE) == (NOT_DONE, UPDATE_FAILED, 1)
    site.assert_unchanged()
    assert {request.host for request in lab.requests} == {names.BACKUP}


def test_update_from_the_backup_that_is_not_applied(lab):
    """Nothing newer, a launcher too old, a wrong payload, nobody there, and a folder that cannot be settled."""
    release = update()
    wrong = release.payload_reply(APPLICATION_PATH, "backup").but(body=SyntheticBody(1000))
    site = Site(lab)
    update(BEFORE).publish(lab, "backup")
    assert site.send(INSTALL, BEFORE) == (NOT_DONE, UP_TO_DATE, 1)
    update(minimum_launcher="9.0.0.0").publish(lab, "backup")
    assert site.send(INSTALL, BEFORE) == (NOT_DONE, TOO_OLD, 1)
    release.publish(lab, "backup", payloads={APPLICATION_PATH: wrong})
    assert site.send(INSTALL, BEFORE) == (NOT_DONE, UPDATE_FAILED, 1)
    lab.set_mode(names.BACKUP, "refuse")
    assert site.send(INSTALL, BEFORE) == (NOT_DONE, UPDATE_FAILED, 1)
    site.assert_unchanged()
    unsettled = Site(lab, "unsettled", files={".vpr-update": b"a file"})
    assert unsettled.send(INSTALL, BEFORE) == (NOT_DONE, UPDATE_FAILED, 0)
    assert unsettled.tree.snapshot() == unsettled.begin


def local_release(lab, release, name):
    """The release as files; the Windows path of its manifest."""
    folder = lab.folder / name
    folder.mkdir()

    def point_here(manifest):
        for number, entry in enumerate(manifest["files"]):
            (folder / f"payload{number}").write_bytes(release.payload(release.name_of(entry["path"])).read_all())
            entry["url"] = lab.windows_path(folder / f"payload{number}")

    path = folder / "stable.json"
    path.write_bytes(release.manifest(edit=point_here))
    return lab.windows_path(path)


def test_update_from_files(lab):
    """Nobody is asked, nothing is shown and no server is spoken to."""
    site = Site(lab)
    here, missing = local_release(lab, update(), "release"), lab.windows_path(lab.folder / "missing.json")
    assert site.send(UPDATE, here, missing, BEFORE) == (0, APPLIED, 1)
    site.assert_updated()
    assert site.send(UPDATE, here, missing, AFTER) == (0, UP_TO_DATE, 1)
    assert lab.requests == []


def test_update_from_the_second_manifest_if_the_first_cannot_be_read(lab):
    here, missing = local_release(lab, update(), "release"), lab.windows_path(lab.folder / "missing.json")
    (lab.folder / "broken.json").write_bytes(b"{}")
    for number, bad in enumerate([missing, lab.windows_path(lab.folder / "broken.json"), names.PRIMARY_MANIFEST_URL]):
        site = Site(lab, f"site {number}")
        assert site.send(UPDATE, bad, here, BEFORE) == (0, APPLIED, 1)
        site.assert_updated()
    [request] = lab.requests
    assert request.host == names.PRIMARY_MANIFEST, "each is tried once"


def test_update_from_addresses(lab):
    """Wherever the manifest of the backup leads."""
    new = update()
    new.publish(lab, "primary")
    lab.on(*names.manifest_place("backup"), new.manifest_reply("primary"))
    site, other = Site(lab), Site(lab, "other")
    assert site.send(UPDATE, names.PRIMARY_MANIFEST_URL, names.BACKUP_MANIFEST_URL, BEFORE) == (0, APPLIED, 1)
    site.assert_updated()
    assert lab.requests_to(names.BACKUP) == []
    lab.on(*names.manifest_place("primary"), Reply(404))
    assert other.send(UPDATE, names.PRIMARY_MANIFEST_URL, names.BACKUP_MANIFEST_URL, BEFORE) == (0, APPLIED, 1)
    other.assert_updated()
    assert len(lab.requests_to(names.BACKUP)) == 1


def test_update_goes_by_the_version_that_was_given(lab):
    """Not by the settings in the folder."""
    here = local_release(lab, update(), "release")
    newer, same = Site(lab, "newer"), Site(lab, "same")
    assert newer.send(UPDATE, here, here, "9.0.0.0") == (0, UP_TO_DATE, 1)
    newer.assert_unchanged()
    assert same.send(UPDATE, here, here, AFTER) == (0, APPLIED, 1), "a repair, without asking"
    assert same.tree.application_version() == AFTER


def test_update_from_files_that_is_not_applied(lab):
    missing = lab.windows_path(lab.folder / "missing.json")
    lying = local_release(lab, update(), "lying")
    (lab.folder / "lying/payload0").write_bytes(b"x" * len(update().payload(update().name_of(APPLICATION_PATH))))
    ahead = local_release(lab, update(minimum_launcher="9.0.0.0"), "ahead")
    site = Site(lab)
    assert site.send(UPDATE, missing, missing, BEFORE) == (NOT_DONE, UPDATE_FAILED, 1)
    assert site.send(UPDATE, lying, missing, BEFORE) == (NOT_DONE, UPDATE_FAILED, 1)
    assert site.send(UPDATE, ahead, missing, BEFORE) == (NOT_DONE, TOO_OLD, 1)
    site.assert_unchanged()
    unsettled = Site(lab, "unsettled", files={".vpr-update": b"a file"})
    assert unsettled.send(UPDATE, missing, missing, BEFORE) == (NOT_DONE, UPDATE_FAILED, 0)
    assert unsettled.tree.snapshot() == unsettled.begin
    assert lab.requests == []

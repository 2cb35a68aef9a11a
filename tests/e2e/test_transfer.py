"""The download engine alone, against one real server that breaks off, lies, stalls, changes its mind or goes away.

Nearly every test waits for something: the engine's own pauses are a second or two. So a test tells several stories at
the same time, each with a path on the server and a cache folder of its own.
"""

import copy
import email.utils
import os
import re
import shutil
import time

import pytest

from lab import Reply, SyntheticBody, names, redirect
from lab.transfer import (
    SOLO_SIZE, Cache, Solo, finish_transfers, reset_before_headers, reset_connection, start_transfers, together,
    transfer,
)

SIZE = SOLO_SIZE
HALF = SIZE // 2
TAG, OLD_TAG = '"one"', '"old"'
FRESH = (None, None)  # a request without Range and If-Range

TIMEOUT, NO_SUCH_NAME, CANNOT_CONNECT = 12002, 12007, 12029
TRIES = 8
CLOCK_STEP = 0.05  # seconds that a program's clock may lie behind this one
DISK_FULL = 112


def tell(lab, *stories):
    """All at once."""
    together(lambda story: story(Solo(lab, story.__name__)), stories, workers=len(stories))


def variants(lab, work, table):
    """`work(solo, value)` for each named value."""
    def one(item):
        name, value = item
        work(Solo(lab, name.replace(" ", "-")), value)

    together(one, table.items())


def rest(position, etag=TAG):
    """How everything from there on is asked for."""
    return f"bytes={position}-", etag


def assert_complete(solo, fetched, attempts=1):
    assert (fetched.success, fetched.canceled, fetched.reason) == (True, False, ""), fetched
    assert fetched.attempts == attempts
    assert fetched.path == f"{solo.cache.windows}\\{solo.payload.sha256}.part"
    assert solo.part == solo.payload.body.read_all()
    last = fetched.reports[-1]
    assert (last["phase"], last["bytes"], last["total"]) == ("complete", solo.payload.size, solo.payload.size)


def assert_failed(fetched, reason, attempts=1):
    assert (fetched.success, fetched.canceled, fetched.path) == (False, False, "")
    assert (fetched.reason, fetched.attempts) == (reason, attempts)
    assert [report["phase"] for report in fetched.reports[-1:]] == (["failed"] if attempts else [])


def accepted(fetched, attempt):
    """What was told when the headers of that attempt had been accepted."""
    return next(report for report in fetched.of_phase("receiving") if report["attempt"] == attempt)


def assert_nothing_kept(solo):
    assert (solo.part, solo.resume) == (b"", None)


def assert_kept(solo, length, etag=TAG):
    """What is there can be continued."""
    assert solo.part == solo.payload.body.slice(0, length)
    assert solo.resume == solo.resume_text(etag)


class Changing(Solo):
    """A place where another entity of the same size stood before."""

    def __init__(self, lab, name, size=SIZE):
        super().__init__(lab, name, SyntheticBody(size))
        self.old = Reply(200, SyntheticBody(size, seed=2), etag=OLD_TAG)
        self.entities = {OLD_TAG: self.old.body, TAG: self.payload.body}


# A whole download.


def test_whole_payload_arrives_and_is_traced(lab):
    solo = Solo(lab)
    solo.serve(solo.reply(body_delay=0.3))
    begin = int(time.time())
    fetched = solo.fetch()
    assert_complete(solo, fetched)
    assert fetched.course() == ["connecting", "receiving", "verifying", "complete"]
    assert (solo.asked, solo.sent) == ([FRESH], [SIZE])
    [request] = solo.requests
    assert request.headers["user-agent"] == "Velmora Pine Relay Launcher"
    assert request.headers["accept-encoding"] == "identity"
    assert "referer" not in request.headers
    trace = solo.cache.trace()
    assert [(line["phase"], line["reason"]) for line in trace] == [
        ("connecting", "new-request"), ("receiving", "headers-accepted"), ("verifying", "payload"),
        ("complete", "sha256-verified"),
    ]
    assert [line["bytes"] for line in trace] == [0, 0, SIZE, SIZE]
    assert [line["networkBytes"] for line in trace] == [0, 0, SIZE, SIZE]
    assert [line["httpStatus"] for line in trace] == [0, 200, 200, 200]
    assert [line["sha256Verified"] for line in trace] == [False, False, False, True]
    assert [line["firstByteMs"] >= 290 for line in trace] == [False, False, True, True]
    for line in trace:
        assert begin <= line["utc"] <= time.time()
        assert (line["component"], line["endpoint"], line["osError"]) == ("application", "other-https", 0)
        assert (line["payload"], line["attempt"], line["total"]) == (solo.payload.sha256[:12], 1, SIZE)


def test_lines_of_the_trace_have_one_exact_shape(lab):
    solo = Solo(lab)
    solo.serve()
    solo.fetch("--component", 5)
    text = (solo.cache.folder() / "download-trace.jsonl").read_bytes().decode("ascii")
    number = r"\d+"
    shape = (
        rf'{{"schema":1,"utc":{number},"component":"package","phase":"[a-z-]+","endpoint":"other-https",'
        rf'"payload":"{solo.payload.sha256[:12]}","attempt":1,"bytes":{number},"total":{SIZE},"networkBytes":{number},'
        rf'"elapsedMs":{number},"firstByteMs":{number},"bytesPerSecond":{number},'
        rf'"comparisonPrimarySpeed":0\.000000,"comparisonBackupSpeed":0\.000000,"httpStatus":{number},"osError":0,'
        rf'"sha256Verified":(true|false),"reason":"[a-z0-9-]+"}}\n'
    )
    assert re.fullmatch(f"({shape}){{4}}", text), text


def test_endpoints_have_their_names_in_the_trace(lab):
    def one(solo, place):
        host, endpoint = place
        lab.on(host.lower(), "/elsewhere", solo.reply())
        assert_complete(solo, solo.fetch(url=f"https://{host}/elsewhere"))
        assert {line["endpoint"] for line in solo.cache.trace()} == {endpoint}

    variants(lab, one, {
        "primary": (names.PRIMARY_RELEASE, "github"),
        "capitals": (names.PRIMARY_RELEASE.upper(), "github"),
        "backup": (names.BACKUP, "r2"),
        "other": (names.PRIMARY_MANIFEST, "other-https"),
    })


def test_any_size(lab):
    def one(size):
        solo = Solo(lab, f"size{size}", SyntheticBody(size))
        solo.serve()
        assert_complete(solo, solo.fetch())
        assert solo.sent == [size]

    together(one, [1, 65535, 65536, 65537, 40 << 20])


def test_answers_of_every_decent_form_are_taken(lab):
    def one(solo, changes):
        solo.serve(solo.reply().but(**changes))
        assert_complete(solo, solo.fetch())
        assert solo.resume == solo.resume_text()

    variants(lab, one, {
        "chunked": {"chunked": True},
        "no length": {"content_length": None},
        "long head": {"headers": [(f"X-Filler-{number}", "f" * 1000) for number in range(8)]},
        "identity": {"content_encoding": "Identity"},
        "no type": {"content_type": None},
        "more than was promised": {"body": SyntheticBody(SIZE + 5), "content_length": str(SIZE)},
    })


# Bodies that break off.

CUTS = [0, 1, 2, 16383, 16384, 16385, 65535, 65536, 65537, 131071, 131072, 131073, SIZE - 2, SIZE - 1]
RESETS = [0, 1, 16384, 65537, SIZE - 1]


def test_cut_anywhere_costs_an_attempt_and_no_byte(lab):
    def ended(solo, position):
        solo.serve(solo.reply(cut_at=position), solo.reply())
        return solo.fetch()

    def reset(solo, position):
        solo.serve(solo.reply(stall_at=position), solo.reply())
        started = start_transfers(lab, solo.errand())
        solo.wait_for_line(reason="headers-accepted")
        solo.wait_for_part(position)
        reset_connection(lab, solo.requests[0])
        return finish_transfers(started).only

    def one(item):
        cut, position = item
        solo = Solo(lab, f"{cut.__name__}{position}")
        fetched = cut(solo, position)
        assert_complete(solo, fetched, attempts=2)
        assert solo.asked == [FRESH, rest(position) if position else FRESH]
        assert solo.sent == [position, SIZE - position]
        assert 0.9 <= solo.pauses[0] < 5
        assert fetched.reports[-1]["network_bytes"] == SIZE
        [retrying] = fetched.of_phase("retrying")
        assert (retrying["bytes"], retrying["attempt"], retrying["restarted"]) == (position, 1, False)
        second = "resume" if position else "new-request"
        assert solo.words == ["new-request", "headers-accepted", "bounded-retry", second, "headers-accepted", "payload",
                              "sha256-verified"]

    together(one, [(reset, position) for position in RESETS] + [(ended, position) for position in CUTS])


def test_process_that_is_ended_in_the_middle_of_a_body(lab):
    solo = Solo(lab)
    solo.serve(solo.reply(throttle=200_000, stall_at=SIZE - 50_000), solo.reply())  # it cannot end before its process
    run, _ = start_transfers(lab, solo.errand())
    solo.wait_for_part(HALF)
    run.kill()
    assert run.wait().stopped
    length = len(solo.part)
    assert HALF <= length < SIZE
    assert_kept(solo, length)
    assert_complete(solo, solo.fetch())
    assert solo.asked == [FRESH, rest(length)]
    assert solo.sent[1] == SIZE - length


# Servers that go away, or were never there.


def test_servers_that_go_away(lab):
    def third_cut_ends_the_run(solo):
        solo.serve(solo.reply(cut_at=50_000), solo.reply(cut_at=30_000), solo.reply(cut_at=20_000), solo.reply())
        first = solo.fetch()
        assert_failed(first, "download-retries-exhausted", attempts=3)
        assert_kept(solo, 100_000)
        assert solo.asked == [FRESH, rest(50_000), rest(80_000)]
        assert solo.pauses[0] >= 0.9 and solo.pauses[1] >= 1.9
        assert solo.words[-1] == "retry-limit"
        before = len(solo.words)

        assert_complete(solo, solo.fetch())
        assert solo.asked[3:] == [rest(100_000)]
        assert solo.sent == [50_000, 30_000, 20_000, 100_000]
        assert solo.words[before:] == ["resume", "headers-accepted", "payload", "sha256-verified"]

        # What is complete needs no network, not even a server.
        lab.set_mode(names.CDN, "refuse")
        before = len(solo.words)
        cached = solo.fetch()
        assert (cached.success, cached.reason, cached.attempts) == (True, "", 0)
        assert cached.course() == ["verifying", "cached"]
        lines = solo.cache.trace()[before:]
        assert [(line["phase"], line["reason"], line["sha256Verified"]) for line in lines] == [
            ("verifying", "cached-payload", False), ("cached", "sha256-verified", True),
        ]
        assert lines[-1]["networkBytes"] == 0
        assert len(solo.requests) == 4

    def server_that_is_started_anew(solo):
        host = names.PRIMARY_RELEASE
        solo = Solo(lab, "anew", host=host)
        solo.serve(solo.reply(stall_at=HALF), solo.reply())
        started = start_transfers(lab, solo.errand())
        solo.wait_for_part(HALF)
        lab.set_mode(host, "refuse")
        line = solo.wait_for_line(reason="bounded-retry", attempt=2)
        assert (line["osError"], line["httpStatus"], line["bytes"]) == (CANNOT_CONNECT, 0, HALF)
        lab.set_mode(host, "serve")
        assert_complete(solo, finish_transfers(started).only, attempts=3)
        assert solo.asked == [FRESH, rest(HALF)]
        assert solo.sent == [HALF, SIZE - HALF]

    def nothing_that_listens(solo):
        lab.set_mode(names.BACKUP, "refuse")
        assert_unreachable(solo, solo.fetch(url=f"https://{names.BACKUP}/files/payload"), CANNOT_CONNECT)

    def nothing_of_that_name(solo):
        assert_unreachable(solo, solo.fetch(url="https://nowhere.lab.example/files/payload"), NO_SUCH_NAME)

    def assert_unreachable(solo, fetched, error):
        assert_failed(fetched, "download-retries-exhausted", attempts=3)
        assert (fetched.os_error, fetched.http_status) == (error, 0)
        assert 2900 <= fetched.elapsed_ms < 10_000
        assert solo.words == ["new-request", "bounded-retry"] * 2 + ["new-request", "retry-limit"]
        assert [line["osError"] for line in solo.cache.trace()] == [0, error] * 3
        assert_nothing_kept(solo)

    tell(lab, third_cut_ends_the_run, server_that_is_started_anew, nothing_that_listens, nothing_of_that_name)


@pytest.mark.parametrize("kind", ["untrusted", "self-signed", "expired", "wrong-name"])
def test_certificate_that_proves_nothing_ends_the_run(lab, kind):
    solo = Solo(lab)
    solo.serve()
    solo.leave(HALF)
    lab.set_certificate(names.CDN, kind)
    fetched = solo.fetch()
    assert_failed(fetched, "connection-failed")
    assert fetched.os_error != 0
    assert solo.requests == [] and len(lab.connections) == 1
    assert solo.words == ["resume", "connection"]
    assert_kept(solo, HALF)


def test_connection_that_is_reset_before_the_headers(lab):
    """Windows and Wine tell it by different errors, and Wine not always by the same: one that is worth another attempt,
    or one that is not. Neither costs what was kept."""
    solo = Solo(lab)
    solo.leave(HALF)
    solo.serve(reset_before_headers(lab), solo.reply())
    fetched = solo.fetch()
    if fetched.success:
        assert_complete(solo, fetched, attempts=2)
        assert solo.words[:3] == ["resume", "bounded-retry", "resume"]
    else:
        assert_failed(fetched, "connection-failed")
        assert solo.words == ["resume", "connection"]
        assert_kept(solo, HALF)
        assert_complete(solo, solo.fetch())
    assert solo.cache.trace()[1]["osError"] != 0
    assert solo.asked == [rest(HALF), rest(HALF)]
    assert solo.sent == [0, SIZE - HALF]


def test_connection_that_speaks_no_http_ends_the_run(lab):
    def one(solo, answer):
        solo.leave(HALF)
        solo.serve(answer, solo.reply())
        fetched = solo.fetch()
        assert_failed(fetched, "connection-failed")
        assert fetched.os_error != 0 and fetched.http_status == 0
        assert len(solo.requests) == 1
        assert solo.words == ["resume", "connection"]
        assert_kept(solo, HALF)

    variants(lab, one, {
        "end": Reply(raw=b""),
        "garbage": Reply(raw=b"\x00\x01 what is this?\r\n\r\n"),
        "other protocol": Reply(raw=b"220 mail.lab.example ready\r\n"),
    })


# Answers that cost the kept bytes, or an attempt, or both.


def test_answers_that_cost_kept_bytes_or_an_attempt(lab):
    def range_is_ignored(solo):
        solo.serve(solo.reply(cut_at=HALF), solo.reply(honour_range=False))
        fetched = solo.fetch()
        assert_complete(solo, fetched, attempts=2)
        assert (solo.asked, solo.sent) == ([FRESH, rest(HALF)], [HALF, SIZE])
        assert accepted(fetched, attempt=2)["restarted"]

    def range_cannot_be_satisfied(solo):
        """The server's file has become shorter than what is kept of it."""
        solo.leave(HALF)
        solo.serve(Reply(200, solo.payload.body.slice(0, HALF), etag=TAG), solo.reply())
        fetched = solo.fetch()
        assert_complete(solo, fetched, attempts=2)
        assert [request.status for request in solo.requests] == [416, 200]
        assert solo.asked == [rest(HALF), FRESH]
        [retrying] = fetched.of_phase("retrying")
        assert (retrying["bytes"], retrying["restarted"]) == (0, True)

    def part_that_nobody_asked_for(solo):
        solo.serve(solo.reply(content_range=f"bytes 0-{SIZE - 1}/{SIZE}").but(status=206), solo.reply())
        assert_complete(solo, solo.fetch(), attempts=2)
        assert solo.asked == [FRESH, FRESH]

    def empty_body_without_a_length(solo):
        solo.serve(solo.reply(content_length=None).but(body=b""), solo.reply())
        assert_complete(solo, solo.fetch(), attempts=2)
        assert solo.asked == [FRESH, FRESH]

    def chunks_that_break_off(solo):
        solo.serve(solo.reply(chunked=True, cut_at=HALF), solo.reply(chunked=True))
        assert_complete(solo, solo.fetch(), attempts=2)
        assert (solo.asked, solo.sent) == ([FRESH, rest(HALF)], [HALF, SIZE - HALF])

    def no_trace_can_be_written(solo):
        solo.serve(solo.reply(cut_at=HALF), solo.reply())
        obstacle = solo.cache.folder() / "download-trace.jsonl"
        obstacle.mkdir(parents=True)
        assert_complete(solo, solo.fetch(), attempts=2)
        assert solo.sent == [HALF, SIZE - HALF]
        assert list(obstacle.iterdir()) == []

    def whole_body_without_a_tag(solo):
        """What vouched for the bytes before must not vouch for these."""
        solo.leave(HALF)
        solo.serve(solo.reply(etag=None))
        assert_complete(solo, solo.fetch())
        assert solo.asked == [rest(HALF)]
        assert solo.resume is None

    def whole_body_of_another_length(solo):
        """The kept bytes are given up first; then the answer is judged as one to a new request."""
        solo.leave(HALF)
        solo.serve(solo.reply(honour_range=False).but(body=SyntheticBody(SIZE - HALF)))
        fetched = solo.fetch()
        assert_failed(fetched, "content-length-mismatch")
        assert solo.part == b""
        assert (fetched.reports[-1]["bytes"], fetched.reports[-1]["restarted"]) == (0, True)

    def another_place(solo):
        solo.serve()
        solo.leave(HALF, url=f"https://{names.CDN}/files/another")
        assert_complete(solo, solo.fetch())
        assert (solo.asked, solo.sent) == ([FRESH], [SIZE])

    tell(lab, range_is_ignored, range_cannot_be_satisfied, part_that_nobody_asked_for, empty_body_without_a_length,
         chunks_that_break_off, no_trace_can_be_written, whole_body_without_a_tag, whole_body_of_another_length,
         another_place)


def test_entity_that_changes(lab):
    def between_attempts(position):
        """The answer to the range request is the whole new entity, in the same attempt."""
        solo = Changing(lab, f"changed{position}")
        solo.serve(solo.old.but(cut_at=position), solo.reply())
        fetched = solo.fetch()
        assert_complete(solo, fetched, attempts=2)
        assert solo.asked == [FRESH, rest(position, OLD_TAG)]
        assert solo.sent == [position, SIZE]
        assert solo.resume == solo.resume_text()
        report = accepted(fetched, attempt=2)
        assert (report["restarted"], report["bytes"]) == (True, 0)
        assert [report["restarted"] for report in fetched.reports].count(True) == 1
        assert fetched.reports[-1]["network_bytes"] == position + SIZE

    def before_any_byte(name):
        solo = Changing(lab, name)
        solo.serve(solo.old.but(cut_at=0), solo.reply())
        assert_complete(solo, solo.fetch(), attempts=2)
        assert solo.asked == [FRESH, FRESH]
        assert solo.resume == solo.resume_text()

    def between_runs(name):
        solo = Changing(lab, name)
        solo.serve(solo.old.but(throttle=40_000), solo.reply())
        assert solo.fetch("--cancel-bytes", 50_000).canceled
        length = len(solo.part)
        assert length >= 50_000 and solo.part == solo.old.body.slice(0, length)
        assert_complete(solo, solo.fetch())
        assert solo.asked == [FRESH, rest(length, OLD_TAG)]
        assert solo.sent[1] == SIZE

    def behind_the_same_tag(name):
        """Nothing but the bytes themselves tells that they do not belong together."""
        solo = Changing(lab, name)
        solo.serve(solo.old.but(etag=TAG, cut_at=HALF), solo.reply())
        assert_failed(solo.fetch(), "sha256-mismatch", attempts=2)
        assert_nothing_kept(solo)
        assert_complete(solo, solo.fetch())
        assert solo.asked == [FRESH, rest(HALF), FRESH]

    def one(item):
        work, value = item
        work(value)

    positions = [1, 65536, HALF, SIZE - 1]
    together(one, [*((between_attempts, position) for position in positions), (before_any_byte, "no-byte"),
                   (between_runs, "between-runs"), (behind_the_same_tag, "same-tag")])


def test_part_that_does_not_prove_its_place_costs_an_attempt_and_the_bytes(lab):
    def ranged(first, last, total):
        return {"content_range": f"bytes {first}-{last}/{total}"}

    def tagged(etag):
        return {"etag": etag, "heed_if_range": False}

    def one(solo, changes):
        solo.leave(HALF)
        solo.serve(solo.reply().but(**changes), solo.reply())
        fetched = solo.fetch()
        assert_complete(solo, fetched, attempts=2)
        assert [request.status for request in solo.requests] == [206, 200]
        assert solo.asked == [rest(HALF), FRESH]
        assert solo.sent[1] == SIZE
        [retrying] = fetched.of_phase("retrying")
        assert (retrying["bytes"], retrying["restarted"], retrying["attempt"]) == (0, True, 1)

    last = SIZE - 1
    variants(lab, one, {
        "another tag": tagged('"two"'),
        "weak tag": tagged('W/"one"'),
        "no tag": tagged(None),
        "another case": tagged('"One"'),
        "start too low": ranged(HALF - 1, last, SIZE),
        "start too high": ranged(HALF + 1, last, SIZE),
        "from the front": ranged(0, last, SIZE),
        "end too low": ranged(HALF, last - 1, SIZE),
        "end too high": ranged(HALF, SIZE, SIZE),
        "another total": ranged(HALF, last, SIZE + 1),
        "no total": ranged(HALF, last, "*"),
        "no numbers": ranged("", "", ""),
        "other unit": {"content_range": f"Bytes {HALF}-{last}/{SIZE}"},
        "text behind": ranged(HALF, last, f"{SIZE} x"),
        "not said": {"content_range": None},
    })


def test_only_a_strong_tag_lets_bytes_be_kept(lab):
    longest = f'"{"x" * 254}"'
    tags = {TAG: True, '""': True, '"!#~"': True, longest: True, 'W/"one"': False, None: False, "one": False,
            '"a b"': False, '"a"b"': False, '"': False, f'"{"x" * 255}"': False, f'"{"x" * 6000}"': False}

    def one(item):
        number, (etag, strong) = item
        solo = Solo(lab, f"tag{number}")
        seen = []

        def second(request):
            seen.append((solo.part, solo.resume))
            return solo.reply()

        solo.serve(solo.reply(etag=etag, cut_at=HALF), second)
        fetched = solo.fetch()
        assert_complete(solo, fetched, attempts=2)
        assert solo.asked == [FRESH, rest(HALF, etag) if strong else FRESH]
        kept = (solo.payload.body.slice(0, HALF), solo.resume_text(etag)) if strong else (b"", None)
        assert seen == [kept]
        [retrying] = fetched.of_phase("retrying")
        assert (retrying["bytes"], retrying["restarted"]) == ((HALF, False) if strong else (0, True))

    together(one, enumerate(tags.items()))


def test_bytes_that_nothing_vouches_for_are_not_continued(lab):
    """All of it in one run of the engine, one download after the other."""
    changes = {
        "none": lambda text: None,
        "empty": lambda text: "",
        "other magic": lambda text: text.replace("-1\n", "-2\n", 1),
        "other size": lambda text: text.replace(str(SIZE), str(SIZE + 1)),
        "other url": lambda text: text.replace(text.split("\n")[2], "0" * 64),
        "upper case": lambda text: text.replace(text.split("\n")[2], text.split("\n")[2].upper()),
        "weak tag": lambda text: text.replace(TAG, f"W/{TAG}"),
        "fifth line": lambda text: text + "more\n",
        "blank line": lambda text: text + "\n",
        "carriage returns": lambda text: text.replace("\n", "\r\n"),
        "three lines": lambda text: text[: text.index(TAG)],
        "too long": lambda text: text + "x" * (1025 - len(text)),
        # Only the last line's end is missing: nothing is in doubt.
        "no end": lambda text: text[:-1],
    }
    solos = {name: Solo(lab, name.replace(" ", "-")) for name in changes}
    for name, solo in solos.items():
        solo.serve()
        solo.leave(HALF)
        text = changes[name](solo.resume_text())
        path = solo.cache.resume(solo.payload)
        path.unlink()
        if text is not None:
            path.write_bytes(text.encode())
    results = transfer(lab, *[solo.errand() for solo in solos.values()]).results
    for (name, solo), fetched in zip(solos.items(), results):
        assert_complete(solo, fetched)
        assert solo.asked == [rest(HALF) if name == "no end" else FRESH], name
        assert solo.resume == solo.resume_text(), name


def test_kept_bytes_that_are_wrong_are_found_out(lab):
    def start_of_a_part(solo):
        """It is wrong and vouched for: only the digest of the whole can tell."""
        solo.serve()
        solo.leave(HALF)
        solo.cache.part(solo.payload).write_bytes(bytes(HALF))
        assert_failed(solo.fetch(), "sha256-mismatch")
        assert_nothing_kept(solo)
        assert solo.words == ["resume", "headers-accepted", "payload", "hash"]
        assert_complete(solo, solo.fetch())
        assert solo.asked == [rest(HALF), FRESH]

    def complete_file(solo):
        solo.serve()
        solo.leave(SIZE)
        solo.cache.part(solo.payload).write_bytes(bytes(SIZE))
        assert_complete(solo, solo.fetch())
        assert solo.asked == [FRESH]
        assert solo.words == ["cached-payload", "new-request", "headers-accepted", "payload", "sha256-verified"]

    def file_that_is_too_long(solo):
        solo.serve()
        solo.leave(SIZE)
        with open(solo.cache.part(solo.payload), "ab") as part:
            part.write(b"x")
        assert_complete(solo, solo.fetch())
        assert solo.asked == [FRESH]

    def more_than_the_next_run_brings(solo):
        """Nothing vouches for them, and nothing of them may lie behind the few bytes that are."""
        solo.leave(HALF)
        solo.cache.resume(solo.payload).unlink()
        solo.serve(solo.reply(cut_at=10_000), Reply(404))
        assert_failed(solo.fetch(), "http-error", attempts=2)
        assert_kept(solo, 10_000)
        assert solo.asked == [FRESH, rest(10_000)]

    tell(lab, start_of_a_part, complete_file, file_that_is_too_long, more_than_the_next_run_brings)


# Answers that are refused.

REFUSALS = {
    "unexpected-encoding": ("encoding", {
        "gzip": {"content_encoding": "gzip"},
        "br": {"content_encoding": "br"},
    }),
    "html-response": ("html", {
        "html": {"content_type": "text/html"},
        "html with a charset": {"content_type": "Text/HTML; charset=utf-8"},
    }),
    "content-length-mismatch": ("length", {
        "length too long": {"content_length": str(SIZE + 1)},
        "length too short": {"content_length": str(SIZE - 1)},
        "length 0": {"body": b""},
        "length in hexadecimal": {"content_length": "0x10"},
        "length with text": {"content_length": f"{SIZE} bytes"},
        "length below 0": {"content_length": "-1"},
    }),
    "http-error": ("http", {
        **{str(status): {"status": status, "body": b""} for status in (204, 304, 416)},
        **{str(status): {"status": status} for status in (400, 403, 404, 410, 501, 505)},
        "404 and a time to wait": {"status": 404, "headers": {"Retry-After": "0"}},
        "404 in html": {"status": 404, "content_type": "text/html"},
    }),
}


def test_answers_that_end_the_run_at_once(lab):
    def one(solo, refusal):
        reason, word, changes = refusal
        solo.serve(solo.reply().but(**changes))
        fetched = solo.fetch()
        assert_failed(fetched, reason)
        assert fetched.http_status == changes.get("status", 200)
        assert len(solo.requests) == 1
        assert_nothing_kept(solo)
        assert solo.words == ["new-request", word]
        assert fetched.reports[-1]["network_bytes"] == 0

    variants(lab, one, {name: (reason, word, changes)
                        for reason, (word, table) in REFUSALS.items() for name, changes in table.items()})


def test_refused_answer_to_a_range_request_leaves_what_was_kept(lab):
    def one(solo, refusal):
        changes, reason = refusal
        solo.leave(HALF)
        solo.serve(solo.reply().but(**changes), solo.reply())
        assert_failed(solo.fetch(), reason)
        assert_kept(solo, HALF)
        assert_complete(solo, solo.fetch())
        assert solo.asked == [rest(HALF), rest(HALF)]
        assert solo.sent[1] == SIZE - HALF

    variants(lab, one, {
        "gzip": ({"content_encoding": "gzip"}, "unexpected-encoding"),
        "html": ({"content_type": "text/html"}, "html-response"),
        "length of the whole": ({"content_length": str(SIZE)}, "content-length-mismatch"),
        "404": ({"status": 404}, "http-error"),
        "html and not the part": ({"content_type": "text/html", "honour_range": False}, "html-response"),
    })


def test_wrong_bytes_of_the_right_length(lab):
    solo = Changing(lab, "wrong")
    solo.serve(solo.old, solo.reply())
    fetched = solo.fetch()
    assert_failed(fetched, "sha256-mismatch")
    assert fetched.course() == ["connecting", "receiving", "verifying", "failed"]
    assert_nothing_kept(solo)
    assert solo.words == ["new-request", "headers-accepted", "payload", "hash"]
    assert_complete(solo, solo.fetch())
    assert solo.asked == [FRESH, FRESH]


def test_more_bytes_than_promised_are_never_stored(lab):
    def one(solo, changes):
        reply = solo.reply().but(**{"body": SyntheticBody(SIZE + 1), **changes})
        assert reply.body.slice(0, SIZE) == solo.payload.body.read_all()
        solo.serve(reply)
        fetched = solo.fetch()
        assert_failed(fetched, "payload-too-large")
        assert solo.words[-1] == "size"
        part = solo.part
        assert len(part) <= SIZE and part == solo.payload.body.slice(0, len(part))
        assert fetched.reports[-1]["bytes"] == len(part)

    variants(lab, one, {
        "one byte in chunks": {"chunked": True},
        "one byte without a length": {"content_length": None},
        "much more": {"chunked": True, "body": SyntheticBody(3 * SIZE)},
    })


# Waiting as the server wants it.


def test_passing_trouble_is_waited_out(lab):
    def once(solo, status):
        solo.serve(Reply(status), solo.reply())
        assert_complete(solo, solo.fetch(), attempts=2)
        assert 0.9 <= solo.pauses[0] < 4
        assert [line["httpStatus"] for line in solo.cache.trace()] == [0, status, 0, 200, 200, 200]

    def thrice(solo, status):
        solo.leave(HALF)
        solo.serve(Reply(status))
        fetched = solo.fetch()
        assert_failed(fetched, "download-retries-exhausted", attempts=3)
        assert fetched.http_status == status
        assert solo.asked == [rest(HALF)] * 3
        assert solo.words == ["resume", "bounded-retry"] * 2 + ["resume", "retry-limit"]
        first, second = solo.pauses
        assert 0.9 <= first < 4 and 1.9 <= second < 6
        assert_kept(solo, HALF)

    statuses = (408, 429, 500, 502, 503, 504)
    variants(lab, lambda solo, story: story[0](solo, story[1]),
             {f"{work.__name__} {status}": (work, status) for work in (thrice, once) for status in statuses})


def moment(seconds):
    """A moment so many seconds ahead, rounded up."""
    return in_words(int(time.time()) + seconds + 1)


def in_words(due):
    """The whole second in the three ways that HTTP writes it."""
    fields = time.gmtime(due)
    return (
        email.utils.formatdate(due, usegmt=True),
        time.strftime("%A, %d-%b-%y %H:%M:%S GMT", fields),
        time.strftime("%a %b %e %H:%M:%S %Y", fields),
    )


def later(value):
    return Reply(503, headers={"Retry-After": value})


def test_server_says_when_to_come_back(lab):
    """The engine's own waits would be one and two seconds. A busy machine only makes a pause longer, so that the
    shortest of some tells what was meant."""
    def shortest(solo, replies, attempts, measure, enough):
        measured = []
        while len(measured) < TRIES and min(measured, default=enough) >= enough:
            one = Solo(lab, f"{solo.payload.name}-{len(measured)}")
            one.serve(*replies, one.reply())
            assert_complete(one, one.fetch(), attempts)
            measured.append(measure(one.pauses))
        return min(measured)

    def at_once(solo, value):
        assert shortest(solo, [later(value), later(value)], 3, sum, 2) < 2

    def shorter(solo, value):
        assert 0.9 <= shortest(solo, [later("0"), later(value)], 3, lambda pauses: pauses[1], 1.9) < 1.9

    def longer(solo, value):
        assert 1.9 <= shortest(solo, [later(value)], 2, lambda pauses: pauses[0], 2.9) < 2.9

    def date(solo, form):
        """By the clock that the date means: how long ago it was said is nobody's business."""
        due, arrived = [], []

        def answer(request):
            arrived.append(time.time())
            if due:
                return solo.reply()
            due.append(int(arrived[0]) + 3)
            return later(in_words(due[0])[form])

        solo.serve(answer)
        assert_complete(solo, solo.fetch(), attempts=2)
        assert due[0] - CLOCK_STEP <= arrived[1] < due[0] + 5

    past = ("Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994")
    stories = {f"date {form}": (date, form) for form in range(3)}
    stories |= {"shorter": (shorter, "1"), "longer": (longer, "2"), "zero": (at_once, "0"), "zeros": (at_once, "00")}
    stories |= {f"past {form}": (at_once, value) for form, value in enumerate(past)}
    variants(lab, lambda solo, story: story[0](solo, story[1]), stories)


def test_server_that_wants_too_much_is_left(lab):
    values = ["61", "3600", "99999999999999999999999", *moment(600), "soon", "-1", "1.5", "1 s",
              "Sun, 31 Feb 2094 08:49:37 GMT", "Sun, 06 Nov 1994 25:61:61 GMT", "Sun, 06 Nov 1994 08:49:37 CET"]

    def one(solo, value):
        solo.leave(HALF)
        solo.serve(later(value), solo.reply())
        fetched = solo.fetch()
        assert_failed(fetched, "server-requested-later-retry")
        assert (fetched.http_status, len(solo.requests)) == (503, 1)
        assert solo.words == ["resume", "retry-after"]
        assert_kept(solo, HALF)

    variants(lab, one, {f"later {number}": value for number, value in enumerate(values)})


# Redirects and cookies.


def test_redirect_within_https_is_followed_each_time(lab):
    solo = Solo(lab)
    there = names.PRIMARY_RELEASE, "/elsewhere/payload"
    solo.serve(redirect("https://" + "".join(there)))
    lab.on(*there, [solo.reply(cut_at=HALF), solo.reply()])
    assert_complete(solo, solo.fetch(), attempts=2)
    assert solo.asked == [FRESH, rest(HALF)]
    first, second = lab.requests_to(*there)
    assert (first.range, first.body_sent) == (None, HALF)
    assert (second.range, second.headers["if-range"]) == rest(HALF)
    lab.wait_for_finish(second)
    assert second.body_sent == SIZE - HALF
    # It is the place that was asked for whose bytes are kept, wherever it leads.
    assert solo.resume == solo.resume_text()


def test_redirect_to_http_is_refused(lab):
    solo = Solo(lab)
    solo.serve(redirect(f"http://{names.CDN}/plain"))
    lab.on(names.CDN, "/plain", solo.reply(), secure=False)
    assert_failed(solo.fetch(), "connection-failed")
    assert_nothing_kept(solo)
    assert lab.requests_to(secure=False) == []
    assert [connection.secure for connection in lab.connections] == [True]


def test_redirects_in_a_circle_end(lab):
    solo, other = Solo(lab), Solo(lab, "other")
    solo.serve(redirect(other.payload.url()))
    other.serve(redirect(solo.payload.url()))
    assert_failed(solo.fetch(), "connection-failed")
    assert 1 <= len(other.requests) < 50


def test_cookies_are_never_sent_back(lab):
    solo, there = Solo(lab), Solo(lab, "there")
    cookie = ("Set-Cookie", "visitor=1; Path=/; Secure")
    solo.serve(Reply(302, headers=[("Location", there.payload.url()), cookie]))
    there.serve(solo.reply(cut_at=HALF, headers=[cookie]), solo.reply())
    assert_complete(solo, solo.fetch(), attempts=2)
    assert len(lab.requests) == 4
    assert [request for request in lab.requests if "cookie" in request.headers] == []


# The folder.


def test_folder_that_cannot_be_trusted_is_left_alone(lab):
    def link(solo):
        elsewhere = solo.cache.root.with_name("elsewhere")
        elsewhere.mkdir(parents=True)
        solo.cache.root.symlink_to(elsewhere)

    def link_above(solo):
        elsewhere = lab.folder / "elsewhere"
        elsewhere.mkdir()
        solo.cache.root.parent.symlink_to(elsewhere)

    def foreign_part(solo):
        solo.cache.root.mkdir(parents=True)
        (solo.cache.root / "notes.part").write_bytes(b"mine")

    def part_in_capitals(solo):
        solo.cache.root.mkdir(parents=True)
        (solo.cache.root / f"{'A' * 64}.part").write_bytes(b"mine")

    def folder_for_a_part(solo):
        solo.cache.part(solo.payload).mkdir(parents=True)

    def one(story):
        solo = Solo(lab, story.__name__)
        solo.serve()
        story(solo)
        before = contents(solo.cache.root.parent)
        fetched = solo.fetch()
        assert_failed(fetched, "unsafe-or-full-cache", attempts=0)
        assert (fetched.reports, solo.requests) == ([], [])
        assert contents(solo.cache.root.parent) == before

    together(one, [link, link_above, foreign_part, part_in_capitals, folder_for_a_part])


def contents(folder):
    """Everything below, also behind links: names, and what is in the files."""
    found = {}
    for top, folders, files in os.walk(folder, followlinks=True):
        found |= {os.path.join(top, name): None for name in folders}
        for name in files:
            with open(os.path.join(top, name), "rb") as file:
                found[file.name] = file.read()
    return found


def test_part_with_a_second_name_is_not_touched(lab):
    solo = Solo(lab)
    solo.serve()
    solo.leave(HALF)
    os.link(solo.cache.part(solo.payload), solo.cache.root / "second-name")
    fetched = solo.fetch()
    assert_failed(fetched, "cache-file-unavailable", attempts=0)
    assert (fetched.reports, solo.requests) == ([], [])
    assert_kept(solo, HALF)


# The user stops it, or asks for another connection.


def assert_cancelled(solo, fetched, within_ms=1500):
    assert (fetched.reason, fetched.canceled, fetched.success, fetched.path) == ("cancelled", True, False, "")
    said, last = fetched.reports[-2:]
    assert last["phase"] == "cancelled"
    # From the report at which the user cancels, and from the first look at that wish.
    assert last["ms"] - said["ms"] < within_ms and 0 <= fetched.cancel_ms < within_ms
    line = solo.cache.trace()[-1]
    assert (line["phase"], line["reason"]) == ("cancelled", "user")


def test_cancel_in_any_phase_loses_nothing(lab):
    """Each story gives the length that was kept."""
    def connecting(solo):
        solo.serve()
        assert_cancelled(solo, solo.fetch("--cancel-phase", 0))
        assert (solo.requests, solo.words) == ([], ["resume", "user"])
        return HALF

    def receiving(solo):
        solo.serve(solo.reply(throttle=20_000), solo.reply())
        assert_cancelled(solo, solo.fetch("--cancel-phase", 1))
        return HALF

    def in_the_body(solo):
        solo.serve(solo.reply(throttle=20_000), solo.reply())
        assert_cancelled(solo, solo.fetch("--cancel-bytes", HALF + 20_000))
        assert HALF + 20_000 <= len(solo.part) < SIZE
        return len(solo.part)

    def retrying(solo):
        solo.serve(later("30"), solo.reply())
        assert_cancelled(solo, solo.fetch("--cancel-phase", 3))
        return HALF

    def verifying(solo):
        solo.serve()
        assert_cancelled(solo, solo.fetch("--cancel-phase", 4))
        return SIZE

    def one(story):
        solo = Solo(lab, story.__name__)
        solo.leave(HALF)
        length = story(solo)
        assert_kept(solo, length)
        before = len(solo.requests)
        fetched = solo.fetch()
        assert fetched.success and solo.part == solo.payload.body.read_all()
        assert solo.asked[before:] == ([rest(length)] if length < SIZE else [])
        assert solo.sent[before:] == ([SIZE - length] if length < SIZE else [])
        assert fetched.reports[-1]["phase"] == ("complete" if length < SIZE else "cached")

    together(one, [connecting, receiving, in_the_body, retrying, verifying])


def test_cancel_before_anything(lab):
    solo = Solo(lab)
    solo.serve()
    stop = lab.folder / "stop"
    stop.touch()
    fetched = solo.fetch("--cancel-file", lab.windows_path(stop))
    assert (fetched.reason, fetched.canceled, fetched.attempts) == ("cancelled", True, 0)
    assert (fetched.reports, solo.requests) == ([], [])
    assert not solo.cache.root.exists()


def test_user_asks_for_another_connection(lab):
    solo = Solo(lab)
    wish = lab.folder / "wish"
    stored = []

    def second(request):
        stored.append((solo.part, solo.resume))
        return solo.reply()

    solo.serve(solo.reply(throttle=30_000), second)
    started = start_transfers(lab, solo.errand("--reconnect-file", lab.windows_path(wish)))
    solo.wait_for_part(20_000)
    wish.touch()
    fetched = finish_transfers(started).only
    assert_complete(solo, fetched, attempts=2)
    [(part, resume)] = stored
    assert 20_000 <= len(part) < SIZE and part == solo.payload.body.slice(0, len(part))
    assert resume == solo.resume_text()
    assert solo.asked == [FRESH, rest(len(part))]
    assert solo.sent[1] == SIZE - len(part)
    retry = solo.wait_for_line(reason="bounded-retry")
    assert (retry["attempt"], retry["bytes"], retry["osError"]) == (1, len(part), 0)


# Servers that fall silent. Each story waits for time-outs of its own.


def test_servers_that_fall_silent_or_drip(lab):
    def headers_that_never_come(solo):
        solo.leave(HALF)
        solo.serve(solo.reply(hold=lab.gate()), solo.reply())
        assert_complete(solo, solo.fetch(), attempts=2)
        assert solo.asked == [rest(HALF), rest(HALF)]
        assert solo.sent == [0, SIZE - HALF]
        assert_timed_out(solo, HALF, 10)

    def body_that_stops(solo):
        solo.serve(solo.reply(stall_at=HALF), solo.reply())
        assert_complete(solo, solo.fetch(), attempts=2)
        assert solo.asked == [FRESH, rest(HALF)]
        assert solo.sent == [HALF, SIZE - HALF]
        assert_timed_out(solo, HALF, 5)

    def body_that_never_starts(solo):
        solo.serve(solo.reply(stall_at=0), solo.reply())
        assert_complete(solo, solo.fetch(), attempts=2)
        assert solo.asked == [FRESH, FRESH]
        assert_timed_out(solo, 0, 5)

    def assert_timed_out(solo, length, seconds):
        line = solo.wait_for_line(reason="bounded-retry")
        assert (line["osError"], line["bytes"], line["attempt"]) == (TIMEOUT, length, 1)
        first, second = solo.requests
        assert seconds + 0.5 <= second.time - first.time < seconds + 4

    def cancel_while_nothing_comes(solo):
        solo.serve(solo.reply(stall_at=HALF), solo.reply())
        stop = lab.folder / "stop"
        started = start_transfers(lab, solo.errand("--cancel-file", lab.windows_path(stop)))
        solo.wait_for_part(HALF)
        stop.touch()
        # A receive that waits for bytes cannot be called off everywhere; it ends by its own time-out at the latest.
        assert_cancelled(solo, finish_transfers(started).only, within_ms=6500)
        assert_kept(solo, HALF)
        assert_complete(solo, solo.fetch())
        assert solo.asked == [FRESH, rest(HALF)]
        assert solo.sent[1] == SIZE - HALF

    def another_connection_while_nothing_comes(solo):
        solo.serve(solo.reply(stall_at=HALF), solo.reply())
        wish = lab.folder / "wish"
        started = start_transfers(lab, solo.errand("--reconnect-file", lab.windows_path(wish)))
        solo.wait_for_part(HALF)
        wish.touch()
        assert finish_transfers(started).only.success
        assert solo.part == solo.payload.body.read_all()
        assert solo.asked[:2] == [FRESH, rest(HALF)]
        assert solo.requests[1].time - solo.requests[0].time < 11

    def drip_of_twelve_seconds(solo):
        rate = SIZE / 12
        solo.serve(solo.reply(throttle=rate))
        fetched = solo.fetch()
        assert_complete(solo, fetched)
        trace = solo.cache.trace()
        assert solo.words == ["new-request", "headers-accepted", "progress", "progress", "payload", "sha256-verified"]
        assert trace[2]["elapsedMs"] - trace[1]["elapsedMs"] >= 5000
        assert trace[3]["elapsedMs"] - trace[2]["elapsedMs"] >= 5000
        assert 0 < trace[2]["bytes"] < trace[3]["bytes"] < SIZE
        for line in trace[2:4]:
            assert (line["phase"], line["networkBytes"]) == ("receiving", line["bytes"])
            assert rate / 2 < line["bytesPerSecond"] < rate * 2
        received = fetched.of_phase("receiving")
        assert 20 < len(received) < 55
        # Told again only after a quarter of a second; a report may be late, which brings it nearer to the next one.
        assert received[-1]["ms"] - received[1]["ms"] >= 240 * (len(received) - 2)
        assert received[1]["bytes_per_second"] == -1, "nothing is known before a whole second"

    tell(lab, headers_that_never_come, body_that_stops, body_that_never_starts, cancel_while_nothing_comes,
         another_connection_while_nothing_comes, drip_of_twelve_seconds)


# Every call that changes the disk fails once, and every such call is the last one of its process. The program itself
# counts the calls.


def same_entity(lab, name):
    """A download with one interruption."""
    solo = Changing(lab, name)
    solo.course = [FRESH, rest(HALF)]
    solo.serve(solo.reply(cut_at=HALF), solo.reply())
    return solo


def another_entity(lab, name):
    """A download with one interruption, behind which other bytes are offered."""
    solo = Changing(lab, name, 60_000)
    solo.course = [FRESH, rest(30_000, OLD_TAG)]
    solo.serve(solo.old.but(cut_at=30_000), solo.reply())
    return solo


def run_with_fault(solo, kind, at=0):
    told = transfer(solo.lab, solo.errand(), env={"VPR_FAULT_KIND": kind, "VPR_FAULT_AT": str(at)})
    assert solo.asked == solo.course[: len(solo.asked)]
    return told


def count_calls(lab, course):
    """The calls of a run without a fault."""
    told = run_with_fault(course(lab, "count"), "count")
    assert told.only.success and told.only.attempts == 2
    on_payload = [function for function, path in told.calls if path.endswith(".part")]
    assert on_payload[-1] == "FlushFileBuffers", "success was told before the bytes were safe"
    return told.calls


def points(calls, plain, torn):
    """(kind, number) of all faults that mean something of their own; only a write can stop half-way."""
    numbered = list(enumerate(calls, 1))
    halves = [(torn, number) for number, (function, _) in numbered if function == "WriteFile"]
    assert len(halves) > 10 and len(numbered) > 30
    return [(plain, number) for number, _ in numbered] + halves


def length_and_tag(solo):
    """What is kept and the tag that stands for it, None if nothing does. A resume file is whole or not there, and it
    never stands for bytes of another entity."""
    path = solo.cache.part(solo.payload)
    part = path.read_bytes() if path.exists() else b""
    if solo.resume is None:
        return len(part), None
    [tag] = [tag for tag in solo.entities if solo.resume == solo.resume_text(tag)]
    assert part == solo.entities[tag].slice(0, len(part)), f"bytes that do not belong to {tag}"
    return len(part), tag


def go_on(lab, solos, etag=TAG):
    """The next run over each of these: right, and only what is vouched for is continued. Gives how many were."""
    left = [(*length_and_tag(solo), len(solo.requests)) for solo in solos]
    for solo in solos:
        solo.serve(solo.reply(etag=etag))
    results = transfer(lab, *[solo.errand() for solo in solos]).results
    continued = 0
    for solo, fetched, (length, tag, before) in zip(solos, results, left):
        what = f"{solo.cache.root.parent.name}, {length} bytes of {tag}"
        size = solo.payload.size
        assert fetched.success and solo.part == solo.payload.body.read_all(), f"{what}: {fetched}"
        if length == size:
            assert solo.asked[before:] == [], what
            continue
        may_continue = length > 0 and tag is not None
        assert solo.asked[before:] == [rest(length, tag) if may_continue else FRESH], what
        assert solo.sent[before:] == [size - length if may_continue and tag == etag else size], what
        continued += may_continue and tag == etag
    return continued


@pytest.mark.parametrize("course", [same_entity, another_entity])
def test_process_that_ends_at_any_call(lab, course):
    def end(point):
        kind, at = point
        solo = course(lab, f"{kind}{at}")
        assert run_with_fault(solo, kind, at) is None, "the call was never made"
        return solo

    solos = together(end, points(count_calls(lab, course), "kill", "kill-torn"))
    twins = [twin(lab, solo) for solo in solos if solo.cache.root.exists()]
    assert go_on(lab, solos) > 5
    # The same once more, for a server that has something new meanwhile.
    assert go_on(lab, twins, '"two"') == 0
    print(f"\n{course.__name__}: {len(solos)} points at which a process ended")


def twin(lab, solo):
    """The same download, with a copy of its folder."""
    other = copy.copy(solo)
    other.cache = Cache(lab, f"{solo.payload.name}-twin")
    shutil.copytree(solo.cache.root, other.cache.root)
    return other


@pytest.mark.parametrize("course", [same_entity, another_entity])
def test_any_call_that_fails(lab, course):
    def fail(point):
        kind, at = point
        solo = course(lab, f"{kind}{at}")
        told = run_with_fault(solo, kind, at)
        assert told.reached, "the call was never made"
        reason = reason_of_failing(told.calls, at)
        if reason is None:
            assert_complete(solo, told.only, attempts=2)
        else:
            before_any_attempt = reason in ("unsafe-or-full-cache", "cache-file-unavailable")
            assert_failed(told.only, reason, attempts=0 if before_any_attempt else told.only.attempts)
        if reason == "write-failed":
            assert told.only.os_error == DISK_FULL
        return solo

    calls = count_calls(lab, course)
    # Until the bytes are given up, both courses are one.
    first = [function for function, _ in calls].index("SetEndOfFile") + 1 if course is another_entity else 1
    solos = together(fail, [point for point in points(calls, "fail", "fail-torn") if point[1] >= first])
    assert len(solos) > 20 and go_on(lab, solos) > 2
    print(f"\n{course.__name__}: {len(solos)} points at which a call failed")


def reason_of_failing(calls, at):
    """What the failure of this call is told as; None if it costs nothing."""
    function, path = calls[at - 1]
    if path.endswith("download-trace.jsonl"):
        return None
    if path.endswith((".resume", ".resume.tmp")):
        return "resume-state-write-failed"
    if function == "FlushFileBuffers" and calls[at - 2][0] == "SetEndOfFile":
        return "cache-reset-failed"
    return {
        "CreateDirectoryW": "unsafe-or-full-cache",
        "CreateFileW": "cache-file-unavailable",
        "WriteFile": "write-failed",
        "FlushFileBuffers": "flush-failed",
        "SetEndOfFile": "cache-reset-failed",
    }[function]

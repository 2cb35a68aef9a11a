"""The download engine with two sources: which one comes first, when the other takes over, and what stays behind."""

import itertools
import os
import time

import pytest

from lab import APPLICATION_PATH, STATE, Reply, SyntheticBody, app_binary, html, names, redirect, update
from lab.install import APPLICATION_FOLDER
from lab.transfer import PHASES, Cache, Payload, errand, finish_transfers, start_transfers, together, transfer

PROBE_AGENT = "Velmora Pine Relay Source Comparison"
TRANSFER_AGENT = "Velmora Pine Relay Launcher"
START_PROBE = 0x80000
IN_RUN_PROBE = 0x400000
USABLE_PROBE = 0x20000
LEAST_HELD = 0x20000
LEAST_LEFT = 0x100000

BOTH = names.SOURCES
OTHER = {"primary": "backup", "backup": "primary"}
FOLDER = {"primary": "github", "backup": "r2"}
PREFERENCE = {"primary": 1, "backup": 2}
NO_PREFERENCE = 0

PLAIN_COURSE = ["connecting", "receiving", "verifying", "complete"]
QUICK_WINDOW = ("--delay", 200, "--window", 300)
# Long enough for a speed that lies close to the rate, whatever else the machine does; what piled up before a late first
# look is no part of it. The comparison comes at the end of the first window or of the second.
STEADY_WINDOW = ("--delay", 1000, "--window", 2000)

_numbers = itertools.count(1)


def is_probe(request):
    return request.headers["user-agent"] == PROBE_AGENT


def in_turn(replies):
    taken = itertools.count()
    return lambda: replies[min(next(taken), len(replies) - 1)]


class Download:
    """One payload with its places at both sources and a cache of its own: any number may be under way at once."""

    def __init__(self, lab, size=300_000):
        number = next(_numbers)
        self.lab = lab
        self.size = size
        self.payload = Payload(SyntheticBody(size, seed=number), f"payload{number}.bin")
        self.cache = Cache(lab, f"cache{number}")
        self._started = None

    # The servers.

    def honest(self, source, **changes):
        """The two sources have different tags, as two servers would."""
        return self.payload.reply(etag=f'"{source}"').but(**changes)

    def serve(self, source, *transfers, probe=None):
        """Answers transfers with one reply after the other, the last for ever, and probes with `probe`, a reply or a
        list; honestly where nothing is given."""
        honest = self.honest(source)
        next_transfer = in_turn(transfers or [honest])
        next_probe = in_turn(probe if isinstance(probe, list) else [probe or honest])
        self.lab.on(*self.payload.place(source), lambda asked: next_probe() if is_probe(asked) else next_transfer())
        return self

    def probes(self, source):
        return [request for request in self.payload.requests(self.lab, source) if is_probe(request)]

    def transfers(self, source):
        found = [request for request in self.payload.requests(self.lab, source) if not is_probe(request)]
        assert all(request.headers["user-agent"] == TRANSFER_AGENT for request in found)
        return found

    # The runs.

    def errand(self, *options, url=None):
        return errand(self.payload, self.cache, *options, url=url)

    def start(self, *options):
        """For a test that does something meanwhile; finish() gives what fetch() gives."""
        self._started = start_transfers(self.lab, self.errand(*options))

    def finish(self):
        return finish_transfers(self._started)

    def fetch(self, *options, url=None):
        return transfer(self.lab, self.errand(*options, url=url))

    # The cache.

    def part(self, source):
        return self.cache.part(self.payload, FOLDER[source])

    def resume(self, source):
        return self.cache.resume(self.payload, FOLDER[source])

    def trace(self, source):
        return self.cache.trace(FOLDER[source])

    def words(self, source):
        """The reasons in the trace, without those of mere progress."""
        return [line["reason"] for line in self.trace(source) if line["reason"] != "progress"]

    def leave(self, source, length):
        self.cache.leave(self.payload, length, etag=f'"{source}"', source=FOLDER[source])

    def names_in(self, source):
        return sorted(path.name for path in self.cache.folder(FOLDER[source]).iterdir())

    # What must be true.

    def assert_arrived(self, fetched, source):
        """The payload came from that source and lies in its folder."""
        assert fetched.success and not fetched.canceled and fetched.reason == "", fetched
        assert fetched.path == self.lab.windows_path(self.part(source))
        assert self.part(source).read_bytes() == self.payload.body.read_all()
        assert fetched.reports[-1]["bytes"] == self.size
        assert fetched.reports[-1]["backup"] == (source == "backup")

    def assert_came_first(self, done, source):
        """That source brought the payload, and the other was asked for none of it."""
        fetched = done.only
        self.assert_arrived(fetched, source)
        assert [phase for phase in fetched.course() if phase != "comparing-source"] == PLAIN_COURSE
        assert all(report["backup"] == (source == "backup") for report in fetched.reports if report["attempt"] > 0)
        [request] = self.transfers(source)
        assert request.range is None
        assert self.transfers(OTHER[source]) == []
        assert self.names_in(OTHER[source]) == []
        assert {line["endpoint"] for line in self.trace(source)} == {FOLDER[source]}
        assert done.preference == PREFERENCE[source]

    def assert_not_compared(self, fetched):
        assert "comparing-source" not in fetched.course()
        assert [self.probes(source) for source in BOTH] == [[], []]


def assert_network_bytes_grow(fetched):
    counts = [report["network_bytes"] for report in fetched.reports]
    assert counts == sorted(counts)


# So many at a time that none waits a second for its turn: a probe gives up then.
PROBING_WORKERS = 4
MEASUREMENTS = 4


# The comparison before the first byte.


def test_faster_backup_comes_first_if_it_is_much_faster(lab):
    """Rates in bytes per second while the sources are measured; the transfers themselves are fast. A busy machine may
    spoil a measurement, but not one after the other; a wrong rule is wrong each time."""
    cases = [
        (500_000, 500_000, "primary"),
        (400_000, 500_000, "primary"),  # 1.25 times
        (400_000, 800_000, "backup"),  # twice
        (400_000, None, "backup"),
        (None, 400_000, "primary"),
    ]

    def check(case):
        primary, backup, first = case
        for _ in range(MEASUREMENTS):
            download = Download(lab, 1_000_000)
            for source, rate in (("primary", primary), ("backup", backup)):
                download.serve(source, probe=download.honest(source, throttle=rate))
            done = download.fetch("--compare")
            whole = done.only.of_phase("connecting")[0]["network_bytes"] == 2 * START_PROBE
            if whole and download.transfers(first):
                break
        download.assert_came_first(done, first)
        for source in BOTH:
            [probe] = download.probes(source)
            assert probe.range == f"bytes=0-{START_PROBE - 1}"
            assert probe.headers["accept-encoding"] == "identity"
            assert "if-range" not in probe.headers
        reports = done.only.reports
        assert {name: value for name, value in reports[0].items() if name != "ms"} == {
            "phase": "comparing-source", "bytes": 0, "total": download.size, "network_bytes": 0,
            "bytes_per_second": -1.0, "attempt": 0, "restarted": False, "backup": False, "slow": False,
            "primary_speed": 0.0, "backup_speed": 0.0,
        }
        assert done.only.course() == ["comparing-source", *PLAIN_COURSE]
        assert reports[1]["phase"] == "connecting" and reports[1]["network_bytes"] == 2 * START_PROBE
        assert reports[-1]["network_bytes"] == 2 * START_PROBE + download.size

    together(check, cases, PROBING_WORKERS)


WHOLE_RANGE = "bytes 0-299999/300000"
# {what it is: (made of the honest answer, body bytes that are counted all the same)}
USELESS_PROBE_ANSWERS = {
    "gone": (lambda honest: Reply(404), 0),
    "broken": (lambda honest: Reply(503), 0),
    "sign-in page": (lambda honest: html(), 0),
    "range of html": (lambda honest: honest.but(content_type="text/html; charset=utf-8"), 0),
    "range of another html": (lambda honest: honest.but(content_type="Application/XHTML+xml"), 0),
    "whole body": (lambda honest: honest.but(honour_range=False), 0),
    "whole body that has a place": (lambda honest: honest.but(honour_range=False, content_range=WHOLE_RANGE), 0),
    "range without its place": (lambda honest: honest.but(content_range=None), 0),
    "another total": (lambda honest: honest.but(content_range="bytes 0-299999/300001"), 0),
    "unknown total": (lambda honest: honest.but(content_range="bytes 0-299999/*"), 0),
    "another start": (lambda honest: honest.but(content_range="bytes 1-299999/300000"), 0),
    "another end": (lambda honest: honest.but(content_range="bytes 0-299998/300000"), 0),
    "another unit": (lambda honest: honest.but(content_range="Bytes 0-299999/300000"), 0),
    "compressed": (lambda honest: honest.but(content_encoding="gzip"), 0),
    "redirected to http": (lambda honest: redirect(f"http://{names.CDN}/payload"), 0),
    "closed at once": (lambda honest: Reply(raw=b""), 0),
    "not http": (lambda honest: Reply(raw=b"220 ready\r\n\r\n"), 0),
    "silent": (lambda honest: honest.but(delay=60), 0),
    "silent in the body": (lambda honest: honest.but(stall_at=USABLE_PROBE - 1), USABLE_PROBE - 1),
    "cut off": (lambda honest: honest.but(cut_at=USABLE_PROBE - 1), USABLE_PROBE - 1),
}


def assert_useless_probe_loses(lab, bad, kinds):
    """Whatever the other one's speed: it is slow here, and the bad one would be fast. Not so slow, though, that it
    would need much of the two seconds that a probe has for all of it."""
    good = OTHER[bad]

    def check(kind):
        answer, counted = USELESS_PROBE_ANSWERS[kind]
        download = Download(lab)
        download.serve(bad, probe=answer(download.honest(bad)))
        download.serve(good, probe=download.honest(good, throttle=800_000))
        done = download.fetch("--compare")
        download.assert_came_first(done, good)
        assert len(download.probes(bad)) == len(download.probes(good)) == 1
        [connecting] = done.only.of_phase("connecting")
        assert connecting["network_bytes"] == download.size + counted

    together(check, kinds, PROBING_WORKERS)
    assert lab.requests_to(names.CDN) == []


def test_primary_that_cannot_be_measured_is_not_the_first(lab):
    assert_useless_probe_loses(lab, "primary", USELESS_PROBE_ANSWERS)


def test_backup_that_cannot_be_measured_is_not_the_first(lab):
    kinds = ["gone", "range of html", "whole body", "another total", "compressed", "silent", "silent in the body",
             "cut off"]
    assert_useless_probe_loses(lab, "backup", kinds)


def test_primary_comes_first_if_neither_can_be_measured(lab):
    def check(kinds):
        download = Download(lab)
        for source, kind in zip(BOTH, kinds):
            answer, _ = USELESS_PROBE_ANSWERS[kind]
            download.serve(source, probe=answer(download.honest(source)))
        download.assert_came_first(download.fetch("--compare"), "primary")
        assert [len(download.probes(source)) for source in BOTH] == [1, 1]

    together(check, [("gone", "gone"), ("silent in the body", "sign-in page"), ("compressed", "cut off")])


def test_any_honest_answer_is_measured(lab):
    """The primary is not measured, so the backup comes first if it was."""
    answers = {
        "plain": lambda honest: honest,
        "encoded as itself": lambda honest: honest.but(content_encoding="Identity"),
        "without a type": lambda honest: honest.but(content_type=None),
        "without a length": lambda honest: honest.but(content_length=None),
        "in chunks": lambda honest: honest.but(chunked=True),
        "redirected": lambda honest: redirect(f"https://{names.CDN}/moved"),
        "cut off late": lambda honest: honest.but(cut_at=USABLE_PROBE),
        "silent late": lambda honest: honest.but(stall_at=USABLE_PROBE),
    }

    def check(kind):
        download = Download(lab).serve("primary", probe=Reply(404))
        download.serve("backup", probe=answers[kind](download.honest("backup")))
        download.assert_came_first(download.fetch("--compare"), "backup")

    lab.on(names.CDN, "/moved", Download(lab).honest("backup"))
    together(check, answers, PROBING_WORKERS)
    [moved] = lab.requests_to(names.CDN)
    assert is_probe(moved) and moved.range == "bytes=0-299999"


@pytest.mark.parametrize("size, first", [(USABLE_PROBE - 1, "primary"), (USABLE_PROBE, "backup")])
def test_small_payload_cannot_be_measured(lab, size, first):
    """The primary cannot anyway."""
    download = Download(lab, size).serve("primary", probe=Reply(404)).serve("backup")
    done = download.fetch("--compare")
    download.assert_came_first(done, first)
    for source in BOTH:
        [probe] = download.probes(source)
        assert probe.range == f"bytes=0-{size - 1}"
    assert done.only.of_phase("connecting")[0]["network_bytes"] == size


def test_nothing_is_measured_unasked(lab):
    download = Download(lab).serve("primary", probe=Reply(404)).serve("backup")
    done = download.fetch()
    download.assert_came_first(done, "primary")
    download.assert_not_compared(done.only)
    assert done.only.reports[-1]["network_bytes"] == download.size


def test_both_sources_are_measured_at_the_same_time(lab):
    download = Download(lab)
    for source in BOTH:
        download.serve(source, probe=download.honest(source, stall_at=USABLE_PROBE))
    fetched = download.fetch("--compare").only
    [one], [other] = [download.probes(source) for source in BOTH]
    for request in (one, other):
        lab.wait_for_finish(request)
        assert request.client_closed
    # Neither had to wait for the other's end, which came only when that had waited in vain for the rest.
    assert one.time < other.finish_time and other.time < one.finish_time
    assert fetched.of_phase("connecting")[0]["network_bytes"] == 2 * USABLE_PROBE


def test_probe_takes_no_more_than_it_asked_for(lab):
    """Servers that send on beyond the range that they announce."""
    download = Download(lab, 2_000_000)
    for source in BOTH:
        endless = download.honest(source, status=206, content_length=None,
                                  content_range=f"bytes 0-{START_PROBE - 1}/{download.size}")
        download.serve(source, probe=endless)
    fetched = download.fetch("--compare").only
    assert fetched.of_phase("connecting")[0]["network_bytes"] == 2 * START_PROBE


def comparison_ms(fetched):
    [comparing], [connecting, *_] = fetched.of_phase("comparing-source"), fetched.of_phase("connecting")
    return connecting["ms"] - comparing["ms"]


def test_probe_ends_after_two_seconds(lab):
    """What arrived until then counts: enough of it, or too little."""
    def check(case):
        rate, first = case
        download = Download(lab).serve("primary", probe=Reply(404))
        download.serve("backup", probe=download.honest("backup", throttle=rate))
        done = download.fetch("--compare")
        download.assert_came_first(done, first)
        assert 1900 < comparison_ms(done.only) < 3500
        taken = done.only.of_phase("connecting")[0]["network_bytes"]
        assert rate < taken < 2.5 * rate

    together(check, [(100_000, "backup"), (50_000, "primary")])


@pytest.mark.parametrize("mode", ["mute", "silent", "blackhole"])
def test_silent_sources_cost_two_seconds_at_most(lab, mode):
    """Each step of a probe may take one second; the transfer behind it is not waited for."""
    for host in (names.PRIMARY_RELEASE, names.BACKUP):
        lab.set_mode(host, mode)
    fetched = Download(lab).fetch("--compare", "--cancel-phase", PHASES.index("connecting")).only
    assert fetched.canceled
    assert 900 < comparison_ms(fetched) < 3500
    assert fetched.of_phase("connecting")[0]["network_bytes"] == 0


@pytest.mark.parametrize("down", BOTH)
def test_source_that_cannot_be_reached_is_not_the_first(lab, down):
    host, _ = Download(lab).payload.place(down)
    good = OTHER[down]
    for spoil in (lambda: lab.set_mode(host, "refuse"), lambda: lab.set_certificate(host, "untrusted")):
        lab.set_mode(host, "serve")
        spoil()
        download = Download(lab).serve(down)
        download.serve(good, probe=download.honest(good, throttle=400_000))
        done = download.fetch("--compare")
        download.assert_came_first(done, good)
        assert lab.requests_to(host) == [] and len(download.probes(good)) == 1


# What is remembered from one file to the next.


@pytest.mark.parametrize("better", BOTH)
def test_choice_of_the_first_file_holds_for_the_others(lab, better):
    first, second, third = downloads = [Download(lab) for _ in range(3)]
    for download in downloads:
        download.serve(better)
        download.serve(OTHER[better], probe=download.honest(OTHER[better], throttle=300_000))
    done = transfer(lab, *[download.errand("--compare") for download in downloads])
    for download, fetched in zip(downloads, done.results):
        download.assert_arrived(fetched, better)
        assert download.transfers(OTHER[better]) == []
    assert [len(first.probes(source)) for source in BOTH] == [1, 1]
    for download, fetched in zip((second, third), done.results[1:]):
        assert fetched.course() == PLAIN_COURSE
        download.assert_not_compared(fetched)
        assert fetched.reports[-1]["network_bytes"] == download.size, "the first file's comparison is not the others'"
    assert done.preference == PREFERENCE[better]


def prefer_backup(lab):
    """A file that makes the backup the preferred source, however long anything takes: the primary does not have it."""
    return Download(lab).serve("primary", Reply(404)).serve("backup")


def test_slow_backup_is_not_compared_when_it_is_preferred(lab):
    chosen, slow = prefer_backup(lab), Download(lab, 6_000_000).serve("primary")
    slow.serve("backup", slow.honest("backup", throttle=150_000))
    done = transfer(lab, chosen.errand(), slow.errand(*QUICK_WINDOW, "--cancel-bytes", 300_000))
    chosen.assert_arrived(done.results[0], "backup")
    assert done.results[1].canceled and done.results[1].reports[-1]["bytes"] >= 300_000
    slow.assert_not_compared(done.results[1])
    assert slow.transfers("primary") == []
    assert done.preference == PREFERENCE["backup"]


def test_preferred_backup_that_fails_makes_the_primary_preferred(lab):
    """And the primary is not compared with the backup that has just failed, however slow it is; nor is any later one
    before its first byte."""
    chosen, failing = prefer_backup(lab), Download(lab, 6_000_000)
    later = Download(lab).serve("primary").serve("backup")
    failing.serve("primary", failing.honest("primary", throttle=150_000)).serve("backup", Reply(404))
    done = transfer(lab, chosen.errand(), failing.errand(*QUICK_WINDOW, "--cancel-bytes", 300_000),
                     later.errand("--compare"))
    fetched = done.results[1]
    assert fetched.course() == ["connecting", "switching-source", "connecting", "receiving", "cancelled"]
    assert fetched.canceled and fetched.reports[-1]["bytes"] >= 300_000
    failing.assert_not_compared(fetched)
    [switch] = fetched.of_phase("switching-source")
    assert (switch["bytes"], switch["restarted"], switch["backup"], switch["slow"]) == (0, True, False, False)
    assert [report["backup"] for report in fetched.reports[:2]] == [True, False]
    later.assert_arrived(done.results[2], "primary")
    later.assert_not_compared(done.results[2])
    assert later.transfers("backup") == []
    assert done.preference == PREFERENCE["primary"]


def test_preferred_backup_that_fails_is_replaced_at_once(lab):
    chosen, failing = prefer_backup(lab), Download(lab).serve("primary").serve("backup", Reply(404))
    done = transfer(lab, chosen.errand(), failing.errand("--compare"))
    failing.assert_arrived(done.results[1], "primary")
    assert done.results[1].course() == ["connecting", "switching-source", *PLAIN_COURSE]
    assert_network_bytes_grow(done.results[1])
    assert done.preference == PREFERENCE["primary"]


def test_preferred_backup_that_fails_loses_its_rank_even_if_the_primary_fails_too(lab):
    chosen, failing = prefer_backup(lab), Download(lab).serve("primary", html()).serve("backup", Reply(404))
    done = transfer(lab, chosen.errand(), failing.errand())
    assert done.results[1].reason == "html-response" and not done.results[1].canceled
    assert done.preference == PREFERENCE["primary"]


def test_failure_of_both_leaves_the_preference(lab):
    """None before, so the next file is compared again; the primary before, so it is not."""
    failing, again, good, last = [Download(lab) for _ in range(4)]
    for download in (failing, again, last):
        download.serve("primary", Reply(404)).serve("backup", Reply(404), probe=Reply(404))
    good.serve("primary").serve("backup")
    undecided = transfer(lab, failing.errand("--compare"), again.errand("--compare"))
    assert [len(download.probes(source)) for download in (failing, again) for source in BOTH] == [1, 1, 1, 1]
    assert undecided.preference == NO_PREFERENCE
    decided = transfer(lab, good.errand(), last.errand("--compare"))
    assert [fetched.reason for fetched in decided.results] == ["", "http-error"]
    last.assert_not_compared(decided.results[1])
    assert decided.preference == PREFERENCE["primary"]


def test_backup_that_took_over_is_preferred_afterwards(lab):
    good, failing, later = [Download(lab).serve("primary").serve("backup") for _ in range(3)]
    failing.serve("primary", Reply(404))
    done = transfer(lab, *[download.errand() for download in (good, failing, later)])
    good.assert_arrived(done.results[0], "primary")
    failing.assert_arrived(done.results[1], "backup")
    later.assert_arrived(done.results[2], "backup")
    assert done.results[2].course() == PLAIN_COURSE and later.transfers("primary") == []
    assert done.preference == PREFERENCE["backup"]


# The other source takes over.

def failing_answers(honest):
    """{reason: (word of the trace, the primary's answer, its requests)}"""
    body = honest.body.read_all()
    at_once = {"Retry-After": "0"}
    return {
        "http-error": ("http", Reply(404), 1),
        "download-retries-exhausted": ("retry-limit", Reply(503, headers=at_once), 3),
        "server-requested-later-retry": ("retry-after", Reply(503, headers={"Retry-After": "61"}), 1),
        "html-response": ("html", html(), 1),
        "content-length-mismatch": ("length", honest.but(body=body[:-1]), 1),
        "payload-too-large": ("size", honest.but(body=body + b"x", content_length=None), 1),
        "sha256-mismatch": ("hash", honest.but(body=body[:-1] + bytes([body[-1] ^ 1])), 1),
    }


def assert_backup_took_over(download, done, word, attempts):
    """After a failure of the primary that is not told as one."""
    fetched = done.only
    download.assert_arrived(fetched, "backup")
    assert (fetched.http_status, fetched.attempts) == (200, 1)
    assert "failed" not in fetched.course()
    assert fetched.course()[-5:] == ["switching-source", *PLAIN_COURSE]
    [switch] = fetched.of_phase("switching-source")
    at = fetched.reports.index(switch)
    facts = {name: switch[name] for name in ("bytes", "restarted", "backup", "slow", "attempt", "total")}
    assert facts == {
        "bytes": 0, "restarted": True, "backup": True, "slow": False, "attempt": attempts, "total": download.size
    }
    assert not any(report["backup"] for report in fetched.reports[:at])
    assert all(report["backup"] for report in fetched.reports[at:])
    assert_network_bytes_grow(fetched)
    assert fetched.reports[at + 1]["network_bytes"] == switch["network_bytes"]
    assert fetched.reports[-1]["network_bytes"] == switch["network_bytes"] + download.size
    assert len(download.transfers("primary")) == attempts
    [request] = download.transfers("backup")
    assert request.range is None and "if-range" not in request.headers
    assert [download.trace("primary")[-1][name] for name in ("phase", "reason")] == ["failed", word]
    assert {line["endpoint"] for line in download.trace("primary")} == {"github"}
    assert {line["endpoint"] for line in download.trace("backup")} == {"r2"}
    assert done.preference == PREFERENCE["backup"]
    return switch


def test_backup_takes_over_whatever_the_server_did(lab):
    def check(reason):
        download = Download(lab).serve("backup")
        word, answer, attempts = failing_answers(download.honest("primary"))[reason]
        download.serve("primary", answer)
        switch = assert_backup_took_over(download, download.fetch(), word, attempts)
        if reason == "sha256-mismatch":
            assert switch["network_bytes"] == download.size
            assert download.part("primary").stat().st_size == 0 and not download.resume("primary").exists()
        elif reason != "payload-too-large":
            assert switch["network_bytes"] == 0

    together(check, failing_answers(Download(lab).honest("primary")))


def test_backup_takes_over_from_a_server_that_proves_nothing(lab):
    lab.set_certificate(names.PRIMARY_RELEASE, "untrusted")
    download = Download(lab).serve("backup")
    done = download.fetch()
    download.assert_arrived(done.only, "backup")
    assert done.only.course() == ["connecting", "switching-source", *PLAIN_COURSE]
    assert download.words("primary") == ["new-request", "connection"]


def test_backup_takes_over_from_a_dead_server(lab):
    """After three attempts with one and two seconds between them."""
    lab.set_mode(names.PRIMARY_RELEASE, "refuse")
    download = Download(lab).serve("backup")
    done = download.fetch()
    download.assert_arrived(done.only, "backup")
    assert done.only.course() == ["connecting", "retrying", "connecting", "retrying", "connecting", "switching-source",
                                  *PLAIN_COURSE]
    assert download.words("primary")[-1] == "retry-limit"


def test_the_second_failure_is_the_result(lab):
    def check(reason):
        download = Download(lab).serve("primary", Reply(404))
        download.serve("backup", failing_answers(download.honest("backup"))[reason][1], probe=Reply(404))
        done = download.fetch("--compare")
        assert (done.only.success, done.only.canceled, done.only.reason) == (False, False, reason)
        assert done.only.course().count("failed") == 1 and done.only.course()[-1] == "failed"
        assert done.only.reports[-1]["backup"] is True
        assert_network_bytes_grow(done.only)
        compared, taken = download.size, download.size if reason == "sha256-mismatch" else 0
        assert done.only.reports[-1]["network_bytes"] == compared + taken
        assert done.preference == NO_PREFERENCE

    together(check, ["html-response", "sha256-mismatch", "download-retries-exhausted"])


def test_failure_that_the_backup_would_share_is_final(lab):
    compressed, linked, no_folder = downloads = [Download(lab).serve("primary").serve("backup") for _ in range(3)]
    compressed.serve("primary", compressed.honest("primary", content_encoding="gzip"))
    # A cache file with a second name is not the engine's alone.
    linked.cache.folder("github").mkdir(parents=True)
    linked.part("primary").write_bytes(b"")
    os.link(linked.part("primary"), linked.cache.folder("github") / "second-name")
    no_folder.cache.root.mkdir(parents=True)
    no_folder.cache.folder("github").write_bytes(b"")
    reasons = ["unexpected-encoding", "cache-file-unavailable", "unsafe-or-full-cache"]
    for download, reason in zip(downloads, reasons):
        done = download.fetch()
        assert (done.only.success, done.only.canceled, done.only.reason) == (False, False, reason)
        assert "switching-source" not in done.only.course()
        assert download.payload.requests(lab, "backup") == []
        assert done.preference == NO_PREFERENCE
    assert compressed.words("primary")[-1] == "encoding"


def test_partial_bytes_wait_for_their_own_source(lab):
    held = 200_000
    download = Download(lab)
    download.serve("primary", download.honest("primary", cut_at=held), Reply(404)).serve("backup", Reply(404))
    assert download.fetch().only.reason == "http-error"
    assert download.part("primary").read_bytes() == download.payload.body.slice(0, held)
    assert download.resume("primary").exists()
    [first, second] = download.transfers("primary")
    assert (first.range, second.range) == (None, f"bytes={held}-")
    [request] = download.transfers("backup")
    assert request.range is None and "if-range" not in request.headers, "the primary's bytes are not the backup's"
    download.serve("primary")
    fetched = download.fetch().only
    download.assert_arrived(fetched, "primary")
    assert fetched.reports[0]["bytes"] == held
    assert fetched.reports[-1]["network_bytes"] == download.size - held
    last = download.transfers("primary")[-1]
    assert (last.range, last.headers["if-range"]) == (f"bytes={held}-", '"primary"')


def test_backup_that_takes_over_goes_on_with_its_own_bytes(lab):
    download = Download(lab).serve("primary", Reply(404)).serve("backup")
    download.leave("backup", 100_000)
    fetched = download.fetch().only
    download.assert_arrived(fetched, "backup")
    [asked_first] = download.transfers("primary")
    [request] = download.transfers("backup")
    assert asked_first.range is None
    assert (request.range, request.headers["if-range"]) == ("bytes=100000-", '"backup"')
    [switch] = fetched.of_phase("switching-source")
    assert switch["bytes"] == 0
    assert fetched.reports[fetched.reports.index(switch) + 1]["bytes"] == 100_000


# The caches of both.


def assert_served_from_cache(download, done, source, preference=NO_PREFERENCE):
    fetched = done.results[-1]
    download.assert_arrived(fetched, source)
    assert fetched.course() == ["cached"]
    [report] = fetched.reports
    assert (report["bytes"], report["total"], report["network_bytes"]) == (download.size, download.size, 0)
    assert (fetched.attempts, done.preference) == (0, preference)
    assert [download.payload.requests(download.lab, one) for one in BOTH] == [[], []]


@pytest.mark.parametrize("source", BOTH)
def test_complete_file_of_either_source_is_the_payload(lab, source):
    download = Download(lab).serve("primary").serve("backup")
    download.leave(source, download.size)
    assert_served_from_cache(download, download.fetch("--compare"), source)


def test_complete_file_of_the_backup_serves_though_the_primary_is_preferred(lab):
    good, cached = [Download(lab).serve("primary").serve("backup") for _ in range(2)]
    cached.leave("backup", cached.size)
    done = transfer(lab, good.errand(), cached.errand())
    assert_served_from_cache(cached, done, "backup", PREFERENCE["primary"])


def test_complete_file_of_the_primary_serves_though_the_backup_is_preferred(lab):
    chosen, cached = prefer_backup(lab), Download(lab).serve("primary").serve("backup")
    cached.leave("primary", cached.size)
    done = transfer(lab, chosen.errand(), cached.errand())
    assert_served_from_cache(cached, done, "primary", PREFERENCE["backup"])


def spoil(part):
    content = bytearray(part.read_bytes())
    content[-1] ^= 1
    part.write_bytes(content)
    return bytes(content)


def test_wrong_file_of_the_primary_hides_no_right_one_of_the_backup(lab):
    download = Download(lab).serve("primary").serve("backup")
    for source in BOTH:
        download.leave(source, download.size)
    wrong = spoil(download.part("primary"))
    assert_served_from_cache(download, download.fetch(), "backup")
    assert download.part("primary").read_bytes() == wrong, "nobody but the primary's own transfer drops it"


def test_wrong_files_of_both_serve_nothing(lab):
    download = Download(lab).serve("primary").serve("backup")
    for source in BOTH:
        download.leave(source, download.size)
        wrong = spoil(download.part(source))
    fetched = download.fetch().only
    download.assert_arrived(fetched, "primary")
    [request] = download.transfers("primary")
    assert request.range is None
    assert download.transfers("backup") == [] and download.part("backup").read_bytes() == wrong


# The comparison while the primary delivers.


def in_run(fetched):
    """The report of the comparison and the one behind it."""
    report = fetched.of_phase("comparing-source")[-1]
    return report, fetched.reports[fetched.reports.index(report) + 1]


def test_slow_primary_gives_way_to_a_much_faster_backup(lab):
    download = Download(lab, 6_000_000).serve("backup")
    download.serve("primary", download.honest("primary", throttle=150_000), download.honest("primary"))
    done = download.fetch(*QUICK_WINDOW)
    fetched = done.only
    download.assert_arrived(fetched, "backup")
    assert fetched.course() == ["connecting", "receiving", "comparing-source", "switching-source", *PLAIN_COURSE]
    comparing, switch = in_run(fetched)
    held = comparing["bytes"]
    assert LEAST_HELD <= held == comparing["network_bytes"]
    assert 75_000 < comparing["primary_speed"] < 300_000 and comparing["backup_speed"] == 0
    assert comparing["ms"] - fetched.of_phase("receiving")[0]["ms"] >= 500, "the delay and the window"
    facts = {name: switch[name] for name in ("bytes", "restarted", "backup", "slow", "network_bytes", "primary_speed")}
    assert facts == {
        "bytes": 0, "restarted": True, "backup": True, "slow": True, "network_bytes": held + IN_RUN_PROBE,
        "primary_speed": comparing["primary_speed"],
    }
    assert switch["backup_speed"] > 2 * switch["primary_speed"]
    assert not any(report["slow"] for report in fetched.reports if report is not switch)
    assert fetched.reports[-1]["network_bytes"] == held + IN_RUN_PROBE + download.size
    assert_network_bytes_grow(fetched)
    assert done.preference == PREFERENCE["backup"]

    [probe] = download.probes("backup")
    assert (probe.range, probe.headers["accept-encoding"]) == (f"bytes=0-{IN_RUN_PROBE - 1}", "identity")
    assert download.probes("primary") == []
    [slow] = download.transfers("primary")
    lab.wait_for_finish(slow)
    assert slow.client_closed and slow.finish_time > probe.time, "it stays open until the backup has proved itself"
    [request] = download.transfers("backup")
    assert request.range is None and request.time > probe.time

    assert download.words("primary") == [
        "new-request", "headers-accepted", "bounded-comparison", "backup-measured-faster"
    ]
    assert [line["phase"] for line in download.trace("primary")[-2:]] == ["comparing-source", "failed"]
    assert download.words("backup") == ["new-request", "headers-accepted", "payload", "sha256-verified"]

    # A later run that finds the backup gone goes on with what the primary had delivered.
    assert download.part("primary").stat().st_size == held and download.resume("primary").exists()
    download.part("backup").unlink()
    lab.set_mode(names.BACKUP, "refuse")
    later = download.fetch(*QUICK_WINDOW).only
    download.assert_arrived(later, "primary")
    assert download.transfers("primary")[-1].range == f"bytes={held}-"
    assert later.reports[-1]["network_bytes"] == download.size - held


def test_comparison_awaits_its_delay_and_asks_for_no_more_than_the_payload(lab):
    """The backup could not be measured at the start. That says nothing about later."""
    download = Download(lab, 3_000_000)
    download.serve("primary", download.honest("primary", throttle=100_000))
    download.serve("backup", probe=[Reply(404), download.honest("backup")])
    fetched = download.fetch("--compare", "--delay", 1500, "--window", 500).only
    download.assert_arrived(fetched, "backup")
    assert [probe.range for probe in download.probes("backup")] == [f"bytes=0-{START_PROBE - 1}", "bytes=0-2999999"]
    comparing, switch = in_run(fetched)
    assert 2000 <= comparing["ms"] - fetched.of_phase("receiving")[0]["ms"] < 4000
    assert comparing["network_bytes"] == START_PROBE + comparing["bytes"]
    assert switch["network_bytes"] == comparing["network_bytes"] + download.size
    assert fetched.reports[-1]["network_bytes"] == switch["network_bytes"] + download.size


def test_backup_that_was_measured_faster_may_fail_all_the_same(lab):
    download = Download(lab, 6_000_000).serve("backup", Reply(404))
    download.serve("primary", download.honest("primary", throttle=150_000))
    done = download.fetch(*QUICK_WINDOW)
    assert (done.only.success, done.only.canceled, done.only.reason) == (False, False, "http-error")
    assert done.only.course()[2:] == ["comparing-source", "switching-source", "connecting", "failed"]
    held = in_run(done.only)[0]["bytes"]
    assert download.part("primary").read_bytes() == download.payload.body.slice(0, held)
    assert download.resume("primary").exists()
    assert len(download.transfers("primary")) == 1
    assert done.preference == NO_PREFERENCE


def test_comparison_weighs_what_a_change_costs(lab):
    """Size, rates of the primary and of the backup's probe in bytes per second, and whether a change pays."""
    cases = [
        (6_500_000, 150_000, 400_000, True),  # 38 seconds are left or more, the backup needs 16 and 8
        (6_500_000, 150_000, 260_000, False),  # as many are left, it needs 25 and 8, but is not twice as fast
        (8_500_000, 500_000, 1_150_000, False),  # more than twice as fast, but 14 seconds are left or less, not 7 and 8
    ]

    def check(case):
        size, primary, backup, faster = case
        download = Download(lab, size)
        download.serve("primary", download.honest("primary", throttle=primary))
        download.serve("backup", probe=download.honest("backup", throttle=backup))
        # Those that stay with the primary end some time behind the comparison.
        options = () if faster else ("--cancel-bytes", 8 * primary)
        done = download.fetch(*STEADY_WINDOW, *options)
        comparing, behind = in_run(done.only)
        assert 0.8 * primary < comparing["primary_speed"] < 1.2 * primary
        assert 0.8 * backup < behind["backup_speed"] < 1.2 * backup
        assert behind["ms"] - comparing["ms"] < 5500, "four seconds, and one for the step under way"
        [probe] = download.probes("backup")
        assert probe.body_sent < 5 * backup
        taken = behind["network_bytes"] - comparing["network_bytes"]
        assert LEAST_LEFT / 2 < taken <= IN_RUN_PROBE
        if faster:
            download.assert_arrived(done.only, "backup")
            assert behind["phase"] == "switching-source" and behind["slow"]
            assert behind["ms"] - comparing["ms"] > 3900
        else:
            assert done.only.canceled
            assert behind["phase"] == "receiving" and not behind["backup"] and behind["bytes"] == comparing["bytes"]
            assert download.words("primary")[-3:] == ["bounded-comparison", "comparison-keep-primary", "user"]
            assert download.transfers("backup") == [] and not download.part("backup").exists()

    together(check, cases)


def test_backup_that_cannot_be_measured_keeps_the_primary(lab):
    kinds = ["gone", "sign-in page", "whole body", "another end", "silent", "silent in the body", "cut off"]
    answers = {kind: USELESS_PROBE_ANSWERS[kind] for kind in kinds}
    answers["another end"] = (lambda honest: honest.but(content_range=f"bytes 0-{IN_RUN_PROBE}/6000000"), 0)

    def check(kind):
        answer, counted = answers[kind]
        download = Download(lab, 6_000_000)
        download.serve("primary", download.honest("primary", throttle=150_000))
        download.serve("backup", probe=answer(download.honest("backup")))
        done = download.fetch(*QUICK_WINDOW, "--cancel-bytes", 600_000)  # some seconds behind the window
        assert done.only.canceled and download.transfers("backup") == []
        comparing, behind = in_run(done.only)
        assert (behind["phase"], behind["backup"], behind["backup_speed"]) == ("receiving", False, 0)
        assert behind["network_bytes"] - comparing["network_bytes"] == counted
        assert behind["ms"] - comparing["ms"] < 3500
        assert len(download.probes("backup")) == 1
        assert done.preference == NO_PREFERENCE

    together(check, kinds, PROBING_WORKERS)


def test_sources_are_compared_once_however_many_attempts_there_are(lab):
    download = Download(lab, 6_000_000).serve("backup", probe=Reply(404))
    download.serve(
        "primary",
        download.honest("primary", throttle=150_000, cut_at=600_000),
        download.honest("primary", throttle=150_000, cut_at=400_000),  # a window again, as slow as before
        download.honest("primary"),
    )
    done = download.fetch(*QUICK_WINDOW)
    download.assert_arrived(done.only, "primary")
    assert [request.range for request in download.transfers("primary")] == [None, "bytes=600000-", "bytes=1000000-"]
    assert len(download.probes("backup")) == 1 and download.transfers("backup") == []
    assert len(done.only.of_phase("comparing-source")) == 1
    words = download.words("primary")
    assert words[:5] == [
        "new-request", "headers-accepted", "bounded-comparison", "comparison-keep-primary", "bounded-retry"
    ]
    assert words.count("bounded-comparison") == 1
    assert done.preference == PREFERENCE["primary"]


def test_comparison_must_be_worth_it(lab):
    """Slow transfers, just within a limit and just beyond it. Most go on from what a run before them left. Some seconds
    are looked at, so that a run that is late for a few does not lose all its windows."""
    cases = [
        # size, bytes held, rate, bytes that are awaited, window, compared
        (4_000_000, 4_000_000 - LEAST_LEFT - 240_000, 60_000, 240_000, QUICK_WINDOW, True),
        (4_000_000, 4_000_000 - LEAST_LEFT, 60_000, 240_000, QUICK_WINDOW, False),  # less is left at once
        (30_000_000, 28_200_000, 60_000, 240_000, QUICK_WINDOW, True),
        (30_000_000, 28_500_000, 60_000, 240_000, QUICK_WINDOW, False),  # 95 percent
        (4_000_000, 0, 250_000, 1_000_000, QUICK_WINDOW, True),  # some 14 seconds are left
        (3_600_000, 0, 400_000, 2_400_000, STEADY_WINDOW, False),  # some 6 seconds are left, or 4
    ]

    def check(case):
        size, held, rate, awaited, window, compared = case
        download = Download(lab, size).serve("backup", probe=Reply(404))
        download.serve("primary", download.honest("primary", throttle=rate))
        if held:
            download.leave("primary", held)
        fetched = download.fetch(*window, "--cancel-bytes", held + awaited).only
        assert fetched.canceled
        [request] = download.transfers("primary")
        assert request.range == (f"bytes={held}-" if held else None)
        receiving, last = fetched.of_phase("receiving")[0], fetched.reports[-1]
        assert last["ms"] - receiving["ms"] > 1000, "the window was over"
        assert len(download.probes("backup")) == len(fetched.of_phase("comparing-source")) == compared
        assert download.probes("primary") == []

    together(check, cases)


def test_fast_start_does_not_hide_a_slow_rest(lab):
    """Two megabytes come at once, what follows is slow: the speed is that of the last window alone."""
    gate = lab.gate()
    download = Download(lab, 6_000_000).serve("backup")
    reply = download.honest("primary", stall_at=2_000_000, stall_for=gate, after_stall="continue")
    download.serve("primary", reply)
    download.start("--delay", 0, "--window", 500, "--cancel-phase", PHASES.index("comparing-source"),
                   "--cancel-bytes", 2_300_000)
    request = lab.wait_for_request(*download.payload.place("primary"))
    lab.wait_for_bytes(request, 2_000_000)
    reply.throttle = 100_000  # looked at again behind the stall
    gate.release()
    fetched = download.finish().only
    comparing, behind = in_run(fetched)
    assert 50_000 < comparing["primary_speed"] < 400_000
    assert behind["phase"] == "cancelled" and 2_000_000 < behind["bytes"] < 2_300_000


def test_what_came_before_the_window_does_not_count(lab):
    """One megabyte at once, then more than the delay and the window without anything: one slow piece tells enough."""
    download = Download(lab, 6_000_000).serve("backup")
    reply = download.honest("primary", stall_at=1_000_000, stall_for=1.3, after_stall="continue")
    download.serve("primary", reply)
    download.start("--delay", 500, "--window", 500, "--cancel-phase", PHASES.index("comparing-source"),
                   "--cancel-bytes", 1_300_000)
    request = lab.wait_for_request(*download.payload.place("primary"))
    lab.wait_for_bytes(request, 1_000_000)
    reply.throttle = 100_000  # looked at again behind the stall
    comparing, _ = in_run(download.finish().only)
    assert 1_000_000 < comparing["bytes"] < 1_020_000
    assert 0 < comparing["primary_speed"] < 50_000


def test_only_a_primary_with_a_backup_is_compared(lab):
    """A slow source that is the backup already, and one that has none."""
    by_option, elsewhere = downloads = [Download(lab, 6_000_000) for _ in range(2)]
    slow = {"throttle": 150_000}
    by_option.serve("backup", by_option.honest("backup", **slow)).serve("primary")
    lab.on(names.CDN, "/elsewhere.bin", elsewhere.honest("primary", **slow))
    options = {
        by_option: ["--backup-source", "--backup", by_option.payload.url("primary")],
        elsewhere: ["--compare"],
    }
    urls = {by_option: by_option.payload.url("backup"), elsewhere: f"https://{names.CDN}/elsewhere.bin"}

    def check(download):
        done = download.fetch(*options[download], *QUICK_WINDOW, "--cancel-bytes", 300_000, url=urls[download])
        assert done.only.canceled and done.only.course() == ["connecting", "receiving", "cancelled"]
        assert done.preference == NO_PREFERENCE

    together(check, downloads)
    assert not any(is_probe(request) for request in lab.requests)
    assert not elsewhere.cache.folder("github").exists()
    assert elsewhere.cache.part(elsewhere.payload).stat().st_size >= 300_000
    assert {line["endpoint"] for line in elsewhere.cache.trace()} == {"other-https"}


# The user stops it.


def assert_cancelled(fetched):
    assert (fetched.success, fetched.canceled, fetched.reason, fetched.path) == (False, True, "cancelled", "")


class Stop:
    """A file whose appearance cancels a run."""

    def __init__(self, lab):
        self.path = lab.folder / "stop"
        self.options = ("--cancel-file", lab.windows_path(self.path))

    def give(self):
        self.path.touch()
        self._given = time.monotonic()

    def seconds(self):
        """Since it was given. The engine's own count begins when it looks, which it might forget."""
        return time.monotonic() - self._given


def test_cancel_before_anything_leaves_nothing(lab):
    stop, download = Stop(lab), Download(lab).serve("primary").serve("backup")
    stop.give()
    done = download.fetch("--compare", *stop.options)
    assert_cancelled(done.only)
    assert done.only.reports == [] and lab.requests == []
    assert not download.cache.root.exists()


# Sources that are silent are left at the end of the step under way, those that deliver at once.
@pytest.mark.parametrize("held, sent, seconds", [
    ({"delay": 60}, 0, 2.5), ({"stall_at": 100_000}, 100_000, 2.5), ({"throttle": 100_000}, 10_000, 1.5)
], ids=["silent", "silent-in-the-body", "delivering"])
def test_cancel_during_the_comparison_at_the_start(lab, held, sent, seconds):
    stop, download = Stop(lab), Download(lab)
    for source in BOTH:
        download.serve(source, probe=download.honest(source, **held))
    download.start("--compare", *stop.options)
    for source in BOTH:
        probe = lab.wait_for_request(*download.payload.place(source))
        lab.wait_for_bytes(probe, sent)
    stop.give()
    done = download.finish()
    assert stop.seconds() < seconds
    assert_cancelled(done.only)
    assert done.only.course() == ["comparing-source"]
    assert [download.transfers(source) for source in BOTH] == [[], []]
    assert [download.names_in(source) for source in BOTH] == [[], []]
    assert done.preference == NO_PREFERENCE


def test_cancel_as_the_comparison_begins(lab):
    download = Download(lab).serve("primary").serve("backup")
    done = download.fetch("--compare", "--cancel-phase", PHASES.index("comparing-source"))
    assert_cancelled(done.only)
    assert done.only.course() == ["comparing-source"]
    assert [download.transfers(source) for source in BOTH] == [[], []]


def test_cancel_during_the_comparison_of_a_running_download(lab):
    """As it begins, and while the backup delivers for all of its four seconds."""
    stop, at_once, late = Stop(lab), Download(lab, 6_000_000), Download(lab, 6_000_000)
    for download in (at_once, late):
        download.serve("primary", download.honest("primary", throttle=150_000))
        download.serve("backup", probe=download.honest("backup", throttle=300_000))
    at_once.start(*QUICK_WINDOW, "--cancel-phase", PHASES.index("comparing-source"))
    late.start(*QUICK_WINDOW, *stop.options)
    probe = lab.wait_for_request(*late.payload.place("backup"))
    lab.wait_for_bytes(probe, 30_000)
    stop.give()
    ends = [late.finish(), at_once.finish()]
    assert stop.seconds() < 2.5
    for download, done in zip((late, at_once), ends):
        assert_cancelled(done.only)
        assert done.only.course() == ["connecting", "receiving", "comparing-source", "cancelled"]
        assert download.words("primary")[-2:] == ["bounded-comparison", "user"]
        assert download.transfers("backup") == []
        held = done.only.reports[-1]["bytes"]
        assert download.part("primary").stat().st_size == held >= LEAST_HELD and download.resume("primary").exists()
        assert done.preference == NO_PREFERENCE
    assert at_once.probes("backup") == []


def test_cancel_while_the_source_is_switched(lab):
    """From either one to the other: nothing more is asked of anybody."""
    chosen, from_backup = prefer_backup(lab), Download(lab).serve("primary").serve("backup", Reply(404))
    from_primary = Download(lab).serve("primary", Reply(404)).serve("backup")
    cancel = ("--cancel-phase", PHASES.index("switching-source"))
    done = transfer(lab, chosen.errand(), from_backup.errand(*cancel))
    assert_cancelled(done.results[1])
    assert done.results[1].course() == ["connecting", "switching-source"]
    assert from_backup.transfers("primary") == [] and len(from_backup.transfers("backup")) == 1
    done = from_primary.fetch(*cancel)
    assert_cancelled(done.only)
    assert done.only.course() == ["connecting", "switching-source"]
    assert from_primary.transfers("backup") == [] and len(from_primary.transfers("primary")) == 1
    assert done.preference == NO_PREFERENCE


def test_cancel_of_the_first_source_is_no_reason_to_switch(lab):
    for phase, reply in (("retrying", Reply(503, headers={"Retry-After": "0"})), ("receiving", None)):
        download = Download(lab).serve("backup")
        download.serve("primary", reply or download.honest("primary", throttle=100_000))
        done = download.fetch("--cancel-phase", PHASES.index(phase))
        assert_cancelled(done.only)
        assert done.only.course()[-1] == "cancelled" and "switching-source" not in done.only.course()
        assert len(download.transfers("primary")) == 1 and download.transfers("backup") == []
        assert done.preference == NO_PREFERENCE


def test_cancel_of_the_second_source_keeps_its_bytes(lab):
    download = Download(lab).serve("primary", Reply(404))
    download.serve("backup", download.honest("backup", throttle=60_000), download.honest("backup"))
    done = download.fetch("--cancel-bytes", 100_000)
    assert_cancelled(done.only)
    assert done.only.course() == ["connecting", "switching-source", "connecting", "receiving", "cancelled"]
    assert done.preference == NO_PREFERENCE
    held = download.part("backup").stat().st_size
    assert held >= 100_000
    download.assert_arrived(download.fetch().only, "backup")
    assert download.transfers("backup")[-1].range == f"bytes={held}-"


# Where the backup is.

PRIMARY_RELEASES = names.release_place("primary", "0")[1].removesuffix("v0/")
BACKUP_RELEASES = names.release_place("backup", "0")[1].removesuffix("v0/")


def test_backup_has_the_primarys_place_under_its_own_name(lab):
    for place in ("v1.1.0.0/payload.bin", "launcher-v1.2.3.4/A_b-C.1.zip", "v10.0.2147483647.99999/x"):
        download = Download(lab)
        lab.on(names.BACKUP, BACKUP_RELEASES + place, download.honest("backup"))
        done = download.fetch(url=f"https://{names.PRIMARY_RELEASE}{PRIMARY_RELEASES}{place}")
        download.assert_arrived(done.only, "backup")
        assert len(lab.requests_to(names.PRIMARY_RELEASE, PRIMARY_RELEASES + place)) == 1
        assert len(lab.requests_to(names.BACKUP, BACKUP_RELEASES + place)) == 1


def test_place_that_is_no_release_has_no_backup(lab):
    host = names.PRIMARY_RELEASE
    urls = [
        f"https://{host}{PRIMARY_RELEASES}v1.2.3/payload.bin",
        f"https://{host}{PRIMARY_RELEASES}launcher-v1.2.3/payload.bin",
        f"https://{host}{PRIMARY_RELEASES}v1.2.3.4.5/payload.bin",
        f"https://{host}{PRIMARY_RELEASES}V1.2.3.4/payload.bin",
        f"https://{host}{PRIMARY_RELEASES}1.2.3.4/payload.bin",
        f"https://{host}{PRIMARY_RELEASES}v1.2.3.4/folder/payload.bin",
        f"https://{host}{PRIMARY_RELEASES}v1.2.3.4/payload.bin?x=1",
        f"https://{host}{PRIMARY_RELEASES}v1.2.3.4/pay..load.bin",
        f"https://{host.capitalize()}{PRIMARY_RELEASES}v1.2.3.4/payload.bin",
        f"https://{names.CDN}{PRIMARY_RELEASES}v1.2.3.4/payload.bin",
    ]

    def check(url):
        download = Download(lab)
        done = download.fetch("--compare", url=url)
        assert done.only.reason == "http-error"
        assert done.only.course() == ["connecting", "failed"], "with one source a failure is told as one"
        assert not download.cache.folder("github").exists() and not download.cache.folder("r2").exists()
        assert len(download.cache.trace()) == 2
        assert done.preference == NO_PREFERENCE

    together(check, urls)
    assert lab.requests_to(names.BACKUP) == [] and len(lab.requests) == len(urls)


def test_named_backup_wins_over_the_derived_one(lab):
    download = Download(lab).serve("primary", Reply(404), probe=Reply(404)).serve("backup")
    lab.on(names.CDN, "/own.bin", download.honest("backup"))
    done = download.fetch("--compare", "--backup", f"https://{names.CDN}/own.bin")
    download.assert_arrived(done.only, "backup")
    assert [is_probe(request) for request in lab.requests_to(names.CDN)] == [True, False]
    assert lab.requests_to(names.BACKUP) == []
    assert {line["endpoint"] for line in download.trace("backup")} == {"other-https"}


def test_named_backup_serves_a_primary_of_any_place(lab):
    download = Download(lab)
    lab.on(names.CDN, "/own.bin", download.honest("backup"))
    done = download.fetch("--backup", f"https://{names.CDN}/own.bin", url=f"https://{names.CDN}/gone.bin")
    download.assert_arrived(done.only, "backup")


def test_named_backup_is_held_to_the_same_rules(lab):
    """It is neither measured nor used if its place may not be; the primary serves all the same."""
    host, path = Download(lab).payload.place("backup")
    for url, reason in ((f"http://{host}{path}", "https-required"), (f"https://me@{host}{path}", "invalid-url")):
        good, gone = Download(lab).serve("primary"), Download(lab).serve("primary", Reply(404))
        good.assert_arrived(good.fetch("--compare", "--backup", url).only, "primary")
        failed = gone.fetch("--compare", "--backup", url).only
        assert (failed.success, failed.canceled, failed.reason) == (False, False, reason)
        assert len(good.probes("primary")) == len(gone.probes("primary")) == 1
    assert lab.requests_to(host) == []


def test_payload_that_cannot_be_is_refused_before_anything_else(lab):
    for position, wrong in ((2, "0"), (2, str(0x80000001)), (1, "A" * 64), (1, "a" * 63)):
        download = Download(lab).serve("primary").serve("backup")
        words = download.errand("--compare")
        words[position + 1] = wrong
        [fetched] = transfer(lab, words).results
        assert (fetched.reason, fetched.reports) == ("invalid-payload", [])
        assert not download.cache.root.exists()
    assert lab.requests == []


# Whole updates.

BEFORE, AFTER = "1.0.0.0", "1.1.0.0"
READING = f"{APPLICATION_FOLDER}/JapaneseReading/aromanize.js"
THEME = f"{APPLICATION_FOLDER}/Themes/dawn.vprtheme"
CONTENT = {READING: SyntheticBody(400_000, 11), THEME: SyntheticBody(350_000, 12)}


def release():
    return update(AFTER, files={APPLICATION_PATH: app_binary(AFTER, 200_000), **CONTENT})


def assert_updated(tree, result):
    assert result.exit_code == 0 and result.app.version == AFTER
    assert tree.read(APPLICATION_PATH) == app_binary(AFTER, 200_000)
    for path, body in CONTENT.items():
        assert tree.read(path) == body.read_all()
    assert tree.read_configuration()["productVersion"] == AFTER
    tree.assert_no_leftovers()


def payload_requests(lab, new, source):
    """(probes, {install path: transfers})"""
    places = {path: lab.requests_to(*new.place(path, source)) for path in new.files}
    probes = [request for requests in places.values() for request in requests if is_probe(request)]
    counts = {path: sum(not is_probe(request) for request in requests) for path, requests in places.items()}
    return len(probes), counts


def test_update_whose_payload_server_is_dead_comes_from_the_backup(lab, tree):
    new = release().publish(lab, "both")
    lab.set_mode(names.PRIMARY_RELEASE, "refuse")
    assert_updated(tree, lab.run(tree, answers=["yes"]))
    assert payload_requests(lab, new, "backup") == (1, dict.fromkeys(new.files, 1))
    assert lab.requests_to(*names.manifest_place("backup")) == [], "the release itself was offered by the primary"


def slow_probe(reply):
    return lambda request: reply.but(throttle=200_000) if is_probe(request) else reply


@pytest.mark.parametrize("better", BOTH)
def test_sources_are_compared_once_per_update(lab, tree, better):
    new = release().publish(lab, "both")
    worse = OTHER[better]
    for path in new.files:
        lab.on(*new.place(path, worse), slow_probe(new.payload_reply(path, worse)))
    assert_updated(tree, lab.run(tree, answers=["yes"]))
    assert payload_requests(lab, new, better) == (1, dict.fromkeys(new.files, 1))
    assert payload_requests(lab, new, worse) == (1, dict.fromkeys(new.files, 0))


def test_small_files_come_from_the_backup_once_it_had_to_help(lab, tree):
    """Too small to be measured, so the primary comes first, and last."""
    content = {READING: SyntheticBody(4_000, 13), THEME: SyntheticBody(5_000, 14)}
    new = update(AFTER, files=content).publish(lab, "both")
    for path in content:
        lab.on(*new.place(path), Reply(404))
    result = lab.run(tree, answers=["yes"])
    assert result.exit_code == 0 and tree.read_configuration()["productVersion"] == AFTER
    assert [tree.read(path) for path in content] == [body.read_all() for body in content.values()]
    tree.assert_no_leftovers()
    probes, asked = payload_requests(lab, new, "primary")
    assert (probes, sorted(asked.values())) == (1, [0, 1]), "only the first file asks it"
    assert payload_requests(lab, new, "backup") == (1, dict.fromkeys(content, 1))


def test_update_goes_on_with_the_other_source_when_one_fails_on_the_way(lab, tree):
    """The second file is wrong at the source that was chosen for the first."""
    new = release().publish(lab, "both")
    asked = itertools.count()

    def first_only(reply):
        return lambda request: reply if is_probe(request) or next(asked) == 0 else Reply(404)

    for path in new.files:
        lab.on(*new.place(path, "backup"), first_only(new.payload_reply(path, "backup")))
        lab.on(*new.place(path), slow_probe(new.payload_reply(path)))
    assert_updated(tree, lab.run(tree, answers=["yes"]))
    assert payload_requests(lab, new, "primary")[0] == payload_requests(lab, new, "backup")[0] == 1
    assert sorted(payload_requests(lab, new, "backup")[1].values()) == [0, 1, 1]
    assert sorted(payload_requests(lab, new, "primary")[1].values()) == [0, 1, 1]


def test_update_that_neither_source_can_deliver_changes_nothing(lab, tree):
    new = release().publish(lab, "both")
    before = tree.snapshot(exclude=STATE)
    for source in BOTH:
        lab.on(*new.place(THEME, source), Reply(404))
    result = lab.run(tree, answers=["yes"])
    assert result.exit_code == 0 and result.app.version == BEFORE
    assert tree.snapshot(exclude=STATE) == before
    tree.assert_no_leftovers()
    assert all(payload_requests(lab, new, source)[1][THEME] == 1 for source in BOTH)

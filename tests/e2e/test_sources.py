"""Sources that are down, lie, stall, redirect or mislead; and two sources that disagree."""

import json
import subprocess

import pytest

from lab import APPLICATION_PATH, LAUNCHER, STATE, Reply, app_binary, html, install, names, redirect, update
from lab.install import APPLICATION_FOLDER

BEFORE, AFTER = "1.0.0.0", "1.1.0.0"
MANIFEST_LIMIT = 524288
BOTH_MANIFESTS = [names.manifest_place("primary"), names.manifest_place("backup")]


def assert_kept(tree, result, before):
    """The installed version started, untouched."""
    assert result.exit_code == 0
    assert result.app.version == BEFORE
    assert tree.snapshot(exclude=STATE) == before
    assert not tree.path("update-state.json").exists(), "a failure is no conclusion: the next start tries again"
    tree.assert_no_leftovers()


def assert_updated(tree, result):
    assert result.exit_code == 0
    assert result.app.version == AFTER
    assert tree.read_configuration()["productVersion"] == AFTER
    tree.assert_no_leftovers()


def manifest_requests(lab, source):
    host, path = names.manifest_place(source)
    return lab.requests_to(host, path)


# The manifest.


def test_primary_down_backup_is_used(lab, tree):
    lab.set_mode(names.PRIMARY_MANIFEST, "refuse")
    update().publish(lab, "backup")
    assert_updated(tree, lab.run(tree, answers=["yes"]))
    assert lab.requests_to(names.PRIMARY_RELEASE) == []


@pytest.mark.parametrize("status", [204, 206, 304, 403, 404, 500, 503])
def test_primary_with_any_other_status_than_200_is_tried_twice(lab, tree, status):
    update().publish(lab, "backup")
    lab.on(*names.manifest_place("primary"), Reply(status, b"" if status in (204, 304) else b"{}"))
    assert_updated(tree, lab.run(tree, answers=["yes"]))
    assert len(manifest_requests(lab, "primary")) == 2
    assert len(manifest_requests(lab, "backup")) == 1


def test_second_attempt_at_the_primary_is_enough(lab, tree):
    new = update().publish(lab)
    lab.on(*names.manifest_place("primary"), [Reply(500), new.manifest_reply("primary")])
    assert_updated(tree, lab.run(tree, answers=["yes"]))
    assert manifest_requests(lab, "backup") == []


def test_both_sources_down_starts_the_installed_version(lab, tree):
    before = tree.snapshot(exclude=STATE)
    result = lab.run(tree)
    assert_kept(tree, result, before)
    assert len(manifest_requests(lab, "primary")) == 2
    assert len(manifest_requests(lab, "backup")) == 2


def test_no_backup_for_a_location_of_the_users_own(lab):
    tree = install(lab, manifest_url=f"https://{names.CDN}/own.json")
    before = tree.snapshot(exclude=STATE)
    result = lab.run(tree)
    assert_kept(tree, result, before)
    assert [request.host for request in result.requests] == [names.CDN, names.CDN]


def test_manifest_request_asks_for_fresh_plain_bytes(lab, tree):
    update().publish(lab)
    lab.run(tree, answers=["no"])
    [request] = manifest_requests(lab, "primary")
    assert request.headers["user-agent"] == "Velmora Pine Relay Launcher/1.0"
    assert request.headers["accept-encoding"] == "identity"
    assert request.headers["cache-control"] == "no-cache"
    assert request.range is None


@pytest.mark.parametrize("answer", [html(), Reply(200, b""), Reply(200, b"\xff\xfe{}"), Reply(200, "{}"), Reply(200, "[]")])
def test_what_is_no_manifest_is_refused(lab, tree, answer):
    before = tree.snapshot(exclude=STATE)
    for place in BOTH_MANIFESTS:
        lab.on(*place, answer)
    assert_kept(tree, lab.run(tree), before)


def test_sign_in_page_on_the_primary_leads_to_the_backup(lab, tree):
    new = update().publish(lab, "backup")
    lab.on(*names.manifest_place("primary"), new.manifest_reply("primary", as_html=True))
    assert_updated(tree, lab.run(tree, answers=["yes"]))


def test_manifest_of_exactly_the_limit_is_read(lab, tree):
    update().publish(lab, pad_to=MANIFEST_LIMIT)
    assert_updated(tree, lab.run(tree, answers=["yes"]))


def test_manifest_of_one_byte_more_is_refused(lab, tree):
    before = tree.snapshot(exclude=STATE)
    update().publish(lab, "both", pad_to=MANIFEST_LIMIT + 1)
    assert_kept(tree, lab.run(tree), before)


@pytest.mark.parametrize("share", [0.1, 0.5, 0.9, 0.999])
def test_manifest_that_is_cut_off_is_refused(lab, tree, share):
    before = tree.snapshot(exclude=STATE)
    new = update()
    for source, place in zip(names.SOURCES, BOTH_MANIFESTS):
        whole = new.manifest(source)
        lab.on(*place, new.manifest_reply(source).but(cut_at=int(len(whole) * share)))
    assert_kept(tree, lab.run(tree), before)


def test_redirect_to_another_https_host_is_followed(lab, tree):
    new = update().publish(lab)
    lab.on(names.CDN, "/moved.json", new.manifest_reply("primary"))
    lab.on(*names.manifest_place("primary"), redirect(f"https://{names.CDN}/moved.json"))
    assert_updated(tree, lab.run(tree, answers=["yes"]))
    assert len(lab.requests_to(names.CDN)) == 1


def test_redirect_to_http_is_refused(lab, tree):
    before = tree.snapshot(exclude=STATE)
    new = update()
    lab.on(names.CDN, "/moved.json", new.manifest_reply("primary"), secure=False)
    for place in BOTH_MANIFESTS:
        lab.on(*place, redirect(f"http://{names.CDN}/moved.json"))
    assert_kept(tree, lab.run(tree), before)
    assert lab.requests_to(names.CDN) == []


@pytest.mark.parametrize("kind", ["untrusted", "self-signed", "expired", "wrong-name"])
def test_certificate_that_proves_nothing_is_refused(lab, tree, kind):
    before = tree.snapshot(exclude=STATE)
    update().publish(lab, "both")
    lab.set_certificate(names.PRIMARY_MANIFEST, kind)
    lab.set_certificate(names.BACKUP, kind)
    result = lab.run(tree)
    assert_kept(tree, result, before)
    assert result.requests == []


# Each attempt may wait 1.5 s to resolve and to connect and 2.5 s to be answered; two sources have two attempts each.
@pytest.mark.parametrize("mode, seconds", [("mute", 4 * 2.5), ("silent", 4 * 2.5), ("blackhole", 4 * 1.5)])
def test_server_that_never_answers_delays_the_start_by_its_time_outs_only(lab, tree, mode, seconds):
    before = tree.snapshot(exclude=STATE)
    lab.set_mode(names.PRIMARY_MANIFEST, mode)
    lab.set_mode(names.BACKUP, mode)

    def wait():
        """Seconds from the first look at the window to the first at the outcome: what comes before and behind is no
        waiting."""
        result = lab.run(tree)
        assert_kept(tree, result, before)
        return (result.windows[-1].ms - result.windows[0].ms) / 1000

    # A busy machine only adds to a wait.
    least = next((waited for waited in (wait() for _ in range(3)) if waited < seconds + 0.5), None)
    assert least is not None, "the start was delayed beyond the time-outs"
    assert least > seconds / 4, "the server did not stall at all"


# Two sources that disagree.


def test_backup_manifest_with_a_foreign_payload_is_refused(lab, tree):
    before = tree.snapshot(exclude=STATE)
    new = update()
    foreign = f"https://{names.PRIMARY_RELEASE}{new.place(APPLICATION_PATH)[1]}"
    new.publish(lab, "backup", foreign_url={APPLICATION_PATH: foreign})
    assert_kept(tree, lab.run(tree), before)
    assert lab.requests_to(names.PRIMARY_RELEASE) == []


def test_backup_as_the_users_location_must_be_independent_too(lab):
    tree = install(lab, manifest_url=names.BACKUP_MANIFEST_URL)
    before = tree.snapshot(exclude=STATE)
    new = update()
    new.publish(lab, "backup", foreign_url={APPLICATION_PATH: f"https://{names.CDN}/x"})
    assert_kept(tree, lab.run(tree), before)


def test_backup_older_than_the_watermark_is_refused(lab, tree):
    update("1.2.0.0").publish(lab)
    lab.run(tree, answers=["no"])
    tree.path("update-state.json").unlink()
    mark = tree.read(".vpr-update/release-watermark.txt")
    assert mark.startswith(b"1.2.0.0\n")
    before = tree.snapshot(exclude=STATE)
    lab.set_mode(names.PRIMARY_MANIFEST, "refuse")
    update(AFTER).publish(lab, "backup")
    assert_kept(tree, lab.run(tree), before)
    assert tree.read(".vpr-update/release-watermark.txt") == mark


def test_backup_with_the_same_release_is_accepted(lab, tree):
    new = update().publish(lab, "both")
    lab.run(tree, answers=["no"])
    lab.set_mode(names.PRIMARY_MANIFEST, "refuse")
    assert_updated(tree, lab.run(tree, ["--check-for-updates"], ["yes"]))
    assert len(lab.requests_to(*new.place(APPLICATION_PATH, "backup"))) == 1


def test_backup_with_other_content_under_the_same_version_is_refused(lab, tree):
    update().publish(lab)
    lab.run(tree, answers=["no"])
    tree.path("update-state.json").unlink()
    before = tree.snapshot(exclude=STATE)
    lab.set_mode(names.PRIMARY_MANIFEST, "refuse")
    update(padding=64).publish(lab, "backup")
    assert_kept(tree, lab.run(tree), before)


def test_primary_with_other_content_under_the_same_version_moves_the_mark(lab, tree):
    update().publish(lab)
    lab.run(tree, answers=["no"])
    mark = tree.read(".vpr-update/release-watermark.txt")
    update(padding=64).publish(lab)
    assert_updated(tree, lab.run(tree, ["--check-for-updates"], ["yes"]))
    assert tree.read(".vpr-update/release-watermark.txt") != mark


# The payload.


@pytest.mark.parametrize("tampering", [{"wrong_sha": APPLICATION_PATH}, {"wrong_size": APPLICATION_PATH}])
def test_payload_that_differs_from_the_manifest_is_refused(lab, tree, tampering):
    before = tree.snapshot(exclude=STATE)
    update().publish(lab, **tampering)
    assert_kept(tree, lab.run(tree, answers=["yes"]), before)


def test_payload_that_lies(lab, tree):
    """Too long, too short, another kind, another encoding, cut off, refused: the tree is never touched."""
    before = tree.snapshot(exclude=STATE)
    new = update()
    honest = new.payload_reply(APPLICATION_PATH)
    body = honest.body.read_all()
    answers = {
        "too long": honest.but(body=body + b"x"),
        "too long without a length": honest.but(body=body + b"x", content_length=None),
        "too long in chunks": honest.but(body=body + b"x", chunked=True),
        "too short": honest.but(body=body[:-1]),
        "too short without a length": honest.but(body=body[:-1], content_length=None),
        "cut off, always from the start": honest.but(cut_at=len(body) // 2, honour_range=False),
        "reset, always from the start": honest.but(cut_at=len(body) // 2, cut_mode="rst", honour_range=False),
        "other bytes": honest.but(body=body[:-1] + bytes([body[-1] ^ 1])),
        "html": html(),
        "html of the right length": honest.but(content_type="text/html; charset=utf-8"),
        "encoded": honest.but(content_encoding="gzip"),
        "gone": Reply(404),
        "broken": Reply(500),
        "a range nobody asked for": honest.but(status=206),
    }
    for name, answer in answers.items():
        new.publish(lab, payloads={APPLICATION_PATH: answer})
        result = lab.run(tree, answers=["yes"])
        assert_kept(tree, result, before), name


def test_payload_in_chunks_or_without_a_length_is_accepted(lab):
    new = update()
    honest = new.payload_reply(APPLICATION_PATH)
    for number, answer in enumerate([honest.but(chunked=True), honest.but(content_length=None), honest.but(etag=None)]):
        tree = install(lab, f"app{number}")
        new.publish(lab, payloads={APPLICATION_PATH: answer})
        assert_updated(tree, lab.run(tree, answers=["yes"]))


def test_payload_redirected_within_https_is_accepted(lab, tree):
    new = update()
    lab.on(names.CDN, "/payload", new.payload_reply(APPLICATION_PATH))
    new.publish(lab, payloads={APPLICATION_PATH: redirect(f"https://{names.CDN}/payload")})
    assert_updated(tree, lab.run(tree, answers=["yes"]))


def test_payload_redirected_to_http_is_refused(lab, tree):
    before = tree.snapshot(exclude=STATE)
    new = update()
    lab.on(names.CDN, "/payload", new.payload_reply(APPLICATION_PATH), secure=False)
    new.publish(lab, payloads={APPLICATION_PATH: redirect(f"http://{names.CDN}/payload")})
    assert_kept(tree, lab.run(tree, answers=["yes"]), before)
    assert lab.requests_to(names.CDN) == []


def test_payload_request_is_the_engines_own(lab, tree):
    new = update().publish(lab)
    lab.run(tree, answers=["yes"])
    probe, request = lab.requests_to(*new.place(APPLICATION_PATH))
    assert probe.headers["user-agent"] == "Velmora Pine Relay Source Comparison"
    assert request.headers["user-agent"] == "Velmora Pine Relay Launcher"
    assert request.headers["accept-encoding"] == "identity"
    assert "cookie" not in request.headers and "referer" not in request.headers


def trace_lines(tree, source):
    path = tree.path(f".vpr-update/downloads-v1/{source}/download-trace.jsonl")
    return [json.loads(line) for line in path.read_text(encoding="utf-8").splitlines()]


def test_downloads_are_traced_by_what_they_bring(lab, tree):
    files = {APPLICATION_PATH: app_binary(AFTER), f"{APPLICATION_FOLDER}/Themes/dawn.vprtheme": b"theme"}
    update(files=files).publish(lab)
    assert_updated(tree, lab.run(tree, answers=["yes"]))
    lines = trace_lines(tree, "github")
    assert {line["component"] for line in lines} == {"application", "theme"}
    assert {line["endpoint"] for line in lines} == {"github"}
    assert [line["reason"] for line in lines] == ["new-request", "headers-accepted", "payload", "sha256-verified"] * 2


def test_slow_primary_is_compared_behind_delay_and_window_and_left(lab, tree):
    """Ten seconds behind the first byte a window of ten seconds opens. It opens with the last chunk before that moment, so
    that its own end may come a moment too early for a comparison, which then waits for the end of the next window."""
    new = update(padding=5_000_000)
    honest = new.payload_reply(APPLICATION_PATH, "backup")
    new.publish(lab, payloads={APPLICATION_PATH: new.payload_reply(APPLICATION_PATH).but(throttle=100_000)})
    # The backup has nothing when it is measured at the start, so that the primary begins.
    lab.on(*new.place(APPLICATION_PATH, "backup"), [Reply(404), honest])
    result = lab.run(tree, answers=["yes"], timeout=90)
    assert_updated(tree, result)
    _, transfer = lab.requests_to(*new.place(APPLICATION_PATH))
    start, during, whole = lab.requests_to(*new.place(APPLICATION_PATH, "backup"))
    assert start.range == "bytes=0-524287" and during.range == "bytes=0-4194303" and whole.range is None
    assert 19.5 < during.time - transfer.time < 35
    last = trace_lines(tree, "github")[-1]
    assert last["reason"] == "backup-measured-faster"
    assert 50_000 < last["comparisonPrimarySpeed"] < 150_000


def test_application_in_use_is_not_half_replaced(lab, tree):
    """The user starts the launcher while the application still runs from before."""
    holder = lab.start(tree, ["--skip-update-check"], ["wait"], env={"VPR_SAMPLE_DIALOG": "busy"})
    holder.wait_for_window("dialog")
    before = tree.snapshot(exclude=STATE)
    update().publish(lab)
    result = lab.run(tree, answers=["yes", "ok"])
    assert tree.snapshot(exclude=STATE) == before
    # A running program cannot be renamed over, neither by the update nor by its rollback: nothing may start until a
    # start without that obstacle has finished the rollback.
    assert result.exit_code == 40 and result.app is None
    assert result.dialogs[-1].shows("無法替換更新檔案。 回復尚未完成；備份已保留且本次不應啟動主程式：")
    holder.close_window()
    holder.wait()
    assert lab.run(tree, ["--skip-update-check"]).app.version == BEFORE
    assert tree.snapshot(exclude=STATE) == before
    tree.assert_no_leftovers()


@pytest.mark.parametrize("spare", [20, 270, 420, 570])
def test_disk_that_fills_up(lab, spare):
    """A cached and a staged payload take 230 KiB each beside what is installed, and the backup as much: the disk fills in
    each of these phases in turn."""
    disk = lab.folder / "disk"
    disk.mkdir()
    kilobytes = (LAUNCHER.stat().st_size + len(app_binary(BEFORE))) // 1024 + spare
    subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={kilobytes}k", "tmpfs", disk], check=True)
    try:
        tree = install(lab, "disk/app")
        before = tree.snapshot(exclude=STATE)
        update().publish(lab)
        result = lab.run(tree, answers=["yes"])
        assert result.exit_code == 0 and result.app.version == BEFORE
        assert tree.snapshot(exclude=STATE) == before
        tree.assert_no_leftovers()
    finally:
        subprocess.run(["umount", disk], check=True)

"""The status window in whole runs, with a real pointer and a real keyboard. Pictures come to build/e2e/pictures."""

import time

import pytest

from lab import APPLICATION_PATH, STATE, Screen, install, names, note, notes, update
from lab.install import APPLICATION_FOLDER
from lab.programs import TOP

BEFORE, AFTER = "1.0.0.0", "1.1.0.0"
THEME = f"{APPLICATION_FOLDER}/Themes/dawn.vprtheme"
LARGE = 3_000_000  # bytes behind the application's own
NOTES = notes(note("en", "Quieter starts.", ["The first sound plays without a click.", "Theme “Dawn” for bright rooms."],
                   ["Theme “Dawn” for bright rooms."]))
FAILED_HOLD_MS, HOLD_MS = 1400, 650
TICK_MS = 32  # how exactly the launcher's clock and the driver's looks agree
BAR_FAILED, BAR_WORKING = "e85454", "2997ff"


@pytest.fixture
def screen(lab):
    return Screen(TOP / "build/e2e/pictures")


def offer(lab, **options):
    """A published release with a large application; the payloads misbehave as told."""
    release = update(AFTER, padding=LARGE, notes=NOTES)
    replies = options.pop("replies", None)
    payloads = {APPLICATION_PATH: replies(release.payload_reply(APPLICATION_PATH))} if replies else None
    return release.publish(lab, payloads=payloads, **options)


def start_and_await_prompt(lab, tree, *args):
    run = lab.start(tree, args, ["wait", "wait"])
    run.wait_for_window("prompt")
    return run


def accept(lab, tree, screen):
    run = start_and_await_prompt(lab, tree)
    screen.click(run, "update")
    return run


def await_text(run, text, view="progress", timeout=30):
    return run.wait_for_window(view, timeout, lambda window: window.shows(text))


def assert_version(tree, result, version):
    assert result.exit_code == 0 and result.app.version == version
    assert tree.application_version() == version
    tree.assert_no_leftovers()


def is_look(request):
    """One that only measures the source, before the first byte."""
    return request.range == "bytes=0-524287"


def in_turn(honest, *attempts):
    """A script: looks are answered honestly, the attempts of the transfer as told, the last for all that follow."""
    left = list(attempts)

    def answer(request):
        if is_look(request):
            return honest
        return left.pop(0) if len(left) > 1 else left[0]

    return answer


def shown(result):
    """All texts that any window of the run showed."""
    return {text for window in result.windows for text in window.texts}


def stood_for(result, text):
    """Milliseconds at the most from when the text stood there to the launcher's end."""
    return result.elapsed * 1000 - next(window for window in result.windows if window.shows(text)).look_before_ms


# The prompt.


def test_offer_accepted_by_pointer(lab, tree, screen):
    offer(lab)
    run = start_and_await_prompt(lab, tree)
    screen.take_picture("prompt", run.wait_for_window("prompt"))
    screen.click(run, "update")
    result = run.wait()
    assert_version(tree, result, AFTER)
    assert result.views()[-2:] == ["prompt", "progress"]
    assert stood_for(result, "Update complete: version 1.1.0.0") > HOLD_MS - TICK_MS, "the last status can be read"
    assert result.windows[-1].shows("Update complete: version 1.1.0.0")


@pytest.mark.parametrize("keys", [["Return"], ["Tab", "Return"], ["space"]], ids="-".join)
def test_offer_accepted_by_keys(lab, tree, screen, keys):
    """Enter accepts wherever the focus is; Space presses the button that has it, which is Update at first."""
    offer(lab)
    run = start_and_await_prompt(lab, tree)
    screen.press(*keys)
    assert_version(tree, run.wait(), AFTER)


@pytest.mark.parametrize("way", ["click", "Escape", "alt+F4", "space"])
def test_offer_declined(lab, tree, screen, way):
    offer(lab)
    before = tree.snapshot(exclude=STATE)
    run = start_and_await_prompt(lab, tree)
    if way == "click":
        screen.click(run, "later")
    else:
        screen.press(*(["Tab", way] if way == "space" else [way]))
    result = run.wait()
    assert_version(tree, result, BEFORE)
    assert tree.snapshot(exclude=STATE) == before
    assert result.views()[-2:] == ["prompt", "compact"]
    assert "Skipped version 1.1.0.0. Starting the installed version…" in shown(result)
    assert not [request for request in lab.requests if "releases" in request.path], "nothing was fetched"


# A download.


@pytest.mark.parametrize("way", ["click", "Escape", "alt+F4"])
def test_download_cancelled(lab, tree, screen, way):
    release = offer(lab, replies=lambda honest: honest.but(throttle=100_000))
    before = tree.snapshot(exclude=STATE)
    run = accept(lab, tree, screen)
    window = run.wait_for_window("progress", match=lambda seen: seen.is_enabled("cancel") and seen.shows("Speed: "))
    assert window.shows("Skip update and open app") and window.shows("Downloading update")
    if way == "click":
        screen.click(run, "cancel")
    else:
        screen.press(way)
    wished = time.monotonic()
    result = run.wait()
    assert_version(tree, result, BEFORE)
    assert tree.snapshot(exclude=STATE) == before
    last = result.windows[-1]
    assert last.shows("Update cancelled. Starting the installed version…") and not last.is_enabled("cancel")
    transfer = lab.requests_to(*release.place(APPLICATION_PATH))[-1]
    lab.wait_for_finish(transfer)
    assert transfer.client_closed and transfer.finish_time - wished < 1.5, "bytes arrive, so the wish is heard at once"


def test_download_cancelled_while_nothing_arrives(lab, tree, screen):
    offer(lab, replies=lambda honest: honest.but(stall_at=1_000_000))
    run = accept(lab, tree, screen)
    window = await_text(run, "Speed: 0.0 KB/s\nWaiting for download data…")
    screen.take_picture("stalled", window)
    screen.click(run, "cancel")
    result = run.wait()
    assert_version(tree, result, BEFORE)
    cancelling = next(seen for seen in result.windows if seen.shows("Cancelling safely…"))
    assert cancelling.ms - window.ms < 4000, "the window is free while nothing arrives"
    assert not cancelling.is_enabled("cancel") and not cancelling.is_enabled("reconnect")


def test_reconnect(lab, tree, screen):
    """A wish of the user's ends the attempt, keeps the bytes and goes on with the next one."""
    release = offer(lab, replies=lambda honest: in_turn(honest, honest.but(throttle=100_000), honest))
    run = accept(lab, tree, screen)
    window = run.wait_for_window("progress", match=lambda seen: seen.is_enabled("reconnect"))
    assert window.control("reconnect")["text"] == "Reconnect"
    screen.click(run, "reconnect")
    result = run.wait()
    assert_version(tree, result, AFTER)
    first, second = lab.requests_to(*release.place(APPLICATION_PATH))[-2:]
    assert first.range is None and second.range.startswith("bytes=")
    assert not result.windows[-1].control("reconnect"), "the offer ends with the transfer"


def test_slow_connection_is_told_and_may_be_left(lab, tree, screen):
    offer(lab, replies=lambda honest: in_turn(honest, honest.but(throttle=8_000), honest))
    run = accept(lab, tree, screen)
    window = await_text(run, "Slow connection. Keep waiting or reconnect.\nSpeed: ", timeout=60)
    screen.take_picture("slow", window)
    assert window.shows(" · about ")
    screen.click(run, "reconnect")
    assert_version(tree, run.wait(), AFTER)


def test_source_switch_is_told(lab, tree, screen):
    release = offer(lab, source="both")
    honest = release.payload_reply(APPLICATION_PATH)
    slow = release.payload_reply(APPLICATION_PATH, "backup").but(throttle=1_000_000)
    lab.on(*release.place(APPLICATION_PATH), in_turn(honest, honest.but(cut_at=1000)))
    lab.on(*release.place(APPLICATION_PATH, "backup"), slow)
    run = accept(lab, tree, screen)
    window = await_text(run, "Source: Cloudflare R2 backup\nSpeed: ")
    screen.take_picture("backup", window)
    result = run.wait()
    assert_version(tree, result, AFTER)
    assert any(text.startswith("Reconnecting; retained data will be verified. (") for text in shown(result))


# A repair.


def damaged(lab):
    """Version 1.0.0.0 is installed and published, and one of its files is damaged."""
    tree = install(lab, themes={"dawn.vprtheme": b"not the theme"})
    return tree, update(BEFORE, files={THEME: b"the theme" * 200_000})


def test_repair_stays_behind_the_compact_window(lab, screen):
    tree, release = damaged(lab)
    release.publish(lab, payloads={THEME: release.payload_reply(THEME).but(throttle=1_000_000)})
    run = lab.start(tree)
    window = await_text(run, "Repairing missing or damaged files…", "compact")
    screen.take_picture("repair", window)
    result = run.wait()
    assert_version(tree, result, BEFORE)
    assert tree.read(THEME) == b"the theme" * 200_000
    assert result.views() == ["compact"]
    assert "You are up to date" in shown(result)
    assert not any("ownload" in text for text in shown(result)), "a repair does not speak of downloads"


@pytest.mark.parametrize("way", ["Escape", "alt+F4"])
def test_repair_cancelled(lab, screen, way):
    """The server holds its answer back until the words for the wish were seen, which bytes that arrive would end."""
    tree, release = damaged(lab)
    gate = lab.gate()
    honest = release.payload_reply(THEME)
    release.publish(lab, payloads={THEME: in_turn(honest, honest.but(hold=gate))})
    run = lab.start(tree)
    await_text(run, "Repairing missing or damaged files…", "compact")
    lab.wait_for_request(*release.place(THEME), count=2)  # the first only looks
    screen.press(way)
    await_text(run, "Cancelling safely…", "compact")
    gate.release()
    result = run.wait()
    assert result.exit_code == 0 and result.app.version == BEFORE
    assert tree.read(THEME) == b"not the theme"
    assert result.views() == ["compact"]


# Ends.


def test_safe_failure_is_shown_for_a_while_and_passes(lab, tree, screen):
    offer(lab, replies=lambda honest: honest.but(status=404))
    run = accept(lab, tree, screen)
    notice = await_text(run, "Update did not finish. Starting the installed version…", "notice")
    screen.await_bar("failure-safe", notice, BAR_FAILED)
    result = run.wait()
    assert_version(tree, result, BEFORE)
    assert notice.shows("The installed version will start automatically. You can retry the update later.")
    assert notice.shows("Status details") and not notice.control("cancel")
    assert stood_for(result, "Update did not finish. Starting the installed version…") > FAILED_HOLD_MS - TICK_MS
    assert result.windows[-1].view == "notice", "the application was not seen beside the window"


def stop_the_launch(lab, tree):
    """An update that can neither be finished nor undone, since the application still runs; gives both runs."""
    holder = lab.start(tree, ["--skip-update-check"], ["wait"], env={"VPR_SAMPLE_DIALOG": "busy"})
    holder.wait_for_window("dialog")
    update().publish(lab)
    run = lab.start(tree, answers=["yes", "wait"])
    return holder, run


@pytest.mark.parametrize("way", ["click", "Return", "space", "Escape", "alt+F4"])
def test_blocking_failure_stays_until_it_is_closed(lab, tree, screen, way):
    holder, run = stop_the_launch(lab, tree)
    failure = run.wait_for_window("failure")
    screen.await_bar("failure", failure, BAR_FAILED)
    assert failure.shows("Update recovery needs attention. Launch stopped.")
    assert failure.shows("Launch is stopped. Close this window and resolve the issue before trying again.")
    assert failure.control("close")["text"] == "Close"
    if way == "click":
        screen.click(run, "close")
    else:
        screen.press(way)
    result = run.wait()
    assert result.exit_code == 40 and result.app is None
    holder.close_window()
    holder.wait()


def test_stop_before_the_settings_are_read_has_a_window_of_its_own(lab, tree, screen):
    tree.write(".vpr-update", b"a file")
    run = lab.start(tree, answers=["wait"])
    failure = run.wait_for_window("failure")
    assert failure.shows("更新交易位置不是安全的一般資料夾。")
    screen.press("Return")
    result = run.wait()
    assert result.exit_code == 39 and result.app is None


def test_wish_to_check_is_answered_when_there_is_nothing_new(lab, tree, screen):
    update(BEFORE).publish(lab)
    run = lab.start(tree, ["--check-for-updates"])
    notice = run.wait_for_window("notice")
    screen.await_bar("up-to-date", notice, BAR_WORKING)
    result = run.wait()
    assert_version(tree, result, BEFORE)
    assert notice.shows("You already have the latest version.")
    assert stood_for(result, "You already have the latest version.") > HOLD_MS - TICK_MS


def test_closing_the_window_during_the_check_hides_it_and_the_run_goes_on(lab, tree, screen):
    gate = lab.gate()
    release = update(AFTER)
    release.publish(lab)
    lab.on(*names.manifest_place("primary"), release.manifest_reply().but(hold=gate))
    run = lab.start(tree, answers=["wait"])
    await_text(run, "Checking for updates…", "compact")
    lab.wait_for_request(names.PRIMARY_MANIFEST)
    screen.press("alt+F4")
    run.wait_for_no_window()
    gate.release()
    run.wait_for_window("prompt")  # an offer comes to light again
    screen.press("Return")
    assert_version(tree, run.wait(), AFTER)

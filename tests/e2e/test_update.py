"""Whole updates of plain files: what is decided, fetched, changed and left alone."""

import json
import time

import pytest

from lab import (
    APPLICATION_PATH, STATE, Release, app_binary, deep_folder, install, names, note, notes,
)
from lab.install import APPLICATION_FOLDER

THEME = f"{APPLICATION_FOLDER}/Themes/dawn.vprtheme"
READING = f"{APPLICATION_FOLDER}/JapaneseReading/aromanize.js"
OLD_THEME, NEW_THEME = b"old theme", b"new theme, longer"
BEFORE, AFTER = "1.0.0.0", "1.1.0.0"


def release(version=AFTER, **options):
    """A changed application, a changed theme and a new file of the reading runtime."""
    files = {APPLICATION_PATH: app_binary(version), THEME: NEW_THEME, READING: b"new reading"}
    return Release(version, files, **options)


def installed(lab, version=BEFORE, **options):
    return install(lab, app_version=version, themes={"dawn.vprtheme": OLD_THEME}, **options)


def write_state(tree, seconds_ago):
    """The schedule's record of an attempt so long ago."""
    stamp = int(time.time()) - seconds_ago
    tree.write("update-state.json", f'{{\n  "schemaVersion": 1,\n  "lastAttemptUnix": {stamp}\n}}\n')


def assert_version(tree, version, result):
    """The whole tree is that version, and so is what was started."""
    assert result.exit_code == 0
    assert result.app.version == version
    assert tree.application_version() == version
    assert tree.read_configuration()["productVersion"] == version
    assert tree.read(THEME) == (NEW_THEME if version == AFTER else OLD_THEME)
    assert tree.path(READING).exists() == (version == AFTER)
    tree.assert_no_leftovers()


def payload_requests(lab):
    return [request for request in lab.requests if not request.path.endswith("/stable.json")]


def test_newer_release_accepted(lab):
    tree = installed(lab)
    release().publish(lab)
    before = tree.snapshot(exclude=STATE)
    result = lab.run(tree, answers=["yes"])
    assert_version(tree, AFTER, result)
    # Nothing but the release's files and the version in the settings has changed.
    changed = {path for path, facts in tree.snapshot(exclude=STATE).items() if before.get(path) != facts}
    assert changed == {APPLICATION_PATH, THEME, READING, "current.json"}
    expected = before_text(lab, tree).replace('"productVersion": "1.0.0.0"', '"productVersion": "1.1.0.0"')
    assert tree.configuration.read_text() == expected
    assert abs(json.loads(tree.read("update-state.json"))["lastAttemptUnix"] - time.time()) < 60
    mark = tree.read(".vpr-update/release-watermark.txt").decode()
    assert mark.startswith("1.1.0.0\n") and len(mark) == len("1.1.0.0\n") + 64


def before_text(lab, tree):
    """The settings as the installation had them."""
    other = installed(lab, folder="other")
    return other.configuration.read_text()


def test_next_start_after_an_update_is_up_to_date(lab):
    tree = installed(lab)
    release().publish(lab)
    lab.run(tree, answers=["yes"])
    after = tree.snapshot(exclude=STATE)
    result = lab.run(tree)
    assert_version(tree, AFTER, result)
    assert tree.snapshot(exclude=STATE) == after
    assert len(result.requests) == 1, "only the manifest is read"


def test_newer_release_declined(lab):
    tree = installed(lab)
    release().publish(lab)
    before = tree.snapshot(exclude=STATE)
    result = lab.run(tree, answers=["no"])
    assert_version(tree, BEFORE, result)
    assert tree.snapshot(exclude=STATE) == before
    assert payload_requests(lab) == []
    # "No" counts as a finished attempt: a normal release does not ask again before the interval has passed.
    again = lab.run(tree)
    assert_version(tree, BEFORE, again)


def test_prompt_shows_version_and_notes(lab):
    tree = installed(lab)
    release(notes=notes(note("en", "Quieter start", ["Faster", "更小"]), note("ja", "静か"))).publish(lab)
    result = lab.run(tree, answers=["no"])
    [prompt] = result.dialogs
    assert prompt.view == "prompt" and prompt.title == "Velmora Pine Relay"
    assert prompt.shows("A new version is available") and prompt.shows("1.0.0.0 → 1.1.0.0")
    assert prompt.shows("What's new\r\n\r\nQuieter start\r\n\r\nFaster\r\n\r\n更小")
    assert not prompt.shows("View full release notes"), "there is no address to lead to"


def test_prompt_without_notes_says_so_and_leads_to_their_address(lab):
    tree = installed(lab)
    release(notes_url="https://notes.example/1.1").publish(lab)
    [prompt] = lab.run(tree, answers=["no"]).dialogs
    assert prompt.shows("What's new\r\n\r\nRelease notes are not available for this version.")
    assert prompt.shows("View full release notes")


def test_normal_release_waits_for_the_interval(lab):
    tree = installed(lab)
    release().publish(lab)
    write_state(tree, 60)
    state = tree.read("update-state.json")
    result = lab.run(tree)
    assert_version(tree, BEFORE, result)
    assert [request.path for request in result.requests] == [names.PRIMARY_MANIFEST_PATH]
    assert tree.read("update-state.json") == state, "a skipped check leaves the schedule"


def test_forced_check_ignores_the_interval(lab):
    tree = installed(lab)
    release().publish(lab)
    write_state(tree, 60)
    assert_version(tree, AFTER, lab.run(tree, ["--check-for-updates"], ["yes"]))


def test_interval_of_the_settings_decides(lab):
    tree = installed(lab, interval=60)
    release().publish(lab)
    write_state(tree, 30 * 60)
    assert_version(tree, BEFORE, lab.run(tree))
    write_state(tree, 60 * 60 + 1)
    assert_version(tree, AFTER, lab.run(tree, answers=["yes"]))


def test_interval_that_has_passed_is_due(lab):
    tree = installed(lab)
    release().publish(lab)
    write_state(tree, 15 * 60 + 1)
    assert_version(tree, AFTER, lab.run(tree, answers=["yes"]))


def test_state_in_the_future_is_due(lab):
    tree = installed(lab)
    release().publish(lab)
    write_state(tree, -3600)
    assert_version(tree, AFTER, lab.run(tree, answers=["yes"]))


@pytest.mark.parametrize("priority", ["recommended", "hotfix"])
def test_urgent_release_does_not_wait(lab, priority):
    tree = installed(lab)
    release(priority=priority).publish(lab)
    write_state(tree, 60)
    assert_version(tree, AFTER, lab.run(tree, answers=["yes"]))


def test_unknown_priority_is_normal(lab):
    tree = installed(lab)
    release().publish(lab, edit=lambda manifest: manifest.update(updatePriority="Hotfix"))
    write_state(tree, 60)
    assert_version(tree, BEFORE, lab.run(tree))


def test_up_to_date_tree_is_left_alone(lab):
    tree = installed(lab, AFTER)
    tree.write(THEME, NEW_THEME)
    tree.write(READING, b"new reading")
    before = tree.snapshot(exclude=STATE)
    release().publish(lab)
    result = lab.run(tree, ["--check-for-updates"])
    assert_version(tree, AFTER, result)
    assert tree.snapshot(exclude=STATE) == before
    assert payload_requests(lab) == []


def test_repair_fetches_only_what_is_broken(lab):
    tree = installed(lab)
    release().publish(lab)
    lab.run(tree, answers=["yes"])
    good = tree.snapshot(exclude=STATE)
    tree.path(READING).unlink()
    tree.write(THEME, b"damaged bytes here"[: len(NEW_THEME)])
    result = lab.run(tree, ["--check-for-updates"])  # no answer: a repair does not ask
    assert tree.snapshot(exclude=STATE) == good
    # The cache of the update still holds both payloads, so a repair straight after it needs no network at all.
    assert [request.path for request in result.requests] == [names.PRIMARY_MANIFEST_PATH]
    tree.path(READING).unlink()
    tree.write(THEME, b"damaged")
    for part in tree.path(".vpr-update/downloads-v1").rglob("*.part"):
        part.unlink()
    result = lab.run(tree, ["--check-for-updates"])
    assert tree.snapshot(exclude=STATE) == good
    fetched = {request.path.rpartition("/")[2] for request in result.requests[1:]}
    assert fetched == {release().name_of(path) for path in (READING, THEME)}
    assert_version(tree, AFTER, result)


def test_older_manifest_is_not_offered(lab):
    tree = installed(lab, "2.0.0.0")
    release().publish(lab)
    before = tree.snapshot(exclude=STATE)
    result = lab.run(tree)
    assert result.exit_code == 0 and result.app.version == "2.0.0.0"
    assert tree.snapshot(exclude=STATE) == before
    assert tree.path("update-state.json").exists(), "nothing newer is a finished check"


def test_launcher_too_old_keeps_the_installed_version(lab):
    tree = installed(lab, launcher_version="0.9.0.0")
    release(minimum_launcher="1.0.0.0").publish(lab)
    before = tree.snapshot(exclude=STATE)
    for _ in range(2):  # the schedule is not written, so it is said at every start
        result = lab.run(tree)
        assert_version(tree, BEFORE, result)
        assert not tree.path("update-state.json").exists()
    assert tree.snapshot(exclude=STATE) == before
    assert payload_requests(lab) == []


def test_hidden_file_is_replaced(lab):
    tree = installed(lab)
    tree.hide(THEME)
    assert tree.is_hidden(THEME)
    release().publish(lab)
    assert_version(tree, AFTER, lab.run(tree, answers=["yes"]))


def test_manifest_with_files_only_for_the_version(lab):
    """A release that changes no file still becomes the installed version."""
    tree = installed(lab)
    release().publish(lab, edit=lambda manifest: manifest.update(files=[]))
    result = lab.run(tree, answers=["yes"])
    assert result.exit_code == 0 and result.app.version == BEFORE
    assert tree.read_configuration()["productVersion"] == AFTER
    tree.assert_no_leftovers()


@pytest.mark.parametrize(
    "folder",
    [
        "with some blanks",
        "安裝 資料夾",
        "日本語のフォルダー",
        "한국어 폴더",
        "é ü (x86) & co",
    ],
)
def test_update_in_a_folder_of_any_name(lab, folder):
    tree = installed(lab, folder=folder)
    release().publish(lab)
    result = lab.run(tree, answers=["yes"])
    assert_version(tree, AFTER, result)
    assert result.app.cwd == tree.windows(APPLICATION_FOLDER)


def test_update_below_a_path_beyond_260_characters(lab):
    tree = installed(lab, folder=deep_folder(300))
    assert len(tree.windows()) > 260
    release().publish(lab)
    assert_version(tree, AFTER, lab.run(tree, answers=["yes"]))

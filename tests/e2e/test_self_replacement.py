"""The launcher replaced by a newer one that runs from the application's Updater folder."""

import functools
import hashlib
import itertools
import json
import time

import pytest

from lab import (
    LAUNCHER, LabError, configuration_text, deep_folder, file_version, install, update, with_file_version,
)
from lab.install import APPLICATION_FOLDER, PROGRAM_NAME
from lab.programs import read_program
from test_faults import FAULT_LAUNCHER, KILLED, in_parallel, points_of

REPLACE = "--install-launcher-update"
UPDATER = f"{APPLICATION_FOLDER}/Updater"
SELF = f"{UPDATER}/Launcher 2.exe"
BACKUP = f"{UPDATER}/launcher-backup.exe"
REPLACEMENT = f"{UPDATER}/launcher-replacement.exe"
OLD, NEW = "1.0.0.0", "2.0.0.0"


@functools.cache
def new_launcher():
    return with_file_version(read_program(LAUNCHER), NEW)


def digest(image):
    return hashlib.sha256(image).hexdigest()


def request(tree, image, **other):
    """The switch and its four values, as they should be but for `other`."""
    values = {"target": tree.windows(PROGRAM_NAME), "configuration": tree.windows("current.json"), "version": NEW,
              "sha256": digest(image)} | other
    return [REPLACE, *values.values()]


def replace(lab, tree, place=SELF, **other):
    """One run of the new launcher, and the tree as it was before: (RunResult, snapshot)."""
    program = tree.write(place, new_launcher())
    before = tree.snapshot(folders=True)
    return lab.run(program, request(tree, new_launcher(), **other)), before


def check_silent(result, code):
    """The mode shows nothing, asks nobody and starts nothing."""
    assert result.exit_code == code, result
    assert (result.windows, result.dialogs, result.requests, result.app) == ([], [], [], None), result


def check_replaced(tree, before, settings):
    """Launcher and settings changed, and not one path more."""
    assert tree.launcher.read_bytes() == new_launcher()
    assert tree.configuration.read_bytes() == settings
    changed = (PROGRAM_NAME, "current.json")
    after = tree.snapshot(folders=True)
    assert without(after, *changed) == without(before, *changed)


def without(snapshot, *paths):
    return {path: facts for path, facts in snapshot.items() if path not in paths}


def wait_until(condition, what, seconds=30):
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            raise LabError(f"did not come: {what}")
        time.sleep(0.01)


# Success.


@pytest.mark.parametrize("folder", ["app", "日本語 한국어 é's (1)", deep_folder(300)], ids=["plain", "script", "deep"])
def test_new_launcher_takes_the_place_of_the_old_one(lab, folder):
    tree = install(lab, folder, themes={"dawn.vprtheme": b"theme"})
    update().publish(lab)
    result, before = replace(lab, tree)
    check_silent(result, 0)
    check_replaced(tree, before, configuration_text("1.0.0.0", NEW).encode())


def test_new_launcher_starts_the_application(lab, tree):
    result, _ = replace(lab, tree)
    check_silent(result, 0)
    assert file_version(tree.launcher.read_bytes()) == NEW
    result = lab.run(tree, ["--skip-update-check", "one"])
    assert result.exit_code == 0 and result.app.args == ["one"]


def test_settings_keep_every_other_byte(lab):
    text = configuration_text("1.0.0.0", OLD, "https://h.example/日本.json").replace("\n", "\r\n")
    text += '\t{"launcherVersion": 7}'
    tree = install(lab, configuration=b"\xef\xbb\xbf" + text.encode())
    result, before = replace(lab, tree)
    check_silent(result, 0)
    check_replaced(tree, before, text.replace(f'"{OLD}",\r\n  "applicationD', f'"{NEW}",\r\n  "applicationD').encode())


def test_digest_may_be_in_upper_case(lab, tree):
    result, before = replace(lab, tree, sha256=digest(new_launcher()).upper())
    check_silent(result, 0)
    check_replaced(tree, before, configuration_text("1.0.0.0", NEW).encode())


def test_copies_that_a_killed_run_left_are_cleared(lab, tree):
    tree.write(BACKUP, b"stale" * 1000000)
    tree.write(REPLACEMENT, b"stale" * 1000000).chmod(0o444)
    result, before = replace(lab, tree)
    check_silent(result, 0)
    check_replaced(tree, without(before, BACKUP, REPLACEMENT), configuration_text("1.0.0.0", NEW).encode())


def test_replacement_awaits_the_end_of_the_old_launcher(lab, tree):
    image = new_launcher()
    old = tree.launcher.read_bytes()
    update().publish(lab)
    first = lab.start(tree, answers=["wait"])
    first.wait_for_window("prompt")
    second = lab.start(tree.write(SELF, image), request(tree, image))
    copy = tree.path(REPLACEMENT)
    wait_until(lambda: copy.exists() and copy.read_bytes() == image, "the copy of the new launcher")
    assert second.is_running and tree.launcher.read_bytes() == old
    first.close_window()
    assert first.wait().app.version == "1.0.0.0"
    result = second.wait()
    assert result.exit_code == 0 and result.windows == []
    assert tree.launcher.read_bytes() == image
    assert tree.read_configuration()["launcherVersion"] == NEW
    assert not copy.exists() and not tree.path(BACKUP).exists()


# The switch.


def test_switch_is_consumed_behind_and_before_other_arguments(lab, tree):
    image = new_launcher()
    program = tree.write(SELF, image)
    before = tree.snapshot(folders=True)
    arguments = ["one", "--check-for-updates", "--skip-update-check", *request(tree, image), "--unknown", REPLACE, "a"]
    check_silent(lab.run(program, arguments), 0)
    check_replaced(tree, before, configuration_text("1.0.0.0", NEW).encode())


def test_last_complete_switch_counts(lab, tree):
    image = new_launcher()
    program = tree.write(SELF, image)
    good, refused = request(tree, image), request(tree, image, version="2.0")
    before = tree.snapshot(folders=True)
    check_silent(lab.run(program, [*good, *refused]), 40)
    assert tree.snapshot(folders=True) == before
    check_silent(lab.run(program, [*refused, *good]), 0)
    check_replaced(tree, before, configuration_text("1.0.0.0", NEW).encode())


def test_three_values_are_an_ordinary_start(lab, tree):
    arguments = request(tree, new_launcher())[:-1]
    before = tree.snapshot()
    result = lab.run(tree, ["--skip-update-check", *arguments])
    assert result.exit_code == 0 and result.app.args == arguments
    assert tree.snapshot() == before


# Refusals. Each leaves the tree as it was.


@pytest.mark.parametrize(
    "code, other",
    [
        (40, {"target": ""}),
        (40, {"configuration": ""}),
        (40, {"configuration": "C:\\current.json"}),
        (40, {"version": "2.0.0"}),
        (40, {"sha256": "a" * 63}),
        (40, {"sha256": "a" * 65}),
        (40, {"sha256": "a" * 63 + "g"}),
        (41, {"place": "Updater/Launcher 2.exe"}),
        (41, {"place": "Launcher 2.exe"}),
        (41, {"place": f"{APPLICATION_FOLDER}/Launcher 2.exe"}),
        (43, {"sha256": "a" * 64}),
        (43, {"version": "2.0.0.1"}),
    ],
    ids=str,
)
def test_refused_replacement_leaves_everything_as_it_was(lab, tree, code, other):
    result, before = replace(lab, tree, **other)
    check_silent(result, code)
    assert tree.snapshot(folders=True) == before


@pytest.mark.parametrize(
    "text",
    [
        False,
        b"{}",
        b"",
        configuration_text("1.0.0.0", OLD, directory="Other"),
        configuration_text("1.0.0.0", OLD, executable="Other.exe"),
    ],
    ids=["missing", "unusable", "empty", "other-folder", "other-program"],
)
def test_settings_that_are_not_this_programs_end_with_42(lab, text):
    """Missing settings are not made anew, neither there nor beside the new launcher."""
    tree = install(lab, configuration=text)
    result, before = replace(lab, tree)
    check_silent(result, 42)
    assert tree.snapshot(folders=True) == before


def test_missing_target_ends_with_44(lab, tree):
    tree.launcher.unlink()
    result, before = replace(lab, tree)
    check_silent(result, 44)
    assert tree.snapshot(folders=True) == before


@pytest.mark.parametrize("place", [REPLACEMENT, BACKUP])
def test_new_launcher_under_the_name_of_a_copy_ends_with_44_and_is_not_lost(lab, tree, place):
    result, before = replace(lab, tree, place=place)
    check_silent(result, 44)
    assert without(tree.snapshot(folders=True), BACKUP) == without(before, BACKUP)
    assert tree.read(place) == new_launcher()


def test_settings_without_the_version_end_with_47_and_the_old_launcher(lab):
    text = configuration_text("1.0.0.0", OLD).replace("launcherVersion", "versionOfLauncher")
    tree = install(lab, configuration=text)
    old = tree.launcher.read_bytes()
    result, before = replace(lab, tree)
    check_silent(result, 47)
    assert tree.read(BACKUP) == old, "it stays for whoever finds the launcher gone"
    assert without(tree.snapshot(folders=True), BACKUP) == before


# What every start does first, it does in the folder that it runs from.


def test_interrupted_update_is_settled_first(lab, tree):
    """The new launcher's own folder is the one that is settled, whether or not the replacement is then accepted."""
    journal = ('{\n  "schemaVersion": 1,\n  "backupDirectory": "backup-1.0.0.0-1-2",\n  "targets": [\n'
               '    {"path": "Velmora Pine Relay\\\\Themes\\\\new.vprtheme", "hadOriginal": false}\n  ]\n}\n')
    for version, code in (("2.0", 40), (NEW, 0)):
        tree.write(f"{UPDATER}/.vpr-update/backup-1.0.0.0-1-2/unused", b"")
        tree.write(f"{UPDATER}/.vpr-update/transaction.json", journal)
        added = tree.write(f"{UPDATER}/{APPLICATION_FOLDER}/Themes/new.vprtheme", b"new")
        result, _ = replace(lab, tree, version=version)
        check_silent(result, code)
        assert not added.exists()
        tree.assert_no_leftovers()


@pytest.mark.parametrize(
    "code, path", [(39, f"{UPDATER}/.vpr-update/transaction.json"), (3, f"{UPDATER}/current.json")]
)
def test_what_stops_any_start_stops_the_replacement(lab, tree, code, path):
    image = new_launcher()
    tree.write(path, b"{}")
    program = tree.write(SELF, image)
    before = tree.snapshot(folders=True)
    result = lab.run(program, request(tree, image), answers=["ok"])
    assert result.exit_code == code and len(result.dialogs) == 1 and result.app is None
    assert tree.snapshot(folders=True) == before


def test_interrupted_update_of_the_installation_is_left_to_its_launcher(lab, tree):
    """The replacement neither waits for nor settles what lies two folders above it."""
    tree.write(".vpr-update/transaction.json", b"{}")
    result, before = replace(lab, tree)
    check_silent(result, 0)
    check_replaced(tree, before, configuration_text("1.0.0.0", NEW).encode())


# The process ends at any call that changes the disk.


@functools.cache
def new_fault_launcher():
    """The launcher's code in a program whose calls can be cut short."""
    return with_file_version(read_program(FAULT_LAUNCHER), NEW)


class Cut:
    """Replacements that end at some call, in trees of their own.

    blocked   the settings cannot be written, so that the old launcher is put back
    """

    def __init__(self, lab, blocked):
        self.lab = lab
        self.blocked = blocked
        self.image = new_fault_launcher()
        self.old = read_program(LAUNCHER)
        self.settings = {version: configuration_text("1.0.0.0", version).encode() for version in (OLD, NEW)}

    def fresh(self, name):
        """(tree, its snapshot)."""
        tree = install(self.lab, name)
        tree.write(SELF, self.image)
        before = tree.snapshot()
        if self.blocked:
            self.barrier(tree).mkdir()
        return tree, before

    @staticmethod
    def barrier(tree):
        """A folder where the new settings would be written."""
        return tree.path("current.json.launcher-update")

    def run(self, tree, kind="count", at=0):
        """The exit code, and the calls that change the disk, or None if it was killed."""
        report = self.lab.folder / f"{tree.root.name}-report.json"
        report.unlink(missing_ok=True)
        env = {"VPR_FAULT_KIND": kind, "VPR_FAULT_AT": str(at), "VPR_FAULT_REPORT": self.lab.windows_path(report)}
        result = self.lab.run(tree.path(SELF), request(tree, self.image), env=env)
        assert result.windows == [] and result.app is None, result
        return result.exit_code, json.loads(report.read_text())["calls"] if report.exists() else None

    def points(self, kind):
        tree, _ = self.fresh("count")
        code, calls = self.run(tree)
        assert code == (47 if self.blocked else 0)
        return points_of(kind, calls)

    def state(self, tree, before, what):
        """Which launcher and which settings stand, both whole: one of OLD and NEW each."""
        launchers, texts = {self.old: OLD, self.image: NEW}, {text: version for version, text in self.settings.items()}
        launcher, text = tree.launcher.read_bytes(), tree.configuration.read_bytes()
        assert launcher in launchers, f"{what}: half a launcher, {len(launcher)} bytes"
        assert text in texts, f"{what}: half of the settings: {text}"
        mine = (PROGRAM_NAME, "current.json", BACKUP, REPLACEMENT, "current.json.launcher-update")
        assert without(tree.snapshot(), *mine) == without(before, *mine), what
        return launchers[launcher], texts[text]

    def check_next_run(self, tree, before, what):
        """Undisturbed, it finishes the work and leaves no copies."""
        if self.blocked:
            self.barrier(tree).rmdir()
        code, _ = self.run(tree)
        assert code == 0, what
        assert self.state(tree, before, what) == (NEW, NEW), what
        assert tree.snapshot().keys() == before.keys(), what


@pytest.mark.parametrize("kind", ["kill", "kill-torn"])
@pytest.mark.parametrize("blocked", [False, True], ids=["replaced", "taken-back"])
def test_process_that_ends_at_any_call(lab, kind, blocked):
    cut = Cut(lab, blocked)
    points = cut.points(kind)

    def one(at):
        what = f"{kind} at call {at}"
        tree, before = cut.fresh(f"{kind}{at}")
        code, _ = cut.run(tree, kind, at)
        assert code == KILLED, f"{what}: never made"
        state = cut.state(tree, before, what)
        cut.check_next_run(tree, before, what)
        return state

    states = in_parallel(one, points)
    steps = [state for state, _ in itertools.groupby(states)]
    print(f"\n{kind}: {len(points)} points: {steps}")
    # The launcher is replaced before its version is recorded, and put back by one more rename.
    expected = [(OLD, OLD), (NEW, OLD), (OLD, OLD) if blocked else (NEW, NEW)]
    # Behind the last rename there is no copy or write to be torn; after the way back nothing at all is left to do.
    assert steps == (expected[:2] if blocked or kind.endswith("torn") else expected)

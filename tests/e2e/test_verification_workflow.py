"""Workflow commands: whole updates under observation, and what they leave behind for a release pipeline."""

import dataclasses
import json
import os
import time

import pytest

from lab import (
    APPLICATION_PATH, STATE, Release, Reply, app_binary, html, install, names, update,
)
from lab.install import APPLICATION_FOLDER, PROGRAM_NAME
from test_self_replacement import wait_until

OBSERVE = "--launcher-update-self-test"
CANCEL = "--launcher-update-cancel-self-test"
CRASH = "--launcher-update-crash-after-first-apply-self-test"
LAUNCH = "--launcher-normal-launch-update-self-test"
BACKUP_UPDATE = "--launcher-r2-update-self-test"
REPLACE = "--install-launcher-update"

RESULT = "launcher-update-self-test-result.json"
ERROR = "launcher-update-self-test-error.txt"
TOLD = (RESULT, ERROR)

BEFORE, AFTER = "1.0.0.0", "1.1.0.0"
THEME = f"{APPLICATION_FOLDER}/Themes/dawn.vprtheme"
READING = f"{APPLICATION_FOLDER}/JapaneseReading/aromanize.js"
JOURNAL = ".vpr-update/transaction.json"
MARKER = b"first-target-applied"

MUTATE = "VPR_TEST_MUTATE_AFTER_FULL_VERIFY"
MUTATION_FAILED = "Test-only post-verification mutation failed."
LOCKED = "另一個啟動器仍在處理更新；已停止啟動以避免混合版本。"
FLIPPED_BIT = 32

MAX_STAGES = 4096
MAX_TARGETS = 256

PASSED, FAILED, RESULT_LOST = 0, 20, 21


# The result file.


def quoted(text):
    """A text as the result file quotes it."""
    def unit(char):
        if char in '"\\':
            return "\\" + char
        return char if char >= " " else f"\\u{ord(char):04x}"

    return '"' + "".join(map(unit, text)) + '"'


def literal(value):
    return "true" if value else "false"


@dataclasses.dataclass
class Told:
    """What a run told of itself; a stage is (name, detail, completed, total)."""

    outcome: str
    stages: list
    error: str = ""
    safe: bool = True
    attempted: bool = False
    succeeded: bool = False
    truncated: bool = False

    def render(self):
        entries = [f'{{"stage":{quoted(stage)},"detail":{quoted(detail)},"completed":{completed},"total":{total}}}'
                   for stage, detail, completed, total in self.stages]
        return (f'{{"schemaVersion":1,"outcome":{quoted(self.outcome)},"safeToLaunch":{literal(self.safe)},'
                f'"error":{quoted(self.error)},"verificationMutationAttempted":{literal(self.attempted)},'
                f'"verificationMutationSucceeded":{literal(self.succeeded)},'
                f'"traceTruncated":{literal(self.truncated)},"stages":[{",".join(entries)}]}}\n').encode()


def told_by(tree):
    """The result file, which must be in the one form there is. Reports within a look at files come by the clock, so
    they are judged here and left out."""
    raw = tree.read(RESULT)
    fields = json.loads(raw)
    stages = [(entry["stage"], entry["detail"], entry["completed"], entry["total"]) for entry in fields["stages"]]
    told = Told(fields["outcome"], stages, fields["error"], fields["safeToLaunch"],
                fields["verificationMutationAttempted"], fields["verificationMutationSucceeded"],
                fields["traceTruncated"])
    assert raw == told.render()
    timed = [stage for stage in stages if comes_by_the_clock(*stage)]
    assert all(detail.lower().startswith(APPLICATION_FOLDER.lower()) for _, detail, _, _ in timed), timed
    assert all(completed <= total for _, _, completed, total in timed), timed
    assert sorted(timed, key=lambda stage: stage[2]) == timed, "a look at files goes forward"
    told.stages = [stage for stage in stages if stage not in timed]
    return told


def comes_by_the_clock(stage, detail, completed, total):
    return detail != "" and (stage == "VerifyingFiles" or (stage == "CheckingFiles" and completed < total))


# Releases on this drive.


def put_release(lab, files, version=AFTER, name="stable.json", minimum_launcher="1.0.0.0", **tampering):
    """A release whose manifest and payloads are local files: (Release, Windows path of the manifest)."""
    release = Release(version, files, minimum_launcher=minimum_launcher)
    folder = lab.folder / "發行 release"
    folder.mkdir(exist_ok=True)
    places = {}
    for path, body in release.files.items():
        payload = folder / f"{version} {release.name_of(path)}"
        payload.write_bytes(body.read_all())
        places[path] = lab.windows_path(payload)
    manifest = folder / name
    manifest.write_bytes(release.manifest(foreign_url=places, **tampering))
    return release, lab.windows_path(manifest)


def new_files(version=AFTER):
    """A changed application, a file as it is installed, and a new one."""
    return {APPLICATION_PATH: app_binary(version), THEME: b"a theme", READING: b"a reading"}


def installed(lab, folder="app", **options):
    return install(lab, folder, themes={"dawn.vprtheme": b"a theme"}, **options)


def sizes_of(release):
    """{path: size} in the order of the manifest."""
    return {entry["path"]: entry["size"] for entry in release.built.manifest["files"]}


def verified(release):
    """The stages from the begin to the end of the verification."""
    total = sum(sizes_of(release).values())
    return [("Checking", "", 0, 0), ("VerifyingFiles", "", 0, total), ("VerifyingFiles", "", total, total)]


def fetched(sizes):
    """The stages of fetching local payloads, {path: size}."""
    total, done = sum(sizes.values()), 0
    for index, (path, size) in enumerate(sizes.items()):
        done += size
        yield from [("Downloading", path, index, len(sizes)), ("DownloadingBytes", path, done, total),
                    ("Verifying", path, done, total), ("Downloading", path, index + 1, len(sizes))]


def course_of_update(release, unchanged=(THEME,)):
    sizes = {path: size for path, size in sizes_of(release).items() if path not in unchanged}
    version = release.version
    return [*verified(release), ("UpdateAvailable", version, 0, 0), *fetched(sizes), ("Installing", version, 0, 0),
            ("Completed", version, len(sizes), len(sizes))]


# Runs.


def check_silent(result):
    """No window, no question, no application."""
    assert (result.windows, result.dialogs, result.app) == ([], [], None), result


def observe(lab, tree, manifest, *others, switch=OBSERVE, env=None):
    """A whole run of a command that leaves a result: (exit code, what it told)."""
    result = lab.run(tree, [switch, manifest, *others], env=env)
    check_silent(result)
    return result.exit_code, told_by(tree)


def together(runs):
    """The results of runs that were begun: they wait for their processes at the same time."""
    return [run.wait() for run in runs]


def check_version(tree, version):
    assert tree.application_version() == version
    assert tree.read_configuration()["productVersion"] == version
    assert tree.path(READING).exists() == (version == AFTER)
    tree.assert_no_leftovers()


# An update under observation.


def test_update_is_told_stage_by_stage(lab):
    tree = installed(lab, files={ERROR: b"of an earlier run"})
    release, manifest = put_release(lab, new_files())
    before = tree.snapshot(exclude=STATE)
    code, told = observe(lab, tree, manifest)
    assert (code, told) == (PASSED, Told("Applied", course_of_update(release)))
    check_version(tree, AFTER)
    changed = tree.snapshot(exclude=STATE).items() ^ before.items()
    assert {path for path, _ in changed} == {APPLICATION_PATH, READING, "current.json", RESULT, ERROR}
    assert not tree.path(ERROR).exists(), "a pass has no error"


def test_installed_release_is_no_pass(lab):
    """Neither does it leave an error text: there is none. What an earlier run left stands."""
    tree = installed(lab, files={ERROR: b"of an earlier run"})
    release, manifest = put_release(lab, {APPLICATION_PATH: app_binary(BEFORE), THEME: b"a theme"}, BEFORE)
    first = observe(lab, tree, manifest)
    assert first == (FAILED, Told("UpToDate", [*verified(release), ("UpToDate", BEFORE, 0, 0)]))
    again = observe(lab, tree, manifest)
    course = [("Checking", "", 0, 0), ("CheckingFiles", "", 0, 2),
              ("CheckingFiles", APPLICATION_PATH.lower().replace("/", "\\"), 2, 2), ("UpToDate", BEFORE, 0, 0)]
    assert again == (FAILED, Told("UpToDate", course)), "by the record of the first"
    assert tree.read(ERROR) == b"of an earlier run"
    check_version(tree, BEFORE)


def test_older_release_is_no_pass(lab):
    tree = installed(lab)
    _, manifest = put_release(lab, new_files(), "0.9.0.0")
    assert observe(lab, tree, manifest) == (
        FAILED, Told("UpToDate", [("Checking", "", 0, 0), ("UpToDate", "0.9.0.0", 0, 0)]))
    assert not tree.path(ERROR).exists()


@dataclasses.dataclass
class Failure:
    """One thing that is wrong, and what is said about it. `manifest` is given, or made by `tampering`."""

    error: str
    outcome: str = "Failed"
    manifest: str = ""
    tampering: dict = dataclasses.field(default_factory=dict)


LOCAL_FAILURES = {
    "digest": Failure("更新檔的 SHA-256 驗證失敗。", tampering={"wrong_sha": READING}),
    "size": Failure("更新檔大小不符或無法寫入暫存區。", tampering={"wrong_size": READING}),
    "no manifest": Failure("無法讀取本機測試更新檔。", manifest="C:\\lab\\no such file.json"),
    "sign-in page": Failure("更新清單格式不正確。", tampering={"as_html": True}),
    "forbidden file": Failure("更新清單包含無效或不允許的檔案。",
                              tampering={"edit": lambda manifest: manifest["files"][0].update(component="theme")}),
    "plain http": Failure("更新網址必須使用 HTTPS。", manifest="http://updates.pinerelay.example/updates/stable.json"),
    "relative path": Failure("更新網址必須使用 HTTPS。", manifest="stable.json"),
    "launcher too old": Failure("此更新需要較新的啟動器，請下載最新版完整安裝包。", "LauncherTooOld",
                                tampering={"minimum_launcher": "99.0.0.0"}),
}


def test_failures_are_told_in_their_own_words(lab):
    runs = []
    for number, failure in enumerate(LOCAL_FAILURES.values()):
        tree = installed(lab, f"app{number}", files={ERROR: b"of an earlier run, and quite a long text at that" * 9})
        manifest = failure.manifest or put_release(lab, new_files(), name=f"{number}.json", **failure.tampering)[1]
        runs.append((failure, tree, tree.snapshot(exclude=(*STATE, *TOLD)), lab.start(tree, [OBSERVE, manifest])))
    for failure, tree, before, run in runs:
        result = run.wait()
        check_silent(result)
        assert result.exit_code == FAILED, failure
        told = told_by(tree)
        assert (told.outcome, told.safe, told.error) == (failure.outcome, True, failure.error)
        assert told.stages[0] == ("Checking", "", 0, 0)
        assert told.stages[-1] == ("Failed", failure.error, 0, 0)
        assert tree.read(ERROR) == f"{failure.error}\n".encode()
        assert tree.snapshot(exclude=(*STATE, *TOLD)) == before, failure
        tree.assert_no_leftovers()


def test_course_up_to_a_wrong_digest(lab):
    tree = installed(lab)
    release, manifest = put_release(lab, new_files(), wrong_sha=APPLICATION_PATH)
    code, told = observe(lab, tree, manifest)
    course = course_of_update(release)
    end = course.index(("Downloading", APPLICATION_PATH, 2, 2))
    error = "更新檔的 SHA-256 驗證失敗。"
    assert (code, told) == (FAILED, Told("Failed", [*course[:end], ("Failed", error, 0, 0)], error))


@pytest.mark.parametrize(
    "mode, reply, error",
    [
        ("refuse", Reply(), "更新伺服器沒有回應。"),
        ("serve", Reply(404, b"none"), "更新伺服器回傳錯誤（HTTP 404）。"),
        ("serve", html(), "更新清單格式不正確。"),
    ],
)
def test_address_without_a_manifest_is_tried_once(lab, tree, mode, reply, error):
    """And nowhere else: neither the backup nor the address of the settings is asked."""
    lab.set_mode(names.PRIMARY_MANIFEST, mode)
    lab.on(*names.manifest_place("primary"), reply)
    update().publish(lab, "backup")
    code, told = observe(lab, tree, names.PRIMARY_MANIFEST_URL)
    assert (code, told) == (FAILED, Told("Failed", [("Checking", "", 0, 0), ("Failed", error, 0, 0)], error))
    assert tree.read(ERROR) == f"{error}\n".encode()
    assert len(lab.requests) == (0 if mode == "refuse" else 1)


def test_result_that_cannot_be_written_has_a_code_of_its_own(lab):
    """A folder stands where a file should be."""
    _, good = put_release(lab, new_files())
    bad = "C:\\lab\\none.json"
    rows = [(RESULT, good, RESULT_LOST), (RESULT, bad, RESULT_LOST), (ERROR, bad, FAILED)]
    trees = [installed(lab, f"app{number}") for number in range(len(rows))]
    for tree, (name, _, _) in zip(trees, rows):
        (tree.path(name) / "inside").mkdir(parents=True)
    runs = together([lab.start(tree, [OBSERVE, manifest]) for tree, (_, manifest, _) in zip(trees, rows)])
    for tree, result, (name, _, code) in zip(trees, runs, rows):
        check_silent(result)
        assert result.exit_code == code, name
        assert tree.path(name).is_dir()
        tree.assert_no_leftovers()
    check_version(trees[0], AFTER)
    assert trees[1].read(ERROR) == "無法讀取本機測試更新檔。\n".encode()
    assert told_by(trees[2]).error == "無法讀取本機測試更新檔。"


def test_more_stages_than_there_is_room_for(lab, tree):
    """Every file is told four times. So many cannot be replaced at once, which is found at the end only."""
    shared = b"tiny"
    place = lab.folder / "tiny"
    place.write_bytes(shared)
    paths = [f"{APPLICATION_FOLDER}/Themes/{number:04}.vprtheme" for number in range(MAX_STAGES // 4)]
    _, manifest = put_release(lab, {THEME: shared}, edit=lambda manifest: manifest.update(
        files=[manifest["files"][0] | {"path": path, "url": lab.windows_path(place)} for path in paths]))
    code, told = observe(lab, tree, manifest)
    error = "更新交易的目標檔案數量超過安全上限。"
    assert len(paths) > MAX_TARGETS
    assert (code, told.outcome, told.error, told.truncated) == (FAILED, "Failed", error, True)
    size = len(shared) * len(paths)
    course = [("Checking", "", 0, 0), ("VerifyingFiles", "", 0, size), ("VerifyingFiles", "", size, size),
              ("UpdateAvailable", AFTER, 0, 0), *fetched({path: len(shared) for path in paths})]
    assert told.stages == course[:len(told.stages)]
    assert len(json.loads(tree.read(RESULT))["stages"]) == MAX_STAGES


# The command line.


def test_other_arguments_stand_around_the_switch(lab):
    release, manifest = put_release(lab, new_files())
    tables = [
        ["--check-for-updates", "a b", OBSERVE, manifest, "--unknown", ""],
        ["--skip-update-check", OBSERVE, manifest],
        [OBSERVE, manifest, "--skip-update-check", "--launcher-self-test"],
        [OBSERVE, manifest, REPLACE, "no", "four", "values"],
        [OBSERVE, "C:\\lab\\none.json", OBSERVE, manifest],
        [CANCEL, "C:\\lab\\none.json", LAUNCH, manifest],
        [OBSERVE, manifest, CRASH, "no values for this one"],
    ]
    trees = [installed(lab, f"app{number}") for number in range(len(tables))]
    for table, tree, result in zip(tables, trees, together(map(lab.start, trees, tables))):
        check_silent(result)
        if CANCEL in table:
            assert (result.exit_code, told_by(tree).outcome) == (PASSED, "Cancelled"), table
            continue
        assert (result.exit_code, told_by(tree)) == (PASSED, Told("Applied", course_of_update(release))), table


def test_switch_without_its_values_belongs_to_the_application(lab):
    tables = [[OBSERVE], ["a", CANCEL], [CRASH, "C:\\lab\\none.json"], [LAUNCH], [OBSERVE.upper(), "b"]]
    trees = [install(lab, f"app{number}", manifest_url="") for number in range(len(tables))]
    for table, tree, result in zip(tables, trees, together(map(lab.start, trees, tables))):
        assert result.exit_code == 0 and result.windows == []
        assert result.app.args == table
        assert not tree.path(RESULT).exists()


def test_replacement_of_the_launcher_goes_first(lab, tree):
    _, manifest = put_release(lab, new_files())
    before = tree.snapshot()
    values = [tree.windows(PROGRAM_NAME), tree.windows("current.json"), "1.0.0.0", "a" * 64]
    result = lab.run(tree, [OBSERVE, manifest, REPLACE, *values])
    check_silent(result)
    assert result.exit_code == 40
    assert tree.snapshot() == before


def test_manifest_behind_an_address(lab, tree):
    """Its payloads come the same short way, and the address in the settings plays no part."""
    release = Release(AFTER, new_files())
    release.publish(lab, "backup")
    lab.on(names.CDN, "/observed.json", release.manifest_reply("backup"))
    code, told = observe(lab, tree, f"https://{names.CDN}/observed.json")
    assert (code, told.outcome, told.error) == (PASSED, "Applied", "")
    check_version(tree, AFTER)
    places = [(names.CDN, "/observed.json"), *(release.place(path, "backup") for path in sizes_of(release))]
    assert [(request.host, request.path) for request in lab.requests] == places
    assert {request.headers["user-agent"] for request in lab.requests} == {"Velmora Pine Relay Launcher/1.0"}


def test_settings_do_not_keep_a_command_from_running(lab):
    """No address, a check of a moment ago, or no file at all."""
    release, manifest = put_release(lab, new_files())
    stamp = f'{{\n  "schemaVersion": 1,\n  "lastAttemptUnix": {int(time.time()) - 60}\n}}\n'
    trees = [installed(lab, "no address", manifest_url=""),
             installed(lab, "not due", files={"update-state.json": stamp}),
             installed(lab, "no settings", configuration=False)]
    for tree, result in zip(trees, together(lab.start(tree, [OBSERVE, manifest]) for tree in trees)):
        check_silent(result)
        assert (result.exit_code, told_by(tree)) == (PASSED, Told("Applied", course_of_update(release))), tree.root
        check_version(tree, AFTER)


def test_empty_location_leaves_the_one_of_the_settings(lab, tree):
    Release(AFTER, new_files()).publish(lab)
    code, told = observe(lab, tree, "")
    assert (code, told.outcome) == (PASSED, "Applied")
    nowhere = install(lab, "nowhere", manifest_url="")
    assert observe(lab, nowhere, "") == (FAILED, Told("Skipped", [("Skipped", "", 0, 0)]))
    assert not nowhere.path(ERROR).exists()


def test_unusable_settings_stop_a_command_as_well(lab):
    tree = install(lab, configuration=b"{}")
    _, manifest = put_release(lab, new_files())
    result = lab.run(tree, [OBSERVE, manifest], ["ok"])
    assert result.exit_code == 3 and result.app is None
    assert result.dialogs[0].shows("current.json 缺少必要欄位或使用不支援的格式。")
    assert not tree.path(RESULT).exists()


# Cancelled as soon as bytes have come.


def test_cancelled_update_leaves_the_tree_as_it_was(lab):
    tree = installed(lab, files={ERROR: b"of an earlier run"})
    release, manifest = put_release(lab, new_files())
    before = tree.snapshot(exclude=(*STATE, *TOLD))
    code, told = observe(lab, tree, manifest, switch=CANCEL)
    course = course_of_update(release)
    first = next(index for index, stage in enumerate(course) if stage[0] == "DownloadingBytes")
    assert (code, told) == (PASSED, Told("Cancelled", [*course[:first + 1], ("Cancelled", AFTER, 0, 0)]))
    assert tree.snapshot(exclude=(*STATE, *TOLD)) == before
    assert not tree.path(ERROR).exists()
    tree.assert_no_leftovers()


def test_transfer_is_cancelled_while_bytes_are_still_to_come(lab, tree):
    """Not by the report that the body begins, which counts no byte yet."""
    release = Release(AFTER, {APPLICATION_PATH: app_binary(AFTER)})
    size = release.files[APPLICATION_PATH].size
    honest = release.payload_reply(APPLICATION_PATH)
    release.publish(lab, payloads={APPLICATION_PATH: honest.but(stall_at=1000)})
    code, told = observe(lab, tree, names.PRIMARY_MANIFEST_URL, switch=CANCEL)
    assert (code, told.outcome) == (PASSED, "Cancelled")
    begin, first, end = told.stages[-3:]
    assert begin == ("DownloadingBytes", APPLICATION_PATH, 0, size)
    assert first[:2] == begin[:2] and 0 < first[2] <= 1000
    assert end == ("Cancelled", AFTER, 0, 0)
    check_version(tree, BEFORE)


def test_nothing_to_cancel_is_no_pass(lab):
    release, manifest = put_release(lab, {APPLICATION_PATH: app_binary(BEFORE)}, BEFORE)
    tree = installed(lab)
    assert observe(lab, tree, manifest, switch=CANCEL) == (
        FAILED, Told("UpToDate", [*verified(release), ("UpToDate", BEFORE, 0, 0)]))
    error = "無法讀取本機測試更新檔。"
    course = [("Checking", "", 0, 0), ("Failed", error, 0, 0)]
    assert observe(lab, tree, "C:\\lab\\none.json", switch=CANCEL) == (FAILED, Told("Failed", course, error))
    assert tree.read(ERROR) == f"{error}\n".encode()


# Standing still behind the first replaced file.


def refused_beside(lab, tree, *arguments):
    """Another launcher is refused while one holds the lock, and leaves nothing."""
    before = tree.snapshot(folders=True)
    result = lab.run(tree, arguments, ["ok"])
    assert result.exit_code == 39 and result.app is None
    assert result.dialogs[0].shows(LOCKED)
    assert tree.snapshot(folders=True) == before


def test_death_behind_the_first_replaced_file_is_recovered(lab):
    """Whether or not the marker could be made. The lock is held for as long as the process stands still, so that a
    launcher beside it, which takes much longer than the rest of the update would, shows that it does."""
    _, manifest = put_release(lab, {APPLICATION_PATH: app_binary(AFTER), READING: b"a new reading"})
    places = {"made": "marker", "there": "marker there", "no folder": "none/marker", "is a folder": "a folder"}
    (lab.folder / "marker there").write_bytes(b"of an earlier run")
    (lab.folder / "a folder").mkdir()
    trees = [installed(lab, name, reading={"aromanize.js": b"an old reading"}) for name in places]
    old = [tree.snapshot(exclude=STATE) for tree in trees]
    runs = [lab.start(tree, [CRASH, manifest, lab.windows_path(lab.folder / place)])
            for tree, place in zip(trees, places.values())]
    marker = lab.folder / "marker"
    wait_until(lambda: marker.exists() and len(marker.read_bytes()) == len(MARKER), "the marker")
    assert marker.read_bytes() == MARKER
    for tree, run in zip(trees, runs):
        wait_until(lambda: tree.read(READING) == b"a new reading", "the new file")
        refused_beside(lab, tree, OBSERVE, manifest)
        assert run.is_running
        assert tree.path(JOURNAL).exists()
        assert tree.application_version() == BEFORE, "only the first file is replaced"
        assert tree.read_configuration()["productVersion"] == BEFORE
        assert not tree.path(RESULT).exists()
        run.kill()
    for result in together(runs):
        assert result.stopped and (result.windows, result.app) == ([], None)
    assert (lab.folder / "marker there").read_bytes() == b"of an earlier run"
    assert not (lab.folder / "none").exists()
    starts = together(lab.start(tree, ["--skip-update-check"]) for tree in trees)
    for tree, before, result in zip(trees, old, starts):
        assert result.exit_code == 0 and result.app.version == BEFORE
        assert tree.snapshot(exclude=STATE) == before
        tree.assert_no_leftovers()


def test_killed_update_is_settled_by_the_next_command(lab, tree):
    """The application was replaced before the death; the next release is without it, so the old one must be back."""
    _, first = put_release(lab, {APPLICATION_PATH: app_binary(AFTER)})
    _, second = put_release(lab, {READING: b"a reading"}, "1.2.0.0", "second.json")
    before = tree.snapshot(exclude=STATE)
    marker = lab.folder / "marker"
    run = lab.start(tree, [CRASH, first, lab.windows_path(marker)])
    wait_until(marker.exists, "the marker")
    assert tree.application_version() == AFTER
    run.kill()
    run.wait()
    code, told = observe(lab, tree, second)
    assert (code, told.outcome) == (PASSED, "Applied")
    changed = tree.snapshot(exclude=STATE).items() ^ before.items()
    assert {path for path, _ in changed} == {READING, "current.json", RESULT}
    tree.assert_no_leftovers()


def test_journal_that_cannot_be_settled_stops_a_command(lab):
    tree = installed(lab, files={JOURNAL: b"{}"})
    _, manifest = put_release(lab, new_files())
    before = tree.snapshot()
    result = lab.run(tree, [OBSERVE, manifest], ["ok"])
    assert result.exit_code == 39 and result.app is None
    assert result.dialogs[0].shows("上一次更新的交易紀錄無效；已保留備份並停止啟動。")
    assert tree.snapshot() == before


def test_marker_that_is_no_local_path_is_refused_before_anything_runs(lab):
    _, manifest = put_release(lab, new_files())
    markers = ["marker", "", "C:marker", "\\marker", "\\\\server\\share\\marker", "\\\\?\\C:\\lab\\marker"]
    trees = [installed(lab, f"app{number}") for number in range(len(markers))]
    before = [tree.snapshot(folders=True) for tree in trees]
    runs = together(lab.start(tree, [CRASH, manifest, marker]) for tree, marker in zip(trees, markers))
    for marker, tree, old, result in zip(markers, trees, before, runs):
        check_silent(result)
        assert result.exit_code == FAILED, marker
        assert tree.snapshot(folders=True) == old, marker


def test_update_that_replaces_nothing_does_not_stand_still(lab, tree):
    marker = lab.windows_path(lab.folder / "marker")
    release, manifest = put_release(lab, {APPLICATION_PATH: app_binary(BEFORE)}, BEFORE)
    assert observe(lab, tree, manifest, marker, switch=CRASH) == (
        FAILED, Told("UpToDate", [*verified(release), ("UpToDate", BEFORE, 0, 0)]))
    assert not (lab.folder / "marker").exists()


# A launch as usual.


def test_launch_follows_the_update(lab):
    tree = installed(lab)
    _, manifest = put_release(lab, new_files())
    result = lab.run(tree, ["a b", LAUNCH, manifest, "--check-for-updates", '"'])
    assert (result.exit_code, result.windows) == (0, [])
    assert (result.app.version, result.app.args) == (AFTER, ["a b", '"'])
    check_version(tree, AFTER)
    assert not any(tree.path(name).exists() for name in TOLD)


def test_launch_follows_what_needed_no_update_or_failed(lab):
    _, same = put_release(lab, {APPLICATION_PATH: app_binary(BEFORE)}, BEFORE, "same.json")
    _, broken = put_release(lab, new_files(), name="broken.json", wrong_sha=READING)
    manifests = [same, broken, "C:\\lab\\none.json"]
    trees = [installed(lab, f"app{number}") for number in range(len(manifests))]
    runs = together(lab.start(tree, [LAUNCH, manifest, "x"]) for tree, manifest in zip(trees, manifests))
    for manifest, tree, result in zip(manifests, trees, runs):
        assert (result.exit_code, result.windows) == (0, []), manifest
        assert (result.app.version, result.app.args) == (BEFORE, ["x"])
        check_version(tree, BEFORE)
        assert not any(tree.path(name).exists() for name in TOLD)


# The application changed behind its verification.


def date_application(tree):
    """Gives the application a time of last writing that no run would give it by chance; its facts."""
    stamp = 1_000_000_000_123_456_700
    os.utime(tree.application, ns=(stamp, stamp))
    facts = tree.application.stat()
    assert facts.st_mtime_ns == stamp
    return facts


def flipped(image):
    return bytes([image[0] ^ FLIPPED_BIT]) + image[1:]


def test_change_behind_the_verification_goes_unnoticed(lab):
    tree = installed(lab)
    facts = date_application(tree)
    release, manifest = put_release(lab, {APPLICATION_PATH: app_binary(BEFORE), THEME: b"a theme"}, BEFORE)
    before = tree.snapshot(exclude=(*STATE, APPLICATION_PATH, RESULT))
    course = [*verified(release), ("UpToDate", BEFORE, 0, 0)]
    assert observe(lab, tree, manifest, env={MUTATE: "1"}) == (
        FAILED, Told("UpToDate", course, attempted=True, succeeded=True))
    assert tree.read(APPLICATION_PATH) == flipped(app_binary(BEFORE))
    assert tree.application.stat().st_mtime_ns == facts.st_mtime_ns
    assert tree.snapshot(exclude=(*STATE, APPLICATION_PATH, RESULT)) == before
    assert not tree.path(ERROR).exists()


def test_change_before_the_verification_is_repaired(lab):
    """The counterpart: what the verification sees, it does not pass."""
    tree = installed(lab, application=flipped(app_binary(BEFORE)), product_version=BEFORE)
    _, manifest = put_release(lab, {APPLICATION_PATH: app_binary(BEFORE)}, BEFORE)
    code, told = observe(lab, tree, manifest)
    assert (code, told.outcome) == (PASSED, "Applied")
    assert ("Repairing", BEFORE, 0, 0) in told.stages
    assert tree.read(APPLICATION_PATH) == app_binary(BEFORE)


def test_every_other_value_leaves_the_application_alone(lab):
    values = ["0", "11", "", " 1", "1 ", None]
    release, manifest = put_release(lab, {APPLICATION_PATH: app_binary(BEFORE)}, BEFORE)
    trees = [installed(lab, f"app{number}") for number in range(len(values))]
    runs = together(lab.start(tree, [OBSERVE, manifest], env={} if value is None else {MUTATE: value})
                    for tree, value in zip(trees, values))
    course = [*verified(release), ("UpToDate", BEFORE, 0, 0)]
    for value, tree, result in zip(values, trees, runs):
        assert (result.exit_code, told_by(tree)) == (FAILED, Told("UpToDate", course)), value
        assert tree.read(APPLICATION_PATH) == app_binary(BEFORE), value


def test_change_meets_what_is_installed_and_not_what_comes(lab):
    """A release with the application replaces the changed one; one without leaves it, changed once and no more."""
    rows = [(OBSERVE, new_files(), "Applied", app_binary(AFTER)),
            (OBSERVE, {READING: b"a reading"}, "Applied", flipped(app_binary(BEFORE))),
            (CANCEL, new_files(), "Cancelled", flipped(app_binary(BEFORE)))]
    trees = [installed(lab, f"app{number}") for number in range(len(rows))]
    manifests = [put_release(lab, files, name=f"{number}.json")[1] for number, (_, files, _, _) in enumerate(rows)]
    runs = together(lab.start(tree, [row[0], manifest], env={MUTATE: "1"})
                    for tree, row, manifest in zip(trees, rows, manifests))
    for tree, result, (switch, _, outcome, image) in zip(trees, runs, rows):
        told = told_by(tree)
        assert (result.exit_code, told.outcome, told.safe) == (PASSED, outcome, True)
        assert (told.attempted, told.succeeded) == (True, True)
        assert tree.read(APPLICATION_PATH) == image, switch


def test_nothing_is_changed_where_nothing_was_hashed(lab, tree):
    _, manifest = put_release(lab, {THEME: b"a theme"}, BEFORE, edit=lambda manifest: manifest.update(files=[]))
    course = [("Checking", "", 0, 0), ("VerifyingFiles", "", 0, 0), ("VerifyingFiles", "", 0, 0),
              ("UpToDate", BEFORE, 0, 0)]
    assert observe(lab, tree, manifest, env={MUTATE: "1"}) == (FAILED, Told("UpToDate", course))
    _, older = put_release(lab, new_files(), "0.9.0.0", "older.json")
    course = [("Checking", "", 0, 0), ("UpToDate", "0.9.0.0", 0, 0)]
    assert observe(lab, tree, older, env={MUTATE: "1"}) == (FAILED, Told("UpToDate", course))
    assert tree.read(APPLICATION_PATH) == app_binary(BEFORE)


def spoil_application(tree, way):
    tree.application.unlink()
    if way == "a link":
        elsewhere = tree.root.parent / "elsewhere"
        elsewhere.mkdir()
        tree.application.symlink_to(elsewhere, target_is_directory=True)
    elif way == "a folder":
        tree.application.mkdir()
    elif way == "empty":
        tree.application.write_bytes(b"")


WAYS = ["missing", "a link", "a folder", "empty"]


def test_change_that_fails_is_never_a_pass(lab):
    """Whatever the update itself came to: that of a missing application is put right by it."""
    release, manifest = put_release(lab, new_files())
    trees = [installed(lab, way) for way in WAYS]
    for tree, way in zip(trees, WAYS):
        spoil_application(tree, way)
    runs = together(lab.start(tree, [OBSERVE, manifest], env={MUTATE: "1"}) for tree in trees)
    repaired = course_of_update(release)
    for way, tree, result in zip(WAYS, trees, runs):
        check_silent(result)
        told = told_by(tree)
        assert result.exit_code == FAILED, way
        assert (told.outcome, told.safe, told.error) == ("Failed", False, MUTATION_FAILED), way
        assert (told.attempted, told.succeeded) == (True, False), way
        assert tree.read(ERROR) == f"{MUTATION_FAILED}\n".encode()
        if way in ("missing", "empty"):
            assert told.stages == repaired
            check_version(tree, AFTER)


def test_launch_under_a_change_starts_what_is_there(lab):
    """Which is no program any more."""
    tree = installed(lab)
    _, manifest = put_release(lab, {READING: b"a reading"})
    result = lab.run(tree, [LAUNCH, manifest], ["ok"], env={MUTATE: "1"})
    assert tree.read(APPLICATION_PATH) == flipped(app_binary(BEFORE))
    assert result.exit_code == 193 and result.app is None
    assert result.dialogs[0].shows("Failed to start the app (error code 193):")


def test_change_that_fails_stops_the_launch(lab):
    tree = installed(lab)
    spoil_application(tree, "missing")
    _, manifest = put_release(lab, new_files())
    result = lab.run(tree, [LAUNCH, manifest], ["ok"], env={MUTATE: "1"})
    assert result.exit_code == 40 and result.app is None
    [dialog] = result.dialogs
    assert dialog.view == "failure"
    assert dialog.shows("Update recovery needs attention. Launch stopped.") and dialog.shows(MUTATION_FAILED)
    check_version(tree, AFTER)
    assert not any(tree.path(name).exists() for name in TOLD)


def test_normal_run_knows_no_such_change(lab, tree):
    Release(AFTER, {READING: b"a reading"}).publish(lab)
    result = lab.run(tree, answers=["yes"], env={MUTATE: "1"})
    assert result.exit_code == 0 and result.app is not None
    assert tree.read(APPLICATION_PATH) == app_binary(BEFORE)
    assert tree.read(READING) == b"a reading"


def test_update_of_another_folder_knows_no_such_change(lab, tree):
    _, manifest = put_release(lab, {READING: b"a reading"})
    other = installed(lab, "other")
    arguments = [BACKUP_UPDATE, tree.windows(), manifest, "C:\\lab\\none.json", BEFORE]
    result = lab.run(other, arguments, env={MUTATE: "1"})
    check_silent(result)
    assert result.exit_code == 0
    assert tree.read(READING) == b"a reading"
    for one in (tree, other):
        assert one.read(APPLICATION_PATH) == app_binary(BEFORE)
        assert not one.path(RESULT).exists()

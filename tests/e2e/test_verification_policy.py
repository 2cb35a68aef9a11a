"""The built-in verification commands that judge: the schedule, manifests and their notes, sizes, and the launcher's own
folder."""

import json
import time

import pytest

from lab import (APPLICATION_PATH, LAUNCHER, STATE, Package, Release, SyntheticBody, app_binary, configuration_text,
                 install, names, note, notes, update)
from lab.commands import call, tell, told
from lab.install import APPLICATION_FOLDER, PROGRAM_NAME
from lab.transfer import together, wait_until

WORKERS = 6
MINUTE = 60
YEAR = 365 * 24 * 60 * MINUTE
LARGEST = 2**64 - 1

SCHEDULE = "--launcher-update-schedule-self-test"
NOTES = "--launcher-release-notes-self-test"
METADATA = "--launcher-update-metadata-self-test"
ORDER = "--launcher-update-ui-order-self-test"
PRODUCTION = "--launcher-update-production-manifest-self-test"
AGGREGATE = "--launcher-update-aggregate-self-test"
SELF_TEST = "--launcher-self-test"
HOLD = "--launcher-hold-lock-self-test"


class Court:
    """Calls commands on files that are written for them, several at a time. All exit codes here are below 256."""

    def __init__(self, lab):
        self.lab = lab
        self.cases = {}

    def file(self, name, content):
        """The Windows path of a new file."""
        path = self.lab.folder / name
        path.write_bytes(content)
        return self.lab.windows_path(path)

    def expect(self, code, *words, what=None):
        self.cases[what or " ".join(words[1:])] = (code, words)

    def judge(self):
        """Exit codes as expected, and not a line printed."""
        done = together(lambda case: call(self.lab, LAUNCHER, *case[1]), self.cases.values(), WORKERS)
        seen = {what: (answer.code, answer.output) for what, answer in zip(self.cases, done)}
        assert seen == {what: (code, b"") for what, (code, _) in self.cases.items()}
        assert self.lab.requests == []


@pytest.fixture
def court(lab):
    return Court(lab)


# The schedule.


def state(age=None, text=None):
    if text is None:
        text = json.dumps({"schemaVersion": 1, "lastAttemptUnix": int(time.time()) - age})
    return text if isinstance(text, bytes) else text.encode()


def expect_schedule(court, name, content, minutes, due, *priority):
    """With both verdicts: one must pass and the other must not."""
    path = court.file(f"{name}.json", content)
    right, wrong = ("due", "not-due") if due else ("not-due", "due")
    court.expect(0, SCHEDULE, path, minutes, right, *priority, what=f"{name}: {right}")
    court.expect(30, SCHEDULE, path, minutes, wrong, *priority, what=f"{name}: {wrong}")


def test_check_is_due_after_the_interval(court):
    """Margins that no run of these tests outlasts."""
    for name, age, minutes, due in (
        ("long before the interval", 5 * MINUTE, "15", False),
        ("long after the interval", 25 * MINUTE, "15", True),
        ("exactly the interval", 15 * MINUTE, "15", True),
        ("most of the interval", 15 * MINUTE - 50, "15", False),
        ("exactly the least interval", MINUTE, "1", True),
        ("a moment", 0, "1", False),
        ("largest interval", 40 * YEAR, "2147483647", False),
        ("interval that 32 bits of seconds cannot hold", YEAR, "71582789", False),
        ("in the future", -YEAR, "15", True),
        ("a little in the future", -10 * MINUTE, "15", True),
    ):
        expect_schedule(court, name, state(age), minutes, due)
    court.judge()


def test_state_that_says_nothing_is_due(court):
    now = int(time.time())
    for name, text in {
        "no text": b"",
        "no state": b"{}",
        "another key": json.dumps({"schemaVersion": 1, "lastattemptunix": now}),
        "key too deep": json.dumps({"inner": {"lastAttemptUnix": now}}),
        "words": '{"lastAttemptUnix": "abc"}',
        "number as text": json.dumps({"lastAttemptUnix": str(now)}),
        "null": '{"lastAttemptUnix": null}',
        "not UTF-8": b'{"x": "\xff", "lastAttemptUnix": %d}' % now,
        "no object": str(now),
        "beyond all time": json.dumps({"lastAttemptUnix": LARGEST}),
    }.items():
        expect_schedule(court, name, state(text=text), "15", True)
    court.judge()


def test_state_in_other_dress_is_read_all_the_same(court):
    fresh = {"lastAttemptUnix": int(time.time())}
    for name, text in {
        "with a byte order mark": b"\xef\xbb\xbf" + json.dumps(fresh).encode(),
        "without a schema": json.dumps(fresh),
        "with another schema": json.dumps({"schemaVersion": 9} | fresh),
        "with more keys": json.dumps({"a": [1, {"lastAttemptUnix": 1}]} | fresh | {"z": None}),
    }.items():
        expect_schedule(court, name, state(text=text), "15", False)
    court.judge()


def test_priority_can_make_a_release_due_at_once(court):
    for priority, due in {"normal": False, "recommended": True, "hotfix": True, "": False, "Hotfix": False,
                          "RECOMMENDED": False, "hotfix ": False, "urgent": False}.items():
        expect_schedule(court, f"fresh, {priority or 'no word'}", state(0), "15", due, priority)
        expect_schedule(court, f"old, {priority or 'no word'}", state(30 * MINUTE), "15", True, priority)
    court.judge()


# Release notes.

SPEECH = {
    "en": note("en", "Better sound", ["Louder", "Clearer"]),
    "zh-TW": note("zh-TW", "更好的聲音", ["更大聲", "更清楚"]),
    "zh-CN": note("zh-CN", "更好的声音", ["更大声", "更清楚"]),
    "ja": note("ja", "より良い音", ["大きく", "はっきり"]),
    "ko": note("ko", "더 좋은 소리", ["더 크게", "더 또렷하게"]),
}


def manifest(release_notes=None, priority="normal", edit=None):
    return update(notes=release_notes, priority=priority).manifest(edit=edit)


def test_notes_of_the_wanted_language_are_chosen(court):
    path = court.file("all.json", manifest(notes(*SPEECH.values())))
    for tag, spoken in SPEECH.items():
        court.expect(0, NOTES, path, tag, spoken["summary"])
        court.expect(0, NOTES, path, tag, spoken["summary"], *spoken["highlights"])
    court.expect(31, NOTES, path, "ko", SPEECH["ja"]["summary"])
    court.expect(31, NOTES, path, "ko", SPEECH["ko"]["summary"], *SPEECH["ja"]["highlights"])
    court.judge()


def test_notes_in_another_language_stand_in(court):
    """The default language, then English, then the first one."""
    def some(*tags, default):
        return manifest(notes(*[SPEECH[tag] for tag in tags], default=default))

    for name, content, wanted, chosen in (
        ("default", some("ja", "en", "ko", default="ko"), "zh-TW", "ko"),
        ("default in another case", some("ja", "en", "zh-CN", default="ZH-cn"), "zh-TW", "zh-CN"),
        ("english", some("ja", "ko", "en", default="fr"), "zh-TW", "en"),
        ("first", some("ja", "ko", default="fr"), "zh-TW", "ja"),
        ("no family", some("ja", "zh-CN", default="ja"), "zh-TW", "ja"),
        ("wanted in another case", manifest(notes(SPEECH["en"], SPEECH["ja"] | {"locale": "JA"})), "ja", "ja"),
    ):
        path = court.file(f"{name}.json", content)
        for tag, spoken in SPEECH.items():
            court.expect(0 if tag == chosen else 31, NOTES, path, wanted, spoken["summary"], what=f"{name}: {tag}")
    court.judge()


def test_bullets_are_all_the_highlights_in_order(court):
    path = court.file("notes.json", manifest(notes(note("en", "Title", ["one", "two", "three"]))))
    for code, bullets in (
        (0, []),
        (0, ["one", "two", "three"]),
        (31, ["one", "two"]),
        (31, ["two", "three"]),
        (31, ["one"]),
        (31, ["one", "two", "three", "four"]),
        (31, ["one", "two", "three", ""]),
        (31, ["one", "three", "two"]),
        (31, ["one", "two", "Three"]),
        (31, ["Title", "one", "two", "three"]),
    ):
        court.expect(code, NOTES, path, "en", "Title", *bullets)
        court.expect(31, NOTES, path, "en", "title", *bullets)
    court.judge()


def test_none_means_no_notes_at_all(court):
    spoiled = notes(note("en", "Title", ["fine"]), note("ja", "Title", []))
    for name, content, none in (
        ("without", manifest(), True),
        ("spoiled", manifest(notes(), edit=lambda found: found.update(releaseNotes=spoiled)), True),
        ("text", manifest(notes(), edit=lambda found: found.update(releaseNotes="Title")), True),
        ("with", manifest(notes(note("en", "Title", ["fine"]))), False),
    ):
        path = court.file(f"{name}.json", content)
        court.expect(0 if none else 31, NOTES, path, "en", "--none", what=f"{name}: none")
        court.expect(31 if none else 0, NOTES, path, "en", "Title", what=f"{name}: title")
        court.expect(31, NOTES, path, "en", "--none", "fine", what=f"{name}: none and a bullet")
    court.judge()


def test_manifest_that_is_refused_has_no_notes_to_be_right_about(court):
    for name, content in {
        "empty": b"",
        "no manifest": b"{}",
        "not UTF-8": b"\xff",
        "too large": update(notes=notes()).manifest(pad_to=524289),
        "bad version": manifest(edit=lambda found: found.update(version="1.1.0")),
    }.items():
        path = court.file(f"{name}.json", content)
        court.expect(31, NOTES, path, "en", "--none", what=f"{name}: notes")
        court.expect(38, METADATA, path, "en", "normal", "0", what=f"{name}: metadata")
        court.expect(36, ORDER, path, "en", "A summary", "A highlight", what=f"{name}: order")
    court.judge()


# Priority and emphasis.


def test_priority_comes_with_the_notes(court):
    for written, read in {"normal": "normal", "recommended": "recommended", "hotfix": "hotfix"}.items():
        path = court.file(f"{written}.json", manifest(notes(), written))
        for word in ("normal", "recommended", "hotfix", "Hotfix", ""):
            court.expect(0 if word == read else 38, METADATA, path, "en", word, "00", what=f"{written}: {word}")
    for number, odd in enumerate(["Hotfix", "urgent", 1, None]):
        path = court.file(f"odd{number}.json", manifest(notes(), edit=lambda found: found.update(updatePriority=odd)))
        court.expect(0, METADATA, path, "en", "normal", "00", what=f"odd {odd}")
    without = court.file("without notes.json", manifest(None, "hotfix"))
    court.expect(0, METADATA, without, "en", "hotfix", "0", what="without notes")
    court.judge()


def test_flags_tell_the_emphasis_of_each_text_from_the_top(court):
    texts = ["first", "second", "third"]
    for name, emphasised, flags in (
        ("nothing", [], "0000"),
        ("summary", ["Title"], "1000"),
        ("last", ["third"], "0001"),
        ("several", ["third", "first"], "0101"),
        ("all", ["Title", *texts], "1111"),
        ("repeated", ["second", "second"], "0010"),
        ("other case", ["Second", "third"], "0001"),
        ("part", ["sec", "third"], "0001"),
        ("too many", ["first"] * 14, "0000"),
    ):
        written = notes(note("en", "Title", texts, emphasised))
        path = court.file(f"{name}.json", top(releaseNotes=written))
        for said in {flags, "0000", "1111", flags[::-1], flags[:-1], flags + "0", ""}:
            court.expect(0 if said == flags else 38, METADATA, path, "en", "normal", said, what=f"{name}: {said}")
    both = [note("en", "Title", texts, ["first"]), note("ja", "題", texts, ["題"])]
    path = court.file("each its own.json", manifest(notes(*both)))
    court.expect(0, METADATA, path, "en", "normal", "0100")
    court.expect(0, METADATA, path, "ja", "normal", "1000")
    twins = court.file("twins.json", manifest(notes(note("en", "same", ["same", "other"], ["same"]))))
    court.expect(0, METADATA, twins, "en", "normal", "110")
    court.judge()


def test_summary_leads_and_highlights_follow(court):
    path = court.file("notes.json", manifest(notes(note("en", "Title", ["one", "two"], ["two"]), SPEECH["ja"])))
    for code, tag, first, second in (
        (0, "en", "Title", "one"),
        (36, "en", "one", "Title"),
        (36, "en", "Title", "two"),
        (36, "en", "one", "two"),
        (36, "en", "Title", ""),
        (36, "en", "title", "one"),
        (0, "ja", "より良い音", "大きく"),
        (36, "ja", "Title", "one"),
    ):
        court.expect(code, ORDER, path, tag, first, second)
    without = court.file("without.json", manifest())
    court.expect(36, ORDER, without, "en", "", "", what="one card alone")
    court.judge()


# What a published manifest must be.


def package_manifest(edit=lambda found, package: None):
    """A release with two packages, one of them with a patch; `edit` gets the manifest and that package."""
    same = SyntheticBody(5000)
    old = Package("models", "1.0.0.0", {"a.bin": same, "b.bin": b"old"}, "sound")
    new = Package("models", "1.1.0.0", {"a.bin": same, "b.bin": b"new"}, "sound", patch_from=old)
    other = Package("voices", "2.0.0.0", {"deep/er/c.bin": b"c"}, "voice")
    release = Release("1.1.0.0", {APPLICATION_PATH: app_binary("1.1.0.0")}, packages=[new, other])
    return release.manifest(edit=lambda found: edit(found, found["packagesV2"][0]))


def file_manifest(**changes):
    """One file, with these fields changed."""
    return manifest(edit=lambda found: found["files"][0].update(changes))


def theme(path):
    return file_manifest(component="theme", path=f"{APPLICATION_FOLDER}/Themes/{path}")


def reading(path):
    return file_manifest(component="reading-runtime", path=f"{APPLICATION_FOLDER}/JapaneseReading/{path}")


def top(**changes):
    return manifest(edit=lambda found: found.update(changes))


def without(key):
    return manifest(edit=lambda found: found.pop(key))


def in_package(**changes):
    return package_manifest(lambda found, package: package.update(changes))


def in_patch(**changes):
    return package_manifest(lambda found, package: package["patch"].update(changes))


def in_inventory(**changes):
    return package_manifest(lambda found, package: package["files"][0].update(changes))


def rename_packages(found, _):
    found["packages"] = found.pop("packagesV2")


def seventeen_packages(found, package):
    package.pop("patch")
    found["packagesV2"] = [package | {"id": f"pack-{number}"} for number in range(17)]


def sixteen_packages(found, package):
    seventeen_packages(found, package)
    found["packagesV2"].pop()


def valid_manifests():
    return {
        "release": manifest(notes(*SPEECH.values()), "hotfix"),
        "release of the backup": update().manifest("backup"),
        "with packages": package_manifest(),
        "packages by their other name": package_manifest(rename_packages),
        "sixteen packages": package_manifest(sixteen_packages),
        "nothing to install": top(files=[]),
        "byte order mark": b"\xef\xbb\xbf" + manifest(),
        "largest document": update().manifest(pad_to=524288),
        "largest file": file_manifest(size=536870912),
        "largest numbers in versions": top(version="65535.65535.65535.65535"),
        "spoiled notes": top(releaseNotes={"defaultLocale": "en", "localizations": []}),
        "unknown priority": top(updatePriority="urgent"),
        "unknown key": top(more=[1, 2]),
        "theme": theme("a.vprtheme"),
        "theme in capitals": theme("A.VPRTHEME"),
        "reading": reading("aromanize.js"),
        "path in another case": file_manifest(path=APPLICATION_PATH.upper()),
        "any https host": file_manifest(url=f"https://{names.CDN}/payload"),
    }


def invalid_manifests():
    return {
        # Where it may point.
        "plain http": file_manifest(url=f"http://{names.PRIMARY_RELEASE}/payload"),
        "ftp": file_manifest(url=f"ftp://{names.PRIMARY_RELEASE}/payload"),
        "local file": file_manifest(url="C:\\payloads\\payload"),
        "file on a server": file_manifest(url="\\\\server\\share\\payload"),
        "file address": file_manifest(url="file:///C:/payloads/payload"),
        "relative": file_manifest(url="payload"),
        "relative to a host": file_manifest(url="/payload"),
        "no scheme": file_manifest(url=f"{names.PRIMARY_RELEASE}/payload"),
        "no path": file_manifest(url=f"https://{names.PRIMARY_RELEASE}"),
        "no address": file_manifest(url=""),
        "package that is a local file": in_package(url="C:\\payloads\\payload"),
        "package by plain http": in_package(url=f"http://{names.PRIMARY_RELEASE}/payload"),
        "patch that is a local file": in_patch(url="C:\\payloads\\payload"),
        # What it may replace.
        "file beside the launcher": file_manifest(path=PROGRAM_NAME),
        "settings": file_manifest(path="current.json"),
        "other file of the application": file_manifest(path=f"{APPLICATION_FOLDER}/other.dll"),
        "file of another folder": file_manifest(path=f"Another/{PROGRAM_NAME}"),
        "way up": file_manifest(path=f"{APPLICATION_FOLDER}/../{APPLICATION_FOLDER}/{PROGRAM_NAME}"),
        "absolute": file_manifest(path=f"C:\\{APPLICATION_FOLDER}\\{PROGRAM_NAME}"),
        "empty segment": file_manifest(path=f"{APPLICATION_FOLDER}//{PROGRAM_NAME}"),
        "stream": file_manifest(path=f"{APPLICATION_PATH}:stream"),
        "application as another component": file_manifest(component="theme"),
        "component in capitals": file_manifest(component="Application"),
        "unknown reading file": reading("other.js"),
        "theme in a folder": theme("sub/a.vprtheme"),
        "theme without a name": theme(".vprtheme"),
        "no theme": theme("a.txt"),
        # Sizes and digests.
        "empty file": file_manifest(size=0),
        "file too large": file_manifest(size=536870913),
        "negative size": file_manifest(size=-1),
        "size as text": file_manifest(size="1000"),
        "short digest": file_manifest(sha256="a" * 63),
        "long digest": file_manifest(sha256="a" * 65),
        "package with a digest of other letters": in_package(sha256="g" * 64),
        "empty package": in_package(size=0),
        # The document.
        "another schema": top(schemaVersion=2),
        "no schema": without("schemaVersion"),
        "no version": without("version"),
        "no minimum launcher": without("minimumLauncherVersion"),
        "minimum launcher as number": top(minimumLauncherVersion=1),
        "version of three numbers": top(version="1.1.0"),
        "version too large": top(version="1.1.0.65536"),
        "notes address as number": top(releaseNotesUrl=1),
        "no files": without("files"),
        "files as object": top(files={}),
        "file as text": top(files=["payload"]),
        "no component": manifest(edit=lambda found: found["files"][0].pop("component")),
        "both package lists": package_manifest(lambda found, _: found.update(packages=[])),
        "packages as object": top(packagesV2={}),
        "seventeen packages": package_manifest(seventeen_packages),
        # Packages.
        "package id in capitals": in_package(id="Models"),
        "package id that ends in a dash": in_package(id="models-"),
        "package version of three numbers": in_package(version="1.1.0"),
        "two packages of one id": package_manifest(
            lambda found, package: found["packagesV2"][1].update(id=package["id"])),
        "required as text": in_package(requiredForStartup="true"),
        "no inventory": in_package(files=[]),
        "inventory with a backslash": in_inventory(path="a\\b.bin"),
        "inventory with a way up": in_inventory(path="../a.bin"),
        "inventory with a digest of other letters": in_inventory(sha256="g" * 64),
        "inventory with an empty file": in_inventory(size=0),
        "inventory file too large": in_inventory(size=134217729),
        "inventory path twice": in_inventory(path="B.BIN"),
        "patch of null": in_package(patch=None),
        "patch as large as the package": package_manifest(
            lambda found, package: package["patch"].update(size=package["size"])),
        "patch of its own version": in_patch(baseVersion="1.1.0.0"),
        "patch with an unknown file": in_patch(files=["c.bin"]),
        "patch with all files": in_patch(files=["a.bin", "b.bin"]),
        "patch without files": in_patch(files=[]),
        # No document.
        "too large": update().manifest(pad_to=524289),
        "nothing": b"",
        "byte order mark alone": b"\xef\xbb\xbf",
        "not UTF-8": manifest().replace(b"application", b"applicati\xff\xfe"),
        "UTF-16": manifest().decode().encode("utf-16"),
        "sign-in page": update().manifest(as_html=True),
        "cut off": manifest()[:-40],
    }


def test_manifest_fit_for_production(court):
    for name, content in valid_manifests().items():
        court.expect(0, PRODUCTION, court.file(f"{len(court.cases)}.json", content), "valid", what=name)
    path = court.file("again.json", manifest())
    court.expect(37, PRODUCTION, path, "invalid", what="release, called invalid")
    court.judge()


def test_manifest_not_fit_for_production(court):
    manifests = invalid_manifests()
    for name, content in manifests.items():
        court.expect(0, PRODUCTION, court.file(f"{len(court.cases)}.json", content), "invalid", what=name)
    for name in ("local file", "plain http", "nothing"):
        path = court.file(f"again {name}.json", manifests[name])
        court.expect(37, PRODUCTION, path, "valid", what=f"{name}, called valid")
    court.judge()


def test_local_files_are_no_matter_to_notes(court):
    """They read manifests of test fixtures as well."""
    fixture = manifest(notes(), edit=lambda found: found["files"][0].update(url="C:\\payloads\\payload"))
    path = court.file("fixture.json", fixture)
    court.expect(0, NOTES, path, "en", "A summary")
    court.expect(0, METADATA, path, "en", "normal", "00")
    court.expect(0, PRODUCTION, path, "invalid")
    court.judge()


def test_sum_of_two_sizes_overflows_beyond_64_bits(court):
    half = 2**63
    for first, second, holds in (
        (0, 0, True), (LARGEST, 0, True), (0, LARGEST, True), (LARGEST - 1, 1, True), (half, half - 1, True),
        (LARGEST, 1, False), (1, LARGEST, False), (half, half, False), (LARGEST, LARGEST, False), (2**32, 2**32, True),
    ):
        right, wrong = ("ok", "overflow") if holds else ("overflow", "ok")
        court.expect(0, AGGREGATE, str(first), str(second), right)
        court.expect(38, AGGREGATE, str(first), str(second), wrong)
    court.judge()


# The launcher's own folder.

JOURNAL = (
    '{\n  "schemaVersion": 1,\n  "backupDirectory": "backup-1.0.0.0-1-2",\n  "targets": [\n'
    '    {"path": "Velmora Pine Relay\\\\Velmora Pine Relay.exe", "hadOriginal": true}\n  ]\n}\n'
)


def interrupt_update(tree):
    """As if an update had stopped behind its first file."""
    tree.write(f".vpr-update/backup-1.0.0.0-1-2/{APPLICATION_PATH}", tree.application.read_bytes())
    tree.write(".vpr-update/transaction.json", JOURNAL)
    tree.write(APPLICATION_PATH, app_binary("1.1.0.0"))


SELF_TESTS = {
    "good": ({}, 0),
    "missing settings": ({"configuration": False}, 3),
    "settings that are no settings": ({"configuration": b"{}"}, 3),
    "empty settings": ({"configuration": b""}, 3),
    "unsafe settings": ({"configuration": configuration_text("1.0.0.0", "1.0.0.0", directory="../outside")}, 3),
    "update folder": ({"files": {".vpr-update/release-watermark.txt": b"1.0.0.0\n"}}, 39),
    "update folder that is a file": ({"files": {".vpr-update": b"a file"}}, 39),
    "settings and update folder": ({"configuration": b"{}", "files": {".vpr-update": b"a file"}}, 3),
    "application that is not there": ({"application": b"no program"}, 0),
}


@pytest.mark.parametrize("what", SELF_TESTS)
def test_launcher_judges_its_own_folder(lab, what):
    options, code = SELF_TESTS[what]
    tree = install(lab, **options)
    before = tree.snapshot(folders=True)
    done = tell(lab, tree, SELF_TEST)
    assert (done.code, done.output, done.run.app, done.run.windows) == (code, b"", None, [])
    assert tree.snapshot(folders=True) == before, "it only looks"
    assert lab.requests == []


def test_settings_that_are_a_folder_and_update_folder_that_is_a_link(lab):
    """A link in a circle is something that Windows can say nothing about, which is no proof that nothing is there."""
    first, second, third = install(lab, "first", configuration=False), install(lab, "second"), install(lab, "third")
    first.configuration.mkdir()
    second.update_folder.symlink_to(lab.folder / "first", target_is_directory=True)
    third.update_folder.symlink_to(third.update_folder)
    assert [call(lab, tree, SELF_TEST).code for tree in (first, second, third)] == [3, 39, 39]


def test_launcher_judges_its_folder_before_any_lock(lab, tree):
    """An interrupted update stays as it was."""
    interrupt_update(tree)
    before = tree.snapshot(folders=True)
    assert tell(lab, tree, SELF_TEST).code == 39
    assert tree.snapshot(folders=True) == before


def begin_update(lab, tree):
    """A launcher that stands in its update and holds the lock, and the gate that lets it go on."""
    gate = lab.gate()
    new = update()
    new.publish(lab, payloads={APPLICATION_PATH: new.payload_reply(APPLICATION_PATH).but(hold=gate)})
    busy = lab.start(tree, answers=["yes"])
    lab.wait_for_request(names.PRIMARY_RELEASE)
    return busy, gate


def test_held_lock_stops_the_holder_but_not_the_look(lab, tree):
    busy, gate = begin_update(lab, tree)
    look, hold = lab.start(tree, [SELF_TEST]), lab.start(tree, [HOLD, "100"], ["ok"])
    seen = told(look)
    assert (seen.code, seen.run.windows) == (39, [])
    stopped = told(hold)
    assert (stopped.code, stopped.output, stopped.run.app) == (39, b"", None)
    [dialog] = stopped.run.dialogs
    assert dialog.shows("另一個啟動器仍在處理更新；已停止啟動以避免混合版本。")
    gate.release()
    assert busy.wait().app.version == "1.1.0.0"


def replace_launcher(lab, tree, other):
    """Whether another Windows program can write over the launcher's file."""
    shell = lab.drive / "windows/system32/cmd.exe"
    copy = call(lab, shell, "/c", "copy", "/y", lab.windows_path(other), tree.windows(PROGRAM_NAME))
    return copy.code == 0


def test_running_launcher_cannot_be_replaced(lab):
    """It stands behind its settings, which it makes anew, and shows and starts nothing."""
    tree = install(lab, configuration=False)
    other = lab.folder / "other.exe"
    other.write_bytes(b"another program")
    before = tree.launcher.read_bytes()
    run = lab.start(tree, [HOLD, "10000"])
    wait_until(tree.configuration.exists, "the settings")
    assert not replace_launcher(lab, tree, other)
    assert tree.launcher.read_bytes() == before
    run.kill()
    done = told(run)
    assert (done.run.stopped, done.output, done.run.app, done.run.windows) == (True, b"", None, [])
    assert replace_launcher(lab, tree, other), "nothing else kept it from being replaced"
    assert tree.launcher.read_bytes() == other.read_bytes()
    assert lab.requests == []


def test_holder_settles_an_interrupted_update_first(lab, tree):
    old = tree.snapshot(exclude=STATE)
    interrupt_update(tree)
    done = tell(lab, tree, HOLD, "100")
    assert (done.code, done.output, done.run.app, done.run.windows) == (0, b"", None, [])
    assert tree.snapshot(exclude=STATE) == old
    tree.assert_no_leftovers()
    assert lab.requests == []


def test_holder_stops_at_settings_that_cannot_be_used(lab):
    tree = install(lab, configuration=b"{}")
    done = tell(lab, tree, HOLD, "100", answers=["ok"])
    assert done.code == 3 and done.run.app is None
    [dialog] = done.run.dialogs
    assert dialog.shows("current.json 缺少必要欄位或使用不支援的格式。")


def test_holder_takes_any_text_for_its_time(lab):
    """Any text that is no number counts as a second, and no time is longer than ten. A sleep never ends early, so its
    least length may be looked at; it begins when the settings are made."""
    least = {"0": 0.1, "1": 0.1, "1500": 1.5, "-5": 1, "+5": 1, "": 1, "soon": 1, "0x10": 1, "99999999999999999999": 1,
             "18446744073709551615": 10, "4294967296": 10}
    trees = {text: install(lab, f"holder {number}", configuration=False) for number, text in enumerate(least)}

    def hold(text):
        answer = call(lab, trees[text], HOLD, text)
        return answer, time.time() - trees[text].configuration.stat().st_mtime

    for text, (answer, seconds) in zip(least, together(hold, least)):
        assert (answer.code, answer.output) == (0, b"")
        assert seconds >= least[text], text

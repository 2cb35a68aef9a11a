"""The command lines of the built-in verification commands: what they take, what they refuse before anything is done,
and when they are no command at all."""

import dataclasses
import itertools
import json
import os
import re
import subprocess
import time

import pytest

from lab import Reply, SyntheticBody, install, names, note, notes, update
from lab.commands import call, tell
from lab.programs import TOP
from lab.transfer import together, wait_until

DOCUMENT = TOP / "docs/verification-commands.md"
WORKERS = 6

TAGS = ("en", "zh-TW", "zh-CN", "ja", "ko")
TITLE = "The best summary"
BULLETS = ("First bullet", "Second bullet")
VERSION = "1.0.0.0"
OFFERED = "1.1.0.0"
PAYLOAD = SyntheticBody(20_000)
PAYLOAD_URL = f"https://{names.CDN}/payload"

# What a value must be.
TEXT, LANGUAGE, NUMBER, MINUTES, TAG_OF_VERSION, FLAGS = "text", "language", "number", "minutes", "version", "flags"
FILE, BITMAP, FOLDER, TARGET, CACHE, LOCATION = "file", "bitmap", "folder", "target folder", "cache", "location"
DUE, VALID, SUM = ("due", "not-due"), ("valid", "invalid"), ("ok", "overflow")


@dataclasses.dataclass(frozen=True)
class Command:
    switch: str
    values: dict  # {name: what it must be}, in order
    more: dict = dataclasses.field(default_factory=dict)  # all of them or none
    endless: bool = False  # the last one comes any number of times
    refusal: int | None = None  # exit code for a value that is not what it must be
    good: object = lambda desk: []  # all values that it may have, as words that make it pass
    output: bytes = b""  # pattern of the whole standard output of a pass
    makes: tuple = ()  # names on the desk that a pass makes

    @property
    def counts(self):
        """How many values it takes."""
        least, most = len(self.values), len(self.values) + len(self.more)
        return range(least, 9) if self.endless else sorted({least, most})

    @property
    def document_row(self):
        """Its switch, values and argument count, as the document writes them."""
        shown = " ".join(f"<{name}>" for name in self.more) + ("..." if self.endless else "")
        call_form = " ".join([self.switch, *(f"<{name}>" for name in self.values)]) + (f" [{shown}]" if shown else "")
        counts = [count + 2 for count in self.counts]
        return call_form, f"{counts[0]} or more" if self.endless else " or ".join(map(str, counts))

    def kinds(self):
        return [*self.values.items(), *self.more.items()]

    def __str__(self):
        return self.switch


PICTURE = {"manifest": FILE, "language": LANGUAGE, "bitmap": BITMAP}
TRANSFER = {"size": NUMBER, "sha256": TEXT, "cache": CACHE, "cancel at": NUMBER}
NOTED = {"manifest": FILE, "language": LANGUAGE}

COMMANDS = (
    Command("--launcher-failure-handoff-self-test", {}, {"language": LANGUAGE, "folder": TARGET}, refusal=1311,
            good=lambda desk: ["ja", desk.windows("absent")],
            output=rb"LAUNCHER_FAILURE_HANDOFF_PASS safe_nonmodal=1 unsafe_blocked=1 inline_no_dialog=1 byte_units=1 "
                   rb"stall_clears_speed=1\n"),
    Command("--launcher-download-contract-self-test", {}, output=rb"LAUNCHER_DOWNLOAD_CONTRACT_PASS checks=[1-9]\d*\n"),
    Command("--launcher-source-session-self-test",
            {"url1": TEXT, "backup1": TEXT, "url2": TEXT, "backup2": TEXT} | TRANSFER, refusal=1314,
            good=lambda desk: [PAYLOAD_URL, "", PAYLOAD_URL, "", str(PAYLOAD.size), PAYLOAD.sha256,
                               desk.windows("cache 1"), "0"],
            output=rb"SESSION_RESULT file=0 success=1 canceled=0 preference=0\n"
                   rb"SESSION_RESULT file=1 success=1 canceled=0 preference=0\n", makes=("cache 1",)),
    Command("--launcher-download-mirror-self-test", {"url": TEXT, "backup": TEXT} | TRANSFER | {"window ms": NUMBER},
            refusal=1314,
            good=lambda desk: [PAYLOAD_URL, "", str(PAYLOAD.size), PAYLOAD.sha256, desk.windows("cache 2"), "0", "0"],
            output=rb"MIRROR_RESULT success=1 canceled=0 http=200\n"
                   rb"(MIRROR_OBSERVATION phase=\d+ bytes=\d+ backup=0 slow=0\n)+", makes=("cache 2",)),
    Command("--launcher-r2-install-self-test", {"root": FOLDER, "productVersion": TAG_OF_VERSION}, refusal=1317,
            good=lambda desk: [desk.windows("root 1"), VERSION], output=rb"R2_INSTALL_RESULT outcome=4 safe=1\n",
            makes=("root 1",)),
    Command("--launcher-r2-update-self-test",
            {"root": FOLDER, "manifest": LOCATION, "backup manifest": LOCATION, "productVersion": TAG_OF_VERSION},
            refusal=1317,
            good=lambda desk: [desk.windows("root 2"), desk.windows("manifest.json"), desk.windows("manifest.json"),
                               VERSION],
            output=rb"R2_UPDATE_RESULT outcome=4 safe=1\n", makes=("root 2",)),
    Command("--launcher-download-loopback-self-test", {"url": TEXT} | TRANSFER, refusal=1312,
            good=lambda desk: [PAYLOAD_URL, str(PAYLOAD.size), PAYLOAD.sha256, desk.windows("cache 3"), "0"],
            output=rb"DOWNLOAD_RESULT success=1 canceled=0 attempts=1 http=200 os=0\n"
                   rb"(DOWNLOAD_OBSERVATION phase=\d+ bytes=\d+ network=\d+ attempt=1 rate=-?\d+\.\d{3} "
                   rb"restarted=0\n)+",
            makes=("cache 3",)),
    Command("--launcher-update-schedule-self-test", {"state": FILE, "minutes": MINUTES, "due or not-due": DUE},
            {"priority": TEXT}, refusal=30, good=lambda desk: [desk.windows("state.json"), "15", "due", "hotfix"]),
    Command("--launcher-release-notes-self-test", NOTED | {"expected title or --none": TEXT}, {"bullets": TEXT},
            endless=True, refusal=31, good=lambda desk: [desk.windows("manifest.json"), "en", TITLE, *BULLETS]),
    Command("--launcher-update-metadata-self-test", NOTED | {"expected priority": TEXT, "flags": FLAGS}, refusal=38,
            good=lambda desk: [desk.windows("manifest.json"), "en", "recommended", "001"]),
    Command("--launcher-update-ui-order-self-test", NOTED | {"first": TEXT, "second": TEXT}, refusal=36,
            good=lambda desk: [desk.windows("manifest.json"), "en", TITLE, BULLETS[0]]),
    Command("--launcher-update-production-manifest-self-test", {"file": FILE, "valid or invalid": VALID}, refusal=35,
            good=lambda desk: [desk.windows("manifest.json"), "valid"]),
    Command("--launcher-update-aggregate-self-test", {"a": NUMBER, "b": NUMBER, "ok or overflow": SUM}, refusal=38,
            good=lambda desk: ["0", "0", "ok"]),
    Command("--launcher-update-progress-model-self-test", {},
            output=rb"UPDATE_PROGRESS_MODEL phase_changes=1 multiple_assets=1 unknown_total=1 stale_events=1 "
                   rb"extraction=1 per_file_verification=1 no_transfer_install=1 cancel_terminal=1 mixed_total=1 "
                   rb"passed=1\n"),
    Command("--launcher-verification-progress-self-test", {"language": LANGUAGE}, {"bitmap": BITMAP}, refusal=43,
            good=lambda desk: ["en", desk.windows("verified.bmp")],
            output=rb"VERIFICATION_UI attempted=\d+ updates=\d+ intermediate=\d+ progress_paints=\d+ window_paints=0 "
                   rb"owner_thread=1 final_percent=100 passed=1\n", makes=("verified.bmp",)),
    Command("--launcher-update-responsive-self-test", {}),
    Command("--launcher-update-ui-screenshot", PICTURE, {"version": TAG_OF_VERSION}, refusal=35,
            good=lambda desk: [desk.windows("manifest.json"), "ko", desk.windows("prompt.bmp"), VERSION],
            makes=("prompt.bmp",)),
    Command("--launcher-update-progress-ui-screenshot",
            PICTURE | {"version": TAG_OF_VERSION, "completed": NUMBER, "total": NUMBER}, refusal=35,
            good=lambda desk: [desk.windows("manifest.json"), "en", desk.windows("progress.bmp"), VERSION, "0", "0"],
            makes=("progress.bmp",)),
    Command("--launcher-repair-ui-screenshot", {"language": LANGUAGE, "bitmap": BITMAP, "version": TAG_OF_VERSION},
            refusal=35, good=lambda desk: ["zh-CN", desk.windows("repair.bmp"), VERSION], makes=("repair.bmp",)),
    Command("--launcher-self-test", {}),
    Command("--launcher-hold-lock-self-test", {"ms": TEXT}, good=lambda desk: ["100"]),
)
BY_SWITCH = {one.switch: one for one in COMMANDS}
WITH_LANGUAGE = [one for one in COMMANDS if LANGUAGE in dict(one.kinds()).values()]
REFUSING = [one for one in COMMANDS if one.refusal is not None]


class Desk:
    """A folder with everything that good values name, and with what no value may name."""

    def __init__(self, lab):
        self.lab = lab
        self.folder = lab.folder / "desk"
        self.folder.mkdir()
        # No location of a manifest: a run that is no command starts the application at once.
        self.tree = install(lab, "launcher", manifest_url="")
        offered = update(OFFERED, notes=notes(note("en", TITLE, BULLETS, BULLETS[1:])), priority="recommended")
        offered.publish(lab, "backup")
        lab.on(names.CDN, "/payload", Reply(200, PAYLOAD, etag='"one"'))
        (self.folder / "manifest.json").write_bytes(offered.manifest("backup"))
        (self.folder / "state.json").write_text(json.dumps({"schemaVersion": 1, "lastAttemptUnix": 1}))
        (self.folder / "taken.bmp").write_bytes(b"BM")
        (self.folder / "file").write_bytes(b"a file")
        (self.folder / "folder").mkdir()
        (self.folder / "folder.bmp").mkdir()
        (self.folder / "link").symlink_to(self.folder / "folder", target_is_directory=True)
        (self.folder / "link.bmp").symlink_to(self.folder / "folder", target_is_directory=True)

    def add_roots(self, *commands):
        """The installations that these commands are sent to."""
        for name in {made for one in commands for made in one.makes if made.startswith("root")}:
            install(self.lab, f"desk/{name}")

    def windows(self, name):
        return self.lab.windows_path(self.folder / name)

    def call(self, *words, **options):
        """With the desk as the current folder: a relative path would lead to the real thing."""
        return call(self.lab, self.tree, *words, cwd=self.folder, **options)

    def tell(self, *words):
        """A prompt that a command shows is nobody's to answer."""
        return tell(self.lab, self.tree, *words, answers=["wait"], cwd=self.windows("").rstrip("\\"))

    def words(self, command, count=None, **changes):
        """The switch and its good values, all or so many of them; `changes` by place, as `at3="text"`."""
        values = command.good(self)
        for place, value in changes.items():
            values[int(place.removeprefix("at"))] = value
        return [command.switch, *values[:count]]

    def everything(self):
        """All paths here and what the files hold, but for what runs themselves leave."""
        found = {}
        for path in sorted(self.lab.folder.rglob("*")):
            relative = path.relative_to(self.lab.folder)
            if not relative.parts[0].startswith("run"):
                plain = path.is_file() and not path.is_symlink()
                found[relative.as_posix()] = path.read_bytes() if plain else None
        return found


@pytest.fixture
def desk(lab):
    return Desk(lab)


# What is no such value.


def forms(desk, name):
    """Ways to name a thing on the desk that are not absolute and local. Windows would find it by most of them."""
    path = desk.windows(name)
    below = path.partition("\\")[2]
    return {
        "relative": name,
        "relative to the drive's folder": f"C:{name}",
        "without a drive": f"\\{below}",
        "on a server": f"\\\\server\\share\\{name}",
        "long form": f"\\\\?\\{path}",
        "device form": f"\\\\.\\{path}",
        "drive that is not there": f"Q:\\{below}",
        "drive that is no letter": f"1:\\{below}",
        "no path": "",
    }


BAD_NUMBERS = {"plus": "+1", "minus": "-1", "blank before": " 1", "blank behind": "1 ", "hexadecimal": "0x1",
               "empty": "", "with a fraction": "1.0", "words": "one", "too large": "18446744073709551616"}

# {what it must be: function of the desk and the good value, that gives {what is wrong: value}}
BAD = {
    FILE: lambda desk, good: forms(desk, good.rpartition("\\")[2]) | {
        "missing": desk.windows("missing.json"), "folder": desk.windows("folder"), "link": desk.windows("link"),
        "in a missing folder": desk.windows("missing\\manifest.json")},
    BITMAP: lambda desk, good: forms(desk, "new.bmp") | {
        "existing": desk.windows("taken.bmp"), "existing folder": desk.windows("folder.bmp"),
        "existing link": desk.windows("link.bmp"), "another ending": desk.windows("new.png"),
        "no ending": desk.windows("new"), "ending only inside": desk.windows("new.bmp.txt")},
    FOLDER: lambda desk, good: forms(desk, good.rpartition("\\")[2]) | {
        "missing": desk.windows("missing"), "file": desk.windows("file"), "link": desk.windows("link")},
    TARGET: lambda desk, good: forms(desk, "folder") | {"file": desk.windows("file"), "link": desk.windows("link")},
    CACHE: lambda desk, good: forms(desk, "new"),
    LOCATION: lambda desk, good: forms(desk, good.rpartition("\\")[2]),
    LANGUAGE: lambda desk, good: {
        "unknown": "fr", "family only": "zh", "longer": "en-US", "blank behind": "en ", "underscore": "zh_TW",
        "empty": ""},
    NUMBER: lambda desk, good: BAD_NUMBERS,
    MINUTES: lambda desk, good: BAD_NUMBERS | {"none": "0", "beyond 32 bits": "2147483648"},
    TAG_OF_VERSION: lambda desk, good: {
        "three numbers": "1.0.0", "five numbers": "1.0.0.0.0", "too large": "1.0.0.65536", "sign": "-1.0.0.0",
        "blank": " 1.0.0.0", "letter": "1.0.0.0a", "gap": "1..0.0", "empty": ""},
    FLAGS: lambda desk, good: {"other digit": "002", "blank": "0 1", "words": "yes", "letters": "00x"},
    DUE: lambda desk, good: {"opposite of another": "valid", "other case": "Due", "empty": "", "longer": "due "},
    VALID: lambda desk, good: {"opposite of another": "ok", "other case": "Valid", "empty": "", "longer": "valid "},
    SUM: lambda desk, good: {"opposite of another": "due", "other case": "OK", "empty": "", "longer": "ok "},
    TEXT: lambda desk, good: {},
}


# Tried with the first command only that takes such a value: there is one judge for each kind.
RARE = {"without a drive", "device form", "drive that is not there", "drive that is no letter", "in a missing folder",
        "existing folder", "existing link", "no ending", "ending only inside", "underscore", "longer",
        "with a fraction", "words", "blank behind", "sign", "gap"}


def bad_calls(desk, command):
    """{what is wrong: words}, each one value away from those that pass."""
    calls = {}
    good = command.good(desk)
    for place, (name, kind) in enumerate(command.kinds()):
        is_first = command is next(one for one in COMMANDS if kind in [each for _, each in one.kinds()])
        for wrong, value in BAD[kind](desk, good[place]).items():
            if is_first or wrong not in RARE:
                calls[f"{name}: {wrong}"] = desk.words(command, **{f"at{place}": value})
    return calls


def test_table_here_is_the_documented_one():
    rows = re.findall(r"^\| `(--[^`]*)` \| ([^|]*) \|", DOCUMENT.read_text(encoding="utf-8"), re.MULTILINE)
    documented = [(form, counts) for form, counts in rows if re.match(r"\d", counts)]
    assert documented == [one.document_row for one in COMMANDS]


@pytest.mark.parametrize("command", COMMANDS, ids=str)
def test_good_values_pass(desk, command):
    desk.add_roots(command)
    before = desk.everything()
    done = desk.tell(*desk.words(command))
    assert done.code == 0
    assert re.fullmatch(command.output, done.output), done.output
    assert done.run.app is None
    changed = {path for path, content in desk.everything().items() if before.get(path, b"?") != content}
    roots = {"/".join(path.split("/")[:2]) for path in changed}
    assert roots == {f"desk/{name}" for name in command.makes}


@pytest.mark.parametrize("command", REFUSING, ids=str)
def test_bad_value_is_refused_before_anything_is_done(lab, desk, command):
    """The exit code of 32 bits is looked at once for each command; it comes from one place for all values."""
    desk.add_roots(command)
    before = desk.everything()
    calls = bad_calls(desk, command)
    answers = together(lambda words: desk.call(*words), calls.values(), WORKERS)
    seen = {wrong: (answer.code, answer.output) for wrong, answer in zip(calls, answers)}
    assert seen == {wrong: (command.refusal & 0xFF, b"") for wrong in calls}
    first = desk.tell(*next(iter(calls.values())))
    assert (first.code, first.output, first.run.app, first.run.windows) == (command.refusal, b"", None, [])
    assert desk.everything() == before
    assert lab.requests == []


def test_word_that_is_no_verdict_passes_for_neither(desk):
    """The table's good values make the first word right; here the second one is."""
    now = {"schemaVersion": 1, "lastAttemptUnix": int(time.time())}
    (desk.folder / "fresh.json").write_text(json.dumps(now))
    (desk.folder / "broken.json").write_bytes(b"{}")
    calls = {}
    for right, refusal, words in (
        ("not-due", 30, ["--launcher-update-schedule-self-test", desk.windows("fresh.json"), "15"]),
        ("invalid", 35, ["--launcher-update-production-manifest-self-test", desk.windows("broken.json")]),
        ("overflow", 38, ["--launcher-update-aggregate-self-test", "18446744073709551615", "1"]),
    ):
        calls |= {(*words, word): refusal for word in (right.upper(), right[:-1], right + " ", "no", "", "0")}
        calls[(*words, right)] = 0
    answers = together(lambda words: desk.call(*words), calls, WORKERS)
    assert {words: answer.code for words, answer in zip(calls, answers)} == calls


def test_every_value_of_every_command_is_tried():
    """What is not tried here takes any text."""
    untried = {name for one in COMMANDS for name, kind in one.kinds() if kind is TEXT}
    assert untried == {"url", "backup", "url1", "backup1", "url2", "backup2", "sha256", "priority", "bullets",
                       "expected title or --none", "expected priority", "first", "second", "ms"}


def test_values_have_more_than_one_form(desk):
    """Forms that only look unusual."""
    manifest, state = desk.windows("manifest.json"), desk.windows("state.json")
    slashes = manifest.replace("\\", "/")
    calls = [
        ["--launcher-release-notes-self-test", slashes, "en", TITLE],
        ["--launcher-release-notes-self-test", manifest.lower(), "en", TITLE],
        ["--launcher-update-production-manifest-self-test", slashes.replace("C:", "c:"), "valid"],
        ["--launcher-update-schedule-self-test", state, "0015", "due"],
        ["--launcher-update-schedule-self-test", state, "2147483647", "not-due"],
        ["--launcher-update-schedule-self-test", state, "1", "due"],
        ["--launcher-update-aggregate-self-test", "0000000000000000000000001", "18446744073709551615", "overflow"],
        ["--launcher-repair-ui-screenshot", "ja", desk.windows("capitals.BMP"), "0.00.65535.065535"],
        ["--launcher-failure-handoff-self-test", "ja", desk.windows("no/such/folder").replace("\\", "/")],
    ]
    answers = together(lambda words: desk.call(*words), calls, WORKERS)
    assert [answer.code for answer in answers] == [0] * len(calls)


def test_language_is_known_in_any_letter_case(desk):
    odd = itertools.cycle(["EN", "zh-tw", "ZH-CN", "JA", "Ko"])
    calls = {}
    for one in WITH_LANGUAGE:
        place = [kind for _, kind in one.kinds()].index(LANGUAGE)
        calls[one.switch] = desk.words(one, **{f"at{place}": next(odd)})
    for tag in TAGS:
        calls[f"notes {tag}"] = desk.words(BY_SWITCH["--launcher-release-notes-self-test"], at1=tag.swapcase())
    answers = together(lambda words: desk.call(*words), calls.values(), WORKERS)
    assert {name: answer.code for name, answer in zip(calls, answers)} == dict.fromkeys(calls, 0)


def test_lines_reach_a_pipe_or_a_file_and_need_neither(desk):
    switch = "--launcher-download-contract-self-test"
    words = [os.environ["WINE"], str(desk.tree.launcher), switch]
    into_file = desk.folder / "output"
    with open(into_file, "wb") as output:
        codes = [subprocess.run(words, stdin=subprocess.DEVNULL, stdout=output).returncode]
    codes.append(subprocess.run(words, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL).returncode)
    codes.append(subprocess.run(words, stdin=subprocess.DEVNULL, preexec_fn=lambda: os.close(1)).returncode)
    piped = desk.call(switch)
    assert [*codes, piped.code] == [0, 0, 0, 0]
    assert piped.output == into_file.read_bytes() and re.fullmatch(BY_SWITCH[switch].output, piped.output)


# When it is no command.


def forwarded(desk, numbered_words):
    """The arguments that the application got from a run that started it and said nothing; None from any other run."""
    number, words = numbered_words
    report = desk.lab.folder / f"app{number}.json"
    answer = desk.call(*words, env={"VPR_SAMPLE_REPORT": desk.lab.windows_path(report)})
    if answer.code != 0:
        return f"exit code {answer.code}"
    if answer.output:
        return answer.output
    wait_until(report.exists, f"the application, started with {words}")
    return json.loads(report.read_text(encoding="utf-8"))["args"]


def assert_all_forwarded(desk, calls):
    before = {path: content for path, content in desk.everything().items() if path.startswith("desk/")}
    assert together(lambda each: forwarded(desk, each), list(enumerate(calls)), WORKERS) == calls
    after = {path: content for path, content in desk.everything().items() if path.startswith("desk/")}
    assert after == before
    assert desk.lab.requests == []


def wrong_counts(command):
    """Numbers of values next to those that it takes."""
    counts = set(command.counts)
    near = {count + step for count in counts for step in (-1, 1)}
    return sorted(count for count in near - counts if 0 <= count < (max(counts) if command.endless else 99))


def test_wrong_number_of_values_makes_a_normal_run(desk):
    calls = []
    for one in COMMANDS:
        values = one.good(desk) + ["one more", "and one more"]
        calls += [[one.switch, *values[:count]] for count in wrong_counts(one)]
    tried = {(words[0], len(words) + 1) for words in calls}
    assert ("--launcher-failure-handoff-self-test", 3) in tried and len(tried) >= 2 * len(COMMANDS) - 5
    assert_all_forwarded(desk, calls)


def test_switch_elsewhere_or_otherwise_written_is_an_argument_like_any_other(desk):
    """All that follows it is handed on as well, whether or not it would have been good."""
    calls = [["first", *desk.words(one)] for one in COMMANDS]
    alone = "--launcher-self-test"
    calls += [["", alone], [alone + " "], [alone.upper()], ["--Launcher-self-test"], [alone[1:]], [alone + "=1"],
              ["--launcher-none-self-test"]]
    assert_all_forwarded(desk, calls)


def test_normal_switches_before_a_command_take_its_place_away(desk):
    report = desk.lab.folder / "app.json"
    done = desk.call("--skip-update-check", "--launcher-self-test",
                     env={"VPR_SAMPLE_REPORT": desk.lab.windows_path(report)})
    assert (done.code, done.output) == (0, b"")
    wait_until(report.exists, "the application")
    assert json.loads(report.read_text(encoding="utf-8"))["args"] == ["--launcher-self-test"]


# What good values can still meet.


def test_pictures_that_cannot_be_made(desk):
    """Each exit code of the three commands that draw."""
    manifest = desk.windows("manifest.json")
    (desk.folder / "broken.json").write_bytes(b"{}")
    broken, lost, picture = desk.windows("broken.json"), desk.windows("missing\\new.bmp"), desk.windows("new.bmp")
    prompt, progress, repair = (f"--launcher-{name}-ui-screenshot" for name in ("update", "update-progress", "repair"))
    cases = [
        (32, [prompt, broken, "en", picture]),
        (32, [progress, broken, "en", picture, VERSION, "1", "2"]),
        (34, [prompt, manifest, "en", lost, VERSION]),
        (34, [progress, manifest, "en", lost, VERSION, "1", "2"]),
        (34, [repair, "en", lost, VERSION]),
        (35, [progress, manifest, "en", picture, VERSION, "2", "1"]),
        (35, [progress, manifest, "en", picture, VERSION, "1", "0"]),
    ]
    before = desk.everything()
    done = together(lambda case: desk.tell(*case[1]), cases, WORKERS)
    assert [each.code for each in done] == [code for code, _ in cases]
    assert [each.output for each in done] == [b""] * len(cases)
    assert desk.everything() == before


def test_optional_values_may_all_be_left_out(desk):
    manifest = desk.windows("manifest.json")
    cases = [
        ["--launcher-failure-handoff-self-test"],
        ["--launcher-update-schedule-self-test", desk.windows("state.json"), "15", "due"],
        ["--launcher-release-notes-self-test", manifest, "en", TITLE],
        ["--launcher-update-ui-screenshot", manifest, "en", desk.windows("prompt.bmp")],
    ]
    done = together(lambda words: desk.call(*words), cases, WORKERS)
    assert [each.code for each in done] == [0] * len(cases)
    assert (desk.folder / "prompt.bmp").read_bytes().startswith(b"BM")


def test_handoff_leaves_pictures_that_exist_alone(desk):
    folder = desk.folder / "folder"
    (folder / "failure-hover.bmp").write_bytes(b"somebody's picture")
    done = desk.tell("--launcher-failure-handoff-self-test", "en", desk.windows("folder"))
    assert (done.code, done.output) == (1311, b"")
    assert (folder / "failure-hover.bmp").read_bytes() == b"somebody's picture"

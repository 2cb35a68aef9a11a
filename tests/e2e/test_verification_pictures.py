"""The verification commands that make windows: what their pictures show, pixel by pixel, and what they print.

Places and colours are those of the window at 96 dpi, written down here once more. The pictures need no screen: the same
tests hold in a lab with a display.
"""

import dataclasses
import itertools
import os
import re
import struct
import subprocess

import pytest

from lab import note, notes, update

HANDOFF = "--launcher-failure-handoff-self-test"
PROMPT = "--launcher-update-ui-screenshot"
PROGRESS = "--launcher-update-progress-ui-screenshot"
REPAIR = "--launcher-repair-ui-screenshot"
VIEW = "--launcher-verification-progress-self-test"
MODEL = "--launcher-update-progress-model-self-test"
CONTRACT = "--launcher-download-contract-self-test"
RESPONSIVE = "--launcher-update-responsive-self-test"

LANGUAGES = ["en", "zh-TW", "zh-CN", "ja", "ko"]
INSTALLED, OFFERED = "1.0.0.0", "1.1.0.0"

GROUND, PANEL, RULE, FRAME = 0x0F1318, 0x0B1118, 0x283A49, 0x2B3E4F
STRONG, QUIET, LINK = 0xF4F7FA, 0xA9B4C2, 0x6FAED5
ARROW, NEW = 0x668BA8, 0x91D2FA
TRACK, WORKING, FAILED = 0x2A333F, 0x2997FF, 0xE85454
BUTTON, BUTTON_HOVER, BUTTON_EDGE, UPDATE_BUTTON = 0x151E27, 0x2A343F, 0x40566A, 0x1D6B9B

# x, y, width, height.
LARGE = {
    "title": (102, 47, 370, 30), "status": (102, 82, 360, 24), "badge": (527, 58, 181, 39),
    "heading": (52, 142, 320, 26), "hint": (548, 145, 160, 22), "panel": (53, 177, 654, 290),
    "notice": (79, 484, 560, 24), "link": (52, 515, 220, 40),
    "later": (498, 515, 88, 40), "update": (598, 515, 110, 40),
    "progress": (52, 484, 390, 24), "detail": (448, 484, 260, 24), "bar": (52, 510, 656, 8),
    "footer": (52, 526, 418, 48), "cancel": (492, 528, 216, 32), "close": (620, 528, 88, 32),
    "icon": (52, 48, 36, 36), "rule": (52, 126, 656, 1), "frame": (52, 176, 656, 292), "check": (52, 486, 18, 18),
}
COMPACT = {
    "title": (24, 18, 410, 28), "version": (24, 53, 410, 22), "status": (24, 80, 410, 22), "bar": (24, 112, 410, 10),
}
ALWAYS = ["title", "status", "heading", "hint", "panel", "icon", "rule", "frame"]
IN_PROMPT = [*ALWAYS, "badge", "notice", "check", "later", "update"]
IN_PROGRESS = [*ALWAYS, "badge", "progress", "detail", "bar", "footer", "cancel"]
IN_FAILURE = [*ALWAYS, "progress", "bar", "footer"]
INK = {"title": STRONG, "heading": STRONG, "progress": STRONG}  # of texts; all others are quiet
WINDOW_SIZE = {"large": (780, 620), "compact": (470, 176)}  # the frame included


# Pictures.


def bytes_of(colour):
    return colour.to_bytes(3, "little")


class Bitmap:
    """A file of 24 bits to a pixel, read by the letter of the format."""

    def __init__(self, path):
        data = path.read_bytes()
        kind, size, reserved, start = struct.unpack_from("<2sIII", data)
        header, self.width, self.height, planes, bits, compression, image = struct.unpack_from("<IiiHHII", data, 14)
        stride = (self.width * 3 + 3) // 4 * 4
        assert (kind, size, reserved, start, header) == (b"BM", len(data), 0, 54, 40)
        assert (planes, bits, compression, image) == (1, 24, 0, stride * self.height)
        assert len(data) == 54 + image
        lines = [data[start + stride * y : start + stride * y + self.width * 3] for y in range(self.height)]
        self.rows = lines[::-1]

    @property
    def size(self):
        return self.width, self.height

    def line(self, x, y, width):
        return self.rows[y][3 * x : 3 * (x + width)]

    def at(self, x, y):
        return int.from_bytes(self.line(x, y, 1), "little")

    def area(self, place):
        x, y, width, height = place
        return [self.line(x, row, width) for row in range(y, y + height)]

    def colours(self, place):
        """{colour: pixels} of an area."""
        counts = {}
        for line in self.area(place):
            for at in range(0, len(line), 3):
                counts[line[at : at + 3]] = counts.get(line[at : at + 3], 0) + 1
        return {int.from_bytes(colour, "little"): count for colour, count in counts.items()}

    def is_plain(self, place, colour=GROUND):
        return all(line == bytes_of(colour) * place[2] for line in self.area(place))

    def assert_bare_outside(self, places):
        """Whatever no place covers shows the window's ground."""
        for y in range(self.height):
            covered = sorted((x, x + width) for x, top, width, height in places if top <= y < top + height)
            at = 0
            for left, right in [*covered, (self.width, self.width)]:
                if left > at:
                    assert self.is_plain((at, y, left - at, 1)), f"row {y}, from {at} to {left}"
                at = max(at, right)


def difference(one, other, above=None):
    """The smallest place around all pixels that differ, of those above a row: left, top, right, bottom."""
    assert one.size == other.size
    rows = [y for y in range(one.height if above is None else above) if one.rows[y] != other.rows[y]]
    columns = [x for y in rows for x in range(one.width) if one.line(x, y, 1) != other.line(x, y, 1)]
    return (min(columns), rows[0], max(columns) + 1, rows[-1] + 1) if rows else None


def lies_in(box, place):
    x, y, width, height = place
    return box is not None and x <= box[0] and y <= box[1] and box[2] <= x + width and box[3] <= y + height


def assert_text(picture, place, ink, ground=GROUND):
    """Nothing but a text of that colour stands there, its edges smoothed into the ground."""
    colours = picture.colours(place)
    strongest = tuple(max(bytes_of(colour)[at] for colour in colours) for at in range(3))
    assert strongest == tuple(bytes_of(ink)), f"{place}: ink {strongest}"
    assert colours[ground] > sum(colours.values()) // 2, f"{place}: more ink than paper"
    for colour in colours:
        assert all(low <= at <= high for low, at, high in zip(bytes_of(ground), bytes_of(colour), bytes_of(ink)))


def assert_begins_at(picture, place, tolerance=3):
    """The text stands at the left edge of its place, or goes up to the right edge if it is aligned so."""
    x, y, width, height = place
    columns = [at for at in range(width) if not picture.is_plain((x + at, y, 1, height))]
    assert columns and columns[0] <= tolerance, f"{place}: begins at {columns[:1]}"


def assert_ends_at(picture, place, tolerance=3):
    x, y, width, height = place
    columns = [at for at in range(width) if not picture.is_plain((x + at, y, 1, height))]
    assert columns and columns[-1] >= width - 1 - tolerance, f"{place}: ends at {columns[-1:]}"


def assert_texts(picture, places, names):
    for name in names:
        assert_text(picture, places[name], INK.get(name, QUIET))
        (assert_ends_at if name in ("hint", "detail") else assert_begins_at)(picture, places[name])


def assert_button(picture, place, face, ink=STRONG):
    """A face with an edge around it and a text on it."""
    x, y, width, height = place
    colours = picture.colours(place)
    assert colours[face] > width * height // 2
    assert max(colours) >= ink and colours.get(ink, 0) > 0
    assert picture.at(x + width // 2, y) == (face if face == UPDATE_BUTTON else BUTTON_EDGE)


def assert_bar(picture, place, filled, colour=WORKING):
    """`filled` pixels inside the track have the colour, from the left and without a gap; the rest is empty track."""
    x, y, width, height = place
    inside = width - 2
    for row in range(y + 2, y + height - 2):
        assert picture.line(x + 1, row, inside) == bytes_of(colour) * filled + bytes_of(TRACK) * (inside - filled)


def percent_pixels(percent, width=654):
    """`MulDiv`: to the nearest, a half upwards."""
    return (width * percent * 2 + 100) // 200


def assert_large_ground(picture):
    assert picture.is_plain(LARGE["rule"], RULE)
    x, y, width, height = LARGE["frame"]
    for place in [(x, y, width, 1), (x, y + height - 1, width, 1), (x, y, 1, height), (x + width - 1, y, 1, height)]:
        assert picture.is_plain(place, FRAME)
    assert len(picture.colours(LARGE["icon"])) > 10, "no icon"


CARD = (67, 191, 626, 58)  # the uppermost of the panel, one line high


def assert_cards(picture, count):
    """So many cards, one below the other, each with a text, and nothing but the panel's ground between them."""
    left, top, width, height = CARD
    for card in range(count):
        y = top + card * (height + 10)
        assert not picture.is_plain((left, y, width, 1), PANEL)
        assert len(picture.colours((left + 18, y + 14, width - 36, height - 28))) > 5, f"card {card} is empty"
        assert picture.is_plain((left, y + height, width, 10), PANEL)
    x, y, _, panel = LARGE["panel"]
    below = top + count * (height + 10)
    assert picture.is_plain((x, below, left + width - x, y + panel - below), PANEL)


# Runs.


@dataclasses.dataclass
class Told:
    exit_code: int
    output: bytes
    result: object


class Bench:
    """Runs many commands at once and keeps what each printed, byte for byte."""

    def __init__(self, lab, tree):
        self.lab, self.tree = lab, tree
        self.manifest = self.publishable(OFFERED)

    def publishable(self, version, **options):
        """The path of a manifest with three cards."""
        text = notes(note("en", "Quieter starts.", ["The first sound.", "Theme “Dawn”."], ["Theme “Dawn”."]))
        release = update(version, notes=text, **options)
        path = self.lab.folder / f"stable-{len(list(self.lab.folder.glob('stable-*')))}.json"
        path.write_bytes(release.manifest())
        return self.lab.windows_path(path)

    def file(self, name):
        return self.lab.folder / name

    def place(self, name):
        return self.lab.windows_path(self.file(name))

    def start(self, *args):
        before = set(self.lab.folder.glob("run*"))
        run = self.lab.start(self.tree, args, ["wait"] * 12, strict=False)  # no window is for the driver to close
        (folder,) = set(self.lab.folder.glob("run*")) - before
        return run, folder

    def wait(self, started):
        run, folder = started
        result = run.wait()
        assert result.started and not result.timed_out, result
        assert result.app is None, "an application was started"
        return Told(result.exit_code, (folder / "output").read_bytes(), result)

    def run(self, *args):
        return self.wait(self.start(*args))

    def run_all(self, commands):
        """{key: Told} for {key: arguments}."""
        started = {key: self.start(*args) for key, args in commands.items()}
        return {key: self.wait(one) for key, one in started.items()}

    def pictures(self, commands):
        """{key: Bitmap} for {key: arguments with None where the bitmap's path belongs}."""
        files = {key: self.file(f"picture-{number}.bmp") for number, key in enumerate(commands)}
        told = self.run_all({
            key: [self.lab.windows_path(files[key]) if arg is None else arg for arg in args]
            for key, args in commands.items()
        })
        assert {key: (one.exit_code, one.output) for key, one in told.items()} == dict.fromkeys(commands, (0, b""))
        return {key: Bitmap(file) for key, file in files.items()}


@pytest.fixture
def bench(lab, tree):
    return Bench(lab, tree)


def frame_of(result):
    """What Wine's frame adds to the client area, as the driver saw it: width and height."""
    window = next(window for window in result.windows if window.view == "compact")
    outer, inner = window.place, window.inside
    return (outer[2] - outer[0]) - (inner[2] - inner[0]), (outer[3] - outer[1]) - (inner[3] - inner[1])


def pairwise_different(pictures, place):
    """For texts that no two languages share; the two Chinese ones have some in common."""
    for one, other in itertools.combinations(pictures, 2):
        assert pictures[one].area(place) != pictures[other].area(place), f"{one} and {other} look alike at {place}"


# The prompt.


def test_prompt_in_every_language(bench):
    pictures = bench.pictures({tag: [PROMPT, bench.manifest, tag, None, INSTALLED] for tag in LANGUAGES})
    for picture in pictures.values():
        picture.assert_bare_outside([LARGE[name] for name in IN_PROMPT])
        assert_large_ground(picture)
        assert_texts(picture, LARGE, ["title", "status", "heading", "hint", "notice"])
        assert_cards(picture, 3)
        assert_button(picture, LARGE["later"], BUTTON)
        assert_button(picture, LARGE["update"], UPDATE_BUTTON)
        assert picture.is_plain(LARGE["link"]), "a link without an address"
    for name in ("hint", "notice", "later"):
        pairwise_different(pictures, LARGE[name])
    english = pictures["en"]
    assert all(picture.area(LARGE["title"]) == english.area(LARGE["title"]) for picture in pictures.values())


def test_prompts_versions_are_the_installed_and_the_offered_one(bench):
    later = bench.publishable("1.1.0.8")
    pictures = bench.pictures({
        "plain": [PROMPT, bench.manifest, "en", None, INSTALLED],
        "installed": [PROMPT, bench.manifest, "en", None, "1.0.0.8"],
        "offered": [PROMPT, later, "en", None, INSTALLED],
        "unknown": [PROMPT, bench.manifest, "en", None],
    })
    x, y, width, height = LARGE["badge"]
    installed, offered = (x + 5, y, 62, height), (x + 103, y, width - 105, height)
    plain = pictures["plain"]
    assert_text(plain, installed, QUIET)
    assert_text(plain, (x + 71, y, 26, height), ARROW)
    assert_text(plain, offered, NEW)
    assert lies_in(difference(plain, pictures["installed"]), installed)
    assert lies_in(difference(plain, pictures["offered"]), offered)
    assert lies_in(difference(plain, pictures["unknown"]), installed)


def test_prompt_shows_the_link_and_the_priority_of_its_manifest(bench):
    linked = bench.publishable(OFFERED, notes_url="https://notes.example/1.1.0.0")
    hotfix = bench.publishable(OFFERED, priority="hotfix")
    pictures = bench.pictures({
        "plain": [PROMPT, bench.manifest, "en", None, INSTALLED],
        "linked": [PROMPT, linked, "en", None, INSTALLED],
        "hotfix": [PROMPT, hotfix, "en", None, INSTALLED],
    })
    assert_text(pictures["linked"], LARGE["link"], LINK)
    assert lies_in(difference(pictures["plain"], pictures["linked"]), LARGE["link"])
    assert lies_in(difference(pictures["plain"], pictures["hotfix"]), LARGE["status"])


# The progress view.


def test_progress_in_every_language(bench):
    pictures = bench.pictures({
        tag: [PROGRESS, bench.manifest, tag, None, INSTALLED, "53", "100"] for tag in LANGUAGES
    })
    for picture in pictures.values():
        picture.assert_bare_outside([LARGE[name] for name in IN_PROGRESS])
        assert_large_ground(picture)
        assert_texts(picture, LARGE, ["title", "status", "heading", "hint", "progress", "detail", "footer"])
        assert_cards(picture, 3)
        assert_button(picture, LARGE["cancel"], BUTTON)
        assert_bar(picture, LARGE["bar"], percent_pixels(53))
    for name in ("hint", "progress", "footer", "cancel"):
        pairwise_different(pictures, LARGE[name])


@pytest.mark.parametrize("figures", [
    {("0", "7"): 0, ("1", "3"): 33, ("25", "100"): 25, ("999", "1000"): 99, ("7", "7"): 100},
    {("18446744073709551614", "18446744073709551615"): 100, ("1", "18446744073709551615"): 0, ("1", "200"): 0,
     ("2999999999", "6000000000"): 49, ("3000000000", "6000000000"): 50},
], ids=["small", "large"])
def test_bar_is_filled_to_its_percentage(bench, figures):
    """Whole percentages of double precision, rounded down; 2^64 - 2 of 2^64 - 1 is no different from all of it."""
    pictures = bench.pictures({
        pair: [PROGRESS, bench.manifest, "en", None, INSTALLED, *pair] for pair in figures
    })
    for pair, percent in figures.items():
        assert_bar(pictures[pair], LARGE["bar"], percent_pixels(percent))
        assert_text(pictures[pair], LARGE["detail"], QUIET)


def test_progress_of_nothing_shows_no_number(bench):
    (picture,) = bench.pictures({"nothing": [PROGRESS, bench.manifest, "en", None, INSTALLED, "0", "0"]}).values()
    assert picture.is_plain(LARGE["detail"]), "a number that nobody knows"
    assert_moving_bar(picture, LARGE["bar"])


def assert_moving_bar(picture, place):
    """At most one segment of colour, somewhere in an empty track."""
    x, y, width, height = place
    row = [picture.at(at, y + height // 2) for at in range(x + 1, x + width - 1)]
    assert set(row) <= {TRACK, WORKING}
    segments = [colour for colour, _ in itertools.groupby(row)]
    assert segments.count(WORKING) <= 1
    assert row.count(WORKING) <= max(34, (width - 2) // 4)


# The repair.


def test_repair_in_every_language(bench):
    pictures = bench.pictures({tag: [REPAIR, tag, None, INSTALLED] for tag in LANGUAGES})
    for picture in pictures.values():
        picture.assert_bare_outside(COMPACT.values())
        assert_texts(picture, COMPACT, ["title", "version", "status"])
        assert_moving_bar(picture, COMPACT["bar"])
    for name in ("version", "status"):
        pairwise_different(pictures, COMPACT[name])


def test_repair_shows_its_version(bench):
    pictures = bench.pictures({version: [REPAIR, "en", None, version] for version in (INSTALLED, "1.0.0.8")})
    # The bar may have moved.
    assert lies_in(difference(*pictures.values(), above=COMPACT["bar"][1]), COMPACT["version"])


# The failure views.


def test_handoff_in_every_language(bench):
    folders = {tag: bench.file(f"failures-{tag}") for tag in LANGUAGES}
    for folder in folders.values():
        folder.mkdir()
    told = bench.run_all({tag: [HANDOFF, tag, bench.place(f"failures-{tag}")] for tag in LANGUAGES})
    assert {one.exit_code for one in told.values()} == {0}
    assert {one.output for one in told.values()} == {HANDOFF_LINE}
    views = {"inline": {}, "hover": {}, "safe": {}}
    for tag, folder in folders.items():
        assert {file.name for file in folder.iterdir()} == {f"failure-{view}.bmp" for view in views}
        for view, pictures in views.items():
            pictures[tag] = Bitmap(folder / f"failure-{view}.bmp")
    for tag in LANGUAGES:
        assert_blocking_failure(views["inline"][tag], BUTTON)
        assert_blocking_failure(views["hover"][tag], BUTTON_HOVER)
        assert lies_in(difference(views["inline"][tag], views["hover"][tag]), LARGE["close"])
        assert_safe_failure(views["safe"][tag])
    for name in ("status", "hint", "progress", "footer", "panel"):
        pairwise_different(views["inline"], LARGE[name])
        pairwise_different(views["safe"], LARGE[name])
    pairwise_different(views["inline"], LARGE["close"])


def assert_failure(picture):
    assert_large_ground(picture)
    assert_texts(picture, LARGE, ["title", "status", "heading", "hint", "progress", "footer"])
    assert_cards(picture, 2)
    assert_bar(picture, LARGE["bar"], 654, FAILED)
    assert picture.is_plain(LARGE["badge"]) and picture.is_plain(LARGE["detail"])


def assert_blocking_failure(picture, face):
    picture.assert_bare_outside([LARGE[name] for name in [*IN_FAILURE, "close"]])
    assert_failure(picture)
    assert_button(picture, LARGE["close"], face)


def assert_safe_failure(picture):
    picture.assert_bare_outside([LARGE[name] for name in IN_FAILURE])
    assert_failure(picture)
    assert picture.is_plain(LARGE["close"])


def test_handoff_needs_no_folder(bench):
    told = bench.run_all({"none": [HANDOFF], "absent": [HANDOFF, "ko", bench.place("absent")]})
    assert {(one.exit_code, one.output) for one in told.values()} == {(0, HANDOFF_LINE)}
    assert not bench.file("absent").exists()


# The verification view.


def test_verification_view_in_every_language(bench):
    files = {tag: bench.file(f"view-{tag}.bmp") for tag in LANGUAGES}
    told = bench.run_all({tag: [VIEW, tag, bench.lab.windows_path(file)] for tag, file in files.items()})
    pictures = {tag: Bitmap(file) for tag, file in files.items()}
    for tag, one in told.items():
        assert one.exit_code == 0, one
        assert_view_line(one.output)
        pictures[tag].assert_bare_outside(COMPACT.values())
        assert_texts(pictures[tag], COMPACT, ["title", "version", "status"])
        assert_bar(pictures[tag], COMPACT["bar"], 408)
    for name in ("version", "status"):
        pairwise_different(pictures, COMPACT[name])


# The files.


def test_pictures_are_the_client_area_and_other_programs_read_them(bench):
    view = bench.start(VIEW, "en")
    pictures = {
        "compact": [REPAIR, "en", None, INSTALLED],
        "large": [PROMPT, bench.manifest, "en", None, INSTALLED],
    }
    taken = bench.pictures(pictures)
    width, height = frame_of(bench.wait(view).result)
    assert 0 < width < 40 and 0 < height < 80
    for kind, picture in taken.items():
        outer = WINDOW_SIZE[kind]
        assert picture.size == (outer[0] - width, outer[1] - height)
    told = subprocess.run(
        ["convert", bench.file("picture-1.bmp"), "-alpha", "off", "-depth", "8", "-format",
         "%m %w %h %[hex:u.p{0,0}] %[hex:u.p{60,126}] %[hex:u.p{650,520}]", "info:"],
        check=True, capture_output=True, text=True).stdout.split()
    large = taken["large"]
    assert told[0].startswith("BMP") and told[1:3] == [str(large.width), str(large.height)]
    assert [int(colour, 16) for colour in told[3:]] == [large.at(0, 0), large.at(60, 126), large.at(650, 520)]
    assert [int(colour, 16) for colour in told[3:5]] == [GROUND, RULE]


def test_picture_that_stands_there_already_is_refused_and_untouched(bench):
    occupied, picture = bench.file("occupied.bmp"), bench.file("picture.bmp")
    occupied.write_bytes(b"mine")
    folder = bench.file("failures")
    folder.mkdir()
    (folder / "failure-hover.bmp").write_bytes(b"mine")
    path = bench.place("occupied.bmp")
    told = bench.run_all({
        "prompt": [PROMPT, bench.manifest, "en", path, INSTALLED],
        "progress": [PROGRESS, bench.manifest, "en", path, INSTALLED, "1", "2"],
        "repair": [REPAIR, "en", path, INSTALLED],
        "view": [VIEW, "en", path],
        "handoff": [HANDOFF, "en", bench.place("failures")],
        "other extension": [REPAIR, "en", bench.place("picture.png"), INSTALLED],
        "relative": [REPAIR, "en", "picture.bmp", INSTALLED],
        "no such language": [REPAIR, "fr", bench.place("picture.bmp"), INSTALLED],
        "more than all": [PROGRESS, bench.manifest, "en", bench.place("picture.bmp"), INSTALLED, "3", "2"],
    })
    codes = {key: one.exit_code for key, one in told.items()}
    assert codes == {**dict.fromkeys(told, 35), "view": 43, "handoff": 1311}
    assert {one.output for one in told.values()} == {b""}
    assert occupied.read_bytes() == b"mine" and (folder / "failure-hover.bmp").read_bytes() == b"mine"
    assert not picture.exists() and not bench.file("picture.png").exists()


def test_unreadable_notes_make_no_picture(bench):
    broken = bench.file("broken.json")
    broken.write_text("{}")
    told = bench.run_all({
        "prompt": [PROMPT, bench.place("broken.json"), "en", bench.place("prompt.bmp")],
        "progress": [PROGRESS, bench.place("broken.json"), "en", bench.place("progress.bmp"), INSTALLED, "1", "2"],
        "absent": [PROMPT, bench.place("absent.json"), "en", bench.place("prompt.bmp")],
    })
    assert {key: one.exit_code for key, one in told.items()} == {"prompt": 32, "progress": 32, "absent": 35}
    assert not list(bench.lab.folder.glob("*.bmp"))


# What is printed.

HANDOFF_LINE = (b"LAUNCHER_FAILURE_HANDOFF_PASS safe_nonmodal=1 unsafe_blocked=1 inline_no_dialog=1 byte_units=1 "
                b"stall_clears_speed=1\n")
MODEL_LINE = (b"UPDATE_PROGRESS_MODEL phase_changes=1 multiple_assets=1 unknown_total=1 stale_events=1 extraction=1 "
              b"per_file_verification=1 no_transfer_install=1 cancel_terminal=1 mixed_total=1 passed=1\n")
CONTRACT_LINE = re.compile(rb"LAUNCHER_DOWNLOAD_CONTRACT_PASS checks=([1-9][0-9]*)\n")
VIEW_LINE = re.compile(rb"VERIFICATION_UI attempted=(\d+) updates=(\d+) intermediate=(\d+) progress_paints=(\d+) "
                       rb"window_paints=(\d+) owner_thread=(\d+) final_percent=(\d+) passed=(\d+)\n")


def assert_view_line(output):
    line = VIEW_LINE.fullmatch(output)
    assert line, output
    assert all(number == b"0" or not number.startswith(b"0") for number in line.groups()), output
    attempted, updates, intermediate, progress_paints, *rest = map(int, line.groups())
    assert attempted >= 2000 and 6 <= updates <= 35 and 4 <= intermediate <= updates and progress_paints >= 3, output
    assert rest == [0, 1, 100, 1], output


def test_lines_are_printed_byte_for_byte(bench):
    told = bench.run_all({"model": [MODEL], "contract": [CONTRACT], "handoff": [HANDOFF], "responsive": [RESPONSIVE],
                          "view": [VIEW, "en"]})
    assert {one.exit_code for one in told.values()} == {0}
    assert told["model"].output == MODEL_LINE
    assert CONTRACT_LINE.fullmatch(told["contract"].output), told["contract"].output
    assert told["handoff"].output == HANDOFF_LINE
    assert told["responsive"].output == b""
    assert_view_line(told["view"].output)


def test_wrong_count_of_arguments_is_a_normal_run(bench):
    run, _ = bench.start(MODEL, "--skip-update-check")
    result = run.wait()
    assert (result.exit_code, result.output, result.app.args) == (0, b"", [MODEL])


OUTPUTS = {
    "pipe": {"stdout": subprocess.PIPE},
    "null device": {"stdout": subprocess.DEVNULL},
    "none": {"preexec_fn": lambda: os.close(1)},
}


@pytest.mark.parametrize("kind", OUTPUTS)
def test_commands_end_alike_whoever_listens(bench, kind):
    """Started without the driver, so the exit code is its lowest eight bits."""
    commands = {"model": [MODEL], "contract": [CONTRACT], "handoff": [HANDOFF], "refused": [REPAIR, "fr", "x", "y"]}
    started = {
        key: subprocess.Popen([os.environ["WINE"], str(bench.tree.launcher), *args], stdin=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, **OUTPUTS[kind])
        for key, args in commands.items()
    }
    told = {key: process.communicate(timeout=180)[0] for key, process in started.items()}
    assert {key: process.returncode for key, process in started.items()} == {
        "model": 0, "contract": 0, "handoff": 0, "refused": 35,
    }
    if kind == "pipe":
        assert (told["model"], told["handoff"], told["refused"]) == (MODEL_LINE, HANDOFF_LINE, b"")
        assert CONTRACT_LINE.fullmatch(told["contract"])

"""The shipped file itself: what Windows reads from it before a line of it runs."""

import re
import struct
import subprocess

import pytest

from lab import LAUNCHER, file_version
from lab.programs import read_program

ICON_GROUP, MANIFEST = 14, 24  # RT_GROUP_ICON, RT_MANIFEST
SYSTEM_LIBRARIES = {
    "advapi32.dll", "bcrypt.dll", "comctl32.dll", "gdi32.dll", "kernel32.dll", "msvcrt.dll", "shell32.dll", "shlwapi.dll",
    "user32.dll", "uxtheme.dll", "version.dll", "winhttp.dll",
}


@pytest.fixture(scope="module")
def headers():
    command = ["x86_64-w64-mingw32-objdump", "-p", LAUNCHER]
    return subprocess.run(command, check=True, capture_output=True, text=True, errors="replace").stdout


def resources():
    """{(type, name): bytes} of the resources with numbers for names ("PE Format", .rsrc section)."""
    image = read_program(LAUNCHER)
    (header,) = struct.unpack_from("<I", image, 0x3C)
    sections, optional = struct.unpack_from("<H12xH", image, header + 6)
    table = header + 24 + optional
    rows = [struct.unpack_from("<8sIIII", image, table + 40 * number) for number in range(sections)]
    base, start = next((row[2], row[4]) for row in rows if row[0].rstrip(b"\0") == b".rsrc")

    def entries(offset):
        named, numbered = struct.unpack_from("<HH", image, start + offset + 12)
        for number in range(named + numbered):
            yield struct.unpack_from("<II", image, start + offset + 16 + 8 * number)

    found = {}
    for kind, names in entries(0):
        for name, languages in entries(names & 0x7FFFFFFF):
            for _, leaf in entries(languages & 0x7FFFFFFF):
                address, size = struct.unpack_from("<II", image, start + leaf)
                found[kind, name] = image[start + address - base : start + address - base + size]
    return found


def test_it_needs_nothing_but_windows(headers):
    imported = {name.lower() for name in re.findall(r"DLL Name: (\S+)", headers)}
    assert imported <= SYSTEM_LIBRARIES, imported - SYSTEM_LIBRARIES


def test_it_is_a_64_bit_gui_program(headers):
    assert "pei-x86-64" in headers
    assert re.search(r"^Subsystem\s+00000002", headers, re.MULTILINE), "Windows GUI"


@pytest.mark.parametrize("flag", ["DYNAMIC_BASE", "NX_COMPAT", "HIGH_ENTROPY_VA"])
def test_it_asks_for_the_systems_protection(headers, flag):
    assert flag in headers


def test_it_carries_no_time_stamp(headers):
    """The same sources give the same bytes."""
    assert re.search(r"^Time/Date\s+.*1970", headers, re.MULTILINE)


def test_it_has_icon_101_in_the_usual_sizes():
    group = resources()[ICON_GROUP, 101]
    (count,) = struct.unpack_from("<H", group, 4)
    sizes = {group[6 + 14 * number] or 256 for number in range(count)}
    assert {16, 24, 32, 48, 256} <= sizes


def test_its_manifest_says_how_it_wants_to_be_run():
    text = resources()[MANIFEST, 1].decode("utf-8")
    assert 'name="Microsoft.Windows.Common-Controls" version="6.0.0.0"' in text
    assert ">PerMonitorV2</dpiAwareness>" in text
    assert ">true</longPathAware>" in text
    assert 'level="asInvoker"' in text


def test_its_version_is_the_projects():
    assert file_version(read_program(LAUNCHER)) == "1.0.0.0"

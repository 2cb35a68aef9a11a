#!/usr/bin/env python3
"""check_includes.py: holds the rooms to their arrows. Each room may include itself and what is listed for it:
whole rooms, or single headers of a room whose plain records it takes without ever calling it."""

import pathlib
import re
import sys

ALLOWED = {
    "platform": set(),
    "product": {"platform"},
    "download": {"platform", "product"},
    "update": {"platform", "product", "download"},
    "ui": {"platform", "product", "download/request.h", "download/speed.h", "update/settings.h",
           "update/manifest/release_notes.h"},
    "launcher": {"platform", "product", "download", "update", "ui"},
}
INCLUDE = re.compile(r'^\s*#\s*include\s+"(([^"/]+)/[^"]+)"')


def main():
    top = pathlib.Path(__file__).resolve().parent.parent
    faults = []
    for room, allowed in ALLOWED.items():
        for path in sorted((top / room).rglob("*")):
            if path.suffix not in (".h", ".cpp", ".in"):
                continue
            for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
                match = INCLUDE.match(line)
                if match and match.group(2) != room and allowed.isdisjoint(match.groups()):
                    faults.append(f"{path.relative_to(top)}:{number}: {room}/ may not include {match.group(1)}")
    print("\n".join(faults) or f"includes follow the arrows in {len(ALLOWED)} rooms")
    sys.exit(1 if faults else 0)


main()

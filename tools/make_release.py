#!/usr/bin/python3
"""Makes what a publisher uploads for one release.

    make_release.py --version 1.2.0.0 --minimum-launcher 1.0.0.0 --files NEW --base-url URL --out OUT
                    [--priority normal|recommended|hotfix] [--notes NOTES.json] [--notes-url URL]
                    [--backup-base-url URL] [--package FOLDER]... [--patch-from FOLDER]...

NEW holds the changed files as they lie in an installation, all below "Velmora Pine Relay/". OUT must not exist or be
empty; it receives

    stable.json          the manifest for the primary source
    backup/stable.json   the same release with the backup's addresses, if a backup base URL is given
    upload/...           every file that the manifests name; upload them so that <base URL><name> serves them

A package FOLDER holds package.json ({"id", "version", "capability", "requiredForStartup"}), payload/ with its files and
perhaps runtime-manifest.json. --patch-from names the folder of an earlier version of the same package: a patch archive
with only the changed files is made as well.

NOTES.json is the manifest's "releaseNotes" object. The launcher silently shows no notes at all when one of them breaks a
rule, so they are checked here. Exit codes: 0 made, 1 refused with a message, 2 wrong usage.
"""

import argparse
import dataclasses
import hashlib
import io
import json
import re
import sys
import zipfile
from pathlib import Path

APPLICATION_FOLDER = "Velmora Pine Relay"
APPLICATION = "Velmora Pine Relay.exe"
READING_FOLDER = "JapaneseReading"
READING_FILES = ("aromanize.js", "LICENSE-aromanize.txt", "lyrics-reading-engine.js", "runtime-version.txt")
THEME_FOLDER = "Themes"
THEME_ENDING = ".vprtheme"

PRIORITIES = ("normal", "recommended", "hotfix")

# The launcher's limits; a manifest beyond one of them is refused by every installation.
MAX_MANIFEST_BYTES = 512 << 10
MAX_PAYLOAD_BYTES = 512 << 20
MAX_PACKAGES = 16
MAX_PACKAGE_FILES = 768
MAX_PACKAGE_FILE_BYTES = 128 << 20
MAX_PACKAGE_BYTES = 384 << 20
MAX_RUNTIME_MANIFEST_BYTES = 512 << 10
MAX_INVENTORY_PATH_UNITS = 260
MAX_LOCALIZATIONS = 8
MAX_LOCALE_UNITS = 16
MAX_HIGHLIGHTS = 12
MAX_EMPHASIZED = 13
MAX_NOTE_UNITS = 500

ZIP_DATE = (1980, 1, 1, 0, 0, 0)  # the same input makes the same archive


class ReleaseError(Exception):
    """The input cannot become a release; the message says what to change."""


@dataclasses.dataclass
class Package:
    id: str
    version: str
    files: dict  # inventory path -> content
    capability: str = "runtime"
    required: bool = True
    runtime_manifest: bytes | None = None
    patch_from: "Package | None" = None


@dataclasses.dataclass
class Built:
    """A release: the manifest with file names in place of addresses, and the contents of those names."""

    manifest: dict
    payloads: dict  # upload name -> content

    def manifest_for(self, base_url):
        """The manifest as an object, its payloads below `base_url`."""
        check_base_url(base_url)
        return _with_addresses(self.manifest, base_url)


# Contents are bytes, a Path, or any object with `size`, `sha256` and `read_all()`.


def measure(content):
    """(size, SHA-256 in hexadecimal) of a content."""
    if isinstance(content, bytes):
        return len(content), hashlib.sha256(content).hexdigest()
    if not isinstance(content, Path):
        return content.size, content.sha256
    digest = hashlib.sha256()
    size = 0
    with open(content, "rb") as file:
        while piece := file.read(1 << 20):
            digest.update(piece)
            size += len(piece)
    return size, digest.hexdigest()


def read_all(content):
    if isinstance(content, bytes):
        return content
    return content.read_bytes() if isinstance(content, Path) else content.read_all()


# Rules.


def units(text):
    """Length as the launcher counts: UTF-16 units."""
    return len(text.encode("utf-16-le", "surrogatepass")) // 2


def check_version(version, what):
    parts = version.split(".")
    good = len(parts) == 4 and all(re.fullmatch("[0-9]+", part) and int(part) <= 65535 for part in parts)
    if not good:
        raise ReleaseError(f"{what} {version!r} is not four numbers up to 65535 with dots between")


def check_base_url(url):
    if not re.fullmatch(r"https://[^/?#@\s]+/(?:[^?#\s]*/)?", url):
        raise ReleaseError(f"base URL {url!r} must begin with https:// and end with a slash")


def check_identifier(text, what):
    if not re.fullmatch(r"[a-z0-9](?:[a-z0-9-]{0,62}[a-z0-9])?", text):
        raise ReleaseError(f"{what} {text!r} must be 1 to 64 of a-z, 0-9 and '-', with no '-' at its ends")


def check_relative_path(path):
    segments = path.split("/")
    if "\\" in path or ":" in path or "\0" in path or any(segment in ("", ".", "..") for segment in segments):
        raise ReleaseError(f"{path!r} is not a plain relative path")


def component_of(path):
    """The component of a file that a manifest may deliver."""
    check_relative_path(path)
    folder, _, rest = path.partition("/")
    name = rest.lower()
    if folder.lower() == APPLICATION_FOLDER.lower():
        if name == APPLICATION.lower():
            return "application"
        inner, _, last = rest.partition("/")
        if inner.lower() == READING_FOLDER.lower() and last.lower() in map(str.lower, READING_FILES):
            return "reading-runtime"
        theme = "/" not in last and last.lower().endswith(THEME_ENDING) and units(last) > len(THEME_ENDING)
        if inner.lower() == THEME_FOLDER.lower() and theme:
            return "theme"
    raise ReleaseError(
        f"{path!r} cannot be delivered: allowed below {APPLICATION_FOLDER!r} are {APPLICATION!r}, "
        f"{READING_FOLDER}/ with {', '.join(READING_FILES)}, and {THEME_FOLDER}/*{THEME_ENDING}"
    )


def check_size(size, limit, what):
    if not 1 <= size <= limit:
        raise ReleaseError(f"{what} has {size} bytes; allowed are 1 to {limit}")


def check_note(text, where):
    if not isinstance(text, str) or not 1 <= units(text) <= MAX_NOTE_UNITS:
        raise ReleaseError(f"{where} must be a text of 1 to {MAX_NOTE_UNITS} units")
    if any(ord(char) < 0x20 and char != "\t" for char in text):
        raise ReleaseError(f"{where} holds a line break or another control character")


def check_localization(entry, where):
    if not isinstance(entry, dict):
        raise ReleaseError(f"{where} must be an object")
    locale = entry.get("locale")
    if not isinstance(locale, str) or not 1 <= units(locale) <= MAX_LOCALE_UNITS:
        raise ReleaseError(f"{where}: locale must have 1 to {MAX_LOCALE_UNITS} units")
    check_note(entry.get("summary"), f"{where}: summary")
    highlights = entry.get("highlights")
    if not isinstance(highlights, list) or not 1 <= len(highlights) <= MAX_HIGHLIGHTS:
        raise ReleaseError(f"{where}: highlights must be 1 to {MAX_HIGHLIGHTS} texts")
    for number, highlight in enumerate(highlights, 1):
        check_note(highlight, f"{where}: highlight {number}")
    emphasized = entry.get("emphasizedItems", [])
    if not isinstance(emphasized, list) or len(emphasized) > MAX_EMPHASIZED:
        raise ReleaseError(f"{where}: emphasizedItems must be at most {MAX_EMPHASIZED} texts")
    for item in emphasized:
        if item not in [entry["summary"], *highlights]:
            raise ReleaseError(f"{where}: emphasized item {item!r} is neither the summary nor a highlight")


def check_notes(notes):
    if not isinstance(notes, dict) or not isinstance(notes.get("defaultLocale"), str):
        raise ReleaseError("release notes must be an object with a text defaultLocale")
    entries = notes.get("localizations")
    if not isinstance(entries, list) or not 1 <= len(entries) <= MAX_LOCALIZATIONS:
        raise ReleaseError(f"release notes need 1 to {MAX_LOCALIZATIONS} localizations")
    seen = set()
    for number, entry in enumerate(entries, 1):
        check_localization(entry, f"localization {number}")
        if entry["locale"].lower() in seen:
            raise ReleaseError(f"locale {entry['locale']!r} occurs twice")
        seen.add(entry["locale"].lower())


# Building.


def upload_name(wanted, taken):
    """A name that every file host keeps as it is, unlike names with blanks, and that no other payload has."""
    name = re.sub(r"[^A-Za-z0-9._-]+", ".", wanted).strip(".") or "payload"
    stem, dot, ending = name.rpartition(".")
    number = 2
    while name.lower() in (other.lower() for other in taken):
        name = f"{stem or ending}-{number}{dot}{ending if stem else ''}"
        number += 1
    return name


def add_payload(payloads, wanted, content, what):
    size, digest = measure(content)
    check_size(size, MAX_PAYLOAD_BYTES, what)
    name = upload_name(wanted, payloads)
    payloads[name] = content
    return {"url": name, "sha256": digest, "size": size}


def check_no_twins(paths, what):
    seen = {}
    for path in paths:
        twin = seen.setdefault(path.lower(), path)
        if twin != path:
            raise ReleaseError(f"{what}: {twin!r} and {path!r} are one file on Windows")


def archive(package, paths):
    memory = io.BytesIO()
    with zipfile.ZipFile(memory, "w", zipfile.ZIP_DEFLATED) as packed:
        entries = [(f"payload/{path}", read_all(package.files[path])) for path in paths]
        if package.runtime_manifest is not None:
            entries.append(("runtime-manifest.json", package.runtime_manifest))
        for name, content in entries:
            entry = zipfile.ZipInfo(name, ZIP_DATE)
            entry.compress_type = zipfile.ZIP_DEFLATED
            packed.writestr(entry, content)
    return memory.getvalue()


def inventory_of(package):
    entries = []
    for path in sorted(package.files):
        check_relative_path(path)
        if units(path) > MAX_INVENTORY_PATH_UNITS:
            raise ReleaseError(f"{path!r} is longer than {MAX_INVENTORY_PATH_UNITS} units")
        size, digest = measure(package.files[path])
        check_size(size, MAX_PACKAGE_FILE_BYTES, f"package {package.id!r}: {path!r}")
        entries.append({"path": path, "sha256": digest, "size": size})
    return entries


def check_package(package):
    what = f"package {package.id!r}"
    check_identifier(package.id, "package id")
    check_identifier(package.capability, f"{what}: capability")
    check_version(package.version, f"{what}: version")
    if not 1 <= len(package.files) <= MAX_PACKAGE_FILES:
        raise ReleaseError(f"{what} has {len(package.files)} files; allowed are 1 to {MAX_PACKAGE_FILES}")
    check_no_twins(package.files, what)
    if package.runtime_manifest is not None:
        check_size(len(package.runtime_manifest), MAX_RUNTIME_MANIFEST_BYTES, f"{what}: runtime-manifest.json")


def patch_entry(package, inventory, full_size, payloads):
    """The patch, or nothing if it would not be smaller; a patch leaves at least one file of the base untouched."""
    base = package.patch_from
    if base.id != package.id or base.version == package.version:
        raise ReleaseError(f"package {package.id!r}: a patch needs another version of the same package")
    check_version(base.version, f"package {package.id!r}: base version")
    old = {path: measure(content) for path, content in base.files.items()}
    changed = [entry["path"] for entry in inventory if old.get(entry["path"]) != (entry["size"], entry["sha256"])]
    packed = archive(package, changed) if changed else b""
    if not changed or len(changed) == len(inventory) or len(packed) >= full_size:
        return None
    name = f"{package.id}-{package.version}-from-{base.version}.vprpack"
    payload = add_payload(payloads, name, packed, f"patch of package {package.id!r}")
    return {"baseVersion": base.version, **payload, "files": changed}


def package_entry(package, payloads):
    check_package(package)
    inventory = inventory_of(package)
    if sum(entry["size"] for entry in inventory) > MAX_PACKAGE_BYTES:
        raise ReleaseError(f"package {package.id!r} unpacks to more than {MAX_PACKAGE_BYTES} bytes")
    packed = archive(package, [entry["path"] for entry in inventory])
    name = f"{package.id}-{package.version}.vprpack"
    entry = {"id": package.id, "version": package.version}
    entry |= add_payload(payloads, name, packed, f"package {package.id!r}")
    entry |= {"requiredForStartup": package.required, "capability": package.capability, "files": inventory}
    patch = patch_entry(package, inventory, len(packed), payloads) if package.patch_from else None
    return entry | ({"patch": patch} if patch else {})


def file_entry(path, content, payloads):
    component = component_of(path)
    return {"component": component, "path": path, **add_payload(payloads, path.rpartition("/")[2], content, repr(path))}


def build(version, minimum_launcher, files, *, priority="normal", notes=None, notes_url=None, packages=()):
    """Checks everything and gives a Built. `files` maps install paths with forward slashes to contents; a release without
    any is valid, if of little use."""
    check_version(version, "version")
    check_version(minimum_launcher, "minimum launcher version")
    if priority not in PRIORITIES:
        raise ReleaseError(f"priority {priority!r} is none of {', '.join(PRIORITIES)}")
    if notes is not None:
        check_notes(notes)
    if len(packages) > MAX_PACKAGES or len({package.id for package in packages}) < len(packages):
        raise ReleaseError(f"at most {MAX_PACKAGES} packages, each id once")
    check_no_twins(files, "files")
    payloads = {}
    manifest = {"schemaVersion": 1, "version": version, "minimumLauncherVersion": minimum_launcher}
    manifest["updatePriority"] = priority
    if notes_url is not None:
        manifest["releaseNotesUrl"] = notes_url
    if notes is not None:
        manifest["releaseNotes"] = notes
    manifest["files"] = [file_entry(path, files[path], payloads) for path in sorted(files)]
    if packages:
        manifest["packagesV2"] = [package_entry(package, payloads) for package in packages]
    return Built(manifest, payloads)


def _with_addresses(value, base_url, key=None):
    if isinstance(value, dict):
        return {name: _with_addresses(item, base_url, name) for name, item in value.items()}
    if isinstance(value, list):
        return [_with_addresses(item, base_url) for item in value]
    return base_url + value if key == "url" else value


def manifest_bytes(manifest):
    text = (json.dumps(manifest, ensure_ascii=False, indent=2) + "\n").encode()
    if len(text) > MAX_MANIFEST_BYTES:
        raise ReleaseError(f"the manifest has {len(text)} bytes; the launcher reads at most {MAX_MANIFEST_BYTES}")
    return text


# The program.


def read_tree(folder, what):
    if not folder.is_dir():
        raise ReleaseError(f"{what} {str(folder)!r} is not a folder")
    found = {}
    for path in sorted(folder.rglob("*")):
        if path.is_symlink() or not (path.is_file() or path.is_dir()):
            raise ReleaseError(f"{str(path)!r} is neither a file nor a folder")
        if path.is_file():
            found[path.relative_to(folder).as_posix()] = path
    return found


def read_json(path):
    try:
        return json.loads(path.read_text(encoding="utf-8-sig"))
    except (OSError, ValueError) as problem:
        raise ReleaseError(f"{str(path)!r} cannot be read: {problem}") from None


def read_package(folder):
    about = read_json(folder / "package.json")
    wanted = {"id": str, "version": str, "capability": str, "requiredForStartup": bool}
    if not isinstance(about, dict) or any(type(about.get(key)) is not kind for key, kind in wanted.items()):
        raise ReleaseError(f"{str(folder / 'package.json')!r} needs texts id, version, capability and a true or false "
                           "requiredForStartup")
    extra = folder / "runtime-manifest.json"
    return Package(about["id"], about["version"], read_tree(folder / "payload", "payload folder"), about["capability"],
                   about["requiredForStartup"], extra.read_bytes() if extra.is_file() else None)


def read_packages(folders, bases):
    packages = [read_package(folder) for folder in folders]
    for folder in bases:
        base = read_package(folder)
        matches = [package for package in packages if package.id == base.id]
        if not matches:
            raise ReleaseError(f"{str(folder)!r}: no --package has the id {base.id!r}")
        matches[0].patch_from = base
    return packages


def write_release(built, base_url, backup_base_url, out):
    if out.exists() and (not out.is_dir() or any(out.iterdir())):
        raise ReleaseError(f"{str(out)!r} exists already")
    texts = {"stable.json": manifest_bytes(built.manifest_for(base_url))}
    if backup_base_url:
        texts["backup/stable.json"] = manifest_bytes(built.manifest_for(backup_base_url))
    (out / "upload").mkdir(parents=True)
    for name, content in built.payloads.items():
        (out / "upload" / name).write_bytes(read_all(content))
    for name, text in texts.items():
        (out / name).parent.mkdir(exist_ok=True)
        (out / name).write_bytes(text)


def parse_arguments(arguments):
    parser = argparse.ArgumentParser(prog="make_release.py", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--version", required=True)
    parser.add_argument("--minimum-launcher", required=True, metavar="VERSION")
    parser.add_argument("--files", required=True, type=Path, metavar="FOLDER")
    parser.add_argument("--priority", default="normal")
    parser.add_argument("--notes", type=Path, metavar="FILE")
    parser.add_argument("--notes-url", metavar="URL")
    parser.add_argument("--base-url", required=True, metavar="URL")
    parser.add_argument("--backup-base-url", metavar="URL")
    parser.add_argument("--package", action="append", default=[], type=Path, metavar="FOLDER")
    parser.add_argument("--patch-from", action="append", default=[], type=Path, metavar="FOLDER")
    parser.add_argument("--out", required=True, type=Path, metavar="FOLDER")
    return parser.parse_args(arguments)


def main(arguments):
    options = parse_arguments(arguments)
    try:
        files = read_tree(options.files, "files folder")
        if not files and not options.package:
            raise ReleaseError("nothing to deliver: no files and no packages")
        built = build(
            options.version,
            options.minimum_launcher,
            files,
            priority=options.priority,
            notes=read_json(options.notes) if options.notes else None,
            notes_url=options.notes_url,
            packages=read_packages(options.package, options.patch_from),
        )
        write_release(built, options.base_url, options.backup_base_url, options.out)
    except ReleaseError as problem:
        print(f"make_release: {problem}", file=sys.stderr)
        return 1
    print(f"version {options.version}: stable.json and {len(built.payloads)} files to upload in {options.out}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

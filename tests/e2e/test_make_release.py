"""Tests of the publishers' program, as its users run it. They need no lab."""

import hashlib
import json
import shutil
import subprocess
import sys
import zipfile
from pathlib import Path

import pytest

PROGRAM = Path(__file__).resolve().parents[2] / "tools/make_release.py"
BASE = "https://host.example/v1/"


@pytest.fixture
def files(tmp_path):
    return put(tmp_path / "new", {
        "Velmora Pine Relay/Velmora Pine Relay.exe": b"program",
        "Velmora Pine Relay/JapaneseReading/aromanize.js": b"script",
        "Velmora Pine Relay/Themes/night.vprtheme": b"theme",
    })


def put(folder, contents):
    for name, content in contents.items():
        path = folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
    return folder


def make(tmp_path, files, *extra, version="1.2.0.0", minimum="1.0.0.0", base=BASE):
    return subprocess.run(
        [sys.executable, str(PROGRAM), "--version", version, "--minimum-launcher", minimum, "--files", str(files),
         "--base-url", base, "--out", str(tmp_path / "out"), *map(str, extra)],
        capture_output=True, text=True,
    )


def made(tmp_path, name="stable.json"):
    return json.loads((tmp_path / "out" / name).read_text(encoding="utf-8"))


def refused(run, sense):
    assert run.returncode == 1 and sense in run.stderr, (run.returncode, run.stderr)
    assert "Traceback" not in run.stderr


def test_release_of_files(tmp_path, files):
    run = make(tmp_path, files, "--priority", "hotfix", "--notes-url", "https://host.example/notes")
    assert run.returncode == 0, run.stderr
    manifest = made(tmp_path)
    assert (manifest["schemaVersion"], manifest["version"], manifest["minimumLauncherVersion"]) == (
        1, "1.2.0.0", "1.0.0.0")
    assert (manifest["updatePriority"], manifest["releaseNotesUrl"]) == ("hotfix", "https://host.example/notes")
    assert sorted(entry["component"] for entry in manifest["files"]) == ["application", "reading-runtime", "theme"]
    for entry in manifest["files"]:
        uploaded = (tmp_path / "out/upload" / entry["url"].removeprefix(BASE)).read_bytes()
        assert (hashlib.sha256(uploaded).hexdigest(), len(uploaded)) == (entry["sha256"], entry["size"])
        assert " " not in entry["url"]
    assert {path.name for path in (tmp_path / "out").iterdir()} == {"stable.json", "upload"}


def test_backup_differs_in_addresses_only(tmp_path, files):
    assert make(tmp_path, files, "--backup-base-url", "https://backup.example/releases/v1/").returncode == 0
    primary = (tmp_path / "out/stable.json").read_text()
    backup = (tmp_path / "out/backup/stable.json").read_text()
    assert primary != backup
    assert primary.replace(BASE, "https://backup.example/releases/v1/") == backup


def test_same_names_are_told_apart(tmp_path):
    new = put(tmp_path / "new", {
        "Velmora Pine Relay/Themes/a b.vprtheme": b"1",
        "Velmora Pine Relay/Themes/a.b.vprtheme": b"2",
        "Velmora Pine Relay/Themes/日本.vprtheme": b"3",
    })
    assert make(tmp_path, new).returncode == 0
    assert len(list((tmp_path / "out/upload").iterdir())) == 3


def test_notes_are_taken_over(tmp_path, files):
    notes = {"defaultLocale": "ja", "localizations": [
        {"locale": "ja", "summary": "要約", "highlights": ["新機能"], "emphasizedItems": ["新機能"]}]}
    (tmp_path / "notes.json").write_text(json.dumps(notes), encoding="utf-8")
    assert make(tmp_path, files, "--notes", tmp_path / "notes.json").returncode == 0
    assert made(tmp_path)["releaseNotes"] == notes


def package_folder(folder, version, contents, **about):
    about = {"id": "model", "version": version, "capability": "model", "requiredForStartup": True, **about}
    put(folder / "payload", contents)
    (folder / "package.json").write_text(json.dumps(about))
    return folder


def test_package_and_its_patch(tmp_path, files):
    noise = bytes(hashlib.shake_256(b"noise").digest(20_000))
    old = package_folder(tmp_path / "old", "1.0.0.0", {"same/big.bin": noise, "changed.txt": b"old"})
    new = package_folder(tmp_path / "pack", "1.1.0.0", {"same/big.bin": noise, "changed.txt": b"new", "added": b"x"})
    (new / "runtime-manifest.json").write_text("{}")
    run = make(tmp_path, files, "--package", new, "--patch-from", old)
    assert run.returncode == 0, run.stderr
    (entry,) = made(tmp_path)["packagesV2"]
    assert [file["path"] for file in entry["files"]] == ["added", "changed.txt", "same/big.bin"]
    assert entry["patch"]["baseVersion"] == "1.0.0.0" and entry["patch"]["files"] == ["added", "changed.txt"]
    with zipfile.ZipFile(tmp_path / "out/upload/model-1.1.0.0.vprpack") as full:
        assert sorted(full.namelist()) == [
            "payload/added", "payload/changed.txt", "payload/same/big.bin", "runtime-manifest.json"]
        assert full.read("payload/same/big.bin") == noise
    with zipfile.ZipFile(tmp_path / "out/upload/model-1.1.0.0-from-1.0.0.0.vprpack") as patch:
        assert "payload/same/big.bin" not in patch.namelist()


@pytest.mark.parametrize("contents", [{"a": b"1", "b": b"2"}, {"a": b"3", "b": b"4"}], ids=["nothing", "everything"])
def test_package_that_changed_in_nothing_or_everything_has_no_patch(tmp_path, files, contents):
    old = package_folder(tmp_path / "old", "1.0.0.0", {"a": b"1", "b": b"2"})
    new = package_folder(tmp_path / "pack", "1.1.0.0", contents)
    assert make(tmp_path, files, "--package", new, "--patch-from", old).returncode == 0
    assert "patch" not in made(tmp_path)["packagesV2"][0]


def test_same_input_makes_the_same_archive(tmp_path, files):
    package = package_folder(tmp_path / "pack", "1.0.0.0", {"a": b"a"})
    digests = []
    for _ in range(2):
        assert make(tmp_path, files, "--package", package).returncode == 0
        digests.append(made(tmp_path)["packagesV2"][0]["sha256"])
        shutil.rmtree(tmp_path / "out")
        (package / "payload/a").touch()
    assert digests[0] == digests[1]


@pytest.mark.parametrize("change, sense", [
    ({"version": "1.2.0"}, "version '1.2.0'"),
    ({"version": "1.2.0.65536"}, "version '1.2.0.65536'"),
    ({"minimum": "x"}, "minimum launcher version 'x'"),
    ({"base": "http://host.example/"}, "base URL"),
    ({"base": "https://host.example/v1"}, "base URL"),
])
def test_bad_values_are_refused(tmp_path, files, change, sense):
    refused(make(tmp_path, files, **change), sense)
    assert not (tmp_path / "out").exists()


@pytest.mark.parametrize("name, content, sense", [
    ("readme.txt", b"x", "cannot be delivered"),
    ("Velmora Pine Relay/other.dll", b"x", "cannot be delivered"),
    ("Velmora Pine Relay/Themes/sub/a.vprtheme", b"x", "cannot be delivered"),
    ("Velmora Pine Relay/Themes/.vprtheme", b"x", "cannot be delivered"),
    ("Velmora Pine Relay/JapaneseReading/evil.js", b"x", "cannot be delivered"),
    ("Velmora Pine Relay/Themes/a.vprtheme", b"", "has 0 bytes"),
    ("Velmora Pine Relay/Themes/NIGHT.vprtheme", b"x", "one file on Windows"),
    ("Velmora Pine Relay/Themes/a:b.vprtheme", b"x", "not a plain relative path"),
])
def test_bad_files_are_refused(tmp_path, files, name, content, sense):
    refused(make(tmp_path, put(files, {name: content})), sense)


@pytest.mark.parametrize("notes, sense", [
    ("not json", "cannot be read"),
    ({"localizations": []}, "defaultLocale"),
    ({"defaultLocale": "en", "localizations": []}, "1 to 8"),
    ({"defaultLocale": "en", "localizations": [{"locale": "en", "summary": "a\nb", "highlights": ["x"]}]}, "line break"),
    ({"defaultLocale": "en", "localizations": [{"locale": "en", "summary": "a", "highlights": []}]}, "highlights"),
    ({"defaultLocale": "en", "localizations": [{"locale": "en", "summary": "s" * 501, "highlights": ["x"]}]}, "500"),
    ({"defaultLocale": "en", "localizations": [
        {"locale": locale, "summary": "a", "highlights": ["x"]} for locale in ("en", "EN")]}, "occurs twice"),
    ({"defaultLocale": "en", "localizations": [
        {"locale": "en", "summary": "a", "highlights": ["x"], "emphasizedItems": ["X"]}]}, "emphasized item"),
])
def test_bad_notes_are_refused(tmp_path, files, notes, sense):
    (tmp_path / "notes.json").write_text(notes if isinstance(notes, str) else json.dumps(notes))
    refused(make(tmp_path, files, "--notes", tmp_path / "notes.json"), sense)


def test_bad_packages_are_refused(tmp_path, files):
    refused(make(tmp_path, files, "--package", tmp_path / "none"), "cannot be read")
    upper = package_folder(tmp_path / "upper", "1.0.0.0", {"a": b"a"}, id="Model")
    refused(make(tmp_path, files, "--package", upper), "package id 'Model'")
    lacking = package_folder(tmp_path / "lacking", "1.0.0.0", {"a": b"a"}, requiredForStartup="yes")
    refused(make(tmp_path, files, "--package", lacking), "requiredForStartup")
    package = package_folder(tmp_path / "good", "1.0.0.0", {"a": b"a"})
    refused(make(tmp_path, files, "--package", package, "--package", package), "each id once")
    refused(make(tmp_path, files, "--package", package, "--patch-from", package), "another version")
    refused(make(tmp_path, files, "--patch-from", package), "no --package")


def test_empty_release_and_used_folder_are_refused(tmp_path, files):
    (tmp_path / "empty").mkdir()
    refused(make(tmp_path, tmp_path / "empty"), "nothing to deliver")
    put(tmp_path / "out", {"old": b"x"})
    refused(make(tmp_path, files), "exists already")


def test_wrong_usage_is_code_2(tmp_path):
    run = subprocess.run([sys.executable, str(PROGRAM)], capture_output=True, text=True)
    assert run.returncode == 2 and "usage" in run.stderr

"""Releases with packages over real HTTPS: from which source each package comes, what is active afterwards, and when the
installed files are not hashed again."""

import re
import time

import pytest

from lab import APPLICATION_PATH, STATE, Package, Release, app_binary, content_of, install
from lab.install import APPLICATION_FOLDER, runtime_state_text
from lab.reads import ReadWatch

BEFORE, AFTER = "1.0.0.0", "1.1.0.0"
PACKS = f"{APPLICATION_FOLDER}/Runtime/packs"
RUNTIME_STATE = f"{APPLICATION_FOLDER}/Runtime/current.json"
RECORD = ".vpr-update/verified-inventory-v1.txt"
SUPPORT = ("VPRAsioProbe.exe", "Licenses/GPL-3.0.txt")
RUNTIME, MODELS, SEPARATION = "application-runtime", "uvr-hp-models", "uvr-mdx"
HOMES = {RUNTIME: "", MODELS: "uvr-hp-models/", SEPARATION: "uvr-mdx/"}
OTHER = "stem-splitter"


def package(name, version, patch_from=None):
    """Two files change with the version, two stay; the runtime has a support file of each kind."""
    files = {"core.dll": b"core" * 5000, "deep/er/data é.bin": f"{name} data {version}".encode() * 300}
    changing, staying = SUPPORT if name == RUNTIME else ("model.onnx", "labels.txt")
    files |= {changing: f"{name} {version}".encode(), staying: b"the same for ever"}
    return Package(name, version, files, name, patch_from=patch_from)


def release(*packages, version=AFTER):
    return Release(version, {APPLICATION_PATH: app_binary(version)}, packages=packages)


def support_files(runtime):
    return {f"{APPLICATION_FOLDER}/{path}": runtime.files[path] for path in SUPPORT}


def portable_files(*packages):
    return {f"{APPLICATION_FOLDER}/{HOMES[one.id]}{path}": content for one in packages for path, content in one.files.items()}


def version_folder(tree, one):
    """What stands in the folder of a package's version."""
    folder = tree.path(f"{PACKS}/{one.id}/{one.version}")
    return {path.relative_to(folder).as_posix(): path.read_bytes() for path in folder.rglob("*") if path.is_file()}


def versions(tree, name):
    return sorted(path.name for path in tree.path(f"{PACKS}/{name}").iterdir())


def assert_active(tree, *packages, version=AFTER):
    """Exactly these packages are named, whole, and their support files stand beside the application."""
    assert tree.read(RUNTIME_STATE).decode() == runtime_state_text(packages)
    for one in packages:
        assert version_folder(tree, one) == content_of(one)
        if one.id == RUNTIME:
            for path in SUPPORT:
                assert tree.read(f"{APPLICATION_FOLDER}/{path}") == content_of(one)[path]
    assert tree.application_version() == version
    assert tree.read_configuration()["productVersion"] == version
    tree.assert_no_leftovers()


def fetched(result):
    """The names of the payloads that were asked for, without repeats."""
    return {request.path.rpartition("/")[2] for request in result.requests if not request.path.endswith("/stable.json")}


def update(lab, tree, published, answers=("yes",), version=AFTER):
    published.publish(lab)
    result = lab.run(tree, ["--check-for-updates"], answers=list(answers))
    assert result.exit_code == 0 and result.app.version == version, result
    return result


# From where packages come.


def test_full_packages_are_installed_and_activated(lab):
    tree = install(lab, "tree")
    packages = [package(RUNTIME, AFTER), package(OTHER, "3.0.0.0")]
    new = release(*packages)
    result = update(lab, tree, new)
    assert_active(tree, *packages)
    assert fetched(result) == {new.name_of(APPLICATION_PATH), new.name_of(RUNTIME), new.name_of(OTHER)}


def test_patch_takes_what_stays_from_the_active_version(lab):
    old = package(RUNTIME, BEFORE)
    new = package(RUNTIME, AFTER, patch_from=old)
    tree = install(lab, "tree", packages=[old], files=support_files(old))
    published = release(new)
    result = update(lab, tree, published)
    assert_active(tree, new)
    assert fetched(result) == {published.name_of(APPLICATION_PATH), published.name_of((RUNTIME, "patch"))}
    assert versions(tree, RUNTIME) == [BEFORE, AFTER]


@pytest.mark.parametrize("name", HOMES)
def test_patch_takes_what_stays_from_a_portable_home(lab, name):
    old = package(name, BEFORE)
    new = package(name, AFTER, patch_from=old)
    tree = install(lab, "tree", files=portable_files(old))
    published = release(new)
    result = update(lab, tree, published)
    assert_active(tree, new)
    assert fetched(result) == {published.name_of(APPLICATION_PATH), published.name_of((name, "patch"))}


def test_patch_without_its_base_gives_way_to_the_full_package(lab):
    old = package(SEPARATION, BEFORE)
    new = package(SEPARATION, AFTER, patch_from=old)
    tree = install(lab, "tree", packages=[old])
    tree.write(f"{PACKS}/{SEPARATION}/{BEFORE}/core.dll", b"damaged")
    published = release(new)
    result = update(lab, tree, published)
    assert_active(tree, new)
    assert fetched(result) == {published.name_of(APPLICATION_PATH), published.name_of(SEPARATION)}


def test_file_that_the_patch_replaces_may_be_missing_in_the_base(lab):
    old = package(SEPARATION, BEFORE)
    new = package(SEPARATION, AFTER, patch_from=old)
    tree = install(lab, "tree", packages=[old])
    tree.path(f"{PACKS}/{SEPARATION}/{BEFORE}/model.onnx").unlink()
    published = release(new)
    assert published.name_of((SEPARATION, "patch")) in fetched(update(lab, tree, published))
    assert_active(tree, new)


@pytest.mark.parametrize("name", HOMES)
def test_portable_package_is_copied_and_not_fetched(lab, name):
    """Another package is new, so the set must be activated; what is there already is taken from where it lies."""
    present, new = package(name, BEFORE), package(OTHER, "1.0.0.0")
    tree = install(lab, "tree", files=portable_files(present))
    published = release(present, new)
    result = update(lab, tree, published)
    assert_active(tree, present, new)
    assert fetched(result) == {published.name_of(APPLICATION_PATH), published.name_of(OTHER)}


def test_portable_set_that_matches_stays_portable(lab):
    packages = [package(name, BEFORE) for name in HOMES]
    tree = install(lab, "tree", files=portable_files(*packages))
    published = release(*packages)
    assert fetched(update(lab, tree, published)) == {published.name_of(APPLICATION_PATH)}
    assert not tree.runtime.exists()
    assert tree.application_version() == AFTER


def test_portable_set_becomes_an_activated_one(lab):
    old = [package(name, BEFORE) for name in HOMES]
    new = [package(name, AFTER) for name in HOMES]
    tree = install(lab, "tree", files=portable_files(*old))
    update(lab, tree, release(*new))
    assert_active(tree, *new)
    # The next release finds an activated set.
    newest = [package(name, "1.2.0.0", patch_from=one) for name, one in zip(HOMES, new)]
    published = release(*newest, version="1.2.0.0")
    result = update(lab, tree, published, version="1.2.0.0")
    assert fetched(result) == {published.name_of(APPLICATION_PATH), *(published.name_of((name, "patch")) for name in HOMES)}
    assert_active(tree, *newest, version="1.2.0.0")


def test_version_that_stands_already_is_only_activated(lab):
    old, new = package(SEPARATION, BEFORE), package(SEPARATION, AFTER)
    tree = install(lab, "tree", packages=[old])
    tree.add_packages(new, active=False)
    published = release(new)
    assert fetched(update(lab, tree, published)) == {published.name_of(APPLICATION_PATH)}
    assert_active(tree, new)


# Repairs, old versions, failures.


def installed(lab, *packages, folder="tree", **options):
    """Version 1.1.0.0 with these packages active."""
    files = {path: content for one in packages if one.id == RUNTIME for path, content in support_files(one).items()}
    return install(lab, folder, app_version=AFTER, packages=packages, files=files, **options)


@pytest.mark.parametrize("damage", ["changed", "missing", "added"])
def test_damaged_version_is_repaired_without_asking(lab, damage):
    one = package(RUNTIME, AFTER)
    tree = installed(lab, one)
    folder = f"{PACKS}/{RUNTIME}/{AFTER}"
    if damage == "missing":
        tree.path(f"{folder}/core.dll").unlink()
    else:
        tree.write(f"{folder}/{'core.dll' if damage == 'changed' else 'stray.log'}", b"damaged")
    published = release(one)
    assert fetched(update(lab, tree, published, answers=())) == {published.name_of(RUNTIME)}
    assert_active(tree, one)
    assert versions(tree, RUNTIME) == [AFTER]


@pytest.mark.parametrize("path", SUPPORT)
def test_damaged_support_file_is_repaired_from_the_version_folder(lab, path):
    one = package(RUNTIME, AFTER)
    tree = installed(lab, one)
    tree.write(f"{APPLICATION_FOLDER}/{path}", b"damaged")
    assert fetched(update(lab, tree, release(one), answers=())) == set()
    assert_active(tree, one)


def test_all_but_two_versions_are_removed(lab):
    active = package(SEPARATION, "1.0.0.9")
    tree = install(lab, "tree", packages=[active])
    tree.add_packages(*(package(SEPARATION, version) for version in ("1.0.0.2", "1.0.0.10", "0.9.9.99")), active=False)
    tree.write(f"{PACKS}/{SEPARATION}/1.2.3/kept.txt", b"no version")
    new = package(SEPARATION, "2.0.0.0")
    update(lab, tree, release(new))
    assert_active(tree, new)
    assert versions(tree, SEPARATION) == ["1.0.0.10", "1.2.3", "2.0.0.0"]


def test_version_that_cannot_be_removed_does_not_fail_the_update(lab):
    active = package(SEPARATION, "1.0.0.9")
    tree = install(lab, "tree", packages=[active])
    tree.add_packages(package(SEPARATION, "1.0.0.2"), active=False)
    elsewhere = tree.write("elsewhere/precious.txt", b"precious")
    tree.path(f"{PACKS}/{SEPARATION}/1.0.0.2/link").symlink_to(elsewhere.parent)
    new = package(SEPARATION, "2.0.0.0")
    update(lab, tree, release(new))
    assert_active(tree, new)
    assert elsewhere.read_bytes() == b"precious"
    assert "1.0.0.2" in versions(tree, SEPARATION)


@pytest.mark.parametrize("what", ["archive", "patch"])
def test_package_that_is_not_what_was_promised_leaves_everything(lab, what):
    old = package(RUNTIME, BEFORE)
    new = package(RUNTIME, AFTER, patch_from=old if what == "patch" else None)
    tree = install(lab, "tree", packages=[old], files=support_files(old))
    before = tree.snapshot(exclude=STATE)
    published = release(new)
    place = RUNTIME if what == "archive" else (RUNTIME, "patch")
    broken = bytearray(published.payload(published.name_of(place)).read_all())
    broken[len(broken) // 2] ^= 1
    published.publish(lab, payloads={place: published.payload_reply(place).but(body=bytes(broken))})
    result = lab.run(tree, answers=["yes", "ok"], strict=False)
    assert result.app.version == BEFORE
    assert tree.snapshot(exclude=STATE) == before
    tree.assert_no_leftovers()


def test_archive_that_does_not_hold_its_inventory_is_refused(lab):
    """The digest is right and the content is not what the manifest lists: the archive itself is judged."""
    one = package(SEPARATION, AFTER)
    tree = install(lab, "tree")
    before = tree.snapshot(exclude=STATE)
    published = release(one)

    def lie(manifest):
        manifest["packagesV2"][0]["files"][0]["size"] += 1

    published.publish(lab, edit=lie)
    result = lab.run(tree, answers=["yes", "ok"], strict=False)
    assert any(window.shows("資源包 ZIP 項目的解壓大小與 inventory 不符。") for window in result.windows), result
    assert result.app.version == BEFORE
    assert tree.snapshot(exclude=STATE) == before


def test_set_behind_a_link_is_never_activated(lab):
    old = package(SEPARATION, BEFORE)
    tree = install(lab, "tree", packages=[old])
    elsewhere = tree.root.parent / "elsewhere"
    tree.runtime.rename(elsewhere)
    tree.runtime.symlink_to(elsewhere)
    release(package(SEPARATION, AFTER)).publish(lab)
    result = lab.run(tree, answers=["yes", "ok"], strict=False)
    message = "沒有可啟用的資源包或 Runtime 目錄無法建立。 已安全回復更新前版本。"
    assert any(window.shows(message) for window in result.windows), result
    assert result.app.version == BEFORE
    assert tree.read(RUNTIME_STATE).decode() == runtime_state_text([old])
    assert tree.application_version() == BEFORE


# Not hashing again.


def start(lab, tree):
    """One start with a check; the installed files that it read, without the launcher and its settings."""
    with ReadWatch(tree.application_folder) as watch:
        result = lab.run(tree, ["--check-for-updates"])
    assert result.exit_code == 0 and result.app.version == AFTER
    # The application itself is loaded to be run, and the state file is compared at every start.
    return watch.files() - {"Velmora Pine Relay.exe", "Runtime/current.json"}


def packs_files(*packages):
    return {f"Runtime/packs/{one.id}/{one.version}/{path}" for one in packages for path in one.files}


@pytest.fixture
def verified(lab):
    """An installation that has been verified once, its packages and its release."""
    packages = [package(RUNTIME, AFTER), package(SEPARATION, "2.0.0.0")]
    tree = installed(lab, *packages)
    published = release(*packages).publish(lab)
    assert start(lab, tree) == packs_files(*packages) | set(SUPPORT)
    assert tree.path(RECORD).exists()
    return tree, packages, published


def test_second_start_reads_no_file_again(lab, verified):
    tree, _, _ = verified
    record = tree.read(RECORD)
    assert start(lab, tree) == set()
    assert tree.read(RECORD) == record


def test_portable_set_is_not_hashed_again_either(lab):
    packages = [package(name, AFTER) for name in HOMES]
    tree = install(lab, "tree", app_version=AFTER, files=portable_files(*packages))
    release(*packages).publish(lab)
    read = start(lab, tree)
    assert read == {f"{HOMES[one.id]}{path}" for one in packages for path in one.files}
    assert b"\nlayout=portable\n" in tree.read(RECORD)
    assert start(lab, tree) == set()


def test_plain_files_are_not_hashed_again_either(lab):
    theme = f"{APPLICATION_FOLDER}/Themes/dawn.vprtheme"
    tree = install(lab, "tree", app_version=AFTER, files={theme: b"theme"})
    Release(AFTER, {APPLICATION_PATH: app_binary(AFTER), theme: b"theme"}).publish(lab)
    assert start(lab, tree) == {"Themes/dawn.vprtheme"}
    assert b"\nlayout=files\n" in tree.read(RECORD)
    assert start(lab, tree) == set()


def assert_verified_anew(lab, tree, packages):
    assert start(lab, tree) == packs_files(*packages) | set(SUPPORT)
    assert start(lab, tree) == set()


def test_touched_file_has_everything_hashed_again(lab, verified):
    tree, packages, _ = verified
    tree.path(f"{PACKS}/{SEPARATION}/2.0.0.0/core.dll").touch()
    assert_verified_anew(lab, tree, packages)


def test_file_copied_over_itself_has_everything_hashed_again(lab, verified):
    """The same bytes and times in another file: only its identity tells."""
    tree, packages, _ = verified
    path = tree.path(f"{PACKS}/{SEPARATION}/2.0.0.0/core.dll")
    copy = path.with_name("copy")
    copy.write_bytes(path.read_bytes())
    copy.replace(path)
    assert_verified_anew(lab, tree, packages)


def rewrite_time(tree, seconds):
    text = tree.read(RECORD).decode()
    changed = re.sub(r"verified=\d+", f"verified={int(time.time()) + seconds}", text)
    assert changed != text
    tree.write(RECORD, changed)


@pytest.mark.parametrize("seconds", [-86400, 3600], ids=["after a day", "with the clock set back"])
def test_record_of_another_time_does_not_count(lab, verified, seconds):
    tree, packages, _ = verified
    rewrite_time(tree, seconds)
    assert_verified_anew(lab, tree, packages)


def test_record_of_less_than_a_day_counts(lab, verified):
    tree, _, _ = verified
    rewrite_time(tree, -86300)
    assert start(lab, tree) == set()


def test_another_manifest_of_the_same_version_has_everything_hashed_again(lab, verified):
    tree, packages, published = verified
    published.publish(lab, pad_to=len(published.manifest()) + 1)
    assert_verified_anew(lab, tree, packages)


def test_update_drops_the_record(lab, verified):
    """Before the user is asked, since the tree is about to change; a refusal then costs one full verification."""
    tree, packages, _ = verified
    release(*packages, version="1.2.0.0").publish(lab)
    result = lab.run(tree, ["--check-for-updates"], answers=["no"])
    assert result.app.version == AFTER
    assert not tree.path(RECORD).exists()

"""Package archives as the world's programs make them, and what vandals make of those: each is judged, and the good ones
are installed for real.
"""

import random
import subprocess
import warnings
import zipfile

from lab.archives import (
    CANNOT_OPEN, ENTRIES_DIFFER, ENTRY_COUNT, INVALID_ENTRY, INVALID_RUNTIME_MANIFEST, PACKAGE_ID, PACKAGE_VERSION,
    SIZE_DIFFERS, Bench, entries_of, pack, patched, payload_fails, place_of, with_crc, with_name, with_told_sizes,
    with_turned_byte,
)
from lab.release import Package, make_release

MEBIBYTE = 1 << 20

CONTENT = {
    "a.txt": b"the first file\n" * 100,
    "deep/er/b.bin": random.Random(1).randbytes(200_000),
    "deep/model.onnx": bytes(range(256)) * 4000,
    "資料/日本語 é.txt": "内容".encode(),
    "with blank/UPPER lower.DAT": b"x",
}
ASCII_CONTENT = {path: data for path, data in CONTENT.items() if path.isascii()}
FLAT = {"a.txt": b"the first file\n" * 100, "b.txt": b"the second"}
GOOD = ""


def assert_told(bench, archives, messages, content=None):
    """Each archive gets its message, from the judge and from the installer, which then leaves nothing behind."""
    judged = bench.judge(archives, content)
    installed = bench.install(dict.fromkeys(archives), content)
    expected = dict(messages) if isinstance(messages, dict) else dict.fromkeys(archives, messages)
    assert {name: verdict.message for name, verdict in judged.items()} == expected
    assert {name: verdict.message for name, verdict in installed.items()} == expected
    for name, message in expected.items():
        assert judged[name].ok == installed[name].ok == (message == GOOD), name
        if message != GOOD:
            assert (installed[name].installed_path, bench.installed(name)) == ("", {}), name


def assert_installed(bench, archives, content=None):
    """Each archive is good, and what it installs is the content to the last byte."""
    assert_told(bench, archives, GOOD, content)
    version = f"packs/{PACKAGE_ID}/{PACKAGE_VERSION}"
    wanted = {f"{version}/{path}": data for path, data in (bench.content if content is None else content).items()}
    for name in archives:
        assert bench.installed(name) == wanted, name


def run_in(folder, *words, stdin=b"", stdout=subprocess.DEVNULL):
    return subprocess.run(words, cwd=folder, input=stdin, stdout=stdout, stderr=subprocess.PIPE, check=True).stdout


def payload_names(content):
    return "".join(f"payload/{path}\n" for path in content)


# Info-ZIP.


def info_zip(bench, folder, name, *options, what=("payload",)):
    run_in(folder, "zip", "-q", *options, str(bench.path(name)), *what)


def info_zip_through_pipe(folder, *options):
    """Written where nothing can be gone back to, so that sizes stand behind the data."""
    return run_in(folder, "zip", "-q", *options, "-", "payload", stdout=subprocess.PIPE)


def test_archives_by_info_zip_are_installed(lab):
    bench = Bench(lab, CONTENT)
    folder = bench.stage("tree")
    options = {"plain": ["-r", "-D"], "stored": ["-r", "-D", "-0"], "best": ["-r", "-D", "-9"],
               "descriptors": ["-r", "-D", "-fd"], "zip64": ["-r", "-D", "-fz"], "no-extra": ["-r", "-D", "-X"],
               "utf8": ["-r", "-D", "-UN=UTF8"]}
    for name, words in options.items():
        info_zip(bench, folder, name, *words)
    archives = dict.fromkeys(options)
    archives["piped"] = info_zip_through_pipe(folder, "-r", "-D")
    archives["piped-stored"] = info_zip_through_pipe(folder, "-r", "-D", "-0")
    assert_installed(bench, archives)


def test_runtime_manifest_is_passed_over(lab):
    bench = Bench(lab, CONTENT)
    folder = bench.stage("tree")
    (folder / "Runtime-Manifest.json").write_bytes(b"{}")
    info_zip(bench, folder, "with-manifest", "-r", "-D", what=["payload", "Runtime-Manifest.json"])
    assert_installed(bench, {"with-manifest": None})


def test_archives_with_folders_are_refused(lab):
    """As Info-ZIP writes them unless it is told not to."""
    bench = Bench(lab, CONTENT)
    info_zip(bench, bench.stage("tree"), "folders", "-r")
    assert_told(bench, {"folders": None}, ENTRY_COUNT)


def test_a_single_folder_whose_number_fits_is_refused(lab):
    bench = Bench(lab, FLAT)
    info_zip(bench, bench.stage("tree"), "folder", "-r")
    assert_told(bench, {"folder": None}, INVALID_ENTRY)


# 7-Zip.


def seven_zip(bench, folder, name, *options, content=None):
    names = folder / f"{name}.names"
    names.write_text(payload_names(bench.content if content is None else content), encoding="utf-8")
    archive = folder / f"{name}.zip"
    run_in(folder, "7z", "a", "-tzip", "-bd", *options, str(archive), f"@{names}")
    archive.replace(bench.path(name))


def test_archives_by_7_zip_are_installed(lab):
    bench = Bench(lab, CONTENT)
    folder = bench.stage("tree")
    options = {"plain": [], "deflate": ["-mm=Deflate", "-mx=9"], "stored": ["-mx=0"], "utf8": ["-mcu=on"],
               "not-utf8": ["-mcu=off"], "local-names": ["-mcl=on"]}
    for name, words in options.items():
        seven_zip(bench, folder, name, *words)
    assert_installed(bench, dict.fromkeys(options))


def test_other_methods_of_7_zip_are_refused(lab):
    """The file is large enough for the method to be used."""
    content = {"model.onnx": CONTENT["deep/model.onnx"]}
    bench = Bench(lab, content)
    folder = bench.stage("tree")
    methods = ["LZMA", "Deflate64", "BZip2", "PPMd"]
    for method in methods:
        seven_zip(bench, folder, method, f"-mm={method}")
    assert_told(bench, dict.fromkeys(methods), payload_fails("model.onnx"))


def test_encrypted_archives_are_refused(lab):
    bench = Bench(lab, FLAT)
    folder = bench.stage("tree")
    for method in ("ZipCrypto", "AES256"):
        seven_zip(bench, folder, method, "-psecret", f"-mem={method}")
    info_zip(bench, folder, "info-zip", "-r", "-D", "-P", "secret")
    assert_told(bench, dict.fromkeys(["ZipCrypto", "AES256", "info-zip"]), payload_fails("a.txt"))


# Python.


def test_archives_by_python_are_installed(lab):
    bench = Bench(lab, CONTENT)
    entries = entries_of(CONTENT)
    assert_installed(bench, {
        "deflated": pack(entries),
        "stored": pack(entries, zipfile.ZIP_STORED),
        "zip64": pack(entries, zip64=True),
        "zip64-stored": pack(entries, zipfile.ZIP_STORED, zip64=True),
        "piped": pack(entries, seekable=False),
        "piped-stored": pack(entries, zipfile.ZIP_STORED, seekable=False),
        "piped-zip64": pack(entries, zip64=True, seekable=False),
        "backwards": pack(entries[::-1]),
        "comment": pack(entries, comment=b"a comment" * 500),
        "junk behind": pack(entries) + b"junk" * 100,
        "manifest": pack(entries + [("runtime-manifest.json", b"{}")]),
        "manifest first": pack([("RUNTIME-MANIFEST.JSON", b"x" * 0x80000)] + entries),
    })


def test_empty_files_are_installed(lab):
    content = {"empty": b"", "sub/empty": b"", "full": b"x"}
    bench = Bench(lab, content)
    entries = entries_of(content)
    info_zip(bench, bench.stage("tree"), "info-zip", "-r", "-D")
    assert_installed(bench, {"deflated": pack(entries), "stored": pack(entries, zipfile.ZIP_STORED),
                             "piped": pack(entries, seekable=False), "info-zip": None})


def test_full_inventory_is_installed(lab):
    content = {f"folder{at % 7}/file{at}": b"%d" % at for at in range(768)}
    bench = Bench(lab, content)
    assert_installed(bench, {"full": pack(entries_of(content) + [("runtime-manifest.json", b"{}")])})


def test_paths_of_260_units_are_judged_to_their_end(lab):
    """Names of 788 bytes. Installed they would be longer than a file's name may be here."""
    start = "日" * 259
    content = {start + "一": b"one", start + "二": b"two"}
    bench = Bench(lab, content)
    other_end = {start + "一": b"one", start + "三": b"two"}
    archives = {"long": pack(entries_of(content)), "other end": pack(entries_of(other_end))}
    judged = bench.judge(archives)
    assert [verdict.message for verdict in judged.values()] == [GOOD, SIZE_DIFFERS]


def test_other_methods_of_python_are_refused(lab):
    bench = Bench(lab, FLAT)
    archives = {"bzip2": pack(entries_of(FLAT), zipfile.ZIP_BZIP2), "lzma": pack(entries_of(FLAT), zipfile.ZIP_LZMA)}
    assert_told(bench, archives, payload_fails("a.txt"))


def test_names_in_other_encodings_are_refused(lab):
    """é of code page 437 and of Latin-1, あ of Shift-JIS: none of them is UTF-8."""
    content = {"caf~": b"1", "b": b"2"}
    bench = Bench(lab, content)
    archive = pack(entries_of(content))
    archives = {name: with_name(archive, b"payload/caf~", b"payload/caf" + letter)
                for name, letter in {"cp437": b"\x82", "latin1": b"\xe9"}.items()}
    archives["shift-jis"] = with_name(archive, b"payload/caf~", b"payload/ca\x82\xa0")
    assert_told(bench, archives, INVALID_ENTRY)


def test_strange_names_are_refused(lab):
    bench = Bench(lab, FLAT)
    names = {"parent": "../a.txt", "parent below": "payload/../../a.txt", "absolute": "/a.txt", "drive": "C:/a.txt",
             "drive with backslash": "C:\\a.txt", "share": "\\\\server\\share\\a.txt", "backslash": "payload\\a.txt",
             "no payload": "a.txt", "other": "payload/c.txt", "stream": "payload/a.txt:x", "dot": "payload/a.txt."}
    extra = {name: pack(entries_of(FLAT) + [(path, FLAT["a.txt"])]) for name, path in names.items()}
    instead = {f"{name} instead": pack([(path, FLAT["a.txt"]), ("payload/b.txt", FLAT["b.txt"])])
               for name, path in names.items()}
    assert_told(bench, extra | instead, SIZE_DIFFERS)


def test_name_with_nul_is_refused(lab):
    bench = Bench(lab, FLAT)
    archive = pack([("payload/a.txt~.exe", FLAT["a.txt"]), ("payload/b.txt", FLAT["b.txt"])])
    assert_told(bench, {"nul": with_name(archive, b"payload/a.txt~.exe", b"payload/a.txt\0.exe")}, SIZE_DIFFERS)


def test_repeated_and_missing_names_are_refused(lab):
    bench = Bench(lab, FLAT)
    a, b = entries_of(FLAT)
    manifest = ("runtime-manifest.json", b"{}")
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", UserWarning)  # Python warns of repeated names
        archives = {
            "twins": (pack([a, b, a]), INVALID_ENTRY),
            "twins instead": (pack([a, a]), INVALID_ENTRY),
            "case twins": (pack([a, b, ("payload/A.TXT", a[1])]), INVALID_ENTRY),
            "two manifests": (pack([a, manifest, manifest]), INVALID_RUNTIME_MANIFEST),
            "empty manifest": (pack([a, b, ("runtime-manifest.json", b"")]), INVALID_RUNTIME_MANIFEST),
            "large manifest": (pack([a, b, ("runtime-manifest.json", bytes(0x80001))]), INVALID_RUNTIME_MANIFEST),
            "manifest instead": (pack([a, manifest]), ENTRIES_DIFFER),
            "too few": (pack([a]), ENTRY_COUNT),
            "none": (pack([]), ENTRY_COUNT),
            "too many": (pack([a, b, manifest, ("payload/c", b"")]), ENTRY_COUNT),
            "other case": (pack([("Payload/a.txt", a[1]), b]), payload_fails("a.txt")),
            "other size": (pack([a, ("payload/b.txt", b[1] + b"!")]), SIZE_DIFFERS),
            "other content": (pack([a, ("payload/b.txt", b[1].upper())]), payload_fails("b.txt")),
        }
    assert_told(bench, {name: archive for name, (archive, _) in archives.items()},
                {name: message for name, (_, message) in archives.items()})


def test_archive_of_70000_entries_is_refused_by_its_number(lab):
    """More than the old end record can count."""
    bench = Bench(lab, FLAT)
    assert_told(bench, {"many": pack((f"payload/{at}", b"") for at in range(70_000))}, ENTRY_COUNT)


# This project's own builder.


def test_archives_by_the_publishers_builder_are_installed(lab):
    bench = Bench(lab, CONTENT)
    package = Package(PACKAGE_ID, PACKAGE_VERSION, CONTENT)
    with_manifest = Package(PACKAGE_ID, PACKAGE_VERSION, CONTENT, runtime_manifest=b'{"any": "thing"}')
    assert_installed(bench, {"plain": make_release.archive(package, list(CONTENT)),
                             "manifest": make_release.archive(with_manifest, list(CONTENT))})


# Damage.


def test_wrong_crcs_are_refused(lab):
    bench = Bench(lab, CONTENT)
    archives, messages = {}, {}
    for method in (zipfile.ZIP_DEFLATED, zipfile.ZIP_STORED):
        archive = pack(entries_of(CONTENT), method)
        for at, path in enumerate(CONTENT):
            name = f"{method}-{at}"
            archives[name] = with_crc(archive, f"payload/{path}", 1 << at)
            messages[name] = payload_fails(path)
    assert_told(bench, archives, messages)


def test_damaged_data_is_refused(lab):
    """A byte turned at 32 places of each large file."""
    bench = Bench(lab, CONTENT)
    archives, messages = {}, {}
    for method in (zipfile.ZIP_DEFLATED, zipfile.ZIP_STORED):
        archive = pack(entries_of(CONTENT), method)
        for path in ("deep/er/b.bin", "deep/model.onnx"):
            place = place_of(archive, f"payload/{path}")
            for step in range(32):
                name = f"{method}-{len(path)}-{step}"
                archives[name] = with_turned_byte(archive, place.data + place.packed_size * step // 32)
                messages[name] = payload_fails(path)
    judged = bench.judge(archives)
    assert {name: verdict.message for name, verdict in judged.items()} == messages


def test_lying_sizes_are_refused(lab):
    """What the directory tells of the large file in the middle."""
    bench = Bench(lab, CONTENT)
    path = "deep/model.onnx"
    name = f"payload/{path}"
    size = len(CONTENT[path])
    archive = pack(entries_of(CONTENT))
    packed = place_of(archive, name).packed_size
    shorter = CONTENT | {path: CONTENT[path][:-1]}
    longer = CONTENT | {path: CONTENT[path] + b"!"}
    cases = {
        "one less": (with_told_sizes(archive, name, unpacked=size - 1), SIZE_DIFFERS),
        "one more": (with_told_sizes(archive, name, unpacked=size + 1), SIZE_DIFFERS),
        "none": (with_told_sizes(archive, name, unpacked=0), SIZE_DIFFERS),
        "2 GiB": (with_told_sizes(archive, name, unpacked=0x80000000), SIZE_DIFFERS),
        "packed one less": (with_told_sizes(archive, name, packed=packed - 1), payload_fails(path)),
        "packed a byte": (with_told_sizes(archive, name, packed=1), payload_fails(path)),
        "packed to nothing": (with_told_sizes(archive, name, packed=0), CANNOT_OPEN),
        "packed beyond the end": (with_told_sizes(archive, name, packed=len(archive)), CANNOT_OPEN),
        "shorter": (with_told_sizes(pack(entries_of(shorter)), name, unpacked=size), payload_fails(path)),
        "longer": (with_told_sizes(pack(entries_of(longer)), name, unpacked=size), payload_fails(path)),
        "method": (patched(archive, place_of(archive, name).directory + 10, "<H", 99), payload_fails(path)),
    }
    assert_told(bench, {case: archive for case, (archive, _) in cases.items()},
                {case: message for case, (_, message) in cases.items()})


def test_archives_that_were_cut_off_are_refused(lab):
    bench = Bench(lab, ASCII_CONTENT)
    archives = {}
    for kind, whole in {"deflated": pack(entries_of(ASCII_CONTENT)),
                        "zip64": pack(entries_of(ASCII_CONTENT), zip64=True, seekable=False)}.items():
        lengths = {len(whole) * step // 64 for step in range(64)} | set(range(len(whole) - 64, len(whole)))
        archives |= {f"{kind}-{length}": whole[:length] for length in lengths}
    judged = bench.judge(archives)
    assert {verdict.message for verdict in judged.values()} == {CANNOT_OPEN}


def test_what_is_no_archive_is_refused(lab):
    bench = Bench(lab, FLAT)
    good = pack(entries_of(FLAT))
    assert_told(bench, {"empty": b"", "page": b"<html>Sign in</html>", "zeros": bytes(len(good)),
                        "program in front": b"MZ" + bytes(4094) + good}, CANNOT_OPEN)


# Memory. A job's growth is what it adds to the program's peak.

BOMB_BYTES = 100 * MEBIBYTE
SLACK_BYTES = 16 * MEBIBYTE


def test_bombs_are_not_unpacked(lab):
    """100 MiB of zeros where the inventory has a few bytes, told honestly and not."""
    bench = Bench(lab, FLAT)
    a, b = entries_of(FLAT)
    bomb = bytes(BOMB_BYTES)
    honest = pack([a, (b[0], bomb)])
    manifest = pack([a, b, ("runtime-manifest.json", bomb)])
    assert len(honest) < MEBIBYTE
    archives = {
        "good": pack([a, b]),
        "honest": honest,
        "lying": with_told_sizes(honest, b[0], unpacked=len(b[1])),
        "beside": pack([a, b, ("payload/c", bomb)]),
        "manifest": manifest,
        "lying manifest": with_told_sizes(manifest, "runtime-manifest.json", unpacked=2),
    }
    messages = {"good": GOOD, "honest": SIZE_DIFFERS, "lying": payload_fails("b.txt"), "beside": SIZE_DIFFERS,
                "manifest": INVALID_RUNTIME_MANIFEST, "lying manifest": GOOD}
    for verdicts in (bench.judge(archives), bench.install(dict.fromkeys(archives))):
        assert {name: verdict.message for name, verdict in verdicts.items()} == messages
        for name, verdict in verdicts.items():
            assert verdict.growth < SLACK_BYTES, (name, verdict)


def test_memory_holds_one_file_at_a_time(lab):
    large = 64 * MEBIBYTE
    content = {f"{at}.bin": random.Random(at).randbytes(4096) * (large // 4096) for at in range(3)}
    bench = Bench(lab, content)
    archives = {"three": pack(entries_of(content))}
    for verdicts in (bench.judge(archives), bench.install(dict.fromkeys(archives))):
        verdict = verdicts["three"]
        assert verdict.ok, verdict
        assert large <= verdict.peak_after and verdict.growth < large + SLACK_BYTES, verdict

"""demo.py OUTPUT: runs inside the lab. Makes a release with the publishers' program, serves it under the production
names, lets the shipped launcher update an installation, and shows what changed."""

import hashlib
import json
import subprocess
import sys
from pathlib import Path

TOP = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(TOP / "tests/e2e"))

from lab import LAUNCHER, Lab, Reply, STATE, Screen, app_binary, install, names, with_file_version  # noqa: E402

OUT = Path(sys.argv[1])
OLD, NEW = "1.0.0.0", "1.1.0.0"
NOTES = {
    "defaultLocale": "en",
    "localizations": [{
        "locale": "en",
        "summary": "Quieter starts and a new theme.",
        "highlights": ["The first sound plays without a click.", "Theme “Dawn” for bright rooms."],
    }],
}


PACKAGE = {"id": "uvr-mdx", "version": "1.0.0.0", "capability": "uvr-mdx", "requiredForStartup": False}


def say(text=""):
    print(text)


def headline(text):
    say(f"\n-- {text}")


def make_release():
    """What a publisher does: a folder of new files becomes a manifest and a folder to upload."""
    files = OUT / "new-files/Velmora Pine Relay"
    (files / "Themes").mkdir(parents=True)
    (files / "Velmora Pine Relay.exe").write_bytes(app_binary(NEW))
    (files / "Themes/dawn.vprtheme").write_bytes(b"dawn: bright\n")
    package = OUT / "uvr-mdx"
    (package / "payload").mkdir(parents=True)
    (package / "payload/model.onnx").write_bytes(b"a model " * 50_000)
    (package / "payload/labels.txt").write_bytes(b"voice\nmusic\n")
    (package / "package.json").write_text(json.dumps(PACKAGE))
    (OUT / "notes.json").write_text(json.dumps(NOTES), encoding="utf-8")
    command = ["tools/make_release.py", "--version", NEW, "--minimum-launcher", "1.0.0.0", "--files", OUT / "new-files",
               "--package", package, "--notes", OUT / "notes.json", "--base-url", names.release_base_url("primary", NEW), "--out", OUT / "release"]
    shown = [str(part).replace(str(OUT), "build/demo") for part in command]
    say("$ " + " ".join(shown))
    subprocess.run(["/usr/bin/python3", *command], cwd=TOP, check=True)


def serve(lab):
    lab.on(*names.manifest_place("primary"), Reply(200, (OUT / "release/stable.json").read_bytes()))
    host, folder = names.release_place("primary", NEW)
    for upload in sorted((OUT / "release/upload").iterdir()):
        lab.on(host, folder + upload.name, Reply(200, upload.read_bytes(), etag=f'"{upload.name}-1"'))
        say(f"https://{host}{folder}{upload.name}")


def take_picture(screen, name, window):
    screen.take_picture(name, window)
    say(f"picture: build/demo/{name}.png")


def show_run(result):
    for request in result.requests:
        say(f"   {request}")
    say(f"   the launcher left with {result.exit_code} after {result.elapsed:.2f} s")
    say(f"   started: version {result.app.version} with arguments {result.app.args}")


def show_changes(before, after):
    for path in sorted(before.keys() | after.keys()):
        if before.get(path) != after.get(path):
            kind = "new    " if path not in before else "gone   " if path not in after else "changed"
            say(f"   {kind} {path}")


def check_build(lab, tree):
    manifest = lab.folder / "stable.json"
    manifest.write_bytes((OUT / "release/stable.json").read_bytes())
    for command in (["--launcher-update-production-manifest-self-test", lab.windows_path(manifest), "valid"],
                    ["--launcher-download-contract-self-test"], ["--launcher-update-progress-model-self-test"]):
        answer = lab.run(tree, command)
        say(f"   {command[0]} -> {answer.exit_code} {answer.output.decode()}".rstrip())
        assert answer.exit_code == 0


def replace_launcher(lab, tree):
    image = with_file_version(LAUNCHER.read_bytes(), "1.2.0.0")
    program = tree.write("Velmora Pine Relay/Updater/Velmora Pine Relay.exe", image)
    replaced = lab.run(program, ["--install-launcher-update", tree.windows("Velmora Pine Relay.exe"),
                                 tree.windows("current.json"), "1.2.0.0", hashlib.sha256(image).hexdigest()])
    say(f"   it left with {replaced.exit_code}; current.json says {tree.read_configuration()['launcherVersion']}")
    assert replaced.exit_code == 0 and tree.launcher.read_bytes() == image


def demo(lab):
    headline("a publisher makes release " + NEW)
    make_release()
    headline("it is served over HTTPS under the production names, on loopback addresses")
    serve(lab)
    headline(f"version {OLD} is installed; the user starts the launcher with a file to open")
    tree = install(lab, "Velmora", app_version=OLD)
    before = tree.snapshot(exclude=STATE)
    run = lab.start(tree, ["C:\\Music\\first song.wav"], ["wait"])
    screen = Screen(OUT)
    take_picture(screen, "prompt", run.wait_for_window("prompt"))
    screen.click(run, "update")
    take_picture(screen, "updated", run.wait_for_window("progress", match=lambda window: window.shows("Update complete")))
    result = run.wait()
    show_run(result)
    headline("what changed in the installation")
    show_changes(before, tree.snapshot(exclude=STATE))
    say(f"   current.json says {tree.read_configuration()['productVersion']}")
    tree.assert_no_leftovers()
    headline("the next start finds nothing to do")
    again = lab.run(tree, ["--check-for-updates"])
    show_run(again)
    assert result.app.version == again.app.version == NEW and len(again.requests) == 1
    headline("the launcher checks the release and itself")
    check_build(lab, tree)
    headline("a newer launcher takes this one's place")
    replace_launcher(lab, tree)


def main():
    lab = Lab()
    lab.begin_test("demo")
    failed = True
    try:
        demo(lab)
        failed = False
    finally:
        lab.end_test(failed)
        lab.close()
    say("\nthe demo went well")


main()

"""screenshots.py OUTPUT: runs inside a lab with a display. Lets the shipped launcher show four of its views and takes
their pictures: prompt, progress, failure, compact."""

import re
import sys
from pathlib import Path

TOP = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(TOP / "tests/e2e"))

from lab import APPLICATION_PATH, Lab, Screen, install, note, notes, update  # noqa: E402

NOTES = notes(note(
    "en",
    "Quieter starts, a new theme, and playback that survives a changed output device.",
    ["The first sound plays without a click.",
     "Theme “Dawn” for bright rooms.",
     "Headphones may come and go while music plays: the queue stays where it was, and the volume of each device is "
     "remembered.",
     "Long file names are shown whole in the tooltip."],
    ["Theme “Dawn” for bright rooms."],
))
RELEASE_BYTES = 24_000_000
BYTES_PER_SECOND = 3_000_000  # slow enough for a forecast to be made before the middle


def release(version, **options):
    return update(version, padding=RELEASE_BYTES, notes=NOTES, notes_url="https://notes.example/1.1.0.0", **options)


def is_half_way(window):
    return window.shows(" · about ") and any(re.search(r" · [56]\d%$", text) for text in window.texts)


def show_prompt_and_progress(lab, screen):
    tree = install(lab, "updated")
    offered = release("1.1.0.0")
    reply = offered.payload_reply(APPLICATION_PATH).but(throttle=BYTES_PER_SECOND)
    offered.publish(lab, payloads={APPLICATION_PATH: reply})
    run = lab.start(tree, answers=["wait"])
    screen.take_picture("prompt", run.wait_for_window("prompt"))
    screen.click(run, "update")
    screen.take_picture("progress", run.wait_for_window("progress", match=is_half_way))
    run.wait()


def show_compact(lab, screen):
    tree = install(lab, "repaired", themes={"dawn.vprtheme": b"not the theme"})
    theme = "Velmora Pine Relay/Themes/dawn.vprtheme"
    published = update("1.0.0.0", files={theme: b"the theme" * 100_000})
    published.publish(lab, payloads={theme: published.payload_reply(theme).but(throttle=500_000)})
    run = lab.start(tree)
    window = run.wait_for_window("compact", match=lambda seen: seen.shows("Repairing missing or damaged files…"))
    lab.wait_for_bytes(lab.wait_for_request(*published.place(theme), count=2), 500_000)  # the first only looks
    screen.take_picture("compact", window)
    run.wait()


def show_failure(lab, screen):
    """The application still runs, so the update can neither be finished nor undone."""
    tree = install(lab, "stopped")
    holder = lab.start(tree, ["--skip-update-check"], ["wait"], env={"VPR_SAMPLE_DIALOG": "busy"})
    holder.wait_for_window("dialog")
    update("1.1.0.0").publish(lab)
    run = lab.start(tree, answers=["yes", "wait"])
    screen.take_picture("failure", run.wait_for_window("failure"))
    run.click("close")
    run.wait()
    holder.close_window()
    holder.wait()


def main():
    lab = Lab()
    out = Path(sys.argv[1])
    screen = Screen(out)
    for show in (show_prompt_and_progress, show_compact, show_failure):
        lab.begin_test(show.__name__)
        try:
            show(lab, screen)
        finally:
            lab.end_test(failed=sys.exc_info()[0] is not None)
    lab.close()
    print("pictures: " + ", ".join(sorted(path.name for path in out.glob("*.png"))))


main()

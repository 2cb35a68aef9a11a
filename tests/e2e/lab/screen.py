"""The lab's display: a real pointer, a real keyboard, and pictures of what is to be seen."""

import os
import subprocess
import time

from .launcher import BUTTONS
from .server import LabError

BAR = 1006
PAINTED_SECONDS = 10


class Screen:
    """Needs a lab with a display: `tools/lab --xvfb`. Input goes through the X server, as a person's would."""

    def __init__(self, pictures):
        if not os.environ.get("VPR_WINE_DISPLAY"):
            raise LabError("this test needs a lab with a display: use ./dev test e2e window, or tools/lab --xvfb COMMAND")
        self._environment = {**os.environ, "DISPLAY": os.environ["VPR_WINE_DISPLAY"]}
        self._pictures = pictures

    def click(self, run, button):
        """Clicks the middle of a button where it stood when the driver last told of it."""
        left, top, right, bottom = self._latest(run, button)["place"]
        self._do("mousemove", (left + right) // 2, (top + bottom) // 2)
        self._do("click", 1)

    def press(self, *keys):
        """Keys by their X names: Return, Escape, Tab, space, alt+F4."""
        for key in keys:
            self._do("key", key)

    def take_picture(self, name, window):
        """What the window shows, as `name`.png, without the frame, which Wine draws as Windows did long ago; gives its
        path."""
        left, top, right, bottom = window.inside
        path = self._pictures / f"{name}.png"
        path.parent.mkdir(parents=True, exist_ok=True)
        area = f"{right - left}x{bottom - top}+{left}+{top}"
        self._run("import", "-window", "root", "-crop", area, "+repage", str(path))
        return path

    def await_bar(self, name, window, colour):
        """Takes a picture, again and again until the middle of the window's bar has that colour ("rrggbb"): the window
        is told of before it is painted."""
        deadline = time.monotonic() + PAINTED_SECONDS
        while (found := self._colour_of_bar(window, self.take_picture(name, window))) != colour:
            if time.monotonic() > deadline:
                raise LabError(f"the bar is {found} instead of {colour}")

    def _colour_of_bar(self, window, picture):
        left, top, right, bottom = next(control["place"] for control in window.controls if control["id"] == BAR)
        x, y = (left + right) // 2 - window.inside[0], (top + bottom) // 2 - window.inside[1]
        pixel = f"%[hex:u.p{{{x},{y}}}]"
        return self._run("convert", str(picture), "-alpha", "off", "-depth", "8", "-format", pixel, "info:").stdout.lower()

    @staticmethod
    def _latest(run, button):
        number = BUTTONS[button]
        for event in reversed(run.events()):
            for control in event.get("controls", ()):
                if control["id"] == number and control["enabled"]:
                    return control
        raise LabError(f"no window showed an enabled button {button!r}")

    def _do(self, *words):
        self._run("xdotool", *map(str, words))

    def _run(self, *command):
        return subprocess.run(command, env=self._environment, check=True, capture_output=True, text=True)

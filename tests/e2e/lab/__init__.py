"""The lab of the end-to-end tests: servers under the production names, installations, and runs of the launcher.

Import from here; README.md beside this folder's parent tells how it is used.
"""

from . import names
from .bodies import SyntheticBody
from .install import LEFTOVERS, STATE, Tree, configuration_text, deep_folder, install, runtime_state_text
from .launcher import AppReport, LaunchHandle, RunResult, Window, command_line, quote
from .programs import DRIVER, LAUNCHER, SAMPLE_APP, WINDOW_DOUBLE, app_binary, file_version, with_file_version
from .release import APPLICATION_PATH, Package, Release, content_of, note, notes, update
from .replies import AUTO, Gate, Reply, html, redirect
from .server import LabError
from .screen import Screen
from .session import Lab, require_lab

__all__ = [
    "APPLICATION_PATH", "AUTO", "AppReport", "DRIVER", "Gate", "LAUNCHER", "LEFTOVERS", "Lab", "LabError",
    "LaunchHandle", "Package", "Release", "Reply", "RunResult", "SAMPLE_APP", "STATE", "Screen", "SyntheticBody", "Tree",
    "WINDOW_DOUBLE", "Window", "app_binary", "command_line", "configuration_text", "content_of", "deep_folder",
    "file_version", "html", "install", "names", "note", "notes", "quote", "redirect", "require_lab", "runtime_state_text", "update",
    "with_file_version",
]

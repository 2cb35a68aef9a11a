"""Installations for the launcher to work on, and looking at what became of them."""

import fnmatch
import hashlib
import json
import os
from pathlib import Path

from . import names, programs
from .bodies import body_of
from .server import LabError

APPLICATION_FOLDER = "Velmora Pine Relay"
PROGRAM_NAME = "Velmora Pine Relay.exe"

# Wine keeps the attributes that the file system has no place for in this one.
ATTRIBUTES = "user.DOSATTRIB"
HIDDEN = 0x2

# What may remain after a run that was not killed: see assert_no_leftovers.
LEFTOVERS = (
    ".vpr-update/staging-*",
    ".vpr-update/backup-*",
    ".vpr-update/transaction*.json",
    ".vpr-update/transaction.lock",
    "*.tmp",
    "*.new",
    "*.update-new",
    "*.update-recovery",
    "*.launcher-update",
    "*/.staging-*",
    "*/.repair-backup-*",
)

# What a run may change without an update: for Tree.snapshot(exclude=STATE).
STATE = (".vpr-update", ".vpr-update/*", "update-state.json")


def configuration_text(
    product_version,
    launcher_version,
    manifest_url=names.PRIMARY_MANIFEST_URL,
    directory=APPLICATION_FOLDER,
    executable=PROGRAM_NAME,
    interval=15,
):
    """current.json exactly as the launcher writes it. Texts are quoted as JSON."""
    fields = [
        ("schemaVersion", 1),
        ("product", "Velmora Pine Relay"),
        ("productVersion", product_version),
        ("launcherVersion", launcher_version),
        ("applicationDirectory", directory),
        ("applicationExecutable", executable),
        ("updateManifestUrl", manifest_url),
        ("updateCheckIntervalMinutes", interval),
    ]
    lines = [f'  "{key}": {json.dumps(value, ensure_ascii=False)}' for key, value in fields]
    return "{\n" + ",\n".join(lines) + "\n}\n"


def runtime_state_text(packages):
    """The Runtime folder's current.json for these packages, in this order."""
    lines = [
        f'    {{"id": "{package.id}", "version": "{package.version}", "path": "packs/{package.id}/{package.version}", '
        f'"capability": "{package.capability}", "requiredForStartup": {"true" if package.required else "false"}}}'
        for package in packages
    ]
    return '{\n  "schemaVersion": 1,\n  "packages": [\n' + ",\n".join(lines) + "\n  ]\n}\n"


def deep_folder(units, component="deep folder 日本"):
    """A relative folder of at least `units` UTF-16 units, made of short components."""
    parts = []
    while len("/".join(parts)) < units:
        parts.append(f"{component} {len(parts) + 1}")
    return "/".join(parts)


class Tree:
    """One installation. Paths inside it are given relative, with forward slashes."""

    def __init__(self, root, drive):
        self.root = Path(root)
        self._drive = Path(drive)

    # Places.

    @property
    def launcher(self):
        return self.root / PROGRAM_NAME

    @property
    def configuration(self):
        return self.root / "current.json"

    @property
    def application_folder(self):
        return self.root / APPLICATION_FOLDER

    @property
    def application(self):
        return self.application_folder / PROGRAM_NAME

    @property
    def update_folder(self):
        return self.root / ".vpr-update"

    @property
    def runtime(self):
        return self.application_folder / "Runtime"

    def path(self, relative=""):
        return self.root / relative

    def windows(self, relative=""):
        r"""The Windows path, beginning with C:\."""
        below = (self.root / relative).relative_to(self._drive)
        return "C:\\" + str(below).replace("/", "\\")

    # Changing.

    def write(self, relative, content):
        """Puts a file into the installation; bytes, text or a SyntheticBody."""
        target = self.root / relative
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(body_of(content).read_all())
        return target

    def write_configuration(self, **fields):
        """Rewrites current.json; the versions stay as they are unless given. See configuration_text."""
        present = self.read_configuration()
        fields.setdefault("product_version", present["productVersion"])
        fields.setdefault("launcher_version", present["launcherVersion"])
        self.configuration.write_bytes(configuration_text(**fields).encode())

    def add_packages(self, *packages, active=True):
        """Unpacks packages (release.Package) into Runtime/packs, and names them in the Runtime's current.json."""
        for package in packages:
            for path, content in package.files.items():
                self.write(f"{APPLICATION_FOLDER}/Runtime/packs/{package.id}/{package.version}/{path}", content)
        if active:
            self.write(f"{APPLICATION_FOLDER}/Runtime/current.json", runtime_state_text(packages))

    def hide(self, relative):
        os.setxattr(self.root / relative, ATTRIBUTES, b"0x%x" % HIDDEN)

    # Looking.

    def is_hidden(self, relative):
        try:
            value = os.getxattr(self.root / relative, ATTRIBUTES)
        except OSError:
            return False
        return bool(int(value.rstrip(b"\0"), 16) & HIDDEN)

    def read(self, relative):
        return (self.root / relative).read_bytes()

    def read_configuration(self):
        return json.loads(self.configuration.read_text(encoding="utf-8"))

    def application_version(self):
        """The file version of the installed application."""
        return programs.file_version(self.application.read_bytes())

    def snapshot(self, exclude=(), folders=False):
        """{relative path: (SHA-256, size)} of every file, ("link", target) of every link; with `folders` also
        {"folder/": ("folder", 0)}.

        `exclude`: patterns of fnmatch on relative paths, in which * also matches slashes. An excluded folder does not
        exclude what is in it; STATE shows the form that does.
        """
        found = {}
        for path in sorted(self.root.rglob("*")):
            relative = path.relative_to(self.root).as_posix()
            if any(fnmatch.fnmatchcase(relative, pattern) for pattern in exclude):
                continue
            if path.is_symlink():
                found[relative] = ("link", os.readlink(path))
                continue
            if path.is_dir():
                if folders:
                    found[relative + "/"] = ("folder", 0)
                continue
            content = path.read_bytes()
            found[relative] = (hashlib.sha256(content).hexdigest(), len(content))
        return found

    def leftovers(self):
        everything = self.snapshot(folders=True)
        paths = [path.rstrip("/") for path in everything]
        return [path for path in paths if any(fnmatch.fnmatchcase(path, pattern) for pattern in LEFTOVERS)]

    def assert_no_leftovers(self):
        """No journal, lock, staging or backup folder and no temporary file: the run cleaned up behind itself."""
        found = self.leftovers()
        assert not found, f"left behind in {self.root}: {found}"


def install(
    lab,
    folder="app",
    *,
    app_version="1.0.0.0",
    product_version=None,
    launcher_version=None,
    launcher=programs.LAUNCHER,
    configuration=None,
    manifest_url=names.PRIMARY_MANIFEST_URL,
    interval=15,
    application=None,
    reading=(),
    themes=(),
    packages=(),
    files=(),
):
    r"""Builds an installation in this test's part of drive C: and gives its Tree.

    folder            below C:\lab\<test>; may hold slashes, blanks, any script; see also deep_folder
    app_version       file version of the application, and product version in current.json unless product_version says
                      otherwise; application= gives its bytes instead
    launcher_version  in current.json; None: the launcher's own
    configuration     None: written as the launcher does; False: no file; bytes or text: exactly that
    reading, themes   {file name: content} in JapaneseReading/ and Themes/
    packages          release.Package objects that are installed and active
    files             {relative path: content} besides
    """
    root = lab.folder / folder
    too_long = [part for part in Path(folder).parts if len(part.encode()) > 255]
    if too_long or root.exists():
        raise LabError(f"cannot install into {folder!r}: name too long for the file system, or used already")
    tree = Tree(root, lab.drive)
    launcher_bytes = programs.read_program(launcher)
    tree.write(PROGRAM_NAME, launcher_bytes)
    tree.write(f"{APPLICATION_FOLDER}/{PROGRAM_NAME}", application or programs.app_binary(app_version))
    if configuration is None:
        configuration = configuration_text(
            product_version or app_version,
            launcher_version or programs.file_version(launcher_bytes),
            manifest_url,
            interval=interval,
        )
    if configuration is not False:
        tree.write("current.json", configuration)
    for name, content in dict(reading).items():
        tree.write(f"{APPLICATION_FOLDER}/JapaneseReading/{name}", content)
    for name, content in dict(themes).items():
        tree.write(f"{APPLICATION_FOLDER}/Themes/{name}", content)
    for path, content in dict(files).items():
        tree.write(path, content)
    if packages:
        tree.add_packages(*packages)
    return tree

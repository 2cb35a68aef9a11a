"""Releases on the lab's servers, made by the publishers' own program."""

import json
import sys

from . import names
from .bodies import body_of
from .programs import TOP, app_binary
from .replies import Reply, html
from .server import LabError

sys.path.append(str(TOP / "tools"))
import make_release  # noqa: E402  (it lies beside the other programs for publishers, not in a package)

Package = make_release.Package

APPLICATION_PATH = "Velmora Pine Relay/Velmora Pine Relay.exe"


def content_of(package):
    """{inventory path: bytes} of a package, whether or not a release holds it already."""
    return {path: body_of(content).read_all() for path, content in package.files.items()}


def note(locale="en", summary="A summary", highlights=("A highlight",), emphasized=()):
    entry = {"locale": locale, "summary": summary, "highlights": list(highlights)}
    return entry | ({"emphasizedItems": list(emphasized)} if emphasized else {})


def notes(*localizations, default="en"):
    return {"defaultLocale": default, "localizations": list(localizations) or [note()]}


class Release:
    """One release and its two publications.

    files     {install path: bytes, text or SyntheticBody}
    notes     the releaseNotes object, see notes() and note()
    packages  Package objects
    """

    def __init__(self, version, files=(), *, notes=None, notes_url=None, priority="normal",
                 minimum_launcher="1.0.0.0", packages=()):
        self.version = version
        self.files = {path: body_of(content) for path, content in dict(files).items()}
        self.packages = [self._with_bodies(package) for package in packages]
        self.built = make_release.build(version, minimum_launcher, self.files, priority=priority, notes=notes,
                                        notes_url=notes_url, packages=self.packages)

    @staticmethod
    def _with_bodies(package):
        package.files = {path: body_of(content) for path, content in package.files.items()}
        if package.patch_from is not None:
            Release._with_bodies(package.patch_from)
        return package

    # Where things are.

    @property
    def payload_names(self):
        return list(self.built.payloads)

    def payload(self, name):
        return body_of(self.built.payloads[name])

    def name_of(self, path):
        """The upload name of an install path, a package id, or (package id, "patch")."""
        for entry in self.built.manifest["files"]:
            if entry["path"] == path:
                return entry["url"]
        for entry in self.built.manifest.get("packagesV2", ()):
            if path == entry["id"]:
                return entry["url"]
            if path == (entry["id"], "patch") and "patch" in entry:
                return entry["patch"]["url"]
        raise LabError(f"release {self.version} has no {path!r}")

    def place(self, path, source="primary"):
        """(host, path on the server) of a payload: for lab.on, lab.requests_to and lab.wait_for_request."""
        host, folder = names.release_place(source, self.version)
        return host, folder + self.name_of(path)

    def etag(self, name, source="primary"):
        """The strong tag of a payload; the two sources have different ones, as two servers would."""
        return f'"{source}-{self.payload(name).sha256[:16]}"'

    # The manifest.

    def manifest(self, source="primary", *, edit=None, version=None, wrong_sha=None, wrong_size=None, foreign_url=None,
                 pad_to=None, as_html=False):
        """The manifest of a source as bytes, tampered with as asked.

        wrong_sha, wrong_size   install path of a file, or package id, whose entry lies
        foreign_url             {install path or package id: URL}
        version                 another version number than the payloads'
        edit                    function that changes the manifest object in place
        pad_to                  exactly this many bytes, by blanks behind the end
        as_html                 a sign-in page instead
        """
        if as_html:
            return html().body.encode()
        manifest = self.built.manifest_for(names.release_base_url(source, self.version))
        if version is not None:
            manifest["version"] = version
        if wrong_sha is not None:
            entry = self._entry(manifest, wrong_sha)
            entry["sha256"] = f"{int(entry['sha256'], 16) ^ 1:064x}"
        if wrong_size is not None:
            self._entry(manifest, wrong_size)["size"] += 1
        for path, url in (foreign_url or {}).items():
            self._entry(manifest, path)["url"] = url
        if edit is not None:
            edit(manifest)
        text = json.dumps(manifest, ensure_ascii=False, indent=2).encode()
        if pad_to is None:
            return text
        if len(text) > pad_to:
            raise LabError(f"the manifest has {len(text)} bytes already, more than {pad_to}")
        return text.ljust(pad_to)

    @staticmethod
    def _entry(manifest, path):
        for entry in [*manifest["files"], *manifest.get("packagesV2", ())]:
            if path in (entry.get("path"), entry.get("id")):
                return entry
        raise LabError(f"the manifest has no {path!r}")

    # Publishing.

    def manifest_reply(self, source="primary", **tampering):
        kind = "text/html" if tampering.get("as_html") else "text/plain; charset=utf-8"
        return Reply(200, self.manifest(source, **tampering), content_type=kind)

    def payload_reply(self, path, source="primary"):
        """The honest reply for a payload; `.but(...)` makes it misbehave."""
        return self._reply(self.name_of(path), source)

    def _reply(self, name, source):
        return Reply(200, self.payload(name), etag=self.etag(name, source))

    def publish(self, lab, source="primary", *, payloads=None, **tampering):
        """Puts manifest and payloads on a source ("primary", "backup" or "both").

        payloads   {install path, package id or (id, "patch"): reply, list of replies or function} in place of the
                   honest ones
        tampering  as for manifest()
        """
        for one in names.SOURCES if source == "both" else [source]:
            lab.on(*names.manifest_place(one), self.manifest_reply(one, **tampering))
            host, folder = names.release_place(one, self.version)
            for name in self.payload_names:
                lab.on(host, folder + name, self._reply(name, one))
            for path, reply in (payloads or {}).items():
                lab.on(*self.place(path, one), reply)
        return self


def update(version="1.1.0.0", *, padding=0, **options):
    """The commonest release: a new application."""
    files = options.pop("files", {APPLICATION_PATH: app_binary(version, padding)})
    return Release(version, files, **options)

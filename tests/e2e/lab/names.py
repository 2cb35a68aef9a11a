"""The names that the shipped launcher speaks to, and the loopback address that plays each of them.

This is the one place for it: the hosts file and the certificates of the lab are made from here. Run as a program it
prints the hosts file.
"""

import socket

PRIMARY_MANIFEST = "raw.githubusercontent.com"
PRIMARY_RELEASE = "github.com"
BACKUP = "updates.pinerelay.example"
CDN = "cdn.lab.example"  # where redirects lead

HOSTS = {
    PRIMARY_MANIFEST: "127.0.0.2",
    PRIMARY_RELEASE: "127.0.0.3",
    BACKUP: "127.0.0.4",
    CDN: "127.0.0.5",
}

# Servers that are not the lab's own; a test starts them where it wants them.
NGINX = "nginx.lab.example"
ADDRESSES = {**HOSTS, NGINX: "127.0.0.6"}

# No server's own name; the certificate of the kind "wrong-name" carries it.
OTHER_NAME = "elsewhere.lab.example"

PRIMARY_MANIFEST_PATH = "/QuillFarrowWorks/Velmora-Pine-Relay-Updates/master/updates/stable.json"
BACKUP_MANIFEST_PATH = "/updates/stable.json"
PRIMARY_MANIFEST_URL = f"https://{PRIMARY_MANIFEST}{PRIMARY_MANIFEST_PATH}"
BACKUP_MANIFEST_URL = f"https://{BACKUP}{BACKUP_MANIFEST_PATH}"

SOURCES = ("primary", "backup")


def manifest_place(source):
    """(host, path) of a source's manifest."""
    return {
        "primary": (PRIMARY_MANIFEST, PRIMARY_MANIFEST_PATH),
        "backup": (BACKUP, BACKUP_MANIFEST_PATH),
    }[source]


def release_place(source, version):
    """(host, path of the folder) that holds the payloads of a release, with a slash at the end."""
    return {
        "primary": (PRIMARY_RELEASE, f"/QuillFarrowWorks/Velmora-Pine-Relay-Updates/releases/download/v{version}/"),
        "backup": (BACKUP, f"/releases/v{version}/"),
    }[source]


def release_base_url(source, version):
    host, folder = release_place(source, version)
    return f"https://{host}{folder}"


def hosts_file():
    lines = ["127.0.0.1 localhost", f"127.0.0.1 {socket.gethostname()}"]
    lines += [f"{address} {name}" for name, address in ADDRESSES.items()]
    return "\n".join(lines) + "\n"


if __name__ == "__main__":
    print(hosts_file(), end="")

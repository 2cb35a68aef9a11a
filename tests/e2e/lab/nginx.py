"""nginx in the lab: a server that nobody here wrote, with its own mind about ranges, tags, dates and lengths."""

import dataclasses
import json
import os
import socket
import subprocess
import time

from . import names, programs
from .server import HTTPS_PORT, LabError

# Unpacked there, never installed: this machine knows no service of that name.
PROGRAM = programs.TOP / "build/packages/nginx/usr/sbin/nginx"
START_SECONDS = 30
STOP_SECONDS = 30
POLL_SECONDS = 0.01

# One process, which gives its rights to no other user: within a user namespace there is none.
CONFIGURATION = """
daemon off;
master_process off;
user root;
pid nginx.pid;
error_log error.log info;
events {{ worker_connections 64; }}
http {{
    client_body_temp_path body;
    proxy_temp_path proxy;
    fastcgi_temp_path fastcgi;
    uwsgi_temp_path uwsgi;
    scgi_temp_path scgi;
    types {{ text/html html; }}
    default_type application/octet-stream;
    log_format lab escape=json '{{"path":"$uri","status":$status,"sent":$body_bytes_sent,"range":"$http_range",'
        '"if_range":"$http_if_range","etag":"$sent_http_etag","last_modified":"$sent_http_last_modified",'
        '"encoding":"$sent_http_content_encoding"}}';
    access_log access.log lab;
    server {{
        listen {address}:{port} {secure};
        ssl_certificate "{certificate}";
        ssl_certificate_key "{certificate}";
        root site;
        {directives}
    }}
}}
"""


@dataclasses.dataclass
class Served:
    """One request with its answer, as nginx logged it when it was over. What was not there is empty."""

    path: str
    status: int
    sent: int  # body bytes
    range: str
    if_range: str
    etag: str
    last_modified: str
    encoding: str


class Nginx:
    """Serves what `put` puts there, under names.NGINX. Ends with the `with` block."""

    def __init__(self, lab):
        self.folder = lab.folder / "nginx"
        self.folder.mkdir()
        self._process = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def put(self, path, content, modified=None):
        """Makes or replaces a file. `modified`: its time in seconds; files of one size and time have the same tag."""
        file = self.folder / "site" / path.lstrip("/")
        file.parent.mkdir(parents=True, exist_ok=True)
        fresh = file.with_name(file.name + ".fresh")
        fresh.write_bytes(content)
        if modified is not None:
            os.utime(fresh, (modified, modified))
        fresh.replace(file)  # an answer that is being sent keeps the old one

    def start(self, directives="", secure=True):
        """`directives` go into the server block; `secure=False` speaks plain http on the port of https."""
        if self._process:
            raise LabError("nginx runs already")
        certificate = os.path.join(os.environ["VPR_LAB_CERTIFICATES"], "trusted.pem")
        configuration = self.folder / "nginx.conf"
        configuration.write_text(CONFIGURATION.format(
            address=names.ADDRESSES[names.NGINX], port=HTTPS_PORT, secure="ssl" if secure else "",
            certificate=certificate, directives=directives))
        with open(self.folder / "output.log", "wb") as log:
            try:
                self._process = subprocess.Popen(
                    [PROGRAM, "-p", f"{self.folder}/", "-c", configuration, "-e", "error.log"],
                    stdin=subprocess.DEVNULL, stdout=log, stderr=log)
            except FileNotFoundError:
                raise LabError("no nginx; ./dev setup fetches it") from None
        self._wait(self._listens, START_SECONDS, "nginx to listen")

    def stop(self):
        """At once: connections break off."""
        if not self._process:
            return
        self._process.terminate()
        try:
            self._process.wait(STOP_SECONDS)
        except subprocess.TimeoutExpired:
            self._process.kill()
            raise LabError("nginx did not end") from None
        finally:
            self._process = None

    def restart(self, directives="", secure=True):
        self.stop()
        self.start(directives, secure)

    def served(self, count, timeout=30):
        """The answers so far, once there are so many; exactly so many."""
        log = self.folder / "access.log"

        def lines():
            return log.read_text().splitlines(keepends=True) if log.exists() else []

        self._wait(lambda: len([line for line in lines() if line.endswith("\n")]) >= count, timeout, f"{count} answers")
        answers = [Served(**json.loads(line)) for line in lines()]
        if len(answers) != count:
            raise LabError(f"{len(answers)} answers instead of {count}: {answers}")
        return answers

    def _listens(self):
        try:
            socket.create_connection((names.ADDRESSES[names.NGINX], HTTPS_PORT), timeout=10).close()
            return True
        except ConnectionRefusedError:
            return False

    def _wait(self, condition, seconds, what):
        deadline = time.monotonic() + seconds
        while not condition():
            ended = self._process and self._process.poll() is not None
            if ended or time.monotonic() > deadline:
                told = [path.read_text(errors="replace") for path in sorted(self.folder.glob("*.log"))]
                raise LabError(f"waited in vain for {what}:\n" + "\n".join(told))
            time.sleep(POLL_SECONDS)

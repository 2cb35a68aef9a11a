"""The servers of the lab: one HTTPS and one plain HTTP listener for each host name, scripted by the tests."""

import os
import select
import socket
import ssl
import threading
import time

from . import certificates, names
from .connection import Connection
from .replies import Gate, Reply

HTTPS_PORT = 443
HTTP_PORT = 80
NOT_FOUND = Reply(404, "not found", content_type="text/plain")
JOIN_SECONDS = 10

MODES = (
    "serve",
    "refuse",  # nothing listens
    "silent",  # accepts and never says a word: no handshake
    "mute",  # shakes hands, reads the request, never answers
    "blackhole",  # connection attempts get no answer at all
)


class LabError(AssertionError):
    """The lab was used wrongly, or what a test waited for did not come."""


class Host:
    """One server of the lab: its name, address, present behaviour and certificate."""

    def __init__(self, name, address):
        self.name = name
        self.address = address
        self.mode = "serve"
        self.certificate = "trusted"
        self.listeners = []
        self.fillers = []  # sockets that keep a blackhole's queue full


class Listener(threading.Thread):
    """Accepts on one address and port and hands each connection over."""

    def __init__(self, servers, host, secure):
        port = HTTPS_PORT if secure else HTTP_PORT
        super().__init__(name=f"listener {host.name}:{port}", daemon=True)
        self.servers = servers
        self.host = host
        self.secure = secure
        self.socket = socket.socket()
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.socket.bind((host.address, port))
        self.socket.listen(64)

    def run(self):
        while True:
            try:
                accepted, _ = self.socket.accept()
            except OSError:
                return  # closed
            accepted.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            self.servers.welcome(self.host, accepted, self.secure)

    def close(self):
        try:
            self.socket.shutdown(socket.SHUT_RDWR)  # wakes the accept, which close alone does not
        except OSError:
            pass
        self.join(JOIN_SECONDS)
        self.socket.close()


class Route:
    def __init__(self, replies):
        self.replies = replies
        self.hits = 0

    def pick(self, hit):
        return self.replies if callable(self.replies) else self.replies[min(hit, len(self.replies) - 1)]


class Servers:
    """All servers of a lab. Methods are for the test's thread unless a comment says otherwise.

    Everything recorded is guarded by one condition, which also lets a test await what the servers see.
    """

    def __init__(self, certificate_folder):
        self.contexts = {kind: self._context(certificate_folder, kind) for kind in certificates.KINDS}
        self.hosts = {name: Host(name, address) for name, address in names.HOSTS.items()}
        self.changed = threading.Condition()
        self.requests = []  # of this test, in order of arrival
        self.connections = []  # of this test, whether or not a request came over them
        self.problems = []  # faults of the lab itself
        self._alive = set()
        self._routes = {}
        self._gates = []
        for host in self.hosts.values():
            self._open(host)

    @staticmethod
    def _context(folder, kind):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(os.path.join(folder, f"{kind}.pem"))
        return context

    # Scripting.

    def on(self, host, path, replies, secure=True):
        """Answers requests for `path` (with or without a query) by a Reply, a list of them of which the last repeats,
        or a function of the Request. A later script for the same place takes its place. Gives the Route, whose `hits`
        counts."""
        self._host(host)
        if not path.startswith("/"):
            raise LabError(f"a path begins with a slash: {path!r}")
        route = Route([replies] if isinstance(replies, Reply) else replies)
        if not callable(replies) and not route.replies:
            raise LabError("an empty list of replies")
        with self.changed:
            self._routes[host, path, secure] = route
        return route

    def gate(self):
        """A Gate for Reply.hold or Reply.stall_for; one that is still closed at the end of the test lets nobody hang."""
        gate = Gate()
        self._gates.append(gate)
        return gate

    def set_mode(self, name, mode):
        """Changes how a host meets connections, one of MODES; open connections to it end."""
        if mode not in MODES:
            raise LabError(f"no mode {mode!r}, there are {MODES}")
        host = self._host(name)
        was_listening = bool(host.listeners)
        host.mode = mode
        self._end_connections(host)
        if mode in ("refuse", "blackhole"):
            self._shut(host)
            if mode == "blackhole":
                self._make_blackhole(host)
        elif not was_listening:
            self._shut(host)
            self._open(host)

    def set_certificate(self, name, kind):
        """Changes the certificate that a host shows to new connections; open connections to it end."""
        if kind not in self.contexts:
            raise LabError(f"no certificate {kind!r}, there are {certificates.KINDS}")
        host = self._host(name)
        host.certificate = kind
        self._end_connections(host)

    # Asking and awaiting.

    def requests_to(self, host=None, path=None, method=None, secure=None):
        with self.changed:
            return [request for request in self.requests if self._matches(request, host, path, method, secure)]

    def wait_for_request(self, host=None, path=None, count=1, timeout=30):
        """The `count`-th request for that place, as soon as it has arrived."""
        self.wait_until(lambda: len(self.requests_to(host, path)) >= count, timeout,
                        f"request {count} for {host or 'any host'}{path or ''}")
        return self.requests_to(host, path)[count - 1]

    def wait_for_bytes(self, request, count, timeout=30):
        """Until so many body bytes of that request's answer have gone into the socket. The kernel holds some megabytes
        for a slow reader, so a test that needs the client to be at about this place throttles the reply."""
        self.wait_until(lambda: request.body_sent >= count or request.finished, timeout, f"{count} bytes of {request}")
        if request.body_sent < count:
            raise LabError(f"the answer ended early: {request}")

    def wait_for_finish(self, request, timeout=30):
        self.wait_until(lambda: request.finished, timeout, f"the end of {request}")

    def wait_until(self, condition, timeout, what):
        """Waits until a condition on what is recorded holds; it is asked again at every change."""
        with self.changed:
            if self.changed.wait_for(condition, timeout):
                return
            seen = "\n  ".join(map(str, self.requests)) or "nothing"
        raise LabError(f"waited {timeout} s in vain for {what}; requests seen:\n  {seen}")

    # The life of a test and of the lab.

    def reset(self):
        """Ends all connections and forgets scripts and records."""
        for gate in self._gates:
            gate.release()
        for host in self.hosts.values():
            if not host.listeners:
                self._shut(host)
                self._open(host)
            host.mode, host.certificate = "serve", "trusted"
        self._end_connections()
        with self.changed:
            self._gates.clear()
            self._routes.clear()
            self.requests.clear()
            self.connections.clear()
            self.problems.clear()

    def close(self):
        for host in self.hosts.values():
            self._shut(host)
        self._end_connections()

    # For listeners and connections; any thread.

    def welcome(self, host, accepted, secure):
        with self.changed:
            connection = Connection(self, host, accepted, secure, len(self.connections) + 1)
            self.connections.append(connection)
            self._alive.add(connection)
            connection.start()  # within the lock: whoever sees it in the set may join it
            self.changed.notify_all()

    def reply_for(self, request):
        with self.changed:
            routes = self._routes
            place = (request.host, request.target, request.secure)
            route = routes.get(place) or routes.get((request.host, request.path, request.secure))
            if not route:
                return NOT_FOUND
            reply = route.pick(route.hits)
            route.hits += 1
        return reply(request) if callable(reply) else reply

    def note_request(self, request):
        with self.changed:
            self.requests.append(request)
            self.changed.notify_all()

    def note_sent(self, request, count):
        with self.changed:
            request.body_sent += count
            self.changed.notify_all()

    def note_finished(self, request):
        with self.changed:
            request.finished = True
            request.finish_time = time.monotonic()
            self.changed.notify_all()

    def note_change(self):
        with self.changed:
            self.changed.notify_all()

    def note_problem(self, text):
        with self.changed:
            self.problems.append(text)
            self.changed.notify_all()

    def forget(self, connection):
        with self.changed:
            self._alive.discard(connection)
            self.changed.notify_all()

    # Inside.

    def _host(self, name):
        if name not in self.hosts:
            raise LabError(f"no server {name!r} in this lab, there are {list(self.hosts)}")
        return self.hosts[name]

    @staticmethod
    def _matches(request, host, path, method, secure):
        return (
            host in (None, request.host)
            and path in (None, request.path, request.target)
            and method in (None, request.method)
            and secure in (None, request.secure)
        )

    def _open(self, host):
        host.listeners = [Listener(self, host, secure) for secure in (True, False)]
        for listener in host.listeners:
            listener.start()

    @staticmethod
    def _shut(host):
        for listener in host.listeners:
            listener.close()
        for filler in host.fillers:
            filler.close()
        host.listeners, host.fillers = [], []

    @staticmethod
    def _make_blackhole(host):
        """A queue for one, never accepted from: once it is full the kernel answers no further attempt."""
        for port in (HTTPS_PORT, HTTP_PORT):
            listener = socket.socket()
            host.fillers.append(listener)
            listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            listener.bind((host.address, port))
            listener.listen(0)
            while Servers._connects((host.address, port), host.fillers):
                pass

    @staticmethod
    def _connects(address, fillers):
        filler = socket.socket()
        filler.setblocking(False)
        fillers.append(filler)
        filler.connect_ex(address)
        _, connected, _ = select.select([], [filler], [], 0.1)
        return bool(connected)

    def _end_connections(self, host=None):
        with self.changed:
            ending = [connection for connection in self._alive if host in (None, connection.host)]
        for connection in ending:
            connection.abort()
        for connection in ending:
            connection.join(JOIN_SECONDS)
            if connection.is_alive():
                raise LabError(f"{connection.name} does not end")

"""One accepted connection: its thread, its reading of requests and its sending of scripted replies."""

import array
import dataclasses
import fcntl
import select
import socket
import struct
import termios
import threading
import time

from .replies import Gate, resolve

CHUNK = 64 << 10
HEAD_LIMIT = 64 << 10
DRAIN_SECONDS = 5  # how long a reset waits for the peer to take what was sent before it


@dataclasses.dataclass
class Request:
    """One request as it was received, and how far its answer has come."""

    host: str  # the lab's name of the server that was reached
    secure: bool
    method: str
    target: str  # path and query, as sent
    headers: dict  # lower-case names
    header_list: list  # pairs in order, as sent
    connection: int  # number of the connection; two requests with the same number shared it
    time: float  # time.monotonic() when it had arrived
    status: int | None = None  # sent status
    body_sent: int = 0  # body bytes handed to the socket
    finished: bool = False  # nothing more will be sent for it
    client_closed: bool = False  # the client ended the connection before the answer was whole
    finish_time: float | None = None

    @property
    def path(self):
        return self.target.split("?", 1)[0]

    @property
    def range(self):
        return self.headers.get("range")

    def __str__(self):
        scheme = "https" if self.secure else "http"
        ranged = f" [{self.range}]" if self.range else ""
        return f"{self.method} {scheme}://{self.host}{self.target}{ranged} -> {self.status}, {self.body_sent} bytes"


class Ended(Exception):
    """The connection is over: closed by the client, by the script or by the end of the test."""


class Connection(threading.Thread):
    """Serves one client. `abort` may be called from any thread and ends it at once, whatever it waits for."""

    def __init__(self, servers, host, accepted, secure, number):
        super().__init__(name=f"connection {number} to {host.name}", daemon=True)
        self.servers = servers
        self.host = host
        self.number = number
        self.aborted = False
        self.handshake = None  # None: not over yet; "ok", "plain" or the error's text
        self.secure = secure
        self._socket = accepted
        self._handle = accepted.dup()  # of the same socket: shuts it down while another thread uses the first
        self._wake_reader, self._wake_writer = socket.socketpair()
        self._buffer = b""

    def abort(self):
        self.aborted = True
        try:
            self._handle.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        self.wake()

    def wake(self):
        try:
            self._wake_writer.send(b"x")
        except OSError:
            pass

    def run(self):
        try:
            self._serve()
        except (Ended, OSError):
            pass
        except Exception as problem:  # a fault of the lab must fail the test, not vanish with its thread
            self.servers.note_problem(f"{self.name}: {problem!r}")
        finally:
            self._close()
            self.servers.forget(self)

    def _close(self):
        for item in (self._socket, self._handle, self._wake_reader, self._wake_writer):
            try:
                item.close()
            except OSError:
                pass

    def _serve(self):
        mode = self.host.mode
        if mode == "silent":
            self._pause(None)
        if self.secure:
            self._shake_hands()
        else:
            self.handshake = "plain"
        while True:
            request = self._read_request()
            self.servers.note_request(request)
            try:
                if mode == "mute":
                    self._pause(None)
                keep_alive = self._answer(request, self.servers.reply_for(request))
            except OSError:
                request.client_closed = not self.aborted
                raise Ended from None
            finally:
                self.servers.note_finished(request)
            if not keep_alive:
                self._finish()

    def _shake_hands(self):
        context = self.servers.contexts[self.host.certificate]
        try:
            self._socket = context.wrap_socket(self._socket, server_side=True)
            self.handshake = "ok"
        except (OSError, ValueError) as problem:
            self.handshake = str(problem) or repr(problem)
            raise Ended from None
        finally:
            self.servers.note_change()

    # Reading.

    def _read_request(self):
        while b"\r\n\r\n" not in self._buffer:
            if len(self._buffer) > HEAD_LIMIT:
                raise ValueError("a request head without end")
            received = self._socket.recv(CHUNK)
            if not received:
                raise Ended
            self._buffer += received
        head, self._buffer = self._buffer.split(b"\r\n\r\n", 1)
        lines = head.decode("latin-1").split("\r\n")
        method, target, _ = lines[0].split(" ", 2)
        pairs = [tuple(part.strip() for part in line.split(":", 1)) for line in lines[1:]]
        headers = {name.lower(): value for name, value in pairs}
        self._skip_body(int(headers.get("content-length", "0")))
        return Request(self.host.name, self.secure, method, target, headers, pairs, self.number, time.monotonic())

    def _skip_body(self, left):
        while left > len(self._buffer):
            received = self._socket.recv(CHUNK)
            if not received:
                raise Ended
            self._buffer += received
        self._buffer = self._buffer[left:]

    # Waiting: never blind, the client's leaving and the end of the test are noticed at once.

    def _pause(self, seconds, gate=None):
        """Until the time is over (None: never) or the gate opens. Ended if the test ended or the client left."""
        if gate is not None:
            gate.subscribe(self.wake)
        deadline = None if seconds is None else time.monotonic() + seconds
        poll = select.poll()
        poll.register(self._wake_reader, select.POLLIN)
        poll.register(self._handle, select.POLLRDHUP)
        while not (gate is not None and gate.is_released):
            left = None if deadline is None else deadline - time.monotonic()
            if left is not None and left <= 0:
                return
            ready = dict(poll.poll(None if left is None else left * 1000 + 1))
            if self.aborted:
                raise Ended
            if self._wake_reader.fileno() in ready:
                self._wake_reader.recv(4096)
            if self._handle.fileno() in ready:
                raise ConnectionError("the client left")

    # Sending.

    def _answer(self, request, reply):
        self._pause(reply.delay)
        if reply.hold is not None:
            self._pause(None, reply.hold)
        if reply.raw is not None:
            self._socket.sendall(reply.raw)
            request.status = 0
            return False
        answer = resolve(reply, request)
        self._socket.sendall(answer.head)
        request.status = answer.status
        self.servers.note_change()
        if request.method == "HEAD":
            return answer.keep_alive
        self._pause(reply.body_delay)
        self._send_body(request, reply, answer)
        return answer.keep_alive

    def _send_body(self, request, reply, answer):
        total = answer.end - answer.start
        started = time.monotonic()
        stall_at = reply.stall_at
        while True:
            sent = request.body_sent
            if reply.cut_at is not None and sent >= reply.cut_at:
                self._cut(reply.cut_mode)
            if stall_at is not None and sent >= stall_at:
                self._stall(reply)
                stall_at = None
                started = time.monotonic() - (sent / reply.throttle if reply.throttle else 0)
            if sent >= total:
                break
            stops = [stop for stop in (total, reply.cut_at, stall_at) if stop is not None]
            size = min(min(stops) - sent, self._piece(reply))
            if reply.throttle:
                self._pause(max(started + (sent + size) / reply.throttle - time.monotonic(), 0))
            self._send_piece(answer.body.slice(answer.start + sent, answer.start + sent + size), reply.chunked)
            self.servers.note_sent(request, size)
        if reply.chunked:
            self._socket.sendall(b"0\r\n\r\n")

    @staticmethod
    def _piece(reply):
        # A throttled body goes out twenty times a second.
        return min(CHUNK, max(1, int(reply.throttle / 20))) if reply.throttle else CHUNK

    def _send_piece(self, piece, chunked):
        self._socket.sendall(b"%x\r\n%s\r\n" % (len(piece), piece) if chunked else piece)

    def _stall(self, reply):
        if isinstance(reply.stall_for, Gate):
            self._pause(None, reply.stall_for)
        else:
            self._pause(reply.stall_for)
        if reply.after_stall == "close":
            self._finish()

    def _cut(self, mode):
        if mode == "rst":
            self._wait_until_taken()
            # With this option closing sends a reset.
            self._handle.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            raise Ended
        self._finish()

    def _finish(self):
        """An orderly end without the TLS farewell, which would wait for the peer's."""
        self._handle.shutdown(socket.SHUT_WR)
        raise Ended

    def _wait_until_taken(self):
        """A reset throws away what the peer has not received; the script promises that those bytes arrive."""
        deadline = time.monotonic() + DRAIN_SECONDS
        waiting = array.array("i", [1])
        while waiting[0] and time.monotonic() < deadline:
            fcntl.ioctl(self._handle.fileno(), termios.TIOCOUTQ, waiting)
            if waiting[0]:
                time.sleep(0.002)

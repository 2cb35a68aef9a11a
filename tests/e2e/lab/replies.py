"""What a server of the lab answers, as data."""

import dataclasses
import re
from http import HTTPStatus

from .bodies import body_of

AUTO = "auto"  # a header value that the server works out; None leaves the header away


class Gate:
    """Holds replies until a test lets them go. Releasing is for good."""

    def __init__(self):
        self.is_released = False
        self._wakers = []

    def release(self):
        self.is_released = True
        for wake in list(self._wakers):
            wake()

    def subscribe(self, wake):
        self._wakers.append(wake)


@dataclasses.dataclass
class Reply:
    """One answer. All positions count bytes of the body that this answer sends, from 0; all times are seconds."""

    status: int = 200
    body: object = b""  # bytes, text or a SyntheticBody
    headers: object = ()  # dict or pairs, sent after the others
    content_type: str | None = "application/octet-stream"
    content_encoding: str | None = None
    etag: str | None = None  # the header's text: '"strong"' or 'W/"weak"'
    content_length: str | None = AUTO
    content_range: str | None = AUTO  # AUTO: only with 206 and 416
    honour_range: bool = True  # a range request for a 200 gets 206 or 416
    heed_if_range: bool = True  # False: a server that ignores If-Range and sends the range all the same
    chunked: bool = False
    close: bool = False  # say "Connection: close" and do it
    delay: float = 0  # before the headers
    body_delay: float = 0  # between headers and body
    hold: Gate | None = None  # before the headers
    throttle: float | None = None  # body bytes per second
    stall_at: int | None = None  # stop sending here ...
    stall_for: object = None  # ... for seconds, until a Gate opens, or (None) until the test ends
    after_stall: str = "close"  # "close": plain close of the socket; "continue"
    cut_at: int | None = None  # end the connection here ...
    cut_mode: str = "fin"  # ... in order ("fin") or by reset ("rst")
    raw: bytes | None = None  # exactly these bytes instead of all the above but delay and hold, then close

    def but(self, **changes):
        return dataclasses.replace(self, **changes)


def redirect(url, status=302, **options):
    return Reply(status, headers={"Location": url}, **options)


def html(text="<!doctype html><title>Sign in</title><p>Please sign in to this network.", **options):
    """What a captive portal answers to anything."""
    return Reply(200, text, content_type="text/html; charset=utf-8", **options)


@dataclasses.dataclass
class Answer:
    """A reply applied to one request: what goes on the wire."""

    head: bytes
    body: object
    start: int
    end: int
    status: int
    keep_alive: bool


def wanted_range(header, size):
    """(start, end) of a single range, None if the header is not one, or () if it cannot be satisfied."""
    match = re.fullmatch(r"bytes=(\d*)-(\d*)", header.replace(" ", ""))
    if not match or match.group(0) == "bytes=-":
        return None
    first, last = match.groups()
    if first == "":
        start, end = max(size - int(last), 0), size
    else:
        start, end = int(first), min(int(last) + 1, size) if last else size
    return (start, end) if start < end else ()


def range_allowed(reply, request):
    condition = request.headers.get("if-range")
    if condition is None or not reply.heed_if_range:
        return True
    # Only equal strong tags match (RFC 9110, 13.1.5); the lab's servers give no dates.
    return reply.etag is not None and not reply.etag.startswith("W/") and condition == reply.etag


def resolve(reply, request):
    """Applies range semantics and builds the head."""
    body = body_of(reply.body)
    status, start, end, content_range = reply.status, 0, body.size, None
    header = request.headers.get("range")
    if header and reply.honour_range and status == 200 and range_allowed(reply, request):
        wanted = wanted_range(header, body.size)
        if wanted == ():
            status, start, end, content_range = 416, 0, 0, f"bytes */{body.size}"
        elif wanted:
            start, end = wanted
            status, content_range = 206, f"bytes {start}-{end - 1}/{body.size}"
    if reply.content_range != AUTO:
        content_range = reply.content_range
    asked_to_close = request.headers.get("connection", "").lower() == "close"
    # A length that is not true can only be ended by closing.
    true_length = reply.chunked or reply.content_length == AUTO
    keep_alive = true_length and not reply.close and not asked_to_close
    length = str(end - start) if reply.content_length == AUTO else reply.content_length
    fields = [
        ("Content-Type", reply.content_type),
        ("Content-Encoding", reply.content_encoding),
        ("Content-Length", None if reply.chunked and reply.content_length == AUTO else length),
        ("Transfer-Encoding", "chunked" if reply.chunked else None),
        ("Content-Range", content_range),
        ("ETag", reply.etag),
        ("Accept-Ranges", "bytes" if reply.honour_range and reply.status == 200 else None),
        ("Connection", None if keep_alive else "close"),
    ]
    extra = reply.headers.items() if isinstance(reply.headers, dict) else reply.headers
    fields += list(extra)
    return Answer(encode_head(status, fields), body, start, end, status, keep_alive)


def encode_head(status, fields):
    try:
        phrase = HTTPStatus(status).phrase
    except ValueError:
        phrase = "Unknown"
    lines = [f"HTTP/1.1 {status} {phrase}"]
    lines += [f"{name}: {value}" for name, value in fields if value is not None]
    return ("\r\n".join(lines) + "\r\n\r\n").encode("utf-8")

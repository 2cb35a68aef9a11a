"""The download engine against a server that nobody here wrote. What nginx itself logged is the witness."""

import gzip
import http.client
import ssl

import pytest

from lab import SyntheticBody, names
from lab.nginx import Nginx
from lab.transfer import SOLO_SIZE, Solo, finish_transfers, start_transfers

SIZE = SOLO_SIZE
SOME = 50_000
MORNING, NOON = 1_700_000_000, 1_700_020_000  # times of files
# Quick up to where the tests look, and then too slow for the rest to come before they are done.
SLOW = "limit_rate_after 60k; limit_rate 20k; output_buffers 1 8k;"
CANNOT_CONNECT = 12029


@pytest.fixture
def nginx(lab):
    with Nginx(lab) as server:
        yield server


@pytest.fixture
def solo(lab, nginx):
    """A payload that nginx holds."""
    solo = Solo(lab, host=names.NGINX)
    put(nginx, solo, solo.payload.body)
    return solo


def put(nginx, solo, body, modified=MORNING):
    nginx.put(solo.payload.place()[1], body.read_all(), modified)


def fetch_a_part(nginx, solo, directives=""):
    """Cancels in the middle of a body. Gives the length that is kept and what was served."""
    nginx.start(SLOW + directives)
    fetched = solo.fetch("--cancel-bytes", SOME)
    assert fetched.canceled and fetched.attempts == 1
    length = len(solo.part)
    assert SOME <= length < SIZE
    [served] = nginx.served(1)
    assert (served.status, served.range) == (200, "")
    return length, served


def assert_complete(solo, fetched, attempts=1):
    assert (fetched.success, fetched.reason, fetched.attempts) == (True, "", attempts), fetched
    assert solo.part == solo.payload.body.read_all()


def assert_failed(fetched, reason, attempts=1):
    assert (fetched.success, fetched.canceled, fetched.reason, fetched.attempts) == (False, False, reason, attempts)


def test_whole_download(nginx, solo):
    nginx.start()
    assert_complete(solo, solo.fetch())
    [served] = nginx.served(1)
    assert (served.status, served.sent, served.range, served.if_range) == (200, SIZE, "", "")
    assert solo.resume == solo.resume_text(served.etag)
    # What is complete needs no server.
    nginx.stop()
    assert solo.fetch().success
    assert len(nginx.served(1)) == 1


def test_only_the_missing_bytes_are_sent_after_a_cancel(nginx, solo):
    length, first = fetch_a_part(nginx, solo)
    nginx.restart()
    assert_complete(solo, solo.fetch())
    second = nginx.served(2)[1]
    assert (second.status, second.range, second.if_range) == (206, f"bytes={length}-", first.etag)
    assert second.sent == SIZE - length


def test_only_the_missing_bytes_are_sent_after_a_process_ended(lab, nginx, solo):
    nginx.start(SLOW)
    run, _ = start_transfers(lab, solo.errand())
    solo.wait_for_part(SOME)
    run.kill()
    assert run.wait().stopped
    length = len(solo.part)
    assert SOME <= length < SIZE
    first = nginx.served(1)[0]
    nginx.restart()
    assert_complete(solo, solo.fetch())
    second = nginx.served(2)[1]
    assert (second.status, second.range, second.if_range) == (206, f"bytes={length}-", first.etag)
    assert second.sent == SIZE - length


def test_server_that_is_started_anew_between_attempts(lab, nginx, solo):
    nginx.start(SLOW)
    started = start_transfers(lab, solo.errand())
    solo.wait_for_part(SOME)
    nginx.stop()
    line = solo.wait_for_line(reason="bounded-retry", attempt=2)
    assert line["osError"] == CANNOT_CONNECT
    length = line["bytes"]
    assert SOME <= length < SIZE
    nginx.start()
    assert_complete(solo, finish_transfers(started).only, attempts=3)
    [second] = nginx.served(1)  # the answer that broke off came into no log
    assert (second.status, second.range, second.if_range) == (206, f"bytes={length}-", second.etag)
    assert second.sent == SIZE - length


def test_file_that_is_replaced_between_runs(nginx, solo):
    put(nginx, solo, SyntheticBody(SIZE, seed=2))
    length, first = fetch_a_part(nginx, solo)
    put(nginx, solo, solo.payload.body, modified=NOON)
    nginx.restart()
    assert_complete(solo, solo.fetch())
    second = nginx.served(2)[1]
    assert (second.status, second.range, second.if_range) == (200, f"bytes={length}-", first.etag)
    assert second.sent == SIZE and second.etag != first.etag
    assert solo.resume == solo.resume_text(second.etag)


def test_file_that_is_replaced_within_the_same_second(nginx, solo):
    """The tag stays, for it is made of size and time; the digest alone tells the two files apart."""
    put(nginx, solo, SyntheticBody(SIZE, seed=2))
    length, first = fetch_a_part(nginx, solo)
    put(nginx, solo, solo.payload.body)
    nginx.restart()
    assert_failed(solo.fetch(), "sha256-mismatch")
    assert (solo.part, solo.resume) == (b"", None)
    assert_complete(solo, solo.fetch())
    second, third = nginx.served(3)[1:]
    assert (second.status, second.etag, second.sent) == (206, first.etag, SIZE - length)
    assert (third.status, third.range, third.sent) == (200, "", SIZE)


def test_date_alone_is_no_reason_to_continue(nginx, solo):
    _, first = fetch_a_part(nginx, solo, "etag off;")
    assert first.last_modified and not first.etag
    assert solo.resume is None
    nginx.restart("etag off;")
    assert_complete(solo, solo.fetch())
    second = nginx.served(2)[1]
    assert (second.status, second.range, second.sent) == (200, "", SIZE)


def test_server_that_gives_no_ranges(nginx, solo):
    length, first = fetch_a_part(nginx, solo)
    nginx.restart("max_ranges 0;")
    fetched = solo.fetch()
    assert_complete(solo, fetched)
    second = nginx.served(2)[1]
    assert (second.status, second.range, second.sent) == (200, f"bytes={length}-", SIZE)
    assert fetched.of_phase("receiving")[0]["restarted"]


def test_file_that_became_shorter_than_what_is_kept(nginx, solo):
    """Under a tag that stays the same, the range cannot be satisfied."""
    tag = '"fixed"'
    fixed = f"etag off; add_header ETag '{tag}';"
    length, first = fetch_a_part(nginx, solo, fixed)
    assert first.etag == tag and solo.resume == solo.resume_text(tag)
    put(nginx, solo, SyntheticBody(1000))
    nginx.restart(fixed)
    fetched = solo.fetch()
    assert_failed(fetched, "content-length-mismatch", attempts=2)
    assert [(served.status, served.range) for served in nginx.served(3)[1:]] == [(416, f"bytes={length}-"), (200, "")]
    assert fetched.of_phase("retrying")[0]["restarted"]
    assert solo.part == b""
    put(nginx, solo, solo.payload.body)
    assert_complete(solo, solo.fetch())


def test_compression_is_not_asked_for_and_not_used(lab, nginx):
    body = b"the same words again and again; " * (SIZE // 32)
    solo = Solo(lab, content=body, host=names.NGINX)
    put(nginx, solo, solo.payload.body)
    compressing = "gzip on; gzip_types application/octet-stream; gzip_min_length 1;"
    nginx.start(compressing + SLOW)
    assert solo.fetch("--cancel-bytes", SOME).canceled
    length = len(solo.part)
    nginx.restart(compressing)
    assert_complete(solo, solo.fetch())
    first, second = nginx.served(2)
    assert (first.encoding, second.encoding) == ("", "")
    assert (second.status, second.range, second.sent) == (206, f"bytes={length}-", len(body) - length)
    # It would have compressed for anyone who wants that, and given a weak tag.
    connection = http.client.HTTPSConnection(names.NGINX, timeout=10, context=ssl.create_default_context())
    connection.request("GET", solo.payload.place()[1], headers={"Accept-Encoding": "gzip"})
    response = connection.getresponse()
    assert response.getheader("Content-Encoding") == "gzip" and response.getheader("ETag").startswith("W/")
    assert gzip.decompress(response.read()) == body
    connection.close()


# Directives, what the server block does with the payload's path; the reason and the status that come of it.
REFUSALS = {
    "missing": ("location /files/ { root nothing; }", "http-error", 404),
    "forbidden": ("location /files/ { deny all; }", "http-error", 403),
    "sign-in page": ("location /files/ { root nothing; error_page 404 =200 /sign-in.html; }", "html-response", 200),
    "busy for long": ("location /files/ { add_header Retry-After 61 always; return 503; }",
                      "server-requested-later-retry", 503),
    "redirected to http": ("location /files/ { return 302 http://$host/plain; }", "connection-failed", 0),
}


def test_answers_without_the_payload(nginx, solo):
    nginx.put("/sign-in.html", b"<!doctype html><title>Sign in</title>")
    for number, (name, (directives, reason, status)) in enumerate(REFUSALS.items(), 1):
        nginx.restart(directives)
        fetched = solo.fetch()
        assert_failed(fetched, reason)
        assert fetched.http_status == status, name
        assert (solo.part, solo.resume) == (b"", None), name
        nginx.served(number)


def test_answers_that_lead_to_the_payload(nginx, solo):
    path = solo.payload.place()[1]
    nginx.put("/elsewhere", solo.payload.body.read_all())
    nginx.start(f"location = {path} {{ return 302 /elsewhere; }}")
    assert_complete(solo, solo.fetch())
    assert [served.status for served in nginx.served(2)] == [302, 200]


def test_busy_server_is_asked_again(nginx, solo):
    nginx.start("location /files/ { add_header Retry-After 0 always; return 503; }")
    assert_failed(solo.fetch(), "download-retries-exhausted", attempts=3)
    assert [served.status for served in nginx.served(3)] == [503] * 3


def test_plain_http_on_the_port_of_https(nginx, solo):
    nginx.start(secure=False)
    fetched = solo.fetch()
    assert_failed(fetched, "connection-failed")
    assert fetched.os_error != 0
    assert (solo.part, solo.resume) == (b"", None)

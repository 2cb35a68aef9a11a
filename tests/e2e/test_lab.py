"""Tests of the lab itself: servers, driver and builders keep what they promise. They need no launcher."""

import hashlib
import http.client
import json
import os
import socket
import ssl
import subprocess
import threading
import time

import pytest

from lab import (
    APPLICATION_PATH, SAMPLE_APP, WINDOW_DOUBLE, LabError, Package, Release, Reply, SyntheticBody, app_binary,
    command_line, deep_folder, file_version, html, install, names, note, notes, redirect, update,
)

BUNDLE = "/etc/ssl/certs/ca-certificates.crt"
HOST = names.PRIMARY_RELEASE
TAG = '"one"'
TICK_MS = 32  # what clocks of Windows may be late or early
SILENCE = 0.3  # seconds of waiting for what never comes
ADDR_NO_RANDOMIZE = 0x0040000  # personality(2)


def connect(host=HOST, timeout=30):
    return http.client.HTTPSConnection(host, timeout=timeout, context=ssl.create_default_context(cafile=BUNDLE))


def get(host=HOST, path="/file", headers=None, connection=None):
    """(status, headers, body)"""
    connection = connection or connect(host)
    connection.request("GET", path, headers=headers or {})
    response = connection.getresponse()
    return response.status, dict(response.getheaders()), response.read()


# Servers: replies.


def test_unknown_path_is_404_and_recorded(lab):
    assert get(path="/nothing?x=1")[0] == 404
    (request,) = lab.requests
    assert (request.host, request.path, request.target, request.status) == (HOST, "/nothing", "/nothing?x=1", 404)
    assert request.secure and request.method == "GET"


def test_reply_carries_body_type_tag_and_length(lab):
    lab.on(HOST, "/file", Reply(200, b"content", etag=TAG, headers={"X-Extra": "ü"}))
    status, headers, body = get()
    assert (status, body) == (200, b"content")
    assert (headers["ETag"], headers["Content-Length"]) == (TAG, "7")
    assert headers["Content-Type"] == "application/octet-stream"
    lab.wait_for_finish(lab.requests[0])
    assert lab.requests[0].body_sent == 7


def test_each_name_is_its_own_server(lab):
    for host in names.HOSTS:
        lab.on(host, "/who", Reply(200, host))
    assert [get(host, "/who")[2].decode() for host in names.HOSTS] == list(names.HOSTS)


def test_sequence_advances_and_its_last_repeats(lab):
    route = lab.on(HOST, "/file", [Reply(503), Reply(200, b"a"), Reply(200, b"b")])
    assert [get()[2] for _ in range(4)] == [b"", b"a", b"b", b"b"]
    assert route.hits == 4


def test_function_answers_by_request(lab):
    lab.on(HOST, "/file", lambda request: Reply(200, request.headers["x-name"]))
    assert get(headers={"X-Name": "value"})[2] == b"value"


def test_fault_in_a_function_is_told(lab):
    lab.on(HOST, "/file", lambda request: 1 / 0)
    with pytest.raises((http.client.HTTPException, OSError)):
        get()
    lab.servers.wait_until(lambda: lab.servers.problems, 30, "the problem")
    assert "ZeroDivisionError" in lab.servers.problems[0]
    lab.servers.problems.clear()


def test_keep_alive_shares_a_connection_and_close_ends_it(lab):
    lab.on(HOST, "/file", [Reply(200, b"1"), Reply(200, b"2", close=True), Reply(200, b"3")])
    connection = connect()
    for _ in range(3):
        get(connection=connection)
    first, second, third = (request.connection for request in lab.requests)
    assert first == second != third


@pytest.mark.parametrize("header, status, body, content_range", [
    ("bytes=2-4", 206, b"234", "bytes 2-4/10"),
    ("bytes=7-", 206, b"789", "bytes 7-9/10"),
    ("bytes=7-99", 206, b"789", "bytes 7-9/10"),
    ("bytes=-3", 206, b"789", "bytes 7-9/10"),
    ("bytes=10-", 416, b"", "bytes */10"),
    ("bytes=0-1,3-4", 200, b"0123456789", None),
])
def test_range(lab, header, status, body, content_range):
    lab.on(HOST, "/file", Reply(200, b"0123456789", etag=TAG))
    answer = get(headers={"Range": header})
    assert (answer[0], answer[2], answer[1].get("Content-Range")) == (status, body, content_range)


@pytest.mark.parametrize("tag, condition, heed, status", [
    (TAG, TAG, True, 206),
    (TAG, '"other"', True, 200),
    ('W/"weak"', 'W/"weak"', True, 200),
    (None, TAG, True, 200),
    (TAG, '"other"', False, 206),
])
def test_if_range(lab, tag, condition, heed, status):
    lab.on(HOST, "/file", Reply(200, b"0123456789", etag=tag, heed_if_range=heed))
    assert get(headers={"Range": "bytes=5-", "If-Range": condition})[0] == status


def test_range_can_be_ignored(lab):
    lab.on(HOST, "/file", Reply(200, b"0123456789", honour_range=False))
    assert get(headers={"Range": "bytes=5-"})[0] == 200


def test_length_range_and_encoding_can_lie(lab):
    lab.on(HOST, "/file", Reply(206, b"abc", content_range="bytes 9-1/nonsense", content_encoding="gzip"))
    lab.on(HOST, "/short", Reply(200, b"abc", content_length="10"))
    lab.on(HOST, "/none", Reply(200, b"abc", content_length=None))
    headers = get()[1]
    assert (headers["Content-Range"], headers["Content-Encoding"]) == ("bytes 9-1/nonsense", "gzip")
    with pytest.raises(http.client.IncompleteRead) as problem:
        get(path="/short")
    assert problem.value.partial == b"abc"
    status, headers, body = get(path="/none")
    assert (body, headers.get("Content-Length")) == (b"abc", None)


def test_chunked(lab):
    body = SyntheticBody(200_000)
    lab.on(HOST, "/file", Reply(200, body, chunked=True))
    _, headers, received = get()
    assert headers["Transfer-Encoding"] == "chunked" and "Content-Length" not in headers
    assert received == body.read_all()


def test_raw_bytes_go_out_as_they_are(lab):
    lab.on(HOST, "/file", Reply(raw=b"not HTTP at all\r\n\r\n"))
    with pytest.raises(http.client.BadStatusLine):
        get()


def test_redirect_and_html(lab):
    lab.on(HOST, "/file", redirect(f"https://{names.CDN}/there", status=307))
    lab.on(names.CDN, "/there", html())
    status, headers, _ = get()
    assert (status, headers["Location"]) == (307, f"https://{names.CDN}/there")
    assert get(names.CDN, "/there")[1]["Content-Type"].startswith("text/html")


def test_large_body_is_made_on_the_way(lab):
    body = SyntheticBody(64 << 20, seed=7)
    lab.on(HOST, "/file", Reply(200, body, etag=TAG))
    connection = connect()
    connection.request("GET", "/file")
    response = connection.getresponse()
    digest = hashlib.sha256()
    while piece := response.read(1 << 20):
        digest.update(piece)
    assert digest.hexdigest() == body.sha256
    assert get(headers={"Range": "bytes=50000000-50000099"})[2] == body.slice(50_000_000, 50_000_100)


# Servers: time and endings.


def test_delays(lab):
    lab.on(HOST, "/file", Reply(200, b"x", delay=0.2, body_delay=0.2))
    started = time.monotonic()
    connection = connect()
    connection.request("GET", "/file")
    response = connection.getresponse()
    head = time.monotonic() - started
    response.read()
    assert head >= 0.2 and time.monotonic() - started >= 0.4


def test_hold_waits_for_the_gate(lab):
    gate = lab.gate()
    lab.on(HOST, "/file", Reply(200, b"x", hold=gate))
    answers = []
    client = threading.Thread(target=lambda: answers.append(get()))
    client.start()
    request = lab.wait_for_request(HOST, "/file")
    assert request.status is None and not answers
    gate.release()
    client.join(30)
    assert answers[0][0] == 200


def test_throttle_keeps_its_pace(lab):
    lab.on(HOST, "/file", Reply(200, SyntheticBody(100_000), throttle=200_000))
    started = time.monotonic()
    get()
    assert 0.45 <= time.monotonic() - started < 3


def read_to_the_end(host, path):
    """(bytes of the body, how the connection ended), with TLS in memory: Python's TLS socket hides a reset."""
    raw = socket.create_connection((host, 443), timeout=10)
    incoming, outgoing = ssl.MemoryBIO(), ssl.MemoryBIO()
    tls = ssl.create_default_context(cafile=BUNDLE).wrap_bio(incoming, outgoing, server_hostname=host)
    steps = iter([tls.do_handshake, lambda: tls.write(f"GET {path} HTTP/1.1\r\nHost: {host}\r\n\r\n".encode())])
    step, received, ending = next(steps), b"", None
    while ending is None:
        try:
            while step is not None:
                step()
                step = next(steps, None)
            while piece := tls.read(65536):
                received += piece
        except ssl.SSLWantReadError:
            if outgoing.pending:  # sending nothing would take the reset from the receive below
                raw.sendall(outgoing.read())
            try:
                encrypted = raw.recv(65536)
                incoming.write(encrypted)
                ending = None if encrypted else "fin"
            except ConnectionResetError:
                ending = "rst"
    raw.close()
    return received.split(b"\r\n\r\n", 1)[1], ending


@pytest.mark.parametrize("mode", ["fin", "rst"])
def test_cut_delivers_its_bytes_first(lab, mode):
    body = SyntheticBody(300_000)
    lab.on(HOST, "/file", Reply(200, body, cut_at=200_000, cut_mode=mode))
    assert read_to_the_end(HOST, "/file") == (body.slice(0, 200_000), mode)
    assert lab.requests[0].body_sent == 200_000


def test_stall_ends_by_time_gate_or_test(lab):
    gate = lab.gate()
    lab.on(HOST, "/time", Reply(200, b"0123456789", stall_at=4, stall_for=0.2))
    lab.on(HOST, "/gate", Reply(200, b"0123456789", stall_at=4, stall_for=gate, after_stall="continue"))
    lab.on(HOST, "/ever", Reply(200, b"0123456789", stall_at=4))
    with pytest.raises(http.client.IncompleteRead) as problem:
        get(path="/time")
    assert problem.value.partial == b"0123"

    answers = []
    client = threading.Thread(target=lambda: answers.append(get(path="/gate")))
    client.start()
    request = lab.wait_for_request(HOST, "/gate")
    lab.wait_for_bytes(request, 4)
    assert request.body_sent == 4
    gate.release()
    client.join(30)
    assert answers[0][2] == b"0123456789"

    connection = connect()
    connection.request("GET", "/ever")
    response = connection.getresponse()
    connection.sock.settimeout(SILENCE)
    with pytest.raises(TimeoutError):
        response.read()


def test_client_that_leaves_is_noticed(lab):
    lab.on(HOST, "/file", Reply(200, b"0123456789", stall_at=4))
    connection = connect()
    connection.request("GET", "/file")
    response = connection.getresponse()
    assert response.read(4) == b"0123"
    response.close()
    connection.close()
    request = lab.requests[0]
    lab.wait_for_finish(request)
    assert request.client_closed


def test_awaiting_in_vain_says_what_was_seen(lab):
    get(path="/other")
    with pytest.raises(LabError, match="/other -> 404"):
        lab.wait_for_request(HOST, "/file", timeout=0.1)


# Servers: connections and certificates.


def test_refused(lab):
    lab.set_mode(HOST, "refuse")
    with pytest.raises(ConnectionRefusedError):
        get()
    lab.set_mode(HOST, "serve")
    assert get()[0] == 404


def test_silent_server_never_shakes_hands(lab):
    lab.set_mode(HOST, "silent")
    with pytest.raises(TimeoutError):
        get(connection=connect(timeout=SILENCE))
    lab.servers.wait_until(lambda: lab.servers.connections, 30, "the connection")  # the kernel accepts before the lab
    (connection,) = lab.connections
    assert connection.handshake is None and not lab.requests


def test_mute_server_takes_the_request_and_never_answers(lab):
    lab.set_mode(HOST, "mute")
    connection = connect()
    connection.request("GET", "/file")
    request = lab.wait_for_request(HOST, "/file")
    connection.sock.settimeout(SILENCE)
    with pytest.raises(TimeoutError):
        connection.getresponse()
    assert request.status is None and lab.connections[0].handshake == "ok"


def test_blackhole_answers_no_connection_attempt(lab):
    lab.set_mode(HOST, "blackhole")
    with pytest.raises(TimeoutError):
        socket.create_connection((HOST, 443), timeout=0.5)
    lab.set_mode(HOST, "serve")
    assert get()[0] == 404


@pytest.mark.parametrize("kind, sense", [
    ("untrusted", "unable to get local issuer"),
    ("self-signed", "self.signed"),
    ("expired", "expired"),
    ("wrong-name", "Hostname mismatch"),
])
def test_bad_certificates_are_bad_in_their_own_way(lab, kind, sense):
    lab.set_certificate(HOST, kind)
    with pytest.raises(ssl.SSLCertVerificationError, match=sense):
        get()
    lab.set_certificate(HOST, "trusted")
    assert get()[0] == 404


def test_plain_http_is_recorded_and_fails_the_test(lab):
    connection = http.client.HTTPConnection(HOST, timeout=10)
    connection.request("GET", "/plain")
    assert connection.getresponse().status == 404
    assert [request.secure for request in lab.requests] == [False]
    with pytest.raises(LabError, match="plain http was spoken"):
        lab.end_test()
    lab.begin_test("again")


def test_unknown_names_do_not_resolve(lab):
    started = time.monotonic()
    with pytest.raises(socket.gaierror):
        socket.gethostbyname("unknown.lab.example")
    assert time.monotonic() - started < 2


def test_reset_leaves_nothing_behind(lab):
    lab.on(HOST, "/file", Reply(200, b"x"))
    lab.set_mode(names.BACKUP, "refuse")
    lab.set_certificate(HOST, "expired")
    lab.servers.reset()
    assert get()[0] == 404 and get(names.BACKUP)[0] == 404


# Driver and sample application.


def test_programs_start_with_steady_addresses():
    """With random ones Wine cannot start one program in some thousand."""
    if subprocess.run(["setarch", "-R", "true"], capture_output=True).returncode != 0:
        pytest.skip("this system does not let a process choose its address layout")
    with open("/proc/self/personality") as personality:
        assert int(personality.read(), 16) & ADDR_NO_RANDOMIZE


def test_sample_app_reports_itself(lab):
    result = lab.run(SAMPLE_APP, ["one", "two words", ""])
    assert result.exit_code == 0 and result.app.args == ["one", "two words", ""]
    assert result.app.version == "1.0.0.0"
    assert result.app.path.lower().endswith("\\sample_app.exe")
    assert result.elapsed < 10 and not result.timed_out and result.dialogs == []


@pytest.mark.parametrize("code", [0, 1, 255, 256, 1317, 0xC0000005, 0xFFFFFFFF])
def test_exit_codes_have_32_bits(lab, code):
    assert lab.run(SAMPLE_APP, env={"VPR_SAMPLE_EXIT": code}).exit_code == code


@pytest.mark.parametrize("answer, given", [("yes", 6), ("no", 7)])
def test_dialog_gets_its_answer(lab, answer, given):
    result = lab.run(SAMPLE_APP, answers=[answer], env={"VPR_SAMPLE_DIALOG": "質問 – ready?"})
    (dialog,) = result.dialogs
    assert (dialog.view, dialog.title, dialog.expected) == ("dialog", "Sample application", True)
    assert dialog.shows("質問 – ready?")
    assert result.app.dialog_answer == given


def test_dialog_without_answer_is_closed_and_told(lab):
    result = lab.run(SAMPLE_APP, env={"VPR_SAMPLE_DIALOG": "hm"}, strict=False)
    assert [dialog.answer for dialog in result.unexpected] == ["none"]
    assert result.app.dialog_answer == 7
    with pytest.raises(LabError, match="without a fitting answer"):
        lab.run(SAMPLE_APP, env={"VPR_SAMPLE_DIALOG": "hm"})


def test_answer_that_the_dialog_does_not_have_is_unexpected(lab):
    result = lab.run(SAMPLE_APP, answers=["ok"], env={"VPR_SAMPLE_DIALOG": "yes or no"}, strict=False)
    assert [dialog.answer for dialog in result.unexpected] == ["ok"]


def test_answers_left_over_are_counted(lab):
    assert lab.run(SAMPLE_APP, answers=["yes", "no"]).answers_left == 2


@pytest.mark.parametrize("line, args", [
    ('x.exe a"b"c', ["abc"]),
    (r'x.exe "a\\" b\"c \\\x', ["a\\", 'b"c', "\\\\\\x"]),
    ("x.exe \t  spaced\tout ", ["spaced", "out"]),
    ("x.exe", []),
    ("x.exe line\nbreak", ["line\nbreak"]),
])
def test_command_line_arrives_raw(lab, line, args):
    result = lab.run(SAMPLE_APP, raw_command_line=line)
    assert (result.app.command_line, result.app.args) == (line, args)


def test_quoting_survives_the_way_back(lab):
    args = ["", "a b", 'quote"d', "back\\", 'both\\"', "\\\\share\\x y\\", "é 日本語 한글 🌲", "tab\there", "%PATH%"]
    assert lab.run(SAMPLE_APP, args).app.args == args


def test_non_ascii_folder(lab):
    tree = install(lab, "日本語 Größe 한글", launcher=SAMPLE_APP, launcher_version="1.0.0.0")
    result = lab.run(tree)
    assert result.app.path == tree.windows("Velmora Pine Relay.exe")
    assert result.app.cwd == tree.windows()


def test_deep_folder(lab):
    tree = install(lab, deep_folder(400), launcher=SAMPLE_APP, launcher_version="1.0.0.0")
    assert len(tree.windows("Velmora Pine Relay.exe")) > 400
    assert lab.run(tree).app.path == tree.windows("Velmora Pine Relay.exe")


def test_output_is_kept(lab):
    assert lab.run(SAMPLE_APP, env={"VPR_SAMPLE_PRINT": "A_RESULT passed=1\n"}).output == b"A_RESULT passed=1\n"


def test_kill_ends_the_program_with_77(lab):
    run = lab.start(SAMPLE_APP, env={"VPR_SAMPLE_WAIT": "C:\\never"})
    assert run.wait_for_app().version == "1.0.0.0" and run.is_running
    run.kill()
    result = run.wait()
    assert (result.exit_code, result.stopped, result.timed_out) == (77, True, False)


def test_time_out_ends_the_job(lab):
    result = lab.run(SAMPLE_APP, timeout=0.5, env={"VPR_SAMPLE_WAIT": "C:\\never"}, strict=False)
    assert result.timed_out and result.job_elapsed < 10
    with pytest.raises(LabError, match="did not end in time"):
        lab.run(SAMPLE_APP, timeout=0.3, env={"VPR_SAMPLE_WAIT": "C:\\never"})


def test_child_that_outlives_its_parent_is_awaited(lab):
    """cmd plays a launcher that starts an application and leaves."""
    release = lab.folder / "release"
    command = lab.drive / "windows/system32/cmd.exe"
    line = f'cmd.exe /c start /b {"Z:" + str(SAMPLE_APP).replace("/", chr(92))}'
    run = lab.start(command, raw_command_line=line, env={"VPR_SAMPLE_WAIT": lab.windows_path(release)})
    run.wait_for_exit()
    app = run.wait_for_app()
    assert run.is_running
    release.touch()
    result = run.wait()
    assert result.app.pid == app.pid
    assert result.job_elapsed >= result.elapsed


def test_start_that_fails_tells_the_windows_error(lab):
    result = lab.run(lab.folder / "missing.exe", strict=False)
    assert (result.started, result.start_error) == (False, 2)


def test_run_left_over_is_ended_with_the_test(lab):
    run = lab.start(SAMPLE_APP, env={"VPR_SAMPLE_WAIT": "C:\\never"})
    run.wait_for_app()
    lab.end_test()
    assert not run.is_running
    lab.begin_test("again")


def test_requests_of_a_run_are_its_own(lab):
    get(path="/before")
    assert lab.run(SAMPLE_APP).requests == []


# The status window's double.


@pytest.mark.parametrize("view, answer, code", [
    ("prompt", "yes", 1001),
    ("prompt", "no", 1002),
    ("prompt", "close", 2000),
    ("failure", "ok", 1004),
    ("failure", "close", 2000),
])
def test_status_window_gets_its_answer(lab, view, answer, code):
    result = lab.run(WINDOW_DOUBLE, [], [answer], raw_command_line=f"double {view}")
    assert result.exit_code == code
    assert [(window.view, window.answer) for window in result.dialogs] == [(view, answer)]
    assert result.dialogs[0].shows("状態 – Ünïcode 🌳")


def test_notice_needs_no_answer(lab):
    result = lab.run(WINDOW_DOUBLE, raw_command_line="double notice")
    assert (result.exit_code, result.views(), result.dialogs) == (0, ["notice"], [])
    notice = result.windows[0]
    # The double shows it for 300 ms; a late look must not make that less.
    assert notice.look_before_ms < notice.ms and result.elapsed * 1000 - notice.look_before_ms > 300 - TICK_MS


@pytest.mark.parametrize("view", ["prompt", "failure"])
def test_status_window_without_answer_is_closed_and_told(lab, view):
    result = lab.run(WINDOW_DOUBLE, raw_command_line=f"double {view}", strict=False)
    assert result.exit_code == 2000 and len(result.unexpected) == 1


def test_test_presses_the_buttons_itself(lab):
    run = lab.start(WINDOW_DOUBLE, raw_command_line="double progress")
    window = run.wait_for_window("progress")
    assert window.is_enabled("cancel") and not window.is_enabled("update")
    with pytest.raises(LabError, match="no open window could take"):
        run.click("update")
    run.click("cancel")
    assert run.wait().exit_code == 1004


@pytest.mark.parametrize("act, code", [
    (lambda run: run.close_window(), 2000),
    (lambda run: run.press("escape"), 2001),
    (lambda run: run.click("later"), 1002),
], ids=["close box", "escape", "button"])
def test_waiting_answer_leaves_the_prompt_to_the_test(lab, act, code):
    run = lab.start(WINDOW_DOUBLE, [], ["wait"], raw_command_line="double prompt")
    run.wait_for_window("prompt")
    act(run)
    assert run.wait().exit_code == code


# Installations and releases.


def test_app_binary_carries_its_version(lab):
    tree = install(lab, launcher=SAMPLE_APP, launcher_version="1.0.0.0", app_version="1.2.3.65535")
    assert tree.application_version() == "1.2.3.65535"
    assert lab.run(tree.application).app.version == "1.2.3.65535"
    assert file_version(app_binary("9.8.7.6", padding=1000)) == "9.8.7.6"
    assert len(app_binary("9.8.7.6", padding=1000)) == len(app_binary("9.8.7.6")) + 1000


def test_configuration_is_the_launchers_own_text(lab):
    tree = install(lab, launcher=SAMPLE_APP, app_version="1.2.3.4", launcher_version="5.6.7.8")
    assert tree.read("current.json").decode() == (
        "{\n"
        '  "schemaVersion": 1,\n'
        '  "product": "Velmora Pine Relay",\n'
        '  "productVersion": "1.2.3.4",\n'
        '  "launcherVersion": "5.6.7.8",\n'
        '  "applicationDirectory": "Velmora Pine Relay",\n'
        '  "applicationExecutable": "Velmora Pine Relay.exe",\n'
        '  "updateManifestUrl": "https://raw.githubusercontent.com/QuillFarrowWorks/Velmora-Pine-Relay-Updates/'
        'master/updates/stable.json",\n'
        '  "updateCheckIntervalMinutes": 15\n'
        "}\n"
    )


def test_snapshot_and_leftovers(lab):
    tree = install(lab, launcher=SAMPLE_APP, launcher_version="1.0.0.0", themes={"dark.vprtheme": b"dark"})
    before = tree.snapshot()
    assert before["Velmora Pine Relay/Themes/dark.vprtheme"] == (hashlib.sha256(b"dark").hexdigest(), 4)
    tree.assert_no_leftovers()
    tree.write(".vpr-update/release-watermark.txt", "1.0.0.0\n")
    tree.assert_no_leftovers()
    assert tree.snapshot(exclude=(".vpr-update/*",)) == before
    (tree.root / "empty").mkdir()
    assert "empty/" in tree.snapshot(folders=True)
    for name in ("staging-1.0.0.0-1-2/x", "backup-1/x", "transaction.json", "transaction.lock", "a.tmp"):
        target = tree.write(f".vpr-update/{name}", b"x")
        with pytest.raises(AssertionError, match="left behind"):
            tree.assert_no_leftovers()
        target.unlink()
        if "/" in name:
            target.parent.rmdir()
    tree.assert_no_leftovers()


def test_hidden_attribute_is_the_one_windows_sees(lab):
    tree = install(lab, launcher=SAMPLE_APP, launcher_version="1.0.0.0")
    tree.hide("current.json")
    assert tree.is_hidden("current.json") and not tree.is_hidden("Velmora Pine Relay.exe")
    seen = lab.run(lab.drive / "windows/system32/cmd.exe", raw_command_line=f"cmd.exe /c dir /b {tree.windows()}")
    assert b"Velmora Pine Relay.exe" in seen.output and b"current.json" not in seen.output


def test_release_is_served_with_its_digests(lab):
    release = update("1.1.0.0", notes=notes(note("en"), note("ja", "要約", ["項目"]))).publish(lab, "both")
    for source in names.SOURCES:
        manifest = json.loads(get(*names.manifest_place(source))[2])
        (entry,) = manifest["files"]
        assert entry["url"] == "https://" + "".join(release.place(APPLICATION_PATH, source))
        status, headers, body = get(*release.place(APPLICATION_PATH, source))
        assert (hashlib.sha256(body).hexdigest(), len(body)) == (entry["sha256"], entry["size"])
        assert headers["ETag"].startswith('"') and file_version(body) == "1.1.0.0"
    assert release.etag(release.name_of(APPLICATION_PATH)) != release.etag(release.name_of(APPLICATION_PATH), "backup")


def test_manifest_tampering(lab):
    release = update("1.1.0.0")
    honest = json.loads(release.manifest())
    lying = json.loads(release.manifest(wrong_sha=APPLICATION_PATH, wrong_size=APPLICATION_PATH, version="0.9.0.0",
                                        foreign_url={APPLICATION_PATH: "https://elsewhere.lab.example/x"},
                                        edit=lambda manifest: manifest.update(extra=1)))
    assert lying["files"][0]["sha256"] != honest["files"][0]["sha256"]
    assert lying["files"][0]["size"] == honest["files"][0]["size"] + 1
    assert lying["files"][0]["url"] == "https://elsewhere.lab.example/x"
    assert (lying["version"], lying["extra"]) == ("0.9.0.0", 1)
    assert len(release.manifest(pad_to=524288)) == 524288
    assert json.loads(release.manifest(pad_to=524289)) == honest
    with pytest.raises(LabError):
        release.manifest(pad_to=10)
    assert b"<!doctype html>" in release.manifest(as_html=True)


def test_packages_are_published_and_installed(lab):
    old = Package("reading-model", "1.0.0.0", {"a.bin": b"a" * 5000, "deep/b.bin": os.urandom(50_000)}, "model")
    new = Package("reading-model", "1.1.0.0", {**old.files, "a.bin": b"new"}, "model", patch_from=old)
    release = Release("2.0.0.0", packages=[new]).publish(lab)
    patch = get(*release.place(("reading-model", "patch")))[2]
    assert 0 < len(patch) < len(get(*release.place("reading-model"))[2])
    tree = install(lab, launcher=SAMPLE_APP, launcher_version="1.0.0.0", packages=[old])
    state = tree.read("Velmora Pine Relay/Runtime/current.json").decode()
    assert state == (
        '{\n  "schemaVersion": 1,\n  "packages": [\n    {"id": "reading-model", "version": "1.0.0.0", "path": '
        '"packs/reading-model/1.0.0.0", "capability": "model", "requiredForStartup": true}\n  ]\n}\n'
    )
    assert tree.read("Velmora Pine Relay/Runtime/packs/reading-model/1.0.0.0/a.bin") == b"a" * 5000


def test_quote_gives_what_windows_reads():
    assert command_line("a", "b c", 'd"') == '"a" "b c" "d\\""'

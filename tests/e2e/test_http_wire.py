"""The HTTP wire of the real daemon, over raw sockets: every refusal byte for byte, bodies of all kinds, kept connections."""

from __future__ import annotations

import base64
import json
import re
import socket
import threading
from collections.abc import Iterator
from contextlib import contextmanager

import pytest
from harness.daemon import Daemon
from harness.syslog import SystemLog
from harness.wire import AUTHORIZATION, HOST, PORT, TASKS, Rpc, connect

BODY_LIMIT = 2_500_000
HEAD_LIMIT = 4096
STREAM = "application/vnd.orbane.lumo.stream.json"
BAD_HEAD = b"HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\nServer: Lumo-PicoHttp\r\n\r\n"
CONTINUE = b"HTTP/1.1 100 Continue\r\n\r\n"
CALL = json.dumps({"jsonrpc": "2.0", "id": 1, "method": f"{TASKS}.list"}).encode()


def request(*headers: str, body: bytes = CALL, line: str = "POST / HTTP/1.1", length: bool = True,
            content_type: str | None = "application/json", user: bool = True) -> bytes:
    """A request; `length` adds the content length, `user` the credentials of a user."""
    lines = [line, *headers]
    if user:
        lines.append(f"Authorization: {AUTHORIZATION}")
    if content_type is not None:
        lines.append(f"Content-Type: {content_type}")
    if length:
        lines.append(f"Content-Length: {len(body)}")
    return "\r\n".join(lines).encode() + b"\r\n\r\n" + body


def read_to_end(connection: socket.socket) -> bytes:
    """All bytes up to the end of file; a reset counts as the end."""
    received = b""
    try:
        while piece := connection.recv(65536):
            received += piece
    except ConnectionResetError:
        pass
    return received


def exchange(sent: bytes, host: str = HOST) -> bytes:
    """Sends everything, ends the sending side, and returns everything that comes."""
    with connect(host) as connection:
        connection.sendall(sent)
        connection.shutdown(socket.SHUT_WR)
        return read_to_end(connection)


def until_closed(sent: bytes) -> bytes:
    """Sends everything and returns what comes until the daemon closes: the sending side stays open."""
    with connect() as connection:
        connection.sendall(sent)
        return read_to_end(connection)


class Answers:
    """Reads answers one by one off a kept connection."""

    def __init__(self, connection: socket.socket) -> None:
        self.file = connection.makefile("rb")

    def head(self) -> tuple[str, list[str]]:
        """Status line and header lines."""
        lines = []
        while line := self.file.readline().decode().removesuffix("\r\n"):
            lines.append(line)
        return lines[0], lines[1:]

    def chunked(self) -> bytes:
        """A chunked body."""
        body = b""
        while size := int(self.file.readline(), 16):
            body += self.file.read(size)
            assert self.file.read(2) == b"\r\n"
        assert self.file.read(2) == b"\r\n"
        return body


@contextmanager
def kept() -> Iterator[tuple[socket.socket, Answers]]:
    """A connection, and its answers."""
    with connect() as connection:
        yield connection, Answers(connection)


def chunked(body: bytes, size: int = 7) -> bytes:
    """`body` in chunks, with an extension and a trailer."""
    pieces = [body[at:at + size] for at in range(0, len(body), size)]
    return b"".join(b"%x;a=b\r\n%s\r\n" % (len(piece), piece) for piece in pieces) + b"0\r\nTrailer: x\r\n\r\n"


def head_of(size: int) -> bytes:
    """A request of which the head has exactly `size` bytes."""
    frame = request("a: ")
    head = len(frame) - len(CALL)
    return request("a: " + "x" * (size - head))


def assert_answered(answer: bytes) -> None:
    """One complete plain answer with a result."""
    head, _, body = answer.partition(b"\r\n\r\n")
    assert head == (b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-Type: application/json\r\n"
                    b"Connection: Keep-Alive\r\nServer: Lumo-PicoHttp"), answer
    assert b'"result"' in body and body.endswith(b"\r\n0\r\n\r\n"), answer


def test_answers_on_both_loopback_addresses(daemon: Daemon) -> None:
    assert_answered(exchange(request(), "127.0.0.1"))
    assert_answered(exchange(request(), "::1"))


@pytest.mark.parametrize("sent, text", [
    (b"nonsense\r\n\r\n", "headers parse error"),
    (request(*(f"h{i}: v" for i in range(62))), "headers parse error"),
    (head_of(HEAD_LIMIT + 1), "http headers too long"),
    (request("Content-Length: ", length=False), "invalid request"),
    (request("Content-Length: -1", length=False), "invalid request"),
    (request("Content-Length: 5, 5", length=False), "invalid request"),
    (request("Content-Length: 5", "Content-Length: 6", length=False), "invalid request"),
    (request("Content-Length: 99999999999999999999", length=False), "chunk parse error"),
    (request(line=" / HTTP/1.1"), "invalid request"),
    (b"POST / HTTP/1.1\r\nA : b\r\n\r\n", "headers parse error"),
    (b"POST / HTTP/1.1\r\nA: b\r\n c\r\n\r\n", "headers parse error"),
])
def test_heads_are_refused(daemon: Daemon, syslog: SystemLog, sent: bytes, text: str) -> None:
    assert until_closed(sent) == BAD_HEAD + text.encode()
    syslog.wait("^Invalid Http request$")


def test_head_limits_are_inclusive(daemon: Daemon) -> None:
    assert_answered(exchange(head_of(HEAD_LIMIT)))
    assert_answered(exchange(request(*(f"h{i}: v" for i in range(61)))))


def test_other_expectations_fail(daemon: Daemon, syslog: SystemLog) -> None:
    answer = until_closed(request("Expect: foo"))
    assert answer == b"HTTP/1.1 417 Expectation Failed\r\nConnection: close\r\nContent-Length: 0\r\n"
    assert len(answer) == 71
    syslog.wait("^Invalid Http request: Expect header value is not 100-continue$")


def test_a_client_that_goes_away_is_not_mentioned(daemon: Daemon, syslog: SystemLog) -> None:
    assert exchange(b"") == b""
    assert exchange(b"POST / HT") == b""
    assert_answered(exchange(request()))
    syslog.wait("Request handled")
    assert not syslog.find("Invalid Http request")


@pytest.mark.parametrize("content_type, name", [
    (None, "invalid_content_type"),
    ("text/plain", "invalid_content_type"),
    ("application/vnd.orbane.lumo.cleanjson", "invalid_request"),
    ("application/vnd.orbane.lumo.framed", "invalid_request"),
    (STREAM, "invalid_request"),
    ("application/json, application/vnd.orbane.lumo.framed", "invalid_request"),
])
def test_types_are_refused(daemon: Daemon, syslog: SystemLog, content_type: str | None, name: str) -> None:
    answer = until_closed(request(f"Accept: {STREAM}", content_type=content_type))
    head, _, body = answer.partition(b"\r\n\r\n")
    assert head == (b"HTTP/1.1 400 Bad Request\r\nContent-Length: %d\r\nContent-Type: text/plain\r\n"
                    b"Connection: close\r\nServer: Lumo-PicoHttp" % len(body))
    error = json.loads(body)["error"]
    assert error["code"] == 400
    assert error["data"]["@error"] == name
    syslog.wait("^Request is considered as bad$")
    syslog.wait(r"^Sent InvalidRequest response:\[0x[0-9a-f]+\]$")
    syslog.wait(r"^Handle request error: \[0x[0-9a-f]+\]InvalidRequest")


@pytest.mark.parametrize("headers, body", [
    ((), CALL),
    (("Expect: 100-continue",), CALL),
])
def test_bodies_without_length_end_with_the_input(daemon: Daemon, headers: tuple[str, ...], body: bytes) -> None:
    answer = exchange(request(*headers, body=body, length=False))
    if headers:
        assert answer.startswith(CONTINUE)
        answer = answer.removeprefix(CONTINUE)
    assert_answered(answer)


@pytest.mark.parametrize("expect", [False, True])
@pytest.mark.parametrize("is_chunked", [False, True])
def test_bodies_arrive_in_any_pieces(daemon: Daemon, expect: bool, is_chunked: bool) -> None:
    headers = ["Expect: 100-continue"] if expect else []
    if is_chunked:
        headers.append("Transfer-Encoding: chunked")
    sent = request(*headers, body=chunked(CALL) if is_chunked else CALL, length=not is_chunked)
    with kept() as (connection, answers):
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        for step in (1, 13, len(sent)):
            for at in range(0, len(sent), step):
                connection.sendall(sent[at:at + step])
            if expect:
                assert answers.file.read(len(CONTINUE)) == CONTINUE
            assert answers.head()[0] == "HTTP/1.1 200 OK"
            assert b'"result"' in answers.chunked()


def test_a_client_waits_to_be_told_to_go_on(daemon: Daemon) -> None:
    with kept() as (connection, answers):
        connection.sendall(request("Expect: 100-continue", f"Content-Length: {len(CALL)}", body=b"", length=False))
        assert answers.file.read(len(CONTINUE)) == CONTINUE
        connection.sendall(CALL)
        assert answers.head()[0] == "HTTP/1.1 200 OK"


def test_chunked_wins_over_a_length(daemon: Daemon) -> None:
    assert_answered(exchange(request("Transfer-Encoding: chunked", "Content-Length: 5", body=chunked(CALL), length=False)))


def test_pipelined_requests_are_answered_in_order(daemon: Daemon) -> None:
    calls = [json.dumps({"jsonrpc": "2.0", "id": i, "method": f"{TASKS}.list"}).encode() for i in range(200)]
    sent = b"".join(request(body=call) if i % 2 else
                    request("Transfer-Encoding: chunked", body=chunked(call), length=False)
                    for i, call in enumerate(calls))
    with kept() as (connection, answers):
        sender = threading.Thread(target=connection.sendall, args=(sent,))
        sender.start()
        for i in range(len(calls)):
            assert answers.head()[0] == "HTTP/1.1 200 OK"
            assert json.loads(answers.chunked())["id"] == i
        sender.join()


def test_a_get_leaves_its_body_to_the_next_request(daemon: Daemon) -> None:
    inner = request()
    outer = request(f"Content-Length: {len(inner)}", line="GET / HTTP/1.1", body=inner, length=False)
    assert_answered(exchange(outer))


def test_an_empty_body_gets_no_answer(daemon: Daemon) -> None:
    with kept() as (connection, answers):
        connection.sendall(request(body=b"") + request())
        assert answers.head()[0] == "HTTP/1.1 200 OK"


def test_close_is_said_and_done(daemon: Daemon) -> None:
    answer = until_closed(request("Connection: Close"))
    assert b"\r\nConnection: close\r\n" in answer
    assert answer.endswith(b"0\r\n\r\n")


def test_an_old_client_is_kept(daemon: Daemon) -> None:
    with kept() as (connection, answers):
        for _ in range(2):
            connection.sendall(request(line="POST / HTTP/1.0"))
            assert "Connection: Keep-Alive" in answers.head()[1]
            answers.chunked()


def test_a_body_of_the_limit_is_taken(daemon: Daemon) -> None:
    frame = json.dumps({"jsonrpc": "2.0", "id": 1, "method": f"{TASKS}.get", "params": {"task": ""}})
    body = frame.replace('"task": ""', '"task": "' + "x" * (BODY_LIMIT - len(frame)) + '"').encode()
    assert len(body) == BODY_LIMIT
    answer = exchange(request(body=body))
    assert answer.startswith(b"HTTP/1.1 200 OK\r\n")


def test_one_byte_more_is_refused(daemon: Daemon, syslog: SystemLog) -> None:
    for headers, body, length, name in ((), b" " * (BODY_LIMIT + 1), True, "request_exceeds_max_size"), \
            (("Transfer-Encoding: chunked",), chunked(b" " * (BODY_LIMIT + 1), 65536), False, "invalid_request"):
        answer = until_closed(request(*headers, body=body, length=length))
        assert answer.startswith(b"HTTP/1.1 400 Bad Request\r\n")
        assert json.loads(answer.partition(b"\r\n\r\n")[2])["error"]["data"]["@error"] == name
    syslog.wait(r"^RequestReadCb: \[0x[0-9a-f]+\] Error: Lumo Transport Http:2$", 2)


def test_malformed_json_is_a_200_with_a_length(daemon: Daemon, syslog: SystemLog) -> None:
    with kept() as (connection, answers):
        connection.sendall(request(body=b"{"))
        status, headers = answers.head()
        assert status == "HTTP/1.1 200 OK"
        assert headers[0].startswith("Content-Length: ")
        assert "lumo-error: com.orbane.lumo.std.errors.json_parse_error" in headers
        body = json.loads(answers.file.read(int(headers[0].split()[1])))
        assert body["error"]["code"] == -32700
        connection.sendall(request())
        assert answers.head()[0] == "HTTP/1.1 200 OK"
    syslog.wait(r"^Response head sent \(Deserializer error\): \[0x[0-9a-f]+\]$")


@pytest.mark.parametrize("header", ["lumo-operation: get", "lumo-service: com.orbane.halo"])
def test_a_header_that_names_another_operation_is_refused(daemon: Daemon, header: str) -> None:
    answer = exchange(request(header))
    assert b"lumo-error: com.orbane.lumo.std.errors.invalid_request\r\n" in answer
    assert b"Mismatching operation identifier in HTTP header and payload" in answer


def test_a_stream_has_one_frame_a_result(daemon: Daemon) -> None:
    with kept() as (connection, answers):
        connection.sendall(request(f"Accept: {STREAM}"))
        status, headers = answers.head()
        assert (status, headers[0], headers[1]) == ("HTTP/1.1 200 OK", "Transfer-Encoding: chunked", f"Content-Type: {STREAM}")
        size, _, rest = answers.chunked().partition(b"\r\n")
        assert len(rest) == int(size, 16) + 2 and rest.endswith(b"\r\n")
        assert "result" in json.loads(rest)


@pytest.mark.parametrize("user", [True, False])
def test_no_answer_invites_browsers(daemon: Daemon, user: bool) -> None:
    scan = json.dumps({"jsonrpc": "2.0", "id": 1, "method": "com.orbane.ryn.keel_daemon.software.scan"}).encode()
    for sent in (request("Origin: http://evil.example", user=user),
                 request("Origin: null", line="OPTIONS / HTTP/1.1", user=user),
                 request("Origin: null", content_type="text/plain", user=user), request(body=scan, user=user)):
        answer = exchange(sent).lower()
        assert b"access-control" not in answer and b"www-authenticate" not in answer


def test_a_call_is_logged_step_by_step_under_one_pointer(daemon: Daemon, syslog: SystemLog) -> None:
    assert_answered(exchange(request()))
    syslog.wait("^Request handled")
    lines = [entry for entry in syslog.entries()
             if re.search(r"\[0x[0-9a-f]+\]$", entry.text)]
    pointer = re.compile(r"\[(0x[0-9a-f]+)\]")
    texts = [pointer.sub("[P]", entry.text) for entry in lines]
    assert texts == ["Request head: [P]", "RequestReadCb[P]", "Request received[P]", "Response head sent: [P]",
                     "ResponseSentCb[P]", "Request handled[P]"]
    assert len({pointer.search(entry.text)[1] for entry in lines}) == 1  # type: ignore[index]
    assert [entry.severity for entry in lines] == ["debug", "debug", "info", "debug", "debug", "debug"]


def test_credentials_are_never_logged(daemon: Daemon, syslog: SystemLog) -> None:
    basic = base64.b64encode(b"root:verysecretword").decode()
    for header in (f"Authorization: Basic {basic}", "Authorization: Bearer verysecrettoken", f"Authorization: {basic}"):
        exchange(request(header, user=False))
        exchange(request(header, body=b"{", user=False))
        exchange(request(header, content_type="text/plain", user=False))
    assert_answered(exchange(request("lumo-ctx-opid: last")))
    syslog.wait("opId=last")
    for text in syslog.texts():
        assert "verysecret" not in text and basic not in text


def test_idle_connections_hinder_nobody(daemon: Daemon, rpc: Rpc) -> None:
    idle = [connect() for _ in range(400)]
    half = [connect() for _ in range(100)]
    for connection in half:
        connection.sendall(b"POST / HTTP/1.1\r\nContent-")
    try:
        assert rpc.tasks() == {}
    finally:
        for connection in idle + half:
            connection.close()
    assert rpc.tasks() == {}

import socket

import pytest

from conftest import FakeDaemon, Fault
from keeld_client import ApiError, Client, ProtocolError, UnreachableError


def client_of(daemon: FakeDaemon, **options: object) -> Client:
    return Client(host="127.0.0.1", port=daemon.port, **options)


def test_call_sends_what_the_daemon_wants(daemon: FakeDaemon) -> None:
    daemon.answers["a.b"] = {"x": 1}
    with client_of(daemon, language="de_DE", operation_id="nightly-1") as client:
        assert client.call("a.b", {"p": "q"}) == {"x": 1}
    assert daemon.calls == [("a.b", {"p": "q"})]
    headers = daemon.headers[0]
    assert headers["content-type"] == "application/json"
    assert headers["accept"] == "application/vnd.orbane.lumo.cleanjson"
    assert headers["accept-language"] == "de_DE"
    assert headers["lumo-ctx-opid"] == "nightly-1"


def test_calls_share_one_connection(daemon: FakeDaemon) -> None:
    daemon.answers["a.get"] = 1
    with client_of(daemon) as client:
        for _ in range(5):
            assert client.call("a.get") == 1
    assert daemon.connections == 1


def test_reading_call_survives_a_connection_closed_meanwhile(daemon: FakeDaemon) -> None:
    daemon.answers["a.get"] = 1
    daemon.close_after_answer = True
    with client_of(daemon) as client:
        assert [client.call("a.get") for _ in range(3)] == [1, 1, 1]
    assert daemon.connections == 3


def test_changing_call_is_never_sent_twice(daemon: FakeDaemon) -> None:
    daemon.answers["a.get"] = 1
    daemon.close_after_answer = True
    with client_of(daemon) as client:
        client.call("a.get")
        with pytest.raises(UnreachableError):
            client.call("a.apply")
    assert [method for method, _ in daemon.calls] == ["a.get"]


def test_error_answer(daemon: FakeDaemon) -> None:
    daemon.answers["a.b"] = Fault("not_found", "no such thing", "com.orbane.x", code=-32003)
    with client_of(daemon) as client, pytest.raises(ApiError) as caught:
        client.call("a.b")
    error = caught.value
    assert (error.kind, error.code, str(error)) == ("not_found", -32003, "no such thing")
    assert error.message_ids == ["com.orbane.x"]
    assert not error.is_busy and not error.is_refused


@pytest.mark.parametrize("kind,refused", [("unauthenticated", True), ("unauthorized", True),
                                          ("invalid_argument", True), ("not_found", False),
                                          ("internal_server_error", False)])
def test_refused_kinds(daemon: FakeDaemon, kind: str, refused: bool) -> None:
    daemon.answers["a.b"] = Fault(kind, "no")
    with client_of(daemon) as client, pytest.raises(ApiError) as caught:
        client.call("a.b")
    assert caught.value.is_refused is refused


@pytest.mark.parametrize("raw", [
    b"HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\nConnection: close\r\n\r\nheaders parse error",
    b"HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\n[1]",
    b"HTTP/1.1 200 OK\r\nContent-Length: 36\r\n\r\n" + b'{"jsonrpc":"2.0","id":99,"result":1}',
])
def test_answers_that_are_none(daemon: FakeDaemon, raw: bytes) -> None:
    daemon.raw = raw
    with client_of(daemon) as client, pytest.raises(ProtocolError):
        client.call("a.b")


@pytest.mark.parametrize("raw", [b"", b"garbage\r\n\r\n", b"HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\nshort"])
def test_broken_connections(daemon: FakeDaemon, raw: bytes) -> None:
    daemon.raw = raw
    with client_of(daemon) as client, pytest.raises(UnreachableError):
        client.call("a.b")


def test_nobody_listens() -> None:
    with socket.socket() as unused:
        unused.bind(("127.0.0.1", 0))
        with Client(port=unused.getsockname()[1]) as client, pytest.raises(UnreachableError, match="is the service running"):
            client.call("a.b")

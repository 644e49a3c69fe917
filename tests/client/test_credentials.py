"""Who the client says it is: what goes over the wire for each kind of credentials."""

import base64
import hashlib
from pathlib import Path

import pytest

from conftest import FakeDaemon
from keeld_client import Client, Credentials, CredentialsError, Password, RootTickets, Token, UnreachableError

TICKET_CHARACTERS = 43


def client_of(daemon: FakeDaemon, credentials: Credentials | None = None) -> Client:
    return Client(host="127.0.0.1", port=daemon.port, credentials=credentials)


def basic_pair(header: str) -> tuple[str, str]:
    """User name and password of a Basic header; the first colon splits."""
    scheme, _, value = header.partition(" ")
    assert scheme == "Basic"
    user, _, password = base64.b64decode(value).decode().partition(":")
    return user, password


def test_without_credentials_no_header_is_sent(daemon: FakeDaemon) -> None:
    daemon.answers["a.get"] = 1
    with client_of(daemon) as client:
        client.call("a.get")
    assert "authorization" not in daemon.headers[0]


@pytest.mark.parametrize("user, password", [("operator", "correct horse"), ("jörg", "pässwörd:mit:Doppelpunkt"), ("x", ""),
                                            ("", "x"), ("x", "y\r\nlumo-ctx-opid: forged")])
def test_password(daemon: FakeDaemon, user: str, password: str) -> None:
    daemon.answers["a.get"] = 1
    with client_of(daemon, Password(user, password)) as client:
        client.call("a.get")
        client.call("a.get")
    assert [basic_pair(headers["authorization"]) for headers in daemon.headers] == [(user, password)] * 2
    assert "lumo-ctx-opid" not in daemon.headers[0]


@pytest.mark.parametrize("user, password, text", [
    ("a:b", "c", "colon"), ("a\0", "b", "zero byte"), ("a", "b\0", "zero byte"), ("a", "a", "for a ticket"),
    ("", "", "for a ticket"), ("a", "x" * 3000, "longer")])
def test_passwords_that_cannot_be_sent(user: str, password: str, text: str) -> None:
    with pytest.raises(CredentialsError, match=text) as caught:
        Password(user, password)
    assert not password or len(password) == 1 or password not in str(caught.value)


def test_token(daemon: FakeDaemon) -> None:
    daemon.answers["a.get"] = 1
    with client_of(daemon, Token("eyJhbGciOi.J9_-.c2ln")) as client:
        client.call("a.get")
    assert daemon.headers[0]["authorization"] == "Bearer eyJhbGciOi.J9_-.c2ln"


@pytest.mark.parametrize("token", ["", "a b", "a\r\nb: c", "a\n", "ä", "a\0", "=a", "x" * 3601])
def test_what_is_no_token(token: str) -> None:
    with pytest.raises(CredentialsError, match="no token"):
        Token(token)


@pytest.mark.parametrize("credentials", [Password("operator", "hunter2"), Token("hunter2"), RootTickets()])
def test_secrets_are_not_shown(credentials: Credentials) -> None:
    assert "hunter2" not in repr(credentials) + str(credentials)
    assert "***" in repr(credentials) or isinstance(credentials, RootTickets)


def test_each_request_has_a_ticket_of_its_own(daemon: FakeDaemon, ticket_folder: Path) -> None:
    live: list[list[str]] = []
    daemon.on_request = lambda: live.append([path.name for path in ticket_folder.iterdir()])
    daemon.answers["a.get"] = 1
    with client_of(daemon, RootTickets()) as client:
        for _ in range(3):
            client.call("a.get")
    pairs = [basic_pair(headers["authorization"]) for headers in daemon.headers]
    assert all(user == password and len(user) == TICKET_CHARACTERS for user, password in pairs)
    assert len(set(pairs)) == 3
    assert live == [[hashlib.sha256(user.encode()).hexdigest()] for user, _ in pairs]
    assert list(ticket_folder.iterdir()) == [], "what the daemon did not use is taken back"


def test_a_used_ticket_is_fine(daemon: FakeDaemon, ticket_folder: Path) -> None:
    daemon.on_request = lambda: next(ticket_folder.iterdir()).unlink()
    daemon.answers["a.get"] = 1
    with client_of(daemon, RootTickets()) as client:
        assert client.call("a.get") == 1


def test_a_repeated_request_has_a_new_ticket(daemon: FakeDaemon, ticket_folder: Path) -> None:
    daemon.answers["a.get"] = 1
    daemon.close_after_answer = True
    with client_of(daemon, RootTickets()) as client:
        assert [client.call("a.get") for _ in range(2)] == [1, 1]
    assert daemon.connections == 2
    assert len({headers["authorization"] for headers in daemon.headers}) == 2
    assert list(ticket_folder.iterdir()) == []


def test_a_broken_connection_leaves_no_ticket(daemon: FakeDaemon, ticket_folder: Path) -> None:
    daemon.raw = b""
    with client_of(daemon, RootTickets()) as client, pytest.raises(UnreachableError):
        client.call("a.get")
    assert list(ticket_folder.iterdir()) == []


def test_without_a_daemon_no_ticket_is_issued(ticket_folder: Path) -> None:
    with Client(port=1, credentials=RootTickets()) as client, pytest.raises(UnreachableError):
        client.call("a.get")
    assert not ticket_folder.exists()


def test_no_ticket_no_request(daemon: FakeDaemon, ticket_folder: Path) -> None:
    ticket_folder.parent.mkdir()
    ticket_folder.symlink_to("/tmp")
    with client_of(daemon, RootTickets()) as client, pytest.raises(CredentialsError, match="is no folder"):
        client.call("a.get")
    assert daemon.calls == []

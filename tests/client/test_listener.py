"""Credentials go to a process of root alone, whoever has taken the port. For root, who can be another user."""

from __future__ import annotations

import os
import socket
from collections.abc import Iterator
from pathlib import Path

import pytest
from keeld_client import UnreachableError
from keeld_client.credentials import Credentials, Password, RootTickets, Token
from keeld_client.listener import Listener, distrust, listeners, parse
from keeld_client.transport import Transport

STRANGER = 65534
TCP = """\
   0: 0100007F:1D09 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 1111 1 0000000000000000 100 0 0 10 0
   1: 00000000:1D09 00000000:0000 0A 00000000:00000000 00:00000000 00000000  1000        0 2222 1 0000000000000000 100 0 0 10 0
   2: 0100007F:1D09 0100007F:C350 01 00000000:00000000 00:00000000 00000000  1000        0 3333 1 0000000000000000 20 4 30 10 -1
   3: 0100007F:1D0A 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 4444 1 0000000000000000 100 0 0 10 0
   4: nonsense
"""
TCP6 = "   0: 00000000000000000000000001000000:1D09 00000000000000000000000000000000:0000 0A 0:0 0:0 0 33 0 5555 1 0\n"
DAEMON4, DAEMON6 = Listener("127.0.0.1", 1, 0), Listener("::1", 2, 0)


def test_tables_of_the_kernel_are_read() -> None:
    assert parse(TCP.splitlines(), 7433) == {Listener("127.0.0.1", 1111, 0), Listener("0.0.0.0", 2222, 1000)}
    assert parse(TCP6.splitlines(), 7433) == {Listener("::1", 5555, 33)}
    assert parse(TCP.splitlines(), 7434) == {Listener("127.0.0.1", 4444, 0)}
    assert parse([], 7433) == set()


@pytest.mark.parametrize("peer, before, after, reason", [
    ("127.0.0.1", {DAEMON4, DAEMON6}, {DAEMON4, DAEMON6}, None),
    ("::1", {DAEMON4, DAEMON6}, {DAEMON6}, None),
    ("::ffff:127.0.0.1", {DAEMON4}, {DAEMON4}, None),
    ("127.0.0.1", {Listener("0.0.0.0", 3, 0)}, {Listener("0.0.0.0", 3, 0)}, None),
    ("127.0.0.1", {Listener("127.0.0.1", 3, os.getuid())}, {Listener("127.0.0.1", 3, os.getuid())}, None),
    ("192.0.2.1", set(), set(), None),
    ("127.0.0.1", {Listener("127.0.0.1", 3, STRANGER)}, {Listener("127.0.0.1", 3, STRANGER)}, f"user {STRANGER}"),
    ("127.0.0.1", {DAEMON4, Listener("::", 3, STRANGER)}, {DAEMON4, Listener("::", 3, STRANGER)}, f"user {STRANGER}"),
    ("127.0.0.1", set(), {DAEMON4}, "cannot tell"),
    ("127.0.0.1", {DAEMON6}, {DAEMON6}, "cannot tell"),
    ("127.0.0.1", {DAEMON4}, {Listener("127.0.0.1", 9, 0)}, "cannot tell"),
])
def test_only_root_and_we_ourselves_are_trusted(peer: str, before: set[Listener], after: set[Listener],
                                               reason: str | None) -> None:
    told = distrust(peer, before, after)
    assert told is None if reason is None else reason in (told or "")


@pytest.fixture
def stranger() -> Iterator[tuple[int, int]]:
    """A listener of another user: its port, and the read end of a pipe that tells what it was sent."""
    listening_read, listening_write = os.pipe()
    heard_read, heard_write = os.pipe()
    child = os.fork()
    if child == 0:
        os.setuid(STRANGER)
        server = socket.create_server(("127.0.0.1", 0))
        os.write(listening_write, str(server.getsockname()[1]).encode())
        while True:
            connection, _ = server.accept()
            while piece := connection.recv(4096):
                os.write(heard_write, piece)
                connection.sendall(b"HTTP/1.1 400 No\r\nContent-Length: 0\r\nConnection: close\r\n\r\n")
            connection.close()
    os.close(heard_write)
    yield int(os.read(listening_read, 16)), heard_read
    os.kill(child, 9)
    os.waitpid(child, 0)
    for descriptor in (listening_read, listening_write, heard_read):
        os.close(descriptor)


@pytest.mark.parametrize("credentials", [RootTickets(), Password("alice", "secret"), Token("a.b.c")])
def test_a_stranger_on_the_port_hears_nothing(stranger: tuple[int, int], ticket_folder: Path,
                                              credentials: Credentials) -> None:
    port, heard = stranger
    transport = Transport(port=port, credentials=credentials)
    with pytest.raises(UnreachableError, match=f"no credentials are sent to 127.0.0.1 port {port}: a process of user {STRANGER}"):
        transport.call("com.orbane.halo.tasks.list")
    assert not ticket_folder.exists() or not list(ticket_folder.iterdir())
    os.set_blocking(heard, False)
    with pytest.raises(BlockingIOError):
        os.read(heard, 1)


def test_without_credentials_anybody_may_answer(stranger: tuple[int, int]) -> None:
    port, heard = stranger
    with pytest.raises(Exception, match="status 400"):
        Transport(port=port).call("com.orbane.lumo.std.introspection.provider.get")
    assert b"Authorization" not in os.read(heard, 65536)


def test_our_own_listener_is_found() -> None:
    with socket.create_server(("127.0.0.1", 0)) as server:
        found = listeners(server.getsockname()[1])
    assert [(listener.address, listener.uid) for listener in found] == [("127.0.0.1", os.getuid())]

"""Who listens on a port of this host: credentials go to the daemon alone, and its port is one that any user can take."""

from __future__ import annotations

import ipaddress
import os
from collections.abc import Iterable
from typing import NamedTuple

_TABLES = ("/proc/net/tcp", "/proc/net/tcp6")
_LISTEN = "0A"


class Listener(NamedTuple):
    """A listening socket: its address, its number in the kernel, and the user whose process made it."""

    address: str
    inode: int
    uid: int


def _address(text: str) -> str:
    """The kernel's spelling of an address, words of four bytes in the host's order, as people write it."""
    words = [int(text[i:i + 8], 16).to_bytes(4, "little") for i in range(0, len(text), 8)]
    return str(ipaddress.ip_address(b"".join(words)))


def parse(lines: Iterable[str], port: int) -> set[Listener]:
    """The sockets that listen on `port` among the lines of one of the kernel's tables."""
    found = set()
    for line in lines:
        fields = line.split()
        if len(fields) < 10 or fields[3] != _LISTEN:
            continue
        address, _, number = fields[1].partition(":")
        if int(number, 16) == port:
            found.add(Listener(_address(address), int(fields[9]), int(fields[7])))
    return found


def listeners(port: int) -> set[Listener]:
    """All sockets of this network namespace that listen on `port`; those that can't be seen are left out."""
    found = set()
    for table in _TABLES:
        try:
            with open(table, encoding="ascii") as lines:
                found |= parse(list(lines)[1:], port)
        except OSError:
            continue
    return found


def distrust(peer: str, before: set[Listener], after: set[Listener]) -> str | None:
    """Why the program that took a connection to `peer` may not see credentials; None when it may.

    `before` and `after` are the listeners of the port before and after connecting. Root's process may, and one of our
    own; a socket that came or went meanwhile proves nothing. An address of another host is the caller's own choice.
    """
    address = ipaddress.ip_address(peer)
    address = getattr(address, "ipv4_mapped", None) or address
    if not address.is_loopback:
        return None
    takes = {listener for listener in before
             if ipaddress.ip_address(listener.address) == address or ipaddress.ip_address(listener.address).is_unspecified}
    if not takes or not takes <= after:
        return "cannot tell whose process listens there"
    strangers = sorted({listener.uid for listener in takes} - {0, os.getuid()})
    return f"a process of user {strangers[0]} listens there, which is not the daemon" if strangers else None

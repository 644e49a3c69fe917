"""Who a client says it is: objects that give each request its Authorization header."""

from __future__ import annotations

import base64
import contextlib
import re
from collections.abc import Iterator

from . import tickets
from .errors import CredentialsError

_LONGEST = 3600  # characters of a header's value; the daemon takes 4096 bytes of headers in all
_TOKEN = re.compile(r"[A-Za-z0-9._~+/-]+=*")


class Credentials:
    """No credentials: enough for introspection alone. Base of the others.

    A client enters `for_request` for each request that it sends, repeated ones included, since some credentials are good
    for one only.
    """

    @contextlib.contextmanager
    def for_request(self) -> Iterator[str | None]:
        """Gives the value of the Authorization header of one request, or None; the context ends with the answer."""
        yield None

    @property
    def anonymous(self) -> bool:
        """Whether there is nothing here that a stranger may not see."""
        return type(self) is Credentials

    def advice(self) -> str:
        """What to do when the daemon refuses these."""
        return "say who you are with --user NAME, or run this as root"


class Password(Credentials):
    """A user of the host, and the password."""

    def __init__(self, user: str, password: str) -> None:
        """Raises CredentialsError for what can't be sent."""
        if ":" in user or "\0" in user + password:
            raise CredentialsError("a user name holds no colon, and neither it nor a password a zero byte")
        if user == password:
            raise CredentialsError("a password that equals the user name is of no use: keeld takes the pair for a ticket")
        self.user = user
        self._header = _basic(user, password)

    @contextlib.contextmanager
    def for_request(self) -> Iterator[str | None]:
        yield self._header

    def advice(self) -> str:
        return "is the password right, and may this user sign in?"

    def __repr__(self) -> str:
        return f"Password({self.user!r}, ***)"


class Token(Credentials):
    """A bearer token, for hosts that are set up for them."""

    def __init__(self, token: str) -> None:
        """Raises CredentialsError for what is no token."""
        if not _TOKEN.fullmatch(token) or len(token) > _LONGEST:
            raise CredentialsError("this is no token: another character than a token's, too long, or empty")
        self._header = f"Bearer {token}"

    @contextlib.contextmanager
    def for_request(self) -> Iterator[str | None]:
        yield self._header

    def advice(self) -> str:
        return "has the token expired, and does it grant this?"

    def __repr__(self) -> str:
        return "Token(***)"


class RootTickets(Credentials):
    """A ticket of its own for each request; needs root. A ticket that the daemon did not use is taken back."""

    @contextlib.contextmanager
    def for_request(self) -> Iterator[str | None]:
        ticket = tickets.issue()
        try:
            yield _basic(ticket, ticket)
        finally:
            tickets.withdraw(ticket)

    def advice(self) -> str:
        return "does this host take tickets? Otherwise give --user NAME or --token-file FILE"

    def __repr__(self) -> str:
        return "RootTickets()"


def _basic(user: str, password: str) -> str:
    header = "Basic " + base64.b64encode(f"{user}:{password}".encode()).decode()
    if len(header) > _LONGEST:
        raise CredentialsError("user name and password are longer than keeld takes")
    return header

"""Credentials as callers send them, and tickets as root issues them."""

from __future__ import annotations

import datetime
import hashlib
import json
import pathlib
import secrets

from harness import wire

TICKETS = pathlib.Path("/run/orbane/tickets")
USER, PASSWORD = wire.USER, wire.PASSWORD


def basic(user: str | bytes, password: str | bytes) -> dict[str, str]:
    """The header that carries a user name and a password."""
    return {"Authorization": wire.basic(user, password)}


def issue_ticket(service: str = "Lifecycle", seconds: float = 300) -> str:
    """Puts a new ticket that expires in `seconds` in place and returns its text."""
    ticket = secrets.token_urlsafe(32)
    expires = datetime.datetime.now(datetime.timezone.utc) + datetime.timedelta(seconds=seconds)
    path = TICKETS / hashlib.sha256(ticket.encode()).hexdigest()
    path.touch(mode=0o600)
    path.write_text(json.dumps({"service": service, "expires": expires.strftime("%Y-%m-%dT%H:%M:%S.000Z")}))
    return ticket


def ticket_header(ticket: str) -> dict[str, str]:
    """The header that carries a ticket."""
    return basic(ticket, ticket)

"""Single-use tickets: how root signs in without a password.

A ticket is 43 characters of base64url. The daemon finds it by the SHA-256 of its text, which names a file in FOLDER:
`{"service":"Lifecycle","expires":"2026-01-01T12:00:00.000Z"}`. Whoever holds the text can sign in once; using a ticket
removes its file. Only root can write the folder, and each file is complete before it can be seen under its name.
"""

from __future__ import annotations

import contextlib
import datetime
import hashlib
import json
import os
import re
import secrets
import stat
import time
from collections.abc import Iterator

from .errors import CredentialsError

FOLDER = "/run/orbane/tickets"
SERVICE = "Lifecycle"
LIFETIME = 300.0  # seconds: longer than a call may wait for the daemon
LONGEST_LIFETIME = 86400.0

_SERVICE_NAME = re.compile(r"[A-Za-z0-9._-]{1,127}")
_FILE_NAME = re.compile(r"[0-9a-f]{64}")
_UNFINISHED = re.compile(r"\.[0-9a-f]{64}\.new")
_UNFINISHED_SECONDS = 60.0
_CONTENT_LIMIT = 1024
_FOLDER_FLAGS = os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW | os.O_CLOEXEC


class TicketError(CredentialsError):
    """No ticket can be issued; the text says why."""


def issue(service: str = SERVICE, lifetime: float = LIFETIME) -> str:
    """Makes a ticket for one sign-in to `service` within `lifetime` seconds and returns its text.

    Needs root. Tickets that have expired unused are cleaned away. Raises TicketError.
    """
    if not _SERVICE_NAME.fullmatch(service):
        raise TicketError("a service is named by up to 127 letters, digits, dots, dashes and underscores")
    if not 0 < lifetime <= LONGEST_LIFETIME:
        raise TicketError(f"a ticket lives for more than 0 and at most {LONGEST_LIFETIME:.0f} seconds")
    if os.geteuid() != 0:
        raise TicketError("only root can issue tickets")
    ticket = secrets.token_urlsafe(32)
    now = time.time()
    content = json.dumps({"service": service, "expires": _time_text(now + lifetime)}, separators=(",", ":"))
    try:
        with _ticket_folder() as folder:
            _clean(folder, now)
            _write(folder, _file_name(ticket), content.encode())
    except OSError as error:
        raise TicketError(f"cannot write a ticket to {FOLDER}: {error.strerror}") from error
    return ticket


def withdraw(ticket: str) -> bool:
    """Removes a ticket that was not used; False if it is gone already."""
    try:
        with _ticket_folder() as folder:
            os.unlink(_file_name(ticket), dir_fd=folder)
    except (OSError, TicketError):
        return False
    return True


def _file_name(ticket: str) -> str:
    return hashlib.sha256(ticket.encode()).hexdigest()


def _time_text(seconds: float) -> str:
    moment = datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc)
    return f"{moment:%Y-%m-%dT%H:%M:%S}.{moment.microsecond // 1000:03d}Z"


@contextlib.contextmanager
def _ticket_folder() -> Iterator[int]:
    """A descriptor of the folder, which is made where it is missing; it and the one above have to be root's alone."""
    above, name = os.path.split(FOLDER)
    base, above_name = os.path.split(above)
    with contextlib.ExitStack() as opened:
        folder = os.open(base, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
        opened.callback(os.close, folder)
        for word, path, mode in ((above_name, above, 0o755), (name, FOLDER, 0o700)):
            folder = _enter(folder, word, path, mode)
            opened.callback(os.close, folder)
        yield folder


def _enter(parent: int, name: str, path: str, mode: int) -> int:
    """Opens a folder that only root can write, made with `mode` where it is missing, and without rights beyond that."""
    made = True
    try:
        os.mkdir(name, mode, dir_fd=parent)
    except FileExistsError:
        made = False
    try:
        folder = os.open(name, _FOLDER_FLAGS, dir_fd=parent)
    except OSError as error:
        raise TicketError(f"{path} is no folder that tickets can be written to: {error.strerror}") from error
    try:
        status = os.fstat(folder)
        if status.st_uid != 0:
            raise TicketError(f"{path} does not belong to root; no ticket is written there")
        if status.st_mode & (stat.S_IWGRP | stat.S_IWOTH):
            raise TicketError(f"{path} can be written by others than root; no ticket is written there")
        if made or status.st_mode & 0o777 & ~mode:
            os.fchmod(folder, mode)  # whatever the umask; the daemon takes no ticket from a folder that others can read
    except BaseException:
        os.close(folder)
        raise
    return folder


def _write(folder: int, name: str, content: bytes) -> None:
    """Writes a file beside its place, and moves it there when it is complete."""
    unfinished = f".{name}.new"
    file = os.open(unfinished, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_NOFOLLOW | os.O_CLOEXEC, 0o600, dir_fd=folder)
    try:
        with os.fdopen(file, "wb") as stream:
            os.fchmod(file, 0o600)  # whatever the umask
            stream.write(content)
        os.rename(unfinished, name, src_dir_fd=folder, dst_dir_fd=folder)
    except BaseException:
        with contextlib.suppress(OSError):
            os.unlink(unfinished, dir_fd=folder)
        raise


def _clean(folder: int, now: float) -> None:
    """Removes tickets that have expired, and files that nobody finished."""
    for name in os.listdir(folder):
        if _FILE_NAME.fullmatch(name):
            expired = _has_expired(folder, name, now)
        elif _UNFINISHED.fullmatch(name):
            expired = _is_old(folder, name, now)
        else:
            expired = False
        if expired:
            with contextlib.suppress(OSError):
                os.unlink(name, dir_fd=folder)


def _has_expired(folder: int, name: str, now: float) -> bool:
    try:
        file = os.open(name, os.O_RDONLY | os.O_NOFOLLOW | os.O_NONBLOCK | os.O_CLOEXEC, dir_fd=folder)
    except OSError:
        return False
    try:
        content = json.loads(os.read(file, _CONTENT_LIMIT)) if stat.S_ISREG(os.fstat(file).st_mode) else None
        expires = datetime.datetime.strptime(content["expires"], "%Y-%m-%dT%H:%M:%S.%f%z")
        return expires.timestamp() <= now
    except (OSError, ValueError, TypeError, KeyError, RecursionError):
        return False  # no ticket; whose it is, nobody knows
    finally:
        os.close(file)


def _is_old(folder: int, name: str, now: float) -> bool:
    try:
        return os.stat(name, dir_fd=folder, follow_symlinks=False).st_mtime < now - _UNFINISHED_SECONDS
    except OSError:
        return False

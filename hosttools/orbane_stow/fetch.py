"""Reads of single files of a depot, by file:// or http://."""

from __future__ import annotations

import http.client
import os
import socket
import urllib.error
import urllib.parse
import urllib.request
from pathlib import Path

from orbane_stow.errors import DepotDamagedError, DepotUnreachableError, DepotUrlError

TIMEOUT_SECONDS = 30
INDEX_NAME = "index.xml"


class DepotUrl:
    """A checked depot address. `text` is what messages show, without a slash or "index.xml" at its end."""

    def __init__(self, address: str) -> None:
        """Raises `DepotUrlError` for anything but file:///path and http://host[:port]/path."""
        pieces = _split(address)
        path = pieces.path.removesuffix("/" + INDEX_NAME).rstrip("/")
        self.text = urllib.parse.urlunsplit((pieces.scheme, pieces.netloc, path, "", ""))
        self.local_path = Path(urllib.parse.unquote(path) or "/") if pieces.scheme == "file" else None

    def read(self, name: str, limit: int) -> bytes | None:
        """The file `name` below the depot; None when it isn't there.

        Raises `DepotUnreachableError` when the depot can't be asked and `DepotDamagedError` for more than `limit`
        bytes.
        """
        content = self._read_local(name, limit) if self.local_path is not None else self._read_http(name, limit)
        if content is not None and len(content) > limit:
            raise DepotDamagedError(self.text, f"{name} is longer than {limit} bytes")
        return content

    def _read_local(self, name: str, limit: int) -> bytes | None:
        assert self.local_path is not None
        if not self.local_path.is_dir():
            raise DepotUnreachableError(self.text, os.strerror(2))
        try:
            with open(self.local_path / name, "rb") as file:
                return file.read(limit + 1)
        except FileNotFoundError:
            return None
        except OSError as error:
            raise DepotUnreachableError(self.text, error.strerror) from error

    def _read_http(self, name: str, limit: int) -> bytes | None:
        try:
            with urllib.request.urlopen(f"{self.text}/{name}", timeout=TIMEOUT_SECONDS) as answer:
                return answer.read(limit + 1)
        except urllib.error.HTTPError as error:
            if error.code in (404, 410):
                return None
            raise DepotUnreachableError(self.text, f"HTTP status {error.code}") from error
        except urllib.error.URLError as error:
            reason = error.reason
            text = reason.strerror if isinstance(reason, OSError) and reason.strerror else str(reason)
            raise DepotUnreachableError(self.text, text) from error
        except (OSError, http.client.HTTPException, socket.timeout) as error:
            raise DepotUnreachableError(self.text, str(error) or type(error).__name__) from error


def _split(address: str) -> urllib.parse.SplitResult:
    def refuse(reason: str) -> DepotUrlError:
        return DepotUrlError(_without_user(address), reason)

    if not all(33 <= ord(c) < 127 for c in address):
        raise refuse("it has blanks or characters outside of ASCII")
    try:
        pieces = urllib.parse.urlsplit(address)
        port = pieces.port
    except ValueError as error:
        raise refuse(str(error)) from error
    if "@" in pieces.netloc:
        raise refuse("it has user information")
    if pieces.query or pieces.fragment or "?" in address or "#" in address:
        raise refuse("it has a query or a fragment")
    if pieces.scheme == "file":
        if pieces.netloc not in ("", "localhost") or not pieces.path.startswith("/"):
            raise refuse("a file address has the form file:///folder")
        return pieces._replace(netloc="")
    if pieces.scheme != "http":
        raise refuse("its scheme is neither file nor http")
    if not pieces.hostname or port == 0:
        raise refuse("it names no host")
    return pieces


def _without_user(address: str) -> str:
    """The address as it may be shown: all between the slashes behind the scheme and the last @ is left out."""
    head, separator, rest = address.partition("://")
    return head + separator + rest.rpartition("@")[2] if separator else address.rpartition("@")[2]

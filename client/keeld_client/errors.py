"""What can go wrong in a call, as exceptions."""

from __future__ import annotations

from typing import Any

STANDARD_ERRORS = "com.orbane.lumo.std.errors."
CONTENTION = "com.orbane.ryn.task.contention"


class KeeldError(Exception):
    """Base of everything that this package raises."""


class UnreachableError(KeeldError):
    """No daemon answered, or the connection broke before the answer was complete."""


class ProtocolError(KeeldError):
    """An answer came that is not one: another HTTP status, no JSON, a foreign id."""


class CredentialsError(KeeldError):
    """There are no credentials to send: they can't be had, or they can't be what the daemon takes."""


class ApiError(KeeldError):
    """The daemon answered with an error.

    identifier -- "com.orbane.lumo.std.errors.not_found" and the like; empty if the answer named none
    code       -- the JSON-RPC code
    messages   -- list of {"id", "default_message", "args"} as sent
    data       -- the whole error value in the direct form, or None
    """

    def __init__(self, identifier: str, code: int, text: str, data: Any = None) -> None:
        super().__init__(text or identifier or f"error {code}")
        self.identifier = identifier
        self.code = code
        self.data = data
        messages = data.get("messages") if isinstance(data, dict) else None
        self.messages: list[dict[str, Any]] = [m for m in messages or [] if isinstance(m, dict)]

    @property
    def kind(self) -> str:
        """The last word of the identifier: "not_found", "invalid_argument", …"""
        return self.identifier.rpartition(".")[2]

    @property
    def message_ids(self) -> list[str]:
        """Ids of the messages, in order."""
        return [str(m.get("id", "")) for m in self.messages]

    @property
    def is_busy(self) -> bool:
        """Another operation holds the gate."""
        return CONTENTION in self.message_ids

    @property
    def is_about_credentials(self) -> bool:
        """The daemon does not know the caller, or does not let the caller do this."""
        return self.kind in ("unauthenticated", "unauthorized")

    @property
    def is_refused(self) -> bool:
        """The daemon does not take the call: credentials, rights or arguments."""
        return self.is_about_credentials or self.kind == "invalid_argument"


class TaskFailedError(KeeldError):
    """A task that was waited for ended as FAILED."""

    def __init__(self, task_id: str, text: str, info: dict[str, Any]) -> None:
        super().__init__(text)
        self.task_id = task_id
        self.info = info

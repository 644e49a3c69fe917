"""The machinery of the tables "every operation × every kind of caller": who is let through, and what log and audit tell.

The rows are the operations of the interface definition as the installed metadata files have them, so that a new
operation is in the tables from its first build on. The columns are `Caller`s. A call carries a field that no operation
knows: the refusal that names it shows that the call came through the whole chain, and nothing is done.
"""

from __future__ import annotations

import json
import pathlib
from collections.abc import Callable, Iterable
from dataclasses import dataclass, field

from harness.audit import AuditEvent, AuditLog
from harness.syslog import SystemLog
from harness.wire import Rpc

METADATA = pathlib.Path("/usr/lib/orbane/lifecycle/metadata")
NO_AUTHENTICATION = "com.orbane.lumo.std.security.no_authentication"
ERRORS = "com.orbane.lumo.std.errors."
UNKNOWN_FIELD = "a_field_that_no_operation_has"


@dataclass(frozen=True)
class Operation:
    """One operation of the interface definition."""

    service: str
    name: str
    needs_user: bool
    privileges: tuple[str, ...]  # of the token flavour

    @property
    def id(self) -> str:
        """The full identifier."""
        return f"{self.service}.{self.name}"


@dataclass(frozen=True)
class Answer:
    """How a call ends: the error's short name and its code."""

    error: str
    code: int


#: Behind the whole chain: the operation's binder refuses the field that it doesn't know.
SERVED = Answer("invalid_argument", -32602)
#: Behind the whole chain: the definition has the operation, this host does not.
ABSENT = Answer("operation_not_found", -32601)
UNAUTHENTICATED = Answer("unauthenticated", -32006)
UNAUTHORIZED = Answer("unauthorized", -32007)


@dataclass
class Expected:
    """What one call must show."""

    answer: Answer
    lines: list[tuple[str, str]] = field(default_factory=list)  # severity and text of log lines, besides the last
    audit: list[AuditEvent] = field(default_factory=list)


@dataclass
class Attempt:
    """One call's headers and what it must show; `expected` knows the operation and the call's operation id.

    `events_before` counts the audit events that getting the credentials caused.
    """

    headers: dict[str, str]
    expected: Callable[[Operation, str], Expected]
    events_before: int = 0


@dataclass
class Caller:
    """A column: `attempt` makes the credentials of one more call."""

    name: str
    attempt: Callable[[], Attempt]


def operations() -> list[Operation]:
    """All operations of the installed interface definition."""
    document = json.loads((METADATA / "keeld_lumo_authentication.json").read_text())["settings_lumo_authentication"]
    privileges = json.loads((METADATA / "keeld_lumo_authorization.json").read_text())["operations"]
    found = []
    for package in document["packages"].values():
        for service, content in package["services"].items():
            for name, schemes in content["operations"].items():
                found.append(Operation(service, name, NO_AUTHENTICATION not in schemes,
                                       tuple(privileges.get(f"{service}.{name}", ()))))
    return found


def services_of_the_daemon(rpc: Rpc) -> set[str]:
    """The services that the running daemon has bound, asked with the credentials of `rpc`."""
    return set(rpc("com.orbane.lumo.std.introspection.service.list"))


def served(operation: Operation, bound: set[str]) -> Answer:
    """The answer to a call that came through the chain."""
    return SERVED if operation.service in bound else ABSENT


class Table:
    """Makes the calls of a table one by one and collects what is not as it must be."""

    def __init__(self, syslog: SystemLog, audit: AuditLog) -> None:
        self._syslog = syslog
        self._audit = audit
        self._audited = len(audit.events())
        self._row = 0
        self.problems: list[str] = []

    def check(self, caller: Caller, rows: Iterable[Operation]) -> None:
        """One column."""
        for operation in rows:
            self._row += 1
            self._check(caller, operation, f"row-{self._row}-of-{caller.name}")

    def _check(self, caller: Caller, operation: Operation, op_id: str) -> None:
        attempt = caller.attempt()
        self._audited += attempt.events_before
        self._audit.wait(self._audited)
        expected = attempt.expected(operation, op_id)
        reply = Rpc(headers={**attempt.headers, "lumo-ctx-opid": op_id}).request(operation.id, {UNKNOWN_FIELD: 1})
        context = f"[opId={op_id}] "
        self._syslog.wait(f"^{context}Method ".replace("[", r"\["))
        lines = [(entry.severity, entry.text.removeprefix(context)) for entry in self._syslog.find("")
                 if entry.text.startswith(context) and entry.severity in ("err", "warning")]
        events = self._audit.wait(self._audited + len(expected.audit))[self._audited:]
        self._audited += len(events)

        error = reply.json().get("error", {})
        for what, got, wanted in (
                ("status", reply.status, 200),
                ("code", error.get("code"), expected.answer.code),
                ("error type", (error.get("data") or {}).get("error_type"), expected.answer.error.upper()),
                ("lumo-error", reply.headers.get("lumo-error"), ERRORS + expected.answer.error),
                ("invitation to authenticate", reply.headers.get("www-authenticate"), None),
                ("log lines", lines, [*expected.lines, ("err", "Method failed")]),
                ("audit events", events, expected.audit)):
            if got != wanted:
                self.problems.append(f"{caller.name} × {operation.id}: {what} is {got!r}, not {wanted!r}")
        if expected.answer == SERVED and UNKNOWN_FIELD not in json.dumps(error):
            self.problems.append(f"{caller.name} × {operation.id}: the binder did not see the call: {error!r}")

    def assert_as_expected(self) -> None:
        """Fails with all that was found."""
        assert not self.problems, "\n".join(self.problems)

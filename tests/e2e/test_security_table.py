"""Every operation of the interface definition × every kind of caller of a host: answer, header, log, audit."""

from __future__ import annotations

from collections.abc import Callable

import pytest
from harness.audit import MARKER, AuditEvent, AuditLog
from harness.credentials import PASSWORD, USER, basic, issue_ticket, ticket_header
from harness.daemon import Daemon
from harness.syslog import SystemLog
from harness.wire import Rpc
from security_table import (UNAUTHENTICATED, UNAUTHORIZED, Answer, Attempt, Caller, Expected, Operation, Table, operations,
                            served, services_of_the_daemon)

PASSWORD_EVENT, TICKET_EVENT = "service.password.use", "service.lcticket.use"
PAM_FAILURES = {USER: "Authentication failure (7)", "ghost": "User not known to the underlying authentication module (10)"}
PASSWORD_REASON, TICKET_REASON = "Invalid username or password", "Invalid lifecycle ticket"


class HostCallers:
    """The columns of a host; `audits_calls` as the marker file was at the daemon's start."""

    def __init__(self, audits_calls: bool, bound: set[str]) -> None:
        self._audits_calls = audits_calls
        self._bound = bound

    def all(self) -> list[Caller]:
        """Every kind of caller."""
        return [
            Caller("anonymous", self._anonymous),
            Caller("bad-password", lambda: self._password("wrong", False)),
            Caller("unknown-user", lambda: self._password("wrong", False, "ghost")),
            Caller("good-password", lambda: self._password(PASSWORD, True)),
            Caller("ticket", lambda: self._ticket(issue_ticket(), True)),
            Caller("used-ticket", self._used_ticket),
            Caller("foreign-ticket", lambda: self._ticket(issue_ticket("Other"), False, "Other")),
            Caller("expired-ticket", lambda: self._ticket(issue_ticket(seconds=-1), False)),
        ]

    def _expected(self, operation: Operation, answer: Answer, lines: list[tuple[str, str]], subject: str,
                  audit: list[AuditEvent]) -> Expected:
        whole = AuditEvent("api.call", subject, f"keeld:{operation.id}", False)
        return Expected(answer, lines, [*audit, whole] if self._audits_calls else audit)

    def _anonymous(self) -> Attempt:
        def expected(operation: Operation, _: str) -> Expected:
            if not operation.needs_user:
                return self._expected(operation, served(operation, self._bound), [], "", [])
            return self._expected(operation, UNAUTHORIZED, [("warning", f"Call without a user refused: {operation.id}")],
                                  "", [AuditEvent("service.access.denied", "", operation.id, False)])

        return Attempt({}, expected)

    def _password(self, password: str, good: bool, user: str = USER) -> Attempt:
        def expected(operation: Operation, op_id: str) -> Expected:
            items = {"ip": "127.0.0.1", "opID": op_id, **({} if good else {"reason": PASSWORD_REASON})}
            audit = [AuditEvent(PASSWORD_EVENT, user, operation.id, good, items)]
            if good:
                return self._expected(operation, served(operation, self._bound), [], user, audit)
            lines = [("err", f"Auth_AuthenticateUserPAM:424: PAM failure - {PAM_FAILURES[user]}"),
                     ("err", f"UserPass authentication failed for user: {user}")]
            return self._expected(operation, UNAUTHENTICATED, lines, user, audit)

        return Attempt(basic(user, password), expected)

    def _ticket(self, ticket: str, good: bool, foreign: str = "") -> Attempt:
        def expected(operation: Operation, op_id: str) -> Expected:
            items = {"ip": "127.0.0.1", "opID": op_id, "uniqueID": f"***{ticket[-5:]}",
                     **({} if good else {"reason": TICKET_REASON})}
            audit = [AuditEvent(TICKET_EVENT, "@unknown", operation.id, good, items)]
            if good:
                return self._expected(operation, served(operation, self._bound), [], "@unknown", audit)
            line = f"Ticket authentication failed for ticket: {ticket}"
            if foreign:
                line = f"Ticket's service name invalid, ticket: {ticket}, service: {foreign}"
            return self._expected(operation, UNAUTHENTICATED, [("err", line)], "@unknown", audit)

        return Attempt(ticket_header(ticket), expected)

    def _used_ticket(self) -> Attempt:
        ticket = issue_ticket()
        Rpc(headers=ticket_header(ticket))("com.orbane.lumo.std.introspection.provider.get")
        attempt = self._ticket(ticket, False)
        attempt.events_before = 2 if self._audits_calls else 1
        return attempt


KINDS = [caller.name for caller in HostCallers(False, set()).all()]


@pytest.fixture(params=[False, True], ids=["calls-not-audited", "calls-audited"])
def audits_calls(request: pytest.FixtureRequest) -> bool:
    """Whether the marker file was there at the daemon's start."""
    if request.param:
        MARKER.touch()
    else:
        MARKER.unlink(missing_ok=True)
    return bool(request.param)


@pytest.mark.parametrize("kind", KINDS)
def test_every_operation(kind: str, audits_calls: bool, daemon: Daemon, syslog: SystemLog) -> None:
    rows = operations()
    audit = AuditLog()
    bound = services_of_the_daemon(Rpc(headers={}))
    audit.wait(1 if audits_calls else 0)
    [caller] = [each for each in HostCallers(audits_calls, bound).all() if each.name == kind]
    assert {operation.service for operation in rows} & bound
    table = Table(syslog, audit)
    table.check(caller, rows)
    table.assert_as_expected()


def test_the_rows_are_all_that_the_daemon_offers(daemon: Daemon) -> None:
    rpc = Rpc(headers={})
    introspection = "com.orbane.lumo.std.introspection"
    offered = {f"{service}.{name}" for service in services_of_the_daemon(rpc)
               for name in rpc(f"{introspection}.operation.list", {"service": service})}
    assert offered <= {operation.id for operation in operations()}

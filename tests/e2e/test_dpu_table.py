"""Every operation × every kind of caller on a data processing unit."""

from __future__ import annotations

from collections.abc import Iterator

import pytest
from harness.audit import AuditLog
from harness.daemon import Daemon
from harness.syslog import SystemLog
from harness.tokens import MARKER, Issuer, bearer, remove_dpu
from harness.wire import Rpc
from security_table import (UNAUTHENTICATED, UNAUTHORIZED, Attempt, Caller, Expected, Operation, Table, operations, served,
                            services_of_the_daemon)

OPERATIONS = operations()
PRIVILEGES = sorted({privilege for operation in OPERATIONS for privilege in operation.privileges})


@pytest.fixture
def lab() -> Iterator[Issuer]:
    """A data processing unit with an issuer that it trusts."""
    MARKER.touch()
    yield Issuer("lab").install()
    remove_dpu()


@pytest.fixture
def dpu(lab: Issuer, stopped_daemon: Daemon) -> Daemon:
    """The daemon on it."""
    return stopped_daemon.start()


@pytest.fixture
def table(syslog: SystemLog) -> Iterator[Table]:
    """The table to fill. Nothing is ever audited."""
    checked = Table(syslog, AuditLog())
    yield checked
    checked.assert_as_expected()


def denied(operation: Operation, why: str) -> tuple[str, str]:
    """The log line of a refusal."""
    return ("warning", f"Access to {operation.id} denied: {why}")


def test_every_operation_that_needs_a_user_asks_for_a_privilege() -> None:
    assert len(OPERATIONS) > 10
    assert {bool(operation.privileges) for operation in OPERATIONS if operation.needs_user} == {True}


@pytest.mark.parametrize("headers", [{}, Rpc().headers], ids=["nobody", "password"])
def test_without_a_token(dpu: Daemon, table: Table, headers: dict[str, str]) -> None:
    bound = services_of_the_daemon(Rpc(headers={}))

    def expected(operation: Operation, _: str) -> Expected:
        if not operation.needs_user:
            return Expected(served(operation, bound))
        return Expected(UNAUTHORIZED, [denied(operation, "the caller is not known")])

    table.check(Caller("nobody", lambda: Attempt(headers, expected)), OPERATIONS)


def test_with_a_forged_token(dpu: Daemon, table: Table) -> None:
    forged = bearer(Issuer("lab").token(entitlements=PRIVILEGES))
    line = ("err", "Token authentication failed: its signature is wrong")
    table.check(Caller("forger", lambda: Attempt(forged, lambda *_: Expected(UNAUTHENTICATED, [line]))), OPERATIONS)


def test_with_exactly_the_privileges(dpu: Daemon, table: Table, lab: Issuer) -> None:
    bound = services_of_the_daemon(Rpc(headers={}))
    for operation in OPERATIONS:
        headers = bearer(lab.token(entitlements=list(operation.privileges)))
        table.check(Caller("entitled", lambda: Attempt(headers, lambda row, _: Expected(served(row, bound)))), [operation])


def test_with_all_privileges_but_one(dpu: Daemon, table: Table, lab: Issuer) -> None:
    for operation in OPERATIONS:
        for missing in operation.privileges:
            headers = bearer(lab.token(entitlements=[name for name in PRIVILEGES if name != missing]))
            lines = [("warning", f"The token lacks the entitlement {missing}"),
                     denied(operation, "the caller is not entitled to it")]
            table.check(Caller("other", lambda: Attempt(headers, lambda *_: Expected(UNAUTHORIZED, lines))), [operation])

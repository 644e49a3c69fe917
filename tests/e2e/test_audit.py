"""What the real daemon audits: logons, denied accesses, and, where the marker file was there at start, calls as a whole."""

from __future__ import annotations

import os
import pathlib
import signal
from collections.abc import Iterator

import pytest
from harness.audit import LOG, MARKER, AuditEvent, AuditLog
from harness.credentials import PASSWORD, USER, basic, issue_ticket, ticket_header
from harness.daemon import Daemon
from harness.syslog import SystemLog
from harness.wire import HOST, SOFTWARE, TASKS, Reply, Rpc

LIST = f"{TASKS}.list"
OPEN_TO_ALL = "com.orbane.lumo.std.introspection.service.list"


@pytest.fixture(autouse=True)
def no_marker() -> Iterator[None]:
    """A host on which calls as a whole are not audited, unless a test says so."""
    MARKER.unlink(missing_ok=True)
    yield
    MARKER.unlink(missing_ok=True)


@pytest.fixture
def audit() -> AuditLog:
    """The audit events from here on."""
    return AuditLog()


@pytest.fixture
def auditing_daemon(stopped_daemon: Daemon) -> Daemon:
    """A daemon that found the marker file."""
    MARKER.touch()
    return stopped_daemon.start()


def call(headers: dict[str, str], method: str = LIST, op_id: str = "") -> Reply:
    """One call with exactly these credentials."""
    return Rpc(headers={**headers, **({"lumo-ctx-opid": op_id} if op_id else {})}).request(method, {})


def password_event(result: bool, subject: str = USER, **items: str) -> AuditEvent:
    """The authentication of a call of the task list by password."""
    return AuditEvent("service.password.use", subject, LIST, result, {"ip": HOST, **items})


def whole(subject: str, result: bool, method: str = LIST) -> AuditEvent:
    """The call as a whole."""
    return AuditEvent("api.call", subject, f"keeld:{method}", result)


DENIED = AuditEvent("service.access.denied", "", LIST, False)
FAILED = {"reason": "Invalid username or password"}


def test_without_the_marker_logons_and_denials_are_audited(daemon: Daemon, audit: AuditLog) -> None:
    call(basic(USER, "wrong"), op_id="nightly-42")
    call(basic(USER, PASSWORD))
    call({})
    call({}, OPEN_TO_ALL)
    call(basic(USER, "wrong"))
    assert audit.wait(4) == [password_event(False, opID="nightly-42", **FAILED), password_event(True), DENIED,
                             password_event(False, **FAILED)]


def test_with_the_marker_each_call_is_audited_too(auditing_daemon: Daemon, audit: AuditLog) -> None:
    call(basic(USER, "wrong"))
    call(basic(USER, PASSWORD))
    call({})
    call({}, OPEN_TO_ALL)
    call(basic(USER, PASSWORD), f"{TASKS}.get")
    assert audit.wait(9) == [
        password_event(False, **FAILED), whole(USER, False),
        password_event(True), whole(USER, True),
        DENIED, whole("", False),
        whole("", True, OPEN_TO_ALL),
        AuditEvent("service.password.use", USER, f"{TASKS}.get", True, {"ip": HOST}), whole(USER, False, f"{TASKS}.get"),
    ]


def test_a_task_method_that_starts_a_tool_is_audited_when_the_call_ends(auditing_daemon: Daemon, audit: AuditLog) -> None:
    reply = Rpc(headers=basic(USER, PASSWORD)).request(
        f"{SOFTWARE}.scan", {"software_spec": {"base_image": {"version": "1"}}, "depots": []})
    succeeded = "result" in reply.json()
    assert audit.wait(2)[1:] == [whole(USER, succeeded, f"{SOFTWARE}.scan")]


def test_tickets_are_shown_by_their_end(auditing_daemon: Daemon, audit: AuditLog) -> None:
    ticket = issue_ticket()
    call(ticket_header(ticket))
    call(ticket_header(ticket))
    call(basic("five5", "five5"))
    call(basic("", ""))
    items = {"ip": HOST, "uniqueID": f"***{ticket[-5:]}"}
    reason = {"reason": "Invalid lifecycle ticket"}

    def ticket_event(result: bool, shown: dict[str, str]) -> AuditEvent:
        return AuditEvent("service.lcticket.use", "@unknown", LIST, result, shown)

    assert audit.wait(8) == [
        ticket_event(True, items), whole("@unknown", True),
        ticket_event(False, {**items, **reason}), whole("@unknown", False),
        ticket_event(False, {"ip": HOST, **reason}), whole("@unknown", False),
        ticket_event(False, {"ip": HOST, **reason}), whole("@unknown", False),
    ]
    assert ticket not in LOG.read_text()


@pytest.mark.parametrize("at_start", [True, False])
def test_the_marker_counts_at_the_start_alone(stopped_daemon: Daemon, audit: AuditLog, at_start: bool) -> None:
    if at_start:
        MARKER.touch()
    stopped_daemon.start()
    for there in (True, False, True, False):
        if there:
            MARKER.touch()
        else:
            MARKER.unlink()
        call({}, OPEN_TO_ALL)
    call({})
    calls = [whole("", True, OPEN_TO_ALL)] * 4
    assert audit.wait(6 if at_start else 1) == ([*calls, DENIED, whole("", False)] if at_start else [DENIED])


def test_a_restart_looks_for_the_marker_again(auditing_daemon: Daemon, audit: AuditLog) -> None:
    call({}, OPEN_TO_ALL)
    audit.wait(1)
    MARKER.unlink()
    auditing_daemon.restart()
    call({}, OPEN_TO_ALL)
    call({})
    assert audit.wait(2) == [whole("", True, OPEN_TO_ALL), DENIED]


@pytest.mark.parametrize("user, shown", [
    ('x"}, {"subject', 'x"}, {"subject'),  # the first colon would end the name
    ("\u202egnp", "\u202egnp"),
    ("Jörg 😀", "Jörg 😀"),
    (b"\xff\xc3", "#377#303"),
    ("u" * 2000, "u" * 512 + " [1488 bytes cut]"),
], ids=["json", "bidi", "utf8", "no-utf8", "long"])
def test_a_name_stays_in_its_place(daemon: Daemon, audit: AuditLog, user: str | bytes, shown: str) -> None:
    call(basic(user, "wrong"))
    call({})
    assert audit.wait(2) == [password_event(False, shown, **FAILED), DENIED]


@pytest.mark.parametrize("user", ["a\n<85>Jan  1 00.00.00 keeld[1] {}", "\x1b[2J", b"root\0x"])
def test_a_name_with_control_characters_is_none(daemon: Daemon, audit: AuditLog, user: str | bytes) -> None:
    call(basic(user, "wrong"))
    assert audit.wait(1) == [DENIED]


def test_an_operation_of_any_length_or_form_is_audited_on_one_line(auditing_daemon: Daemon, audit: AuditLog) -> None:
    call({}, "a." + "b" * 100_000)
    call({}, 'a".\n{}')
    events = audit.wait(4)
    assert [event.object for event in events] == [
        "a." + "b" * 510 + " [99490 bytes cut]", "keeld:a." + "b" * 504 + " [99496 bytes cut]",
        'a".\n{}', 'keeld:a".\n{}']


def test_no_password_is_audited(auditing_daemon: Daemon, audit: AuditLog) -> None:
    call(basic(USER, PASSWORD))
    call(basic(USER, "mistyped-secret"))
    audit.wait(4)
    text = LOG.read_text()
    assert PASSWORD not in text and "mistyped-secret" not in text


def test_requests_that_are_no_calls_are_not_audited(auditing_daemon: Daemon, audit: AuditLog) -> None:
    rpc = Rpc(headers=basic(USER, PASSWORD))
    assert "error" in rpc.post("{").json()
    assert "error" in rpc.post('{"jsonrpc":"2.0","id":1,"method":"no_dot"}').json()
    call({}, OPEN_TO_ALL)
    assert audit.wait(1) == [whole("", True, OPEN_TO_ALL)]


@pytest.fixture
def standing_syslog() -> Iterator[int]:
    """A system log that stands still; the value is its process id."""
    [pid] = [int(path.parent.name) for path in pathlib.Path("/proc").glob("[0-9]*/comm")
             if path.read_text().strip() == "rsyslogd"]
    os.kill(pid, signal.SIGSTOP)
    yield pid
    os.kill(pid, signal.SIGCONT)


def test_a_flood_of_lines_loses_no_event(daemon: Daemon, audit: AuditLog, syslog: SystemLog, standing_syslog: int) -> None:
    calls = 2500
    for number in range(calls):
        call(basic(f"t{number}", f"t{number}"), op_id=str(number))
    os.kill(standing_syslog, signal.SIGCONT)
    events = audit.wait(calls)
    assert [event.items["opID"] for event in events] == [str(number) for number in range(calls)]
    assert "audit events were dropped" not in LOG.read_text()
    syslog.wait("log lines were dropped")  # there was a flood

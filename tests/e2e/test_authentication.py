"""Who may call: anonymous calls, passwords through the real PAM, single-use tickets, and what log and audit tell of them."""

from __future__ import annotations

import base64
import concurrent.futures
import pathlib
import shutil
from collections.abc import Iterator

import pytest
from harness.credentials import PASSWORD, TICKETS, USER, basic, issue_ticket, ticket_header
from harness.daemon import Daemon
from harness.syslog import SystemLog
from harness.wire import SOFTWARE, TASKS, ApiError, Rpc

INTROSPECTION = "com.orbane.lumo.std.introspection"
PREFERENCES = pathlib.Path("/etc/orbane/preferences.conf")
UNAUTHENTICATED, UNAUTHORIZED, OPERATION_NOT_FOUND = -32006, -32007, -32601


def caller(user: str | bytes, password: str | bytes) -> Rpc:
    """Calls with these credentials."""
    return Rpc(headers=basic(user, password))


def holder(ticket: str) -> Rpc:
    """Calls with this ticket."""
    return Rpc(headers=ticket_header(ticket))


def refusal(rpc: Rpc, method: str = f"{TASKS}.list") -> dict[str, object]:
    """The bare error that a call ends with."""
    reply = rpc.request(method, {})
    assert reply.status == 200 and "lumo-error" in reply.headers
    assert "www-authenticate" not in reply.headers
    error = reply.json()["error"]
    assert set(error["data"]) == {"messages", "error_type"} and error["data"]["messages"] == [], error
    return error


@pytest.fixture
def anonymous(daemon: Daemon) -> Rpc:
    """A caller without credentials."""
    return Rpc(headers={})


@pytest.mark.parametrize("method", ["service.list", "provider.get"])
def test_anybody_may_ask_what_the_daemon_offers(anonymous: Rpc, method: str) -> None:
    assert anonymous(f"{INTROSPECTION}.{method}")
    assert anonymous(f"{INTROSPECTION}.operation.list", {"service": TASKS})


@pytest.mark.parametrize("method", [f"{TASKS}.list", f"{SOFTWARE}.scan", f"{SOFTWARE}.nonsense", "com.orbane.none.get",
                                    "com.orbane.ryn.hosts.software.ryn.get", f"{INTROSPECTION}.nonsense.get"])
def test_nobody_else_is_served_without_a_user(anonymous: Rpc, method: str, syslog: SystemLog) -> None:
    error = refusal(anonymous, method)
    assert error["code"] == UNAUTHORIZED
    assert error["data"]["error_type"] == "UNAUTHORIZED"
    assert [entry.severity for entry in syslog.wait(f"Call without a user refused: {method}")] == ["warning"]


def test_a_refused_call_is_not_looked_at_further(anonymous: Rpc, syslog: SystemLog) -> None:
    method = "com.orbane.ryn.hosts.software.ryn.get"
    with pytest.raises(ApiError) as refused:
        anonymous(method, {"host": "elsewhere"})
    assert refused.value.code == UNAUTHORIZED
    syslog.wait("Method failed")
    assert syslog.find("host parameter") == []
    with pytest.raises(ApiError) as served:
        caller(USER, PASSWORD)(method, {"host": "elsewhere"})
    assert served.value.kind == "NOT_FOUND"


def test_a_user_signs_in_with_the_password(daemon: Daemon, syslog: SystemLog) -> None:
    rpc = caller(USER, PASSWORD)
    assert rpc(f"{TASKS}.list") == {}
    assert rpc(f"{TASKS}.list") == {}, "as often as it likes"
    assert rpc(f"{INTROSPECTION}.service.list")
    with pytest.raises(ApiError) as unknown:
        rpc("com.orbane.none.get")
    assert unknown.value.code == OPERATION_NOT_FOUND
    assert [entry.severity for entry in syslog.wait("^PAM up and running\\.$")] == ["notice"]


@pytest.mark.parametrize("user, password", [
    (USER, "wrong"), (USER, ""), (USER, PASSWORD + " "), ("ghost", PASSWORD), ("", PASSWORD),
    ("locked", "secret"), ("expired", "secret"), ("renew", PASSWORD), ("daemon", ""), (USER, "\xff" * 1000),
])
def test_wrong_credentials_end_the_call(daemon: Daemon, syslog: SystemLog, user: str, password: str) -> None:
    rpc = caller(user, password)
    error = refusal(rpc)
    assert error["code"] == UNAUTHENTICATED
    assert error["data"]["error_type"] == "UNAUTHENTICATED"
    assert [entry.severity for entry in syslog.wait(f"^UserPass authentication failed for user: {user}$")] == ["err"]
    assert refusal(rpc, f"{INTROSPECTION}.service.list")["code"] == UNAUTHENTICATED
    assert caller(USER, PASSWORD)(f"{TASKS}.list") == {}


def test_texts_outside_utf8_are_no_credentials(daemon: Daemon, syslog: SystemLog) -> None:
    assert refusal(caller(b"oper\xff", PASSWORD))["code"] == UNAUTHENTICATED
    syslog.wait("^User not in UTF-8$")
    assert refusal(caller(USER, b"\xff"))["code"] == UNAUTHENTICATED
    syslog.wait("^Password not in UTF-8$")


@pytest.mark.parametrize("user, password", [(b"operator\0", PASSWORD), (b"operator\0x", PASSWORD),
                                            (USER, b"correct horse\0"), (USER, b"correct horse\0x")])
def test_no_credential_ends_at_a_nul(daemon: Daemon, user: bytes | str, password: bytes | str) -> None:
    assert refusal(caller(user, password))["code"] == UNAUTHORIZED


def test_secrets_stay_out_of_the_log(daemon: Daemon, syslog: SystemLog) -> None:
    caller(USER, PASSWORD)(f"{TASKS}.list")
    assert refusal(caller(USER, "mistyped-secret"))["code"] == UNAUTHENTICATED
    syslog.wait("Method failed")
    text = pathlib.Path("/var/log/keeld.log").read_text(errors="replace")
    for secret in (PASSWORD, "mistyped-secret", base64.b64encode(b"operator:correct horse").decode()):
        assert secret not in text


def test_a_ticket_signs_in_once(daemon: Daemon, syslog: SystemLog) -> None:
    ticket = issue_ticket()
    rpc = holder(ticket)
    assert rpc(f"{TASKS}.list") == {}
    assert list(TICKETS.iterdir()) == []
    assert refusal(rpc)["code"] == UNAUTHENTICATED
    syslog.wait(f"^Ticket authentication failed for ticket: {ticket}$")


def test_a_ticket_used_by_many_at_once_serves_one(daemon: Daemon) -> None:
    ticket = issue_ticket()

    def served(_: int) -> bool:
        return "result" in holder(ticket).request(f"{TASKS}.list").json()

    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        assert sum(pool.map(served, range(16))) == 1


def test_a_ticket_of_another_service_or_time_is_refused(daemon: Daemon, syslog: SystemLog) -> None:
    other = issue_ticket("Lifecycle2")
    assert refusal(holder(other))["code"] == UNAUTHENTICATED
    syslog.wait(f"^Ticket's service name invalid, ticket: {other}, service: Lifecycle2$")
    late = issue_ticket(seconds=-1)
    assert refusal(holder(late))["code"] == UNAUTHENTICATED
    syslog.wait(f"^Ticket authentication failed for ticket: {late}$")
    assert len(list(TICKETS.iterdir())) == 2


@pytest.mark.parametrize("text", [USER, "", "../../etc/passwd", "x" * 1000, "/", "*"])
def test_two_equal_texts_are_a_ticket(daemon: Daemon, syslog: SystemLog, text: str) -> None:
    assert refusal(holder(text))["code"] == UNAUTHENTICATED
    assert len(syslog.wait("^Ticket authentication failed for ticket: ")) == 1
    assert syslog.find("UserPass authentication") == []


@pytest.fixture
def no_system_pam() -> Iterator[pathlib.Path]:
    """A host whose PAM library is gone, given back at the end; the value is where it went."""
    [library] = pathlib.Path("/usr/lib").glob("*/libpam.so.0")
    away = pathlib.Path("/run/libpam.away")
    shutil.copy(library, away)
    target = library.readlink()
    library.unlink()
    cache = pathlib.Path("/etc/ld.so.cache")
    kept = cache.read_bytes()
    cache.unlink()
    yield away
    library.symlink_to(target)
    cache.write_bytes(kept)


def test_without_pam_only_passwords_fail(no_system_pam: pathlib.Path, daemon: Daemon, syslog: SystemLog) -> None:
    for count in (1, 2):
        assert refusal(caller(USER, PASSWORD))["code"] == UNAUTHENTICATED
        syslog.wait(r"^Neither system nor bundled \(/usr/lib/orbane/lib/libpam\.so\.0/libpam\.so\.0\) "
                    "PAM libraries usable: .*No such file", count)
    ticket = issue_ticket()
    assert holder(ticket)(f"{TASKS}.list") == {}


def test_pam_may_come_with_the_program(no_system_pam: pathlib.Path, stopped_daemon: Daemon) -> None:
    bundled = pathlib.Path("/opt/keeld/lib/libpam.so.0/libpam.so.0")
    bundled.parent.mkdir(parents=True, exist_ok=True)
    shutil.copy(no_system_pam, bundled)
    PREFERENCES.write_text("libdir = /opt/keeld\n")
    try:
        stopped_daemon.start()
        # Its modules need the library as well, and find it loaded.
        assert caller(USER, PASSWORD)(f"{TASKS}.list") == {}
        assert refusal(caller(USER, "wrong"))["code"] == UNAUTHENTICATED
    finally:
        PREFERENCES.unlink()
        shutil.rmtree("/opt/keeld")

"""The daemon on a data processing unit: what it needs at its start, and which tokens it takes."""

from __future__ import annotations

import pathlib
import re
import resource
import signal
import subprocess
import time
from collections.abc import Callable, Iterator

import pytest
from harness.audit import MARKER as AUDIT_MARKER
from harness.audit import AuditLog
from harness.credentials import TICKETS, issue_ticket, ticket_header
from harness.daemon import Daemon
from harness.syslog import SystemLog
from harness.tokens import KEYS, MARKER, Issuer, bearer, remove_dpu
from harness.waiting import PATIENCE
from harness.wire import TASKS, ApiError, Reply, Rpc

METADATA = pathlib.Path("/usr/lib/orbane/lifecycle/metadata")
AUTHORIZATION = METADATA / "keeld_lumo_authorization.json"
LIST = f"{TASKS}.list"
HOST_IMAGE = "com.orbane.ryn.hosts.software.ryn.get"
PROVIDER = "com.orbane.lumo.std.introspection.provider.get"
LOADING = ["Loading authz metadata file: /usr/lib/orbane/lifecycle/metadata/keeld_lumo_authentication.json",
           "Loading authz metadata file: /usr/lib/orbane/lifecycle/metadata/keeld_lumo_authorization.json"]


@pytest.fixture
def marker() -> Iterator[None]:
    """A data processing unit for one test."""
    MARKER.touch()
    yield
    remove_dpu()


@pytest.fixture
def dpu(marker: None, stopped_daemon: Daemon) -> Daemon:
    """The daemon, running on a data processing unit."""
    return stopped_daemon.start()


@pytest.fixture
def lab(marker: None) -> Issuer:
    """An issuer that the host trusts."""
    return Issuer("lab").install()


@pytest.fixture
def without_authorization() -> Iterator[bytes]:
    """The host without its authorisation file."""
    content = AUTHORIZATION.read_bytes()
    AUTHORIZATION.unlink()
    yield content
    AUTHORIZATION.unlink(missing_ok=True)
    AUTHORIZATION.write_bytes(content)


def ask(method: str, headers: dict[str, str]) -> Reply:
    """One call with these headers alone."""
    return Rpc(headers=headers).request(method)


def error_of(method: str, headers: dict[str, str]) -> str:
    """The kind of error that a call ends with; "" when it is answered."""
    reply = ask(method, headers)
    assert reply.status == 200
    return (reply.json().get("error") or {"data": {"error_type": ""}})["data"]["error_type"]


# --- its start ---


def test_metadata_of_authorisation_is_loaded_last(dpu: Daemon, syslog: SystemLog) -> None:
    syslog.wait("^HTTP endpoint listening")
    entries = syslog.find("^Loading .* metadata file: ")
    assert [entry.text for entry in entries[-2:]] == LOADING
    assert {entry.severity for entry in entries} == {"notice"}
    assert len(entries) == 7
    assert [entry for entry in syslog.entries() if entry.severity in ("err", "warning")] == []


@pytest.mark.parametrize("content", [None, b"", b"{", b"{}", b'{"operations":{"a.get":[]}}', b'{"operations":[]}'],
                         ids=["missing", "empty", "cut", "nothing", "free", "other"])
def test_without_the_authorisation_file_it_does_not_start(marker: None, without_authorization: bytes,
                                                          stopped_daemon: Daemon, syslog: SystemLog,
                                                          content: bytes | None) -> None:
    if content is not None:
        AUTHORIZATION.write_bytes(content)
    stopped_daemon.launch(preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CORE, (0, 0)))
    assert stopped_daemon.process is not None
    assert stopped_daemon.process.wait(PATIENCE) == -signal.SIGABRT
    assert re.fullmatch(r"VERIFY \S+security_chain_dpu\.cpp:\d+\n", stopped_daemon.output())
    [entry] = syslog.wait("^Error loading authz metadata file: ")
    assert (entry.severity, entry.text) == ("err", f"Error loading authz metadata file: {AUTHORIZATION}")
    assert syslog.find("^Listening on: ") == [], "the port was opened"


def test_a_host_does_not_read_the_authorisation_file(without_authorization: bytes, daemon: Daemon, rpc: Rpc,
                                                     syslog: SystemLog) -> None:
    assert rpc.tasks() == {}
    syslog.wait("^HTTP endpoint listening")
    assert syslog.find("authz metadata") == []


@pytest.mark.parametrize(("make", "dpu_flavour"), [
    (MARKER.mkdir, True), (lambda: MARKER.symlink_to("/etc/passwd"), True),
    (lambda: MARKER.symlink_to("/nothing/there"), False), (lambda: MARKER.symlink_to(MARKER), False)],
    ids=["folder", "link", "link to nothing", "link to itself"])
def test_what_counts_as_the_marker(stopped_daemon: Daemon, syslog: SystemLog, make: Callable[[], None],
                                   dpu_flavour: bool) -> None:
    make()
    try:
        stopped_daemon.start()
        syslog.wait("^HTTP endpoint listening")
        assert bool(syslog.find("authz metadata")) == dpu_flavour
    finally:
        remove_dpu()


def test_the_marker_counts_at_the_start(daemon: Daemon, rpc: Rpc) -> None:
    try:
        MARKER.touch()
        assert rpc.tasks() == {}
    finally:
        remove_dpu()


# --- tokens ---


def test_a_good_token_serves(dpu: Daemon, lab: Issuer) -> None:
    assert ask(LIST, bearer(lab.token(entitlements=["Task.View"]))).json()["result"] == {}


def test_calls_without_a_token_are_unauthorized(dpu: Daemon, lab: Issuer, syslog: SystemLog) -> None:
    good = lab.token(entitlements=["Task.View"])
    ticket = issue_ticket()
    for headers in ({}, Rpc().headers, ticket_header(ticket), bearer(""), {"Authorization": f"Bearer {good} {good}"},
                    {"Authorization": good}, {"Authorization": f"JWT {good}"}):
        assert error_of(LIST, headers) == "UNAUTHORIZED", headers
    assert len(list(TICKETS.iterdir())) == 1, "tickets are none of its business"
    for path in TICKETS.iterdir():
        path.unlink()
    assert {entry.severity for entry in syslog.wait(f"^Access to {LIST} denied: the caller is not known$", 7)} == {"warning"}


def forgeries(lab: Issuer) -> dict[str, tuple[str, str]]:
    """Bad tokens by name, and why they are refused."""
    view = ["Task.View"]
    good = lab.token(entitlements=view)
    now = int(time.time())
    other = Issuer("lab")  # of the same name, with a key of its own
    return {
        "no signature": (lab.unsigned({"alg": "none"}, entitlements=view) + ".", "its algorithm is not allowed"),
        "cut signature": (good[:-6], "its signature is wrong"),
        "public key as secret": (lab.hmac_token(), "its algorithm is not allowed"),
        "another key": (other.token(entitlements=view), "its signature is wrong"),
        "other content": (lab.unsigned(entitlements=view, sub="root") + good[good.rindex("."):], "its signature is wrong"),
        "other algorithm": (lab.token({"alg": "RS256"}, entitlements=view), "its algorithm is not that of its key"),
        "unknown key": (lab.token({"kid": "nobody"}, entitlements=view, iss="nobody"), "its key is not known"),
        "path as key": (lab.token({"kid": "../token-keys/lab"}, entitlements=view), "it names no key"),
        "another issuer": (lab.token(entitlements=view, iss="works"), "its issuer is not its key's"),
        "another audience": (lab.token(entitlements=view, aud="other"), "it is meant for another audience"),
        "no audience": (lab.token(entitlements=view, aud=None), "it is meant for another audience"),
        "no expiry": (lab.token(entitlements=view, exp=None), "it has no time of expiry"),
        "expired": (lab.token(entitlements=view, exp=now - 120), "it has expired"),
        "not yet": (lab.token(entitlements=view, nbf=now + 600), "it is not valid yet"),
        "extension": (lab.token({"crit": ["exp"]}, entitlements=view), "it asks for extensions"),
        "garbage": ("x" * 2000, "it is not a signed token"),
        "two tokens": (f"{good}.{good}", "it is not a signed token"),
    }


def test_bad_tokens_are_unauthenticated_and_shown_nowhere(dpu: Daemon, lab: Issuer, syslog: SystemLog) -> None:
    tokens = forgeries(lab)
    for name, (token, _) in tokens.items():
        reply = ask(LIST, bearer(token))
        error = reply.json()["error"]
        assert (error["data"]["error_type"], error["code"]) == ("UNAUTHENTICATED", -32006), name
        assert error["data"]["messages"] == [], name
        assert "__originator__" not in error["data"]
        assert error_of(PROVIDER, bearer(token)) == "UNAUTHENTICATED", name
        parts = [part for part in token.split(".") if len(part) > 8]
        assert not any(part in reply.body.decode() for part in parts), name
    entries = syslog.wait("^Token authentication failed: ", 2 * len(tokens))
    assert {entry.severity for entry in entries} == {"err"}
    assert [entry.text for entry in entries[::2]] == [
        f"Token authentication failed: {reason}" for _, reason in tokens.values()]
    log = "\n".join(syslog.texts())
    assert not any(part in log for token, _ in tokens.values() for part in token.split(".") if len(part) > 8)


def test_tokens_need_the_entitlement(dpu: Daemon, lab: Issuer, syslog: SystemLog) -> None:
    for entitlements in ([], ["Software.View"], ["task.view"], None):
        assert error_of(LIST, bearer(lab.token(entitlements=entitlements))) == "UNAUTHORIZED"
    syslog.wait("^The token lacks the entitlement Task.View$", 4)
    syslog.wait(f"^Access to {LIST} denied: the caller is not entitled to it$", 4)
    assert error_of(LIST, bearer(lab.token(entitlements=["Other", "Task.View"]))) == ""


def test_unknown_operations_are_unauthorized(dpu: Daemon, lab: Issuer) -> None:
    for method in ("com.orbane.none.get", f"{TASKS}.none"):
        assert error_of(method, {}) == "UNAUTHORIZED"
        assert error_of(method, bearer(lab.token(entitlements=["Task.View"]))) == "UNAUTHORIZED"


def test_introspection_and_metadata_need_no_token(dpu: Daemon) -> None:
    assert ask(PROVIDER, {}).json()["result"]["id"] == "AsyncLocalProvider"
    error = ask("com.orbane.lumo.metadata.cli.command.list", {}).json()["error"]
    assert error["code"] == -32601, "let through, but there is no such service"
    assert error["data"]["__originator__"] == "pak[rynio-base-1.0.0]"


def test_the_host_field_is_looked_at_behind_the_tokens(dpu: Daemon, lab: Issuer) -> None:
    elsewhere = {"host": "elsewhere"}
    with pytest.raises(ApiError) as caught:
        Rpc(headers={})(HOST_IMAGE, elsewhere)
    assert caught.value.kind == "UNAUTHORIZED"
    with pytest.raises(ApiError) as caught:
        Rpc(headers=bearer(lab.token(entitlements=["Software.View"])))(HOST_IMAGE, elsewhere)
    assert caught.value.message_ids == ["com.orbane.ryn.host.invalid"]


def test_calls_are_not_audited(marker: None, stopped_daemon: Daemon, lab: Issuer) -> None:
    AUDIT_MARKER.touch()
    try:
        audit = AuditLog()
        stopped_daemon.start()
        assert error_of(LIST, bearer(lab.token(entitlements=["Task.View"]))) == ""
        assert error_of(LIST, bearer("bad")) == "UNAUTHENTICATED"
        assert error_of(LIST, {}) == "UNAUTHORIZED"
        assert stopped_daemon.stop() == 0
        assert audit.events() == []
    finally:
        AUDIT_MARKER.unlink()


# --- keys ---


def test_keys_are_added_replaced_and_removed_while_it_runs(dpu: Daemon, syslog: SystemLog) -> None:
    first, second = Issuer("lab"), Issuer("lab")
    old, new = (bearer(issuer.token(entitlements=["Task.View"])) for issuer in (first, second))

    def seen() -> tuple[str, str]:
        return error_of(LIST, old), error_of(LIST, new)

    refused = "UNAUTHENTICATED"
    assert seen() == (refused, refused)
    syslog.wait(f"^Token keys can't be used: {KEYS}: No such file or directory$")
    first.install()
    assert seen() == ("", refused)
    second.install()
    assert seen() == (refused, "")
    second.file.unlink()
    assert seen() == (refused, refused)
    first.install()
    assert seen() == ("", refused)


def test_planted_keys_are_refused(dpu: Daemon, lab: Issuer, syslog: SystemLog) -> None:
    good = bearer(lab.token(entitlements=["Task.View"]))
    assert error_of(LIST, good) == ""
    for spoil, mend, line in (
            (lambda: lab.file.chmod(0o666), lambda: lab.file.chmod(0o644), f"key {lab.file} can't be used: others may write it"),
            (lambda: KEYS.chmod(0o777), lambda: KEYS.chmod(0o755), f"keys can't be used: {KEYS}: others may write it"),
            (lambda: KEYS.parent.chmod(0o777), lambda: KEYS.parent.chmod(0o755),
             f"keys can't be used: {KEYS.parent}: others may write it")):
        spoil()
        try:
            assert error_of(LIST, good) == "UNAUTHENTICATED"
        finally:
            mend()
        syslog.wait(f"^Token {line}$")
        assert error_of(LIST, good) == ""
    planted = pathlib.Path("/tmp/planted.pem")
    planted.write_bytes(lab.public)
    lab.file.unlink()
    lab.file.symlink_to(planted)
    assert error_of(LIST, good) == "UNAUTHENTICATED"
    syslog.wait(f"^Token key {lab.file} can't be used: it is a symbolic link$")


@pytest.mark.parametrize("kind", ["ES256", "RS256"])
def test_keys_and_tokens_of_the_lab_tool_are_taken(dpu: Daemon, tmp_path: pathlib.Path, kind: str) -> None:
    private = tmp_path / "works.key"
    subprocess.run(["keel-token", "new-key", "works", "--type", kind, "--private", private], check=True)
    token = subprocess.run(["keel-token", "sign", "alice", "--key", private, "--entitlement", "Task.View"],
                           check=True, capture_output=True, text=True).stdout.strip()
    assert error_of(LIST, bearer(token)) == ""
    late = subprocess.run(["keel-token", "sign", "alice", "--key", private, "--entitlement", "Task.View",
                           "--lifetime", "-61"], check=True, capture_output=True, text=True).stdout.strip()
    assert error_of(LIST, bearer(late)) == "UNAUTHENTICATED"

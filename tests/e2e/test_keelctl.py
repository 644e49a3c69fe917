"""keelctl, as installed, against the real daemon: who is let in, and what is left behind."""

from __future__ import annotations

import json
import os
import pathlib
import re
import subprocess
from collections.abc import Iterator
from typing import Any

import pytest
from harness.daemon import Daemon
from harness.syslog import SystemLog
from harness.tool import FakeTool
from harness.waiting import wait_for
from harness.wire import TASKS, ApiError, Rpc, basic

TICKETS = pathlib.Path("/run/orbane/tickets")
NOBODY = 65534
HOLD = "take_gate(); DB.start_task(TASK); wait_for_go(); leave_gate(); DB.complete_task(TASK, '')"
APPLY = ["software", "apply", "--depot", "file:///srv/a", "--base", "1.0"]


@pytest.fixture(autouse=True)
def no_tickets() -> Iterator[None]:
    """No tickets at first, and none left behind."""
    for path in TICKETS.iterdir():
        path.unlink()
    yield
    assert list(TICKETS.iterdir()) == []


def start(*words: str, **options: Any) -> subprocess.Popen[str]:
    """Starts keelctl, without a terminal."""
    return subprocess.Popen(["/usr/bin/keelctl", *words], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True, start_new_session=True, **options)


def keelctl(*words: str, **options: Any) -> tuple[int, str, str]:
    """Runs keelctl and gives its exit code and what it printed."""
    process = start(*words, **options)
    out, err = process.communicate(timeout=60)
    return process.returncode, out, err


def ticket(*options: str) -> str:
    """A ticket, issued by keelctl."""
    code, out, err = keelctl("ticket", "issue", *options)
    assert (code, err) == (0, "")
    assert re.fullmatch(r"[\w-]{43}\n", out)
    return out.strip()


def refused(rpc: Rpc) -> str:
    """The kind of the error that a call ends with."""
    with pytest.raises(ApiError) as caught:
        rpc.tasks()
    return caught.value.kind


def test_root_is_let_in(daemon: Daemon) -> None:
    assert keelctl("tasks", "list", "--json") == (0, "{}\n", "")


def test_a_user_with_a_password(daemon: Daemon, tmp_path: pathlib.Path) -> None:
    (tmp_path / "secret").write_text("correct horse\n")
    words = ["tasks", "list", "--json", "--user", "operator"]
    assert keelctl(*words, "--password-file", str(tmp_path / "secret")) == (0, "{}\n", "")
    assert keelctl(*words, user=NOBODY, env={"KEELD_PASSWORD": "correct horse"}) == (0, "{}\n", "")


@pytest.mark.parametrize("user, password", [("operator", "wrong"), ("nosuchuser", "correct horse"), ("root", "x")])
def test_a_wrong_password(daemon: Daemon, syslog: SystemLog, user: str, password: str) -> None:
    code, out, err = keelctl("tasks", "list", "--user", user, env={"KEELD_PASSWORD": password})
    assert (code, out) == (4, "")
    assert err == "keelctl: keeld does not accept the credentials: is the password right, and may this user sign in?\n"
    syslog.wait(f"UserPass authentication failed for user: {user}$")


def test_nobody_is_refused(daemon: Daemon) -> None:
    code, out, err = keelctl("tasks", "list", user=NOBODY)
    assert (code, out) == (4, "")
    assert err == "keelctl: keeld does not allow this: say who you are with --user NAME, or run this as root\n"


def test_everybody_may_look_at_the_server(daemon: Daemon) -> None:
    code, out, err = keelctl("introspection", "provider", "get", user=NOBODY)
    assert (code, err) == (0, "")
    assert out.startswith("id:             AsyncLocalProvider\n")
    code, out, err = keelctl("introspection", "operation", "get", "--service", TASKS, "--operation", "get", "--json", user=NOBODY)
    assert json.loads(out)["parameters"] == [{"name": "task", "type": "string"}]


def test_nobody_gets_no_ticket(daemon: Daemon) -> None:
    assert keelctl("ticket", "issue", user=NOBODY) == (4, "", "keelctl: only root can issue tickets\n")


def test_a_ticket_is_good_for_one_call(daemon: Daemon) -> None:
    text = ticket()
    rpc = Rpc(headers={"Authorization": basic(text, text)})
    assert rpc.tasks() == {}
    assert list(TICKETS.iterdir()) == []
    assert refused(rpc) == "UNAUTHENTICATED"


def test_a_ticket_for_another_service_is_kept(daemon: Daemon) -> None:
    text = ticket("--service", "LifecycleOther")
    assert refused(Rpc(headers={"Authorization": basic(text, text)})) == "UNAUTHENTICATED"
    (path,) = TICKETS.iterdir()
    assert json.loads(path.read_text())["service"] == "LifecycleOther"
    path.unlink()


def test_an_expired_ticket_is_refused(daemon: Daemon) -> None:
    text = ticket("--lifetime", "0.001")
    (path,) = TICKETS.iterdir()
    assert refused(Rpc(headers={"Authorization": basic(text, text)})) == "UNAUTHENTICATED"
    path.unlink(missing_ok=True)


@pytest.mark.parametrize("harm", ["link", "foreign", "open"])
def test_a_planted_ticket_folder(daemon: Daemon, tmp_path: pathlib.Path, harm: str) -> None:
    aside = TICKETS.rename("/run/orbane/tickets.aside")
    elsewhere = tmp_path / "elsewhere"
    elsewhere.mkdir(mode=0o700)
    try:
        if harm == "link":
            TICKETS.symlink_to(elsewhere)
        else:
            TICKETS.mkdir(mode=0o700)
            os.chown(TICKETS, NOBODY if harm == "foreign" else 0, 0)
            TICKETS.chmod(0o700 if harm == "foreign" else 0o1777)
        code, out, err = keelctl("tasks", "list")
        assert (code, out) == (4, "")
        assert err.startswith("keelctl: /run/orbane/tickets ")
        assert list(TICKETS.iterdir()) == []
    finally:
        TICKETS.unlink() if harm == "link" else TICKETS.rmdir()
        aside.rename(TICKETS)


def test_wait_lets_the_other_operation_end_first(daemon: Daemon, rpc: Rpc, fake_tool: FakeTool, syslog: SystemLog) -> None:
    fake_tool.install(HOLD)
    first = rpc.start("apply", {"base_image": {"version": "1.0"}}, ["file:///srv/a"])
    fake_tool.wait_for_call()
    wait_for(lambda: rpc.task(first)["status"] == "RUNNING", "the first tool at work")
    rpc(f"{TASKS}.list", lumo_ctx_opid="mark")
    syslog.wait(r"^\[opId=mark\] Method succeeded$")
    before = len(syslog.find("Method succeeded$"))
    process = start(*APPLY, "--wait")
    syslog.wait("Task sync file exists and contains", 3)
    syslog.wait("Method succeeded$", before + 1)  # it looks at the tasks
    fake_tool.go()
    out, err = process.communicate(timeout=60)
    assert (process.returncode, out) == (0, "applied\n"), err
    assert err.count("waiting for its end") == 1
    assert len(syslog.find("Task sync file exists and contains")) == 3, "one attempt was refused, and no other was made"
    assert len(fake_tool.calls()) == 2

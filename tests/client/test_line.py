"""Standing in line: who is in front, and that no attempt is made while somebody is."""

import datetime
from typing import Any

import pytest

from conftest import FakeDaemon, Fault
from keeld_client import ApiError, Client
from keeld_client.cli import line
from keeld_client.cli import main as cli

ID = "6f1c0000-0000-4000-8000-000000000001"
SCAN = "com.orbane.ryn.keel_daemon.software.scan"
LIST = "com.orbane.halo.tasks.list"
GET = "com.orbane.halo.tasks.get"
NOW = 1_800_000_000.0
BUSY = Fault("not_allowed_in_current_state", "another operation runs", "com.orbane.ryn.task.contention", -32002)
RUNNING = {"status": "RUNNING", "last_update_time": "2026-01-01T00:00:00.000Z"}
DONE = {"status": "SUCCEEDED", "last_update_time": "2026-01-01T00:00:00.000Z"}


def at(seconds: float) -> str:
    """A time as the daemon writes it, so many seconds from NOW."""
    moment = datetime.datetime.fromtimestamp(NOW + seconds, datetime.timezone.utc)
    return moment.strftime("%Y-%m-%dT%H:%M:%S.") + f"{moment.microsecond // 1000:03d}Z"


def pending(seconds: float) -> dict[str, Any]:
    return {"status": "PENDING", "last_update_time": at(seconds)}


def in_line(daemon: FakeDaemon, attempts: list[Any], looks: list[Any]) -> tuple[Any, list[float]]:
    """Stands in line with a daemon that answers so, and gives the outcome and the pauses."""
    attempt, look = iter(attempts), iter(looks)
    daemon.answers = {SCAN: lambda _params: next(attempt), LIST: lambda _params: next(look)}
    pauses: list[float] = []
    with Client(port=daemon.port) as client:
        outcome = line.stand_in_line(client, lambda: client.call(SCAN), pauses.append, lambda: NOW)
    assert next(attempt, None) is None and next(look, None) is None, "everything was asked for"
    return outcome, pauses


def methods(daemon: FakeDaemon) -> list[str]:
    return [method.rpartition(".")[2] for method, _ in daemon.calls]


def test_nobody_in_front(daemon: FakeDaemon, capsys: pytest.CaptureFixture[str]) -> None:
    assert in_line(daemon, [ID], []) == (ID, [])
    assert capsys.readouterr().err == ""


def test_no_attempt_while_a_task_runs(daemon: FakeDaemon, capsys: pytest.CaptureFixture[str]) -> None:
    outcome, pauses = in_line(daemon, [BUSY, ID], [{"a": RUNNING, "b": DONE}] * 6 + [{"a": DONE}])
    assert outcome == ID
    assert pauses == [1.0, 1.5, 2.25, 3.375, 5.0, 5.0]
    assert methods(daemon) == ["scan"] + ["list"] * 7 + ["scan"]
    assert capsys.readouterr().err.count("waiting for its end") == 1


def test_another_one_may_be_faster(daemon: FakeDaemon, capsys: pytest.CaptureFixture[str]) -> None:
    outcome, pauses = in_line(daemon, [BUSY, BUSY, ID], [{"a": RUNNING}, {}, {"c": pending(-1)}, {"c": RUNNING}, {}])
    assert outcome == ID
    assert pauses == [1.0, 1.0, 1.5]
    assert methods(daemon) == ["scan", "list", "list", "scan", "list", "list", "list", "scan"]
    assert capsys.readouterr().err.count("waiting for its end") == 1


def test_while_nobody_is_seen_the_pauses_grow(daemon: FakeDaemon) -> None:
    denied = Fault("unauthorized", "no", code=-32007)
    outcome, pauses = in_line(daemon, [BUSY] * 6 + [ID], [{}, {"a": DONE}, denied, {}, {"a": pending(-600)}, {}])
    assert outcome == ID
    assert pauses == [4.0, 8.0, 16.0, 32.0, 32.0, 32.0]


def test_other_errors_end_it(daemon: FakeDaemon) -> None:
    with pytest.raises(ApiError) as caught:
        in_line(daemon, [BUSY, Fault("invalid_argument", "bad depot")], [{"a": RUNNING}, {}])
    assert caught.value.kind == "invalid_argument"


@pytest.mark.parametrize("info, front", [
    (RUNNING, True), (DONE, False), ({"status": "FAILED"}, False), ({}, False), ({"status": "PENDING"}, False),
    (pending(0), True), (pending(-29), True), (pending(-31), False), (pending(29), True), (pending(31), False),
    ({"status": "PENDING", "last_update_time": "lately"}, False)])
def test_who_is_in_front(info: dict[str, Any], front: bool) -> None:
    from keeld_client import Task
    assert line.is_in_front(Task.from_info(ID, info), NOW) is front


def test_the_commands_stand_in_line(daemon: FakeDaemon, monkeypatch: pytest.MonkeyPatch) -> None:
    pauses: list[float] = []
    monkeypatch.setattr(line.stand_in_line, "__defaults__", (pauses.append, lambda: NOW))
    attempts, looks = iter([BUSY, ID]), iter([{"a": RUNNING}, {"a": DONE}])
    daemon.answers = {SCAN: lambda _params: next(attempts), LIST: lambda _params: next(looks)}
    assert cli.main(["software", "scan", "--port", str(daemon.port), "--depot", "file:///a", "--base", "1", "--wait",
                     "--no-wait"]) == 0
    assert methods(daemon) == ["scan", "list", "list", "scan"]
    assert pauses == [1.0]


def test_ctrl_c_gives_up(daemon: FakeDaemon, monkeypatch: pytest.MonkeyPatch) -> None:
    def interrupt(_seconds: float) -> None:
        raise KeyboardInterrupt

    monkeypatch.setattr(line.stand_in_line, "__defaults__", (interrupt, lambda: NOW))
    daemon.answers = {SCAN: BUSY, LIST: {"a": RUNNING}}
    assert cli.main(["software", "scan", "--port", str(daemon.port), "--depot", "file:///a", "--base", "1", "--wait"]) == 130
    assert methods(daemon) == ["scan", "list"]

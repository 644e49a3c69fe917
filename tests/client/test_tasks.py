from typing import Any

import pytest

from conftest import FakeDaemon
from keeld_client import Client, Task, TaskFailedError
from keeld_client.tasks import watch

ID = "6f1c0000-0000-4000-8000-000000000001"


@pytest.mark.parametrize("info,expected", [
    ({"status": "PENDING"}, Task(ID, "PENDING")),
    ({"status": "RUNNING", "start_time": "S", "progress": {"total": 200, "completed": 50}},
     Task(ID, "RUNNING", start_time="S", percent=25)),
    ({"status": "RUNNING", "progress": {"total": 0, "completed": 5}}, Task(ID, "RUNNING")),
    ({"status": "RUNNING", "progress": {"total": 10, "completed": 50}}, Task(ID, "RUNNING", percent=100)),
    ({}, Task(ID, "PENDING")),
])
def test_from_info(info: dict[str, Any], expected: Task) -> None:
    assert Task.from_info(ID, info) == expected


@pytest.mark.parametrize("error,text", [
    ({"messages": [{"id": "i", "default_message": "disk full", "args": []}]}, "disk full"),
    ({"messages": [{"id": "i", "default_message": "disk full", "localized": "Platte voll"}]}, "Platte voll"),
    ({"messages": []}, "the task failed without telling why; see the system log"),
    (None, "the task failed without telling why; see the system log"),
])
def test_error_text(error: Any, text: str) -> None:
    assert Task(ID, "FAILED", error=error).error_text == text
    assert Task(ID, "SUCCEEDED", error=error).error_text == ""


def test_watch_yields_changes_only_and_ends() -> None:
    seen = [Task(ID, "PENDING"), Task(ID, "PENDING"), Task(ID, "RUNNING", percent=1),
            Task(ID, "RUNNING", percent=1), Task(ID, "SUCCEEDED", percent=100)]
    polls = iter(seen)
    pauses: list[float] = []
    changes = list(watch(lambda: next(polls), interval=1.0, longest=1.2, sleep=pauses.append))
    assert [task.status for task in changes] == ["PENDING", "RUNNING", "SUCCEEDED"]
    assert pauses == [1.0, 1.2, 1.0, 1.2]


def test_wait_raises_for_a_failed_task(daemon: FakeDaemon) -> None:
    daemon.answers["com.orbane.halo.tasks.get"] = {
        "status": "FAILED", "error": {"messages": [{"id": "x", "default_message": "depot is down", "args": []}]}}
    with Client(host="127.0.0.1", port=daemon.port) as client, pytest.raises(TaskFailedError, match="depot is down"):
        client.wait(ID)
    assert daemon.calls == [("com.orbane.halo.tasks.get", {"task": ID})]


def test_notifications_by_level(daemon: FakeDaemon) -> None:
    note = {"id": "n", "time": "T", "message": {"id": "n", "default_message": "mind the gap", "args": []}}
    task = Task.from_info(ID, {"status": "RUNNING", "notifications": {"info": [note], "warnings": [note]}})
    assert [(n.level, n.text) for n in task.notifications] == [("info", "mind the gap"), ("warning", "mind the gap")]

import io
import json
from typing import Any

import pytest

from conftest import FakeDaemon, Fault
from keeld_client import Task
from keeld_client.cli import main as cli
from keeld_client.cli.output import ProgressView

ID = "6f1c0000-0000-4000-8000-000000000001"
SOFTWARE = "com.orbane.ryn.keel_daemon.software."
TASKS = "com.orbane.halo.tasks."
BUSY = Fault("not_allowed_in_current_state", "another operation runs", "com.orbane.ryn.task.contention", -32002)


def run(daemon: FakeDaemon, *arguments: str) -> int:
    return cli.main([*arguments[:2], "--port", str(daemon.port), *arguments[2:]])


def ended(status: str = "SUCCEEDED", **more: Any) -> dict[str, Any]:
    return {"status": status, "start_time": "2026-01-01T00:00:00.000Z", "end_time": "2026-01-01T00:00:01.000Z",
            "progress": {"total": 100, "completed": 100}, **more}


def test_apply_sends_the_wanted_image_and_waits(daemon: FakeDaemon, capsys: pytest.CaptureFixture[str]) -> None:
    daemon.answers = {SOFTWARE + "apply": ID, TASKS + "get": ended()}
    code = run(daemon, "software", "apply", "--depot", "file:///b", "--depot", "file:///a", "--base", "1.1.0",
               "--component", "net-tools=2.0", "--quick-patch")
    assert code == 0
    assert daemon.calls[0] == (SOFTWARE + "apply", {
        "software_spec": {"base_image": {"version": "1.1.0"}, "components": {"net-tools": "2.0"}},
        "depots": ["file:///b", "file:///a"], "quick_patch": True})
    out, err = capsys.readouterr()
    assert out == "applied\n"
    assert "apply: succeeded 100%" in err


def test_spec_file(daemon: FakeDaemon, tmp_path: Any) -> None:
    spec = tmp_path / "image.json"
    spec.write_text('{"base_image": {"version": "2"}, "solutions": {}}')
    daemon.answers = {SOFTWARE + "stage": ID}
    assert run(daemon, "software", "stage", "--depot", "file:///a", "--spec", str(spec), "--no-wait") == 0
    assert daemon.calls[0][1]["software_spec"] == {"base_image": {"version": "2"}, "solutions": {}}


@pytest.mark.parametrize("arguments", [
    ["--depot", "file:///a"],
    ["--depot", "nonsense", "--base", "1"],
    ["--depot", "http://user:pw@host/", "--base", "1"],
    ["--depot", "file:///a", "--component", "x"],
    ["--depot", "file:///a", "--component", "=1"],
    ["--depot", "file:///a", "--spec", "/nowhere"],
    ["--depot", "file:///a", "--spec", "/dev/null"],
    ["--depot", "file:///a", "--spec", "/dev/null", "--base", "1"],
    ["--base", "1"],
])
def test_usage_errors_reach_no_daemon(daemon: FakeDaemon, arguments: list[str]) -> None:
    assert run(daemon, "software", "scan", *arguments) == 2
    assert daemon.calls == []


def test_failed_task(daemon: FakeDaemon, capsys: pytest.CaptureFixture[str]) -> None:
    daemon.answers = {SOFTWARE + "apply": ID, TASKS + "get": ended(
        "FAILED", error={"messages": [{"id": "x", "default_message": "depot \x1b[2J is down", "args": []}]})}
    assert run(daemon, "software", "apply", "--depot", "file:///a", "--base", "1") == 1
    assert "failed: depot ?[2J is down" in capsys.readouterr().err


@pytest.mark.parametrize("fault,code", [
    (Fault("unauthenticated", "who are you"), 4), (Fault("unauthorized", "no"), 4),
    (Fault("invalid_argument", "bad depot"), 4), (Fault("internal_server_error", "oops"), 6)])
def test_error_codes(daemon: FakeDaemon, fault: Fault, code: int, capsys: pytest.CaptureFixture[str]) -> None:
    daemon.answers = {SOFTWARE + "scan": fault}
    assert run(daemon, "software", "scan", "--depot", "file:///a", "--base", "1") == code
    assert fault.text in capsys.readouterr().err


def test_busy_tells_what_runs(daemon: FakeDaemon, capsys: pytest.CaptureFixture[str]) -> None:
    daemon.answers = {SOFTWARE + "apply": BUSY, TASKS + "list": {
        ID: {"status": "RUNNING", "start_time": "2026-01-01T00:00:00.000Z",
             "progress": {"total": 100, "completed": 40}}, "other": ended()}}
    assert run(daemon, "software", "apply", "--depot", "file:///a", "--base", "1") == 5
    err = capsys.readouterr().err
    assert f"task {ID} runs since 2026-01-01T00:00:00.000Z, 40% done" in err


def test_unreachable() -> None:
    assert cli.main(["tasks", "list", "--port", "1"]) == 3


@pytest.mark.parametrize("arguments,code", [([], 2), (["nonsense"], 2), (["tasks", "get"], 2), (["--help"], 0)])
def test_command_line(arguments: list[str], code: int) -> None:
    assert cli.main(arguments) == code


def test_watch_json_is_one_document(daemon: FakeDaemon, capsys: pytest.CaptureFixture[str]) -> None:
    daemon.answers = {TASKS + "get": ended(result={"a": 1})}
    assert run(daemon, "tasks", "watch", ID, "--json") == 0
    out, err = capsys.readouterr()
    assert json.loads(out)["result"] == {"a": 1}
    assert err == ""


def test_ctrl_c_detaches(daemon: FakeDaemon, monkeypatch: pytest.MonkeyPatch,
                         capsys: pytest.CaptureFixture[str]) -> None:
    def interrupt(*_arguments: object, **_options: object) -> None:
        raise KeyboardInterrupt

    monkeypatch.setattr("keeld_client.cli.tasks.ProgressView.update", interrupt)
    daemon.answers = {TASKS + "get": ended("RUNNING")}
    assert run(daemon, "tasks", "watch", ID) == 130
    assert f"keelctl tasks watch {ID}" in capsys.readouterr().err


@pytest.mark.parametrize("info,code,called", [
    (ended("RUNNING", operation="unknown"), 4, True),
    (ended("RUNNING", operation="com.orbane.ryn.keel_daemon.configuration.apply"), 0, True),
    (ended("SUCCEEDED"), 0, False)])
def test_cancel(daemon: FakeDaemon, info: dict[str, Any], code: int, called: bool) -> None:
    daemon.answers = {TASKS + "get": info, TASKS + "cancel": None}
    assert run(daemon, "tasks", "cancel", ID) == code
    assert ((TASKS + "cancel", {"task": ID}) in daemon.calls) is called


def test_list_and_show(daemon: FakeDaemon, capsys: pytest.CaptureFixture[str]) -> None:
    daemon.answers = {TASKS + "list": {"b": ended(), "a": {"status": "PENDING"}},
                      "com.orbane.ryn.hosts.software.components.list": [{"name": "net", "version": "1\x07"}],
                      "com.orbane.ryn.hosts.software.ryn.get": {"version": "1.0.0", "name": "sample"}}
    assert run(daemon, "tasks", "list") == 0
    assert run(daemon, "components", "list") == 0
    assert run(daemon, "image", "get") == 0
    out = capsys.readouterr().out
    assert "PENDING" in out and "SUCCEEDED" in out
    assert "net   1?" in out
    assert "version:        1.0.0" in out


def test_scan_shows_what_differs(daemon: FakeDaemon, capsys: pytest.CaptureFixture[str]) -> None:
    result = {"status": "NON_COMPLIANT", "impact": "REBOOT", "staged": False,
              "base_image": {"status": "NON_COMPLIANT", "current": "1.0.0", "desired": "1.1.0"},
              "components": {"net": {"status": "NON_COMPLIANT", "desired": "2.0"}}, "solutions": {}}
    daemon.answers = {SOFTWARE + "scan": ID, TASKS + "get": ended(result=result)}
    assert run(daemon, "software", "scan", "--depot", "file:///a", "--base", "1.1.0") == 0
    lines = capsys.readouterr().out.splitlines()
    assert lines[0] == "status: NON_COMPLIANT, impact: REBOOT, staged: no"
    assert [line.split() for line in lines[1:]] == [
        ["WHAT", "NAME", "NOW", "WANTED", "STATUS"],
        ["base", "image", "1.0.0", "1.1.0", "NON_COMPLIANT"],
        ["component", "net", "-", "2.0", "NON_COMPLIANT"]]


def test_progress_on_a_terminal() -> None:
    class Terminal(io.StringIO):
        def isatty(self) -> bool:
            return True

    stream = Terminal()
    view = ProgressView("apply", stream)
    view.update(Task(ID, "RUNNING", percent=50))
    view.close()
    assert "apply [" + "#" * 15 + "-" * 15 + "]  50% running" in stream.getvalue()
    assert stream.getvalue().endswith("\n")


@pytest.mark.parametrize("locale, language", [
    ("de_DE.UTF-8", "de_DE"), ("de_DE@euro", "de_DE"), ("C.UTF-8", None), ("POSIX", None), ("de\r\nx: y", None),
    ("\u00e4", None), ("x" * 5000, None)])
def test_language_of_the_user(daemon: FakeDaemon, monkeypatch: pytest.MonkeyPatch, locale: str, language: str | None) -> None:
    monkeypatch.setenv("LC_ALL", locale)
    daemon.answers = {TASKS + "list": {}}
    assert run(daemon, "tasks", "list") == 0
    assert daemon.headers[0].get("accept-language") == language

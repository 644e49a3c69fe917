"""The road of a software operation up to the tool and back, with stand-ins for the tool."""

from __future__ import annotations

import concurrent.futures
import json
import os
import pathlib
import re
import signal
import time
from collections.abc import Iterator

import pytest
from harness.daemon import Daemon
from harness.syslog import SystemLog
from harness.tool import GATE, TOOL, FakeTool
from harness.waiting import wait_for
from harness.wire import SOFTWARE, TASKS, ApiError, Rpc

STATE = pathlib.Path("/var/orbane/lifecycle")
SCAN_SPEC = pathlib.Path("/var/run/lifecycle.scan.swspec")
FEATURES = pathlib.Path("/etc/orbane/features.conf")
TASK_ID = re.compile(r"[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}")
SPEC = {"base_image": {"version": "1.0"}, "components": {"tools": "2.1"}}
DEPOTS = ["http://127.0.0.1:8000/b", "file:///srv/a"]

HOLD = "take_gate(); DB.start_task(TASK); wait_for_go(); leave_gate(); DB.complete_task(TASK, '')"
DONE = "take_gate(); DB.start_task(TASK); leave_gate(); DB.complete_task(TASK, '')"


@pytest.fixture
def features() -> Iterator[pathlib.Path]:
    """The feature switches' file, given back at the end."""
    before = FEATURES.read_bytes() if FEATURES.exists() else None
    yield FEATURES
    FEATURES.unlink(missing_ok=True)
    if before is not None:
        FEATURES.write_bytes(before)


def spec_path(task: str) -> pathlib.Path:
    return STATE / f"swspec-{task}"


def test_apply_command_line_and_spec_file(daemon: Daemon, rpc: Rpc, fake_tool: FakeTool, syslog: SystemLog) -> None:
    fake_tool.install(HOLD)
    task = rpc.start("apply", SPEC, DEPOTS)
    assert TASK_ID.fullmatch(task)
    call = fake_tool.wait_for_call()
    assert call["args"] == ["software", "--apply", "--task-id", task, "--depot", DEPOTS[0], "--depot", DEPOTS[1],
                            "--software-spec", str(spec_path(task))]
    written = json.loads(spec_path(task).read_text())
    assert written["base_image"]["version"] == "1.0"
    syslog.wait(re.escape(
        "[RunTask]: Executing command: /usr/bin/python ++group=keeld-task-forks,mem=groupMax,stats "
        f"{TOOL}  software --apply --task-id {task} --depot {DEPOTS[0]} --depot {DEPOTS[1]} --software-spec {spec_path(task)}"))
    fake_tool.go()
    assert rpc.finished(task)["status"] == "SUCCEEDED"


def test_stage_sorts_its_depots(daemon: Daemon, rpc: Rpc, fake_tool: FakeTool) -> None:
    fake_tool.install(DONE)
    task = rpc.start("stage", SPEC, DEPOTS)
    assert fake_tool.wait_for_call()["args"] == [
        "software", "--stage", "--task-id", task, "--depot", DEPOTS[1], "--depot", DEPOTS[0],
        "--software-spec", str(spec_path(task))]


def test_scan_has_an_order_and_a_file_of_its_own(daemon: Daemon, rpc: Rpc, fake_tool: FakeTool) -> None:
    fake_tool.install(DONE)
    task = rpc.start("scan", SPEC, DEPOTS)
    assert fake_tool.wait_for_call()["args"] == [
        "software", "--scan", "--software-spec", str(SCAN_SPEC), "--depot", DEPOTS[0], "--depot", DEPOTS[1],
        "--task-id", task]
    rpc.finished(task)
    assert SCAN_SPEC.exists(), "a scan's file stays"


@pytest.mark.parametrize("switches, wanted, expected", [
    ({"QuickPatch": "on", "QuickPatchTool": "on"}, True, True),
    ({"QuickPatch": "on", "QuickPatchTool": "on"}, False, False),
    ({"QuickPatch": "on", "QuickPatchTool": "on"}, None, False),
    ({"QuickPatch": "on", "QuickPatchTool": "off"}, True, False),
    ({"QuickPatch": "off", "QuickPatchTool": "on"}, True, False),
    ({}, True, False),
])
@pytest.mark.parametrize("operation", ["apply", "scan"])
def test_quick_patch(stopped_daemon: Daemon, rpc: Rpc, fake_tool: FakeTool, features: pathlib.Path, operation: str,
                     switches: dict[str, str], wanted: bool | None, expected: bool) -> None:
    features.write_text("".join(f"{name} = {value}\n" for name, value in switches.items()))
    stopped_daemon.start()
    fake_tool.install(DONE)
    more = {} if wanted is None else {"quick_patch": wanted}
    rpc.start(operation, SPEC, DEPOTS, **more)
    args = fake_tool.wait_for_call()["args"]
    assert isinstance(args, list)
    assert ("--quick-patch" in args) == expected
    assert not expected or args[-1] == "--quick-patch"


def test_the_tool_runs_detached_and_clean(daemon: Daemon, rpc: Rpc, fake_tool: FakeTool) -> None:
    fake_tool.install("""
        links = {n: os.readlink(f"/proc/self/fd/{n}") for n in os.listdir("/proc/self/fd") if os.path.exists(f"/proc/self/fd/{n}")}
        status = dict(line.split(":\\t", 1) for line in open("/proc/self/status").read().splitlines() if ":\\t" in line)
        with open("/run/fake-tool.facts", "w") as out:
            json.dump({"ppid": os.getppid(), "sid": os.getsid(0), "pgid": os.getpgid(0), "fds": links,
                       "blocked": status["SigBlk"], "ignored": status["SigIgn"], "exe": sys.argv[0]}, out)
        take_gate(); DB.start_task(TASK); leave_gate(); DB.complete_task(TASK, '')
    """)
    rpc.finished(rpc.start("apply", SPEC, DEPOTS))
    facts = json.loads(pathlib.Path("/run/fake-tool.facts").read_text())
    assert facts["ppid"] != daemon.pid
    assert facts["sid"] != os.getsid(daemon.pid)
    assert {facts["fds"][name] for name in "012"} == {"/dev/null"}
    assert [name for name in facts["fds"] if int(name) > 2 and "socket" in facts["fds"][name]] == []
    assert int(facts["blocked"], 16) == 0
    # Python itself ignores SIGPIPE and SIGXFSZ.
    assert int(facts["ignored"], 16) & ~(1 << (signal.SIGPIPE - 1) | 1 << (signal.SIGXFSZ - 1)) == 0


def test_a_task_from_start_to_end(daemon: Daemon, rpc: Rpc, fake_tool: FakeTool) -> None:
    fake_tool.install("""
        wait_for_go()
        take_gate()
        DB.start_task(TASK)
        DB.set_progress(TASK, 40)
        os.unlink("/run/fake-tool.go")
        wait_for_go()
        leave_gate()
        DB.complete_task(TASK, '{"a":1}')
    """)
    task = rpc.start("apply", SPEC, DEPOTS)
    fake_tool.wait_for_call()
    assert GATE.read_text() == f"PRECURSOR: {task}"
    record = rpc.task(task)
    assert record["status"] == "PENDING"
    assert not {"progress", "start_time", "end_time", "result", "error"} & set(record)
    fake_tool.go()
    wait_for(lambda: rpc.task(task).get("progress", {}).get("completed") == 40, "progress 40")
    record = rpc.task(task)
    assert (record["status"], record["progress"]["total"]) == ("RUNNING", 100)
    assert record["service"] == "keeld" and record["operation"] == "unknown" and record["cancelable"] is False
    assert GATE.read_text() == f"TASK: {task} {fake_tool.calls()[0]['pid']}"
    assert "end_time" not in record
    fake_tool.go()
    record = rpc.finished(task)
    assert (record["status"], record["result"]) == ("SUCCEEDED", {"a": 1})
    assert record["start_time"] <= record["end_time"] <= record["last_update_time"]
    assert rpc.tasks() == {task: record}


def test_two_at_once(daemon: Daemon, rpc: Rpc, fake_tool: FakeTool, syslog: SystemLog) -> None:
    fake_tool.install(HOLD)

    def attempt(operation: str) -> str | ApiError:
        try:
            return rpc.start(operation, SPEC, DEPOTS)
        except ApiError as error:
            return error

    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        outcomes = list(pool.map(attempt, ("apply", "stage")))
    started = [outcome for outcome in outcomes if isinstance(outcome, str)]
    refused = [outcome for outcome in outcomes if isinstance(outcome, ApiError)]
    assert len(started) == len(refused) == 1
    assert refused[0].kind == "NOT_ALLOWED_IN_CURRENT_STATE"
    assert refused[0].message_ids == ["com.orbane.ryn.task.contention"]
    lines = [entry.text for entry in syslog.wait("Task sync file exists and contains", 3)]
    assert [re.sub(r"'.*'", "''", line) for line in lines] == [
        f"[_CheckTaskContention]: Task sync file exists and contains '', {left} retries left" for left in (2, 1, 0)]
    assert all(started[0] in line for line in lines)
    assert len(list(STATE.glob("swspec-*"))) == 1, "the refused one's spec file is gone"
    fake_tool.go()
    assert rpc.finished(started[0])["status"] == "SUCCEEDED"
    assert len(fake_tool.calls()) == 1
    assert list(rpc.tasks()) == started


def test_the_next_one_after_the_end(daemon: Daemon, rpc: Rpc, fake_tool: FakeTool) -> None:
    fake_tool.install(DONE)
    for operation in ("scan", "stage", "apply") * 2:
        assert rpc.finished(rpc.start(operation, SPEC, DEPOTS))["status"] == "SUCCEEDED"
    assert len(rpc.tasks()) == 6


@pytest.mark.parametrize("operation", ["apply", "stage", "scan"])
@pytest.mark.parametrize("depots", [[], ["file:///a b"], ["file:///a", ""], ["file:///a\n"], ["file:///ä"], ['file:///"']])
def test_bad_depots(daemon: Daemon, rpc: Rpc, fake_tool: FakeTool, operation: str, depots: list[str]) -> None:
    fake_tool.install(DONE)
    with pytest.raises(ApiError) as caught:
        rpc.start(operation, SPEC, depots)
    assert caught.value.code == -32602
    assert caught.value.kind == "INVALID_ARGUMENT"
    assert caught.value.message_ids == ["com.orbane.ryn.lumo.invalidinput"]
    assert list(STATE.glob("swspec-*")) == []
    assert not GATE.exists()
    assert SCAN_SPEC.exists() == (operation == "scan"), "only a scan has written its file by then"
    assert rpc.tasks() == {} and fake_tool.calls() == []


@pytest.mark.parametrize("depot", [
    "file:///srv/a;touch%20/run/pwned", "http://h/?a=1&b=2", "http://h/$(touch)", "http://h/~*?[a]", "http://h/a#b",
    "http://h/$HOME", "http://h/!!", "http://h/a,b;c"])
def test_no_shell_sees_the_depots(daemon: Daemon, rpc: Rpc, fake_tool: FakeTool, depot: str) -> None:
    fake_tool.install(DONE)
    rpc.finished(rpc.start("apply", SPEC, [depot]))
    args = fake_tool.calls()[0]["args"]
    assert isinstance(args, list)
    assert args[args.index("--depot") + 1] == depot


def test_an_unbalanced_quote_in_a_depot_is_a_failed_start(daemon: Daemon, rpc: Rpc, fake_tool: FakeTool) -> None:
    fake_tool.install(DONE)
    with pytest.raises(ApiError) as caught:
        rpc.start("apply", SPEC, ["http://h/it's"])
    assert caught.value.message_ids == ["com.orbane.ryn.task.exec.error"]
    assert not GATE.exists() and list(STATE.glob("swspec-*")) == [] and fake_tool.calls() == []


def test_a_tool_that_cannot_be_started(daemon: Daemon, rpc: Rpc, fake_tool: FakeTool, syslog: SystemLog) -> None:
    fake_tool.install(DONE)
    python = pathlib.Path("/usr/bin/python")
    hidden = python.rename("/usr/bin/python.hidden")
    try:
        with pytest.raises(ApiError) as caught:
            rpc.start("apply", SPEC, DEPOTS)
    finally:
        hidden.rename(python)
    assert caught.value.kind == "INTERNAL_SERVER_ERROR"
    assert caught.value.message_ids == ["com.orbane.ryn.task.exec.error"]
    lines = [entry.text for entry in syslog.wait(r"\[RunTask\]: Failed to exec command for task ", 3)]
    assert [line[line.rindex(",") + 2:] for line in lines] == [f"{left} retries left" for left in (2, 1, 0)]
    assert not GATE.exists() and list(STATE.glob("swspec-*")) == []
    assert [record["status"] for record in rpc.tasks().values()] == ["PENDING"]


BAD_RECORDS = {
    "result that is no JSON": ("DB.complete_task(TASK, '{{{')", True),
    "empty array end": ("DB.complete_task(TASK, '[1,2')", True),
    "result with bad UTF-8 escapes": ("DB.complete_task(TASK, '\"\\\\ud800\"')", True),
    "result nested too deep": ("DB.complete_task(TASK, '[' * 100000 + ']' * 100000)", True),
    "result with an unknown annotation": ("DB.complete_task(TASK, '{\"@nonsense\":1}')", True),
    "result of several megabytes": ("DB.complete_task(TASK, '\"' + 'x' * 3000000 + '\"')", False),
    "void result": ("DB.complete_task(TASK, '')", False),
    "error that is no JSON": ("DB.fail_task(TASK, '}')", False),
    "error with an unknown kind": ("DB.fail_task(TASK, '{\"@error\":\"x\",\"y\":[]}')", False),
    "unknown message id": ("DB.fail_task_with_message(TASK, 'no.such.message', ['a', 'b'])", False),
    "arguments that look like formats": ("DB.fail_task_with_message(TASK, 'x', ['%s%n', '{1}', chr(10) + 'forged: line'])", False),
    "notification that is no JSON": ("DB.add_notification(TASK, 'x'); DB.complete_task(TASK, '')", False),
    "notification of another shape": ("DB.add_notification(TASK, '[1]'); DB.complete_task(TASK, '')", False),
    "thousands of notifications": ("[DB.add_notification(TASK, '{}') for _ in range(1000)]; DB.complete_task(TASK, '')", False),
    "progress out of range": ("DB.set_progress(TASK, 2**31 - 1); DB.set_progress(TASK, -5); DB.complete_task(TASK, '')", False),
}


@pytest.mark.parametrize("script, unreadable", BAD_RECORDS.values(), ids=[name.replace(" ", "-") for name in BAD_RECORDS])
def test_hostile_tool_output(daemon: Daemon, rpc: Rpc, fake_tool: FakeTool, syslog: SystemLog, script: str,
                             unreadable: bool) -> None:
    fake_tool.install(f"take_gate(); DB.start_task(TASK)\n{script}\nleave_gate()")
    task = rpc.start("apply", SPEC, DEPOTS)
    fake_tool.wait_for_call()
    wait_for(lambda: not GATE.exists(), "the tool's end")
    if unreadable:
        with pytest.raises(ApiError) as caught:
            rpc.task(task)
        assert caught.value.message_ids == ["com.orbane.ryn.task.parse.error"]
        assert rpc.tasks() == {}, "the list leaves the bad record out"
        syslog.wait(f"Result of task {task} cannot be de-serialized")
    else:
        assert rpc.task(task)["status"] in ("SUCCEEDED", "FAILED")
        assert list(rpc.tasks()) == [task]
    assert not [entry for entry in syslog.entries() if entry.text.startswith("forged")]
    assert daemon.running
    fake_tool.install(DONE)
    assert rpc.finished(rpc.start("scan", SPEC, DEPOTS))["status"] == "SUCCEEDED"


def test_a_tool_that_dies_leaves_its_task_running_until_a_restart(daemon: Daemon, rpc: Rpc, fake_tool: FakeTool) -> None:
    fake_tool.install("take_gate(); DB.start_task(TASK); os.kill(os.getpid(), signal.SIGKILL)")
    task = rpc.start("apply", SPEC, DEPOTS)
    pid = fake_tool.wait_for_call()["pid"]
    wait_for(lambda: not os.path.exists(f"/proc/{pid}"), "the tool's death")
    assert rpc.task(task)["status"] == "RUNNING"
    assert rpc(f"{TASKS}.cancel", {"task": task}) is None
    assert rpc.task(task)["status"] == "RUNNING"
    with pytest.raises(ApiError) as caught:
        rpc.start("scan", SPEC, DEPOTS)
    assert caught.value.message_ids == ["com.orbane.ryn.task.contention"]
    daemon.restart()
    assert rpc.tasks() == {}
    fake_tool.install(DONE)
    assert rpc.finished(rpc.start("scan", SPEC, DEPOTS))["status"] == "SUCCEEDED"


def test_a_restart_forgets_tasks_and_spares_the_tool(daemon: Daemon, rpc: Rpc, fake_tool: FakeTool) -> None:
    fake_tool.install("""
        take_gate(); DB.start_task(TASK)
        wait_for_go()
        try:
            DB.set_progress(TASK, 99)
            outcome = "written"
        except Exception as error:
            outcome = type(error).__name__
        pathlib.Path("/run/fake-tool.outcome").write_text(outcome)
    """)
    outcome = pathlib.Path("/run/fake-tool.outcome")
    outcome.unlink(missing_ok=True)
    pid_file = STATE / "lifecycle.apply.pid"
    pid_file.write_text("1234")
    task = rpc.start("apply", SPEC, DEPOTS)
    pid = fake_tool.wait_for_call()["pid"]
    wait_for(lambda: rpc.task(task)["status"] == "RUNNING", "the tool at work")
    daemon.restart()
    assert os.path.exists(f"/proc/{pid}"), "the tool lives on"
    assert not GATE.exists()
    assert pid_file.read_text() == "1234"
    assert rpc.tasks() == {}
    with pytest.raises(ApiError) as caught:
        rpc.task(task)
    assert caught.value.message_ids == ["com.orbane.ryn.task.notfound.error"]
    assert task in caught.value.data["messages"][0]["args"]
    fake_tool.go()
    assert wait_for(lambda: outcome.read_text() if outcome.exists() else "", "the old tool's end") == "UnknownTaskError"
    assert rpc.tasks() == {}
    fake_tool.install(DONE)
    assert rpc.finished(rpc.start("apply", SPEC, DEPOTS))["status"] == "SUCCEEDED"


def test_a_deleted_database_is_made_anew(daemon: Daemon, rpc: Rpc, fake_tool: FakeTool) -> None:
    fake_tool.install(DONE)
    rpc.finished(rpc.start("scan", SPEC, DEPOTS))
    for path in STATE.glob("task-status.json.db*"):
        path.unlink()
    assert rpc.tasks() == {}
    task = rpc.start("scan", SPEC, DEPOTS)
    assert list(rpc.tasks()) == [task]
    rpc.finished(task)


@pytest.mark.parametrize("content", [b"\0" * 4096, b"SQLite format 3\0" + b"\xff" * 4080], ids=["zeros", "header-only"])
def test_a_damaged_database_is_an_error_not_a_crash(daemon: Daemon, rpc: Rpc, content: bytes) -> None:
    for path in STATE.glob("task-status.json.db?*"):
        path.unlink()
    (STATE / "task-status.json.db").write_bytes(content)
    with pytest.raises(ApiError) as caught:
        rpc.tasks()
    assert (caught.value.kind, caught.value.message_ids) == ("RESOURCE_INACCESSIBLE", ["com.orbane.ryn.task.parse.error"])
    with pytest.raises(ApiError) as caught:
        rpc.task("x")
    assert (caught.value.kind, caught.value.message_ids) == ("ERROR", ["com.orbane.ryn.task.parse.error"])
    with pytest.raises(ApiError) as caught:
        rpc.start("scan", SPEC, DEPOTS)
    assert caught.value.message_ids == ["com.orbane.ryn.task.create.error"]
    assert not GATE.exists()


@pytest.mark.parametrize("params, field", [
    ({"depots": DEPOTS}, "software_spec"), ({"software_spec": SPEC}, "depots"),
    ({"software_spec": SPEC, "depots": DEPOTS, "frobnicate": 1}, "frobnicate"),
    ({"software_spec": 5, "depots": DEPOTS}, "software_spec"), ({"software_spec": SPEC, "depots": "file:///a"}, "depots"),
])
def test_malformed_input_is_an_invalid_argument(daemon: Daemon, rpc: Rpc, params: dict[str, object], field: str) -> None:
    reply = rpc.request(f"{SOFTWARE}.apply", params)
    assert reply.status == 200 and reply.headers.get("lumo-error")
    error = reply.json()["error"]
    assert error["code"] == -32602
    assert field in json.dumps(error)
    assert list(STATE.glob("swspec-*")) == [] and not GATE.exists()


def test_a_full_queue_of_busy_answers_does_not_starve_the_first(daemon: Daemon, rpc: Rpc, fake_tool: FakeTool) -> None:
    fake_tool.install(HOLD)
    task = rpc.start("apply", SPEC, DEPOTS)
    started = time.monotonic()
    with pytest.raises(ApiError):
        rpc.start("scan", SPEC, DEPOTS)
    assert time.monotonic() - started >= 3, "three attempts, a second after each"
    fake_tool.go()
    assert rpc.finished(task)["status"] == "SUCCEEDED"

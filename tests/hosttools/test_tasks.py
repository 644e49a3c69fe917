"""Gate, record and spec file of a task, however the tool ends."""

from __future__ import annotations

import fcntl
import json
import os
import signal
import subprocess
import uuid
from pathlib import Path

import pytest
from support import (DATABASE, GATE, IMAGE_ROOT, SCAN_SPEC, STATE, STOWCTL, Host, TinyDepot, image_state, spec, wait_for)

DRIVER = str(Path(__file__).with_name("paused_stowctl.py"))


def paused(host: Host, point: str, verb: str, wanted: object, depots: list[str],
           *more: str) -> tuple[str, subprocess.Popen[bytes]]:
    """Starts a task whose tool stops before the function `point` until `release`; returns when it stands there."""
    task, process = host.start(verb, wanted, depots, *more, program=(DRIVER, point))
    wait_for(lambda: Path(f"/run/paused.{process.pid}").exists() or process.poll() is not None, f"the tool to reach {point}")
    assert process.poll() is None, host.database.get(task)
    return task, process


def release(process: subprocess.Popen[bytes]) -> None:
    """Lets a paused tool go on."""
    Path(f"/run/released.{process.pid}").touch()


def test_the_gate_names_task_and_process_while_it_runs(host: Host, depot: TinyDepot) -> None:
    task, process = paused(host, "apply.compose", "apply", spec("1"), [depot.url])
    assert GATE.read_text() == f"TASK: {task} {process.pid}"
    record = host.database.get(task)
    assert (record.status, record.end_time) == ("RUNNING", "") and record.start_time
    assert record.progress_completed == 85
    assert (STATE / f"swspec-{task}").exists()
    release(process)
    assert host.end(task, process).status == "SUCCEEDED"
    host.check_left_nothing(task)


def test_the_record_ends_after_the_gate_is_open(host: Host, depot: TinyDepot) -> None:
    """A client that sees the end of a task can start the next one at once."""
    task, process = paused(host, "orbane_taskdb.TaskManager.complete_task", "apply", spec("1"), [depot.url])
    assert not GATE.exists() and not (STATE / f"swspec-{task}").exists()
    assert host.database.get(task).status == "RUNNING"
    release(process)
    assert host.end(task, process).status == "SUCCEEDED"


@pytest.mark.parametrize("verb", ["apply", "scan"])
def test_an_unknown_task_ends_quietly(host: Host, depot: TinyDepot, verb: str) -> None:
    task, path = host.prepare(verb, spec("1"))
    host.database.init()  # as a restart of the daemon does
    process = host.launch([STOWCTL, *host.words(verb, task, path, [depot.url])])
    assert process.wait(60) == 0
    assert not GATE.exists() and not IMAGE_ROOT.exists()
    assert path.exists() == (verb == "scan")
    assert host.database.list() == {}


def test_without_a_database_the_tool_ends_quietly(host: Host, depot: TinyDepot) -> None:
    task, path = host.prepare("apply", spec("1"))
    host.database.close()
    DATABASE.unlink()
    assert host.launch([STOWCTL, *host.words("apply", task, path, [depot.url])]).wait(60) == 0
    assert not GATE.exists() and not DATABASE.exists()


def test_a_task_forgotten_while_it_runs_ends_quietly(host: Host, depot: TinyDepot) -> None:
    task, process = paused(host, "apply.compose", "apply", spec("1"), [depot.url])
    host.database.init()
    other = str(uuid.uuid4())
    GATE.write_text(f"PRECURSOR: {other}")  # the next task is about to start
    release(process)
    assert process.wait(60) == 0
    assert host.database.list() == {}
    assert GATE.read_text() == f"PRECURSOR: {other}"


def test_a_gate_of_another_task_is_left_alone(host: Host, depot: TinyDepot) -> None:
    task, path = host.prepare("apply", spec("1"))
    GATE.write_text("TASK: 11111111-1111-1111-1111-111111111111 4711")
    record = host.end(task, host.launch([STOWCTL, *host.words("apply", task, path, [depot.url])]))
    assert (record.status, record.error_id) == ("FAILED", "com.orbane.ryn.task.contention")
    assert GATE.read_text() == "TASK: 11111111-1111-1111-1111-111111111111 4711"
    assert not path.exists()


def test_an_open_gate_is_shut_by_a_task_that_is_known(host: Host, depot: TinyDepot) -> None:
    task, path = host.prepare("apply", spec("1"))
    GATE.unlink()
    process = host.launch([DRIVER, "apply.compose", *host.words("apply", task, path, [depot.url])])
    wait_for(lambda: Path(f"/run/paused.{process.pid}").exists(), "the pause")
    assert GATE.read_text() == f"TASK: {task} {process.pid}"
    release(process)
    assert host.end(task, process).status == "SUCCEEDED"
    assert not GATE.exists()


def test_a_busy_image_root_is_contention(host: Host, depot: TinyDepot) -> None:
    host.succeed("apply", spec("1"), [depot.url])
    descriptor = os.open(IMAGE_ROOT, os.O_RDONLY)
    fcntl.flock(descriptor, fcntl.LOCK_EX)
    for verb in ("apply", "stage"):
        assert host.run(verb, spec("2"), [depot.url]).error_id == "com.orbane.ryn.task.contention"
    host.succeed("scan", spec("2"), [depot.url])
    os.close(descriptor)
    host.succeed("apply", spec("2"), [depot.url])


@pytest.mark.parametrize(("words", "reason"), [
    (["--quick-pach"], "quick-pach"), (["surplus"], "surplus"), (["--depot"], "--depot"), (["--stage"], "--stage"),
])
def test_words_that_are_not_understood_fail_the_task(host: Host, depot: TinyDepot, words: list[str], reason: str) -> None:
    record = host.fail("apply", spec("1"), [depot.url], *words)
    assert record.error_id == "com.orbane.ryn.stow.usage.error"
    assert reason in record.error_args[0]


def test_words_that_are_not_unicode(host: Host, depot: TinyDepot) -> None:
    task, path = host.prepare("apply", spec("1"))
    process = host.launch([STOWCTL, *host.words("apply", task, path, [depot.url]), b"sur\xffplus"])  # type: ignore[list-item]
    record = host.end(task, process)
    assert (record.status, record.error_id) == ("FAILED", "com.orbane.ryn.stow.usage.error")
    assert "sur\\udcffplus" in record.error_args[0]
    host.check_left_nothing(task)


def test_quick_patch_is_not_for_stage(host: Host, depot: TinyDepot) -> None:
    assert host.fail("stage", spec("1"), [depot.url], "--quick-patch").error_id == "com.orbane.ryn.stow.usage.error"


@pytest.mark.parametrize("words", [
    [], ["software"], ["software", "--apply", "--depot", "file:///a", "--software-spec", "/a"],
    ["software", "--apply", "--task-id", "../../etc/passwd", "--depot", "file:///a", "--software-spec", "/a"],
    ["component"], ["component", "--list", "more"], ["component", "--get"], ["component", "--get", "--list"],
    ["component", "--get", "a", "b"], ["ryn"], ["ryn", "--get", "x"], ["ryn", "--ge"], ["frobnicate"],
])
def test_words_that_are_not_understood_without_a_task(host: Host, words: list[str]) -> None:
    answer = subprocess.run([STOWCTL, *words], capture_output=True, text=True, check=False)
    assert answer.returncode == 2
    assert answer.stdout == "" and answer.stderr.startswith("stowctl.py: The image manager's command line")


@pytest.mark.parametrize(("document", "message"), [
    ("{", "spec.invalid"), ("[]", "spec.invalid"), ('{"base_image":{"version":"../1"}}', "spec.invalid"),
    ('{"base_image":{"version":""}}', "base.unset"), ('{"base_image":{"version":"9"}}', "base.missing"),
    ('{"base_image":{"version":"1"},"components":{"-x":"1"}}', "spec.invalid"),
    ('{"base_image":{"version":"1"},"components":{"alpha":"3"}}', "component.missing"),
    ('{"base_image":{"version":"1"},"components":{"alpha":"2"},"solutions":{"edge":{"version":"1"}}}',
     "component.version.conflict"),
    ('{"base_image":{"version":"1"},"solutions":{"none":{"version":"1"}}}', "solution.missing"),
])
@pytest.mark.parametrize("verb", ["apply", "stage"])
def test_specs_that_cannot_be_had(host: Host, depot: TinyDepot, verb: str, document: str, message: str) -> None:
    depot.solution("edge", "1", {"alpha": "1"})
    assert host.fail(verb, document, [depot.url]).error_id == f"com.orbane.ryn.stow.{message}.error"


def test_a_spec_file_that_is_gone(host: Host, depot: TinyDepot) -> None:
    task, path = host.prepare("apply", spec("1"))
    path.unlink()
    record = host.end(task, host.launch([STOWCTL, *host.words("apply", task, path, [depot.url])]))
    assert (record.error_id, record.error_args) == (
        "com.orbane.ryn.stow.spec.read.error", [str(path), "No such file or directory"])


def test_a_spec_file_that_is_a_link_is_refused(host: Host, depot: TinyDepot, tmp_path: Path) -> None:
    task, path = host.prepare("apply", spec("1"))
    (tmp_path / "spec").write_text(path.read_text())
    path.unlink()
    path.symlink_to(tmp_path / "spec")
    record = host.end(task, host.launch([STOWCTL, *host.words("apply", task, path, [depot.url])]))
    assert record.error_id == "com.orbane.ryn.stow.spec.read.error"
    assert (tmp_path / "spec").exists() and not path.is_symlink()


@pytest.mark.parametrize(("number", "verb", "point"), [
    (signal.SIGTERM, "scan", "scan.DepotSet"), (signal.SIGTERM, "stage", "apply.Puller.pull"),
    *((signal.SIGTERM, "apply", point) for point in (
        "spec.read_spec", "apply.DepotSet", "image.ImageRoot._initialise", "apply.Puller.pull", "pull.Puller._fetch",
        "apply.compose", "apply.deploy")),
    *((number, "apply", "apply.compose") for number in (signal.SIGINT, signal.SIGHUP, signal.SIGQUIT, signal.SIGUSR1)),
])
def test_a_signal_ends_the_task_in_order(host: Host, depot: TinyDepot, number: int, verb: str, point: str) -> None:
    host.succeed("apply", spec("1"), [depot.url])
    before = image_state()
    task, process = paused(host, point, verb, spec("2"), [depot.url])
    process.send_signal(number)
    wait_for(lambda: Path(f"/run/requested.{process.pid}").exists(), "the signal's arrival")
    release(process)
    record = host.end(task, process)
    host.check_left_nothing(task)
    host.check_failed(record, before)
    assert record.error_id == "com.orbane.ryn.stow.terminated.error"
    assert verb != "scan" or SCAN_SPEC.exists()
    host.succeed("apply", spec("2"), [depot.url])


def test_a_signal_after_the_new_tree_stands_is_too_late(host: Host, depot: TinyDepot) -> None:
    host.succeed("apply", spec("1"), [depot.url])
    before = image_state()
    task, process = paused(host, "apply.tidy", "apply", spec("2"), [depot.url], "--no-grace")
    process.send_signal(signal.SIGTERM)
    wait_for(lambda: Path(f"/run/requested.{process.pid}").exists(), "the signal's arrival")
    release(process)
    assert host.end(task, process).status == "SUCCEEDED"
    assert image_state() != before


def test_work_that_does_not_heed_the_signal_is_cut(host: Host, depot: TinyDepot) -> None:
    """The tool stands for good in the middle: after the grace period it closes its task and ends."""
    host.succeed("apply", spec("1"), [depot.url])
    before = image_state()
    task, process = paused(host, "apply.compose", "apply", spec("2"), [depot.url], "--no-grace")
    process.send_signal(signal.SIGTERM)
    assert process.wait(60) == 1
    record = host.database.get(task)
    host.check_failed(record, before)
    assert record.error_id == "com.orbane.ryn.stow.terminated.error"
    host.check_left_nothing(task)


def test_a_signal_before_the_task_is_taken_over(host: Host, depot: TinyDepot) -> None:
    task, process = paused(host, "task_run.run", "apply", spec("1"), [depot.url])
    process.send_signal(signal.SIGTERM)  # still held back
    release(process)
    record = host.end(task, process)
    assert (record.status, record.error_id) == ("FAILED", "com.orbane.ryn.stow.terminated.error")
    host.check_left_nothing(task)


def test_notifications_are_of_the_direct_form(host: Host, depot: TinyDepot) -> None:
    record = host.succeed("apply", spec("1"), [depot.url])
    first = json.loads(record.notifications[0])
    assert list(first) == ["type", "id", "time", "message"]
    assert first["type"] == "INFO" and uuid.UUID(first["id"]) and first["time"].endswith("Z") and len(first["time"]) == 24
    assert first["message"] == {"id": "com.orbane.ryn.stow.apply.first",
                                "default_message": "The image is now ryn 1; it is the first one here.",
                                "args": ["ryn 1"]}


def test_one_line_of_the_system_log_for_each_step(host: Host, depot: TinyDepot) -> None:
    record = host.succeed("apply", spec("1"), [depot.url])
    log = Path("/var/log/keeld.log")
    lines = wait_for(lambda: [line for line in log.read_text().splitlines()
                              if record.id in line and "stowctl" in line and "succeeded" in log.read_text()], "the log")
    assert [line.split(f"{record.id}: ")[1] for line in lines] == [
        "started", "The image is now ryn 1; it is the first one here.", "succeeded"]

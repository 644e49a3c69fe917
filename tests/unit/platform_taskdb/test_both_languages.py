"""What one library writes, the other reads."""

import re
import sqlite3
from pathlib import Path
from typing import Iterator

import pytest

from taskdb_cases import ROOT, hexadecimal, listed, parse_record, run

from orbane_taskdb import (
    AccessLockError,
    ParseError,
    TaskDatabaseError,
    TaskFileNotFoundError,
    TaskInfo,
    TaskManager,
    UnknownTaskError,
)
from orbane_taskdb.schema import APPLICATION_ID, CREATE_SCHEMA, PAGE_BYTES, SCHEMA_VERSION

TIME = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z")
GZIP = bytes([0x1F, 0x8B, 8, 0]) + bytes(range(256))
VALUES = ["", "null", '{"@struct":"x","a":[1,2.0]}', '"ä€😀"', GZIP, "x" * 100_000]


@pytest.fixture
def path(tmp_path: Path) -> Path:
    tmp_path.chmod(0o700)
    return tmp_path / "task-status.json.db"


@pytest.fixture
def tasks(path: Path) -> Iterator[TaskManager]:
    with TaskManager(str(path)) as manager:
        manager.init()
        yield manager


def both(path: Path, tasks: TaskManager, id: str) -> TaskInfo:
    """The record of ``id``, which both libraries must read alike."""
    ours = tasks.get(id)
    assert parse_record(run(path, "get", id)) == ours
    assert tasks.list()[id] == ours
    assert listed(path)[id] == ours
    return ours


def test_schemas_are_the_same() -> None:
    source = (ROOT / "platform/taskdb/schema.cpp").read_text()
    assert source.count('R"sql(') == 1
    assert f'R"sql({CREATE_SCHEMA})sql"' in source
    header = (ROOT / "platform/taskdb/schema.h").read_text()
    assert f"kApplicationId = 0x{APPLICATION_ID:x};" in header
    assert f"kSchemaVersion = {SCHEMA_VERSION};" in header
    assert f"kPageBytes = {PAGE_BYTES};" in header


def test_init_of_either_serves_the_other(path: Path) -> None:
    run(path, "init")
    with TaskManager(str(path)) as tasks:
        tasks.create_task("a")
        assert list(listed(path)) == ["a"]
        tasks.init()
        assert listed(path) == {}
        run(path, "create", "b")
        assert list(tasks.list()) == ["b"]
        run(path, "init")
        assert tasks.list() == {}


def test_road_of_a_forked_task(path: Path, tasks: TaskManager) -> None:
    """The daemon makes the record, the tool does the rest."""
    run(path, "create", "a")
    fresh = both(path, tasks, "a")
    assert fresh == TaskInfo(id="a", status="PENDING", last_update=fresh.last_update, progress_total=100)
    assert TIME.fullmatch(fresh.last_update)
    tasks.start_task("a")
    started = both(path, tasks, "a")
    assert started.status == "RUNNING"
    assert TIME.fullmatch(started.start_time)
    for percent in (0, 40, 99):
        tasks.set_progress("a", percent)
        assert both(path, tasks, "a").progress_completed == percent
    tasks.add_notification("a", '{"id":"one"}')
    tasks.add_notification("a", GZIP)
    assert both(path, tasks, "a").notifications == ['{"id":"one"}', GZIP]
    tasks.complete_task("a", '{"version":"2.0"}')
    ended = both(path, tasks, "a")
    assert (ended.status, ended.result, ended.progress_completed) == ("SUCCEEDED", '{"version":"2.0"}', 100)
    assert ended.start_time == started.start_time
    assert TIME.fullmatch(ended.end_time)
    assert ended.last_update == ended.end_time


def test_road_of_an_inner_task(path: Path, tasks: TaskManager) -> None:
    run(path, "create-named", "a", "com.orbane.ryn.configuration$apply")
    run(path, "start", "a")
    run(path, "progress", "a", "50")
    run(path, "notify", "a", hexadecimal("{}"))
    running = both(path, tasks, "a")
    assert (running.name, running.status, running.progress_completed) == (
        "com.orbane.ryn.configuration$apply",
        "RUNNING",
        50,
    )
    run(path, "complete", "a", hexadecimal("null"))
    assert both(path, tasks, "a").status == "SUCCEEDED"


def test_failures(path: Path, tasks: TaskManager) -> None:
    for id in ("a", "b", "c", "d"):
        tasks.create_task(id)
        tasks.start_task(id)
    tasks.fail_task("a", '{"@error":"x"}')
    assert both(path, tasks, "a").error == '{"@error":"x"}'
    tasks.fail_task_with_message("b", "com.orbane.ryn.stow.no.room", ["1", "zwei", "", "drei ä"])
    failed = both(path, tasks, "b")
    assert (failed.status, failed.error, failed.error_id) == ("FAILED", "", "com.orbane.ryn.stow.no.room")
    assert failed.error_args == ["1", "zwei", "", "drei ä"]
    tasks.fail_task_with_result("c", "1", "2")
    failed = both(path, tasks, "c")
    assert (failed.status, failed.result, failed.error) == ("FAILED", "1", "2")
    run(path, "fail-with-result", "d", hexadecimal("1"), hexadecimal("2"))
    failed = both(path, tasks, "d")
    assert (failed.status, failed.result, failed.error, failed.progress_completed) == ("FAILED", "1", "2", 0)


def test_the_last_end_holds(path: Path, tasks: TaskManager) -> None:
    tasks.create_task("a")
    tasks.fail_task_with_message("a", "com.x", ["1"])
    run(path, "complete", "a", hexadecimal("3"))
    ended = both(path, tasks, "a")
    assert (ended.status, ended.result, ended.error_id, ended.error_args) == ("SUCCEEDED", "3", "", [])
    tasks.fail_task_with_message("a", "com.y", ["2", "3"])
    ended = both(path, tasks, "a")
    assert (ended.status, ended.result, ended.error_id, ended.error_args) == ("FAILED", "", "com.y", ["2", "3"])
    tasks.fail_task("a", "4")
    ended = both(path, tasks, "a")
    assert (ended.error, ended.error_id, ended.error_args) == ("4", "", [])


@pytest.mark.parametrize("value", VALUES, ids=range(len(VALUES)))
def test_values_keep_their_bytes(path: Path, tasks: TaskManager, value: "str | bytes") -> None:
    tasks.create_task("a")
    tasks.fail_task_with_result("a", value, value)
    assert (both(path, tasks, "a").result, tasks.get("a").error) == (value, value)
    if len(value) < 50_000:  # what fits a command line
        run(path, "fail-with-result", "a", hexadecimal(value), hexadecimal(value))
        assert (both(path, tasks, "a").result, tasks.get("a").error) == (value, value)


def test_bytes_that_are_text_are_stored_as_text(path: Path, tasks: TaskManager) -> None:
    tasks.create_task("a")
    tasks.complete_task("a", b'"text"')
    assert both(path, tasks, "a").result == '"text"'


def test_a_task_that_ends_before_it_was_started_has_both_times(path: Path, tasks: TaskManager) -> None:
    tasks.create_task("a")
    tasks.fail_task("a", "1")
    info = both(path, tasks, "a")
    assert info.start_time == info.end_time != ""


def test_an_unknown_id_is_told(path: Path, tasks: TaskManager) -> None:
    calls = [
        lambda: tasks.get("x"),
        lambda: tasks.start_task("x"),
        lambda: tasks.set_progress("x", 1),
        lambda: tasks.add_notification("x", "1"),
        lambda: tasks.complete_task("x", "1"),
        lambda: tasks.fail_task("x", "1"),
        lambda: tasks.fail_task_with_message("x", "y", []),
        lambda: tasks.fail_task_with_result("x", "1", "1"),
    ]
    for call in calls:
        with pytest.raises(UnknownTaskError, match='no task "x"'):
            call()
    assert tasks.list() == {}
    assert run(path, "start", "x", code=13) == 'no task "x"\n'


def test_an_id_is_taken_once(path: Path, tasks: TaskManager) -> None:
    run(path, "create", "a")
    with pytest.raises(TaskDatabaseError, match='task "a" exists'):
        tasks.create_task("a")
    assert run(path, "create", "a", code=13) == 'task "a" exists\n'


def test_a_missing_file_is_told(path: Path, tasks: TaskManager) -> None:
    tasks.create_task("a")
    path.unlink()
    with pytest.raises(TaskFileNotFoundError):
        tasks.start_task("a")
    with pytest.raises(TaskFileNotFoundError):
        TaskManager(str(path)).list()
    with pytest.raises(TaskFileNotFoundError):
        TaskManager(str(path.parent / "nowhere" / "x")).list()
    run(path, "list", code=11)
    assert not path.exists()


def test_foreign_files_are_told(path: Path, tasks: TaskManager) -> None:
    tasks.create_task("a")
    for content in (b"", b"{}", b"\xa5" * 50_000, bytes(4096)):
        tasks.close()
        for suffix in ("-wal", "-shm", ""):
            Path(str(path) + suffix).unlink(missing_ok=True)
        path.write_bytes(content)
        with pytest.raises(ParseError):
            tasks.list()
        with pytest.raises(ParseError):
            tasks.start_task("a")
        run(path, "list", code=12)
    path.unlink()
    with sqlite3.connect(path) as database:
        database.execute("CREATE TABLE task (id)")
    with pytest.raises(ParseError):
        tasks.list()
    path.unlink()
    path.symlink_to("/etc/passwd")
    with pytest.raises(ParseError):
        tasks.list()
    tasks.init()
    assert tasks.list() == {}
    assert not path.is_symlink()


def test_init_replaces_whatever_stands_there(path: Path) -> None:
    with TaskManager(str(path)) as tasks:
        for suffix in ("", "-wal", "-shm", "-journal", "-reserve", ".new"):
            tasks.init()
            obstacle = Path(str(path) + suffix)
            obstacle.unlink(missing_ok=True)
            (obstacle / "inside").mkdir(parents=True)
            tasks.init()
            assert tasks.list() == {}
            tasks.create_task("a")
        assert path.stat().st_mode & 0o7777 == 0o600
        assert path.with_name(path.name + "-reserve").stat().st_size == 1024 * 1024


def test_init_refuses_a_folder_that_others_can_write_to(path: Path) -> None:
    path.parent.chmod(0o777)
    with pytest.raises(TaskDatabaseError, match="others can write to its folder"):
        TaskManager(str(path)).init()


def test_locks_are_tried_as_often_as_told(path: Path, tasks: TaskManager) -> None:
    tasks.create_task("a")
    slept = []
    with TaskManager(str(path), sleep=slept.append) as patient:
        other = sqlite3.connect(path, isolation_level=None)
        other.execute("BEGIN IMMEDIATE")
        for retries in (5, 1, 0):
            slept.clear()
            with pytest.raises(AccessLockError):
                patient.start_task("a", retries=retries)
            assert slept == [0.2] * max(0, retries - 1)
        assert patient.get("a").status == "PENDING"
        other.execute("COMMIT")
        other.close()
        patient.start_task("a")
        assert patient.get("a").status == "RUNNING"


def test_a_manager_can_be_used_again_after_close(path: Path, tasks: TaskManager) -> None:
    tasks.create_task("a")
    tasks.close()
    assert sorted(entry.name for entry in path.parent.iterdir()) == [path.name, path.name + "-reserve"]
    assert tasks.get("a").status == "PENDING"


def test_paths_of_any_letters(tmp_path: Path) -> None:
    tmp_path.chmod(0o700)
    for name in ("a b", "a?mode=memory", "a%20#b", "ä"):
        path = tmp_path / name
        with TaskManager(str(path)) as tasks:
            tasks.init()
            tasks.create_task("a")
            assert list(listed(path)) == ["a"]

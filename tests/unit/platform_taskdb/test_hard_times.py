"""Death, full disks, and many users at once."""

import contextlib
import os
import resource
import signal
import sqlite3
import subprocess
from pathlib import Path
from typing import Iterator, List, Type

import pytest

from taskdb_cases import HELPER, hexadecimal, integrity, listed, run

from orbane_taskdb import AccessLockError, ParseError, TaskDatabaseError, TaskFileNotFoundError, TaskManager
from orbane_taskdb.errors import is_busy, is_full, translate

SUFFIXES = ("", "-wal", "-shm", "-reserve")


@pytest.fixture
def path(tmp_path: Path) -> Path:
    tmp_path.chmod(0o700)
    return tmp_path / "task-status.json.db"


def hammer(path: Path, prefix: str, *count: str) -> "subprocess.Popen[str]":
    return subprocess.Popen([str(HELPER), str(path), "hammer", prefix, *count], stdout=subprocess.PIPE, text=True)


def next_lines(process: "subprocess.Popen[str]", count: int) -> List[str]:
    assert process.stdout is not None
    return [process.stdout.readline().strip() for _ in range(count)]


def test_killed_in_the_middle_nothing_told_is_lost(path: Path) -> None:
    run(path, "init")
    told: List[str] = []
    for round in range(15):
        two = [hammer(path, f"{round}a-"), hammer(path, f"{round}b-")]
        for process in two:
            told += next_lines(process, 3 + round)
        for process in two:
            process.send_signal(signal.SIGKILL)
            output, _ = process.communicate()
            told += [line for line in output.split("\n")[:-1]]
            assert process.returncode == -signal.SIGKILL
    records = listed(path)
    with TaskManager(str(path)) as tasks:
        assert tasks.list() == records
        for id in told:
            assert records[id].status == "SUCCEEDED", id
            assert records[id].result == '"done"'
            assert records[id].notifications == ["{}"]
        # Whatever was under way stands between two operations.
        for record in records.values():
            assert record.status in ("PENDING", "RUNNING", "SUCCEEDED")
            assert (record.status == "SUCCEEDED") == (record.result != "")
        tasks.create_task("after")
    assert integrity(path) == "ok"


def test_two_processes_and_a_third_of_the_other_language(path: Path) -> None:
    run(path, "init")
    others = [hammer(path, "a-", "150"), hammer(path, "b-", "150")]
    with TaskManager(str(path)) as tasks:
        for i in range(100):
            tasks.create_task(f"p-{i}", retries=50)
            tasks.start_task(f"p-{i}", retries=50)
            tasks.complete_task(f"p-{i}", "1", retries=50)
        for process in others:
            process.communicate()
            assert process.returncode == 0
        assert len(tasks.list()) == 400
    assert integrity(path) == "ok"


def test_init_while_others_are_at_work(path: Path) -> None:
    run(path, "init")
    for round in range(10):
        others = [hammer(path, f"{round}a-"), hammer(path, f"{round}b-")]
        for process in others:
            next_lines(process, 1)
        run(path, "init")
        for process in others:
            process.kill()
            process.communicate()
            # Whoever was in the middle of a task has said that it is gone; else it went on in the new file.
            assert process.returncode in (11, 13, -signal.SIGKILL)
        assert integrity(path) == "ok"
        assert not any(record.id.endswith("-0") for record in listed(path).values()), "what was before is gone"
    run(path, "create", "a")
    assert "a" in listed(path)


def test_deletion_while_others_are_at_work(path: Path) -> None:
    run(path, "init")
    process = hammer(path, "a-")
    next_lines(process, 1)
    path.unlink()
    process.communicate()
    assert process.returncode == 11
    run(path, "init")
    assert listed(path) == {}
    assert integrity(path) == "ok"


def test_a_fork_of_python_uses_the_file_like_any_other(path: Path) -> None:
    with TaskManager(str(path)) as tasks:
        tasks.init()
        tasks.create_task("parent")
        child = os.fork()
        if child == 0:
            status = 1
            with contextlib.suppress(BaseException):
                tasks.create_task("child", retries=50)
                status = 0
            os._exit(status)
        assert os.waitpid(child, 0)[1] == 0
        tasks.start_task("parent")
        assert sorted(tasks.list()) == ["child", "parent"]
        assert sorted(listed(path)) == ["child", "parent"]


@pytest.fixture
def small_disk(tmp_path: Path) -> Iterator[Path]:
    """A file system of 4 MB."""
    folder = tmp_path / "disk"
    folder.mkdir()
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=4m,mode=0700", "tmpfs", str(folder)], check=True)
    try:
        yield folder
    finally:
        subprocess.run(["umount", "-l", str(folder)], check=True)


def fill(disk: Path) -> Path:
    """Takes all of the room that is left."""
    filler = disk / "filler"
    with filler.open("ab", buffering=0) as file, contextlib.suppress(OSError):
        while True:
            file.write(bytes(4096))
    return filler


def fill_beside(path: Path, tasks: TaskManager) -> Path:
    """Takes all the room, and that inside the database's own files: no further record can be made."""
    filler = fill(path.parent)
    with pytest.raises(TaskDatabaseError, match="full"):
        for i in range(5000):
            tasks.create_task(f"filling-{i}")
    # Closing folds the journal into the file, which sets room free once more.
    tasks.close()
    fill(path.parent)
    assert "No space left on device" in run(path, "create", "refused", code=13)
    with pytest.raises(TaskDatabaseError):
        tasks.create_task("refused")
    tasks.close()
    fill(path.parent)
    assert path.with_name(path.name + "-reserve").exists(), "only the end of a task may take it"
    return filler


@pytest.mark.parametrize("language", ["C++", "Python"])
def test_a_failure_is_recorded_on_a_full_disk(small_disk: Path, language: str) -> None:
    path = small_disk / "task-status.json.db"
    reserve = small_disk / "task-status.json.db-reserve"
    error = '{"@error":"no room"}' + " " * 20_000
    with TaskManager(str(path)) as tasks:
        tasks.init()
        tasks.create_task("a")
        tasks.start_task("a")
        filler = fill_beside(path, tasks)
        if language == "C++":
            run(path, "fail", "a", hexadecimal(error))
        else:
            tasks.fail_task("a", error)
        assert tasks.get("a").status == "FAILED"
        assert tasks.get("a").error == error
        assert listed(path)["a"].error == error
        filler.unlink()
        tasks.create_task("b")
        assert reserve.stat().st_size == 1024 * 1024, "it comes back when there is room"
    assert integrity(path) == "ok"


@contextlib.contextmanager
def files_up_to(size: int) -> Iterator[None]:
    """A write beyond that many bytes of a file fails with EFBIG, which SQLite tells as little as a spent quota."""
    before = resource.getrlimit(resource.RLIMIT_FSIZE)
    resource.setrlimit(resource.RLIMIT_FSIZE, (size, before[1]))
    try:
        yield
    finally:
        resource.setrlimit(resource.RLIMIT_FSIZE, before)


@pytest.mark.parametrize("language", ["C++", "Python"])
def test_a_failed_write_of_an_end_takes_the_reserve_once(path: Path, language: str) -> None:
    reserve = path.with_name(path.name + "-reserve")
    error = '"' + "x" * 20_000 + '"'
    with TaskManager(str(path)) as tasks:
        tasks.init()
        tasks.create_task("a")
        tasks.close()
        with files_up_to(path.stat().st_size + 4096):
            if language == "C++":
                done = subprocess.run([str(HELPER), str(path), "fail", "a", hexadecimal(error)], capture_output=True,
                                      text=True, check=False, restore_signals=False)
                assert done.returncode == 13 and "disk I/O error: File too large" in done.stderr
            else:
                with pytest.raises(TaskDatabaseError, match="disk I/O error"):
                    tasks.fail_task("a", error)
        assert not reserve.exists(), "it was given up for a further try"
        assert tasks.get("a").status == "PENDING"
        tasks.fail_task("a", error)
        assert tasks.get("a").error == error
        assert reserve.exists()


@pytest.mark.parametrize("language", ["C++", "Python"])
def test_a_failure_is_recorded_where_one_more_file_fits(tmp_path: Path, language: str) -> None:
    """A journal is two files: the room of the second is that of the reserve."""
    folder = tmp_path / "disk"
    folder.mkdir()
    subprocess.run(["mount", "-t", "tmpfs", "-o", "nr_inodes=16,mode=0700", "tmpfs", str(folder)], check=True)
    path = folder / "task-status.json.db"
    try:
        with TaskManager(str(path)) as tasks:
            tasks.init()
            tasks.create_task("a")
            tasks.close()
            taken = [folder / str(number) for number in range(16)]
            with contextlib.suppress(OSError):
                for filler in taken:
                    filler.touch()
            [filler for filler in taken if filler.exists()][-1].unlink()
            with pytest.raises(AccessLockError):
                tasks.start_task("a", retries=1)
            tasks.close()
            if language == "C++":
                run(path, "fail", "a", hexadecimal("1"))
            else:
                tasks.fail_task("a", "1")
            assert not path.with_name(path.name + "-reserve").exists()
            for filler in taken:
                filler.unlink(missing_ok=True)
            assert listed(path)["a"].status == "FAILED"
    finally:
        subprocess.run(["umount", "-l", str(folder)], check=True)


@pytest.mark.parametrize(
    ("code", "busy", "full", "kind"),
    [
        (sqlite3.SQLITE_BUSY, True, False, AccessLockError),
        (sqlite3.SQLITE_LOCKED, True, False, AccessLockError),
        (sqlite3.SQLITE_PROTOCOL, True, False, AccessLockError),
        (sqlite3.SQLITE_BUSY_SNAPSHOT, True, False, AccessLockError),
        (sqlite3.SQLITE_CORRUPT, False, False, ParseError),
        (sqlite3.SQLITE_NOTADB, False, False, ParseError),
        (sqlite3.SQLITE_ERROR, False, False, ParseError),
        (sqlite3.SQLITE_IOERR_SHORT_READ, False, False, ParseError),
        (sqlite3.SQLITE_FULL, False, True, TaskDatabaseError),
        (sqlite3.SQLITE_IOERR_WRITE, False, True, TaskDatabaseError),
        (sqlite3.SQLITE_IOERR_SHMSIZE, False, True, TaskDatabaseError),
        (sqlite3.SQLITE_IOERR_READ, False, False, TaskDatabaseError),
        (sqlite3.SQLITE_READONLY, False, False, TaskDatabaseError),
        (sqlite3.SQLITE_READONLY_DBMOVED, False, False, TaskFileNotFoundError),
        (sqlite3.SQLITE_CANTOPEN, False, True, AccessLockError),
    ],
)
def test_what_failures_of_sqlite_mean(path: Path, code: int, busy: bool, full: bool,
                                      kind: Type[TaskDatabaseError]) -> None:
    error = sqlite3.OperationalError("told")
    error.sqlite_errorcode = code
    path.touch()
    assert (is_busy(error), is_full(error)) == (busy, full)
    assert type(translate(error, str(path))) is kind
    assert str(translate(error, str(path))) == f'cannot use the task database "{path}": told'


def test_a_file_that_vanishes_before_it_is_opened_is_missing(path: Path) -> None:
    error = sqlite3.OperationalError("unable to open database file")
    error.sqlite_errorcode = sqlite3.SQLITE_CANTOPEN
    assert type(translate(error, str(path))) is TaskFileNotFoundError
    path.symlink_to("nowhere")
    assert type(translate(error, str(path))) is AccessLockError


def test_a_success_is_recorded_on_a_full_disk(small_disk: Path) -> None:
    path = small_disk / "task-status.json.db"
    with TaskManager(str(path)) as tasks:
        tasks.init()
        tasks.create_task("a")
        fill_beside(path, tasks)
        result = '"' + "x" * 30_000 + '"'
        run(path, "complete", "a", hexadecimal(result))
        assert tasks.get("a").result == result


def test_init_on_a_full_disk_uses_the_room_of_the_old_files(small_disk: Path) -> None:
    path = small_disk / "task-status.json.db"
    with TaskManager(str(path)) as tasks:
        tasks.init()
        tasks.create_task("a")
        fill(small_disk)
        run(path, "init")
        assert tasks.list() == {}
        tasks.create_task("b")


def test_without_any_room_init_says_why(small_disk: Path) -> None:
    fill(small_disk)
    path = small_disk / "task-status.json.db"
    assert "cannot create the task database" in run(path, "init", code=13)
    with pytest.raises(TaskDatabaseError, match="cannot create the task database"):
        TaskManager(str(path)).init()


def test_a_read_only_disk_is_told(small_disk: Path) -> None:
    path = small_disk / "task-status.json.db"
    with TaskManager(str(path)) as tasks:
        tasks.init()
        tasks.create_task("a")
    run(path, "list")
    subprocess.run(["mount", "-o", "remount,ro", str(small_disk)], check=True)
    for words in (("create", "b"), ("start", "a"), ("init",)):
        done = subprocess.run([str(HELPER), str(path), *words], capture_output=True, text=True, check=False)
        assert done.returncode in (10, 13), (words, done.stderr)
        assert done.stderr.strip()
    with pytest.raises(TaskDatabaseError):
        TaskManager(str(path)).create_task("b")

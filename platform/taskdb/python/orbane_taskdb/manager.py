"""Access to a task database."""

import contextlib
import datetime
import os
import sqlite3
import threading
import time
import weakref
from dataclasses import dataclass, field
from typing import Callable, Dict, Iterator, List, Optional, Sequence, TypeVar, Union

from orbane_taskdb.errors import (
    AccessLockError,
    ParseError,
    TaskDatabaseError,
    TaskFileNotFoundError,
    UnknownTaskError,
    is_busy,
    is_full,
    translate,
)
from orbane_taskdb.files import FileIdentity, FolderLock, Reserve, create_database, identify
from orbane_taskdb.schema import APPLICATION_ID, SCHEMA_VERSION

_SECONDS_BETWEEN_TRIES = 0.2
# SQLite's own waiting within one try.
_BUSY_SECONDS = 0.05
_COLUMNS = (
    "id, name, user, status, last_update, start_time, end_time, "
    "progress_completed, progress_total, result, error, error_id"
)

Json = Union[str, bytes]
_T = TypeVar("_T")


@dataclass
class TaskInfo:
    """A task record. Empty text: not set. Times are "YYYY-MM-DDTHH:MM:SS.mmmZ".

    ``result``, ``error`` and ``notifications`` are JSON texts, or bytes when gzip-compressed.
    """

    id: str
    name: str = ""
    user: str = ""
    status: str = ""
    last_update: str = ""
    start_time: str = ""
    end_time: str = ""
    progress_completed: int = 0
    progress_total: int = 0
    result: Json = ""
    error: Json = ""
    error_id: str = ""
    error_args: List[str] = field(default_factory=list)
    notifications: List[Json] = field(default_factory=list)


class _Connection:
    """An open, checked connection to one file; the shared lock is held while it is made and used."""

    def __init__(self, path: str) -> None:
        self.folder = FolderLock(path)
        self.database: Optional[sqlite3.Connection] = None
        try:
            self.folder.lock_shared()
            self.identity: FileIdentity = identify(path)
            self.database = sqlite3.connect(
                f"file:{_quoted(path)}?mode=rw",
                uri=True,
                timeout=_BUSY_SECONDS,
                isolation_level=None,
                check_same_thread=False,
            )
            for pragma in ("synchronous = NORMAL", "trusted_schema = OFF", "cell_size_check = ON"):
                self.database.execute(f"PRAGMA {pragma}")
            self._require("application_id", APPLICATION_ID)
            self._require("user_version", SCHEMA_VERSION)
            if identify(path) != self.identity:
                raise TaskFileNotFoundError(f'"{path}" was replaced')
        except BaseException:
            self.close_locked()
            raise

    def _require(self, pragma: str, expected: int) -> None:
        assert self.database is not None
        if self.database.execute(f"PRAGMA {pragma}").fetchone()[0] != expected:
            raise ParseError("not a task database of this version")

    def close(self) -> None:
        """The last connection folds the journal into the file and removes it, so that needs the lock too."""
        with contextlib.suppress(TaskDatabaseError):
            self.folder.lock_shared()
        self.close_locked()

    def close_locked(self) -> None:
        if self.database is not None:
            with contextlib.suppress(sqlite3.Error):
                self.database.close()
            self.database = None
        self.folder.close()


def _quoted(path: str) -> str:
    return "".join(f"%{byte:02x}" if chr(byte) in "%?#" or byte > 126 else chr(byte) for byte in os.fsencode(path))


def _now() -> str:
    now = datetime.datetime.now(datetime.timezone.utc)
    return f"{now:%Y-%m-%dT%H:%M:%S}.{now.microsecond // 1000:03d}Z"


def _stored(json: Json) -> Json:
    """Text is stored as text and bytes that are text too, so that both libraries store alike."""
    if isinstance(json, bytes) and b"\0" not in json:
        with contextlib.suppress(UnicodeDecodeError):
            return json.decode()
    return json


class TaskManager:
    """Access to one database file by path. Any thread; may be kept over a fork and over deletion of the file.

    A call tries ``retries`` times, 200 ms apart, once at least. All calls but ``init`` raise AccessLockError,
    TaskFileNotFoundError, ParseError, UnknownTaskError for an id that isn't there, and TaskDatabaseError for a write
    that failed. ``close``, or the end of a ``with`` block, lets the file go; a further call opens it again.
    """

    def __init__(self, path: str, sleep: Callable[[float], None] = time.sleep) -> None:
        self._path = path
        self._sleep = sleep
        self._reserve = Reserve(path)
        self._mutex = threading.Lock()
        self._connection: Optional[_Connection] = None
        _managers.add(self)

    def __enter__(self) -> "TaskManager":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __del__(self) -> None:
        connection = getattr(self, "_connection", None)
        if connection is not None:
            connection.close()

    def close(self) -> None:
        """Lets the file go."""
        with self._mutex:
            self._drop()

    def init(self) -> None:
        """Leaves an empty, usable database, whatever stood there, journal files included."""
        self.close()
        create_database(self._path)

    def list(self, retries: int = 5) -> Dict[str, TaskInfo]:
        """All records by id."""

        def read(database: sqlite3.Connection) -> Dict[str, TaskInfo]:
            rows = database.execute(f"SELECT {_COLUMNS} FROM task ORDER BY id")
            tasks = {row[0]: TaskInfo(*row) for row in rows}
            for task, value in database.execute("SELECT task, value FROM error_argument ORDER BY task, position"):
                if task in tasks:
                    tasks[task].error_args.append(value)
            for task, json in database.execute("SELECT task, json FROM notification ORDER BY task, position"):
                if task in tasks:
                    tasks[task].notifications.append(json)
            return tasks

        return self._read(retries, read)

    def get(self, id: str, retries: int = 5) -> TaskInfo:
        """One record."""

        def read(database: sqlite3.Connection) -> TaskInfo:
            row = database.execute(f"SELECT {_COLUMNS} FROM task WHERE id = ?", (id,)).fetchone()
            if row is None:
                raise UnknownTaskError(f'no task "{id}"')
            info = TaskInfo(*row)
            arguments = database.execute("SELECT value FROM error_argument WHERE task = ? ORDER BY position", (id,))
            info.error_args = [value for (value,) in arguments]
            notifications = database.execute("SELECT json FROM notification WHERE task = ? ORDER BY position", (id,))
            info.notifications = [json for (json,) in notifications]
            return info

        return self._read(retries, read)

    def create_task(self, id: str, retries: int = 5) -> None:
        """A PENDING record without a name, its progress 0 of 100."""
        self.create_named_task(id, "", retries=retries)

    def create_named_task(self, id: str, name: str, retries: int = 5) -> None:
        """A PENDING record; ``name`` is the operation."""

        def write(database: sqlite3.Connection) -> None:
            try:
                database.execute("INSERT INTO task (id, name, last_update) VALUES (?, ?, ?)", (id, name, _now()))
            except sqlite3.IntegrityError as error:
                raise TaskDatabaseError(f'task "{id}" exists') from error

        self._write(retries, write)

    def start_task(self, id: str, retries: int = 5) -> None:
        """RUNNING from now on."""
        self._update(id, "status = 'RUNNING', start_time = :now,", {}, retries)

    def set_progress(self, id: str, percent: int, retries: int = 5) -> None:
        """``percent`` of the total of 100."""
        self._update(id, "progress_completed = :percent,", {"percent": percent}, retries)

    def add_notification(self, id: str, json: Json, retries: int = 5) -> None:
        """Adds the JSON text of one notification."""

        def write(database: sqlite3.Connection) -> None:
            self._update_row(database, id, "", {})
            database.execute(
                "INSERT INTO notification (task, position, json) VALUES (:id, "
                "(SELECT coalesce(max(position) + 1, 0) FROM notification WHERE task = :id), :json)",
                {"id": id, "json": _stored(json)},
            )

        self._write(retries, write)

    def complete_task(self, id: str, result_json: Json, retries: int = 5) -> None:
        """SUCCEEDED, all of the progress done."""
        self._end(id, retries, "SUCCEEDED", result=result_json)

    def fail_task(self, id: str, error_json: Json, retries: int = 5) -> None:
        """FAILED with an error value."""
        self._end(id, retries, "FAILED", error=error_json)

    def fail_task_with_message(self, id: str, error_id: str, args: Sequence[str], retries: int = 5) -> None:
        """FAILED with a message id and its arguments."""
        self._end(id, retries, "FAILED", error_id=error_id, args=args)

    def fail_task_with_result(self, id: str, result_json: Json, error_json: Json, retries: int = 5) -> None:
        """FAILED with an error value, and with what was reached all the same."""
        self._end(id, retries, "FAILED", result=result_json, error=error_json)

    # Below: only for the methods above.

    def _end(
        self,
        id: str,
        retries: int,
        status: str,
        result: Json = "",
        error: Json = "",
        error_id: str = "",
        args: Sequence[str] = (),
    ) -> None:
        def write(database: sqlite3.Connection) -> None:
            # A task that fails before it was started still needs both times.
            self._update_row(
                database,
                id,
                "status = :status, result = :result, error = :error, error_id = :error_id, end_time = :now, "
                "start_time = iif(start_time = '', :now, start_time), "
                "progress_completed = iif(:status = 'SUCCEEDED', progress_total, progress_completed),",
                {"status": status, "result": _stored(result), "error": _stored(error), "error_id": error_id},
            )
            database.execute("DELETE FROM error_argument WHERE task = ?", (id,))
            rows = [(id, position, value) for position, value in enumerate(args)]
            database.executemany("INSERT INTO error_argument (task, position, value) VALUES (?, ?, ?)", rows)

        self._write(retries, write, use_reserve=True)

    def _update(self, id: str, changes: str, values: Dict[str, object], retries: int) -> None:
        self._write(retries, lambda database: self._update_row(database, id, changes, values))

    @staticmethod
    def _update_row(database: sqlite3.Connection, id: str, changes: str, values: Dict[str, object]) -> None:
        """``changes`` are assignments, each with a comma behind it."""
        cursor = database.execute(
            f"UPDATE task SET {changes} last_update = :now WHERE id = :id", {**values, "id": id, "now": _now()}
        )
        if cursor.rowcount != 1:
            raise UnknownTaskError(f'no task "{id}"')

    def _drop(self) -> None:
        if self._connection is not None:
            self._connection.close()
            self._connection = None

    @contextlib.contextmanager
    def _session(self) -> Iterator[sqlite3.Connection]:
        """One use: the folder lock, and a connection to the very file that the path names now."""
        with self._mutex:
            connection = self._connection
            if connection is not None:
                try:
                    connection.folder.lock_shared()
                    current = identify(self._path)
                except TaskDatabaseError:
                    self._drop()
                    raise
                if current != connection.identity:
                    self._drop()
                    connection = None
            if connection is None:
                connection = self._connection = _Connection(self._path)
            assert connection.database is not None
            try:
                yield connection.database
            except BaseException as error:
                with contextlib.suppress(sqlite3.Error):
                    if connection.database.in_transaction:
                        connection.database.execute("ROLLBACK")
                if not isinstance(error, UnknownTaskError):
                    self._drop()
                    raise
                connection.folder.unlock()
                raise
            connection.folder.unlock()

    def _once(self, begin: str, work: Callable[[sqlite3.Connection], _T], check: bool) -> _T:
        with self._session() as database:
            database.execute(begin)
            value = work(database)
            database.execute("COMMIT")
            if check and self._connection is not None and identify(self._path) != self._connection.identity:
                raise TaskFileNotFoundError(f'"{self._path}" was replaced')
        return value

    def _try(self, retries: int, begin: str, work: Callable[[sqlite3.Connection], _T], use_reserve: bool) -> _T:
        left = retries
        while True:
            try:
                return self._once(begin, work, begin != "BEGIN")
            except AccessLockError:
                left -= 1
                if left <= 0:
                    raise
            except sqlite3.Error as error:
                if use_reserve and is_full(error) and self._reserve.release():
                    use_reserve = False
                    continue
                left -= 1
                if not is_busy(error) or left <= 0:
                    raise translate(error, self._path) from error
            self._sleep(_SECONDS_BETWEEN_TRIES)

    def _read(self, retries: int, work: Callable[[sqlite3.Connection], _T]) -> _T:
        return self._try(retries, "BEGIN", work, use_reserve=False)

    def _write(self, retries: int, work: Callable[[sqlite3.Connection], None], use_reserve: bool = False) -> None:
        self._try(retries, "BEGIN IMMEDIATE", work, use_reserve)
        self._reserve.ensure()


_managers: "weakref.WeakSet[TaskManager]" = weakref.WeakSet()


def _close_all() -> None:
    for manager in list(_managers):
        manager.close()


# SQLite's own books on locks must not say in the child that it holds what only the parent holds.
os.register_at_fork(before=_close_all)

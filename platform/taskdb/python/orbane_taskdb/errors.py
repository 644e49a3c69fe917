"""What the task database raises."""

import sqlite3


class TaskDatabaseError(RuntimeError):
    """Base of all; by itself: the database can't be written, as on a full disk."""


class AccessLockError(TaskDatabaseError):
    """A lock was not had within the retries."""


class TaskFileNotFoundError(TaskDatabaseError):
    """The database file is not there."""


class ParseError(TaskDatabaseError):
    """The file is damaged or no task database."""


class UnknownTaskError(TaskDatabaseError):
    """There is no task of that id; whoever works for it can only stop quietly."""


_BUSY = (sqlite3.SQLITE_BUSY, sqlite3.SQLITE_LOCKED, sqlite3.SQLITE_PROTOCOL)
# SQLITE_ERROR comes of a missing table or column: all texts of statements are constants.
_DAMAGE = (
    sqlite3.SQLITE_CORRUPT,
    sqlite3.SQLITE_NOTADB,
    sqlite3.SQLITE_FORMAT,
    sqlite3.SQLITE_ERROR,
    sqlite3.SQLITE_SCHEMA,
    sqlite3.SQLITE_TOOBIG,
)


def _extended_code(error: sqlite3.Error) -> int:
    return getattr(error, "sqlite_errorcode", sqlite3.SQLITE_INTERNAL)


def is_busy(error: sqlite3.Error) -> bool:
    """True when another holds a lock, so that a further try makes sense."""
    return _extended_code(error) & 0xFF in _BUSY


def is_full(error: sqlite3.Error) -> bool:
    """True when the file system has no room."""
    code = _extended_code(error)
    return code & 0xFF == sqlite3.SQLITE_FULL or code == sqlite3.SQLITE_IOERR_SHMSIZE


def is_gone(error: sqlite3.Error) -> bool:
    """True when the file was removed under the connection."""
    return _extended_code(error) == sqlite3.SQLITE_READONLY_DBMOVED


def translate(error: sqlite3.Error, path: str) -> TaskDatabaseError:
    """The exception of this package for a failure of SQLite that no retry helps."""
    code = _extended_code(error)
    text = f'cannot use the task database "{path}": {error}'
    if is_gone(error):
        return TaskFileNotFoundError(text)
    if code & 0xFF in _DAMAGE or code == sqlite3.SQLITE_IOERR_SHORT_READ:
        return ParseError(text)
    if is_busy(error) or code & 0xFF == sqlite3.SQLITE_CANTOPEN:
        return AccessLockError(text)
    return TaskDatabaseError(text)

"""What the task database raises."""

import os
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
    """True when the file system has no room, or may have none.

    SQLite knows ENOSPC of a write for what it is; a spent quota is any failed write to it, and a journal that can't
    be made for want of room any file that can't be opened.
    """
    code = _extended_code(error)
    return code & 0xFF in (sqlite3.SQLITE_FULL, sqlite3.SQLITE_CANTOPEN) or code in (
        sqlite3.SQLITE_IOERR_WRITE,
        sqlite3.SQLITE_IOERR_SHMSIZE,
    )


def is_gone(error: sqlite3.Error, path: str) -> bool:
    """True when the file is not where it was, or never was."""
    code = _extended_code(error)
    return code == sqlite3.SQLITE_READONLY_DBMOVED or (
        code & 0xFF == sqlite3.SQLITE_CANTOPEN and not os.path.lexists(path)
    )


def translate(error: sqlite3.Error, path: str) -> TaskDatabaseError:
    """The exception of this package for a failure of SQLite that no retry helps."""
    code = _extended_code(error)
    text = f'cannot use the task database "{path}": {error}'
    if is_gone(error, path):
        return TaskFileNotFoundError(text)
    if code & 0xFF in _DAMAGE or code == sqlite3.SQLITE_IOERR_SHORT_READ:
        return ParseError(text)
    if is_busy(error) or code & 0xFF == sqlite3.SQLITE_CANTOPEN:
        return AccessLockError(text)
    return TaskDatabaseError(text)

"""The files of a task database: lock, identity, reserve, and making it anew."""

import errno
import fcntl
import os
import shutil
import sqlite3
import stat
import time
from typing import Optional, Tuple

from orbane_taskdb.errors import AccessLockError, ParseError, TaskDatabaseError, TaskFileNotFoundError
from orbane_taskdb.schema import CREATE_SCHEMA, PAGE_BYTES

RESERVE_BYTES = 1024 * 1024
# A user holds its lock for a fraction of a millisecond, init for some milliseconds.
_SHARED_WAIT_SECONDS = 0.05
_EXCLUSIVE_WAIT_SECONDS = 5.0

FileIdentity = Tuple[int, int]


def identify(path: str) -> FileIdentity:
    """Device and inode of the plain file at ``path``; links are not followed.

    Raises TaskFileNotFoundError, and ParseError for anything but a plain file.
    """
    try:
        status = os.lstat(path)
    except (FileNotFoundError, NotADirectoryError) as error:
        raise TaskFileNotFoundError(f'cannot find "{path}"') from error
    except OSError as error:
        raise AccessLockError(str(error)) from error
    if not stat.S_ISREG(status.st_mode):
        raise ParseError(f'not a plain file: "{path}"')
    if status.st_size % PAGE_BYTES != 0:
        # SQLite would read the missing part of a page as zeros.
        raise ParseError(f'cut short: "{path}"')
    return status.st_dev, status.st_ino


class FolderLock:
    """The lock that keeps users (shared) and init (exclusive) apart: an flock of the folder that holds the file."""

    def __init__(self, path: str) -> None:
        folder = os.path.dirname(path) or "."
        try:
            self._descriptor: Optional[int] = os.open(folder, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
        except (FileNotFoundError, NotADirectoryError) as error:
            raise TaskFileNotFoundError(f'cannot find the folder of "{path}"') from error
        except OSError as error:
            raise AccessLockError(str(error)) from error

    def _try(self, operation: int, seconds: float, pause: float) -> bool:
        assert self._descriptor is not None
        end = time.monotonic() + seconds
        while True:
            try:
                fcntl.flock(self._descriptor, operation | fcntl.LOCK_NB)
                return True
            except OSError as error:
                if error.errno not in (errno.EWOULDBLOCK, errno.EINTR):
                    raise AccessLockError(str(error)) from error
            if time.monotonic() >= end:
                return False
            time.sleep(pause)

    def lock_shared(self) -> None:
        """Raises AccessLockError when init is at work for longer than usual."""
        if not self._try(fcntl.LOCK_SH, _SHARED_WAIT_SECONDS, 0.001):
            raise AccessLockError(os.strerror(errno.EWOULDBLOCK))

    def lock_out_users(self) -> None:
        """Waits for users; one that hangs keeps nobody: it goes on with the old files, which it has open."""
        self._try(fcntl.LOCK_EX, _EXCLUSIVE_WAIT_SECONDS, 0.0001)

    def unlock(self) -> None:
        assert self._descriptor is not None
        fcntl.flock(self._descriptor, fcntl.LOCK_UN)

    def close(self) -> None:
        if self._descriptor is not None:
            os.close(self._descriptor)
            self._descriptor = None


class Reserve:
    """The file "<database>-reserve": disk space kept back so that a failure can be recorded on a full disk."""

    def __init__(self, path: str) -> None:
        self._path = path + "-reserve"

    def ensure(self) -> None:
        """Makes the file when it isn't there and there is room for it."""
        try:
            status = os.lstat(self._path)
            if stat.S_ISREG(status.st_mode) and status.st_size == RESERVE_BYTES:
                return
            os.unlink(self._path)  # of a process that died in between
        except OSError:
            pass
        try:
            flags = os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_NOFOLLOW | os.O_CLOEXEC
            descriptor = os.open(self._path, flags, 0o600)
        except OSError:
            return
        try:
            os.posix_fallocate(descriptor, 0, RESERVE_BYTES)
        except OSError:
            self.release()
        finally:
            os.close(descriptor)

    def release(self) -> bool:
        """Gives the space back to the file system; False when there was none."""
        try:
            os.unlink(self._path)
        except OSError:
            return False
        return True


def _remove(path: str) -> None:
    # The journals before the file: a new file must never meet an old journal.
    for suffix in ("-journal", "-wal", "-shm", "-reserve", ""):
        name = path + suffix
        if os.path.isdir(name) and not os.path.islink(name):
            shutil.rmtree(name)
        else:
            try:
                os.unlink(name)
            except FileNotFoundError:
                pass


def _check_folder(folder: str) -> None:
    status = os.stat(folder)
    foreign_owner = status.st_uid not in (0, os.geteuid())
    foreign_group = status.st_mode & stat.S_IWGRP and status.st_gid not in (0, os.getegid())
    if foreign_owner or foreign_group or status.st_mode & stat.S_IWOTH:
        raise TaskDatabaseError("others can write to its folder")


def _build(path: str) -> None:
    os.close(os.open(path, os.O_RDWR | os.O_CREAT | os.O_EXCL | os.O_NOFOLLOW | os.O_CLOEXEC, 0o600))
    database = sqlite3.connect(path, isolation_level=None)
    try:
        database.executescript(CREATE_SCHEMA)
    finally:
        database.close()


def create_database(path: str) -> None:
    """Leaves an empty database at ``path``, whatever stood there, with journal files and reserve.

    Waits for users of the old file, 5 s at most. Raises TaskDatabaseError.
    """
    fresh = path + ".new"
    try:
        folder = os.path.dirname(os.path.abspath(path))
        os.makedirs(folder, mode=0o755, exist_ok=True)
        _check_folder(folder)
        lock = FolderLock(path)
        try:
            lock.lock_out_users()
            _remove(fresh)
            _remove(path)
            _build(fresh)
            os.rename(fresh, path)
        finally:
            lock.close()
    except (OSError, sqlite3.Error, TaskDatabaseError) as error:
        raise TaskDatabaseError(f'cannot create the task database "{path}": {error}') from error
    Reserve(path).ensure()

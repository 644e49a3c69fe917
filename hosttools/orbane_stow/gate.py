"""The gate between operations: the file whose existence means that an operation is starting or running.

The daemon writes "PRECURSOR: <id>" before it starts a tool; the tool takes it over as "TASK: <id> <pid>" and removes
it when it ends. No line end in either form.
"""

from __future__ import annotations

import errno
import os
from pathlib import Path

from orbane_stow import paths
from orbane_stow.errors import ContentionError, StateDirError

_READ_LIMIT = 255


class Gate:
    """The gate as one task sees it. Not thread-safe, but `release` may be called more than once."""

    def __init__(self, task_id: str, path: Path | None = None) -> None:
        self._task_id = task_id
        self._path = path or paths.GATE_FILE

    def owner(self) -> str | None:
        """The id that the file names, "" for a content of another form, None when the gate is open.

        Raises `StateDirError` when the file is there and can't be read.
        """
        try:
            descriptor = os.open(self._path, os.O_RDONLY | os.O_NOFOLLOW | os.O_CLOEXEC | os.O_NONBLOCK)
        except FileNotFoundError:
            return None
        except OSError as error:
            raise StateDirError(self._path, error.strerror) from error
        try:
            content = os.read(descriptor, _READ_LIMIT)
        except OSError as error:
            raise StateDirError(self._path, error.strerror) from error
        finally:
            os.close(descriptor)
        words = content.decode("utf-8", errors="replace").split()
        if len(words) >= 2 and words[0] in ("PRECURSOR:", "TASK:"):
            return words[1]
        return ""

    def is_mine(self) -> bool:
        """Whether the file names this task."""
        try:
            return self.owner() == self._task_id
        except StateDirError:
            return False

    def take_over(self) -> None:
        """Writes "TASK: <id> <pid>" in place of what the daemon left, in one rename.

        An open gate is shut. Raises `ContentionError` when the gate names another task, `StateDirError` when it
        can't be written; the gate is then as it was before.
        """
        owner = self.owner()
        if owner is not None and owner != self._task_id:
            raise ContentionError()
        content = f"TASK: {self._task_id} {os.getpid()}".encode()
        beside = self._path.with_name(f"{self._path.name}.{self._task_id}")
        for left in self._path.parent.glob(f"{self._path.name}.*-*-*-*-*"):
            _remove(left)  # of a tool that was killed just here; nobody else is at this point, the gate is ours
        try:
            self._write(beside, content)
            if owner is None:
                os.link(beside, self._path)
            else:
                os.rename(beside, self._path)
        except FileExistsError as error:
            raise ContentionError() from error
        except OSError as error:
            raise StateDirError(self._path, error.strerror) from error
        finally:
            _remove(beside)

    def release(self) -> None:
        """Opens the gate if it still names this task. Never fails."""
        if self.is_mine():
            _remove(self._path)

    @staticmethod
    def _write(path: Path, content: bytes) -> None:
        _remove(path)
        descriptor = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_NOFOLLOW | os.O_CLOEXEC, 0o644)
        try:
            if os.write(descriptor, content) != len(content):
                raise OSError(errno.ENOSPC, os.strerror(errno.ENOSPC))
        finally:
            os.close(descriptor)


def _remove(path: Path) -> None:
    try:
        os.unlink(path)
    except OSError:
        pass  # what isn't there needs no removal, and there is nobody to tell

"""One task from its start to its end: gate, record, notifications, result or failure, and what it leaves behind."""

from __future__ import annotations

import datetime
import json
import os
import sys
import syslog
import threading
import uuid
from dataclasses import dataclass, field
from typing import Any, Callable, Sequence

from orbane_stow import catalogue, paths
from orbane_stow.errors import InternalError, StateDirError, StowError, TerminatedError
from orbane_stow.gate import Gate
from orbane_stow.progress import Progress
from orbane_stow.termination import Termination
from orbane_stow.text import well_formed
from orbane_taskdb import AccessLockError, TaskDatabaseError, TaskFileNotFoundError, TaskManager, UnknownTaskError

EXIT_DONE = 0
EXIT_FAILED = 1

_FORGOTTEN = (UnknownTaskError, TaskFileNotFoundError)
INFO, WARNING, ERROR = "INFO", "WARNING", "ERROR"


def timestamp() -> str:
    """Now, as the API writes times: "YYYY-MM-DDTHH:MM:SS.mmmZ"."""
    now = datetime.datetime.now(datetime.timezone.utc)
    return now.strftime("%Y-%m-%dT%H:%M:%S.") + f"{now.microsecond // 1000:03d}Z"


def message(message_id: str, args: Sequence[str]) -> dict[str, Any]:
    """A localizable message in the direct form."""
    return {"id": message_id, "default_message": catalogue.render(message_id, args), "args": list(args)}


def notification(kind: str, message_id: str, args: Sequence[str]) -> dict[str, Any]:
    """A notification in the direct form; `kind` is INFO, WARNING or ERROR."""
    return {"type": kind, "id": str(uuid.uuid4()), "time": timestamp(), "message": message(message_id, args)}


@dataclass
class Task:
    """What a command's work sees of its task."""

    id: str
    database: TaskManager
    termination: Termination
    progress: Progress | None = None
    told: list[dict[str, Any]] = field(default_factory=list)  # the notifications so far, in the direct form

    def plan(self, **weights: int) -> Progress:
        """Names the steps of the work with their shares, in order."""
        progress = Progress(self._set_percent, weights)
        self.progress = progress
        return progress

    def finish(self) -> None:
        """All is done: 100 percent, whatever steps were planned."""
        if self.progress is None or self.progress.percent < 100:
            self._set_percent(100)

    def _set_percent(self, percent: int) -> None:
        try:
            self.database.set_progress(self.id, percent)
        except AccessLockError as error:  # the next percent will do; no reason to give up the work
            log(syslog.LOG_WARNING, f"{self.id}: {percent} percent not recorded: {error}")

    def notify(self, message_id: str, *args: object, kind: str = INFO) -> None:
        """Adds a notification to the record and a line to the log."""
        texts = [well_formed(arg) for arg in args]
        self.told.append(notification(kind, message_id, texts))
        self.database.add_notification(self.id, json.dumps(self.told[-1]))
        log(syslog.LOG_NOTICE, f"{self.id}: {catalogue.render(message_id, texts)}")


def log(priority: int, text: str) -> None:
    """One line of syslog; control characters are escaped so that it stays one."""
    syslog.syslog(priority, "".join(c if c.isprintable() else f"\\x{ord(c):02x}" for c in text))


def run(task_id: str, own_spec: bool, work: Callable[[Task], str], database: TaskManager,
        termination: Termination) -> int:
    """Runs `work` as the task `task_id` and returns the exit status.

    `work` gives the result's JSON text in the full form, empty for none. However it ends, the record is closed, the
    gate opened if it still names the task, and with `own_spec` the task's software spec file removed. An id that the
    database doesn't know ends the tool without a word: a new start of the daemon has forgotten the task.
    """
    runner = _Runner(task_id, own_spec, database, termination)
    termination.watch(lambda: runner.fail(TerminatedError()))
    try:
        return runner.run(work)
    finally:
        termination.over()
        runner.leave()


class _Runner:
    def __init__(self, task_id: str, own_spec: bool, database: TaskManager, termination: Termination) -> None:
        self._id = task_id
        self._own_spec = own_spec
        self._database = database
        self._termination = termination
        self._gate = Gate(task_id)
        self._ending = threading.Lock()
        self._ended = False

    def run(self, work: Callable[[Task], str]) -> int:
        try:
            if self._gate.owner() is None:
                self._database.get(self._id)
            self._gate.take_over()
            self._database.start_task(self._id)
            task = Task(self._id, self._database, self._termination)
            log(syslog.LOG_INFO, f"{self._id}: started")
            result = work(task)
            task.finish()
            return self._complete(result)
        except _FORGOTTEN:
            return EXIT_DONE
        except TaskDatabaseError as error:
            return self.fail(StateDirError(paths.TASK_DATABASE, error))
        except StowError as error:
            return self.fail(error)
        except OSError as error:
            return self.fail(StateDirError(error.filename or paths.STATE_DIR, error.strerror or error))
        except Exception as error:  # the record must tell of any failure, whatever it is
            return self.fail(_unexpected(error))

    def _complete(self, result: str) -> int:
        with self._ending:
            if self._ended:
                return EXIT_FAILED
            self.leave()
            self._database.complete_task(self._id, result)
            self._ended = True
        log(syslog.LOG_INFO, f"{self._id}: succeeded")
        return EXIT_DONE

    def fail(self, error: StowError) -> int:
        """Closes the record as FAILED, once; later calls do nothing."""
        with self._ending:
            if self._ended:
                return EXIT_FAILED
            self._ended = True
            self.leave()
            log(syslog.LOG_ERR, f"{self._id}: failed: {error}")
            try:
                self._database.fail_task_with_message(self._id, error.message_id, list(error.args))
            except _FORGOTTEN:
                pass
            except TaskDatabaseError as failure:
                log(syslog.LOG_ERR, f"{self._id}: can't record the failure: {failure}")
        return EXIT_FAILED

    def leave(self) -> None:
        """Removes what the task must not leave behind. The record is closed after it, so that a client that sees
        the end of the task can start the next one at once."""
        if self._own_spec:
            try:
                os.unlink(paths.spec_file(self._id))
            except OSError:
                pass
        self._gate.release()


def _unexpected(error: Exception) -> StowError:
    trace = sys.exc_info()[2]
    while trace is not None and trace.tb_next is not None:
        trace = trace.tb_next
    place = f" ({os.path.basename(trace.tb_frame.f_code.co_filename)}:{trace.tb_lineno})" if trace else ""
    return InternalError(f"{type(error).__name__}: {error}{place}")

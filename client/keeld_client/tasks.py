"""Tasks as a client sees them, and waiting for their end."""

from __future__ import annotations

import time
from collections.abc import Callable, Iterator
from dataclasses import dataclass, field
from typing import Any

ENDED = ("SUCCEEDED", "FAILED")


def message_text(message: Any) -> str:
    """The text of a message structure: localised where the daemon did that, else the default text."""
    if isinstance(message, str):
        return message
    if isinstance(message, dict):
        return str(message.get("localized") or message.get("default_message") or message.get("id") or "")
    return ""


@dataclass(frozen=True)
class Notification:
    """One remark of a task. level: "info", "warning" or "error"."""

    level: str
    id: str
    time: str
    text: str


@dataclass(frozen=True)
class Task:
    """A task's record as one poll saw it. `raw` is the whole structure in the direct JSON form."""

    id: str
    status: str
    operation: str = ""
    user: str = ""
    start_time: str = ""
    end_time: str = ""
    last_update: str = ""
    percent: int = 0
    notifications: tuple[Notification, ...] = ()
    result: Any = None
    error: Any = None
    raw: dict[str, Any] = field(default_factory=dict, repr=False, compare=False)

    @property
    def ended(self) -> bool:
        """Nothing will change any more."""
        return self.status in ENDED

    @property
    def error_text(self) -> str:
        """What the task says of its failure; empty for a task that has not failed."""
        if self.status != "FAILED":
            return ""
        messages = self.error.get("messages") if isinstance(self.error, dict) else None
        texts = [message_text(m) for m in messages or []]
        return "; ".join(t for t in texts if t) or "the task failed without telling why; see the system log"

    @staticmethod
    def from_info(task_id: str, info: dict[str, Any]) -> "Task":
        """From the structure that the task service answers with; missing fields stay empty."""
        progress = info.get("progress") or {}
        total = progress.get("total") or 0
        percent = int(100 * progress.get("completed", 0) / total) if total > 0 else 0
        return Task(
            id=task_id,
            status=str(info.get("status") or "PENDING"),
            operation=str(info.get("operation") or ""),
            user=str(info.get("user") or ""),
            start_time=str(info.get("start_time") or ""),
            end_time=str(info.get("end_time") or ""),
            last_update=str(info.get("last_update_time") or ""),
            percent=max(0, min(100, percent)),
            notifications=tuple(_notifications(info.get("notifications") or {})),
            result=info.get("result"),
            error=info.get("error"),
            raw=info,
        )


def _notifications(lists: dict[str, Any]) -> Iterator[Notification]:
    for key, level in (("info", "info"), ("warnings", "warning"), ("errors", "error")):
        for entry in lists.get(key) or []:
            yield Notification(level, str(entry.get("id", "")), str(entry.get("time", "")),
                               message_text(entry.get("message")))


def watch(poll: Callable[[], Task], interval: float = 0.25, longest: float = 2.0,
          sleep: Callable[[float], None] = time.sleep) -> Iterator[Task]:
    """Yields the task at once and then each time that it has changed, until it has ended.

    The pause between polls starts at `interval` seconds and grows to `longest` while nothing changes.
    """
    last: Task | None = None
    pause = interval
    while True:
        task = poll()
        if task != last:
            yield task
            last, pause = task, interval
        else:
            pause = min(longest, pause * 1.5)
        if task.ended:
            return
        sleep(pause)

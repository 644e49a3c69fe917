"""Standing in line behind the operation that runs."""

from __future__ import annotations

import datetime
import sys
import time
from collections.abc import Callable
from typing import TypeVar

from ..client import Client
from ..errors import ApiError
from ..tasks import Task

POLL_SECONDS, LONGEST_POLL_SECONDS = 1.0, 5.0
# Where nobody is seen in front: the daemon takes three seconds to refuse an attempt, and does nothing else meanwhile.
PAUSE_SECONDS, LONGEST_PAUSE_SECONDS = 4.0, 32.0
FRESH_SECONDS = 30.0  # what a tool may take to start; the record of one that never started stays pending

T = TypeVar("T")
Sleep = Callable[[float], None]


def stand_in_line(client: Client, start: Callable[[], T], sleep: Sleep = time.sleep,
                  clock: Callable[[], float] = time.time) -> T:
    """Calls `start`; while it is refused as busy, waits until no task runs or is about to, and calls it again."""
    pause = PAUSE_SECONDS
    told = False
    while True:
        try:
            return start()
        except ApiError as error:
            if not error.is_busy:
                raise
        if not told:
            print("another operation runs; waiting for its end (Ctrl-C gives up, nothing is started then)", file=sys.stderr)
            told = True
        if _wait_for_the_others(client, sleep, clock):
            pause = PAUSE_SECONDS
        else:
            sleep(pause)
            pause = min(LONGEST_PAUSE_SECONDS, pause * 2)


def _wait_for_the_others(client: Client, sleep: Sleep, clock: Callable[[], float]) -> bool:
    """Looks at the tasks until none is in front; False if none was at the first look, or looking isn't allowed."""
    seen = False
    pause = POLL_SECONDS
    while True:
        try:
            tasks = client.tasks().values()
        except ApiError:
            return False
        if not any(is_in_front(task, clock()) for task in tasks):
            return seen
        seen = True
        sleep(pause)
        pause = min(LONGEST_POLL_SECONDS, pause * 1.5)


def is_in_front(task: Task, now: float) -> bool:
    """The task runs, or was made so lately that its tool may be about to start."""
    if task.status != "PENDING":
        return task.status == "RUNNING"
    try:
        made = datetime.datetime.fromisoformat(task.last_update).timestamp()
    except ValueError:
        return False
    return abs(now - made) < FRESH_SECONDS

"""The task database: one record a task, shared by the daemon and its tools.

    with TaskManager("/var/orbane/lifecycle/task-status.json.db") as tasks:
        tasks.start_task(task_id)
        tasks.set_progress(task_id, 40)
        tasks.complete_task(task_id, '{"version":"2.0"}')

docs/task-database.md describes the file.
"""

from orbane_taskdb.errors import (
    AccessLockError,
    ParseError,
    TaskDatabaseError,
    TaskFileNotFoundError,
    UnknownTaskError,
)
from orbane_taskdb.manager import TaskInfo, TaskManager

__all__ = [
    "AccessLockError",
    "ParseError",
    "TaskDatabaseError",
    "TaskFileNotFoundError",
    "TaskInfo",
    "TaskManager",
    "UnknownTaskError",
]

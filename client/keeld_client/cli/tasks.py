"""keelctl tasks, and following a task for other commands."""

from __future__ import annotations

import argparse
import sys
from collections.abc import Callable

from .._generated import COMMANDS as OPERATIONS
from ..client import Client
from ..errors import KeeldError, TaskFailedError
from ..tasks import Task
from .command import Command, Option
from .output import ProgressView, clean, print_json, print_table
from .values import text


def run_list(client: Client, arguments: argparse.Namespace) -> int:
    tasks = client.tasks()
    if arguments.json:
        print_json({key: task.raw for key, task in tasks.items()})
        return 0
    order = sorted(tasks.values(), key=lambda task: (task.last_update, task.id))
    print_table(("TASK", "STATUS", "DONE", "STARTED", "ENDED"),
                [(t.id, t.status, f"{t.percent}%", t.start_time or "-", t.end_time or "-") for t in order])
    return 0


def run_get(client: Client, arguments: argparse.Namespace) -> int:
    task = client.task(arguments.task)
    if arguments.json:
        print_json(task.raw)
    else:
        show_task(task)
    return 0


def show_task(task: Task) -> None:
    """A task for people."""
    rows = [("task", task.id), ("status", f"{task.status} {task.percent}%"), ("started", task.start_time),
            ("ended", task.end_time), ("last change", task.last_update), ("user", task.user),
            ("error", task.error_text)]
    for name, value in rows:
        if value:
            print(f"{name + ':':<13}{clean(value)}")
    for note in task.notifications:
        print(f"{note.level + ':':<13}{clean(note.text)}")
    if task.result is not None:
        print("result:")
        print_json(task.result)


def run_watch(client: Client, arguments: argparse.Namespace) -> int:
    return _to_its_end(client, arguments.task, arguments, "task", lambda _task: None)


def run_cancel(client: Client, arguments: argparse.Namespace) -> int:
    task = client.task(arguments.task)
    if task.ended:
        print(f"keelctl: task {task.id} has already ended as {task.status}", file=sys.stderr)
        return 0
    client.cancel(arguments.task)
    if not task.operation or task.operation == "unknown":
        print(f"keelctl: task {task.id} is run by a tool of its own and can't be cancelled; it goes on.\n"
              f"Follow it with: keelctl tasks watch {task.id}", file=sys.stderr)
        return 4
    print(f"asked task {task.id} to stop; see: keelctl tasks watch {task.id}")
    return 0


def finish(client: Client, task_id: str, arguments: argparse.Namespace, title: str, show: Callable[[Task], None]) -> int:
    """What a command does with the task that it has started: prints the id for --no-wait, else follows it to its end.

    `show` prints the result for people. Raises TaskFailedError.
    """
    if arguments.no_wait:
        print_json({"task": task_id}) if arguments.json else print(clean(task_id))
        return 0
    return _to_its_end(client, task_id, arguments, title, show)


def _to_its_end(client: Client, task_id: str, arguments: argparse.Namespace, title: str,
                show: Callable[[Task], None]) -> int:
    task = follow(client, task_id, title, quiet=arguments.json)
    if task is None:
        return 130
    if arguments.json:
        print_json(task.raw)
    if task.status == "FAILED":
        raise TaskFailedError(task_id, task.error_text, task.raw)
    if not arguments.json:
        show(task)
    return 0


def follow(client: Client, task_id: str, title: str, quiet: bool = False) -> Task | None:
    """Shows a task's progress to its end and returns it. Ctrl-C detaches: None, and how to look again."""
    view = ProgressView(title, quiet=quiet)
    task: Task | None = None
    try:
        for task in client.watch(task_id):
            view.update(task)
    except KeyboardInterrupt:
        view.close()
        print(f"detached; task {task_id} goes on. Look again with: keelctl tasks watch {task_id}", file=sys.stderr)
        return None
    view.close()
    return task


def running(client: Client) -> Task | None:
    """The task that holds up others: the last started of those that haven't ended, by what the daemon knows."""
    open_tasks = [task for task in client.tasks().values() if task.status == "RUNNING"]
    return max(open_tasks, key=lambda task: task.start_time, default=None)


def explain_busy(client: Client) -> None:
    """After a busy answer: which task runs, since when, and how far it is."""
    try:
        task = running(client)
    except KeeldError:
        return
    if task is not None:
        print(f"keelctl: task {task.id} runs since {task.start_time}, {task.percent}% done; "
              f"--wait stands in line behind it", file=sys.stderr)


GROUPS = {("tasks",): "The tasks that operations have started."}
_TASK = (Option("task", "the task's id", "TASK", parse=text),)
COMMANDS = (
    Command(("tasks", "list"), "Lists all tasks since the daemon's start.", (), run_list, OPERATIONS["tasks", "list"]),
    Command(("tasks", "get"), "Describes a task.", _TASK, run_get, OPERATIONS["tasks", "get"]),
    Command(("tasks", "watch"), "Follows a task to its end.", _TASK, run_watch),
    Command(("tasks", "cancel"), "Asks a task to end early.", _TASK, run_cancel, OPERATIONS["tasks", "cancel"]),
)

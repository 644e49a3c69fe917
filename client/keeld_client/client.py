"""The daemon's operations as Python methods."""

from __future__ import annotations

from collections.abc import Callable, Iterable, Iterator
from typing import Any

from .errors import TaskFailedError
from .tasks import Task, watch
from .transport import Transport

TASKS = "com.orbane.halo.tasks"
SOFTWARE = "com.orbane.ryn.keel_daemon.software"
COMPONENTS = "com.orbane.ryn.hosts.software.components"
IMAGE = "com.orbane.ryn.hosts.software.ryn"


def software_spec(base_version: str = "", components: dict[str, str] | None = None,
                  solutions: dict[str, Any] | None = None) -> dict[str, Any]:
    """A desired image: an empty base version keeps the deployed base."""
    spec: dict[str, Any] = {"base_image": {"version": base_version}}
    if components:
        spec["components"] = dict(components)
    if solutions:
        spec["solutions"] = dict(solutions)
    return spec


class Client:
    """A connection to the daemon of this host. Use as a context manager, from one thread at a time.

    `options` are those of Transport; `credentials` say who calls, without them introspection alone is allowed.

    Methods raise errors.ApiError for an error answer and errors.UnreachableError when no daemon answers. Methods that
    start work return the task's id at once; see wait().
    """

    def __init__(self, transport: Transport | None = None, **options: Any) -> None:
        self._transport = transport or Transport(**options)

    def __enter__(self) -> "Client":
        return self

    def __exit__(self, *_exc: object) -> None:
        self._transport.close()

    def call(self, method: str, params: dict[str, Any] | None = None) -> Any:
        """Any operation by its full identifier; the result in the direct JSON form."""
        return self._transport.call(method, params)

    def scan(self, spec: dict[str, Any], depots: Iterable[str], quick_patch: bool = False) -> str:
        """Starts a comparison of the host's image with `spec`; the task's result says what differs."""
        return self._software("scan", spec, depots, quick_patch)

    def stage(self, spec: dict[str, Any], depots: Iterable[str]) -> str:
        """Starts pulling what `spec` needs, without changing the image in use."""
        return self._software("stage", spec, depots, False)

    def apply(self, spec: dict[str, Any], depots: Iterable[str], quick_patch: bool = False) -> str:
        """Starts deploying `spec`."""
        return self._software("apply", spec, depots, quick_patch)

    def _software(self, operation: str, spec: dict[str, Any], depots: Iterable[str], quick_patch: bool) -> str:
        params: dict[str, Any] = {"software_spec": spec, "depots": list(depots)}
        if quick_patch:
            params["quick_patch"] = True
        return str(self.call(f"{SOFTWARE}.{operation}", params))

    def task(self, task_id: str) -> Task:
        """One task as it stands now."""
        return Task.from_info(task_id, self.call(f"{TASKS}.get", {"task": task_id}))

    def tasks(self) -> dict[str, Task]:
        """All tasks since the daemon's start, by id."""
        return {key: Task.from_info(key, info) for key, info in (self.call(f"{TASKS}.list") or {}).items()}

    def cancel(self, task_id: str) -> None:
        """Asks a task to stop. Only tasks that run inside the daemon can; the others go on."""
        self.call(f"{TASKS}.cancel", {"task": task_id})

    def watch(self, task_id: str, **options: Any) -> Iterator[Task]:
        """Yields the task whenever it has changed, until its end; options as tasks.watch takes them."""
        return watch(lambda: self.task(task_id), **options)

    def wait(self, task_id: str, on_change: Callable[[Task], None] | None = None, **options: Any) -> Task:
        """Waits for the task's end and returns it; raises TaskFailedError when it failed."""
        task: Task | None = None
        for task in self.watch(task_id, **options):
            if on_change:
                on_change(task)
        assert task is not None  # watch yields at least once
        if task.status == "FAILED":
            raise TaskFailedError(task_id, task.error_text, task.raw)
        return task

    def components(self) -> list[dict[str, Any]]:
        """The components of the deployed image."""
        return list(self.call(f"{COMPONENTS}.list") or [])

    def component(self, name: str) -> dict[str, Any]:
        """One component of the deployed image."""
        return dict(self.call(f"{COMPONENTS}.get", {"component": name}))

    def image(self) -> dict[str, Any]:
        """The deployed base image."""
        return dict(self.call(f"{IMAGE}.get"))

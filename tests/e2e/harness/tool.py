"""Stand-ins for the image manager, so that a test decides what the forked tool does."""

from __future__ import annotations

import pathlib
import textwrap

from harness.waiting import wait_for

TOOL = pathlib.Path("/usr/lib/orbane/lifecycle/bin/stowctl.py")
GATE = pathlib.Path("/var/orbane/lifecycle/lifecycle.task")
_CALLS = pathlib.Path("/run/fake-tool.calls")
_GO = pathlib.Path("/run/fake-tool.go")

# What every stand-in begins with: the names a script can use.
_PRELUDE = f'''#!/usr/bin/python3
import json, os, pathlib, signal, sys, time
sys.path.insert(0, "/usr/lib/orbane/python")
from orbane_taskdb import TaskManager
ARGS = sys.argv[1:]
TASK = ARGS[ARGS.index("--task-id") + 1] if "--task-id" in ARGS else ""
GATE = pathlib.Path({str(GATE)!r})
DB = TaskManager("/var/orbane/lifecycle/task-status.json.db")
with open({str(_CALLS)!r}, "a") as calls:
    calls.write(json.dumps({{"pid": os.getpid(), "args": ARGS}}) + "\\n")
def take_gate():
    GATE.write_text(f"TASK: {{TASK}} {{os.getpid()}}")
def leave_gate():
    GATE.unlink(missing_ok=True)
def wait_for_go():
    while not os.path.exists({str(_GO)!r}):
        time.sleep(0.005)
'''


class FakeTool:
    """Installs scripts in the tool's place. In a script stand `ARGS`, `TASK` (id), `DB` (the task database), `GATE`,
    `take_gate()`, `leave_gate()` and `wait_for_go()`, which returns after `go()`."""

    def __init__(self) -> None:
        self._original = TOOL.read_bytes() if TOOL.exists() else None
        _CALLS.unlink(missing_ok=True)
        _GO.unlink(missing_ok=True)

    def install(self, script: str) -> None:
        """Puts `script` in the tool's place."""
        TOOL.parent.mkdir(parents=True, exist_ok=True)
        TOOL.write_text(_PRELUDE + textwrap.dedent(script))
        TOOL.chmod(0o755)

    def go(self) -> None:
        """Lets scripts that wait in `wait_for_go` go on."""
        _GO.touch()

    def calls(self) -> list[dict[str, object]]:
        """The calls so far: `pid` and `args` (the words behind the tool's path) each."""
        import json

        lines = _CALLS.read_text().splitlines() if _CALLS.exists() else []
        return [json.loads(line) for line in lines]

    def wait_for_call(self, count: int = 1) -> dict[str, object]:
        """Waits for the `count`th call and returns it."""
        return wait_for(lambda: self.calls() if len(self.calls()) >= count else [], f"call {count} of the tool")[count - 1]

    def restore(self) -> None:
        """Puts the real tool back."""
        if self._original is not None:
            TOOL.write_bytes(self._original)
            TOOL.chmod(0o755)
        elif TOOL.exists():
            TOOL.unlink()

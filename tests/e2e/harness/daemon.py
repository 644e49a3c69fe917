"""The daemon as a process of the sandbox."""

from __future__ import annotations

import os
import pathlib
import signal
import subprocess
from typing import Any

from harness.waiting import PATIENCE, wait_for
from harness.wire import is_listening

PROGRAM = pathlib.Path("/usr/sbin/keeld")
OUTPUT = pathlib.Path("/run/keeld.output")


class Daemon:
    """Starts and stops `keeld`; `process` is the last one started."""

    def __init__(self) -> None:
        self.process: subprocess.Popen[bytes] | None = None

    def launch(self, **options: Any) -> None:
        """Starts the process and returns at once; `options` go to `subprocess.Popen`."""
        assert not self.running, "the daemon is already running"
        with OUTPUT.open("ab") as output:
            self.process = subprocess.Popen([str(PROGRAM)], stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                                            start_new_session=True, cwd="/", **options)

    def start(self, **options: Any) -> "Daemon":
        """Starts the process and returns when its port is open."""
        self.launch(**options)

        def open_or_dead() -> bool:
            assert self.running, f"the daemon ended at start: {self.output()}"
            return is_listening()

        wait_for(open_or_dead, "the daemon's port")
        return self

    def stop(self) -> int:
        """Sends SIGTERM and returns the exit status, negative for a signal."""
        assert self.process is not None
        self.process.send_signal(signal.SIGTERM)
        return self.process.wait(PATIENCE)

    def kill(self) -> None:
        """Ends the process without giving it a chance."""
        if self.process is not None and self.running:
            self.process.kill()
            self.process.wait(PATIENCE)

    def restart(self) -> "Daemon":
        """An orderly stop, then a start."""
        assert self.stop() == 0, self.output()
        return self.start()

    @property
    def running(self) -> bool:
        """True while the process lives."""
        return self.process is not None and self.process.poll() is None

    @property
    def pid(self) -> int:
        """The process id."""
        assert self.process is not None
        return self.process.pid

    def output(self) -> str:
        """All that the daemon wrote to its standard streams in this test."""
        return OUTPUT.read_text(errors="replace") if OUTPUT.exists() else ""


_BYSTANDERS: set[int] = set()


def remember_bystanders() -> None:
    """Takes all processes that run now as no business of the tests, such as the rest of a pipeline."""
    _BYSTANDERS.update(processes())


def processes() -> dict[int, list[str]]:
    """Command lines by id of the sandbox's processes that tests may have started."""
    keep = _BYSTANDERS | {1}
    pid = os.getpid()
    while pid > 1:
        keep.add(pid)
        pid = int(pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[1])
    found = {}
    for folder in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            words = (folder / "cmdline").read_bytes().decode(errors="replace").split("\0")[:-1]
        except OSError:
            continue
        if int(folder.name) not in keep and words and "rsyslogd" not in words[0]:
            found[int(folder.name)] = words
    return found

#!/usr/bin/python3
"""stowctl with a stop in it: `paused_stowctl.py POINT words…` makes /run/paused.PID before it calls the function POINT
(module of orbane_stow and name, or a full dotted name of orbane_taskdb) and waits for /run/released.PID.

/run/requested.PID appears when a signal has come. The word --no-grace is taken off: a signal then ends work at once.
"""

import functools
import importlib
import os
import signal
import sys
import time

signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT})
sys.path.insert(0, "/usr/lib/orbane/python")

from orbane_stow import cli, termination  # noqa: E402


def _pause_before(point: str) -> None:
    names = point.split(".")
    if names[0] != "orbane_taskdb":
        names = ["orbane_stow." + names[0], *names[1:]]
    owner = importlib.import_module(names[0])
    for name in names[1:-1]:
        owner = getattr(owner, name)
    original = getattr(owner, names[-1])

    @functools.wraps(original)
    def paused(*args, **kwargs):
        open(f"/run/paused.{os.getpid()}", "w").close()
        while not os.path.exists(f"/run/released.{os.getpid()}"):
            time.sleep(0.002)
        return original(*args, **kwargs)

    setattr(owner, names[-1], paused)


def _tell_of_requests() -> None:
    original = termination.Termination.request

    def request(self):
        original(self)
        open(f"/run/requested.{os.getpid()}", "w").close()

    termination.Termination.request = request


if __name__ == "__main__":
    words = sys.argv[2:]
    if "--no-grace" in words:
        words.remove("--no-grace")
        init = termination.Termination.__init__
        init.__defaults__ = (0.0, *init.__defaults__[1:])  # grace_seconds comes first
    _pause_before(sys.argv[1])
    _tell_of_requests()
    sys.exit(cli.main(words))

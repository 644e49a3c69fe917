"""Orderly end on a signal.

Signals that would end the process are blocked in every thread and taken by one thread of their own, since a Python
handler could not run while the main thread is inside libostree. That thread cancels the running work; if the work
doesn't come to an end within the grace period, it closes the task itself and ends the process.
"""

from __future__ import annotations

import os
import signal
import threading
from typing import Callable

from orbane_stow.errors import TerminatedError

SIGNALS = frozenset({
    signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT, signal.SIGUSR1, signal.SIGUSR2, signal.SIGALRM,
    signal.SIGXCPU,
})
GRACE_SECONDS = 2.0  # libostree does not look at a cancellation while it waits for the network
EXIT_STATUS = 1


def block() -> None:
    """Holds the signals back until `Termination.watch`. Call it before any thread exists."""
    signal.pthread_sigmask(signal.SIG_BLOCK, SIGNALS)


class Termination:
    """What the work knows of a signal: `requested`, and callbacks that wake blocking calls."""

    def __init__(self, grace_seconds: float = GRACE_SECONDS) -> None:
        self._requested = threading.Event()
        self._guard = threading.Lock()
        self._cancels: list[Callable[[], None]] = []
        self._grace_seconds = grace_seconds
        self._over = threading.Event()
        self._shielded = False

    @property
    def requested(self) -> bool:
        """Whether a signal has come."""
        return self._requested.is_set()

    def check(self) -> None:
        """Raises `TerminatedError` once a signal has come."""
        if self.requested:
            raise TerminatedError()

    def on_request(self, cancel: Callable[[], None]) -> None:
        """Calls `cancel` from the signal thread when a signal comes, or at once when one has come."""
        with self._guard:
            self._cancels.append(cancel)
            if not self.requested:
                return
        cancel()

    def shield(self) -> None:
        """From here on the work is short and must not be cut: a signal no longer ends the process.

        Raises `TerminatedError` if a signal has come already.
        """
        with self._guard:
            if self.requested:
                raise TerminatedError()
            self._shielded = True

    def over(self) -> None:
        """The work has ended: nothing is left to close."""
        self._over.set()

    def watch(self, close: Callable[[], None]) -> None:
        """Starts the signal thread. `close` records the failure when the work doesn't end within the grace period."""
        threading.Thread(target=self._wait, args=(close,), name="signals", daemon=True).start()

    def _wait(self, close: Callable[[], None]) -> None:
        signal.sigwait(SIGNALS)
        self.request()
        if self._shielded or self._over.wait(self._grace_seconds):
            return
        close()
        os._exit(EXIT_STATUS)

    def request(self) -> None:
        """What a signal does: remembers it and wakes the work."""
        with self._guard:
            self._requested.set()
            cancels = list(self._cancels)
        for cancel in cancels:
            cancel()

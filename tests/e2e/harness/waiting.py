"""Waiting for conditions instead of sleeping for times."""

from __future__ import annotations

import time
from collections.abc import Callable
from typing import TypeVar

T = TypeVar("T")

#: Seconds after which a wait has failed: long enough for a sanitizer build on a busy machine.
PATIENCE = 60.0
_INTERVAL = 0.005


def wait_for(probe: Callable[[], T], what: str, patience: float = PATIENCE) -> T:
    """Calls `probe` until it gives something true, and returns that.

    Raises AssertionError naming `what` after `patience` seconds.
    """
    deadline = time.monotonic() + patience
    while True:
        value = probe()
        if value:
            return value
        if time.monotonic() > deadline:
            raise AssertionError(f"waited {patience:g} s in vain for {what}")
        time.sleep(_INTERVAL)

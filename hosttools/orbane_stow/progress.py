"""Progress of a task in percent, made of weighted steps."""

from __future__ import annotations

from typing import Callable


class Progress:
    """Turns the share done of each step into one percentage that never falls.

    `report` gets a whole number from 0 to 100, only when it has grown. `weights` are the shares of the steps in
    order, in any unit; their sum is 100 percent.
    """

    def __init__(self, report: Callable[[int], None], weights: dict[str, int]) -> None:
        self._report = report
        self._total = sum(weights.values())
        self._start: dict[str, int] = {}
        self._weights = weights
        begin = 0
        for name, weight in weights.items():
            self._start[name] = begin
            begin += weight
        self._percent = 0

    @property
    def percent(self) -> int:
        """What was reported last."""
        return self._percent

    def step(self, name: str, done: float = 1, needed: float = 1) -> None:
        """`done` of `needed` units of the step are through, and all steps before it; nothing needed means all."""
        share = 1.0 if needed <= 0 else min(max(done / needed, 0.0), 1.0)
        percent = int(100 * (self._start[name] + self._weights[name] * share) / self._total)
        if percent > self._percent:
            self._percent = percent
            self._report(percent)

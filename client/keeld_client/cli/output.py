"""What keelctl shows: progress, tables, JSON, messages."""

from __future__ import annotations

import json
import shutil
import sys
from collections.abc import Sequence
from typing import Any, TextIO

from ..tasks import Task

BAR_WIDTH = 30


def print_json(value: Any, stream: TextIO | None = None) -> None:
    """One JSON document on standard output, for programs to read."""
    json.dump(value, stream or sys.stdout, indent=2, ensure_ascii=False)
    (stream or sys.stdout).write("\n")


def clean(text: str) -> str:
    """Text of others without control characters, so that it can't steer the terminal."""
    return "".join(c if c.isprintable() else "?" for c in text)


def print_table(header: Sequence[str], rows: Sequence[Sequence[str]], stream: TextIO | None = None) -> None:
    """Columns as wide as their widest cell."""
    out = stream or sys.stdout
    table = [list(header)] + [[clean(cell) for cell in row] for row in rows]
    widths = [max(len(row[i]) for row in table) for i in range(len(header))]
    for row in table:
        print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip(), file=out)


class ProgressView:
    """Shows a task's way: a bar that is redrawn on a terminal, a line a change elsewhere.

    Writes to standard error, so that standard output holds results only. Notifications are shown once each.
    """

    def __init__(self, title: str, stream: TextIO | None = None, quiet: bool = False) -> None:
        self._title = title
        self._stream = stream or sys.stderr
        self._terminal = self._stream.isatty()
        self._quiet = quiet
        self._shown = 0
        self._last = ""
        self._open = False

    def update(self, task: Task) -> None:
        """Takes the task as it stands now."""
        if self._quiet:
            return
        for note in task.notifications[self._shown:]:
            self._line(f"  {note.level}: {clean(note.text)}")
        self._shown = max(self._shown, len(task.notifications))
        state = f"{self._title}: {task.status.lower()}"
        if not self._terminal:
            text = f"{state} {task.percent}%" if task.status != "PENDING" else state
            if text != self._last:
                self._line(text)
                self._last = text
            return
        filled = BAR_WIDTH * task.percent // 100
        bar = "#" * filled + "-" * (BAR_WIDTH - filled)
        width = shutil.get_terminal_size().columns
        self._stream.write("\r\x1b[K" + f"{self._title} [{bar}] {task.percent:3d}% {task.status.lower()}"[:width - 1])
        self._stream.flush()
        self._open = True

    def _line(self, text: str) -> None:
        if self._open:
            self._stream.write("\r\x1b[K")
            self._open = False
        print(text, file=self._stream, flush=True)

    def close(self) -> None:
        """Ends the line of the bar."""
        if self._open:
            self._stream.write("\n")
            self._stream.flush()
            self._open = False

"""What keelctl shows: progress, tables, JSON, messages."""

from __future__ import annotations

import json
import re
import shutil
import sys
from collections.abc import Sequence
from typing import Any, TextIO

from ..tasks import Task

BAR_WIDTH = 30
# Control characters that JSON lets stand, marks that turn the direction of writing, halves of surrogate pairs.
_UNSHOWABLE = re.compile("[\x7f-\x9f\u200e\u200f\u202a-\u202e\u2066-\u2069\ud800-\udfff]")


def print_json(value: Any, stream: TextIO | None = None) -> None:
    """One JSON document on standard output, for programs to read, with all that could steer a terminal escaped."""
    text = json.dumps(value, indent=2, ensure_ascii=False)
    (stream or sys.stdout).write(_UNSHOWABLE.sub(lambda found: f"\\u{ord(found[0]):04x}", text) + "\n")


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


def print_record(record: dict[str, Any]) -> None:
    """A structure for people: a line a field, those that are unset left out."""
    for name, value in record.items():
        if isinstance(value, (dict, list)):
            print(f"{clean(name)}:")
            print_json(value)
        elif value not in (None, ""):
            print(f"{clean(name).replace('_', ' ') + ':':<16}{_cell(value)}")


def print_value(value: Any) -> None:
    """Any result for people: a structure by its fields, structures of one kind as a table, nothing as "done"."""
    if value is None:
        print("done")
    elif isinstance(value, dict):
        print_record(value)
    elif isinstance(value, list) and value and all(isinstance(row, dict) for row in value):
        names = list(dict.fromkeys(name for row in value for name, cell in row.items() if not isinstance(cell, (dict, list))))
        print_table([clean(name).replace("_", " ").upper() for name in names],
                    [[_cell(row.get(name, "")) for name in names] for row in value])
    elif isinstance(value, list):
        for entry in value:
            print(json.dumps(entry) if isinstance(entry, list) else _cell(entry))
    else:
        print(_cell(value))


def _cell(value: Any) -> str:
    return clean(value) if isinstance(value, str) else json.dumps(value)


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

"""Texts of the tool's messages, from the same catalogue that the daemon reads.

Line form: `id = "text {1}"`; `#` begins a comment line; \\" and \\\\ and \\n are the escapes.
"""

from __future__ import annotations

import re
from functools import lru_cache
from pathlib import Path
from typing import Sequence

from orbane_stow import paths

FILE_NAMES = ("stow.omsg", "tasks.omsg")
UNKNOWN = "Unknown message."
_LINE = re.compile(r'^\s*([A-Za-z0-9_.-]+)\s*=\s*"((?:[^"\\]|\\.)*)"\s*$')
_ESCAPE = re.compile(r"\\(.)")
_ARGUMENT = re.compile(r"\{(\d+)\}")


def parse(text: str) -> dict[str, str]:
    """All entries of a catalogue; lines of another form are passed over."""
    entries = {}
    for line in text.splitlines():
        match = _LINE.match(line)
        if match:
            entries[match[1]] = _ESCAPE.sub(lambda m: "\n" if m[1] == "n" else m[1], match[2])
    return entries


def _folders() -> list[Path]:
    """The installed catalogues, then those of a source tree that the package runs from."""
    return [paths.CATALOGUE_DIR, Path(__file__).resolve().parents[2] / "catalogues" / "en"]


@lru_cache(maxsize=1)
def _entries() -> dict[str, str]:
    entries: dict[str, str] = {}
    for folder in reversed(_folders()):
        for name in FILE_NAMES:
            try:
                entries.update(parse((folder / name).read_text(encoding="utf-8")))
            except OSError:
                continue
    return entries


def template(message_id: str) -> str:
    """The text of a message with its {1}, {2} … still in it; "Unknown message." where the id has no entry."""
    return _entries().get(message_id, UNKNOWN)


def render(message_id: str, args: Sequence[str]) -> str:
    """The text of a message with its arguments filled in; an argument that is missing leaves its place as it is."""

    def fill(match: re.Match[str]) -> str:
        index = int(match[1]) - 1
        return args[index] if 0 <= index < len(args) else match[0]

    return _ARGUMENT.sub(fill, template(message_id))

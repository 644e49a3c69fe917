"""Writes generated files; one whose content stays the same is left alone, so that nothing is rebuilt for it."""

from __future__ import annotations

import os
from pathlib import Path


def write_changed(root: Path, files: dict[str, str]) -> list[str]:
    """Writes what differs, each file in one step; returns the names of those."""
    changed = []
    for name, content in sorted(files.items()):
        path = root / name
        data = content.encode("utf-8")
        if path.is_file() and path.read_bytes() == data:
            continue
        path.parent.mkdir(parents=True, exist_ok=True)
        beside = path.with_name(path.name + f".{os.getpid()}.new")
        beside.write_bytes(data)
        beside.replace(path)
        changed.append(name)
    return changed

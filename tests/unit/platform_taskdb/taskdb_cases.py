"""The C++ library as a command, and small helpers of the tests."""

import os
import sqlite3
import subprocess
import sys
from pathlib import Path
from typing import Dict, List, Union

ROOT = Path(__file__).resolve().parents[3]
HELPER = Path(os.environ.get("KEELD_BUILD", ROOT / "build/dev")) / "tests/unit/platform_taskdb/taskdb_helper"
PYTHON_MODULE = ROOT / "platform/taskdb/python"
sys.path.insert(0, str(PYTHON_MODULE))

from orbane_taskdb import TaskInfo  # noqa: E402

LOCKED, NOT_FOUND, NOT_READABLE, OTHER = 10, 11, 12, 13


def hexadecimal(text: Union[str, bytes]) -> str:
    raw = text.encode() if isinstance(text, str) else text
    return raw.hex() or "-"


def run(path: Path, *words: str, code: int = 0) -> str:
    """Does one operation with the C++ library and gives what it prints."""
    done = subprocess.run([str(HELPER), str(path), *words], capture_output=True, text=True, check=False)
    assert done.returncode == code, (words, done.returncode, done.stderr)
    return done.stdout if code == 0 else done.stderr


def _field(word: str) -> Union[str, bytes]:
    raw = b"" if word == "-" else bytes.fromhex(word)
    try:
        text = raw.decode()
    except UnicodeDecodeError:
        return raw
    return raw if "\0" in text else text


def parse_record(line: str) -> TaskInfo:
    words = line.split()
    values: List[Union[str, bytes, int]] = [_field(word) for word in words[:12]]
    values[7], values[8] = int(str(values[7])), int(str(values[8]))
    info = TaskInfo(*values)  # type: ignore[arg-type]
    count = int(words[12])
    info.error_args = [str(_field(word)) for word in words[13 : 13 + count]]
    info.notifications = [_field(word) for word in words[14 + count :]]
    assert len(info.notifications) == int(words[13 + count])
    return info


def listed(path: Path) -> Dict[str, TaskInfo]:
    """What the C++ library lists."""
    records = [parse_record(line) for line in run(path, "list").splitlines()]
    return {record.id: record for record in records}


def integrity(path: Path) -> str:
    with sqlite3.connect(path) as database:
        return str(database.execute("PRAGMA integrity_check").fetchone()[0])

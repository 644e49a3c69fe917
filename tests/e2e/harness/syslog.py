"""Reading the sandbox's system log."""

from __future__ import annotations

import pathlib
import re
from dataclasses import dataclass

from harness.waiting import wait_for

LOG = pathlib.Path("/var/log/keeld.log")
_LINE = re.compile(r"(?P<time>\S+) (?P<facility>\w+)\.(?P<severity>\w+) (?P<tag>[^:\[ ]+)(?:\[\d+\])?:? ?(?P<text>.*)")


@dataclass(frozen=True)
class Entry:
    """One line: severities by their syslog names (`err`, `warning`, `notice`, `info`, `debug`)."""

    facility: str
    severity: str
    tag: str
    text: str


def entries_of(path: pathlib.Path, start: int, tag: str) -> list[Entry]:
    """All complete lines of the given tag in the file `path` from the byte `start` on."""
    if not path.exists():
        return []
    with path.open("rb") as file:
        file.seek(start)
        text = file.read().decode("utf-8", "replace")
    found = []
    for line in text.split("\n")[:-1]:
        match = _LINE.fullmatch(line)
        assert match, f"not a line of the system log: {line!r}"
        if match["tag"] == tag:
            found.append(Entry(match["facility"], match["severity"], match["tag"], match["text"]))
    return found


class SystemLog:
    """The lines that came since this object was made."""

    def __init__(self) -> None:
        self._start = LOG.stat().st_size if LOG.exists() else 0

    def entries(self, tag: str = "keeld") -> list[Entry]:
        """All complete lines of the given tag."""
        return entries_of(LOG, self._start, tag)

    def texts(self) -> list[str]:
        """The daemon's texts."""
        return [entry.text for entry in self.entries()]

    def find(self, pattern: str) -> list[Entry]:
        """The daemon's entries whose text the regular expression is found in."""
        return [entry for entry in self.entries() if re.search(pattern, entry.text)]

    def wait(self, pattern: str, count: int = 1) -> list[Entry]:
        """Waits until `find` gives `count` entries or more."""
        def enough() -> list[Entry]:
            found = self.find(pattern)
            return found if len(found) >= count else []

        try:
            return wait_for(enough, f"{count} log lines with {pattern!r}")
        except AssertionError as error:
            raise AssertionError(f"{error}; the log holds:\n" + "\n".join(self.texts()[-40:])) from None

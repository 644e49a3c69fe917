"""Reading the audit events in the sandbox's system log."""

from __future__ import annotations

import json
import pathlib
from dataclasses import dataclass, field

from harness.syslog import entries_of
from harness.waiting import wait_for

LOG = pathlib.Path("/var/log/auth.log")
MARKER = pathlib.Path("/var/run/orbane/AuditApiCallEnabled")  # with it at start, calls as a whole are audited too


@dataclass(frozen=True)
class AuditEvent:
    """One event."""

    event: str
    subject: str
    object: str
    result: bool
    items: dict[str, str] = field(default_factory=dict)


class AuditLog:
    """The daemon's events that came since this object was made."""

    def __init__(self) -> None:
        self._start = LOG.stat().st_size if LOG.exists() else 0

    def lines(self) -> list[str]:
        """The texts of the events, each checked to be one JSON object in printable ASCII with its facility and severity."""
        found = []
        for entry in entries_of(LOG, self._start, "keeld"):
            if not entry.text.startswith("{"):  # PAM's own words come under the daemon's name too
                continue
            assert entry.text.isascii() and entry.text.isprintable(), entry.text
            severity = "notice" if json.loads(entry.text)["result"] else "warning"
            assert (entry.facility, entry.severity) == ("authpriv", severity), entry
            found.append(entry.text)
        return found

    def events(self) -> list[AuditEvent]:
        """All events so far."""
        found = []
        for line in self.lines():
            members = json.loads(line)
            assert list(members) == ["event", "subject", "object", "result", "items"], line
            found.append(AuditEvent(**members))
        return found

    def wait(self, count: int) -> list[AuditEvent]:
        """Waits for `count` events; returns all, which may be more."""
        def enough() -> list[AuditEvent]:
            found = self.events()
            return found if len(found) >= count else []

        if count == 0:
            return self.events()
        try:
            return wait_for(enough, f"{count} audit events")
        except AssertionError as error:
            raise AssertionError(f"{error}; there are:\n" + "\n".join(self.lines())) from None

"""What a depot may be called."""

from __future__ import annotations

from collections.abc import Iterable

from .usage import UsageError


def check_depots(depots: Iterable[str]) -> None:
    """Depot URLs are written to logs whole, so they may hold no credentials. Raises UsageError."""
    for depot in depots:
        scheme, separator, rest = depot.partition("://")
        if "@" in (rest if separator else depot).partition("/")[0]:
            raise UsageError("a depot URL may hold no user name or password")
        if not separator or not scheme:
            raise UsageError(f"a depot is a URL such as file:///srv/depot, not {depot!r}")

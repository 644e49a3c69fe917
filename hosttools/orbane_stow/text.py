"""Small forms of text for messages."""

from __future__ import annotations


def size_text(count: int) -> str:
    """A number of bytes for people: "512 bytes", "3.4 MB" (powers of ten)."""
    if count < 1000:
        return f"{count} bytes"
    value = float(count)
    for unit in ("kB", "MB", "GB"):
        value /= 1000
        if value < 999.95:
            return f"{value:.1f} {unit}"
    return f"{value / 1000:.1f} TB"

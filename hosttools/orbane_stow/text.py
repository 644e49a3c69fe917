"""Small forms of text for messages."""

from __future__ import annotations


def well_formed(value: object) -> str:
    """`str(value)` fit for the task record: what isn't Unicode (bytes of a command line, say) is written as escapes."""
    return str(value).encode("utf-8", "backslashreplace").decode("utf-8").replace("\0", "\\x00")


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

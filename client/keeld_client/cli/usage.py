"""What a command line can be wrong in beyond what its parser sees."""

from __future__ import annotations


class UsageError(Exception):
    """The command line asks for something that can't be."""

"""Failures of the depot builder."""

from __future__ import annotations


class DepotError(Exception):
    """What is wrong, in words for the terminal."""

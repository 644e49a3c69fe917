"""The acceptance level of the host: the lowest that a pak of its image may have.

A line with one of `ACCEPTANCE_LEVELS` in a file of the host's state, which outlives every image. Without the file all
levels are good enough.
"""

from __future__ import annotations

import os

from orbane_stow import paths
from orbane_stow.composition import Composition
from orbane_stow.errors import AcceptanceError, AcceptanceFileError
from orbane_stow.parts import ACCEPTANCE_LEVELS, Part

DEFAULT_LEVEL = ACCEPTANCE_LEVELS[-1]
_READ_LIMIT = 64  # bytes; more than any level takes


def read_level() -> str:
    """The level that was set last. Raises `AcceptanceFileError` for a file that can't be read or holds no level."""
    path = paths.ACCEPTANCE_FILE
    try:
        descriptor = os.open(path, os.O_RDONLY | os.O_NOFOLLOW | os.O_CLOEXEC | os.O_NONBLOCK)
        with os.fdopen(descriptor, "rb") as file:
            content = file.read(_READ_LIMIT)
    except FileNotFoundError:
        return DEFAULT_LEVEL
    except OSError as error:
        raise AcceptanceFileError(path, error.strerror) from error
    level = content.decode("ascii", "replace").strip()
    if level not in ACCEPTANCE_LEVELS:
        raise AcceptanceFileError(path, "it holds no acceptance level")
    return level


def write_level(level: str) -> None:
    """Sets the level, for good once this returns; cut at any point, the old one or the new one stands. Raises
    `AcceptanceFileError`."""
    path = paths.ACCEPTANCE_FILE
    beside = path.with_name(f".{path.name}.new")
    try:
        path.parent.mkdir(parents=True, exist_ok=True)
        beside.unlink(missing_ok=True)  # of a run that was cut
        descriptor = os.open(beside, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_NOFOLLOW | os.O_CLOEXEC, 0o644)
        with os.fdopen(descriptor, "wb") as file:
            file.write(level.encode("ascii") + b"\n")
            file.flush()
            os.fsync(file.fileno())
        os.rename(beside, path)
        folder = os.open(path.parent, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
        try:
            os.fsync(folder)
        finally:
            os.close(folder)
    except OSError as error:
        try:
            beside.unlink(missing_ok=True)
        except OSError:
            pass  # the failure that led here is the one to report
        raise AcceptanceFileError(path, error.strerror) from error


def check_part(part: Part, level: str) -> None:
    """Raises `AcceptanceError` for the first pak of the part that is below the level."""
    for pak in part.paks:
        if ACCEPTANCE_LEVELS.index(pak.acceptance) > ACCEPTANCE_LEVELS.index(level):
            raise AcceptanceError(pak.name, part.label, pak.acceptance, level)


def check_composition(composition: Composition, level: str) -> None:
    """Raises `AcceptanceError` for the first pak of an image that is below the level."""
    for part in composition.parts():
        check_part(part, level)

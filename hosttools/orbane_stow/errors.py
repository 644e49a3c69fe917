"""Failures of the image manager.

Each carries a message id and its arguments, as they go into the task record; the text lies in the catalogue
("stow.omsg") and tells the operator what to do. `str()` renders it for the log and for a terminal.
"""

from __future__ import annotations

from orbane_stow import catalogue
from orbane_stow.text import well_formed


class StowError(Exception):
    """Base: `message_id` is of the class, `args` are the texts for {1}, {2} … in order."""

    message_id = "com.orbane.ryn.stow.internal.error"

    def __init__(self, *arguments: object) -> None:
        super().__init__(*[well_formed(argument) for argument in arguments])

    def __str__(self) -> str:
        return catalogue.render(self.message_id, self.args)


class InternalError(StowError):
    """A defect of the tool: {1} what happened."""


class UsageError(StowError):
    """{1} what is wrong with the command line."""

    message_id = "com.orbane.ryn.stow.usage.error"


class ContentionError(StowError):
    """Another program works on the image root, or another task holds the gate."""

    message_id = "com.orbane.ryn.task.contention"


class TerminatedError(StowError):
    """A signal asked the tool to stop."""

    message_id = "com.orbane.ryn.stow.terminated.error"


class SpecReadError(StowError):
    """{1} path, {2} reason."""

    message_id = "com.orbane.ryn.stow.spec.read.error"


class SpecInvalidError(StowError):
    """{1} what is wrong with the software spec."""

    message_id = "com.orbane.ryn.stow.spec.invalid.error"


class DepotUrlError(StowError):
    """{1} the address without user information, {2} reason."""

    message_id = "com.orbane.ryn.stow.depot.url.error"


class DepotUnreachableError(StowError):
    """{1} address, {2} reason."""

    message_id = "com.orbane.ryn.stow.depot.connect.error"


class DepotDamagedError(StowError):
    """{1} address, {2} what is damaged."""

    message_id = "com.orbane.ryn.stow.depot.damaged.error"


class DepotsDisagreeError(StowError):
    """{1} part, {2} and {3} the depots that hold different contents for it."""

    message_id = "com.orbane.ryn.stow.depot.conflict.error"


class BaseMissingError(StowError):
    """{1} version that no depot offers."""

    message_id = "com.orbane.ryn.stow.base.missing.error"


class BaseAmbiguousError(StowError):
    """{1} version, {2} the names under which the depots offer it."""

    message_id = "com.orbane.ryn.stow.base.ambiguous.error"


class BaseUnsetError(StowError):
    """The spec keeps the deployed base image, but none is deployed."""

    message_id = "com.orbane.ryn.stow.base.unset.error"


class ComponentMissingError(StowError):
    """{1} name, {2} version."""

    message_id = "com.orbane.ryn.stow.component.missing.error"


class SolutionMissingError(StowError):
    """{1} name, {2} version."""

    message_id = "com.orbane.ryn.stow.solution.missing.error"


class ComponentVersionConflictError(StowError):
    """{1} component, {2} version one source wants, {3} version another wants."""

    message_id = "com.orbane.ryn.stow.component.version.conflict.error"


class FileConflictError(StowError):
    """{1} and {2} two parts, {3} the file that both hold with different contents."""

    message_id = "com.orbane.ryn.stow.file.conflict.error"


class ImageSpaceError(StowError):
    """{1} image root, {2} bytes needed, {3} bytes free, both in words."""

    message_id = "com.orbane.ryn.stow.image.space.error"


class ImageError(StowError):
    """{1} image root, {2} reason."""

    message_id = "com.orbane.ryn.stow.image.error"


class StateDirError(StowError):
    """{1} path, {2} reason."""

    message_id = "com.orbane.ryn.stow.state.error"


class AcceptanceError(StowError):
    """{1} pak, {2} part, {3} its acceptance level, {4} that of the host."""

    message_id = "com.orbane.ryn.stow.acceptance.error"


class AcceptanceFileError(StowError):
    """{1} path, {2} reason."""

    message_id = "com.orbane.ryn.stow.acceptance.file.error"


class NotThereError(StowError):
    """{1} what was asked for."""

    message_id = "com.orbane.ryn.stow.notthere.error"


class NeededError(StowError):
    """{1} a component that shall go, {2} the solution that it belongs to."""

    message_id = "com.orbane.ryn.stow.component.needed.error"


class LineError(StowError):
    """{1} what is wrong with a command line of the administration tools."""

    message_id = "com.orbane.ryn.stow.line.error"


class CannotDoError(StowError):
    """{1} a command that this host's image manager has no way to carry out, {2} what to do instead."""

    message_id = "com.orbane.ryn.stow.cannotdo.error"

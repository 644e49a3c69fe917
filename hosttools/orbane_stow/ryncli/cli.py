"""The tools from outside: standard output, standard error, exit status.

The answer is an XML document on standard output. A failure is one too, `<error id="…">text</error>`, since callers in
other programs see nothing else, and a line on standard error for people. The exit status is 0, or the error number
(errno) that comes closest: callers show its text.
"""

from __future__ import annotations

import errno
import os
import signal
import sys
import syslog
import xml.etree.ElementTree as xml
from importlib import import_module
from typing import Sequence

from orbane_stow import errors, termination
from orbane_stow.errors import InternalError, StowError
from orbane_stow.part_xml import document, xml_text
from orbane_stow.ryncli import commands
from orbane_stow.ryncli.command_line import HelpWanted, Request, parse

_STATUSES: dict[type[StowError], int] = {
    errors.LineError: errno.EINVAL, errors.SpecReadError: errno.EINVAL, errors.SpecInvalidError: errno.EINVAL,
    errors.DepotUrlError: errno.EINVAL, errors.NeededError: errno.EINVAL, errors.ComponentVersionConflictError: errno.EINVAL,
    errors.NotThereError: errno.ENOENT, errors.BaseMissingError: errno.ENOENT, errors.BaseUnsetError: errno.ENOENT,
    errors.ComponentMissingError: errno.ENOENT, errors.SolutionMissingError: errno.ENOENT,
    errors.CannotDoError: errno.EOPNOTSUPP, errors.AcceptanceError: errno.EPERM, errors.ContentionError: errno.EBUSY,
    errors.ImageSpaceError: errno.ENOSPC, errors.DepotUnreachableError: errno.EHOSTUNREACH,
    errors.TerminatedError: errno.EINTR,
}


class _Output:
    """Standard output, kept for the one document: what libraries print there about their work goes nowhere."""

    def __init__(self) -> None:
        self._descriptor = os.dup(1)
        nowhere = os.open(os.devnull, os.O_WRONLY | os.O_CLOEXEC)
        os.dup2(nowhere, 1)
        os.close(nowhere)

    def write(self, content: bytes) -> None:
        """Past Python's buffer: what can't be written must not come up again at the exit."""
        while content:
            content = content[os.write(self._descriptor, content):]


class _Run:
    """One run of a tool."""

    def __init__(self, program: str) -> None:
        self._program = program
        self._output = _Output()

    def run(self, words: Sequence[str]) -> int:
        """Returns the exit status."""
        try:
            request = parse(self._program, words)
            self._output.write(document(self._answer(request)))
            return 0
        except HelpWanted as wanted:
            self._output.write(_help(self._program, wanted.command).encode())
            return 0
        except StowError as error:
            return self._fail(error)
        except OSError as error:
            return self._fail(InternalError(f"{error.filename or ''}: {error.strerror}"))
        except Exception as error:  # a caller in another program must learn of any failure, whatever it is
            return self._fail(InternalError(f"{type(error).__name__}: {error}"))

    def _answer(self, request: Request) -> xml.Element:
        module, _, name = request.command.work.partition(".")
        if not request.command.changes:
            signal.signal(signal.SIGINT, signal.SIG_DFL)  # a question may be cut off at any time
            signal.pthread_sigmask(signal.SIG_SETMASK, set())
            return getattr(import_module(f"orbane_stow.ryncli.{module}"), name)(request)
        termination.block()
        ending = termination.Termination()
        ending.watch(lambda: os._exit(self._fail(errors.TerminatedError())))
        try:
            return getattr(import_module(f"orbane_stow.ryncli.{module}"), name)(request, ending)
        finally:
            ending.over()

    def _fail(self, error: StowError) -> int:
        root = xml.Element("error", {"id": error.message_id})
        root.text = xml_text(str(error))
        try:
            self._output.write(document(root))
        except OSError:
            pass  # nobody reads it
        print(f"{self._program}: {error}", file=sys.stderr)
        return next((status for kind, status in _STATUSES.items() if isinstance(error, kind)), errno.EIO)


def main(program: str, words: Sequence[str]) -> int:
    """Runs one command; returns the exit status."""
    syslog.openlog(program, syslog.LOG_PID, syslog.LOG_DAEMON)
    os.umask(0o022)
    return _Run(program).run(words)


def _help(program: str, command: commands.Command | None) -> str:
    plugin = " [--plugin=FILE]" if program == "nearcli" else ""
    if command is None:
        return f"usage: {program} [--formatter=xml]{plugin} NAMESPACE COMMAND [OPTION …]\n\n{commands.__doc__}"
    options = [f"{' | '.join(option.names)}{' ' + option.value if option.value else ''}{' …' if option.many else ''}"
               for option in command.options]
    shown = [text if option in command.needed else f"[{text}]" for option, text in zip(command.options, options)]
    return f"usage: {program} [--formatter=xml]{plugin} NAMESPACE {' '.join([command.words, *shown])}\n"

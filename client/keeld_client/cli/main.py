"""Arguments of keelctl and its exit codes."""

from __future__ import annotations

import argparse
import os
import re
import sys
from collections.abc import Sequence

from ..client import Client
from ..credentials import Credentials
from ..errors import ApiError, CredentialsError, KeeldError, TaskFailedError, UnreachableError
from . import signing_in, tasks
from .catalogue import all_commands, groups
from .command import build_parser
from .output import clean
from .usage import UsageError

EXIT_DONE = 0
EXIT_TASK_FAILED = 1
EXIT_USAGE = 2
EXIT_UNREACHABLE = 3
EXIT_REFUSED = 4
EXIT_BUSY = 5
EXIT_API_ERROR = 6
EXIT_DETACHED = 130

# The daemon tells nothing of these two.
_REFUSALS = {"unauthenticated": "keeld does not accept the credentials", "unauthorized": "keeld does not allow this"}
_LANGUAGE = re.compile(r"[A-Za-z0-9_-]{1,40}")
DESCRIPTION = "Manages this host's image through keeld. As root it signs in by itself; others give --user."
EXIT_CODES = (
    (EXIT_DONE, "done"), (EXIT_TASK_FAILED, "the task failed"), (EXIT_USAGE, "the command line is wrong"),
    (EXIT_UNREACHABLE, "the daemon can't be reached"), (EXIT_REFUSED, "refused: credentials, rights or arguments"),
    (EXIT_BUSY, "another operation runs"), (EXIT_API_ERROR, "any other error of the daemon"),
    (EXIT_DETACHED, "ended by Ctrl-C; a task that was started goes on"))


def main_parser() -> argparse.ArgumentParser:
    """The whole command line."""
    epilog = "exit codes:\n" + "\n".join(f"  {code:<4} {text}" for code, text in EXIT_CODES)
    return build_parser(all_commands(), groups(), DESCRIPTION, epilog)


def _language() -> str | None:
    """accept-language from the user's locale: "de_DE.UTF-8" gives "de_DE"."""
    for name in ("LC_ALL", "LC_MESSAGES", "LANG"):
        value = os.environ.get(name, "").partition(".")[0].partition("@")[0]
        if value:
            return value if _LANGUAGE.fullmatch(value) and value not in ("C", "POSIX") else None
    return None


def main(argv: Sequence[str] | None = None) -> int:
    """Runs one command; returns its exit code."""
    try:
        arguments = main_parser().parse_args(argv)
    except SystemExit as stop:
        return int(stop.code or 0)
    try:
        if arguments.command.local:
            return int(arguments.command.run(None, arguments))
        return _call(arguments, signing_in.credentials(arguments))
    except UsageError as error:
        return _complain(error, EXIT_USAGE)
    except CredentialsError as error:
        return _complain(error, EXIT_REFUSED)
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return EXIT_DONE
    except KeyboardInterrupt:
        return EXIT_DETACHED


def _call(arguments: argparse.Namespace, credentials: Credentials) -> int:
    """Runs a command that talks to the daemon."""
    with Client(port=arguments.port, language=_language(), credentials=credentials) as client:
        try:
            return int(arguments.command.run(client, arguments))
        except TaskFailedError as error:
            return _complain(f"task {error.task_id} failed: {error}", EXIT_TASK_FAILED)
        except UnreachableError as error:
            return _complain(error, EXIT_UNREACHABLE)
        except ApiError as error:
            if error.is_about_credentials:
                refusal = str(error) if error.messages else _REFUSALS[error.kind]
                return _complain(f"{refusal}: {credentials.advice()}", EXIT_REFUSED)
            _complain(error, 0)
            if error.is_busy:
                tasks.explain_busy(client)
                return EXIT_BUSY
            return EXIT_REFUSED if error.is_refused else EXIT_API_ERROR
        except CredentialsError:
            raise
        except KeeldError as error:
            return _complain(error, EXIT_API_ERROR)


def _complain(what: object, code: int) -> int:
    print(f"keelctl: {clean(str(what))}", file=sys.stderr)
    return code

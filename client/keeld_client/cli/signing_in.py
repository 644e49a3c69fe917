"""Who keelctl calls as: options and environment to credentials. No secret is ever taken from the command line."""

from __future__ import annotations

import argparse
import getpass
import os
import sys
import warnings
from collections.abc import Mapping

from ..credentials import Credentials, Password, RootTickets, Token
from .usage import UsageError

PASSWORD_VARIABLE = "KEELD_PASSWORD"
TOKEN_VARIABLE = "KEELD_TOKEN"
_SECRET_LIMIT = 16384  # bytes that are read of a file; more than the daemon takes


def credentials(arguments: argparse.Namespace, environment: Mapping[str, str] = os.environ) -> Credentials:
    """What the options ask for, then a token of the environment, then tickets for root; else nobody.

    Asks at the terminal for a password that is found nowhere. Raises UsageError, CredentialsError.
    """
    if arguments.token_file is not None:
        if arguments.user is not None or arguments.password_file is not None:
            raise UsageError("--token-file goes alone, without --user and --password-file")
        return Token(first_line(arguments.token_file))
    if arguments.user is not None:
        return Password(arguments.user, _password(arguments, environment))
    if arguments.password_file is not None:
        raise UsageError("--password-file needs --user NAME")
    if environment.get(TOKEN_VARIABLE):
        return Token(environment[TOKEN_VARIABLE])
    return RootTickets() if os.geteuid() == 0 else Credentials()


def _password(arguments: argparse.Namespace, environment: Mapping[str, str]) -> str:
    if arguments.password_file is not None:
        return first_line(arguments.password_file)
    if PASSWORD_VARIABLE in environment:
        return environment[PASSWORD_VARIABLE]
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("error", getpass.GetPassWarning)  # it would show what is typed
            return getpass.getpass(f"Password of {arguments.user}: ")
    except (getpass.GetPassWarning, EOFError):
        raise UsageError(f"no terminal to ask for the password at: give --password-file FILE or {PASSWORD_VARIABLE}") from None


def first_line(path: str) -> str:
    """The first line of a file, "-" for standard input, without its end. Raises UsageError."""
    try:
        with (open(sys.stdin.fileno(), "rb", closefd=False) if path == "-" else open(path, "rb")) as file:
            content = file.read(_SECRET_LIMIT)
        return content.split(b"\n", 1)[0].removesuffix(b"\r").decode()
    except OSError as error:
        raise UsageError(f"cannot read {path!r}: {error.strerror}") from error
    except UnicodeDecodeError:
        raise UsageError(f"{path!r} holds no text in UTF-8") from None

"""Arguments of keelctl and its exit codes."""

from __future__ import annotations

import argparse
import os
import sys
from collections.abc import Sequence

from ..client import Client
from ..errors import ApiError, KeeldError, TaskFailedError, UnreachableError
from . import inventory, software, tasks
from .output import clean

EXIT_DONE = 0
EXIT_TASK_FAILED = 1
EXIT_USAGE = 2
EXIT_UNREACHABLE = 3
EXIT_REFUSED = 4
EXIT_BUSY = 5
EXIT_API_ERROR = 6
EXIT_DETACHED = 130

EXIT_HELP = """exit codes:
  0 done  1 the task failed  2 usage  3 daemon unreachable  4 refused (credentials, rights, arguments)
  5 another operation runs  6 any other error of the daemon  130 detached by Ctrl-C, the task goes on"""


def build_parser() -> argparse.ArgumentParser:
    """The whole command line."""
    common = argparse.ArgumentParser(add_help=False)
    common.add_argument("--json", action="store_true", help="print one JSON document instead of text")
    common.add_argument("--port", type=int, default=None, help="port of the daemon (default: the services entry keeld)")
    parser = argparse.ArgumentParser(prog="keelctl", description="Manage this host's image through keeld.",
                                     epilog=EXIT_HELP, formatter_class=argparse.RawDescriptionHelpFormatter)
    groups = parser.add_subparsers(dest="group", required=True, metavar="COMMAND")
    software.add_commands(groups, common)
    tasks.add_commands(groups, common)
    inventory.add_commands(groups, common)
    return parser


def _language() -> str | None:
    """accept-language from the user's locale: "de_DE.UTF-8" gives "de_DE"."""
    for name in ("LC_ALL", "LC_MESSAGES", "LANG"):
        value = os.environ.get(name, "").partition(".")[0]
        if value:
            return None if value in ("C", "POSIX") else value
    return None


def main(argv: Sequence[str] | None = None) -> int:
    """Runs one command; returns its exit code."""
    try:
        arguments = build_parser().parse_args(argv)
    except SystemExit as stop:
        return int(stop.code or 0)
    client = Client(port=arguments.port, language=_language())
    try:
        with client:
            return int(arguments.run(client, arguments))
    except TaskFailedError as error:
        print(f"keelctl: task {error.task_id} failed: {clean(str(error))}", file=sys.stderr)
        return EXIT_TASK_FAILED
    except UnreachableError as error:
        print(f"keelctl: {error}", file=sys.stderr)
        return EXIT_UNREACHABLE
    except ApiError as error:
        print(f"keelctl: {clean(str(error))}", file=sys.stderr)
        if error.is_busy:
            tasks.explain_busy(client)
            return EXIT_BUSY
        return EXIT_REFUSED if error.is_refused else EXIT_API_ERROR
    except KeeldError as error:
        print(f"keelctl: {error}", file=sys.stderr)
        return EXIT_API_ERROR
    except software.UsageError as error:
        print(f"keelctl: {error}", file=sys.stderr)
        return EXIT_USAGE
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return EXIT_DONE
    except KeyboardInterrupt:
        return EXIT_DETACHED

"""The command line of stowctl.

    software --apply --task-id ID --depot URL … --software-spec PATH [--quick-patch]
    software --stage --task-id ID --depot URL … --software-spec PATH
    software --scan  --task-id ID --depot URL … --software-spec PATH [--quick-patch]
    component --list | --get NAME
    ryn --get

The task commands write nothing on standard output: all that is to be known stands in the task record.
"""

from __future__ import annotations

import argparse
import os
import re
import signal
import sys
import syslog
from pathlib import Path
from typing import NoReturn, Sequence

from orbane_stow import paths, termination
from orbane_stow.errors import StowError, UsageError

EXIT_USAGE = 2
_TASK_ID = re.compile(r"[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}")


class _Parser(argparse.ArgumentParser):
    def error(self, message: str) -> NoReturn:
        raise UsageError(message)


def _parser() -> argparse.ArgumentParser:
    parser = _Parser(prog="stowctl.py", allow_abbrev=False, description="The host's image manager.")
    groups = parser.add_subparsers(dest="group", required=True, parser_class=_Parser)

    software = groups.add_parser("software", allow_abbrev=False, help="scan, stage and apply the host's image")
    verb = software.add_mutually_exclusive_group(required=True)
    for name, text in (("apply", "bring the image of the spec into use"), ("stage", "fetch and verify what it needs"),
                       ("scan", "compare it with the image in use")):
        verb.add_argument(f"--{name}", dest="verb", action="store_const", const=name, help=text)
    software.add_argument("--task-id", required=True, metavar="ID")
    software.add_argument("--depot", required=True, action="append", metavar="URL", dest="depots")
    software.add_argument("--software-spec", required=True, type=Path, metavar="PATH")
    software.add_argument("--quick-patch", action="store_true", help="no reboot where the components allow it")

    component = groups.add_parser("component", allow_abbrev=False, help="components of the image in use")
    question = component.add_mutually_exclusive_group(required=True)
    question.add_argument("--list", action="store_true")
    question.add_argument("--get", metavar="NAME")

    ryn = groups.add_parser("ryn", allow_abbrev=False, help="the base of the image in use")
    ryn.add_argument("--get", action="store_true", required=True)
    return parser


def _parse(arguments: Sequence[str]) -> argparse.Namespace:
    options = _parser().parse_args(arguments)
    if options.group == "software":
        if not _TASK_ID.fullmatch(options.task_id):
            raise UsageError("--task-id: not a task id")
        if options.verb == "stage" and options.quick_patch:
            raise UsageError("--quick-patch: not for --stage")
    elif options.group == "component" and options.get is not None and options.get.startswith("-"):
        raise UsageError("--get: a name doesn't begin with a dash")
    return options


def _task_id_of(arguments: Sequence[str]) -> str | None:
    """The task that a command line means even if the rest of it can't be used."""
    for option, value in zip(arguments, arguments[1:]):
        if option == "--task-id" and _TASK_ID.fullmatch(value):
            return value
    return None


def main(arguments: Sequence[str]) -> int:
    """Runs one command; returns the exit status: 0 done, 1 failed, 2 the command line is not understood."""
    syslog.openlog("stowctl", syslog.LOG_PID, syslog.LOG_DAEMON)
    try:
        options = _parse(arguments)
    except UsageError as error:
        task_id = _task_id_of(arguments)
        if task_id is None:
            print(f"stowctl.py: {error}", file=sys.stderr)
            return EXIT_USAGE
        _run_task(task_id, "--scan" not in arguments, _raiser(error))
        return EXIT_USAGE
    if options.group == "software":
        return _software(options)
    signal.pthread_sigmask(signal.SIG_SETMASK, set())  # a question may be cut off at any time
    from orbane_stow import queries

    try:
        if options.group == "ryn":
            return queries.ryn_get(sys.stdout)
        return queries.component_list(sys.stdout) if options.list else queries.component_get(options.get, sys.stdout)
    except StowError as error:
        print(f"stowctl.py: {error}", file=sys.stderr)
        return 1


def _software(options: argparse.Namespace) -> int:
    def work(task):  # type: ignore[no-untyped-def]
        if options.verb == "scan":
            from orbane_stow.scan import scan

            return scan(task, options.software_spec, options.depots, options.quick_patch)
        from orbane_stow import apply

        if options.verb == "stage":
            return apply.stage(task, options.software_spec, options.depots)
        return apply.apply(task, options.software_spec, options.depots, options.quick_patch)

    return _run_task(options.task_id, options.verb != "scan", work)


def _run_task(task_id, own_spec, work):  # type: ignore[no-untyped-def]
    termination.block()
    os.umask(0o022)
    from orbane_stow import task_run
    from orbane_taskdb import TaskManager

    with TaskManager(str(paths.TASK_DATABASE)) as database:
        return task_run.run(task_id, own_spec, work, database, termination.Termination())


def _raiser(error: StowError):  # type: ignore[no-untyped-def]
    def work(_task):  # type: ignore[no-untyped-def]
        raise error

    return work

"""keelctl software scan|stage|apply."""

from __future__ import annotations

import argparse
import json
import sys
import time
from collections.abc import Callable
from typing import Any

from ..client import Client, software_spec
from ..errors import ApiError, TaskFailedError
from ..tasks import Task
from . import tasks
from .output import clean, print_json, print_table

WAIT_SECONDS = 2.0


class UsageError(Exception):
    """The command line asks for something that can't be."""


def add_commands(groups: Any, common: argparse.ArgumentParser) -> None:
    """software scan|stage|apply."""
    parser = groups.add_parser("software", help="compare, fetch and change the host's image")
    commands = parser.add_subparsers(dest="command", required=True, metavar="COMMAND")
    texts = {"scan": "say what differs from the wanted image", "stage": "fetch what the wanted image needs",
             "apply": "change the host to the wanted image"}
    for name, text in texts.items():
        command = commands.add_parser(name, parents=[common], help=text)
        command.add_argument("--depot", action="append", required=True, metavar="URL",
                             help="file:// or http:// depot; may be repeated")
        command.add_argument("--spec", metavar="FILE", help="wanted image as JSON, - for standard input")
        command.add_argument("--base", metavar="VERSION", default="", help="version of the base image (default: keep)")
        command.add_argument("--component", action="append", default=[], metavar="NAME=VERSION",
                             help="component to have; may be repeated")
        if name != "stage":
            command.add_argument("--quick-patch", action="store_true",
                                 help="apply without a reboot what allows that")
        command.add_argument("--no-wait", action="store_true", help="print the task's id and return at once")
        command.add_argument("--wait", action="store_true", help="stand in line behind a running operation")
        command.set_defaults(run=run)


def read_spec(arguments: argparse.Namespace) -> dict[str, Any]:
    """The wanted image from a file or from the options."""
    if arguments.spec:
        if arguments.base or arguments.component:
            raise UsageError("--spec goes alone, without --base and --component")
        try:
            with (sys.stdin if arguments.spec == "-" else open(arguments.spec, encoding="utf-8")) as stream:
                spec = json.load(stream)
        except (OSError, ValueError) as error:
            raise UsageError(f"cannot read the wanted image from {arguments.spec!r}: {error}") from error
        if not isinstance(spec, dict):
            raise UsageError(f"{arguments.spec!r} holds no JSON object")
        return spec
    components = {}
    for item in arguments.component:
        name, separator, version = item.partition("=")
        if not (name and separator and version):
            raise UsageError(f"--component takes NAME=VERSION, not {item!r}")
        components[name] = version
    if not arguments.base and not components:
        raise UsageError("say what to have: --base VERSION, --component NAME=VERSION or --spec FILE")
    return software_spec(arguments.base, components)


def check_depots(depots: list[str]) -> None:
    """Depot URLs are written to logs whole, so they may hold no credentials."""
    for depot in depots:
        scheme, separator, rest = depot.partition("://")
        if not separator or not scheme:
            raise UsageError(f"a depot is a URL such as file:///srv/depot, not {depot!r}")
        if "@" in rest.partition("/")[0]:
            raise UsageError("a depot URL may hold no user name or password")


def run(client: Client, arguments: argparse.Namespace) -> int:
    check_depots(arguments.depot)
    spec = read_spec(arguments)

    def start() -> str:
        if arguments.command == "scan":
            return client.scan(spec, arguments.depot, arguments.quick_patch)
        if arguments.command == "stage":
            return client.stage(spec, arguments.depot)
        return client.apply(spec, arguments.depot, arguments.quick_patch)

    task_id = start_in_line(start) if arguments.wait else start()
    if arguments.no_wait:
        print_json({"task": task_id}) if arguments.json else print(task_id)
        return 0
    task = tasks.follow(client, task_id, arguments.command, quiet=arguments.json)
    if task is None:
        return 130
    if arguments.json:
        print_json(task.raw)
    if task.status == "FAILED":
        raise TaskFailedError(task_id, task.error_text, task.raw)
    if not arguments.json:
        show_result(arguments.command, task)
    return 0


def start_in_line(start: Callable[[], str], sleep: Callable[[float], None] = time.sleep) -> str:
    """Tries again while another operation runs."""
    told = False
    while True:
        try:
            return start()
        except ApiError as error:
            if not error.is_busy:
                raise
        if not told:
            print("another operation runs; waiting for its end", file=sys.stderr)
            told = True
        sleep(WAIT_SECONDS)


def show_result(command: str, task: Task) -> None:
    """The end of a task for people."""
    if command == "scan" and isinstance(task.result, dict):
        show_compliance(task.result)
    else:
        print({"stage": "staged: the next apply needs no further download",
               "apply": "applied"}.get(command, "done"))


def show_compliance(result: dict[str, Any]) -> None:
    """What a scan found."""
    print(f"status: {clean(str(result.get('status', 'unknown')))}"
          f", impact: {clean(str(result.get('impact', 'unknown')))}"
          f", staged: {'yes' if result.get('staged') else 'no'}")
    rows = [row for kind in ("base_image", "components", "solutions") for row in _differences(kind, result.get(kind))]
    if rows:
        print_table(("WHAT", "NAME", "NOW", "WANTED", "STATUS"), rows)


def _differences(kind: str, part: Any) -> list[tuple[str, str, str, str, str]]:
    entries = part.items() if isinstance(part, dict) and kind != "base_image" else [("", part)]
    rows = []
    for name, entry in entries:
        if isinstance(entry, dict):
            rows.append((kind.rstrip("s").replace("_", " "), name, str(entry.get("current") or "-"),
                         str(entry.get("desired") or "-"), str(entry.get("status", ""))))
    return rows


"""keelctl software scan|stage|apply."""

from __future__ import annotations

import argparse
import json
import sys
from typing import Any

from .._generated import COMMANDS as OPERATIONS
from ..client import Client, software_spec
from ..tasks import Task
from . import line, tasks
from .command import Command, Option
from .depots import check_depots
from .generic import NO_WAIT, WAIT
from .output import clean, print_table
from .usage import UsageError
from .values import text


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
    for item in arguments.component or ():
        name, separator, version = item.partition("=")
        if not (name and separator and version):
            raise UsageError(f"--component takes NAME=VERSION, not {item!r}")
        components[name] = version
    if not arguments.base and not components:
        raise UsageError("say what to have: --base VERSION, --component NAME=VERSION or --spec FILE")
    return software_spec(arguments.base, components)


def run(client: Client, arguments: argparse.Namespace) -> int:
    check_depots(arguments.depot)
    spec = read_spec(arguments)
    name = arguments.command.words[-1]

    def start() -> str:
        if name == "scan":
            return client.scan(spec, arguments.depot, arguments.quick_patch)
        if name == "stage":
            return client.stage(spec, arguments.depot)
        return client.apply(spec, arguments.depot, arguments.quick_patch)

    task_id = line.stand_in_line(client, start) if arguments.wait else start()
    return tasks.finish(client, task_id, arguments, name, lambda task: show_result(name, task))


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


_WANTED = (
    Option("--depot", "file:// or http:// depot to take parts from; may be repeated, the first that has a part wins", "URL",
           parse=text, required=True, repeated=True),
    Option("--spec", "the wanted image as JSON, - for standard input", "FILE", file=True),
    Option("--base", "version of the base image (default: keep)", "VERSION", parse=text, default=""),
    Option("--component", "component to have; may be repeated", "NAME=VERSION", parse=text, repeated=True),
)
_QUICK_PATCH = (Option("--quick-patch", "apply without a restart what the parts allow"),)

GROUPS = {("software",): "Compare, fetch and change the host's image. The wanted image is given whole: what it does not "
                         "name is removed."}
COMMANDS = tuple(
    Command(words, OPERATIONS[words].doc, _WANTED + more + (NO_WAIT, WAIT), run, OPERATIONS[words])
    for words, more in ((("software", "scan"), _QUICK_PATCH), (("software", "stage"), ()), (("software", "apply"), _QUICK_PATCH)))

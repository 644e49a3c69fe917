"""keelctl components and image."""

from __future__ import annotations

import argparse
from typing import Any

from ..client import Client
from .output import clean, print_json, print_table


def add_commands(groups: Any, common: argparse.ArgumentParser) -> None:
    """components list|get and image get."""
    parser = groups.add_parser("components", help="components of the deployed image")
    commands = parser.add_subparsers(dest="command", required=True, metavar="COMMAND")
    commands.add_parser("list", parents=[common], help="all of them").set_defaults(run=run_list)
    get = commands.add_parser("get", parents=[common], help="one of them")
    get.add_argument("name")
    get.set_defaults(run=run_get)
    parser = groups.add_parser("image", help="the deployed base image")
    commands = parser.add_subparsers(dest="command", required=True, metavar="COMMAND")
    commands.add_parser("get", parents=[common], help="its name, version and more").set_defaults(run=run_image)


def run_list(client: Client, arguments: argparse.Namespace) -> int:
    components = client.components()
    if arguments.json:
        print_json(components)
    else:
        print_table(("NAME", "VERSION", "DISPLAY NAME"),
                    [(str(c.get("name", "")), str(c.get("version", "")),
                      str(c.get("display_name") or "")) for c in components])
    return 0


def run_get(client: Client, arguments: argparse.Namespace) -> int:
    _show(client.component(arguments.name), arguments.json)
    return 0


def run_image(client: Client, arguments: argparse.Namespace) -> int:
    _show(client.image(), arguments.json)
    return 0


def _show(record: dict[str, Any], as_json: bool) -> None:
    if as_json:
        print_json(record)
        return
    for name, value in record.items():
        if isinstance(value, (dict, list)):
            print(f"{name}:")
            print_json(value)
        elif value not in (None, ""):
            print(f"{name.replace('_', ' ') + ':':<16}{clean(str(value))}")

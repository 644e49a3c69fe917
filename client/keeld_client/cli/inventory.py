"""keelctl components and image."""

from __future__ import annotations

import argparse

from .._generated import COMMANDS as OPERATIONS
from ..client import Client
from .command import Command, Option
from .output import print_json, print_record, print_table
from .values import text


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
    component = client.component(arguments.name)
    print_json(component) if arguments.json else print_record(component)
    return 0


def run_image(client: Client, arguments: argparse.Namespace) -> int:
    image = client.image()
    print_json(image) if arguments.json else print_record(image)
    return 0


GROUPS = {("components",): "Components of the deployed image.", ("image",): "The deployed base image."}
COMMANDS = (
    Command(("components", "list"), "Lists the components of the image.", (), run_list, OPERATIONS["components", "list"]),
    Command(("components", "get"), "Describes a component of the image.",
            (Option("name", "name of the component", "NAME", parse=text),), run_get, OPERATIONS["components", "get"]),
    Command(("image", "get"), "Describes the base image.", (), run_image, OPERATIONS["image", "get"]),
)

"""keelctl ticket issue."""

from __future__ import annotations

import argparse

from .. import tickets
from ..client import Client
from .command import Command, Option
from .output import print_json
from .values import number, text


def run_issue(_client: Client | None, arguments: argparse.Namespace) -> int:
    ticket = tickets.issue(arguments.service, arguments.lifetime)
    print_json({"ticket": ticket}) if arguments.json else print(ticket)
    return 0


GROUPS = {("ticket",): "Single-use tickets to sign in with."}
COMMANDS = (
    Command(("ticket", "issue"), "Prints a new ticket, for root only. A client signs in with it once, as user name and as "
            "password.", (
                Option("--service", f"what the ticket is for (default: {tickets.SERVICE})", "NAME", parse=text,
                       default=tickets.SERVICE),
                Option("--lifetime", f"how long it can be used (default: {tickets.LIFETIME:.0f})", "SECONDS", parse=number,
                       default=tickets.LIFETIME),
            ), run_issue, local=True),
)

"""All commands of keelctl: those with a front of their own, and the rest of the interface definition."""

from __future__ import annotations

from .._generated import COMMANDS, NAMESPACES
from . import generic, inventory, software, tasks, ticket
from .command import Command

_FRONTS = (inventory, software, tasks, ticket)


def all_commands() -> list[Command]:
    """Sorted by their words. Each operation that has a command in the interface definition is there."""
    found = {command.words: command for front in _FRONTS for command in front.COMMANDS}
    for words, operation in COMMANDS.items():
        if words not in found:
            found[words] = generic.command_of(operation)
    return [found[words] for words in sorted(found)]


def groups() -> dict[tuple[str, ...], str]:
    """What the words in front of a command's last one stand for."""
    texts = dict(NAMESPACES)
    for front in _FRONTS:
        texts.update(front.GROUPS)
    return texts

"""Reading a command line of `ryncli` or `nearcli`.

    PROGRAM [--formatter=xml] [--plugin=FILE] NAMESPACE COMMAND [OPTION …]

The daemon lets callers add words to such a line, so that it is read without lenience: no abbreviations, no words that
nothing is due for, no values that begin with a dash, no option twice that counts once. `--plugin` is of `nearcli`.
"""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import Mapping, Sequence

from orbane_stow.errors import CannotDoError, LineError
from orbane_stow.ryncli.commands import COMMANDS, Command, Option
from orbane_stow.ryncli.plugin import Namespace, read_plugin

FORMATTER = Option("--formatter", "", "xml")
PLUGIN = Option("--plugin", "", "FILE")
HELP = Option("--help", "-h")
_SOFTWARE = Namespace("software", frozenset(COMMANDS), details=False)


@dataclass(frozen=True)
class Request:
    """A command that is understood. `options` holds the values by the long name, a flag without value as [""]."""

    command: Command
    details: bool  # whether answers tell references and commits
    options: Mapping[str, Sequence[str]] = field(default_factory=dict)

    def values(self, option: Option) -> Sequence[str]:
        """The values of an option in order; none when it wasn't given."""
        return self.options.get(option.long, ())

    def value(self, option: Option) -> str:
        """The value of an option that counts once; empty when it wasn't given."""
        return next(iter(self.values(option)), "")

    def given(self, option: Option) -> bool:
        """Whether the option was given."""
        return option.long in self.options


class HelpWanted(Exception):
    """The command line asks for help; the argument is the command, or None for all of them."""

    def __init__(self, command: Command | None) -> None:
        super().__init__()
        self.command = command


def parse(program: str, words: Sequence[str]) -> Request:
    """Raises `LineError`, `CannotDoError` for a command that is known and refused, and `HelpWanted`."""
    tools = (FORMATTER, PLUGIN, HELP) if program == "nearcli" else (FORMATTER, HELP)
    general, rest = _options(words, tools, stop_at_word=True)
    if HELP.long in general:
        raise HelpWanted(None)
    if general.get(FORMATTER.long, ["xml"]) != ["xml"]:
        raise LineError("--formatter: only xml is known")
    namespaces = {_SOFTWARE.name: _SOFTWARE}
    for path in general.get(PLUGIN.long, ()):
        plugin = read_plugin(path)
        namespaces[plugin.name] = plugin
    if not rest:
        raise LineError("a namespace is missing")
    namespace = namespaces.get(rest[0])
    if namespace is None:
        raise LineError(f"'{rest[0]}' is not a namespace")
    command, rest = _command(namespace, rest[1:])
    return Request(command, namespace.details, _command_options(command, rest))


def _command(namespace: Namespace, words: Sequence[str]) -> tuple[Command, Sequence[str]]:
    if words and words[0] in HELP.names:
        raise HelpWanted(None)
    for count in (1, 2, 3):
        name = " ".join(words[:count])
        if name in namespace.commands and name.split() == list(words[:count]):
            return COMMANDS[name], words[count:]
    raise LineError(f"'{' '.join(words[:3])}' does not begin with a command" if words else "a command is missing")


def _command_options(command: Command, words: Sequence[str]) -> Mapping[str, Sequence[str]]:
    if any(word in HELP.names for word in words):
        raise HelpWanted(command)
    if command.refusal:
        raise CannotDoError(command.words, command.refusal)
    options, _ = _options(words, command.options, stop_at_word=False)
    for option in command.needed:
        if option.long not in options:
            raise LineError(f"{' or '.join(option.names)} is missing")
    return options


def _options(words: Sequence[str], known: Sequence[Option],
             stop_at_word: bool) -> tuple[dict[str, list[str]], Sequence[str]]:
    """Reads options up to the end, or to the first other word; returns them and the words left."""
    by_name = {name: option for option in known for name in option.names}
    found: dict[str, list[str]] = {}
    index = 0
    while index < len(words):
        word = words[index]
        if not word.startswith("-"):
            if stop_at_word:
                break
            raise LineError(f"nothing is due where '{word}' stands")
        index += 1
        name, equals, value = word.partition("=") if word.startswith("--") else (word, "", "")
        option = by_name.get(name)
        if option is None:
            raise LineError(f"'{name}' is not an option here")
        if option.value and not equals:
            value = words[index] if index < len(words) else ""
            index += 1
        _take(option, name, bool(equals), value, found)
    return found, words[index:]


def _take(option: Option, name: str, equals: bool, value: str, found: dict[str, list[str]]) -> None:
    if option.value and (not value or value.startswith("-")):
        raise LineError(f"{name} needs a value ({option.value})")
    if not option.value and equals:
        raise LineError(f"{name} takes no value")
    if option.long in found and not option.many:
        raise LineError(f"{name} stands twice")
    found.setdefault(option.long, []).append(value)

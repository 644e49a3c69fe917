"""What a command is, for its parser, the shell completion and the man page alike."""

from __future__ import annotations

import argparse
from collections.abc import Callable, Iterable
from dataclasses import dataclass
from typing import Any

from .._generated import Operation

Run = Callable[..., int]  # takes the client and the parsed arguments, gives the exit code


@dataclass(frozen=True)
class Option:
    """An option, or with a name that has no dashes an argument.

    A switch has no `metavar`; a `negatable` one also comes as --no-…. `parse` turns the text into the value and raises
    argparse.ArgumentTypeError. `file` is for the completion: the value names a file.
    """

    name: str
    doc: str
    metavar: str = ""
    target: str = ""  # where the value goes; by default the name without dashes in front
    required: bool = False
    repeated: bool = False
    negatable: bool = False
    file: bool = False
    choices: tuple[str, ...] = ()
    parse: Callable[[str], Any] = str
    default: Any = None

    @property
    def is_argument(self) -> bool:
        """It has a place instead of a name."""
        return not self.name.startswith("-")

    @property
    def takes_value(self) -> bool:
        """A word belongs to it."""
        return bool(self.metavar) and not self.is_argument

    @property
    def names(self) -> tuple[str, ...]:
        """The words that it is given by."""
        return (self.name, "--no-" + self.name.removeprefix("--")) if self.negatable else (self.name,)

    @property
    def synopsis(self) -> str:
        """How it stands in a synopsis: "[--depot URL]…"."""
        text = f"{self.names[0]} {self.metavar}" if self.takes_value else self.metavar if self.is_argument else "|".join(self.names)
        text = text if self.required or self.is_argument else f"[{text}]"
        return text + " ..." if self.repeated else text


@dataclass(frozen=True)
class Command:
    """A command: its words, and what runs it. A `local` one calls no daemon, so it needs no credentials."""

    words: tuple[str, ...]
    doc: str
    options: tuple[Option, ...]
    run: Run
    operation: Operation | None = None
    local: bool = False


# What all commands take.
COMMON = (Option("--json", "print one JSON document instead of text"),)
# What the commands take that call the daemon.
CALLING = (
    Option("--port", "port of the daemon (default: the services entry keeld)", "N", parse=lambda text: port(text)),
    Option("--user", "call as this user of the host; the password is asked for, or taken from KEELD_PASSWORD", "NAME"),
    Option("--password-file", "first line of FILE is the user's password, - for standard input", "FILE", file=True),
    Option("--token-file", "first line of FILE is a bearer token, - for standard input; KEELD_TOKEN holds one else", "FILE",
           file=True),
)


def options_of(command: Command) -> tuple[Option, ...]:
    """All options of a command, the common ones behind its own."""
    return command.options + COMMON + (() if command.local else CALLING)


def port(text: str) -> int:
    """A TCP port."""
    if not (text.isascii() and text.isdigit() and 0 < int(text) < 65536):
        raise argparse.ArgumentTypeError(f"a port is a number from 1 to 65535, not {text!r}")
    return int(text)


def build_parser(commands: Iterable[Command], groups: dict[tuple[str, ...], str], description: str,
                 epilog: str) -> argparse.ArgumentParser:
    """The parser of `keelctl`; `groups` says what the words in front of the last one stand for."""
    root = argparse.ArgumentParser(prog="keelctl", description=description, epilog=epilog, allow_abbrev=False,
                                   formatter_class=argparse.RawDescriptionHelpFormatter)
    places: dict[tuple[str, ...], Any] = {(): _subparsers(root)}
    for command in commands:
        for length in range(1, len(command.words)):
            path = command.words[:length]
            if path not in places:
                text = groups.get(path, "")
                group = places[path[:-1]].add_parser(path[-1], help=_help(text), description=text, allow_abbrev=False)
                places[path] = _subparsers(group)
        parser = places[command.words[:-1]].add_parser(command.words[-1], help=_help(command.doc), description=command.doc,
                                                       allow_abbrev=False)
        for option in options_of(command):
            _add(parser, option)
        parser.set_defaults(command=command)
    return root


def _subparsers(parser: argparse.ArgumentParser) -> Any:
    return parser.add_subparsers(required=True, metavar="COMMAND", dest="command")


def _help(text: str) -> str:
    """A help text, in which the parser takes a percent sign for the beginning of a format."""
    return text.replace("%", "%%")


def _add(parser: argparse.ArgumentParser, option: Option) -> None:
    more: dict[str, Any] = {"help": _help(option.doc + (f" One of {', '.join(option.choices)}." if option.choices else ""))}
    if option.is_argument:
        parser.add_argument(option.name, metavar=option.metavar, type=option.parse, **more)
        return
    if option.target:
        more["dest"] = option.target
    if option.negatable:
        more.update(action=argparse.BooleanOptionalAction, default=option.default)
    elif not option.metavar:
        more["action"] = "store_true"
    else:
        more.update(metavar=option.metavar, type=option.parse, default=option.default)
        if option.repeated:
            more["action"] = "append"
        if option.choices:
            more["choices"] = option.choices
    parser.add_argument(option.name, required=option.required, **more)

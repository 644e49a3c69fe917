"""The man page keelctl(1)."""

from __future__ import annotations

import re
from collections.abc import Iterable, Iterator

from .._generated import STRUCTURES
from .command import CALLING, COMMON, Command, Option

_TYPE_NAME = re.compile(r"[a-z][a-z0-9_]*(?:\.[a-z0-9_]+)+")

_DESCRIPTION = """\
keelctl asks keeld, the host's lifecycle daemon, to compare, fetch and change the host's software image, and shows the
tasks that come of it. Progress goes to standard error, results to standard output; with --json a result is one JSON
document. A command that starts a task waits for the task's end. Ctrl-C detaches from a task, which goes on.

Each operation of the interface definition is a command. An option that takes JSON is given the name of a file, a dash
for standard input, or the text itself when that begins with a brace or bracket."""

_CREDENTIALS = """\
As root, keelctl signs in with a ticket of its own making for each call. Others say who they are with --user; the
password is asked for at the terminal, or taken from --password-file or KEELD_PASSWORD. On hosts that are set up for
bearer tokens, the token is taken from --token-file or KEELD_TOKEN. No secret is taken from the command line, where all
users of the host could see it.

Other programs of root can sign in with what "keelctl ticket issue" prints: the ticket is sent as user name and as
password, once."""

_ENVIRONMENT = (
    ("KEELD_PASSWORD", "the password of --user"), ("KEELD_TOKEN", "a bearer token, where no option names a user or token"),
    ("LC_ALL, LC_MESSAGES, LANG", "the language that the daemon's messages are asked for in"))
_FILES = (("/run/orbane/tickets", "tickets that were not used yet, a file each"),
          ("/etc/services", "the entry keeld/tcp has the daemon's port"))
_EXAMPLES = (
    ("What differs from a wanted image?", "keelctl software scan --depot file:///srv/depot --base 2.0.0"),
    ("Bring it into use, once what runs now has ended:", "keelctl software apply --depot file:///srv/depot --spec image.json --wait"),
    ("Look at all tasks as another user than root:", "keelctl tasks list --user operator --json"))


def page(commands: Iterable[Command], exit_codes: Iterable[tuple[int, str]], version: str) -> str:
    """The page in roff."""
    return "\n".join(_lines(list(commands), exit_codes, version)) + "\n"


def roff(text: str) -> str:
    """A text in one line that stands in roff as it is."""
    line = " ".join(text.split()).replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq").replace("^", "\\(ha")
    line = line.replace("`", "\\(ga").replace("~", "\\(ti").replace('"', "\\(dq")
    line = "".join(character if character.isascii() else f"\\[u{ord(character):04X}]" for character in line)
    return "\\&" + line if line.startswith(".") else line


def _lines(commands: list[Command], exit_codes: Iterable[tuple[int, str]], version: str) -> Iterator[str]:
    yield ".\\\" Generated from the commands that keelctl has. Do not edit."
    yield f'.TH KEELCTL 1 "" "keeld {roff(version)}" "Host lifecycle"'
    yield ".SH NAME"
    yield "keelctl \\- manage this host\\(aqs image through keeld"
    yield ".SH SYNOPSIS"
    yield ".B keelctl"
    yield ".I COMMAND"
    yield "[\\fIOPTION\\fR]..."
    yield ".SH DESCRIPTION"
    yield from _paragraphs(_DESCRIPTION)
    yield ".SH COMMANDS"
    for command in commands:
        yield from _command(command)
    yield ".SH COMMON OPTIONS"
    yield "Each command takes"
    yield from _options(COMMON)
    yield ".PP"
    yield "and each that calls the daemon"
    yield from _options(CALLING)
    yield ".SH CREDENTIALS"
    yield from _paragraphs(_CREDENTIALS)
    yield ".SH EXIT STATUS"
    yield from _definitions((str(code), text) for code, text in exit_codes)
    yield ".SH ENVIRONMENT"
    yield from _definitions(_ENVIRONMENT)
    yield ".SH FILES"
    yield from _definitions(_FILES)
    yield ".SH EXAMPLES"
    for text, example in _EXAMPLES:
        yield from (".PP", roff(text), ".PP", ".nf", ".RS", roff(example), ".RE", ".fi")
    yield from _structures(commands)
    yield ".SH SEE ALSO"
    yield "The API reference in"
    yield ".IR /usr/share/doc/keeld/api\\-reference.md ."


def _command(command: Command) -> Iterator[str]:
    yield f".SS {roff(' '.join(command.words))}"
    yield f".B keelctl {roff(' '.join(command.words))}"
    for option in command.options:
        yield roff(option.synopsis)
    yield ".PP"
    yield roff(command.doc)
    operation = command.operation
    if operation is not None:
        if operation.task:
            yield "Starts a task."
        if operation.output != "void":
            yield f"The result is of the type {roff(operation.output)}."
    yield from _options(command.options)


def _options(options: Iterable[Option]) -> Iterator[str]:
    for option in options:
        yield ".TP"
        names = ", ".join(f"\\fB{roff(name)}\\fR" for name in option.names) if not option.is_argument else ""
        value = f"\\fI{roff(option.metavar)}\\fR" if option.metavar else ""
        yield f"{names} {value}".strip()
        yield roff(option.doc)
        if option.choices:
            yield f"One of {roff(', '.join(option.choices))}."


def _structures(commands: list[Command]) -> Iterator[str]:
    """The structures that options take, with all that they hold: whoever writes the JSON needs them."""
    wanted: list[str] = []
    for command in commands:
        for parameter in command.operation.parameters if command.operation else ():
            _collect(parameter.type, wanted)
    if wanted:
        yield ".SH STRUCTURES"
        yield "What the JSON documents of options hold. Fields in brackets may be left out."
    for identifier in sorted(wanted):
        yield f".SS {roff(identifier)}"
        for field in STRUCTURES[identifier]:
            yield ".TP"
            name = f"\\fB{roff(field.name)}\\fR"
            yield f"{name if field.required else f'[{name}]'} \\fI{roff(field.type)}\\fR"
            yield roff(field.doc)


def _collect(kind: str, found: list[str]) -> None:
    waiting = [kind]
    while waiting:
        for identifier in _TYPE_NAME.findall(waiting.pop()):
            if identifier in STRUCTURES and identifier not in found:
                found.append(identifier)
                waiting.extend(field.type for field in STRUCTURES[identifier])


def _definitions(entries: Iterable[tuple[str, str]]) -> Iterator[str]:
    for name, text in entries:
        yield from (".TP", f"\\fB{roff(name)}\\fR", roff(text))


def _paragraphs(text: str) -> Iterator[str]:
    for number, paragraph in enumerate(text.split("\n\n")):
        if number:
            yield ".PP"
        yield roff(paragraph)

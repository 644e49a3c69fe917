#!/usr/bin/python3
"""Holds the message catalogues against the sources: every message id in use has an English text.

Usage: check_catalogues.py [--root DIR] [--stamp FILE]

A message id is a quoted text "com.orbane.ryn.…" in a C++ or Python source or in the interface definition that is not
itself an identifier of the definition (a package, service, operation, structure, enumeration or error).

Catalogues are files "catalogues/<language>/*.omsg": UTF-8, lines `id = "text {1}"`, no sections; "#" begins a comment
line. Placeholders are {1}, {2} … without gaps. An id has one text a language, and a text in another language has the
placeholders of the English one. Prints what is wrong, a line each, as file:line: reason; exits with 1 if anything is.
"""

from __future__ import annotations

import argparse
import re
import sys
from pathlib import Path
from typing import Iterable, Iterator, NamedTuple

import yaml

SOURCE_FOLDERS = ("apps", "client", "configuration", "hosttools", "interface", "platform", "runtime", "security",
                  "software", "support", "tasks", "transport")
SOURCE_SUFFIXES = (".cpp", ".h", ".py", ".yaml")
LANGUAGES = ("en", "es", "de", "zh_CN", "zh_TW", "ko", "ja", "fr")

_USE = re.compile(r"""(["'])(com\.orbane\.ryn(?:\.\w+)+)\1""")
_LINE = re.compile(r'([a-z0-9_]+(?:\.[a-z0-9_]+)+) = "([^"\\]*)"')
_PLACEHOLDER = re.compile(r"\{(\d+)\}")


class Place(NamedTuple):
    """Where something stands, for the reader of a report."""

    path: Path
    line: int

    def __str__(self) -> str:
        return f"{self.path}:{self.line}"


class Entry(NamedTuple):
    """A text of a catalogue."""

    place: Place
    text: str


def _names(section: object) -> Iterator[str]:
    if isinstance(section, dict):
        yield from section


def identifiers(interface: Path) -> set[str]:
    """All identifiers that the interface definition declares, and the beginnings of dotted ones."""
    found: set[str] = set()
    for path in sorted(interface.glob("*.yaml")):
        document = yaml.safe_load(path.read_text(encoding="utf-8"))
        package = document["package"]
        owners = [(package, document)]
        for service, body in (document.get("services") or {}).items():
            owners.append((f"{package}.{service}", body))
        for owner, body in owners:
            parts = owner.split(".")
            found.update(".".join(parts[:count]) for count in range(1, len(parts) + 1))
            for section in ("structures", "enumerations", "errors", "operations", "services"):
                found.update(f"{owner}.{name}" for name in _names(body.get(section)))
    return found


def uses(text: str) -> Iterator[tuple[int, str]]:
    """The quoted ids of a source text with their line numbers."""
    for number, line in enumerate(text.splitlines(), 1):
        for match in _USE.finditer(line):
            yield number, match[2]


def placeholders(text: str) -> tuple[set[int], str | None]:
    """The numbers of a text's placeholders, and what is wrong with them, if anything."""
    numbers = {int(number) for number in _PLACEHOLDER.findall(text)}
    if re.search(r"[{}]", _PLACEHOLDER.sub("", text)):
        return numbers, "a brace that is no {1} placeholder"
    if numbers != set(range(1, len(numbers) + 1)):
        return numbers, "placeholders with a gap"
    return numbers, None


def read_catalogue(path: Path, shown: Path, entries: dict[str, Entry]) -> Iterator[str]:
    """Adds the entries of one file and yields what is wrong with it."""
    try:
        text = path.read_text(encoding="utf-8")
    except UnicodeDecodeError as error:
        yield f"{Place(shown, 1)}: not UTF-8: {error.reason}"
        return
    for number, line in enumerate(text.splitlines(), 1):
        place = Place(shown, number)
        if not line.strip() or line.startswith("#"):
            continue
        match = _LINE.fullmatch(line)
        if not match:
            yield f'{place}: not of the form id = "text", without quotes and backslashes in the text'
            continue
        if match[1] in entries:
            yield f"{place}: {match[1]} has a text already, at {entries[match[1]].place}"
            continue
        _, problem = placeholders(match[2])
        if problem or not match[2].strip():
            yield f"{place}: {problem or 'an empty text'}"
        entries[match[1]] = Entry(place, match[2])


def problems(root: Path) -> Iterator[str]:
    """All that is wrong below a source tree."""
    catalogues: dict[str, dict[str, Entry]] = {}
    for path in sorted((root / "catalogues").glob("*/*.omsg")):
        language = path.parent.name
        if language not in LANGUAGES:
            yield f"{path.relative_to(root)}:1: the daemon has no language {language}"
            continue
        yield from read_catalogue(path, path.relative_to(root), catalogues.setdefault(language, {}))
    english = catalogues.pop("en", {})

    declared = identifiers(root / "interface")
    missing: set[str] = set()
    for path in sources(root):
        for line, message_id in uses(path.read_text(encoding="utf-8")):
            if message_id not in english and message_id not in declared and message_id not in missing:
                missing.add(message_id)
                yield f"{Place(path.relative_to(root), line)}: {message_id} has no text in catalogues/en"

    for entries in catalogues.values():
        for message_id, entry in entries.items():
            if message_id not in english:
                yield f"{entry.place}: {message_id} has no English text"
            elif placeholders(entry.text)[0] != placeholders(english[message_id].text)[0]:
                yield f"{entry.place}: {message_id} has other placeholders than the English text"


def sources(root: Path) -> Iterable[Path]:
    """The sources that may name message ids."""
    return sorted(path for folder in SOURCE_FOLDERS for path in (root / folder).rglob("*")
                  if path.suffix in SOURCE_SUFFIXES and path.is_file())


def main(arguments: list[str] | None = None) -> int:
    """Checks one tree; touches the stamp when it is clean."""
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--root", type=Path, default=Path(__file__).resolve().parent.parent)
    parser.add_argument("--stamp", type=Path, help="file that is touched when nothing is wrong")
    options = parser.parse_args(arguments)
    found = list(problems(options.root))
    for problem in found:
        print(problem, file=sys.stderr)
    if found:
        return 1
    if options.stamp:
        options.stamp.touch()
    return 0


if __name__ == "__main__":
    sys.exit(main())

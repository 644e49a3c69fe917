"""From the texts of a command line to the values of an operation's parameters."""

from __future__ import annotations

import argparse
import json
import math
import re
import sys
from collections.abc import Callable
from dataclasses import dataclass
from typing import Any

from .._generated import ENUMERATIONS, Parameter
from .command import Option
from .signing_in import first_line
from .usage import UsageError

_INTEGER = re.compile(r"[+-]?[0-9]{1,19}")
_DATE_TIME = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d{1,3})?Z", re.ASCII)
_DOCUMENT_LIMIT = 2_500_000  # bytes; the daemon takes no longer request


@dataclass(frozen=True)
class Type:
    """A type of the interface definition: "map<string, integer>" is Type("map", Type("integer"))."""

    kind: str
    inner: "Type | None" = None

    @staticmethod
    def parse(text: str) -> "Type":
        """Reads a type as the definition writes it."""
        kind, bracket, rest = text.partition("<")
        if not bracket:
            return Type(text)
        return Type(kind, Type.parse(rest[:-1].removeprefix("string, ") if kind == "map" else rest[:-1]))


# What is empty where nothing is given.
_EMPTY: dict[str, Callable[[], Any]] = {"list": list, "set": list, "map": dict}


def text(word: str) -> str:
    """A text; words that are none in UTF-8 are refused."""
    try:
        word.encode()
    except UnicodeEncodeError:
        raise argparse.ArgumentTypeError("this is no text in UTF-8") from None
    return word


def integer(word: str) -> int:
    """An integer of 64 bits."""
    if not _INTEGER.fullmatch(word) or not -(1 << 63) <= int(word) < 1 << 63:
        raise argparse.ArgumentTypeError(f"{word!r} is no integer of 64 bits")
    return int(word)


def number(word: str) -> float:
    """A finite number."""
    try:
        value = float(word)
    except ValueError:
        value = math.nan
    if not math.isfinite(value):
        raise argparse.ArgumentTypeError(f"{word!r} is no number")
    return value


def boolean(word: str) -> bool:
    """true or false."""
    if word not in ("true", "false"):
        raise argparse.ArgumentTypeError(f"{word!r} is neither true nor false")
    return word == "true"


def date_time(word: str) -> str:
    """A time in UTC."""
    if not _DATE_TIME.fullmatch(word):
        raise argparse.ArgumentTypeError(f"{word!r} is no time such as 2026-01-31T12:00:00.000Z")
    return word


_SCALARS: dict[str, tuple[Callable[[str], Any], str]] = {
    "string": (text, "TEXT"), "integer": (integer, "N"), "double": (number, "NUMBER"), "boolean": (boolean, "true|false"),
    "date_time": (date_time, "TIME")}


def document(word: str) -> Any:
    """JSON: of the file that `word` names, of standard input for "-", or `word` itself when it begins as one with braces."""
    try:
        if word.startswith(("{", "[")):
            return json.loads(text(word))
        with (open(sys.stdin.fileno(), "rb", closefd=False) if word == "-" else open(word, "rb")) as file:
            content = file.read(_DOCUMENT_LIMIT + 1)
    except OSError as error:
        raise argparse.ArgumentTypeError(f"cannot read {word!r}: {error.strerror}") from error
    except (ValueError, RecursionError) as error:
        raise argparse.ArgumentTypeError(f"this is no JSON: {error}") from error
    if len(content) > _DOCUMENT_LIMIT:
        raise argparse.ArgumentTypeError(f"{word!r} is longer than the daemon takes")
    try:
        return json.loads(content)
    except (ValueError, RecursionError) as error:
        raise argparse.ArgumentTypeError(f"{word!r} holds no JSON: {error}") from error


def secret_file(word: str) -> str:
    """A secret, from the first line of a file: it does not belong on a command line."""
    try:
        return first_line(word)
    except UsageError as error:
        raise argparse.ArgumentTypeError(str(error)) from error


def pair(parse: Callable[[str], Any]) -> Callable[[str], tuple[str, Any]]:
    """NAME=VALUE, an entry of a map."""
    def parsed(word: str) -> tuple[str, Any]:
        name, separator, value = word.partition("=")
        if not name or not separator:
            raise argparse.ArgumentTypeError(f"this takes NAME=VALUE, not {word!r}")
        return text(name), parse(value)
    return parsed


def option_of(parameter: Parameter, name: str, target: str) -> Option:
    """The option that gives a parameter its value.

    A switch for a boolean, one word for other plain types, repeated ones for lists, sets and maps of them, a file for a
    secret, JSON for everything else. A list, set or map that isn't given is empty.
    """
    kind = Type.parse(parameter.type)
    inner = kind.inner
    common: dict[str, Any] = {"doc": parameter.doc, "target": target, "required": parameter.required and kind.kind not in _EMPTY}
    if kind.kind == "boolean":
        return Option(name, negatable=True, **common)
    if kind.kind == "secret":
        return Option(f"{name}-file", metavar="FILE", parse=secret_file, file=True, **common)
    if inner is None and _is_plain(kind):
        return Option(name, metavar=_metavar(kind), parse=_parser(kind), choices=_choices(kind), **common)
    if inner is not None and _is_plain(inner):
        common["doc"] += " May be repeated."
        if kind.kind in ("list", "set"):
            return Option(name, metavar=_metavar(inner), parse=_parser(inner), choices=_choices(inner), repeated=True, **common)
        if kind.kind == "map":
            return Option(name, metavar=f"NAME={_metavar(inner)}", parse=pair(_parser(inner)), repeated=True, **common)
    return Option(name, metavar="JSON", parse=document, file=True, **common)


def parameter_value(parameter: Parameter, given: Any) -> Any:
    """The parameter's value from what its option has collected; None leaves the parameter out."""
    if given is None and parameter.required:
        return _EMPTY[Type.parse(parameter.type).kind]()
    if isinstance(given, list) and given and Type.parse(parameter.type).kind == "map" and isinstance(given[0], tuple):
        value = dict(given)
        if len(value) != len(given):
            raise UsageError(f"a name is given twice for {parameter.name.replace('_', '-')}")
        return value
    return given


def _is_plain(kind: Type) -> bool:
    return kind.inner is None and (kind.kind in _SCALARS or kind.kind in ENUMERATIONS)


def _parser(kind: Type) -> Callable[[str], Any]:
    return _SCALARS[kind.kind][0] if kind.kind in _SCALARS else text


def _metavar(kind: Type) -> str:
    return _SCALARS[kind.kind][1] if kind.kind in _SCALARS else kind.kind.rpartition(".")[2].upper()


def _choices(kind: Type) -> tuple[str, ...]:
    return ENUMERATIONS.get(kind.kind, ()) if kind.kind not in _SCALARS else ()

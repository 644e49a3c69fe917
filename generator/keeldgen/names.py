"""How names of the definition become names of C++ and Python."""

from __future__ import annotations

import re

# A word of an identifier: lower snake case.
WORD = re.compile(r"[a-z][a-z0-9]*(_[a-z0-9]+)*\Z")
# An enumerator: upper snake case.
ENUMERATOR = re.compile(r"[A-Z][A-Z0-9]*(_[A-Z0-9]+)*\Z")

_CPP_RESERVED = frozenset(
    "alignas alignof and asm auto bool break case catch char class concept const continue default delete do double else "
    "enum explicit export extern false float for friend goto if inline int long mutable namespace new not nullptr "
    "operator or private protected public register requires return short signed sizeof static struct switch template "
    "this throw true try typedef typeid typename union unsigned using virtual void volatile while xor".split())


def pascal(word: str) -> str:
    """"check_apply" → "CheckApply"."""
    return "".join(part.capitalize() for part in word.split("_"))


def camel(word: str) -> str:
    """"start_time" → "startTime"; a reserved word of C++ gets an underscore."""
    first, *rest = word.split("_")
    name = first + "".join(part.capitalize() for part in rest)
    return name + "_" if name in _CPP_RESERVED else name


def namespace(identifier: str) -> str:
    """"com.orbane.ryn.keel_daemon" → "Com::Orbane::Ryn::KeelDaemon"."""
    return "::".join(pascal(word) for word in identifier.split("."))


def is_identifier(text: str) -> bool:
    """Dotted words in lower snake case."""
    return all(WORD.match(word) for word in text.split("."))

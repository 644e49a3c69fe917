"""Definition → the client's Python module of structures and operations."""

from __future__ import annotations

import json
import keyword
import textwrap
from typing import Iterator

from . import names
from .metadata import command_namespaces
from .model import Declared, Definition, Enumeration, Field, Operation, Structure, Type

_FILE = "python/keeld_client/_generated.py"
_SCALARS = {"boolean": "bool", "integer": "int", "double": "float", "string": "str", "secret": "str",
            "date_time": "str", "dynamic": "Any", "void": "None"}

_HEAD = '''"""Structures and operations of the API, generated from the interface definition. Do not edit.

Structures are dictionaries in the direct JSON form: an optional field that is unset is not there, times are texts as
"2024-02-29T12:00:00.125Z", enumerators are their names. An enumeration may hold a text that this version doesn't know.

OPERATIONS holds all operations by identifier, COMMANDS the same by the words of the command line, ENUMERATIONS the
enumerators and STRUCTURES the fields of each type by its identifier, NAMESPACES what the words in front of a command's
last one stand for, and ERROR_CODES the number of each error in JSON-RPC answers.
"""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any, NotRequired, TypedDict


@dataclass(frozen=True)
class Parameter:
    """A parameter of an operation or a field of a structure. `type` is written as in the definition, without
    "optional<…>", types by their full identifiers."""

    name: str
    type: str
    required: bool
    doc: str


@dataclass(frozen=True)
class Operation:
    """An operation. For a task, `output` is the type of the task's result.

    `errors` are identifiers; `command` the words of the command line, empty for none; `authentication` the accepted
    security schemes, empty when no user is needed.
    """

    identifier: str
    service: str
    name: str
    doc: str
    parameters: tuple[Parameter, ...]
    output: str
    output_doc: str
    task: bool
    errors: tuple[str, ...]
    command: tuple[str, ...]
    authentication: tuple[str, ...]
    privileges: tuple[str, ...]
'''


def file_names(_definition: Definition) -> list[str]:
    """The files that `render` makes."""
    return [_FILE]


def render(definition: Definition) -> dict[str, str]:
    """Content by file name."""
    return {_FILE: "\n".join(_module(definition)) + "\n"}


def class_name(declared: Declared) -> str:
    """"com.orbane.halo.task.info" → "HaloTaskInfo"."""
    words = declared.full_name.split(".")
    return "".join(names.pascal(word) for word in (words[2:] if words[:2] == ["com", "orbane"] else words))


def _module(definition: Definition) -> Iterator[str]:
    yield _HEAD
    for scope in definition.scopes():
        for enumeration in scope.enumerations:
            yield from _enumeration(enumeration)
    for scope in definition.scopes():
        for structure in scope.structures:
            yield from _structure(structure)
    errors = [structure for scope in definition.scopes() for structure in scope.structures if structure.is_error]
    yield "\nERROR_CODES: dict[str, int] = {"
    for error in errors:
        yield f"    {_text(error.full_name)}: {error.code},"
    yield "}"
    yield "\nENUMERATIONS: dict[str, tuple[str, ...]] = {"
    for scope in definition.scopes():
        for enumeration in scope.enumerations:
            yield f"    {_text(enumeration.full_name)}: {_tuple([value.name for value in enumeration.values])},"
    yield "}"
    yield "\nSTRUCTURES: dict[str, tuple[Parameter, ...]] = {"
    for scope in definition.scopes():
        for structure in scope.structures:
            yield f"    {_text(structure.full_name)}: ("
            yield from _parameters(structure.all_fields)
            yield "    ),"
    yield "}"
    yield "\nNAMESPACES: dict[tuple[str, ...], str] = {"
    for path, doc in command_namespaces(operation for operation in definition.operations() if operation.cli).items():
        yield f"    {_tuple(path)}: {_text(doc)},"
    yield "}"
    yield "\nOPERATIONS: dict[str, Operation] = {"
    for operation in definition.operations():
        yield from _operation(operation)
    yield "}"
    yield "\nCOMMANDS: dict[tuple[str, ...], Operation] = {"
    yield "    operation.command: operation for operation in OPERATIONS.values() if operation.command"
    yield "}"


def _enumeration(enumeration: Enumeration) -> Iterator[str]:
    yield f"\nclass {class_name(enumeration)}:"
    yield f"    {_doc(enumeration.doc)}"
    yield ""
    for value in enumeration.values:
        yield f"    {value.name} = {_text(value.name)}"
    yield f"    NUMBERS = {{{', '.join(f'{_text(value.name)}: {value.number}' for value in enumeration.values)}}}"
    yield ""


def _structure(structure: Structure) -> Iterator[str]:
    fields = structure.all_fields
    if any(keyword.iskeyword(field.name) for field in fields):
        yield f"\n# {structure.doc}"
        inside = ", ".join(f"{_text(field.name)}: {_text(_annotation(field))}" for field in fields)
        yield f"{class_name(structure)} = TypedDict({_text(class_name(structure))}, {{{inside}}})"
        yield ""
        return
    yield f"\nclass {class_name(structure)}(TypedDict):"
    yield f"    {_doc(structure.doc)}"
    yield ""
    for field in fields:
        yield from textwrap.wrap(field.doc, 110, initial_indent="    # ", subsequent_indent="    # ")
        yield f"    {field.name}: {_annotation(field)}"
    yield ""


def _annotation(field: Field) -> str:
    inner = _type(field.type.inner)
    return f"NotRequired[{inner}]" if field.type.optional else inner


def _type(kind: Type) -> str:
    if isinstance(kind.target, Enumeration):
        return "str"
    if kind.target is not None:
        return class_name(kind.target)
    if kind.kind in ("list", "set"):
        return f"list[{_type(kind.args[0])}]"
    if kind.kind == "map":
        return f"dict[str, {_type(kind.args[0])}]"
    if kind.kind == "message":
        return "dict[str, Any]"
    return _SCALARS[kind.kind] if not kind.optional else _type(kind.inner)


def _operation(operation: Operation) -> Iterator[str]:
    yield f"    {_text(operation.full_name)}: Operation("
    yield f"        {_text(operation.full_name)}, {_text(operation.service.full_name)}, {_text(operation.name)},"
    yield f"        {_text(operation.doc)},"
    yield "        ("
    yield from _parameters(operation.parameters)
    yield "        ),"
    yield f"        {_text(str(operation.output))}, {_text(operation.output_doc)}, {operation.task},"
    yield f"        {_tuple([use.error.full_name for use in operation.errors])},"
    yield (f"        {_tuple(operation.cli)}, {_tuple(operation.authentication)}, "
           f"{_tuple(operation.privileges)}),")


def _parameters(fields: list[Field]) -> Iterator[str]:
    for field in fields:
        yield (f"            Parameter({_text(field.name)}, {_text(str(field.type.inner))}, {not field.type.optional}, "
               f"{_text(field.doc)}),")


def _tuple(words: tuple[str, ...] | list[str]) -> str:
    return "(" + "".join(f"{_text(word)}, " for word in words).rstrip() + ")"


def _text(text: str) -> str:
    return json.dumps(text, ensure_ascii=False)


def _doc(text: str) -> str:
    return '"""' + text.replace("\\", "\\\\").replace('"""', "'''") + '"""'

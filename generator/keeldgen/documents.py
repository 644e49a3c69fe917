"""Definition → documents for readers: an OpenRPC document and a reference in Markdown."""

from __future__ import annotations

import json
from typing import Any, Iterator, Union

from . import schema
from .model import Definition, Enumeration, Field, Operation, Package, Service, Structure, Type

_OPENRPC = "docs/openrpc.json"
_REFERENCE = "docs/api-reference.md"


def file_names(_definition: Definition) -> list[str]:
    """The files that `render` makes."""
    return [_OPENRPC, _REFERENCE]


def render(definition: Definition) -> dict[str, str]:
    """Content by file name."""
    return {_OPENRPC: json.dumps(_openrpc(definition), indent=2, ensure_ascii=False) + "\n",
            _REFERENCE: "\n".join(_reference(definition)) + "\n"}


def _openrpc(definition: Definition) -> dict[str, Any]:
    schemas: dict[str, Any] = {}
    for scope in _shown(definition):
        schemas.update((one.full_name, schema.of_enumeration(one)) for one in scope.enumerations)
        schemas.update((one.full_name, schema.of_structure(one)) for one in scope.structures)
    return {
        "openrpc": "1.3.2",
        "info": {"title": "keeld", "version": "1.0.0",
                 "description": "The lifecycle service of a host, served on its loopback addresses."},
        "servers": [{"name": "host", "url": "http://localhost:7433/"}],
        "methods": [_method(operation) for operation in definition.operations()],
        "components": {"schemas": schemas},
    }


def _method(operation: Operation) -> dict[str, Any]:
    if operation.task:
        result = {"name": "task", "description": "Identifier of the task.", "schema": {"type": "string"}}
    else:
        result = {"name": "output", "description": operation.output_doc or "Nothing.",
                  "schema": schema.of_type(operation.output)}
    method: dict[str, Any] = {
        "name": operation.full_name, "summary": operation.doc, "paramStructure": "by-name",
        "params": [{"name": field.name, "description": field.doc, "required": not field.type.optional,
                    "schema": schema.of_type(field.type)} for field in operation.parameters],
        "result": result,
        "errors": [{"code": use.error.code, "message": f"{use.error.full_name}: {use.doc}"}
                   for use in operation.errors],
    }
    if operation.task:
        method["x-task-result"] = schema.of_type(operation.output)
    if operation.cli:
        method["x-command"] = list(operation.cli)
    return method


def _shown(definition: Definition) -> Iterator[Union[Package, Service]]:
    """The scopes but for services without operations."""
    return (scope for scope in definition.scopes() if isinstance(scope, Package) or scope.operations)


def _reference(definition: Definition) -> Iterator[str]:
    yield "# API reference"
    yield ""
    yield "Operations take parameters by name. Types are those of the direct JSON form; fields and parameters marked " \
          "*optional* may be left out. A task operation answers with the identifier of a task, which " \
          "`com.orbane.halo.tasks.get` describes."
    services = [service for service in definition.services() if service.operations]
    yield ""
    yield "| service | |"
    yield "|---|---|"
    for service in services:
        yield f"| [{service.full_name}](#{_anchor(service.full_name)}) | {service.doc} |"
    for service in services:
        yield from _service(service)
    yield ""
    yield "## Structures"
    for scope in _shown(definition):
        for structure in scope.structures:
            if not structure.is_error:
                yield from _structure(structure)
    yield ""
    yield "## Enumerations"
    for scope in _shown(definition):
        for enumeration in scope.enumerations:
            yield from _enumeration(enumeration)
    yield ""
    yield "## Errors"
    yield ""
    yield "| error | code | |"
    yield "|---|---|---|"
    for scope in _shown(definition):
        for structure in scope.structures:
            if structure.is_error:
                yield f"| `{structure.full_name}` | {structure.code} | {_cell(structure.doc)} |"


def _service(service: Service) -> Iterator[str]:
    yield ""
    yield f"## {service.full_name}"
    yield ""
    yield service.doc
    for operation in service.operations:
        yield ""
        yield f"### {operation.full_name}"
        yield ""
        yield operation.doc
        yield ""
        if operation.cli:
            yield f"- Command: `keelctl {' '.join(operation.cli)}`"
        if operation.task:
            yield f"- Answers with a task; its result: {_type(operation.output)}. {operation.output_doc}".rstrip()
        else:
            yield f"- Output: {_type(operation.output)}. {operation.output_doc}".rstrip()
        yield f"- Authentication: {'user' if operation.authentication else 'none'}"
        if operation.privileges:
            yield f"- Privileges: {', '.join(f'`{privilege}`' for privilege in operation.privileges)}"
        yield from _fields("parameter", operation.parameters)
        if operation.errors:
            yield ""
            yield "| error | when |"
            yield "|---|---|"
            for use in operation.errors:
                yield f"| `{use.error.name}` | {_cell(use.doc)} |"


def _structure(structure: Structure) -> Iterator[str]:
    yield ""
    yield f"### {structure.full_name}"
    yield ""
    yield structure.doc
    yield from _fields("field", structure.all_fields)


def _fields(what: str, fields: list[Field]) -> Iterator[str]:
    if fields:
        yield ""
        yield f"| {what} | type | |"
        yield "|---|---|---|"
        for field in fields:
            optional = "*optional* " if field.type.optional else ""
            yield f"| `{field.name}` | {optional}{_type(field.type.inner)} | {_cell(field.doc)} |"


def _enumeration(enumeration: Enumeration) -> Iterator[str]:
    yield ""
    yield f"### {enumeration.full_name}"
    yield ""
    yield enumeration.doc
    yield ""
    yield "| value | number | |"
    yield "|---|---|---|"
    for value in enumeration.values:
        yield f"| `{value.name}` | {value.number} | {_cell(value.doc)} |"


def _type(kind: Type) -> str:
    """The type, with a link where it has a section."""
    if kind.target is not None:
        return f"[{kind.target.name}](#{_anchor(kind.target.full_name)})"
    if kind.kind == "map":
        return f"map of string to {_type(kind.args[0])}"
    if kind.args:
        return f"{kind.kind} of {_type(kind.args[0])}"
    return str(kind)


def _anchor(title: str) -> str:
    """The anchor that Markdown readers make of a heading."""
    return title.replace(".", "")


def _cell(text: str) -> str:
    return text.replace("|", "\\|")

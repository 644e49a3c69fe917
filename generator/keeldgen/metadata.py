"""Definition → the metadata files that the daemon loads at its start.

Each file is an object with one member, the component's document in compact form; a document's fingerprint is the
SHA-256 of its bytes. The shapes are described in docs/interface-definition.md. Services without operations appear in
none of them.
"""

from __future__ import annotations

import json
from typing import Any, Iterable

from .model import Definition, Field, Operation, Package, Service, Structure

NO_AUTHENTICATION = "com.orbane.lumo.std.security.no_authentication"
_SCHEME = "com.orbane.lumo.std.security."
_AUTHENTICATION = "metadata/keeld_lumo_authentication.json"
_AUTHORIZATION = "metadata/keeld_lumo_authorization.json"
_PREFIXES = {"settings": "keeld_lumo", "lumo_std": "lumo_common"}


def file_names(definition: Definition) -> list[str]:
    """The files that `render` makes."""
    return sorted(render(definition))


def render(definition: Definition) -> dict[str, str]:
    """Content by file name."""
    files = {
        _AUTHENTICATION: _file("settings_lumo_authentication", _authentication(definition.own)),
        _AUTHORIZATION: compact({"operations": {
            operation.full_name: sorted(operation.privileges)
            for operation in definition.operations() if operation.authentication}}) + "\n",
    }
    for component, prefix in _PREFIXES.items():
        packages = [package for package in definition.own if package.component == component]
        files[f"metadata/{prefix}_cli.json"] = _file(component, _cli(packages))
        files[f"metadata/{prefix}_metamodel.json"] = _file(component, _metamodel(packages))
    return files


def compact(value: Any) -> str:
    """JSON as the daemon's own writer makes it: no blanks, UTF-8 as it is."""
    return json.dumps(value, ensure_ascii=False, separators=(",", ":"))


def _file(component: str, document: dict[str, Any]) -> str:
    return compact({component: document}) + "\n"


def _bound(packages: Iterable[Package]) -> Iterable[Service]:
    return (service for package in packages for service in package.services if service.operations)


def _cli(packages: list[Package]) -> dict[str, Any]:
    commands = sorted((operation for service in _bound(packages) for operation in service.operations if operation.cli),
                      key=lambda operation: operation.cli)
    return {
        "namespaces": [{"path": list(path[:-1]), "name": path[-1], "description": doc}
                       for path, doc in command_namespaces(commands).items()],
        "commands": [_command(operation) for operation in commands],
    }


def command_namespaces(commands: Iterable[Operation]) -> dict[tuple[str, ...], str]:
    """What the words in front of the last one of commands stand for, by those words and sorted: the service that the
    operation belongs to, and in front of that its package."""
    spaces: dict[tuple[str, ...], str] = {}
    for operation in commands:
        path = operation.cli[:-1]
        spaces[path] = operation.service.doc
        for length in range(1, len(path)):
            spaces.setdefault(path[:length], operation.service.package.doc)
    return {path: doc for path, doc in sorted(spaces.items()) if path}


def _command(operation: Operation) -> dict[str, Any]:
    return {
        "path": list(operation.cli[:-1]), "name": operation.cli[-1], "description": operation.doc,
        "service": operation.service.full_name, "operation": operation.name, "task": operation.task,
        "options": [{"name": field.name.replace("_", "-"), "field": field.name, "type": str(field.type.inner),
                     "required": not field.type.optional, "description": field.doc}
                    for field in operation.parameters],
        "output": str(operation.output),
    }


def _metamodel(packages: list[Package]) -> dict[str, Any]:
    found: dict[str, Any] = {}
    for package in packages:
        services = [service for service in package.services if service.operations]
        scopes = [package, *services]
        enumerations = {enumeration.full_name: {
            "description": enumeration.doc,
            "values": [{"name": value.name, "number": value.number, "description": value.doc}
                       for value in enumeration.values]} for scope in scopes for enumeration in scope.enumerations}
        structures = {structure.full_name: _structure(structure)
                      for scope in scopes for structure in scope.structures}
        if not (enumerations or structures or services):
            continue
        found[package.full_name] = {
            "description": package.doc, "enumerations": enumerations, "structures": structures,
            "services": {service.full_name: {
                "description": service.doc,
                "operations": {operation.name: _operation(operation) for operation in service.operations},
            } for service in services},
        }
    return {"packages": found}


def _structure(structure: Structure) -> dict[str, Any]:
    return {"description": structure.doc, "type": "ERROR" if structure.is_error else "STRUCTURE",
            "fields": _fields(structure.all_fields)}


def _fields(fields: list[Field]) -> list[dict[str, Any]]:
    return [{"name": field.name, "type": str(field.type), "description": field.doc} for field in fields]


def _operation(operation: Operation) -> dict[str, Any]:
    return {
        "description": operation.doc, "task": operation.task, "parameters": _fields(operation.parameters),
        "output": {"type": str(operation.output), "description": operation.output_doc},
        "errors": [{"error": use.error.full_name, "description": use.doc} for use in operation.errors],
    }


def _authentication(packages: list[Package]) -> dict[str, Any]:
    found: dict[str, Any] = {}
    for service in _bound(packages):
        services = found.setdefault(service.package.full_name, {"services": {}})["services"]
        services[service.full_name] = {"operations": {
            operation.name: [_SCHEME + scheme for scheme in operation.authentication] or [NO_AUTHENTICATION]
            for operation in service.operations}}
    return {"packages": found}

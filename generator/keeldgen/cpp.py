"""Definition → C++: one header and source a package, one a service."""

from __future__ import annotations

import json
import textwrap
from pathlib import Path
from typing import Union

import jinja2

from .model import Definition, Package, Service, Structure, Type

_SCALARS = {
    "boolean": "bool", "integer": "long long", "double": "double", "string": "std::string",
    "secret": "::Lumo::Secret", "date_time": "::Lumo::DateTime", "dynamic": "::Lumo::Data::DynamicStructure",
    "message": "::Lumo::BaseMessage", "void": "::Lumo::Void",
}
_DEFAULTS = {"boolean": " = false", "integer": " = 0", "double": " = 0"}


def file_names(definition: Definition) -> list[str]:
    """The files that `render` makes."""
    stems = [package.stem for package in definition.own if package.has_types]
    stems += [service.stem for service in definition.services()]
    return [stem + suffix for stem in stems for suffix in (".h", ".cpp")]


def render(definition: Definition) -> dict[str, str]:
    """Content by file name."""
    environment = _environment()
    files = {}
    for scope in definition.scopes():
        if isinstance(scope, Package) and not scope.has_types:
            continue
        context = {"scope": scope, "source": _package(scope).source, "includes": _includes(scope),
                   "is_service": isinstance(scope, Service)}
        for suffix in (".h", ".cpp"):
            files[scope.stem + suffix] = environment.get_template(f"bindings{suffix}.j2").render(context)
    return files


def cpp_type(kind: Type) -> str:
    """The C++ type of a field or result."""
    if kind.kind == "structure":
        return f"std::shared_ptr<{kind.target.cpp_full} const>"
    if kind.kind == "enumeration":
        return kind.target.cpp_full
    if kind.optional:
        if kind.inner.kind == "structure":
            return f"::Lumo::OptionalPtr<{kind.inner.target.cpp_full} const>"
        return f"boost::optional<{cpp_type(kind.inner)}>"
    if kind.kind in ("list", "set"):
        return f"std::{kind.kind}<{cpp_type(kind.args[0])}>"
    if kind.kind == "map":
        return f"std::map<std::string, {cpp_type(kind.args[0])}>"
    return _SCALARS[kind.kind]


def _package(scope: Union[Package, Service]) -> Package:
    return scope if isinstance(scope, Package) else scope.package


def _types(scope: Union[Package, Service]) -> list[Type]:
    types = [field.type for structure in scope.structures for field in structure.fields]
    if isinstance(scope, Service):
        for operation in scope.operations:
            types += [field.type for field in operation.parameters] + [operation.output]
    return types


def _includes(scope: Union[Package, Service]) -> list[str]:
    """Headers of the packages and services whose types are used."""
    found = set()
    for kind in _types(scope):
        for target in kind.targets():
            if target.scope is not scope:
                found.add(f"{target.scope.stem}.h")
    return sorted(found)


def _roots(structures: list[Structure]) -> list[Structure]:
    """Errors in an order in which each stands behind its base, the rest as declared."""
    return sorted(structures, key=_depth)


def _depth(structure: Structure) -> int:
    return 0 if structure.base is None else _depth(structure.base) + 1


def _derived(structure: Structure) -> list[Structure]:
    """All errors that derive from it, directly or not."""
    found = []
    for other in structure.scope.structures:
        base = other.base
        while base is not None:
            if base is structure:
                found.append(other)
            base = base.base
    return found


def _comment(text: str, indent: int = 0) -> str:
    """The text as documentation comment of lines below 110 columns."""
    lines = textwrap.wrap(text, 106 - indent, break_long_words=False, break_on_hyphens=False)
    return "\n".join(" " * indent + "/// " + line for line in lines)


def _environment() -> jinja2.Environment:
    environment = jinja2.Environment(
        loader=jinja2.FileSystemLoader(Path(__file__).parent / "templates"), undefined=jinja2.StrictUndefined,
        trim_blocks=True, lstrip_blocks=True, keep_trailing_newline=True, autoescape=False)
    environment.filters.update(
        cpp_type=cpp_type, comment=_comment, roots=_roots, derived=_derived, default=lambda kind: _DEFAULTS.get(kind, ""),
        literal=lambda text: json.dumps(text, ensure_ascii=False))
    return environment

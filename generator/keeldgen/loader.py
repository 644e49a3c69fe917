"""Reads and checks the interface definition."""

from __future__ import annotations

import re
from pathlib import Path
from typing import Union

from . import names
from .model import (SCALARS, Definition, Enumeration, Enumerator, ErrorUse, Field, Operation, Package, Service,
                    Structure, Type)
from .yaml_nodes import DefinitionError, Node, read

STANDARD_ERRORS = "com.orbane.lumo.std.errors"
COMPONENTS = ("settings", "lumo_std")
SCHEMES = ("user_pass", "bearer_token")
_CLI_WORD = re.compile(r"[a-z][a-z0-9]*(-[a-z0-9]+)*\Z")
_PRIVILEGE = re.compile(r"[A-Z][A-Za-z0-9]*(\.[A-Z][A-Za-z0-9]*)+\Z")

Scope = Union[Package, Service]


def load(folders: list[Path], imports: list[Path]) -> Definition:
    """The definition of all YAML files in `folders`, which may refer to what the folders `imports` declare."""
    return _Loader().load(folders, imports)


class _Loader:
    def __init__(self) -> None:
        self._declared: dict[str, Union[Structure, Enumeration, Service]] = {}
        self._packages: dict[str, Package] = {}
        self._commands: dict[tuple[str, ...], Operation] = {}

    def load(self, folders: list[Path], imports: list[Path]) -> Definition:
        documents: list[tuple[Package, dict[str, Node]]] = []
        for folder, imported in [(f, False) for f in folders] + [(f, True) for f in imports]:
            for file in sorted(folder.glob("*.yaml")):
                shown = Path(folder.name) / file.name
                documents.append(self._package(read(file, shown), file, shown, imported))
        # Names first, so that the order of files and declarations does not matter.
        bodies = [body for package, members in documents for body in self._declare(package, members)]
        for body in bodies:
            body()
        definition = Definition(sorted(self._packages.values(), key=lambda package: package.full_name))
        _refuse_cycles(definition)
        return definition

    def _package(self, root: Node, file: Path, shown: Path, imported: bool) -> tuple[Package, dict[str, Node]]:
        members = root.only("component", "cpp_alias", "enumerations", "structures", "errors", "services",
                            required=("package", "doc"))
        name = members["package"].text()
        if not names.is_identifier(name):
            members["package"].fail(f"'{name}' is not a dotted identifier in lower snake case")
        if file.stem != name:
            members["package"].fail(f"the package '{name}' belongs into {name}.yaml")
        if name in self._packages:
            members["package"].fail(f"the package '{name}' stands twice")
        component = members["component"].text() if "component" in members else COMPONENTS[0]
        if component not in COMPONENTS:
            members["component"].fail(f"component is one of {', '.join(COMPONENTS)}")
        alias = members["cpp_alias"].text() if "cpp_alias" in members else ""
        package = Package(name, members["doc"].text(), str(shown), component, alias, imported)
        self._packages[name] = package
        return package, members

    def _declare(self, package: Package, members: dict[str, Node]):
        yield from self._declare_types(package, members)
        for name, node in _named(members.get("services")):
            body = node.only("authentication", "enumerations", "structures", "operations", required=("doc",))
            service = Service(name, package, body["doc"].text(), node.where)
            self._register(service.full_name, service, node)
            package.services.append(service)
            yield from self._declare_types(service, body)
            schemes = _schemes(body.get("authentication"), SCHEMES)
            for operation, part in _named(body.get("operations")):
                yield lambda s=service, o=operation, n=part, a=schemes: self._operation(s, o, n, a)

    def _declare_types(self, scope: Scope, members: dict[str, Node]):
        for name, node in _named(members.get("enumerations")):
            body = node.only("unset", required=("doc", "values"))
            enumeration = Enumeration(name, scope, body["doc"].text(), node.where)
            self._register(enumeration.full_name, enumeration, node)
            scope.enumerations.append(enumeration)
            yield lambda e=enumeration, b=body: _fill_enumeration(e, b)
        for name, node in _named(members.get("structures")):
            body = node.only(required=("doc", "fields"))
            structure = Structure(name, scope, body["doc"].text(), node.where)
            self._register(structure.full_name, structure, node)
            scope.structures.append(structure)
            yield lambda s=structure, b=body: s.fields.extend(self._fields(b["fields"], s.scope))
        for name, node in _named(members.get("errors")):
            body = node.only("base", "fields", required=("doc", "code"))
            error = Structure(name, scope, body["doc"].text(), node.where, is_error=True, code=body["code"].integer())
            self._register(error.full_name, error, node)
            scope.structures.append(error)
            yield lambda e=error, b=body: self._fill_error(e, b)

    def _register(self, full_name: str, thing: Union[Structure, Enumeration, Service], node: Node) -> None:
        if full_name in self._declared:
            node.fail(f"'{full_name}' is declared twice, first at {self._declared[full_name].where}")
        self._declared[full_name] = thing

    def _fields(self, node: Node, scope: Scope) -> list[Field]:
        fields = []
        for name, part in _named(node):
            body = part.only(required=("type", "doc"))
            fields.append(Field(name, self._type(body["type"], scope), body["doc"].text(), part.where))
        return fields

    def _fill_error(self, error: Structure, body: dict[str, Node]) -> None:
        if "base" in body:
            base = self._lookup(body["base"].text(), error.scope)
            if not isinstance(base, Structure) or not base.is_error or base.scope is not error.scope:
                body["base"].fail(f"no error '{body['base'].text()}' in this package")
            error.base = base
        if "fields" in body:
            error.fields.extend(self._fields(body["fields"], error.scope))

    def _operation(self, service: Service, name: str, node: Node, schemes: tuple[str, ...]) -> None:
        body = node.only("task", "cli", "authentication", "privileges", "parameters", "output", "errors",
                         required=("doc",))
        output, output_doc = Type("void"), ""
        if "output" in body:
            part = body["output"].only(required=("type", "doc"))
            output, output_doc = self._type(part["type"], service), part["doc"].text()
        operation = Operation(
            name, service, body["doc"].text(), node.where,
            parameters=self._fields(body["parameters"], service) if "parameters" in body else [],
            output=output, output_doc=output_doc,
            errors=[self._error_use(n, use, service) for n, use in _named(body.get("errors"), dotted=True)],
            task=body["task"].boolean() if "task" in body else False,
            cli=tuple(body["cli"].text().split()) if "cli" in body else (),
            authentication=_schemes(body.get("authentication"), schemes),
            privileges=tuple(item.text() for item in body["privileges"].items()) if "privileges" in body else ())
        for word in operation.cli:
            if not _CLI_WORD.match(word):
                body["cli"].fail(f"'{word}' is not a word of a command line")
        if operation.cli:
            other = self._commands.setdefault(operation.cli, operation)
            if other is not operation:
                body["cli"].fail(f"the command '{' '.join(operation.cli)}' belongs to {other.full_name} already")
        for privilege in operation.privileges:
            if not _PRIVILEGE.match(privilege):
                body["privileges"].fail(f"'{privilege}' is not a privilege, as 'Software.View'")
        if operation.authentication and not operation.privileges:
            node.fail(f"'{name}' needs a user and so needs privileges")
        service.operations.append(operation)

    def _error_use(self, name: str, node: Node, scope: Scope) -> ErrorUse:
        error = self._lookup(name, scope) or self._declared.get(f"{STANDARD_ERRORS}.{name}")
        if not isinstance(error, Structure) or not error.is_error:
            node.fail(f"no error '{name}'")
        return ErrorUse(error, node.text())

    def _lookup(self, name: str, scope: Scope) -> Union[Structure, Enumeration, Service, None]:
        """A name in the scope, in its package, or the full identifier."""
        candidates = [f"{scope.full_name}.{name}"]
        if isinstance(scope, Service):
            candidates.append(f"{scope.package.full_name}.{name}")
        for candidate in candidates + [name]:
            if candidate in self._declared:
                return self._declared[candidate]
        return None

    def _type(self, node: Node, scope: Scope) -> Type:
        text = node.text().replace(" ", "")
        found = self._parse(text, node, scope)
        return found

    def _parse(self, text: str, node: Node, scope: Scope) -> Type:
        match = re.fullmatch(r"(optional|list|set|map)<(.*)>", text)
        if match:
            return self._container(match[1], match[2], node, scope)
        if text in SCALARS:
            return Type(text)
        target = self._lookup(text, scope) if names.is_identifier(text) else None
        if not isinstance(target, (Structure, Enumeration)):
            node.fail(f"no type '{text}'")
        return Type("enumeration" if isinstance(target, Enumeration) else "structure", target=target)

    def _container(self, kind: str, inside: str, node: Node, scope: Scope) -> Type:
        if kind == "map":
            if not inside.startswith("string,"):
                node.fail("the keys of a map are texts: map<string, …>")
            inside = inside[len("string,"):]
        inner = self._parse(inside, node, scope)
        if kind == "optional" and inner.optional:
            node.fail("an optional of an optional")
        if kind == "set" and inner.kind not in ("string", "integer", "enumeration"):
            node.fail("the elements of a set are texts, integers or enumerators")
        return Type(kind, (inner,))


def _named(node: Node | None, dotted: bool = False) -> list[tuple[str, Node]]:
    """The members of an optional mapping, whose names are words in lower snake case."""
    if node is None:
        return []
    found = list(node.members().items())
    for name, part in found:
        if not (names.is_identifier(name) if dotted else names.WORD.match(name)):
            part.fail(f"'{name}' is not a name in lower snake case")
    return found


def _schemes(node: Node | None, inherited: tuple[str, ...]) -> tuple[str, ...]:
    if node is None:
        return inherited
    text = node.text()
    if text == "none":
        return ()
    if text == "user":
        return SCHEMES
    node.fail("authentication is 'user' or 'none'")


def _fill_enumeration(enumeration: Enumeration, body: dict[str, Node]) -> None:
    for name, node in body["values"].members().items():
        if not names.ENUMERATOR.match(name):
            node.fail(f"'{name}' is not a name in upper snake case")
        if name == "UNKNOWN":
            node.fail("UNKNOWN stands for the texts that an enumeration doesn't know")
        part = node.only("number", required=("doc",))
        used = {value.number for value in enumeration.values}
        number = part["number"].integer() if "number" in part else max(used, default=-1) + 1
        if number in used:
            node.fail(f"the number {number} stands twice")
        enumeration.values.append(Enumerator(name, number, part["doc"].text()))
    if not enumeration.values:
        body["values"].fail("an enumeration without values")
    numbers = {value.number for value in enumeration.values}
    enumeration.unset = body["unset"].integer() if "unset" in body else max(numbers) + 1
    if enumeration.unset in numbers:
        body["unset"].fail(f"the number {enumeration.unset} stands for a value already")


def _refuse_cycles(definition: Definition) -> None:
    """Packages whose headers would include one another are a fault."""
    uses: dict[str, set[str]] = {}
    where: dict[str, str] = {}
    for package in definition.packages:
        uses[package.full_name] = set()
        for structure in package.structures:
            for one in structure.fields:
                for target in one.type.targets():
                    if target.package is not package:
                        uses[package.full_name].add(target.package.full_name)
                        where.setdefault(package.full_name, one.where)
    while uses:
        free = [name for name, needs in uses.items() if not needs & uses.keys()]
        if not free:
            first = min(uses)
            raise DefinitionError(f"{where[first]}: packages refer to one another: {', '.join(sorted(uses))}")
        for name in free:
            del uses[name]

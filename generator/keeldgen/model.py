"""The nouns of the interface definition."""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import Iterator, Union

from . import names

SCALARS = ("boolean", "integer", "double", "string", "secret", "date_time", "dynamic", "message")


@dataclass
class Type:
    """A type: a scalar, "void", a container of `args`, or a reference to `target`.

    A map has one argument, the type of its values; keys are texts.
    """

    kind: str
    args: tuple[Type, ...] = ()
    target: Union[Structure, Enumeration, None] = None

    def __str__(self) -> str:
        if self.target is not None:
            return self.target.full_name
        if self.kind == "map":
            return f"map<string, {self.args[0]}>"
        if self.kind == "message":
            return "com.orbane.lumo.std.localizable_message"
        return f"{self.kind}<{self.args[0]}>" if self.args else self.kind

    @property
    def optional(self) -> bool:
        """Whether it is an optional."""
        return self.kind == "optional"

    @property
    def inner(self) -> Type:
        """The type inside an optional, else the type itself."""
        return self.args[0] if self.optional else self

    def targets(self) -> Iterator[Union[Structure, Enumeration]]:
        """Everything that it refers to."""
        if self.target is not None:
            yield self.target
        for arg in self.args:
            yield from arg.targets()


@dataclass
class Field:
    """A field of a structure or a parameter of an operation."""

    name: str
    type: Type
    doc: str
    where: str

    @property
    def cpp_name(self) -> str:
        """Name of the C++ member."""
        return names.camel(self.name)


@dataclass
class Enumerator:
    """One value of an enumeration."""

    name: str
    number: int
    doc: str


@dataclass
class Declared:
    """Something with a name inside a package or service."""

    name: str
    scope: Union[Package, Service]
    doc: str
    where: str

    @property
    def full_name(self) -> str:
        """The dotted identifier."""
        return f"{self.scope.full_name}.{self.name}"

    @property
    def cpp_name(self) -> str:
        """The C++ class without its namespace."""
        return names.pascal(self.name)

    @property
    def cpp_full(self) -> str:
        """The C++ class with its namespace, from the global one."""
        return f"::{self.scope.namespace}::{self.cpp_name}"

    @property
    def package(self) -> Package:
        """The package that it belongs to."""
        return self.scope if isinstance(self.scope, Package) else self.scope.package


@dataclass
class Enumeration(Declared):
    """An enumeration; `unset` is the number of an unset or unknown value."""

    values: list[Enumerator] = field(default_factory=list)
    unset: int = 0


@dataclass
class Structure(Declared):
    """A structure, or with `is_error` an error. `base` and `code` are only of errors."""

    fields: list[Field] = field(default_factory=list)
    is_error: bool = False
    base: Structure | None = None
    code: int = 0

    @property
    def all_fields(self) -> list[Field]:
        """Its own fields behind those of the base."""
        return (self.base.all_fields if self.base else []) + self.fields

    @property
    def type_text(self) -> str:
        """Its kind in upper snake case."""
        return self.name.upper()


@dataclass
class ErrorUse:
    """An error that an operation reports, and when."""

    error: Structure
    doc: str


@dataclass
class Operation:
    """An operation of a service."""

    name: str
    service: Service
    doc: str
    where: str
    parameters: list[Field]
    output: Type
    output_doc: str
    errors: list[ErrorUse]
    task: bool
    cli: tuple[str, ...]
    authentication: tuple[str, ...]
    privileges: tuple[str, ...]

    @property
    def full_name(self) -> str:
        """Service identifier and operation."""
        return f"{self.service.full_name}.{self.name}"

    @property
    def cpp_name(self) -> str:
        """The method of the service interface."""
        return names.pascal(self.name)

    @property
    def input_name(self) -> str:
        """The C++ input record."""
        return self.cpp_name + "Input"


@dataclass
class Service:
    """A service. One without operations has an identifier and an interface type, but can't be bound."""

    name: str
    package: Package
    doc: str
    where: str
    enumerations: list[Enumeration] = field(default_factory=list)
    structures: list[Structure] = field(default_factory=list)
    operations: list[Operation] = field(default_factory=list)

    @property
    def full_name(self) -> str:
        """The dotted identifier."""
        return f"{self.package.full_name}.{self.name}"

    @property
    def cpp_name(self) -> str:
        """The last part of its namespace."""
        return names.pascal(self.name) + "Svc"

    @property
    def namespace(self) -> str:
        """Its namespace."""
        return f"{self.package.namespace}::{self.cpp_name}"

    @property
    def stem(self) -> str:
        """Path of its header below the include folder, without the suffix."""
        return f"{self.package.stem}/{self.name}_svc"


@dataclass
class Package:
    """One file of the definition. `imported` packages are only referred to; nothing is made for them."""

    full_name: str
    doc: str
    source: str
    component: str
    cpp_alias: str = ""
    imported: bool = False
    enumerations: list[Enumeration] = field(default_factory=list)
    structures: list[Structure] = field(default_factory=list)
    services: list[Service] = field(default_factory=list)

    @property
    def namespace(self) -> str:
        """Its namespace."""
        return names.namespace(self.full_name)

    @property
    def stem(self) -> str:
        """Path of its header below the include folder, without the suffix."""
        return "bindings/" + self.full_name.replace(".", "/")

    @property
    def has_types(self) -> bool:
        """Whether it has a header of its own."""
        return bool(self.enumerations or self.structures)


@dataclass
class Definition:
    """All packages, sorted by identifier."""

    packages: list[Package]

    @property
    def own(self) -> list[Package]:
        """The packages that something is made for."""
        return [package for package in self.packages if not package.imported]

    def services(self) -> Iterator[Service]:
        """All services of the own packages."""
        for package in self.own:
            yield from package.services

    def operations(self) -> Iterator[Operation]:
        """All operations of the own packages."""
        for service in self.services():
            yield from service.operations

    def scopes(self) -> Iterator[Union[Package, Service]]:
        """The own packages and their services."""
        for package in self.own:
            yield package
            yield from package.services

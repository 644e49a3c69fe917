"""JSON Schemas of types in the direct form, for documents about the API."""

from __future__ import annotations

from typing import Any

from .model import Enumeration, Structure, Type

_SCALARS: dict[str, dict[str, Any]] = {
    "boolean": {"type": "boolean"},
    "integer": {"type": "integer"},
    "double": {"type": "number"},
    "string": {"type": "string"},
    "secret": {"type": "string", "format": "password"},
    "date_time": {"type": "string", "format": "date-time"},
    "dynamic": {},
    "message": {"$ref": "#/components/schemas/com.orbane.lumo.std.localizable_message"},
    "void": {"type": "null"},
}


def of_type(kind: Type) -> dict[str, Any]:
    """The schema of a value of the type."""
    if kind.target is not None:
        return {"$ref": f"#/components/schemas/{kind.target.full_name}"}
    if kind.optional:
        return of_type(kind.inner)
    if kind.kind == "list":
        return {"type": "array", "items": of_type(kind.args[0])}
    if kind.kind == "set":
        return {"type": "array", "uniqueItems": True, "items": of_type(kind.args[0])}
    if kind.kind == "map":
        return {"type": "object", "additionalProperties": of_type(kind.args[0])}
    return dict(_SCALARS[kind.kind])


def of_structure(structure: Structure) -> dict[str, Any]:
    """The schema of a structure or an error."""
    schema: dict[str, Any] = {"type": "object", "description": structure.doc, "properties": {
        field.name: _described(of_type(field.type), field.doc) for field in structure.all_fields}}
    required = [field.name for field in structure.all_fields if not field.type.optional]
    if required:
        schema["required"] = required
    return schema


def of_enumeration(enumeration: Enumeration) -> dict[str, Any]:
    """The schema of an enumeration: its texts."""
    return {"type": "string", "description": enumeration.doc, "enum": [value.name for value in enumeration.values]}


def _described(schema: dict[str, Any], doc: str) -> dict[str, Any]:
    # A reference takes no neighbours in the draft that the document uses.
    return schema if "$ref" in schema else {**schema, "description": doc}

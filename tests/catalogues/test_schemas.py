"""The installed configuration schemas: JSON, words of draft 04 alone, and names that the daemon can name itself by."""

from __future__ import annotations

import json
from pathlib import Path
from typing import Iterator

import pytest

SCHEMAS = Path(__file__).resolve().parents[2] / "schemas"

# JSON Schema draft 04, core and validation.
WORDS = {
    "$schema", "id", "$ref", "title", "description", "default", "definitions", "multipleOf", "maximum",
    "exclusiveMaximum", "minimum", "exclusiveMinimum", "maxLength", "minLength", "pattern", "additionalItems", "items",
    "maxItems", "minItems", "uniqueItems", "maxProperties", "minProperties", "required", "properties",
    "patternProperties", "additionalProperties", "dependencies", "enum", "type", "allOf", "anyOf", "oneOf", "not",
    "format",
}
BY_NAME = {"properties", "patternProperties", "definitions", "dependencies"}


def words(schema: object) -> Iterator[str]:
    """The schema words of a schema and of those within it."""
    if isinstance(schema, list):
        for item in schema:
            yield from words(item)
    elif isinstance(schema, dict):
        for word, value in schema.items():
            yield word
            if word in BY_NAME:
                for inner in value.values():
                    yield from words(inner)
            elif word in {"items", "additionalItems", "additionalProperties", "allOf", "anyOf", "oneOf", "not"}:
                yield from words(value)


def test_both_flavours_have_a_base() -> None:
    names = {path.name for path in SCHEMAS.glob("*.json")}
    assert {"ryn-base-1.0.0-schema.json", "rynio-base-1.0.0-schema.json"} <= names


@pytest.mark.parametrize("path", sorted(SCHEMAS.glob("*.json")), ids=lambda path: path.name)
def test_schema(path: Path) -> None:
    assert path.name.endswith("-schema.json")
    schema = json.loads(path.read_text(encoding="utf-8"))
    assert schema["$schema"] == "http://json-schema.org/draft-04/schema#"
    assert set(words(schema)) <= WORDS
    assert path.name == schema["title"].replace(" ", "-") + "-schema.json"

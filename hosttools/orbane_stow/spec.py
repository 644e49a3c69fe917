"""The software spec: what the image shall consist of.

JSON object, in either form of the API: `base_image` {`version`}, `components` (name to version), `solutions` (name to
{`version`, `components`?}). It names the whole image: a component that it doesn't list is not part of the image. An
empty base version keeps the deployed base; an empty or missing component version means the newest on offer.
"""

from __future__ import annotations

import json
import os
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from orbane_stow.errors import SpecInvalidError, SpecReadError
from orbane_stow.parts import is_name

MAX_SPEC_BYTES = 16 * 1024 * 1024  # the API takes bodies of 2.5 MB


@dataclass(frozen=True)
class SolutionChoice:
    """A solution's version, and versions of components that differ from what the solution names."""

    version: str
    components: dict[str, str] = field(default_factory=dict)


@dataclass(frozen=True)
class SoftwareSpec:
    """The wanted image. `base_version` empty: the deployed one; a component's version empty: the newest.

    `base_name` is never in a document: it names the base image where its version alone doesn't tell which is meant. An
    empty version is then the newest of that name.
    """

    base_version: str
    components: dict[str, str]
    solutions: dict[str, SolutionChoice]
    base_name: str = ""


def read_spec(path: Path) -> SoftwareSpec:
    """Reads the document once. Raises `SpecReadError` or `SpecInvalidError`."""
    try:
        descriptor = os.open(path, os.O_RDONLY | os.O_NOFOLLOW | os.O_CLOEXEC | os.O_NONBLOCK)
        with os.fdopen(descriptor, "rb") as file:
            content = file.read(MAX_SPEC_BYTES + 1)
    except OSError as error:
        raise SpecReadError(path, error.strerror) from error
    if len(content) > MAX_SPEC_BYTES:
        raise SpecInvalidError(f"it is longer than {MAX_SPEC_BYTES} bytes")
    return parse_spec(content)


def parse_spec(content: bytes) -> SoftwareSpec:
    """The spec of a JSON text; raises `SpecInvalidError`."""
    try:
        document = _plain(json.loads(content.decode("utf-8"), object_pairs_hook=_object))
    except (UnicodeDecodeError, json.JSONDecodeError, RecursionError, _DuplicateMember) as error:
        raise SpecInvalidError(f"it is not JSON ({error})") from error
    if not isinstance(document, dict):
        raise SpecInvalidError("it is not an object")
    base = document.get("base_image")
    base = {} if base is None else base
    if not isinstance(base, dict):
        raise SpecInvalidError("base_image: an object is wanted")
    base_version = _version(base.get("version"), "base_image.version")
    components = _versions(document.get("components"), "components")
    solutions = {}
    for name, choice in _members(document.get("solutions"), "solutions").items():
        where = f"solutions.{name}"
        if not isinstance(choice, dict):
            raise SpecInvalidError(f"{where}: an object is wanted")
        solutions[name] = SolutionChoice(_version(choice.get("version"), f"{where}.version"),
                                         _solution_components(choice.get("components"), f"{where}.components"))
    return SoftwareSpec(base_version, components, solutions)


class _DuplicateMember(ValueError):
    pass


def _object(pairs: list[tuple[str, Any]]) -> dict[str, Any]:
    members = dict(pairs)
    if len(members) != len(pairs):
        raise _DuplicateMember("a member stands twice")
    return members


def _plain(value: Any) -> Any:
    """Takes the annotations of the full form off."""
    if isinstance(value, list):
        return [_plain(element) for element in value]
    if not isinstance(value, dict):
        return value
    for annotation in ("@optional", "@set", "@enumset", "@secret"):
        if set(value) == {annotation}:
            return _plain(value[annotation])
    if set(value) == {"@map"} and isinstance(value["@map"], list):
        try:
            return {entry["key"]: _plain(entry["value"]) for entry in value["@map"]}
        except (TypeError, KeyError) as error:
            raise _DuplicateMember(f"a map's entry has no {error}") from error
    return {name: _plain(member) for name, member in value.items() if not name.startswith("@")}


def _members(value: Any, where: str) -> dict[str, Any]:
    if value is None:
        return {}
    if not isinstance(value, dict):
        raise SpecInvalidError(f"{where}: an object is wanted")
    for name in value:
        if not is_name(name):
            raise SpecInvalidError(f"{where}: '{name}' can't be a name")
    return value


def _versions(value: Any, where: str) -> dict[str, str]:
    return {name: _version(version, f"{where}.{name}") for name, version in _members(value, where).items()}


def _solution_components(value: Any, where: str) -> dict[str, str]:
    if isinstance(value, list):  # [{"component": name, "version": version}, …]
        entries = {}
        for entry in value:
            if not isinstance(entry, dict) or not is_name(entry.get("component", "")):
                raise SpecInvalidError(f"{where}: each entry has a component and a version")
            entries[entry["component"]] = entry.get("version")
        value = entries
    return _versions(value, where)


def _version(value: Any, where: str) -> str:
    if value is None or value == "":
        return ""
    if not is_name(value):
        raise SpecInvalidError(f"{where}: '{value}' can't be a version")
    return value

"""YAML with the file and line of everything, for messages."""

from __future__ import annotations

from pathlib import Path
from typing import Any, NoReturn

import yaml


class DefinitionError(Exception):
    """A fault in the definition; the text begins with file and line."""


class Node:
    """A node of a YAML document."""

    def __init__(self, node: yaml.Node, file: Path) -> None:
        self._node = node
        self._file = file

    @property
    def where(self) -> str:
        """File and line, as "interface/x.yaml:12"."""
        return f"{self._file}:{self._node.start_mark.line + 1}"

    def fail(self, text: str) -> NoReturn:
        """Raises DefinitionError at this node."""
        raise DefinitionError(f"{self.where}: {text}")

    def is_mapping(self) -> bool:
        """Whether it has members."""
        return isinstance(self._node, yaml.MappingNode)

    def members(self) -> dict[str, Node]:
        """The members of a mapping in order; a member that stands twice is a fault."""
        if not isinstance(self._node, yaml.MappingNode):
            self.fail("a mapping is wanted")
        found: dict[str, Node] = {}
        for key, value in self._node.value:
            name = str(key.value)
            if name in found:
                Node(key, self._file).fail(f"'{name}' stands twice")
            found[name] = Node(value, self._file)
        return found

    def only(self, *allowed: str, required: tuple[str, ...] = ()) -> dict[str, Node]:
        """The members of a mapping that may have these and must have those."""
        found = self.members()
        for name, node in found.items():
            if name not in allowed and name not in required:
                node.fail(f"unknown key '{name}'")
        for name in required:
            if name not in found:
                self.fail("no doc text" if name == "doc" else f"no '{name}'")
        return found

    def items(self) -> list[Node]:
        """The elements of a sequence."""
        if not isinstance(self._node, yaml.SequenceNode):
            self.fail("a list is wanted")
        return [Node(item, self._file) for item in self._node.value]

    def scalar(self) -> Any:
        """The value of a scalar: a text, a number, a truth value or None."""
        if not isinstance(self._node, yaml.ScalarNode):
            self.fail("a plain value is wanted")
        return yaml.safe_load(yaml.serialize(self._node))

    def text(self) -> str:
        """A text that is not blank."""
        value = self._node.value if isinstance(self._node, yaml.ScalarNode) else ""
        if not value.strip():
            self.fail("a text is wanted")
        return " ".join(value.split())

    def integer(self) -> int:
        """A whole number."""
        value = self.scalar()
        if not isinstance(value, int) or isinstance(value, bool):
            self.fail("a whole number is wanted")
        return value

    def boolean(self) -> bool:
        """true or false."""
        value = self.scalar()
        if not isinstance(value, bool):
            self.fail("true or false is wanted")
        return value


def read(file: Path, shown: Path) -> Node:
    """The document of a file; `shown` is its name in messages."""
    try:
        node = yaml.compose(file.read_text(encoding="utf-8"), Loader=yaml.SafeLoader)
    except yaml.MarkedYAMLError as error:
        line = error.problem_mark.line + 1 if error.problem_mark else 1
        raise DefinitionError(f"{shown}:{line}: {error.problem}") from error
    except (yaml.YAMLError, UnicodeDecodeError) as error:
        raise DefinitionError(f"{shown}:1: {error}") from error
    if node is None:
        raise DefinitionError(f"{shown}:1: the file is empty")
    return Node(node, shown)

"""Faults in a definition: each is told with file and line, and nothing is written."""

from __future__ import annotations

from pathlib import Path
from typing import Callable

import pytest

STRUCTURE = """structures:
  thing:
    doc: A thing.
    fields:
      name: {type: string, doc: Its name.}
"""

OPERATION = """services:
  store:
    doc: A store.
    authentication: none
    operations:
      get:
        doc: Gets it.
"""

# Lines are counted in the file: the package and its doc are lines 1 and 2, the body begins in line 3.
FAULTS = {
    "unknown key of a package": ("colour: red\n", 3, "unknown key 'colour'"),
    "unknown key of a structure": (STRUCTURE + "    size: 3\n", 8, "unknown key 'size'"),
    "unknown key of a field": ("structures:\n  a: {doc: A., fields: {\n    b: {type: string, doc: B., size: 3}}}\n", 5,
                               "unknown key 'size'"),
    "unknown key of an operation": (OPERATION + "        verb: GET\n", 10, "unknown key 'verb'"),
    "structure without doc": ("structures:\n  a: {fields: {}}\n", 4, "no doc text"),
    "field without doc": ("structures:\n  a:\n    doc: A.\n    fields:\n      b: {type: string}\n", 7, "no doc text"),
    "empty doc": ("structures:\n  a: {doc: '', fields: {}}\n", 4, "a text is wanted"),
    "enumerator without doc": ("enumerations:\n  a:\n    doc: A.\n    values:\n      B: {number: 1}\n", 7,
                               "no doc text"),
    "service without doc": ("services:\n  a: {operations: {}}\n", 4, "no doc text"),
    "operation without doc": ("services:\n  a:\n    doc: A.\n    operations:\n      b: {task: true}\n", 7,
                              "no doc text"),
    "error without code": ("errors:\n  a: {doc: A.}\n", 4, "no 'code'"),
    "field without type": ("structures:\n  a: {doc: A., fields: {b: {doc: B.}}}\n", 4, "no 'type'"),
    "field of an unknown type": ("structures:\n  a:\n    doc: A.\n    fields:\n      b: {type: c, doc: B.}\n", 7,
                                 "no type 'c'"),
    "unknown type inside a container": (
        "structures:\n  a: {doc: A., fields: {b: {type: 'optional<list<com.orbane.x>>', doc: B.}}}\n", 4,
        "no type 'com.orbane.x'"),
    "half a container": ("structures:\n  a: {doc: A., fields: {b: {type: 'list<string', doc: B.}}}\n", 4,
                         "no type 'list<string'"),
    "map with other keys": ("structures:\n  a: {doc: A., fields: {b: {type: 'map<integer, string>', doc: B.}}}\n", 4,
                            "the keys of a map are texts: map<string, …>"),
    "optional of an optional": (
        "structures:\n  a: {doc: A., fields: {b: {type: 'optional<optional<string>>', doc: B.}}}\n", 4,
        "an optional of an optional"),
    "set of records": (STRUCTURE + "  a: {doc: A., fields: {b: {type: 'set<thing>', doc: B.}}}\n", 8,
                       "the elements of a set are texts, integers or enumerators"),
    "a service as type": (OPERATION + "structures:\n  a: {doc: A., fields: {b: {type: store, doc: B.}}}\n", 11,
                          "no type 'store'"),
    "unknown error": (OPERATION + "        errors:\n          broken: When broken.\n", 11, "no error 'broken'"),
    "a structure as error": (STRUCTURE + OPERATION + "        errors:\n          thing: Never.\n", 16,
                             "no error 'thing'"),
    "unknown base": ("errors:\n  a: {doc: A., code: 1, base: b}\n", 4, "no error 'b' in this package"),
    "structure twice": ("structures:\n  a: {doc: A., fields: {}}\n  a: {doc: A., fields: {}}\n", 5,
                        "'a' stands twice"),
    "structure and enumeration of one name": (
        "enumerations:\n  a: {doc: A., values: {B: {doc: B.}}}\nstructures:\n  a: {doc: A., fields: {}}\n", 6,
        "'com.test.a' is declared twice, first at interface/com.test.yaml:4"),
    "field twice": ("structures:\n  a:\n    doc: A.\n    fields:\n      b: {type: string, doc: B.}\n"
                    "      b: {type: string, doc: B.}\n", 8, "'b' stands twice"),
    "operation twice": (OPERATION + "      get: {doc: Again.}\n", 10, "'get' stands twice"),
    "number twice": ("enumerations:\n  a:\n    doc: A.\n    values:\n      B: {number: 1, doc: B.}\n"
                     "      C: {number: 1, doc: C.}\n", 8, "the number 1 stands twice"),
    "unset number of a value": ("enumerations:\n  a:\n    doc: A.\n    unset: 1\n    values:\n"
                                "      B: {number: 1, doc: B.}\n", 6, "the number 1 stands for a value already"),
    "enumeration without values": ("enumerations:\n  a: {doc: A., values: {}}\n", 4, "an enumeration without values"),
    "number that is none": ("enumerations:\n  a: {doc: A., values: {B: {number: x, doc: B.}}}\n", 4,
                            "a whole number is wanted"),
    "enumerator in lower case": ("enumerations:\n  a: {doc: A., values: {b: {doc: B.}}}\n", 4,
                                 "'b' is not a name in upper snake case"),
    "reserved enumerator": ("enumerations:\n  a: {doc: A., values: {UNKNOWN: {doc: B.}}}\n", 4,
                            "UNKNOWN stands for the texts that an enumeration doesn't know"),
    "structure in mixed case": ("structures:\n  Thing: {doc: A., fields: {}}\n", 4,
                                "'Thing' is not a name in lower snake case"),
    "task that is no truth": (OPERATION + "        task: perhaps\n", 10, "true or false is wanted"),
    "unknown authentication": (OPERATION + "        authentication: maybe\n", 10,
                               "authentication is 'user' or 'none'"),
    "user without privileges": (OPERATION + "        authentication: user\n", 9,
                                "'get' needs a user and so needs privileges"),
    "bad privilege": (OPERATION + "        privileges: [view]\n", 10,
                      "'view' is not a privilege, as 'Software.View'"),
    "bad command word": (OPERATION + "        cli: store Get\n", 10, "'Get' is not a word of a command line"),
    "command twice": (OPERATION + "        cli: store get\n      list: {doc: Lists., cli: store get}\n", 11,
                      "the command 'store get' belongs to com.test.store.get already"),
    "unknown component": ("component: other\n", 3, "component is one of settings, lumo_std"),
    "no mapping": ("structures: [a]\n", 3, "a mapping is wanted"),
    "no YAML": ("structures: {\n", 4, ""),
}


@pytest.mark.parametrize("name", FAULTS)
def test_a_fault_is_told_with_file_and_line(name: str, definition: Callable[..., Path], generate: Callable,
                                            tmp_path: Path) -> None:
    body, line, text = FAULTS[name]
    folder = definition(com__test=body)
    result = generate("--out", tmp_path / "out", folder)
    assert result.returncode == 1
    assert result.stderr.startswith(f"interface/com.test.yaml:{line}: {text}"), result.stderr
    assert result.stdout == ""
    assert not (tmp_path / "out").exists()


def test_the_file_is_named_after_its_package(definition: Callable[..., Path], generate: Callable) -> None:
    folder = definition()
    (folder / "com.other.yaml").write_text("package: com.test\ndoc: A.\n", encoding="utf-8")
    assert generate("--list", folder).stderr.startswith(
        "interface/com.other.yaml:1: the package 'com.test' belongs into com.test.yaml")


def test_packages_that_need_one_another_are_refused(definition: Callable[..., Path], generate: Callable) -> None:
    folder = definition(com__a="structures:\n  s: {doc: A., fields: {f: {type: com.b.s, doc: B.}}}\n",
                        com__b="structures:\n  s: {doc: A., fields: {f: {type: com.a.s, doc: B.}}}\n")
    assert generate("--list", folder).stderr.startswith(
        "interface/com.a.yaml:4: packages refer to one another: com.a, com.b")


def test_a_package_that_stands_in_two_folders_is_refused(definition: Callable[..., Path], generate: Callable,
                                                         tmp_path: Path) -> None:
    folder = definition(com__test=STRUCTURE)
    other = tmp_path / "other"
    other.mkdir()
    (other / "com.test.yaml").write_text((folder / "com.test.yaml").read_text("utf-8"), encoding="utf-8")
    assert "the package 'com.test' stands twice" in generate("--list", folder, "--import", other).stderr

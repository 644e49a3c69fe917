"""The check of the message catalogues, over small trees and over this one."""

from __future__ import annotations

import importlib.util
import subprocess
from pathlib import Path
from types import ModuleType

import pytest

ROOT = Path(__file__).resolve().parents[2]
SCRIPT = ROOT / "catalogues" / "check_catalogues.py"

INTERFACE = """
package: com.orbane.ryn.demo
structures: {thing: {doc: A thing.}}
enumerations: {colour: {doc: A colour.}}
services:
  widgets:
    structures: {part: {doc: A part.}}
    operations: {get: {doc: Gets it.}}
"""


@pytest.fixture(name="check", scope="module")
def check_module() -> ModuleType:
    spec = importlib.util.spec_from_file_location("check_catalogues", SCRIPT)
    assert spec is not None and spec.loader is not None
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def tree(folder: Path, files: dict[str, str]) -> Path:
    for name, text in {"interface/com.orbane.ryn.demo.yaml": INTERFACE, **files}.items():
        path = folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")
    return folder


ENGLISH = "catalogues/en/demo.omsg"
GERMAN = "catalogues/de/demo.omsg"
USE = "support/use.cpp"


@pytest.mark.parametrize("files, expected", [
    ({}, []),
    ({USE: 'f("com.orbane.ryn.demo.gone.error");\n'},
     ["support/use.cpp:1: com.orbane.ryn.demo.gone.error has no text in catalogues/en"]),
    ({"hosttools/tool.py": "\nraise Failure('com.orbane.ryn.demo.gone.error')\n"},
     ["hosttools/tool.py:2: com.orbane.ryn.demo.gone.error has no text in catalogues/en"]),
    ({"interface/com.orbane.ryn.other.yaml":
      'package: com.orbane.ryn.other\nmessages: ["com.orbane.ryn.demo.gone.error"]\n'},
     ["interface/com.orbane.ryn.other.yaml:2: com.orbane.ryn.demo.gone.error has no text in catalogues/en"]),
    ({USE: 'f("com.orbane.ryn.demo.error");\n', ENGLISH: 'com.orbane.ryn.demo.error = "Gone."\n'}, []),
    ({USE: 'f("com.orbane.ryn.demo"); f("com.orbane.ryn.demo.widgets"); f("com.orbane.ryn.demo.widgets.get");\n'
           'f("com.orbane.ryn.demo.thing"); f("com.orbane.ryn.demo.colour"); f("com.orbane.ryn.demo.widgets.part");\n'},
     []),
    ({USE: "// com.orbane.ryn.demo.gone.error is named, not used\n"}, []),
    ({"tests/unit/use.cpp": 'f("com.orbane.ryn.demo.gone.error");\n'}, []),
    ({ENGLISH: "# comment\n\ncom.orbane.ryn.a = \"{1}, {2} and {1}\"\n"}, []),
    ({ENGLISH: "com.orbane.ryn.a = \"{1} {3}\"\n"}, ["catalogues/en/demo.omsg:1: placeholders with a gap"]),
    ({ENGLISH: "com.orbane.ryn.a = \"{}\"\n"}, ["catalogues/en/demo.omsg:1: a brace that is no {1} placeholder"]),
    ({ENGLISH: "com.orbane.ryn.a = \"{name}\"\n"}, ["catalogues/en/demo.omsg:1: a brace that is no {1} placeholder"]),
    ({ENGLISH: "com.orbane.ryn.a = \" \"\n"}, ["catalogues/en/demo.omsg:1: an empty text"]),
    ({ENGLISH: "com.orbane.ryn.a = bare\n"},
     ['catalogues/en/demo.omsg:1: not of the form id = "text", without quotes and backslashes in the text']),
    ({ENGLISH: "com.orbane.ryn.a = \"a \\\"b\\\"\"\n"},
     ['catalogues/en/demo.omsg:1: not of the form id = "text", without quotes and backslashes in the text']),
    ({ENGLISH: "[section]\n"},
     ['catalogues/en/demo.omsg:1: not of the form id = "text", without quotes and backslashes in the text']),
    ({ENGLISH: "com.orbane.ryn.a = \"x\"\n", "catalogues/en/more.omsg": "com.orbane.ryn.a = \"y\"\n"},
     ["catalogues/en/more.omsg:1: com.orbane.ryn.a has a text already, at catalogues/en/demo.omsg:1"]),
    ({ENGLISH: "com.orbane.ryn.a = \"x {1}\"\n", GERMAN: "com.orbane.ryn.a = \"{1} y\"\n"}, []),
    ({ENGLISH: "com.orbane.ryn.a = \"x {1}\"\n", GERMAN: "com.orbane.ryn.a = \"y\"\n"},
     ["catalogues/de/demo.omsg:1: com.orbane.ryn.a has other placeholders than the English text"]),
    ({GERMAN: "com.orbane.ryn.a = \"y\"\n"}, ["catalogues/de/demo.omsg:1: com.orbane.ryn.a has no English text"]),
    ({"catalogues/it/demo.omsg": ""}, ["catalogues/it/demo.omsg:1: the daemon has no language it"]),
])
def test_problems(check: ModuleType, tmp_path: Path, files: dict[str, str], expected: list[str]) -> None:
    assert list(check.problems(tree(tmp_path, files))) == expected


def test_bad_encoding(check: ModuleType, tmp_path: Path) -> None:
    tree(tmp_path, {ENGLISH: ""})
    (tmp_path / ENGLISH).write_bytes(b'com.orbane.ryn.a = "\xff"\n')
    assert list(check.problems(tmp_path)) == ["catalogues/en/demo.omsg:1: not UTF-8: invalid start byte"]


def test_exit_status_and_stamp(tmp_path: Path) -> None:
    stamp = tmp_path / "stamp"
    root = tree(tmp_path / "tree", {USE: 'f("com.orbane.ryn.demo.gone.error");\n'})
    command = ["/usr/bin/python3", str(SCRIPT), "--root", str(root), "--stamp", str(stamp)]
    refused = subprocess.run(command, capture_output=True, text=True, check=False)
    assert (refused.returncode, stamp.exists()) == (1, False)
    assert "com.orbane.ryn.demo.gone.error" in refused.stderr
    tree(root, {ENGLISH: 'com.orbane.ryn.demo.gone.error = "It has gone."\n'})
    taken = subprocess.run(command, capture_output=True, text=True, check=False)
    assert (taken.returncode, taken.stderr, stamp.exists()) == (0, "", True)


def test_this_tree(check: ModuleType) -> None:
    assert list(check.problems(ROOT)) == []


def test_texts_end_like_sentences() -> None:
    for path in sorted((ROOT / "catalogues" / "en").glob("*.omsg")):
        for line in path.read_text(encoding="utf-8").splitlines():
            if line and not line.startswith("#"):
                text = line.partition(" = ")[2].strip('"')
                assert text[0].isupper() and (text.endswith(".") or text.endswith("}")), f"{path.name}: {line}"

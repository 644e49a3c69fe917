"""The scripts behind ./check: include arrows, file rules, test counting."""

from __future__ import annotations

import importlib.machinery
import importlib.util
import pathlib
import subprocess
from types import ModuleType

import pytest

TOOLS = pathlib.Path(__file__).resolve().parent.parent.parent / "tools"


def load(name: str) -> ModuleType:
    """A script as a module."""
    loader = importlib.machinery.SourceFileLoader(name.replace("-", "_"), str(TOOLS / name))
    spec = importlib.util.spec_from_loader(loader.name, loader)
    assert spec is not None
    module = importlib.util.module_from_spec(spec)
    loader.exec_module(module)
    return module


@pytest.fixture(scope="module")
def includes() -> ModuleType:
    return load("check-includes")


@pytest.fixture(scope="module")
def files() -> ModuleType:
    return load("check-files")


@pytest.mark.parametrize("source, target, reason", [
    ("transport/server.cpp", "runtime/data/value.h", None),
    ("transport/server.cpp", "tasks/run_task.h", "transport may not use tasks"),
    ("transport/server.cpp", "bindings/com/orbane/halo/task.h", "transport may not use bindings"),
    ("transport/server.cpp", "platform/logging/logging.h", None),
    ("runtime/data/value.cpp", "transport/server.h", "runtime may not use transport"),
    ("runtime/data/value.cpp", "bindings/com/orbane/halo/task.h", "runtime may not use bindings"),
    ("runtime/introspection/service.cpp", "bindings/com/orbane/halo/task.h", None),
    ("platform/text/text.cpp", "runtime/message.h", "platform may not use runtime"),
    ("support/gzip.cpp", "runtime/message.h", None),
    ("support/gzip.cpp", "tasks/run_task.h", "support may not use tasks"),
    ("tasks/run_task.cpp", "software/software_svc.h", "tasks may not use software"),
    ("software/software_svc.cpp", "tasks/run_task.h", None),
    ("software/software_svc.cpp", "security/filter.h", "software may not use security"),
    ("security/filter.cpp", "transport/server.h", "security may not use transport"),
    ("apps/lifecycle/lumo/lumocpp/main.cpp", "transport/server.h", None),
    ("apps/lifecycle/lumo/lumocpp/main.cpp", "software/software_svc.h", None),
    ("software/software_svc.cpp", "software_svc.h", "is not a path from the root"),
    ("toys/toy.cpp", "runtime/message.h", "has no row"),
    ("tests/unit/core/method_test.cpp", "transport/server.h", None),
])
def test_include_arrows(includes: ModuleType, monkeypatch: pytest.MonkeyPatch, source: str, target: str,
                        reason: str | None) -> None:
    monkeypatch.setattr(pathlib.Path, "is_file", lambda self: True)
    found = includes.problems(source, f'#pragma once\n\n#include <vector>\n\n#  include "{target}"\n')
    if reason is None:
        assert found == []
    else:
        assert len(found) == 1 and reason in found[0]


def test_include_of_a_missing_file(includes: ModuleType) -> None:
    assert includes.problems("tasks/a.cpp", '#include "runtime/no_such_header.h"\n') == [
        'tasks/a.cpp:1: "runtime/no_such_header.h" is not there']


@pytest.mark.parametrize("line, findings", [
    ("int x = 0;", 0),
    ("int x = 0; ", 1),
    ("// TO" + "DO: later", 1),
    ("// see Pa" + "rt 3.1", 1),
    ("// Part of the answer", 0),
    ("// see spec" + ".md", 1),
    ("throw Error(\"not imple" + "mented\");", 1),
    ("cd /ho" + "me/me/tree", 1),
    ("/homes/1", 0),
    ("x();  // NO" + "LINT", 1),
    ("x();  // NO" + "LINT(bugprone-foo)", 1),
    ("x();  // NO" + "LINTNEXTLINE(bugprone-foo): the C interface wants it", 0),
    ("<<<<" + "<<< HEAD", 1),
])
def test_forbidden_lines(files: ModuleType, line: str, findings: int) -> None:
    assert len(files.problems("runtime/a.cpp", f"{line}\n")) == findings


@pytest.mark.parametrize("name, lines, findings", [
    ("runtime/a.cpp", 500, 0), ("runtime/a.cpp", 501, 1), ("client/a.py", 501, 1), ("catalogues/a.omsg", 5000, 0),
])
def test_file_length(files: ModuleType, name: str, lines: int, findings: int) -> None:
    assert len(files.problems(name, "x\n" * lines)) == findings


def test_last_line_ends(files: ModuleType) -> None:
    assert len(files.problems("runtime/a.cpp", "x")) == 1
    assert files.problems("runtime/empty.cpp", "") == []


GTEST = """<testsuites><testsuite name="A">
<testcase name="One" status="run" result="completed" classname="A"/>
<testcase name="Two" status="run" result="completed" classname="A">{two}</testcase>
<testcase name="Three" status="run" result="skipped" classname="A"><skipped message=""/></testcase>
<testcase name="Four" status="notrun" result="suppressed" classname="A"/>
</testsuite></testsuites>"""
CTEST = """<testsuite><testcase name="unit.a" classname="unit.a" status="{status}"/></testsuite>"""


def count(*folders: pathlib.Path) -> tuple[int, list[str]]:
    """Exit status and lines of count-tests."""
    result = subprocess.run([TOOLS / "count-tests", *folders], capture_output=True, text=True, check=False)
    return result.returncode, result.stdout.splitlines()


def reports(folder: pathlib.Path, status: str, two: str = "", cases: bool = True) -> pathlib.Path:
    """A folder with the reports of one run."""
    folder.mkdir()
    (folder / "ctest.xml").write_text(CTEST.format(status=status))
    if cases:
        (folder / "unit.a.xml").write_text(GTEST.format(two=two))
    return folder


def test_count_of_a_good_run(tmp_path: pathlib.Path) -> None:
    status, lines = count(reports(tmp_path / "dev", "run"))
    assert (status, lines[-1]) == (0, "2 passed, 0 failed, 2 skipped")
    assert lines[:-1] == ["skipped: unit.a: A.Four", "skipped: unit.a: A.Three"]


def test_a_case_has_to_pass_in_every_run(tmp_path: pathlib.Path) -> None:
    good = reports(tmp_path / "dev", "run")
    bad = reports(tmp_path / "asan", "fail", two="<failure message='x'/>")
    status, lines = count(good, bad)
    assert (status, lines[-2:]) == (1, ["failed: unit.a: A.Two", "1 passed, 1 failed, 2 skipped"])


@pytest.mark.parametrize("cases, total", [(True, "2 passed, 1 failed, 2 skipped"), (False, "0 passed, 1 failed")])
def test_a_crash_counts_as_a_failure(tmp_path: pathlib.Path, cases: bool, total: str) -> None:
    status, lines = count(reports(tmp_path / "dev", "fail", cases=cases))
    assert (status, lines[-1]) == (1, total)


def test_a_run_without_tests_is_a_failure(tmp_path: pathlib.Path) -> None:
    (tmp_path / "dev").mkdir()
    status, lines = count(tmp_path / "dev")
    assert (status, lines[-1]) == (1, "0 passed, 1 failed")


@pytest.mark.parametrize("words, status, text", [
    (["--help"], 0, "Usage: ./check"),
    (["--frobnicate"], 2, "unknown argument --frobnicate"),
])
def test_check_tells_its_usage(words: list[str], status: int, text: str) -> None:
    result = subprocess.run([TOOLS.parent / "check", *words], capture_output=True, text=True, check=False)
    assert result.returncode == status
    assert text in result.stdout + result.stderr

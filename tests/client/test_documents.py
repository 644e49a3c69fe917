"""What is made of the commands at build time: the completion for bash, as bash runs it, and the man page."""

import re
import subprocess
from pathlib import Path

import pytest

from conftest import BUILD, ROOT
from keeld_client._generated import COMMANDS, Operation, Parameter
from keeld_client.cli import catalogue, completion, manual
from keeld_client.cli import main as cli
from keeld_client.cli.command import Command, Option, options_of

MAKE = ROOT / "client/make_documents.py"


def nothing(*_arguments: object) -> int:
    return 0


SAMPLE = [*catalogue.all_commands(), Command(("sample", "tune"), ".A \\ 'doc' - with \"ä\" and ~^`", (
    Option("--impact", "one of some", "IMPACT", choices=("NONE", "REBOOT")),
    Option("--document", "a file", "JSON", file=True),
    Option("--is-on", "a switch", negatable=True)), nothing)]


def complete(tmp_path: Path, *words: str) -> list[str]:
    """What bash offers for the last word, and whether as file names."""
    script = tmp_path / "keelctl"
    script.write_text(completion.bash(SAMPLE))
    program = ('source "$1"; shift; COMP_WORDS=(keelctl "$@"); COMP_CWORD=$#; _keelctl; '
               '((${#COMPREPLY[@]})) && printf "%s\\n" "${COMPREPLY[@]}"; exit 0')
    result = subprocess.run(["bash", "--norc", "-c", program, "bash", str(script), *words], capture_output=True, text=True,
                            check=True, cwd=tmp_path)
    assert result.stderr == ""
    return result.stdout.splitlines()


@pytest.mark.parametrize("words, offered", [
    ([""], ["components", "image", "introspection", "ryncli", "sample", "software", "tasks", "ticket"]),
    (["so"], ["software"]),
    (["software", ""], ["apply", "scan", "stage"]),
    (["software", "s"], ["scan", "stage"]),
    (["tasks", "w"], ["watch"]),
    (["nonsense", ""], []),
    (["software", "scan", "--q"], ["--quick-patch"]),
    (["software", "stage", "--q"], []),
    (["software", "scan", "--depot", "file:///a", "--ba"], ["--base"]),
    (["software", "scan", "--depot", "software", "--ba"], ["--base"]),
    (["software", "scan", "--depot", "--ba"], []),
    (["tasks", "get", "some-id", "--j"], ["--json"]),
    (["tasks", "list", "--json", "--u"], ["--user"]),
    (["tasks", "list", "--user", "o"], []),
    (["ticket", "issue", "--"], ["--help", "--json", "--lifetime", "--service"]),
    (["sample", "tune", "--impact", ""], ["NONE", "REBOOT"]),
    (["sample", "tune", "--impact", "R"], ["REBOOT"]),
    (["sample", "tune", "--impact", "NONE", "--is"], ["--is-on"]),
    (["sample", "tune", "--no"], ["--no-is-on"]),
    (["sample", "tune", "--document", "fi"], ["file one", "file-two"]),
    (["software", "scan", "--spec", "file-"], ["file-two"]),
    (["$(touch pwned)", "`touch pwned`", ""], []),
    (["software", "*", "$(touch pwned)"], []),
])
def test_completion(tmp_path: Path, words: list[str], offered: list[str]) -> None:
    for name in ("file one", "file-two"):
        (tmp_path / name).touch()
    assert sorted(complete(tmp_path, *words)) == offered
    assert not (tmp_path / "pwned").exists()


def test_each_command_and_option_is_completed(tmp_path: Path) -> None:
    for command in SAMPLE:
        assert command.words[-1] in complete(tmp_path, *command.words[:-1], "")
        offered = complete(tmp_path, *command.words, "--")
        names = {name for option in options_of(command) for name in option.names if not option.is_argument}
        assert set(offered) == names | {"--help"}


def page() -> str:
    return manual.page(SAMPLE, cli.EXIT_CODES, "1.2.3")


def shown(text: str) -> str:
    """The page as a reader sees it, in one line."""
    result = subprocess.run(["groff", "-man", "-Tutf8", "-Kutf8", "-P-c", "-ww", "-rLL=200n"], input=text, capture_output=True,
                            text=True, check=True)
    assert result.stderr == "", "groff has nothing to complain of"
    return " ".join(re.sub(r".\x08|\x1b\[[0-9;]*m", "", result.stdout).split())


def test_the_page_shows_everything() -> None:
    text = shown(page())
    for command in SAMPLE:
        assert " ".join(command.words) in text
        for option in options_of(command):
            assert " ".join(option.doc.split()) in text
            assert option.is_argument or option.name in text
    for code, meaning in cli.EXIT_CODES:
        assert f"{code} {meaning}" in text
    for word in ("KEELD_PASSWORD", "KEELD_TOKEN", "/run/orbane/tickets", "keeld 1.2.3", "One of NONE, REBOOT."):
        assert word in text


def test_texts_stand_as_they_are() -> None:
    assert ".A \\ 'doc' - with \"ä\" and ~^`" in shown(page())


def test_the_page_describes_the_documents_that_options_take() -> None:
    text = page()
    for name in ("software_spec", "base_image_spec", "solution_spec", "solution_component_spec"):
        assert f".SS com.orbane.ryn.keel_daemon.{name}" in text
    assert "[\\fBsolutions\\fR] \\fImap<string, com.orbane.ryn.keel_daemon.solution_spec>\\fR" in text
    assert "host_compliance" not in text.partition(".SH STRUCTURES")[2]


def test_structures_that_hold_themselves_end(monkeypatch: pytest.MonkeyPatch) -> None:
    tree = Parameter("children", "list<com.orbane.test.tree>", False, "More of it.")
    monkeypatch.setitem(manual.STRUCTURES, "com.orbane.test.tree", (tree,))
    entry = Operation("a.b", "a", "b", "Doc.", (Parameter("tree", "com.orbane.test.tree", True, "A tree."),), "void", "",
                      False, (), ("a", "b"), (), ())
    text = manual.page([Command(("a", "b"), "Doc.", (), nothing, entry)], (), "1")
    assert text.count(".SS com.orbane.test.tree") == 1


@pytest.mark.parametrize("text, roff", [
    (".TH evil", "\\&.TH evil"), ("a\n.br", "a .br"), ("\\fB", "\\efB"), ("'a", "\\(aqa"), ("--x", "\\-\\-x"), ("ä", "\\[u00E4]")])
def test_roff(text: str, roff: str) -> None:
    assert manual.roff(text) == roff


def test_they_are_made_at_build_time(tmp_path: Path) -> None:
    subprocess.run([MAKE, "--generated", BUILD / "generated/python", "--version", "1.2.3", "--out", tmp_path], check=True)
    commands = catalogue.all_commands()
    assert COMMANDS
    assert (tmp_path / "keelctl.1").read_text() == manual.page(commands, cli.EXIT_CODES, "1.2.3")
    assert (tmp_path / "keelctl").read_text() == completion.bash(commands)


@pytest.mark.parametrize("path", ["usr/share/man/man1/keelctl.1", "usr/share/bash-completion/completions/keelctl",
                                  "usr/bin/keelctl", "usr/lib/orbane/python/keeld_client/tickets.py",
                                  "usr/lib/orbane/python/keeld_client/cli/catalogue.py"])
def test_they_are_installed(path: str) -> None:
    assert (BUILD / "stage" / path).is_file()

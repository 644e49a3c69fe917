"""What `ryncli` and `nearcli` take as a command line, and what they refuse."""

from __future__ import annotations

import errno
import os
import re
import resource
import subprocess
import xml.etree.ElementTree as xml
from pathlib import Path

import pytest
from orbane_stow.errors import LineError
from orbane_stow.ryncli.commands import COMMANDS
from orbane_stow.ryncli.selection import Choice, choice_from

SOURCE = Path(__file__).resolve().parents[2] / "software" / "ryncli_command_line.cpp"
PLUGIN = "/usr/lib/orbane/ryncli/int/ext/ryncli-softwareinternal.xml"
FOREGROUND_BYTES = 200 * 1024 * 1024  # what the daemon grants a foreground command


def run(*words: str, program: str = "/bin/ryncli") -> subprocess.CompletedProcess[bytes]:
    """Runs a tool within the daemon's limits."""
    return subprocess.run([program, *words], capture_output=True, check=False, stdin=subprocess.DEVNULL,
                          preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_DATA, (FOREGROUND_BYTES,) * 2))


def refused(*words: str, program: str = "/bin/ryncli", status: int = errno.EINVAL) -> str:
    """Runs a tool that has to refuse: an error document, the same text on standard error, the status. The text."""
    answer = run(*words, program=program)
    assert answer.returncode == status, (words, answer)
    root = xml.fromstring(answer.stdout)
    assert root.tag == "error" and root.text and root.get("id", "").startswith("com.orbane.ryn.")
    assert answer.stderr.decode() == f"{Path(program).name}: {root.text}\n"
    return root.text


@pytest.mark.parametrize("words, part", [
    ((), "a namespace is missing"),
    (("--formatter=xml",), "a namespace is missing"),
    (("--formatter=json", "software", "component", "list"), "--formatter: only xml is known"),
    (("--formatter", "text", "software", "component", "list"), "--formatter: only xml is known"),
    (("--formatter",), "--formatter needs a value (xml)"),
    (("--formatter=",), "--formatter needs a value (xml)"),
    (("--formatter", "--formatter=xml", "software"), "--formatter needs a value (xml)"),
    (("--formatter=xml", "--formatter=xml", "software", "component", "list"), "--formatter stands twice"),
    (("--format=xml", "software", "component", "list"), "'--format' is not an option here"),
    ((f"--plugin={PLUGIN}", "software", "component", "list"), "'--plugin' is not an option here"),
    (("-x", "software"), "'-x' is not an option here"),
    (("--", "software"), "'--' is not an option here"),
    (("hardware",), "'hardware' is not a namespace"),
    (("softwareinternal", "component", "list"), "'softwareinternal' is not a namespace"),
    (("",), "'' is not a namespace"),
    (("software",), "a command is missing"),
    (("software", "component"), "'component' does not begin with a command"),
    (("software", "component", "destroy"), "'component destroy' does not begin with a command"),
    (("software", "component list"), None),  # one word
    (("software", "list", "component"), "'list component' does not begin with a command"),
    (("software", "--formatter=xml", "component", "list"), "'--formatter=xml component list' does not begin"),
    (("software", "component", "list", "surplus"), "nothing is due where 'surplus' stands"),
    (("software", "component", "list", ""), "nothing is due where '' stands"),
    (("software", "component", "list", "-f", "surplus"), "nothing is due where 'surplus' stands"),
    (("software", "component", "list", "-n", "a", "b"), "nothing is due where 'b' stands"),
    (("software", "component", "list", "--formatter=xml"), "'--formatter' is not an option here"),
    (("software", "component", "list", f"--plugin={PLUGIN}"), "'--plugin' is not an option here"),
    (("software", "component", "list", "-x"), "'-x' is not an option here"),
    (("software", "component", "list", "--nam", "a"), "'--nam' is not an option here"),
    (("software", "component", "list", "-na"), "'-na' is not an option here"),
    (("software", "component", "list", "-n=a"), "'-n=a' is not an option here"),
    (("software", "component", "list", "-fn"), "'-fn' is not an option here"),
    (("software", "component", "list", "--"), "'--' is not an option here"),
    (("software", "component", "list", "-"), "'-' is not an option here"),
    (("software", "component", "list", "-n"), "-n needs a value (PART)"),
    (("software", "component", "list", "-n", ""), "-n needs a value (PART)"),
    (("software", "component", "list", "-n", "-f"), "-n needs a value (PART)"),
    (("software", "component", "list", "-n", "--name"), "-n needs a value (PART)"),
    (("software", "component", "list", "--name="), "--name needs a value (PART)"),
    (("software", "component", "list", "--name=-x"), "--name needs a value (PART)"),
    (("software", "component", "list", "--depot"), "--depot needs a value (URL)"),
    (("software", "component", "list", "--full=yes"), "--full takes no value"),
    (("software", "component", "list", "--full="), "--full takes no value"),
    (("software", "component", "list", "-f", "--full"), "--full stands twice"),
    (("software", "component", "list", "-n", "a", "-n", "a:1"), "--name: 'a' stands twice"),
    (("software", "profile", "validate", "-n", "a", "-n", "b"), "-n stands twice"),
    (("software", "component", "list", "-n", "a/b"), "--name: 'a/b' is not NAME"),
    (("software", "component", "list", "-n", "a:b:c:d"), "--name: 'a:b:c:d' is not NAME"),
    (("software", "component", "apply", "-n", "a"), "--depot is missing"),
    (("software", "component", "apply", "--depot", "http://x/index.xml"), "--name or -n is missing"),
    (("software", "component", "remove"), "--name or -n is missing"),
    (("software", "component", "remove", "-n", "a", "--depot", "http://x"), "'--depot' is not an option here"),
    (("software", "apply", "--depot", "http://x"), "--software-spec or -s is missing"),
    (("software", "profile", "install", "--depot", "http://x"), "--name or -n is missing"),
    (("software", "profile", "update", "-n", "ryn"), "--depot is missing"),
    (("software", "acceptance", "set"), "--level or -l is missing"),
    (("software", "acceptance", "set", "-l", "certified"), "--level: 'certified' is not one of CERTIFIED"),
    (("software", "acceptance", "get", "-l", "CERTIFIED"), "'-l' is not an option here"),
])
def test_lines_that_are_refused(words: tuple[str, ...], part: str | None) -> None:
    text = refused(*words)
    assert text.startswith("The command line is not understood: ")
    assert part is None or part in text


def test_the_tools_know_the_commands_of_the_service() -> None:
    service = {words for words in re.findall(r'return "([a-z ]+)";', SOURCE.read_text())}
    assert len(service) == 21
    assert set(COMMANDS) == service
    listed = {element.get("words") for element in xml.parse(PLUGIN).getroot()}
    assert listed == service


@pytest.mark.parametrize("words", [words for words, command in COMMANDS.items() if command.refusal])
def test_what_the_engine_cannot_do_is_refused(words: str) -> None:
    for more in ([], ["--depot", "http://x/index.xml", "-n", "a:b", "-f"]):
        text = refused("software", *words.split(), *more, status=errno.EOPNOTSUPP)
        assert f"'{words}' can't be carried out" in text


def test_help() -> None:
    answer = run("--help")
    assert answer.returncode == 0 and answer.stderr == b""
    for words in {*COMMANDS} - {"pak get", "pak list"}:
        assert words.encode() in answer.stdout
    assert b"pak get, pak list" in answer.stdout
    usage = run("--formatter=xml", "software", "component", "apply", "--help").stdout.decode()
    assert usage == ("usage: ryncli [--formatter=xml] NAMESPACE component apply --name | -n PART … --depot URL … "
                     "[--quick-patch | -q]\n")
    assert b"[--plugin=FILE]" in run("software", "--help", program="/bin/nearcli").stdout


@pytest.mark.parametrize("locale", ["C", "POSIX", "en_US.ISO-8859-1", ""])
def test_help_in_any_locale(locale: str) -> None:
    answer = subprocess.run(["/bin/ryncli", "--help"], capture_output=True, check=False, env={"LC_ALL": locale})
    assert answer.returncode == 0 and "…".encode() in answer.stdout


def test_nearcli_with_its_plugin() -> None:
    for option in ([f"--plugin={PLUGIN}"], ["--plugin", PLUGIN]):
        assert run("--formatter=xml", *option, "softwareinternal", "acceptance", "get",
                   program="/bin/nearcli").returncode == 0
        assert run("--formatter=xml", *option, "software", "acceptance", "get", program="/bin/nearcli").returncode == 0
    refused("softwareinternal", "acceptance", "get", program="/bin/nearcli")


@pytest.mark.parametrize("path", [
    "/tmp/evil.xml", "evil.xml", f"../..{PLUGIN}", f"/usr/lib/orbane/ryncli/int/ext/../ext/{Path(PLUGIN).name}",
    "/usr/lib/orbane/ryncli/int/ext/", "/usr/lib/orbane/ryncli/int/ext", "/usr/lib/orbane/ryncli/int/ext/.xml",
    "/usr/lib/orbane/ryncli/int/ext/none.xml", "/usr/lib/orbane/ryncli/int/ext/..", "http://x/evil.xml"])
def test_plugins_from_elsewhere_are_refused(path: str) -> None:
    Path("/tmp/evil.xml").write_text('<plugin namespace="evil"><command words="apply"/></plugin>')
    assert "--plugin: " in refused(f"--plugin={path}", "evil", "apply", program="/bin/nearcli")


@pytest.mark.parametrize("content", [
    "", "rubbish", "<plugin/>", '<plugin namespace="software"/>', '<plugin namespace="EVIL"/>', '<plugin namespace="a b"/>',
    '<other namespace="evil"/>', '<plugin namespace="evil" details="maybe"/>',
    '<plugin namespace="evil"><command words="rm -rf"/></plugin>', '<plugin namespace="evil"><command/></plugin>',
    '<plugin namespace="evil"><run words="apply"/></plugin>', "x" * 70000, '<?xml version="1.0" encoding="nonsense"?><plugin/>',
    '<!DOCTYPE p [<!ENTITY x SYSTEM "file:///etc/shadow">]><plugin namespace="&x;"/>'])
def test_bad_plugins_are_refused(content: str) -> None:
    path = Path("/usr/lib/orbane/ryncli/int/ext/evil.xml")
    path.write_text(content)
    try:
        refused(f"--plugin={path}", "evil", "apply", program="/bin/nearcli")
    finally:
        path.unlink()


def test_a_link_is_no_plugin() -> None:
    path = Path("/usr/lib/orbane/ryncli/int/ext/link.xml")
    path.symlink_to(PLUGIN)
    try:
        refused(f"--plugin={path}", "softwareinternal", "acceptance", "get", program="/bin/nearcli")
    finally:
        path.unlink()


@pytest.mark.parametrize("text, choice", [
    ("a", Choice("a", "a")), ("a:1", Choice("a:1", "a", "1")), ("v:a:1.0", Choice("v:a:1.0", "a", "1.0", "v")),
    ("a_B-9.c", Choice("a_B-9.c", "a_B-9.c"))])
def test_names_of_parts(text: str, choice: Choice) -> None:
    assert choice_from(text) == choice


@pytest.mark.parametrize("text", ["", ":", "a:", ":a", "a::b", "a:b:", ":a:b", "a:b:c:d", "-a", "a:-b", "-v:a:b", "a b", "a/b",
                                  ".a", "a\n", "é", "a" * 129, "a;b", "a*"])
def test_what_is_no_name_of_a_part(text: str) -> None:
    with pytest.raises(LineError):
        choice_from(text)


def test_bytes_that_are_no_text() -> None:
    answer = subprocess.run([b"/bin/ryncli", b"software", b"component", b"get", b"-n", b"\xff\xfe"], capture_output=True,
                            check=False)
    assert answer.returncode == errno.EINVAL
    assert xml.fromstring(answer.stdout).tag == "error"


def test_an_answer_that_nobody_reads() -> None:
    reading, writing = os.pipe()
    os.close(reading)
    try:
        answer = subprocess.run(["/bin/ryncli", "software", "acceptance", "get"], stdout=writing, stderr=subprocess.PIPE,
                                check=False)
    finally:
        os.close(writing)
    assert answer.returncode == errno.EIO and b"Traceback" not in answer.stderr

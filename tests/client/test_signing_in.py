"""keelctl's credentials: options, environment, prompt, and what it says when it is refused."""

import base64
import json
import os
import pty
import re
import subprocess
import sys
from pathlib import Path

import pytest

from conftest import FakeDaemon, Fault
import keeld_client
from keeld_client import tickets
from keeld_client.cli import main as cli

LIST = "com.orbane.halo.tasks.list"


def run(daemon: FakeDaemon, *options: str) -> int:
    return cli.main(["tasks", "list", "--port", str(daemon.port), *options])


def sent(daemon: FakeDaemon) -> str | None:
    """The credentials of the only request: "user:password" or "Bearer …"; None without."""
    (headers,) = daemon.headers
    header = headers.get("authorization")
    if header is None or header.startswith("Bearer "):
        return header
    return base64.b64decode(header.removeprefix("Basic ")).decode()


@pytest.fixture(autouse=True)
def no_tasks(daemon: FakeDaemon) -> None:
    daemon.answers[LIST] = {}


def test_root_signs_in_with_a_ticket(daemon: FakeDaemon, ticket_folder: Path) -> None:
    assert run(daemon) == 0
    assert re.fullmatch(r"([\w-]{43}):\1", sent(daemon) or "")
    assert list(ticket_folder.iterdir()) == []


def test_others_are_nobody(daemon: FakeDaemon, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(os, "geteuid", lambda: 1000)
    assert run(daemon) == 0
    assert sent(daemon) is None


@pytest.mark.parametrize("content", [b"correct horse", b"correct horse\n", b"correct horse\r\n", b"correct horse\nmore\n"])
def test_password_file(daemon: FakeDaemon, tmp_path: Path, monkeypatch: pytest.MonkeyPatch, content: bytes) -> None:
    (tmp_path / "secret").write_bytes(content)
    monkeypatch.setenv("KEELD_PASSWORD", "another")
    assert run(daemon, "--user", "operator", "--password-file", str(tmp_path / "secret")) == 0
    assert sent(daemon) == "operator:correct horse"


def test_password_of_the_environment(daemon: FakeDaemon, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("KEELD_PASSWORD", "correct horse")
    monkeypatch.setenv("KEELD_TOKEN", "abc")
    assert run(daemon, "--user", "operator") == 0
    assert sent(daemon) == "operator:correct horse"


def test_password_of_the_prompt(daemon: FakeDaemon, monkeypatch: pytest.MonkeyPatch) -> None:
    prompts: list[str] = []
    monkeypatch.setattr("getpass.getpass", lambda prompt: prompts.append(prompt) or "correct horse")
    assert run(daemon, "--user", "operator") == 0
    assert prompts == ["Password of operator: "]
    assert sent(daemon) == "operator:correct horse"


def test_token_file_and_environment(daemon: FakeDaemon, tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("KEELD_TOKEN", "of.the.environment")
    assert run(daemon) == 0
    assert sent(daemon) == "Bearer of.the.environment"
    daemon.headers.clear()
    (tmp_path / "token").write_text("of.a.file\n")
    assert run(daemon, "--token-file", str(tmp_path / "token")) == 0
    assert sent(daemon) == "Bearer of.a.file"


@pytest.mark.parametrize("options, code, text", [
    (["--password-file", "/dev/null"], 2, "--password-file needs --user"),
    (["--token-file", "/dev/null", "--user", "x"], 2, "--token-file goes alone"),
    (["--token-file", "/dev/null", "--password-file", "/dev/null"], 2, "--token-file goes alone"),
    (["--token-file", "/dev/null"], 4, "no token"),
    (["--token-file", "/nowhere"], 2, "cannot read '/nowhere': No such file"),
    (["--user", "x", "--password-file", "/"], 2, "Is a directory"),
    (["--user", "x:y", "--password-file", "/dev/null"], 4, "colon"),
    (["--user", "x", "--password-file", "/dev/zero"], 4, "zero byte"),
    (["--user", "", "--password-file", "/dev/null"], 4, "for a ticket"),
    (["--user", "x", "--password", "y"], 2, "unrecognized arguments"),
    (["--password"], 2, ""),
])
def test_what_cannot_be(daemon: FakeDaemon, capsys: pytest.CaptureFixture[str], options: list[str], code: int,
                        text: str) -> None:
    assert run(daemon, *options) == code
    assert text in capsys.readouterr().err
    assert daemon.calls == []


def test_secret_files_have_to_be_text(daemon: FakeDaemon, tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    (tmp_path / "secret").write_bytes(b"\xff\xfe")
    assert run(daemon, "--user", "x", "--password-file", str(tmp_path / "secret")) == 2
    assert "no text in UTF-8" in capsys.readouterr().err


@pytest.mark.parametrize("options, environment, kind, text", [
    (["--user", "operator"], {"KEELD_PASSWORD": "hunter2"}, "unauthenticated", "is the password right"),
    (["--user", "operator"], {"KEELD_PASSWORD": "hunter2"}, "unauthorized", "keeld does not allow this"),
    ([], {"KEELD_TOKEN": "hunter2"}, "unauthenticated", "has the token expired"),
    ([], {}, "unauthenticated", "does this host take tickets"),
])
def test_a_refusal_is_explained(daemon: FakeDaemon, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str],
                                options: list[str], environment: dict[str, str], kind: str, text: str) -> None:
    for name, value in environment.items():
        monkeypatch.setenv(name, value)
    daemon.answers[LIST] = Fault(kind, code=-32006)
    assert run(daemon, *options) == 4
    out, err = capsys.readouterr()
    assert text in err and "hunter2" not in out + err


def test_nobody_is_told_to_say_who_they_are(daemon: FakeDaemon, monkeypatch: pytest.MonkeyPatch,
                                            capsys: pytest.CaptureFixture[str]) -> None:
    monkeypatch.setattr(os, "geteuid", lambda: 1000)
    daemon.answers[LIST] = Fault("unauthorized", code=-32007)
    assert run(daemon) == 4
    assert capsys.readouterr().err == (
        "keelctl: keeld does not allow this: say who you are with --user NAME, or run this as root\n")


def test_a_planted_ticket_folder_is_refused(daemon: FakeDaemon, ticket_folder: Path,
                                            capsys: pytest.CaptureFixture[str]) -> None:
    ticket_folder.parent.mkdir()
    ticket_folder.mkdir(mode=0o700)
    os.chown(ticket_folder, 65534, 65534)
    assert run(daemon) == 4
    assert "does not belong to root" in capsys.readouterr().err
    assert daemon.calls == []


def test_ticket_issue_prints_the_ticket_alone(ticket_folder: Path, capsys: pytest.CaptureFixture[str]) -> None:
    assert cli.main(["ticket", "issue", "--service", "Other", "--lifetime", "5"]) == 0
    out, err = capsys.readouterr()
    assert re.fullmatch(r"[\w-]{43}\n", out) and err == ""
    (file,) = ticket_folder.iterdir()
    assert json.loads(file.read_text())["service"] == "Other"
    assert tickets.withdraw(out.strip())
    assert cli.main(["ticket", "issue", "--json"]) == 0
    assert tickets.withdraw(json.loads(capsys.readouterr().out)["ticket"])


@pytest.mark.parametrize("options, code", [(["--lifetime", "0"], 4), (["--lifetime", "long"], 2), (["--service", "a b"], 4)])
def test_tickets_that_cannot_be(ticket_folder: Path, capsys: pytest.CaptureFixture[str], options: list[str], code: int) -> None:
    assert cli.main(["ticket", "issue", *options]) == code
    assert capsys.readouterr().out == ""
    assert not ticket_folder.exists()


def test_only_root_gets_a_ticket(monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]) -> None:
    monkeypatch.setattr(os, "geteuid", lambda: 1000)
    assert cli.main(["ticket", "issue"]) == 4
    assert capsys.readouterr() == ("", "keelctl: only root can issue tickets\n")


def command(daemon: FakeDaemon, *options: str) -> list[str]:
    """The words that start keelctl as a process."""
    program = (f"import sys; sys.path[:0] = {sys.path!r}; import keeld_client; "
               f"keeld_client.__path__[:] = {list(keeld_client.__path__)!r}; "
               "from keeld_client.cli.main import main; sys.exit(main())")
    return [sys.executable, "-c", program, "tasks", "list", "--port", str(daemon.port), *options]


def keelctl(daemon: FakeDaemon, *options: str, **more: object) -> subprocess.CompletedProcess[str]:
    """Runs keelctl without a terminal."""
    return subprocess.run(command(daemon, *options), capture_output=True, text=True, check=False,
                          start_new_session=True, **more)  # type: ignore[call-overload,no-any-return]


def test_without_a_terminal_it_asks_nobody(daemon: FakeDaemon) -> None:
    result = keelctl(daemon, "--user", "operator", input="correct horse\n")
    assert result.returncode == 2
    assert "give --password-file FILE or KEELD_PASSWORD" in result.stderr
    assert daemon.calls == []


def test_password_of_standard_input(daemon: FakeDaemon) -> None:
    assert keelctl(daemon, "--user", "operator", "--password-file", "-", input="correct horse\n").returncode == 0
    assert sent(daemon) == "operator:correct horse"


def test_a_terminal_is_asked_and_shows_nothing(daemon: FakeDaemon) -> None:
    words = command(daemon, "--user", "operator")
    child, terminal = pty.fork()
    if child == 0:
        os.execv(words[0], words)
    screen = b""
    typed = False
    try:
        while piece := os.read(terminal, 4096):
            screen += piece
            if not typed and screen.endswith(b"Password of operator: "):
                os.write(terminal, b"correct horse\n")
                typed = True
    except OSError:  # how a terminal tells its end
        pass
    os.close(terminal)
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0
    assert typed and sent(daemon) == "operator:correct horse"
    assert b"correct" not in screen and b"TASK" in screen

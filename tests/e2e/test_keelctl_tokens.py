"""keelctl on a data processing unit, where tokens are taken instead of tickets."""

from __future__ import annotations

import pathlib
import shutil
import subprocess
from collections.abc import Iterator

import pytest
from harness.daemon import Daemon

MARKER = pathlib.Path("/etc/.rynio")
KEYS = pathlib.Path("/etc/orbane/token-keys")
TICKETS = pathlib.Path("/run/orbane/tickets")
NOBODY = 65534


@pytest.fixture
def unit(stopped_daemon: Daemon) -> Iterator[Daemon]:
    """The daemon of a data processing unit, without a key."""
    MARKER.touch()
    shutil.rmtree(KEYS, ignore_errors=True)
    yield stopped_daemon.start()
    MARKER.unlink()
    shutil.rmtree(KEYS, ignore_errors=True)


def run(*words: str, **options: object) -> tuple[int, str, str]:
    """Runs a program to its end, without a terminal."""
    result = subprocess.run(words, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False, timeout=60,
                            **options)  # type: ignore[call-overload]
    return result.returncode, result.stdout, result.stderr


def token(folder: pathlib.Path, *entitlements: str) -> pathlib.Path:
    """A file with a token of a trusted issuer."""
    if not KEYS.exists():
        assert run("/usr/bin/keel-token", "new-key", "lab", cwd=folder)[0] == 0
    path = folder / "alice.token"
    options = [word for entitlement in entitlements for word in ("--entitlement", entitlement)]
    assert run("/usr/bin/keel-token", "sign", "alice", "--key", "lab.key", *options, "--output", str(path), cwd=folder)[0] == 0
    return path


def test_a_token_lets_in(unit: Daemon, tmp_path: pathlib.Path) -> None:
    path = token(tmp_path, "Task.View")
    expected = (0, "{}\n", "")
    assert run("/usr/bin/keelctl", "tasks", "list", "--json", "--token-file", str(path)) == expected
    assert run("/usr/bin/keelctl", "tasks", "list", "--json", env={"KEELD_TOKEN": path.read_text().strip()},
               user=NOBODY) == expected


def test_a_token_without_the_privilege(unit: Daemon, tmp_path: pathlib.Path) -> None:
    path = token(tmp_path, "Software.View")
    assert run("/usr/bin/keelctl", "tasks", "list", "--token-file", str(path)) == (
        4, "", "keelctl: keeld does not allow this: has the token expired, and does it grant this?\n")


def test_a_foreign_token(unit: Daemon, tmp_path: pathlib.Path) -> None:
    path = token(tmp_path, "Task.View")
    shutil.rmtree(KEYS)
    code, out, err = run("/usr/bin/keelctl", "tasks", "list", "--token-file", str(path))
    assert (code, out) == (4, "")
    assert err.startswith("keelctl: keeld does not accept the credentials: ")
    assert path.read_text().strip() not in err


def test_a_ticket_is_not_taken_and_taken_back(unit: Daemon) -> None:
    code, out, err = run("/usr/bin/keelctl", "tasks", "list")
    assert (code, out) == (4, "")
    assert "does this host take tickets? Otherwise give --user NAME or --token-file FILE" in err
    assert list(TICKETS.iterdir()) == []

"""What ./quickstart refuses before it does anything, and the progress that it and its parts show."""

from __future__ import annotations

import pathlib
import shutil
import subprocess

import pytest

from conftest import PROJECT

QUICKSTART = PROJECT / "quickstart"
PROGRESS = PROJECT / "tools/progress"
OS_RELEASE = pathlib.Path("/etc/os-release")


def run(*words: str | pathlib.Path) -> subprocess.CompletedProcess[str]:
    """Runs a command that has no terminal."""
    return subprocess.run(words, capture_output=True, text=True, check=False, stdin=subprocess.DEVNULL)


@pytest.mark.parametrize("text, named", [
    ('ID=debian\nVERSION_ID="11"\nPRETTY_NAME="Debian GNU/Linux 11"\n', "Debian GNU/Linux 11"),
    ('ID=other\nVERSION_ID="12"\nPRETTY_NAME="Other 12"\n', "Other 12"),
    ("", "an unknown system"),
])
def test_refuses_other_systems(text: str, named: str) -> None:
    before = OS_RELEASE.read_text()
    target = OS_RELEASE.resolve()
    try:
        target.write_text(text)
        result = run(QUICKSTART)
    finally:
        target.write_text(before)
    assert result.returncode == 1
    assert "this is for Debian 12" in result.stderr and named in result.stderr
    assert result.stdout == ""


def test_refuses_users_who_may_not_install() -> None:
    result = run("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", QUICKSTART)
    assert result.returncode == 1
    assert result.stderr.startswith("quickstart: run this as root")


@pytest.mark.parametrize("options", [(), ("--shell",)])
def test_refuses_where_no_sandbox_can_be_made(options: tuple[str, ...]) -> None:
    result = run("setpriv", "--bounding-set=-sys_admin", "--inh-caps=-sys_admin", QUICKSTART, *options)
    assert result.returncode == 1
    assert result.stderr.startswith("quickstart: namespaces and overlay mounts are not allowed here")


@pytest.mark.parametrize("words, said", [(["--frobnicate"], "unknown argument --frobnicate"), (["--preset"], "--preset needs a name")])
def test_refuses_arguments_that_it_does_not_know(words: list[str], said: str) -> None:
    result = run(QUICKSTART, *words)
    assert result.returncode != 0 and said in result.stderr


def test_help_names_every_option() -> None:
    text = run(QUICKSTART, "--help").stdout
    for option in ("--shell", "--install", "--preset", "--help"):
        assert option in text


def test_says_where_to_read_why_a_build_failed() -> None:
    log = PROJECT / "build/no-such-preset.build.log"
    try:
        result = run(PROJECT / "tools/build-stage", "no-such-preset")
        assert result.returncode == 1
        assert "No such preset" in result.stderr
        assert result.stderr.endswith("the build failed; all of it is in build/no-such-preset.build.log\n")
        assert "No such preset" in log.read_text()
    finally:
        log.unlink(missing_ok=True)


def install_packages(tmp_path: pathlib.Path, packages: str, *launcher: str) -> subprocess.CompletedProcess[str]:
    """Runs tools/install-packages of a project that needs `packages`."""
    (tmp_path / "tools").mkdir()
    script = tmp_path / "tools/install-packages"
    shutil.copy(PROJECT / "tools/install-packages", script)
    (tmp_path / "packages.txt").write_text(packages)
    for folder in (tmp_path, *tmp_path.parents[:3]):
        folder.chmod(0o755)
    return run(*launcher, script)


def test_packages_that_are_there_need_nothing(tmp_path: pathlib.Path) -> None:
    result = install_packages(tmp_path, "# needed\nbash\n\ndpkg # more\n")
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")


def test_missing_packages_are_named_to_who_may_not_install_them(tmp_path: pathlib.Path) -> None:
    result = install_packages(tmp_path, "bash\nno-such-one\nno-such-other\n", "setpriv", "--reuid=65534", "--regid=65534",
                              "--clear-groups")
    assert result.returncode == 1
    assert result.stderr == "missing packages; as root: apt-get install no-such-one no-such-other\n"


def progress(tmp_path: pathlib.Path, lines: list[str], *words: str) -> tuple[list[str], str]:
    """Feeds lines to tools/progress; gives the percentages that it shows, and what it wrote to the file."""
    log = tmp_path / "log"
    result = subprocess.run([PROGRESS, log, *words], input="\n".join(lines), capture_output=True, text=True, check=True)
    return [line.split("%")[0].strip() for line in result.stdout.splitlines()], log.read_text()


def test_progress_of_a_build(tmp_path: pathlib.Path) -> None:
    lines = ["configuring", *(f"[{n}/40] Building {n}" for n in range(1, 41)), "warning: a last line without end"]
    shown, log = progress(tmp_path, lines)
    assert shown == ["10", "20", "30", "40", "50", "60", "70", "80", "90", "100"]
    assert log == "\n".join(lines) + "\n"


def test_progress_of_a_build_with_few_steps(tmp_path: pathlib.Path) -> None:
    assert progress(tmp_path, ["[1/3] a", "[2/3] b", "[3/3] c"])[0] == ["33", "66", "100"]
    assert progress(tmp_path, ["ninja: no work to do."])[0] == []
    assert progress(tmp_path, ["[0/0] nothing"])[0] == []


def test_progress_of_packages(tmp_path: pathlib.Path) -> None:
    lines = ["Reading", "Get:1 a", "Get:2 b", "Unpacking a", "Unpacking b", "Setting up a", "Setting up b", "Setting up more"]
    shown, _ = progress(tmp_path, lines, "6", "^(Get:|Unpacking |Setting up )")
    assert shown == ["16", "33", "50", "66", "83", "100"]

"""The package on a host: installed, used, installed again, removed, purged, with and without a service manager."""

from __future__ import annotations

import os
import pathlib
import re
import signal
import stat
import subprocess
from collections.abc import Iterator

import pytest

from conftest import PROJECT
from host import (GATE, SERVICES, ServiceManager, call, listens, processes, run, snapshot, start_by_hand, state, wait_for)

LINE = (PROJECT / "packaging/services").read_text()
WANTS = pathlib.Path("/etc/systemd/system/multi-user.target.wants/keeld.service")


@pytest.fixture(autouse=True, scope="module")
def no_index_of_manuals() -> None:
    """The index of all the machine's manual pages takes longer to make than everything else."""
    pathlib.Path("/var/lib/man-db/auto-update").unlink(missing_ok=True)


@pytest.fixture(autouse=True)
def clean_host() -> Iterator[None]:
    """A host without the package, and one again afterwards."""
    if state():
        run("dpkg", "--purge", "keeld")
    yield
    for pid in processes():
        os.kill(pid, signal.SIGKILL)
    wait_for(lambda: not processes(), "the end of the daemons")
    if state():
        run("dpkg", "--purge", "--force-all", "keeld", KEELD_PACKAGE_WAIT="0")


@pytest.fixture
def service_manager() -> Iterator[ServiceManager]:
    """The host has a service manager that runs."""
    manager = ServiceManager()
    yield manager
    manager.gone()


def install(package: pathlib.Path) -> str:
    """Installs the package; gives what the user saw."""
    result = run("dpkg", "--install", package)
    return result.stdout + result.stderr


def entries() -> list[str]:
    """The lines of the services database that name the daemon."""
    return [line for line in SERVICES.read_text().splitlines(keepends=True) if line.startswith("keeld")]


def test_whole_life(package: pathlib.Path) -> None:
    before = snapshot()
    services_before = SERVICES.read_bytes()

    install(package)
    assert state() == "installed"
    assert entries() == [LINE]
    assert run("getent", "services", "keeld").stdout.split() == ["keeld", "7433/tcp"]
    assert processes() == []
    for path, mode in (("/var/orbane/lifecycle", 0o755), ("/var/lib/orbane", 0o755), ("/run/orbane/tickets", 0o700)):
        status = os.stat(path)
        assert (stat.S_IMODE(status.st_mode), status.st_uid, status.st_gid) == (mode, 0, 0), path

    start_by_hand()
    answer = call("com.orbane.lumo.std.introspection.service.list")
    assert "com.orbane.halo.tasks" in answer["result"]
    assert run("keelctl", "tasks", "list").returncode == 0

    preferences = pathlib.Path("/etc/orbane/preferences.conf")
    preferences.write_text(preferences.read_text() + "sysroot = /srv/image\n")
    said = install(package)
    assert "the running daemon is still the one before; restart it" in said
    assert entries() == [LINE]
    assert preferences.read_text().endswith("sysroot = /srv/image\n")
    assert len(processes()) == 1 and listens()

    run("dpkg", "--remove", "keeld")
    assert state() == "config-files"
    assert processes() == [], "a daemon that was started by hand is stopped with its program gone"
    left = set(snapshot()) - set(before)
    assert {path for path in left if not path.startswith(("/etc/orbane", "/etc/systemd", "/var/orbane", "/var/lib/systemd"))} \
        <= {"/etc/pam.d/keeld", "/var/lib/orbane"}
    assert preferences.exists() and pathlib.Path("/var/orbane/lifecycle/task-status.json.db").exists()

    run("dpkg", "--purge", "keeld")
    assert state() == ""
    assert SERVICES.read_bytes() == services_before
    assert snapshot() == before


def test_modules_are_compiled_and_leave_nothing_behind(package: pathlib.Path) -> None:
    install(package)
    home = pathlib.Path("/usr/lib/orbane/python")
    sources = {path for path in home.rglob("*.py")}
    assert {path.parent.parent / (path.name.split(".")[0] + ".py") for path in home.rglob("*.pyc")} == sources
    run("dpkg", "--remove", "keeld")
    assert not home.exists()


def test_unit_is_enabled_for_the_next_boot(package: pathlib.Path) -> None:
    install(package)
    assert os.readlink(WANTS).endswith("/systemd/system/keeld.service")


def test_files_are_those_of_the_package(package: pathlib.Path) -> None:
    install(package)
    assert run("dpkg", "--verify", "keeld").stdout == ""


@pytest.mark.parametrize("text", [
    "keeld\t\t7555/tcp\t\t# ours\n",
    "other\t\t7433/tcp\t\tkeeld\n",
    "keeld\t\t7433/tcp\n",
])
def test_an_entry_of_the_administrator_stays(package: pathlib.Path, text: str) -> None:
    before = SERVICES.read_text()
    try:
        SERVICES.write_text(before + text)
        for _ in range(2):
            install(package)
            assert SERVICES.read_text() == before + text
        run("dpkg", "--purge", "keeld")
        assert SERVICES.read_text() == before + text
    finally:
        SERVICES.write_text(before)


def test_a_changed_line_of_ours_stays(package: pathlib.Path) -> None:
    before = SERVICES.read_text()
    try:
        install(package)
        SERVICES.write_text(SERVICES.read_text().replace("7433/tcp", "7434/tcp"))
        changed = SERVICES.read_text()
        install(package)
        run("dpkg", "--purge", "keeld")
        assert SERVICES.read_text() == changed != before
    finally:
        SERVICES.write_text(before)


def test_last_line_without_end(package: pathlib.Path) -> None:
    before = SERVICES.read_text()
    try:
        SERVICES.write_text(before + "tail\t\t9/udp")
        install(package)
        assert SERVICES.read_text() == before + "tail\t\t9/udp\n" + LINE
        run("dpkg", "--purge", "keeld")
        assert SERVICES.read_text() == before + "tail\t\t9/udp\n"
    finally:
        SERVICES.write_text(before)


def test_services_file_that_is_a_mount_of_its_own(package: pathlib.Path, tmp_path: pathlib.Path) -> None:
    own = tmp_path / "services"
    own.write_bytes(SERVICES.read_bytes())
    run("mount", "--bind", own, SERVICES)
    try:
        before = own.read_text()
        install(package)
        assert own.read_text() == before + LINE
        run("dpkg", "--purge", "keeld")
        assert own.read_text() == before
    finally:
        run("umount", SERVICES)
    assert not pathlib.Path("/etc/services.keeld").exists()


def test_service_manager_starts_stops_and_restarts(package: pathlib.Path, service_manager: ServiceManager) -> None:
    install(package)
    assert service_manager.calls() == ["daemon-reload", "start"]
    wait_for(listens, "the daemon's port")
    install(package)
    assert service_manager.calls() == ["stop", "daemon-reload", "start"]
    wait_for(listens, "the daemon's port")
    run("dpkg", "--remove", "keeld")
    assert service_manager.calls() == ["stop", "daemon-reload"]
    wait_for(lambda: not processes(), "the end of the daemon")
    run("dpkg", "--purge", "keeld")
    assert "start" not in service_manager.calls()


@pytest.fixture
def tool() -> Iterator[subprocess.Popen[bytes]]:
    """A process that looks like a tool at work, with the gate in its name."""
    code = "import subprocess, sys; print(flush=True); sys.stdin.read()"
    words = ["/usr/bin/python3", "-c", code, "/usr/lib/orbane/lifecycle/bin/stowctl.py", "software", "apply"]
    with subprocess.Popen(words, stdin=subprocess.PIPE, stdout=subprocess.PIPE) as process:
        assert process.stdout is not None and process.stdout.readline() == b"\n"
        yield process
        process.kill()


@pytest.mark.parametrize("words", [("--remove", "keeld"), ("--install",)])
def test_a_running_operation_keeps_its_program(package: pathlib.Path, tool: subprocess.Popen[bytes],
                                               words: tuple[str, ...]) -> None:
    install(package)
    start_by_hand()
    GATE.write_text(f"TASK: 6f1c {tool.pid}")
    arguments = (*words, str(package)) if words == ("--install",) else words
    result = run("dpkg", *arguments, ok=False, KEELD_PACKAGE_WAIT="0")
    assert result.returncode != 0
    assert "a software operation is running; try again when it has ended" in result.stderr
    assert state() == "installed"
    assert run("dpkg", "--verify", "keeld").stdout == ""
    assert len(processes()) == 1 and listens()
    assert entries() == [LINE]

    tool.kill()
    tool.wait()
    run("dpkg", *arguments)


def test_waits_for_an_operation_that_ends(package: pathlib.Path, tool: subprocess.Popen[bytes]) -> None:
    install(package)
    GATE.write_text(f"TASK: 6f1c {tool.pid}")
    with subprocess.Popen(["dpkg", "--remove", "keeld"], stderr=subprocess.PIPE, text=True) as remove:
        assert remove.stderr is not None
        assert "waiting for the running software operation to end" in remove.stderr.readline()
        assert state() == "installed" or state() == "half-configured"
        tool.kill()
        tool.wait()
        assert remove.wait() == 0


def test_a_gate_that_nobody_holds_is_no_hindrance(package: pathlib.Path) -> None:
    install(package)
    for text in ("", "PRECURSOR: 6f1c", "TASK: 6f1c 1", "TASK: 6f1c x", "TASK: 6f1c 4194304\n", "TASK:", "\0\0\0"):
        GATE.write_text(text)
        assert run("/var/lib/dpkg/info/keeld.prerm", "upgrade").stderr == "", text
    assert "operation" not in run("dpkg", "--remove", "keeld").stderr


def test_images_survive_a_purge(package: pathlib.Path) -> None:
    install(package)
    image = pathlib.Path("/var/lib/orbane/sysroot/ostree/repo/config")
    image.parent.mkdir(parents=True)
    image.write_text("[core]\n")
    pathlib.Path("/var/lib/orbane/acceptance-level").write_text("CERTIFIED\n")
    keys = pathlib.Path("/etc/orbane/token-keys/issuer.pem")
    keys.parent.mkdir()
    keys.write_text("a key\n")
    said = run("dpkg", "--purge", "keeld").stderr
    assert "the images in /var/lib/orbane are kept" in said
    assert [path.name for path in pathlib.Path("/var/lib/orbane").iterdir()] == ["sysroot"]
    assert image.read_text() == "[core]\n" and keys.read_text() == "a key\n"
    assert not pathlib.Path("/var/orbane").exists()
    run("rm", "-r", "/var/lib/orbane", "/etc/orbane")


def test_install_service_where_no_service_manager_runs(package: pathlib.Path) -> None:
    result = run(PROJECT / "tools/install-service", package)
    assert state() == "installed"
    assert "/usr/sbin/keeld &" in result.stdout
    start_by_hand()
    shown = re.findall(r"^    (curl .*)$", result.stdout, re.MULTILINE)
    assert len(shown) == 1
    assert "com.orbane.halo.tasks" in run("/bin/sh", "-c", shown[0]).stdout


def test_install_service_starts_it_and_shows_a_call(package: pathlib.Path, service_manager: ServiceManager) -> None:
    for _ in range(2):
        result = run(PROJECT / "tools/install-service", package)
        assert "com.orbane.halo.tasks" in result.stdout
        assert listens()
    assert service_manager.calls() == ["daemon-reload", "start", "stop", "daemon-reload", "start"]


def test_install_service_says_why_a_package_cannot_be_installed(tmp_path: pathlib.Path) -> None:
    broken = tmp_path / "keeld_0_all.deb"
    broken.write_text("no package")
    result = run(PROJECT / "tools/install-service", broken, ok=False)
    assert result.returncode == 1
    assert "cannot install" in result.stderr

"""The unit and the package on a host that systemd runs: tests/packaging/boot-systemd has booted it."""

from __future__ import annotations

import os
import pathlib
import re
import stat
from collections.abc import Iterator

import pytest

from host import GATE, call, listens, processes, run, state, wait_for

STOWCTL = pathlib.Path("/usr/lib/orbane/lifecycle/bin/stowctl.py")
#: Takes the gate over, as the image manager does, and works until it is told to end.
WORKING_TOOL = """#!/usr/bin/python3
import os, pathlib, sys
words = sys.argv[1:]
task = words[words.index("--task-id") + 1]
gate = pathlib.Path("/var/orbane/lifecycle/lifecycle.task")
beside = gate.with_name("beside")
beside.write_text(f"TASK: {task} {os.getpid()}")
beside.rename(gate)
open("/run/tool.end", "rb").read()
gate.unlink()
pathlib.Path("/run/tool.done").write_text("done")
"""


def show(name: str) -> str:
    """A property of the unit."""
    return run("systemctl", "show", "--value", "--property", name, "keeld.service").stdout.strip()


def main_pid() -> int:
    """The daemon's process, 0 when none runs."""
    return int(show("MainPID"))


@pytest.fixture(autouse=True)
def service(package: pathlib.Path) -> Iterator[None]:
    """The package is installed, and its service listens."""
    pathlib.Path("/var/lib/man-db/auto-update").unlink(missing_ok=True)
    run("dpkg", "--install", package)
    wait_for(listens, "the daemon's port")
    yield
    run("systemctl", "reset-failed", "keeld.service", ok=False)
    run("dpkg", "--purge", "--force-all", "keeld", KEELD_PACKAGE_WAIT="0")
    assert processes() == []


def test_installation_starts_the_service_for_good() -> None:
    assert run("systemctl", "is-active", "keeld").stdout == "active\n"
    assert run("systemctl", "is-enabled", "keeld").stdout == "enabled\n"
    assert "com.orbane.halo.tasks" in str(call("com.orbane.lumo.std.introspection.service.list"))
    run("keelctl", "tasks", "list")
    log = run("journalctl", "--sync", ok=False) and run("journalctl", "-t", "keeld", "--no-pager").stdout
    assert "HTTP endpoint listening on TCP port 7433" in log


def test_unit_loads_without_a_complaint() -> None:
    result = run("systemd-analyze", "verify", "--man=no", "keeld.service")
    assert "keeld" not in result.stderr
    assert show("LoadState") == "loaded" and show("NeedDaemonReload") == "no"


def test_confinement_is_in_force() -> None:
    process = pathlib.Path(f"/proc/{main_pid()}")
    status = dict(line.split(":\t", 1) for line in (process / "status").read_text().splitlines() if ":\t" in line)
    assert (status["Umask"], status["NoNewPrivs"].strip(), status["Seccomp"].strip()) == ("0077", "1", "2")
    limits = (process / "limits").read_text()
    assert re.search(r"^Max core file size +0 +0 ", limits, re.MULTILINE)
    assert re.search(r"^Max open files +12288 +12288 ", limits, re.MULTILINE)
    for namespace in ("mnt", "net", "ipc", "uts"):
        assert os.readlink(process / "ns" / namespace) == os.readlink(f"/proc/1/ns/{namespace}"), namespace


def test_image_is_applied_under_the_confinement(tmp_path: pathlib.Path) -> None:
    run("keel-depot", "sample", tmp_path)
    sources = [f"--depot=file://{tmp_path}/{name}" for name in ("main", "extras")]
    for verb, spec in (("apply", "first"), ("scan", "second"), ("stage", "second"), ("apply", "second")):
        run("keelctl", "software", verb, *sources, f"--spec={tmp_path}/specs/{spec}.json")
    programs = list(pathlib.Path("/var/lib/orbane/sysroot/ostree/deploy").glob("*/deploy/*.*/usr/bin/keel-hello"))
    assert {run(program).stdout.splitlines()[0] for program in programs} == {
        "keel-hello: base image 1.0.0", "keel-hello: base image 2.0.0"}
    for program in programs:
        for path in (program, *program.parents[:3]):
            assert stat.S_IMODE(path.stat().st_mode) & 0o055 == 0o055, f"the image's users can't use {path}"


@pytest.fixture
def working_tool() -> Iterator[None]:
    """An apply is at work; the tool ends when its pipe is closed."""
    STOWCTL.write_text(WORKING_TOOL)
    os.mkfifo("/run/tool.end")
    run("keelctl", "software", "apply", "--no-wait", "--depot=file:///srv", "--base=1")
    wait_for(lambda: GATE.exists() and GATE.read_text().startswith("TASK: "), "the tool")
    yield
    if GATE.exists():
        end_tool()
    for name in ("end", "done"):
        pathlib.Path(f"/run/tool.{name}").unlink(missing_ok=True)


def end_tool() -> None:
    """Lets the tool end, and waits for that."""
    open("/run/tool.end", "wb").close()
    wait_for(pathlib.Path("/run/tool.done").exists, "the end of the tool")


def test_tools_outlive_a_restart(working_tool: None) -> None:
    tool = int(GATE.read_text().split()[2])
    before = main_pid()
    run("systemctl", "restart", "keeld")
    wait_for(listens, "the daemon's port")
    assert main_pid() not in (0, before)
    os.kill(tool, 0)
    open("/run/tool.end", "wb").close()
    wait_for(lambda: not pathlib.Path(f"/proc/{tool}").exists(), "the end of the tool")
    assert show("ActiveState") == "active"


def test_upgrade_waits_for_a_tool(working_tool: None, package: pathlib.Path) -> None:
    before = main_pid()
    result = run("dpkg", "--install", package, ok=False, KEELD_PACKAGE_WAIT="0")
    assert result.returncode != 0 and "a software operation is running" in result.stderr
    assert main_pid() == before, "the daemon was not disturbed"
    end_tool()
    run("dpkg", "--install", package)
    assert main_pid() not in (0, before)


def test_a_daemon_that_dies_is_started_again() -> None:
    before = main_pid()
    os.kill(before, 9)
    wait_for(lambda: main_pid() not in (0, before), "the next daemon")
    wait_for(listens, "the daemon's port")
    assert show("NRestarts") == "1"


def test_a_stop_is_no_failure() -> None:
    run("systemctl", "stop", "keeld")
    assert (show("ActiveState"), show("Result"), show("ExecMainStatus")) == ("inactive", "success", "0")


def test_a_unit_that_was_disabled_stays_so(package: pathlib.Path) -> None:
    run("systemctl", "disable", "--now", "keeld")
    run("dpkg", "--install", package)
    assert show("ActiveState") == "inactive"
    assert run("systemctl", "is-enabled", "keeld", ok=False).stdout == "disabled\n"


def test_removal_stops_the_service_and_forgets_it() -> None:
    run("dpkg", "--remove", "keeld")
    assert processes() == []
    assert show("LoadState") == "not-found"
    run("dpkg", "--purge", "keeld")
    assert state() == ""
    assert not pathlib.Path("/etc/systemd/system/multi-user.target.wants/keeld.service").is_symlink()


def test_folders_in_memory_are_made_at_each_boot() -> None:
    run("systemctl", "stop", "keeld")
    run("rm", "-r", "/run/orbane")
    run("systemd-tmpfiles", "--create", "--prefix=/run/orbane")  # as the boot does it, for all prefixes
    assert stat.S_IMODE(os.stat("/run/orbane/tickets").st_mode) == 0o700

"""What the installation puts around the programs: unit, folders, services line."""

from __future__ import annotations

import configparser
import os
import pathlib
import shutil
import stat
import subprocess

import pytest

UNIT = pathlib.Path("/usr/lib/systemd/system/keeld.service")
TMPFILES = pathlib.Path("/usr/lib/tmpfiles.d/keeld.conf")


@pytest.fixture
def service() -> configparser.SectionProxy:
    parser = configparser.ConfigParser(interpolation=None)
    parser.optionxform = str  # type: ignore[assignment,method-assign]
    parser.read(UNIT)
    return parser["Service"]


def test_tools_survive_a_stop_of_the_daemon(service: configparser.SectionProxy) -> None:
    assert service["KillMode"] == "process"
    assert service["ExecStart"] == "/usr/sbin/keeld"


def test_no_watchdog_since_requests_may_wait_for_long(service: configparser.SectionProxy) -> None:
    assert "WatchdogSec" not in service
    assert int(service["TimeoutStopSec"].removesuffix("s")) > 31 + 5


@pytest.mark.parametrize("option", [
    "PrivateTmp", "PrivateDevices", "PrivateMounts", "ProtectSystem", "ProtectHome", "ProtectKernelTunables",
    "ProtectKernelModules", "ProtectKernelLogs", "ProtectControlGroups", "ProtectProc", "ProcSubset", "ReadOnlyPaths",
    "ReadWritePaths", "InaccessiblePaths", "BindPaths", "TemporaryFileSystem", "MountFlags", "RootDirectory",
    "PrivateNetwork", "ProtectHostname", "ProtectClock", "RestrictSUIDSGID", "RestrictNamespaces", "DynamicUser", "User",
])
def test_sandboxing_leaves_tools_able_to_work(service: configparser.SectionProxy, option: str) -> None:
    assert option not in service


@pytest.mark.parametrize("capability", ["CAP_SYS_ADMIN", "CAP_MKNOD", "CAP_CHOWN", "CAP_FOWNER", "CAP_SETFCAP",
                                        "CAP_SYS_TIME", "CAP_SYS_BOOT", "CAP_NET_ADMIN", "CAP_SYS_RESOURCE"])
def test_tools_keep_the_capabilities_they_need(service: configparser.SectionProxy, capability: str) -> None:
    dropped = service["CapabilityBoundingSet"]
    assert dropped.startswith("~")
    assert capability not in dropped[1:].split()


def test_tools_are_no_danger_to_the_daemon(service: configparser.SectionProxy) -> None:
    assert service["OOMPolicy"] == "continue"
    assert "Delegate" not in service
    assert service["UMask"] == "0077"


def test_connection_budget_fits_the_descriptor_limit(service: configparser.SectionProxy) -> None:
    assert int(service["LimitNOFILE"]) >= 10_000 + 100


@pytest.mark.skipif(not shutil.which("systemd-analyze"), reason="systemd is not installed")
def test_systemd_understands_the_unit() -> None:
    result = subprocess.run(["systemd-analyze", "verify", "--man=no", str(UNIT)], capture_output=True, text=True, check=False)
    complaints = [line for line in result.stderr.splitlines() if "keeld.service" in line]
    assert complaints == [] and result.returncode == 0, result.stderr


def test_folders_belong_to_root_and_nobody_else_writes_there() -> None:
    rows = [line.split() for line in TMPFILES.read_text().splitlines() if line and not line.startswith("#")]
    assert [(row[1], row[2]) for row in rows] == [
        ("/var/orbane", "0755"), ("/var/orbane/lifecycle", "0755"), ("/var/lib/orbane", "0755"),
        ("/run/orbane", "0755"), ("/run/orbane/tickets", "0700")]
    for kind, path, mode, user, group, *_ in rows:
        assert (kind, user, group) == ("d", "root", "root")
        # The sandbox stands for a host on which the rules were applied.
        assert stat.S_IMODE(pathlib.Path(path).stat().st_mode) == int(mode, 8), path


def test_services_line_names_the_port() -> None:
    words = pathlib.Path("/usr/share/orbane/services").read_text().split("#")[0].split()
    assert words == ["keeld", "7433/tcp"]


def test_whose_password_is_taken_is_the_hosts_to_say() -> None:
    # The sandbox has a file of its own in its place; what the shipped one does is tested with the real PAM library.
    lines = (pathlib.Path(os.environ["KEELD_STAGE"]) / "etc/pam.d/keeld").read_text().splitlines()
    rules = [line.split() for line in lines if line and not line.startswith("#")]
    assert [rule[0] for rule in rules] == ["auth", "account", "account", "account"]
    assert rules[0][1:] == ["required", "pam_unix.so", "nodelay"]
    assert rules[1][1:] == ["required", "pam_unix.so"], "expired accounts stay outside, whatever follows"

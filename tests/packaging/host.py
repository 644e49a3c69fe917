"""The sandbox's host as the tests of the installation see it: package manager, service manager, daemon."""

from __future__ import annotations

import hashlib
import http.client
import json
import os
import pathlib
import shutil
import subprocess
import time
from collections.abc import Callable
from typing import Any

PATIENCE = 60.0
SERVICES = pathlib.Path("/etc/services")
PROGRAM = "/usr/sbin/keeld"
GATE = pathlib.Path("/var/orbane/lifecycle/lifecycle.task")
#: Folders in which the package, or its scripts, could leave something.
TREES = ("/etc", "/usr/bin", "/usr/sbin", "/usr/lib/orbane", "/usr/lib/systemd", "/usr/lib/tmpfiles.d", "/usr/share/man/man1",
         "/usr/share/man/man8", "/usr/share/bash-completion", "/usr/share/doc/keeld", "/usr/share/orbane", "/var/orbane",
         "/var/lib/orbane", "/var/lib/systemd", "/run")
SYSTEMCTL = """#!/bin/sh
# Stands in for the service manager: notes what it is told, and does it.
echo "$*" >>/tmp/systemctl.calls
for word; do
  case $word in
    start) setsid /usr/sbin/keeld </dev/null >/dev/null 2>&1 & echo $! >/tmp/keeld.pid; exit 0 ;;
    stop) kill "$(cat /tmp/keeld.pid)"; while kill -0 "$(cat /tmp/keeld.pid)"; do sleep 0.01; done; exit 0 ;;
    is-active) kill -0 "$(cat /tmp/keeld.pid)" 2>/dev/null; exit ;;
    is-enabled) echo enabled; exit 0 ;;
  esac
done
"""


def wait_for(probe: Callable[[], Any], what: str) -> Any:
    """Calls `probe` until it gives something true."""
    deadline = time.monotonic() + PATIENCE
    while not (value := probe()):
        assert time.monotonic() < deadline, f"waited in vain for {what}"
        time.sleep(0.005)
    return value


def run(*words: str | pathlib.Path, ok: bool = True, **environment: str) -> subprocess.CompletedProcess[str]:
    """Runs a command to its end; with `ok` it has to succeed."""
    result = subprocess.run(words, capture_output=True, text=True, check=False, stdin=subprocess.DEVNULL,
                            env=dict(os.environ, DEBIAN_FRONTEND="noninteractive", **environment))
    assert not ok or result.returncode == 0, f"{words}: {result.stdout}{result.stderr}"
    return result


def state() -> str:
    """dpkg's word for the package: "installed", "config-files", "" when it knows of none."""
    result = run("dpkg-query", "-W", "-f", "${db:Status-Status}", "keeld", ok=False)
    return "" if result.returncode or result.stdout == "not-installed" else result.stdout


def snapshot() -> dict[str, str]:
    """Path -> kind, rights and contents, of everything that an installation could change."""
    found = {}
    for tree in TREES:
        for folder, folders, files in os.walk(tree):
            for name in folders + files:
                path = pathlib.Path(folder, name)
                status = path.lstat()
                what = f"{status.st_mode:o} {status.st_uid}:{status.st_gid}"
                if path.is_symlink():
                    what += f" -> {os.readlink(path)}"
                elif tree == "/etc" and path.is_file():
                    what += f" {hashlib.sha256(path.read_bytes()).hexdigest()}"
                found[str(path)] = what
    return found


def processes() -> list[int]:
    """The daemons that run."""
    found = []
    for entry in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            words = (entry / "cmdline").read_bytes().split(b"\0")
            if words[0] == PROGRAM.encode() and "Z" not in (entry / "stat").read_text().rpartition(")")[2].split()[0]:
                found.append(int(entry.name))
        except OSError:
            continue
    return found


def start_by_hand() -> None:
    """Starts the daemon as an administrator would where no service manager runs; returns when it listens."""
    subprocess.Popen(["/bin/sh", "-c", f"setsid {PROGRAM} </dev/null >/dev/null 2>&1 &"]).wait()
    wait_for(listens, "the daemon's port")


def call(method: str, **params: Any) -> dict[str, Any]:
    """One anonymous call."""
    connection = http.client.HTTPConnection("127.0.0.1", 7433, timeout=PATIENCE)
    body = {"jsonrpc": "2.0", "id": 1, "method": method, "params": params}
    connection.request("POST", "/", json.dumps(body), {"Content-Type": "application/json",
                                                       "Accept": "application/vnd.orbane.lumo.cleanjson"})
    answer: dict[str, Any] = json.loads(connection.getresponse().read())
    connection.close()
    return answer


def listens() -> bool:
    """Whether the daemon's port is open."""
    connection = http.client.HTTPConnection("127.0.0.1", 7433, timeout=PATIENCE)
    try:
        connection.connect()
    except OSError:
        return False
    connection.close()
    return True


class ServiceManager:
    """A host that systemd runs on, as far as packages and `systemctl` can tell."""

    calls_file = pathlib.Path("/tmp/systemctl.calls")
    mark = pathlib.Path("/run/systemd/system")

    def __init__(self) -> None:
        self.mark.mkdir(parents=True)
        self.program = pathlib.Path(shutil.which("systemctl") or "/usr/bin/systemctl")
        self.before = self.program.read_bytes() if self.program.exists() else None
        self.program.write_text(SYSTEMCTL)
        self.program.chmod(0o755)
        pathlib.Path("/usr/sbin/policy-rc.d").unlink(missing_ok=True)  # of containers: would forbid to start anything

    def calls(self) -> list[str]:
        """The actions on the daemon's unit since the last question."""
        lines = self.calls_file.read_text().splitlines() if self.calls_file.exists() else []
        self.calls_file.unlink(missing_ok=True)
        return [word for line in lines for word in line.split()
                if word in ("start", "restart", "stop", "daemon-reload")]

    def gone(self) -> None:
        """The host is one without again."""
        self.mark.rmdir()
        self.mark.parent.rmdir()
        self.calls_file.unlink(missing_ok=True)
        if self.before is None:
            self.program.unlink()
        else:
            self.program.write_bytes(self.before)

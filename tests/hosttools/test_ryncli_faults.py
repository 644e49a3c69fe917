"""Changes by `ryncli` that are cut: signals, death at any system call, no room."""

from __future__ import annotations

import errno
import shutil
import signal
import subprocess
import xml.etree.ElementTree as xml
from pathlib import Path

import pytest
from stalling import StallingServer
from support import Host, TinyDepot, check_whole, deployments, image_state, spec
from test_ryncli_line import run

LEVEL_FILE = Path("/var/lib/orbane/acceptance-level")
_CALLS = "openat,write,fsync,rename,renameat,renameat2,unlink,unlinkat"


def start(*words: str) -> subprocess.Popen[bytes]:
    """Starts the tool; the end of the test ends it."""
    process = subprocess.Popen(["/bin/ryncli", *words], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    Host.running.append(process)
    return process


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP])
def test_a_signal_ends_a_change_in_order(host: Host, depot: TinyDepot, number: signal.Signals) -> None:
    host.succeed("apply", spec("1"), [depot.url])
    before = image_state()
    with StallingServer(depot.path, allowed=0) as server:
        words = ("software", "component", "apply", "-n", "alpha", "--depot", f"{server.url}/index.xml")
        process = start(*words)
        assert server.stalled.wait(60)
        process.send_signal(number)
        output, errors = process.communicate(timeout=60)
    assert process.returncode == errno.EINTR
    root = xml.fromstring(output)
    assert (root.tag, root.get("id")) == ("error", "com.orbane.ryn.stow.terminated.error")
    assert errors.decode() == f"ryncli: {root.text}\n"
    assert image_state() == before
    assert run(*words[:-1], depot.url).returncode == 0
    check_whole(deployments()[0])


def test_a_killed_change_leaves_the_old_image(host: Host, depot: TinyDepot) -> None:
    host.succeed("apply", spec("1"), [depot.url])
    before = image_state()
    with StallingServer(depot.path, allowed=0) as server:
        process = start("software", "profile", "update", "-n", "ryn:2", "--depot", server.url)
        assert server.stalled.wait(60)
        process.kill()
        process.communicate(timeout=60)
    assert image_state() == before
    assert run("software", "profile", "update", "-n", "ryn:2", "--depot", depot.url).returncode == 0
    check_whole(deployments()[0])


def test_a_question_is_cut_off_at_once(host: Host, depot: TinyDepot, tmp_path: Path) -> None:
    with StallingServer(depot.path, allowed=0, stall_at=".commit") as server:
        for number in (signal.SIGTERM, signal.SIGINT):
            process = start("software", "component", "list", "--depot", server.url)
            assert server.stalled.wait(60)
            process.send_signal(number)
            output, errors = process.communicate(timeout=60)
            assert (process.returncode, output, errors) == (-number, b"", b"")
            server.stalled.clear()


def traced(fault: str) -> int:
    """Sets the level PARTNER under strace, with a fault as its "inject" has it; returns the number of traced calls."""
    log = Path("/run/strace.log")
    log.unlink(missing_ok=True)
    inject = ["-e", f"inject={_CALLS}:{fault}"] if fault else []
    subprocess.run(["strace", "-qq", "-o", str(log), "-P", str(LEVEL_FILE), "-P", str(LEVEL_FILE.parent),
                    "-P", str(LEVEL_FILE.with_name(f".{LEVEL_FILE.name}.new")), "-e", f"trace={_CALLS}", *inject,
                    "/bin/ryncli", "software", "acceptance", "set", "-l", "PARTNER"], capture_output=True, check=False)
    return len([line for line in log.read_text().splitlines() if "(" in line])


@pytest.mark.skipif(shutil.which("strace") is None, reason="strace is not installed")
@pytest.mark.parametrize("fault", ["signal=KILL", "error=ENOSPC", "error=EIO"])
def test_the_level_is_the_old_or_the_new_one(host: Host, fault: str) -> None:
    LEVEL_FILE.write_text("ACCEPTED\n")
    count = traced("")
    assert LEVEL_FILE.read_text() == "PARTNER\n" and count >= 6
    seen = set()
    for number in range(1, count + 1):
        LEVEL_FILE.write_text("ACCEPTED\n")
        traced(f"{fault}:when={number}")
        seen.add(LEVEL_FILE.read_text())
        assert run("software", "acceptance", "get").returncode == 0
        assert run("software", "acceptance", "set", "-l", "CERTIFIED").returncode == 0
        assert LEVEL_FILE.read_text() == "CERTIFIED\n"
        assert [path.name for path in LEVEL_FILE.parent.iterdir()] == [LEVEL_FILE.name]
    assert seen == {"ACCEPTED\n", "PARTNER\n"}

"""Fixtures of the end-to-end tests. They run inside tests/sandbox/run: one sandbox a test file, cleaned between tests."""

from __future__ import annotations

import os
import pathlib
import shutil
import signal
import sys
from collections.abc import Callable, Iterator

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parent))

from harness.daemon import OUTPUT, PROGRAM, Daemon, processes, remember_bystanders  # noqa: E402
from harness.depots import Depots, DepotServer  # noqa: E402
from harness.disks import SmallDisk  # noqa: E402
from harness.syslog import SystemLog  # noqa: E402
from harness.tool import FakeTool  # noqa: E402
from harness.waiting import wait_for  # noqa: E402
from harness.wire import Rpc  # noqa: E402

STATE = pathlib.Path("/var/orbane/lifecycle")


def pytest_configure(config: pytest.Config) -> None:
    """Refuses to run on the machine itself."""
    if os.environ.get("KEELD_SANDBOX") != "1":
        pytest.exit("run end-to-end tests inside the sandbox: tests/sandbox/run /usr/bin/python3 -m pytest tests/e2e/...", 2)
    if not PROGRAM.exists():
        pytest.exit("the stage has no /usr/sbin/keeld: build the target `stage` first", 2)
    remember_bystanders()


@pytest.fixture(autouse=True)
def clean_host() -> Iterator[None]:
    """Before each test no state of an earlier one; after it no process."""
    for folder in (STATE, pathlib.Path("/var/lib/orbane")):
        for path in folder.iterdir():
            shutil.rmtree(path) if path.is_dir() and not path.is_symlink() else path.unlink()
    for path in (OUTPUT, pathlib.Path("/run/lifecycle.scan.swspec")):
        path.unlink(missing_ok=True)
    yield
    for pid in processes():
        try:
            os.kill(pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
    wait_for(lambda: not processes(), "the end of a test's processes")


@pytest.fixture
def syslog() -> SystemLog:
    """The system log from here on."""
    return SystemLog()


@pytest.fixture
def stopped_daemon(clean_host: None, syslog: SystemLog) -> Iterator[Daemon]:
    """A daemon that the test starts. At the end it has to stop in order: status 0, nothing on its standard streams."""
    daemon = Daemon()
    yield daemon
    if daemon.running:
        status = daemon.stop()
        assert status == 0, f"exit status {status}: {daemon.output()}"
        assert daemon.output() == ""


@pytest.fixture
def daemon(stopped_daemon: Daemon) -> Daemon:
    """A running daemon with its port open."""
    return stopped_daemon.start()


@pytest.fixture
def rpc() -> Rpc:
    """Calls operations at 127.0.0.1:7433."""
    return Rpc()


@pytest.fixture
def fake_tool() -> Iterator[FakeTool]:
    """The place of the image manager, given back at the end."""
    tool = FakeTool()
    yield tool
    tool.restore()


@pytest.fixture(scope="module")
def depots(tmp_path_factory: pytest.TempPathFactory) -> Depots:
    """The sample depots, for reading only."""
    return Depots(tmp_path_factory.mktemp("depots"))


@pytest.fixture
def serve() -> Iterator[Callable[..., DepotServer]]:
    """A function that serves a depot's folder by HTTP until the end of the test."""
    servers: list[DepotServer] = []

    def start(folder: pathlib.Path, stall_at: str = "") -> DepotServer:
        servers.append(DepotServer(folder, stall_at))
        return servers[-1]

    yield start
    for server in servers:
        server.close()


@pytest.fixture
def small_disk() -> Iterator[Callable[[pathlib.Path, int], SmallDisk]]:
    """A function that mounts a disk of a few bytes somewhere until the end of the test."""
    disks: list[SmallDisk] = []

    def mount(place: pathlib.Path, size: int) -> SmallDisk:
        disks.append(SmallDisk(place, size))
        return disks[-1]

    yield mount
    for disk in reversed(disks):
        disk.close()

"""Fixtures of the host tools' tests. They run inside tests/sandbox/run, where the fixed paths are the test's own."""

from __future__ import annotations

import os
import shutil
import signal
import sys
from collections.abc import Iterator
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
PYTHON_DIR = Path("/usr/lib/orbane/python")
BIN_DIR = Path("/usr/lib/orbane/lifecycle/bin")

sys.path[:0] = [str(Path(__file__).parent), str(ROOT / "hosttools"), str(ROOT / "platform" / "taskdb" / "python")]

STATE = Path("/var/orbane/lifecycle")
IMAGES = Path("/var/lib/orbane")


def _install(source: Path, target: Path) -> None:
    """The tree's own files in the place of what an older stage may have."""
    target.parent.mkdir(parents=True, exist_ok=True)
    if target.is_dir() and not target.is_symlink():
        shutil.rmtree(target)
    target.unlink(missing_ok=True)
    target.symlink_to(source)


def pytest_configure(config: pytest.Config) -> None:
    """Refuses to run on the machine itself."""
    if os.environ.get("KEELD_SANDBOX") != "1":
        pytest.exit("run these tests inside the sandbox: tests/sandbox/run /usr/bin/python3 -m pytest tests/hosttools", 2)
    _install(ROOT / "hosttools" / "orbane_stow", PYTHON_DIR / "orbane_stow")
    _install(ROOT / "platform" / "taskdb" / "python" / "orbane_taskdb", PYTHON_DIR / "orbane_taskdb")
    _install(ROOT / "hosttools" / "bin" / "stowctl.py", BIN_DIR / "stowctl.py")
    for tool in ("keel-depot", "ryncli", "nearcli"):
        _install(ROOT / "hosttools" / "bin" / tool, Path("/usr/bin") / tool)
    plugin = "ryncli-softwareinternal.xml"
    plugins = Path("/usr/lib/orbane/ryncli/int/ext")
    plugins.mkdir(parents=True, exist_ok=True)
    shutil.copy(ROOT / "hosttools" / "plugins" / plugin, plugins)  # a link would be none
    _install(ROOT / "catalogues" / "en" / "stow.omsg", Path("/usr/lib/orbane/configmanager/locale/en/stow.omsg"))


@pytest.fixture(autouse=True)
def clean_host() -> Iterator[None]:
    """Each test begins with nothing of an earlier one."""
    for folder in (STATE, IMAGES):
        folder.mkdir(parents=True, exist_ok=True)
        for path in folder.iterdir():
            shutil.rmtree(path) if path.is_dir() and not path.is_symlink() else path.unlink()
    Path("/etc/orbane/preferences.conf").unlink(missing_ok=True)
    yield
    for process in Host.running:
        if process.poll() is None:
            os.kill(process.pid, signal.SIGKILL)
            process.wait()
    Host.running.clear()


@pytest.fixture
def host() -> Host:
    """A host with an empty task database and no image."""
    return Host()


@pytest.fixture
def depot(tmp_path: Path) -> TinyDepot:
    """A depot of small parts: base 1 and 2, components alpha (impact REBOOT), beta (NONE), gamma (MAINTENANCE_MODE)."""
    made = TinyDepot(tmp_path / "depot")
    made.fill()
    return made


@pytest.fixture(scope="session")
def sample(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """The folder of the sample depots. Tests must not change it."""
    from orbane_stow.builder.sample import make_sample

    folder = tmp_path_factory.mktemp("sample")
    make_sample(folder)
    return folder


from support import Host, TinyDepot  # noqa: E402  (needs the paths above)

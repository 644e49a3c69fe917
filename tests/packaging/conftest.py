"""What the tests of the Debian package share: the script that makes it, and a package of this build's stage."""

from __future__ import annotations

import os
import pathlib
import subprocess

import pytest

PROJECT = pathlib.Path(__file__).resolve().parent.parent.parent
BUILD_DEB = PROJECT / "packaging/build-deb"
STAGE = pathlib.Path(os.environ.get("KEELD_STAGE") or PROJECT / "build/dev/stage")


def pytest_configure(config: pytest.Config) -> None:
    """Refuses to run on the machine itself."""
    if os.environ.get("KEELD_SANDBOX") != "1":
        pytest.exit("run these tests inside the sandbox: tests/sandbox/run [--bare] /usr/bin/python3 -m pytest ...", 2)
    if not (STAGE / "usr/sbin/keeld").exists():
        pytest.exit("the stage has no /usr/sbin/keeld: build the target `stage` first", 2)


def build_deb(out: pathlib.Path, *options: str | pathlib.Path, umask: int = 0o022) -> pathlib.Path:
    """Makes the package in `out`; gives its path."""
    result = subprocess.run([BUILD_DEB, "--stage", STAGE, "--out", out, *options], capture_output=True, text=True,
                            check=False, umask=umask)
    assert result.returncode == 0, result.stderr
    return pathlib.Path(result.stdout.strip())


@pytest.fixture(scope="session")
def package(tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    """The package of this build."""
    return build_deb(tmp_path_factory.mktemp("package"))

"""The tour of ./quickstart, which starts a daemon of its own."""

from __future__ import annotations

import os
import pathlib
import subprocess

TOUR = pathlib.Path(__file__).resolve().parent.parent.parent / "tools/tour"


def test_tour() -> None:
    result = subprocess.run([TOUR], capture_output=True, text=True, check=False, stdin=subprocess.DEVNULL)
    assert result.returncode == 0, result.stderr
    told = [line for line in result.stdout.splitlines() if line.startswith(("keel-hello: base", "status: "))]
    assert told == [
        "keel-hello: base image 1.0.0", "status: NON_COMPLIANT, impact: REBOOT, staged: no",
        "keel-hello: base image 2.0.0", "status: COMPLIANT, impact: NONE, staged: yes", "keel-hello: base image 1.0.0"]


def test_tour_refuses_to_run_outside() -> None:
    environment = {name: value for name, value in os.environ.items() if name != "KEELD_SANDBOX"}
    result = subprocess.run([TOUR], capture_output=True, text=True, check=False, env=environment)
    assert result.returncode == 1
    assert "./quickstart" in result.stderr

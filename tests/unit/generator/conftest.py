"""Fixtures of the generator's tests."""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path
from typing import Callable

import pytest

ROOT = Path(__file__).resolve().parents[3]
GENERATOR = ROOT / "generator" / "keeld_generate.py"
sys.path.insert(0, str(ROOT / "generator"))


@pytest.fixture
def generate() -> Callable[..., subprocess.CompletedProcess[str]]:
    """Runs the generator's program."""
    def run(*arguments: object) -> subprocess.CompletedProcess[str]:
        return subprocess.run(["/usr/bin/python3", "-B", str(GENERATOR), *map(str, arguments)], check=False,
                              capture_output=True, text=True)
    return run


@pytest.fixture
def definition(tmp_path: Path) -> Callable[..., Path]:
    """Writes packages into a folder "interface", given as name=body; the package key and doc are put in front."""
    folder = tmp_path / "interface"
    folder.mkdir()

    def write(**packages: str) -> Path:
        for name, body in packages.items():
            dotted = name.replace("__", ".")
            (folder / f"{dotted}.yaml").write_text(f"package: {dotted}\ndoc: A package.\n{body}", encoding="utf-8")
        return folder
    return write

"""The host's image as it stands on disk."""

from __future__ import annotations

import pathlib
import re
import subprocess

SYSROOT = pathlib.Path("/var/lib/orbane/sysroot")


def deployments() -> list[pathlib.Path]:
    """Folders of the deployments, the one in use first; empty where there is no image yet."""
    if not (SYSROOT / "ostree").exists():
        return []
    status = subprocess.run(["/usr/bin/ostree", "admin", f"--sysroot={SYSROOT}", "status"], check=True,
                            capture_output=True, text=True).stdout
    return [SYSROOT / "ostree/deploy" / match[1] / "deploy" / match[2]
            for match in re.finditer(r"^[* ]*(\S+) ([0-9a-f]{64}\.\d+)", status, re.MULTILINE)]


def hello() -> list[str]:
    """What the program of the image in use says about itself; empty where there is no image."""
    found = deployments()
    if not found:
        return []
    output = subprocess.run([str(found[0] / "usr/bin/keel-hello")], check=True, capture_output=True, text=True).stdout
    return [line.removeprefix("keel-hello: ") for line in output.splitlines()]


def verify() -> None:
    """Every object of the image's repository is as its checksum says."""
    subprocess.run(["/usr/bin/ostree", "fsck", f"--repo={SYSROOT}/ostree/repo", "-q"], check=True, capture_output=True)

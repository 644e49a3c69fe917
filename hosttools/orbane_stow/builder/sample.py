"""Sample depots: two versions of a base image, components and a solution, of realistic size and always the same."""

from __future__ import annotations

import hashlib
import json
import random
import tempfile
from pathlib import Path
from typing import Any

from orbane_stow.builder.depot import LocalDepot
from orbane_stow.builder.errors import DepotError
from orbane_stow.builder.manifest import MANIFEST_NAME, PAKS_NAME, read_folder
from orbane_stow.parts import BASE, COMPONENT, SOLUTION

MAIN, EXTRAS = "main", "extras"  # the two depots
VENDOR = "Orbane"
_MEGABYTE = 1_000_000
_BLOCK = 4096

_HELLO = """#!/bin/sh
# Says which image it stands in, from the files beside it.
here=${0%/*}
read -r version < "$here/../share/keel/version"
echo "keel-hello: base image $version"
for entry in "$here"/../lib/keel/components/*; do
  [ -e "$entry" ] || continue
  read -r line < "$entry"
  echo "keel-hello: component $line"
done
"""

# version, release date, kernel version, libraries that changed since the version before
_BASES = (("1.0.0", "2026-01-15", "6.1.0-1-keel", 24), ("2.0.0", "2026-07-01", "6.6.0-2-keel", 10))

# depot, name, display name, version, date, impact, acceptance, size in MB, platforms
_COMPONENTS = (
    (MAIN, "net-driver", "Network Driver", "1.0.0", "2026-01-20", "REBOOT", "CERTIFIED", 3, ("host", "dpu")),
    (MAIN, "net-driver", "Network Driver", "1.1.0", "2026-06-20", "REBOOT", "CERTIFIED", 3, ("host", "dpu")),
    (MAIN, "storage-agent", "Storage Agent", "2.3.0", "2026-02-11", "MAINTENANCE_MODE", "ACCEPTED", 2, ("host",)),
    (EXTRAS, "monitor-agent", "Monitoring Agent", "1.4.0", "2026-02-01", "NONE", "PARTNER", 2, ("host",)),
    (EXTRAS, "monitor-agent", "Monitoring Agent", "1.5.0", "2026-05-01", "NONE", "PARTNER", 2, ("host",)),
    (EXTRAS, "backup-agent", "Backup Agent", "3.0.1", "2026-03-03", "NONE", "COMMUNITY", 2, ("host",)),
)

SPECS: dict[str, dict[str, Any]] = {
    "first": {"base_image": {"version": "1.0.0"}, "components": {"net-driver": "1.0.0", "monitor-agent": "1.4.0"}},
    "second": {"base_image": {"version": "2.0.0"},
               "components": {"net-driver": "1.1.0", "monitor-agent": "1.5.0", "storage-agent": "2.3.0"}},
    "patched": {"base_image": {"version": ""}, "components": {"net-driver": "1.0.0", "monitor-agent": "1.5.0"}},
}


def make_sample(folder: Path) -> dict[str, Path]:
    """Makes the depots "main" and "extras" below `folder` and software specs for them below "specs"; returns the
    depots by name. `folder` must not hold them yet. The same call gives the same commits everywhere."""
    depots = {name: LocalDepot(folder / name) for name in (MAIN, EXTRAS)}
    for depot in depots.values():
        depot.create()
    with tempfile.TemporaryDirectory(prefix="keel-sample-") as scratch:
        for base in _BASES:
            depots[MAIN].add(read_folder(BASE, _base_folder(Path(scratch), *base)))
        for depot_name, *component in _COMPONENTS:
            depots[str(depot_name)].add(read_folder(COMPONENT, _component_folder(Path(scratch), *component)))
        depots[EXTRAS].add(read_folder(SOLUTION, _solution_folder(Path(scratch))))
    try:
        (folder / "specs").mkdir(exist_ok=True)
        for name, spec in SPECS.items():
            (folder / "specs" / f"{name}.json").write_text(json.dumps(spec, indent=2) + "\n", encoding="utf-8")
    except OSError as error:
        raise DepotError(f"{error.filename}: {error.strerror}") from error
    return {name: depot.path for name, depot in depots.items()}


def data(seed: str, size: int) -> bytes:
    """`size` bytes that compress to about two thirds, always the same for a seed."""
    source = random.Random(hashlib.sha256(seed.encode()).digest())
    blocks = []
    for _ in range(0, size, _BLOCK):
        noise = source.randbytes(_BLOCK * 2 // 3)
        blocks.append(noise + noise[:16] * ((_BLOCK - len(noise)) // 16 + 1))
    return b"".join(block[:_BLOCK] for block in blocks)[:size]


def _write(path: Path, content: bytes, mode: int = 0o644) -> None:
    missing = [parent for parent in path.parents if not parent.exists()]
    path.parent.mkdir(parents=True, exist_ok=True)
    for parent in missing:
        parent.chmod(0o755)  # whatever the caller's umask is
    path.write_bytes(content)
    path.chmod(mode)


def _manifest(folder: Path, **members: Any) -> None:
    _write(folder / MANIFEST_NAME, json.dumps(members).encode())


def _base_folder(scratch: Path, version: str, date: str, kernel: str, changed: int) -> Path:
    folder = scratch / f"base-{version}"
    kernel_tree, system, tools = (folder / PAKS_NAME / name for name in ("ryn-kernel", "ryn-system", "ryn-tools"))
    modules = kernel_tree / "usr/lib/modules" / kernel
    _write(modules / "vmlinuz", data(f"kernel {kernel}", 5 * _MEGABYTE), 0o755)
    _write(modules / "initramfs.img", data(f"initramfs {kernel}", 3 * _MEGABYTE))
    for index in range(24):
        edition = version if index < changed else _BASES[0][0]
        _write(system / f"usr/lib/keel/libkeel{index:02}.so", data(f"library {index} {edition}", 600_000 + 1000 * index))
    release = (f'NAME="Orbane RYN"\nID=ryn\nVERSION="{version}"\nVERSION_ID={version}\n'
               f'PRETTY_NAME="Orbane RYN {version}"\n')
    _write(system / "usr/lib/os-release", release.encode())
    _write(system / "usr/etc/motd", f"Orbane RYN {version}\n".encode())
    _write(tools / "usr/bin/keel-hello", _HELLO.encode(), 0o755)
    _write(tools / "usr/share/keel/version", f"{version}\n".encode())
    paks = [{"name": name, "version": version, "acceptance": "CERTIFIED"}
            for name in ("ryn-kernel", "ryn-system", "ryn-tools")]
    _manifest(folder, name="ryn", version=version, display_name="Orbane RYN", display_version=version, vendor=VENDOR,
              summary="The host's base image.", release_date=date, impact="REBOOT", platforms=["host"], paks=paks)
    return folder


def _component_folder(scratch: Path, name: str, title: str, version: str, date: str, impact: str, acceptance: str,
                      megabytes: int, platforms: tuple[str, ...]) -> Path:
    folder = scratch / f"component-{name}-{version}"
    program, extra = (folder / PAKS_NAME / f"{name}-{suffix}" for suffix in ("core", "data"))
    _write(program / f"usr/lib/keel/components/{name}", f"{name} {version}\n".encode())
    _write(program / f"usr/lib/{name}/{name}.bin", data(f"{name} {version}", megabytes * _MEGABYTE * 3 // 4), 0o755)
    _write(extra / f"usr/share/{name}/tables", data(f"{name} tables", megabytes * _MEGABYTE // 4))
    paks = [{"name": pak.name, "version": version, "acceptance": acceptance} for pak in (program, extra)]
    _manifest(folder, name=name, version=version, display_name=title, display_version=f"{version} GA", vendor=VENDOR,
              summary=f"{title} for Orbane RYN.", release_date=date, impact=impact, platforms=list(platforms),
              paks=paks)
    return folder


def _solution_folder(scratch: Path) -> Path:
    folder = scratch / "solution"
    _write(folder / PAKS_NAME / "edge-stack-profile" / "usr/share/edge-stack/profile", b"edge-stack 1.0.0\n")
    _manifest(folder, name="edge-stack", version="1.0.0", display_name="Edge Stack", vendor=VENDOR, impact="NONE",
              summary="Backup and storage for hosts at the edge.", release_date="2026-04-01", platforms=["host"],
              components={"backup-agent": "3.0.1", "storage-agent": "2.3.0"})
    return folder

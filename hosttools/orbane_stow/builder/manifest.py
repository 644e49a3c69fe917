"""Folders that parts are built from.

    FOLDER/manifest.json        description of the part, see `read_folder`
    FOLDER/paks/<pak>/…         the files of each pak, as they shall stand below "/"
"""

from __future__ import annotations

import datetime
import json
import os
from dataclasses import dataclass, replace
from pathlib import Path
from typing import Any

from orbane_stow.builder.errors import DepotError
from orbane_stow.parts import BASE, Part, PartFormatError, is_name, part_from

MANIFEST_NAME = "manifest.json"
PAKS_NAME = "paks"
DEFAULT_ACCEPTANCE = "COMMUNITY"
_MEMBERS = {"name", "version", "display_name", "display_version", "vendor", "summary", "release_date", "impact",
            "platforms", "components", "paks"}
_PAK_MEMBERS = {"name", "version", "acceptance"}


@dataclass(frozen=True)
class PartFolder:
    """A part to be built: its description, the folder of each pak in order, and the commit's time in seconds."""

    part: Part
    trees: tuple[Path, ...]
    timestamp: int


def read_folder(kind: str, folder: Path) -> PartFolder:
    """Reads and checks a part's folder; raises `DepotError`.

    The manifest is a JSON object. `name` and `version` are required; `display_name`, `display_version`, `vendor`,
    `summary`, `release_date` (YYYY-MM-DD), `impact` (NONE, MAINTENANCE_MODE, REBOOT), `platforms` and `paks` (each
    `name`, `version`?, `acceptance`?) are not; `components` (name to version) is for solutions. Every folder below
    "paks" is a pak; one that the manifest doesn't list has the part's version.
    """
    manifest = _read_manifest(folder / MANIFEST_NAME)
    unknown = sorted(set(manifest) - _MEMBERS)
    if unknown:
        raise DepotError(f"{folder / MANIFEST_NAME}: unknown member '{unknown[0]}'")
    if kind != "solution" and manifest.get("components"):
        raise DepotError(f"{folder / MANIFEST_NAME}: only a solution has components")
    described = {**manifest, "kind": kind, "paks": []}
    described.setdefault("impact", "REBOOT" if kind == BASE else "NONE")
    try:
        part = part_from(described)
        trees = _pak_trees(folder / PAKS_NAME)
        paks = _describe_paks(manifest, part.version, trees)
        part = replace(part, paks=part_from({**described, "paks": paks}).paks)
    except PartFormatError as error:
        raise DepotError(f"{folder / MANIFEST_NAME}: {error}") from error
    if not trees and kind != "solution":
        raise DepotError(f"{folder / PAKS_NAME}: a {kind} has at least one pak")
    _check_trees(part, trees)
    return PartFolder(part, tuple(trees[name] for name in sorted(trees)), _timestamp(folder, part.release_date))


def _read_manifest(path: Path) -> dict[str, Any]:
    try:
        manifest = json.loads(path.read_text(encoding="utf-8"))
    except OSError as error:
        raise DepotError(f"{path}: {error.strerror}") from error
    except ValueError as error:
        raise DepotError(f"{path}: {error}") from error
    if not isinstance(manifest, dict):
        raise DepotError(f"{path}: an object is wanted")
    return manifest


def _pak_trees(folder: Path) -> dict[str, Path]:
    if not folder.is_dir():
        return {}
    trees = {entry.name: entry for entry in folder.iterdir()}
    for name, path in trees.items():
        if not is_name(name) or path.is_symlink() or not path.is_dir():
            raise DepotError(f"{path}: a pak is a folder with a plain name")
    return trees


def _describe_paks(manifest: dict[str, Any], version: str, trees: dict[str, Path]) -> list[dict[str, Any]]:
    listed: dict[str, dict[str, Any]] = {}
    for entry in manifest.get("paks") or []:
        if not isinstance(entry, dict) or set(entry) - _PAK_MEMBERS or not isinstance(entry.get("name"), str):
            raise PartFormatError("paks: each has a name, and a version and an acceptance if you like")
        if entry["name"] not in trees:
            raise PartFormatError(f"paks: there is no folder for '{entry['name']}'")
        listed[entry["name"]] = entry
    return [{"name": name, "version": listed.get(name, {}).get("version", version), "size": _size(trees[name]),
             "acceptance": listed.get(name, {}).get("acceptance", DEFAULT_ACCEPTANCE)} for name in sorted(trees)]


def _files(tree: Path) -> list[Path]:
    found = []
    for folder, names, files in os.walk(tree):
        links = [name for name in names if os.path.islink(os.path.join(folder, name))]
        found += [Path(folder, name) for name in files + links]
    return found


def _size(tree: Path) -> int:
    return sum(path.lstat().st_size for path in _files(tree) if not path.is_symlink())


def _check_trees(part: Part, trees: dict[str, Path]) -> None:
    owners: dict[Path, str] = {}
    for name, tree in sorted(trees.items()):
        if (tree / "etc").exists():
            raise DepotError(f"{tree / 'etc'}: configuration that comes with an image belongs below usr/etc")
        for path in _files(tree):
            if not path.is_symlink() and not path.is_file():
                raise DepotError(f"{path}: only files, folders and links can be part of an image")
            other = owners.setdefault(path.relative_to(tree), name)
            if other != name:
                raise DepotError(f"{path}: pak '{other}' has this file too")
    if part.kind != BASE:
        return
    kernels = [path for path in owners if len(path.parts) == 5 and path.match("usr/lib/modules/*/vmlinuz")]
    if len(kernels) != 1:
        raise DepotError(f"base {part.name}: exactly one kernel usr/lib/modules/<version>/vmlinuz is wanted, "
                         f"not {len(kernels)}")
    if Path("usr/lib/os-release") not in owners and Path("usr/etc/os-release") not in owners:
        raise DepotError(f"base {part.name}: usr/lib/os-release is missing")


def _timestamp(folder: Path, release_date: str) -> int:
    if not release_date:
        return 0
    try:
        day = datetime.date.fromisoformat(release_date)
    except ValueError as error:
        raise DepotError(f"{folder / MANIFEST_NAME}: release_date: {error}") from error
    return int(datetime.datetime(day.year, day.month, day.day, tzinfo=datetime.timezone.utc).timestamp())

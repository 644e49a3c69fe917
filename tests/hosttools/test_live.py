"""The quick patch of a running system, on folders."""

from __future__ import annotations

import os
from pathlib import Path

import pytest
from orbane_stow import apply, live, paths
from orbane_stow.image import ImageRoot
from orbane_stow.ostree import OSTree
from support import IMAGE_ROOT, Host, TinyDepot, deployments, spec

Tree = dict[str, str]  # path to contents; contents that begin with "->" are a link's target


def _make(root: Path, tree: Tree) -> Tree:
    """Makes the tree below `root`; returns what stands for its checksums."""
    for path, content in tree.items():
        file = root / path[1:]
        file.parent.mkdir(parents=True, exist_ok=True)
        if content.startswith("->"):
            file.symlink_to(content[2:])
        else:
            file.write_text(content)
    return dict(tree)


def _read(root: Path) -> Tree:
    return {f"/{path.relative_to(root)}": f"->{os.readlink(path)}" if path.is_symlink() else path.read_text()
            for path in root.rglob("*") if path.is_symlink() or path.is_file()}


@pytest.mark.parametrize(("old", "new"), [
    ({"/usr/a": "1"}, {"/usr/a": "2"}),
    ({"/usr/a": "1"}, {"/usr/a": "1", "/usr/b/c/d": "new"}),
    ({"/usr/a": "1", "/usr/b/c": "gone", "/usr/b/d/e": "gone"}, {"/usr/a": "1"}),
    ({"/usr/a": "1"}, {"/usr/a": "->b", "/usr/b": "x"}),
    ({"/usr/a": "->b", "/usr/b": "x"}, {"/usr/a": "plain", "/usr/b": "x"}),
    ({"/usr/a": "file"}, {"/usr/a/b": "now a folder"}),
    ({"/usr/a/b/c": "in a folder", "/usr/a/d": "1"}, {"/usr/a": "now a file"}),
    ({"/usr/a": "->elsewhere"}, {"/usr/a/b": "now a folder"}),
    ({"/usr/keep/a": "1", "/usr/keep/b": "2"}, {"/usr/keep/a": "1"}),
])
def test_the_tree_becomes_the_new_one(tmp_path: Path, old: Tree, new: Tree) -> None:
    live.patch_folder(_make(tmp_path / "running", old), _make(tmp_path / "new", new), tmp_path / "new", tmp_path / "running")
    assert _read(tmp_path / "running") == new
    empty = [path for path in (tmp_path / "running").rglob("*") if path.is_dir() and not any(path.iterdir())]
    assert empty == []


def test_only_what_the_image_brings_is_changed(tmp_path: Path) -> None:
    old = {"/usr/etc/conf": "1", "/boot/kernel": "1", "/usr/lib/a": "1"}
    new = {"/usr/etc/conf": "2", "/boot/kernel": "2", "/usr/lib/a": "2"}
    running = tmp_path / "running"
    _make(running, {**old, "/usr/lib/own": "mine"})
    live.patch_folder(old, _make(tmp_path / "new", new), tmp_path / "new", running)
    assert _read(running) == {**old, "/usr/lib/a": "2", "/usr/lib/own": "mine"}


def test_owner_and_mode_come_along(tmp_path: Path) -> None:
    new = _make(tmp_path / "new", {"/usr/bin/tool": "x"})
    os.chown(tmp_path / "new/usr/bin/tool", 12, 34)
    (tmp_path / "new/usr/bin/tool").chmod(0o4755)
    (tmp_path / "running/usr").mkdir(parents=True)
    live.patch_folder({}, new, tmp_path / "new", tmp_path / "running")
    status = (tmp_path / "running/usr/bin/tool").stat()
    assert (status.st_uid, status.st_gid, status.st_mode & 0o7777) == (12, 34, 0o4755)


def test_a_program_that_runs_keeps_its_file(tmp_path: Path) -> None:
    _make(tmp_path / "running", {"/usr/a": "1"})
    with open(tmp_path / "running/usr/a", encoding="ascii") as opened:
        live.patch_folder({"/usr/a": "1"}, _make(tmp_path / "new", {"/usr/a": "2"}), tmp_path / "new", tmp_path / "running")
        assert opened.read() == "1"


class _Booted:
    """The part of libostree's sysroot that knows what the host runs."""

    def __init__(self, commit: str, state: OSTree.DeploymentUnlockedState) -> None:
        self._commit, self._state = commit, state

    def get_booted_deployment(self) -> _Booted:
        return self

    def get_csum(self) -> str:
        return self._commit

    def get_unlocked(self) -> OSTree.DeploymentUnlockedState:
        return self._state


@pytest.mark.parametrize(("state", "marker", "running"), [
    ("NONE", None, "booted"), ("NONE", "stale", "booted"), ("DEVELOPMENT", "patched", "patched"),
    ("DEVELOPMENT", None, None), ("HOTFIX", None, None)])
def test_the_running_image(tmp_path: Path, monkeypatch: pytest.MonkeyPatch, state: str, marker: str | None,
                           running: str | None) -> None:
    monkeypatch.setattr(paths, "LIVE_IMAGE", tmp_path / "marker")
    if marker:
        (tmp_path / "marker").write_text(marker)
    image = ImageRoot(tmp_path)
    monkeypatch.setattr(image, "_sysroot", _Booted("booted", getattr(OSTree.DeploymentUnlockedState, state)))
    assert live.running_image(image) == running
    assert image.boots_host()


class _Told:
    """A task that only remembers what it is to tell."""

    def __init__(self) -> None:
        self.told: list[str] = []

    def notify(self, message: str, *_args: object) -> None:
        self.told.append(message.removeprefix("com.orbane.ryn.stow.apply."))


@pytest.mark.parametrize(("impact", "quick_patch", "live_now", "elsewhere", "booted"), [
    ("REBOOT", False, False, [], ["reboot"]),
    ("REBOOT", True, False, ["quickpatch.refused"], ["quickpatch.refused", "reboot"]),
    ("NONE", True, False, [], ["reboot"]),
    ("NONE", True, True, ["quickpatch"], ["quickpatch"]),
    ("MAINTENANCE_MODE", True, True, ["quickpatch", "maintenance"], ["quickpatch", "maintenance"])])
def test_only_a_host_that_boots_from_the_image_waits_for_a_restart(impact: str, quick_patch: bool, live_now: bool,
                                                                   elsewhere: list[str], booted: list[str]) -> None:
    for boots_host, told in ((False, elsewhere), (True, booted)):
        task = _Told()
        apply._tell_impact(task, impact, quick_patch, live_now, boots_host)  # type: ignore[arg-type]
        assert task.told == told


def test_without_a_booted_deployment_the_default_one_runs(host: Host, depot: TinyDepot) -> None:
    host.succeed("apply", spec("1"), [depot.url])
    image = ImageRoot(IMAGE_ROOT)
    image.read()
    assert live.running_image(image) == deployments()[0].name.split(".")[0]
    assert not image.boots_host()
    live.bring_live(image, "any", "any", None)  # there is no running system to change
    assert not paths.LIVE_IMAGE.exists()

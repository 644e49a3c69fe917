"""Quick patch of a running host: brings the files of a new image into the running system's /usr.

On a host that boots from its image, /usr is read-only and belongs to the booted deployment. libostree lays a writable
layer over it that is gone after the next boot, from which on the new deployment is in use anyway. A marker below /run
names the image that /usr holds; without it, a layer over /usr holds something unknown and isn't touched.
"""

from __future__ import annotations

import os
import shutil
from pathlib import Path

from orbane_stow import paths
from orbane_stow.image import ImageRoot
from orbane_stow.ostree import Gio, OSTree
from orbane_stow.tree import tree_files

_SYSTEM = "/usr/"
_CONFIGURATION = "/usr/etc/"  # reaches the host by the merge into /etc, at the next boot


def running_image(image: ImageRoot) -> str | None:
    """The commit whose files the running system uses.

    That of the default deployment where the host doesn't boot from the image root; None when it can't be told.
    """
    booted = image.sysroot.get_booted_deployment()
    if booted is None:
        deployment = image.deployment()
        return deployment.get_csum() if deployment else None
    if booted.get_unlocked() == OSTree.DeploymentUnlockedState.NONE:
        return booted.get_csum()
    try:
        return paths.LIVE_IMAGE.read_text(encoding="ascii")
    except (OSError, UnicodeDecodeError):
        return None


def bring_live(image: ImageRoot, running: str, wanted: str, cancellable: Gio.Cancellable | None) -> None:
    """Changes the running system's /usr from the image `running` to `wanted`, which is deployed.

    Does nothing where the host doesn't boot from the image root. Raises `ImageError` and `ImageSpaceError`; /usr may
    then hold files of both, and `running_image` is None until the next boot.
    """
    booted = image.sysroot.get_booted_deployment()
    tree = image.deployed_path()
    if booted is None or tree is None:
        return
    with image.errors():
        if booted.get_unlocked() == OSTree.DeploymentUnlockedState.NONE:
            image.sysroot.deployment_unlock(booted, OSTree.DeploymentUnlockedState.DEVELOPMENT, cancellable)
        paths.LIVE_IMAGE.unlink(missing_ok=True)
        old, new = dict(tree_files(image.repo, running)), dict(tree_files(image.repo, wanted))
        patch_folder(old, new, tree, Path("/"))
        paths.LIVE_IMAGE.parent.mkdir(parents=True, exist_ok=True)
        paths.LIVE_IMAGE.write_text(wanted, encoding="ascii")


def patch_folder(old: dict[str, str], new: dict[str, str], source: Path, target: Path) -> None:
    """Makes the files below `target`/usr those of `new`, where they were those of `old` (path to checksum).

    What changes is copied from `source`, beside its place, and renamed; so a program finds either version. Files come
    before the removal of others. Folders that become empty go.
    """
    for path in sorted(new):
        if _is_patched(path) and old.get(path) != new[path]:
            _copy(source / path[1:], target / path[1:])
    for path in sorted(old.keys() - new.keys(), reverse=True):
        if _is_patched(path):
            _remove(target, target / path[1:])


def _is_patched(path: str) -> bool:
    return path.startswith(_SYSTEM) and not path.startswith(_CONFIGURATION)


def _copy(source: Path, target: Path) -> None:
    _make_folders(source.parent, target.parent)
    beside = target.with_name(f".{target.name}.stow")
    beside.unlink(missing_ok=True)
    try:
        shutil.copy2(source, beside, follow_symlinks=False)
        status = source.lstat()
        os.chown(beside, status.st_uid, status.st_gid, follow_symlinks=False)
        if not source.is_symlink():
            beside.chmod(status.st_mode & 0o7777)  # a change of owner takes set-user-id away
        if target.is_dir() and not target.is_symlink():
            shutil.rmtree(target)  # the one change that is not a rename
        os.rename(beside, target)
    finally:
        beside.unlink(missing_ok=True)


def _make_folders(source: Path, target: Path) -> None:
    if target.is_dir():
        return
    _make_folders(source.parent, target.parent)
    if target.is_symlink() or target.exists():
        target.unlink()  # a file or link was here
    status = source.stat()
    target.mkdir()
    os.chown(target, status.st_uid, status.st_gid)
    target.chmod(status.st_mode & 0o7777)


def _remove(root: Path, path: Path) -> None:
    try:
        path.unlink(missing_ok=True)
    except (IsADirectoryError, NotADirectoryError):
        return  # the new image has a folder in its place, or above it a file
    for folder in path.parents:
        if folder == root or folder.is_symlink():
            return
        try:
            folder.rmdir()
        except OSError:
            return

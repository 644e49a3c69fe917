"""The image root: an OSTree sysroot with the host's image as its default deployment."""

from __future__ import annotations

import errno
import fcntl
import os
from contextlib import contextmanager
from pathlib import Path
from typing import Iterator

from orbane_stow.composition import METADATA_KEY, Composition, composition_from
from orbane_stow.errors import ContentionError, ImageError, ImageSpaceError, StowError, TerminatedError
from orbane_stow.ostree import Gio, GLib, OSTree
from orbane_stow.parts import PartFormatError
from orbane_stow.text import size_text

OS_NAME = "orbane"
REMOTE = "stow"  # set up without an address: every pull names its own
REF_PREFIX = "stow"  # local refs of the parts: stow/<kind>/<name>/<version>
HEADROOM_BYTES = 16 << 20  # free space that a pull leaves, for what a deployment takes beside its objects
_SPACE_WORDS = ("No space left", "min-free-space", "Disk quota")
_VAR_FOLDERS = (("tmp", 0o1777), ("lib", 0o755), ("log", 0o755))


class ImageRoot:
    """One image root. Use `read` for questions, and `locked` for all that changes it. Not thread-safe."""

    def __init__(self, root: Path) -> None:
        self.root = root
        if root != Path("/"):
            # libostree makes deployments immutable; in a folder that nobody boots from that only hinders its removal.
            os.environ["OSTREE_SYSROOT_DEBUG"] = "mutable-deployments"
        self._sysroot = OSTree.Sysroot.new(Gio.File.new_for_path(str(root)))

    @property
    def sysroot(self) -> OSTree.Sysroot:
        """libostree's object, loaded."""
        return self._sysroot

    @property
    def repo(self) -> OSTree.Repo:
        """The repository that holds the objects of all deployments."""
        return self._sysroot.get_repo(None)[1]

    def exists(self) -> bool:
        """Whether the image root has been set up."""
        return (self.root / "ostree" / "repo" / "config").exists()

    def read(self) -> Composition | None:
        """What the deployed image consists of; None when none is deployed, or one that this tool did not compose.

        Takes no lock and changes nothing. Raises `ImageError` for an image root that can't be read.
        """
        if not self.exists():
            return None
        with self.errors():
            self._sysroot.load(None)
            deployment = self.deployment()
            return self.composition_of(deployment.get_csum()) if deployment else None

    @property
    def os_name(self) -> str:
        """The name under which the deployments stand: that of the booted one, or this tool's own."""
        booted = self._sysroot.get_booted_deployment()
        return booted.get_osname() if booted else OS_NAME

    def boots_host(self) -> bool:
        """Whether the host runs an image of this root, so that a new one waits for a restart."""
        return self._sysroot.get_booted_deployment() is not None

    def deployment(self) -> OSTree.Deployment | None:
        """The deployment in use, or to be used from the next boot on."""
        deployments = self.deployments()
        return deployments[0] if deployments else None

    def deployments(self) -> list[OSTree.Deployment]:
        """All deployments of the host's image, the default one first."""
        return [d for d in self._sysroot.get_deployments() if d.get_osname() == self.os_name]

    def composition_of(self, commit: str) -> Composition | None:
        """What the image of a commit consists of; None for one that this tool did not compose."""
        variant = self.repo.load_variant(OSTree.ObjectType.COMMIT, commit)[1]
        text = variant.get_child_value(0).unpack().get(METADATA_KEY)
        if not isinstance(text, str):
            return None
        try:
            return composition_from(text)
        except PartFormatError as error:
            raise ImageError(self.root, error) from error

    def deployed_path(self) -> Path | None:
        """The folder of the deployed tree."""
        deployment = self.deployment()
        if deployment is None:
            return None
        return Path(self._sysroot.get_deployment_directory(deployment).get_path())

    @contextmanager
    def locked(self) -> Iterator[None]:
        """Holds the image root against other processes; makes and loads it.

        Raises `ContentionError` at once when another process holds it. The lock is the kernel's, on the folder itself,
        so that it ends with the process, however that ends.
        """
        with self.errors():
            self.root.mkdir(mode=0o755, parents=True, exist_ok=True)
            descriptor = os.open(self.root, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
        try:
            with self.errors():
                fcntl.flock(descriptor, fcntl.LOCK_EX | fcntl.LOCK_NB)
                self._initialise()
            yield
        finally:
            os.close(descriptor)

    @contextmanager
    def errors(self) -> Iterator[None]:
        """Turns failures of libostree and of the file system into this tool's."""
        try:
            yield
        except GLib.Error as error:
            raise self.error_from(error) from error
        except BlockingIOError as error:
            raise ContentionError() from error
        except OSError as error:
            if error.errno in (errno.ENOSPC, errno.EDQUOT):
                raise self.space_error() from error
            raise ImageError(self.root, error.strerror or error) from error

    def error_from(self, error: GLib.Error) -> StowError:
        """What a failure inside the image root means to the operator."""
        if error.matches(Gio.io_error_quark(), Gio.IOErrorEnum.CANCELLED):
            return TerminatedError()
        if is_space_error(error):
            return self.space_error()
        return ImageError(self.root, error.message)

    def space_error(self, needed: int | None = None) -> ImageSpaceError:
        """The image root is full; `needed` in bytes where it is known."""
        return ImageSpaceError(self.root, "more" if needed is None else size_text(needed), size_text(self.free()))

    def free(self) -> int:
        """Bytes that an ordinary write may still use on the image root's file system."""
        status = os.statvfs(self.root)
        return status.f_bavail * status.f_frsize

    def _initialise(self) -> None:
        """Makes what is missing of a sysroot; each step can be cut at any point and done again."""
        (self.root / "boot").mkdir(exist_ok=True)
        self._sysroot.ensure_initialized(None)
        self._sysroot.load(None)
        variable = self.root / "ostree" / "deploy" / self.os_name / "var"
        for name, mode in _VAR_FOLDERS:
            (variable / name).mkdir(parents=True, exist_ok=True)
            (variable / name).chmod(mode)
        for name, target in (("run", "../run"), ("lock", "../run/lock")):
            if not (variable / name).is_symlink():
                (variable / name).symlink_to(target)
        repo = self.repo
        config = repo.copy_config()
        wanted = ((f'remote "{REMOTE}"', "url", "file:///"), (f'remote "{REMOTE}"', "gpg-verify", "false"),
                  (f'remote "{REMOTE}"', "gpg-verify-summary", "false"), ("core", "min-free-space-size", f"{HEADROOM_BYTES >> 20}MB"))
        if any(_config_value(config, *place) != value for *place, value in wanted):
            for group, key, value in wanted:
                config.set_value(group, key, value)
            repo.write_config(config)
            repo.reload_config(None)


def is_space_error(error: GLib.Error) -> bool:
    """Whether a failure of libostree comes from a full file system or a spent quota."""
    return (error.matches(Gio.io_error_quark(), Gio.IOErrorEnum.NO_SPACE)
            or any(word in error.message for word in _SPACE_WORDS))


def _config_value(config: GLib.KeyFile, group: str, key: str) -> str | None:
    try:
        return config.get_value(group, key)
    except GLib.Error:
        return None

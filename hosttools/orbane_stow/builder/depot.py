"""A depot on this host's disk, for those who make it."""

from __future__ import annotations

import fcntl
import os
import xml.etree.ElementTree as xml
from contextlib import contextmanager
from pathlib import Path
from typing import Iterator

from orbane_stow.builder import sizes
from orbane_stow.builder.errors import DepotError
from orbane_stow.builder.manifest import PartFolder
from orbane_stow.depot import Offer, offer_from_commit
from orbane_stow.ostree import Gio, GLib, OSTree
from orbane_stow.part_xml import add_part, document
from orbane_stow.parts import METADATA_KEY, PartFormatError, parse_ref

INDEX_NAME = "index.xml"


class LocalDepot:
    """An OSTree archive repository with a summary and an index. All methods raise `DepotError`."""

    def __init__(self, path: Path) -> None:
        self.path = path
        self._repo = OSTree.Repo.new(Gio.File.new_for_path(str(path)))

    def create(self) -> None:
        """Makes an empty depot in a folder that is empty or doesn't exist yet."""
        if self.path.exists() and (not self.path.is_dir() or any(self.path.iterdir())):
            raise DepotError(f"{self.path}: there is something already")
        with self._errors():
            self.path.mkdir(parents=True, exist_ok=True)
            self._repo.create(OSTree.RepoMode.ARCHIVE, None)
        self._publish()

    def open(self) -> None:
        """Opens a depot that exists."""
        with self._errors():
            self._repo.open(None)
        if self._repo.get_mode() != OSTree.RepoMode.ARCHIVE:
            raise DepotError(f"{self.path}: this is not a depot")

    def add(self, folder: PartFolder, replace: bool = False) -> str:
        """Adds a part and returns its commit. A version that is there already is only overwritten with `replace`; the
        same contents again are no error."""
        with self._locked():
            known = self._refs().get(folder.part.ref)
            with self._errors():
                commit = self._commit(folder, known, replace)
            self._publish()
        return commit

    def remove(self, ref: str) -> None:
        """Removes a part and what only it needs."""
        with self._locked():
            if ref not in self._refs():
                raise DepotError(f"{self.path}: there is no {ref}")
            with self._errors():
                self._repo.set_ref_immediate(None, ref, None, None)
                self._repo.prune(OSTree.RepoPruneFlags.REFS_ONLY, 0, None)
            self._publish()

    def offers(self) -> list[Offer]:
        """All parts, by ref."""
        offers = []
        for ref, commit in sorted(self._refs().items()):
            with self._errors():
                variant = self._repo.load_variant(OSTree.ObjectType.COMMIT, commit)[1]
            try:
                offers.append(offer_from_commit(variant, commit, None))
            except PartFormatError as error:
                raise DepotError(f"{ref}: {error}") from error
        return offers

    def verify(self) -> list[str]:
        """Checks every object of every part; gives a line for each thing that is wrong."""
        found = []
        for ref, commit in sorted(self._refs().items()):
            try:
                found += self._verify_part(ref, commit)
            except GLib.Error as error:
                found.append(f"{ref}: {error.message}")
        return found

    def _verify_part(self, ref: str, commit: str) -> list[str]:
        variant = self._repo.load_variant(OSTree.ObjectType.COMMIT, commit)[1]
        try:
            offer = offer_from_commit(variant, commit, None)
        except PartFormatError as error:
            return [f"{ref}: {error}"]
        found = [] if offer.part.ref == ref else [f"{ref}: it holds {offer.part.ref}"]
        listed = {(entry.checksum, int(entry.kind)) for entry in offer.objects}
        reachable = self._repo.traverse_commit(commit, 0, None)[1]
        for key in reachable:
            checksum, kind = key.unpack()
            try:
                self._repo.fsck_object(OSTree.ObjectType(kind), checksum, None)
            except GLib.Error as error:
                found.append(f"{ref}: {error.message}")
            if kind != int(OSTree.ObjectType.COMMIT) and (checksum, kind) not in listed:
                found.append(f"{ref}: its list of sizes lacks {checksum}")
        return found

    def _refs(self) -> dict[str, str]:
        with self._errors():
            return {ref: commit for ref, commit in self._repo.list_refs(None, None)[1].items() if parse_ref(ref)}

    def _commit(self, folder: PartFolder, known: str | None, replace: bool) -> str:
        repo = self._repo
        repo.prepare_transaction(None)
        try:
            modifier = OSTree.RepoCommitModifier.new(OSTree.RepoCommitModifierFlags.SKIP_XATTRS, _as_root)
            tree = OSTree.MutableTree.new()
            for source in folder.trees:
                repo.write_directory_to_mtree(Gio.File.new_for_path(str(source)), tree, modifier, None)
            if not folder.trees:
                tree.set_metadata_checksum(_write_root_metadata(repo))
            root = repo.write_mtree(tree, None)[1]
            metadata = GLib.Variant("a{sv}", {METADATA_KEY: GLib.Variant("s", folder.part.to_text()),
                                              sizes.METADATA_KEY: sizes.sizes_variant(repo, root)})
            subject = f"{folder.part.display_name} {folder.part.display_version}"
            commit = repo.write_commit_with_time(None, subject, "", metadata, root, folder.timestamp, None)[1]
            if known is not None and known != commit and not replace:
                raise DepotError(f"{folder.part.ref} is there already with other contents; --replace overwrites it")
            repo.transaction_set_ref(None, folder.part.ref, commit)
            repo.commit_transaction(None)
            return commit
        except BaseException:
            repo.abort_transaction(None)
            raise

    def _publish(self) -> None:
        """Brings summary and index up to date."""
        with self._errors():
            self._repo.regenerate_summary(None, None)
            self._write_index()

    def _write_index(self) -> None:
        root = xml.Element("depot")
        for offer in self.offers():
            add_part(root, offer.part, commit=offer.part.checksum)
        beside = self.path / f".{INDEX_NAME}.new"
        with open(beside, "wb") as file:
            file.write(document(root))
            file.flush()
            os.fsync(file.fileno())
        os.rename(beside, self.path / INDEX_NAME)

    @contextmanager
    def _locked(self) -> Iterator[None]:
        with self._errors():
            descriptor = os.open(self.path, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
        try:
            fcntl.flock(descriptor, fcntl.LOCK_EX)
            yield
        finally:
            os.close(descriptor)

    @contextmanager
    def _errors(self) -> Iterator[None]:
        try:
            yield
        except GLib.Error as error:
            raise DepotError(f"{self.path}: {error.message}") from error
        except OSError as error:
            raise DepotError(f"{error.filename or self.path}: {error.strerror}") from error


def _as_root(_repo: OSTree.Repo, _path: str, info: Gio.FileInfo) -> OSTree.RepoCommitFilterResult:
    """Everything in an image belongs to root, whoever built it; modes stay."""
    info.set_attribute_uint32("unix::uid", 0)
    info.set_attribute_uint32("unix::gid", 0)
    return OSTree.RepoCommitFilterResult.ALLOW


def _write_root_metadata(repo: OSTree.Repo) -> str:
    info = Gio.FileInfo.new()
    info.set_file_type(Gio.FileType.DIRECTORY)
    info.set_attribute_uint32("unix::uid", 0)
    info.set_attribute_uint32("unix::gid", 0)
    info.set_attribute_uint32("unix::mode", 0o040755)
    metadata = OSTree.create_directory_metadata(info, None)
    return OSTree.checksum_from_bytes(repo.write_metadata(OSTree.ObjectType.DIR_META, None, metadata, None)[1])

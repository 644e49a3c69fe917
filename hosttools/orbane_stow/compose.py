"""Makes one commit of base image, components and solutions."""

from __future__ import annotations

from orbane_stow.composition import METADATA_KEY, Resolved
from orbane_stow.errors import FileConflictError
from orbane_stow.image import ImageRoot
from orbane_stow.ostree import Gio, GLib, OSTree
from orbane_stow.parts import Part
from orbane_stow.tree import tree_files


def compose(image: ImageRoot, resolved: Resolved, cancellable: Gio.Cancellable) -> str:
    """Writes the commit whose tree is that of the base with components and solutions laid over it, and returns its
    checksum. The parts must stand in the image root. The same parts give the same commit.

    Components and solutions may replace files of the base, but not one another's: raises `FileConflictError`.
    """
    with image.errors():
        _check_conflicts(image.repo, resolved)
        return _write(image.repo, resolved, cancellable)


def _write(repo: OSTree.Repo, resolved: Resolved, cancellable: Gio.Cancellable) -> str:
    composition = resolved.composition
    repo.prepare_transaction(cancellable)
    try:
        tree = OSTree.MutableTree.new_from_commit(repo, composition.base.checksum)
        for part in composition.parts()[1:]:
            root = repo.read_commit(part.checksum, cancellable)[1]
            repo.write_directory_to_mtree(root, tree, None, cancellable)
        _ensure_configuration(tree)
        root = repo.write_mtree(tree, cancellable)[1]
        metadata = {
            METADATA_KEY: GLib.Variant("s", composition.to_text()),
            "version": GLib.Variant("s", composition.base.version),
        }
        newest = max(_commit_time(repo, part) for part in composition.parts())
        subject = f"{composition.base.display_name} {composition.base.display_version}"
        commit = repo.write_commit_with_time(None, subject, "", GLib.Variant("a{sv}", metadata), root, newest,
                                             cancellable)[1]
        repo.commit_transaction(cancellable)
        return commit
    except BaseException:
        repo.abort_transaction(None)
        raise


def _ensure_configuration(tree: OSTree.MutableTree) -> None:
    """Makes usr/etc where no part has it: a deployment merges it with the host's changes, even when it is empty."""
    if "etc" in tree.get_subdirs():
        return  # another way to bring it, which libostree takes too
    system = tree.ensure_dir("usr")[1]
    configuration = system.ensure_dir("etc")[1]
    for folder, parent in ((system, tree), (configuration, system)):
        if not folder.get_metadata_checksum():
            folder.set_metadata_checksum(parent.get_metadata_checksum())


def _commit_time(repo: OSTree.Repo, part: Part) -> int:
    return OSTree.commit_get_timestamp(repo.load_variant(OSTree.ObjectType.COMMIT, part.checksum)[1])


def _check_conflicts(repo: OSTree.Repo, resolved: Resolved) -> None:
    owners: dict[str, tuple[Part, str]] = {}
    for part in resolved.composition.parts()[1:]:
        for path, identity in tree_files(repo, part.checksum):
            owner, known = owners.setdefault(path, (part, identity))
            if known != identity:
                raise FileConflictError(owner.label, part.label, path)
    # A file here and a folder there meet in a path that is the beginning of another.
    for path in owners:
        parent = path.rpartition("/")[0]
        while parent:
            if parent in owners:
                raise FileConflictError(owners[parent][0].label, owners[path][0].label, parent)
            parent = parent.rpartition("/")[0]

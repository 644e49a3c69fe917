"""Walks over the trees of commits, without recursion."""

from __future__ import annotations

from typing import Iterator

from orbane_stow.ostree import GLib, OSTree


def tree_files(repo: OSTree.Repo, commit: str) -> Iterator[tuple[str, str]]:
    """Path, with a slash at its beginning, and content checksum of every file and link of a commit."""
    for path, checksum, kind in _walk(repo, _root_tree(repo, commit), None):
        if kind == OSTree.ObjectType.FILE:
            yield path, checksum


def tree_objects(repo: OSTree.Repo, root_tree: str, root_metadata: str) -> set[tuple[str, OSTree.ObjectType]]:
    """Checksum and kind of every object that a tree consists of."""
    return {(checksum, kind) for _, checksum, kind in _walk(repo, root_tree, root_metadata)}


def _root_tree(repo: OSTree.Repo, commit: str) -> str:
    return _hex(repo.load_variant(OSTree.ObjectType.COMMIT, commit)[1].get_child_value(6))


def _walk(repo: OSTree.Repo, tree: str, metadata: str | None) -> Iterator[tuple[str, str, OSTree.ObjectType]]:
    if metadata is not None:
        yield "/", metadata, OSTree.ObjectType.DIR_META
    pending = [("", tree)]
    while pending:
        path, checksum = pending.pop()
        yield path, checksum, OSTree.ObjectType.DIR_TREE
        content = repo.load_variant(OSTree.ObjectType.DIR_TREE, checksum)[1]
        files, folders = content.get_child_value(0), content.get_child_value(1)
        for index in range(files.n_children()):
            entry = files.get_child_value(index)
            yield f"{path}/{entry.get_child_value(0).get_string()}", _hex(entry.get_child_value(1)), \
                OSTree.ObjectType.FILE
        for index in range(folders.n_children()):
            entry = folders.get_child_value(index)
            name = f"{path}/{entry.get_child_value(0).get_string()}"
            yield name, _hex(entry.get_child_value(2)), OSTree.ObjectType.DIR_META
            pending.append((name, _hex(entry.get_child_value(1))))


def _hex(checksum: GLib.Variant) -> str:
    return bytes(checksum.unpack()).hex()

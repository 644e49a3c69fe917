"""The list of object sizes that goes into a part's commit, in libostree's own format.

libostree can make it itself, but only of a tree that is written in one piece, and a part is made of several paks.
"""

from __future__ import annotations

from orbane_stow.ostree import GLib, OSTree
from orbane_stow.tree import tree_objects

METADATA_KEY = "ostree.sizes"


def sizes_variant(repo: OSTree.Repo, root: OSTree.RepoFile) -> GLib.Variant:
    """An "aay", sorted: per object its 32 bytes of checksum, archived and unpacked size as varints of 7 bits a byte
    (lowest first, high bit set on all but the last byte), and one byte of object type."""
    entries = []
    for checksum, kind in tree_objects(repo, root.tree_get_contents_checksum(), root.tree_get_metadata_checksum()):
        archived = repo.query_object_storage_size(kind, checksum, None)[1]
        unpacked = archived
        if kind == OSTree.ObjectType.FILE:
            unpacked = repo.load_file(checksum, None)[2].get_size()
        entries.append(bytes.fromhex(checksum) + _varint(archived) + _varint(unpacked) + bytes([int(kind)]))
    return GLib.Variant("aay", sorted(entries))


def _varint(value: int) -> bytes:
    encoded = bytearray()
    while value > 0x7F:
        encoded.append(value & 0x7F | 0x80)
        value >>= 7
    encoded.append(value)
    return bytes(encoded)

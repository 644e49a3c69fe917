"""Depots as the image manager reads them: what they offer, and the description of each part."""

from __future__ import annotations

import hashlib
import json
from dataclasses import dataclass
from typing import Iterable, Sequence

from orbane_stow.errors import (BaseAmbiguousError, BaseMissingError, ComponentMissingError, DepotDamagedError,
                                DepotsDisagreeError, SolutionMissingError, StowError)
from orbane_stow.fetch import DepotUrl
from orbane_stow.ostree import GLib, OSTree
from orbane_stow.parts import (BASE, COMPONENT, METADATA_KEY, SOLUTION, Part, PartFormatError, parse_ref, part_from,
                               ref_name, version_key)

MAX_SUMMARY_BYTES = 64 * 1024 * 1024
MAX_COMMIT_BYTES = OSTree.MAX_METADATA_SIZE


@dataclass(frozen=True)
class ObjectSize:
    """An object that a part consists of; sizes in bytes."""

    checksum: str
    kind: OSTree.ObjectType
    archived: int  # to transfer
    unpacked: int  # on the host's disk


@dataclass(frozen=True)
class Offer:
    """A part and where to get it. `depot` is None for a part that the host itself still holds."""

    part: Part
    depot: DepotUrl | None
    objects: tuple[ObjectSize, ...]
    timestamp: int  # seconds since 1970


def offer_from_commit(content: GLib.Variant, checksum: str, depot: DepotUrl | None) -> Offer:
    """The offer that a commit object describes; raises `PartFormatError`."""
    metadata = content.get_child_value(0).unpack()
    text = metadata.get(METADATA_KEY)
    if not isinstance(text, str):
        raise PartFormatError("it is not a base image, component or solution")
    try:
        part = part_from(json.loads(text))
    except (json.JSONDecodeError, RecursionError) as error:
        raise PartFormatError(str(error)) from error
    try:
        entries = OSTree.commit_get_object_sizes(content)[1]
    except GLib.Error as error:
        raise PartFormatError(f"it has no list of sizes ({error.message})") from error
    objects = tuple(ObjectSize(e.checksum, e.objtype, e.archived, e.unpacked) for e in entries)
    return Offer(part.at(checksum), depot, objects, OSTree.commit_get_timestamp(content))


class Depot:
    """One depot: its summary is read when it is made, descriptions when they are asked for."""

    def __init__(self, address: str) -> None:
        """Raises `DepotUrlError`, `DepotUnreachableError` or `DepotDamagedError`."""
        self.url = DepotUrl(address)
        content = self.url.read("summary", MAX_SUMMARY_BYTES)
        if content is None:
            raise DepotDamagedError(self.url.text, "it has no summary file")
        self._refs = self._parse_summary(content)

    def __contains__(self, ref: str) -> bool:
        return ref in self._refs

    def checksum(self, ref: str) -> str:
        """The commit of a ref that the depot has."""
        return self._refs[ref]

    def refs(self) -> Iterable[str]:
        """All refs of parts."""
        return self._refs.keys()

    def offer(self, ref: str) -> Offer:
        """What the depot holds for a ref that it has; raises `DepotDamagedError` or `DepotUnreachableError`."""
        checksum = self._refs[ref]
        content = self.url.read(f"objects/{checksum[:2]}/{checksum[2:]}.commit", MAX_COMMIT_BYTES)
        if content is None:
            raise DepotDamagedError(self.url.text, f"{ref} has no commit")
        if hashlib.sha256(content).hexdigest() != checksum:
            raise DepotDamagedError(self.url.text, f"the commit of {ref} doesn't have its checksum")
        variant = GLib.Variant.new_from_bytes(GLib.VariantType(OSTree.COMMIT_GVARIANT_STRING), GLib.Bytes(content),
                                              False)
        try:
            offer = offer_from_commit(variant, checksum, self.url)
        except PartFormatError as error:
            raise DepotDamagedError(self.url.text, f"{ref}: {error}") from error
        if offer.part.ref != ref:
            raise DepotDamagedError(self.url.text, f"{ref} holds {offer.part.ref}")
        return offer

    def _parse_summary(self, content: bytes) -> dict[str, str]:
        variant = GLib.Variant.new_from_bytes(GLib.VariantType(OSTree.SUMMARY_GVARIANT_STRING), GLib.Bytes(content),
                                              False)
        if not variant.is_normal_form():
            raise DepotDamagedError(self.url.text, "its summary can't be read")
        refs = {}
        for ref, (_, checksum, _) in variant.get_child_value(0).unpack():
            if len(checksum) != OSTree.SHA256_DIGEST_LEN:
                raise DepotDamagedError(self.url.text, f"its summary has no checksum for {ref}")
            if parse_ref(ref):
                refs[ref] = bytes(checksum).hex()
        return refs


class DepotSet:
    """The depots of one task, in the caller's order; where several hold a part, the first one gives it."""

    def __init__(self, addresses: Sequence[str], check: object = None) -> None:
        """Reads all summaries; any depot that can't be used is an error. `check()` is called between depots."""
        self._depots: list[Depot] = []
        for address in dict.fromkeys(addresses):
            if callable(check):
                check()
            self._depots.append(Depot(address))

    def base(self, version: str, preferred_name: str | None) -> Offer:
        """The base image of a version; `preferred_name` decides where several names have it."""
        names = sorted({name for kind, name, offered in self._offered() if kind == BASE and offered == version})
        if not names:
            raise BaseMissingError(version)
        if preferred_name in names:
            return self._offer(BASE, preferred_name, version, BaseMissingError(version))
        if len(names) > 1:
            raise BaseAmbiguousError(version, ", ".join(names))
        return self._offer(BASE, names[0], version, BaseMissingError(version))

    def named_base(self, name: str, version: str) -> Offer:
        """The base image of a name; an empty version means the newest."""
        version = version or self._newest(BASE, name)
        return self._offer(BASE, name, version, BaseMissingError(f"{name} {version}".rstrip()))

    def offers(self, kind: str) -> list[Offer]:
        """All parts of a kind, by name and version."""
        found = {(name, version) for offered, name, version in self._offered() if offered == kind}
        return [self._offer(kind, name, version, BaseMissingError(version))
                for name, version in sorted(found, key=lambda part: (part[0], version_key(part[1]), part[1]))]

    def component(self, name: str, version: str) -> Offer:
        """A component; an empty version means the newest."""
        version = version or self._newest(COMPONENT, name)
        return self._offer(COMPONENT, name, version, ComponentMissingError(name, version))

    def solution(self, name: str, version: str) -> Offer:
        """A solution; an empty version means the newest."""
        version = version or self._newest(SOLUTION, name)
        return self._offer(SOLUTION, name, version, SolutionMissingError(name, version))

    def _offered(self) -> Iterable[tuple[str, str, str]]:
        for depot in self._depots:
            for ref in depot.refs():
                parsed = parse_ref(ref)
                if parsed:
                    yield parsed

    def _newest(self, wanted_kind: str, wanted_name: str) -> str:
        versions = [version for kind, name, version in self._offered() if (kind, name) == (wanted_kind, wanted_name)]
        return max(versions, key=version_key, default="")

    def _offer(self, kind: str, name: str, version: str, missing: StowError) -> Offer:
        ref = ref_name(kind, name, version)
        holders = [depot for depot in self._depots if ref in depot]
        if not holders:
            raise missing
        for other in holders[1:]:
            if other.checksum(ref) != holders[0].checksum(ref):
                raise DepotsDisagreeError(f"{kind} {name} {version}", holders[0].url.text, other.url.text)
        return holders[0].offer(ref)

"""What an image consists of: base image, components and solutions, wanted or deployed."""

from __future__ import annotations

import json
from dataclasses import dataclass, field
from typing import Protocol

from orbane_stow.errors import (BaseMissingError, BaseUnsetError, ComponentMissingError, ComponentVersionConflictError,
                                SolutionMissingError, StowError)
from orbane_stow.depot import DepotSet, Offer
from orbane_stow.parts import IMPACTS, Part, PartFormatError, part_from
from orbane_stow.spec import SoftwareSpec

METADATA_KEY = "orbane.composition"


@dataclass(frozen=True)
class Composition:
    """The parts of one image. `components` includes those that solutions bring."""

    base: Part
    components: dict[str, Part] = field(default_factory=dict)
    solutions: dict[str, Part] = field(default_factory=dict)

    def parts(self) -> list[Part]:
        """All parts in the order in which they are laid over each other: base, components by name, solutions."""
        return [self.base, *(self.components[name] for name in sorted(self.components)),
                *(self.solutions[name] for name in sorted(self.solutions))]

    def to_text(self) -> str:
        """JSON text, the same for equal compositions."""
        return json.dumps({"parts": [part.describe() for part in self.parts()]}, sort_keys=True,
                          separators=(",", ":"), ensure_ascii=False)

    def identity(self) -> dict[str, str]:
        """Ref to commit of each part."""
        return {part.ref: part.checksum for part in self.parts()}


def composition_from(text: str) -> Composition:
    """Reads what `to_text` wrote; raises `PartFormatError`."""
    try:
        parts = [part_from(described) for described in json.loads(text)["parts"]]
    except (ValueError, KeyError, TypeError) as error:
        raise PartFormatError(str(error)) from error
    bases = [part for part in parts if part.kind == "base"]
    if len(bases) != 1:
        raise PartFormatError("it has not exactly one base image")
    return Composition(bases[0], {part.name: part for part in parts if part.kind == "component"},
                       {part.name: part for part in parts if part.kind == "solution"})


class Source(Protocol):
    """Where `resolve` finds parts; each method raises the matching missing error."""

    def base(self, version: str) -> Offer: ...

    def named_base(self, name: str, version: str) -> Offer: ...

    def component(self, name: str, version: str) -> Offer: ...

    def solution(self, name: str, version: str) -> Offer: ...


@dataclass(frozen=True)
class Resolved:
    """A wanted composition and where its parts come from."""

    composition: Composition
    offers: tuple[Offer, ...]  # in the order of `composition.parts()`


def resolve(spec: SoftwareSpec, source: Source) -> Resolved:
    """Finds every part that the spec wants. Raises what `source` raises, and `ComponentVersionConflictError` when spec
    and solutions want different versions of one component."""
    base = (source.named_base(spec.base_name, spec.base_version) if spec.base_name
            else source.base(spec.base_version))
    wanted = dict(spec.components)
    solutions = {}
    for name, choice in sorted(spec.solutions.items()):
        solutions[name] = source.solution(name, choice.version)
        for component, version in sorted({**solutions[name].part.components, **choice.components}.items()):
            chosen = wanted.get(component)
            if chosen and version and chosen != version:
                raise ComponentVersionConflictError(component, chosen, version)
            wanted[component] = chosen or version
    components = {name: source.component(name, version) for name, version in sorted(wanted.items())}
    composition = Composition(base.part, {name: offer.part for name, offer in components.items()},
                              {name: offer.part for name, offer in solutions.items()})
    return Resolved(composition, (base, *components.values(), *solutions.values()))


class DeployedSource:
    """Finds parts in the deployed image alone; what has no version there is not found."""

    def __init__(self, deployed: Composition | None) -> None:
        self._deployed = deployed

    def base(self, version: str) -> Offer:
        if self._deployed is None:
            raise BaseMissingError(version) if version else BaseUnsetError()
        if version not in ("", self._deployed.base.version):
            raise BaseMissingError(version)
        return _held(self._deployed.base)

    def named_base(self, name: str, version: str) -> Offer:
        if self._deployed is None or (name, version) != (self._deployed.base.name, self._deployed.base.version):
            raise BaseMissingError(f"{name} {version}".rstrip())
        return _held(self._deployed.base)

    def component(self, name: str, version: str) -> Offer:
        return self._find("components", name, version, ComponentMissingError(name, version))

    def solution(self, name: str, version: str) -> Offer:
        return self._find("solutions", name, version, SolutionMissingError(name, version))

    def _find(self, collection: str, name: str, version: str, missing: StowError) -> Offer:
        part = getattr(self._deployed, collection).get(name) if self._deployed else None
        if part is None or part.version != version:
            raise missing
        return _held(part)


class HostSource:
    """Finds parts in the depots, and those of the deployed image on the host where no depot has them."""

    def __init__(self, depots: DepotSet, deployed: Composition | None) -> None:
        self._depots = depots
        self._deployed = deployed
        self._held = DeployedSource(deployed)

    def base(self, version: str) -> Offer:
        if self._deployed is None:
            return self._depots.base(version, None) if version else self._held.base(version)
        try:
            offer = self._depots.base(version or self._deployed.base.version, self._deployed.base.name)
        except BaseMissingError:
            return self._held.base(version)
        if version or offer.part.checksum == self._deployed.base.checksum:
            return offer  # also for a base that stays: the depot can mend what is damaged on the host
        return self._held.base(version)

    def named_base(self, name: str, version: str) -> Offer:
        try:
            return self._depots.named_base(name, version)
        except BaseMissingError:
            return self._held.named_base(name, version)

    def component(self, name: str, version: str) -> Offer:
        try:
            return self._depots.component(name, version)
        except ComponentMissingError:
            return self._held.component(name, version)

    def solution(self, name: str, version: str) -> Offer:
        try:
            return self._depots.solution(name, version)
        except SolutionMissingError:
            return self._held.solution(name, version)


def _held(part: Part) -> Offer:
    return Offer(part, None, (), 0)


def change_impact(old: Composition | None, new: Composition, quick_patch: bool) -> str:
    """What bringing the new image into use costs the host: one of `IMPACTS`.

    A change needs a reboot, save that with `quick_patch` changed components and solutions cost what their own impact
    says, as long as the base image stays.
    """
    if old is not None and old.identity() == new.identity():
        return IMPACTS[0]
    if not quick_patch or old is None or old.base.checksum != new.base.checksum:
        return IMPACTS[-1]
    before, after = old.identity(), new.identity()
    changed = [part for part in (*old.parts(), *new.parts()) if before.get(part.ref) != after.get(part.ref)]
    return max((part.impact for part in changed), key=IMPACTS.index, default=IMPACTS[0])

"""The command that compares the image in use with a software spec. It changes nothing and takes no lock."""

from __future__ import annotations

from pathlib import Path
from typing import Any, Sequence

from orbane_stow import acceptance, paths
from orbane_stow.composition import Composition, HostSource, Resolved, change_impact, resolve
from orbane_stow.depot import DepotSet, Offer
from orbane_stow.errors import (AcceptanceError, BaseMissingError, ComponentMissingError, SolutionMissingError,
                                StowError)
from orbane_stow.image import ImageRoot
from orbane_stow.live import running_image
from orbane_stow.parts import BASE, COMPONENT, IMPACTS, SOLUTION, Part
from orbane_stow.pull import is_held
from orbane_stow.results import DAEMON, mapping, notifications, optional, struct, to_text
from orbane_stow.spec import read_spec
from orbane_stow.task_run import ERROR, WARNING, Task, timestamp

COMPLIANT, NON_COMPLIANT, INVALID = "COMPLIANT", "NON_COMPLIANT", "INVALID"  # in ascending order of weight
_STATUSES = (COMPLIANT, NON_COMPLIANT, INVALID)
PENDING_REBOOT = "com.orbane.ryn.stow.scan.reboot.pending"


def scan(task: Task, spec_path: Path, addresses: Sequence[str], quick_patch: bool) -> str:
    """Compares and gives a host_compliance in the full form. A part that cannot be had is INVALID in it, with the
    reason as a notification; a depot that can't be used fails the task."""
    spec = read_spec(spec_path)
    progress = task.plan(read=10, resolve=70, compare=20)
    image = ImageRoot(paths.image_root())
    deployed = image.read()
    progress.step("read")
    source = _TolerantSource(HostSource(DepotSet(addresses, task.termination.check), deployed), task)
    resolved = resolve(spec, source)
    source.refuse_below(acceptance.read_level(), resolved.composition)
    progress.step("resolve")
    if deployed is not None and running_image(image) != image.deployment().get_csum():
        task.notify(PENDING_REBOOT, kind=WARNING)
    staged = not source.missing and is_held(image, resolved.offers)
    return to_text(_Comparison(deployed, resolved, source.missing, quick_patch).result(staged, task.told))


class _TolerantSource:
    """Gives a stand-in for a part that nobody has, and remembers it."""

    def __init__(self, source: HostSource, task: Task) -> None:
        self._source = source
        self._task = task
        self.missing: set[str] = set()  # kind and name of the parts

    def base(self, version: str) -> Offer:
        try:
            return self._source.base(version)
        except StowError as error:
            if not isinstance(error, BaseMissingError):
                raise
            return self._stand_in(BASE, "", version, error)

    def named_base(self, name: str, version: str) -> Offer:
        try:
            return self._source.named_base(name, version)
        except BaseMissingError as error:
            return self._stand_in(BASE, "", version, error)

    def component(self, name: str, version: str) -> Offer:
        try:
            return self._source.component(name, version)
        except ComponentMissingError as error:
            return self._stand_in(COMPONENT, name, version, error)

    def solution(self, name: str, version: str) -> Offer:
        try:
            return self._source.solution(name, version)
        except SolutionMissingError as error:
            return self._stand_in(SOLUTION, name, version, error)

    def refuse_below(self, level: str, composition: Composition) -> None:
        """Parts with a pak below the acceptance level cannot be had either."""
        for part in composition.parts():
            try:
                acceptance.check_part(part, level)
            except AcceptanceError as error:
                self.missing.add(f"{part.kind}/{'' if part.kind == BASE else part.name}")
                self._task.notify(error.message_id, *error.args, kind=ERROR)

    def _stand_in(self, kind: str, name: str, version: str, error: StowError) -> Offer:
        self.missing.add(f"{kind}/{name}")
        self._task.notify(error.message_id, *error.args, kind=ERROR)
        part = Part(kind, name, version, name, version, vendor="", summary="", release_date="", impact=IMPACTS[-1])
        return Offer(part, None, (), 0)


class _Comparison:
    def __init__(self, deployed: Composition | None, resolved: Resolved, missing: set[str], quick_patch: bool) -> None:
        self._old = deployed
        self._new = resolved.composition
        self._missing = missing
        self._quick_patch = quick_patch
        self._worst = COMPLIANT

    def result(self, staged: bool, told: Sequence[dict[str, Any]]) -> dict[str, Any]:
        """The host_compliance."""
        base = self._base()
        components = {name: self._component(name) for name in self._names("components")}
        solutions = {name: self._solution(name, components) for name in self._names("solutions")}
        return struct(
            f"{DAEMON}.host_compliance", status=self._worst,
            impact=change_impact(self._old, self._new, self._quick_patch), scan_time=timestamp(), base_image=base,
            components=mapping(components), solutions=mapping(solutions), staged=optional(staged),
            notifications=notifications(told))

    def _names(self, collection: str) -> list[str]:
        old = getattr(self._old, collection) if self._old else {}
        return sorted({*old, *getattr(self._new, collection)})

    def _base(self) -> dict[str, Any]:
        old = self._old.base if self._old else None
        status = self._status(old, self._new.base, f"{BASE}/" in self._missing)
        return struct(f"{DAEMON}.base_image_compliance", status=status,
                      current=optional(old.version if old else None), desired=self._new.base.version,
                      impact=optional(IMPACTS[0] if status == COMPLIANT else IMPACTS[-1]))

    def _component(self, name: str) -> dict[str, Any]:
        return self._part("component_compliance", COMPONENT, name)

    def _solution(self, name: str, components: dict[str, dict[str, Any]]) -> dict[str, Any]:
        wanted = self._new.solutions.get(name) or (self._old.solutions[name] if self._old else None)
        its_own = {component: components[component] for component in (wanted.components if wanted else {})
                   if component in components}
        return {**self._part("solution_compliance", SOLUTION, name), "components": optional(mapping(its_own))}

    def _part(self, structure: str, kind: str, name: str) -> dict[str, Any]:
        collection = f"{kind}s"
        old = getattr(self._old, collection).get(name) if self._old else None
        new = getattr(self._new, collection).get(name)
        status = self._status(old, new, f"{kind}/{name}" in self._missing)
        return struct(f"{DAEMON}.{structure}", status=status, current=optional(old.version if old else None),
                      desired=optional(new.version if new else None), impact=optional(self._impact(old, new, status)))

    def _status(self, old: Part | None, new: Part | None, missing: bool) -> str:
        same = old is not None and new is not None and (old.ref, old.checksum) == (new.ref, new.checksum)
        status = INVALID if missing else COMPLIANT if same else NON_COMPLIANT
        self._worst = max(self._worst, status, key=_STATUSES.index)
        return status

    def _impact(self, old: Part | None, new: Part | None, status: str) -> str:
        if status == COMPLIANT:
            return IMPACTS[0]
        if not self._quick_patch:
            return IMPACTS[-1]
        return max((part.impact for part in (old, new) if part), key=IMPACTS.index)

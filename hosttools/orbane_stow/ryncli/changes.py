"""The commands that change the image in use, or what may come into it. Each returns the root element of its answer."""

from __future__ import annotations

import syslog
import xml.etree.ElementTree as xml
from contextlib import nullcontext
from pathlib import Path
from typing import Callable, Sequence

from orbane_stow import acceptance as levels
from orbane_stow import apply as engine
from orbane_stow import catalogue, paths
from orbane_stow.composition import Composition
from orbane_stow.depot import DepotSet
from orbane_stow.errors import ComponentMissingError, NeededError, NotThereError, SpecReadError, LineError
from orbane_stow.fetch import DepotUrl
from orbane_stow.image import ImageRoot
from orbane_stow.part_xml import add, xml_text
from orbane_stow.parts import ACCEPTANCE_LEVELS, COMPONENT
from orbane_stow.progress import Progress
from orbane_stow.ryncli.command_line import Request
from orbane_stow.ryncli.commands import DEPOT, LEVEL, NAME, NAMES, QUICK, SPEC
from orbane_stow.ryncli.queries import acceptance_answer, answer_to
from orbane_stow.ryncli.selection import Choice, choice_from, choices_from
from orbane_stow.spec import MAX_SPEC_BYTES, SoftwareSpec, SolutionChoice, parse_spec, read_spec
from orbane_stow.task_run import INFO, log
from orbane_stow.termination import Termination
from orbane_stow.text import well_formed


class Foreground:
    """What a change sees in place of a task: nobody polls for its progress, and what it tells goes into the answer."""

    def __init__(self, answer: xml.Element, termination: Termination) -> None:
        self.termination = termination
        self._answer = answer

    def plan(self, **weights: int) -> Progress:
        """Progress that nobody sees."""
        return Progress(lambda _percent: None, weights)

    def notify(self, message_id: str, *args: object, kind: str = INFO) -> None:
        """Adds a notification to the answer and a line to the log."""
        text = catalogue.render(message_id, [well_formed(arg) for arg in args])
        element = add(self._answer, "notification", {"type": kind, "id": message_id})
        element.text = xml_text(text)
        log(syslog.LOG_NOTICE, text)


def set_acceptance(request: Request, _termination: Termination) -> xml.Element:
    """Sets the acceptance level. Refused while the image in use has paks below it: it would ask for what isn't so."""
    level = request.value(LEVEL)
    if level not in ACCEPTANCE_LEVELS:
        raise LineError(f"--level: '{level}' is not one of {', '.join(ACCEPTANCE_LEVELS)}")
    image = ImageRoot(paths.image_root())
    with image.locked() if image.exists() else nullcontext():
        deployed = image.read()
        if deployed is not None:
            levels.check_composition(deployed, level)
        levels.write_level(level)
    return acceptance_answer(request, level)


def apply(request: Request, termination: Termination) -> xml.Element:
    """Brings the image in line with a software spec."""
    spec = _read_spec(request.value(SPEC))
    return _change(request, termination, lambda _deployed: spec)


def apply_components(request: Request, termination: Termination) -> xml.Element:
    """Adds components to the image or changes their version; all else stays."""
    choices = choices_from(request.values(NAMES))

    def wanted(deployed: Composition | None) -> SoftwareSpec:
        spec = _spec_of(deployed)
        for choice in choices:
            version = _version_of(choice, request.values(DEPOT))
            _owner(spec, choice.name)[choice.name] = version
        return spec

    return _change(request, termination, wanted)


def remove_components(request: Request, termination: Termination) -> xml.Element:
    """Removes components from the image; all else stays. One that a solution brings stays, and is an error."""
    choices = choices_from(request.values(NAMES))

    def wanted(deployed: Composition | None) -> SoftwareSpec:
        spec = _spec_of(deployed)
        for choice in choices:
            part = deployed.components.get(choice.name) if deployed else None
            if part is None or not choice.takes_part(part):
                raise NotThereError(f"component '{choice.text}'")
            for solution, its_own in sorted(spec.solutions.items()):
                if choice.name in its_own.components:
                    raise NeededError(choice.name, solution)
            del spec.components[choice.name]
        return spec

    return _change(request, termination, wanted)


def install_profile(request: Request, termination: Termination) -> xml.Element:
    """Makes a base image alone the image: components and solutions go."""
    choice = choice_from(request.value(NAME))
    return _change(request, termination, lambda _deployed: _with_base(SoftwareSpec("", {}, {}), choice))


def update_profile(request: Request, termination: Termination) -> xml.Element:
    """Exchanges the base image; components and solutions stay as they are."""
    choice = choice_from(request.value(NAME))
    return _change(request, termination, lambda deployed: _with_base(_spec_of(deployed), choice))


def _change(request: Request, termination: Termination,
            wanted: Callable[[Composition | None], SoftwareSpec]) -> xml.Element:
    answer = answer_to(request)
    engine.change(Foreground(answer, termination), wanted, request.values(DEPOT), request.given(QUICK))
    return answer


def _read_spec(place: str) -> SoftwareSpec:
    """The software spec at an http:// or file:// address, or in a file with an absolute path."""
    if place.startswith("/"):
        return read_spec(Path(place))
    folder, _, name = place.rpartition("/")
    content = DepotUrl(folder).read(name, MAX_SPEC_BYTES) if name else None
    if content is None:
        raise SpecReadError(place, "there is no such file")
    return parse_spec(content)


def _spec_of(deployed: Composition | None) -> SoftwareSpec:
    """The spec that describes the image in use version by version."""
    if deployed is None:
        return SoftwareSpec("", {}, {})
    versions = {name: part.version for name, part in deployed.components.items()}
    solutions = {name: SolutionChoice(part.version, {component: versions.pop(component) for component in part.components
                                                     if component in versions})
                 for name, part in sorted(deployed.solutions.items())}
    return SoftwareSpec("", versions, solutions)


def _owner(spec: SoftwareSpec, component: str) -> dict[str, str]:
    """Where the version of a component stands in a spec: with the solution that brings it, or among the components."""
    for choice in spec.solutions.values():
        if component in choice.components:
            return choice.components
    return spec.components


def _version_of(choice: Choice, depots: Sequence[str]) -> str:
    """The version that is meant: empty for the newest on offer, of the vendor if one is named."""
    if not choice.vendor:
        return choice.version
    if not any(choice.takes_part(offer.part) for offer in DepotSet(depots).offers(COMPONENT)):
        raise ComponentMissingError(choice.name, choice.version)
    return choice.version


def _with_base(spec: SoftwareSpec, choice: Choice) -> SoftwareSpec:
    if choice.vendor:
        raise LineError("--name: the vendor of a base image can't be chosen")
    return SoftwareSpec(choice.version, spec.components, spec.solutions, base_name=choice.name)

"""The commands that read. Each returns the root element of its answer."""

from __future__ import annotations

import xml.etree.ElementTree as xml
from typing import Callable

from orbane_stow import acceptance as levels
from orbane_stow.errors import NotThereError
from orbane_stow.depot import DepotSet
from orbane_stow.part_xml import add, add_pak, add_part
from orbane_stow.parts import ACCEPTANCE_LEVELS, BASE, COMPONENT, SOLUTION, Pak, Part
from orbane_stow.ryncli.command_line import Request
from orbane_stow.ryncli.commands import DEPOT, FULL, NAME, NAMES
from orbane_stow.ryncli.selection import choice_from, choices_from, deployed_image, select

_WORDS = {BASE: "base image", COMPONENT: "component", SOLUTION: "solution"}


def acceptance(request: Request) -> xml.Element:
    """The acceptance level of the host."""
    return acceptance_answer(request, levels.read_level())


def acceptance_answer(request: Request, level: str) -> xml.Element:
    """An answer with an acceptance level."""
    answer = answer_to(request)
    add(answer, "acceptance", {"level": level})
    return answer


def addons(request: Request) -> xml.Element:
    """Solutions with all details."""
    return _describe(request, SOLUTION)


def base_images(request: Request) -> xml.Element:
    """The base image with all details; those of the depots where depots are named."""
    if not request.given(DEPOT):
        deployed_image()  # to ask for the base of no image is an error
    return _describe(request, BASE)


def components(request: Request) -> xml.Element:
    """Components with all details."""
    return _describe(request, COMPONENT)


def component_list(request: Request) -> xml.Element:
    """Components in short."""
    if request.given(FULL):
        return _describe(request, COMPONENT)
    answer = answer_to(request)
    for part in _chosen(request, COMPONENT):
        add(answer, part.kind, {**_identity(request, part), "display-name": part.display_name,
                                "display-version": part.display_version, "vendor": part.vendor})
    return answer


def component_paks(request: Request) -> xml.Element:
    """Components with their paks."""
    answer = answer_to(request)
    for part in _chosen(request, COMPONENT):
        element = add(answer, part.kind, _identity(request, part))
        for pak in part.paks:
            add_pak(element, pak)
    return answer


def paks(request: Request) -> xml.Element:
    """Paks with the details of the part that brings them."""
    return _pak_answer(request, full=True)


def pak_list(request: Request) -> xml.Element:
    """Paks, each with the part that brings it."""
    return _pak_answer(request, full=request.given(FULL))


def profiles(request: Request) -> xml.Element:
    """The image with all its parts; where depots are named, each of their base images."""
    answer = answer_to(request)
    if request.given(DEPOT):
        for part in _chosen(request, BASE):
            _add_profile(request, answer, part, [part])
        return answer
    composition, commit = deployed_image()
    select("profile", [composition.base], choices_from(request.values(NAMES)))
    _add_profile(request, answer, composition.base, composition.parts(), commit=commit)
    return answer


def validate_profile(request: Request) -> xml.Element:
    """The paks of the image's base compared with those of a base image; without a name with the same one, so that an
    answer other than COMPLIANT means that a depot holds something else under its version."""
    composition, _ = deployed_image()
    choice = choice_from(request.value(NAME) or f"{composition.base.name}:{composition.base.version}")
    known = _parts_by_kind(request)(BASE)
    wanted = select(_WORDS[BASE], known, [choice])[-1]  # the newest of that name
    old, new = {pak.name: pak for pak in composition.base.paks}, {pak.name: pak for pak in wanted.paks}
    same = (composition.base.name, composition.base.checksum) == (wanted.name, wanted.checksum)
    answer = answer_to(request)
    profile = add(answer, "profile", {**_identity(request, wanted), "status": _status(same)})
    for name in sorted({*old, *new}):
        current, desired = old.get(name), new.get(name)
        element = add(profile, "pak", {"name": name, "status": _status(current == desired)})
        for attribute, pak in (("current", current), ("desired", desired)):
            if pak is not None:
                element.set(attribute, pak.version)
    return answer


def answer_to(request: Request) -> xml.Element:
    """The root of an answer."""
    return xml.Element("answer", {"command": request.command.words})


def _status(same: bool) -> str:
    return "COMPLIANT" if same else "NON_COMPLIANT"


def _describe(request: Request, kind: str) -> xml.Element:
    answer = answer_to(request)
    for part in _chosen(request, kind):
        _add_details(request, answer, part)
    return answer


def _add_details(request: Request, parent: xml.Element, part: Part) -> None:
    add_part(parent, part, summary=part.summary, **_inner(request, part))


def _add_profile(request: Request, answer: xml.Element, base: Part, parts: list[Part], commit: str = "") -> None:
    lowest = max((pak.acceptance for part in parts for pak in part.paks), key=ACCEPTANCE_LEVELS.index,
                 default=ACCEPTANCE_LEVELS[0])
    profile = add(answer, "profile", {"name": base.name, "version": base.version, "acceptance": lowest,
                                      **({"checksum": commit} if commit else {})})
    for part in parts:
        _add_details(request, profile, part)


def _pak_answer(request: Request, full: bool) -> xml.Element:
    answer = answer_to(request)
    choices = choices_from(request.values(NAMES))
    parts_of = _parts_by_kind(request)
    found = [(pak, part) for kind in (BASE, COMPONENT, SOLUTION) for part in parts_of(kind) for pak in part.paks]
    for choice in choices:
        if not any(choice.takes(pak.name, pak.version, part.vendor) for pak, part in found):
            raise NotThereError(f"pak '{choice.text}'")
    for pak, part in sorted(found, key=_pak_order):
        if not choices or any(choice.takes(pak.name, pak.version, part.vendor) for choice in choices):
            more = {"vendor": part.vendor, "release-date": part.release_date, "impact": part.impact,
                    "summary": part.summary, **_inner(request, part)} if full else {}
            add_pak(answer, pak, part=part.ref, **more)
    return answer


def _pak_order(entry: tuple[Pak, Part]) -> tuple[str, str, str]:
    pak, part = entry
    return pak.name, pak.version, part.ref


def _identity(request: Request, part: Part) -> dict[str, str]:
    return {"name": part.name, "version": part.version, **_inner(request, part)}


def _inner(request: Request, part: Part) -> dict[str, str]:
    """What only the internal namespace tells."""
    return {"ref": part.ref, "commit": part.checksum} if request.details else {}


def _chosen(request: Request, kind: str) -> list[Part]:
    return select(_WORDS[kind], _parts_by_kind(request)(kind), choices_from(request.values(NAMES)))


def _parts_by_kind(request: Request) -> Callable[[str], list[Part]]:
    """A function that gives the parts of a kind: what the depots offer, by name and version, or what the image in use
    has, by name. Nothing where no image is in use."""
    if request.given(DEPOT):
        depots = DepotSet(request.values(DEPOT))
        return lambda kind: [offer.part for offer in depots.offers(kind)]
    try:
        parts = deployed_image()[0].parts()
    except NotThereError:
        parts = []
    return lambda kind: [part for part in parts if part.kind == kind]

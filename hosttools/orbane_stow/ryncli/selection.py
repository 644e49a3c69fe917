"""Which parts a command means, and where they are looked for."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Iterable, Sequence

from orbane_stow import paths
from orbane_stow.composition import Composition
from orbane_stow.errors import NotThereError, LineError
from orbane_stow.image import ImageRoot
from orbane_stow.parts import Part, is_name

_FORMS = "NAME, NAME:VERSION or VENDOR:NAME:VERSION"


@dataclass(frozen=True)
class Choice:
    """The value of a --name option. Empty members are as good as any."""

    text: str
    name: str
    version: str = ""
    vendor: str = ""

    def takes(self, part_name: str, version: str, vendor: str) -> bool:
        """Whether something of that name, version and vendor is meant."""
        return (self.name == part_name and self.version in ("", version) and self.vendor in ("", vendor))

    def takes_part(self, part: Part) -> bool:
        """Whether that part is meant."""
        return self.takes(part.name, part.version, part.vendor)


def choice_from(text: str) -> Choice:
    """Reads a value; raises `LineError`."""
    pieces = text.split(":")
    if len(pieces) > 3 or not all(is_name(piece) for piece in pieces):
        raise LineError(f"--name: '{text}' is not {_FORMS}")
    if len(pieces) == 3:
        return Choice(text, name=pieces[1], version=pieces[2], vendor=pieces[0])
    return Choice(text, *pieces)


def choices_from(texts: Sequence[str]) -> list[Choice]:
    """Reads values; raises `LineError` for a bad one, and for two of one name."""
    choices = [choice_from(text) for text in texts]
    names = [choice.name for choice in choices]
    for name in names:
        if names.count(name) > 1:
            raise LineError(f"--name: '{name}' stands twice")
    return choices


def select(what: str, parts: Iterable[Part], choices: Sequence[Choice]) -> list[Part]:
    """The parts that the choices mean, in the order of `parts`; all of them without a choice. Raises `NotThereError`
    for a choice that none answers to."""
    kept = list(parts)
    for choice in choices:
        if not any(choice.takes_part(part) for part in kept):
            raise NotThereError(f"{what} '{choice.text}'")
    return [part for part in kept if not choices or any(choice.takes_part(part) for choice in choices)]


def deployed_image() -> tuple[Composition, str]:
    """What the image in use consists of, and its commit; raises `NotThereError` where no image is in use."""
    image = ImageRoot(paths.image_root())
    composition = image.read()
    deployment = image.deployment() if composition else None
    if composition is None or deployment is None:
        raise NotThereError("image")
    return composition, deployment.get_csum()

"""The commands: their words, what they take, and what carries them out.

    name                  takes                                     answers
    acceptance get                                                  the acceptance level
    acceptance set        -l LEVEL                                  the acceptance level
    addon get             [-n PART …] [--depot URL …]               solutions
    apply                 -s SPEC [--depot URL …] [-q]              what was done
    baseimage get         [-n PART …] [--depot URL …]               the base image
    component apply       -n PART … --depot URL … [-q]              what was done
    component get         [-n PART …] [--depot URL …]               components with all details
    component list        [-n PART …] [--depot URL …] [-f]          components
    component pak list    [-n PART …] [--depot URL …]               components and their paks
    component remove      -n PART … [-q]                            what was done
    pak get, pak list     [-n PART …] [--depot URL …] [-f]          paks, and which part brings them
    profile get           [-n PART …] [--depot URL …]               the image as a whole; with depots their base images
    profile install       -n PART --depot URL …                     what was done: the base image alone is the image
    profile update        -n PART --depot URL … [-q]                what was done: the base image is exchanged
    profile validate      [-n PART] [--depot URL …]                 the image's base compared with a base image

PART is NAME, NAME:VERSION or VENDOR:NAME:VERSION. With --depot a reading command tells what the depots offer, without
it what the host has. Known, but refused: pak install, pak remove and pak update, since paks come and go with their
component; pak signature verify and component signature verify, since parts carry no signatures.
"""

from __future__ import annotations

from dataclasses import dataclass
from typing import Sequence


@dataclass(frozen=True)
class Option:
    """An option of a command. `long` and `short` with their dashes; `value` names what follows, "" for nothing."""

    long: str
    short: str
    value: str = ""
    many: bool = False

    @property
    def names(self) -> tuple[str, ...]:
        """All forms in which it may be given."""
        return (self.long, self.short) if self.short else (self.long,)


DEPOT = Option("--depot", "", "URL", many=True)
NAMES = Option("--name", "-n", "PART", many=True)
NAME = Option("--name", "-n", "PART")
FULL = Option("--full", "-f")
LEVEL = Option("--level", "-l", "LEVEL")
SPEC = Option("--software-spec", "-s", "SPEC")
QUICK = Option("--quick-patch", "-q")

_PAKS_ALONE = "paks come and go with their component; use 'component apply' or 'component remove'"
_UNSIGNED = "parts are verified by the checksums of all their contents, and carry no signatures of their own"


@dataclass(frozen=True)
class Command:
    """A command: `work` is "module.function" of this package, `needed` the options that must be given.

    `refusal` is why the host can't do what the command asks for; such a command takes any option and does nothing.
    """

    words: str
    work: str = ""
    options: Sequence[Option] = ()
    needed: Sequence[Option] = ()
    refusal: str = ""

    @property
    def changes(self) -> bool:
        """Whether it changes something on the host."""
        return self.work.startswith("changes.")


_READING = (NAMES, DEPOT)

COMMANDS = {command.words: command for command in (
    Command("acceptance get", "queries.acceptance"),
    Command("acceptance set", "changes.set_acceptance", (LEVEL,), (LEVEL,)),
    Command("addon get", "queries.addons", _READING),
    Command("apply", "changes.apply", (SPEC, DEPOT, QUICK), (SPEC,)),
    Command("baseimage get", "queries.base_images", _READING),
    Command("component apply", "changes.apply_components", (NAMES, DEPOT, QUICK), (NAMES, DEPOT)),
    Command("component get", "queries.components", _READING),
    Command("component list", "queries.component_list", (*_READING, FULL)),
    Command("component pak list", "queries.component_paks", _READING),
    Command("component remove", "changes.remove_components", (NAMES, QUICK), (NAMES,)),
    Command("component signature verify", refusal=_UNSIGNED),
    Command("pak get", "queries.paks", (*_READING, FULL)),
    Command("pak install", refusal=_PAKS_ALONE),
    Command("pak list", "queries.pak_list", (*_READING, FULL)),
    Command("pak remove", refusal=_PAKS_ALONE),
    Command("pak signature verify", refusal=_UNSIGNED),
    Command("pak update", refusal=_PAKS_ALONE),
    Command("profile get", "queries.profiles", _READING),
    Command("profile install", "changes.install_profile", (NAME, DEPOT), (NAME, DEPOT)),
    Command("profile update", "changes.update_profile", (NAME, DEPOT, QUICK), (NAME, DEPOT)),
    Command("profile validate", "queries.validate_profile", (NAME, DEPOT)),
)}

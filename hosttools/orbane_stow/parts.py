"""What depots hold: base images, components and solutions, and how their description lies in a commit.

Each part is one commit under the ref `<kind>/<name>/<version>`. The commit's metadata has the key "orbane.part": the
JSON text of `Part.describe()`.
"""

from __future__ import annotations

import json
import re
from dataclasses import dataclass, field, replace
from typing import Any

BASE, COMPONENT, SOLUTION = "base", "component", "solution"
KINDS = (BASE, COMPONENT, SOLUTION)
IMPACTS = ("NONE", "MAINTENANCE_MODE", "REBOOT")  # in ascending order
ACCEPTANCE_LEVELS = ("CERTIFIED", "ACCEPTED", "PARTNER", "COMMUNITY")
METADATA_KEY = "orbane.part"

# A ref's segments: no slash, no leading dash or dot, nothing that a shell, a URL or a log line could misread.
_NAME = re.compile(r"[A-Za-z0-9_][A-Za-z0-9_.-]{0,127}")


class PartFormatError(ValueError):
    """A description that is not one; the text says which member is wrong."""


def is_name(text: str) -> bool:
    """Whether the text may be the name or version of a part or pak."""
    return isinstance(text, str) and _NAME.fullmatch(text) is not None and not text.endswith(".lock")


def ref_name(kind: str, name: str, version: str) -> str:
    """The ref of a part."""
    return f"{kind}/{name}/{version}"


def parse_ref(ref: str) -> tuple[str, str, str] | None:
    """Kind, name and version of a part's ref; None for any other ref."""
    pieces = ref.split("/")
    if len(pieces) == 3 and pieces[0] in KINDS and is_name(pieces[1]) and is_name(pieces[2]):
        return pieces[0], pieces[1], pieces[2]
    return None


def version_key(version: str) -> list[tuple[int, int, str]]:
    """Sort key of a version: runs of digits count as numbers, letters sort before the end and digits after it, so
    that 1.0rc1 < 1.0 < 1.0.1 and 1.9 < 1.10."""
    key = []
    for piece in re.findall(r"[0-9]+|[A-Za-z]+", version):
        key.append((2, int(piece), "") if piece.isdigit() else (0, 0, piece))
    key.append((1, 0, ""))
    return key


@dataclass(frozen=True)
class Pak:
    """An installable unit inside a part. `size` is the sum of its files in bytes."""

    name: str
    version: str
    size: int
    acceptance: str

    def describe(self) -> dict[str, Any]:
        """JSON object of the fields."""
        return {"name": self.name, "version": self.version, "size": self.size, "acceptance": self.acceptance}


@dataclass(frozen=True)
class Part:
    """A base image, component or solution. `components` (name to version) is only set for a solution."""

    kind: str
    name: str
    version: str
    display_name: str
    display_version: str
    vendor: str
    summary: str
    release_date: str
    impact: str
    platforms: tuple[str, ...] = ()
    paks: tuple[Pak, ...] = ()
    components: dict[str, str] = field(default_factory=dict, hash=False)
    checksum: str = ""

    @property
    def ref(self) -> str:
        """The part's ref in a depot."""
        return ref_name(self.kind, self.name, self.version)

    @property
    def label(self) -> str:
        """How messages name the part: "component fan-control 1.2.0"."""
        return f"{self.kind} {self.name} {self.version}"

    def at(self, checksum: str) -> Part:
        """The same part, with the commit that holds it."""
        return replace(self, checksum=checksum)

    def describe(self) -> dict[str, Any]:
        """JSON object of the fields, without the checksum unless it is set."""
        described: dict[str, Any] = {
            "kind": self.kind, "name": self.name, "version": self.version, "display_name": self.display_name,
            "display_version": self.display_version, "vendor": self.vendor, "summary": self.summary,
            "release_date": self.release_date, "impact": self.impact, "platforms": list(self.platforms),
            "paks": [pak.describe() for pak in self.paks], "components": dict(sorted(self.components.items())),
        }
        if self.checksum:
            described["checksum"] = self.checksum
        return described

    def to_text(self) -> str:
        """JSON text of `describe`, the same for equal parts."""
        return json.dumps(self.describe(), sort_keys=True, separators=(",", ":"), ensure_ascii=False)


def part_from(described: Any) -> Part:
    """The part of a `describe` object; raises `PartFormatError`. Members that it doesn't know are passed over."""
    if not isinstance(described, dict):
        raise PartFormatError("not an object")

    def text(name: str, default: str | None = None) -> str:
        value = described.get(name, default)
        if not isinstance(value, str):
            raise PartFormatError(f"{name}: a text is wanted")
        return _checked(value, name)

    kind, name, version = text("kind"), text("name"), text("version")
    if kind not in KINDS:
        raise PartFormatError(f"kind: '{kind}' is not one of {', '.join(KINDS)}")
    for what, value in (("name", name), ("version", version)):
        if not is_name(value):
            raise PartFormatError(f"{what}: '{value}' can't be used")
    impact = text("impact", "REBOOT")
    if impact not in IMPACTS:
        raise PartFormatError(f"impact: '{impact}' is not one of {', '.join(IMPACTS)}")
    platforms = described.get("platforms", [])
    if not isinstance(platforms, list) or not all(
            isinstance(p, str) and _checked(p, "platforms") for p in platforms):
        raise PartFormatError("platforms: a list of texts is wanted")
    components = described.get("components", {})
    if not isinstance(components, dict) or not all(is_name(k) and is_name(v) for k, v in components.items()):
        raise PartFormatError("components: an object from name to version is wanted")
    paks = described.get("paks", [])
    if not isinstance(paks, list):
        raise PartFormatError("paks: a list is wanted")
    return Part(
        kind=kind, name=name, version=version, display_name=text("display_name", name),
        display_version=text("display_version", version), vendor=text("vendor", ""), summary=text("summary", ""),
        release_date=text("release_date", ""), impact=impact, platforms=tuple(platforms),
        paks=tuple(_pak_from(pak) for pak in paks), components=components, checksum=text("checksum", ""))


def _checked(text: str, where: str) -> str:
    try:
        text.encode("utf-8")
    except UnicodeEncodeError as error:
        raise PartFormatError(f"{where}: half of a surrogate pair") from error
    return text


def _pak_from(described: Any) -> Pak:
    if not isinstance(described, dict):
        raise PartFormatError("paks: each is an object")
    name, version = described.get("name"), described.get("version")
    size, acceptance = described.get("size"), described.get("acceptance")
    if not (isinstance(name, str) and is_name(name) and isinstance(version, str) and is_name(version)):
        raise PartFormatError("paks: each has a name and a version")
    if not isinstance(size, int) or isinstance(size, bool) or not 0 <= size < 2**63:
        raise PartFormatError(f"paks: the size of '{name}' is not a number of bytes")
    if acceptance not in ACCEPTANCE_LEVELS:
        raise PartFormatError(f"paks: the acceptance of '{name}' is not one of {', '.join(ACCEPTANCE_LEVELS)}")
    return Pak(name, version, size, acceptance)

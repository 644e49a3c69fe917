"""Questions about the image in use. The answers are JSON in the direct form, without a line end."""

from __future__ import annotations

import json
from typing import Any, TextIO

from orbane_stow import paths
from orbane_stow.composition import Composition
from orbane_stow.image import ImageRoot
from orbane_stow.parts import Part

EXIT_DONE = 0  # also when what was asked for isn't there: the answer is then "null"


def component_list(output: TextIO) -> int:
    """The components by name; an empty list where no image is deployed."""
    deployed = _read()
    components = deployed.components if deployed else {}
    return _print(output, [_summary(components[name]) for name in sorted(components)])


def component_get(name: str, output: TextIO) -> int:
    """All about one component; `null` for one that isn't part of the image."""
    deployed = _read()
    part = deployed.components.get(name) if deployed else None
    if part is None:
        return _print(output, None)
    return _print(output, {**_details(part), "impact": part.impact})


def ryn_get(output: TextIO) -> int:
    """All about the base image; `null` where no image is deployed."""
    image = ImageRoot(paths.image_root())
    deployed = image.read()
    deployment = image.deployment() if deployed else None
    if deployed is None or deployment is None:
        return _print(output, None)
    return _print(output, {**_details(deployed.base), "checksum": deployment.get_csum()})


def _read() -> Composition | None:
    return ImageRoot(paths.image_root()).read()


def _summary(part: Part) -> dict[str, Any]:
    summary = {"name": part.name, "component": part.name, "version": part.version, "display_name": part.display_name,
               "display_version": part.display_version, "platforms": list(part.platforms)}
    if part.vendor:
        summary["vendor"] = part.vendor
    return summary


def _details(part: Part) -> dict[str, Any]:
    details = {"name": part.name, "version": part.version, "display_name": part.display_name,
               "display_version": part.display_version, "vendor": part.vendor, "summary": part.summary,
               "release_date": part.release_date, "platforms": list(part.platforms),
               "paks": [pak.describe() for pak in part.paks]}
    return {name: value for name, value in details.items() if value != ""}


def _print(output: TextIO, value: Any) -> int:
    output.write(json.dumps(value, ensure_ascii=True, separators=(",", ":")))
    output.flush()
    return EXIT_DONE

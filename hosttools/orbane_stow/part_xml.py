"""Parts and paks as XML elements, as they stand in a depot's index and in the answers of `ryncli`."""

from __future__ import annotations

import re
import xml.etree.ElementTree as xml
from typing import Mapping

from orbane_stow.parts import Pak, Part

# What XML 1.0 has no way to write, not even as a reference; section 2.2, production Char.
_NO_XML = re.compile("[^\t\n\r\x20-\ud7ff\ue000-\ufffd\U00010000-\U0010ffff]")


def add(parent: xml.Element, name: str, attributes: Mapping[str, str]) -> xml.Element:
    """A new element below `parent`; characters that XML lacks are replaced."""
    return xml.SubElement(parent, name, {key: xml_text(value) for key, value in attributes.items()})


def add_part(parent: xml.Element, part: Part, **more: str) -> xml.Element:
    """The element of a part, with its platforms, the components of a solution, and its paks. `more` are attributes
    behind the usual ones."""
    element = add(parent, part.kind, {
        "name": part.name, "version": part.version, "display-name": part.display_name,
        "display-version": part.display_version, "vendor": part.vendor, "release-date": part.release_date,
        "impact": part.impact, **more})
    for platform in part.platforms:
        add(element, "platform", {"name": platform})
    for name, version in sorted(part.components.items()):
        add(element, "component-ref", {"name": name, "version": version})
    for pak in part.paks:
        add_pak(element, pak)
    return element


def add_pak(parent: xml.Element, pak: Pak, **more: str) -> xml.Element:
    """The element of a pak."""
    return add(parent, "pak", {"name": pak.name, "version": pak.version, "size": str(pak.size),
                               "acceptance": pak.acceptance, **more})


def document(root: xml.Element) -> bytes:
    """The document of a root element: UTF-8, indented, with a line end."""
    xml.indent(root)
    return xml.tostring(root, encoding="utf-8", xml_declaration=True) + b"\n"


def xml_text(text: str) -> str:
    """The text with a replacement character for each character that XML has no way to write."""
    return _NO_XML.sub("\ufffd", text)

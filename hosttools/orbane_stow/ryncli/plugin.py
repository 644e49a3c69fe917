"""Plugins of `nearcli`: an XML file each that declares one more namespace and which of the commands it has.

    <plugin namespace="NAME" details="yes|no"> <command words="component list"/> … </plugin>

A plugin brings no code. Only files that are installed for it count, so that nobody who may add words to a command line
has another file read.
"""

from __future__ import annotations

import os
import re
import xml.etree.ElementTree as xml
from dataclasses import dataclass

from orbane_stow import paths
from orbane_stow.errors import LineError
from orbane_stow.ryncli.commands import COMMANDS

_FILE_NAME = re.compile(r"[A-Za-z0-9][A-Za-z0-9_-]*\.xml")
_NAMESPACE = re.compile(r"[a-z]{1,32}")
_LIMIT = 64 * 1024  # bytes


@dataclass(frozen=True)
class Namespace:
    """A first word of command lines. `details`: its answers tell references and commits."""

    name: str
    commands: frozenset[str]
    details: bool


def read_plugin(path: str) -> Namespace:
    """The namespace that an installed plugin declares; raises `LineError`."""
    folder, name = os.path.split(path)
    if folder != str(paths.PLUGIN_DIR) or not _FILE_NAME.fullmatch(name):
        raise LineError(f"--plugin: only files of {paths.PLUGIN_DIR} are plugins")
    try:
        descriptor = os.open(path, os.O_RDONLY | os.O_NOFOLLOW | os.O_CLOEXEC | os.O_NONBLOCK)
        with os.fdopen(descriptor, "rb") as file:
            content = file.read(_LIMIT + 1)
    except OSError as error:
        raise LineError(f"--plugin: {path}: {error.strerror}") from error
    if len(content) > _LIMIT:
        raise LineError(f"--plugin: {path}: it is longer than {_LIMIT} bytes")
    try:
        return _namespace(xml.fromstring(content))
    except (xml.ParseError, ValueError, LookupError) as error:  # LookupError: an encoding that doesn't exist
        raise LineError(f"--plugin: {path}: it is not a plugin ({error})") from error


def _namespace(root: xml.Element) -> Namespace:
    name, details = root.get("namespace", ""), root.get("details", "no")
    if root.tag != "plugin" or not _NAMESPACE.fullmatch(name) or name == "software" or details not in ("yes", "no"):
        raise ValueError("its root is wrong")
    commands = [element.get("words", "") for element in root]
    for element, words in zip(root, commands):
        if element.tag != "command" or words not in COMMANDS:
            raise ValueError(f"'{words}' is not a command")
    return Namespace(name, frozenset(commands), details == "yes")

"""Results of the task commands, in the full JSON form that the task record holds."""

from __future__ import annotations

import json
from typing import Any, Iterable, Mapping, Sequence

from orbane_stow import catalogue
from orbane_stow.composition import Composition

DAEMON = "com.orbane.ryn.keel_daemon"
_LISTS = {"INFO": "info", "WARNING": "warnings", "ERROR": "errors"}


def struct(name: str, **fields: Any) -> dict[str, Any]:
    """A structure; the fields stand in the order of its definition."""
    return {"@struct": name, **fields}


def optional(value: Any) -> dict[str, Any]:
    """An optional; None is the unset one."""
    return {"@optional": value}


def mapping(entries: Mapping[str, Any]) -> dict[str, Any]:
    """A map, in the order of the keys."""
    return {"@map": [{"key": key, "value": entries[key]} for key in sorted(entries)]}


def to_text(value: Any) -> str:
    """The JSON text of a full form."""
    return json.dumps(value, separators=(",", ":"), ensure_ascii=False)


def localizable_message(message_id: str, args: Sequence[str]) -> dict[str, Any]:
    """A message, without the text for a certain caller."""
    return struct("com.orbane.lumo.std.localizable_message", id=message_id,
                  default_message=catalogue.render(message_id, args), args=list(args), localized=optional(None))


def notifications(told: Iterable[Mapping[str, Any]]) -> dict[str, Any]:
    """The optional structure of notifications from those of `Task.told`; unset when nothing was told."""
    lists: dict[str, list[Any]] = {name: [] for name in _LISTS.values()}
    for entry in told:
        lists[_LISTS[entry["type"]]].append(struct(
            f"{DAEMON}.notification", type=optional(entry["type"]), id=entry["id"], time=entry["time"],
            message=localizable_message(entry["message"]["id"], entry["message"]["args"]), originator=optional(None)))
    if not any(lists.values()):
        return optional(None)
    return optional(struct(f"{DAEMON}.notifications",
                           **{name: optional(entries or None) for name, entries in lists.items()}))


def stage_info(composition: Composition, pulled_bytes: int, told: Iterable[Mapping[str, Any]]) -> str:
    """The result of a stage."""
    return to_text(struct(
        f"{DAEMON}.software.stage_info", base_image=composition.base.version,
        components=mapping({name: part.version for name, part in composition.components.items()}),
        solutions=mapping({name: part.version for name, part in composition.solutions.items()}),
        pulled_bytes=pulled_bytes, notifications=notifications(told)))

"""The one place that loads libostree's bindings."""

from __future__ import annotations

import gi

gi.require_version("OSTree", "1.0")
from gi.repository import Gio, GLib, OSTree  # noqa: E402  (the version must be chosen first)

__all__ = ["Gio", "GLib", "OSTree"]

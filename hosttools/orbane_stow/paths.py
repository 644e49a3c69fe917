"""Fixed paths of the host, and the one setting that the image manager has."""

from __future__ import annotations

from pathlib import Path

STATE_DIR = Path("/var/orbane/lifecycle")
TASK_DATABASE = STATE_DIR / "task-status.json.db"
GATE_FILE = STATE_DIR / "lifecycle.task"
SPEC_PREFIX = "swspec-"

LIVE_IMAGE = Path("/run/orbane/lifecycle.live-image")
PREFERENCES = Path("/etc/orbane/preferences.conf")
DEFAULT_IMAGE_ROOT = "/var/lib/orbane/sysroot"
ACCEPTANCE_FILE = Path("/var/lib/orbane/acceptance-level")
CATALOGUE_DIR = Path("/usr/lib/orbane/configmanager/locale/en")
PLUGIN_DIR = Path("/usr/lib/orbane/ryncli/int/ext")


def spec_file(task_id: str) -> Path:
    """The software spec that the daemon writes for the apply or stage task `task_id`."""
    return STATE_DIR / (SPEC_PREFIX + task_id)


def read_preference(name: str, default: str) -> str:
    """The value of `name = value` in the preferences file; `default` where file, line or value are missing.

    "#" begins a comment line, the last of several lines counts, and a value may stand in double quotes.
    """
    value = default
    try:
        text = PREFERENCES.read_text(encoding="utf-8", errors="replace")
    except OSError:
        return default
    for line in text.splitlines():
        key, separator, rest = line.partition("=")
        if not separator or key.lstrip().startswith("#") or key.strip() != name:
            continue
        rest = rest.strip()
        if len(rest) >= 2 and rest[0] == rest[-1] == '"':
            rest = rest[1:-1]
        value = rest or default
    return value


def image_root() -> Path:
    """The folder that holds the image: preference `sysroot`, which is "/" on a host that boots from its image.

    Only an absolute path counts."""
    value = read_preference("sysroot", DEFAULT_IMAGE_ROOT)
    return Path(value if value.startswith("/") else DEFAULT_IMAGE_ROOT)

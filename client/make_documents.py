#!/usr/bin/python3
"""Makes the man page and the shell completion of keelctl from its commands.

    make_documents.py --generated FOLDER --version TEXT --out FOLDER

FOLDER of --generated has the generated part of the package keeld_client.
"""

from __future__ import annotations

import argparse
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

import keeld_client  # noqa: E402  needs no generated part by itself


def main() -> int:
    """Writes keelctl.1 and keelctl (the completion has the command's name)."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--generated", type=Path, required=True)
    parser.add_argument("--version", required=True)
    parser.add_argument("--out", type=Path, required=True)
    arguments = parser.parse_args()
    keeld_client.__path__.append(str(arguments.generated / "keeld_client"))
    from keeld_client.cli import catalogue, completion, main as cli, manual

    arguments.out.mkdir(parents=True, exist_ok=True)
    commands = catalogue.all_commands()
    for name, text in (("keelctl.1", manual.page(commands, cli.EXIT_CODES, arguments.version)),
                       ("keelctl", completion.bash(commands))):
        (arguments.out / name).write_text(text, "utf-8")
    return 0


if __name__ == "__main__":
    sys.exit(main())

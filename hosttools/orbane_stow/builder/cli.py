"""The command line of keel-depot."""

from __future__ import annotations

import argparse
import json
import sys
from pathlib import Path
from typing import Sequence

from orbane_stow.builder.errors import DepotError
from orbane_stow.parts import BASE, COMPONENT, KINDS, SOLUTION, parse_ref
from orbane_stow.text import size_text

EXIT_FAILED = 1
EXIT_USAGE = 2


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(prog="keel-depot", allow_abbrev=False,
                                     description="Makes software depots from folders, checks and serves them.")
    commands = parser.add_subparsers(dest="command", required=True, metavar="COMMAND")

    def command(name: str, text: str) -> argparse.ArgumentParser:
        added = commands.add_parser(name, help=text, description=text, allow_abbrev=False)
        added.add_argument("depot", type=Path, metavar="DEPOT", help="folder of the depot")
        return added

    command("init", "Make an empty depot.")
    for kind in KINDS:
        add = command(f"add-{kind}", f"Add a {kind} from a folder with manifest.json and paks/.")
        add.add_argument("folder", type=Path, metavar="FOLDER")
        add.add_argument("--replace", action="store_true", help="overwrite a version that is there already")
        add.set_defaults(kind=kind)
    remove = command("remove", "Remove a part.")
    remove.add_argument("part", metavar="PART", help="KIND/NAME/VERSION, as list prints it")
    listing = command("list", "List what the depot holds.")
    listing.add_argument("--json", action="store_true", help="as a JSON array with all details")
    command("verify", "Check every object of the depot.")
    serve = command("serve", "Serve the depot by HTTP on 127.0.0.1 until interrupted.")
    serve.add_argument("--port", type=int, default=0, help="0, the default, takes a free one")
    sample = commands.add_parser("sample", help="Make two sample depots.", allow_abbrev=False,
                                 description="Make the sample depots main and extras, and software specs for them.")
    sample.add_argument("folder", type=Path, metavar="FOLDER")
    return parser


def main(arguments: Sequence[str]) -> int:
    """Runs one command; returns the exit status: 0 done, 1 failed, 2 the command line is not understood."""
    options = _parser().parse_args(arguments)
    try:
        return _COMMANDS[options.command](options)
    except DepotError as error:
        print(f"keel-depot: {error}", file=sys.stderr)
        return EXIT_FAILED
    except OSError as error:
        print(f"keel-depot: {error.filename or options.command}: {error.strerror}", file=sys.stderr)
        return EXIT_FAILED
    except KeyboardInterrupt:
        return 130


def _open(options: argparse.Namespace):  # type: ignore[no-untyped-def]
    from orbane_stow.builder.depot import LocalDepot

    depot = LocalDepot(options.depot)
    depot.open()
    return depot


def _init(options: argparse.Namespace) -> int:
    from orbane_stow.builder.depot import LocalDepot

    LocalDepot(options.depot).create()
    return 0


def _add(options: argparse.Namespace) -> int:
    from orbane_stow.builder.manifest import read_folder

    folder = read_folder(options.kind, options.folder)
    commit = _open(options).add(folder, options.replace)
    print(f"{folder.part.ref} {commit}")
    return 0


def _remove(options: argparse.Namespace) -> int:
    if parse_ref(options.part) is None:
        raise DepotError(f"'{options.part}' is not KIND/NAME/VERSION")
    _open(options).remove(options.part)
    return 0


def _list(options: argparse.Namespace) -> int:
    offers = _open(options).offers()
    if options.json:
        print(json.dumps([offer.part.describe() for offer in offers], indent=2, ensure_ascii=False))
        return 0
    for offer in offers:
        size = size_text(sum(pak.size for pak in offer.part.paks))
        print(f"{offer.part.ref:44} {size:>10}  {offer.part.impact:16}  {offer.part.display_name}")
    return 0


def _verify(options: argparse.Namespace) -> int:
    found = _open(options).verify()
    for line in found:
        print(f"keel-depot: {line}", file=sys.stderr)
    return EXIT_FAILED if found else 0


def _serve(options: argparse.Namespace) -> int:
    from orbane_stow.builder.serve import DepotServer

    _open(options)
    server = DepotServer(options.depot, options.port)
    print(server.url, flush=True)
    server.serve()
    return 0


def _sample(options: argparse.Namespace) -> int:
    from orbane_stow.builder.sample import make_sample

    for name, path in make_sample(options.folder).items():
        print(f"{name:8} file://{path.resolve()}")
    print(f"{'specs':8} {options.folder.resolve() / 'specs'}")
    return 0


_COMMANDS = {"init": _init, "remove": _remove, "list": _list, "verify": _verify, "serve": _serve, "sample": _sample,
             f"add-{BASE}": _add, f"add-{COMPONENT}": _add, f"add-{SOLUTION}": _add}

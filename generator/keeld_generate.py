#!/usr/bin/python3
"""Makes what follows from the interface definition: C++ bindings, metadata files, client models, documents.

keeld_generate.py --list  DEFINITION...          prints the file names, one a line, and writes nothing
keeld_generate.py --out FOLDER DEFINITION...     writes the files that differ
"""

from __future__ import annotations

import argparse
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

from keeldgen import cpp, documents, loader, metadata, python_models, writer  # noqa: E402
from keeldgen.yaml_nodes import DefinitionError  # noqa: E402

OUTPUTS = {"cpp": cpp, "documents": documents, "metadata": metadata, "python": python_models}


def main(arguments: list[str]) -> int:
    """Runs the generator and returns the exit status: 0 done, 1 a fault in the definition."""
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("definition", nargs="+", type=Path, help="folder of YAML files")
    parser.add_argument("--import", dest="imports", action="append", default=[], type=Path,
                        help="folder of YAML files that may be referred to")
    parser.add_argument("--only", action="append", choices=sorted(OUTPUTS), help="make only these outputs")
    parser.add_argument("--list", action="store_true", help="print the names of the files")
    parser.add_argument("--verbose", action="store_true", help="print the names of the files that differed")
    parser.add_argument("--out", type=Path, help="folder for the files")
    options = parser.parse_args(arguments)
    if not options.list and options.out is None:
        parser.error("--list or --out is wanted")
    try:
        definition = loader.load(options.definition, options.imports)
    except DefinitionError as error:
        print(error, file=sys.stderr)
        return 1
    outputs = [OUTPUTS[name] for name in sorted(options.only or OUTPUTS)]
    if options.list:
        print("\n".join(name for output in outputs for name in output.file_names(definition)))
        return 0
    files: dict[str, str] = {}
    for output in outputs:
        files.update(output.render(definition))
    changed = writer.write_changed(options.out, files)
    if options.verbose:
        print("\n".join(changed))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

"""The README's tour by hand: its call by curl works as it is written."""

from __future__ import annotations

import json
import pathlib
import re
import subprocess

from harness.daemon import Daemon

README = pathlib.Path(__file__).resolve().parent.parent.parent / "README.md"
TICKETS = pathlib.Path("/run/orbane/tickets")


def test_the_call_by_curl(daemon: Daemon) -> None:
    blocks = re.findall(r"^```sh\n(.*?)^```$", README.read_text(), re.DOTALL | re.MULTILINE)
    (script,) = [block for block in blocks if block.startswith("call() {")]
    result = subprocess.run(["/bin/bash", "-c", script], capture_output=True, text=True, check=True)
    assert json.loads(result.stdout) == {"jsonrpc": "2.0", "id": 1, "result": {}}
    assert result.stderr == ""
    assert list(TICKETS.iterdir()) == []

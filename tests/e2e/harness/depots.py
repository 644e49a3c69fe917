"""Sample depots, made by the depot builder once a test file, and HTTP servers for them that can be made to stall."""

from __future__ import annotations

import functools
import http.server
import json
import pathlib
import shutil
import subprocess
import threading
from typing import Any

from harness.waiting import PATIENCE


class _Handler(http.server.SimpleHTTPRequestHandler):
    """Serves a folder; a request whose path holds `server.stall_at` waits for `server.release`."""

    protocol_version = "HTTP/1.1"

    def do_GET(self) -> None:
        server = self.server
        assert isinstance(server, DepotServer)
        if server.stall_at and server.stall_at in self.path:
            server.stalled.set()
            server.released.wait(PATIENCE)
        try:
            super().do_GET()
        except ConnectionError:  # the client was stopped while it waited
            self.close_connection = True

    def log_message(self, *_: object) -> None:
        """Keeps quiet."""


class DepotServer(http.server.ThreadingHTTPServer):
    """Serves the folder of one depot on the loopback device, in a thread of its own."""

    daemon_threads = True

    def __init__(self, folder: pathlib.Path, stall_at: str = "", port: int = 0) -> None:
        """Port 0 takes a free one."""
        super().__init__(("127.0.0.1", port), functools.partial(_Handler, directory=str(folder)))
        self.stall_at = stall_at
        self.stalled = threading.Event()
        self.released = threading.Event()
        threading.Thread(target=self.serve_forever, kwargs={"poll_interval": 0.02}, daemon=True).start()

    @property
    def url(self) -> str:
        """The depot's address."""
        return f"http://127.0.0.1:{self.server_port}"

    def handle_error(self, request: object, client_address: object) -> None:
        """Clients may vanish."""

    def close(self) -> None:
        """Lets stalled requests go and stops."""
        self.released.set()
        self.shutdown()
        self.server_close()


class Depots:
    """The sample depots: "main" has the base images, "extras" other components."""

    def __init__(self, root: pathlib.Path) -> None:
        """Makes them below `root`, which has to be empty."""
        subprocess.run(["/usr/bin/keel-depot", "sample", str(root)], check=True, capture_output=True)
        self.root = root
        self.main = root / "main"
        self.extras = root / "extras"

    def spec(self, name: str) -> dict[str, Any]:
        """The sample software spec "first", "second" or "patched"."""
        return json.loads((self.root / "specs" / f"{name}.json").read_text())

    @property
    def urls(self) -> list[str]:
        """Both depots by way of the file system."""
        return [f"file://{self.main}", f"file://{self.extras}"]


def copy_of(depot: pathlib.Path, target: pathlib.Path) -> pathlib.Path:
    """A copy that a test may damage."""
    shutil.copytree(depot, target, symlinks=True)
    return target

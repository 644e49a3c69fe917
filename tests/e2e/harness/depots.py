"""Sample depots, made by the depot builder, and a small HTTP server for them."""

from __future__ import annotations

import functools
import http.server
import pathlib
import subprocess
import threading


class _QuietHandler(http.server.SimpleHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *_: object) -> None:
        """Keeps quiet."""


class Depots:
    """The folder `root` with the depots that `keel-depot sample` makes, made at the first use."""

    def __init__(self, root: pathlib.Path) -> None:
        self.root = root
        self._server: http.server.ThreadingHTTPServer | None = None

    def path(self, name: str) -> pathlib.Path:
        """The folder of the depot `name`."""
        if not self.root.exists():
            subprocess.run(["/usr/bin/keel-depot", "sample", str(self.root)], check=True, capture_output=True)
        found = self.root / name
        assert found.is_dir(), f"no depot {name} among {sorted(path.name for path in self.root.iterdir())}"
        return found

    def file_url(self, name: str) -> str:
        """A URL of the depot by way of the file system."""
        return f"file://{self.path(name)}"

    def http_url(self, name: str) -> str:
        """A URL of the depot by way of an HTTP server on the loopback device."""
        self.path(name)
        if self._server is None:
            handler = functools.partial(_QuietHandler, directory=str(self.root))
            self._server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
            threading.Thread(target=self._server.serve_forever, daemon=True).start()
        return f"http://127.0.0.1:{self._server.server_port}/{name}"

    def close(self) -> None:
        """Stops the HTTP server."""
        if self._server is not None:
            self._server.shutdown()
            self._server.server_close()
            self._server = None

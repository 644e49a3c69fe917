"""A small HTTP server for a depot on loopback, for trials and tests."""

from __future__ import annotations

import functools
import http.server
import threading
from pathlib import Path


class _Handler(http.server.SimpleHTTPRequestHandler):
    protocol_version = "HTTP/1.1"  # keep-alive: a pull asks for thousands of small files
    disable_nagle_algorithm = True

    def log_message(self, format: str, *args: object) -> None:
        """Says nothing: standard error belongs to the caller."""


class _Server(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def handle_error(self, request: object, client_address: object) -> None:
        """A client may break off at any time."""


class DepotServer:
    """Serves one folder. `url` is the depot's address. Usable as a context manager, with a thread of its own."""

    def __init__(self, folder: Path, port: int = 0, address: str = "127.0.0.1") -> None:
        handler = functools.partial(_Handler, directory=str(folder))
        self._server = _Server((address, port), handler)
        self._thread: threading.Thread | None = None
        self.url = f"http://{address}:{self._server.server_port}"

    def serve(self) -> None:
        """Serves until the process ends or `stop` is called from another thread."""
        self._server.serve_forever(poll_interval=0.1)

    def stop(self) -> None:
        """Stops serving and closes the port."""
        self._server.shutdown()
        self._server.server_close()

    def __enter__(self) -> DepotServer:
        self._thread = threading.Thread(target=self.serve, name="depot-server", daemon=True)
        self._thread.start()
        return self

    def __exit__(self, *_exception: object) -> None:
        self.stop()

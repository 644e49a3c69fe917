"""A depot server that stops answering when the test wants it to."""

from __future__ import annotations

import functools
import http.server
import threading
from pathlib import Path


class Stalling(http.server.SimpleHTTPRequestHandler):
    """Serves a depot, and after `server.allowed` files of the kind `server.stall_at` keeps quiet until
    `server.released`."""

    protocol_version = "HTTP/1.1"

    def do_GET(self) -> None:
        server = self.server
        assert isinstance(server, StallingServer)
        if self.path.endswith(server.stall_at):
            server.asked.append(self.path)
            if len(server.asked) > server.allowed:
                server.stalled.set()
                server.released.wait(60)
        try:
            super().do_GET()
        except ConnectionError:
            self.close_connection = True

    def log_message(self, *_: object) -> None:
        """Says nothing."""


class StallingServer(http.server.ThreadingHTTPServer):
    """See `Stalling`; `stall_at` is the end of the files' names, `asked` are the paths of those asked for."""

    daemon_threads = True

    def __init__(self, folder: Path, allowed: int, stall_at: str = ".filez") -> None:
        super().__init__(("127.0.0.1", 0), functools.partial(Stalling, directory=str(folder)))
        self.allowed = allowed
        self.stall_at = stall_at
        self.asked: list[str] = []
        self.stalled, self.released = threading.Event(), threading.Event()
        self.url = f"http://127.0.0.1:{self.server_port}"
        threading.Thread(target=self.serve_forever, kwargs={"poll_interval": 0.02}, daemon=True).start()

    def handle_error(self, request: object, client_address: object) -> None:
        """A client may vanish."""

    def __exit__(self, *exception: object) -> None:
        self.released.set()
        self.shutdown()
        super().__exit__(*exception)

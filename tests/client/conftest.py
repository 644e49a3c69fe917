"""A daemon of the test's own: answers JSON-RPC from a table and remembers what it was asked."""

from __future__ import annotations

import http.server
import json
import os
import sys
import threading
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("KEELD_BUILD", ROOT / "build/dev"))
sys.path.insert(0, str(ROOT / "client"))

import keeld_client  # noqa: E402

keeld_client.__path__.append(str(BUILD / "generated/python/keeld_client"))  # the tables made from the definition

from keeld_client import tickets  # noqa: E402

Answer = Callable[[dict[str, Any]], Any]


class FakeDaemon:
    """`answers` maps a method to its result, to a function of the params, or to a Fault."""

    def __init__(self) -> None:
        self.answers: dict[str, Any] = {}
        self.calls: list[tuple[str, dict[str, Any]]] = []
        self.headers: list[dict[str, str]] = []
        self.on_request: Callable[[], None] = lambda: None
        self.raw: bytes | None = None
        self.close_after_answer = False
        self.connections = 0
        daemon = self

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def setup(self) -> None:
                daemon.connections += 1
                super().setup()

            def log_message(self, *_args: object) -> None:
                pass

            def do_POST(self) -> None:
                request = json.loads(self.rfile.read(int(self.headers["Content-Length"])))
                daemon.calls.append((request["method"], request.get("params", {})))
                daemon.headers.append({k.lower(): v for k, v in self.headers.items()})
                daemon.on_request()
                if daemon.raw is not None:
                    self.wfile.write(daemon.raw)
                    self.close_connection = True
                    return
                answer = daemon.answers[request["method"]]
                if callable(answer):
                    answer = answer(request.get("params", {}))
                envelope: dict[str, Any] = {"jsonrpc": "2.0", "id": request["id"]}
                extra = b""
                if isinstance(answer, Fault):
                    envelope["error"] = {"code": answer.code, "message": answer.text,
                                         "data": {"messages": answer.messages}}
                    extra = f"lumo-error: com.orbane.lumo.std.errors.{answer.kind}\r\n".encode()
                else:
                    envelope["result"] = answer
                body = json.dumps(envelope).encode()
                self.wfile.write(b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nConnection: Keep-Alive\r\n" + extra +
                                 b"\r\n%x\r\n%s\r\n0\r\n\r\n" % (len(body), body))
                self.wfile.flush()
                if daemon.close_after_answer:
                    self.close_connection = True

        self._server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self._server.daemon_threads = True
        self.port = self._server.server_address[1]
        self._thread = threading.Thread(target=self._server.serve_forever, kwargs={"poll_interval": 0.01})
        self._thread.start()

    def stop(self) -> None:
        self._server.shutdown()
        self._server.server_close()
        self._thread.join()


class Fault:
    """An error answer, without a text one without messages."""

    def __init__(self, kind: str, text: str = "", message_id: str = "", code: int = -32000) -> None:
        self.kind, self.text, self.code = kind, text, code
        self.messages = [{"id": message_id, "default_message": text, "args": []}] if text else []


@pytest.fixture
def daemon() -> Iterator[FakeDaemon]:
    fake = FakeDaemon()
    yield fake
    fake.stop()


@pytest.fixture(autouse=True)
def ticket_folder(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    """The folder of tickets, a test's own; neither it nor the one above is there at first."""
    folder = tmp_path / "orbane" / "tickets"
    monkeypatch.setattr(tickets, "FOLDER", str(folder))
    return folder


@pytest.fixture(autouse=True)
def no_secrets_in_the_environment(monkeypatch: pytest.MonkeyPatch) -> None:
    for name in ("KEELD_PASSWORD", "KEELD_TOKEN"):
        monkeypatch.delenv(name, raising=False)

"""The wire as a test sees it: plain HTTP and JSON, without the project's own client library."""

from __future__ import annotations

import base64
import http.client
import json
import socket
from dataclasses import dataclass, field
from typing import Any

from harness.waiting import wait_for

HOST = "127.0.0.1"
PORT = 7433

SOFTWARE = "com.orbane.ryn.keel_daemon.software"
TASKS = "com.orbane.halo.tasks"
CLEAN_JSON = "application/vnd.orbane.lumo.cleanjson"  # answers without annotations


def basic(user: str | bytes, password: str | bytes) -> str:
    """The Authorization header's value for a user's password."""
    both = b":".join(text.encode() if isinstance(text, str) else text for text in (user, password))
    return "Basic " + base64.b64encode(both).decode()


USER, PASSWORD = "operator", "correct horse"  # an account of the sandbox
AUTHORIZATION = basic(USER, PASSWORD)
FINISHED = ("SUCCEEDED", "FAILED")


class ApiError(Exception):
    """An answer with an `error` member."""

    def __init__(self, error: dict[str, Any]) -> None:
        super().__init__(json.dumps(error))
        self.code: int = error.get("code", 0)
        self.message: str = error.get("message", "")
        self.data: dict[str, Any] = error.get("data") or {}

    @property
    def message_ids(self) -> list[str]:
        """The ids of the messages in the error value."""
        return [message["id"] for message in self.data.get("messages", [])]

    @property
    def kind(self) -> str:
        """`error_type` of the error value, "" where there is none."""
        return str(self.data.get("error_type", ""))


@dataclass
class Reply:
    """One HTTP answer."""

    status: int
    headers: dict[str, str]  # names in lower case
    body: bytes

    def json(self) -> Any:
        """The body as JSON."""
        return json.loads(self.body)


@dataclass
class Rpc:
    """Calls operations as the user operator, each over a connection of its own; with empty `headers` as nobody."""

    host: str = HOST
    port: int = PORT
    timeout: float = 60.0
    headers: dict[str, str] = field(default_factory=lambda: {"Authorization": AUTHORIZATION})

    def post(self, body: bytes | str, **headers: str) -> Reply:
        """Posts `body`; header names are given with `_` for `-`."""
        sent = {"Content-Type": "application/json", "Accept": CLEAN_JSON, **self.headers,
                **{name.replace("_", "-"): value for name, value in headers.items()}}
        connection = http.client.HTTPConnection(self.host, self.port, timeout=self.timeout)
        try:
            connection.request("POST", "/", body, sent)
            response = connection.getresponse()
            return Reply(response.status, {name.lower(): value for name, value in response.getheaders()}, response.read())
        finally:
            connection.close()

    def request(self, method: str, params: dict[str, Any] | None = None, **headers: str) -> Reply:
        """Posts a JSON-RPC 2.0 call."""
        call: dict[str, Any] = {"jsonrpc": "2.0", "id": 1, "method": method}
        if params is not None:
            call["params"] = params
        return self.post(json.dumps(call), **headers)

    def __call__(self, method: str, params: dict[str, Any] | None = None, **headers: str) -> Any:
        """Calls an operation and returns its result; raises ApiError."""
        reply = self.request(method, params, **headers)
        answer = reply.json()
        assert reply.status == 200, reply
        assert answer["jsonrpc"] == "2.0" and answer["id"] == 1, answer
        if "error" in answer:
            raise ApiError(answer["error"])
        return answer["result"]

    def task(self, task_id: str) -> dict[str, Any]:
        """The task record as the task service tells it."""
        return self(f"{TASKS}.get", {"task": task_id})

    def finished(self, task_id: str) -> dict[str, Any]:
        """Waits for the end of a task and returns its record."""
        def ended() -> dict[str, Any] | None:
            record = self.task(task_id)
            return record if record["status"] in FINISHED else None

        return wait_for(ended, f"the end of task {task_id}")

    def start(self, operation: str, spec: dict[str, Any], depots: list[str], **more: Any) -> str:
        """Starts `scan`, `stage` or `apply` and returns the task's id."""
        return self(f"{SOFTWARE}.{operation}", {"software_spec": spec, "depots": depots, **more})

    def tasks(self) -> dict[str, dict[str, Any]]:
        """All task records by id."""
        return self(f"{TASKS}.list")


def connect(host: str = HOST, port: int = PORT, timeout: float = 60.0) -> socket.socket:
    """A raw connection."""
    return socket.create_connection((host, port), timeout=timeout)


def is_listening(host: str = HOST, port: int = PORT) -> bool:
    """True if something takes connections there."""
    try:
        connect(host, port, 5.0).close()
    except OSError:
        return False
    return True

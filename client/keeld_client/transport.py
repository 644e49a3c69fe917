"""JSON-RPC 2.0 over one kept HTTP connection to the daemon on this host."""

from __future__ import annotations

import http.client
import itertools
import json
import socket
from typing import Any

from .credentials import Credentials
from .errors import ApiError, ProtocolError, UnreachableError
from .listener import distrust, listeners

SERVICE = "keeld"
DEFAULT_PORT = 7433
HOSTS = ("127.0.0.1", "::1")
DIRECT_JSON = "application/vnd.orbane.lumo.cleanjson"


def service_port() -> int:
    """The daemon's port: the "keeld" entry of the services database, else the usual number."""
    try:
        return socket.getservbyname(SERVICE, "tcp")
    except OSError:
        return DEFAULT_PORT


class Transport:
    """Sends calls one after another over one connection, which is opened on first use and again after a fault.

    Not for use by several threads at once. `timeout` is the longest silence of the daemon, in seconds; None waits
    for ever (the daemon may block while a foreground command runs). `credentials` are asked anew for each request.
    """

    def __init__(self, host: str | None = None, port: int | None = None, timeout: float | None = 120.0,
                 language: str | None = None, operation_id: str | None = None,
                 credentials: Credentials | None = None) -> None:
        self.credentials = credentials or Credentials()
        self._hosts = (host,) if host else HOSTS
        self.port = port or service_port()
        self._timeout = timeout
        self._ids = itertools.count(1)
        self._connection: http.client.HTTPConnection | None = None
        self._headers = {"Content-Type": "application/json", "Accept": DIRECT_JSON}
        if language:
            self._headers["accept-language"] = language
        if operation_id:
            self._headers["lumo-ctx-opid"] = operation_id

    def close(self) -> None:
        """Closes the connection; the next call opens a new one."""
        if self._connection is not None:
            self._connection.close()
            self._connection = None

    def _connect(self) -> http.client.HTTPConnection:
        failure: OSError | None = None
        for host in self._hosts:
            connection = http.client.HTTPConnection(host, self.port, timeout=self._timeout)
            before = listeners(self.port)
            try:
                connection.connect()
            except OSError as error:
                failure = error
                connection.close()
                continue
            reason = distrust(connection.sock.getpeername()[0], before, listeners(self.port))
            if reason is None or self.credentials.anonymous:
                return connection
            connection.close()
            raise UnreachableError(f"no credentials are sent to {host} port {self.port}: {reason}")
        raise UnreachableError(f"cannot reach keeld on port {self.port}: {failure}; is the service running?")

    def _exchange(self, body: bytes, repeatable: bool) -> tuple[int, str, bytes]:
        """One request and its whole answer: status, the lumo-error header, body.

        A kept connection that the daemon has closed meanwhile is opened anew once, for a `repeatable` call only: of
        any other nobody knows whether it was carried out.
        """
        fresh = self._connection is None
        if self._connection is None:
            self._connection = self._connect()
        connection = self._connection
        try:
            with self.credentials.for_request() as authorization:
                headers = {**self._headers, "Authorization": authorization} if authorization else self._headers
                connection.request("POST", "/", body, headers)
                response = connection.getresponse()
                payload = response.read()
        except (http.client.RemoteDisconnected, BrokenPipeError, ConnectionResetError) as error:
            self.close()
            if fresh or not repeatable:
                raise UnreachableError(f"keeld closed the connection without an answer: {error}") from error
            return self._exchange(body, False)
        except TimeoutError as error:
            self.close()
            raise UnreachableError(f"keeld did not answer within {self._timeout:g} seconds") from error
        except (OSError, http.client.HTTPException) as error:
            self.close()
            raise UnreachableError(f"the connection to keeld broke: {error}") from error
        if response.will_close:
            self.close()
        return response.status, response.getheader("lumo-error") or "", payload

    def call(self, method: str, params: dict[str, Any] | None = None) -> Any:
        """Calls `method` ("service.operation") and returns its result in the direct JSON form.

        Raises ApiError for an error answer, UnreachableError, ProtocolError, and CredentialsError before anything is sent.
        """
        request: dict[str, Any] = {"jsonrpc": "2.0", "id": next(self._ids), "method": method}
        if params:
            request["params"] = params
        status, identifier, payload = self._exchange(json.dumps(request).encode(), method.endswith((".get", ".list")))
        try:
            answer = json.loads(payload)
        except ValueError as error:
            raise ProtocolError(f"keeld answered with status {status} and no JSON document") from error
        if not isinstance(answer, dict):
            raise ProtocolError("keeld answered with something else than an object")
        fault = answer.get("error")
        if isinstance(fault, dict):
            raise ApiError(identifier, int(fault.get("code", 0)), str(fault.get("message", "")), fault.get("data"))
        if status != 200 or answer.get("id") != request["id"]:
            raise ProtocolError(f"keeld answered with status {status} to another request than the one sent")
        return answer.get("result")

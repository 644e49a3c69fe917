"""Typed client of keeld, the host's lifecycle service.

    from keeld_client import Client, RootTickets, software_spec
    with Client(credentials=RootTickets()) as keeld:
        task = keeld.wait(keeld.apply(software_spec("1.1.0"), ["file:///srv/depot"]))
"""

from .client import Client, software_spec
from .credentials import Credentials, Password, RootTickets, Token
from .errors import ApiError, CredentialsError, KeeldError, ProtocolError, TaskFailedError, UnreachableError
from .tasks import Notification, Task
from .transport import Transport

__all__ = ["ApiError", "Client", "Credentials", "CredentialsError", "KeeldError", "Notification", "Password",
           "ProtocolError", "RootTickets", "Task", "TaskFailedError", "Token", "Transport", "UnreachableError",
           "software_spec"]

"""Typed client of keeld, the host's lifecycle service.

    from keeld_client import Client, software_spec
    with Client() as keeld:
        task = keeld.wait(keeld.apply(software_spec("1.1.0"), ["file:///srv/depot"]))
"""

from .client import Client, software_spec
from .errors import ApiError, KeeldError, ProtocolError, TaskFailedError, UnreachableError
from .tasks import Notification, Task
from .transport import Transport

__all__ = ["ApiError", "Client", "KeeldError", "Notification", "ProtocolError", "Task", "TaskFailedError",
           "Transport", "UnreachableError", "software_spec"]

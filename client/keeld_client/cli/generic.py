"""Commands made from the interface definition alone, for operations that have no front of their own."""

from __future__ import annotations

import argparse
from typing import Any

from .._generated import Operation, Parameter
from ..client import Client
from . import line, tasks, values
from .command import CALLING, COMMON, Command, Option
from .depots import check_depots
from .output import print_json, print_value

NO_WAIT = Option("--no-wait", "print the task's id and return at once")
WAIT = Option("--wait", "stand in line behind a running operation")
_TAKEN = {name for option in (*COMMON, *CALLING, NO_WAIT, WAIT) for name in option.names} | {"--help"}


def command_of(operation: Operation) -> Command:
    """The command of an operation: an option a parameter, and for a task whether to wait for it."""
    options = tuple(_option(parameter) for parameter in operation.parameters)
    waiting = (NO_WAIT, WAIT) if operation.task else ()
    return Command(operation.command, operation.doc, options + waiting, run, operation)


def _option(parameter: Parameter) -> Option:
    name = "--" + parameter.name.replace("_", "-")
    if name in _TAKEN:
        name += "-value"
    return values.option_of(parameter, name, _target(parameter))


def _target(parameter: Parameter) -> str:
    return f"parameter_{parameter.name}"


def parameters_of(operation: Operation, arguments: argparse.Namespace) -> dict[str, Any]:
    """The parameters to send. Raises UsageError."""
    found = {parameter.name: values.parameter_value(parameter, getattr(arguments, _target(parameter)))
             for parameter in operation.parameters}
    depots = found.get("depots")
    if isinstance(depots, list):
        check_depots(depot for depot in depots if isinstance(depot, str))
    return {name: value for name, value in found.items() if value is not None}


def run(client: Client, arguments: argparse.Namespace) -> int:
    """Calls the operation of the command, and follows the task that it may start."""
    operation: Operation = arguments.command.operation
    parameters = parameters_of(operation, arguments)

    def call() -> Any:
        return client.call(operation.identifier, parameters)

    if not operation.task:
        result = call()
        print_json(result) if arguments.json else print_value(result)
        return 0
    task_id = str(line.stand_in_line(client, call) if arguments.wait else call())
    return tasks.finish(client, task_id, arguments, operation.command[-1], lambda task: print_value(task.result))

"""The host's image manager: depots, the image root, and the commands of stowctl.

Modules that need libostree load it when they are imported; the command line, the task record and the gate
(`cli`, `task_run`, `gate`, `errors`, `paths`) do not, so that a task is taken over within milliseconds.
"""

"""What the end-to-end tests share: the daemon as a process, the wire, the system log, stand-in tools, depots."""

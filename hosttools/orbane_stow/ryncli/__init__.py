"""The administration tools `ryncli` and `nearcli`: software commands for people and for the daemon, answered in XML."""

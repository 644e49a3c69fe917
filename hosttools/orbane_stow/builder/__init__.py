"""Makes, checks and serves depots (the command keel-depot)."""

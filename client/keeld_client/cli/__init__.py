"""keelctl, the command line client."""

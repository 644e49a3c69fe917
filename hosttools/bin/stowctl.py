#!/usr/bin/python3
"""Entry point of the image manager; see orbane_stow.cli for its commands."""

import signal
import sys

# Before anything that takes time: a signal in between would end the task without a trace of why.
signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT})

sys.path.insert(0, "/usr/lib/orbane/python")

from orbane_stow.cli import main  # noqa: E402

if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

"""Small disks that a test can fill."""

from __future__ import annotations

import os
import pathlib
import subprocess


class SmallDisk:
    """A file system in memory of `size` bytes, mounted at `place` until `close`."""

    def __init__(self, place: pathlib.Path, size: int) -> None:
        self._place = place
        place.mkdir(parents=True, exist_ok=True)
        subprocess.run(["/bin/mount", "-t", "tmpfs", "-o", f"size={size},mode=755", "tmpfs", str(place)], check=True)

    def fill(self, leave: int = 0) -> None:
        """Takes all room but `leave` bytes."""
        status = os.statvfs(self._place)
        free = status.f_bavail * status.f_frsize - leave
        with (self._place / "filling").open("ab") as file:
            try:
                file.write(bytes(max(free, 0)))
                file.flush()
            except OSError:
                pass

    def empty(self) -> None:
        """Gives the room back."""
        (self._place / "filling").unlink(missing_ok=True)

    def close(self) -> None:
        """Takes the disk away, also while files on it are open."""
        subprocess.run(["/bin/umount", "-l", str(self._place)], check=True)

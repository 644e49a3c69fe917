"""An apply that is cut at system calls all over its course: the image stays whole, and the next apply succeeds."""

from __future__ import annotations

import shutil
import subprocess
from pathlib import Path

import pytest
from orbane_taskdb import TaskInfo
from support import IMAGE_ROOT, STOWCTL, Host, TinyDepot, check_whole, deployments, hello, spec

pytestmark = pytest.mark.skipif(shutil.which("strace") is None, reason="strace is not installed")
_FOLDER_CALLS = "rename,renameat,renameat2,link,linkat,symlink,symlinkat,mkdir,mkdirat,unlink,unlinkat,ftruncate"
_OBJECT_CALLS = "renameat,renameat2,linkat,symlinkat,mkdirat"  # those that libostree makes, and no other of the tool


class Traced:
    """Applies version 2 again and again to the same image of version 1, with a fault at a system call."""

    def __init__(self, host: Host, depot: TinyDepot, calls: str) -> None:
        self._host, self._depot, self._calls = host, depot, calls
        self._saved = IMAGE_ROOT.with_name("saved")
        host.succeed("apply", spec("1"), [depot.url])
        subprocess.run(["cp", "-a", str(IMAGE_ROOT), str(self._saved)], check=True)
        self._log = Path("/run/strace.log")
        assert self.apply("").status == "SUCCEEDED"
        self.count = len(self._log.read_text().splitlines())

    def restore(self) -> None:
        """The image of version 1."""
        shutil.rmtree(IMAGE_ROOT)
        subprocess.run(["cp", "-a", str(self._saved), str(IMAGE_ROOT)], check=True)

    def apply(self, fault: str) -> TaskInfo:
        """Applies with `fault`, as strace's "inject" has it; returns the record."""
        self._log.unlink(missing_ok=True)
        inject = ["-e", f"inject={self._calls}:{fault}"] if fault else []
        task, path = self._host.prepare("apply", spec("2", {"alpha": "2"}))
        words = [STOWCTL, *self._host.words("apply", task, path, [self._depot.url])]
        process = self._host.launch(words, ["strace", "-f", "-qq", "-o", str(self._log), "-e", f"trace={self._calls}", *inject])
        return self._host.end(task, process)

    def check_next(self) -> None:
        """Nothing of the fault hinders the next apply."""
        for tree in deployments():
            check_whole(tree)
        self._host.succeed("apply", spec("2", {"alpha": "2"}), [self._depot.url])
        assert hello() == ["base 2"]
        check_whole(deployments()[0])


def test_death_at_system_calls_all_over_an_apply(host: Host, depot: TinyDepot) -> None:
    """Kills the tool at the Nth call that changes a folder, for N spread over a whole apply."""
    traced = Traced(host, depot, _FOLDER_CALLS)
    assert traced.count > 60
    outcomes = set()
    for number in range(3, traced.count, max(1, traced.count // 24)):
        traced.restore()
        traced.apply(f"signal=KILL:when={number}")
        outcomes.add(hello()[0])
        traced.check_next()
    assert outcomes == {"base 1", "base 2"}


def test_no_room_from_some_call_on(host: Host, depot: TinyDepot) -> None:
    """The disk is full from the Nth call on that makes something in the image root."""
    traced = Traced(host, depot, _OBJECT_CALLS)
    assert traced.count > 40
    outcomes = set()
    for number in range(1, traced.count + 1, max(1, traced.count // 20)):
        traced.restore()
        record = traced.apply(f"error=ENOSPC:when={number}+")
        assert record.status == "SUCCEEDED" or record.error_id.endswith("image.space.error"), (number, record.error_id, record.error_args)
        if record.status == "FAILED":
            assert hello() == ["base 1"]
        outcomes.add(record.status)
        traced.check_next()
    assert "FAILED" in outcomes

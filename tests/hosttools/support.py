"""What the tests of the host tools share: a host whose tasks are started as the daemon starts them, and small depots."""

from __future__ import annotations

import json
import subprocess
import sys
import time
import uuid
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import Any

from orbane_stow.builder.depot import LocalDepot
from orbane_stow.builder.manifest import read_folder
from orbane_stow.depot import Offer
from orbane_taskdb import TaskInfo, TaskManager

STOWCTL = "/usr/lib/orbane/lifecycle/bin/stowctl.py"
STATE = Path("/var/orbane/lifecycle")
GATE = STATE / "lifecycle.task"
DATABASE = STATE / "task-status.json.db"
SCAN_SPEC = Path("/var/run/lifecycle.scan.swspec")
IMAGE_ROOT = Path("/var/lib/orbane/sysroot")
DEPLOYMENTS = IMAGE_ROOT / "ostree/deploy/orbane/deploy"
PATIENCE_SECONDS = 60.0


def wait_for(condition: Callable[[], Any], what: str) -> Any:
    """Returns the first true value of `condition`."""
    deadline = time.monotonic() + PATIENCE_SECONDS
    while time.monotonic() < deadline:
        value = condition()
        if value:
            return value
        time.sleep(0.002)
    raise AssertionError(f"waited in vain for {what}")


def spec(base: str = "", components: dict[str, str] | None = None, **more: Any) -> dict[str, Any]:
    """A software spec."""
    return {"base_image": {"version": base}, "components": components or {}, **more}


class Host:
    """Starts tasks as the daemon does: gate, record, spec file, then the tool."""

    running: list[subprocess.Popen[bytes]] = []

    def __init__(self) -> None:
        self.database = TaskManager(str(DATABASE))
        self.database.init()
        self.record: TaskInfo | None = None  # of the last task that ended

    def prepare(self, verb: str, wanted: Any) -> tuple[str, Path]:
        """Gate, record and spec file of a new task; returns its id and the spec file."""
        task = str(uuid.uuid4())
        GATE.write_text(f"PRECURSOR: {task}")
        self.database.create_task(task)
        path = SCAN_SPEC if verb == "scan" else STATE / f"swspec-{task}"
        path.write_text(wanted if isinstance(wanted, str) else json.dumps(wanted))
        return task, path

    @staticmethod
    def words(verb: str, task: str, path: Path, depots: Sequence[str], *more: str) -> list[str]:
        """The words behind the tool's path, as the daemon writes them."""
        urls = [word for url in depots for word in ("--depot", url)]
        if verb == "scan":
            return ["software", "--scan", "--software-spec", str(path), *urls, "--task-id", task, *more]
        return ["software", f"--{verb}", "--task-id", task, *urls, "--software-spec", str(path), *more]

    def start(self, verb: str, wanted: Any, depots: Sequence[str], *more: str,
              program: Sequence[str] = (STOWCTL,)) -> tuple[str, subprocess.Popen[bytes]]:
        """Starts a task; returns its id and its process. `program` is what /usr/bin/python runs."""
        task, path = self.prepare(verb, wanted)
        return task, self.launch([*program, *self.words(verb, task, path, depots, *more)])

    def launch(self, words: Sequence[str], prefix: Sequence[str] = ()) -> subprocess.Popen[bytes]:
        """Starts a process of the tool in the way of the daemon's detached start."""
        process = subprocess.Popen([*prefix, "/usr/bin/python", *words], stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=sys.__stderr__, start_new_session=True, cwd="/")
        Host.running.append(process)
        return process

    def end(self, task: str, process: subprocess.Popen[bytes]) -> TaskInfo:
        """Waits for the end of a task's process; returns the record."""
        process.wait(PATIENCE_SECONDS)
        self.record = self.database.get(task)
        return self.record

    def run(self, verb: str, wanted: Any, depots: Sequence[str], *more: str) -> TaskInfo:
        """Runs a task to its end. Whatever it was, gate and spec file are as they have to be afterwards."""
        task, process = self.start(verb, wanted, depots, *more)
        record = self.end(task, process)
        self.check_left_nothing(task)
        return record

    def succeed(self, verb: str, wanted: Any, depots: Sequence[str], *more: str) -> TaskInfo:
        """Runs a task that has to succeed."""
        record = self.run(verb, wanted, depots, *more)
        assert record.status == "SUCCEEDED", (record.error_id, record.error_args)
        assert (record.progress_completed, record.progress_total) == (100, 100)
        return record

    def fail(self, verb: str, wanted: Any, depots: Sequence[str], *more: str) -> TaskInfo:
        """Runs a task that has to fail, with a message of the catalogue, and to leave the image alone."""
        before = image_state()
        record = self.run(verb, wanted, depots, *more)
        self.check_failed(record, before)
        return record

    @staticmethod
    def check_failed(record: TaskInfo, image_before: list[str]) -> None:
        from orbane_stow import catalogue

        assert record.status == "FAILED"
        assert record.error_id and record.end_time
        text = catalogue.render(record.error_id, record.error_args)
        assert text != catalogue.UNKNOWN and "{" not in text, (record.error_id, record.error_args)
        assert image_state() == image_before

    @staticmethod
    def check_left_nothing(task: str) -> None:
        assert not GATE.exists()
        assert not (STATE / f"swspec-{task}").exists()
        assert [path.name for path in STATE.iterdir() if task in path.name] == []

    def messages(self, record: TaskInfo) -> list[str]:
        """Message ids of a record's notifications, without what they have in common."""
        parsed = [json.loads(text) for text in record.notifications]
        return [entry["message"]["id"].removeprefix("com.orbane.ryn.stow.") for entry in parsed]


def deployments() -> list[Path]:
    """The deployed trees, the default one first."""
    from orbane_stow.image import ImageRoot

    image = ImageRoot(IMAGE_ROOT)
    if not image.exists():
        return []
    image.read()
    return [Path(image.sysroot.get_deployment_directory(d).get_path()) for d in image.deployments()]


def image_state() -> list[str]:
    """Names of the deployments in order: what "the image in use" means to a test."""
    return [path.name for path in deployments()]


def hello() -> list[str]:
    """What the program in the deployed tree says."""
    program = deployments()[0] / "usr/bin/keel-hello"
    answer = subprocess.run([str(program)], capture_output=True, text=True, check=True)
    return [line.removeprefix("keel-hello: ") for line in answer.stdout.splitlines()]


def check_whole(path: Path) -> None:
    """The deployed tree holds exactly the files of one commit, each with the contents of its checksum."""
    from orbane_stow.image import ImageRoot
    from orbane_stow.ostree import Gio, OSTree
    from orbane_stow.tree import tree_files

    image = ImageRoot(IMAGE_ROOT)
    image.read()
    deployment = next(d for d in image.deployments()
                      if image.sysroot.get_deployment_directory(d).get_path() == str(path))
    expected = dict(tree_files(image.repo, deployment.get_csum()))
    found = {}
    for file in path.rglob("*"):
        name = "/" + str(file.relative_to(path))
        if name.startswith(("/etc/", "/var/")) or (file.is_dir() and not file.is_symlink()):
            continue
        checksum = OSTree.checksum_file(Gio.File.new_for_path(str(file)), OSTree.ObjectType.FILE, None)[1]
        found[name] = bytes(checksum).hex()
    assert found == expected


class TinyDepot:
    """A depot whose parts have a few small files, made from folders beside it."""

    def __init__(self, path: Path) -> None:
        self.path = path
        self.url = f"file://{path}"
        self._depot = LocalDepot(path)
        self._depot.create()

    def fill(self) -> None:
        """Adds the usual parts."""
        for version in ("1", "2"):
            self.base(version)
            self.component("alpha", version, impact="REBOOT")
            self.component("beta", version, impact="NONE")
        self.component("gamma", "1", impact="MAINTENANCE_MODE")

    def base(self, version: str, name: str = "ryn", files: dict[str, str] | None = None) -> str:
        """Adds a base image; returns its commit."""
        hello = f"#!/bin/sh\necho 'keel-hello: base {version}'\n"
        return self.add("base", name, version, {
            f"usr/lib/modules/6.{version}/vmlinuz": f"kernel {version}", "usr/bin/keel-hello": hello,
            "usr/lib/os-release": f'ID=ryn\nPRETTY_NAME="RYN {version}"\n', "usr/lib/common": "common",
            "usr/etc/motd": f"RYN {version}\n", **(files or {})})

    def component(self, name: str, version: str, files: dict[str, str] | None = None, **manifest: Any) -> str:
        """Adds a component; returns its commit."""
        own = {f"usr/lib/{name}/version": f"{name} {version}\n", f"usr/lib/{name}/data": "x" * 5000 + version}
        return self.add("component", name, version, own if files is None else files, **manifest)

    def solution(self, name: str, version: str, components: dict[str, str]) -> str:
        """Adds a solution; returns its commit."""
        return self.add("solution", name, version, {}, components=components)

    def add(self, kind: str, name: str, version: str, files: dict[str, str], **manifest: Any) -> str:
        """Adds any part; returns its commit."""
        folder = self.path.with_name(f"{kind}-{name}-{version}")
        for path, content in files.items():
            file = folder / "paks" / f"{name}-pak" / path
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(content)
            file.chmod(0o755 if "/bin/" in path else 0o644)
        folder.mkdir(exist_ok=True)
        (folder / "manifest.json").write_text(json.dumps({"name": name, "version": version, **manifest}))
        return self._depot.add(read_folder(kind, folder))

    def remove(self, ref: str) -> None:
        """Takes a part away."""
        self._depot.remove(ref)

    def offers(self) -> list[Offer]:
        """All parts with their objects."""
        return self._depot.offers()

    def objects(self, ref: str, suffix: str = ".filez") -> list[Path]:
        """The files of the objects that only this part has, largest first."""
        offers = {offer.part.ref: {entry.checksum for entry in offer.objects} for offer in self._depot.offers()}
        own = offers.pop(ref) - set().union(*offers.values())
        files = [self.path / "objects" / checksum[:2] / f"{checksum[2:]}{suffix}" for checksum in own]
        return sorted((file for file in files if file.exists()), key=lambda file: -file.stat().st_size)

"""The commands that change the image root: apply and stage."""

from __future__ import annotations

from pathlib import Path
from typing import Callable, Sequence

from orbane_stow import acceptance, paths, results
from orbane_stow.composition import (Composition, DeployedSource, HostSource, Resolved, change_impact, resolve)
from orbane_stow.compose import compose
from orbane_stow.deploy import deploy, keep_refs, tidy
from orbane_stow.depot import DepotSet
from orbane_stow.errors import ImageSpaceError, StowError
from orbane_stow.fetch import DepotUrl
from orbane_stow.image import ImageRoot
from orbane_stow.live import bring_live, running_image
from orbane_stow.ostree import Gio, OSTree
from orbane_stow.pull import Puller
from orbane_stow.spec import SoftwareSpec, read_spec
from orbane_stow.task_run import WARNING, Task
from orbane_stow.text import size_text

NOTHING = "com.orbane.ryn.stow.apply.nothing"
FIRST = "com.orbane.ryn.stow.apply.first"
APPLIED = "com.orbane.ryn.stow.apply.done"
REBOOT = "com.orbane.ryn.stow.apply.reboot"
MAINTENANCE = "com.orbane.ryn.stow.apply.maintenance"
QUICK_PATCHED = "com.orbane.ryn.stow.apply.quickpatch"
QUICK_PATCH_REFUSED = "com.orbane.ryn.stow.apply.quickpatch.refused"
QUICK_PATCH_FAILED = "com.orbane.ryn.stow.apply.quickpatch.failed"
QUICK_PATCH_LATE = "com.orbane.ryn.stow.apply.quickpatch.late"
UNTIDY = "com.orbane.ryn.stow.apply.untidy"
STAGED = "com.orbane.ryn.stow.stage.done"


class _Work:
    """What apply and stage share: the image root, the wanted composition, and the pull."""

    def __init__(self, task: Task, **weights: int) -> None:
        self.task = task
        self.progress = task.plan(**weights)
        self.image = ImageRoot(paths.image_root())
        self.cancellable = Gio.Cancellable.new()
        task.termination.on_request(self.cancellable.cancel)

    def resolve_on_host(self, spec: SoftwareSpec, deployed: Composition | None) -> Resolved | None:
        """The wanted composition if it is the deployed one, which needs no depot."""
        try:
            resolved = resolve(spec, DeployedSource(deployed))
        except StowError:
            return None
        return resolved if deployed and resolved.composition.identity() == deployed.identity() else None

    def resolve(self, spec: SoftwareSpec, addresses: Sequence[str], deployed: Composition | None) -> Resolved:
        """The wanted composition by what the depots offer; raises `AcceptanceError` for one that is below the host's
        level."""
        resolved = resolve(spec, HostSource(DepotSet(addresses, self.task.termination.check), deployed))
        acceptance.check_composition(resolved.composition, acceptance.read_level())
        self.progress.step("resolve")
        return resolved

    def pull(self, resolved: Resolved) -> int:
        """Brings all parts in; returns the bytes transferred."""
        keep_refs(self.image, resolved)
        return Puller(self.image, self.progress, self.cancellable).pull(resolved.offers)

    def make_room(self) -> None:
        """After a failure on a full disk: leaves the deployed images and nothing else."""
        try:
            tidy(self.image, None)
        except StowError:
            pass  # the failure that led here is the one to report


def apply(task: Task, spec_path: Path, addresses: Sequence[str], quick_patch: bool) -> str:
    """Makes the image of the spec the one in use. The result is void."""
    spec = read_spec(spec_path)
    change(task, lambda _deployed: spec, addresses, quick_patch)
    return ""


def change(task: Task, wanted: Callable[[Composition | None], SoftwareSpec], addresses: Sequence[str],
           quick_patch: bool) -> None:
    """Makes the image that `wanted` gives for the one in use the next one in use. `wanted` is called under the image
    root's lock, so that nothing can come in between."""
    for address in addresses:
        DepotUrl(address)
    work = _Work(task, resolve=3, pull=82, compose=5, deploy=8, tidy=2)
    with work.image.locked():
        deployed = work.image.read()
        spec = wanted(deployed)
        same = work.resolve_on_host(spec, deployed)
        resolved = same or work.resolve(spec, addresses, deployed)
        if deployed and resolved.composition.identity() == deployed.identity():
            task.notify(NOTHING, _image_name(deployed))
            return
        previous = work.image.deployment()
        try:
            work.pull(resolved)
            running = running_image(work.image)
            commit = compose(work.image, resolved, work.cancellable)
            work.progress.step("compose")
            deploy(work.image, commit, work.cancellable, task.termination)
        except ImageSpaceError:
            work.make_room()
            raise
        work.progress.step("deploy")
        _tidy(work, resolved)
        work.progress.step("tidy")
        impact = change_impact(deployed, resolved.composition, quick_patch)
        live = impact != "REBOOT" and _bring_live(work, running, previous, commit)
        task.notify(APPLIED if deployed else FIRST, _image_name(resolved.composition))
        _tell_impact(task, impact, quick_patch, live, work.image.boots_host())


def stage(task: Task, spec_path: Path, addresses: Sequence[str]) -> str:
    """Brings all that the spec's image needs into the image root and verifies it; the image in use stays."""
    spec = read_spec(spec_path)
    work = _Work(task, resolve=3, pull=97)
    with work.image.locked():
        deployed = work.image.read()
        resolved = work.resolve(spec, addresses, deployed)
        try:
            transferred = work.pull(resolved)
        except ImageSpaceError:
            work.make_room()
            raise
    task.notify(STAGED, _image_name(resolved.composition), size_text(transferred))
    return results.stage_info(resolved.composition, transferred, task.told)


def _tidy(work: _Work, resolved: Resolved) -> None:
    try:
        tidy(work.image, resolved)
    except StowError as error:  # the new image is in use: that isn't undone for what lies about
        work.task.notify(UNTIDY, error, kind=WARNING)


def _image_name(composition: Composition) -> str:
    count = len(composition.components)
    with_components = f" with {count} component{'' if count == 1 else 's'}" if count else ""
    return f"{composition.base.display_name} {composition.base.display_version}{with_components}"


def _bring_live(work: _Work, running: str | None, previous: OSTree.Deployment | None, commit: str) -> bool:
    """Brings the new image into the running system if that has the image before it; tells why when it can't be."""
    if running is None or previous is None or running != previous.get_csum():
        work.task.notify(QUICK_PATCH_LATE)
        return False
    try:
        bring_live(work.image, running, commit, None)
        return True
    except StowError as error:  # the new image comes into use with the next restart all the same
        work.task.notify(QUICK_PATCH_FAILED, error, kind=WARNING)
        return False


def _tell_impact(task: Task, impact: str, quick_patch: bool, live: bool, boots_host: bool) -> None:
    if not live:
        if quick_patch and impact == "REBOOT":
            task.notify(QUICK_PATCH_REFUSED)
        if boots_host:
            task.notify(REBOOT)
        return
    task.notify(QUICK_PATCHED)
    if impact == "MAINTENANCE_MODE":
        task.notify(MAINTENANCE)

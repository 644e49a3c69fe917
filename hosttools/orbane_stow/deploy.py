"""Brings a composed commit into use as the default deployment, and tidies up behind it."""

from __future__ import annotations

from orbane_stow.composition import Resolved
from orbane_stow.image import REF_PREFIX, ImageRoot
from orbane_stow.ostree import Gio, OSTree
from orbane_stow.termination import Termination

_ORIGIN = "orbane/image"


def deploy(image: ImageRoot, commit: str, cancellable: Gio.Cancellable, termination: Termination) -> None:
    """Deploys the commit. The deployment that was the default until now stays as the previous one, a booted one stays
    in any case, older ones go. The change of the default is one rename: whatever happens, either the old or the new
    image is in use as a whole. A signal that comes after the tree stands is too late to stop it."""
    with image.errors():
        sysroot = image.sysroot
        previous = sysroot.get_merge_deployment(image.os_name)
        origin = sysroot.origin_new_from_refspec(_ORIGIN)
        deployment = sysroot.deploy_tree(image.os_name, commit, origin, previous, None, cancellable)[1]
        termination.shield()
        sysroot.simple_write_deployment(image.os_name, deployment, image.deployment() or previous,
                                        OSTree.SysrootSimpleWriteDeploymentFlags.NO_CLEAN, None)
        sysroot.load(None)


def tidy(image: ImageRoot, wanted: Resolved | None) -> None:
    """Removes half-made deployments, the objects that nothing needs, and the refs of parts that are neither in a
    deployment nor in `wanted`. Only under the image root's lock."""
    with image.errors():
        keep_refs(image, wanted)
        image.sysroot.cleanup(None)


def keep_refs(image: ImageRoot, wanted: Resolved | None) -> None:
    """Drops the refs of parts that are neither in a deployment nor in `wanted`; their objects go with the next prune."""
    repo = image.repo
    keep = set(wanted.composition.identity()) if wanted else set()
    for deployment in image.deployments():
        composition = image.composition_of(deployment.get_csum())
        keep |= set(composition.identity()) if composition else set()
    for ref in repo.list_refs(None, None)[1]:
        prefix, _, part_ref = ref.partition("/")
        if prefix == REF_PREFIX and part_ref not in keep:
            repo.set_ref_immediate(None, ref, None, None)

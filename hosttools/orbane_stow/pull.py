"""Brings the parts of an image from the depots into the image root, verified."""

from __future__ import annotations

import re
from pathlib import Path
from typing import Sequence

from orbane_stow.depot import ObjectSize, Offer
from orbane_stow.errors import DepotDamagedError, DepotUnreachableError, ImageError, StowError, TerminatedError
from orbane_stow.image import HEADROOM_BYTES, REF_PREFIX, REMOTE, ImageRoot, is_space_error
from orbane_stow.ostree import Gio, GLib, OSTree
from orbane_stow.progress import Progress

STEP = "pull"
_UPDATE_MILLISECONDS = 50
_RETRIES = 2
_BLOCK_BYTES = 4096  # what a file takes at most beyond its size
# libcurl's numbers for: resolve, connect, partial file, time-out, empty reply, send, receive
_UNREACHABLE_CURL_CODES = {5, 6, 7, 18, 28, 52, 55, 56}
_UNREACHABLE = (Gio.IOErrorEnum.HOST_NOT_FOUND, Gio.IOErrorEnum.HOST_UNREACHABLE, Gio.IOErrorEnum.NETWORK_UNREACHABLE,
                Gio.IOErrorEnum.CONNECTION_REFUSED, Gio.IOErrorEnum.CONNECTION_CLOSED, Gio.IOErrorEnum.TIMED_OUT,
                Gio.IOErrorEnum.BROKEN_PIPE)
_ObjectName = tuple[str, int]


class Puller:
    """One run of pulling. `pull` is called once, inside `ImageRoot.locked`."""

    def __init__(self, image: ImageRoot, progress: Progress, cancellable: Gio.Cancellable) -> None:
        self._image = image
        self._repo = image.repo
        self._progress = progress
        self._cancellable = cancellable
        self._needed = 0
        self._done = 0
        self._failure: Exception | None = None

    def pull(self, offers: Sequence[Offer]) -> int:
        """Makes every object of every offer stand in the image root with the right contents, under the local refs of
        the parts. Returns the bytes transferred.

        Objects that are there already are checked too; a damaged one is fetched anew. All refs appear together, or
        none does. Raises `DepotDamagedError`, `DepotUnreachableError`, `ImageSpaceError`, `TerminatedError`.
        """
        with self._image.errors():
            missing = self._missing(offers)
        self._check_obtainable(offers, missing)
        self._needed = sum(entry.archived for entry in missing.values())
        self._check_space(missing)
        with self._image.errors():
            self._repo.prepare_transaction(self._cancellable)
        try:
            for offer in offers:
                if offer.depot is not None:
                    self._pull_offer(offer, missing)
                self._repo.transaction_set_ref(None, local_ref(offer), offer.part.checksum)
            with self._image.errors():
                self._repo.commit_transaction(self._cancellable)
        except BaseException as error:
            self._abort(error)
            raise
        self._progress.step(STEP)
        return self._needed

    def _missing(self, offers: Sequence[Offer]) -> dict[_ObjectName, ObjectSize]:
        """The objects that have to come, each once. Damaged ones are removed on the way."""
        missing: dict[_ObjectName, ObjectSize] = {}
        checked: set[_ObjectName] = set()
        for offer in offers:
            for entry in self._entries(offer):
                name = _name(entry)
                if name in checked:
                    continue
                checked.add(name)
                if not self._intact(offer, entry):
                    missing[name] = entry
        return missing

    def _check_obtainable(self, offers: Sequence[Offer], missing: dict[_ObjectName, ObjectSize]) -> None:
        lost = missing.keys() - {_name(entry) for offer in offers for entry in offer.objects}
        if not lost:
            return
        for offer in offers:
            if offer.depot is None and any(_name(entry) in lost for entry in self._entries(offer)):
                raise ImageError(self._image.root, f"the {offer.part.label} is damaged there; name a depot that has it")

    def _check_space(self, missing: dict[_ObjectName, ObjectSize]) -> None:
        if not missing:
            return
        needed = HEADROOM_BYTES + sum(entry.unpacked + _BLOCK_BYTES for entry in missing.values())
        if needed > self._image.free():
            self._discard_partial()
        if needed > self._image.free():
            raise self._image.space_error(needed)

    def _entries(self, offer: Offer) -> Sequence[ObjectSize]:
        if offer.depot is not None:
            return offer.objects
        commit = self._repo.load_variant(OSTree.ObjectType.COMMIT, offer.part.checksum)[1]
        return [ObjectSize(e.checksum, e.objtype, e.archived, e.unpacked)
                for e in OSTree.commit_get_object_sizes(commit)[1]]

    def _intact(self, offer: Offer, entry: ObjectSize) -> bool:
        self._check()
        if not self._repo.has_object(entry.kind, entry.checksum, self._cancellable)[1]:
            return False
        try:
            self._repo.fsck_object(entry.kind, entry.checksum, self._cancellable)
            return True
        except GLib.Error as error:
            if self._cancellable.is_cancelled():
                raise TerminatedError() from error
            # A commit counts as complete until it is marked, and a pull would not look for the object.
            self._repo.mark_commit_partial(offer.part.checksum, True)
            self._repo.delete_object(entry.kind, entry.checksum, self._cancellable)
            return False

    def _pull_offer(self, offer: Offer, missing: dict[_ObjectName, ObjectSize]) -> None:
        assert offer.depot is not None
        begin = self._done
        mine = [entry for entry in offer.objects if missing.pop(_name(entry), None)]
        try:
            if offer.depot.local_path is not None:
                self._import(offer.depot.local_path, mine)
            self._fetch(offer, begin, sum(entry.archived for entry in mine))
        except GLib.Error as error:
            raise self._depot_error(offer, error) from error
        self._done = begin + sum(entry.archived for entry in mine)
        self._progress.step(STEP, self._done, self._needed)

    def _import(self, path: Path, entries: Sequence[ObjectSize]) -> None:
        """Copies objects one by one from a depot on this host, each verified, with progress between them."""
        depot = OSTree.Repo.new(Gio.File.new_for_path(str(path)))
        depot.open(self._cancellable)
        for entry in entries:
            self._check()
            if not self._repo.has_object(entry.kind, entry.checksum, self._cancellable)[1]:  # from a run that was cut
                self._repo.import_object_from_with_trust(depot, entry.kind, entry.checksum, False,
                                                         self._cancellable)
            self._done += entry.archived
            self._progress.step(STEP, self._done, self._needed)

    def _fetch(self, offer: Offer, begin: int, expected: int) -> None:
        """Pulls whatever of the commit isn't there yet, and its commit object last."""
        assert offer.depot is not None
        local = offer.depot.local_path
        url = Gio.File.new_for_path(str(local)).get_uri() if local is not None else offer.depot.text
        options = GLib.Variant("a{sv}", {
            "refs": GLib.Variant("as", [offer.part.checksum]),
            "flags": GLib.Variant("i", int(OSTree.RepoPullFlags.UNTRUSTED)),
            "depth": GLib.Variant("i", 0),
            "disable-static-deltas": GLib.Variant("b", True),
            "inherit-transaction": GLib.Variant("b", True),
            "override-url": GLib.Variant("s", url),
            "update-frequency": GLib.Variant("u", _UPDATE_MILLISECONDS),
            "n-network-retries": GLib.Variant("u", _RETRIES),
        })
        watch = OSTree.AsyncProgress.new()
        watch.connect("changed", lambda progress: self._transferred(progress, begin, expected))
        try:
            self._repo.pull_with_options(REMOTE, options, watch, self._cancellable)
        finally:
            watch.finish()
        if self._failure is not None:
            raise self._failure

    def _transferred(self, progress: OSTree.AsyncProgress, begin: int, expected: int) -> None:
        transferred = progress.get_variant("bytes-transferred")
        try:
            if transferred is not None:
                self._progress.step(STEP, begin + min(transferred.unpack(), expected), self._needed)
        except Exception as failure:  # must not get lost in libostree, which calls this
            self._failure = self._failure or failure

    def _check(self) -> None:
        if self._cancellable.is_cancelled():
            raise TerminatedError()

    def _abort(self, error: BaseException) -> None:
        """Gives up the transaction. What was fetched stays for the next run, but not on a full disk."""
        try:
            self._repo.abort_transaction(None)
        except GLib.Error:
            pass  # the failure that led here is the one to report
        if self._image.free() < 2 * HEADROOM_BYTES or "space" in getattr(error, "message_id", ""):
            try:
                self._discard_partial()
            except StowError:
                pass  # as above

    def _discard_partial(self) -> None:
        """Removes half-pulled objects and half-made deployments of runs that were cut."""
        with self._image.errors():
            self._image.sysroot.prepare_cleanup(None)

    def _depot_error(self, offer: Offer, error: GLib.Error) -> StowError:
        assert offer.depot is not None
        if self._cancellable.is_cancelled() or is_space_error(error):
            return self._image.error_from(error)
        code = re.search(r"\[(\d+)\]", error.message)
        if any(error.matches(Gio.io_error_quark(), kind) for kind in _UNREACHABLE) or (
                code and int(code[1]) in _UNREACHABLE_CURL_CODES):
            return DepotUnreachableError(offer.depot.text, error.message)
        return DepotDamagedError(offer.depot.text, f"{offer.part.label}: {error.message}")


def _name(entry: ObjectSize) -> _ObjectName:
    return entry.checksum, int(entry.kind)


def is_held(image: ImageRoot, offers: Sequence[Offer]) -> bool:
    """Whether every object of every offer stands in the image root. Contents are not checked."""
    if not image.exists():
        return False
    with image.errors():
        repo = image.repo
        return all(offer.depot is None or (
            repo.has_object(OSTree.ObjectType.COMMIT, offer.part.checksum, None)[1]
            and all(repo.has_object(entry.kind, entry.checksum, None)[1] for entry in offer.objects))
            for offer in offers)


def local_ref(offer: Offer) -> str:
    """The ref of a part in the image root's repository."""
    return f"{REF_PREFIX}/{offer.part.ref}"

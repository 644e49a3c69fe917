"""Issuing tickets, among people who would like to have one."""

import datetime
import hashlib
import json
import os
import re
import socket
import stat
import threading
from pathlib import Path

import pytest

from keeld_client import tickets
from keeld_client.tickets import TicketError

NOBODY = 65534


def files(folder: Path) -> list[str]:
    return sorted(path.name for path in folder.iterdir())


def mode(path: Path) -> int:
    return stat.S_IMODE(path.lstat().st_mode)


def expired_by(folder: Path, name: str, seconds: float) -> Path:
    """A ticket's file that expires `seconds` from now."""
    moment = datetime.datetime.now(datetime.timezone.utc) + datetime.timedelta(seconds=seconds)
    path = folder / hashlib.sha256(name.encode()).hexdigest()
    path.write_text(json.dumps({"service": "Lifecycle", "expires": moment.strftime("%Y-%m-%dT%H:%M:%S.000Z")}))
    return path


def test_a_ticket_and_its_file(ticket_folder: Path) -> None:
    before = datetime.datetime.now(datetime.timezone.utc).replace(microsecond=0)
    ticket = tickets.issue(lifetime=60)
    assert re.fullmatch(r"[A-Za-z0-9_-]{43}", ticket)
    (name,) = files(ticket_folder)
    assert name == hashlib.sha256(ticket.encode()).hexdigest()
    text = (ticket_folder / name).read_text()
    content = json.loads(text)
    assert text == json.dumps(content, separators=(",", ":")) and list(content) == ["service", "expires"]
    assert content["service"] == "Lifecycle"
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z", content["expires"])
    expires = datetime.datetime.fromisoformat(content["expires"])
    assert 60 <= (expires - before).total_seconds() <= 75
    assert (mode(ticket_folder), mode(ticket_folder / name), mode(ticket_folder.parent)) == (0o700, 0o600, 0o755)


def test_tickets_differ(ticket_folder: Path) -> None:
    assert len({tickets.issue() for _ in range(20)}) == len(files(ticket_folder)) == 20


@pytest.mark.parametrize("mask", [0o000, 0o777])
def test_the_umask_changes_nothing(ticket_folder: Path, mask: int) -> None:
    before = os.umask(mask)
    try:
        tickets.issue()
    finally:
        os.umask(before)
    (name,) = files(ticket_folder)
    assert (mode(ticket_folder), mode(ticket_folder / name)) == (0o700, 0o600)


@pytest.mark.parametrize("service", ["Lifecycle", "Lifecycle2", "a" * 127, "x.y-z_0"])
def test_services(ticket_folder: Path, service: str) -> None:
    tickets.issue(service)
    assert json.loads((ticket_folder / files(ticket_folder)[0]).read_text())["service"] == service


@pytest.mark.parametrize("service", ["", "a" * 128, "a b", "a\0b", "a\n", "ä", "a\x1b[2J", '"', "../x"])
def test_names_that_no_service_has(ticket_folder: Path, service: str) -> None:
    with pytest.raises(TicketError, match="a service is named by"):
        tickets.issue(service)
    assert not ticket_folder.exists()


@pytest.mark.parametrize("lifetime", [0, -1, float("nan"), float("inf"), 86400.5, 1e300])
def test_lifetimes_that_no_ticket_has(ticket_folder: Path, lifetime: float) -> None:
    with pytest.raises(TicketError, match="a ticket lives for"):
        tickets.issue(lifetime=lifetime)
    assert not ticket_folder.exists()


def test_withdraw_takes_an_unused_ticket_once(ticket_folder: Path) -> None:
    ticket, other = tickets.issue(), tickets.issue()
    assert tickets.withdraw(ticket)
    assert not tickets.withdraw(ticket)
    assert files(ticket_folder) == [hashlib.sha256(other.encode()).hexdigest()]


def test_of_many_who_take_a_ticket_one_gets_it(ticket_folder: Path) -> None:
    ticket = tickets.issue()
    winners: list[bool] = []
    start = threading.Barrier(8)

    def take() -> None:
        start.wait()
        winners.append(tickets.withdraw(ticket))

    threads = [threading.Thread(target=take) for _ in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert sorted(winners) == [False] * 7 + [True]


def test_only_root_issues(ticket_folder: Path) -> None:
    tickets.issue()
    os.chmod(ticket_folder.parent.parent, 0o755)
    reader, writer = os.pipe()
    child = os.fork()
    if child == 0:
        try:
            os.setgroups([])
            os.setgid(NOBODY)
            os.setuid(NOBODY)
            tickets.issue()
        except BaseException as error:
            os.write(writer, f"{type(error).__name__}: {error}".encode())
        os._exit(0)
    os.waitpid(child, 0)
    os.close(writer)
    with os.fdopen(reader) as pipe:
        assert pipe.read() == "TicketError: only root can issue tickets"
    assert len(files(ticket_folder)) == 1


def plant_link(folder: Path) -> None:
    elsewhere = folder.parent.parent / "elsewhere"
    elsewhere.mkdir(mode=0o700)
    folder.symlink_to(elsewhere)


def plant_file(folder: Path) -> None:
    folder.write_text("")


def plant_fifo(folder: Path) -> None:
    os.mkfifo(folder)


def plant_foreign(folder: Path) -> None:
    folder.mkdir(mode=0o700)
    os.chown(folder, NOBODY, 0)


def plant_open(folder: Path) -> None:
    folder.mkdir()
    folder.chmod(0o1777)


def plant_group(folder: Path) -> None:
    folder.mkdir()
    folder.chmod(0o770)


@pytest.mark.parametrize("rights", [0o755, 0o711, 0o700, 0o750])
def test_a_folder_that_others_can_read_is_closed(ticket_folder: Path, rights: int) -> None:
    ticket_folder.mkdir(parents=True)
    ticket_folder.chmod(rights)
    tickets.issue()
    assert mode(ticket_folder) == 0o700


PLANTS = [(plant_link, "is no folder"), (plant_file, "is no folder"), (plant_fifo, "is no folder"),
          (plant_foreign, "does not belong to root"), (plant_open, "can be written by others"),
          (plant_group, "can be written by others")]


@pytest.mark.parametrize("plant, text", PLANTS)
def test_a_planted_folder_gets_no_ticket(ticket_folder: Path, plant, text: str) -> None:  # type: ignore[no-untyped-def]
    ticket_folder.parent.mkdir(mode=0o755)
    plant(ticket_folder)
    with pytest.raises(TicketError, match=text):
        tickets.issue()
    assert not ticket_folder.is_dir() or files(ticket_folder) == []


@pytest.mark.parametrize("plant, text", PLANTS)
def test_nor_does_one_below_a_planted_folder(ticket_folder: Path, plant, text: str) -> None:  # type: ignore[no-untyped-def]
    plant(ticket_folder.parent)
    with pytest.raises(TicketError, match=text):
        tickets.issue()
    assert not ticket_folder.exists()


@pytest.mark.parametrize("kind", ["file", "link", "folder"])
def test_a_planted_file_is_never_written(ticket_folder: Path, monkeypatch: pytest.MonkeyPatch, kind: str) -> None:
    tickets.issue()
    monkeypatch.setattr("secrets.token_urlsafe", lambda _bytes: "x" * 43)
    target = ticket_folder.parent / "target"
    planted = ticket_folder / f".{hashlib.sha256(b'x' * 43).hexdigest()}.new"
    {"file": planted.touch, "link": lambda: planted.symlink_to(target), "folder": planted.mkdir}[kind]()
    before = files(ticket_folder)
    with pytest.raises(TicketError, match="cannot write a ticket"):
        tickets.issue()
    assert not target.exists() and files(ticket_folder) == before


def test_a_failed_write_leaves_nothing(ticket_folder: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    tickets.issue()
    before = files(ticket_folder)

    def full(*_words: object, **_options: object) -> None:
        raise OSError(28, "No space left on device")

    monkeypatch.setattr("os.rename", full)
    with pytest.raises(TicketError, match="No space left on device"):
        tickets.issue()
    assert files(ticket_folder) == before


def test_a_file_is_complete_before_it_is_seen(ticket_folder: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    rename = os.rename
    seen: list[str] = []

    def watched(source: str, target: str, **options: int) -> None:
        assert not (ticket_folder / target).exists()
        seen.append((ticket_folder / source).read_text())
        rename(source, target, **options)

    monkeypatch.setattr("os.rename", watched)
    tickets.issue()
    assert json.loads(seen[0])["service"] == "Lifecycle"


def test_issuing_cleans_what_has_expired(ticket_folder: Path) -> None:
    live = tickets.issue()
    expired_by(ticket_folder, "old", -1)
    soon = expired_by(ticket_folder, "soon", 60)
    unfinished = ticket_folder / f".{'0' * 64}.new"
    unfinished.write_text("")
    os.utime(unfinished, (0, 0))
    being_written = ticket_folder / f".{'1' * 64}.new"
    being_written.write_text("")
    new = tickets.issue()
    assert set(files(ticket_folder)) == {
        hashlib.sha256(live.encode()).hexdigest(), hashlib.sha256(new.encode()).hexdigest(), soon.name, being_written.name}


def test_cleaning_is_not_misled(ticket_folder: Path) -> None:
    tickets.issue()
    outside = expired_by(ticket_folder.parent, "outside", -1)
    name = iter(f"{number:064x}" for number in range(100))
    for content in (b"", b"{", b"[]", b"null", b"5", b'{"expires":5}', b'{"expires":"yesterday"}', b"\xff\xfe",
                    b"[" * 100000, b'{"expires":"2001-01-01T00:00:00.000"}'):
        (ticket_folder / next(name)).write_bytes(content)
    (ticket_folder / next(name)).symlink_to(outside)
    (ticket_folder / next(name)).symlink_to("/dev/zero")
    os.mkfifo(ticket_folder / next(name))
    (ticket_folder / next(name)).mkdir()
    with socket.socket(socket.AF_UNIX) as listener:
        path = ticket_folder / next(name)
        os.chdir(ticket_folder)  # a socket's path may not be long
        try:
            listener.bind(path.name)
        finally:
            os.chdir("/")
        (ticket_folder / "README").write_text("")
        before = files(ticket_folder)
        tickets.issue()
    assert set(before) < set(files(ticket_folder))
    assert outside.exists()

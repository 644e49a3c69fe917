"""Small parts of the image manager, by tables."""

from __future__ import annotations

import os
import re
from pathlib import Path

import orbane_stow
import pytest
from orbane_stow import catalogue, errors, paths, spec
from orbane_stow.builder.sizes import _varint
from orbane_stow.errors import DepotUrlError, SpecInvalidError
from orbane_stow.fetch import DepotUrl
from orbane_stow.gate import Gate
from orbane_stow.parts import PartFormatError, is_name, parse_ref, part_from, version_key
from orbane_stow.progress import Progress
from orbane_stow.results import mapping, notifications, optional, struct, to_text
from orbane_stow.task_run import notification, timestamp
from orbane_stow.termination import Termination
from orbane_stow.text import size_text

PACKAGE = Path(orbane_stow.__file__).resolve().parent
CATALOGUE = Path(__file__).resolve().parents[2] / "catalogues" / "en" / "stow.omsg"


@pytest.mark.parametrize(("text", "good"), [
    ("net-driver", True), ("1.0.0", True), ("_x", True), ("a" * 128, True), ("", False), ("-a", False), (".a", False),
    ("a/b", False), ("a b", False), ("a\n", False), ("a:b", False), ("ä", False), ("a" * 129, False), ("a.lock", False)])
def test_names(text: str, good: bool) -> None:
    assert is_name(text) is good


@pytest.mark.parametrize(("ref", "parsed"), [
    ("base/ryn/1", ("base", "ryn", "1")), ("component/a/2-b", ("component", "a", "2-b")), ("other/a/1", None),
    ("base/ryn", None), ("base/ryn/1/2", None), ("base//1", None)])
def test_refs(ref: str, parsed: object) -> None:
    assert parse_ref(ref) == parsed


def test_versions_in_ascending_order() -> None:
    ascending = ["1.0rc1", "1.0rc2", "1.0", "1.0.1", "1.9", "1.10", "2", "10"]
    assert sorted(reversed(ascending), key=version_key) == ascending


@pytest.mark.parametrize(("address", "text", "local"), [
    ("file:///srv/depot", "file:///srv/depot", "/srv/depot"), ("file:///srv/depot/", "file:///srv/depot", "/srv/depot"),
    ("file:///srv/depot/index.xml", "file:///srv/depot", "/srv/depot"),
    ("file://localhost/srv/a%20b", "file:///srv/a%20b", "/srv/a b"), ("http://host/d", "http://host/d", None),
    ("http://host:8080/d/index.xml", "http://host:8080/d", None), ("http://[::1]:80/", "http://[::1]:80", None)])
def test_addresses(address: str, text: str, local: str | None) -> None:
    url = DepotUrl(address)
    assert url.text == text
    assert url.local_path == (Path(local) if local else None)


@pytest.mark.parametrize(("address", "shown"), [
    ("http://u:p@h/", "http://h/"), ("http://u@h/", "http://h/"), ("file://u:p@/a", "file:///a"), ("u:p@h", "h"),
    ("http://@h/", "http://h/"), ("http://u:p@x@h/", "http://h/")])
def test_user_information_is_refused_and_not_shown(address: str, shown: str) -> None:
    with pytest.raises(DepotUrlError) as caught:
        DepotUrl(address)
    assert caught.value.args[0] == shown


@pytest.mark.parametrize(("document", "base", "components", "solutions"), [
    ("{}", "", {}, {}),
    ('{"base_image":null,"components":null,"solutions":null}', "", {}, {}),
    ('{"base_image":{"version":"1"},"components":{"a":"1","b":"","c":null}}', "1", {"a": "1", "b": "", "c": ""}, {}),
    ('{"solutions":{"s":{"version":"1"}}}', "", {}, {"s": ("1", {})}),
    ('{"solutions":{"s":{"version":"1","components":[{"component":"a","version":"2"}]}}}', "", {}, {"s": ("1", {"a": "2"})}),
    ('{"solutions":{"s":{"version":"1","components":{"a":"2"}}}}', "", {}, {"s": ("1", {"a": "2"})}),
    ('{"@struct":"x","base_image":{"@struct":"y","version":"1"},"components":{"@optional":{"@map":[{"key":"a","value":"1"}]}},'
     '"solutions":{"@optional":null}}', "1", {"a": "1"}, {}),
    ('{"base_image":{"version":"1"},"unknown":[1,2]}', "1", {}, {})])
def test_specs(document: str, base: str, components: dict[str, str], solutions: dict[str, object]) -> None:
    parsed = spec.parse_spec(document.encode())
    assert (parsed.base_version, parsed.components) == (base, components)
    assert {name: (choice.version, choice.components) for name, choice in parsed.solutions.items()} == solutions


@pytest.mark.parametrize("document", [
    "", "{", "null", "[]", '"x"', '{"a":1}x', '{"base_image":1}', '{"base_image":{"version":1}}', '{"components":[]}',
    '{"components":{"a/b":"1"}}', '{"components":{"a":"-1"}}', '{"components":{"a":1}}', '{"solutions":{"s":"1"}}',
    '{"solutions":{"s":{"version":"1","components":[{"version":"1"}]}}}', '{"components":{"a":"1","a":"2"}}',
    '{"components":{"@map":[{"key":"a"}]}}', '{"components":{"@map":[1]}}', "[" * 100_000, '{"base_image":{"version":"\ud800"}}'])
def test_specs_that_are_refused(document: str) -> None:
    with pytest.raises(SpecInvalidError):
        spec.parse_spec(document.encode("utf-8", "surrogatepass"))


def test_progress_is_weighted_and_never_falls() -> None:
    seen: list[int] = []
    progress = Progress(seen.append, {"a": 10, "b": 80, "c": 10})
    for name, done, needed in (("a", 1, 2), ("a", 1, 4), ("b", 0, 100), ("b", 50, 100), ("b", 50, 100), ("b", 40, 100),
                               ("b", 200, 100), ("c", 0, 0)):
        progress.step(name, done, needed)
    assert seen == [5, 10, 50, 90, 100]
    assert progress.percent == 100


@pytest.mark.parametrize(("content", "owner"), [
    (None, None), ("", ""), ("PRECURSOR: a", "a"), ("TASK: a 12", "a"), ("TASK:", ""), ("OTHER: a", ""), ("a", ""),
    ("PRECURSOR: " + "x" * 500, "x" * (255 - len("PRECURSOR: ")))])
def test_the_owner_of_a_gate(tmp_path: Path, content: str | None, owner: str | None) -> None:
    path = tmp_path / "gate"
    if content is not None:
        path.write_text(content)
    assert Gate("a", path).owner() == owner


@pytest.mark.parametrize("content", ["PRECURSOR: b", "TASK: b 1", "rubbish", ""])
def test_a_gate_of_another_is_not_released(tmp_path: Path, content: str) -> None:
    path = tmp_path / "gate"
    path.write_text(content)
    gate = Gate("a", path)
    gate.release()
    assert path.read_text() == content
    with pytest.raises(errors.ContentionError):
        gate.take_over()
    assert path.read_text() == content and list(tmp_path.iterdir()) == [path]


def test_taking_over_clears_what_a_killed_tool_left(tmp_path: Path) -> None:
    path = tmp_path / "gate"
    path.write_text("PRECURSOR: a")
    (tmp_path / "gate.11111111-1111-1111-1111-111111111111").write_text("TASK: b 1")
    Gate("a", path).take_over()
    assert list(tmp_path.iterdir()) == [path]
    assert path.read_text() == f"TASK: a {os.getpid()}"


def test_a_gate_that_is_a_link_or_a_folder(tmp_path: Path) -> None:
    (tmp_path / "target").write_text("PRECURSOR: a")
    for make in (lambda path: path.symlink_to(tmp_path / "target"), lambda path: path.mkdir()):
        path = tmp_path / "gate"
        make(path)
        with pytest.raises(errors.StateDirError):
            Gate("a", path).take_over()
        assert (tmp_path / "target").read_text() == "PRECURSOR: a"
        path.unlink() if path.is_symlink() else path.rmdir()


@pytest.mark.parametrize(("text", "value"), [
    ("", "default"), ("sysroot = /a", "/a"), ("sysroot=/a\nsysroot = /b\n", "/b"), ('sysroot = "/a b"', "/a b"),
    ("#sysroot = /a", "default"), ("other = /a", "default"), ("sysroot =", "default"), ("sysroot", "default")])
def test_preferences(tmp_path: Path, monkeypatch: pytest.MonkeyPatch, text: str, value: str) -> None:
    (tmp_path / "p").write_text(text)
    monkeypatch.setattr(paths, "PREFERENCES", tmp_path / "p")
    assert paths.read_preference("sysroot", "default") == value


def test_preferences_without_a_file(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(paths, "PREFERENCES", tmp_path / "p")
    assert paths.image_root() == Path("/var/lib/orbane/sysroot")
    (tmp_path / "p").write_text("sysroot = relative")
    assert paths.image_root() == Path("/var/lib/orbane/sysroot")


@pytest.mark.parametrize(("count", "text"), [
    (0, "0 bytes"), (999, "999 bytes"), (1000, "1.0 kB"), (3_449_999, "3.4 MB"), (999_949, "999.9 kB"),
    (999_950, "1.0 MB"), (5 * 10**9, "5.0 GB"), (7 * 10**12, "7.0 TB")])
def test_sizes(count: int, text: str) -> None:
    assert size_text(count) == text


@pytest.mark.parametrize(("value", "encoded"), [(0, b"\0"), (127, b"\x7f"), (128, b"\x80\x01"), (300, b"\xac\x02")])
def test_varints(value: int, encoded: bytes) -> None:
    assert _varint(value) == encoded


def test_full_forms() -> None:
    value = struct("a.b", x=optional(None), y=mapping({"b": 1, "a": optional("ü")}))
    assert to_text(value) == ('{"@struct":"a.b","x":{"@optional":null},"y":{"@map":[{"key":"a","value":{"@optional":"ü"}},'
                              '{"key":"b","value":1}]}}')
    assert notifications([]) == {"@optional": None}
    told = notifications([notification("WARNING", "com.orbane.ryn.stow.apply.reboot", [])])["@optional"]
    assert told["info"] == told["errors"] == {"@optional": None}
    assert told["warnings"]["@optional"][0]["@struct"] == "com.orbane.ryn.keel_daemon.notification"


def test_times_have_milliseconds() -> None:
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z", timestamp())


def test_a_request_to_end_wakes_early_and_late_listeners() -> None:
    termination, woken = Termination(), []
    termination.on_request(lambda: woken.append("early"))
    termination.check()
    termination.request()
    termination.on_request(lambda: woken.append("late"))
    assert woken == ["early", "late"]
    with pytest.raises(errors.TerminatedError):
        termination.check()


def test_the_shield_and_a_request_exclude_each_other() -> None:
    asked = Termination()
    asked.request()
    with pytest.raises(errors.TerminatedError):
        asked.shield()
    shielded = Termination(grace_seconds=0.0)
    shielded.shield()
    with pytest.raises(errors.TerminatedError):
        shielded.request()
        shielded.check()


@pytest.mark.parametrize("change", [
    {"kind": "other"}, {"name": "a/b"}, {"name": 1}, {"version": ""}, {"impact": "none"}, {"platforms": "host"},
    {"platforms": [1]}, {"display_name": "\ud800"}, {"platforms": ["\udc00"]}, {"components": []},
    {"components": {"a": "/"}}, {"paks": {}}, {"paks": ["p"]},
    *({"paks": [{"name": "p", "version": "1", "size": size, "acceptance": "PARTNER"}]} for size in (-1, 2**63, "1", True)),
    {"paks": [{"name": "p", "version": "1", "size": 1, "acceptance": "SOME"}]}])
def test_descriptions_that_are_refused(change: dict[str, object]) -> None:
    with pytest.raises(PartFormatError):
        part_from({"kind": "component", "name": "a", "version": "1", **change})


def test_a_part_survives_its_description() -> None:
    described = {"kind": "component", "name": "a", "version": "1", "impact": "NONE", "platforms": ["host"],
                 "paks": [{"name": "p", "version": "1", "size": 5, "acceptance": "PARTNER"}]}
    part = part_from(described)
    assert part_from(part.describe()) == part
    assert part.display_name == "a"


def test_every_message_has_a_text_and_every_text_a_use() -> None:
    texts = catalogue.parse(CATALOGUE.read_text(encoding="utf-8"))
    used = {match for path in PACKAGE.rglob("*.py")
            for match in re.findall(r'"(com\.orbane\.ryn\.stow\.[a-z.]+)"', path.read_text(encoding="utf-8"))}
    assert used == set(texts)


@pytest.mark.parametrize("error", [error for error in vars(errors).values() if isinstance(error, type)
                                   and issubclass(error, errors.StowError) and error not in (errors.StowError, errors.ContentionError)])
def test_the_arguments_of_a_message_are_those_of_its_class(error: type[errors.StowError]) -> None:
    wanted = set(re.findall(r"\{(\d)\}", error.__doc__ or ""))
    text = catalogue.parse(CATALOGUE.read_text(encoding="utf-8"))[error.message_id]
    assert set(re.findall(r"\{(\d)\}", text)) == wanted


def test_catalogue_lines() -> None:
    assert catalogue.parse('# a = "b"\na.b = "x \\"y\\" {1}"\n  c="d"  \nbad\ne = "f" g\n') == {
        "a.b": 'x "y" {1}', "c": "d"}
    assert catalogue.render("no.such.id", []) == "Unknown message."

"""The answers of `ryncli`: the image in use and what depots offer, and the changes that it makes."""

from __future__ import annotations

import errno
import fcntl
import functools
import http.server
import json
import os
import threading
import xml.etree.ElementTree as xml
from collections.abc import Iterator
from pathlib import Path

import pytest
from support import GATE, IMAGE_ROOT, Host, TinyDepot, check_whole, deployments, image_state, spec
from test_ryncli_line import PLUGIN, refused, run

LEVEL_FILE = Path("/var/lib/orbane/acceptance-level")


def ask(*words: str, program: str = "/bin/ryncli") -> xml.Element:
    """The answer of a command, which has to succeed in silence."""
    answer = run("--formatter=xml", *words, program=program)
    assert (answer.returncode, answer.stderr) == (0, b""), answer
    assert answer.stdout.endswith(b"\n") and b"\0" not in answer.stdout
    root = xml.fromstring(answer.stdout)
    assert root.tag == "answer" and " ".join(words[1:]).startswith(root.get("command", "?"))
    return root


def names(root: xml.Element, kind: str) -> list[str]:
    """Name and version of the elements of a kind."""
    return [f"{element.get('name')} {element.get('version')}" for element in root.iter(kind)]


def told(root: xml.Element) -> list[str]:
    """Ids of an answer's notifications, without what they have in common; each has a text."""
    assert all(element.text for element in root.iter("notification"))
    return [element.get("id", "").removeprefix("com.orbane.ryn.stow.") for element in root.iter("notification")]


def image() -> list[str]:
    """Base and components of the image in use."""
    profile = ask("software", "profile", "get")
    return names(profile, "base") + names(profile, "component")


@pytest.fixture
def rich(depot: TinyDepot) -> TinyDepot:
    """The usual depot with a component that has all details and a solution."""
    depot.component("aaa", "1.5", vendor="Maker", display_name="Triple <A> & \"B\"", summary="For ä\u0001 tests.",
                    release_date="2026-02-03", impact="NONE", platforms=["host", "dpu"],
                    paks=[{"name": "aaa-pak", "version": "1.5-2", "acceptance": "PARTNER"}])
    depot.component("aaa", "1.10", vendor="Other")
    depot.solution("edge", "1", {"gamma": "1"})
    return depot


def test_before_the_first_apply(host: Host) -> None:
    for words in ("component list", "component get", "component pak list", "pak list", "pak get", "addon get"):
        assert list(ask("software", *words.split())) == []
    for words in ("baseimage get", "profile get", "profile validate"):
        assert refused("software", *words.split(), status=errno.ENOENT) == "There is no image here. The lists show what there is."
    assert not IMAGE_ROOT.exists()  # a question makes nothing


def test_the_image_in_use(host: Host, rich: TinyDepot) -> None:
    host.succeed("apply", spec("2", {"beta": "1", "aaa": "1.5"}, solutions={"edge": {"version": "1"}}), [rich.url])
    listed = ask("software", "component", "list")
    assert [element.attrib for element in listed][0] == {
        "name": "aaa", "version": "1.5", "display-name": 'Triple <A> & "B"', "display-version": "1.5", "vendor": "Maker"}
    assert names(listed, "component") == ["aaa 1.5", "beta 1", "gamma 1"]
    assert names(ask("software", "component", "list", "-n", "beta"), "component") == ["beta 1"]
    (found,) = ask("software", "component", "get", "-n", "Maker:aaa:1.5")
    assert found.attrib == {
        "name": "aaa", "version": "1.5", "display-name": 'Triple <A> & "B"', "display-version": "1.5", "vendor": "Maker",
        "release-date": "2026-02-03", "impact": "NONE", "summary": "For ä\ufffd tests."}
    assert [(child.tag, child.attrib) for child in found] == [
        ("platform", {"name": "host"}), ("platform", {"name": "dpu"}),
        ("pak", {"name": "aaa-pak", "version": "1.5-2", "size": "5011", "acceptance": "PARTNER"})]
    assert xml.tostring(ask("software", "component", "list", "-f")[0]) == xml.tostring(ask("software", "component", "get")[0])
    paks = ask("software", "component", "pak", "list", "-n", "aaa", "-n", "beta")
    assert [[pak.get("name") for pak in part] for part in paks] == [["aaa-pak"], ["beta-pak"]]
    (solution,) = ask("software", "addon", "get")
    assert (solution.tag, solution.get("name")) == ("solution", "edge")
    assert names(solution, "component-ref") == ["gamma 1"]
    (base,) = ask("software", "baseimage", "get")
    assert (base.tag, base.get("version"), names(base, "pak")) == ("base", "2", ["ryn-pak 2"])


def test_paks(host: Host, rich: TinyDepot) -> None:
    host.succeed("apply", spec("1", {"beta": "1", "aaa": "1.5"}), [rich.url])
    assert [pak.attrib for pak in ask("software", "pak", "list")][:2] == [
        {"name": "aaa-pak", "version": "1.5-2", "size": "5011", "acceptance": "PARTNER", "part": "component/aaa/1.5"},
        {"name": "beta-pak", "version": "1", "size": "5008", "acceptance": "COMMUNITY", "part": "component/beta/1"}]
    assert names(ask("software", "pak", "get", "-n", "ryn-pak:1"), "pak") == ["ryn-pak 1"]
    (pak,) = ask("software", "pak", "get", "--name=Maker:aaa-pak:1.5-2")
    assert pak.attrib.items() >= {"vendor": "Maker", "release-date": "2026-02-03", "impact": "NONE"}.items()
    assert refused("software", "pak", "get", "-n", "nope", status=errno.ENOENT).startswith("There is no pak 'nope' here.")


def test_profile(host: Host, rich: TinyDepot) -> None:
    host.succeed("apply", spec("1", {"aaa": "1.5"}), [rich.url])
    (profile,) = ask("software", "profile", "get")
    assert profile.attrib == {"name": "ryn", "version": "1", "acceptance": "COMMUNITY",
                              "checksum": deployments()[0].name.split(".")[0]}
    assert [part.tag for part in profile] == ["base", "component"]
    assert names(ask("software", "profile", "get", "-n", "ryn:1"), "profile") == ["ryn 1"]
    refused("software", "profile", "get", "-n", "ryn:2", status=errno.ENOENT)


def test_what_depots_offer(host: Host, rich: TinyDepot, tmp_path: Path) -> None:
    other = TinyDepot(tmp_path / "other")
    other.component("delta", "1")
    depots = ["--depot", rich.url + "/index.xml", "--depot", other.url]
    assert names(ask("software", "component", "list", *depots), "component") == [
        "aaa 1.5", "aaa 1.10", "alpha 1", "alpha 2", "beta 1", "beta 2", "delta 1", "gamma 1"]
    assert names(ask("software", "baseimage", "get", *depots), "base") == ["ryn 1", "ryn 2"]
    assert names(ask("software", "profile", "get", *depots), "profile") == ["ryn 1", "ryn 2"]
    assert names(ask("software", "addon", "get", *depots), "solution") == ["edge 1"]
    assert names(ask("software", "pak", "list", "-f", "-n", "aaa-pak:1.5-2", *depots), "pak") == ["aaa-pak 1.5-2"]
    assert not IMAGE_ROOT.exists()


def test_the_internal_namespace_tells_references_and_commits(host: Host, depot: TinyDepot) -> None:
    host.succeed("apply", spec("1", {"beta": "1"}), [depot.url])
    inner = run(f"--plugin={PLUGIN}", "softwareinternal", "component", "get", program="/bin/nearcli")
    (part,) = xml.fromstring(inner.stdout)
    assert part.get("ref") == "component/beta/1" and len(part.get("commit", "")) == 64
    outer = ask("software", "component", "get", program="/bin/nearcli")[0]
    assert "ref" not in outer.attrib and "commit" not in outer.attrib


def test_validate_profile(host: Host, depot: TinyDepot) -> None:
    host.succeed("apply", spec("1", {"beta": "1"}), [depot.url])
    (profile,) = ask("software", "profile", "validate")
    assert (profile.get("name"), profile.get("version"), profile.get("status")) == ("ryn", "1", "COMPLIANT")
    (profile,) = ask("software", "profile", "validate", "-n", "ryn", "--depot", depot.url)
    assert (profile.get("version"), profile.get("status")) == ("2", "NON_COMPLIANT")
    assert [pak.attrib for pak in profile] == [
        {"name": "ryn-pak", "status": "NON_COMPLIANT", "current": "1", "desired": "2"}]
    (profile,) = ask("software", "profile", "validate", "--depot", depot.url)
    assert profile.get("status") == "COMPLIANT"
    refused("software", "profile", "validate", "-n", "ryn:7", "--depot", depot.url, status=errno.ENOENT)


def test_apply_a_spec(host: Host, depot: TinyDepot, tmp_path: Path) -> None:
    path = tmp_path / "spec.json"
    path.write_text(json.dumps(spec("1", {"alpha": "1"})))
    answer = ask("software", "apply", "-s", str(path), "--depot", depot.url)
    assert told(answer) == ["apply.first"]
    assert image() == ["ryn 1", "alpha 1"]
    check_whole(deployments()[0])
    assert told(ask("software", "apply", "-s", f"file://{path}", "--depot", depot.url)) == ["apply.nothing"]
    assert len(image_state()) == 1


@pytest.fixture
def served(tmp_path: Path) -> Iterator[str]:
    """The address at which `tmp_path` is served."""
    handler = functools.partial(http.server.SimpleHTTPRequestHandler, directory=str(tmp_path))
    handler.log_message = lambda *_: None  # type: ignore[attr-defined]
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler) as server:
        threading.Thread(target=server.serve_forever, kwargs={"poll_interval": 0.02}, daemon=True).start()
        yield f"http://127.0.0.1:{server.server_port}"
        server.shutdown()


def test_spec_and_depot_by_http(host: Host, depot: TinyDepot, tmp_path: Path, served: str) -> None:
    (tmp_path / "spec.json").write_text(json.dumps(spec("1", {"alpha": "1"})))
    ask("software", "apply", "-s", f"{served}/spec.json", "--depot", f"{served}/depot/index.xml")
    assert image() == ["ryn 1", "alpha 1"]
    refused("software", "apply", "-s", f"{served}/none.json", "--depot", depot.url)


@pytest.mark.parametrize("place, content", [
    ("/no/such/spec.json", None), ("relative.json", None), ("http:spec.json", None), ("http://x.json", None),
    ("http://h/", None), ("https://h/spec.json", None), ("file:///no/such/spec.json", None), ("", "rubbish"), ("", "[]"),
    ("", '{"base_image":{"version":7}}')])
def test_useless_specs(host: Host, depot: TinyDepot, tmp_path: Path, place: str, content: str | None) -> None:
    if content is not None:
        (tmp_path / "spec.json").write_text(content)
        place = str(tmp_path / "spec.json")
    status = errno.EHOSTUNREACH if place.startswith("file:///no") else errno.EINVAL
    refused("software", "apply", "-s", place, "--depot", depot.url, status=status)
    assert not IMAGE_ROOT.exists()


def test_components_come_change_and_go(host: Host, depot: TinyDepot) -> None:
    host.succeed("apply", spec("1", {"alpha": "1"}), [depot.url])
    assert told(ask("software", "component", "apply", "-n", "beta", "-n", "gamma:1", "--depot", depot.url)) == [
        "apply.done"]
    assert image() == ["ryn 1", "alpha 1", "beta 2", "gamma 1"]
    answer = ask("software", "component", "apply", "-n", "beta:1", "-q", "--depot", depot.url)
    assert told(answer) == ["apply.done", "apply.quickpatch"]
    assert image() == ["ryn 1", "alpha 1", "beta 1", "gamma 1"]
    ask("software", "component", "remove", "-n", "alpha", "-n", "gamma:1")
    assert image() == ["ryn 1", "beta 1"]
    check_whole(deployments()[0])
    before = image_state()
    refused("software", "component", "remove", "-n", "alpha", status=errno.ENOENT)
    refused("software", "component", "remove", "-n", "beta:2", status=errno.ENOENT)
    refused("software", "component", "apply", "-n", "beta:7", "--depot", depot.url, status=errno.ENOENT)
    refused("software", "component", "apply", "-n", "none", "--depot", depot.url, status=errno.ENOENT)
    refused("software", "component", "apply", "-n", "Nobody:beta:2", "--depot", depot.url, status=errno.ENOENT)
    assert image_state() == before


def test_a_component_of_a_certain_vendor(host: Host, rich: TinyDepot) -> None:
    host.succeed("apply", spec("1"), [rich.url])
    ask("software", "component", "apply", "-n", "Maker:aaa:1.5", "--depot", rich.url)
    assert image() == ["ryn 1", "aaa 1.5"]


def test_components_of_solutions(host: Host, depot: TinyDepot) -> None:
    depot.component("gamma", "2")
    depot.solution("edge", "1", {"gamma": "1"})
    host.succeed("apply", spec("1", {"alpha": "1"}, solutions={"edge": {"version": "1"}}), [depot.url])
    text = refused("software", "component", "remove", "-n", "gamma")
    assert "'gamma' belongs to the solution 'edge'" in text
    ask("software", "component", "apply", "-n", "gamma:2", "--depot", depot.url)
    assert image() == ["ryn 1", "alpha 1", "gamma 2"]
    ask("software", "component", "remove", "-n", "alpha")
    assert image() == ["ryn 1", "gamma 2"] and names(ask("software", "addon", "get"), "solution") == ["edge 1"]


def test_profiles(host: Host, depot: TinyDepot) -> None:
    depot.base("1", name="other")
    ask("software", "profile", "install", "-n", "ryn:1", "--depot", depot.url)
    assert image() == ["ryn 1"]
    ask("software", "component", "apply", "-n", "beta:1", "--depot", depot.url)
    ask("software", "profile", "update", "-n", "ryn", "--depot", depot.url)
    assert image() == ["ryn 2", "beta 1"]
    ask("software", "profile", "update", "-n", "other:1", "--depot", depot.url)
    assert image() == ["other 1", "beta 1"]
    ask("software", "profile", "install", "-n", "ryn:1", "--depot", depot.url)
    assert image() == ["ryn 1"]
    check_whole(deployments()[0])
    for name in ("ryn:7", "none"):
        refused("software", "profile", "update", "-n", name, "--depot", depot.url, status=errno.ENOENT)
    refused("software", "profile", "update", "-n", "Orbane:ryn:2", "--depot", depot.url)


def test_changes_without_an_image(host: Host, depot: TinyDepot) -> None:
    refused("software", "component", "apply", "-n", "beta", "--depot", depot.url, status=errno.ENOENT)
    refused("software", "component", "remove", "-n", "beta", status=errno.ENOENT)
    assert image_state() == []


@pytest.mark.parametrize("url, status", [
    ("http://127.0.0.1:9/index.xml", errno.EHOSTUNREACH), ("file:///no/such", errno.EHOSTUNREACH),
    ("https://h/index.xml", errno.EINVAL), ("http://u:secret@h/index.xml", errno.EINVAL), ("http:index.xml", errno.EINVAL)])
def test_useless_depots(host: Host, url: str, status: int) -> None:
    for words in (["component", "list"], ["component", "apply", "-n", "a"]):
        text = refused("software", *words, "--depot", url, status=status)
        assert "secret" not in text


def test_a_busy_image(host: Host, depot: TinyDepot) -> None:
    host.succeed("apply", spec("1"), [depot.url])
    descriptor = os.open(IMAGE_ROOT, os.O_RDONLY)
    try:
        fcntl.flock(descriptor, fcntl.LOCK_EX)
        refused("software", "component", "apply", "-n", "beta", "--depot", depot.url, status=errno.EBUSY)
        refused("software", "acceptance", "set", "-l", "PARTNER", status=errno.EBUSY)
        assert image() == ["ryn 1"]  # a question needs no lock
    finally:
        os.close(descriptor)


def test_the_gate_is_left_alone(host: Host, depot: TinyDepot) -> None:
    GATE.write_text("TASK: somebody 1")
    ask("software", "profile", "install", "-n", "ryn:1", "--depot", depot.url)
    assert GATE.read_text() == "TASK: somebody 1"


def test_acceptance_level(host: Host, depot: TinyDepot) -> None:
    assert ask("software", "acceptance", "get")[0].attrib == {"level": "COMMUNITY"}
    assert not LEVEL_FILE.exists()
    for level in ("CERTIFIED", "ACCEPTED", "PARTNER", "COMMUNITY"):
        assert ask("software", "acceptance", "set", "-l", level)[0].attrib == {"level": level}
        assert ask("software", "acceptance", "get")[0].attrib == {"level": level}
        assert LEVEL_FILE.read_text() == level + "\n" and LEVEL_FILE.stat().st_mode & 0o777 == 0o644
    assert [path.name for path in LEVEL_FILE.parent.iterdir()] == [LEVEL_FILE.name]
    assert not IMAGE_ROOT.exists()


def test_acceptance_level_guards_the_image(host: Host, depot: TinyDepot) -> None:
    for name, level in (("good", "CERTIFIED"), ("fair", "PARTNER")):
        depot.component(name, "1", paks=[{"name": f"{name}-pak", "acceptance": level}])
    certified = {"paks": [{"name": "ryn-pak", "acceptance": "CERTIFIED"}]}
    depot.add("base", "ryn", "3", {"usr/lib/modules/6/vmlinuz": "k", "usr/lib/os-release": "ID=ryn\n"}, **certified)
    ask("software", "acceptance", "set", "-l", "ACCEPTED")
    host.succeed("apply", spec("3", {"good": "1"}), [depot.url])
    record = host.fail("apply", spec("3", {"good": "1", "fair": "1"}), [depot.url])
    assert (record.error_id, record.error_args) == (
        "com.orbane.ryn.stow.acceptance.error", ["fair-pak", "component fair 1", "PARTNER", "ACCEPTED"])
    host.fail("stage", spec("3", {"fair": "1"}), [depot.url])
    assert "'fair-pak' of the component fair 1" in refused(
        "software", "component", "apply", "-n", "fair", "--depot", depot.url, status=errno.EPERM)
    scan = json.loads(host.succeed("scan", spec("3", {"good": "1", "fair": "1"}), [depot.url]).result)
    assert scan["status"] == "INVALID" and scan["staged"] == {"@optional": False}
    statuses = {entry["key"]: entry["value"]["status"] for entry in scan["components"]["@map"]}
    assert statuses == {"good": "COMPLIANT", "fair": "INVALID"}
    ask("software", "acceptance", "set", "-l", "PARTNER")
    ask("software", "component", "apply", "-n", "fair", "--depot", depot.url)
    assert "'fair-pak'" in refused("software", "acceptance", "set", "-l", "CERTIFIED", status=errno.EPERM)
    assert LEVEL_FILE.read_text() == "PARTNER\n"


@pytest.mark.parametrize("content", ["", "rubbish", "CERTIFIED PARTNER", "certified", "\0", "x" * 100])
def test_a_level_that_cannot_be_read_lets_nothing_in(host: Host, depot: TinyDepot, content: str) -> None:
    LEVEL_FILE.write_text(content)
    refused("software", "acceptance", "get", status=errno.EIO)
    refused("software", "profile", "install", "-n", "ryn", "--depot", depot.url, status=errno.EIO)
    host.fail("apply", spec("1"), [depot.url])
    ask("software", "acceptance", "set", "-l", "COMMUNITY")
    ask("software", "profile", "install", "-n", "ryn", "--depot", depot.url)


def test_planted_level_files(host: Host, tmp_path: Path) -> None:
    target = tmp_path / "target"
    target.write_text("CERTIFIED\n")
    LEVEL_FILE.symlink_to(target)
    refused("software", "acceptance", "get", status=errno.EIO)
    LEVEL_FILE.with_name(f".{LEVEL_FILE.name}.new").symlink_to(target)
    ask("software", "acceptance", "set", "-l", "PARTNER")
    assert target.read_text() == "CERTIFIED\n" and LEVEL_FILE.read_text() == "PARTNER\n" and not LEVEL_FILE.is_symlink()
    LEVEL_FILE.unlink()
    os.mkfifo(LEVEL_FILE)
    refused("software", "acceptance", "get", status=errno.EIO)

"""keel-depot: what it builds, and what it refuses."""

from __future__ import annotations

import json
import os
import signal
import subprocess
import urllib.request
import xml.etree.ElementTree as xml
from pathlib import Path

import pytest
from orbane_stow.builder.depot import LocalDepot
from orbane_stow.builder.sample import data, make_sample
from support import TinyDepot


def keel_depot(*words: object) -> subprocess.CompletedProcess[str]:
    """Runs the command."""
    return subprocess.run(["/usr/bin/keel-depot", *map(str, words)], capture_output=True, text=True, check=False)


def commits(depot: Path) -> dict[str, str]:
    """Ref to commit of each part."""
    opened = LocalDepot(depot)
    opened.open()
    return {offer.part.ref: offer.part.checksum for offer in opened.offers()}


def test_the_sample_is_the_same_everywhere(sample: Path, tmp_path: Path) -> None:
    old = os.umask(0o077)
    try:
        again = make_sample(tmp_path / "again")
    finally:
        os.umask(old)
    for name, path in again.items():
        assert commits(path) == commits(sample / name) != {}
        assert keel_depot("verify", path).returncode == 0
    assert sorted(commits(sample / "main")) == [
        "base/ryn/1.0.0", "base/ryn/2.0.0", "component/net-driver/1.0.0", "component/net-driver/1.1.0",
        "component/storage-agent/2.3.0"]
    assert sorted(path.name for path in (tmp_path / "again" / "specs").iterdir()) == [
        "first.json", "patched.json", "second.json"]


def test_sample_data_is_the_same_and_of_the_size_asked_for() -> None:
    assert data("seed", 10_000) == data("seed", 10_000) != data("other", 10_000)
    assert [len(data("seed", size)) for size in (0, 1, 4096, 4097)] == [0, 1, 4096, 4097]


def test_the_sample_command(tmp_path: Path) -> None:
    answer = keel_depot("sample", tmp_path / "s")
    assert (answer.returncode, answer.stderr) == (0, "")
    assert answer.stdout.splitlines() == [f"main     file://{tmp_path}/s/main", f"extras   file://{tmp_path}/s/extras",
                                          f"specs    {tmp_path}/s/specs"]
    again = keel_depot("sample", tmp_path / "s")
    assert again.returncode == 1 and "there is something already" in again.stderr


def _folder(path: Path, files: dict[str, str], **manifest: object) -> Path:
    for name, content in files.items():
        (path / "paks" / name).parent.mkdir(parents=True, exist_ok=True)
        (path / "paks" / name).write_text(content)
    path.mkdir(exist_ok=True)
    (path / "manifest.json").write_text(json.dumps(manifest))
    return path


def test_making_a_depot_by_hand(tmp_path: Path) -> None:
    depot = tmp_path / "depot"
    assert keel_depot("init", depot).returncode == 0
    assert keel_depot("list", depot).stdout == ""
    folder = _folder(tmp_path / "part", {"one/usr/a": "12345", "two/usr/b": "1"}, name="part", version="1.0",
                     impact="NONE", platforms=["host"], paks=[{"name": "one", "acceptance": "CERTIFIED"}])
    added = keel_depot("add-component", depot, folder)
    assert added.stdout == f"component/part/1.0 {commits(depot)['component/part/1.0']}\n"
    assert keel_depot("add-component", depot, folder).stdout == added.stdout  # the same again is no error
    (listed,) = json.loads(keel_depot("list", depot, "--json").stdout)
    assert listed["paks"] == [{"name": "one", "version": "1.0", "size": 5, "acceptance": "CERTIFIED"},
                              {"name": "two", "version": "1.0", "size": 1, "acceptance": "COMMUNITY"}]
    assert listed["checksum"] == commits(depot)["component/part/1.0"]
    assert keel_depot("list", depot).stdout.split() == ["component/part/1.0", "6", "bytes", "NONE", "part"]

    (folder / "paks/one/usr/a").write_text("other")
    refused = keel_depot("add-component", depot, folder)
    assert refused.returncode == 1 and "--replace" in refused.stderr
    assert commits(depot)["component/part/1.0"] in added.stdout
    assert keel_depot("add-component", depot, folder, "--replace").returncode == 0
    assert commits(depot)["component/part/1.0"] not in added.stdout
    assert keel_depot("remove", depot, "component/part/1.0").returncode == 0
    assert commits(depot) == {}
    assert keel_depot("remove", depot, "component/part/1.0").returncode == 1


def test_the_index_names_every_part(depot: TinyDepot) -> None:
    depot.solution("edge", "1", {"alpha": "1"})
    root = xml.parse(depot.path / "index.xml").getroot()
    found = {f"{element.tag}/{element.get('name')}/{element.get('version')}": element.get("commit") for element in root}
    assert found == commits(depot.path)
    (alpha,) = [e for e in root if (e.get("name"), e.get("version")) == ("alpha", "1")]
    assert alpha.get("impact") == "REBOOT"
    assert [pak.get("name") for pak in alpha.findall("pak")] == ["alpha-pak"]
    (edge,) = root.findall("solution")
    assert [(e.get("name"), e.get("version")) for e in edge.findall("component-ref")] == [("alpha", "1")]


def test_verify_finds_damage(depot: TinyDepot) -> None:
    assert keel_depot("verify", depot.path).returncode == 0
    victim = depot.objects("component/alpha/1")[0]
    victim.write_bytes(victim.read_bytes()[:-3])
    answer = keel_depot("verify", depot.path)
    assert answer.returncode == 1
    assert len(answer.stderr.splitlines()) == 1 and "component/alpha/1: " in answer.stderr


def test_files_belong_to_root_and_keep_their_modes(depot: TinyDepot, tmp_path: Path) -> None:
    folder = _folder(tmp_path / "part", {"p/usr/a": "a"}, name="part", version="1")
    os.chmod(folder / "paks/p/usr/a", 0o4750)
    os.chown(folder / "paks/p/usr/a", 1234, 1234)
    os.chmod(folder / "paks/p/usr/a", 0o4750)  # a change of owner takes the bit away
    assert keel_depot("add-component", depot.path, folder).returncode == 0
    listed = subprocess.run(["ostree", f"--repo={depot.path}", "ls", "component/part/1", "/usr/a"],
                            capture_output=True, text=True, check=True).stdout
    assert listed.split()[:3] == ["-04750", "0", "0"]


BASE_FILES = {"k/usr/lib/modules/1/vmlinuz": "k", "k/usr/lib/os-release": "ID=x"}


@pytest.mark.parametrize(("kind", "files", "manifest", "reason"), [
    ("component", {"p/a": "a"}, {"version": "1"}, "name: a text is wanted"),
    ("component", {"p/a": "a"}, {"name": "-x", "version": "1"}, "name: '-x' can't be used"),
    ("component", {"p/a": "a"}, {"name": "a/b", "version": "1"}, "name: 'a/b' can't be used"),
    ("component", {"p/a": "a"}, {"name": "..", "version": "1"}, "name: '..' can't be used"),
    ("component", {"p/a": "a"}, {"name": "x", "version": "1 2"}, "version: '1 2' can't be used"),
    ("component", {"p/a": "a"}, {"name": "x", "version": "1", "impact": "SOME"}, "impact: 'SOME' is not one of"),
    ("component", {"p/a": "a"}, {"name": "x", "version": "1", "colour": "red"}, "unknown member 'colour'"),
    ("component", {"p/a": "a"}, {"name": "x", "version": "1", "paks": [{"name": "q"}]}, "there is no folder for 'q'"),
    ("component", {"p/a": "a"}, {"name": "x", "version": "1", "components": {"y": "1"}}, "only a solution"),
    ("component", {"p/a": "a"}, {"name": "x", "version": "1", "paks": [{"name": "p", "acceptance": "SURE"}]}, "acceptance"),
    ("component", {"p/a": "a"}, {"name": "x", "version": "1", "release_date": "soon"}, "release_date"),
    ("component", {}, {"name": "x", "version": "1"}, "at least one pak"),
    ("component", {"-p/a": "a"}, {"name": "x", "version": "1"}, "plain name"),
    ("component", {"p/etc/a": "a"}, {"name": "x", "version": "1"}, "usr/etc"),
    ("component", {"p/a": "a", "q/a": "a"}, {"name": "x", "version": "1"}, "pak 'p' has this file too"),
    ("base", {"p/a": "a"}, {"name": "x", "version": "1"}, "exactly one kernel"),
    ("base", {**BASE_FILES, "k/usr/lib/modules/2/vmlinuz": "k"}, {"name": "x", "version": "1"}, "not 2"),
    ("base", {"k/usr/lib/modules/1/vmlinuz": "k"}, {"name": "x", "version": "1"}, "os-release is missing"),
    ("solution", {}, {"name": "x", "version": "1", "components": {"a/b": "1"}}, "components"),
])
def test_folders_that_are_refused(depot: TinyDepot, tmp_path: Path, kind: str, files: dict[str, str],
                                  manifest: dict[str, object], reason: str) -> None:
    before = commits(depot.path)
    answer = keel_depot(f"add-{kind}", depot.path, _folder(tmp_path / "part", files, **manifest))
    assert answer.returncode == 1 and reason in answer.stderr and len(answer.stderr.splitlines()) == 1
    assert commits(depot.path) == before


@pytest.mark.parametrize("words", [
    [], ["init"], ["init", "a", "b"], ["list", "--jso", "a"], ["frobnicate"], ["add-component", "a"], ["add-nothing", "a", "b"]])
def test_command_lines_that_are_refused(words: list[str]) -> None:
    assert keel_depot(*words).returncode == 2


@pytest.mark.parametrize("words", [["list"], ["verify"], ["serve"], ["remove"]])
def test_a_folder_that_is_no_depot(tmp_path: Path, words: list[str]) -> None:
    more = ["base/a/1"] if words == ["remove"] else []
    answer = keel_depot(*words, tmp_path, *more)
    assert answer.returncode == 1 and len(answer.stderr.splitlines()) == 1


def test_serving_a_depot(depot: TinyDepot) -> None:
    with subprocess.Popen(["/usr/bin/keel-depot", "serve", str(depot.path)], stdout=subprocess.PIPE, text=True) as server:
        try:
            assert server.stdout is not None
            url = server.stdout.readline().strip()
            assert url.startswith("http://127.0.0.1:")
            for name in ("index.xml", "summary"):
                assert urllib.request.urlopen(f"{url}/{name}", timeout=60).read() == (depot.path / name).read_bytes()
        finally:
            server.send_signal(signal.SIGINT)
    assert server.returncode == 130


def test_special_files_are_refused(depot: TinyDepot, tmp_path: Path) -> None:
    folder = _folder(tmp_path / "part", {"p/usr/a": "a"}, name="x", version="1")
    os.mkfifo(folder / "paks/p/usr/fifo")
    assert "only files, folders and links" in keel_depot("add-component", depot.path, folder).stderr


def test_links_are_kept(depot: TinyDepot, tmp_path: Path) -> None:
    folder = _folder(tmp_path / "part", {"p/usr/a": "a"}, name="x", version="1")
    (folder / "paks/p/usr/b").symlink_to("a")
    (folder / "paks/p/usr/c").symlink_to("/nowhere")
    assert keel_depot("add-component", depot.path, folder).returncode == 0
    assert keel_depot("verify", depot.path).returncode == 0

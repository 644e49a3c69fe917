"""Scan, stage and apply on an image root, with the real tool as its own process."""

from __future__ import annotations

import json
from pathlib import Path
from typing import Any

import pytest
from orbane_stow.builder.sample import SPECS
from orbane_stow.builder.serve import DepotServer
from support import (DEPLOYMENTS, IMAGE_ROOT, SCAN_SPEC, Host, TinyDepot, check_whole, deployments, hello, image_state,
                     spec)

FULL = {"alpha": "1", "beta": "1"}


def _plain(value: Any) -> Any:
    """A full form without its annotations."""
    if isinstance(value, list):
        return [_plain(element) for element in value]
    if not isinstance(value, dict):
        return value
    if "@optional" in value:
        return _plain(value["@optional"])
    if "@map" in value:
        return {entry["key"]: _plain(entry["value"]) for entry in value["@map"]}
    return {name: _plain(member) for name, member in value.items() if name != "@struct"}


def _scan(host: Host, wanted: Any, depots: list[str], *more: str) -> dict[str, Any]:
    return _plain(json.loads(host.succeed("scan", wanted, depots, *more).result))


def test_the_whole_road_with_the_sample_depots(host: Host, sample: Path) -> None:
    with DepotServer(sample / "extras") as server:
        depots = [f"file://{sample}/main", server.url + "/index.xml"]
        assert _scan(host, SPECS["first"], depots)["status"] == "NON_COMPLIANT"
        assert not IMAGE_ROOT.exists()  # a scan changes nothing
        staged = _plain(json.loads(host.succeed("stage", SPECS["first"], depots).result))
        assert staged["base_image"] == "1.0.0" and staged["components"] == SPECS["first"]["components"]
        assert staged["pulled_bytes"] > 10_000_000
        assert deployments() == []
        assert _scan(host, SPECS["first"], depots)["staged"] is True

        record = host.succeed("apply", SPECS["first"], depots)
        assert record.result == ""
        assert hello() == ["base image 1.0.0", "component monitor-agent 1.4.0", "component net-driver 1.0.0"]
        scanned = _scan(host, SPECS["first"], depots)
        assert (scanned["status"], scanned["impact"]) == ("COMPLIANT", "NONE")

        host.succeed("apply", SPECS["second"], depots)
        assert hello() == ["base image 2.0.0", "component monitor-agent 1.5.0", "component net-driver 1.1.0",
                           "component storage-agent 2.3.0"]
        assert len(deployments()) == 2
        for tree in deployments():
            check_whole(tree)


def test_apply_replaces_the_whole_image(host: Host, depot: TinyDepot) -> None:
    host.succeed("apply", spec("1", FULL), [depot.url])
    assert (deployments()[0] / "usr/lib/beta/version").read_text() == "beta 1\n"
    record = host.succeed("apply", spec("2", {"alpha": "2"}), [depot.url])
    assert host.messages(record) == ["apply.done"]  # in use as it stands: no host boots from this image root
    new, old = deployments()
    assert hello() == ["base 2"]
    assert (new / "usr/lib/alpha/version").read_text() == "alpha 2\n"
    assert not (new / "usr/lib/beta").exists()  # a component that the spec does not list goes
    assert (old / "usr/lib/beta/version").read_text() == "beta 1\n"  # the image before stays as it was
    for tree in (new, old):
        check_whole(tree)


def test_the_first_apply_says_so(host: Host, depot: TinyDepot) -> None:
    assert host.messages(host.succeed("apply", spec("1"), [depot.url])) == ["apply.first"]


def test_the_older_version_goes_back_and_only_the_previous_deployment_is_kept(host: Host, depot: TinyDepot) -> None:
    commits = []
    for version in ("1", "2", "1"):
        host.succeed("apply", spec(version), [depot.url])
        commits.append(image_state()[0].split(".")[0])
        assert hello() == [f"base {version}"]
    assert commits[0] == commits[2] != commits[1]  # equal parts make the same image
    host.succeed("apply", spec("1", {"gamma": "1"}), [depot.url])
    assert len(deployments()) == 2 == len([path for path in DEPLOYMENTS.iterdir() if path.is_dir()])


def test_nothing_to_do_needs_no_depot(host: Host, depot: TinyDepot, tmp_path: Path) -> None:
    host.succeed("apply", spec("1", FULL), [depot.url])
    before = image_state()
    depot.path.rename(tmp_path / "away")
    for wanted in (spec("1", FULL), spec("", FULL)):
        assert host.messages(host.succeed("apply", wanted, [depot.url])) == ["apply.nothing"]
    assert image_state() == before


def test_an_empty_base_version_keeps_the_base(host: Host, depot: TinyDepot, tmp_path: Path) -> None:
    host.succeed("apply", spec("1", {"alpha": "1"}), [depot.url])
    extras = TinyDepot(tmp_path / "extras")
    extras.component("delta", "7")
    host.succeed("apply", spec("", {"alpha": "1", "delta": "7"}), [extras.url])  # base and alpha come from the host
    assert hello() == ["base 1"]
    assert (deployments()[0] / "usr/lib/delta/version").read_text() == "delta 7\n"
    check_whole(deployments()[0])


def test_an_empty_component_version_means_the_newest(host: Host, depot: TinyDepot) -> None:
    for version in ("9", "10", "10rc1"):
        depot.component("beta", version)
    host.succeed("apply", spec("1", {"beta": ""}), [depot.url])
    assert (deployments()[0] / "usr/lib/beta/version").read_text() == "beta 10\n"


def test_solutions_bring_their_components(host: Host, depot: TinyDepot) -> None:
    depot.solution("edge", "1", {"alpha": "1", "gamma": "1"})
    wanted = spec("1", {"beta": "2"}, solutions={"edge": {"version": "1"}})
    staged = _plain(json.loads(host.succeed("stage", wanted, [depot.url]).result))
    assert staged["components"] == {"alpha": "1", "beta": "2", "gamma": "1"} and staged["solutions"] == {"edge": "1"}
    host.succeed("apply", wanted, [depot.url])
    assert sorted(path.name for path in (deployments()[0] / "usr/lib").iterdir()) == [
        "alpha", "beta", "common", "gamma", "modules", "os-release"]
    scanned = _scan(host, wanted, [depot.url])
    assert scanned["status"] == "COMPLIANT"
    assert list(scanned["solutions"]["edge"]["components"]) == ["alpha", "gamma"]
    other = spec("1", {"beta": "2"}, solutions={"edge": {"version": "1", "components": [
        {"component": "alpha", "version": "2"}]}})
    host.succeed("apply", other, [depot.url])
    assert (deployments()[0] / "usr/lib/alpha/version").read_text() == "alpha 2\n"


def test_a_component_may_replace_a_file_of_the_base(host: Host, depot: TinyDepot) -> None:
    depot.component("driver", "1", {"usr/lib/common": "better"})
    host.succeed("apply", spec("1", {"driver": "1"}), [depot.url])
    assert (deployments()[0] / "usr/lib/common").read_text() == "better"


@pytest.mark.parametrize("files", [{"usr/lib/shared": "two"}, {"usr/lib/shared/file": "two"}])
def test_components_that_bring_the_same_file_are_refused(host: Host, depot: TinyDepot, files: dict[str, str]) -> None:
    host.succeed("apply", spec("1"), [depot.url])
    depot.component("one", "1", {"usr/lib/shared": "one"})
    depot.component("two", "1", files)
    record = host.fail("apply", spec("1", {"one": "1", "two": "1"}), [depot.url])
    assert record.error_id == "com.orbane.ryn.stow.file.conflict.error"
    assert record.error_args == ["component one 1", "component two 1", "/usr/lib/shared"]


def test_equal_files_of_two_components_are_no_conflict(host: Host, depot: TinyDepot) -> None:
    for name in ("one", "two"):
        depot.component(name, "1", {"usr/lib/shared": "same", f"usr/lib/{name}": name})
    host.succeed("apply", spec("1", {"one": "1", "two": "1"}), [depot.url])
    assert (deployments()[0] / "usr/lib/shared").read_text() == "same"


def test_scan_tells_every_difference(host: Host, depot: TinyDepot) -> None:
    host.succeed("apply", spec("1", {"alpha": "1", "beta": "1"}), [depot.url])
    scanned = _scan(host, spec("2", {"beta": "1", "gamma": "1"}), [depot.url])
    assert scanned.pop("scan_time").endswith("Z")
    assert scanned == {
        "status": "NON_COMPLIANT", "impact": "REBOOT", "staged": False, "notifications": None, "solutions": {},
        "base_image": {"status": "NON_COMPLIANT", "current": "1", "desired": "2", "impact": "REBOOT"},
        "components": {
            "alpha": {"status": "NON_COMPLIANT", "current": "1", "desired": None, "impact": "REBOOT"},
            "beta": {"status": "COMPLIANT", "current": "1", "desired": "1", "impact": "NONE"},
            "gamma": {"status": "NON_COMPLIANT", "current": None, "desired": "1", "impact": "REBOOT"}}}


def test_scan_of_what_nobody_has_is_invalid(host: Host, depot: TinyDepot) -> None:
    host.succeed("apply", spec("1", {"beta": "1"}), [depot.url])
    wanted = spec("3", {"beta": "7", "nope": "1"}, solutions={"none": {"version": "4"}})
    record = host.succeed("scan", wanted, [depot.url])
    scanned = _plain(json.loads(record.result))
    assert scanned["status"] == "INVALID" == scanned["base_image"]["status"]
    assert {name: part["status"] for name, part in scanned["components"].items()} == {"beta": "INVALID", "nope": "INVALID"}
    assert scanned["solutions"]["none"]["status"] == "INVALID"
    told = [entry["message"]["id"] for entry in scanned["notifications"]["errors"]]
    assert [name.removeprefix("com.orbane.ryn.stow.") for name in told] == host.messages(record) == [
        "base.missing.error", "solution.missing.error", "component.missing.error", "component.missing.error"]


def test_the_scan_file_is_read_once_and_stays(host: Host, depot: TinyDepot) -> None:
    host.succeed("scan", spec("1"), [depot.url])
    assert json.loads(SCAN_SPEC.read_text()) == spec("1")


@pytest.mark.parametrize(("old", "new", "impact", "told"), [
    ({"beta": "1"}, {"beta": "2"}, "NONE", ["apply.done", "apply.quickpatch"]),
    ({}, {"gamma": "1"}, "MAINTENANCE_MODE", ["apply.done", "apply.quickpatch", "apply.maintenance"]),
    ({"gamma": "1"}, {}, "MAINTENANCE_MODE", ["apply.done", "apply.quickpatch", "apply.maintenance"]),
    ({"alpha": "1", "beta": "1"}, {"alpha": "2", "beta": "2"}, "REBOOT",
     ["apply.done", "apply.quickpatch.refused"]),
])
def test_quick_patch_goes_by_the_impact_of_what_changes(host: Host, depot: TinyDepot, old: dict[str, str],
                                                        new: dict[str, str], impact: str, told: list[str]) -> None:
    host.succeed("apply", spec("1", old), [depot.url])
    assert _scan(host, spec("1", new), [depot.url])["impact"] == "REBOOT"
    assert _scan(host, spec("1", new), [depot.url], "--quick-patch")["impact"] == impact
    assert host.messages(host.succeed("apply", spec("1", new), [depot.url], "--quick-patch")) == told


def test_quick_patch_of_a_new_base_needs_a_reboot(host: Host, depot: TinyDepot) -> None:
    host.succeed("apply", spec("1"), [depot.url])
    assert host.messages(host.succeed("apply", spec("2"), [depot.url], "--quick-patch")) == [
        "apply.done", "apply.quickpatch.refused"]


def test_the_image_root_is_a_preference(host: Host, depot: TinyDepot, tmp_path: Path) -> None:
    elsewhere = tmp_path / "else where"
    Path("/etc/orbane/preferences.conf").write_text(f'# image root\nsysroot = "{elsewhere}"\n')
    host.succeed("apply", spec("1"), [depot.url])
    assert not IMAGE_ROOT.exists()
    assert len(list((elsewhere / "ostree/deploy/orbane/deploy").glob("*.0"))) == 1


def test_a_new_stage_replaces_the_last_one(host: Host, depot: TinyDepot) -> None:
    host.succeed("apply", spec("1"), [depot.url])
    refs = IMAGE_ROOT / "ostree/repo/refs/heads/stow"

    def held() -> list[str]:
        return sorted(str(path.relative_to(refs)) for path in refs.rglob("*") if path.is_file())

    host.succeed("stage", spec("2", {"alpha": "2"}), [depot.url])
    assert held() == ["base/ryn/1", "base/ryn/2", "component/alpha/2"]
    host.succeed("stage", spec("1", {"beta": "2"}), [depot.url])
    assert held() == ["base/ryn/1", "component/beta/2"]
    second = _plain(json.loads(host.succeed("stage", spec("1", {"beta": "2"}), [depot.url]).result))
    assert second["pulled_bytes"] == 0


def test_a_base_without_configuration(host: Host, depot: TinyDepot) -> None:
    for version in ("1", "2"):
        depot.add("base", "bare", f"{version}b", {f"usr/lib/modules/6.{version}/vmlinuz": "k", "usr/lib/os-release": "ID=x"})
    host.succeed("apply", spec("1b"), [depot.url])
    (deployments()[0] / "etc/own.conf").write_text("mine")
    host.succeed("apply", spec("2b"), [depot.url])
    assert (deployments()[0] / "etc/own.conf").read_text() == "mine"
    check_whole(deployments()[0])


def test_the_configuration_of_the_host_survives(host: Host, depot: TinyDepot) -> None:
    host.succeed("apply", spec("1"), [depot.url])
    (deployments()[0] / "etc/own.conf").write_text("mine")
    host.succeed("apply", spec("2"), [depot.url])
    assert (deployments()[0] / "etc/own.conf").read_text() == "mine"
    assert (deployments()[0] / "etc/motd").read_text() == "RYN 2\n"

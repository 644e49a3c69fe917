"""What `component` and `ryn` print about the image in use."""

from __future__ import annotations

import json
import resource
import subprocess
from pathlib import Path
from typing import Any

import pytest
import yaml
from support import IMAGE_ROOT, STOWCTL, Host, TinyDepot, deployments, spec

INTERFACE = Path(__file__).resolve().parents[2] / "interface" / "com.orbane.ryn.hosts.software.yaml"
FOREGROUND_BYTES = 200 * 1024 * 1024  # what the daemon grants a foreground command


def ask(*words: str) -> str:
    """Standard output of the tool, run within the daemon's limits; it has to succeed in silence."""
    answer = subprocess.run(["/usr/bin/python", STOWCTL, *words], capture_output=True, text=True, check=False,
                            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_DATA, (FOREGROUND_BYTES,) * 2))
    assert (answer.returncode, answer.stderr) == (0, "")
    return answer.stdout


def declared(service: str, structure: str) -> tuple[set[str], set[str]]:
    """All fields of a structure of the interface, and those that have to be there."""
    fields = yaml.safe_load(INTERFACE.read_text())["services"][service]["structures"][structure]["fields"]
    return set(fields), {name for name, field in fields.items() if not field["type"].startswith("optional<")}


def check_shape(answer: dict[str, Any], service: str, structure: str) -> None:
    """The answer has the fields that the interface wants."""
    _, required = declared(service, structure)
    assert required <= set(answer)


def test_before_the_first_apply(host: Host) -> None:
    assert ask("component", "--list") == "[]"
    assert ask("component", "--get", "alpha") == "null"
    assert ask("ryn", "--get") == "null"
    assert not IMAGE_ROOT.exists()  # a question makes nothing


def test_an_image_root_without_a_deployment(host: Host, depot: TinyDepot) -> None:
    host.succeed("stage", spec("1"), [depot.url])
    assert ask("component", "--list") == "[]"
    assert ask("ryn", "--get") == "null"


def test_list_tells_the_components_by_name(host: Host, depot: TinyDepot) -> None:
    depot.component("aaa", "1.5", display_name="Triple A", display_version="1.5 GA", vendor="Maker",
                    platforms=["host", "dpu"])
    host.succeed("apply", spec("1", {"beta": "1", "aaa": "1.5"}), [depot.url])
    listed = json.loads(ask("component", "--list"))
    assert listed == [
        {"name": "aaa", "component": "aaa", "version": "1.5", "display_name": "Triple A", "display_version": "1.5 GA",
         "platforms": ["host", "dpu"], "vendor": "Maker"},
        {"name": "beta", "component": "beta", "version": "1", "display_name": "beta", "display_version": "1",
         "platforms": []}]
    for entry in listed:
        check_shape(entry, "components", "summary")


def test_components_of_solutions_are_listed_too(host: Host, depot: TinyDepot) -> None:
    depot.solution("edge", "1", {"gamma": "1"})
    host.succeed("apply", spec("1", solutions={"edge": {"version": "1"}}), [depot.url])
    assert [entry["name"] for entry in json.loads(ask("component", "--list"))] == ["gamma"]


def test_get_tells_all_of_a_component(host: Host, depot: TinyDepot) -> None:
    depot.component("aaa", "1.5", vendor="Maker", summary="For ä tests.", release_date="2026-02-03", impact="NONE",
                    paks=[{"name": "aaa-pak", "version": "1.5-2", "acceptance": "PARTNER"}])
    host.succeed("apply", spec("1", {"aaa": "1.5"}), [depot.url])
    answer = json.loads(ask("component", "--get", "aaa"))
    assert answer == {"name": "aaa", "version": "1.5", "display_name": "aaa", "display_version": "1.5", "vendor": "Maker",
                      "summary": "For ä tests.", "release_date": "2026-02-03", "platforms": [], "impact": "NONE",
                      "paks": [{"name": "aaa-pak", "version": "1.5-2", "size": 5011, "acceptance": "PARTNER"}]}
    check_shape(answer, "components", "info")
    assert set(answer) <= declared("components", "info")[0]


@pytest.mark.parametrize("name", ["gamma", "ALPHA", "alpha ", "alpha/1", "a b", "", "../alpha", "nö"])
def test_get_of_an_unknown_component_is_null_without_a_line_end(host: Host, depot: TinyDepot, name: str) -> None:
    host.succeed("apply", spec("1", {"alpha": "1"}), [depot.url])
    assert ask("component", "--get", name) == "null"


def test_ryn_tells_the_base_and_the_deployed_image(host: Host, depot: TinyDepot) -> None:
    host.succeed("apply", spec("2", {"alpha": "1"}), [depot.url])
    answer = json.loads(ask("ryn", "--get"))
    assert answer["checksum"] == deployments()[0].name.split(".")[0]
    assert (answer["name"], answer["version"], answer["paks"][0]["name"]) == ("ryn", "2", "ryn-pak")
    check_shape(answer, "ryn", "info")
    assert set(answer) <= declared("ryn", "info")[0]


def test_an_image_root_that_cannot_be_read(host: Host) -> None:
    (IMAGE_ROOT / "ostree/repo").mkdir(parents=True)
    (IMAGE_ROOT / "ostree/repo/config").write_text("rubbish")
    answer = subprocess.run([STOWCTL, "ryn", "--get"], capture_output=True, text=True, check=False)
    assert answer.returncode == 1 and answer.stdout == ""
    assert str(IMAGE_ROOT) in answer.stderr

"""The command service of data processing units with the real tools and real depots."""

from __future__ import annotations

import os
import pathlib
import xml.etree.ElementTree as xml
from typing import Any

import pytest
from harness.daemon import Daemon, processes
from harness.depots import Depots, DepotServer
from harness.image import SYSROOT, deployments, hello, verify
from harness.syslog import SystemLog
from harness.tokens import MARKER, Issuer, bearer, remove_dpu
from harness.wire import ApiError, Rpc

RUN = "com.orbane.ryn.keel_daemon.data_processing_unit.ryncli.run_ryncli_cmd"
SERVER = "http://127.0.0.1"  # the service takes depots without a port only
MAIN, EXTRAS = f"{SERVER}/main/index.xml", f"{SERVER}/extras/index.xml"
LINE = "[RunCommand] About to run command "


@pytest.fixture
def web(depots: Depots) -> Any:
    """Serves the sample depots and their specs at port 80."""
    server = DepotServer(depots.root, port=80)
    yield server
    server.close()


def run(rpc: Rpc, command: str, depots: list[str] | None = None, *flags: tuple[str, str], prefix: str = "RYNCLI") -> xml.Element:
    """Runs a command that has to succeed, and returns its answer."""
    result = rpc(RUN, {"prefix": prefix, "command": command, "depots": depots or [],
                       "flags": [{"flag": flag, "value": value} for flag, value in flags]})
    assert list(result) == ["output"]
    root = xml.fromstring(result["output"])
    assert root.tag == "answer" and root.get("command") == command.lower().replace("_", " ")
    return root


def fail(rpc: Rpc, command: str, depots: list[str] | None = None, *flags: tuple[str, str], prefix: str = "RYNCLI") -> tuple[str, str]:
    """Runs a command that has to fail; returns the message's id and its one argument."""
    with pytest.raises(ApiError) as caught:
        run(rpc, command, depots, *flags, prefix=prefix)
    assert caught.value.kind == "INTERNAL_SERVER_ERROR"
    (message,) = caught.value.data["messages"]
    (argument,) = message["args"]
    return message["id"], argument


def names(root: xml.Element, kind: str) -> list[str]:
    """Name and version of the elements of a kind."""
    return [f"{element.get('name')} {element.get('version')}" for element in root.iter(kind)]


def test_an_image_by_commands_alone(daemon: Daemon, rpc: Rpc, web: DepotServer, syslog: SystemLog) -> None:
    assert names(run(rpc, "COMPONENT_LIST"), "component") == []
    assert names(run(rpc, "BASEIMAGE_GET", [MAIN, EXTRAS]), "base") == ["ryn 1.0.0", "ryn 2.0.0"]
    run(rpc, "PROFILE_INSTALL", [MAIN], ("-n", "ryn:1.0.0"))
    assert hello() == ["base image 1.0.0"]
    run(rpc, "COMPONENT_APPLY", [MAIN, EXTRAS], ("-n", "net-driver:1.0.0"), ("-n", "monitor-agent"))
    assert hello() == ["base image 1.0.0", "component monitor-agent 1.5.0", "component net-driver 1.0.0"]
    assert names(run(rpc, "COMPONENT_LIST", None, ("-f", "")), "component") == ["monitor-agent 1.5.0", "net-driver 1.0.0"]
    run(rpc, "PROFILE_UPDATE", [MAIN], ("-n", "ryn"))
    assert hello()[0] == "base image 2.0.0" and len(hello()) == 3
    run(rpc, "COMPONENT_REMOVE", None, ("-n", "monitor-agent"))
    assert hello() == ["base image 2.0.0", "component net-driver 1.0.0"]
    run(rpc, "APPLY", [MAIN, EXTRAS], ("-s", f"{SERVER}/specs/first.json"))
    assert hello() == ["base image 1.0.0", "component monitor-agent 1.4.0", "component net-driver 1.0.0"]
    (profile,) = run(rpc, "PROFILE_GET", prefix="NEARCLI")
    assert names(profile, "component") == ["monitor-agent 1.4.0", "net-driver 1.0.0"]
    assert len(deployments()) == 2
    verify()
    assert rpc.tasks() == {}, "no command is a task"
    assert [entry.text for entry in syslog.find("About to run .* component remove")] == [
        f'{LINE}/bin/ryncli --formatter=xml software component remove -n "monitor-agent"']
    assert processes().keys() == {daemon.pid}


def test_on_a_data_processing_unit(stopped_daemon: Daemon, web: DepotServer) -> None:
    MARKER.touch()
    try:
        issuer = Issuer("lab").install()
        stopped_daemon.start()
        for entitlements in ([], ["Software.View"], ["Task.View"]):
            with pytest.raises(ApiError) as caught:
                run(Rpc(headers=bearer(issuer.token(entitlements=entitlements))), "COMPONENT_LIST")
            assert caught.value.kind == "UNAUTHORIZED"
        rpc = Rpc(headers=bearer(issuer.token(entitlements=["Software.Apply"])))
        run(rpc, "PROFILE_INSTALL", [MAIN], ("-n", "ryn:1.0.0"))
        run(rpc, "COMPONENT_APPLY", [MAIN], ("-n", "net-driver:1.1.0"), prefix="NEARCLI_INTERNAL")
        assert hello() == ["base image 1.0.0", "component net-driver 1.1.0"]
        assert stopped_daemon.stop() == 0
    finally:
        remove_dpu()


def test_the_documented_line_with_the_real_tool(daemon: Daemon, rpc: Rpc, web: DepotServer, syslog: SystemLog) -> None:
    (pak,) = run(rpc, "PAK_LIST", [MAIN], ("-f", ""), ("-n", "net-driver-core:1.1.0"))
    assert (pak.get("part"), pak.get("acceptance")) == ("component/net-driver/1.1.0", "CERTIFIED")
    assert [entry.text for entry in syslog.find(r"^\[RunCommand\] About")] == [
        f'{LINE}/bin/ryncli --formatter=xml software pak list --depot {MAIN} -f -n "net-driver-core:1.1.0"']


def test_the_internal_namespace(daemon: Daemon, rpc: Rpc, web: DepotServer) -> None:
    parts = run(rpc, "COMPONENT_LIST", [EXTRAS], prefix="NEARCLI_INTERNAL")
    assert all(part.get("ref", "").startswith("component/") and len(part.get("commit", "")) == 64 for part in parts)
    assert names(parts, "component") == ["backup-agent 3.0.1", "monitor-agent 1.4.0", "monitor-agent 1.5.0"]


def test_acceptance_level(daemon: Daemon, rpc: Rpc, web: DepotServer) -> None:
    run(rpc, "PROFILE_INSTALL", [MAIN], ("-n", "ryn:1.0.0"))
    assert run(rpc, "ACCEPTANCE_SET", None, ("-l", "ACCEPTED"))[0].get("level") == "ACCEPTED"
    assert run(rpc, "ACCEPTANCE_GET")[0].get("level") == "ACCEPTED"
    message, argument = fail(rpc, "COMPONENT_APPLY", [EXTRAS], ("-n", "monitor-agent"))
    assert message == "com.orbane.ryn.host_settings.command.failed"
    assert "PARTNER" in argument and argument.endswith(f". ErrorCode: {os.strerror(1)}")
    record = rpc.finished(rpc.start("apply", {"base_image": {"version": ""}, "components": {"monitor-agent": "1.5.0"}},
                                    [EXTRAS]))
    assert record["error"]["messages"][0]["id"] == "com.orbane.ryn.stow.acceptance.error"
    assert hello() == ["base image 1.0.0"]


@pytest.mark.parametrize("command, named, flags, status", [
    ("COMPONENT_GET", [], [("-n", "toaster")], 2),
    ("BASEIMAGE_GET", [], [], 2),
    ("COMPONENT_APPLY", [MAIN], [], 22),
    ("COMPONENT_LIST", [], [("surplus", "")], 22),
    ("COMPONENT_LIST", [], [("-f surplus", "")], 22),
    ("COMPONENT_LIST", [], [("-n", "-f")], 22),
    ("COMPONENT_LIST", [], [("--plugin", "/tmp/evil.xml")], 22),
    ("COMPONENT_LIST", [], [("--formatter=json", "")], 22),
    ("COMPONENT_LIST", [f"{SERVER}/nowhere/index.xml"], [], 5),
    ("COMPONENT_LIST", ["http://127.0.0.2/index.xml"], [], 113),
    ("COMPONENT_LIST", ["http:index.xml"], [], 22),
    ("APPLY", [MAIN], [("-s", f"{SERVER}/specs/none.json")], 22),
    ("PAK_REMOVE", [], [("-n", "net-driver-core")], 95),
    ("COMPONENT_SIGNATURE_VERIFY", [], [], 95),
])
def test_what_the_tools_refuse(daemon: Daemon, rpc: Rpc, web: DepotServer, command: str, named: list[str],
                               flags: list[tuple[str, str]], status: int) -> None:
    message, argument = fail(rpc, command, named, *flags)
    assert message == "com.orbane.ryn.host_settings.command.failed"
    begin, end = "Error: ", f". ErrorCode: {os.strerror(status)}"
    assert argument.startswith(begin) and argument.endswith(end)
    root = xml.fromstring(argument[len(begin):-len(end)])
    assert root.tag == "error" and root.text
    assert not SYSROOT.exists()


@pytest.mark.parametrize("command, depots, flags, reason", [
    ("COMPONENTS", [], [], "Invalid command."),
    ("COMPONENT_LIST", [MAIN, "https://127.0.0.1/index.xml"], [], "Invalid Depot."),
    ("COMPONENT_LIST", ["http://127.0.0.1:80/index.xml"], [], "Invalid Depot."),
    ("COMPONENT_LIST", [MAIN], [("-n; id", "")], "Invalid flag specified. Unsafe to continue."),
    ("COMPONENT_LIST", [MAIN], [("", "a")], "Invalid  flag specified. Unsafe to continue."),
    ("COMPONENT_LIST", [MAIN], [("-n", 'a" -f "')], "Invalid argument specified. Unsafe to continue."),
    ("APPLY", [MAIN], [("-s", "file:///etc/spec.json")], "Invalid spec argument specified. Unsafe to continue."),
])
def test_what_the_service_refuses(daemon: Daemon, rpc: Rpc, syslog: SystemLog, command: str, depots: list[str],
                                  flags: list[tuple[str, str]], reason: str) -> None:
    assert fail(rpc, command, depots, *flags) == ("com.orbane.ryn.lumo.invalidinput", os.strerror(3))
    syslog.wait(r"^\[RunRyncliCmd\]")
    assert [(entry.severity, entry.text) for entry in syslog.find(r"^\[RunRyncliCmd\]")] == [("err", f"[RunRyncliCmd] {reason}")]
    assert syslog.find(r"^\[RunCommand\]") == []


def test_texts_as_long_as_a_request(daemon: Daemon, rpc: Rpc, syslog: SystemLog) -> None:
    long = "a" * 1_000_000
    for depots, flags in (([f"http:{long}xml"], []), ([], [("-n", f"{long}:{long}")]), ([], [("-s", f"http:{long}json")])):
        message, argument = fail(rpc, "COMPONENT_LIST", depots, *flags)
        assert (message, argument) == ("com.orbane.ryn.host_settings.command.failed",
                                       f"Error: . ErrorCode: {os.strerror(7)}")  # no program takes such a word
    assert fail(rpc, "COMPONENT_LIST", [f"http:{long}"])[0] == "com.orbane.ryn.lumo.invalidinput"
    assert daemon.running


def test_a_tool_that_is_not_there(daemon: Daemon, rpc: Rpc) -> None:
    tool = pathlib.Path("/usr/bin/nearcli")
    hidden = tool.rename("/usr/bin/nearcli-hidden")
    try:
        assert fail(rpc, "COMPONENT_LIST", prefix="NEARCLI") == (
            "com.orbane.ryn.host_settings.command.failed", f"Error: . ErrorCode: {os.strerror(2)}")
    finally:
        hidden.rename(tool)

"""What the generator makes, and when it writes."""

from __future__ import annotations

import hashlib
import importlib.util
import json
import sys
from pathlib import Path
from types import ModuleType
from typing import Any, Callable

import pytest

from conftest import ROOT

INTERFACE = ROOT / "interface"
SAMPLE = ROOT / "tests" / "unit" / "bindings" / "definition"
ANONYMOUS = ["com.orbane.lumo.std.security.no_authentication"]


@pytest.fixture(name="out", scope="module")
def _out(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """Everything that follows from the product's definition."""
    import keeld_generate  # pylint: disable=import-outside-toplevel
    folder = tmp_path_factory.mktemp("out")
    assert keeld_generate.main(["--out", str(folder), str(INTERFACE)]) == 0
    return folder


def document(out: Path, name: str) -> Any:
    """A generated JSON file."""
    return json.loads((out / name).read_text("utf-8"))


def module(path: Path) -> ModuleType:
    """A generated Python file, imported."""
    spec = importlib.util.spec_from_file_location("generated", path)
    assert spec and spec.loader
    loaded = importlib.util.module_from_spec(spec)
    sys.modules["generated"] = loaded
    spec.loader.exec_module(loaded)
    return loaded


def files(folder: Path) -> dict[str, bytes]:
    """Content of all files by name."""
    return {str(path.relative_to(folder)): path.read_bytes() for path in folder.rglob("*") if path.is_file()}


def test_the_list_names_exactly_what_is_written(generate: Callable, out: Path) -> None:
    listed = generate("--list", INTERFACE).stdout.split()
    assert sorted(listed) == sorted(files(out))
    assert len(set(listed)) == len(listed)


def test_output_is_the_same_every_time(generate: Callable, out: Path, tmp_path: Path,
                                       monkeypatch: pytest.MonkeyPatch) -> None:
    for seed in ("1", "2"):
        monkeypatch.setenv("PYTHONHASHSEED", seed)
        generate("--out", tmp_path / seed, INTERFACE)
        assert files(tmp_path / seed) == files(out)


def test_unchanged_files_are_left_alone(generate: Callable, definition: Callable[..., Path], tmp_path: Path) -> None:
    one = "structures:\n  a: {doc: A., fields: {b: {type: string, doc: B.}}}\n"
    folder = definition(com__one=one, com__two=one)
    first = generate("--verbose", "--out", tmp_path / "out", folder).stdout.split()
    assert "bindings/com/one.h" in first and "bindings/com/two.cpp" in first
    assert generate("--verbose", "--out", tmp_path / "out", folder).stdout.split() == []
    (folder / "com.two.yaml").write_text((folder / "com.two.yaml").read_text("utf-8").replace("A.", "Another."), "utf-8")
    changed = generate("--verbose", "--out", tmp_path / "out", folder).stdout.split()
    assert "bindings/com/two.h" in changed
    assert not [name for name in changed if name.startswith("bindings/com/one")]
    assert not list((tmp_path / "out").rglob("*.new"))


def test_only_the_wanted_outputs_are_made(generate: Callable, tmp_path: Path) -> None:
    generate("--only", "metadata", "--out", tmp_path / "out", INTERFACE)
    assert all(name.startswith("metadata/") for name in files(tmp_path / "out"))


def test_nothing_is_made_of_imported_packages(generate: Callable, tmp_path: Path) -> None:
    generate("--only", "cpp", "--out", tmp_path / "out", SAMPLE, "--import", INTERFACE)
    assert sorted(name for name in files(tmp_path / "out") if name.endswith(".h")) == [
        "bindings/com/orbane/test.h", "bindings/com/orbane/test/bare_svc.h", "bindings/com/orbane/test/sample_svc.h"]


def test_sources_say_where_they_come_from(out: Path) -> None:
    sources = [path for path in out.rglob("*") if path.suffix in (".h", ".cpp")]
    assert sources
    for path in sources:
        first = path.read_text("utf-8").splitlines()[0]
        assert first.startswith("// Generated from interface/com.orbane.") and first.endswith(". Do not edit.")
    assert "Do not edit." in (out / "python/keeld_client/_generated.py").read_text("utf-8")


@pytest.mark.parametrize("name, component", [
    ("keeld_lumo_cli", "settings"), ("lumo_common_cli", "lumo_std"), ("keeld_lumo_metamodel", "settings"),
    ("lumo_common_metamodel", "lumo_std"), ("keeld_lumo_authentication", "settings_lumo_authentication")])
def test_metadata_files_hold_one_component_in_compact_form(out: Path, name: str, component: str) -> None:
    text = (out / "metadata" / f"{name}.json").read_text("utf-8")
    loaded = json.loads(text)
    assert list(loaded) == [component] and isinstance(loaded[component], dict)
    inside = json.dumps(loaded[component], ensure_ascii=False, separators=(",", ":"))
    assert text == f'{{"{component}":{inside}}}\n'
    assert len(hashlib.sha256(inside.encode()).hexdigest()) == 64


def test_command_metadata(out: Path) -> None:
    document_ = document(out, "metadata/keeld_lumo_cli.json")["settings"]
    commands = {(*command["path"], command["name"]): command for command in document_["commands"]}
    assert ("software", "apply") in commands
    apply = commands["software", "apply"]
    assert apply["service"] == "com.orbane.ryn.keel_daemon.software" and apply["operation"] == "apply"
    assert apply["task"] is True
    assert [(o["name"], o["field"], o["type"], o["required"]) for o in apply["options"]] == [
        ("software-spec", "software_spec", "com.orbane.ryn.keel_daemon.software_spec", True),
        ("depots", "depots", "list<string>", True), ("quick-patch", "quick_patch", "boolean", False)]
    spaces = {(*space["path"], space["name"]) for space in document_["namespaces"]}
    assert {tuple(command["path"]) for command in document_["commands"]} <= spaces


def test_metamodel(out: Path) -> None:
    packages = document(out, "metadata/keeld_lumo_metamodel.json")["settings"]["packages"]
    daemon = packages["com.orbane.ryn.keel_daemon"]
    assert list(daemon["services"]) == ["com.orbane.ryn.keel_daemon.software"]  # not those without operations
    scan = daemon["services"]["com.orbane.ryn.keel_daemon.software"]["operations"]["scan"]
    assert scan["task"] is True and scan["output"]["type"] == "com.orbane.ryn.keel_daemon.host_compliance"
    assert "com.orbane.ryn.keel_daemon.software.stage_info" in daemon["structures"]
    status = packages["com.orbane.halo.task"]["enumerations"]["com.orbane.halo.task.status"]
    assert [(value["name"], value["number"]) for value in status["values"]] == [
        ("PENDING", 0), ("RUNNING", 1), ("SUCCEEDED", 3), ("FAILED", 4)]
    common = document(out, "metadata/lumo_common_metamodel.json")["lumo_std"]["packages"]
    assert set(common) == {"com.orbane.lumo.std", "com.orbane.lumo.std.errors", "com.orbane.lumo.std.introspection"}
    not_found = common["com.orbane.lumo.std.errors"]["structures"]["com.orbane.lumo.std.errors.not_found"]
    assert not_found["type"] == "ERROR"
    assert [field["name"] for field in not_found["fields"]] == ["messages", "data", "error_type"]


def test_authentication_and_authorization(out: Path) -> None:
    packages = document(out, "metadata/keeld_lumo_authentication.json")["settings_lumo_authentication"]["packages"]
    schemes = {f"{service}.{name}": found for package in packages.values()
               for service, operations in package["services"].items()
               for name, found in operations["operations"].items()}
    assert schemes["com.orbane.lumo.std.introspection.provider.get"] == ANONYMOUS
    assert schemes["com.orbane.halo.tasks.get"] == ["com.orbane.lumo.std.security.user_pass",
                                                    "com.orbane.lumo.std.security.bearer_token"]
    privileges = document(out, "metadata/keeld_lumo_authorization.json")
    assert list(privileges) == ["operations"]
    assert set(privileges["operations"]) == {name for name, found in schemes.items() if found != ANONYMOUS}
    assert all(found for found in privileges["operations"].values())
    assert privileges["operations"]["com.orbane.ryn.keel_daemon.software.scan"] == ["Software.View"]


def test_python_models(out: Path) -> None:
    models = module(out / "python/keeld_client/_generated.py")
    apply = models.OPERATIONS["com.orbane.ryn.keel_daemon.software.apply"]
    assert apply.service == "com.orbane.ryn.keel_daemon.software" and apply.task and apply.output == "void"
    assert [(p.name, p.type, p.required) for p in apply.parameters] == [
        ("software_spec", "com.orbane.ryn.keel_daemon.software_spec", True), ("depots", "list<string>", True),
        ("quick_patch", "boolean", False)]
    assert models.COMMANDS["software", "apply"] is apply
    assert apply.authentication == ("user_pass", "bearer_token") and apply.privileges == ("Software.Apply",)
    assert models.OPERATIONS["com.orbane.lumo.std.introspection.service.list"].authentication == ()
    assert models.ERROR_CODES["com.orbane.lumo.std.errors.not_found"] == -32003
    assert models.HaloTaskStatus.NUMBERS == {"PENDING": 0, "RUNNING": 1, "SUCCEEDED": 3, "FAILED": 4}
    assert models.ENUMERATIONS["com.orbane.halo.task.status"] == ("PENDING", "RUNNING", "SUCCEEDED", "FAILED")
    assert [(f.name, f.type, f.required) for f in models.STRUCTURES["com.orbane.ryn.keel_daemon.software_spec"]] == [
        ("base_image", "com.orbane.ryn.keel_daemon.base_image_spec", True), ("components", "map<string, string>", False),
        ("solutions", "map<string, com.orbane.ryn.keel_daemon.solution_spec>", False)]
    assert models.NAMESPACES["introspection",] == "What the server offers."
    assert models.NAMESPACES["introspection", "service"] == "The services of the server."
    assert {words[:length] for words in models.COMMANDS for length in range(1, len(words))} == set(models.NAMESPACES)
    assert models.HaloTaskInfo.__annotations__["status"].__forward_arg__ == "str"
    assert models.HaloTaskInfo.__annotations__["end_time"].__forward_arg__ == "NotRequired[str]"


def test_python_models_take_words_that_python_reserves(generate: Callable, tmp_path: Path) -> None:
    generate("--only", "python", "--out", tmp_path, SAMPLE, "--import", INTERFACE)
    models = module(tmp_path / "python/keeld_client/_generated.py")
    assert "class" in models.TestSampleAnswer.__annotations__


def test_openrpc(out: Path) -> None:
    found = document(out, "docs/openrpc.json")
    methods = {method["name"]: method for method in found["methods"]}
    assert set(methods) == set(module(out / "python/keeld_client/_generated.py").OPERATIONS)
    get = methods["com.orbane.halo.tasks.get"]
    assert get["result"]["schema"] == {"$ref": "#/components/schemas/com.orbane.halo.task.info"}
    assert get["params"] == [{"name": "task", "description": "Identifier of the task.", "required": True,
                              "schema": {"type": "string"}}]
    assert {"code": -32003, "message": "com.orbane.lumo.std.errors.not_found: There is no such task."} in get["errors"]
    stage = methods["com.orbane.ryn.keel_daemon.software.stage"]
    assert stage["result"]["schema"] == {"type": "string"}
    assert stage["x-task-result"] == {"$ref": "#/components/schemas/com.orbane.ryn.keel_daemon.software.stage_info"}
    references = [part.split('"')[0] for part in json.dumps(found).split('"$ref": "#/components/schemas/')[1:]]
    assert references and set(references) <= set(found["components"]["schemas"])


def test_the_reference_has_a_section_for_everything(out: Path) -> None:
    text = (out / "docs/api-reference.md").read_text("utf-8")
    titles = {line.lstrip("# ") for line in text.splitlines() if line.startswith("#")}
    for name in module(out / "python/keeld_client/_generated.py").OPERATIONS:
        assert name in titles
    anchors = {title.replace(".", "") for title in titles}
    links = [part.split(")")[0] for part in text.split("](#")[1:]]
    assert links and set(links) <= anchors


# The inputs that clients of the API rely on: operation, then parameters in order, "?" for optional ones.
INPUTS = {
    "com.orbane.halo.tasks.get": "task",
    "com.orbane.halo.tasks.cancel": "task",
    "com.orbane.halo.tasks.list": "",
    "com.orbane.ryn.hosts.software.components.get": "host? component",
    "com.orbane.ryn.hosts.software.components.list": "host?",
    "com.orbane.ryn.hosts.software.ryn.get": "host?",
    "com.orbane.ryn.keel_daemon.data_processing_unit.ryncli.run_ryncli_cmd": "prefix command depots flags",
    "com.orbane.ryn.keel_daemon.software.apply": "software_spec depots quick_patch?",
    "com.orbane.ryn.keel_daemon.software.scan": "software_spec depots quick_patch?",
    "com.orbane.ryn.keel_daemon.software.stage": "software_spec depots",
    "com.orbane.lumo.std.introspection.operation.list": "service",
    "com.orbane.lumo.std.introspection.operation.get": "service operation",
    "com.orbane.lumo.std.introspection.service.list": "",
    "com.orbane.lumo.std.introspection.service.get": "service",
    "com.orbane.lumo.std.introspection.provider.get": "",
}


def test_operations_and_their_inputs(out: Path) -> None:
    operations = module(out / "python/keeld_client/_generated.py").OPERATIONS
    assert {name: " ".join(p.name + ("" if p.required else "?") for p in operation.parameters)
            for name, operation in operations.items()} == INPUTS

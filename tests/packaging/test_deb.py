"""The Debian package as a file: its control data, its files, and that it is made the same everywhere."""

from __future__ import annotations

import dataclasses
import email.parser
import hashlib
import pathlib
import re
import shutil
import stat
import subprocess
import sys

import pytest

from conftest import BUILD_DEB, PROJECT, STAGE, build_deb

sys.path.insert(0, str(PROJECT / "hosttools"))

from orbane_stow.ryncli.commands import COMMANDS  # noqa: E402

SCRIPTS = ("postinst", "prerm", "postrm")


@dataclasses.dataclass
class Deb:
    """An unpacked package."""

    root: pathlib.Path
    control: pathlib.Path
    listing: dict[str, tuple[str, str]]  # path -> access rights as ls prints them, "owner/group"

    def field(self, name: str) -> str:
        """A field of the control file."""
        return str(email.parser.Parser().parsestr(self.script("control"))[name])

    def script(self, name: str) -> str:
        """A file of the control folder."""
        return (self.control / name).read_text(encoding="utf-8")

    def files(self) -> list[pathlib.Path]:
        """All files, not folders, as paths on the host."""
        return [pathlib.Path("/") / path.relative_to(self.root)
                for path in sorted(self.root.rglob("*")) if not path.is_dir()]

    def at(self, path: pathlib.Path | str) -> pathlib.Path:
        """Where the file that a host has at `path` was unpacked."""
        return self.root / str(path).lstrip("/")


@pytest.fixture(scope="module")
def deb(package: pathlib.Path, tmp_path_factory: pytest.TempPathFactory) -> Deb:
    """The package, unpacked."""
    folder = tmp_path_factory.mktemp("unpacked")
    subprocess.run(["dpkg-deb", "--raw-extract", package, folder], check=True)
    (folder / "DEBIAN").rename(folder.parent / "control-of-keeld")
    output = subprocess.run(["dpkg-deb", "--contents", package], check=True, capture_output=True, text=True).stdout
    listing = {}
    for line in output.splitlines():
        mode, owner, _, _, _, path = line.split(None, 5)
        listing[path.partition(" -> ")[0].removeprefix(".").rstrip("/") or "/"] = (mode, owner)
    return Deb(folder, folder.parent / "control-of-keeld", listing)


def test_control_fields(deb: Deb, package: pathlib.Path) -> None:
    version = re.search(r"project\(keeld VERSION ([0-9.]+)", (PROJECT / "CMakeLists.txt").read_text())
    assert version is not None
    assert deb.field("Package") == "keeld"
    assert deb.field("Version") == version[1]
    assert package.name == f"keeld_{version[1]}_{deb.field('Architecture')}.deb"
    assert deb.field("Section") == "admin" and deb.field("Priority") == "optional"
    assert re.fullmatch(r"[^<>]+ <[^<>@ ]+@[^<>@ ]+>", deb.field("Maintainer"))
    assert int(deb.field("Installed-Size")) == pytest.approx(sum(p.stat().st_size for p in deb.root.rglob("*")
                                                                 if p.is_file()) / 1024, rel=0.2)


def test_description_reads_well_in_lists(deb: Deb) -> None:
    synopsis, *text = deb.field("Description").splitlines()
    assert len(synopsis) <= 80 and not synopsis.endswith(".") and not synopsis.lower().startswith(("a ", "an ", "the "))
    assert text and all(line.startswith(" ") and len(line) <= 80 for line in text)


def test_no_placeholder_is_left(deb: Deb) -> None:
    for name in ("control", *SCRIPTS):
        assert not re.search(r"@[A-Z_]+@", deb.script(name)), name


def depends(deb: Deb) -> dict[str, str]:
    """Package -> version condition, of the field Depends."""
    rows = [part.strip() for part in deb.field("Depends").split(",")]
    return {row.split(" ")[0]: row.partition(" ")[2] for row in rows}


def test_depends_on_the_libraries_and_modules_that_it_loads(deb: Deb) -> None:
    names = depends(deb)
    for expected in ("libc6", "libstdc++6", "libsqlite3-0", "libssl3", "libboost-filesystem1.74.0", "python3",
                     "python3-gi", "gir1.2-ostree-1.0", "python-is-python3", "netbase", "libpam0g", "libpam-modules"):
        assert expected in names
    assert names["python3"] == "(>= 3.11)"
    assert not [name for name in names if name.endswith("-dev") or name.startswith(("libasan", "libtsan", "libubsan"))]


def test_depends_are_satisfied_where_packages_txt_was_installed(deb: Deb) -> None:
    result = subprocess.run(["dpkg-query", "-W", "-f", "${Package} ${db:Status-Status}\n", *depends(deb)],
                            capture_output=True, text=True, check=False)
    assert result.returncode == 0, result.stderr
    assert {line.split()[1] for line in result.stdout.splitlines()} == {"installed"}


@pytest.mark.parametrize("name", SCRIPTS)
def test_maintainer_scripts_are_sound(deb: Deb, name: str) -> None:
    script = deb.control / name
    lines = script.read_text().splitlines()
    assert lines[0] == "#!/bin/sh"
    assert "set -e" in lines
    assert stat.S_IMODE(script.stat().st_mode) == 0o755
    assert subprocess.run(["dash", "-n", script], capture_output=True, check=False).stderr == b""


def test_what_lies_in_etc_is_configuration(deb: Deb) -> None:
    in_etc = [str(path) for path in deb.files() if path.parts[1] == "etc"]
    assert deb.script("conffiles").splitlines() == in_etc
    assert {"/etc/orbane/features.conf", "/etc/orbane/preferences.conf"} <= set(in_etc)


def test_configuration_as_installed_changes_nothing(deb: Deb) -> None:
    for name in ("features.conf", "preferences.conf"):
        lines = deb.at(f"/etc/orbane/{name}").read_text().splitlines()
        assert all(line == "" or line.startswith("#") for line in lines), name


def test_feature_examples_name_the_defaults_of_all_switches(deb: Deb) -> None:
    source = (PROJECT / "platform/features/features.cpp").read_text()
    switches = dict(re.findall(r'\{kFeature\w+, "(\w+)", (true|false)\}', source))
    shown = dict(re.findall(r"^#(\w+) = (on|off)$", deb.at("/etc/orbane/features.conf").read_text(), re.MULTILINE))
    assert shown == {name: "on" if value == "true" else "off" for name, value in switches.items()}


def test_preference_examples_name_the_defaults(deb: Deb) -> None:
    text = deb.at("/etc/orbane/preferences.conf").read_text()
    source = (PROJECT / "hosttools/orbane_stow/paths.py").read_text()
    default = re.search(r'DEFAULT_IMAGE_ROOT = "(.*)"', source)
    assert default is not None
    assert f"#sysroot = {default[1]}\n" in text
    assert "#libdir = /usr/lib/orbane\n" in text


def test_files_lie_where_a_package_may_put_them(deb: Deb) -> None:
    allowed = ("/etc/orbane/", "/etc/pam.d/keeld", "/usr/bin/keel", "/usr/bin/ryncli", "/usr/bin/nearcli", "/usr/sbin/keeld", "/usr/lib/orbane/",
               "/usr/lib/systemd/system/keeld", "/usr/lib/tmpfiles.d/keeld", "/usr/share/bash-completion/completions/keel",
               "/usr/share/doc/keeld/", "/usr/share/man/man", "/usr/share/orbane/", "/usr/share/zsh/", "/usr/share/fish/")
    assert [path for path in deb.files() if not str(path).startswith(allowed)] == []
    assert [path for path in deb.files() if path.suffix == ".pyc" or "__pycache__" in path.parts] == []


def test_everything_belongs_to_root_and_nobody_else_writes(deb: Deb) -> None:
    for path, (mode, owner) in deb.listing.items():
        assert owner == "root/root", path
        assert mode in ("drwxr-xr-x", "-rwxr-xr-x", "-rw-r--r--", "lrwxrwxrwx"), path
    programs = {path for path, (mode, _) in deb.listing.items() if mode == "-rwxr-xr-x"}
    assert {"/usr/sbin/keeld", "/usr/bin/keelctl", "/usr/lib/orbane/lifecycle/bin/stowctl.py"} <= programs
    assert all(path.startswith(("/usr/bin/", "/usr/sbin/", "/usr/lib/orbane/")) for path in programs)


def test_programs_are_stripped_and_find_their_libraries_by_default_paths(deb: Deb) -> None:
    sections = subprocess.run(["readelf", "--wide", "--sections", "--dynamic", deb.at("/usr/sbin/keeld")],
                              capture_output=True, text=True, check=True).stdout
    assert ".debug_info" not in sections and ".symtab" not in sections
    assert "RPATH" not in sections and "RUNPATH" not in sections


def test_python_programs_use_debians_python(deb: Deb) -> None:
    for path in deb.files():
        first = deb.at(path).open("rb").readline()
        if first.startswith(b"#!") and b"python" in first:
            assert first.split() == [b"#!/usr/bin/python3"], path


def test_checksums(deb: Deb) -> None:
    rows = dict(reversed(line.split("  ", 1)) for line in deb.script("md5sums").splitlines())
    assert sorted(rows) == [str(path)[1:] for path in deb.files() if path.parts[1] != "etc"]
    for name, checksum in rows.items():
        assert hashlib.md5((deb.root / name).read_bytes()).hexdigest() == checksum, name


def test_documents(deb: Deb) -> None:
    folder = deb.at("/usr/share/doc/keeld")
    names = {path.name for path in folder.iterdir()}
    assert {"copyright", "changelog.gz", "README.md", "api-reference.md"} <= names
    assert "LICENSE" not in names
    assert "/usr/share/common-licenses/Apache-2.0" in (folder / "copyright").read_text()
    assert pathlib.Path("/usr/share/common-licenses/Apache-2.0").exists()


def test_manuals_refer_to_documents_that_are_there(deb: Deb) -> None:
    for page in manuals():
        for document in re.findall(r"/usr/share/doc/keeld/[\w./-]*\w", (STAGE / page).read_text().replace("\\-", "-")):
            assert deb.at(document).exists(), f"{page}: {document}"


def manuals() -> list[str]:
    """The manual pages of the stage."""
    return sorted(str(path.relative_to(STAGE)) for path in (STAGE / "usr/share/man").rglob("*") if path.is_file())


@pytest.mark.parametrize("page", manuals())
def test_manual_pages_are_packed_and_render(deb: Deb, page: str) -> None:
    packed = deb.at(page + ".gz")
    assert packed.read_bytes()[4:8] == b"\0\0\0\0"  # no time of its own
    text = subprocess.run(["gzip", "-dc", packed], capture_output=True, check=True).stdout
    if text.startswith(b".so "):  # another one's page
        assert deb.at("/usr/share/man/" + text.decode().split()[1] + ".gz").exists()
        return
    assert b".SH NAME" in text
    if shutil.which("groff"):
        result = subprocess.run(["groff", "-man", "-Tutf8", "-ww", "-rLL=100n"], input=text, capture_output=True, check=True)
        assert result.stderr == b""


def test_every_program_has_a_manual(deb: Deb) -> None:
    for folder, section in (("bin", 1), ("sbin", 8)):
        for program in deb.at(f"/usr/{folder}").iterdir():
            assert deb.at(f"/usr/share/man/man{section}/{program.name}.{section}.gz").exists(), program.name


@pytest.mark.parametrize("name", ["keel-depot", "keel-token"])
def test_manuals_name_every_command_and_option(name: str) -> None:
    text = (PROJECT / f"packaging/man/{name}.1").read_text()

    def usage(*words: str) -> str:
        return subprocess.run([PROJECT / "hosttools/bin" / name, *words, "--help"], capture_output=True, text=True,
                              check=True).stdout

    commands = re.findall(r"^    ([a-z-]+)(?:  |$)", usage(), re.MULTILINE)
    assert len(commands) >= 3
    for command in commands:
        assert re.search(rf"^\.BI? {command}\b", text, re.MULTILINE), command
        for option in set(re.findall(r"(--[a-z-]+)", usage(command))) - {"--help"}:
            assert option in text, option


def test_manual_of_the_xml_tools_names_every_command() -> None:
    text = (PROJECT / "packaging/man/ryncli.1").read_text()
    for command in COMMANDS.values():
        named = re.search(rf'^\.BI? "?{command.words}\b', text, re.MULTILINE)
        assert bool(named) != bool(command.refusal), command.words


def test_same_stage_gives_same_bytes(package: pathlib.Path, tmp_path: pathlib.Path) -> None:
    assert build_deb(tmp_path, umask=0o077).read_bytes() == package.read_bytes()


def failing(*words: str | pathlib.Path) -> str:
    """Runs the script, which has to fail; gives what it says."""
    result = subprocess.run([BUILD_DEB, *words], capture_output=True, text=True, check=False)
    assert result.returncode == 1
    assert result.stdout == "" and "Traceback" not in result.stderr
    return result.stderr


def test_says_that_a_folder_is_no_stage(tmp_path: pathlib.Path) -> None:
    assert failing("--stage", tmp_path) == f"build-deb: {tmp_path} is no stage; build the target `stage` first\n"


def test_says_which_module_has_no_known_package(tmp_path: pathlib.Path) -> None:
    stage = tmp_path / "stage"
    (stage / "usr/sbin").mkdir(parents=True)
    shutil.copy("/usr/bin/true", stage / "usr/sbin/keeld")
    (stage / "usr/lib/orbane/python/own").mkdir(parents=True)
    module = stage / "usr/lib/orbane/python/own/module.py"
    module.write_text("import os.path\nfrom own import other\nfrom . import beside\nimport gi\n")
    out = tmp_path / "out"
    assert subprocess.run([BUILD_DEB, "--stage", stage, "--out", out], check=False).returncode == 0
    module.write_text("import strangely_named\n")
    said = failing("--stage", stage, "--out", out)
    assert "/usr/lib/orbane/python/own/module.py: which Debian package has the module strangely_named?" in said

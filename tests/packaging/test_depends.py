"""That the package's field Depends is true: what its programs open on a host lies in packages that it asks for."""

from __future__ import annotations

import os
import pathlib
import re
import signal
import subprocess
from collections.abc import Iterable

import pytest

from host import listens, processes, run, wait_for

#: Folders of plugins that libraries look into: what lies there depends on the host, and nothing of it is needed.
PLUGINS = ("/gio/modules/", "/libnss_", "/security/", "/locale/", "/zoneinfo/", "/ssl/", "/pkcs11/", "/engines-3/")


def traced(trace: pathlib.Path, *words: str | pathlib.Path) -> list[str | pathlib.Path]:
    """The command, with the files that it and its children open or execute noted in `trace`."""
    return ["strace", "-f", "-qq", "-s", "4096", "-e", "trace=open,openat,execve", "-e", "status=successful", "-o", trace, *words]


def opened(*traces: pathlib.Path) -> set[str]:
    """The files of the system that were opened, compiled modules as their sources."""
    found = set()
    for trace in traces:
        for path in re.findall(r'(?:open|openat|execve)\((?:AT_FDCWD, )?"(/[^"]+)"', trace.read_text(errors="replace")):
            path = re.sub(r"/__pycache__/([^/]+)\.cpython-\d+\.pyc$", r"/\1.py", path)
            if path.startswith(("/usr/", "/lib", "/bin/", "/sbin/")) and os.path.isfile(path):
                found.update((path, os.path.realpath(path)))
    return {path for path in found if not any(part in path for part in PLUGINS)}


def owners(paths: Iterable[str]) -> dict[str, str]:
    """Path -> package that it came with; paths without one are left out."""
    names: dict[str, str] = {}
    for path in paths:  # a package may have a file by its path of before the merge of / and /usr
        names[path] = path
        names[path.removeprefix("/usr") if path.startswith("/usr/") else f"/usr{path}"] = path
    output = subprocess.run(["dpkg-query", "--search", *names], capture_output=True, text=True, check=False).stdout
    found = {}
    for line in output.splitlines():
        packages, _, path = line.partition(": ")
        if path in names:
            found[names[path]] = packages.split(",")[0].split(":")[0]
    return found


def closure(wanted: Iterable[str]) -> set[str]:
    """The packages of `wanted` with all that they depend on, and what every Debian system has."""
    fields = ("Package", "Essential", "Priority", "Pre-Depends", "Depends", "Provides")
    output = run("dpkg-query", "-W", "-f", "\\t".join(f"${{{field}}}" for field in fields) + "\\n").stdout
    rows = {row[0]: row for row in (line.split("\t") for line in output.splitlines())}
    providers: dict[str, list[str]] = {}
    for package, row in rows.items():
        for name in row[5].split(","):
            providers.setdefault(name.split("(")[0].strip(), []).append(package)
    todo = [*wanted, *(package for package, row in rows.items() if row[1] == "yes" or row[2] == "required")]
    found: set[str] = set()
    while todo:
        name = todo.pop()
        if name in found:
            continue
        found.add(name)
        todo += providers.get(name, [])
        if name in rows:
            todo += [re.split(r"[ :(]", one.strip())[0] for part in (rows[name][3], rows[name][4])
                     for one in re.split(r"[,|]", part) if one.strip()]
    return found


@pytest.fixture
def daemon(tmp_path: pathlib.Path) -> Iterable[pathlib.Path]:
    """The daemon, traced with the tools that it starts; gives the trace."""
    trace = tmp_path / "keeld.trace"
    with subprocess.Popen(traced(trace, "/usr/sbin/keeld"), stdin=subprocess.DEVNULL) as process:
        wait_for(listens, "the daemon's port")
        yield trace
        for pid in processes():
            os.kill(pid, signal.SIGTERM)
        process.wait(60)


def test_programs_open_only_what_the_package_depends_on(daemon: pathlib.Path, package: pathlib.Path,
                                                        tmp_path: pathlib.Path) -> None:
    depots, client, builder, bare = (tmp_path / name for name in ("depots", "client.trace", "builder.trace", "bare.trace"))
    run(*traced(bare, "/usr/bin/python3", "-c", "pass"))  # loads what site packages of the host put into every start
    run(*traced(builder, "keel-depot", "sample", depots))
    sources = [f"--depot=file://{depots}/{name}" for name in ("main", "extras")]
    for verb in ("scan", "apply"):
        run(*traced(client, "keelctl", "software", verb, *sources, f"--spec={depots}/specs/first.json"))

    files = opened(daemon, builder, client)
    assert any(path.endswith("libpython3.11.so.1.0") or path.endswith("/python3.11") for path in files)
    assert any("libostree" in path for path in files), "the image manager was at work"
    depends = run("dpkg-deb", "--field", package, "Depends").stdout
    allowed = closure(part.split()[0] for part in depends.split(",")) | set(owners(opened(bare)).values())
    assert {path: name for path, name in owners(files).items() if name not in allowed} == {}

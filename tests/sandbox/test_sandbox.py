"""The sandbox itself: what it isolates, what it hands on, and that nothing outlives it."""

from __future__ import annotations

import concurrent.futures
import os
import pathlib
import signal
import subprocess
import time

import pytest

RUN = pathlib.Path(__file__).parent / "run"

pytestmark = pytest.mark.skipif(os.geteuid() != 0, reason="namespaces of one's own need root")


def run(*words: str, **options: object) -> subprocess.CompletedProcess[str]:
    """Runs the sandbox with `words` to its end."""
    return subprocess.run([RUN, *words], capture_output=True, text=True, timeout=60, check=False, **options)


def shell(script: str, *options: str) -> subprocess.CompletedProcess[str]:
    """Runs a shell script in a sandbox."""
    return run(*options, "/bin/sh", "-c", script)


def wait_until(condition, what: str) -> None:
    """Waits for `condition()` to become true."""
    deadline = time.monotonic() + 30
    while not condition():
        assert time.monotonic() < deadline, f"waited in vain for {what}"
        time.sleep(0.005)


@pytest.mark.parametrize("code", [0, 1, 7, 124, 255])
def test_exit_status_is_the_commands(code: int) -> None:
    assert shell(f"exit {code}").returncode == code


def test_death_by_signal_is_128_plus_its_number() -> None:
    assert shell("kill -SEGV $$").returncode == 128 + signal.SIGSEGV


@pytest.mark.parametrize("words, status, text", [
    ([], 125, "no command given"),
    (["--frobnicate", "true"], 125, "unknown option --frobnicate"),
    (["--stage"], 125, "--stage needs a folder"),
    (["--stage", "/no/such/folder", "true"], 125, "/no/such/folder is not a folder"),
    (["--stage", "/usr", "--bare", "true"], 125, "--bare and --stage exclude each other"),
    (["/no/such/program"], 127, "cannot run /no/such/program: No such file or directory"),
    (["/etc/passwd"], 126, "cannot run /etc/passwd: Permission denied"),
])
def test_errors_say_what_is_wrong(words: list[str], status: int, text: str) -> None:
    result = run(*words)
    assert result.returncode == status
    assert text in result.stderr
    assert "Traceback" not in result.stderr


def test_help() -> None:
    assert "--stage DIR" in run("--help").stdout


@pytest.mark.parametrize("path", ["/etc/orbane", "/var/lib/orbane", "/tmp", "/var/orbane/lifecycle"])
def test_state_folders_are_fresh_and_private(tmp_path: pathlib.Path, path: str) -> None:
    stage = ["--stage", str(tmp_path)] if path == "/etc/orbane" else []  # the stage has files for there
    assert shell(f"ls -A {path}; echo x > {path}/sandbox-test-mark", *stage).stdout == ""
    assert not pathlib.Path(path, "sandbox-test-mark").exists()


def test_etc_usr_and_var_are_copy_on_write() -> None:
    result = shell("for d in /etc /usr/bin /var/lib; do echo x > $d/sandbox-test-mark && cat $d/sandbox-test-mark; done;"
                   "rm /bin/true; test -e /bin/true")
    assert result.stdout == "x\nx\nx\n"
    assert result.returncode == 1
    assert pathlib.Path("/bin/true").exists()
    assert not pathlib.Path("/etc/sandbox-test-mark").exists()


def test_stage_is_laid_over_and_never_written(tmp_path: pathlib.Path) -> None:
    tool = tmp_path / "usr/lib/orbane/lifecycle/bin/stowctl.py"
    tool.parent.mkdir(parents=True)
    tool.write_text("staged\n")
    program = tmp_path / "usr/sbin/keeld"
    program.parent.mkdir(parents=True)
    program.write_text("#!/bin/sh\necho staged daemon\n")
    program.chmod(0o755)
    conf = tmp_path / "etc/orbane/features.conf"
    conf.parent.mkdir(parents=True)
    conf.write_text("a = on\n")
    result = shell(f"cat {str(tool)[len(str(tmp_path)):]} /etc/orbane/features.conf; keeld;"
                   "echo changed > /usr/lib/orbane/lifecycle/bin/stowctl.py; echo changed > /etc/orbane/features.conf;"
                   "cat /usr/lib/orbane/lifecycle/bin/stowctl.py", "--stage", str(tmp_path))
    assert result.stdout == "staged\na = on\nstaged daemon\nchanged\n"
    assert tool.read_text() == "staged\n"
    assert conf.read_text() == "a = on\n"


def test_kept_and_current_folders_stay_outside_ones(tmp_path: pathlib.Path) -> None:
    kept, current = tmp_path / "kept", tmp_path / "current"
    kept.mkdir()
    current.mkdir()
    result = run("--keep", str(kept), "/bin/sh", "-c", f"pwd > here; echo y > {kept}/there", cwd=current)
    assert result.returncode == 0, result.stderr
    assert (current / "here").read_text() == f"{current}\n"
    assert (kept / "there").read_text() == "y\n"


def test_host_has_the_service_the_accounts_and_no_way_out() -> None:
    assert "7433/tcp" in shell("getent services keeld").stdout
    assert shell("getent passwd operator alice locked expired renew | wc -l").stdout.strip() == "5"
    assert "crypt" not in shell("stat -c %a /etc/shadow").stdout
    assert shell("stat -c %a /etc/shadow").stdout == "600\n"
    devices = [line.split(":")[0].strip() for line in shell("cat /proc/net/dev").stdout.splitlines()[2:]]
    assert all(shell(f"cat /sys/class/net/{name}/operstate; grep -c {name} /proc/net/route").stdout != ""
               for name in devices)
    addresses = shell("cat /proc/net/fib_trie").stdout
    assert "127.0.0.1" in addresses
    assert shell("cat /proc/net/route").stdout.count("\n") == 1


@pytest.mark.skipif(os.path.exists("/usr/sbin/keeld"), reason="this machine has the product itself")
def test_bare_host_has_nothing_of_the_product() -> None:
    result = shell("getent services keeld; find /etc /run /usr/lib /usr/sbin /var -xdev "
                   "'(' -name orbane -o -name keeld -o -name keeld.service ')'; ls /dev/log", "--bare")
    assert result.stdout.split() == ["/dev/log"]


def test_bare_host_has_the_machines_accounts_and_services() -> None:
    result = shell("for f in passwd shadow services; do sha256sum </etc/$f; done; stat -c %a /etc/shadow", "--bare")
    assert result.stdout == subprocess.run(
        ["/bin/sh", "-c", "for f in passwd shadow services; do sha256sum </etc/$f; done; stat -c %a /etc/shadow"],
        capture_output=True, text=True, check=True).stdout


def test_system_log_is_real_and_its_own() -> None:
    script = ("logger -t keeld -p authpriv.info 'an audit line'; logger -t keeld -p daemon.warning 'a text';"
              "while ! grep -q 'a text' /var/log/keeld.log; do sleep 0.01; done; cat /var/log/auth.log; echo --;"
              "cat /var/log/keeld.log")
    lines = [line.split(" ", 1)[-1] for line in shell(script).stdout.splitlines() if "rsyslogd" not in line]
    assert lines == ["authpriv.info keeld: an audit line", "--", "daemon.warning keeld: a text"]


def test_processes_are_its_own_and_end_with_the_command(tmp_path: pathlib.Path) -> None:
    mark = tmp_path / "mark"
    mark.touch()
    result = run("--keep", str(tmp_path), "/bin/sh", "-c", f"exec 9>{mark}; setsid sleep 1000 & ls /proc | grep -c '^[0-9]'")
    assert int(result.stdout) < 10
    assert not holders(mark)


def holders(path: pathlib.Path) -> list[str]:
    """The processes that have `path` open."""
    found = []
    for link in pathlib.Path("/proc").glob("[0-9]*/fd/*"):
        try:
            if os.readlink(link) == str(path):
                found.append(str(link))
        except OSError:
            continue
    return found


def test_orphans_are_reaped() -> None:
    script = ("(setsid sh -c 'exit 3' &) ; (setsid sh -c 'exit 4' &);"
              "i=0; while ps -eo stat= | grep -q Z; do i=$((i+1)); [ $i -lt 500 ] || exit 1; sleep 0.01; done")
    assert shell(script).returncode == 0


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGUSR1])
def test_signals_are_passed_on(tmp_path: pathlib.Path, number: signal.Signals) -> None:
    script = f"trap 'exit 42' {number.name[3:]}; echo ready; while :; do sleep 0.01; done"
    with subprocess.Popen([RUN, "/bin/sh", "-c", script], stdout=subprocess.PIPE, text=True) as process:
        assert process.stdout is not None
        assert process.stdout.readline() == "ready\n"
        process.send_signal(number)
        assert process.wait(30) == 42


def test_a_killed_sandbox_leaves_nothing(tmp_path: pathlib.Path) -> None:
    mark = tmp_path / "mark"
    mark.touch()
    script = f"exec 9>{mark}; (setsid sleep 1000 &); echo ready; sleep 1000"
    with subprocess.Popen([RUN, "--keep", str(tmp_path), "/bin/sh", "-c", script], stdout=subprocess.PIPE, text=True) as process:
        assert process.stdout is not None
        assert process.stdout.readline() == "ready\n"
        assert holders(mark)
        process.kill()
    wait_until(lambda: not holders(mark), "the end of the sandbox's processes")


def test_many_side_by_side() -> None:
    script = ("set -e; echo $1 > /var/orbane/lifecycle/mine; logger -t t $1;"
              "/usr/bin/python3 -c 'import socket; s=socket.create_server((\"127.0.0.1\",7433)); s.close()';"
              "cat /var/orbane/lifecycle/mine")
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        results = list(pool.map(lambda n: run("/bin/sh", "-c", script, "sh", str(n)), range(16)))
    assert [result.stdout for result in results] == [f"{n}\n" for n in range(16)]

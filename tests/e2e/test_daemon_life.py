"""The daemon's own life: what it finds and leaves at start, where it listens, how it ends."""

from __future__ import annotations

import concurrent.futures
import contextlib
import ctypes
import errno
import os
import pathlib
import platform
import re
import resource
import shutil
import signal
import socket
import stat
import struct
import sys
import threading
from collections.abc import Iterator

import pytest
from harness.daemon import PROGRAM, Daemon
from harness.syslog import SystemLog
from harness.waiting import PATIENCE, wait_for
from harness.wire import PORT, TASKS, ApiError, Rpc, is_listening

sys.path.insert(0, "/usr/lib/orbane/python")

from orbane_taskdb import TaskManager  # noqa: E402

STATE = pathlib.Path("/var/orbane/lifecycle")
GATE = STATE / "lifecycle.task"
APPLY_PID = STATE / "lifecycle.apply.pid"
DATABASE = STATE / "task-status.json.db"
METADATA = pathlib.Path("/usr/lib/orbane/lifecycle/metadata")
SCHEMAS = pathlib.Path("/usr/lib/orbane/configmanager/schemas")
MODULES = pathlib.Path("/usr/lib/orbane/configmanager/apply_modules")
SERVICES = pathlib.Path("/etc/services")
IPV6_SWITCH = pathlib.Path("/proc/sys/net/ipv6/conf/all/disable_ipv6")
INTROSPECTION = "com.orbane.lumo.std.introspection"

# In the order in which they are loaded.
METADATA_FILES = [
    ("cli", "keeld_lumo_cli.json"),
    ("cli", "lumo_common_cli.json"),
    ("metamodel", "keeld_lumo_metamodel.json"),
    ("metamodel", "lumo_common_metamodel.json"),
    ("authn", "keeld_lumo_authentication.json"),
]


@contextlib.contextmanager
def replaced(path: pathlib.Path, content: bytes | None) -> Iterator[bytes]:
    """Replaces a file, or takes it away, and puts the original back; gives the original's bytes."""
    original = path.read_bytes()
    path.unlink()
    if content is not None:
        path.write_bytes(content)
    try:
        yield original
    finally:
        path.unlink(missing_ok=True)
        path.write_bytes(original)


@contextlib.contextmanager
def taken(family: socket.AddressFamily, address: str) -> Iterator[None]:
    """Listens at the daemon's port on one address, so that the daemon cannot."""
    with socket.socket(family, socket.SOCK_STREAM) as listener:
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        if family == socket.AF_INET6:
            listener.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, 1)
        listener.bind((address, PORT))
        listener.listen()
        yield


def died_at_start(daemon: Daemon) -> str:
    """Starts the daemon, which has to end itself by abort; gives what it wrote to its standard streams."""
    daemon.launch(preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_CORE, (0, 0)))
    assert daemon.process is not None
    assert daemon.process.wait(PATIENCE) == -signal.SIGABRT
    return daemon.output()


@contextlib.contextmanager
def held_up_at_start(daemon: Daemon) -> Iterator[None]:
    """Launches the daemon and holds it up in the middle of its start, by a metadata file that is a pipe; at the end of
    the context it goes on."""
    path = METADATA / METADATA_FILES[0][1]
    with replaced(path, None) as content:
        os.mkfifo(path)
        daemon.launch()
        with path.open("wb", buffering=0) as pipe:  # returns when the daemon has opened its end
            yield
            pipe.write(content)


def refuse(numbers: dict[str, int], arguments: dict[int, int]) -> None:
    """Makes a system call with the given arguments (values by index) fail with EPERM, in this process and the program that
    it becomes, by a filter. `numbers` are the call's, by machine."""
    prctl_set_no_new_privs, prctl_set_seccomp, mode_filter = 38, 22, 2
    load, jump_if_equal, give = 0x20, 0x15, 0x06
    allow, fail = 0x7fff0000, 0x00050000 | errno.EPERM
    # Of the call's 32 bit words the number lies at 0, the lower halves of the arguments at 16, 24 …
    words = [(0, numbers[platform.machine()]), *((16 + 8 * index, value) for index, value in arguments.items())]
    steps = []
    for left, (offset, value) in zip(range(len(words), 0, -1), words):
        steps += [(load, 0, 0, offset), (jump_if_equal, 0, 2 * left - 1, value)]
    steps += [(give, 0, 0, fail), (give, 0, 0, allow)]
    code = ctypes.create_string_buffer(b"".join(struct.pack("=HBBI", *step) for step in steps))
    program = ctypes.create_string_buffer(struct.pack("@HP", len(steps), ctypes.addressof(code)))
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.prctl(prctl_set_no_new_privs, 1, 0, 0, 0) or libc.prctl(prctl_set_seccomp, mode_filter, program):
        raise OSError(ctypes.get_errno(), "no system call filter")


def refuse_a_handler_for_sigterm() -> None:
    """`sigaction` fails for SIGTERM."""
    refuse({"x86_64": 13, "aarch64": 134}, {0: signal.SIGTERM})


def refuse_sockets_for_ipv6_alone() -> None:
    """`setsockopt` fails for IPV6_V6ONLY."""
    refuse({"x86_64": 54, "aarch64": 208}, {1: socket.IPPROTO_IPV6, 2: socket.IPV6_V6ONLY})


def listening() -> set[tuple[str, str]]:
    """Tables and local addresses, as the kernel prints them, of all sockets that listen at the daemon's port."""
    found = set()
    for table in ("tcp", "tcp6"):
        for line in pathlib.Path(f"/proc/net/{table}").read_text().splitlines()[1:]:
            words = line.split()
            address, port = words[1].split(":")
            if words[3] == "0A" and int(port, 16) == PORT:
                found.add((table, address))
    return found


def threads(daemon: Daemon) -> int:
    """How many threads the daemon has."""
    return len(os.listdir(f"/proc/{daemon.pid}/task"))


# --- what it finds at start ---


def test_stale_gate_is_removed(stopped_daemon: Daemon) -> None:
    GATE.write_text("PRECURSOR: 0d6e4079-e367-4ec5-a3f6-6f1f2a4b1b11")
    stopped_daemon.start()
    assert not GATE.exists()


def test_start_without_a_gate_has_nothing_to_report(daemon: Daemon, syslog: SystemLog) -> None:
    syslog.wait("HTTP endpoint listening on TCP port 7433")
    assert [entry for entry in syslog.entries() if entry.severity in ("err", "warning")] == []


def test_task_records_do_not_survive_a_restart(daemon: Daemon, rpc: Rpc) -> None:
    TaskManager(str(DATABASE)).create_task("6f1c2d3e-0000-4000-8000-000000000001")
    assert list(rpc.tasks()) == ["6f1c2d3e-0000-4000-8000-000000000001"]
    daemon.restart()
    assert rpc.tasks() == {}


def test_damaged_database_is_replaced(stopped_daemon: Daemon, rpc: Rpc) -> None:
    DATABASE.write_bytes(b"not a database at all" * 500)
    stopped_daemon.start()
    assert rpc.tasks() == {}


def test_apply_pid_file_is_left_alone(stopped_daemon: Daemon) -> None:
    APPLY_PID.write_text("PRECURSOR: x")
    stopped_daemon.start()
    assert APPLY_PID.read_text() == "PRECURSOR: x"


# --- what must be there ---


def test_metadata_is_loaded_in_order(daemon: Daemon, syslog: SystemLog) -> None:
    syslog.wait("HTTP endpoint listening")
    assert [entry.text for entry in syslog.find("^Loading .* metadata file: ")] == [
        f"Loading {kind} metadata file: {METADATA / name}" for kind, name in METADATA_FILES]


@pytest.mark.parametrize("content", [None, b"", b"{", b'{"other":{}}'], ids=["missing", "empty", "cut", "other"])
@pytest.mark.parametrize("name", [name for _, name in METADATA_FILES])
def test_bad_metadata_ends_the_start(stopped_daemon: Daemon, syslog: SystemLog, name: str, content: bytes | None) -> None:
    with replaced(METADATA / name, content):
        assert re.fullmatch(r"VERIFY \S+provider\.cpp:\d+\n", died_at_start(stopped_daemon))
    [entry] = syslog.wait("^Error loading file: ")
    assert entry.severity == "err"
    assert str(METADATA / name) in entry.text
    assert syslog.find("^Listening on: ") == [], "the port was opened"


def test_no_entry_in_the_services_database_ends_the_start(stopped_daemon: Daemon, syslog: SystemLog) -> None:
    without = b"".join(line for line in SERVICES.read_bytes().splitlines(True) if not line.startswith(b"keeld"))
    with replaced(SERVICES, without):
        assert re.fullmatch(r"VERIFY \S+endpoint\.cpp:\d+\n", died_at_start(stopped_daemon))
    [failure] = syslog.wait("^getaddrinfo failed. Error: ")
    assert failure.text == "getaddrinfo failed. Error: Servname not supported for ai_socktype"
    assert failure.severity == "err"
    syslog.wait("^ServerConfig{")
    texts = syslog.texts()
    [configuration] = [text for text in texts if text.startswith("ServerConfig{")]
    assert texts.index(failure.text) < texts.index(configuration), "the whole endpoint is built before the end"
    assert syslog.find("^Listening on: ") == []


def test_port_is_the_one_of_the_services_database(stopped_daemon: Daemon) -> None:
    with replaced(SERVICES, re.sub(rb"(?m)^keeld\s+\d+/tcp", b"keeld 7555/tcp", SERVICES.read_bytes())):
        stopped_daemon.launch()
        wait_for(lambda: is_listening(port=7555), "the daemon's other port")
        assert not is_listening()
        assert Rpc(port=7555)(f"{INTROSPECTION}.provider.get")["id"] == "AsyncLocalProvider"


def test_state_folder_that_others_can_write_ends_the_start(stopped_daemon: Daemon, syslog: SystemLog) -> None:
    mode = stat.S_IMODE(STATE.stat().st_mode)
    STATE.chmod(0o777)
    try:
        output = died_at_start(stopped_daemon)
    finally:
        STATE.chmod(mode)
    [entry] = syslog.wait("^Uncaught exception: .*others can write to its folder")
    assert entry.severity == "err"
    assert output == entry.text + "\n"
    assert syslog.find("^Loading ") == []


# --- where it listens ---


def test_listens_on_both_loopback_addresses_and_nowhere_else(daemon: Daemon) -> None:
    assert listening() == {("tcp", "0100007F"), ("tcp6", "00000000000000000000000001000000")}
    for host in ("127.0.0.1", "::1"):
        assert Rpc(host=host)(f"{INTROSPECTION}.provider.get")["id"] == "AsyncLocalProvider"


def test_server_configuration_is_logged(daemon: Daemon, syslog: SystemLog) -> None:
    [entry] = syslog.wait("^ServerConfig{")
    assert entry.text == (
        "ServerConfig{endpoint4:127.0.0.1:7433;endpoint6:[::1]:7433;readTimeout:20 minutes;writeTimeout:30 minutes;"
        "httpBodySizeLimitInBytes:2500000;ProtocolHandlerSpec::extractors not set}")
    assert (entry.facility, entry.severity) == ("daemon", "notice")


def test_one_address_in_use_leaves_the_other(stopped_daemon: Daemon, syslog: SystemLog) -> None:
    with taken(socket.AF_INET, "127.0.0.1"):
        stopped_daemon.launch()
        wait_for(lambda: is_listening("::1"), "the IPv6 port")
        syslog.wait(r"^IPv4 Failed to listen on: 127\.0\.0\.1:7433 ec: system:98$")
        syslog.wait(r"^Listening on: \[::1\]:7433$")
        assert Rpc(host="::1")(f"{INTROSPECTION}.provider.get")["id"] == "AsyncLocalProvider"
        assert listening() == {("tcp", "0100007F"), ("tcp6", "00000000000000000000000001000000")}


def test_both_addresses_in_use_leave_a_daemon_that_stops_in_order(stopped_daemon: Daemon, syslog: SystemLog) -> None:
    with taken(socket.AF_INET, "127.0.0.1"), taken(socket.AF_INET6, "::1"):
        stopped_daemon.launch()
        syslog.wait("^IPv4 Failed to listen on: ")
        syslog.wait("^IPv6 Failed to listen on: ")
        syslog.wait("^HTTP endpoint listening on TCP port 7433$")
        assert stopped_daemon.running
        assert stopped_daemon.stop() == 0


def test_host_without_ipv6_is_served_on_ipv4_alone(stopped_daemon: Daemon, syslog: SystemLog, rpc: Rpc) -> None:
    try:
        IPV6_SWITCH.write_text("1")
    except OSError as error:
        pytest.skip(f"IPv6 can't be switched off here: {error}")
    try:
        stopped_daemon.start()
        [complaint] = syslog.wait("Failed to listen on: ")
        assert complaint.text == "IPv6 Failed to listen on: [::1]:7433 ec: system:99"
        assert complaint.severity == "notice"
        assert listening() == {("tcp", "0100007F")}
        assert rpc.tasks() == {}
        assert stopped_daemon.stop() == 0
    finally:
        IPV6_SWITCH.write_text("0")


# --- how it ends ---


def test_sigterm_ends_it_with_status_zero(daemon: Daemon, syslog: SystemLog) -> None:
    syslog.wait(r"^TaskSchedular started\.$")
    assert daemon.stop() == 0
    assert daemon.output() == ""
    assert not is_listening()
    syslog.wait(r"^TaskSchedular stopped\.$")
    assert syslog.texts()[-2:] == ["TaskSchedular abort requested.", "TaskSchedular stopped."]


def test_without_a_handler_for_sigterm_it_serves(stopped_daemon: Daemon, rpc: Rpc, syslog: SystemLog) -> None:
    stopped_daemon.start(preexec_fn=refuse_a_handler_for_sigterm)
    [entry] = syslog.wait("^Error in registering sigterm handler$")
    assert entry.severity == "warning"
    assert rpc.tasks() == {}
    assert stopped_daemon.stop() == -signal.SIGTERM


def test_sigterm_with_open_connections(daemon: Daemon) -> None:
    with contextlib.ExitStack() as stack:
        for _ in range(20):
            stack.enter_context(socket.create_connection(("127.0.0.1", PORT)))
        assert daemon.stop() == 0


def test_sigterm_before_the_loop_is_not_lost(stopped_daemon: Daemon, syslog: SystemLog) -> None:
    with held_up_at_start(stopped_daemon):
        os.kill(stopped_daemon.pid, signal.SIGTERM)
        status = pathlib.Path(f"/proc/{stopped_daemon.pid}/status")
        wait_for(lambda: re.search(r"(?m)^ShdPnd:\s0+$", status.read_text()), "delivery of the signal")
    assert stopped_daemon.process is not None
    assert stopped_daemon.process.wait(PATIENCE) == 0
    syslog.wait("^HTTP endpoint listening on TCP port 7433$")


@pytest.mark.skipif(re.search(rb"__[at]san_init", PROGRAM.read_bytes()) is not None,
                    reason="a sanitizer's own memory needs more than the limit")
def test_endpoint_that_cannot_start_is_status_minus_one(stopped_daemon: Daemon, syslog: SystemLog) -> None:
    with held_up_at_start(stopped_daemon):
        # Room for what is left of the start, but not for the stack of another thread.
        pages = int(pathlib.Path(f"/proc/{stopped_daemon.pid}/statm").read_text().split()[0])
        room = pages * resource.getpagesize() + (4 << 20)
        resource.prlimit(stopped_daemon.pid, resource.RLIMIT_AS, (room, room))
    assert stopped_daemon.process is not None
    assert stopped_daemon.process.wait(PATIENCE) == 255
    [entry] = syslog.wait("^Failed to start HTTP service. Aborting. Error:.")
    assert entry.severity == "err"
    assert syslog.find("^HTTP endpoint listening on TCP port") == []


def test_ipv6_that_cannot_be_kept_apart_is_status_minus_one(stopped_daemon: Daemon, syslog: SystemLog) -> None:
    stopped_daemon.launch(preexec_fn=refuse_sockets_for_ipv6_alone)
    assert stopped_daemon.process is not None
    assert stopped_daemon.process.wait(PATIENCE) == 255
    [entry] = syslog.wait("^Failed to start HTTP service. Aborting. Error:set_option")
    assert entry.severity == "err"
    assert syslog.find("^HTTP endpoint listening on TCP port") == []


# --- how it runs ---


@pytest.mark.skipif(b"__tsan_init" in PROGRAM.read_bytes(), reason="the sanitizer has a thread of its own")
def test_threads_are_entry_io_scheduler_and_log_writer(daemon: Daemon) -> None:
    wait_for(lambda: threads(daemon) == 4, "four threads")
    most = 0
    done = threading.Event()

    def watch() -> None:
        nonlocal most
        while not done.is_set():
            most = max(most, threads(daemon))

    watcher = threading.Thread(target=watch)
    watcher.start()
    try:
        with concurrent.futures.ThreadPoolExecutor(8) as pool:
            assert list(pool.map(lambda _: Rpc().tasks(), range(200))) == [{}] * 200
    finally:
        done.set()
        watcher.join()
    assert most == 4


def test_operation_id_precedes_the_lines_of_its_call(daemon: Daemon, rpc: Rpc, syslog: SystemLog) -> None:
    rpc(f"{TASKS}.list", lumo_ctx_opid="nightly-42")
    syslog.wait(r"^\[opId=nightly-42\] Method succeeded$")
    rpc(f"{TASKS}.list")
    syslog.wait("^Method succeeded$")


def test_errors_carry_the_originator(daemon: Daemon, rpc: Rpc) -> None:
    with pytest.raises(ApiError) as caught:
        rpc("com.orbane.none.get")
    assert caught.value.code == -32601
    assert caught.value.data["__originator__"] == "pak[ryn-base-1.0.0]"


def test_without_a_schema_errors_are_answered_unstamped(daemon: Daemon, rpc: Rpc, syslog: SystemLog) -> None:
    with contextlib.ExitStack() as without:
        for path in list(SCHEMAS.iterdir()):
            without.enter_context(replaced(path, None))
        for method, params in (("com.orbane.none.get", None), (f"{TASKS}.get", {"task": "none"})):
            with pytest.raises(ApiError) as caught:
                rpc(method, params)
            assert caught.value.code == (-32601 if params is None else -32003)
            assert "__originator__" not in caught.value.data
        syslog.wait("^A call ended with an exception: Unable to find ryn-base schema$")
        syslog.wait("^Method failed$", 2)
        assert daemon.running
    with pytest.raises(ApiError) as caught:
        rpc("com.orbane.none.get")
    assert caught.value.data["__originator__"] == "pak[ryn-base-1.0.0]"


@pytest.mark.parametrize("header", ["accept_language", "lumo_ctx_format_locale"])
def test_bad_locale_header_does_not_end_the_call(daemon: Daemon, rpc: Rpc, header: str) -> None:
    assert rpc(f"{TASKS}.list", **{header: "not a language"}) == {}


@pytest.fixture
def french() -> Iterator[None]:
    """A catalogue in another language, installed before the daemon needs any."""
    folder = MODULES / "keeld-test"
    (folder / "fr").mkdir(parents=True)
    (folder / "fr" / "test.omsg").write_text(
        'com.orbane.ryn.task.notfound.error = "Tâche {1} inconnue"\n'
        'com.orbane.ryn.task.description = "Une tâche."\ncom.orbane.ryn.task.progress = "En cours."\n')
    yield
    shutil.rmtree(folder)


def test_messages_come_in_the_callers_language(french: None, daemon: Daemon, rpc: Rpc) -> None:
    answers = {}
    for language in ("fr-CA, en;q=0.5", "en, fr;q=0.5", "xx", ""):
        with pytest.raises(ApiError) as caught:
            rpc(f"{TASKS}.get", {"task": "none"}, accept_language=language)
        answers[language] = (caught.value.message, caught.value.data["messages"][0].get("localized"))
    assert answers["fr-CA, en;q=0.5"] == ("Tâche none inconnue", "Tâche none inconnue")
    english = answers["xx"][0]
    assert "none" in english
    assert all(answers[language] == (english, None) for language in ("en, fr;q=0.5", "xx", ""))


def test_a_task_is_told_in_the_callers_language(french: None, daemon: Daemon, rpc: Rpc) -> None:
    with TaskManager(str(DATABASE)) as tasks:
        tasks.create_task("t")
        tasks.start_task("t")
    for language, texts in (("fr", ("Une tâche.", "En cours.")), ("de, fr;q=0.1", ("Une tâche.", "En cours.")),
                            ("en", ("A lifecycle operation of this host.", "The operation is at work."))):
        for told in (rpc(f"{TASKS}.get", {"task": "t"}, accept_language=language),
                     rpc(f"{TASKS}.list", accept_language=language)["t"]):
            assert (told["description"]["localized"], told["progress"]["message"]["localized"]) == texts
            assert told["description"]["default_message"] == "A lifecycle operation of this host."


def test_languages_without_catalogue_cost_no_search(daemon: Daemon, rpc: Rpc, syslog: SystemLog) -> None:
    def ask(operation_id: str) -> None:
        with pytest.raises(ApiError):
            rpc(f"{TASKS}.get", {"task": "none"}, lumo_ctx_opid=operation_id,
                accept_language="es, de, zh-CN, zh-TW, ko, ja, fr, en")

    ask("first")  # loads the catalogues
    for number in range(5):
        ask(f"later-{number}")
    syslog.wait(r"\[opId=later-4\] Method failed")
    assert len(syslog.find(r"\[opId=first\] The translator found")) == 2  # in each of the two folders
    assert syslog.find(r"\[opId=later-\d\] The translator found") == []

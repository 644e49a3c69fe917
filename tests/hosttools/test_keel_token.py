"""keel-token: the keys and tokens that it makes, and what it refuses. That the daemon takes them, tests/e2e shows."""

from __future__ import annotations

import base64
import json
import os
import re
import stat
import subprocess
import time
from pathlib import Path
from typing import Any

import pytest

NAMES = ["lab", "a", "0", "lab.example.com", "x" * 128]
NO_NAMES = ["", ".", "..", "-lab", ".lab", "_lab", "a/b", "../lab", "a b", "lab\n", "lä", "x" * 129]


def keel_token(*words: object, cwd: Path | None = None) -> subprocess.CompletedProcess[str]:
    """Runs the command."""
    return subprocess.run(["/usr/bin/keel-token", *map(str, words)], capture_output=True, text=True, check=False, cwd=cwd)


def openssl(*words: object) -> str:
    """Runs openssl, which has to succeed."""
    return subprocess.run(["openssl", *map(str, words)], capture_output=True, text=True, check=True).stdout


def decoded(part: str) -> Any:
    """A part of a token as the JSON that it holds."""
    return json.loads(base64.urlsafe_b64decode(part + "=" * (-len(part) % 4)))


def mode(path: Path) -> int:
    """A file's permission bits."""
    return stat.S_IMODE(path.stat().st_mode)


@pytest.fixture
def lab(tmp_path: Path) -> Path:
    """A folder with the keys of the issuer lab."""
    done = keel_token("new-key", "lab", "--keys", tmp_path / "keys", "--private", tmp_path / "lab.key")
    assert (done.returncode, done.stderr) == (0, "")
    return tmp_path


@pytest.mark.parametrize(("kind", "what"), [("ES256", "ASN1 OID: prime256v1"), ("RS256", "Public-Key: (3072 bit)")])
def test_new_key_makes_a_pair(tmp_path: Path, kind: str, what: str) -> None:
    old = os.umask(0)
    try:
        done = keel_token("new-key", "lab", "--type", kind, "--keys", tmp_path / "keys", cwd=tmp_path)
    finally:
        os.umask(old)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout == f"private key  lab.key\npublic key   {tmp_path}/keys/lab.pem\n"
    assert mode(tmp_path / "lab.key") == 0o600
    assert mode(tmp_path / "keys/lab.pem") == 0o644
    assert mode(tmp_path / "keys") == 0o755
    assert what in openssl("pkey", "-pubin", "-in", tmp_path / "keys/lab.pem", "-noout", "-text")
    assert openssl("pkey", "-in", tmp_path / "lab.key", "-pubout") == (tmp_path / "keys/lab.pem").read_text()


@pytest.mark.parametrize("there", ["lab.key", "keys/lab.pem"])
@pytest.mark.parametrize("link", [False, True])
def test_new_key_replaces_nothing(tmp_path: Path, there: str, link: bool) -> None:
    (tmp_path / "keys").mkdir()
    if link:
        (tmp_path / there).symlink_to("nothing")
    else:
        (tmp_path / there).write_text("mine")
    done = keel_token("new-key", "lab", "--keys", tmp_path / "keys", "--private", tmp_path / "lab.key")
    assert done.returncode == 1
    assert done.stderr == f"keel-token: {tmp_path}/{there} is there already\n"
    left = [path for path in (tmp_path / "lab.key", tmp_path / "keys/lab.pem") if path.is_symlink() or path.exists()]
    assert left == [tmp_path / there]
    assert link or (tmp_path / there).read_text() == "mine"


def test_new_key_that_cannot_be_finished_leaves_nothing(tmp_path: Path) -> None:
    (tmp_path / "keys").write_text("a file")
    done = keel_token("new-key", "lab", "--keys", tmp_path / "keys", "--private", tmp_path / "lab.key")
    assert done.returncode == 1 and done.stderr.startswith("keel-token: ")
    assert not (tmp_path / "lab.key").exists()


@pytest.mark.parametrize("name", NAMES)
def test_names_of_issuers(tmp_path: Path, name: str) -> None:
    assert keel_token("new-key", name, "--keys", tmp_path, "--private", tmp_path / "key").returncode == 0
    assert (tmp_path / f"{name}.pem").exists()


@pytest.mark.parametrize("name", NO_NAMES)
def test_what_is_no_issuers_name(tmp_path: Path, name: str) -> None:
    done = keel_token("new-key", f"--keys={tmp_path}", f"--private={tmp_path}/key", "--", name)
    assert done.returncode == 2
    assert list(tmp_path.iterdir()) == []


def test_sign_says_what_was_asked_for(lab: Path) -> None:
    before = int(time.time())
    done = keel_token("sign", "alice", "--key", lab / "lab.key", "--entitlement", "Task.View", "--entitlement", "X")
    assert (done.returncode, done.stderr) == (0, "")
    header, claims, signature = done.stdout.removesuffix("\n").split(".")
    assert decoded(header) == {"alg": "ES256", "kid": "lab", "typ": "JWT"}
    content = decoded(claims)
    assert before <= content["iat"] <= time.time()
    assert content == {"iss": "lab", "sub": "alice", "aud": "keeld", "iat": content["iat"],
                       "exp": content["iat"] + 3600, "entitlements": ["Task.View", "X"]}
    assert len(signature) == 86 and "=" not in done.stdout


def test_sign_takes_other_words(lab: Path) -> None:
    done = keel_token("sign", "bob", "--key", lab / "lab.key", "--issuer", "works", "--lifetime", "-5", "--audience", "x",
                      "--output", lab / "token")
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    assert mode(lab / "token") == 0o600
    header, claims, _ = (lab / "token").read_text().split(".")
    assert decoded(header)["kid"] == "works"
    content = decoded(claims)
    assert (content["iss"], content["aud"], content["entitlements"]) == ("works", "x", [])
    assert content["exp"] == content["iat"] - 5
    again = keel_token("sign", "bob", "--key", lab / "lab.key", "--output", lab / "token")
    assert (again.returncode, again.stderr) == (1, f"keel-token: {lab}/token is there already\n")


def test_rsa_signature_is_one_that_openssl_takes(tmp_path: Path) -> None:
    keel_token("new-key", "lab", "--type", "RS256", "--keys", tmp_path, "--private", tmp_path / "lab.key")
    text, _, signature = keel_token("sign", "a", "--key", tmp_path / "lab.key").stdout.strip().rpartition(".")
    assert decoded(text.split(".")[0])["alg"] == "RS256"
    (tmp_path / "text").write_text(text)
    (tmp_path / "signature").write_bytes(base64.urlsafe_b64decode(signature + "=" * (-len(signature) % 4)))
    assert openssl("dgst", "-sha256", "-verify", tmp_path / "lab.pem", "-signature", tmp_path / "signature",
                   tmp_path / "text") == "Verified OK\n"


@pytest.mark.parametrize("make", [
    ["genpkey", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-384"],
    ["genpkey", "-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:1024"],
    ["genpkey", "-algorithm", "ED25519"],
    ["genpkey", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256", "-aes128", "-pass", "pass:x"],
])
def test_keys_that_no_daemon_takes_sign_nothing(tmp_path: Path, make: list[str]) -> None:
    openssl(*make, "-out", tmp_path / "lab.key")
    done = keel_token("sign", "a", "--key", tmp_path / "lab.key")
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr.startswith(f"keel-token: {tmp_path}/lab.key is n")


@pytest.mark.parametrize("content", [None, b"", b"no key", b"\xff" * 100])
def test_what_is_no_key_signs_nothing(tmp_path: Path, content: bytes | None) -> None:
    if content is not None:
        (tmp_path / "lab.key").write_bytes(content)
    done = keel_token("sign", "a", "--key", tmp_path / "lab.key")
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr.startswith("keel-token: ") and "Traceback" not in done.stderr


def test_issuer_is_named_where_the_keys_file_has_no_issuers_name(lab: Path) -> None:
    (lab / "lab.key").rename(lab / "_lab.key")
    assert "a name has letters" in keel_token("sign", "a", "--key", lab / "_lab.key").stderr
    assert keel_token("sign", "a", "--key", lab / "_lab.key", "--issuer", "lab").returncode == 0


def test_privileges_are_those_of_the_installed_metadata() -> None:
    done = keel_token("privileges")
    rows = [line.split() for line in done.stdout.splitlines()]
    assert ["com.orbane.halo.tasks.list", "Task.View"] in rows
    assert rows == sorted(rows) and done.returncode == 0


@pytest.mark.parametrize("content", ["", "[]", "{}", '{"operations":3}'])
def test_damaged_metadata_is_said(tmp_path: Path, content: str) -> None:
    (tmp_path / "file").write_text(content)
    done = keel_token("privileges", "--metadata", tmp_path / "file")
    assert (done.returncode, done.stderr) == (1, f"keel-token: {tmp_path}/file is damaged\n")


@pytest.mark.parametrize("words", [[], ["sign"], ["sign", "a"], ["other"], ["new-key", "lab", "--type", "none"]])
def test_usage(words: list[str]) -> None:
    done = keel_token(*words)
    assert done.returncode == 2 and done.stderr.startswith("usage: keel-token")


def test_manual_is_complete() -> None:
    text = (Path(__file__).resolve().parents[2] / "packaging/man/keel-token.1").read_text()
    commands = re.findall(r"^    ([a-z-]+)\b", keel_token("--help").stdout, re.MULTILINE)
    assert commands == ["new-key", "sign", "privileges"]
    for command in commands:
        assert f'.BI {command} "' in text, command
        for option in re.findall(r"^  (--[a-z-]+)", keel_token(command, "--help").stdout, re.MULTILINE):
            assert option in text, option

"""Issuers of tokens for a data processing unit, and tokens as they and attackers make them."""

from __future__ import annotations

import base64
import hashlib
import hmac
import json
import pathlib
import shutil
import time
from typing import Any

from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import ec
from cryptography.hazmat.primitives.asymmetric.utils import decode_dss_signature

MARKER = pathlib.Path("/etc/.rynio")
KEYS = pathlib.Path("/etc/orbane/token-keys")


def bearer(token: str) -> dict[str, str]:
    """The header that carries a token."""
    return {"Authorization": f"Bearer {token}"}


def base64url(content: bytes) -> str:
    """Base64 as tokens have it."""
    return base64.urlsafe_b64encode(content).decode().rstrip("=")


def _encoded(part: dict[str, Any]) -> str:
    return base64url(json.dumps({name: value for name, value in part.items() if value is not None}).encode())


class Issuer:
    """An issuer with a key of the curve P-256 that the host trusts once `install` was called."""

    def __init__(self, name: str) -> None:
        self.name = name
        self._key = ec.generate_private_key(ec.SECP256R1())
        self.public = self._key.public_key().public_bytes(serialization.Encoding.PEM,
                                                          serialization.PublicFormat.SubjectPublicKeyInfo)

    @property
    def file(self) -> pathlib.Path:
        """The place of its key on the host."""
        return KEYS / f"{self.name}.pem"

    def install(self) -> "Issuer":
        """Puts its public key in place, by one rename."""
        KEYS.mkdir(exist_ok=True)
        beside = self.file.with_suffix(".new")
        beside.write_bytes(self.public)
        beside.rename(self.file)
        return self

    def unsigned(self, header: dict[str, Any] | None = None, **claims: Any) -> str:
        """Header and claims of a good token, with some of them changed, or left out by None."""
        now = int(time.time())
        return ".".join((_encoded({"alg": "ES256", "kid": self.name, "typ": "JWT", **(header or {})}),
                         _encoded({"iss": self.name, "sub": "alice", "aud": "keeld", "exp": now + 600, **claims})))

    def token(self, header: dict[str, Any] | None = None, **claims: Any) -> str:
        """The same, signed."""
        text = self.unsigned(header, **claims)
        numbers = decode_dss_signature(self._key.sign(text.encode(), ec.ECDSA(hashes.SHA256())))
        return f"{text}.{base64url(b''.join(number.to_bytes(32, 'big') for number in numbers))}"

    def hmac_token(self) -> str:
        """A token whose secret is the public key."""
        text = self.unsigned({"alg": "HS256"}, entitlements=["Task.View"])
        return f"{text}.{base64url(hmac.digest(self.public, text.encode(), hashlib.sha256))}"


def remove_dpu() -> None:
    """Makes the sandbox a normal host again."""
    if MARKER.is_dir() and not MARKER.is_symlink():
        MARKER.rmdir()
    MARKER.unlink(missing_ok=True)
    shutil.rmtree(KEYS, ignore_errors=True)

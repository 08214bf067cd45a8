"""The control channel's frames, as lab/board/frame.h describes them."""

from __future__ import annotations

import struct
from collections.abc import Iterator

EXEC, STDIN, KILL, UP, DOWN = 1, 2, 3, 4, 5
STDOUT, STDERR, EXIT, NOTE = 16, 17, 18, 19

HEADER = struct.Struct(">IIB")
PAYLOAD_MAX = 1 << 20
CHUNK = 1 << 16


def pack(kind: int, ident: int, payload: bytes = b"") -> bytes:
    return HEADER.pack(len(payload), ident, kind) + payload


def words(*parts: object) -> bytes:
    """Words of a request, as the board splits them."""
    encoded = [p if isinstance(p, bytes) else str(p).encode() for p in parts]
    for part in encoded:
        if b"\0" in part:
            raise ValueError("a word of a command cannot hold a NUL byte")
    return b"\0".join(encoded)


class Reader:
    """Cuts a byte stream into (kind, id, payload)."""

    def __init__(self) -> None:
        self.data = bytearray()

    def feed(self, data: bytes) -> Iterator[tuple[int, int, bytes]]:
        self.data += data
        while len(self.data) >= HEADER.size:
            length, ident, kind = HEADER.unpack_from(self.data)
            if length > PAYLOAD_MAX:
                raise ValueError(f"control channel: frame of {length} bytes")
            end = HEADER.size + length
            if len(self.data) < end:
                return
            payload = bytes(self.data[HEADER.size:end])
            del self.data[:end]
            yield kind, ident, payload

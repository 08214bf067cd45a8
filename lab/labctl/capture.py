"""Frames of a port: decoding for a person, or a pcap file."""

from __future__ import annotations

import contextlib
import struct
import sys
import time
from collections.abc import Callable, Iterable, Iterator

from . import client

ETHERTYPES = {0x0800: "IPv4", 0x0806: "ARP", 0x86DD: "IPv6", 0x8863: "PPPoE discovery", 0x8864: "PPPoE session"}
PROTOCOLS = {1: "ICMP", 2: "IGMP", 6: "TCP", 17: "UDP"}
NAMED_PORTS = {53: "DNS", 67: "DHCP", 68: "DHCP"}
GLOBAL, RECORD = 24, 16


def records(stream: Iterable[bytes]) -> Iterator[tuple[bytes, float, bytes | None]]:
    """(header bytes, seconds, frame) of a pcap byte stream given as an iterator of pieces; first the file header."""
    data = bytearray()
    header: bytes | None = None
    order = "<"
    for piece in stream:
        data += piece
        if header is None:
            if len(data) < GLOBAL:
                continue
            header = bytes(data[:GLOBAL])
            order = "<" if header[:4] in (b"\xd4\xc3\xb2\xa1", b"\x4d\x3c\xb2\xa1") else ">"
            nano = header[:4] in (b"\x4d\x3c\xb2\xa1", b"\xa1\xb2\x3c\x4d")
            del data[:GLOBAL]
            yield header, 0.0, None
        while len(data) >= RECORD:
            seconds, fraction, length, _ = struct.unpack_from(order + "IIII", data)
            if len(data) < RECORD + length:
                break
            frame = bytes(data[RECORD:RECORD + length])
            yield bytes(data[:RECORD]), seconds + fraction / (1e9 if nano else 1e6), frame
            del data[:RECORD + length]


def mac(data: bytes) -> str:
    return ":".join(f"{b:02x}" for b in data)


def address(data: bytes) -> str:
    return ".".join(str(b) for b in data)


class Decoded:
    """What of a frame the lab asks about: src, dst, vlans (outermost first), kind, and the IPv4 or ARP addresses."""

    def __init__(self, frame: bytes) -> None:
        self.size = len(frame)
        self.dst, self.src = mac(frame[0:6]), mac(frame[6:12])
        self.vlans: list[int] = []
        at = 12
        while frame[at:at + 2] in (b"\x81\x00", b"\x88\xa8") and len(frame) >= at + 4:
            self.vlans.append(struct.unpack_from(">H", frame, at + 2)[0] & 0xFFF)
            at += 4
        self.ethertype = struct.unpack_from(">H", frame, at)[0] if len(frame) >= at + 2 else 0
        self.payload = frame[at + 2:]
        self.kind = ETHERTYPES.get(self.ethertype, f"0x{self.ethertype:04x}")
        self.ip_src = self.ip_dst = ""
        self.ports: tuple[int, int] | None = None       # source and destination of UDP and TCP
        self.ttl: int | None = None
        if self.ethertype == 0x0800 and len(self.payload) >= 20:
            self.ip_src, self.ip_dst = address(self.payload[12:16]), address(self.payload[16:20])
            self.ttl = self.payload[8]
            self.kind = PROTOCOLS.get(self.payload[9], f"IPv4/{self.payload[9]}")
            self._read_ports((self.payload[0] & 15) * 4)
        elif self.ethertype == 0x0806 and len(self.payload) >= 28:
            self.ip_src, self.ip_dst = address(self.payload[14:18]), address(self.payload[24:28])

    def _read_ports(self, at: int) -> None:
        first_of_packet = struct.unpack_from(">H", self.payload, 6)[0] & 0x1FFF == 0
        if self.kind in ("UDP", "TCP") and first_of_packet and len(self.payload) >= at + 4:
            source, target = struct.unpack_from(">HH", self.payload, at)
            self.ports = (source, target)

    def __str__(self) -> str:
        tags = "".join(f" vlan {vlan}" for vlan in self.vlans)
        what = self.kind
        if self.kind == "ARP":
            what += " who-has" if self.payload[6:8] == b"\0\1" else " is-at"
        if self.ports:
            named = NAMED_PORTS.get(self.ports[1]) or NAMED_PORTS.get(self.ports[0])
            what += f" {self.ip_src}:{self.ports[0]} > {self.ip_dst}:{self.ports[1]}" + (f" {named}" if named else "")
        elif self.ip_src:
            what += f" {self.ip_src} > {self.ip_dst}"
        return f"{self.src} > {self.dst}{tags} {what} ({self.size} bytes)"


def run(lab: client.Lab, port: str, count: int, path: str | None) -> int:
    """lab/lab capture: one line per frame, or a file; ends after count frames (0: at Ctrl-C)."""
    seen = 0
    with lab.spawn("router", "lab-agent", "ask", "/run/lab/switch.sock", "--stream", "capture", port) as command, \
            contextlib.ExitStack() as stack:
        out = stack.enter_context(open(path, "wb")) if path else None
        stream = (data for kind, data in command.frames() if kind == 1)
        with contextlib.suppress(KeyboardInterrupt):
            for header, when, frame in records(stream):
                if out:
                    out.write(header + (frame or b""))
                elif frame is not None:
                    print(f"{when:.6f} {Decoded(frame)}", flush=True)
                seen += frame is not None
                if count and seen >= count:
                    break
    if path:
        print(f"{seen} frames in {path}", file=sys.stderr)
    return 0


class Capture:
    """A capture of a port in the background of a test: with lab.Capture(...) as c: ...; c.frames()."""

    def __init__(self, lab: client.Lab, port: object) -> None:
        self.command = lab.spawn("router", "lab-agent", "ask", "/run/lab/switch.sock", "--stream", "capture", str(port))
        # the file header comes at once and says that every later frame is in
        if not self.command.read_until("\x02\x00", 20) and len(self.command.out) < GLOBAL:
            raise RuntimeError(f"capture of port {port} did not begin: {bytes(self.command.err)!r}")

    def frames(self, until: Callable[[list[Decoded]], object], seconds: float = 20) -> list[Decoded] | None:
        """Frames so far; reads on until until(list of frames) is true. None when that does not come in time."""
        deadline = time.monotonic() + seconds * self.command.lab.pace
        while True:
            frames = [Decoded(f) for _, _, f in records([bytes(self.command.out)]) if f is not None]
            if until(frames):
                return frames
            if time.monotonic() > deadline:
                return None
            with contextlib.suppress(TimeoutError):
                for kind, data in self.command.frames(time.monotonic() + 0.05):
                    (self.command.out if kind == 1 else self.command.err).extend(data)

    def close(self) -> None:
        self.command.close()

    def __enter__(self) -> Capture:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

"""Messages as written in scenarios.

    {name: "lan2", vlanid1: 100, intf: ["a", "b"], nothing: null}

Numbers are int32; 5L is an int64, 5s an int16, 5b an int8, 1.5 a double, true and false are booleans. "a"*40 is a
text of forty characters, ["a"]*40 a list of forty texts. raw(3, "6162") is an attribute of type 3 with exactly these
bytes (a text without its end, here). A name may repeat; null is an attribute without type and content.
"""
import re
import struct

Line = tuple[str | bytes, ...]      # of a script for the recorder

ARRAY, TABLE, STRING, INT64, INT32, INT16, INT8, DOUBLE = 1, 2, 3, 4, 5, 6, 7, 8

TOKEN = re.compile(r"""\s*(?:
    (?P<string>"(?:[^"\\]|\\.)*")(?:\*(?P<times>\d+))?
  | (?P<raw>raw\(\s*(?P<rawtype>\d+)\s*,\s*"(?P<rawhex>[0-9a-fA-F ]*)"\s*\))
  | (?P<number>-?(?:0x[0-9a-fA-F]+|\d+(?:\.\d+)?))(?P<suffix>[Lsb]?)
  | (?P<word>[A-Za-z_][A-Za-z0-9_.-]*)
  | \*(?P<repeat>\d+)
  | (?P<mark>[{}\[\]:,])
)""", re.X)


class NotationError(ValueError):
    pass


def unquote(text: str) -> bytes:
    """The bytes of a quoted text."""
    out = bytearray()
    body = text[1:-1]
    at = 0
    while at < len(body):
        char = body[at]
        if char != "\\":
            out += char.encode()
            at += 1
            continue
        kind = body[at + 1]
        if kind == "x":
            out.append(int(body[at + 2:at + 4], 16))
            at += 4
        else:
            out += {"n": b"\n", "r": b"\r", "t": b"\t", "0": b"\0"}.get(kind, kind.encode())
            at += 2
    return bytes(out)


class Reader:
    def __init__(self, text: str) -> None:
        self.tokens: list[re.Match[str]] = []
        at = 0
        text = text.rstrip()
        while at < len(text):
            match = TOKEN.match(text, at)
            if not match or match.end() == at:
                raise NotationError(f"cannot read {text[at:at + 20]!r}")
            self.tokens.append(match)
            at = match.end()
        self.next = 0
        self.lines: list[Line] = []

    def take(self) -> re.Match[str]:
        if self.next >= len(self.tokens):
            raise NotationError("the message ends too early")
        self.next += 1
        return self.tokens[self.next - 1]

    def peek(self, mark: str) -> bool:
        return self.next < len(self.tokens) and self.tokens[self.next]["mark"] == mark

    def expect(self, mark: str) -> None:
        token = self.take()
        if token["mark"] != mark:
            raise NotationError(f"expected {mark!r}, found {token.group().strip()!r}")

    def field(self, kind: int, name: bytes, data: bytes = b"") -> None:
        self.lines.append(("field", str(kind), name, data))

    def members(self, closing: str, named: bool) -> None:
        while not self.peek(closing):
            name = b""
            if named:
                token = self.take()
                name = unquote(token["string"]) if token["string"] else (token["word"] or "").encode()
                self.expect(":")
            self.value(name)
            if not self.peek(closing):
                self.expect(",")
        self.expect(closing)

    def value(self, name: bytes) -> None:
        token = self.take()
        if token["string"] is not None:
            self.field(STRING, name, unquote(token["string"]) * int(token["times"] or 1) + b"\0")
        elif token["raw"]:
            self.field(int(token["rawtype"]), name, bytes.fromhex(token["rawhex"]))
        elif token["number"]:
            self.number(name, token)
        elif token["word"] in ("true", "false"):
            self.field(INT8, name, b"\1" if token["word"] == "true" else b"\0")
        elif token["word"] == "null":
            self.field(0, name)
        elif token["mark"] in ("[", "{"):
            array = token["mark"] == "["
            self.lines.append(("open", str(ARRAY if array else TABLE), name, b""))
            first = len(self.lines)
            self.members("]" if array else "}", not array)
            if self.next < len(self.tokens) and self.tokens[self.next]["repeat"]:
                self.lines += self.lines[first:] * (int(self.take()["repeat"]) - 1)
            self.lines.append(("close", "0", b"", b""))
        else:
            raise NotationError(f"no value: {token.group().strip()!r}")

    def number(self, name: bytes, token: re.Match[str]) -> None:
        if "." in token["number"]:
            self.field(DOUBLE, name, struct.pack(">d", float(token["number"])))
            return
        kind, size = {"L": (INT64, 8), "": (INT32, 4), "s": (INT16, 2), "b": (INT8, 1)}[token["suffix"]]
        number = int(token["number"], 0) & ((1 << 8 * size) - 1)
        self.field(kind, name, number.to_bytes(size, "big"))


def fields(text: str) -> list[Line]:
    """The fields of a message as (word, type, name, data); the empty text is the empty message."""
    if not text.strip():
        return []
    reader = Reader(text)
    reader.expect("{")
    reader.members("}", True)
    if reader.next != len(reader.tokens):
        raise NotationError("text after the message")
    return reader.lines

"""Texts and bus messages as recordings show them, and as JSON says them."""

from __future__ import annotations

import json
import re
from typing import Any

TOKEN = re.compile(r'"(?:[^"\\]|\\.)*"(?::unterminated)?|-?\d+(?::int(?:64|16|8))?|null|[\[\]{},?]')
NAME = re.compile(r"[^\[\]{},\"]*?: ")
PLAIN = {"n": "\n", "r": "\r", "t": "\t"}
BOOLEANS = {"0:int8": False, "1:int8": True}


def unquoted(text: str) -> str:
    """A text of a recording without quotes and escapes."""
    def plain(match: re.Match[str]) -> str:
        return chr(int(match[1][1:], 16)) if match[1][0] == "x" else PLAIN.get(match[1], match[1])

    # All letters beyond those of ASCII are escaped bytes.
    return re.sub(r"\\(x..|.)", plain, text[1:-1]).encode("latin-1").decode("utf-8", "surrogateescape")


class MessageError(ValueError):
    """A message that JSON does not say: a text without its end or of other letters, a small number, a name twice."""


class Reader:
    def __init__(self, text: str, exact: bool) -> None:
        self.text, self.at, self.exact = text, 0, exact

    def token(self) -> str:
        found = TOKEN.match(self.text, self.at)
        if found is None:
            raise MessageError(self.text)
        self.at = found.end()
        return found[0]

    def members(self, closing: str) -> list[tuple[str, Any]]:
        out: list[tuple[str, Any]] = []
        while not self.text.startswith(closing, self.at):
            if out and self.token() != ",":
                raise MessageError(self.text)
            self.at += self.text.startswith(" ", self.at)
            name = NAME.match(self.text, self.at)
            self.at = name.end() if name else self.at
            out.append((name[0][:-2] if name else "", self.value()))
        self.at += 1
        return out

    def value(self) -> Any:
        token = self.token()
        if token == "{":
            members = self.members("}")
            if len(dict(members)) != len(members):
                raise MessageError(self.text)
            return dict(members)
        if token == "[":
            return [value for _, value in self.members("]")]      # a list in JSON has no names
        if token == "null":
            return None
        if token in BOOLEANS:
            return BOOLEANS[token]
        if token.startswith('"') and token.endswith('"'):
            return self.letters(unquoted(token))
        return self.number(*token.partition(":")[::2])

    def letters(self, text: str) -> str:
        try:
            text.encode()
        except UnicodeEncodeError as error:
            raise MessageError(self.text) from error
        return text

    def number(self, digits: str, kind: str) -> int:
        """Of a number of JSON the bus makes 32 bits where these hold it, else 64."""
        if not re.fullmatch(r"-?\d+", digits):
            raise MessageError(self.text)
        number = int(digits)
        if self.exact and kind != ("" if -1 << 31 <= number < 1 << 31 else "int64"):
            raise MessageError(self.text)
        return number


def data_of(text: str, exact: bool = False) -> Any:
    """What a message holds, as JSON says it. With exact, the same message must come of that JSON."""
    reader = Reader(text, exact)
    value = reader.value()
    if reader.at != len(text):
        raise MessageError(text)
    return value


def in_json(text: str) -> str:
    return json.dumps(data_of(text, exact=True))

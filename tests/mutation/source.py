"""A C++ source as tokens, functions, statements and declarations.

No compiler is asked: the sources are formatted (tests/strict), so blanks say which operators are binary, and the
compiler judges later what was made of them.
"""
from __future__ import annotations

import re
from dataclasses import dataclass, field
from pathlib import Path

TOKEN = re.compile(r"""
    (?P<skip>\s+|//[^\n]*|/\*.*?\*/|\#(?:[^\n\\]|\\.)*)
  | (?P<text>"(?:[^"\\\n]|\\.)*")
  | (?P<char>'(?:[^'\\\n]|\\.)+')
  | (?P<number>\d(?:[\w']|(?<=[eE])[+-])*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<op>->|::|\+\+|--|<<=|>>=|&&|\|\||[-+*/%&|^<>=!]=|<<|>>|\.\.\.|.)
""", re.X | re.S)
OPENING = {"(": ")", "[": "]", "{": "}"}
CLOSING = set(OPENING.values())


class SourceError(ValueError):
    """A source that is not understood."""


@dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int
    end: int
    line: int


@dataclass
class Region:
    """A function's body, or a declaration outside of functions, as a range of tokens."""
    name: str
    names: frozenset[str]        # what it declares, as far as that can be seen
    first: int
    last: int                    # its last token
    runs: bool                   # a body whose mutants can be chosen at run time
    statements: list[int] = field(default_factory=list)       # first tokens of its statements
    marker_of: dict[int, int] = field(default_factory=dict)   # token -> the statement that is reached before it


def tokens_of(text: str) -> list[Token]:
    out, line, at = [], 1, 0
    while at < len(text):
        match = TOKEN.match(text, at)
        if match is None or match.lastgroup is None:
            raise SourceError(f"line {line}: not understood")
        if match.lastgroup != "skip":
            out.append(Token(match.lastgroup, match[0], at, match.end(), line))
        line += match[0].count("\n")
        at = match.end()
    return out


class Source:
    """One file of the daemon."""

    def __init__(self, root: Path, path: Path) -> None:
        self.name = path.relative_to(root).as_posix()
        self.text = path.read_text(encoding="utf-8")
        self.lines = self.text.splitlines()
        self.tokens = tokens_of(self.text)
        self.partner = self._partners()
        self.regions: list[Region] = []
        self._split()

    def is_op(self, at: int, *texts: str) -> bool:
        return 0 <= at < len(self.tokens) and self.tokens[at].kind == "op" and self.tokens[at].text in texts

    def is_word(self, at: int, *texts: str) -> bool:
        return (0 <= at < len(self.tokens) and self.tokens[at].kind == "word"
                and (not texts or self.tokens[at].text in texts))

    def between(self, first: int, last: int) -> str:
        """The text from one token to another."""
        return self.text[self.tokens[first].start:self.tokens[last].end]

    def mentions(self, names: frozenset[str], first: int = 0, last: int | None = None) -> bool:
        stop = len(self.tokens) if last is None else last + 1
        return any(token.kind == "word" and token.text in names for token in self.tokens[first:stop])

    def _partners(self) -> dict[int, int]:
        out, stack = {}, []
        for at, token in enumerate(self.tokens):
            if token.kind != "op":
                continue
            if token.text in OPENING:
                stack.append(at)
            elif token.text in CLOSING:
                if not stack or OPENING[self.tokens[stack[-1]].text] != token.text:
                    raise SourceError(f"{self.name}:{token.line}: {token.text} without its partner")
                out[stack.pop()] = at
        return out

    def _split(self) -> None:
        first = at = 0
        while at < len(self.tokens):
            if self.is_op(at, ";"):
                self._declaration(first, at)
                first = at = at + 1
            elif self.is_op(at, "}"):
                first = at = at + 1          # end of a name space or class
            elif self.is_op(at, "(", "["):
                at = self.partner[at] + 1
            elif self.is_op(at, "{"):
                kind = self._what_opens(first, at)
                if kind == "scope":
                    first = at = at + 1
                elif kind == "body":
                    self._function(first, at)
                    first = at = self.partner[at] + 1
                else:
                    at = self.partner[at] + 1
            else:
                at += 1

    def _top(self, first: int, stop: int) -> list[int]:
        """Tokens of a range that are in no bracket of it."""
        out, at = [], first
        while at < stop:
            out.append(at)
            at = self.partner[at] if at in self.partner else at + 1
        return out

    def _what_opens(self, first: int, brace: int) -> str:
        head = self._top(first, brace)
        if any(self.is_op(at, "=") for at in head) or any(self.is_word(at, "enum") for at in head):
            return "initializer"
        if any(self.is_word(at, "namespace", "extern") for at in head):
            return "scope"
        if any(self.is_op(at, "(") for at in head):
            return "body"
        return "scope" if any(self.is_word(at, "class", "struct", "union") for at in head) else "initializer"

    def _declaration(self, first: int, last: int) -> None:
        if first == last:
            return
        enumeration = any(self.is_word(at, "enum") for at in range(first, last))
        names = frozenset(self.tokens[at].text for at in range(first, last)
                          if self.is_word(at) and (enumeration or self.is_op(at + 1, "=", "[", "{", "(", ";")))
        after = ("{", ":") if enumeration else ("=", "[", "{", "(", ";")
        name = next((self.tokens[at].text for at in self._top(first, last)
                     if self.is_word(at) and self.is_op(at + 1, *after)), "")
        self.regions.append(Region(name, names, first, last, False))

    def _function(self, first: int, brace: int) -> None:
        last = self.partner[brace]
        head = self._top(first, brace)
        name = next((self.tokens[at - 1].text for at in head if self.is_op(at, "(") and self.is_word(at - 1)), "")
        names = frozenset((name,))
        if any(self.is_word(at, "constexpr", "consteval") for at in head):
            self.regions.append(Region(name, names, first, last, False))
            return
        self.regions.append(Region(name, names, first, brace - 1, False))
        body = Region(name, names, brace, last, True)
        self._statements(body)
        self.regions.append(body)

    def _opens_block(self, brace: int, in_block: bool) -> bool:
        return (self.is_op(brace - 1, ")", "]") or self.is_word(brace - 1, "else", "do", "mutable")
                or in_block and self.is_op(brace - 1, ";", "{", "}"))

    def _ends_do(self, at: int) -> bool:
        opening = next((first for first, last in self.partner.items() if last == at - 1), None)
        return self.is_word(at, "while") and opening is not None and self.is_word(opening - 1, "do")

    def _statements(self, body: Region) -> None:
        """Finds where statements begin, and which of them is reached whenever a token is."""
        outer: list[tuple[int, int | None, bool]] = []   # end of a bracket; the marker outside; whether that is a block
        marker: int | None = None
        block = fresh = False
        for at in range(body.first, body.last + 1):
            if outer and outer[-1][0] == at:
                _, marker, outside = outer.pop()
                fresh, block = block and outside, outside
                continue
            if fresh and self.is_word(at, "case", "default"):
                marker = outer[-1][1] if outer else None
            elif fresh and not self.is_word(at, "else") and not self._ends_do(at) and not self.is_op(at, ";"):
                body.statements.append(at)
                marker = at
            fresh = False
            if marker is not None:
                body.marker_of[at] = marker
            if at in self.partner:
                outer.append((self.partner[at], marker, block))
                block = fresh = self.is_op(at, "{") and (at == body.first or self._opens_block(at, block))
            elif self.is_op(at, ";"):
                fresh = block


def load(root: Path) -> list[Source]:
    return [Source(root, path) for path in sorted(root.rglob("*")) if path.suffix in (".cpp", ".h")]

"""The mutants of a source: each is one piece of its text replaced by another."""
from __future__ import annotations

import re
from collections import Counter
from collections.abc import Iterator
from dataclasses import dataclass

from tests.mutation.source import Region, Source

COMPARISONS = {"==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"]}
BINARY = {"&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"],
          "&": ["|"], "|": ["&"], "^": ["&"], "<<": [">>"], ">>": ["<<"],
          "+=": ["-="], "-=": ["+="], "*=": ["/="], "/=": ["*="], "%=": ["*="],
          "&=": ["|="], "|=": ["&="], "^=": ["&="], "<<=": [">>="], ">>=": ["<<="]}
STEPS = {"++": ["--"], "--": ["++"]}
UNARY = ("!", "~", "-")
CONDITIONAL = {*COMPARISONS, "&&", "||", "!", "?"}
LEVELS = {"NET_ERROR": "NET_WARNING", "NET_WARNING": "NET_ERROR", "NET_NOTICE": "NET_WARNING",
          "NET_INFO": "NET_DEBUG", "NET_DEBUG": "NET_INFO"}
GOOD_CODES = {"rv_ok": "rv_fail", "status_ok": "status_unknown_error"}
CODE = re.compile(r"(rv|status)_\w+")
TRUTH = {"true": "false", "false": "true"}
KEYWORDS = {"if", "for", "while", "switch", "return", "sizeof", "alignof", "decltype", "static_cast", "const_cast",
            "reinterpret_cast", "catch", "defined", "static_assert", "__attribute__", "case", "do", "else", "delete",
            "goto", "break", "continue", "default"}
CONVERSION = re.compile(r"%[-+ #0]*\d*(?:\.(?:\d+|\*))?(?:hh|h|ll|l|z)?[a-zA-Z%]")
ESCAPE = re.compile(r"\\(?:x[0-9a-fA-F]+|[0-7]{1,3}|.)")
NUMBER = re.compile(r"(0[xX][0-9a-fA-F']+|0[0-7']*|[1-9][0-9']*)([uUlLzZ]*)$")


@dataclass(frozen=True)
class Key:
    """What tells a mutant from all others, whatever line it has moved to."""
    file: str
    function: str
    text: str            # its line, without blanks around it
    change: str
    nth: int             # of those that are alike in all of the above

    def __str__(self) -> str:
        return f"{self.file} {self.function} | {self.text} | {self.change}" + (f" #{self.nth}" if self.nth > 1 else "")


@dataclass
class Mutant:
    number: int
    key: Key
    kind: str
    line: int
    source: Source
    region: Region
    token: int
    start: int           # the piece of text
    end: int
    replacement: str
    checked: str         # the replacement as it is compiled, where it is more than that

    @property
    def runs(self) -> bool:
        return self.region.runs

    def __str__(self) -> str:
        return f"{self.key.file}:{self.line} {self.key.function}: {self.key.change}"


@dataclass(frozen=True)
class Change:
    kind: str
    token: int
    start: int
    end: int
    replacement: str
    checked: str = ""


def other_number(text: str, by: int) -> str | None:
    match = NUMBER.match(text)
    if match is None:
        return None
    digits = match[1].replace("'", "")
    hexadecimal = digits.lower().startswith("0x")
    octal = not hexadecimal and digits.startswith("0") and len(digits) > 1
    value = int(digits, 16 if hexadecimal else 8 if octal else 10) + by
    if value < 0:
        return str(value)
    return (hex(value) if hexadecimal else f"0{value:o}" if octal else str(value)) + match[2]


def other_letter(letter: str) -> str:
    if letter in "zZ9":
        return chr(ord(letter) - 1)
    return chr(ord(letter) + 1)


def other_text(quoted: str) -> str:
    """A text with one letter changed: the middle one of those that are no part of an escape or a conversion."""
    inner = quoted[1:-1]
    taken = {at for pattern in (ESCAPE, CONVERSION) for match in pattern.finditer(inner) for at in range(*match.span())}
    free = [at for at in range(len(inner)) if at not in taken]
    letters = [at for at in free if inner[at].isalpha()] or [at for at in free if inner[at].isalnum()]
    if not letters:
        return f'"x{inner}"'
    at = letters[len(letters) // 2]
    return f'"{inner[:at]}{other_letter(inner[at])}{inner[at + 1:]}"'


def other_char(quoted: str) -> str:
    inner = quoted[1:-1]
    if inner.startswith("\\"):
        return "'\\n'" if inner != "\\n" else "'\\t'"
    return "'" + other_letter(inner) + "'" if inner.isalnum() else "'x'"


def is_binary(source: Source, at: int) -> bool:
    """The sources are formatted: binary operators have blanks around them, nothing else of these texts has."""
    token = source.tokens[at]
    return source.text[token.start - 1].isspace() and source.text[token.end:token.end + 1].isspace()


def operators(source: Source, at: int) -> Iterator[Change]:
    token = source.tokens[at]

    def change(kind: str, text: str) -> Change:
        return Change(kind, at, token.start, token.end, text)

    if token.text in STEPS:
        for text in STEPS[token.text]:
            yield change("arithmetic", text)
    elif token.text in UNARY and not is_binary(source, at):
        yield change("logic" if token.text == "!" else "arithmetic", "")
    elif is_binary(source, at):
        others = source.is_word(at + 1, "nullptr") or source.is_word(at - 1, "nullptr")
        for text in COMPARISONS.get(token.text, []):
            if not others or token.text in ("==", "!="):
                yield change("comparison", text)
        for text in BINARY.get(token.text, []):
            yield change("logic" if token.text in ("&&", "||") else "arithmetic", text)


def constants(source: Source, at: int) -> Iterator[Change]:
    token = source.tokens[at]
    if token.kind == "number":
        for by in (1, -1):
            text = other_number(token.text, by)
            if text is not None:
                yield Change("constant", at, token.start, token.end, text)
    elif token.kind == "text":
        yield Change("text", at, token.start, token.end, other_text(token.text))
    elif token.kind == "char":
        yield Change("text", at, token.start, token.end, other_char(token.text))
    elif source.is_word(at, *TRUTH):
        yield Change("constant", at, token.start, token.end, TRUTH[token.text])
    elif source.is_word(at, *LEVELS) and source.is_op(at + 1, "("):
        yield Change("level", at, token.start, token.end, LEVELS[token.text])


def statement_end(source: Source, first: int) -> int:
    at = first
    while not source.is_op(at, ";"):
        at = source.partner.get(at, at) + 1
    return at


def operand_end(source: Source, at: int) -> int | None:
    """Behind a name with members and indices, such as a->b[c].d; None where there is none."""
    while source.is_op(at, "*"):
        at += 1
    if not source.is_word(at) or source.tokens[at].text in KEYWORDS:
        return None
    at += 1
    while True:
        if source.is_op(at, "->", ".", "::") and source.is_word(at + 1):
            at += 2
        elif source.is_op(at, "["):
            at = source.partner[at] + 1
        else:
            return at


def returned(source: Source, first: int) -> Iterator[Change]:
    end = statement_end(source, first)
    for at in range(first + 1, end):
        token = source.tokens[at]
        before = source.is_word(at - 1, "return") or source.is_op(at - 1, "?", ":")
        after = source.is_op(at + 1, ";", ":")
        if not (source.is_word(at) and before and after):
            continue
        if token.text in GOOD_CODES:
            yield Change("returned code", at, token.start, token.end, GOOD_CODES[token.text])
        elif CODE.fullmatch(token.text):
            good = "rv_ok" if token.text.startswith("rv_") else "status_ok"
            yield Change("returned code", at, token.start, token.end, good)
        elif token.text in ("rv", "status"):
            yield Change("returned code", at, token.start, token.end, "0")


def statements(source: Source, first: int) -> Iterator[Change]:
    """What can be done to a whole statement."""
    if source.is_word(first, "return"):
        yield from returned(source, first)
        return
    after = operand_end(source, first)
    if after is None:
        return
    begin = source.tokens[first].start
    if source.is_op(after, "(") and source.is_op(source.partner[after] + 1, ";"):
        yield Change("call deleted", first, begin, source.tokens[source.partner[after] + 1].end, ";")
    elif source.is_op(after, "=", *(text for text in BINARY if text.endswith("="))):
        yield Change("assignment deleted", first, begin, source.tokens[statement_end(source, first)].end, ";")


def condition(source: Source, at: int) -> Iterator[Change]:
    """A bare condition is reversed; what compares or combines has its operators changed."""
    if not (source.is_word(at, "if", "while") and source.is_op(at + 1, "(")):
        return
    first, last = at + 2, source.partner[at + 1] - 1
    inner = first
    while inner <= last:
        if source.is_op(inner, ";"):
            first = inner + 1
        inner = source.partner.get(inner, inner) + 1
    inner = first
    while inner <= last:
        if source.tokens[inner].text in CONDITIONAL:
            return
        inner = source.partner.get(inner, inner) + 1
    text = source.between(first, last)
    yield Change("logic", first, source.tokens[first].start, source.tokens[last].end, f"!({text})")


def arguments_of(source: Source, opening: int) -> list[tuple[int, int]]:
    """First and last token of each argument."""
    out, first, at = [], opening + 1, opening + 1
    closing = source.partner[opening]
    while at < closing:
        if source.is_op(at, ","):
            out.append((first, at - 1))
            first = at + 1
        at = source.partner.get(at, at) + 1
    return out + [(first, closing - 1)] if first < closing else out


def exchanges(source: Source, at: int, runs: bool) -> Iterator[Change]:
    """Neighbouring arguments of a call; that they have the same type is left to the compiler, or seen from the
    tokens where it cannot be asked."""
    if not (source.is_word(at) and source.is_op(at + 1, "(")) or source.tokens[at].text in KEYWORDS:
        return
    found = arguments_of(source, at + 1)
    for (first, last), (then, end) in zip(found, found[1:]):
        one, two = source.between(first, last), source.between(then, end)
        alike = first == last and then == end and source.tokens[first].kind == source.tokens[then].kind
        if one == two or not (runs or (alike and source.tokens[first].kind != "word")):
            continue
        gap = source.text[source.tokens[last].end:source.tokens[then].start]
        types = ", ".join(" ".join(f"decltype(({text}))".split()) for text in (one, two))
        yield Change("arguments exchanged", first, source.tokens[first].start, source.tokens[end].end,
                     f"{two}{gap}{one}", f"(mutant_same<{types}>(), {two}){gap}{one}" if runs else "")


def changes(source: Source, region: Region) -> Iterator[Change]:
    at = region.first
    while at <= region.last:
        if source.is_word(at, "__attribute__", "static_assert"):
            at = source.partner[at + 1] + 1
            continue
        if source.is_op(at, "[") and source.is_op(at + 1, "[") or source.is_word(at, "extern"):
            at = source.partner.get(at, at) + 1
            continue
        if source.tokens[at].kind == "op":
            yield from operators(source, at)
        else:
            yield from constants(source, at)
            yield from exchanges(source, at, region.runs)
        if region.runs:
            yield from condition(source, at)
        at += 1
    for first in region.statements:
        yield from statements(source, first)


def shown(text: str) -> str:
    text = " ".join(text.split())
    return text or "nothing"


def mutants_of(sources: list[Source]) -> list[Mutant]:
    out: list[Mutant] = []
    seen: Counter[tuple[str, str, str, str]] = Counter()
    for source in sources:
        for region in source.regions:
            for change in sorted(changes(source, region), key=lambda one: (one.start, one.end)):
                line = source.tokens[change.token].line
                said = f"{shown(source.text[change.start:change.end])} -> {shown(change.replacement)}"
                if change.kind.endswith("deleted"):
                    said = f"deleted {shown(source.text[change.start:change.end])}"
                place = (source.name, region.name, source.lines[line - 1].strip(), said)
                seen[place] += 1
                out.append(Mutant(len(out) + 1, Key(*place, seen[place]), change.kind, line, source, region,
                                  change.token, change.start, change.end, change.replacement,
                                  change.checked or change.replacement))
    return out

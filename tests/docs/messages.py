"""The daemon's message texts, read from its sources.

A text is given as a person meets it in a log: without its line end, and with function name and number filled in where
it begins with them. Other values stay as they are in the format ("%s", "%d").
"""

from __future__ import annotations

import pathlib
import re

from tests.docs import sandbox

LEVELS = {"ERROR": "error", "WARNING": "warning", "NOTICE": "notice", "INFO": "info", "DEBUG": "debug"}
REPORT = re.compile(r'\bNET_(ERROR|WARNING|NOTICE|INFO|DEBUG)\(\s*((?:"(?:[^"\\]|\\.)*"\s*)+)')
COMPLAINT = re.compile(r'\bargs\.(?:text|require)\([^";]*?((?:"(?:[^"\\]|\\.)*"\s*)+)')
FUNCTION = re.compile(r"^[A-Za-z_][\w :*&<>]*?\b(\w+)\(", re.M)


def sources() -> list[pathlib.Path]:
    return sorted((sandbox.ROOT / "src").rglob("*.cpp"))


def arguments(text: str, start: int) -> list[str]:
    """The arguments from start up to the parenthesis that closes the call."""
    words, depth, at = [""], 0, start
    while depth or text[at] != ")":
        char = text[at]
        depth += (char in "({[") - (char in ")}]")
        if char == "," and depth == 0:
            words.append("")
        else:
            words[-1] += char
        at += 1
    return [word.strip() for word in words]


def enclosing(text: str, at: int) -> str:
    return FUNCTION.findall(text[:at])[-1]


def plain(literal: str) -> str:
    joined = "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', literal))
    return joined.replace("\\r", "").replace("\\n", "")


def messages() -> dict[tuple[str, str], list[tuple[str, int]]]:
    """{(text, level): [(file, line)]}"""
    found: dict[tuple[str, str], list[tuple[str, int]]] = {}
    for path in sources():
        text = path.read_text()
        for call in REPORT.finditer(text):
            message = plain(call.group(2))
            if message == "%s":
                continue    # a complaint, which is found where it is made
            values = arguments(text, call.end())[1:]
            if message.startswith("%s %d"):
                name = enclosing(text, call.start()) if values[0] == "__func__" else values[0].strip('"')
                message = message.replace("%s %d", f"{name} {values[1]}", 1)
            place = (str(path.relative_to(sandbox.ROOT)), text.count("\n", 0, call.start()) + 1)
            found.setdefault((message, LEVELS[call.group(1)]), []).append(place)
        for call in COMPLAINT.finditer(text):
            place = (str(path.relative_to(sandbox.ROOT)), text.count("\n", 0, call.start()) + 1)
            found.setdefault((plain(call.group(1)), "error"), []).append(place)
    return found


if __name__ == "__main__":
    for (text, level), places in sorted(messages().items(), key=lambda item: item[1]):
        print(f"{level:<8} {text}    {' '.join(f'{name}:{line}' for name, line in places)}")

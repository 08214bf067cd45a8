#!/usr/bin/env python3
"""Makes the manual pages of the books: packaging/manpages.py VERSION FOLDER.

A page is a list of sections, each the text of a heading of a book. What the books write (paragraphs, lists, tables,
blocks of commands, code, links) becomes what a manual page has; pictures are left out, and of a link its words stay.
"""

from __future__ import annotations

import pathlib
import re
import sys
from dataclasses import dataclass

DOCS = pathlib.Path(__file__).resolve().parents[1] / "docs"
TOP = ""        # what stands before the second heading of a book


@dataclass(frozen=True)
class Page:
    about: str
    synopsis: list[str]
    parts: list[tuple[str, str, str]]       # heading in the page; book, heading there
    see_also: list[str]


def lines_of(book: str) -> list[str]:
    return (DOCS / f"{book}.md").read_text(encoding="utf-8").splitlines()


def whole(book: str) -> list[tuple[str, str, str]]:
    """All of a book: what stands at its beginning, then a section for each of its headings."""
    heads = [line[3:] for line in lines_of(book) if line.startswith("## ")]
    return [("DESCRIPTION", book, TOP), *((head.replace("`", "").upper(), book, head) for head in heads)]


PAGES = {
    "ivarode.8": Page("network-interface manager of a small router", ["ivarode"], [
        ("DESCRIPTION", "architecture", TOP), ("FIRST START", "porting", "First start"),
        ("START", "architecture", "Start-up"), ("EVENTS", "architecture", "After the start"),
        ("FIREWALL", "architecture", "The firewall skeleton"), ("LOOKING INSIDE", "porting", "Looking inside"),
        ("SIGNALS", "behaviour", "SIGTERM is heard in the event loop only"),
        ("OTHER SIGNALS", "behaviour", "Other signals end the daemon without clean-up"),
        ("PRIVILEGES", "porting", "Privileges")], ["ivarodectl(8)", "ivarode-plan(8)", "ivarode(5)"]),
    "ivarodectl.8": Page("see how the network-interface manager does, and why something does not work", [
        "ivarodectl COMMAND [OPTION] [WORD...]"], whole("ivarodectl"), ["ivarode(8)", "ivarode-plan(8)"]),
    "ivarode-plan.8": Page("say what the network-interface manager would do", [
        "ivarode-plan [--board FILE] [--config DIR] [--daemon FILE] [--from clean|now | --diff] "
        "[--call 'OBJECT METHOD JSON'] [--link PORT=up|down] [--address A] [--json | --quiet]"], whole("plan"),
        ["ivarode(8)", "ivarode(5)"]),
    "ivarode.5": Page("configuration and board file of the network-interface manager", [
        "/etc/config/lan_intf, /etc/config/wan_intf, /etc/config/route_config", "/etc/board.json"], [
        ("DESCRIPTION", "configuration", TOP), ("NAMES", "configuration", "Names"),
        ("VLAN IDS", "configuration", "VLAN IDs"), ("LAN_INTF", "configuration", "Package `lan_intf`"),
        ("WAN_INTF", "configuration", "Package `wan_intf`"),
        ("ROUTE_CONFIG", "configuration", "Package `route_config`"), ("DHCP", "configuration", "Package `dhcp`"),
        ("BOARD FILE", "porting", "Board file")], ["ivarode(8)", "ivarode-plan(8)"]),
    "ivarode-lab.1": Page("raise, see and drive the virtual board of ivarode", ["ivarode-lab COMMAND [WORDS]"], [
        ("DESCRIPTION", "lab", TOP), ("COMMANDS", "lab", "Commands"), ("HOSTS", "lab", "Who is there"),
        ("BOARDS AND CONFIGURATIONS", "lab", "Boards and configurations"),
        ("WHERE IT RUNS", "lab", "Natively or in the small machine"), ("PROVIDERS", "lab", "A WAN with a provider"),
        ("WHEN SOMETHING IS ODD", "lab", "When something is odd")], ["ivarode(8)", "ivarode-plan(8)"]),
}


def section(book: str, heading: str) -> list[str]:
    """The lines below a heading of a book, up to the next one of its depth; ValueError where there is none."""
    lines = lines_of(book)
    heads = [(at, line) for at, line in enumerate(lines) if re.match(r"#+ ", line)]
    for number, (at, line) in enumerate(heads):
        depth, _, name = line.partition(" ")
        if name == heading or heading == TOP and number == 0:
            deeper = 1 if heading == TOP else len(depth)
            ends = [end for end, other in heads[number + 1:] if heading == TOP or len(other.split(" ")[0]) <= deeper]
            return lines[at + 1:ends[0] if ends else len(lines)]
    raise ValueError(f"docs/{book}.md has no heading {heading}")


def escaped(text: str) -> str:
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq").replace("`", "\\(ga")
    return "".join(c if ord(c) < 128 else f"\\[u{ord(c):04X}]" for c in text)


def inline(text: str) -> str:
    """Code, emphasis and links of a text; a point at the beginning of a line is no request."""
    text = text.replace("\\|", "|")
    text = re.sub(r"!?\[((?:[^\]`]|`[^`]*`)*)\]\([^)]*\)", r"\1", text)
    out = []
    for part in re.split(r"(`[^`]+`)", text):
        if part.startswith("`"):
            out.append(f"\\fB{escaped(part[1:-1])}\\fR")
        else:
            part = escaped(part)
            part = re.sub(r"\*\*(.+?)\*\*", r"\\fB\1\\fR", part)
            out.append(re.sub(r"\*(.+?)\*", r"\\fI\1\\fR", part))
    return "\\&" + "".join(out) if out and "".join(out).startswith((".", "\\(aq")) else "".join(out)


def table(rows: list[list[str]]) -> list[str]:
    """A paragraph for each row: its first cell, then the second one, then the others with their columns' names."""
    head, *rest = rows
    out = []
    for row in rest:
        out += [".TP", inline(row[0]) or "\\&"]
        cells = [(name, cell) for name, cell in zip(head[1:], row[1:]) if cell]
        words = [cell if number == 0 or not name else f"{name}: {cell}" for number, (name, cell) in enumerate(cells)]
        out.append(inline("; ".join(words)) or "\\&")
    return [*out, ".PP"]


def cells(line: str) -> list[str]:
    return [cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]]


ITEM = re.compile(r"( *)(?:[-*]|\d+\.) +(.*)")
PARAGRAPH_ENDS = re.compile(r"[|#`>]|    |[-*] |\d+\. ")


def converted(lines: list[str]) -> list[str]:
    out: list[str] = []
    at = 0
    while at < len(lines):
        line = lines[at]
        block = at + 1
        if line.startswith("```") or line.startswith("    "):
            fenced = line.startswith("```")
            while block < len(lines) and lines[block].startswith("```" if fenced else "    ") != fenced:
                block += 1
            body = lines[at + 1:block] if fenced else [text[4:] for text in lines[at:block]]
            shown = ["\\&" + escaped(text).replace("\t", "    ") for text in body]
            out += [".PP", ".RS 4", ".nf", *shown, ".fi", ".RE", ".PP"]
            at = block + (1 if fenced else 0)
            continue
        if line.startswith("|"):
            while block < len(lines) and lines[block].startswith("|"):
                block += 1
            rows = [cells(text) for text in lines[at:block]]
            out += table([row for row in rows if not all(re.fullmatch(r":?-+:?", cell) for cell in row)])
        elif not line.strip():
            out.append(".PP")
        elif line.startswith("#"):
            out.append(".SS " + inline(line.lstrip("# ")))
        elif item := ITEM.match(line):
            while block < len(lines) and re.match(r"  +\S", lines[block]) and not ITEM.match(lines[block]):
                block += 1
            words = " ".join([item[2], *(text.strip() for text in lines[at + 1:block])])
            out += [f".IP \\(bu {4 if item[1] else 2}", inline(words)]
        elif not line.startswith("!["):
            while block < len(lines) and lines[block].strip() and not PARAGRAPH_ENDS.match(lines[block]):
                block += 1
            out.append(inline(" ".join(text.strip() for text in lines[at:block])))
        at = block
    return [text for number, text in enumerate(out) if text != ".PP" or number and out[number - 1] != ".PP"]


def page(file: str, version: str) -> str:
    about = PAGES[file]
    name, _, number = file.rpartition(".")
    out = [f'.TH {name.upper()} {number} "" "ivarode {version}" "ivarode"', ".SH NAME",
           f"{escaped(name)} \\- {escaped(about.about)}", ".SH SYNOPSIS"]
    for words in about.synopsis:
        out += [".PP", ".B " + escaped(words)]
    for heading, book, there in about.parts:
        out += [".SH " + escaped(heading), *converted(section(book, there))]
    out += [".SH SEE ALSO", escaped(", ".join(about.see_also))]
    return "\n".join(out) + "\n"


def main(argv: list[str]) -> int:
    if len(argv) != 2:
        print("usage: packaging/manpages.py VERSION FOLDER", file=sys.stderr)
        return 2
    version, folder = argv[0], pathlib.Path(argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    for file in PAGES:
        (folder / file).write_text(page(file, version), encoding="ascii")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

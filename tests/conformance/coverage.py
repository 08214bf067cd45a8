"""Which message, status and platform call of the daemon is reached by which scenario.

Messages and calls are read from the sources. Calls are told apart by their place when the daemon carries debug
information (a Debug build); else by function alone.
"""
import re
import shutil
import subprocess
from collections import defaultdict
from collections.abc import Callable, Iterable, Iterator, Sequence
from pathlib import Path

from labctl.trace import collapse
from tests.conformance.recording import Board, Runs
from tests.conformance.scenario import Scenario
from tests.docs import messages

CONVERSION = re.compile(r"%(?:%|[-+ #0]*\d*(?:\.\d+)?(?:hh|h|ll|l|z)?[diouxXcsp])")
DECLARATION = re.compile(r"\b(\w+)\([^;{}]*\)\s*(?:__attribute__[^;]*)?;")

Names = dict[str, set[str]]        # something, and the scenarios that reach it
Recorded = list[tuple[Scenario, Runs]]
Label = Callable[[Scenario], str]


def without_comments(text: str) -> str:
    return re.sub(r"//[^\n]*", lambda m: " " * len(m[0]), text)


def pattern_of(severity: str, text: str) -> re.Pattern[str]:
    """The lines of a trace that show a message; its line end is not part of the text."""
    out = []
    at = 0
    for match in CONVERSION.finditer(text):
        out += [re.escape(text[at:match.start()]), "%" if match[0] == "%%" else ".*?"]
        at = match.end()
    return re.compile(re.escape(severity.upper()) + r' "(?:\\[rn])*' + "".join(out) + re.escape(text[at:])
                      + r'(?:\\[rn])*"$', re.S)


def platform_functions(folder: Path) -> Iterator[str]:
    for header in sorted((folder / "platform").glob("*.h")):
        text = without_comments(header.read_text(encoding="utf-8"))
        for match in DECLARATION.finditer(text):
            if match[1] != "__attribute__":
                yield match[1]


def call_sites(sources: Iterable[Path], functions: Iterable[str]) -> Iterator[tuple[str, str]]:
    """"file:line" of each place that calls a platform function."""
    name = re.compile(r"\b(" + "|".join(map(re.escape, sorted(functions))) + r")\s*\(")
    for path in sources:
        if path.suffix != ".cpp":
            continue
        text = without_comments(path.read_text(encoding="utf-8"))
        for match in name.finditer(text):
            if not match[1].startswith("outlib_"):
                yield match[1], f"{path.name}:{text.count(chr(10), 0, match.start()) + 1}"


def places(daemon: Path, offsets: Sequence[str]) -> Names:
    """Offsets in the daemon as "file:line", with those of the functions inlined there; empty without debug info."""
    tool = shutil.which("addr2line")
    if not tool or not offsets:
        return {}
    # The place of a return is behind the call.
    asked = [hex(int(offset, 16) - 1) for offset in offsets]
    done = subprocess.run([tool, "-a", "-i", "-e", str(daemon), *asked], stdout=subprocess.PIPE, text=True, check=True)
    out: Names = defaultdict(set)
    current = ""
    for line in done.stdout.splitlines():
        if line.startswith("0x"):
            current = hex(int(line, 16) + 1)
        elif "?" not in line:
            out[current].add(line.split(" (")[0].rsplit("/", 1)[-1])
    return out


def gather(recorded: Recorded, label: Label) -> tuple[Names, Names, Names, dict[tuple[str, str], set[str]]]:
    texts, functions, sites, statuses = (defaultdict(set) for _ in range(4))
    for scenario, runs in recorded:
        name = label(scenario)
        for run, steps in runs:
            titles = {str(scenario.steps.index(step)): step.title for step in steps}
            for key, part in run.parts.items():
                for line in part:
                    line, _, offset = line.partition("\t@")
                    functions[re.sub(r"^ioctl\[\d+\] ", "", line).partition("(")[0]].add(name)
                    if offset:
                        sites[offset].add(name)
                for line in collapse(part):
                    if re.match(r"(ERROR|WARNING|NOTICE|INFO|DEBUG) ", line):
                        texts[line].add(name)
                    elif line.startswith("status ") and titles.get(key, "").startswith("call "):
                        statuses[" ".join(titles[key].split()[1:3]), line[7:]].add(name)
    return texts, functions, sites, statuses


def show(title: str, rows: Iterable[tuple[str, set[str]]]) -> None:
    """Rows of (what, scenarios); those without one last."""
    rows = list(rows)
    missed = [what for what, names in rows if not names]
    print(f"\n== {title}: {len(rows) - len(missed)} of {len(rows)} reached")
    for what, names in rows:
        if names:
            print(f"  {len(names):5}  {what}\n           {sorted(names)[0]}")
    for what in missed:
        print(f"      -  {what}")


def report(folder: Path, board: Board, recorded: Recorded, label: Label) -> None:
    sources = sorted(folder.rglob("*.cpp")) + sorted(folder.rglob("*.h"))
    texts, functions, sites, statuses = gather(recorded, label)

    rows = []
    for (message, severity), found in messages.messages().items():
        pattern = pattern_of(severity, message)
        hit = set().union(*(names for text, names in texts.items() if pattern.match(text)))
        rows.append((f'{" ".join(f"{name}:{line}" for name, line in found)} {severity} "{message}"', hit))
    show("messages", rows)

    show("statuses", ((f"{method}: {status}", names) for (method, status), names in sorted(statuses.items())))

    known = set(platform_functions(folder))
    shown = {"ucilib_lookup_option_string", "strncpy_safe_record", "strncmp_safe_record", "memcpy_safe_record"}
    show("platform functions", ((name, functions[name]) for name in sorted(known - shown)))

    lines = places(board.daemon, list(sites))
    if lines:
        reached: Names = defaultdict(set)
        for offset, names in sites.items():
            for place in lines.get(hex(int(offset, 16)), ()):
                reached[place] |= names
        show("places of platform calls",
             ((f"{place} {name}", near(reached, place)) for name, place in call_sites(sources, known - shown)))


def near(reached: Names, place: str) -> set[str]:
    """A call that spans lines may be noted at any of its first few."""
    file, _, line = place.rpartition(":")
    return set().union(*(reached.get(f"{file}:{number}", set()) for number in range(int(line), int(line) + 4)))

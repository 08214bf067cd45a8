"""Scenario files: how they are read.  README.md beside this file describes them for people."""
import copy
import re
from pathlib import Path

import notation

ROLES = {"lan": 1, "wan": 2, "either": 3}
CONTENT_STEPS = ("netdev", "fact")


class ScenarioError(ValueError):
    def __init__(self, where, text):
        super().__init__(f"{where}: {text}")


class Step:
    def __init__(self, title, where):
        times = re.fullmatch(r"(\d+) times (.*)", title)
        self.title = times[2] if times else title
        self.times = int(times[1]) if times else 1
        self.where = where
        self.content = []
        self.expected = []
        self.only = None
        self.hide = None


class Scenario:
    def __init__(self, name, path, line):
        self.name = name
        self.path = path
        self.line = line
        self.row = 0           # of the block's table
        self.setup = []        # script lines, as tuples
        self.first = []        # script lines of the first process alone
        self.only = []
        self.hide = []
        self.steps = []
        self.arguments = []    # the daemon's arguments
        self.entry = []        # an operation to call instead of running the daemon, with its arguments

    @property
    def where(self):
        return f"{self.path}:{self.line}"


def escape(value):
    if isinstance(value, str):
        value = value.encode("utf-8", "surrogateescape")
    out = []
    for byte in value:
        if byte == 0x5C:
            out.append("\\\\")
        elif 0x20 <= byte < 0x7F:
            out.append(chr(byte))
        else:
            out.append(f"\\x{byte:02x}")
    return "".join(out)


def script_text(lines):
    return "".join("\t".join(escape(field) for field in line) + "\n" for line in lines)


def result_line(text, where):
    """[#N] PATTERN = VALUE [-> OUT]"""
    match = re.fullmatch(r"(?:#(\d+)\s+)?(.+?)\s*=\s*(-?\d+)(?:\s*->\s*(.*))?", text)
    if not match:
        raise ScenarioError(where, f"not a result: {text}")
    nth, pattern, value, out = match.groups()
    return ("result", nth or "0", pattern.strip(), value, out or "")


class Parser:
    def __init__(self, fixtures):
        self.fixtures = fixtures
        self.scenario = None
        self.where = ""

    def fail(self, text):
        raise ScenarioError(self.where, text)

    def number_of_words(self, words, count):
        if len(words) != count:
            self.fail(f"{count} words expected: {' '.join(words)}")

    def board(self, content):
        for line in content:
            words = line.split()
            if words[0] in ("mac", "cpu"):
                self.number_of_words(words, 2)
                self.scenario.setup.append(tuple(words))
            else:
                self.number_of_words(words, 3)
                role = ROLES.get(words[1], words[1])
                self.scenario.setup.append(("port", words[0].rstrip(":"), str(role), words[2]))

    def uci(self, package, content):
        lines = self.scenario.setup
        lines.append(("package", package))
        for line in content:
            words = line.split(None, 1)
            if not line.startswith(" "):
                self.number_of_words(words, 2)
                lines.append(("section", package, words[0], words[1].strip()))
            else:
                value = words[1].strip() if len(words) > 1 else ""
                if value.startswith('"') and value.endswith('"') and len(value) > 1:
                    value = notation.unquote(value)
                lines.append(("option", words[0], value))

    def use(self, names):
        for name in re.split(r",\s*", names):
            if name not in self.fixtures:
                self.fail(f"no fixture {name!r}")
            fixture = self.fixtures[name]
            for part in ("setup", "first", "only", "hide"):
                getattr(self.scenario, part).extend(copy.copy(getattr(fixture, part)))

    def directive(self, line, content):
        word, _, rest = line.partition(" ")
        rest = rest.strip()
        scenario = self.scenario
        if word == "use":
            self.use(rest)
        elif word == "only":
            scenario.only += rest.split()
        elif word == "hide":
            scenario.hide += rest.split()
        elif word == "show":
            scenario.setup.append(("show-" + rest,))
        elif word in ("entry", "arguments"):
            words = [notation.unquote(text).decode() if text[0] == '"' else text
                     for text in re.findall(r'"(?:[^"\\]|\\.)*"|\S+', rest)]
            setattr(scenario, word, words)
        elif word == "board":
            self.board(content)
        elif word == "uci":
            self.uci(rest, content)
        elif word == "result":
            scenario.first.append(result_line(rest, self.where))
        elif word == "fact":
            scenario.first += [("fact", text) for text in ([rest] if rest else []) + content]
        elif word in ("ports", "netdev", "netdev-unreadable", "time", "debug", "limit"):
            scenario.setup.append(statement(word, rest, content))
        else:
            self.fail(f"unknown word {word!r}")


def statement(word, rest, content):
    if word == "ports":
        return (word, *rest.split())
    if word == "netdev":
        return (word, "".join(line + "\n" for line in content))
    return (word, rest) if rest else (word,)


def step_script(step):
    """The script lines of one step inside the event loop."""
    return single_script(step) * step.times


def single_script(step):
    word, _, rest = step.title.partition(" ")
    rest = rest.strip()
    if word == "call":
        target = rest.split(None, 2)
        try:
            message = notation.fields(target[2] if len(target) > 2 else "")
        except notation.NotationError as error:
            raise ScenarioError(step.where, error) from error
        return [("call", target[0], target[1]), *message, (".",)]
    if word == "link":
        port, state = rest.split()
        return [("link", port, {"up": "1", "down": "0"}.get(state, state))]
    if word == "address":
        parts = [int(part) for part in rest.split()[0].split(".")]
        return [("address", str(int.from_bytes(bytes(parts), "big")), "1")]
    if word == "result":
        return [result_line(rest, step.where)]
    if word == "fact":
        return [("fact", text) for text in ([rest] if rest else []) + step.content]
    if word in ("timer", "objects", "counter", "forget"):
        return [(word,)]
    if word == "model":
        return [(word, rest)]
    if word in ("ports", "netdev", "netdev-unreadable", "time", "debug"):
        return [statement(word, rest, step.content)]
    raise ScenarioError(step.where, f"unknown step {word!r}")


def blocks(path):
    """(name, first line number, [(line number, text)]) of each block of a file."""
    name, start, lines = None, 0, []
    for number, text in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if text.startswith("#"):
            continue
        if text.startswith("=== "):
            if name is not None:
                yield name, start, lines
            name, start, lines = text[4:].strip(), number, []
        elif name is not None and text.strip():
            lines.append((number, text.rstrip()))
    if name is not None:
        yield name, start, lines


def expand_each(name, lines, where):
    """A block with a table ("each A | B" and its indented rows) becomes one block for each row."""
    at = next((i for i, (_, text) in enumerate(lines) if text.startswith("each ")), None)
    if at is None:
        yield name, lines
        return
    columns = [column.strip() for column in lines[at][1][5:].split(" | ")]
    end = at + 1
    while end < len(lines) and lines[end][1].startswith(" "):
        end += 1
    seen = set()
    for number, row in lines[at + 1:end]:
        cells = [cell.strip() for cell in row.strip().split(" | ")]
        if len(cells) != len(columns):
            raise ScenarioError(f"{where}:{number}", f"{len(columns)} cells expected: {row.strip()}")
        values = dict(zip(columns, cells))

        def fill(text, values=values):
            return re.sub(r"\$(?:\{([a-z_]+[0-9]?)\}|([a-z_]+[0-9]?))", lambda m: values.get(m[1] or m[2], m[0]), text)

        filled = []
        for line_number, text in lines[:at] + lines[end:]:
            new = fill(text)
            # A cell may hold several lines, or none.
            if text.strip().startswith("$") and text.strip()[1:] in values:
                indent = text[:len(text) - len(text.lstrip())]
                filled += [(line_number, indent + part.strip()) for part in new.strip().split(" // ") if part.strip() not in ("", "-")]
            else:
                filled.append((line_number, new))
        row_name = fill(name)
        if row_name == name or row_name in seen:
            row_name = f"{row_name} [{cells[0]}]" if f"{row_name} [{cells[0]}]" not in seen else f"{row_name} [{row.strip()}]"
        seen.add(row_name)
        yield row_name, filled


def indented(lines, at):
    """The indented lines from `at` on, without their common four blanks, and the index behind them."""
    content = []
    while at < len(lines) and lines[at][1].startswith("    "):
        content.append(lines[at][1][4:])
        at += 1
    return content, at


def repeated(text):
    """With each "<x*40>" written out as forty characters."""
    return re.sub(r"<(.)\*(\d+)>", lambda m: m[1] * int(m[2]), text)


def expectation(lines, at, step, where):
    """One expected line, or a repeated group; the index behind it."""
    text = lines[at][1].strip()
    if text.startswith(": only ") or text.startswith(": hide "):
        setattr(step, text[2:6], text[7:].split())
        return at + 1
    match = re.fullmatch(r"repeat (\d+)", text)
    if match:
        group, after = indented(lines, at + 1)
        if not group:
            raise ScenarioError(where, "nothing to repeat")
        step.expected += [line.strip() for line in group] * int(match[1])
        return after
    step.expected.append(repeated(text))
    return at + 1


def parse_block(name, path, start, lines, fixtures):
    parser = Parser(fixtures)
    parser.scenario = scenario = Scenario(name, path, start)
    at = 0
    while at < len(lines):
        number, text = lines[at]
        where = parser.where = f"{path}:{number}"
        if text.startswith("> "):
            step = Step(repeated(text[2:].strip()), where)
            scenario.steps.append(step)
            at += 1
            if step.title.split()[0] in CONTENT_STEPS:
                step.content, at = indented(lines, at)
        elif scenario.steps:
            at = expectation(lines, at, scenario.steps[-1], where)
        else:
            content, at = indented(lines, at + 1)
            parser.directive(text, content)
    return scenario


def load(path, fixtures):
    out = []
    for name, start, lines in blocks(path):
        for row, (row_name, row_lines) in enumerate(expand_each(name, lines, path)):
            out.append(parse_block(row_name, path, start, row_lines, fixtures))
            out[-1].row = row
    return out


def load_fixtures(path):
    fixtures = {}
    for name, start, lines in blocks(path):
        fixtures[name] = parse_block(name, path, start, lines, fixtures)
    return fixtures


def load_all(folder):
    folder = Path(folder)
    fixtures = load_fixtures(folder / "fixtures.txt")
    out = []
    for path in sorted((folder / "scenarios").glob("*/*.txt")):
        out += load(path, fixtures)
    return out

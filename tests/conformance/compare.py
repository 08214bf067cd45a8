"""Compares what a scenario expects with what was recorded."""
import fnmatch
import re

from labctl.trace import collapse
from tests.conformance.filtering import filtered
from tests.conformance.recording import Run, Runs, key_of
from tests.conformance.scenario import Scenario, Step, filters

NORMAL_END = ["cmdlib_kill_processes() = 0", "exit 0"]


def forbidden(expected: list[str], actual: list[str]) -> str | None:
    """The first recorded line that a "! PATTERN" of the expectation rules out."""
    patterns = [line[2:] for line in expected if line.startswith("! ")]
    return next((line for line in actual for pattern in patterns if fnmatch.fnmatchcase(line, pattern)), None)


PLACEHOLDERS = {"<pointer>": "0x[0-9a-f]+", "<number>": "[0-9]+"}


def same(pattern: str, line: str) -> bool:
    """Whether one line is as expected; <pointer> stands for any address, <number> for any number."""
    if not any(name in pattern for name in PLACEHOLDERS):
        return pattern == line
    text = re.escape(pattern)
    for name, expression in PLACEHOLDERS.items():
        text = text.replace(name, expression)
    return re.fullmatch(text, line) is not None


def matches(expected: list[str], actual: list[str]) -> bool:
    """Whether lines match in full; "..." stands for any number of lines."""
    reach = {0}
    for pattern in expected:
        if pattern.startswith("! "):
            continue
        if pattern == "...":
            reach = set(range(min(reach), len(actual) + 1)) if reach else set()
            continue
        reach = {at + 1 for at in reach if at < len(actual) and same(pattern, actual[at])}
    return len(actual) in reach


def first_difference(expected: list[str], actual: list[str]) -> tuple[int, int]:
    """How many expected lines can be met, and how many recorded lines meet them at the most."""
    reach, met, at = {0}, 0, 0
    for pattern in expected:
        if pattern.startswith("! "):
            met += 1
            continue
        if pattern == "...":
            following = set(range(min(reach), len(actual) + 1))
        else:
            following = {here + 1 for here in reach if here < len(actual) and same(pattern, actual[here])}
        if not following:
            break
        reach, met, at = following, met + 1, min(following)
    return met, at


def show_difference(expected: list[str], actual: list[str]) -> list[str]:
    """Both sides around the first difference."""
    met, at = first_difference(expected, actual)
    out = [f"      expected (line {met + 1}):"] + [f"        {line}" for line in expected[max(0, met - 2):met + 12]]
    return out + [f"      recorded (line {at + 1}):"] + [f"        {line}" for line in actual[max(0, at - 2):at + 12]]


def lines_of(scenario: Scenario, step: Step, run: Run) -> list[str] | None:
    key = "start" if step.title in ("start", "restart") else key_of(scenario, step)
    if key not in run.parts:
        return None
    if step.title.split()[0] in ("model", "objects", "counter"):
        return collapse(run.parts[key])
    return filtered(collapse(run.parts[key]), *filters(scenario, step))


def check(scenario: Scenario, runs: Runs) -> list[str]:
    """The complaints about one scenario, empty when it passed."""
    complaints = []
    for run, steps in runs:
        for step in steps:
            actual = lines_of(scenario, step, run)
            if actual is None:
                complaints.append(f"  {step.where}: the daemon ended (exit {run.exit}) before: {step.title}")
                break
            if (unwanted := forbidden(step.expected, actual)) is not None:
                complaints.append(f"  {step.where}: > {step.title}: not expected: {unwanted}")
            if not matches(step.expected, actual):
                complaints.append(f"  {step.where}: > {step.title}")
                complaints += show_difference(step.expected, actual)
        else:
            explicit = any(step.title == "end" for step in steps)
            if "end" in run.parts and not explicit and collapse(run.parts["end"]) != NORMAL_END:
                complaints.append(f"  {scenario.where}: at the end of the event loop")
                complaints += show_difference(NORMAL_END, collapse(run.parts["end"]))
            elif "end" not in run.parts and (not steps or not ended_as_expected(scenario, steps[-1], run)):
                complaints.append(f"  {scenario.where}: the daemon ended with exit {run.exit}")
        if run.output:
            complaints += ["  output of the daemon:"] + ["    " + line for line in run.output.splitlines()[:20]]
    return complaints


def ended_as_expected(scenario: Scenario, step: Step, run: Run) -> bool:
    """A process may end inside the last step only when that step's expectation says how."""
    return any(line.startswith(("exit ", "killed ", "endless")) for line in step.expected)


def transcript(scenario: Scenario, runs: Runs) -> list[str]:
    """A scenario's trace in the notation of scenario files."""
    out = [f"=== {scenario.name}"]
    for run, steps in runs:
        titles = {key_of(scenario, step): step.title for step in steps}
        for key in run.order:
            if key == "start":
                out.append("> start" if run is runs[0][0] else "> restart")
            else:
                out.append(f"> {titles.get(key, key)}")
            out += filtered(collapse(run.parts[key]), scenario.only, scenario.hide)
    return out

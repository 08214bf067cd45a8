"""Runs the daemon under the recorder and reads its trace."""
import os
import subprocess
import tempfile
from collections.abc import Iterable, Sequence
from pathlib import Path

from tests.conformance.notation import Line
from tests.conformance.scenario import Scenario, Step, script_text, step_script

Command = tuple[list[str], dict[str, str]]      # and its environment


class Board:
    """What is run: the daemon, the recorder, and what to start them with."""

    def __init__(self, build: Path, prefix: Sequence[str] = (), leaks: bool = False) -> None:
        build = self.build = build.resolve()
        self.daemon = build / "bin" / "ivarode"
        self.recorder = build / "seam" / "libsys.so"
        self.entries = build / "seam" / "entries"
        self.prefix = list(prefix)
        self.leaks = leaks

    def missing(self) -> list[str]:
        return [str(path) for path in (self.daemon, self.recorder) if not path.exists()]

    def command(self, script: Path, entry: Sequence[str] = (), arguments: Sequence[str] = ()) -> Command:
        """The command line and environment of one run: of the daemon, or of one operation of it."""
        inner = {
            "LD_PRELOAD": str(self.recorder),
            "IVARODE_SCRIPT": str(script),
            "ASAN_OPTIONS": f"verify_asan_link_order=0:detect_leaks={int(self.leaks)}"
                            f":abort_on_error={int(not self.leaks)}:allocator_may_return_null=1",
            "UBSAN_OPTIONS": "print_stacktrace=1:halt_on_error=1",
        }
        environment = {"PATH": os.environ.get("PATH", "")}
        if self.prefix:
            # The emulator must not be preloaded itself; it hands these on to what it runs.
            environment["QEMU_SET_ENV"] = f"LD_PRELOAD={inner.pop('LD_PRELOAD')}"
        program = [str(self.entries), *entry] if entry else [str(self.daemon), *arguments]
        return [*self.prefix, *program], {**environment, **inner}


class Run:
    """One process: its trace by steps, and how it ended."""

    def __init__(self) -> None:
        self.parts: dict[str, list[str]] = {}           # step key -> raw trace lines
        self.order: list[str] = []
        self.exit = ""
        self.output = ""
        self.actions = 0
        self.fallible = 0
        self.fallible_before: dict[str, int] = {}       # step key -> fallible calls before it


Runs = list[tuple[Run, list[Step]]]     # of a scenario, and the steps that each was to take


def signed_status(code: int) -> str:
    if code < 0:
        return f"signal {-code}"
    return str(code - 256 if code > 127 else code)


def read_trace(text: str, run: Run) -> None:
    key = "start"
    run.parts[key] = []
    run.order.append(key)
    for line in text.splitlines():
        if line.startswith("> "):
            key, count = line[2:].split("\t")[0].split(" fallible=")
            run.parts[key] = []
            run.order.append(key)
            run.fallible_before[key] = int(count)
        elif line.startswith("counted "):
            numbers = dict(item.split("=") for item in line.split("\t")[0].split()[1:])
            run.actions, run.fallible = int(numbers["actions"]), int(numbers["fallible"])
        else:
            run.parts[key].append(line)


def run_process(board: Board, lines: Iterable[Line], folder: Path | str, timeout: float = 20, sites: bool = False,
                entry: Sequence[str] = (), arguments: Sequence[str] = ()) -> Run:
    """Runs one process with the script lines given; `folder` holds its files."""
    trace = Path(folder) / "trace"
    trace.unlink(missing_ok=True)
    script = Path(folder) / "script"
    script.write_text(script_text([("trace", str(trace), "sites" if sites else ""), *lines]))
    command, environment = board.command(script, entry, arguments)
    run = Run()
    try:
        done = subprocess.run(command, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=timeout, check=False)
        run.exit = signed_status(done.returncode)
        run.output = done.stdout.decode("utf-8", "replace")
    except subprocess.TimeoutExpired:
        run.exit = "timeout"
    text = trace.read_bytes().decode("utf-8", "replace") if trace.exists() else ""
    read_trace(text, run)
    run.parts[run.order[-1]].append("exit " + run.exit)
    return run


def plan(scenario: Scenario, folder: Path | str, extra: Iterable[Line] = ()) -> list[tuple[list[Line], list[Step]]]:
    """The processes of a scenario: for each, its script lines and the steps it is to take."""
    processes = []
    steps = list(scenario.steps)
    groups: list[list[Step]] = [[]]
    for step in steps:
        if step.title == "restart":
            groups.append([])
        groups[-1].append(step)
    for number, group in enumerate(groups):
        lines = list(scenario.setup)
        if len(groups) > 1:
            lines.append(("save", str(Path(folder) / "model")))
        if number == 0:
            lines += scenario.first
        else:
            lines.append(("load", str(Path(folder) / "model")))
        lines += extra
        lines.append(("loop",))
        for step in group:
            if step.title in ("start", "restart"):
                continue
            lines.append(("step", key_of(scenario, step)))
            if step.title != "end":
                lines += step_script(step)
        if not any(step.title == "end" for step in group):
            lines.append(("step", "end"))
        processes.append((lines, group))
    return processes


def key_of(scenario: Scenario, step: Step) -> str:
    return "end" if step.title == "end" else str(scenario.steps.index(step))


def record(board: Board, scenario: Scenario, folder: Path | str, extra: Iterable[Line] = (), sites: bool = False,
           timeout: float = 20) -> Runs:
    """Runs a scenario; a list of (run, steps)."""
    runs = []
    for lines, steps in plan(scenario, folder, extra):
        runs.append((run_process(board, lines, folder, timeout=timeout, sites=sites, entry=scenario.entry,
                                 arguments=scenario.arguments), steps))
    return runs


def temporary_folder() -> tempfile.TemporaryDirectory[str]:
    return tempfile.TemporaryDirectory(prefix="conformance-")

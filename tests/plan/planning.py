"""ivarode-plan as the tests run it, and the samples that it plans."""

import itertools
import json
import os
import pathlib
import subprocess
from typing import Any

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("IVARODE_BUILD", ROOT / "build")).resolve()
PROGRAM = BUILD / "bin/ivarode-plan"
BOARDS = sorted((ROOT / "lab/boards").glob("*.json"))
CONFIGS = [*sorted((ROOT / "lab/configs").iterdir()), ROOT / "image/files/etc/config"]
SAMPLES = list(itertools.product(BOARDS, CONFIGS))
BOARD, CONFIG = ROOT / "lab/boards/one-cpu.json", ROOT / "lab/configs/home"
SAMPLE = ("--board", BOARD, "--config", CONFIG)

Plan = dict[str, Any]       # as docs/plan.md describes it


def label(sample: tuple[pathlib.Path, pathlib.Path]) -> str:
    board, config = sample
    return f"{board.stem}, {'image' if 'image' in config.parts else config.name}"


BY_LABEL = {label(sample): sample for sample in SAMPLES}


def run(*words: object, **options: Any) -> subprocess.CompletedProcess[str]:
    return subprocess.run([str(word) for word in (PROGRAM, *words)], capture_output=True, text=True, timeout=60,
                          check=False, stdin=subprocess.DEVNULL, **options)


def plan(*words: object) -> Plan:
    """The plan for programs; its status is the program's."""
    done = run("--json", *words)
    assert done.stderr == ""
    told: Plan = json.loads(done.stdout)
    assert told["status"] == done.returncode
    return told


def call(method: str, **fields: object) -> tuple[str, str]:
    """The words that ask for a call of "ivarode.intf"."""
    return "--call", f"ivarode.intf {method} {json.dumps(fields)}"


def errors(phase: Plan) -> list[str]:
    return [message["text"] for message in phase["messages"] if message["level"] == "error"]


def operations(phase: Plan, area: str) -> list[str]:
    return [one["words"] for one in phase["operations"] if one["area"] == area]

"""Limits of time where the board's clock runs far too fast, as that of an emulated machine may: they count the time of
those who set them. The board runs natively here, on a clock of its own."""

from __future__ import annotations

import os
import pathlib
import shutil
from collections.abc import Iterator

import pytest

from labctl import paths
from labctl.client import Lab

CLOCKS = sorted(pathlib.Path("/usr/lib").glob("*/faketime/libfaketime.so.1"))
# Put before what is to run on a clock 28 times too fast.
FAST = ["env", f"LD_PRELOAD={CLOCKS[0] if CLOCKS else ''}", "FAKETIME=+0 x28"]
# Seconds. What takes longer by the board's clock is far from the limit by ours.
LIMIT, LONGER = 10, 40
AGENT = """#!/bin/sh
exec {agent} "$@"
"""
# In the place of the daemon's siblings.
SLOW_TO_END = f"""#!/bin/sh
trap 'sleep {LONGER}; exit 7' TERM
logger ready
while :; do sleep 1; done
"""
NEVER_ENDS = """#!/bin/sh
trap '' TERM
logger ready
while :; do sleep 1; done
"""


def replace(programs: pathlib.Path, name: str, script: str) -> None:
    """Puts a script, which runs on the fast clock, in the place of a program."""
    first, rest = script.split("\n", 1)
    path = programs / "bin" / name
    path.unlink()
    path.write_text(f"{first}\nexport {FAST[1]} '{FAST[2]}'\n{rest}")
    path.chmod(0o755)


@pytest.fixture
def programs(tmp_path: pathlib.Path, monkeypatch: pytest.MonkeyPatch) -> pathlib.Path:
    """A folder with the programs of the build, the board's supervisor on the fast clock."""
    built = paths.programs_dir("native")
    if not CLOCKS or not (built / "bin/lab-agent").exists() or os.geteuid() != 0:
        pytest.skip("needs root, libfaketime and the programs of this machine")
    for folder in ("bin", "lib"):
        shutil.copytree(built / folder, tmp_path / folder)
    replace(tmp_path, "lab-agent", AGENT.format(agent=built / "bin/lab-agent"))
    monkeypatch.setenv("IVARODE_BUILD", str(tmp_path))
    return tmp_path


@pytest.fixture
def hasty(programs: pathlib.Path) -> Iterator[Lab]:
    lab = Lab("hasty")
    lab.start("native", tied=True)
    yield lab
    lab.stop()


def raised(programs: pathlib.Path, lab: Lab, siblings: str) -> None:
    """A board without a daemon."""
    replace(programs, "lab-siblings", siblings)
    lab.raise_board(extra_plan=["no-daemon"])
    lab.said("ready", LIMIT)


def test_commands_have_the_time_that_the_caller_gives(hasty: Lab) -> None:
    clock = f"import time; begun = time.monotonic(); time.sleep({LONGER}); print(time.monotonic() - begun)"
    slept = hasty.run("machine", *FAST, "/usr/bin/python3", "-c", clock, timeout=LIMIT)
    assert slept.status == 0 and float(slept.out) >= LONGER, "by the machine's clock the limit is long over"
    assert hasty.run("machine", "sleep", "infinity", timeout=1).status == 124


def test_a_text_is_waited_for_as_long_as_the_caller_says(programs: pathlib.Path, hasty: Lab) -> None:
    raised(programs, hasty, NEVER_ENDS)
    hasty.shell("router", f"({' '.join(FAST[:2])} '{FAST[2]}' sleep {LONGER}; logger late) >/dev/null 2>&1 &")
    assert hasty.said("late", LIMIT)[1].endswith("late")


def test_a_program_has_time_to_end(programs: pathlib.Path, hasty: Lab) -> None:
    raised(programs, hasty, SLOW_TO_END)
    hasty.ok("agent", "stop", "siblings")
    assert "siblings ended exit 7" in hasty.ok("agent", "services")


def test_a_program_that_does_not_end_is_killed(programs: pathlib.Path, hasty: Lab) -> None:
    raised(programs, hasty, NEVER_ENDS)
    hasty.ok("agent", "stop", "siblings")
    assert "siblings ended signal 9" in hasty.ok("agent", "services")

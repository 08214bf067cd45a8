"""The hook that reads the subject of a commit."""

from __future__ import annotations

import subprocess
from pathlib import Path

import pytest

from tests.docs.sandbox import ROOT


@pytest.mark.parametrize("subject, good", [
    ("libsys/iptables: ask before repeating a change", True),
    ("tests/system, tests/chaos: type the Python", True),
    ("Merge branch 'other'", True),
    ("Ask before repeating a change", False),
    ("libsys: Ask before repeating a change", False),
    ("libsys: ask before repeating a change.", False),
    ("libsys: " + "x" * 90, False),
    ("libsys: ask\nwithout an empty line", False),
    ("", False)])
def test_the_commit_hook_knows_a_good_subject(tmp_path: Path, subject: str, good: bool) -> None:
    message = tmp_path / "message"
    message.write_text(subject + "\n\nBecause.\n# a comment of git's\n", encoding="utf-8")
    done = subprocess.run([ROOT / "tools/hooks/commit-msg", message], capture_output=True, text=True, check=False)
    assert (done.returncode == 0) == good, done.stderr
    assert good or done.stderr.startswith("commit-msg: ")

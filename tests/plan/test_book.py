"""The examples of the book on plans, as a reader would run them."""

import shlex
import subprocess

from tests.docs import books
from tests.plan import planning


def test_the_examples() -> None:
    found = books.examples("plan.md")
    assert len(found) >= 1
    for line, command, expected in found:
        words = shlex.split(command)
        assert words[0] == "build/bin/ivarode-plan", command
        done = subprocess.run([planning.PROGRAM, *words[1:]], cwd=planning.ROOT, capture_output=True, text=True,
                              check=False)
        shown = "".join(text.rstrip() + "\n" for text in done.stdout.splitlines())
        assert done.stderr == "" and books.matcher(expected).match(shown), f"docs/plan.md:{line}\n{shown}"

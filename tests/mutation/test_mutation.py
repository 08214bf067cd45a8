"""The mutation tool on sources of its own making, and on the daemon with faults and gaps put into it."""
from __future__ import annotations

import subprocess
from pathlib import Path

import pytest

from tests.mutation import results
from tests.mutation.mutants import Key, Mutant, mutants_of
from tests.mutation.source import Source
from tests.mutation.tree import Markers

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent


PLANTED = """
    if (signal_number < 0 || signal_number > 1000) {
        return rv_fail;
    }
    const int odd = signal_number != 0 ? 5 : 5 + 0;
    (void)odd;
"""


def source_of(folder: Path, text: str) -> Source:
    path = folder / "part.cpp"
    path.write_text(text, encoding="utf-8")
    return Source(folder, path)


def changes(folder: Path, body: str) -> list[str]:
    source = source_of(folder, f"int f(int a, int b)\n{{\n    {body}\n}}\n")
    return [mutant.key.change for mutant in mutants_of([source])]


@pytest.mark.parametrize("body, expected", [
    ("if (a < b) {\n    }", ["< -> <=", "< -> >="]),
    ("if (a == nullptr) {\n    }", ["== -> !="]),
    ("a = b & 0x10;", ["deleted a = b & 0x10;", "& -> |", "0x10 -> 0x11", "0x10 -> 0xf"]),
    ("a->b[1] |= ~b;", ["deleted a->b[1] |= ~b;", "1 -> 2", "1 -> 0", "|= -> &=", "~ -> nothing"]),
    ("const int *c = &d;", []),
    ("while (!g(a)) {\n    }", ["! -> nothing"]),
    ("if (g(a)) {\n    }", ["g(a) -> !(g(a))"]),
    ("if (const int rv = g(); rv) {\n    }", ["rv -> !(rv)"]),
    ("return a && b ? rv_ok : rv_bus;", ["&& -> ||", "rv_ok -> rv_fail", "rv_bus -> rv_ok"]),
    ("return rv;", ["rv -> 0"]),
    ('NET_ERROR("%d pieces\\n", 7);',
     ['deleted NET_ERROR("%d pieces\\n", 7);', "NET_ERROR -> NET_WARNING",
      '"%d pieces\\n", 7 -> 7, "%d pieces\\n"', '"%d pieces\\n" -> "%d piedes\\n"', "7 -> 8", "7 -> 6"]),
    ("g(a, b, b);", ["deleted g(a, b, b);", "a, b -> b, a"]),
    ('h("");', ['deleted h("");', '"" -> "x"']),
])
def test_what_is_changed(tmp_path: Path, body: str, expected: list[str]) -> None:
    assert sorted(changes(tmp_path, body)) == sorted(expected)


def test_alike_changes_of_a_line_are_told_apart(tmp_path: Path) -> None:
    source = source_of(tmp_path, "int f(int a)\n{\n    return a + 1 + 1;\n}\n")
    assert [str(mutant.key) for mutant in mutants_of([source]) if mutant.kind == "arithmetic"] == [
        "part.cpp f | return a + 1 + 1; | + -> -", "part.cpp f | return a + 1 + 1; | + -> - #2"]


def test_a_mutant_is_reached_with_its_statement(tmp_path: Path) -> None:
    source = source_of(tmp_path, """
int f(int a)
{
    if (a) {
        g(1);
    } else if (a > 2) {
        g(3);
    }
    return 4;
}
""")
    markers = Markers([source])

    def line_of(mutant: Mutant) -> int:
        numbers = markers.of_body(mutant)
        (token,) = [token for (_, token), number in markers.number.items() if number in numbers]
        return source.tokens[token].line

    reached = {mutant.key.change: line_of(mutant) for mutant in mutants_of([source])}
    assert reached["1 -> 2"] == 5
    assert reached["> -> >="] == 4
    assert reached["3 -> 4"] == 7
    assert reached["4 -> 5"] == 9


def test_a_constant_is_reached_with_what_is_made_of_it(tmp_path: Path) -> None:
    source = source_of(tmp_path, """
constexpr int width = 4;
constexpr int area = width * 3;
int f()
{
    g();
    return area;
}
""")
    markers = Markers([source])
    of_width = next(mutant for mutant in mutants_of([source]) if mutant.key.change == "4 -> 5")
    assert not of_width.runs
    assert markers.of_declaration(of_width) == {1}


def result(change: str, verdict: str, text: str = "a;") -> results.Result:
    return results.Result(Key("part.cpp", "f", text, change, 1), "constant", 1, verdict)


def test_what_was_killed_must_not_survive() -> None:
    old = [result("1 -> 2", results.KILLED), result("3 -> 4", results.SURVIVED), result("5 -> 6", results.KILLED)]
    new = [result("1 -> 2", results.SURVIVED), result("3 -> 4", results.SURVIVED), result("5 -> 6", results.KILLED)]
    assert results.compare(old, new) == ["killed before, survives now: part.cpp:1 f: 1 -> 2"]


def test_what_was_killed_is_found_in_a_line_that_is_written_anew() -> None:
    old = [result("1 -> 2", results.KILLED)]
    new = [result("1 -> 2", results.SURVIVED, text="b;")]
    assert len(results.compare(old, new)) == 1


def test_results_are_read_as_they_were_kept(tmp_path: Path) -> None:
    kept = [result("1 -> 2", results.KILLED), result('"a" -> "b"', results.BROKEN)]
    results.save(kept, tmp_path / "kept.json")
    assert results.load(tmp_path / "kept.json") == kept


def test_the_list_of_equivalents_does_not_rot(tmp_path: Path) -> None:
    mutants = mutants_of([source_of(tmp_path, "int f()\n{\n    return 1;\n}\n")])
    names = [str(mutant.key) for mutant in mutants]
    path = tmp_path / "equivalent.txt"
    path.write_text(f"    {names[0]}\nNobody asks.\n    {names[1]}\n    {names[1]}\n    gone | 1 -> 2\n",
                    encoding="utf-8")
    equivalents = results.Equivalents(path)
    killed = [results.result(mutants[1], results.KILLED, "conformance", "a scenario")]
    assert equivalents.complaints(mutants, killed) == [
        f"listed twice as equivalent: {names[1]}",
        f"listed as equivalent without a reason: {names[0]}",
        "listed as equivalent, but there is no such mutant: gone | 1 -> 2",
        f"listed as equivalent, but killed by a scenario: {names[1]}",
    ]


def test_faults_that_nothing_notices_are_reported(tmp_path: Path) -> None:
    """The daemon with a check that no scenario reaches and a computation that changes nothing."""
    folder = ROOT / "build/mutation-planted"       # kept, so that the next run compiles little
    root = folder / "root"
    (root / "src").mkdir(parents=True, exist_ok=True)
    for entry in ROOT.iterdir():
        if entry.name != "src" and not entry.name.startswith("build") and not (root / entry.name).is_symlink():
            (root / entry.name).symlink_to(entry)
    for path in (ROOT / "src").rglob("*"):
        if path.is_file():
            copy = root / "src" / path.relative_to(ROOT / "src")
            copy.parent.mkdir(exist_ok=True)
            copy.write_bytes(path.read_bytes())
    part = root / "src/core/exit.cpp"
    text = part.read_text(encoding="utf-8")
    opening = "int ivarode_sig_handler(int signal_number)\n{\n"
    assert opening in text
    part.write_text(text.replace(opening, opening + PLANTED), encoding="utf-8")
    equivalent = tmp_path / "equivalent.txt"
    odd = "core/exit.cpp ivarode_sig_handler | const int odd = signal_number != 0 ? 5 : 5 + 0; | "
    equivalent.write_text(f"Nothing reads it.\n    {odd}+ -> -\n    {odd}0 -> 1\n", encoding="utf-8")
    kept = tmp_path / "kept.json"
    done = subprocess.run([HERE / "run", "--root", root, "--build", folder, "-k", "core/exit",
                           "--scenarios", "--tests", "uncalled/", "--equivalent", equivalent, "--json", kept],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    assert kept.exists(), done.stdout
    found = {(one.key.text, one.key.change): one.verdict for one in results.load(kept)}
    planted = PLANTED.splitlines()[1].strip()
    assert done.returncode == 1
    assert found["cmdlib_kill_processes();", "deleted cmdlib_kill_processes();"] == results.KILLED
    assert found[planted, "|| -> &&"] == results.SURVIVED
    assert found[PLANTED.splitlines()[4].strip(), "+ -> -"] == results.EQUIVALENT
    assert "survived: core/exit.cpp:" in done.stdout

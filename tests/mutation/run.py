"""Changes the daemon's sources in thousands of small ways, one at a time, and looks whether the tests notice.

Comparisons, operators, constants, returned codes, levels and texts of messages are changed, calls and assignments are
deleted, neighbouring arguments exchanged. A mutant is killed when a test fails on it: of the scenarios, then of the
tests in process, only those that reach its place. Those that survive are printed, and are failures unless
equivalent.txt says why they change nothing.
"""
from __future__ import annotations

import argparse
import multiprocessing
import os
import random
import sys
import tempfile
import time
from collections import Counter, defaultdict
from collections.abc import Callable, Collection, Iterable, Iterator, Sequence
from concurrent.futures import ProcessPoolExecutor
from pathlib import Path
from typing import Any

from tests import progress
from tests.conformance.replaying import can_be_replayed
from tests.mutation import replays, source
from tests.mutation import results as outcome
from tests.mutation.mutants import Mutant, mutants_of
from tests.mutation.suites import Outcome, Programs, Scenarios, Suite, Test
from tests.mutation.tree import DAEMON, IN_PROCESS, ROOT, BuildError, Markers, Tree

HERE = Path(__file__).resolve().parent


NOT_OF_ONE_TYPE = "'mutant_same<"
JUDGED_AT_ONCE = 40


class Judge:
    """Runs the tests that reach a mutant. A copy of it works in each of the processes."""

    def __init__(self, tree: Tree, markers: Markers, listed: Collection[str], at_most: int) -> None:
        self.tree, self.markers, self.listed, self.at_most = tree, markers, listed, at_most
        self.suites: list[tuple[Suite, dict[str, Test]]] = []
        self.kills: Counter[str] = Counter()

    def learn(self, suite: Suite, part: str, jobs: int) -> list[str]:
        """Runs a suite without a mutant; what fails then."""
        statements, names = len(self.markers.number), [name for name in suite.names() if part in name]
        learnt = list(spread(lambda name: suite.learn(name, statements), names, jobs))
        self.suites.append((suite, {test.name: test for test, _ in learnt}))
        return [f"fails without a mutant: {test.name}: {complaints[0]}" for test, complaints in learnt if complaints]

    def order(self, mutant: Mutant, tests: dict[str, Test], killers: list[str]) -> list[str]:
        """The tests that reach the place: first those that killed its neighbours, then those that killed most, then
        those that reach little else."""
        places = self.markers.of_body(mutant) if mutant.runs else self.markers.of_declaration(mutant)
        reaching = [test for test in tests.values() if not places or not places.isdisjoint(test.reached)]
        rank = {name: at for at, name in enumerate(reversed(killers))}
        reaching.sort(key=lambda test: (rank.get(test.name, len(rank)), -self.kills[test.name], len(test.reached)))
        few = str(mutant.key) in self.listed
        return [test.name for test in (reaching[:self.at_most] if few else reaching)]

    def judge(self, batch: list[Mutant]) -> list[outcome.Result]:
        """The mutants of one place after the other."""
        killers: list[str] = []
        return [self._judge(mutant, killers) for mutant in batch]

    def _judge(self, mutant: Mutant, killers: list[str]) -> outcome.Result:
        if mutant.runs:
            return self._try(mutant, None, killers)
        with tempfile.TemporaryDirectory(prefix="mutation-") as folder:
            why = self.tree.variant(mutant, Path(folder))
            if why is not None:
                return outcome.result(mutant, outcome.BROKEN, by=why)
            return self._try(mutant, Path(folder), killers)

    def _try(self, mutant: Mutant, build: Path | None, killers: list[str]) -> outcome.Result:
        for suite, tests in self.suites:
            names = self.order(mutant, tests, killers)
            seen: Outcome = suite.judge(mutant.number if mutant.runs else 0, names, build)
            if seen.killed:
                if seen.by in killers:
                    killers.remove(seen.by)
                killers.append(seen.by)
                self.kills[seen.by] += 1
                return outcome.result(mutant, "hung" if seen.hung else outcome.KILLED, suite.name, seen.by)
        return outcome.result(mutant, outcome.SURVIVED)


WORK: list[Any] = []      # a function and what it is to be called with; processes inherit it when they are forked


def work_at(index: int) -> Any:
    function, items = WORK
    return function(items[index])


def spread(function: Callable[[Any], Any], items: Sequence[Any], jobs: int) -> Iterator[Any]:
    """The results of a function for each item, computed in several processes."""
    WORK[:] = function, items
    with ProcessPoolExecutor(max(1, jobs), mp_context=multiprocessing.get_context("fork")) as pool:
        yield from pool.map(work_at, range(len(items)))


def batches(mutants: Iterable[Mutant]) -> list[list[Mutant]]:
    """Neighbours together, so that what kills one is tried first on the next."""
    out: dict[tuple[str, int, int], list[Mutant]] = defaultdict(list)
    for mutant in mutants:
        place = mutant.key.file, mutant.region.first
        part = 0
        while len(out[*place, part]) >= JUDGED_AT_ONCE:
            part += 1
        out[*place, part].append(mutant)
    return list(out.values())


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="tests/mutation/run", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=ROOT / "build" / "mutation",
                        help="folder of the mutated tree (default: ./build/mutation)")
    parser.add_argument("--root", type=Path, default=ROOT, help="the tree to mutate (default: this one)")
    parser.add_argument("-k", dest="pick", metavar="TEXT", help="only files whose name holds the text")
    parser.add_argument("--sample", type=int, metavar="N", help="only N of them, none that is listed as equivalent")
    parser.add_argument("--seed", type=int, default=1, metavar="S", help="which N (default: 1)")
    parser.add_argument("-j", "--jobs", type=int, default=os.cpu_count() or 1, help="mutants at once")
    parser.add_argument("--tests", default="", metavar="TEXT", help="only tests whose name holds the text")
    parser.add_argument("--at-most", type=int, metavar="N", default=200,
                        help="how many tests are to find that a mutant listed as equivalent is none: the most "
                             "promising ones (default: %(default)s); all others take all that reach them")
    parser.add_argument("--scenarios", action="store_true", help="the scenarios alone, without the tests in process")
    parser.add_argument("--replays", type=int, default=0, metavar="N",
                        help="record N of the scenarios that have killed a mutant, and look whether a replay finds it "
                             "where it differs first")
    parser.add_argument("--list", action="store_true", help="list the mutants and stop")
    parser.add_argument("--json", type=Path, metavar="FILE", help="write what became of each to a file")
    parser.add_argument("--compare", type=Path, metavar="FILE",
                        help="a file of --json: what was killed then must not survive now")
    parser.add_argument("--equivalent", type=Path, default=HERE / "equivalent.txt", metavar="FILE",
                        help="which change nothing, and why (default: %(default)s)")
    return parser.parse_args()


def choose(everything: list[Mutant], options: argparse.Namespace, equivalents: outcome.Equivalents) -> list[Mutant]:
    chosen = [mutant for mutant in everything if not options.pick or options.pick in mutant.key.file]
    if options.sample is not None:
        chosen = [mutant for mutant in chosen if str(mutant.key) not in equivalents.reason]
        picked = random.Random(options.seed).sample(chosen, min(options.sample, len(chosen)))
        chosen = sorted(picked, key=lambda mutant: mutant.number)
    return chosen


def judge_all(judge: Judge, mutants: list[Mutant], jobs: int) -> list[outcome.Result]:
    out: list[Any] = []
    # Largest first, so that no process is left alone with a large one at the end.
    work = sorted(batches(mutants), key=len, reverse=True)
    for batch, results in zip(work, spread(judge.judge, work, jobs)):
        out += list(zip(batch, results))
        progress.at(len(out), len(mutants), str(batch[0].key.file))
    # What hung may have been kept from running by others: once more, alone.
    out = [(mutant, alone(judge, mutant) if one.verdict == "hung" else one) for mutant, one in out]
    return [one for _, one in sorted(out, key=lambda pair: pair[0].number)]


def alone(judge: Judge, mutant: Mutant) -> outcome.Result:
    again = judge.judge([mutant])[0]
    if again.verdict == "hung":
        again.verdict = outcome.KILLED
    return again


def step(text: str, started: float) -> None:
    print(f"{time.monotonic() - started:6.0f} s  {text}", flush=True)


def unfound(options: argparse.Namespace, tree: Tree, scenarios: Scenarios, mutants: list[Mutant],
            results: list[outcome.Result]) -> list[str]:
    """Complaints about mutants that a replay does not find where they differ first: of a sample of those that a whole
    daemon shows in a scenario."""
    number = {mutant.key: mutant.number for mutant in mutants if mutant.runs}
    shown = [(str(one), number[one.key], scenarios.scenario(one.by)) for one in results
             if one.verdict == outcome.KILLED and one.suite == scenarios.name and one.key in number
             and can_be_replayed(scenarios.scenario(one.by))]
    picked = random.Random(options.seed).sample(shown, min(options.replays, len(shown)))
    complaints = replays.find_all(tree.build, picked, spread, options.jobs)
    print(f"mutants found by a replay: {len(picked) - len(complaints)} of {len(picked)}", flush=True)
    return [f"not found by a replay: {text}" for text in complaints]


def judged(options: argparse.Namespace, sources: list[source.Source], chosen: list[Mutant],
           listed: Collection[str]) -> tuple[list[outcome.Result], list[str]]:
    """What became of each, and what else is wrong."""
    started = time.monotonic()
    markers = Markers(sources)
    folder, root = options.build.resolve(), options.root.resolve()
    tree = Tree(sources, markers, folder, root)
    tree.write(chosen)
    tree.configure()
    tree.make(chosen, options.jobs, DAEMON)
    tree.prepare_variants()
    step("the mutated tree is built", started)
    broken = [outcome.result(mutant, outcome.BROKEN, by=tree.left_out[mutant.number]) for mutant in chosen
              if NOT_OF_ONE_TYPE not in tree.left_out.get(mutant.number, NOT_OF_ONE_TYPE)]
    left = [mutant for mutant in chosen if mutant.number not in tree.left_out]

    judge = Judge(tree, markers, listed, options.at_most)
    scenarios = Scenarios(root, tree.build)
    suites: list[list[Suite]] = [[scenarios]]
    if not options.scenarios:
        suites.append([Programs(name, tree.build / "bin" / name) for name in IN_PROCESS])
    done: list[outcome.Result] = broken
    for row in suites:
        if not left:
            break
        judge.suites = []
        if isinstance(row[0], Programs):
            tree.make(chosen, options.jobs, IN_PROCESS)
            step("the tests in process are built", started)
        complaints = [text for suite in row for text in judge.learn(suite, options.tests, options.jobs)]
        if complaints:
            raise BuildError("\n".join(complaints[:20]))
        tests = sum(len(tests) for _, tests in judge.suites)
        step(f"{len(left)} mutants, and {tests} tests that pass without one", started)
        found = judge_all(judge, left, options.jobs)
        done += [one for one in found if one.verdict != outcome.SURVIVED]
        surviving = {one.key for one in found if one.verdict == outcome.SURVIVED}
        left = [mutant for mutant in left if mutant.key in surviving]
        if options.json:
            outcome.save(done + [outcome.result(mutant, outcome.SURVIVED) for mutant in left], options.json)
    done += [outcome.result(mutant, outcome.SURVIVED) for mutant in left]
    missed = unfound(options, tree, scenarios, chosen, done) if options.replays else []
    step("done", started)
    place = {mutant.key: mutant.number for mutant in chosen}
    return sorted(done, key=lambda one: place[one.key]), missed


def report(found: list[outcome.Result], complaints: list[str]) -> int:
    for one in found:
        if one.verdict == outcome.SURVIVED:
            print(f"survived: {one}\n    {one.key}")
    for text in complaints:
        print(text)
    print(outcome.table(found))
    print(outcome.score(found))
    failed = sum(one.verdict == outcome.SURVIVED for one in found) + len(complaints)
    passed = sum(one.verdict in (outcome.KILLED, outcome.EQUIVALENT) for one in found)
    print(f"{passed} passed, {failed} failed, 0 skipped")
    return 1 if failed else 0


def main() -> int:
    options = arguments()
    sources = source.load(options.root / "src")
    everything = mutants_of(sources)
    equivalents = outcome.Equivalents(options.equivalent)
    chosen = choose(everything, options, equivalents)
    if options.list:
        print("\n".join(str(mutant) for mutant in chosen))
        return 0
    old = outcome.load(options.compare) if options.compare else []
    if not chosen:
        print("error: no mutants", file=sys.stderr)
        return 2
    try:
        found, missed = judged(options, sources, chosen, equivalents.reason)
    except BuildError as error:
        print(f"error: {error}", file=sys.stderr)
        return 2
    for one in found:
        if one.verdict == outcome.SURVIVED and str(one.key) in equivalents.reason:
            one.verdict = outcome.EQUIVALENT
    if options.json:
        outcome.save(found, options.json)
    return report(found, missed + equivalents.complaints(everything, found) + outcome.compare(old, found))


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)

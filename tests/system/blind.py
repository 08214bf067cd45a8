"""Plants a fault that a number chooses on a board that is up, and keeps it to itself: to look for it as an operator
would, by the router's own tools. Asked for it, it names the fault and takes it back.

The board: lab/lab up --board one-cpu --config home.
"""

from __future__ import annotations

import argparse
import random
import sys

from labctl import client, paths
from tests.system import faults, wan_faults
from tests.system.held_lab import Lab


def chosen(seed: int) -> faults.Fault:
    return random.Random(seed).choice(wan_faults.EVERY)


def main(words: list[str]) -> int:
    parser = argparse.ArgumentParser(prog="tests/system/blind", description=__doc__)
    parser.add_argument("--name", default=paths.DEFAULT_LAB, help="of the lab (default: %(default)s)")
    parser.add_argument("do", choices=("plant", "tell"), help="or name it, and take it back")
    parser.add_argument("seed", type=int, help="any number; it chooses the fault")
    given = parser.parse_args(words)
    lab, fault = Lab(given.name), chosen(given.seed)
    if not lab.alive():
        print("blind: no board is up: lab/lab up --board one-cpu --config home", file=sys.stderr)
        return 1
    try:
        if given.do == "plant":
            fault.plant(lab)
            print("planted")
            return 0
        print(f"{fault.name}\nivarodectl explain {fault.subject}: {fault.cause}")
        fault.repair(lab)
    except client.LabError as error:
        print(f"blind: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

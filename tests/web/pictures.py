"""Makes the pictures of the page in docs/, of a router that is not there."""

from __future__ import annotations

import argparse
import math
import pathlib
import sys
import tempfile
from typing import Any

from labctl import paths
from labctl.web.jsonrpc import Answer
from tests.web import browser, fake
from tests.web.running import serving

WIDTH, HEIGHT = 1100, 780
SAMPLES = 40
HOSTS = [{"name": name, "port": port, "address": f"192.168.1.1{port}"}
         for port, name in enumerate(("isp", "pc1", "pc2", "pc3", "pc4"))]
CHECKS = [{"verdict": "ok", "sentence": text} for text in (
    "link on port 3", "the PVID is a VLAN of the table", "the VLAN table has it as a member",
    "VLAN 4093 leads to the processor", "frames leave the port without a tag")]
# The page samples by its clock; this one has samples at once.
FAST = """const real = setTimeout; const begin = Date.now(); let steps = 0;
Date.now = () => begin + steps * 1500; window.setTimeout = (act) => real(() => { steps += 1; act(); }, 20);"""


class Busy(fake.Router):
    """Carries something in every sample."""

    def __init__(self) -> None:
        super().__init__()
        self.time = 0
        self.answers["lab", "about"] = Answer(0, {"board": "one-cpu", "config": "home", "hosts": HOSTS, "boards": [],
                                                  "configs": []})
        self.answers["ivarode.view", "explain"] = Answer(0, {"checks": CHECKS})

    def call(self, name: str, method: str, arguments: dict[str, Any]) -> Answer:
        if (name, method) == ("ivarode.view", "status"):
            self.time += 1
            for at, one in enumerate(self.status["interfaces"]):
                wave = 1 + math.sin(self.time / (3 + at)) * 0.8
                one["rx_bytes"] += int(wave * 60_000 * (at + 1))
                one["tx_bytes"] += int((2.2 - wave) * 25_000 * (at + 1))
        return super().call(name, method, arguments)


def take(folder: pathlib.Path) -> None:
    server = fake.server(Busy(), lab=True)
    with tempfile.TemporaryDirectory() as profile, serving(server), browser.started(pathlib.Path(profile)) as page:
        page.size(WIDTH, HEIGHT)
        page.command("Page.addScriptToEvaluateOnNewDocument", source=FAST)
        page.open(f"{server.url}#{fake.TOKEN}")
        page.until("document.querySelector('#cable-4') && document.querySelector('#port-0') !== null", 60)
        page.click("#port-3")
        page.until("document.querySelectorAll('.chain .ok').length > 3 && document.querySelector('.plot .rx')"
                   "?.getAttribute('d').split('L').length > arguments[0]", 120, SAMPLES)
        for scheme in ("light", "dark"):
            page.colours(scheme)
            page.picture(folder / f"web-{scheme}.png")


def main() -> int:
    parser = argparse.ArgumentParser(prog="tests/web/pictures", description=__doc__)
    parser.add_argument("--to", type=pathlib.Path, default=paths.ROOT / "docs", help="folder for them (default: docs)")
    arguments = parser.parse_args()
    try:
        take(arguments.to)
    except (OSError, browser.BrowserError) as error:
        print(f"tests/web/pictures: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())

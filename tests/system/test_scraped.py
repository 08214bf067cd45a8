"""A monitoring system watches five routers: what it has of their counters is what their kernels have.

--scraped MINUTES: for how long; it needs Debian's prometheus.
"""

from __future__ import annotations

import http.server
import json
import pathlib
import shutil
import socket
import subprocess
import threading
import time
import urllib.parse
import urllib.request
from collections.abc import Iterator

import pytest

from labctl import checks, client
from tests.system.conftest import READY, SETTLED

ROUTERS = 5
INTERVAL = 60           # seconds between two questions to a router, as that system has it
PATIENCE = 40           # for one answer
BYTES = ("ivarode_interface_receive_bytes_total", "ivarode_interface_transmit_bytes_total")
OPEN_METRICS = "application/openmetrics-text; version=1.0.0; charset=utf-8"
Labs = list[client.Lab]
Bytes = dict[str, tuple[int, int]]      # of an interface: received, sent


@pytest.fixture
def minutes(request: pytest.FixtureRequest) -> int:
    value = request.config.getoption("--scraped")
    if not value:
        pytest.skip("takes long: --scraped MINUTES")
    if shutil.which("prometheus") is None:
        pytest.skip("prometheus is not installed")
    return int(value)


@pytest.fixture
def labs(minutes: int) -> Iterator[Labs]:
    raised = [client.Lab(f"scraped{number}") for number in range(ROUTERS)]
    try:
        for lab in raised:
            lab.stop()
            lab.start(tied=True)
            lab.raise_board("one-cpu", "home")
        for lab in raised:
            lab.said(READY, 180)
        yield raised
    finally:
        for lab in raised:
            lab.stop()


class Collector(http.server.ThreadingHTTPServer):
    """Hands on what the tool on each router says, at /NUMBER."""

    daemon_threads = True

    def __init__(self, labs: Labs) -> None:
        super().__init__(("127.0.0.1", 0), Page)
        self.labs = labs


class Page(http.server.BaseHTTPRequestHandler):
    def do_GET(self) -> None:
        assert isinstance(self.server, Collector)
        said = self.server.labs[int(self.path[1:])].run("router", "ivarodectl", "metrics", "openmetrics",
                                                        timeout=PATIENCE)
        self.send_response(200 if said else 503)
        self.send_header("Content-Type", OPEN_METRICS)
        self.end_headers()
        self.wfile.write(said.raw)

    def log_message(self, *_: object) -> None:
        pass


class Monitor:
    """The monitoring system, and the questions that one puts to it."""

    def __init__(self, folder: pathlib.Path, target: int) -> None:
        (folder / "config.yml").write_text(json.dumps({
            "global": {"scrape_interval": f"{INTERVAL}s", "scrape_timeout": f"{PATIENCE}s"},
            "scrape_configs": [{"job_name": str(number), "metrics_path": f"/{number}",
                                "static_configs": [{"targets": [f"127.0.0.1:{target}"]}]}
                               for number in range(ROUTERS)]}))
        with socket.create_server(("127.0.0.1", 0)) as free:
            self.address = "127.0.0.1:%d" % free.getsockname()[1]
        with open(folder / "log", "wb") as log:
            self.process = subprocess.Popen(
                ["prometheus", f"--config.file={folder}/config.yml", f"--storage.tsdb.path={folder}/base",
                 f"--web.listen-address={self.address}"], stdout=log, stderr=log)

    def ask(self, query: str) -> dict[tuple[int, str], float]:
        """By router and, where the answer has one, interface."""
        url = f"http://{self.address}/api/v1/query?" + urllib.parse.urlencode({"query": query})
        with urllib.request.urlopen(url, timeout=30) as answer:
            rows = json.load(answer)["data"]["result"]
        return {(int(row["metric"]["job"]), row["metric"].get("interface", "")): float(row["value"][1]) for row in rows}

    def end(self) -> None:
        self.process.terminate()
        self.process.wait(30)


@pytest.fixture
def monitor(labs: Labs, tmp_path: pathlib.Path) -> Iterator[Monitor]:
    with Collector(labs) as collector:
        threading.Thread(target=collector.serve_forever, daemon=True).start()
        monitor = Monitor(tmp_path, collector.server_address[1])
        yield monitor
        monitor.end()
        collector.shutdown()


def counted(lab: client.Lab, names: set[str]) -> Bytes:
    lines = lab.ok("router", "cat", "/proc/net/dev").splitlines()[2:]
    columns = {name.strip(): numbers.split() for name, _, numbers in (line.partition(":") for line in lines)}
    return {name: (int(columns[name][0]), int(columns[name][8])) for name in names}


def seen(monitor: Monitor, names: set[str]) -> list[Bytes]:
    received, sent = (monitor.ask(query) for query in BYTES)
    return [{name: (int(received[number, name]), int(sent[number, name])) for name in names}
            for number in range(ROUTERS)]


def test_counters_are_those_of_the_kernel(labs: Labs, monitor: Monitor, minutes: int) -> None:
    names = {"lan1", "lan3", "wan1"}
    # each router has another amount of it, in both directions
    traffic = [lab.spawn("pc2", "ping", "-q", "-i", 0.5, "-s", 200 + 200 * number, checks.INTERNET)
               for number, lab in enumerate(labs)]
    time.sleep(minutes * 60)
    window = f"[{minutes}m]"
    answered = monitor.ask(f"avg_over_time(up{window})")
    assert answered == {(number, ""): 1 for number in range(ROUTERS)}
    assert set(monitor.ask(f"count_over_time(up{window})").values()) <= {minutes - 1, minutes, minutes + 1}
    assert set(monitor.ask(f"min_over_time(ivarode_up{window})").values()) == {1}
    for counter in (*BYTES, "ivarode_samples_total"):
        assert set(monitor.ask(f"resets({counter}{window})").values()) == {0}, counter
        assert all(one > 0 for (_, name), one in monitor.ask(f"increase({counter}{window})").items() if name != "lan3")
    for command in traffic:
        command.kill(2)
        assert " 0% packet loss" in command.collect().out
    deadline = time.monotonic() + SETTLED + 3 * INTERVAL
    while seen(monitor, names) != [counted(lab, names) for lab in labs]:
        assert time.monotonic() < deadline, (seen(monitor, names), [counted(lab, names) for lab in labs])
        time.sleep(INTERVAL / 10)

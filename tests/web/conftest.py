"""The page in a browser: against a bus that answers what a test wants, and against one board that all tests share."""

from __future__ import annotations

import os
import pathlib
from collections.abc import Iterator

import pytest

from labctl import paths, recordings, repetition, topology
from labctl.web import pages
from tests.system import bus, held_lab
from tests.web import browser
from tests.web.browser import Browser, BrowserError
from tests.web.running import serving

READY = "ivarode init success"


class Machine(held_lab.Machine):
    def __init__(self) -> None:
        super().__init__("web-tests")
        recorded = [f"daemon-preload {repetition.RECORDER}"]
        self.lab.topology = topology.Topology(self.lab.raise_board("one-cpu", "home", recorded), "home")
        self.lab.said(READY, 90)

    def recording(self, file: pathlib.Path) -> None:
        """Of a LAN that port 2 gets and loses, and of a cable in between."""
        bus.intf(self.lab, "port_add", name="lan2")
        for state in ("down", "up"):
            self.lab.link(4, state == "up")
            Browser.wait(lambda: self.has_come(file, f"> link 4 {state}"), 20 * self.lab.pace, f"cable 4 {state}")
        bus.intf(self.lab, "port_del", name="lan2")
        file.write_bytes(self.lab.get("router", repetition.RECORDING))

    def has_come(self, copy: pathlib.Path, event: str) -> bool:
        copy.write_bytes(self.lab.get("router", repetition.RECORDING))
        return [one.text for one in recordings.records(copy) if one.text.startswith("> link 4")][-1:] == [event]


@pytest.fixture(scope="session")
def chromium(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Browser]:
    if not browser.installed():
        pytest.skip(f"{browser.PROGRAM} and {browser.DRIVER} are not installed")
    with browser.started(tmp_path_factory.mktemp("browser")) as started:
        started.requests()
        yield started


@pytest.fixture
def window(chromium: Browser) -> Iterator[Browser]:
    """An empty window. What a test has done in it leaves no error in the console, and no request to another host."""
    chromium.size(1200, 1000)
    chromium.colours("light")
    chromium.requests()
    chromium.console()
    yield chromium
    chromium.run("location.replace('about:blank')")
    assert chromium.console() == []
    strange = {one for one in chromium.requests() if not one.startswith(("http://127.0.0.1:", "about:", "data:"))}
    assert strange == set()


@pytest.fixture(scope="session")
def machine() -> Iterator[Machine]:
    if not (paths.build_dir() / "bin/lab-agent").exists() or os.geteuid() != 0:
        pytest.skip("needs root and the programs of the board")
    yield from held_lab.hold(Machine)


@pytest.fixture(scope="session")
def recording(machine: Machine, tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    """Of this board, before a page has asked it anything."""
    file = tmp_path_factory.mktemp("recorded") / "router.rec"
    machine.recording(file)
    return file


@pytest.fixture(scope="session")
def board(machine: Machine, recording: pathlib.Path) -> held_lab.Lab:
    if machine.lab.run("router", "ivarodectl", "status", "--json").status == 2:
        pytest.skip("ivarodectl has no command \"status\"")
    return machine.lab


@pytest.fixture(scope="session")
def address(board: held_lab.Lab) -> Iterator[str]:
    """Of the page of the board, with its token."""
    server, url = pages.open_page(board, 0)
    with serving(server):
        yield url


@pytest.fixture
def page(window: Browser, address: str) -> Browser:
    """The page of the board, with its first picture and the hosts of the lab."""
    window.open(address)
    window.until("document.querySelector('#cable-4') && document.querySelector('#port-0') !== null", 60)
    return window


@pytest.fixture(scope="session")
def accessibility() -> pathlib.Path:
    try:
        return browser.axe(paths.cache_dir() / "axe")
    except BrowserError as error:
        pytest.skip(str(error))

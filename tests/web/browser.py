"""A browser without a screen, driven by the WebDriver protocol: just what these tests need of it."""

from __future__ import annotations

import base64
import contextlib
import json
import pathlib
import re
import shutil
import subprocess
import tarfile
import time
import urllib.error
import urllib.request
from collections.abc import Callable, Iterator
from typing import Any

DRIVER, PROGRAM = "chromedriver", "chromium"
AXE = "axe-core@4.10.2"
ELEMENT = "element-6066-11e4-a52e-4f735466cecf"
OPTIONS = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
           "--disable-background-networking", "--disable-component-update", "--disable-sync", "--no-proxy-server",
           "--force-device-scale-factor=1", "--hide-scrollbars", "--lang=en"]
UNTIL = """const [given, limit] = arguments, begun = performance.now(), holds = function () { return WHAT; };
return new Promise((done, fail) => {
  const timer = setInterval(look, 50);
  function look() {
    try {
      const value = holds.apply(null, given);
      if (!value && performance.now() - begun < limit) return;
      done(value);
    } catch (error) { fail(error); }
    clearInterval(timer);
  }
  look();
});"""
AT_ONCE_MS = 2000       # how long the page looks before it answers that it is not so yet
# The page takes its samples by its clock, which runs this many times too fast in some tests.
FASTER = 10
FAST = f"const slow = setTimeout; window.setTimeout = (act, pause) => slow(act, pause / {FASTER});"
STARTED = re.compile(r"successfully on port (\d+)")


class BrowserError(Exception):
    pass


def installed() -> bool:
    return shutil.which(DRIVER) is not None and shutil.which(PROGRAM) is not None


class Browser:
    def __init__(self, driver: str, profile: pathlib.Path) -> None:
        self.base = driver
        wanted = {"browserName": "chrome", "goog:loggingPrefs": {"browser": "ALL", "performance": "ALL"},
                  "goog:chromeOptions": {"args": [*OPTIONS, f"--user-data-dir={profile}"],
                                         "binary": shutil.which(PROGRAM)}}
        session = self._send("POST", "/session", {"capabilities": {"alwaysMatch": wanted}})
        self.base += f"/session/{session['sessionId']}"

    def _send(self, method: str, path: str, body: dict[str, Any] | None = None) -> Any:
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.base + path, data, {"Content-Type": "application/json"}, method=method)
        try:
            with urllib.request.urlopen(request, timeout=60) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise BrowserError(json.load(error)["value"]["message"]) from error

    def open(self, url: str) -> None:
        self._send("POST", "/url", {"url": "about:blank"})      # another fragment alone would not load it again
        self._send("POST", "/url", {"url": url})

    def run(self, script: str, *arguments: object) -> Any:
        """The value of a script's "return"; a promise is waited for."""
        return self._send("POST", "/execute/sync", {"script": script, "args": arguments})

    def find(self, selector: str) -> str:
        return self._send("POST", "/element", {"using": "css selector", "value": selector})[ELEMENT]

    def labels(self, selector: str) -> list[str]:
        return self.run("return [...document.querySelectorAll(arguments[0])].map((one) => "
                        "one.getAttribute('aria-label'))", selector)

    def click(self, selector: str) -> None:
        """An element that is exchanged by another one meanwhile is looked for again."""
        for last in (False, False, True):
            try:
                self._send("POST", f"/element/{self.find(selector)}/click", {})
                return
            except BrowserError as error:
                if last or "stale element" not in str(error):
                    raise

    def write(self, selector: str, text: str) -> None:
        found = self.find(selector)
        self._send("POST", f"/element/{found}/clear", {})
        self._send("POST", f"/element/{found}/value", {"text": text})

    def upload(self, selector: str, file: pathlib.Path) -> None:
        self._send("POST", f"/element/{self.find(selector)}/value", {"text": str(file)})

    def keys(self, *pressed: str) -> None:
        actions = [{"type": kind, "value": key} for key in pressed for kind in ("keyDown", "keyUp")]
        self._send("POST", "/actions", {"actions": [{"type": "key", "id": "keys", "actions": actions}]})

    def text(self, selector: str) -> str:
        return self.run("return document.querySelector(arguments[0])?.textContent ?? ''", selector)

    def until(self, what: str, seconds: float, *arguments: object) -> Any:
        """Waits until a script's expression is true; its value. The page looks for itself, which costs no request."""
        return self.wait(lambda: self.run(UNTIL.replace("WHAT", what), arguments, AT_ONCE_MS), seconds, what)

    @staticmethod
    def wait(condition: Callable[[], Any], seconds: float, what: str) -> Any:
        deadline = time.monotonic() + seconds
        while not (value := condition()):
            assert time.monotonic() < deadline, f"not within {seconds} s: {what}"
            time.sleep(0.05)
        return value

    def size(self, width: int, height: int) -> None:
        self.command("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1,
                     mobile=False)

    def colours(self, scheme: str) -> None:
        self.command("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    @contextlib.contextmanager
    def fast(self) -> Iterator[None]:
        """Pages that are opened within have a fast clock."""
        script = self.command("Page.addScriptToEvaluateOnNewDocument", source=FAST)["identifier"]
        yield
        self.command("Page.removeScriptToEvaluateOnNewDocument", identifier=script)

    def command(self, name: str, **parameters: object) -> Any:
        return self._send("POST", "/goog/cdp/execute", {"cmd": name, "params": parameters})

    def picture(self, file: pathlib.Path) -> None:
        file.write_bytes(base64.b64decode(self._send("GET", "/screenshot")))

    def console(self) -> list[str]:
        """What the console was told since the last time, errors and warnings."""
        return [entry["message"] for entry in self._send("POST", "/se/log", {"type": "browser"})
                if entry["level"] in ("SEVERE", "WARNING")]

    def requests(self) -> set[str]:
        """Addresses that the page has asked for since the last time."""
        found = set()
        for entry in self._send("POST", "/se/log", {"type": "performance"}):
            event = json.loads(entry["message"])["message"]
            if event["method"] == "Network.requestWillBeSent":
                found.add(event["params"]["request"]["url"])
        return found


@contextlib.contextmanager
def started(folder: pathlib.Path) -> Iterator[Browser]:
    """A browser of its own, with an empty profile in folder; both it and its driver end with the block."""
    with subprocess.Popen([DRIVER, "--port=0", f"--log-path={folder / 'driver.log'}"], stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, text=True) as driver:
        try:
            port = next((found[1] for line in driver.stdout or () if (found := STARTED.search(line))), None)
            if port is None:
                raise BrowserError(f"{DRIVER} did not start")
            browser = Browser(f"http://127.0.0.1:{port}", folder / "profile")
            try:
                yield browser
            finally:
                with contextlib.suppress(BrowserError, OSError):
                    browser._send("DELETE", "")
        finally:
            driver.terminate()


def axe(folder: pathlib.Path) -> pathlib.Path:
    """The rules for accessible pages, fetched once with the ordinary client of their registry."""
    file = folder / "package/axe.min.js"
    if not file.exists():
        if shutil.which("npm") is None:
            raise BrowserError("npm is not installed, which fetches the rules")
        folder.mkdir(parents=True, exist_ok=True)
        done = subprocess.run(["npm", "pack", "--silent", AXE], cwd=folder, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise BrowserError(f"npm does not fetch {AXE}: {done.stderr.strip()[-200:]}")
        with tarfile.open(folder / done.stdout.strip().splitlines()[-1]) as archive:
            archive.extract("package/axe.min.js", folder)
    return file

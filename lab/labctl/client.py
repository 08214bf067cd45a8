"""Using a lab: starting its hub, raising boards, running commands in its hosts."""

from __future__ import annotations

import contextlib
import fcntl
import json
import os
import socket
import subprocess
import sys
import threading
import time
from collections.abc import Iterator, Sequence
from typing import Any

from . import boards, carrier, frames, machine, paths, terminal


STOP_LIMIT = 5.0             # at pace 1: how long one of the board's programs may take to end by itself


class LabError(Exception):
    pass


class Result:
    """How a command ended: status as a shell gives it (128 + signal), out and err as text."""

    def __init__(self, words: Sequence[object], status: int, out: bytes, err: bytes) -> None:
        self.words, self.status, self.raw, self.err = words, status, out, err.decode(errors="replace")
        self.out = out.decode(errors="replace")

    def __bool__(self) -> bool:
        return self.status == 0

    def __repr__(self) -> str:
        return f"{' '.join(map(str, self.words))}: status {self.status}\n{self.out}{self.err}"

    def json(self) -> Any:
        return json.loads(self.out)


class Command:
    """A command that runs in a host. Reading and writing are up to the caller; closing it kills the command.

    Its limit of time is counted here: the clock of an emulated machine may run many times too fast.
    """

    def __init__(self, lab: Lab, host: str, words: Sequence[object], timeout: float | None = None) -> None:
        self.lab, self.words = lab, list(words)
        self.sock = lab.connect()
        self.reader = frames.Reader()
        self.lock = threading.Lock()
        self.out, self.err = bytearray(), bytearray()
        self.status: int | None = None
        self.failure = ""
        if host == "agent" and words[0] == "wait" and len(words) == 3:      # SECONDS TEXT
            timeout, words = float(str(words[1])), ["wait", words[2]]
        self.limit = None if timeout is None else time.monotonic() + timeout
        self.late = False
        # a program of the board that does not end is killed then, which the request waits for
        stopping = host == "agent" and words[0] in ("stop", "restart")
        self.patience = time.monotonic() + STOP_LIMIT * lab.pace if stopping else None
        self._send(frames.EXEC, frames.words(host, *words))

    def _send(self, kind: int, payload: bytes = b"") -> None:
        with self.lock, contextlib.suppress(BrokenPipeError, ConnectionResetError):
            self.sock.sendall(frames.pack(kind, 1, payload))

    def write(self, data: bytes) -> None:
        for at in range(0, len(data), frames.CHUNK):
            self._send(frames.STDIN, data[at:at + frames.CHUNK])

    def end_input(self) -> None:
        self._send(frames.STDIN)

    def kill(self, number: int = 9) -> None:
        self._send(frames.KILL, bytes([number]))

    def frames(self, deadline: float | None = None) -> Iterator[tuple[int, bytes]]:
        """Output as (stream, bytes), stream 1 or 2, until the command has ended; TimeoutError at the deadline."""
        while self.status is None and not self.failure:
            now = time.monotonic()
            if deadline is not None and now >= deadline:
                raise TimeoutError(" ".join(map(str, self.words)))
            if self.limit is not None and now >= self.limit:
                self.limit, self.late = None, True
                self.kill()
            if self.patience is not None and now >= self.patience:
                self.patience = None
                self.kill()
            ends = [end for end in (deadline, self.limit, self.patience) if end is not None]
            self.sock.settimeout(min(ends) - now if ends else None)
            try:
                data = self.sock.recv(frames.CHUNK)
            except socket.timeout:
                continue
            if not data:
                self.failure = "the lab has ended"
                return
            for kind, _, payload in self.reader.feed(data):
                if kind in (frames.STDOUT, frames.STDERR):
                    yield kind - frames.STDOUT + 1, payload
                elif kind == frames.EXIT:
                    self._over(payload.decode(errors="replace"))

    def _over(self, text: str) -> None:
        how, _, rest = text.partition(" ")
        if self.late:
            self.status = 124
        elif how == "exit":
            self.status = int(rest)
        elif how == "signal":
            self.status = 128 + int(rest)
        else:
            self.failure = rest or text

    def collect(self, deadline: float | None = None) -> Result:
        for stream, data in self.frames(deadline):
            (self.out if stream == 1 else self.err).extend(data)
        if self.failure or self.status is None:
            raise LabError(self.failure)
        return Result(self.words, self.status, bytes(self.out), bytes(self.err))

    def read_until(self, text: str, seconds: float) -> bool:
        """Collects standard output until it holds text; False when the command ended or time was up before."""
        wanted = text.encode()
        if wanted in self.out:
            return True
        with contextlib.suppress(TimeoutError):
            for stream, data in self.frames(time.monotonic() + seconds * self.lab.pace):
                (self.out if stream == 1 else self.err).extend(data)
                if wanted in self.out:
                    return True
        return wanted in self.out

    def close(self) -> None:
        self.sock.close()

    def __enter__(self) -> Command:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


class Lab:
    def __init__(self, name: str = paths.DEFAULT_LAB) -> None:
        self.name = name
        self.state = paths.state_dir(name)
        self._pace: int | None = None

    # --- the hub -------------------------------------------------------------------------------------------
    def connect(self) -> socket.socket:
        """A socket to the hub. By way of a descriptor of its folder, whose path may be too long for a socket."""
        sock = socket.socket(socket.AF_UNIX)
        try:
            folder = os.open(self.state, os.O_PATH | os.O_DIRECTORY)
            try:
                sock.connect(f"/proc/self/fd/{folder}/hub.sock")
            finally:
                os.close(folder)
        except OSError as error:
            sock.close()
            own = "" if self.name == paths.DEFAULT_LAB else f" --name {self.name}"
            raise LabError(f"lab {self.name} is not up (lab/lab{own} up)") from error
        return sock

    def alive(self) -> bool:
        try:
            self.connect().close()
            return True
        except LabError:
            return False

    @contextlib.contextmanager
    def _lock(self) -> Iterator[None]:
        self.state.mkdir(parents=True, exist_ok=True)
        with open(self.state / "lock", "w", encoding="utf-8") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            yield

    def start(self, mode: str = "", tied: bool = False, live: terminal.Live | None = None,
              verbose: bool = False) -> tuple[str, str]:
        """Starts the hub and its carrier. tied: the lab ends with this process. live: for notes and how far it is."""
        live = live or terminal.Live(sys.stderr)
        mode, why = carrier.choose(mode)
        programs = paths.programs_dir(mode)
        if not (programs / "bin/lab-agent").exists():
            raise LabError(f"{programs} has no programs of the board: build the project first "
                           f"(./run{' --mips' if mode == 'mips' else ''} does)")
        with self._lock():
            if self.alive():
                raise LabError(f"lab {self.name} is up already")
            if mode != "native":
                machine.prepare(machine.target_of(mode), live)
            ready_read, ready_write = os.pipe()
            tie_read, tie_write = os.pipe() if tied else (-1, -1)
            keep = [fd for fd in (ready_write, tie_read) if fd >= 0]
            with open(self.state / "hub.log", "wb") as log:
                process = subprocess.Popen(
                    [sys.executable, "-m", "labctl.hub", str(self.state), mode, str(programs), str(ready_write),
                     str(tie_read)], env={**os.environ, "PYTHONPATH": str(paths.LAB)},
                    stdin=subprocess.DEVNULL, stdout=log, stderr=log, pass_fds=keep, start_new_session=True)
            for fd in keep:
                os.close(fd)
            self.tie = tie_write                    # stays open for as long as this process lives
            with os.fdopen(ready_read) as ready, live.doing(*machine.BOOT[mode]):
                answer = ready.readline().strip()
            if verbose:
                live.write((self.state / "hub.log").read_text())
            if answer != "ready":
                process.wait(20)
                raise LabError(answer.partition(" ")[2] or "the hub did not start: " + str(self.state / "hub.log"))
        self._pace = None
        return mode, why

    def info(self) -> dict[str, Any]:
        with Command(self, "hub", ["info"]) as command:
            return command.collect(time.monotonic() + 30).json()

    @property
    def pace(self) -> int:
        """The factor of every limit of time; a caller with its own limit multiplies it."""
        if self._pace is None:
            self._pace = machine.PACE[self.info()["mode"]]
        return self._pace

    def stop(self) -> bool:
        """Ends the lab; nothing of it is left but its logs."""
        if not self.alive():
            return False
        with contextlib.suppress(LabError):
            self.run("hub", "end")
        self.wait_gone()
        return True

    def wait_gone(self, seconds: int = 20) -> None:
        """Waits until the hub has let go of its lock: nothing of the lab is left then."""
        deadline = time.monotonic() + seconds
        with open(self.state / "hub.lock", "w", encoding="ascii") as lock:
            while time.monotonic() < deadline:
                try:
                    fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
                    return
                except BlockingIOError:
                    time.sleep(0.02)
        raise LabError(f"lab {self.name} does not end: see {self.state / 'hub.log'}")

    # --- boards --------------------------------------------------------------------------------------------
    def raise_board(self, board: str = "one-cpu", config: str = "home", extra_plan: Sequence[str] = (),
                    folder: str = "lab") -> boards.Board:
        """Raises a board (ending the one before) and returns it; the daemon has been started then."""
        described = boards.Board(board)
        boards.check("configs", config)
        boards.write_lab(self.state / "share" / folder, described, config, extra_plan)
        (self.state / "lab.json").unlink(missing_ok=True)
        with contextlib.closing(self.connect()) as sock:
            sock.sendall(frames.pack(frames.UP, 1, folder.encode()))
            reader = frames.Reader()
            limit = 60 * self.pace
            sock.settimeout(limit)
            while True:
                try:
                    data = sock.recv(frames.CHUNK)
                except socket.timeout as error:
                    log = self.state / "hub.log"
                    raise LabError(f"the board did not come up within {limit} s: see {log}") from error
                if not data:
                    raise LabError("the lab has ended: see " + str(self.state / "hub.log"))
                for kind, _, payload in reader.feed(data):
                    if kind == frames.EXIT and payload != b"exit 0":
                        raise LabError(payload.decode(errors="replace"))
                    if kind == frames.EXIT:
                        about = {"board": str(described.path), "config": config}
                        (self.state / "lab.json").write_text(json.dumps(about))
                        return described

    def about(self) -> dict[str, str]:
        try:
            return json.loads((self.state / "lab.json").read_text())
        except OSError as error:
            raise LabError("no board is up") from error

    def board(self) -> boards.Board:
        return boards.Board(self.about()["board"])

    def config(self) -> str:
        return self.about()["config"]

    # --- commands ------------------------------------------------------------------------------------------
    def spawn(self, host: str, *words: object, timeout: float | None = None) -> Command:
        return Command(self, host, words, timeout)

    def run(self, host: str, *words: object, stdin: str | bytes | None = None, timeout: float | None = 30,
            check: bool = False) -> Result:
        """Runs a command to its end. timeout: seconds at pace 1. check: LabError with its output for a status not 0."""
        limit = timeout and timeout * self.pace
        with Command(self, host, words, limit) as command:
            if stdin:
                command.write(stdin if isinstance(stdin, bytes) else stdin.encode())
            command.end_input()
            result = command.collect(time.monotonic() + limit + 15 if limit else None)
        if check and not result:
            raise LabError(f"{host}: {result!r}")
        return result

    def ok(self, host: str, *words: object, **more: Any) -> str:
        return self.run(host, *words, check=True, **more).out

    def shell(self, host: str, script: str, **more: Any) -> Result:
        return self.run(host, "sh", "-c", script, **more)

    def put(self, host: str, path: str, data: str | bytes, mode: int = 0o644) -> None:
        self.run(host, "sh", "-c", 'cat > "$1" && chmod "$2" "$1"', "put", path, f"{mode:o}", stdin=data, check=True)

    def get(self, host: str, path: str) -> bytes:
        return self.run(host, "cat", path, check=True).raw

    def said(self, text: str, seconds: float = 30) -> tuple[float | None, str]:
        """Waits until the system log holds text; (seconds since the daemon's start, line)."""
        result = self.run("agent", "wait", seconds * self.pace, text, timeout=seconds + 10)
        if not result:
            why = result.err.strip() if result.status == 3 else f"{seconds * self.pace} s have passed"
            raise LabError(f"{text!r} was not logged, {why}; the log tells more")
        since, _, line = result.out.strip().partition(" ")
        return (float(since) if since != "-" else None), line

    def switch(self, *words: object) -> Any:
        """Puts a command to the emulated switch."""
        answer = self.run("router", "lab-agent", "ask", "/run/lab/switch.sock", *words, check=True).json()
        if isinstance(answer, dict) and "error" in answer:
            raise LabError("switch: " + answer["error"])
        return answer

    def link(self, port: int, up: bool) -> None:
        self.switch("link", port, "up" if up else "down")

"""Using a lab: starting its hub, raising boards, running commands in its hosts."""

import contextlib
import fcntl
import json
import os
import pathlib
import socket
import subprocess
import sys
import threading
import time

from . import boards, carrier, frames, paths


class LabError(Exception):
    pass


class Result:
    """How a command ended: status as a shell gives it (128 + signal), out and err as text."""

    def __init__(self, words, status, out, err):
        self.words, self.status, self.raw, self.err = words, status, out, err.decode(errors="replace")
        self.out = out.decode(errors="replace")

    def __bool__(self):
        return self.status == 0

    def __repr__(self):
        return "%s: status %d\n%s%s" % (" ".join(map(str, self.words)), self.status, self.out, self.err)

    def json(self):
        return json.loads(self.out)


class Command:
    """A command that runs in a host. Reading and writing are up to the caller; closing it kills the command."""

    def __init__(self, lab, host, words, timeout=None):
        self.lab, self.words = lab, list(words)
        self.sock = lab.connect()
        self.reader = frames.Reader()
        self.lock = threading.Lock()
        self.out, self.err = bytearray(), bytearray()
        self.status = None
        self.failure = ""
        limit = str(int((timeout or 0) * 1000))
        self._send(frames.EXEC, frames.words(host, limit, *words))

    def _send(self, kind, payload=b""):
        with self.lock, contextlib.suppress(BrokenPipeError, ConnectionResetError):
            self.sock.sendall(frames.pack(kind, 1, payload))

    def write(self, data):
        for at in range(0, len(data), frames.CHUNK):
            self._send(frames.STDIN, data[at:at + frames.CHUNK])

    def end_input(self):
        self._send(frames.STDIN)

    def kill(self, number=9):
        self._send(frames.KILL, bytes([number]))

    def frames(self, deadline=None):
        """Output as (stream, bytes), stream 1 or 2, until the command has ended; TimeoutError at the deadline."""
        while self.status is None and not self.failure:
            left = None if deadline is None else deadline - time.monotonic()
            if left is not None and left <= 0:
                raise TimeoutError(" ".join(map(str, self.words)))
            self.sock.settimeout(left)
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

    def _over(self, text):
        how, _, rest = text.partition(" ")
        if how == "exit":
            self.status = int(rest)
        elif how == "signal":
            self.status = 128 + int(rest)
        elif how == "timeout":
            self.status = 124
        else:
            self.failure = rest or text

    def collect(self, deadline=None):
        for stream, data in self.frames(deadline):
            (self.out if stream == 1 else self.err).extend(data)
        if self.failure:
            raise LabError(self.failure)
        return Result(self.words, self.status, bytes(self.out), bytes(self.err))

    def read_until(self, text, seconds):
        """Collects standard output until it holds text; False when the command ended or time was up before."""
        text = text.encode()
        if text in self.out:
            return True
        with contextlib.suppress(TimeoutError):
            for stream, data in self.frames(time.monotonic() + seconds * self.lab.pace):
                (self.out if stream == 1 else self.err).extend(data)
                if text in self.out:
                    return True
        return text in self.out

    def close(self):
        self.sock.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


class Lab:
    def __init__(self, name=paths.DEFAULT_LAB):
        self.name = name
        self.state = paths.state_dir(name)
        self._pace = None

    # --- the hub -------------------------------------------------------------------------------------------
    def connect(self):
        """A socket to the hub. By way of a descriptor of its folder, whose path may be too long for a socket."""
        sock = socket.socket(socket.AF_UNIX)
        try:
            folder = os.open(self.state, os.O_PATH | os.O_DIRECTORY)
            try:
                sock.connect("/proc/self/fd/%d/hub.sock" % folder)
            finally:
                os.close(folder)
        except OSError as error:
            sock.close()
            raise LabError("lab %s is not up (lab/lab up)" % self.name) from error
        return sock

    def alive(self):
        try:
            self.connect().close()
            return True
        except LabError:
            return False

    @contextlib.contextmanager
    def _lock(self):
        self.state.mkdir(parents=True, exist_ok=True)
        with open(self.state / "lock", "w", encoding="utf-8") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            yield

    def start(self, mode="", tied=False, notes=sys.stderr, verbose=False):
        """Starts the hub and its carrier. tied: the lab ends with this process."""
        mode, why = carrier.choose(mode)
        programs = paths.programs_dir(mode)
        if not (programs / "bin/lab-agent").exists():
            raise LabError("%s has no programs of the board: build the project first (./run%s does)"
                           % (programs, " --mips" if mode == "mips" else ""))
        with self._lock():
            if self.alive():
                raise LabError("lab %s is up already" % self.name)
            if mode != "native":
                carrier.machine.prepare(carrier.machine.target_of(mode), notes)
            ready_read, ready_write = os.pipe()
            tie_read, tie_write = os.pipe() if tied else (-1, -1)
            keep = [fd for fd in (ready_write, tie_read) if fd >= 0]
            hub = pathlib.Path(__file__).with_name("hub.py")
            with open(self.state / "hub.log", "wb") as log:
                process = subprocess.Popen(
                    [sys.executable, str(hub), str(self.state), mode, str(programs), str(ready_write), str(tie_read)],
                    stdin=subprocess.DEVNULL, stdout=log, stderr=log, pass_fds=keep, start_new_session=True)
            for fd in keep:
                os.close(fd)
            self.tie = tie_write                    # stays open for as long as this process lives
            with os.fdopen(ready_read) as ready:
                answer = ready.readline().strip()
            if verbose:
                notes.write((self.state / "hub.log").read_text())
            if answer != "ready":
                process.wait(20)
                raise LabError(answer.partition(" ")[2] or "the hub did not start: " + str(self.state / "hub.log"))
        self._pace = None
        return mode, why

    def info(self):
        with Command(self, "hub", ["info"]) as command:
            return command.collect(time.monotonic() + 30).json()

    @property
    def pace(self):
        """What every limit of time is multiplied by; where a caller has a limit of its own, by the caller."""
        if self._pace is None:
            self._pace = carrier.machine.PACE[self.info()["mode"]]
        return self._pace

    def stop(self):
        """Ends the lab; nothing of it is left but its logs."""
        if not self.alive():
            return False
        with contextlib.suppress(LabError):
            self.run("hub", "end")
        self.wait_gone()
        return True

    def wait_gone(self, seconds=20):
        """Waits until the hub has let go of its lock: nothing of the lab is left then."""
        deadline = time.monotonic() + seconds
        with open(self.state / "hub.lock", "w", encoding="ascii") as lock:
            while time.monotonic() < deadline:
                try:
                    fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
                    return
                except BlockingIOError:
                    time.sleep(0.02)
        raise LabError("lab %s does not end: see %s" % (self.name, self.state / "hub.log"))

    # --- boards --------------------------------------------------------------------------------------------
    def raise_board(self, board="one-cpu", config="home", extra_plan=(), folder="lab"):
        """Raises a board (ending the one before) and returns it; the daemon has been started then."""
        described = boards.Board(board)
        (self.state / "lab.json").unlink(missing_ok=True)
        boards.write_lab(self.state / "share" / folder, described, config, extra_plan)
        with contextlib.closing(self.connect()) as sock:
            sock.sendall(frames.pack(frames.UP, 1, folder.encode()))
            reader = frames.Reader()
            sock.settimeout(60 * self.pace)
            while True:
                data = sock.recv(frames.CHUNK)
                if not data:
                    raise LabError("the lab has ended: see " + str(self.state / "hub.log"))
                for kind, _, payload in reader.feed(data):
                    if kind == frames.EXIT and payload != b"exit 0":
                        raise LabError(payload.decode(errors="replace"))
                    if kind == frames.EXIT:
                        about = {"board": str(described.path), "config": config}
                        (self.state / "lab.json").write_text(json.dumps(about))
                        return described

    def about(self):
        try:
            return json.loads((self.state / "lab.json").read_text())
        except OSError as error:
            raise LabError("no board is up") from error

    def board(self):
        return boards.Board(self.about()["board"])

    def config(self):
        return self.about()["config"]

    # --- commands ------------------------------------------------------------------------------------------
    def spawn(self, host, *words, timeout=None):
        return Command(self, host, words, timeout)

    def run(self, host, *words, stdin=None, timeout=30, check=False):
        """Runs a command to its end. timeout: seconds at pace 1. check: LabError with its output when its status is not 0."""
        timeout = timeout and timeout * self.pace
        with Command(self, host, words, timeout) as command:
            if stdin:
                command.write(stdin if isinstance(stdin, bytes) else stdin.encode())
            command.end_input()
            result = command.collect(time.monotonic() + timeout + 15 if timeout else None)
        if check and not result:
            raise LabError("%s: %r" % (host, result))
        return result

    def ok(self, host, *words, **more):
        return self.run(host, *words, check=True, **more).out

    def shell(self, host, script, **more):
        return self.run(host, "sh", "-c", script, **more)

    def put(self, host, path, data, mode=0o644):
        self.run(host, "sh", "-c", 'cat > "$1" && chmod "$2" "$1"', "put", path, "%o" % mode, stdin=data, check=True)

    def get(self, host, path):
        return self.run(host, "cat", path, check=True).raw

    def said(self, text, seconds=30):
        """Waits until the system log holds text; (seconds since the daemon's start, line)."""
        result = self.run("agent", "wait", seconds * self.pace, text, timeout=seconds + 10)
        if not result:
            why = result.err.strip() if result.status == 3 else "%s s have passed" % (seconds * self.pace)
            raise LabError("%r was not logged, %s; the log tells more" % (text, why))
        since, _, line = result.out.strip().partition(" ")
        return (float(since) if since != "-" else None), line

    def switch(self, *words):
        """Puts a command to the emulated switch."""
        answer = self.run("router", "lab-agent", "ask", "/run/lab/switch.sock", *words, check=True).json()
        if isinstance(answer, dict) and "error" in answer:
            raise LabError("switch: " + answer["error"])
        return answer

    def link(self, port, up):
        self.switch("link", port, "up" if up else "down")

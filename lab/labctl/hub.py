"""The lab's hub: holds the control channel of one carrier and lets any number of clients use it.

The client module runs it as a separate process:  python3 -m labctl.hub STATE-DIR MODE PROGRAMS READY-FD TIE-FD
MODE is "native", "vm" or "mips". It serves STATE-DIR/hub.sock; a client chooses the ids of its
frames. Beside the board's hosts there is the host "hub" with the commands "info" and "end".
READY-FD gets one line when the lab can be used, or why it cannot. When TIE-FD (-1: none) reaches its end, as it
does when the process that wanted the lab dies, the lab ends too.
"""

from __future__ import annotations

import collections
import fcntl
import json
import os
import pathlib
import selectors
import shutil
import signal
import socket
import sys
import time

from . import carrier, frames, machine

CLIENT_LIMIT = 64 << 20      # what a client that does not read may leave lying
START_LIMIT = 90.0           # at pace 1


class Peer:
    """A non-blocking socket with a queue in front of it."""

    def __init__(self, hub: Hub, sock: socket.socket) -> None:
        self.hub, self.sock, self.reader = hub, sock, frames.Reader()
        self.queue: collections.deque[bytes] = collections.deque()
        self.size = 0
        sock.setblocking(False)
        hub.selector.register(sock, selectors.EVENT_READ, self)

    def send(self, data: bytes) -> None:
        self.queue.append(data)
        self.size += len(data)
        self.flush()

    def flush(self) -> None:
        try:
            while self.queue:
                data = self.queue[0]
                sent = self.sock.send(data)
                self.size -= sent
                if sent < len(data):
                    self.queue[0] = data[sent:]
                else:
                    self.queue.popleft()
        except BlockingIOError:
            pass
        except OSError:
            self.hub.lost(self)
            return
        if self.sock.fileno() >= 0:
            events = selectors.EVENT_READ | (selectors.EVENT_WRITE if self.queue else 0)
            self.hub.selector.modify(self.sock, events, self)

    def receive(self) -> None:
        try:
            data = self.sock.recv(frames.CHUNK)
        except BlockingIOError:
            return
        except OSError:
            data = b""
        if not data:
            self.hub.lost(self)
            return
        try:
            for frame in self.reader.feed(data):
                self.hub.take(self, *frame)
        except ValueError:
            self.hub.lost(self)

    def close(self) -> None:
        if self.sock.fileno() >= 0:
            self.hub.selector.unregister(self.sock)
            self.sock.close()


class Hub:
    def __init__(self, state: str, mode: str, programs: str, ready_fd: int, tie_fd: int) -> None:
        self.state, self.mode, self.ready_fd = state, mode, ready_fd
        self.selector = selectors.DefaultSelector()
        self.running, self.ready, self.failure = True, False, ""
        self.began, self.limit = time.monotonic(), START_LIMIT * machine.PACE[mode]
        self.next_id = 1
        self.routes: dict[int, tuple[Peer | None, int]] = {}      # our id -> (client, its id)
        self.clients: set[Peer] = set()
        self.carrier = carrier.start(mode, pathlib.Path(state), pathlib.Path(programs), sys.stderr)
        self.channel = Peer(self, self.carrier.channel)
        if tie_fd >= 0:
            self.selector.register(tie_fd, selectors.EVENT_READ, "tie")
        self.listener = socket.socket(socket.AF_UNIX)

    def listen(self) -> None:
        """Binds below the state folder by a relative name: its own path may be too long for a socket."""
        os.chdir(self.state)
        if os.path.exists("hub.sock"):
            os.unlink("hub.sock")
        self.listener.bind("hub.sock")
        os.chmod("hub.sock", 0o600)
        self.listener.listen(64)
        self.selector.register(self.listener, selectors.EVENT_READ, "listener")

    def tell(self, text: str) -> None:
        if self.ready_fd >= 0:
            os.write(self.ready_fd, text.encode() + b"\n")
            os.close(self.ready_fd)
            self.ready_fd = -1

    def run(self) -> None:
        while self.running:
            for key, events in self.selector.select(0.5):
                if key.data == "listener":
                    sock, _ = self.listener.accept()
                    self.clients.add(Peer(self, sock))
                elif key.data == "tie":
                    if not os.read(key.fd, 1):
                        self.failure = "who wanted the lab is gone"
                        self.running = False
                elif isinstance(key.data, Peer):
                    if events & selectors.EVENT_WRITE:
                        key.data.flush()
                    if events & selectors.EVENT_READ and key.data.sock.fileno() >= 0:
                        key.data.receive()
            if not self.ready and time.monotonic() - self.began > self.limit:
                self.failure = f"the carrier did not come up in {self.limit:.0f} s"
                self.running = False
        self.tell("failed " + (self.failure or "the lab has ended"))

    def lost(self, peer: Peer) -> None:
        peer.close()
        if peer is self.channel:
            self.failure = self.failure or "the carrier has ended: " + self.carrier.last_words()
            self.running = False
            return
        self.clients.discard(peer)
        for ours, (client, _) in list(self.routes.items()):
            if client is peer:
                self.routes[ours] = (None, 0)
                self.channel.send(frames.pack(frames.KILL, ours, bytes([signal.SIGKILL])))

    def take(self, peer: Peer, kind: int, ident: int, payload: bytes) -> None:
        if peer is self.channel:
            self.from_board(kind, ident, payload)
        elif kind == frames.EXEC and payload.startswith(b"hub\0"):
            self.own_command(peer, ident, payload.split(b"\0")[1:])
        elif kind in (frames.EXEC, frames.UP, frames.DOWN):
            ours, self.next_id = self.next_id, self.next_id % 0x7fffffff + 1
            self.routes[ours] = (peer, ident)
            if kind == frames.UP:
                payload = frames.words(self.carrier.inside(payload.decode()))
            self.channel.send(frames.pack(kind, ours, payload))
        else:
            for ours, route in self.routes.items():
                if route == (peer, ident):
                    self.channel.send(frames.pack(kind, ours, payload))
                    break

    def from_board(self, kind: int, ident: int, payload: bytes) -> None:
        if kind == frames.NOTE:
            for line in payload.decode(errors="replace").splitlines():
                print("lab: " + line, file=sys.stderr, flush=True)
            if payload == b"ready" and not self.ready:
                self.ready = True
                self.listen()
                self.tell("ready")
            return
        client, theirs = self.routes.get(ident, (None, 0))
        if kind == frames.EXIT:
            self.routes.pop(ident, None)
        if client is not None:
            client.send(frames.pack(kind, theirs, payload))
            if client.size > CLIENT_LIMIT:
                self.lost(client)

    def own_command(self, peer: Peer, ident: int, command: list[bytes]) -> None:
        status = b"exit 0"
        if command == [b"info"]:
            info = {"mode": self.mode, "pid": os.getpid(), "carrier": self.carrier.pid(),
                    "text": self.carrier.text, "seconds": round(time.monotonic() - self.began, 1)}
            peer.send(frames.pack(frames.STDOUT, ident, json.dumps(info).encode()))
        elif command == [b"end"]:
            self.running = False
        else:
            status = b"failed the hub knows no such command"
        peer.send(frames.pack(frames.EXIT, ident, status))

    def end(self) -> None:
        self.channel.close()
        self.carrier.end()
        for name in ("hub.sock", "hub.json"):
            try:
                os.unlink(os.path.join(self.state, name))
            except OSError:
                pass
        shutil.rmtree(os.path.join(self.state, "share"), ignore_errors=True)
        for client in self.clients:
            client.close()


def main() -> None:
    state, mode, programs, ready_fd, tie_fd = sys.argv[1:6]
    for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(0))
    hub = None
    # held until every trace of this lab is gone; the next one of its name waits here
    lock = open(os.path.join(state, "hub.lock"), "w", encoding="ascii")
    fcntl.flock(lock, fcntl.LOCK_EX)
    os.makedirs(os.path.join(state, "share"), exist_ok=True)
    try:
        hub = Hub(state, mode, programs, int(ready_fd), int(tie_fd))
        hub.run()
    except carrier.CarrierError as error:
        os.write(int(ready_fd), f"failed {error}\n".encode())
    finally:
        if hub:
            hub.end()


if __name__ == "__main__":
    main()

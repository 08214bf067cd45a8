"""What a board runs on: this machine's own kernel, or a small machine under QEMU. Either gives a control channel."""

from __future__ import annotations

import ctypes
import os
import pathlib
import shutil
import signal
import socket
import subprocess
from typing import TextIO

from . import machine

PR_SET_PDEATHSIG = 1


class CarrierError(Exception):
    pass


def die_with_parent() -> None:
    """Makes the kernel end this process with its parent, so that nothing outlives the hub."""
    ctypes.CDLL(None, use_errno=True).prctl(PR_SET_PDEATHSIG, int(signal.SIGKILL), 0, 0, 0)


def as_root(command: list[str]) -> list[str] | None:
    """The command line that runs a command as root, or None when there is no way."""
    if os.geteuid() == 0:
        return command
    sudo = shutil.which("sudo")
    if sudo and subprocess.run([sudo, "-n", "true"], capture_output=True, check=False).returncode == 0:
        return [sudo, "-n", *command]
    return None


class Carrier:
    """A running carrier: channel (a socket), text (one line for a person)."""

    def __init__(self, channel: socket.socket, process: subprocess.Popen[bytes], text: str, share: str,
                 log: pathlib.Path) -> None:
        self.channel, self.process, self.text = channel, process, text
        self.share, self.log = share, log

    def inside(self, folder: str) -> str:
        """A folder of the lab's share as the board's supervisor sees it."""
        return str(pathlib.PurePosixPath(self.share) / folder)

    def pid(self) -> int:
        return self.process.pid

    def last_words(self) -> str:
        try:
            lines = pathlib.Path(self.log).read_text(errors="replace").strip().splitlines()
        except OSError:
            lines = []
        return " | ".join(line.strip() for line in lines[-3:]) or "no output"

    def end(self) -> None:
        # the supervisor ends by itself when its channel closes; a machine is simply switched off
        try:
            if self.process.poll() is None and self.share == "/share":
                self.process.kill()
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


def start(mode: str, state: pathlib.Path, programs: pathlib.Path, notes: TextIO) -> Carrier:
    mine, theirs = socket.socketpair()
    log = state / "console.log"
    if mode == "native":
        own = theirs.fileno()
        words = as_root([str(programs / "bin" / "lab-agent"), "--programs", str(programs)])
        if not words:
            raise CarrierError("running natively needs root: neither root nor sudo without a password")
        text = "natively, in private name spaces of this kernel"
        share = str(state / "share")
        with open(log, "wb") as err:
            print("lab: " + " ".join(words), file=notes, flush=True)
            process = subprocess.Popen(words, stdin=own, stdout=own, stderr=err,
                                       preexec_fn=die_with_parent, start_new_session=True)
    else:
        try:
            command, env, text = machine.command(mode, state / "share", programs, theirs.fileno(), notes)
        except machine.MachineError as error:
            raise CarrierError(str(error)) from error
        share = "/share"
        with open(log, "wb") as out:
            print("lab: " + " ".join(command), file=notes, flush=True)
            process = subprocess.Popen(command, env=env, stdin=subprocess.DEVNULL, stdout=out, stderr=out,
                                       pass_fds=[theirs.fileno()], preexec_fn=die_with_parent,
                                       start_new_session=True)
    theirs.close()
    return Carrier(mine, process, text, share, log)


PROBE = """
mount -t tmpfs tmpfs /mnt && mkdir /mnt/up /mnt/work &&
mount -t overlay overlay -o lowerdir=/usr,upperdir=/mnt/up,workdir=/mnt/work /mnt &&
ip link add lab-probe-a type veth peer name lab-probe-b &&
ip link add link lab-probe-a name lab-probe-v type vlan id 7 &&
ip link add lab-probe-c type bridge && test -c /dev/net/tun && ip tuntap add lab-probe-t mode tap &&
iptables -w -t nat -L -n > /dev/null && iptables -w -t mangle -L -n > /dev/null && : < /dev/ppp
"""


def native_lack() -> str:
    """Why the lab cannot run natively here ("" when it can): asked of the kernel in name spaces that end with it."""
    command = as_root(["unshare", "--net", "--mount", "--pid", "--ipc", "--uts", "--fork", "sh", "-c", PROBE])
    if not command:
        return "no root here"
    try:
        result = subprocess.run(command, capture_output=True, text=True, timeout=20, check=False)
    except (OSError, subprocess.TimeoutExpired) as error:
        return str(error)
    if result.returncode == 0:
        return ""
    lines = [line for line in result.stderr.strip().splitlines() if line]
    reason = lines[-1] if lines else f"status {result.returncode}"
    if "type vlan" in result.stderr or "Operation not supported" in reason or "Unknown device type" in reason:
        reason = f"its kernel lacks VLAN devices ({reason.replace('RTNETLINK answers: ', '')})"
    return reason


def choose(wanted: str) -> tuple[str, str]:
    """(mode, reason for a person) for what the user asked: "", "native", "vm" or "mips"."""
    if wanted:
        return wanted, "as asked"
    lack = native_lack()
    if not lack:
        return "native", "this kernel has VLANs, bridges, tun, veth and PPP"
    return "vm", lack

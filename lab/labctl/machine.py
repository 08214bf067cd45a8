"""The small machine: fetching it, asking whether hardware acceleration works, and QEMU's command line."""

from __future__ import annotations

import contextlib
import os
import pathlib
import platform
import subprocess
from typing import TextIO

from . import paths, terminal

PROBE_LIMIT = 12
# How often as long as elsewhere things may take: the one factor of all limits of time. The MIPS machine has one
# emulated processor without anything that makes emulation faster.
PACE = {"native": 1, "vm": 1, "mips": 3}
# What a person reads meanwhile, and some seconds that it takes.
BOOT = {"native": ("Starting the board's name spaces", 0.0), "vm": ("Booting the small machine", 6.0),
        "mips": ("Booting the MIPS machine", 6.0)}


def target_of(mode: str) -> str:
    return "mipsel" if mode == "mips" else "x86"


class MachineError(Exception):
    pass


def is_newer(one: pathlib.Path, other: pathlib.Path) -> bool:
    return one.exists() and one.stat().st_mtime >= other.stat().st_mtime


def fetched(step: terminal.Step) -> None:
    """How much is there of the packages that are being fetched."""
    for folder in (paths.cache_dir() / "debs").glob("*"):
        wanted = folder / ".list"       # lines: file, bytes, hash, place
        with contextlib.suppress(OSError, ValueError):
            if wanted.stat().st_mtime >= step.since and not is_newer(folder / ".done", wanted):
                sizes = {name: int(size) for name, size, *_ in map(str.split, wanted.read_text().splitlines())}
                there = sum(path.stat().st_size for path in folder.glob("*.deb") if path.name in sizes)
                step.at(there >> 20, sum(sizes.values()) >> 20, "MB")


def prepare(target: str, live: terminal.Live) -> None:
    """Fetches and builds what is missing; says what it downloads."""
    if platform.machine() != "x86_64":
        raise MachineError("the small machine needs an x86-64 host")
    env = dict(os.environ, IVARODE_LAB_CACHE=str(paths.cache_dir()))
    process = subprocess.Popen([str(paths.LAB / "vm" / "setup.sh"), target], env=env, text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    lines = []
    with live.doing(terminal.Step("Fetching the small machine", look=fetched)):
        for line in process.stdout or ():
            lines.append(line.rstrip())
            if "cached" not in line:
                print("lab: " + line.rstrip(), file=live, flush=True)
    if process.wait() != 0:
        raise MachineError("the small machine could not be prepared: " + " | ".join(lines[-3:]))


def base(target: str) -> tuple[list[str], dict[str, str]]:
    """Emulator, its environment and the parts of the command line that every start shares."""
    tools = paths.cache_dir() / "tools"
    image = paths.cache_dir() / "image" / target
    env = dict(os.environ)
    env["LD_LIBRARY_PATH"] = ":".join(str(tools / d) for d in ("usr/lib/x86_64-linux-gnu", "lib/x86_64-linux-gnu"))
    name = "qemu-system-x86_64" if target == "x86" else "qemu-system-mipsel"
    command = [str(tools / "usr/bin" / name), "-L", str(tools / "usr/share/qemu"), "-L",
               str(tools / "usr/share/seabios"),
               "-nodefaults", "-no-user-config", "-display", "none", "-monitor", "none", "-no-reboot",
               "-chardev", "stdio,id=con,signal=off", "-serial", "chardev:con",
               "-kernel", str(image / "kernel"), "-initrd", str(image / "initramfs.cpio")]
    return command, env


def accelerated() -> bool:
    """Whether KVM really runs our kernel here; asked once per boot of this host."""
    if not os.access("/dev/kvm", os.R_OK | os.W_OK):
        return False
    boot = pathlib.Path("/proc/sys/kernel/random/boot_id").read_text().strip()
    answer = paths.cache_dir() / ("kvm-" + boot)
    if answer.exists():
        return answer.read_text() == "yes"
    command, env = base("x86")
    command += ["-M", "pc", "-accel", "kvm", "-cpu", "host", "-m", "256",
                "-append", "console=ttyS0 quiet panic=-1 lab.probe"]
    try:
        result = subprocess.run(command, env=env, stdin=subprocess.DEVNULL, capture_output=True,
                                timeout=PROBE_LIMIT, check=False)
        runs = b"lab: the machine runs" in result.stdout
    except subprocess.TimeoutExpired:
        runs = False
    for old in paths.cache_dir().glob("kvm-*"):
        old.unlink()
    answer.write_text("yes" if runs else "no")
    return runs


def nine(tag: str, folder: pathlib.Path, more: str = "") -> list[str]:
    option = f"local,id={tag},path={str(folder).replace(',', ',,')},security_model=none{more}"
    return ["-fsdev", option, "-device", f"virtio-9p-pci,fsdev={tag},mount_tag={tag}"]


def command(mode: str, share: pathlib.Path, programs: pathlib.Path, channel_fd: int,
            notes: TextIO) -> tuple[list[str], dict[str, str], str]:
    """(command line, environment, one line for a person) of a machine whose control channel is channel_fd."""
    target = target_of(mode)
    prepare(target, terminal.Live(notes))
    line, env = base(target)
    append = "console=ttyS0 quiet loglevel=4 panic=-1 oops=panic random.trust_cpu=on"
    if target == "mipsel":
        line += ["-M", "malta", "-accel", "tcg,tb-size=128", "-cpu", "24Kf", "-m", "256"]
        text = "in a small little-endian MIPS machine (emulated processor)"
    else:
        append += " tsc=reliable no_timer_check mitigations=off"
        cpus = str(2 if (os.cpu_count() or 1) > 2 else 1)
        if accelerated():
            line += ["-M", "pc", "-accel", "kvm", "-cpu", "host"]
            text = "in a small machine (KVM)"
        else:
            line += ["-M", "pc", "-accel", "tcg,tb-size=128", "-cpu", "max"]
            text = "in a small machine (emulated processor)"
        line += ["-smp", cpus, "-m", "320"]
    line += ["-append", append, "-object", "rng-random,id=rng,filename=/dev/urandom",
             "-device", "virtio-rng-pci,rng=rng",
             "-device", "virtio-serial-pci", "-chardev", f"socket,id=lab,fd={channel_fd}",
             "-device", "virtserialport,chardev=lab,name=ivarode.lab"]
    line += nine("share", share, ",readonly=on") + nine("prog", programs, ",readonly=on")
    return line, env, text

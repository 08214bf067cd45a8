"""What is measured on this machine's own kernel, in name spaces that end with the measurement."""

import contextlib
import re
import subprocess
import tempfile
from pathlib import Path
from statistics import median

from tests.bench.row import Row, compared, figures, paired

BINARIES = ("bin/ivarode", "lib/libsys.so", "lib/libubox.so", "lib/libubus.so", "lib/libuci.so")
ROUTES = 10000
NETWORK = """ip link set lo up && ip link add lan1_0 type veth peer name far && ip link set far up &&
ip address add 203.0.113.2/24 dev lan1_0 && ip link set lan1_0 up"""


class Unable(Exception):
    """Why something cannot be measured here."""


def output(*command: object) -> str:
    return subprocess.run([str(word) for word in command], check=True, capture_output=True, text=True).stdout


def apart(script: str, timeout: int = 600) -> str:
    """Output of a shell script in network and mount name spaces of its own."""
    done = subprocess.run(["unshare", "-n", "-m", "sh", "-ec", script], capture_output=True, text=True,
                          check=False, timeout=timeout)
    if done.returncode != 0:
        raise Unable("in name spaces: " + (done.stderr.strip().splitlines() or ["no reason given"])[-1])
    return done.stdout


# --- sizes -------------------------------------------------------------------------------------------------------
def stripped_size(binary: Path, strip: str) -> int:
    with tempfile.NamedTemporaryFile() as copy:
        output(strip, "-o", copy.name, binary)
        return Path(copy.name).stat().st_size


def needed(binary: Path) -> list[str]:
    return re.findall(r"\(NEEDED\).*\[(.*)\]", output("readelf", "-d", binary))


def relocations(binary: Path) -> int:
    return sum(int(count) for count in re.findall(r"contains (\d+) entr", output("readelf", "-r", "-W", binary)))


def sizes(build: Path, strip: str = "strip") -> list[tuple[str, int, int, list[str]]]:
    """(file, stripped bytes, relocations, libraries needed) of each that is built."""
    return [(name, stripped_size(build / name, strip), relocations(build / name), needed(build / name))
            for name in BINARIES if (build / name).exists()]


def size_rows(build: Path, mipsel: Path | None) -> list[Row]:
    rows = []
    for machine, folder, strip in (("x86-64", build, "strip"), ("mipsel", mipsel, "mipsel-linux-gnu-strip")):
        if not folder or not (folder / BINARIES[0]).exists():
            rows.append(Row("stripped size, " + machine, "not built here",
                            aim="≤ 120 kB" if machine == "mipsel" else "–"))
            continue
        found = sizes(folder, strip)
        daemon = found[0]
        held = "–" if machine != "mipsel" else "yes" if daemon[1] <= 120_000 else "no"
        rows.append(Row("stripped size of the daemon, " + machine, f"{daemon[1]} bytes, {daemon[2]} relocations",
                        aim="≤ 120 kB" if machine == "mipsel" else "–", held=held,
                        notes=[f"{name}, {machine}: {size} bytes stripped, {count} relocations, "
                               f"needs {', '.join(libraries)}" for name, size, count, libraries in found]))
        bad = [name for name, _, _, libraries in found for library in libraries
               if "stdc++" in library or "gcc_s" in library]
        rows.append(Row("libraries that need libstdc++ or libgcc_s, " + machine, ", ".join(bad) or "none", aim="none",
                        held="no" if bad else "yes"))
    return rows


# --- the firewall ------------------------------------------------------------------------------------------------
def skeleton_processes(build: Path, folder: Path) -> list[tuple[int, int, int]]:
    """For each of two starts: (processes, changes, tables listed), whether by commands or through a stream."""
    program = build / "bin/bench-skeleton"
    traces = [folder / "first", folder / "second"]
    apart("\n".join(f"strace -f -qq -s 600 -e trace=execve,sendto -o {trace} {program} 2> /dev/null"
                    for trace in traces))
    found = []
    for trace in traces:
        text = trace.read_text(encoding="utf-8")
        processes = re.findall(r"execve\((?!.*= -1).*", text)[1:]
        requests = re.findall(r"sendto\(.*COMMIT.*", text)
        commands = [one for one in processes if "--noflush" not in one]
        listings = sum("-S" in one for one in commands + requests)
        found.append((len(processes), len(commands + requests) - listings, listings))
    return found


def firewall_rows(build: Path, quick: bool) -> list[Row]:
    with tempfile.TemporaryDirectory() as text:
        folder = Path(text)
        counts = skeleton_processes(build, folder)
        time, skeleton = build / "bin/bench", build / "bin/bench-skeleton"
        apart(f"{skeleton} 2> /dev/null; iptables-save > {folder}/rules")
        first, second = [], []
        for _ in range(3 if quick else 9):
            limit = figures(apart(f"{time} time iptables-restore {folder}/rules"))["time"][0]
            again = apart(f"for i in 1 2; do {time} time {skeleton} 2> /dev/null; done")
            ours = [float(number) for number in re.findall(r"^time (\S+)$", again, re.MULTILINE)]
            first.append((ours[0], limit))
            second.append((ours[1], limit))
    rows = []
    for name, pairs, aim, (processes, changes, listings) in (("first", first, None, counts[0]),
                                                             ("second", second, 3, counts[1])):
        rows.append(paired(f"firewall skeleton, {name} start", pairs, "one iptables-restore", aim))
        rows.append(Row(f"its processes, {name} start", f"{processes}", f"{changes} changes, {listings} tables to list",
                        f"{processes / (changes + listings):.2f}", "≤ one per change, none per question",
                        "yes" if processes <= changes + listings and listings <= 3 else "no"))
    return rows


# --- static routes at the start ----------------------------------------------------------------------------------
def write_routes(folder: Path, count: int) -> None:
    (folder / "etc/config").mkdir(parents=True, exist_ok=True)
    (folder / "etc/config/route_config").write_text("".join(
        f"config route 'r{number}'\n\toption enable '1'\n\toption line 'auto'\n"
        f"\toption dstaddr '10.{number >> 8}.{number & 255}.0'\n\toption netmask '255.255.255.0'\n"
        "\toption gateway '203.0.113.1'\n\toption metric '10'\n" for number in range(count)), encoding="utf-8")
    (folder / "batch").write_text("".join(
        f"route add 10.{number >> 8}.{number & 255}.0/24 via 203.0.113.1 metric 10 table 20001\n"
        for number in range(count)), encoding="utf-8")


def load_times(build: Path, folder: Path, count: int) -> tuple[float, float, float]:
    """(our load, ip -batch, directly) in microseconds, one after the other."""
    write_routes(folder, count)
    programs = build / "bin"
    said = apart(f"mount --bind {folder}/etc /etc; {NETWORK}\n{programs}/bench-parts load 1 1 2> /dev/null\n"
                 f"{programs}/bench time ip -batch {folder}/batch\n{programs}/bench direct {count}")
    found = figures(said)
    return found["load"][0], found["time"][0], found["direct"][0]


def load_rows(build: Path, quick: bool) -> tuple[list[Row], dict[int, list[float]]]:
    """Rows, and for the plot: size -> medians."""
    plot = {}
    with tempfile.TemporaryDirectory() as text:
        for count in (100, 1000, ROUTES):
            plot[count] = [load_times(build, Path(text), count) for _ in range(2 if quick else 5)]
    last = plot[ROUTES]
    rows = [paired(f"{ROUTES} routes loaded from the configuration", [(ours, batch) for ours, batch, _ in last],
                   "ip -batch", 1),
            paired("the same", [(ours, direct) for ours, _, direct in last], "raw netlink", None)]
    return rows, {count: [median(column) for column in zip(*times)] for count, times in plot.items()}


# --- statistics --------------------------------------------------------------------------------------------------
def sample_script(build: Path, folder: Path, count: int) -> str:
    """A board file, and veth devices named as interfaces of it, in pairs."""
    lines = "".join(f"link add lan{i % 4 + 1}_{i} type veth peer name lan{i % 4 + 2}_{i + 1}\n"
                    for i in range(0, count, 2))
    (folder / "devices").write_text(lines, encoding="utf-8")
    return f"mount --bind {folder}/etc /etc; ip -batch {folder}/devices\n"


def sample_syscalls(build: Path, folder: Path, count: int) -> tuple[float, float]:
    """(system calls of a sample without its reads, reads)."""
    totals = {}
    for times in (10, 20):
        apart(sample_script(build, folder, count) +
              f"strace -qq -o {folder}/trace {build}/bin/bench-parts samples {count} {times} 2> /dev/null")
        names = re.findall(r"^(\w+)\(", (folder / "trace").read_text(encoding="utf-8"), re.MULTILINE)
        totals[times] = (sum(name != "read" for name in names), sum(name == "read" for name in names))
    (few, few_reads), (many, many_reads) = totals[10], totals[20]
    return (many - few) / 10, (many_reads - few_reads) / 10


def sample_rows(build: Path, quick: bool, board: Path) -> tuple[list[Row], dict[int, tuple[float, float]]]:
    """Rows, and for the plot: interfaces -> (ours, limit)."""
    rows, plot, others = [], {}, {}
    with tempfile.TemporaryDirectory() as text:
        folder = Path(text)
        (folder / "etc").mkdir()
        (folder / "etc/board.json").write_bytes(board.read_bytes())
        for count in (8, 64, 512):
            said = apart(sample_script(build, folder, count) + f"{build}/bin/bench-parts compare-samples {count} "
                         f"{300 if quick else 3000} 2> /dev/null")
            ours, limit, ratio = figures(said)[f"sample.{count}"]
            plot[count] = (ours, limit)
            with contextlib.suppress(FileNotFoundError):
                others[count], reads = sample_syscalls(build, folder, count)
            rows.append(compared(f"statistics sample, {count} interfaces", ours, limit, "reading the file", 1.5, ratio,
                                 notes=[f"{count} interfaces: {others[count]:g} system calls and {reads:g} reads a "
                                        "sample"] if count in others else []))
    if others:
        rows.append(Row("its system calls but the reads, 8 / 64 / 512 interfaces",
                        " / ".join(f"{calls:g}" for calls in others.values()), aim="constant",
                        held="yes" if len(set(others.values())) == 1 else "no"))
    return rows, plot


# --- the emulated switch -----------------------------------------------------------------------------------------
def bridge_rate(build: Path, seconds: float) -> float:
    """Frames a second that a kernel bridge moves from one veth to another."""
    said = apart(f"""mount -t sysfs none /sys; ip link add br0 type bridge; ip link set br0 up
for n in one two; do
ip link add $n type veth peer name at-$n; ip link set at-$n master br0; ip link set $n up; ip link set at-$n up
done
ip link set one address 02:00:00:00:00:0a; ip link set two address 02:00:00:00:00:0b
{build}/bin/bench frames two 0.1 02:00:00:00:00:0a 02:00:00:00:00:0b > /dev/null
cat /sys/class/net/two/statistics/rx_packets
{build}/bin/bench frames one {seconds} 02:00:00:00:00:0b 02:00:00:00:00:0a
cat /sys/class/net/two/statistics/rx_packets""")
    before, line, after = said.strip().splitlines()
    return (int(after) - int(before)) / float(line.split()[2]) * 1e6

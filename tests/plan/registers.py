"""The switch's registers decoded once more: which front ports reach which, by the rules of the emulated switch.

Written beside the data sheet's table and not from ivarode-plan: a PVID of 12 bits for each front port, two in a
register; 16 entries with a VLAN of 12 bits, two in a register, and members of 8 bits, four in a register.
"""

Registers = dict[int, int]
FRONT = range(5)
PVID, VLAN, MEMBERS = 0x40, 0x50, 0x70


def field(registers: Registers, first: int, index: int, in_one: int, bits: int) -> int:
    return registers.get(first + 4 * (index // in_one), 0) >> (bits * (index % in_one)) & ((1 << bits) - 1)


def table(registers: Registers) -> list[tuple[int, set[int]]]:
    """VLAN and member ports of each entry."""
    rows = []
    for index in range(16):
        bits = field(registers, MEMBERS, index, 4, 8)
        rows.append((field(registers, VLAN, index, 2, 12), {port for port in range(8) if bits >> port & 1}))
    return rows


def joined(registers: Registers) -> list[list[int]]:
    """Pairs of front ports of which one reaches the other, with a tag or without."""
    first: dict[int, set[int]] = {}
    for vlan, members in table(registers):
        if vlan or members:
            first.setdefault(vlan, members)
    pairs = set()
    for port in FRONT:
        own = field(registers, PVID, port, 2, 12)
        for vlan in {own, *(vlan for vlan in first if vlan)}:
            if port in first.get(vlan, ()):
                pairs |= {tuple(sorted((port, other))) for other in first[vlan] if other in FRONT and other != port}
    return sorted(list(pair) for pair in pairs)


def after_each_write(plan: dict) -> list[tuple[int, list[list[int]]]]:
    """(number of the write, joined ports) where they differ from before, phase by phase."""
    registers: Registers = {}
    write, steps = 0, []
    for phase in plan["phases"]:
        steps.append((write, joined(registers)))
        for operation in phase["operations"]:
            for fact in operation["changes"]:
                words = fact.removeprefix("-").split()
                if words[0] == "switch":
                    registers[int(words[1], 16)] = int(words[3], 16) if len(words) > 3 else 0
            if operation["call"] in ("switch_write", "mtklib_cpu_reg_wr"):
                write += 1
                if (now := joined(registers)) != steps[-1][1]:
                    steps.append((write, now))
    return steps

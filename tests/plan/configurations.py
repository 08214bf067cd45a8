"""Configurations at random, good and broken, as files of a router."""

import random
from collections.abc import Iterator

from tests.plan.scenario_files import Files

PORTS = (
    ((1, "lan"), (2, "lan"), (3, "lan"), (4, "lan"), (0, "wan")),
    ((1, "lan"), (2, "lan"), (3, "lan"), (4, "lan,wan"), (0, "wan")),
    ((4, "lan"), (3, "lan"), (2, "lan,wan"), (1, "wan"), (0, "wan")),
    ((5, "lan"), (1, "lan"), (7, "wan"), (0, "wan")),
    ((6, "lan"), (1, "lan"), (0, "wan")),
    ((0, "wan"), (1, "wan")),
)
TWO_CPU_PORTS = "c7a6e2d1"

Options = dict[str, tuple[tuple[str, ...], tuple[str, ...]]]    # good values, and odd ones

COMMON: Options = {
    "enable": (("1", "0"), ("yes", "2")),
    "vlanid1": (("100", "200", "4089", "65535"), ("0", "4092", "4095", "5000", "65636", "none", "-1")),
    "vlanid2": (("7", "4094"), ("0", "4095", "65535")),
    "mac": (("02:00:5e:00:53:01",), ("03:00:5e:00:53:01", "nonsense", "2:0:5e:0:53:1", "00:00:00:00:00:00")),
}
ADDRESSES: Options = {
    "ipaddr": (("192.168.1.1", "10.0.0.2", "0.0.0.0"), ("192.168.1", "", "192.168.1.256", "home")),
    "netmask": (("255.255.255.0", "255.0.0.0"), ("0.0.0.0", "255.0.255.0", "24", "none")),
}
WAN: Options = {
    "proto": (("static", "dhcp", "pppoe"), ("l2tp", "dhcpv6", "stati", "PPPOE")),
    "gateway": (("203.0.113.1", "0.0.0.0"), ("there", "a b", "203.0.113.1;")),
    "defrt_pri": (("20001", "20002"), ("1", "40000", "high")),
    "username": (("user@isp",), ("a b", "it's", 'a "b c"', "it\\'s")),
    "password": (("secret",), ('two" words', "'q'")),
    "server": (("internet",), ("x y",)),
}
LAN_NAMES = ("lan1", "lan2", "lan2_guest", "lan3", "lan3_default", "lan2_b")
WAN_NAMES = ("wan1", "wan2", "wan1_tv", "wan1_default")
ODD_NAMES = ("lan0", "lan9", "lan", "guest", "lan1_a_long_name", "lan1_more_letters_than_31_in_it_all",
             "wan0", "wan5", "wan1_a_longer_", "WAN1")


class Generator:
    """The same seed makes the same files."""

    def __init__(self, seed: int) -> None:
        self.random = random.Random(seed)
        self.odd = self.random.choice((0, 0, 0.05, 0.2))   # how much is odd in these files

    def is_odd(self) -> bool:
        return self.random.random() < self.odd

    def section(self, name: str, options: Options) -> str:
        lines = [f"config interface '{name}'"]
        for option, (good, odd) in options.items():
            if self.random.random() < (0.2 if option.startswith("vlanid") or option == "mac" else 0.6):
                text = self.random.choice(odd if self.is_odd() else good)
                quote = '"' if "'" in text and '"' not in text else "'"
                text = text.replace("'", "'\\''") if quote == "'" else text.replace("\\", "\\\\")
                lines.append(f"\toption {option} {quote}{text}{quote}")
        return "\n".join(lines) + "\n"

    def sections(self, names: tuple[str, ...], options: Options) -> str:
        chosen = self.random.sample(names, self.random.randrange(4))
        if self.is_odd():
            chosen.append(self.random.choice(ODD_NAMES))
        if self.random.random() < self.odd / 3:
            chosen += [f"{names[1]}_{letter}" for letter in "cdefghijklmn"]
        return "".join(self.section(name, options) for name in dict.fromkeys(chosen))

    def files(self) -> Files:
        shape = self.random.choice(PORTS[3:] if self.is_odd() else PORTS[:3])
        devices: list[dict[str, object]] = [{"num": 6, "device": "eth0"}]
        two = self.random.random() < 0.3
        if two and not self.is_odd():
            devices.append({"num": 5, "device": "eth1"})
        ports = devices + [{"num": number, "role": role} for number, role in shape]
        board = {"system": {"label_macaddr": "00:0c:43:10:20:30"}, "switch": {"switch0": {"ports": ports}},
                 "ivarode": {"cpuid": TWO_CPU_PORTS if two else "1"}}
        packages = {"lan_intf": self.sections(LAN_NAMES, COMMON | ADDRESSES),
                    "wan_intf": self.sections(WAN_NAMES, COMMON | ADDRESSES | WAN), "route_config": ""}
        if self.is_odd() and self.is_odd():
            del packages[self.random.choice(list(packages))]
        return Files(board, packages)


def some(count: int, first: int = 0) -> Iterator[Files]:
    for seed in range(first, first + count):
        yield Generator(seed).files()

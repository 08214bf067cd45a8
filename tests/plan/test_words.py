"""What a plan says in words, and that it says all: no fact of the world changes without an operation that is named."""

import pathlib

import pytest

from tests.plan import planning


def key(fact: str) -> str:
    return fact.removeprefix("-").partition(" = ")[0]


EVERYTHING = [
    *planning.call("port_add", name="lan2"),
    *planning.call("config", intf="lan2_new", old_intf="lan2_default", proto="static", ipaddr="192.168.9.1",
                   netmask="255.255.255.0", mac="02:00:00:00:00:01"),
    *planning.call("add", intf="wan1_b", vlanid1=300, proto="pppoe", defrt_pri="20005", username="u",
                   password="secret word", ipaddr="isp"),
    "--link", "0=up", "--link", "0=down", "--address", "203.0.113.9",
    "--call", 'ivarode.route add {"name":"r1","line":"main","dstaddr":"10.0.0.0","netmask":"255.0.0.0",'
              '"gateway":"192.168.1.9","metric":"5"}',
    "--call", 'ivarode.pppuser add {"username":"joe","provider":"isp","password":"hidden","ipaddr":"10.0.0.9"}',
    "--call", 'ivarode.pppauth notify {"type":"pptp","username":"joe","action":"up","ipaddr":"10.0.0.9",'
              '"dial_ip":"198.51.100.77"}',
    *planning.call("del", intf=["wan1_b", "lan2_new"]),
    "--call", 'ivarode.pppuser del {"username":"joe","provider":"isp"}',
    *planning.call("port_del", name="lan2"),
]


@pytest.mark.parametrize("sample", planning.SAMPLES, ids=planning.label)
def test_every_change_belongs_to_an_operation(sample: tuple[pathlib.Path, pathlib.Path]) -> None:
    board, config = sample
    told = planning.plan("--board", board, "--config", config, *EVERYTHING)
    for phase in told["phases"]:
        named = {key(fact) for operation in phase["operations"] for fact in operation["changes"]}
        assert {key(fact) for fact in phase["changes"]} <= named, phase["said"]
    assert len(told["phases"][0]["changes"]) > 60


def test_a_start_in_words() -> None:
    start = planning.plan(*planning.SAMPLE)["phases"][0]
    assert planning.operations(start, "kernel")[:8] == [
        "eth0: up", "create VLAN device eth0.4091", "eth0.4091: MAC 02:0c:43:10:20:30", "eth0.4091: up",
        "create bridge lan1", "lan1: up", "bridge lan1: member eth0.4091 joins", "lan1: up"]
    switch = planning.operations(start, "switch")
    assert [words for words in switch if "as before" not in words][-10:] == [
        "entry 3: port 3 in", "entry 3: port CPU in", "port 0: PVID 4090 (was 0)", "entry 0: port 0 in",
        "entry 0: port CPU in", *(f"port {port}: PHY on, finds its mode" for port in range(5))]
    assert planning.operations(start, "firewall")[:3] == [
        "mangle: PREROUTING gets -m conntrack  --ctstate RELATED,ESTABLISHED -j ACCEPT",
        "mangle: new chain ipt_prert_mangle_rules_1", "mangle: PREROUTING gets -j ipt_prert_mangle_rules_1"]
    assert "nat: intf_sip_mesquerade gets -j MASQUERADE" in planning.operations(start, "firewall")
    assert planning.operations(start, "files") == [
        "row of wan1: static, address 203.0.113.2, netmask 255.255.255.0, gateway 203.0.113.1"]
    assert planning.operations(start, "time") == ["wait 5 s"]
    assert [message["text"] for message in start["messages"] if message["level"] == "notice"] == [
        "ivarode init success"]


def test_requests_in_words() -> None:
    told = planning.plan(*planning.SAMPLE, *EVERYTHING)
    phases = {phase["said"].split(" {")[0] + phase["kind"][:1]: phase for phase in told["phases"]}
    assert [phase["said"] for phase in told["phases"] if phase["refused"]] == []
    assert "delete bridge lan2_default" in planning.operations(phases["ivarode.intf configc"], "kernel")
    assert planning.operations(phases["ivarode.route addc"], "kernel") == [
        "route 10.0.0.0/255.0.0.0 via 192.168.1.9, metric 5, table 10000"]
    assert planning.operations(phases["ivarode.pppuser addc"], "files") == [
        "account joe of provider isp, address 10.0.0.9"]
    assert planning.operations(phases["ivarode.pppuser delc"], "files") == ["delete account joe of provider isp"]
    database = planning.operations(phases["ivarode.pppauth notifyc"], "files")
    assert database[0].startswith("open database ") and any("joe" in words for words in database[1:])


@pytest.mark.parametrize("form", [(), ("--json",)], ids=["person", "programs"])
def test_passwords_are_left_out(form: tuple[str, ...]) -> None:
    """Those of the configuration and of requests; the request itself stands as it was typed."""
    shown = planning.run("--board", planning.ROOT / "lab/boards/two-wan.json", "--config",
                         planning.ROOT / "lab/configs/dhcp-and-pppoe", *form).stdout
    assert "secret2" not in shown and shown.count("password (password) mtu") >= 2
    shown = planning.run(*planning.SAMPLE, *form, *EVERYTHING).stdout
    assert shown.count("secret word") == 1 and shown.count("hidden") == 1


def test_the_end_is_drawn() -> None:
    text = planning.run(*planning.SAMPLE, *planning.call("port_add", name="lan2")).stdout
    end = text[text.index("the end\n"):]
    for line in ("  │    port 0    │ │    port 1    │ │    port 2    │ │    port 3    │ │    port 4    │",
                 "  │    WAN 1     │ │    LAN 1     │ │    LAN 2     │ │    LAN 3     │ │    LAN 4     │",
                 "  │  PVID 4090   │ │  PVID 4091   │ │  PVID 4092   │ │  PVID 4093   │ │  PVID 4091   │",
                 "  │     wan1     │ │     lan1     │ │ lan2_default │ │     lan3     │ │     lan1     │",
                 "      1  4091  1 4 CPU            1 4",
                 "  11 entries free for VLANs of the user",
                 "  lan2_default     up     -                   00:0c:43:10:20:31  eth0.4092",
                 "  wan1             up     203.0.113.2/24      -                  eth0.4090, default via 203.0.113.1 "
                 "(table 20001)",
                 "  rule 10000 = lookup 10000",
                 "  wan wan1 = static 203.0.113.2 255.255.255.0 203.0.113.1 0.0.0.0 0.0.0.0"):
        assert line + "\n" in end, end


def test_rewritten_registers_are_not_shown_to_a_person() -> None:
    assert "as before" not in planning.run(*planning.SAMPLE).stdout

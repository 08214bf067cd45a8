"""Small changes of the daemon, each of which the replay of a recorded life must find at the first call that differs."""
from collections.abc import Iterator
from concurrent.futures import Executor
from pathlib import Path
from typing import NamedTuple

from labctl import recordings
from tests.conformance.altered import altered_daemon
from tests.conformance.recording import Board, record, temporary_folder
from tests.conformance.replaying import Recorded
from tests.conformance.scenario import load, load_fixtures

HERE = Path(__file__).resolve().parent


class Alteration(NamedTuple):
    source: str
    old: str
    new: str
    recorded: str       # how the first difference begins: as it was,
    now: str            # and as it is


ALTERATIONS = (
    Alteration("core/main.cpp", "sibling_timeout = 30;", "sibling_timeout = 31;",
               'ubuslib_task_status_wait("ombrine.run", 30) = 0', 'ubuslib_task_status_wait("ombrine.run", 31)'),
    Alteration("netintf/bridge.cpp", "if (!netintf_mac_is_zero(mac) &&", "if (netintf_mac_is_zero(mac) &&",
               'netlib_eth_intf_up("lan1")', 'netlib_eth_mac_set("lan1", 00:00:00:00:00:00)'),
    Alteration("netintf/port_add.cpp", "proto_static, port, mac, vlan_none, vlan_none, 1)",
               "proto_pppoe, port, mac, vlan_none, vlan_none, 1)",
               'netlib_br_create("lan2_default")', 'netlib_br_create("lan2_default_pe")'),
    Alteration("board/vlan_table.cpp", "members | port_bit(hw_port)", "members & port_bit(hw_port)",
               "switch_write(0x70, 0x00000200)", "switch_write(0x70, 0x00000000)"),
    Alteration("netintf/proto_link.cpp", "return device_of(entry, netlib_eth_intf_up);",
               "return device_of(entry, netlib_eth_intf_down);",
               'netlib_eth_intf_up("', 'netlib_eth_intf_down("'),
    Alteration("route/address_event.cpp", "if (entry->enable == 1)", "if (entry->enable != 1)",
               "netlib_rt_add_gw(", "returned 0"),
    Alteration("netintf/statist.cpp", "tx_bytes_number = 8;", "tx_bytes_number = 7;", "reply({", "reply({"),
    Alteration("netintf/statist.cpp", "rate_divisor = 3;", "rate_divisor = 2;", "reply({", "reply({"),
    Alteration("ppp/pppuser.cpp", "cslib_entry_add(username, provider, password, ipaddr)",
               "cslib_entry_add(provider, username, password, ipaddr)",
               'cslib_entry_add("bob", "isp", ', 'cslib_entry_add("isp", "bob", '),
    Alteration("route/table.cpp", "atoi(texts.metric) : 0", "atoi(texts.metric) + 1 : 0",
               "netlib_rt_add_gw(", "netlib_rt_add_gw("),
    Alteration("board/vlan_table.cpp", "members &= ~port_bit(hw_port);", "members |= port_bit(hw_port);",
               "switch_write(0x70, 0x00001c00)", "switch_write(0x70, 0x00001e00)"),
)


def complaint(board: Board, recording: Path, folder: Path, number: int) -> str:
    one = ALTERATIONS[number]
    own = folder / str(number)
    own.mkdir()
    verdict = recordings.play(recording, altered_daemon(board.build, one.source, one.old, one.new, own))
    said = [line.split(": ", 1)[1].strip() for line in verdict.text.splitlines()[-2:]] if not verdict.same else []
    if len(said) == 2 and said[0].startswith(one.recorded) and said[1].startswith(one.now):
        return ""
    return f"{one.source}: {one.old} -> {one.new}: {verdict.text}"


def row_of_questions(board: Board) -> str:
    """Samples and questions in a long row, with a change now and then: most are left out, and the rest is played.

    What is wrong, empty for nothing."""
    fixtures = load_fixtures(HERE / "fixtures.txt")
    with temporary_folder() as text:
        folder = Path(text)
        story = ["=== a row of questions", "use one-wan-board, lan-and-dhcp-wan", "> link 1 up", "..."]
        for number in range(400):
            table = ["Inter-", "face", f"lan1: {number * number} 0 0 0 0 0 0 0 {number * 7} 0"]
            story += ["> netdev", *("    " + line for line in table), "> timer", "..."]
            story += ["> call ivarode.intf statist", "..."] * (number % 5)
            if number % 150 == 149:
                story += ['> call ivarode.intf port_add {name: "lan2"}', "...",
                          '> call ivarode.intf port_del {name: "lan2"}', "..."]
        (folder / "story.txt").write_text("\n".join(story) + "\n")
        (scenario,) = load(folder / "story.txt", fixtures)
        recorded = Recorded(board, folder)
        record(recorded, scenario, folder)
        verdict = recordings.play(recorded.recordings[0])
        left_out = sum(int(one.text) for one in recordings.records(recorded.recordings[0]) if one.kind == "left-out")
        events = sum(one.kind == "event" for one in recordings.records(recorded.recordings[0]))
    if left_out + events != len(scenario.steps) - 400 or left_out < 500:
        return f"a row of questions: {left_out} left out and {events} events of {len(scenario.steps) - 400}"
    return "" if verdict.same else f"a row of questions: {verdict.text}"


def find_all(board: Board, pool: Executor) -> Iterator[str]:
    """For each alteration a complaint, empty for one that is found where it shows first."""
    (scenario,) = load(HERE / "story.txt", load_fixtures(HERE / "fixtures.txt"))
    with temporary_folder() as text:
        folder = Path(text)
        recorded = Recorded(board, folder)
        record(recorded, scenario, folder)
        verdict = recordings.play(recorded.recordings[0])
        yield row_of_questions(board) or ("" if verdict.same else f"the daemon that is built: {verdict.text}")
        yield from pool.map(lambda number: complaint(board, recorded.recordings[0], folder, number),
                            range(len(ALTERATIONS)))

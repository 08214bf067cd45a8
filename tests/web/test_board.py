"""The page on the virtual board: sees what happens there, and makes it happen; registers and frames agree."""

from __future__ import annotations

import pathlib
import re
import signal
import subprocess
import urllib.request

from labctl import paths
from tests.system import bus
from tests.system.held_lab import Lab
from tests.web.browser import Browser

SEEN = 2        # seconds until a cable is seen, where nothing else has the machine
LATE = 60       # for what takes the router a while


def switch(board: Lab) -> dict[int, list[int]]:
    """VLAN to members, of the entries in use, as the registers say."""
    found = board.run("router", "ivarodectl", "switch", "--json", check=True).json()
    return {one["vid"]: one["members"] for one in found["vlans"] if one["members"]}


def drawn(page: Browser) -> dict[int, str]:
    """VLAN to its members, as the picture says."""
    found = (re.search(r"number (\d+), ports (.*), interfaces", label) for label in page.labels("[id^=vlan-]"))
    return {int(one[1]): one[2] for one in found if one}


def agrees(page: Browser, board: Lab) -> bool:
    table = {vid: " ".join("CPU" if port > 4 else str(port) for port in members)
             for vid, members in switch(board).items()}
    return drawn(page) == table


def link(port: int, up: bool) -> str:
    label = f"document.querySelector('#port-{port}').getAttribute('aria-label')"
    return f"{label}.includes('no link') === {'false' if up else 'true'}"


def test_the_command_serves_until_it_is_ended(board: Lab) -> None:
    words = [str(paths.LAB / "lab"), "--name", board.name, "web"]
    with subprocess.Popen(words, stdout=subprocess.PIPE, text=True, preexec_fn=interruptible) as command:
        try:
            assert command.stdout is not None
            address = command.stdout.readline().split()[-1]
            assert re.fullmatch(r"http://127\.0\.0\.1:\d+/ivarode/#[0-9a-f]{32}", address)
            with urllib.request.urlopen(address, timeout=LATE) as answer:
                assert b"app.js" in answer.read()
            command.send_signal(signal.SIGINT)
            assert command.wait(LATE) == 130
        finally:
            command.kill()


def interruptible() -> None:
    """A run in the background ignores interrupts, and hands that on."""
    signal.signal(signal.SIGINT, signal.SIG_DFL)


def test_a_cable_pulled_on_the_board_is_seen(page: Browser, board: Lab) -> None:
    page.until(link(4, True), LATE)
    board.link(4, False)
    try:
        page.until(link(4, False), SEEN * 10)
        page.until("document.querySelector('#live').textContent === 'port 4: link lost'", LATE)
    finally:
        board.link(4, True)
    page.until(link(4, True), LATE)


def test_a_cable_is_pulled_by_a_click_and_frames_stop(page: Browser, board: Lab) -> None:
    page.click("#ping")
    page.until("document.querySelector('#pong').dataset.state === 'answer'", LATE)
    page.click("#cable-1")
    page.until("document.querySelector('#pong').dataset.state === 'lost'", LATE)
    assert not board.run("pc1", "busybox", "ping", "-c", "1", "-W", "1", "192.168.1.1")
    page.until(link(1, False), LATE)
    page.click("#cable-1")
    page.until("document.querySelector('#pong').dataset.state === 'answer'", LATE)
    page.click("#stop")


def test_a_stream_is_seen_in_the_rates(page: Browser) -> None:
    page.click("#stream")
    page.until("[...document.querySelectorAll('.card')].filter((one) => /[1-9].* [kM]bit/.test("
               "one.querySelector('span.rx').textContent)).length >= 2", LATE)
    page.click("#stop")


def test_a_port_gets_a_lan_and_is_taken_back(page: Browser, board: Lab) -> None:
    assert drawn(page)[4091] == "1 2 4 CPU" and agrees(page, board)
    page.click("#port-2")
    page.until("document.querySelector('#own-lan2') !== null", LATE)
    page.click("#own-lan2")
    page.until("document.querySelector('.steps') !== null", LATE)
    plan = page.text(".planned")
    assert "Port 1 and Port 2 no longer reach each other" in plan and "create bridge lan2_default" in plan
    assert switch(board)[4091] == [1, 2, 4, 6]
    page.click("#send")
    page.until("!document.querySelector('#dialog').open", LATE)
    page.wait(lambda: drawn(page).get(4092) == "2 CPU", LATE, "the picture of port 2's LAN")
    assert drawn(page)[4091] == "1 4 CPU" and agrees(page, board)
    assert page.text("#activity .good").startswith("ubus call ivarode.intf port_add '{\"name\":\"lan2\"}'")
    page.click("#back-lan2")
    page.until("document.querySelector('.steps, .planned .warn') !== null", LATE)
    page.click("#send")
    page.until("!document.querySelector('#dialog').open", LATE)
    page.wait(lambda: drawn(page).get(4091) == "1 2 4 CPU", LATE, "the picture of before")
    assert agrees(page, board)


def test_a_route_is_added(page: Browser, board: Lab) -> None:
    page.click("#tab-routes")
    page.click("#addRoute")
    for field, text in (("name", "web"), ("dstaddr", "192.0.2.0"), ("netmask", "255.255.255.0"),
                        ("gateway", "203.0.113.1"), ("line", "wan1"), ("metric", "10")):
        page.write(f"#field-{field}", text)
    page.until("document.querySelector('[data-warning=routeOnly]') !== null", LATE)
    page.click("#send")
    page.until("!document.querySelector('#dialog').open", LATE)
    installed = board.ok("router", "ip", "route", "show", "table", "10000")
    assert installed.split()[:3] == ["192.0.2.0/24", "via", "203.0.113.1"]
    page.until("document.querySelector('#panel').textContent.includes('192.0.2.0/24203.0.113.1wan110installed')", LATE)
    bus.route(board, "del", name=["web"])


def test_a_refused_call_shows_what_the_daemon_says(page: Browser, board: Lab) -> None:
    bus.call(board, "ivarode.pppuser", "add", username="carol", provider="*", password="x", ipaddr="*")
    page.click("#tab-users")
    page.until("document.querySelector('#panel th[scope=row]')?.textContent === 'carol'", LATE)
    page.click("#panel td button")
    bus.call(board, "ivarode.pppuser", "del", username="carol", provider="*")
    page.click("#send")
    page.until("document.querySelector('.answer').textContent === 'Failed: status 9, unknown error.'", LATE)
    page.keys("\ue00c")


def test_why_an_interface_is_as_it_is(page: Browser, board: Lab) -> None:
    page.click(".card h3 button")
    page.until("document.querySelectorAll('.chain .ok').length > 5", LATE)
    board.link(3, False)
    try:
        page.click("#port-3")
        page.until("document.querySelector('.chain .failed') !== null", LATE)
    finally:
        board.link(3, True)


def test_the_log_is_explained(page: Browser, board: Lab) -> None:
    assert not board.run("router", "ubus", "call", "ivarode.intf", "port_add", '{"name":"lan9"}')
    page.click("#tab-log")
    page.until("[...document.querySelectorAll('.log li')].some((one) => one.textContent.includes("
               "'lan 9 get hw port error') && one.querySelector('span').textContent.length > 10)", LATE)


def test_the_broker_goes_and_comes(page: Browser, board: Lab) -> None:
    board.ok("agent", "stop", "broker")
    try:
        page.until("document.body.className === 'old' && document.querySelector('#state').textContent.length > 5", LATE)
        assert page.run("return document.querySelectorAll('[id^=port-]').length") == 5
    finally:
        board.ok("agent", "start", "broker")
    page.until("document.querySelector('#state').textContent === 'live' && document.body.className === ''", LATE)


def test_a_recording_is_played_with_a_slider(page: Browser, board: Lab, recording: pathlib.Path) -> None:
    """Its board takes the place of the one before."""
    page.run("document.querySelector('#recording').closest('details').open = true")
    page.upload("#recording", recording)
    page.click("#play")
    page.wait(lambda: re.match(r"\d+ events\. the same, ", page.text("#played")), 3 * LATE * board.pace,
              "the end of the recording")
    move = "const slider = document.querySelector('#moment'); slider.value = arguments[0]; " \
           "slider.dispatchEvent(new Event('input')); return document.querySelector('#said').textContent"
    count = int(page.text("#played").split()[0])
    said = [page.run(move, at).partition(" ")[2] for at in range(count)]
    assert sorted(said[:5]) == [f"link {port} up" for port in range(5)]
    assert [text.partition(" {")[0] for text in said[5:]] == \
        ["call ivarode.intf port_add", "link 4 down", "link 4 up", "call ivarode.intf port_del"]
    page.run(move, 6)
    page.until(link(4, False), LATE)
    page.wait(lambda: drawn(page).get(4092) == "2 CPU", LATE, "the picture of port 2's LAN")
    page.run(move, count)
    page.until(f"{link(4, True)} && document.querySelector('#state').textContent === 'live'", LATE)
    page.wait(lambda: 4092 not in drawn(page) and agrees(page, board), LATE, "the board now")

"""The page in a browser, before a bus that answers as a test wants: what it shows, warns of and stands."""

from __future__ import annotations

import gzip
import io
import json
import pathlib
import tarfile
from collections.abc import Iterator
from typing import Any

import pytest

from labctl.web import pages
from labctl.web.jsonrpc import Answer, Refusal
from tests.web import fake
from tests.web.browser import Browser
from tests.web.running import serving

SOON = 20       # seconds, on a machine with other things to do
TAB, ENTER, LEFT, RIGHT, ESCAPE = "\ue004", "\ue007", "\ue012", "\ue014", "\ue00c"


class Shown:
    """The page of a router that the test holds in its hands."""

    def __init__(self, browser: Browser, router: fake.Router, url: str) -> None:
        self.browser, self.router, self.url = browser, router, url

    def open(self, token: str = fake.TOKEN) -> Browser:
        self.browser.open(f"{self.url}#{token}")
        self.browser.until("document.querySelector('#port-0') !== null", SOON)
        return self.browser


@pytest.fixture
def shown(window: Browser) -> Iterator[Shown]:
    router = fake.Router()
    with serving(fake.server(router)) as server, window.fast():
        yield Shown(window, router, server.url)
        window.open("about:blank")


def texts(browser: Browser, selector: str) -> list[str]:
    return browser.run("return [...document.querySelectorAll(arguments[0])].map((one) => one.textContent)", selector)


def test_the_board_is_drawn_in_the_order_of_the_case(shown: Shown) -> None:
    page = shown.open()
    labels = page.labels("[id^=port-]")
    assert labels[0] == "Port 0, WAN 1, 1 G full, VLAN A, PVID 4090" and len(labels) == 5
    assert labels[3] == "Port 3, LAN 3, 1 G full, VLAN C, PVID 4093"
    rails = page.labels("[id^=vlan-]")
    assert rails[1] == "VLAN B, number 4091, ports 1 2 4 CPU, interfaces lan1"
    assert rails[3] == "VLAN D, number 100, ports 3 CPU, interfaces lan3_guest"
    assert page.run("return new Set([...document.querySelectorAll('.track')].map((one) => "
                    "getComputedStyle(one).stroke + getComputedStyle(one).strokeDasharray)).size") == 4


def test_what_belongs_together_lights_up(shown: Shown) -> None:
    page = shown.open()
    page.run("document.querySelector('#port-3').focus()")
    lit = "return [...document.querySelectorAll('[id].lit')].map((one) => one.id)"
    assert page.run(lit) == ["port-3", "vlan-3", "vlan-5"]
    assert texts(page, ".card.lit h3 button") == ["lan3", "lan3_guest"]
    page.run("document.querySelector('#vlan-1').focus()")
    assert page.run(lit) == ["port-1", "port-2", "port-4", "vlan-1"]
    page.run("document.activeElement.blur(); document.querySelector('#tab-log').focus()")
    assert page.run("return document.querySelector('.lit')") is None


def test_interfaces_have_their_rates(shown: Shown) -> None:
    page = shown.open()
    assert texts(page, ".card h3 button") == ["lan1", "lan3", "lan3_guest", "wan1"]
    shown.router.status["interfaces"][3]["rx_bytes"] = 10**9
    page.until("/[MG]bit/.test(document.querySelectorAll('.card')[3].querySelector('span.rx').textContent)", SOON)
    page.until("document.querySelectorAll('.card')[3].querySelector('path.rx') !== null", SOON)


def test_tables(shown: Shown) -> None:
    page = shown.open()
    assert texts(page, "#panel tbody tr:nth-child(2) > *") == ["B 1", "4091", "1 2 4 CPU", "1 2 4", "lan1"]
    page.click("#tab-routes")
    assert texts(page, "#panel tbody > tr:first-child > *")[:6] == \
        ["branch", "10.0.0.0/8", "192.168.1.254", "auto", "5", "missing"]
    page.click("#tab-firewall")
    assert "-j inner3 packets, 180 B" in page.text(".tree") and "-j DROP0 packets, 0 B" in page.text(".tree")
    page.click("#tab-users")
    assert texts(page, "#panel tbody th") == ["alice"]


def test_routes_that_are_hidden_or_made_over_the_bus(shown: Shown) -> None:
    """The log knows the names of those that the configuration does not have."""
    made = {"table": 10000, "destination": "10.0.0.0/8", "gateway": "192.168.3.9", "device": "lan3", "metric": 5}
    shown.router.status["routes"].append(made)
    shown.router.answers["ivarode.view", "log"] = Answer(0, {"lines": [
        f"1 info ivarode[3]: cfg_name={name} line=lan3 dstaddr=10.0.0.0 netmask=255.0.0.0 gateway=192.168.3.9 "
        f"metric={metric} enable=1\\n" for name, metric in (("older", 5), ("by hand", 5), ("other", 6))]})
    page = shown.open()
    page.click("#tab-routes")
    page.until("document.querySelector('#panel').textContent.includes('by hand')", SOON)
    rows = [texts(page, f"#panel tbody tr:nth-child({at}) > *") for at in (1, 2)]
    assert [(row[0], row[5]) for row in rows] == [("branch", "hidden by (made over the bus)"),
                                                  ("by hand (made over the bus)", "installed")]
    page.click("[id='removeRoute-by hand']")
    page.click("#send")
    page.until("!document.querySelector('#dialog').open", SOON)
    assert shown.router.calls == [("ivarode.route", "del", {"name": ["by hand"]})]


def test_a_route_without_a_name_is_asked_for_it(shown: Shown) -> None:
    shown.router.status["static_routes"] = []
    shown.router.status["routes"].append({"table": 10000, "destination": "10.0.0.0/8", "gateway": "192.168.3.9",
                                          "device": "lan3", "metric": 5})
    page = shown.open()
    page.click("#tab-routes")
    page.click("#removeRoute")
    assert page.run("return document.querySelector('#send').disabled") is True
    page.write("#field-name", "mine")
    page.click("#send")
    page.until("!document.querySelector('#dialog').open", SOON)
    assert shown.router.calls == [("ivarode.route", "del", {"name": ["mine"]})]


def test_a_sample_is_three_calls_at_most(shown: Shown) -> None:
    shown.open()
    begun = len(shown.router.asked)
    shown.browser.wait(lambda: shown.router.asked[begun:].count(("ivarode.view", "status")) > 5, SOON, "five samples")
    asked = shown.router.asked[begun:]
    first, *_, last = (at for at, one in enumerate(asked) if one == ("ivarode.view", "status"))
    samples = asked[first:last].count(("ivarode.view", "status"))
    assert set(asked) == {("ivarode.view", "status"), ("ivarode.intf", "status")}
    assert last - first <= 3 * samples


def test_what_is_wrong_is_said(shown: Shown) -> None:
    problem = {"subject": "wan1", "check": "cable", "sentence": "no link", "remedy": "plug it"}
    shown.router.status["problems"] = [problem]
    page = shown.open()
    assert texts(page, "#about .warn") == ["wan1: no link plug it"]


def test_messages_of_the_log_are_explained(shown: Shown) -> None:
    shown.router.answers["ivarode.view", "log"] = Answer(0, {"lines": ["1 err ivarode[3]: lan 9 get hw port error\\n"]})
    shown.router.answers["ivarode.view", "messages"] = Answer(0, {"messages": [
        ["%s error", "too short"], ["lan %d get hw port error", "correct the name"]]})
    page = shown.open()
    page.click("#tab-log")
    page.until("document.querySelector('.log span')?.textContent === 'correct the name'", SOON)
    assert texts(page, ".log code") == ["1 err ivarode[3]: lan 9 get hw port error"]


def test_keyboard_alone(shown: Shown) -> None:
    page = shown.open()
    page.run("document.querySelector('#tab-switch').focus()")
    page.keys(RIGHT)
    assert page.run("return document.activeElement.id") == "tab-routes"
    assert page.run("return document.querySelector('#tab-routes').getAttribute('aria-selected')") == "true"
    page.run("document.querySelector('#port-1').focus()")
    page.keys(TAB, ENTER)
    page.until("document.querySelector('#side-head').textContent === 'Port 2'", SOON)
    page.keys(TAB, TAB, TAB)
    assert page.run("return document.activeElement.id") == "vlan-0"
    page.run("document.querySelector('#add').focus()")
    page.keys(ENTER)
    page.until("document.querySelector('#dialog').open && document.activeElement.id === 'field-intf'", SOON)
    page.keys(*"lan2_x", ESCAPE)
    page.until("!document.querySelector('#dialog').open && document.activeElement.id === 'add'", SOON)


def test_the_focus_survives_a_sample(shown: Shown) -> None:
    page = shown.open()
    page.run("document.querySelector('#port-2').focus(); document.querySelector('#port-2').mark = true")
    shown.router.status["ports"][4]["link"] = False
    page.until("document.querySelector('#live').textContent === 'port 4: link lost'", SOON)
    assert page.run("return [document.activeElement.id, document.activeElement.mark]") == ["port-2", True]


# --- forms -------------------------------------------------------------------------------------------------------


def test_a_form_checks_and_sends(shown: Shown) -> None:
    page = shown.open()
    page.click("#add")
    page.write("#field-intf", "lan2_guest")
    page.write("#field-vlanid1", "200")
    page.write("#field-ipaddr", "192.168.200")
    page.write("#field-netmask", "255.0.255.0")
    assert page.text("#field-ipaddr-note") == "is no IPv4 address" and page.text("#field-netmask-note") == "is no mask"
    assert page.run("return document.querySelector('#send').disabled") is True
    page.write("#field-ipaddr", "192.168.200.1")
    page.write("#field-netmask", "255.255.255.0")
    page.click("#send")
    page.until("!document.querySelector('#dialog').open", SOON)
    args = {"intf": "lan2_guest", "vlanid1": 200, "ipaddr": "192.168.200.1", "netmask": "255.255.255.0"}
    assert shown.router.calls == [("ivarode.intf", "add", args)]
    said = page.text("#activity .good")
    assert said.startswith("ubus call ivarode.intf add '{") and said.endswith("status 0")
    assert json.loads(said.split("'")[1]) == args


@pytest.mark.parametrize("name", ["lan9_x", "eth0", "lan", "lan2_abcdefghijk", "lan2 x"])
def test_names_that_would_hang_the_daemon_are_not_sent(shown: Shown, name: str) -> None:
    page = shown.open()
    page.click("#add")
    page.write("#field-intf", name)
    assert page.text("#field-intf-note") != "" and page.run("return document.querySelector('#send').disabled") is True


def test_a_refused_call_shows_status_and_text(shown: Shown) -> None:
    shown.router.answers["ivarode.pppuser", "del"] = Answer(9)
    page = shown.open()
    page.click("#tab-users")
    page.click("#panel td button")
    page.click("#send")
    page.until("document.querySelector('.answer').textContent === 'Failed: status 9, unknown error.'", SOON)
    assert page.text("#activity .bad").endswith("status 9, unknown error")
    assert page.run("return document.querySelector('#dialog').open") is True


def test_an_account_without_the_right_is_refused(shown: Shown) -> None:
    page = shown.browser
    page.open(shown.url)
    page.write("#user", "guest")
    page.write("#secret", "wrong")
    page.click("#login button")
    page.until("document.querySelector('#login .warn').textContent === 'Wrong user or password.'", SOON)
    page.write("#secret", "look")
    page.click("#login button")
    page.until("document.querySelector('#port-0') !== null", SOON)
    page.click("#tab-users")
    page.click("#panel td button")
    page.click("#send")
    page.until("document.querySelector('.answer').textContent.startsWith('Access denied')", SOON)
    assert shown.router.calls == [] and page.run("return [localStorage.length, document.cookie]") == [0, ""]


def test_passwords_are_not_shown(shown: Shown) -> None:
    page = shown.open()
    page.click("#tab-users")
    page.click("#addUser")
    page.write("#field-username", "bob")
    page.write("#field-password", "s3cret")
    assert "s3cret" not in page.text("body")
    page.click("#send")
    page.until("!document.querySelector('#dialog').open", SOON)
    assert shown.router.calls[0][2]["password"] == "s3cret" and "s3cret" not in page.text("body")


PLAN: dict[str, Any] = {"version": 1, "status": 3, "ending": "", "phases": [{"kind": "start"}, {
    "kind": "call", "refused": False, "status": 0, "messages": [],
    "operations": [{"words": "entry 1: port 2 out", "changes": ["switch 0x070 = 0x1"]},
                   {"words": "wait", "changes": []}],
    "changes": ["-address lan1"], "reach": [{"write": 0, "joined": [[1, 2]]}, {"write": 2, "joined": [[1, 3]]}],
    "meetings": [{"ports": [0, 3], "writes": 4, "lasts": False}]}]}


def test_the_plan_is_shown_before_it_is_sent(shown: Shown) -> None:
    shown.router.status["interfaces"][0]["addresses"] = ["127.0.0.1/8"]        # the browser's own way
    shown.router.answers["ivarode.view", "plan"] = Answer(0, PLAN)
    page = shown.open()
    page.click("#port-2")
    page.until("document.querySelector('#own-lan2') !== null", SOON)
    page.click("#own-lan2")
    page.until("document.querySelector('.steps') !== null", SOON)
    assert texts(page, ".steps li") == ["entry 1: port 2 out"]
    said = page.text(".planned")
    assert "takes your own connection away: it leads through lan1" in said
    assert "Port 1 and Port 2 no longer reach each other" in said and "Port 1 and Port 3 reach each other" in said
    assert "Port 0 and Port 3 meet for 4 register writes" in said
    assert shown.router.calls == []


def test_the_plan_of_a_form_comes_without_being_asked_for_and_without_secrets(shown: Shown) -> None:
    page = shown.open()
    page.click("#tab-users")
    page.click("#addUser")
    page.write("#field-username", "bob")
    assert ("ivarode.view", "plan") not in shown.router.asked
    page.write("#field-password", "s3cret")
    page.until("document.querySelector('.planned').textContent.includes('The plan starts')", SOON)
    assert ["s3cret" in str(one) for one in shown.router.planned] == [False]


def test_without_plans_it_goes_on(shown: Shown) -> None:
    shown.router.answers["ivarode.view", "plan"] = Answer(0, {"error": "ivarode-plan is not installed"})
    page = shown.open()
    page.click("#port-2")
    page.until("document.querySelector('#own-lan2') !== null", SOON)
    page.click("#own-lan2")
    page.until("document.querySelector('.planned').textContent.includes('ivarode-plan is not installed')", SOON)
    page.click("#send")
    page.until("!document.querySelector('#dialog').open", SOON)
    assert shown.router.calls == [("ivarode.intf", "port_add", {"name": "lan2"})]


# Method and arguments -> the warnings that apply to the router of "fake"; changes of it come first where it needs some.
FULL = [fake.vlan(entry, 300 + entry, 3) for entry in range(5, 16)]
ODDITIES: list[tuple[dict[str, Any], str, str, dict[str, Any], set[str]]] = [
    ({}, "intf", "add", {"intf": "lan2_x", "vlanid1": 200}, {"firstOnVlan", "tagged"}),
    ({}, "intf", "add", {"intf": "lan3_x", "vlanid1": 200}, {"tagged"}),
    ({"vlans": FULL}, "intf", "add", {"intf": "lan3_x", "vlanid1": 200}, {"twelfth", "tagged"}),
    ({"vlans": FULL}, "intf", "add", {"intf": "lan3_x", "vlanid1": 305}, {"tagged"}),
    ({}, "intf", "add", {"intf": "lan3_x", "vlanid1": 100}, {"vlanTaken", "tagged"}),
    ({}, "intf", "add", {"intf": "lan3_x", "vlanid1": 4092}, {"portVlan", "tagged"}),
    ({}, "intf", "add", {"intf": "lan3_x", "vlanid1": 4095}, {"badVlan", "tagged"}),
    ({}, "intf", "add", {"intf": "lan3_x", "vlanid1": 0}, {"badVlan", "tagged"}),
    ({}, "intf", "add", {"intf": "lan2_x"}, {"needsPort"}),
    ({}, "intf", "add", {"intf": "lan3"}, {"duplicate"}),
    ({}, "intf", "add", {"intf": "wan1_x", "defrt_pri": "9", "vlanid1": 7}, {"priority", "tagged"}),
    ({}, "intf", "add", {"intf": "wan1_x", "defrt_pri": "20001", "vlanid1": 7}, {"sameNumber", "tagged"}),
    ({}, "intf", "add", {"intf": "wan1_x", "defrt_pri": "20002", "vlanid1": 7}, {"tagged"}),
    ({"ports": [fake.port(0, "WAN 1", 4091)]}, "intf", "add", {"intf": "wan1_x", "defrt_pri": "20002", "vlanid1": 7},
     {"wanNoSetUp", "tagged"}),
    ({"vlans": [fake.vlan(0, 4090, 0, 5)]}, "intf", "add", {"intf": "wan1_x", "defrt_pri": "20002", "vlanid1": 7},
     {"twoCpu", "tagged"}),
    ({}, "intf", "config", {"intf": "wan1", "old_intf": "wan1", "gateway": "0.0.0.0"}, {"noGateway", "halfDone"}),
    ({}, "intf", "config", {"intf": "lan1", "old_intf": "lan3"}, {"duplicate", "halfDone"}),
    ({"interfaces": [fake.interface("lan3_guest", 3, "eth0.100", "")]}, "intf", "config",
     {"intf": "lan3_guest", "old_intf": "lan3_guest"}, {"firstOfPort", "halfDone"}),
    ({"interfaces": [fake.interface("lan3_guest", 3, "eth0.100", "")]}, "intf", "del", {"intf": ["lan3_guest"]},
     {"firstOfPort"}),
    ({}, "intf", "del", {"intf": ["lan3_guest"]}, set()),
    ({"interfaces": [fake.interface("lan3", 3, "eth0.4093", ""), fake.interface("lan3_a", 3, "eth0.100.1", ""),
                     fake.interface("lan3_b", 3, "eth0.100.2", "")]}, "intf", "del", {"intf": ["lan3_b"]},
     {"sharedOuter"}),
    ({"ports": [{**fake.port(3, "LAN 3", 4093), "link": False}]}, "intf", "enable", {"intf": ["lan3"], "enable": 1},
     {"noLinkYet"}),
    ({}, "intf", "enable", {"intf": ["lan3"], "enable": 1}, set()),
    ({}, "intf", "port_add", {"name": "lan2"}, set()),
    ({"interfaces": [fake.interface("lan2_default", 2, "eth0.4092", "")]}, "intf", "port_add", {"name": "lan2"},
     {"defaultThere"}),
    ({}, "intf", "port_del", {"name": "lan3"}, {"portCarriesVlans"}),
    ({}, "intf", "port_del", {"name": "lan1"}, {"lanOne"}),
    ({}, "intf", "port_del", {"name": "wan1"}, {"wanPort"}),
    ({}, "route", "add", {"name": "branch"}, {"duplicate", "routeOnly"}),
    ({}, "route", "edit", {"name": "branch"}, {"withdrawn", "routeOnly"}),
    ({}, "route", "del", {"name": ["branch"]}, set()),
]
ASKED = """return Promise.all(["model", "before", "texts"].map((name) => import(`${location.pathname}${name}.js`)))
  .then(([{ read }, { warnings }, { t }]) => arguments[0].map(([status, object, method, args]) =>
    warnings(read(status, 0), `ivarode.${object}`, method, args).map((key) => [key, t(key)])))"""


def test_each_documented_oddity_is_warned_of_where_it_applies(shown: Shown) -> None:
    page = shown.open()
    asked = [[{**fake.STATUS, **change}, *words] for change, *words, _ in ODDITIES]
    for found, (change, *words, wanted) in zip(page.run(ASKED, asked), ODDITIES):
        assert {key for key, _ in found} == wanted, (change, words)
        assert all(text != key for key, text in found)
    assert len(set().union(*(wanted for *_, wanted in ODDITIES))) == 23


# --- in the lab --------------------------------------------------------------------------------------------------


def test_a_recording_is_played_with_a_slider(window: Browser, tmp_path: pathlib.Path) -> None:
    """The page of a lab whose player has been through two events."""
    router = fake.Router()
    before = {**router.status, "interfaces": router.status["interfaces"][:1]}
    (tmp_path / "router.rec").write_bytes(b"\x00recorded")
    router.answers["lab", "about"] = Answer(0, {"board": "one-cpu", "config": "home", "boards": ["one-cpu"],
                                                "configs": ["home"], "hosts": [
                                                    {"name": "pc1", "port": 1, "address": "192.168.1.11"}]})
    moments = [{"time": "08:04:38", "said": "link 0 up"},
               {"time": "08:04:39", "said": "call ivarode.intf port_add"}]
    router.answers["lab", "played"] = Answer(0, {"playing": False, "moments": moments,
                                                 "words": ["the same, 1 answers"]})
    router.answers["lab", "moment"] = Answer(0, {**moments[0], "status": before})
    with serving(fake.server(router, lab=True)) as server, window.fast():
        window.open(f"{server.url}#{fake.TOKEN}")
        window.until("document.querySelector('#cable-1') !== null", SOON)
        window.run("document.querySelector('#recording').closest('details').open = true")
        window.upload("#recording", tmp_path / "router.rec")
        window.click("#play")
        window.until("document.querySelector('#played').textContent === '2 events. the same, 1 answers'", SOON)
        assert ("lab", "play", {"recording": "AHJlY29yZGVk"}) in router.calls
        assert window.text("#said") == "the board now"
        window.run("document.querySelector('#moment').focus()")
        window.keys(LEFT, LEFT)
        window.until("document.querySelectorAll('.card').length === 1", SOON)
        window.until("document.querySelector('#state').textContent === 'recorded at 08:04:38'", SOON)
        assert window.text("#said") == "08:04:38 link 0 up"
        window.keys(RIGHT, RIGHT)
        window.until("document.querySelectorAll('.card').length === 4 && "
                     "document.querySelector('#state').textContent === 'live'", SOON)
        window.open("about:blank")


# --- a bus that is slow, away or refuses -----------------------------------------------------------------------


@pytest.mark.parametrize("name, said", [
    ("internal", "The router does not answer."), ("timeout", "The bus answers slowly."), ("access", "Access denied"),
    ("object", "Not on the bus")])
def test_trouble_is_named_and_the_last_picture_stays(shown: Shown, name: str, said: str) -> None:
    page = shown.open()
    for method in (("ivarode.view", "status"), ("ivarode.intf", "status")):
        shown.router.answers[method] = Refusal(name)
    page.until("document.querySelector('#state').textContent.startsWith(arguments[0])", SOON, said)
    assert "old, as of" in page.text("#state") and page.run("return document.body.className") == "old"
    assert page.run("return document.querySelectorAll('[id^=port-]').length") == 5
    shown.router.answers = {}
    page.until("document.querySelector('#state').textContent === 'live' && document.body.className === ''", SOON)


def test_a_daemon_that_is_away_is_named(shown: Shown) -> None:
    shown.router.status["health"] = {"state": "hung", "sentence": "it does not answer"}
    page = shown.open()
    page.until("document.querySelector('#state').textContent === 'it does not answer'", SOON)
    assert page.run("return document.body.className") == "old"


# --- texts that mean harm --------------------------------------------------------------------------------------

EVIL = "<img src=x onerror=\"window.struck=1\">'\"</script>\\u0000\ufffd"


def spoiled(value: Any, key: str = "") -> Any:
    """Every text of the bus replaced, but for those that other parts find things by."""
    if isinstance(value, dict):
        return {name: spoiled(one, name) for name, one in value.items()}
    if isinstance(value, list):
        return [spoiled(one, key) for one in value]
    return EVIL + key if isinstance(value, str) and key not in ("members", "serves", "chain", "target") else value


def test_hostile_texts_only_show(shown: Shown) -> None:
    shown.router.status = spoiled(shown.router.status)
    shown.router.status["interfaces"][0]["name"] = "lan2" + "x" * 28
    shown.router.status["chains"]["filter"][0]["policy"] = EVIL
    shown.router.answers["ivarode.view", "log"] = Answer(0, {"lines": [EVIL, "(((", "\x07\ufffd"]})
    shown.router.answers["ivarode.view", "explain"] = Answer(0, {
        "first_cause": {"sentence": EVIL, "remedy": EVIL}, "checks": [{"verdict": EVIL, "sentence": EVIL}]})
    page = shown.open()
    for tab in ("switch", "routes", "rules", "firewall", "users", "log"):
        page.click(f"#tab-{tab}")
        if tab != "switch":
            page.until("document.querySelector('#panel').textContent.length > 9", SOON)
    page.until("document.querySelector('.log')?.textContent.includes('onerror')", SOON)
    page.click(".card:nth-child(2) h3 button")
    page.until("document.querySelector('#why').textContent.includes('onerror')", SOON)
    page.click("#tab-users")
    page.click("#panel td button")
    page.until("document.querySelector('.command').textContent.includes('onerror')", SOON)
    made = "document.querySelectorAll('img, iframe, main script').length"
    assert page.run(f"return [window.struck ?? 0, {made}]") == [0, 0]
    page.size(360, 800)
    assert page.run("return document.documentElement.scrollWidth") <= 360


@pytest.mark.parametrize("status", [{}, {"ports": None, "vlans": {}, "interfaces": 7}, {"ports": [{}], "vlans": [{}]},
                                    {**fake.STATUS, "interfaces": [{}], "static_routes": [{}], "ppp_users": [{}]}])
def test_facts_that_are_missing(shown: Shown, status: dict[str, Any]) -> None:
    shown.router.status = status
    page = shown.browser
    page.open(f"{shown.url}#{fake.TOKEN}")
    page.until("document.querySelector('#picture svg') !== null", SOON)


# --- for everybody -----------------------------------------------------------------------------------------------


@pytest.mark.parametrize("scheme", ["light", "dark"])
@pytest.mark.parametrize("width", [360, 1200])
def test_nothing_in_the_way_of_anybody(shown: Shown, accessibility: pathlib.Path, scheme: str, width: int) -> None:
    shown.browser.size(width, 900)
    shown.browser.colours(scheme)
    page = shown.open()
    page.run(accessibility.read_text())
    page.click("#port-3")
    for tab in ("switch", "routes", "rules", "firewall", "users", "log"):
        page.click(f"#tab-{tab}")
        assert violations(page) == [], tab
    page.run("document.querySelector('#add').click()")
    page.write("#field-intf", "lan2_x")
    page.write("#field-ipaddr", "1")
    assert violations(page) == []
    assert page.run("return document.documentElement.scrollWidth") <= width


def violations(page: Browser) -> list[str]:
    return page.run("return axe.run({ resultTypes: ['violations'] }).then(({ violations }) => violations.flatMap("
                    "(one) => one.nodes.map((node) => `${one.id}: ${node.html.slice(0, 160)}`)))")


def test_size() -> None:
    """Of the page as it is laid into an image, and as a package compresses it."""
    packed = io.BytesIO()
    files = sorted(pages.FILES[0].iterdir())
    with tarfile.open(fileobj=packed, mode="w") as archive:
        for file in files:
            entry = tarfile.TarInfo(file.name)
            entry.size = file.stat().st_size
            archive.addfile(entry, io.BytesIO(file.read_bytes()))
    assert sum(file.stat().st_size for file in files) <= 60_000
    assert len(gzip.compress(packed.getvalue(), 9)) <= 20_000

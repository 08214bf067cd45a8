// A card for each interface, with its rates of the last ten minutes; facts, reasons and actions of what is chosen.
import { at, button, h, lit, show } from "./dom.js";
import { opener } from "./forms.js";
import { SPAN_MS, bits, bytes, maskOf, portVlan, rates } from "./model.js";
import { ask } from "./rpc.js";
import { linkText, t, troubleText } from "./texts.js";

const WIDTH = 240;
const HEIGHT = 44;
const NOTHING = { rx: 0, tx: 0 };

function plot(name, rows, now) {
  // a round number, so that the scale does not follow each sample
  const top = 2 ** Math.ceil(Math.log2(Math.max(1250, ...rows.flatMap((one) => [one.rx, one.tx]))));
  const x = (time) => (WIDTH - ((now - time) / SPAN_MS) * WIDTH).toFixed(1);
  const path = (key) => `M${rows.map((one) => `${x(one.time)} ${(HEIGHT - 1 - (one[key] / top) * (HEIGHT - 3)).toFixed(1)}`).join("L")}`;
  const { rx, tx } = rows.at(-1) ?? NOTHING;
  return h("svg.plot", { viewBox: `0 0 ${WIDTH} ${HEIGHT}`, role: "img", preserveAspectRatio: "none",
    "aria-label": t("plot", { name, rx: bits(rx), tx: bits(tx), top: bits(top) }) },
  rows.length > 1 && [h("path.area", { d: `${path("rx")}V${HEIGHT}H${x(rows[0].time)}z` }),
    h("path.rx", { d: path("rx") }), h("path.tx", { d: path("tx") })]);
}

const stateOf = ({ enabled, state }) => (enabled === false ? "off" : { missing: "no device" }[state] ?? state ?? "unknown");

function card(one, now, choose, chosen) {
  const { vlan, name } = one;
  const rows = rates(name);
  const { rx, tx } = rows.at(-1) ?? NOTHING;
  const state = stateOf(one);
  return h("li", lit(one, vlan, "card"),
    h("h3", null, vlan && h("span.badge", { title: `VLAN ${vlan.vid}` }, vlan.letter),
      button(name, () => choose(one), { id: `interface-${one.id}`, "aria-pressed": String(chosen?.id === one.id) }),
      h(state === "up" ? "span.pill.up" : "span.pill.down", null, t(state))),
    h("p.row", null, one.address || t("no address"), h("span", null, one.client || one.proto)),
    plot(name, rows, now),
    h("p.row.dim", null, h("span.rx", null, `\u2193 ${bits(rx)}, ${bytes(one.rx_bytes)}`),
      h("span.tx", null, `\u2191 ${bits(tx)}, ${bytes(one.tx_bytes)}`)));
}

export function cards(place, model, choose, chosen) {
  show(place, h("div.row", null, h("h2", { id: "interfaces-head" }, t("Interfaces")), opener("add")),
    h("ul.cards", null, model.interfaces.map((one) => card(one, model.now, choose, chosen))));
}

const MARKS = { ok: "\u2713", failed: "\u2717", unknown: "?" };
const warning = (text, remedy) => h("p.warn", null, h("strong", null, text), " ", remedy);

let told = {};

function aboutPort(port, model) {
  const reached = model.ports.filter((one) => one !== port && model.vlans.some(({ ports }) => ports.includes(one) && ports.includes(port)));
  return { subject: `port ${port.port}`, title: `${t("Port")} ${port.port}`, facts: { Serves: port.serves.join(", "), Link: linkText(port),
    PVID: `${port.pvid}${port.pvid === portVlan(port.port) ? "" : ` (${t("shared")})`}`,
    "Reaches ports": reached.map((one) => one.port).join(", ") || t("none") },
  actions: port.serves.map((name) => ["own", "back"].map((form) => opener(form, { name }))) };
}

function aboutInterface(one) {
  const intf = one.name;
  const [ipaddr, length] = one.address.split("/");
  const state = stateOf(one);
  const values = { intf, old_intf: intf, proto: one.proto, ipaddr, netmask: length ? maskOf(+length) : "", gateway: one.gateway,
    defrt_pri: String(one.number ?? ""), vlanid1: String(one.vid ?? ""), vlanid2: String(one.inner ?? "") };
  return { subject: intf, title: intf, facts: { State: t(state), Address: one.addresses?.join(", "), Protocol: one.proto, Client: one.client,
    Gateway: one.gateway, Port: one.port, VLAN: one.vid ?? one.vlan?.vid, MAC: one.mac },
  actions: [opener("config", values), opener(state === "off" ? "on" : "off", { intf }), opener("remove", { intf })] };
}

// The chain from configuration to frames; asked for again when the state has changed.
async function explain(name, state) {
  const mine = told = { name, state, found: told.name === name && told.found };
  mine.found = await ask("ivarode.view", "explain", { name }).then(({ first_cause: cause, checks = [] }) => [
    cause && warning(cause.sentence, cause.remedy), h("ul.plain.chain", null, checks.map(({ verdict, sentence }) =>
      h("li", { class: verdict }, h("span", { role: "img", "aria-label": verdict }, MARKS[verdict]), " ", sentence)))],
  (trouble) => h("p.aside", null, troubleText(trouble)));
  if (told === mine) show(at("why"), mine.found);
}

export function details(place, model, chosen) {
  if (!chosen) {
    told = {};
    return show(place, h("h2", { id: "side-head" }, t("Why")), h("p.aside", null, t("noSide")),
      model.problems.map((one) => warning(`${one.subject}: ${one.sentence}`, one.remedy)));
  }
  const { subject, title, facts, actions } = chosen.serves ? aboutPort(chosen, model) : aboutInterface(chosen);
  const state = [subject, chosen.pvid, chosen.link, chosen.state, chosen.address].join();
  show(place, h("h2", { id: "side-head" }, title), h("dl", null, Object.entries(facts).filter(([, value]) => value != null && value !== "")
    .map(([name, value]) => h("div", null, h("dt", null, t(name)), h("dd", null, value)))),
  h("p.buttons", null, actions), h("h3", null, t("Why")), h("div", { id: "why" }, told.name === subject && told.found));
  return told.state === state || explain(subject, state);
}

// The tables behind the tabs.
import { at, button, h, lit, show } from "./dom.js";
import { opener } from "./forms.js";
import { bytes, maskOf } from "./model.js";
import { ask } from "./rpc.js";
import { t, troubleText } from "./texts.js";

let model;
let chosen = "switch";
let lines = [];
let trouble;
let known;

function table(caption, heads, rows, more = () => null) {
  if (!rows.length) return h("p.aside", null, t("none"));
  return h("div.wide", { tabindex: 0, role: "region", "aria-label": t(caption) }, h("table", null,
    h("thead", null, h("tr", null, heads.map((head) => h("th", { scope: "col" }, t(head))))),
    h("tbody", null, rows.map((cells, row) => h("tr", more(row), cells.map((cell, index) =>
      (index ? h("td", null, cell) : h("th", { scope: "row" }, cell))))))));
}

const switchTable = () => table("switch", ["Entry", "VLAN", "Ports", "Leaves untagged", "Interfaces"], model.vlans.map((vlan) => [
  h("span", null, h("span.badge", null, vlan.letter), ` ${vlan.entry}`), vlan.vid, vlan.names,
  vlan.untag.filter((member) => member < 5 && vlan.members.includes(member)).join(" ") || t("none"), vlan.carries]),
(row) => lit(model.vlans[row], model.vlans[row]));

// Names of routes that were made over the bus are in the log alone.
function nameOf({ destination, gateway, metric }) {
  const network = String(destination).split("/")[0];
  return lines.findLast((line) => line.includes(` dstaddr=${network} `) && line.includes(` gateway=${gateway} metric=${metric} `))
    ?.match(/cfg_name=(.*) line=/)?.[1];
}

const routes = () => [opener("addRoute"),
  table("routes", ["Name", "Destination", "Gateway", "Device", "Metric", "In the kernel", "Change"], model.routes.map((one) => {
    const name = one.name || nameOf(one);
    const [dstaddr, length] = String(one.destination).split("/");
    const values = { name, dstaddr, netmask: maskOf(+length), gateway: one.gateway, line: one.line, metric: String(one.metric) };
    return [`${name ?? ""} ${one.name ? "" : t("overBus")}`.trim(), one.destination, one.gateway, one.line, one.metric,
      one.hidden ? t("hiddenBy", { name: one.hidden.name || t("overBus") }) : one.state,
      h("span.buttons", null, opener("editRoute", values), opener(one.enabled ? "offRoute" : "onRoute", { name }), opener("removeRoute", { name }))];
  }))];

const rules = () => [
  table("policy", ["Preference", "Table"], model.rules.map((one) => [one.preference, one.table])),
  table("tables", ["Table", "Destination", "Gateway", "Device", "Metric"],
    model.tables.map((one) => [one.table, one.destination, one.gateway, one.device, one.metric]))];

function chain(chains, one, seen) {
  if (seen.has(one)) return h("p.aside", null, "(\u2191)");
  seen.add(one);
  return h("ul", null, one.rules.map(({ rule, target, packets, bytes: size }) => {
    const next = chains.find((other) => other.chain === target);
    return h("li", null, h("code", null, rule), packets !== undefined && h("span.aside", null, t("count", { packets, bytes: bytes(size) })),
      next && chain(chains, next, seen));
  }));
}

// Built-in chains have a policy; below each rule is the chain that it leads to.
const firewall = () => Object.entries(model.chains).map(([name, chains]) => {
  const seen = new Set();
  return h("details", { open: true }, h("summary", null, name), h("ul.plain.tree", null, chains.filter((one) => one.policy && one.rules.length)
    .map((one) => h("li", null, h("strong", null, one.chain), h("span.aside", null, ` ${one.policy}`), chain(chains, one, seen)))));
});

const users = () => [opener("addUser"),
  table("users", ["User", "Provider", "Address", "Change"], model.users.map(({ name, provider, address }) => [name, provider, address,
    opener("removeUser", { username: name, provider })]))];

const log = () => [button(t("Refresh"), fetchLog, { id: "refresh" }), lines.length ? h("ol.plain.log", { tabindex: 0 },
  [...lines].reverse().map((line) => h(/\berr(or)?\b/.test(line) ? "li.bad" : "li", null, h("code", null, line.replace(/\\n$/, "")),
    h("span.aside", null, known?.find(({ parts }) => parts.every((part) => line.includes(part)))?.advice)))) : h("p.aside", null, t("none"))];

export async function explanations() {
  const { messages = [] } = await ask("ivarode.view", "messages").catch(() => ({}));
  known = messages.sort(([one], [other]) => other.length - one.length).map(([text, advice]) => ({ advice, parts: text.split(/%[-0-9]*[a-z]/) }));
}

const VIEWS = { switch: switchTable, routes, rules, firewall, users, log };
const NAMES = Object.keys(VIEWS);

function choose(name) {
  chosen = name;
  drawTable(model);
  fetchLog();
}

export async function fetchLog() {
  if (chosen !== "log" && chosen !== "routes") return;
  await ask("ivarode.view", "log").then((found) => {
    lines = Array.isArray(found.lines) ? found.lines.map(String) : [];
    trouble = undefined;
  }, (error) => { trouble = troubleText(error); });
  drawTable(model);
}

export function drawTable(now) {
  model = now;
  const move = ({ key }) => {
    const step = { ArrowRight: 1, ArrowLeft: NAMES.length - 1 }[key];
    if (!step) return;
    choose(NAMES[(NAMES.indexOf(chosen) + step) % NAMES.length]);
    at(`tab-${chosen}`).focus();
  };
  show(at("more"), h("div.tabs", { role: "tablist", onkeydown: move }, NAMES.map((name) => button(t(name), () => choose(name),
    { role: "tab", id: `tab-${name}`, "aria-controls": "panel", "aria-selected": String(name === chosen), tabindex: name === chosen ? 0 : -1 }))),
  h("div", { id: "panel", role: "tabpanel", tabindex: 0, "aria-labelledby": `tab-${chosen}` },
    chosen === "log" && trouble && h("p.warn", null, trouble), VIEWS[chosen]()));
}

// The tables behind the tabs: switch, routes, rules, firewall, PPP users, log.
import { at, button, h, lit, show, table } from "./dom.js";
import { bytes, colour, letter, portNames, standing } from "./model.js";
import { ask } from "./rpc.js";
import { t, troubleText } from "./texts.js";

const buttons = (...all) => h("span", { class: "buttons" }, all);
const texts = (value) => (Array.isArray(value) ? value.map(String) : []);

function switchTable({ model }) {
  return table(t("switch"), [t("entry"), t("vid"), t("members"), t("untagged"), t("carries")], model.vlans.map((vlan) => ({
    class: `thing ${colour(vlan)}`, ...lit(vlan),
    cells: [h("span", null, h("span", { class: "badge" }, letter(vlan)), ` ${vlan.entry}`), vlan.vid, portNames(vlan),
      vlan.untag.filter((member) => member < 5 && vlan.members.includes(member)).join(" ") || t("none"),
      standing(model, vlan)] })), t("none"));
}

function routes({ model, open }) {
  return [h("p", null, button(t("addRoute"), () => open("addRoute", {}), { id: "add-route" })),
    table(t("routes"), [t("name"), t("destination"), t("gateway"), t("device"), t("metric"), t("kernel"), t("change")],
      model.routes.map((one) => ({ cells: [one.name || t("overBus"), one.destination, one.gateway, one.line, one.metric, one.state,
        one.name && buttons(
          button("\u2212", () => open("removeRoute", { name: one.name }), { "aria-label": `${t("remove")} ${one.name}` }),
          one.enabled ? button(t("off"), () => open("offRoute", { name: one.name }))
            : button(t("on"), () => open("onRoute", { name: one.name })))] })), t("none"))];
}

const rules = ({ model }) => [
  table(t("policy"), [t("preference"), t("table")], model.rules.map((one) => ({ cells: [one.preference, one.table] })), ""),
  table(t("tables"), [t("table"), t("destination"), t("gateway"), t("device"), t("metric")], model.kernelRoutes.map((one) =>
    ({ cells: [one.table, one.destination, one.gateway, one.device, one.metric] })), "")];

function chain(chains, one, seen) {
  if (seen.has(one)) return h("p", { class: "aside" }, t("seen"));
  seen.add(one);
  return h("ul", null, one.rules.map((rule) => {
    const target = chains.find((other) => other.chain === rule.target);
    return h("li", null, h("code", null, rule.rule), rule.packets !== undefined && h("span", { class: "aside" },
      t("chainCount", { packets: rule.packets, bytes: bytes(+rule.bytes) })), target && chain(chains, target, seen));
  }));
}

// The built-in chains, which have a policy, and below each rule the chain that it leads to.
const firewall = ({ model }) => Object.entries(model.chains).map(([name, chains]) => {
  const seen = new Set();
  return h("details", { open: true }, h("summary", null, name), h("ul", { class: "tree" },
    chains.filter((one) => one.policy && one.rules.length).map((one) => h("li", null, h("strong", null, one.chain),
      h("span", { class: "aside" }, t("policyOf", { policy: one.policy })), chain(chains, one, seen)))));
});

const users = ({ model, open }) => [
  h("p", null, button(t("addUser"), () => open("addUser", {}), { id: "add-user" })),
  table(t("users"), [t("user"), t("provider"), t("address"), t("change")], model.users.map((one) => ({ cells: [one.name, one.provider,
    one.address, button("\u2212", () => open("removeUser", { username: one.name, provider: one.provider }),
      { "aria-label": `${t("remove")} ${one.name}` })] })), t("none"))];

// Known messages, longest first: the text that stands in all of them, and what to do.
let known;
async function explanations() {
  const { messages: rows = [] } = await ask("ivarode.view", "messages").catch(() => ({}));
  known = rows.map(([text, advice]) => ({ advice, length: text.length,
    pattern: new RegExp(text.split(/%[-0-9]*[a-z]/).map((part) => part.replace(/[\\^$.*+?()[\]{}|]/g, "\\$&")).join(".*")) }))
    .sort((one, other) => other.length - one.length);
}

const adviceOf = (line) => known?.find((one) => one.pattern.test(line))?.advice;

function log({ log: found }) {
  const lines = texts(found.lines).reverse();
  if (!lines.length) return h("p", { class: "aside" }, t("none"));
  return h("ol", { class: "log", tabindex: 0 }, lines.map((line) => h("li", { class: /\berr(or)?\b/.test(line) ? "bad" : "" },
    h("code", null, line.replace(/\\n$/, "")), h("span", { class: "aside" }, adviceOf(line)))));
}

const VIEWS = { switch: switchTable, routes, rules, firewall, users, log };
const SOURCE = { log: "log" };

// The tabs and the table that is open; what it needs beside the picture is asked for when it is opened, and on request.
export class Views {
  constructor(place, open) {
    this.place = place;
    this.open = open;
    this.chosen = "switch";
    this.found = {};
    explanations();
    const tabs = Object.keys(VIEWS).map((name) => h("button", { type: "button", role: "tab", id: `tab-${name}`,
      "aria-controls": "panel", onclick: () => this.choose(name) }, t(name)));
    show(place, h("div", { class: "tabs", role: "tablist", onkeydown: (event) => this.move(event) }, tabs),
      h("div", { id: "panel", role: "tabpanel", tabindex: 0 }));
  }

  move(event) {
    const names = Object.keys(VIEWS);
    const step = { ArrowRight: 1, ArrowLeft: names.length - 1 }[event.key];
    if (!step) return;
    this.choose(names[(names.indexOf(this.chosen) + step) % names.length]);
    at(`tab-${this.chosen}`).focus();
  }

  choose(name) {
    this.chosen = name;
    this.draw();
    return this.fetch();
  }

  async fetch() {
    const method = SOURCE[this.chosen];
    if (!method) return;
    try {
      this.found[method] = await ask("ivarode.view", method);
      this.trouble = undefined;
    } catch (trouble) {
      this.trouble = troubleText(trouble);
    }
    this.draw();
  }

  draw(model = this.model) {
    this.model = model;
    for (const name of Object.keys(VIEWS)) {
      at(`tab-${name}`).setAttribute("aria-selected", String(name === this.chosen));
      at(`tab-${name}`).tabIndex = name === this.chosen ? 0 : -1;
    }
    const method = SOURCE[this.chosen];
    const panel = at("panel");
    panel.setAttribute("aria-labelledby", `tab-${this.chosen}`);
    if (!model || (method && !this.found[method])) return show(panel, this.trouble && h("p", { class: "warn" }, this.trouble));
    return show(panel, this.trouble && method && h("p", { class: "warn" }, this.trouble),
      method && button(t("all"), () => this.fetch(), { class: "refresh", id: "refresh" }),
      VIEWS[this.chosen]({ model, open: this.open, ...this.found }));
  }
}

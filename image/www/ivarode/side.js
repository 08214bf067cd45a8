// What is known of the port or interface that is chosen, why it is as it is, and what can be done with it.
import { at, button, h, show } from "./dom.js";
import { portVlan, reaches } from "./model.js";
import { stateOf } from "./interfaces.js";
import { ask } from "./rpc.js";
import { linkText, t, troubleText } from "./texts.js";

const pairs = (rows) => h("dl", null, rows.filter(([, value]) => value != null && value !== "").map(([name, value]) =>
  h("div", null, h("dt", null, name), h("dd", null, value))));

const maskOf = (length) => [0, 8, 16, 24].map((from) => 256 - 2 ** (8 - Math.min(Math.max(length - from, 0), 8))).join(".");

function portActions(port, open) {
  return port.serves.map((name) => [button(`${name}: ${t("own")}`, () => open("own", { name }), { id: `own-${name}` }),
    button(`${name}: ${t("back")}`, () => open("back", { name }), { id: `back-${name}` })]);
}

function interfaceActions(one, open) {
  const intf = one.name;
  const [ipaddr, length] = one.address.split("/");
  const now = { intf, old_intf: intf, proto: one.proto, ipaddr, netmask: length ? maskOf(+length) : "",
    gateway: one.gateway, defrt_pri: String(one.number ?? ""), vlanid1: String(one.vid ?? ""), vlanid2: String(one.inner ?? "") };
  return [button(t("configure"), () => open("config", now), { id: "configure" }),
    stateOf(one) === "isOff" ? button(t("on"), () => open("on", { intf })) : button(t("off"), () => open("off", { intf })),
    button(t("remove"), () => open("remove", { intf }), { id: "remove" })];
}

// The chain from configuration to frames, as ivarodectl tells it.
function reasons({ first_cause: cause, checks = [] }) {
  const mark = { ok: "\u2713", failed: "\u2717", unknown: "?" };
  return [cause && h("p", { class: "warn" }, h("strong", null, cause.sentence), " ", cause.remedy),
    h("ul", { class: "chain" }, checks.map((one) => h("li", { class: one.verdict },
      h("span", { role: "img", "aria-label": one.verdict }, mark[one.verdict]), " ", one.sentence)))];
}

let asked;
let answer;

// Asks again when something of the thing has changed.
async function explain(name, now) {
  asked = now;
  let found;
  try {
    found = reasons(await ask("ivarode.view", "explain", { name }));
  } catch (trouble) {
    found = h("p", { class: "aside" }, troubleText(trouble));
  }
  if (asked !== now) return;
  answer = { name, found };
  if (at("why")) show(at("why"), found);
}

export function details(place, model, chosen, open) {
  if (!chosen) {
    asked = undefined;
    show(place, h("h2", { id: "side-head" }, t("explain")), h("p", { class: "aside" }, t("noSide")),
      model.problems.map((one) => h("p", { class: "warn" }, h("strong", null, `${one.subject}: ${one.sentence}`), " ", one.remedy)));
    return;
  }
  const isPort = chosen.id.startsWith("p");
  const name = isPort ? `port ${chosen.port}` : chosen.name;
  const facts = isPort ? [[t("serves"), chosen.serves.join(", ")], [t("speed"), linkText(chosen)],
    [t("pvid"), `${chosen.pvid}${chosen.pvid === portVlan(chosen.port) ? "" : ` (${t("shared")})`}`],
    [t("reach"), reaches(model, chosen.port).join(", ") || t("none")]]
    : [[t("state"), t(stateOf(chosen))], [t("address"), chosen.addresses?.join(", ")], [t("protocol"), chosen.proto],
      [t("client"), chosen.client], [t("gateway"), chosen.gateway], [t("port"), chosen.port],
      [t("vid"), chosen.vid ?? chosen.vlan?.vid], ["MAC", chosen.mac]];
  show(place, h("h2", { id: "side-head" }, isPort ? `${t("port")} ${chosen.port}` : name), pairs(facts),
    h("p", { class: "buttons" }, isPort ? portActions(chosen, open) : interfaceActions(chosen, open)),
    h("h3", null, t("explain")), h("div", { id: "why" }, answer?.name === name ? answer.found : null));
  const now = [name, chosen.pvid, chosen.link, chosen.state, chosen.address].join();
  if (asked !== now) explain(name, now);
}

// Forms for what can be done: fields, checks of what can be known beforehand, warnings, the plan, and the answer.
import { at, button, h, show } from "./dom.js";
import { numberOf, sideOf } from "./model.js";
import { drawn, ownWay, planOf, summary } from "./plan.js";
import { call, command } from "./rpc.js";
import { statusText, t, troubleText } from "./texts.js";
import { warnings } from "./warnings.js";

const octets = /^(25[0-5]|2[0-4]\d|1?\d?\d)(\.(25[0-5]|2[0-4]\d|1?\d?\d)){3}$/;
const isMask = (text) => octets.test(text) && /^1*0*$/.test(text.split(".").map((part) => (+part).toString(2).padStart(8, "0")).join(""));
const isWan = (v) => sideOf(v.intf) === "wan";
const proto = (...names) => (v) => isWan(v) && names.includes(v.proto);
const fixed = (v) => !isWan(v) || v.proto === "static";
const adds = (v) => v.old_intf === undefined;

const CHECKS = {
  address: (text) => octets.test(text) || t("badAddress"),
  mask: (text) => isMask(text) || t("badMask"),
  mac: (text) => /^([0-9a-f]{2}:){5}[0-9a-f]{2}$/i.test(text) || t("badMac"),
  number: (text, field) => (/^\d+$/.test(text) && +text >= field.low && +text <= field.high) ||
    t("badNumber", { low: field.low, high: field.high }),
  // a name whose number the board lacks, or that is cut, would have the daemon ask for its link without end
  name: (text, _, model) => (text.length <= 15 && /^(lan|wan)\d+[\w.-]*$/.test(text) &&
    model.ports.some((port) => port.serves.includes(sideOf(text) + numberOf(text)))) || t("badName"),
  word: (text) => !/[\s"']/.test(text) || t("badBlank"),
  text: () => true,
};

const NUMBER = { low: 0, high: 4095, type: "number", as: Number };
const INTERFACE = [
  { key: "intf", label: "Name", type: "name", needed: true, hint: "lan2_guest" },
  { key: "proto", label: "Protocol", choices: ["static", "dhcp", "pppoe"], when: isWan },
  { key: "ipaddr", label: "Address", type: "address", needed: true, when: fixed },
  { key: "netmask", label: "Mask", type: "mask", needed: true, when: fixed },
  { key: "gateway", label: "Gateway", type: "address", needed: true, when: proto("static"), hint: "0.0.0.0 for none" },
  { key: "defrt_pri", label: "Number", type: "number", low: 0, high: 2147483647, needed: true, when: isWan, hint: "20001" },
  { key: "username", label: "User", type: "word", needed: true, when: proto("pppoe") },
  { key: "password", label: "Password", type: "word", secret: true, needed: true, when: proto("pppoe") },
  { key: "ipaddr", label: "Service", type: "word", when: (v) => proto("pppoe")(v) && adds(v) },
  { key: "server", label: "Service", type: "word", when: (v) => proto("pppoe")(v) && !adds(v) },
  { key: "vlanid1", label: "VLAN", hint: "1 to 4089, or none", ...NUMBER },
  { key: "vlanid2", label: "Inner VLAN", when: (v) => v.vlanid1 !== "", ...NUMBER },
  { key: "mac", label: "MAC", type: "mac" },
];
const ROUTE = [
  { key: "name", label: "Name", type: "text", max: 31, needed: true },
  { key: "dstaddr", label: "Destination", type: "address", needed: true },
  { key: "netmask", label: "Mask", type: "mask", needed: true },
  { key: "gateway", label: "Gateway", type: "address", needed: true },
  { key: "line", label: "Device", type: "text", max: 15, needed: true, hint: "wan1, or auto" },
  { key: "metric", label: "Metric", type: "number", low: 0, high: 4294967295, needed: true, value: "0" },
];
const INTF = "ivarode.intf";
const list = (key) => (v) => ({ ...v, [key]: [v[key]] });

// Each: title, object, method, fields; "args" makes the message of the values.
const FORMS = {
  own: { title: "A LAN of its own", object: INTF, method: "port_add" },
  back: { title: "Take the port back", object: INTF, method: "port_del" },
  add: { title: "Add an interface", object: INTF, method: "add", fields: INTERFACE },
  config: { title: "Configure", object: INTF, method: "config", fields: INTERFACE, args: (v) => ({ proto: "static", ...v }) },
  on: { title: "Switch on", object: INTF, method: "enable", args: (v) => ({ intf: [v.intf], enable: 1 }) },
  off: { title: "Switch off", object: INTF, method: "enable", args: (v) => ({ intf: [v.intf], enable: 0 }) },
  remove: { title: "Delete", object: INTF, method: "del", args: list("intf") },
  addRoute: { title: "Add a route", object: "ivarode.route", method: "add", fields: ROUTE },
  editRoute: { title: "Change the route", object: "ivarode.route", method: "edit",
    fields: ROUTE.filter((field) => field.key !== "name") },
  onRoute: { title: "Install the route", object: "ivarode.route", method: "enable", args: (v) => ({ name: [v.name], enable: 1 }) },
  offRoute: { title: "Withdraw the route", object: "ivarode.route", method: "enable", args: (v) => ({ name: [v.name], enable: 0 }) },
  removeRoute: { title: "Delete the route", object: "ivarode.route", method: "del", args: list("name") },
  addUser: { title: "Add a PPP user", object: "ivarode.pppuser", method: "add", fields: [
    { key: "username", label: "User", type: "text", needed: true },
    { key: "password", label: "Password", type: "text", secret: true, needed: true },
    { key: "provider", label: "Provider", type: "text", needed: true, value: "*" },
    { key: "ipaddr", label: "Address", type: "text", needed: true, value: "*" }] },
  removeUser: { title: "Delete the PPP user", object: "ivarode.pppuser", method: "del" },
};

const visible = (form, values) => (form.fields ?? []).filter((field) => !field.when || field.when(values));

// The message of a form's values, and what is wrong with each field.
export function message(form, values, model) {
  const args = {};
  const wrong = {};
  for (const [key, value] of Object.entries(values)) if (!(form.fields ?? []).some((f) => f.key === key)) args[key] = value;
  for (const field of visible(form, values)) {
    const value = values[field.key] ?? "";
    const verdict = value === "" ? !field.needed || t("required") : CHECKS[field.type ?? "text"](value, field, model);
    if (verdict !== true) wrong[field.key] = verdict;
    if (value !== "") args[field.key] = field.as ? field.as(value) : value;
  }
  return { args: form.args ? form.args(args) : args, wrong };
}

function inputs(form, values, changed) {
  return visible(form, values).map((field) => {
    const id = `field-${field.key}`;
    const more = { id, name: field.key, "aria-describedby": `${id}-note`, oninput: changed };
    return h("div", { class: "field" }, h("label", { for: id }, t(field.label)),
      field.choices ? h("select", more, field.choices.map((one) => h("option", { selected: one === values[field.key] }, one)))
        : h("input", { ...more, value: values[field.key] ?? "", placeholder: field.hint, maxlength: field.max ?? 128,
          type: field.secret ? "password" : "text", autocomplete: "off", spellcheck: "false", required: field.needed }),
      h("span", { id: `${id}-note`, class: "wrong" }));
  });
}

// Opens a form; "start" are values that it begins with. model() is the present picture, done(entry) is told each answer.
export function open(name, start, { model, done }) {
  const form = FORMS[name];
  const dialog = at("dialog");
  const values = { ...Object.fromEntries((form.fields ?? []).map((field) => [field.key, field.value ?? field.choices?.[0] ?? ""])),
    ...start };
  const fields = h("div", { class: "fields" });
  const notes = h("ul", { class: "warnings", "aria-live": "polite" });
  const planned = h("div", { class: "planned", role: "status" });
  const answer = h("p", { class: "answer", role: "status" });
  const words = h("code", { class: "command" });
  let shape = "";
  let asked = 0;

  function refresh() {
    const { args, wrong } = message(form, values, model());
    const now = visible(form, values).map((field) => field.label).join();
    if (now !== shape) show(fields, inputs(form, values, changed));
    shape = now;
    for (const field of visible(form, values)) {
      const touched = values[field.key] !== "" && values[field.key] !== undefined;
      at(`field-${field.key}-note`).textContent = touched ? wrong[field.key] ?? "" : "";
      at(`field-${field.key}`).setAttribute("aria-invalid", String(touched && field.key in wrong));
    }
    show(notes, warnings(model(), form.object, form.method, args).map((key) =>
      h("li", { "data-warning": key }, t(key))));
    words.textContent = command(form.object, form.method, masked(form, args));
    const incomplete = Object.keys(wrong).length > 0;
    for (const one of [preview, send]) one.disabled = incomplete;
    return args;
  }

  function changed(event) {
    values[event.target.name] = event.target.value.trim();
    asked += 1;
    show(planned);
    refresh();
  }

  async function look() {
    const args = refresh();
    const mine = (asked += 1);
    show(planned, h("p", null, t("planning")));
    let shown;
    try {
      const own = ownWay(model(), location.hostname);
      shown = [h("h3", null, t("planHead")), drawn(summary(await planOf(form.object, form.method, args), own))];
    } catch (trouble) {
      shown = h("p", null, t("planNone", { text: troubleText(trouble) }));
    }
    if (mine === asked) show(planned, shown);
  }

  async function go() {
    const args = refresh();
    const entry = { words: command(form.object, form.method, masked(form, args)), fine: false };
    send.disabled = true;
    try {
      const { status } = await call(form.object, form.method, args);
      entry.fine = status === 0;
      entry.said = t("said", { status, text: statusText(status) });
      answer.textContent = status === 0 ? t("fine") : t("failed", { status, text: statusText(status) });
    } catch (trouble) {
      entry.said = answer.textContent = troubleText(trouble);
    }
    send.disabled = false;
    done(entry);
    if (entry.fine) dialog.close();
  }

  const preview = button(t("plan"), look, { id: "plan" });
  const send = h("button", { type: "submit", class: "main", id: "send" }, t("send"));
  dialog.replaceChildren(h("form", { onsubmit: (event) => { event.preventDefault(); go(); }, novalidate: true },
    h("h2", { id: "dialog-head" }, [t(form.title), start.name ?? start.old_intf ?? start.intf ?? start.username].filter(Boolean).join(": ")),
    fields, notes, words, planned, answer,
    h("p", { class: "buttons" }, button(t("cancel"), () => dialog.close()), preview, send)));
  refresh();
  dialog.showModal();
  if (!form.fields) look();
}

// What is shown on the screen, and kept there.
const masked = (form, args) => Object.fromEntries(Object.entries(args).map(([key, value]) =>
  [key, (form.fields ?? []).some((field) => field.secret && field.key === key) ? "\u2022\u2022\u2022" : value]));

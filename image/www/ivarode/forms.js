// Forms: fields with their checks, warnings, the plan, and the answer.
import { planOf, warnings } from "./before.js";
import { at, button, h, rest, show } from "./dom.js";
import { isWan, maskOf, portOf } from "./model.js";
import { call, command } from "./rpc.js";
import { statusText, t, troubleText } from "./texts.js";

const REST_MS = 500;
const MASKS = Array.from({ length: 33 }, (_, length) => maskOf(length));

// Types of fields; the text of its name says what is wrong.
const TYPES = {
  address: (text) => /^(\d{1,3}\.){3}\d{1,3}$/.test(text) && text.split(".").every((part) => part < 256),
  mask: (text) => MASKS.includes(text),
  mac: (text) => /^([0-9a-f]{2}:){5}[0-9a-f]{2}$/i.test(text),
  number: (text, { high }) => /^\d+$/.test(text) && +text <= high,
  // a name whose number the board lacks, or that is cut, would have the daemon ask for its link without end
  name: (text, _, model) => text.length <= 15 && /^(lan|wan)\d+[\w.-]*$/.test(text) && portOf(model, text),
  word: (text) => !/[\s"']/.test(text),
  text: () => true,
};

const wan = (v) => isWan(v.intf);
const proto = (name) => (v) => wan(v) && v.proto === name;
const fixed = (v) => !wan(v) || v.proto === "static";
const VLAN = { high: 4095, as: Number, optional: true };

// Fields: key, label, type, more.
const INTERFACE = [
  ["intf", "Name", "name", { hint: "lan2_guest" }],
  ["proto", "Protocol", "text", { choices: ["static", "dhcp", "pppoe"], when: wan }],
  ["ipaddr", "Address", "address", { when: fixed }],
  ["netmask", "Mask", "mask", { when: fixed }],
  ["gateway", "Gateway", "address", { when: proto("static"), hint: "0.0.0.0 for none" }],
  ["defrt_pri", "Number", "number", { high: 2147483647, when: wan, hint: "20001" }],
  ["username", "User", "word", { when: proto("pppoe") }],
  ["password", "Password", "word", { when: proto("pppoe") }],
  ["ipaddr", "Service", "word", { when: (v) => proto("pppoe")(v) && !v.old_intf, optional: true }],
  ["server", "Service", "word", { when: (v) => proto("pppoe")(v) && v.old_intf, optional: true }],
  ["vlanid1", "VLAN", "number", { hint: "1 to 4089, or none", ...VLAN }],
  ["vlanid2", "Inner VLAN", "number", { when: (v) => v.vlanid1, ...VLAN }],
  ["mac", "MAC", "mac", { optional: true }],
];
const NAME = ["name", "Name", "text", { max: 31 }];
const ROUTE = [
  NAME,
  ["dstaddr", "Destination", "address"],
  ["netmask", "Mask", "mask"],
  ["gateway", "Gateway", "address"],
  ["line", "Device", "text", { max: 15, hint: "wan1, or auto" }],
  ["metric", "Metric", "number", { high: 4294967295, value: "0" }],
];
const USER = [
  ["username", "User", "text"],
  ["password", "Password", "text"],
  ["provider", "Provider", "text", { value: "*" }],
  ["ipaddr", "Address", "text", { value: "*" }],
];
const list = (key, more) => (v) => ({ [key]: [v[key]], ...more });

// Title, object, method, fields, and the message of their values.
const FORMS = {
  own: ["Own LAN", "intf", "port_add"],
  back: ["Back to LAN 1", "intf", "port_del"],
  add: ["Add an interface", "intf", "add", INTERFACE],
  config: ["Configure", "intf", "config", INTERFACE, (v) => ({ proto: "static", ...v })],
  on: ["Switch on", "intf", "enable", [], list("intf", { enable: 1 })],
  off: ["Switch off", "intf", "enable", [], list("intf", { enable: 0 })],
  remove: ["Delete", "intf", "del", [], list("intf")],
  addRoute: ["Add a route", "route", "add", ROUTE],
  editRoute: ["Change", "route", "edit", ROUTE],
  onRoute: ["On", "route", "enable", [NAME], list("name", { enable: 1 })],
  offRoute: ["Off", "route", "enable", [NAME], list("name", { enable: 0 })],
  removeRoute: ["Delete", "route", "del", [NAME], list("name")],
  addUser: ["Add a PPP user", "pppuser", "add", USER],
  removeUser: ["Delete", "pppuser", "del"],
};

// model(): the present picture; done(entry): takes each answer.
let model;
let done;

export const startForms = (picture, answered) => { [model, done] = [picture, answered]; };

const subjectOf = (start) => start.name ?? start.old_intf ?? start.intf ?? start.username;

// A button that opens a form, which begins with the values "start".
export function opener(name, start = {}) {
  const [text, subject] = [t(FORMS[name][0]), subjectOf(start)];
  return button(text, () => open(name, start), { id: subject ? `${name}-${subject}` : name, "aria-label": subject && `${text} ${subject}` });
}

function open(name, start) {
  const [title, kind, method, rows = [], make = (v) => v] = FORMS[name];
  const object = `ivarode.${kind}`;
  const all = rows.map(([key, label, type, more]) => ({ key, label, type, ...more }));
  const values = { ...Object.fromEntries(all.map(({ key, value, choices }) => [key, value ?? choices?.[0]])), ...start };
  const dialog = at("dialog");
  const [fields, notes, words, planned, answer, send] = [h("div.fields"), h("ul.plain", { "aria-live": "polite" }), h("code.command"),
    h("div.planned", { role: "status" }), h("p.answer", { role: "status" }), h("button.main", { id: "send" }, t("Send"))];
  let asked = 0;

  const right = (field) => (values[field.key] ? TYPES[field.type](values[field.key], field, model()) : field.optional);

  function input(field) {
    const { key, choices, hint, max = 128, optional } = field;
    const id = `field-${key}`;
    const wrong = values[key] && !right(field);
    const more = { id, name: key, "aria-describedby": `${id}-note`, "aria-invalid": String(!!wrong), oninput: changed };
    return h("div.field", null, h("label", { for: id }, t(field.label)), choices
      ? h("select", more, choices.map((one) => h("option", { selected: one === values[key] }, one)))
      : h("input", { ...more, value: values[key], placeholder: hint && t(hint), maxlength: max, required: !optional,
        type: key === "password" ? key : "text", autocomplete: "off" }),
    h("span.wrong", { id: `${id}-note` }, wrong && t(field.type, field)));
  }

  // The message, and the one to show, without secrets.
  function refresh() {
    const visible = all.filter(({ when }) => !when || when(values));
    show(fields, visible.map(input));
    const args = {};
    for (const [key, value] of Object.entries(values)) {
      const field = visible.find((one) => one.key === key);
      if (field ? value : !all.some((one) => one.key === key)) args[key] = field?.as?.(value) ?? value;
    }
    const said = make(args);
    const shown = args.password ? make({ ...args, password: "***" }) : said;
    show(notes, warnings(model(), object, method, said).map((key) => h("li.warn", { "data-warning": key }, t(key))));
    words.textContent = command(object, method, shown);
    send.disabled = !visible.every(right);
    return { said, shown };
  }

  // The plan is asked for when nothing has been typed for a moment.
  async function look() {
    const { shown } = refresh();
    const mine = (asked += 1);
    show(planned);
    if (send.disabled) return;
    await rest(all.length && REST_MS);
    if (mine !== asked || !dialog.open) return;
    show(planned, h("p", null, t("Asking for the plan\u2026")));
    const found = await planOf(model(), object, method, shown)
      .catch((trouble) => h("p", null, t("planNone", { text: troubleText(trouble) })));
    if (mine === asked) show(planned, found);
  }

  function changed({ target }) {
    values[target.name] = target.value.trim();
    look();
  }

  async function go(event) {
    event.preventDefault();
    const { said } = refresh();
    const entry = { words: words.textContent };
    send.disabled = true;
    try {
      const { status } = await call(object, method, said);
      entry.fine = status === 0;
      entry.said = statusText(status);
      answer.textContent = t("failed", entry);
    } catch (trouble) {
      entry.said = answer.textContent = troubleText(trouble);
    }
    send.disabled = false;
    done(entry);
    if (entry.fine) dialog.close();
  }

  dialog.replaceChildren(h("form", { onsubmit: go, novalidate: true },
    h("h2", { id: "dialog-head" }, [t(title), subjectOf(start)].filter(Boolean).join(": ")), fields, notes, words, planned, answer,
    h("p.buttons", null, button(t("Cancel"), () => dialog.close()), send)));
  refresh();
  dialog.showModal();
  look();
}

// Elements, made without markup: what comes from the bus is text, never more.

const HANDLERS = ["onclick", "onkeydown", "oninput", "onsubmit"];

function fill(node, attributes, children) {
  for (const [name, value] of Object.entries(attributes ?? {})) {
    if (HANDLERS.includes(name)) node[name] = value;
    else if (value === true) node.setAttribute(name, "");
    else if (value !== false && value != null) node.setAttribute(name, value);
  }
  node.append(...children.flat(Infinity).filter((child) => child != null && child !== false));
  return node;
}

export const h = (name, attributes, ...children) => fill(document.createElement(name), attributes, children);

export const svg = (name, attributes, ...children) =>
  fill(document.createElementNS("http://www.w3.org/2000/svg", name), attributes, children);

export const at = (id) => document.getElementById(id);

// Makes one node like another, and leaves alone what is alike: the focus, a press that has begun, an opened part.
function morph(old, now) {
  if (old.nodeName !== now.nodeName || old.id !== now.id) return old.replaceWith(now);
  if (old.nodeType === Node.TEXT_NODE) {
    if (old.data !== now.data) old.data = now.data;
    return undefined;
  }
  const names = new Set([...old.getAttributeNames(), ...now.getAttributeNames()]);
  names.delete("open");
  for (const name of names) {
    const value = now.getAttribute(name);
    if (value === null) old.removeAttribute(name);
    else if (old.getAttribute(name) !== value) old.setAttribute(name, value);
  }
  for (const name of HANDLERS) old[name] = now[name];
  return become(old, [...now.childNodes]);
}

function become(node, children) {
  const before = [...node.childNodes];
  for (const old of before.slice(children.length)) old.remove();
  children.forEach((child, index) => (before[index] ? morph(before[index], child) : node.append(child)));
}

// Gives a node other children; the focus stays on the element of the same id.
export function show(node, ...children) {
  const id = node.contains(document.activeElement) && document.activeElement.id;
  become(node, [...h("div", null, ...children).childNodes]);
  if (id && document.activeElement.id !== id) at(id)?.focus({ preventScroll: true });
}

// For drawn things that act like a button.
export const pressed = (act, label) => ({ role: "button", tabindex: 0, "aria-label": label, onclick: act,
  onkeydown: (event) => ["Enter", " "].includes(event.key) && (event.preventDefault(), act()) });

// What lights up with the thing.
export const lit = (thing) => ({ "data-id": thing.id, "data-with": [...thing.with].join(" ") });

export const button = (text, act, more) => h("button", { type: "button", onclick: act, ...more }, text);

export function table(caption, heads, rows, empty) {
  if (!rows.length) return h("p", { class: "aside" }, empty);
  return h("div", { class: "wide", tabindex: 0, role: "region", "aria-label": caption }, h("table", null,
    h("caption", { class: "hidden" }, caption),
    h("thead", null, h("tr", null, heads.map((head) => h("th", { scope: "col" }, head)))),
    h("tbody", null, rows.map(({ cells, ...more }) => h("tr", more, cells.map((cell, index) =>
      index ? h("td", null, cell) : h("th", { scope: "row" }, cell)))))));
}

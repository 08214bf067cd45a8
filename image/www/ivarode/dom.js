// Elements, made without markup: what comes from the bus is text, never more.
const HANDLERS = ["onclick", "onkeydown", "oninput", "onsubmit"];
const DRAWN = /^(svg|g|rect|circle|line|path|text|tspan)$/;

export const at = (id) => document.getElementById(id);
export const rest = (pause) => new Promise((done) => { setTimeout(done, pause); });

// kind: a name and classes, as in "p.warn".
export function h(kind, attributes, ...children) {
  const [name, ...classes] = kind.split(".");
  const node = document.createElementNS(`http://www.w3.org/${DRAWN.test(name) ? "2000/svg" : "1999/xhtml"}`, name);
  for (const [key, value] of Object.entries({ class: classes.join(" ") || null, ...attributes })) {
    if (HANDLERS.includes(key)) node[key] = value;
    else if (value != null && value !== false) node.setAttribute(key, value === true ? "" : value);
  }
  node.append(...children.flat(9).filter((child) => child != null && child !== false));
  return node;
}

// Makes one node like another; what is alike keeps its focus, and a press that has begun.
function morph(old, now) {
  if (old.nodeName !== now.nodeName || old.id !== now.id) return old.replaceWith(now);
  if (old.data !== now.data) old.data = now.data;
  if (!old.getAttributeNames) return undefined;
  for (const name of new Set([...old.getAttributeNames(), ...now.getAttributeNames()])) {
    const value = now.getAttribute(name);
    if (name === "open" || old.getAttribute(name) === value) continue;
    if (value === null) old.removeAttribute(name);
    else old.setAttribute(name, value);
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
  become(node, [...h("div", null, children).childNodes]);
  if (id && document.activeElement.id !== id) at(id)?.focus({ preventScroll: true });
}

// What lights up with a thing, in the colour of its VLAN.
export const lit = (thing, vlan, kind = "") => ({ "data-with": thing.with,
  class: `${kind} thing ${vlan?.colour ?? ""}` });

// A drawn button.
export const pressed = (act, label) => ({ role: "button", tabindex: 0, "aria-label": label, onclick: act,
  onkeydown: (event) => { if (["Enter", " "].includes(event.key)) act(event.preventDefault()); } });

export const button = (text, act, more) => h("button", { type: "button", onclick: act, ...more }, text);

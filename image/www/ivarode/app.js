// Joins the parts: session, samples, what is chosen and lit up, and the state of the connection.
import { draw as drawBoard } from "./board.js";
import { at, button, h, show } from "./dom.js";
import { open as openForm } from "./forms.js";
import { draw as drawInterfaces } from "./interfaces.js";
import { History, read, relink } from "./model.js";
import { ask, hasToken, login, setToken } from "./rpc.js";
import { details } from "./side.js";
import { linkText, t, troubleText } from "./texts.js";
import { Views } from "./views.js";

// In three seconds one sample of all, which takes the router a while, and two of the links alone.
const SAMPLE_MS = 3000;
const LINKS_MS = 1500;

const history = new History();
const calls = [];
let model;
let lab;
let visit = 0;
let views;
let chosen;
let pinned;
let links = { time: 0 };

const announce = (text) => { at("live").textContent = text; };

function open(name, start) {
  openForm(name, start, { model: () => model, done: (entry) => {
    calls.unshift(entry);
    calls.length = Math.min(calls.length, 50);
    activity();
    announce(entry.said);
    sample().then(() => views.fetch(), failed);
  } });
}

function activity() {
  show(at("activity"), h("h2", { id: "activity-head" }, t("activity")), h("ol", { class: "calls" }, calls.map((one) =>
    h("li", { class: one.fine ? "good" : "bad" }, h("code", null, one.words), h("span", null, one.said)))));
}

function choose(thing) {
  chosen = chosen?.id === thing.id ? undefined : thing;
  draw();
}

const act = {
  port: choose,
  vlan: (vlan) => {
    pinned = pinned === vlan.id ? undefined : vlan.id;
    draw();
  },
};

function draw() {
  drawBoard(at("picture"), model, { act, pinned, above: lab?.above });
  drawInterfaces(at("interfaces"), model, history, { choose, chosen: chosen?.name,
    add: button(t("addInterface"), () => open("add", {}), { id: "add-interface" }) });
  details(at("about"), model, chosen, open);
  views.draw(model);
  light();
}

// Lights up what belongs to the thing below the pointer or with the focus, else to the one that is pinned.
let pointed;

function light(event) {
  if (event) pointed = event.target.closest?.("[data-id]")?.dataset.id;
  const id = pointed ?? pinned;
  document.body.classList.toggle("lighting", !!id);
  for (const one of document.querySelectorAll("[data-with]")) {
    one.classList.toggle("lit", !!id && one.dataset.with.split(" ").includes(id));
  }
}

function changed(act) {
  const before = new Map(model?.ports.map((port) => [port.port, port.link]));
  act();
  for (const port of model.ports) {
    const old = before.get(port.port);
    if (old !== undefined && old !== port.link) {
      announce(t(port.link ? "plugged" : "pulled", { port: port.port, link: linkText(port) }));
    }
  }
  draw();
}

async function sampleLinks() {
  if (!model) return;
  links = { ...await ask("ivarode.intf", "status"), time: Date.now() };
  changed(() => relink(model, links));
}

async function sample() {
  const began = Date.now();
  const status = await ask("ivarode.view", "status");
  changed(() => {
    model = read(status, Date.now());
    if (links.time > began) relink(model, links);
    history.add(model);
    chosen = chosen && [...model.ports, ...model.interfaces].find((one) => one.id === chosen.id && one.name === chosen.name);
  });
  const well = model.health.state === "up";
  state(well ? t("live") : String(model.health.sentence), !well);
}

function state(text, old) {
  if (at("state").textContent !== text) at("state").textContent = text;
  document.body.classList.toggle("old", old);
}

function failed(trouble) {
  if (!trouble.kind) throw trouble;
  if (trouble.kind === "denied" && !model) return welcome();
  const since = model ? ` ${t("old", { time: new Date(model.now).toLocaleTimeString() })}` : "";
  return state(troubleText(trouble) + since, true);
}

// Again and again until the session is over; a sample that takes longer than its time is not hurried.
async function watch(take, pause, trouble) {
  const mine = visit;
  while (mine === visit) {
    const began = Date.now();
    await take().catch(trouble);
    await new Promise((resolve) => { setTimeout(resolve, Math.max(pause - (Date.now() - began), 200)); });
  }
}

function welcome() {
  visit += 1;
  at("page").hidden = true;
  const wrong = h("p", { class: "warn", role: "alert" });
  const field = (id, type, name) => h("div", { class: "field" }, h("label", { for: id }, t(name)),
    h("input", { id, type, autocomplete: type === "password" ? "current-password" : "username", required: true }));
  show(at("login"), h("form", { onsubmit: async (event) => {
    event.preventDefault();
    try {
      if (await login(at("user").value, at("secret").value)) enter();
      else wrong.textContent = t("wrong");
    } catch (trouble) {
      wrong.textContent = troubleText(trouble);
    }
  } }, h("h2", null, t("login")), field("user", "text", "user"), field("secret", "password", "password"), wrong,
  h("p", { class: "buttons" }, h("button", { type: "submit", class: "main" }, t("login")))));
  at("login").hidden = false;
}

async function enter() {
  at("login").hidden = true;
  at("page").hidden = false;
  show(at("board"), h("h2", { id: "board-head" }, t("board")), h("div", { id: "picture" }),
    h("p", { class: "aside" }, t("legend")));
  show(at("side"), h("div", { id: "about" }), h("section", { id: "lab", hidden: true }));
  views = new Views(at("more"), open);
  activity();
  visit += 1;
  watch(sample, SAMPLE_MS, failed);
  watch(sampleLinks, LINKS_MS, () => {});
  const right = await ask("session", "access", { scope: "ubus", object: "lab", function: "about" }).catch(() => ({}));
  if (!right.access) return;
  const found = new (await import("./lab.js")).Lab(sampleLinks);
  await found.start(at("lab"));
  lab = found;
  at("lab").hidden = false;
}

addEventListener("resize", () => model && draw());
for (const name of ["pointerover", "focusin"]) addEventListener(name, light);
at("place").textContent = location.hostname;
setToken(location.hash.slice(1));
if (hasToken()) enter();
else welcome();

// Session, samples, what is chosen and lit up, and the state of the connection.
import { draw as drawBoard } from "./board.js";
import { at, h, rest, show } from "./dom.js";
import { startForms } from "./forms.js";
import { keep, read, relink } from "./model.js";
import { ask, login, setToken } from "./rpc.js";
import { linkText, t, troubleText } from "./texts.js";
import { cards, details } from "./things.js";
import { drawTable, explanations, fetchLog } from "./views.js";

// In three seconds one sample of all, and two of the links, which cost less.
const SAMPLE_MS = 3000;
const LINKS_MS = 1500;

const calls = [];
let model;
let lab;
let visit = 0;
let chosen;
let pointed;
let links = { time: 0 };

const announce = (text) => { at("live").textContent = text; };

startForms(() => model, (entry) => {
  calls.unshift(entry);
  calls.splice(50);
  activity();
  announce(entry.said);
  sample().then(fetchLog, failed);
});

function activity() {
  show(at("activity"), h("h2", { id: "activity-head" }, t("activity")), h("ol.plain", null, calls.map((one) =>
    h(one.fine ? "li.good" : "li.bad", null, h("code", null, one.words), h("span", null, one.said)))));
}

function choose(thing) {
  chosen = chosen?.id === thing.id ? undefined : thing;
  draw();
}

function draw() {
  drawBoard(at("picture"), model, choose, lab?.above);
  cards(at("interfaces"), model, choose, chosen);
  details(at("about"), model, chosen);
  drawTable(model);
  light();
}

// Lights up what belongs to the thing below the pointer, else to the one with the focus.
function light(event) {
  if (event?.type === "pointerover") pointed = event.target;
  const [hovered, focused] = [pointed, document.activeElement].map((one) => one?.closest("[data-with]"));
  const shared = (hovered ?? focused)?.dataset.with.split(" ");
  document.body.classList.toggle("lighting", !!shared);
  for (const one of document.querySelectorAll("[data-with]")) {
    one.classList.toggle("lit", !!shared?.some((id) => one.dataset.with.split(" ").includes(id)));
  }
}

function changed(act) {
  const before = model?.ports.map((port) => ({ ...port }));
  act();
  for (const old of before ?? []) {
    const port = model.ports.find((one) => one.port === old.port);
    if (port && !port.link !== !old.link) announce(t(port.link ? "plugged" : "pulled", { port: port.port, link: linkText(port) }));
  }
  draw();
}

async function sampleLinks() {
  if (!model || lab?.past) return;
  links = { ...await ask("ivarode.intf", "status"), time: Date.now() };
  changed(() => relink(model, links));
}

async function sample() {
  const began = Date.now();
  const past = lab?.past;
  const status = past?.status ?? await ask("ivarode.view", "status");
  if (past !== lab?.past) return;
  changed(() => {
    model = read(status, Date.now());
    if (links.time > began && !past) relink(model, links);
    if (!past) keep(model);
    chosen &&= [...model.ports, ...model.interfaces].find((one) => one.id === chosen.id && one.name === chosen.name);
  });
  const { state, sentence } = model.health;
  const well = past || state === "up";
  tell(past?.text ?? (well ? t("live") : sentence), !well);
}

function tell(text, old) {
  if (at("state").textContent !== text) at("state").textContent = text;
  document.body.classList.toggle("old", old);
}

function failed(trouble) {
  if (!trouble.kind) throw trouble;
  if (trouble.kind === "denied" && !model) welcome();
  else tell(`${troubleText(trouble)} ${model ? t("old", { time: new Date(model.now).toLocaleTimeString() }) : ""}`, true);
}

async function watch(take, pause, trouble) {
  for (const mine = visit; mine === visit;) {
    const began = Date.now();
    await take().catch(trouble);
    await rest(Math.max(pause - (Date.now() - began), 200));
  }
}

function welcome() {
  visit += 1;
  at("page").hidden = true;
  const wrong = h("p.warn", { role: "alert" });
  const field = (id, type, name) => h("label.field", null, t(name), h("input", { id, type, autocomplete: "on", required: true }));
  const submit = (event) => {
    event.preventDefault();
    login(at("user").value, at("secret").value).then((fine) => (fine ? enter() : Promise.reject({ kind: "wrong" })))
      .catch((trouble) => { wrong.textContent = troubleText(trouble); });
  };
  show(at("login"), h("form", { onsubmit: submit }, h("h2", null, t("Log in")), field("user", "text", "User"),
    field("secret", "password", "Password"), wrong, h("button.main", null, t("Log in"))));
  at("login").hidden = false;
}

async function enter() {
  at("login").hidden = true;
  at("page").hidden = false;
  show(at("board"), h("h2", { id: "board-head" }, t("Board")), h("div", { id: "picture" }), h("p.aside", null, t("legend")));
  explanations();
  activity();
  visit += 1;
  watch(sample, SAMPLE_MS, failed);
  watch(sampleLinks, LINKS_MS, () => {});
  const right = await ask("session", "access", { scope: "ubus", object: "lab", function: "about" }).catch(() => ({}));
  if (!right.access) return;
  const found = new (await import("./lab.js")).Lab({ links: sampleLinks, all: () => sample().catch(failed) });
  await found.start(at("lab"));
  lab = found;
  at("lab").hidden = false;
}

addEventListener("resize", () => model && draw());
for (const name of ["pointerover", "focusin"]) addEventListener(name, light);
at("place").textContent = location.hostname;
setToken(location.hash.slice(1));
if (location.hash) enter();
else welcome();

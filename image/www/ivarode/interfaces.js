// A card for each interface: state, address, protocol, and its rates of the last ten minutes.
import { button, h, lit, show, svg } from "./dom.js";
import { bits, bytes, colour, letter } from "./model.js";
import { t } from "./texts.js";

const WIDTH = 240;
const HEIGHT = 44;
const SPAN_MS = 600000;

// A round number above the highest rate, so that the scale does not follow each sample.
function scale(rates) {
  const top = Math.max(1250, ...rates.flatMap((one) => [one.rx, one.tx]));
  return 2 ** Math.ceil(Math.log2(top));
}

function plot(name, rates, now) {
  const top = scale(rates);
  const x = (time) => (WIDTH - ((now - time) / SPAN_MS) * WIDTH).toFixed(1);
  const y = (rate) => (HEIGHT - 1 - (rate / top) * (HEIGHT - 3)).toFixed(1);
  const path = (key) => rates.map((one) => `${x(one.time)} ${y(one[key])}`).join("L");
  const last = rates.at(-1) ?? { rx: 0, tx: 0 };
  return svg("svg", { viewBox: `0 0 ${WIDTH} ${HEIGHT}`, class: "plot", role: "img", preserveAspectRatio: "none",
    "aria-label": t("plot", { name, rx: bits(last.rx), tx: bits(last.tx), top: bits(top) }) },
  svg("path", { d: `M0 ${HEIGHT - 0.5}H${WIDTH}M0 0.5H${WIDTH}`, class: "frame" }),
  rates.length > 1 && [
    svg("path", { d: `M${x(rates[0].time)} ${HEIGHT}L${path("rx")}V${HEIGHT}z`, class: "area" }),
    svg("path", { d: `M${path("rx")}`, class: "rx" }), svg("path", { d: `M${path("tx")}`, class: "tx" })]);
}

// "missing" is no device; "noLink" a device whose port has none.
export function stateOf(one) {
  if (one.enabled === false) return "isOff";
  return { up: "up", down: "down", "no link": "noLink", missing: "missingDevice" }[one.state] ?? "unknown";
}

function card(one, rates, model, choose, chosen) {
  const last = rates.at(-1) ?? { rx: 0, tx: 0 };
  const state = stateOf(one);
  const vlan = one.vlan;
  return h("li", { class: `card thing ${colour(vlan)}`, ...lit(one) },
  h("h3", null, vlan && h("span", { class: "badge", title: `VLAN ${vlan.vid}` }, letter(vlan)),
    button(one.name, () => choose(one), { id: `interface-${one.id}`, class: "plain", "aria-pressed": String(chosen) }),
    h("span", { class: `pill ${state === "up" ? "up" : "down"}` }, t(state))),
  h("p", { class: "facts" }, one.address || t("noAddress"), h("span", null, one.client || one.proto)),
  plot(one.name, rates, model.now),
  h("p", { class: "rates" }, h("span", { class: "rx-text" }, `\u2193 ${bits(last.rx)}`),
    h("span", { class: "tx-text" }, `\u2191 ${bits(last.tx)}`),
    h("span", null, `${bytes(+one.rx_bytes || 0)} / ${bytes(+one.tx_bytes || 0)}`)));
}

export function draw(place, model, history, { choose, chosen, add }) {
  show(place, h("div", { class: "head" }, h("h2", { id: "interfaces-head" }, t("interfaces")), add),
    h("ul", { class: "cards" }, model.interfaces.map((one) =>
      card(one, history.rates(one.name), model, choose, chosen === one.name))));
}

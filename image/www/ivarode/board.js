// The picture: sockets in the order of the case, below them a rail for each VLAN.
import { h, lit, pressed, show } from "./dom.js";
import { linkText, t } from "./texts.js";

const RAIL = 40;
const HEIGHT = 34;

export const line = (kind, x1, y1, x2, y2) => h(`line.${kind}`, { x1, y1, x2, y2 });
export const box = (kind, x, y, width, height, rx) => h(`rect.${kind}`, { x, y, width, height, rx });
export const label = (kind, x, y, text) => h(`text.${kind}`, { x, y }, text);

function socket(port, x, top, vlan, act) {
  const bottom = top + HEIGHT;
  const names = port.serves.map((name) => name.replace(/^(lan|wan)/, (side) => `${side.toUpperCase()} `)).join("/") || t("unused");
  return h("g", { id: `port-${port.port}`, ...lit(port, vlan), ...pressed(act, t("portLabel",
    { ...port, names, link: linkText(port), vlan: vlan?.letter })) },
  box("touch", x - 27, top - 4, 54, HEIGHT + 60, 8),
  h(port.link ? "g.up" : "g", null, box("case", x - 20, top, 40, HEIGHT, 5),
    h("path.hole", { d: `M${x - 14} ${top + 30}v-16h7v-5h4v-4h6v4h4v5h7v16z` }), h("circle.lamp", { cx: x - 13.5, cy: top + 6.5, r: 3 })),
  label("name", x, bottom + 16, names),
  label("small", x, bottom + 30, linkText(port)), box("pill", x - 24, bottom + 36, 48, 17, 8.5),
  label("pill-text", x, bottom + 48.5, `${vlan?.letter ?? "?"} ${port.pvid}`));
}

function rail(vlan, places, width, y) {
  const points = vlan.members.map((member) => ({ member, x: places.get(Math.min(member, 5)) })).filter((point) => point.x);
  const xs = points.map((point) => point.x);
  return h("g", { id: `vlan-${vlan.entry}`, ...lit(vlan, vlan), role: "img", tabindex: 0,
    "aria-label": t("vlanLabel", { ...vlan, carries: vlan.carries || t("none") }) },
  box("touch", 0, y - 22, width, RAIL - 6, 6),
  h("text.small.rail", { x: 4, y: y - 10 }, h("tspan", null, vlan.letter), ` ${vlan.vid} ${vlan.carries}`),
  line("track", Math.min(...xs), y, Math.max(...xs), y),
  points.map(({ member, x }) => h(vlan.untag.includes(member) && member < 5 ? "circle.bare" : "circle.tagged", { cx: x, cy: y, r: 5 })));
}

// above: draws what is plugged into a port, at x down to y.
export function draw(place, model, choose, above) {
  const { vlans } = model;
  const ports = [...model.ports].sort((one, other) => one.port - other.port);
  const pitch = Math.min(Math.max(place.clientWidth, 280) / (ports.length + 1), 150);
  const width = pitch * (ports.length + 1);
  const places = new Map(ports.map((port, index) => [port.port, (index + 0.5) * pitch]));
  const cpu = width - pitch / 2;
  places.set(5, cpu);
  const top = above ? 48 : 8;
  const first = top + HEIGHT + 90;
  const bottom = first + (vlans.length - 1) * RAIL;
  const drop = (port) => line("drop", places.get(port.port), top + HEIGHT + 54, places.get(port.port),
    first + RAIL * Math.max(...vlans.map((vlan, row) => (vlan.ports.includes(port) ? row : -1)), 0));
  show(place, h("svg.board", { width, height: bottom + 14, role: "group", "aria-label": t("Board") },
    box("panel", 0.5, top - 7.5, width - 1, first - top - 24, 10), ports.map(drop),
    line("drop", cpu, top + 54, cpu, bottom), box("chip", cpu - 22, top + 4, 44, 44, 6), label("name", cpu, top + 31, "CPU"),
    ports.map((port) => socket(port, places.get(port.port), top,
      vlans.find((vlan) => vlan.vid === port.pvid && vlan.ports.includes(port)), () => choose(port))),
    above && ports.map((port) => above(port, places.get(port.port), top)),
    vlans.map((vlan, row) => rail(vlan, places, width, first + row * RAIL))));
}

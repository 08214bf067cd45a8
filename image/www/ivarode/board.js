// The picture of the board: sockets in the order of the case, and below them a rail for each VLAN that ports are in.
import { lit, pressed, show, svg } from "./dom.js";
import { colour, letter, portNames, standing } from "./model.js";
import { t, linkText } from "./texts.js";

const RAIL = 40;
const SOCKET = { width: 40, height: 34 };

export const line = (x1, y1, x2, y2, more) => svg("line", { x1, y1, x2, y2, ...more });
export const label = (x, y, text, more) => svg("text", { x, y, "text-anchor": "middle", ...more }, text);

function jack(x, y, port) {
  const { width, height } = SOCKET;
  const left = x - width / 2;
  const pins = Array.from({ length: 8 }, (_, pin) => line(left + 9.5 + pin * 3, y + height - 4, left + 9.5 + pin * 3,
    y + height - 9, { class: "pin" }));
  return svg("g", { class: `jack ${port.link ? "up" : "down"}` },
    svg("rect", { x: left, y, width, height, rx: 5, class: "case" }),
    svg("path", { d: `M${left + 6} ${y + height - 4}v-16h7v-5h4v-4h6v4h4v5h7v16z`, class: "hole" }), pins,
    svg("circle", { cx: left + 6.5, cy: y + 6.5, r: 3, class: "lamp" }));
}

function socket(port, x, top, vlan, act) {
  const bottom = top + SOCKET.height;
  const names = port.serves.map((name) => name.replace(/^(lan|wan)/, (side) => `${side.toUpperCase()} `));
  return svg("g", { id: `port-${port.port}`, class: `thing ${colour(vlan)}`, ...lit(port), ...pressed(act, t("portLabel",
    { port: port.port, names: names.join(", ") || t("unused"), link: linkText(port), vlan: vlan ? letter(vlan) : "-",
      pvid: port.pvid })) },
  svg("rect", { x: x - 27, y: top - 4, width: 54, height: bottom - top + 60, rx: 8, class: "touch" }),
  jack(x, top, port),
  label(x, bottom + 16, names.join("/") || t("unused"), { class: "name" }),
  label(x, bottom + 30, linkText(port), { class: "small" }),
  svg("rect", { x: x - 24, y: bottom + 36, width: 48, height: 17, rx: 8.5, class: "pill" }),
  label(x, bottom + 48.5, `${vlan ? letter(vlan) : "?"} ${port.pvid}`, { class: "pill-text" }));
}

function rail(vlan, model, places, y, act, pinned) {
  const points = vlan.members.map((member) => ({ member, x: places.get(member < 5 ? member : "cpu") })).filter((p) => p.x);
  const xs = points.map((point) => point.x);
  const names = standing(model, vlan);
  return svg("g", { id: `vlan-${vlan.entry}`, class: `thing ${colour(vlan)}`, "aria-pressed": String(pinned === vlan.id),
    ...lit(vlan), ...pressed(act, t("vlanLabel", { letter: letter(vlan), vid: vlan.vid, ports: portNames(vlan),
      interfaces: names || t("none") })) },
  svg("rect", { x: 0, y: y - 22, width: places.get("width"), height: RAIL - 6, rx: 6, class: "touch" }),
  svg("text", { x: 4, y: y - 10, class: "small rail-name" },
    svg("tspan", { class: "rail-letter" }, letter(vlan)), ` ${vlan.vid} ${names}`),
  line(Math.min(...xs), y, Math.max(...xs), y, { class: "track" }),
  points.map(({ member, x }) => svg("circle", { cx: x, cy: y, r: 5,
    class: vlan.untag.includes(member) && member < 5 ? "bare" : "tagged" })));
}

// act: what a press on a port or a VLAN does; above: draws what is plugged into a port, at x down to y, if anything.
export function draw(place, model, { act, pinned, above }) {
  const width = Math.max(Math.floor(place.clientWidth), 280);
  const ports = [...model.ports].sort((one, other) => one.port - other.port);
  const pitch = Math.min(width / (ports.length + 1), 150);
  const places = new Map(ports.map((port, index) => [port.port, (index + 0.5) * pitch]));
  const cpu = (ports.length + 0.5) * pitch;
  places.set("cpu", cpu).set("width", pitch * (ports.length + 1));
  const top = above ? 48 : 8;
  const first = top + SOCKET.height + 90;
  const shown = model.vlans;
  const height = first + (shown.length - 1) * RAIL + 14;
  const ends = new Map(ports.map((port) => [port.port,
    first + RAIL * Math.max(...shown.map((vlan, row) => (vlan.members.includes(port.port) ? row : -1)), 0)]));
  show(place, svg("svg", { width: pitch * (ports.length + 1), height, class: "board", role: "group",
    "aria-label": t("boardLabel") },
  svg("rect", { x: 0.5, y: top - 7.5, width: pitch * (ports.length + 1) - 1,
    height: first - top - 24, rx: 10, class: "panel" }),
  ports.map((port) => line(places.get(port.port), top + SOCKET.height + 54, places.get(port.port), ends.get(port.port),
    { class: "drop" })),
  svg("g", null, line(cpu, top + 54, cpu, height - 14, { class: "drop" }),
    svg("rect", { x: cpu - 22, y: top + 4, width: 44, height: 44, rx: 6, class: "chip" }),
    label(cpu, top + 31, "CPU", { class: "name" })),
  ports.map((port) => socket(port, places.get(port.port), top,
    shown.find((vlan) => vlan.vid === port.pvid && vlan.members.includes(port.port)), () => act.port(port))),
  above && ports.map((port) => above(port, places.get(port.port), top)),
  shown.map((vlan, row) => rail(vlan, model, places, first + row * RAIL, () => act.vlan(vlan), pinned))));
}

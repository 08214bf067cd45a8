// The router of one sample, and what belongs to what.
export const SPAN_MS = 600000;
const number = (value) => +value || 0;
const text = (value) => String(value ?? "");

export const array = (value) => (Array.isArray(value) ? value : []);
export const portVlan = (port) => 4090 + port;
export const isWan = (name) => /^wan\d/.test(name);

export const maskOf = (length) => [24, 16, 8, 0].map((bit) => ((2 ** 32 - 2 ** (32 - length)) / 2 ** bit) & 255).join(".");

export function portOf(model, name) {
  const [, side, digits] = /^(lan|wan)(\d+)/.exec(name) ?? [];
  return side && model.ports.find((port) => port.serves.includes(side + +digits));
}

// Of a device such as eth0.100.7 below the bridge; a port's own VLAN is none.
function vlansOf(one) {
  const [, outer, inner] = array(one.members).map((name) => /^eth\d\.(\d+)(?:\.(\d+))?$/.exec(name)).find(Boolean) ?? [];
  const own = !outer || (outer >= portVlan(0) && outer <= portVlan(4));
  return { vid: own ? one.vlanid1 : +outer, inner: inner ? +inner : one.vlanid2 };
}

// Of the configuration, and those that the kernel has besides, whose names it does not know.
function routes(status) {
  const alike = (one, other) => one.destination === other.destination && one.metric === other.metric;
  const wanted = array(status.static_routes).map((one) => ({ ...one, name: text(one.name) }));
  const others = array(status.routes).filter((one) => one.table === 10000 &&
    !wanted.some((other) => alike(one, other) && one.gateway === other.gateway)).map((one) => ({ ...one, line: one.device,
    state: "installed", enabled: true }));
  wanted.forEach((one, index) => {
    if (one.state === "missing") one.hidden = [...wanted.slice(0, index), ...others].find((other) => other.enabled && alike(one, other));
  });
  return [...wanted, ...others];
}

// What shares an identifier belongs together: p0 a port, v0 a VLAN, i0 an interface.
function relate({ ports, vlans, interfaces }) {
  for (const one of interfaces) {
    // the VLAN that it names, or the one of its port's untagged frames
    const vid = one.vid ?? ports.find((port) => port.port === one.port)?.pvid;
    one.vlan = vlans.find((vlan) => vlan.vid === vid);
    one.with = `${one.id} ${one.vlan?.id ?? ""}`.trim();
  }
  for (const port of ports) port.with = port.id;
  for (const vlan of vlans) {
    vlan.with = vlan.id;
    vlan.ports = ports.filter((port) => vlan.members.includes(port.port));
    for (const port of vlan.ports) port.with += ` ${vlan.id}`;
    vlan.names = vlan.members.map((member) => (member < 5 ? member : "CPU")).join(" ");
    vlan.carries = interfaces.filter((one) => one.vlan === vlan).map((one) => one.name).join(", ");
  }
}

export function read(status, now) {
  const ports = array(status.ports).map((one) => ({ ...one, id: `p${number(one.port)}`, port: number(one.port), pvid: number(one.pvid),
    serves: array(one.serves).map((name) => text(name).toLowerCase().replace(" ", "")) }));
  const vlans = array(status.vlans).filter((one) => array(one.members).length)
    .map((one, index) => ({ id: `v${index}`, entry: number(one.entry), vid: number(one.vid),
      letter: "ABCDEFGHIJKLMNOP"[index % 16], colour: `c${index % 5}`, members: array(one.members).map(number),
      untag: status.untagging === false ? [] : array(one.untag).map(number) }));
  const interfaces = array(status.interfaces).map((one, index) => ({ ...one, ...vlansOf(one), id: `i${index}`, name: text(one.name),
    address: text(array(one.addresses)[0]), gateway: one.way_out?.gateway,
    client: one.client && `${one.client.service}, ${one.client.running ? `${number(one.client.uptime_s)} s` : "ended"}` }));
  const model = { now, ports, vlans, interfaces, routes: routes(status), health: status.health ?? {}, problems: array(status.problems),
    users: array(status.ppp_users), rules: array(status.rules), tables: array(status.routes), chains: status.chains ?? {} };
  relate(model);
  return model;
}

export function relink(model, { link, speed, duplex }) {
  for (const port of model.ports) {
    port.link = link?.[port.port] === 1;
    port.speed = [10, 100, 1000][speed?.[port.port]] ?? 0;
    port.full_duplex = duplex?.[port.port] === 1;
  }
}

// Totals of ten minutes by name; rates are bytes per second from one to the next.
const history = new Map();

export function keep({ now, interfaces }) {
  for (const { name, rx_bytes: rx, tx_bytes: tx } of interfaces) {
    const rows = history.get(name) ?? [];
    rows.push({ time: now, rx: number(rx), tx: number(tx) });
    history.set(name, rows.filter((row) => row.time >= now - SPAN_MS));
  }
}

export const rates = (name) => (history.get(name) ?? []).map((row, index, rows) => {
  const before = rows[index - 1] ?? row;
  const span = Math.max(row.time - before.time, 1) / 1000;
  // a new device counts from zero
  return { time: row.time, rx: Math.max(row.rx - before.rx, 0) / span, tx: Math.max(row.tx - before.tx, 0) / span };
}).slice(1);

function scaled(value, unit) {
  let at = 0;
  for (; value >= 1000 && at < 3; at += 1) value /= 1000;
  return `${value && value < 10 && at ? value.toFixed(1) : Math.round(value)} ${["", "k", "M", "G"][at]}${unit}`;
}

export const bits = (bytesPerSecond) => scaled(bytesPerSecond * 8, "bit/s");
export const bytes = (value) => scaled(number(value), "B");

// The router as the page sees it: ports, VLANs, interfaces and routes of one sample, and what belongs to what.

const LETTERS = "ABCDEFGHIJKLMNOP";
const HISTORY_MS = 600000;
const array = (value) => (Array.isArray(value) ? value : []);
const number = (value) => (Number.isFinite(+value) ? +value : 0);
const text = (value) => (value == null ? "" : String(value));

export const portVlan = (port) => 4090 + port;
export const sideOf = (name) => /^(lan|wan)(\d+)/.exec(name)?.[1] ?? "";
export const numberOf = (name) => +(/^(?:lan|wan)(\d+)/.exec(name)?.[1] ?? 0);

// The VLANs of a device such as eth0.100.7 below the interface's bridge; a port's own is none.
function vlansOf(one) {
  const [, outer, inner] = array(one.members).map((name) => /^eth\d\.(\d+)(?:\.(\d+))?$/.exec(name)).find(Boolean) ?? [];
  const vid = outer && !(outer >= portVlan(0) && outer <= portVlan(4)) ? +outer : one.vlanid1;
  return { vid, inner: inner ? +inner : one.vlanid2 };
}

const clientText = ({ service, running, uptime_s }) =>
  (running ? `${service}, ${number(uptime_s)} s` : `${service}, ended`);

function interfaces(status) {
  return array(status.interfaces).map((one, index) => ({ ...one, ...vlansOf(one), id: `i${index}`, name: text(one.name),
    address: text(array(one.addresses)[0]), proto: text(one.proto), client: one.client && clientText(one.client),
    gateway: text(one.way_out?.gateway) }));
}

// Static routes of the configuration, and those that the kernel has besides in their table, whose names it does not know.
function routes(status) {
  const named = array(status.static_routes).map((one) => ({ ...one, name: text(one.name) }));
  const others = array(status.routes).filter((one) => one.table === 10000 && !named.some((other) =>
    other.destination === one.destination && other.gateway === one.gateway && other.metric === one.metric));
  return [...named, ...others.map((one) => ({ ...one, name: "", line: one.device, state: "installed" }))];
}

// Which VLAN an interface stands on: the one it names, or the one in which its port's untagged frames are.
function vlanOf(one, ports, vlans) {
  const pvid = one.vid ?? ports.find((port) => port.port === one.port)?.pvid;
  return vlans.find((vlan) => vlan.vid === pvid);
}

// Sets of what belongs together, by identifiers: p0 a port, v0 an entry of the VLAN table, i0 an interface.
function relate(model) {
  for (const thing of [...model.ports, ...model.vlans, ...model.interfaces]) thing.with = new Set([thing.id]);
  const join = (one, other) => {
    one.with.add(other.id);
    other.with.add(one.id);
  };
  for (const vlan of model.vlans) {
    const ports = model.ports.filter((port) => vlan.members.includes(port.port));
    for (const port of ports) for (const other of [vlan, ...ports]) join(port, other);
  }
  for (const one of model.interfaces) {
    const vlan = vlanOf(one, model.ports, model.vlans);
    if (!vlan) continue;
    one.vlan = vlan;
    join(one, vlan);
    for (const port of model.ports) if (vlan.members.includes(port.port)) join(one, port);
  }
}

export function read(status, now) {
  const ports = array(status.ports).map((one) => ({ ...one, id: `p${number(one.port)}`, port: number(one.port),
    pvid: number(one.pvid), link: !!one.link, serves: array(one.serves).map((name) => text(name).toLowerCase().replace(" ", "")) }));
  const vlans = array(status.vlans).filter((one) => array(one.members).length)
    .map((one, index) => ({ id: `v${index}`, index, entry: number(one.entry), vid: number(one.vid),
      members: array(one.members).map(number), untag: status.untagging === false ? [] : array(one.untag).map(number) }));
  const model = { now, ports, vlans, interfaces: interfaces(status), routes: routes(status), health: status.health ?? {},
    problems: array(status.problems), users: array(status.ppp_users), rules: array(status.rules),
    kernelRoutes: array(status.routes), chains: status.chains ?? {} };
  relate(model);
  return model;
}

// Links as the daemon's own method gives them, put into the picture between two samples.
export function relink(model, { link, speed, duplex }) {
  for (const port of model.ports) {
    port.link = link?.[port.port] === 1;
    port.speed = [10, 100, 1000][speed?.[port.port]] ?? 0;
    port.full_duplex = duplex?.[port.port] === 1;
  }
}

export const letter = (vlan) => LETTERS[vlan.index % LETTERS.length];
export const colour = (vlan) => (vlan ? `c${vlan.index % 6}` : "cnone");
export const portNames = (vlan) => vlan.members.map((member) => (member < 5 ? member : "CPU")).join(" ");
export const standing = (model, vlan) => model.interfaces.filter((one) => one.vlan === vlan).map((one) => one.name).join(", ");

// Front ports that a port reaches through the switch alone.
export function reaches(model, port) {
  const found = new Set();
  for (const vlan of model.vlans) {
    if (vlan.members.includes(port)) for (const member of vlan.members) if (member < 5 && member !== port) found.add(member);
  }
  return [...found].sort();
}

// Totals of ten minutes by name, from which rates are made: bytes per second between one sample and the next.
export class History {
  #rows = new Map();

  add(model) {
    for (const one of model.interfaces) {
      const rows = this.#rows.get(one.name) ?? [];
      rows.push({ time: model.now, rx: number(one.rx_bytes), tx: number(one.tx_bytes) });
      while (rows[0].time < model.now - HISTORY_MS) rows.shift();
      this.#rows.set(one.name, rows);
    }
    for (const name of this.#rows.keys()) if (!model.interfaces.some((one) => one.name === name)) this.#rows.delete(name);
  }

  rates(name) {
    const rows = this.#rows.get(name) ?? [];
    return rows.slice(1).map((row, index) => {
      const before = rows[index];
      const span = Math.max(row.time - before.time, 1) / 1000;
      // a device that was replaced counts from zero again
      return { time: row.time, rx: Math.max(row.rx - before.rx, 0) / span, tx: Math.max(row.tx - before.tx, 0) / span };
    });
  }
}

function scaled(value, base, units) {
  let at = 0;
  for (; value >= 1000 && at < 3; at += 1) value /= 1000;
  return `${value && value < 10 && at ? value.toFixed(1) : Math.round(value)} ${units[at]}${base}`;
}

export const bits = (bytesPerSecond) => scaled(bytesPerSecond * 8, "bit/s", ["", "k", "M", "G"]);
export const bytes = (value) => scaled(value, "B", ["", "k", "M", "G"]);

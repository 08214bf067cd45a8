// All texts; {name} stands for a value. A word without a row is its own text.
const TEXTS = {
  activity: "Calls and answers", switch: "Switch table", routes: "Static routes",
  rules: "Routing", firewall: "Firewall", users: "PPP users", log: "Log", policy: "Policy rules", tables: "Routing tables",
  portLabel: "Port {port}, {names}, {link}, VLAN {vlan}, PVID {pvid}",
  vlanLabel: "VLAN {letter}, number {vid}, ports {names}, interfaces {carries}",
  pulled: "port {port}: link lost", plugged: "port {port}: link, {link}",
  legend: "Ports on one rail reach each other through the switch: without tag at a filled dot, tagged at a ring.",
  old: "old, as of {time}", away: "The router does not answer.", slow: "The bus answers slowly.",
  denied: "Access denied: this account may not do that.", missing: "Not on the bus: {text}", refused: "Refused: {text}",
  wrong: "Wrong user or password.", plot: "{name}: received {rx}, sent {tx}; highest of ten minutes {top}",
  hiddenBy: "hidden by {name}", overBus: "(made over the bus)", noSide: "Choose a port or an interface.",
  count: "{packets} packets, {bytes}",
  planHead: "What it will do", planNone: "No plan: {text}", planNothing: "Nothing changes.",
  planRefused: "The daemon refuses it (status {status}).",
  planFrom: "The plan starts from the configuration, without what was set over the bus since.",
  apart: "Port {one} and Port {other} no longer reach each other.",
  together: "Port {one} and Port {other} reach each other.",
  meet: "Port {one} and Port {other} meet for {writes} register writes.", meetLasts: "Port {one} and Port {other} meet, and should not.",
  ownWay: "This takes your own connection away: it leads through {name}.",
  said: "status {status}{text}", failed: "Failed: {said}.",
  address: "is no IPv4 address", mask: "is no mask", number: "is no number up to {high}", mac: "is no MAC such as 02:00:5e:00:53:01",
  name: "is no lan or wan with a number of the board, or has over 15 characters", word: "has blanks or quotes",
  firstOnVlan: "First interface of its port, and on a VLAN: only a restart removes it whole. First give the port one without VLAN.",
  twelfth: "All eleven VLANs are taken: refused, but its record stays.",
  priority: "Outside 10002 to 32765: status 0, but no default route.",
  portVlan: "4090 to 4094 are the ports' own VLANs: a port's interface is cut off.",
  badVlan: "0 and 4095 are refused, but their entry of the switch stays.",
  vlanTaken: "Another interface is on this VLAN: refused, but the other gets its MAC.",
  needsPort: "The port is one of LAN 1's: without VLAN it is refused, but its record stays. First give the port a LAN of its own.",
  defaultThere: "The port has its default interface: it is recorded twice, and the port cannot be taken back.",
  portCarriesVlans: "Interfaces on VLANs keep the port from being given back. Delete them first, from the last one on.",
  lanOne: "LAN 1's own port leaves the shared VLAN, and with it the router.",
  wanPort: "The WAN's port becomes one of LAN 1's.",
  duplicate: "The name is taken: there are two records, and the older one is found.",
  noGateway: "0.0.0.0 is no gateway: the old one comes back with the next link.",
  sameNumber: "Another WAN has this number: they share its table, and the first default route carries the traffic.",
  sharedOuter: "Another interface of the port has this outer VLAN: both lose it.",
  firstOfPort: "First interface of its port, and on a VLAN: it fails, and leaves its device and VLAN.",
  noLinkYet: "Its port has no link: the device is lowered until there is one.",
  wanNoSetUp: "The port is not a WAN's own: the WAN does not follow the link.",
  twoCpu: "On a board with two CPU ports a WAN on a VLAN cannot come up.",
  tagged: "Stations reach it with tagged frames of this VLAN only.",
  halfDone: "A refused change leaves the interface without its bridge.",
  routeOnly: "Status 0 means recorded; the table says whether the kernel took it.",
  withdrawn: "The old route is withdrawn first: traffic goes another way meanwhile.",
};

export const t = (key, values = {}) => (TEXTS[key] ?? key).replace(/\{(\w+)\}/g, (_, name) => values[name] ?? "");

const STATUS = { 1: "invalid command", 2: "invalid argument", 3: "method not found", 4: "not found", 5: "no data",
  6: "permission denied", 7: "timeout", 9: "unknown error", "-1": "failed", "-13": "address", "-17": "client" };

export const statusText = (status) => t("said", { status, text: STATUS[status] ? `, ${t(STATUS[status])}` : "" });
export const troubleText = (trouble) => t(trouble.kind ?? "refused", { text: trouble.message });
export const linkText = ({ link, speed, full_duplex: full }) =>
  (link ? `${speed >= 1000 ? `${speed / 1000} G` : `${speed} M`} ${t(full ? "full" : "half")}` : t("no link"));

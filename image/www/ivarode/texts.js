// Every text of the page, in one table; {name} stands for a value.

const TEXTS = {
  board: "Board", boardLabel: "Front ports and VLANs", interfaces: "Interfaces", activity: "Calls and answers",
  switch: "Switch table", routes: "Static routes", rules: "Routing", firewall: "Firewall", users: "PPP users", log: "Log",
  unused: "unused", noLink: "no link", full: "full", half: "half", none: "none",
  portLabel: "Port {port}, {names}, {link}, VLAN {vlan}, PVID {pvid}",
  vlanLabel: "VLAN {letter}, number {vid}, ports {ports}, interfaces {interfaces}",
  pulled: "port {port}: link lost", plugged: "port {port}: link, {link}",
  legend: "Ports on one rail reach each other through the switch; a filled dot sends frames without tag, a ring with one.",
  live: "live", old: "old, as of {time}", away: "The router does not answer.", slow: "The bus answers slowly.",
  denied: "Access denied: this account may not do that.", missing: "Not on the bus: {text}",
  refused: "Refused: {text}",
  user: "User", password: "Password", login: "Log in", wrong: "Wrong user or password.",
  state: "State", isOff: "off", up: "up", down: "down", unknown: "unknown",
  address: "Address", protocol: "Protocol", client: "Client", port: "Port",
  plot: "{name}: received {rx}, sent {tx} at present; highest of ten minutes {top}",
  entry: "Entry", vid: "VLAN", members: "Ports", untagged: "Leaves untagged", carries: "Interfaces",
  name: "Name", destination: "Destination", gateway: "Gateway", device: "Device", metric: "Metric", kernel: "In the kernel",
  policy: "Policy rules", tables: "Routing tables",
  noSide: "Choose a port, a VLAN or an interface.",
  provider: "Provider", all: "Refresh",
  chainCount: "{packets} packets, {bytes}", policyOf: "policy {policy}", seen: "(above)",
  explain: "Why", reach: "Reaches ports",
  speed: "Link", pvid: "PVID", serves: "Serves",
  plan: "Show the plan", planning: "Asking for the plan\u2026", send: "Send", cancel: "Cancel",
  planHead: "What it will do", planNone: "No plan: {text}", planNothing: "Nothing changes.",
  planRefused: "The daemon refuses it (status {status}).", planEnds: "The daemon ends.",
  planFrom: "The plan starts from the configuration; what was set over the bus since is not in it.",
  apart: "{one} and {other} no longer reach each other through the switch.",
  together: "{one} and {other} reach each other through the switch.",
  meet: "{one} and {other} meet for {writes} register writes.", meetLasts: "{one} and {other} meet, and should not.",
  ownWay: "This takes your own connection away: your way to the router leads through {name}.",
  said: "status {status}{text}", fine: "Done.", failed: "Failed: status {status}{text}.",
  required: "is needed", badAddress: "is no IPv4 address", badMask: "is no mask", badNumber: "is no number from {low} to {high}",
  badMac: "is no MAC, such as 02:00:5e:00:53:01", badName: "begins with lan or wan and a number the board has; at most 15 characters",
  badBlank: "has blanks or quotes", addInterface: "Add an interface", configure: "Configure", on: "Switch on",
  off: "Switch off", remove: "Delete", shared: "shared",
  overBus: "(made over the bus)", addRoute: "Add a route", addUser: "Add a PPP user", noAddress: "no address",
  missingDevice: "no device", preference: "Preference", table: "Table", own: "own LAN", back: "back to LAN 1",
  change: "Change",
  firstOnVlan: "First interface of its port, and on a VLAN: it can then not be removed whole before a restart. Give the port one without VLAN first.",
  twelfth: "All eleven VLANs are taken: it is refused, and its record stays until a restart.",
  priority: "Outside 10002 to 32765: answered with 0, but there is no default route.",
  portVlan: "4090 to 4094 are the ports' own VLANs: a port's interface is cut off.",
  badVlan: "0 and 4095 are refused after the switch has an entry for them, which stays.",
  vlanTaken: "Another interface is on this VLAN: this one is refused, and the other gets its MAC all the same.",
  needsPort: "The port is still one of LAN 1's: without VLAN it is refused, and its record stays. Give it a VLAN, or the port a LAN of its own first.",
  defaultThere: "The port has its default interface already: it is recorded twice, and taking the port back fails later.",
  portCarriesVlans: "Interfaces on VLANs stand on this port, and keep it from being given back. Delete them first, the last one first.",
  lanOne: "LAN 1's own port leaves the shared VLAN, and the router leaves it for the other ports too.",
  wanPort: "The WAN's port becomes one of LAN 1's: its wire and the LAN are one network.",
  duplicate: "The name is taken: a second record is made, and look-ups find the older one.",
  noGateway: "0.0.0.0 is no new gateway: the old one comes back with the next link.",
  sameNumber: "Another WAN has this number: one rule and table serve both, and the first default route carries the traffic.",
  sharedOuter: "Another interface of the port has this outer VLAN: deleting one takes the port out of it for both.",
  firstOfPort: "First interface of its port, and on a VLAN: deleting or changing it fails, and leaves its device and VLAN.",
  noLinkYet: "Its port has no link: the device is lowered until there is one.",
  wanNoSetUp: "The port is not set up as a WAN's: the WAN does not follow the link.",
  twoCpu: "On a board with two CPU ports a WAN on a VLAN cannot come up.",
  tagged: "Stations reach it with tagged frames of this VLAN only.",
  halfDone: "The old interface goes before the new values are looked at: a refused change leaves it without its bridge.",
  routeOnly: "Status 0 means recorded, not taken by the kernel: look into the table.",
  withdrawn: "The old route is withdrawn first; traffic takes the next best way meanwhile.",
};

export function t(key, values = {}) {
  return (TEXTS[key] ?? key).replace(/\{(\w+)\}/g, (_, name) => String(values[name] ?? ""));
}

const STATUS = { 1: "invalid command", 2: "invalid argument", 3: "method not found", 4: "not found", 5: "no data",
  6: "permission denied", 7: "timeout", 9: "unknown error", "-1": "failed", "-13": "address or device",
  "-17": "no process of the client" };

export const statusText = (status) => (STATUS[status] ? `, ${STATUS[status]}` : "");

export function linkText(port) {
  if (!port.link) return t("noLink");
  const speed = port.speed >= 1000 ? `${port.speed / 1000} G` : `${port.speed} M`;
  return `${speed} ${t(port.full_duplex ? "full" : "half")}`;
}

export function troubleText(trouble) {
  return t(trouble.kind ?? "refused", { text: trouble.message });
}

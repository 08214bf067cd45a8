// What the daemon is known to do otherwise than one would think, for a call before it is sent: keys of the table of texts.
import { numberOf, portVlan, sideOf } from "./model.js";

const VLANS = 11;

const portOf = (model, name) => model.ports.find((port) => port.serves.includes(sideOf(name) + numberOf(name)));
const given = (value) => value !== undefined && value !== "";

function* vlanWarnings(model, args, port, others) {
  const vid = +args.vlanid1;
  if (vid >= portVlan(0) && vid <= portVlan(4)) yield "portVlan";
  if (vid === 0 || vid > 4094) yield "badVlan";
  const used = model.vlans.filter((vlan) => vlan.entry >= 5);
  if (used.length >= VLANS && !used.some((vlan) => vlan.vid === vid)) yield "twelfth";
  if (others.some((one) => one.vid === vid && (!given(args.vlanid2) || one.inner === +args.vlanid2))) yield "vlanTaken";
  if (!others.some((one) => one.port === port?.port)) yield "firstOnVlan";
  if (sideOf(args.intf) === "wan" && model.vlans.some((vlan) => vlan.members.includes(5))) yield "twoCpu";
  yield "tagged";
}

function* wanWarnings(model, args, port, others) {
  if (given(args.defrt_pri) && !(args.defrt_pri >= 10002 && args.defrt_pri <= 32765)) yield "priority";
  else if (others.some((one) => sideOf(one.name) === "wan" && one.number === +args.defrt_pri)) yield "sameNumber";
}

function* interfaceWarnings(model, method, args) {
  const port = portOf(model, args.intf);
  const others = model.interfaces.filter((one) => one.name !== (args.old_intf ?? args.intf));
  const shared = port && port.port !== portOf(model, "lan1")?.port && port.pvid !== portVlan(port.port);
  if (given(args.vlanid1)) yield* vlanWarnings(model, args, port, others);
  else if (method === "add" && shared) yield "needsPort";
  if (sideOf(args.intf) === "wan") yield* wanWarnings(model, args, port, others);
  if (method === "add") {
    if (model.interfaces.some((one) => one.name === args.intf)) yield "duplicate";
    if (sideOf(args.intf) === "wan" && port && port.pvid !== portVlan(port.port)) yield "wanNoSetUp";
    return;
  }
  if (args.gateway === "0.0.0.0") yield "noGateway";
  if (args.old_intf !== args.intf && others.some((one) => one.name === args.intf)) yield "duplicate";
  if (isFirstOnVlan(model, args.old_intf)) yield "firstOfPort";
  yield "halfDone";
}

function isFirstOnVlan(model, name) {
  const one = model.interfaces.find((other) => other.name === name);
  return one?.vid && model.interfaces.find((other) => other.port === one.port) === one;
}

function* deleteWarnings(model, name) {
  const one = model.interfaces.find((other) => other.name === name);
  if (isFirstOnVlan(model, name)) yield "firstOfPort";
  if (one?.vid && model.interfaces.some((other) => other !== one && other.port === one.port && other.vid === one.vid)) {
    yield "sharedOuter";
  }
}

function* portWarnings(model, method, name) {
  const port = portOf(model, name);
  const there = model.interfaces.filter((one) => one.port === port?.port);
  if (method === "port_add") {
    if (there.some((one) => one.name === `${name}_default`)) yield "defaultThere";
    return;
  }
  if (there.some((one) => one.vid)) yield "portCarriesVlans";
  if (name === "lan1") yield "lanOne";
  if (sideOf(name) === "wan") yield "wanPort";
}

function* of(model, object, method, args) {
  if (object === "ivarode.route") {
    if (method === "add" && model.routes.some((route) => route.name === args.name)) yield "duplicate";
    if (method === "edit") yield "withdrawn";
    if (method !== "del") yield "routeOnly";
  } else if (object === "ivarode.intf") {
    if (method === "port_add" || method === "port_del") yield* portWarnings(model, method, args.name);
    else if (method === "add" || method === "config") yield* interfaceWarnings(model, method, args);
    else if (method === "del") yield* deleteWarnings(model, args.intf[0]);
    else if (method === "enable" && portOf(model, args.intf[0])?.link === false) yield "noLinkYet";
  }
}

export const warnings = (model, object, method, args) => [...new Set(of(model, object, method, args))];

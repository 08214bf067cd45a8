// What is known of a call before it is sent: where it does otherwise than one would think, and its plan.
import { h } from "./dom.js";
import { array, isWan, portOf, portVlan } from "./model.js";
import { ask } from "./rpc.js";
import { t } from "./texts.js";

const VLANS = 11;
const given = (value) => value !== undefined && value !== "";

function* vlanWarnings(model, args, port, others) {
  const vid = +args.vlanid1;
  if (vid >= portVlan(0) && vid <= portVlan(4)) yield "portVlan";
  if (vid === 0 || vid > 4094) yield "badVlan";
  const used = model.vlans.filter((vlan) => vlan.entry >= 5);
  if (used.length >= VLANS && !used.some((vlan) => vlan.vid === vid)) yield "twelfth";
  if (others.some((one) => one.vid === vid && (!given(args.vlanid2) || one.inner === +args.vlanid2))) yield "vlanTaken";
  if (!others.some((one) => one.port === port?.port)) yield "firstOnVlan";
  if (isWan(args.intf) && model.vlans.some((vlan) => vlan.members.includes(5))) yield "twoCpu";
  yield "tagged";
}

function* interfaceWarnings(model, adds, args) {
  const wan = isWan(args.intf);
  const port = portOf(model, args.intf);
  const shared = port && port.pvid !== portVlan(port.port);
  const others = model.interfaces.filter((one) => one.name !== (args.old_intf ?? args.intf));
  if (given(args.vlanid1)) yield* vlanWarnings(model, args, port, others);
  else if (adds && shared && port !== portOf(model, "lan1")) yield "needsPort";
  if (wan && given(args.defrt_pri) && !(args.defrt_pri >= 10002 && args.defrt_pri <= 32765)) yield "priority";
  else if (wan && others.some((one) => isWan(one.name) && one.number === +args.defrt_pri)) yield "sameNumber";
  if (adds && wan && shared) yield "wanNoSetUp";
  if ((adds ? model.interfaces : others).some((one) => one.name === args.intf)) yield "duplicate";
  if (adds) return;
  if (args.gateway === "0.0.0.0") yield "noGateway";
  yield* firstWarnings(model, args.old_intf);
  yield "halfDone";
}

function* firstWarnings(model, name) {
  const one = model.interfaces.find((other) => other.name === name);
  if (one?.vid && model.interfaces.find((other) => other.port === one.port) === one) yield "firstOfPort";
}

function* deleteWarnings(model, name) {
  yield* firstWarnings(model, name);
  const same = model.interfaces.filter((one) => one.vid && ["port", "vid"].every((key) =>
    one[key] === model.interfaces.find((other) => other.name === name)?.[key]));
  if (same.length > 1) yield "sharedOuter";
}

const standing = (model, name) => model.interfaces.filter((one) => one.port === portOf(model, name)?.port);

const OF = {
  "ivarode.route add": function* add(model, { name }) {
    if (model.routes.some((route) => route.name === name)) yield "duplicate";
    yield "routeOnly";
  },
  "ivarode.route edit": () => ["withdrawn", "routeOnly"],
  "ivarode.route enable": () => ["routeOnly"],
  "ivarode.intf add": (model, args) => interfaceWarnings(model, true, args),
  "ivarode.intf config": (model, args) => interfaceWarnings(model, false, args),
  "ivarode.intf del": (model, args) => deleteWarnings(model, args.intf[0]),
  "ivarode.intf enable": (model, args) => (portOf(model, args.intf[0])?.link === false ? ["noLinkYet"] : []),
  "ivarode.intf port_add": (model, { name }) =>
    (standing(model, name).some((one) => one.name === `${name}_default`) ? ["defaultThere"] : []),
  "ivarode.intf port_del": function* back(model, { name }) {
    if (standing(model, name).some((one) => one.vid)) yield "portCarriesVlans";
    if (name === "lan1") yield "lanOne";
    if (isWan(name)) yield "wanPort";
  },
};

// Keys of the table of texts.
export const warnings = (model, object, method, args) => [...OF[`${object} ${method}`]?.(model, args) ?? []];

// The interface by which this browser's requests come in, where the plan changes it.
function ownWay(changes, model) {
  const name = model.interfaces.find((one) => array(one.addresses).some((address) => address.split("/")[0] === location.hostname))?.name;
  return changes.some((fact) => [`-address ${name}`, `-device ${name}`, `-up ${name}`].includes(fact) ||
    fact.startsWith(`address ${name} =`)) && name;
}

function drawn(plan, model) {
  const { reach, operations, messages, meetings, ...phase } = array(plan.phases).findLast((one) => one.kind === "call") ?? { refused: true };
  const own = ownWay(array(phase.changes).map(String), model);
  const [before, after] = [array(reach)[0], array(reach).at(-1)].map((one) => new Set(array(one?.joined).map((pair) => pair.join())));
  const lost = (one, other, key) => [...one].filter((pair) => !other.has(pair)).map((pair) => ["note", key, pair.split(",")]);
  const rows = [...lost(before, after, "apart"), ...lost(after, before, "together"), ...array(meetings).map((one) =>
    ["warn", one.lasts ? "meetLasts" : "meet", array(one.ports), one.writes])];
  const steps = array(operations).filter((one) => array(one.changes).length);
  return [h("h3", null, t("planHead")), own && h("p.warn", { role: "alert" }, t("ownWay", { name: own })),
    (plan.ending || phase.refused) && h("p.warn", null, plan.ending || t("planRefused", phase)),
    h("ul", null, array(messages).filter((one) => one.level === "error").map((one) => h("li.warn", null, one.text)),
      rows.map(([kind, key, [one, other], writes]) => h(`li.${kind}`, null, t(key, { one, other, writes })))),
    steps.length ? h("ol.steps", null, steps.map((one) => h("li", null, one.words))) : !plan.ending && h("p", null, t("planNothing")),
    h("p.aside", null, t("planFrom"))];
}

export const planOf = async (model, object, method, args) =>
  drawn(await ask("ivarode.view", "plan", { calls: [`${object} ${method} ${JSON.stringify(args)}`] }), model);

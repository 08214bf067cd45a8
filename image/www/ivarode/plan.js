// A plan of ivarode-plan, told in what a person asks: what changes, who is cut off, who meets.
import { ask } from "./rpc.js";
import { h } from "./dom.js";
import { t } from "./texts.js";

const array = (value) => (Array.isArray(value) ? value : []);
const pairs = (joined) => new Map(array(joined).map((pair) => [pair.join("-"), pair]));

// The interface by which this browser's own requests come in; undefined where that cannot be known.
export const ownWay = (model, host) => model.interfaces.find((one) => array(one.addresses).some((address) => address.split("/")[0] === host))?.name;

export function summary(plan, own) {
  const phase = array(plan.phases).findLast((one) => one.kind === "call");
  if (!phase || plan.ending) return { ends: true, refused: true, status: phase?.status, changes: [], apart: [], together: [], meetings: [] };
  const reach = array(phase.reach);
  const [before, after] = [pairs(reach[0]?.joined), pairs(reach.at(-1)?.joined)];
  const without = (one, other) => [...one].filter(([key]) => !other.has(key)).map(([, pair]) => pair);
  const gone = array(phase.changes).map(String);
  return { refused: phase.refused, status: phase.status,
    changes: array(phase.operations).filter((one) => array(one.changes).length).map((one) => String(one.words)),
    says: array(phase.messages).filter((one) => one.level === "error").map((one) => String(one.text)),
    apart: without(before, after), together: without(after, before), meetings: array(phase.meetings),
    own: own && gone.some((fact) => [`-address ${own}`, `-device ${own}`, `-up ${own}`].includes(fact) ||
      fact.startsWith(`address ${own} =`)) ? own : undefined };
}

export function drawn(sum) {
  const two = ([one, other]) => ({ one: t("port") + " " + one, other: t("port") + " " + other });
  return [
    sum.own && h("p", { class: "warn", role: "alert" }, t("ownWay", { name: sum.own })),
    sum.ends && h("p", { class: "warn" }, t("planEnds")),
    sum.refused && !sum.ends && h("p", { class: "warn" }, t("planRefused", { status: sum.status })),
    h("ul", null, array(sum.says).map((text) => h("li", { class: "warn" }, text)),
      sum.apart.map((pair) => h("li", { class: "note" }, t("apart", two(pair)))),
      sum.together.map((pair) => h("li", { class: "note" }, t("together", two(pair)))),
      sum.meetings.map((one) => h("li", { class: "warn" },
        t(one.lasts ? "meetLasts" : "meet", { ...two(array(one.ports)), writes: one.writes })))),
    sum.changes.length ? h("ol", { class: "steps" }, sum.changes.map((words) => h("li", null, words)))
      : h("p", null, t("planNothing")),
    h("p", { class: "aside" }, t("planFrom"))];
}

export const planOf = (object, method, args) =>
  ask("ivarode.view", "plan", { calls: [`${object} ${method} ${JSON.stringify(args)}`] });

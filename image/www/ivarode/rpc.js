// Requests to the bus by way of the web server. The token is kept in memory only.

const nobody = "0".repeat(32);
let token = nobody;
let counter = 0;

const LIMIT_MS = 20000;
const PLAN_LIMIT_MS = 60000;
export const setToken = (value) => { token = value || nobody; };
export const hasToken = () => token !== nobody;

// What kept a request from the bus: "away" (no web server, or no bus behind it), "slow", "denied", "missing".
class Trouble extends Error {
  constructor(kind, text) {
    super(text || kind);
    this.kind = kind;
  }
}

const kinds = { [-32002]: "denied", [-32000]: "missing", [-32003]: "slow" };

async function post(body, limit) {
  let answer;
  try {
    answer = await fetch("/ubus", { method: "POST", body: JSON.stringify(body), cache: "no-store",
      headers: { "Content-Type": "application/json" }, signal: AbortSignal.timeout(limit) });
    if (answer.ok) return await answer.json();
  } catch (error) {
    throw new Trouble(error.name === "TimeoutError" ? "slow" : "away", "");
  }
  throw new Trouble("away", `HTTP ${answer.status}`);
}

// {status, data} of a call; Trouble where it did not reach the method.
export async function call(object, method, args = {}) {
  const said = await post({ jsonrpc: "2.0", id: ++counter, method: "call", params: [token, object, method, args] },
    method === "plan" ? PLAN_LIMIT_MS : LIMIT_MS);
  if (said.error) throw new Trouble(kinds[said.error.code] ?? "away", String(said.error.message));
  return { status: said.result[0], data: said.result[1] };
}

// The reply alone; Trouble for every status but 0, and for a plug-in's own error.
export async function ask(object, method, args) {
  const { status, data } = await call(object, method, args);
  if (status === 4) throw new Trouble("missing", object);
  if (status !== 0) throw new Trouble("refused", `status ${status}`);
  if (data?.error) throw new Trouble("refused", String(data.error));
  return data ?? {};
}

export async function login(username, password) {
  setToken(nobody);
  const { status, data } = await call("session", "login", { username, password });
  if (status !== 0) return false;
  setToken(data.ubus_rpc_session);
  return true;
}

// The same call as a command line of the bus's own client.
export const command = (object, method, args) =>
  `ubus call ${object} ${method} '${JSON.stringify(args).replaceAll("'", "'\\''")}'`;

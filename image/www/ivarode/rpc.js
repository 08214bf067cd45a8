// Requests to the bus by way of the web server. The token is kept in memory only.
const NOBODY = "0".repeat(32);
const LIMIT_MS = 30000;
let token = NOBODY;
let counter = 0;

export const setToken = (value) => { token = value || NOBODY; };

// What kept a request from its answer: a key of the table of texts.
class Trouble extends Error {
  constructor(kind, text = "") {
    super(text);
    this.kind = kind;
  }
}

const KINDS = { [-32002]: "denied", [-32000]: "missing", [-32003]: "slow" };

export async function call(object, method, args = {}) {
  let said;
  try {
    const answer = await fetch("/ubus", { method: "POST", headers: { "Content-Type": "application/json" },
      body: JSON.stringify({ jsonrpc: "2.0", id: ++counter, method: "call", params: [token, object, method, args] }),
      cache: "no-store", signal: AbortSignal.timeout(LIMIT_MS) });
    said = await answer.json();
  } catch (error) {
    throw new Trouble(error.name === "TimeoutError" ? "slow" : "away");
  }
  if (!said.result) throw new Trouble(KINDS[said.error?.code] ?? "away", said.error?.message);
  return { status: said.result[0], data: said.result[1] ?? {} };
}

// The reply alone; Trouble for all but status 0.
export async function ask(object, method, args) {
  const { status, data } = await call(object, method, args);
  if (status === 4) throw new Trouble("missing", object);
  if (status || data.error) throw new Trouble("refused", status ? `status ${status}` : data.error);
  return data;
}

export async function login(username, password) {
  setToken();
  const { status, data } = await call("session", "login", { username, password });
  if (!status) setToken(data.ubus_rpc_session);
  return !status;
}

export const command = (object, method, args) =>
  `ubus call ${object} ${method} '${JSON.stringify(args).replaceAll("'", "'\\''")}'`;

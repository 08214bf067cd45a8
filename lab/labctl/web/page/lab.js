// What only a virtual board has: cables to pull, hosts to ping from, other boards to raise. Served by the lab alone.
import { label, line } from "./board.js";
import { at, button, h, pressed, show, svg } from "./dom.js";
import { ask, call } from "./rpc.js";
import { t, troubleText } from "./texts.js";

const INTERNET = "198.51.100.1";
const PAUSE_MS = 1000;
const TEXTS = { head: "Between hosts", from: "From", to: "To", internet: `the internet (${INTERNET})`, router: "the router",
  ping: "Ping", stream: "Stream", stop: "Stop", pong: "answered after {ms} ms, {hops} on the way", lost: "no answer",
  streamed: "{answered} of {sent} frames of 1400 bytes answered", raise: "Raise", raising: "Raising the board\u2026",
  direct: "no router", routed: "a router",
  pull: "Pull the cable of {host} from port {port}", plug: "Plug the cable of {host} into port {port}" };
const say = (key, values = {}) => TEXTS[key].replace(/\{(\w+)\}/g, (_, name) => String(values[name]));

export class Lab {
  #about = { hosts: [], boards: [], configs: [] };
  #running = 0;
  #look;

  // look: takes a sample of the links at once.
  constructor(look) {
    this.#look = look;
    document.head.append(h("link", { rel: "stylesheet", href: "lab.css" }));
  }

  async start(place) {
    this.#about = await ask("lab", "about");
    const option = (value, text) => h("option", { value }, text);
    const names = this.#about.hosts.filter((host) => host.name !== "router");
    const choice = (id, name, options) => h("div", { class: "field" }, h("label", { for: id }, name), h("select", { id }, options));
    const pick = (id, name, options, now) => choice(id, name, options.map((one) => h("option", { selected: one === now }, one)));
    show(place, h("h2", null, say("head")), h("div", { class: "fields" },
      choice("ping-from", say("from"), names.map((host) => option(host.name, host.name))),
      choice("ping-to", say("to"), [option(INTERNET, say("internet")), names.map((host) => option(host.address,
        `${host.name} (${host.address})`))])),
    h("p", { class: "buttons" }, button(say("ping"), () => this.#run(false), { id: "ping" }),
      button(say("stream"), () => this.#run(true), { id: "stream" }),
      button(say("stop"), () => this.stop(), { id: "stop", disabled: true })),
    h("p", { id: "pong", role: "status" }),
    h("details", null, h("summary", null, `${this.#about.board}, ${this.#about.config}`), h("div", { class: "fields" },
      pick("raise-board", "Board", this.#about.boards, this.#about.board),
      pick("raise-config", "Configuration", this.#about.configs, this.#about.config)),
    h("p", { class: "buttons" }, button(say("raise"), () => this.#raise(), { id: "raise" }))));
    at("place").textContent = `${this.#about.board}, ${this.#about.config}`;
  }

  // Who sits on a port, and the cable, which is broken where it is pulled.
  above = (port, x, top) => {
    const host = this.#about.hosts.find((one) => one.port === port.port);
    if (!host) return null;
    const act = () => call("lab", "link", { port: port.port, up: port.link ? 0 : 1 }).then(this.#look, () => {});
    return svg("g", { id: `cable-${port.port}`, class: "cable",
      ...pressed(act, say(port.link ? "pull" : "plug", { port: port.port, host: host.name })) },
    svg("rect", { x: x - 26, y: 2, width: 52, height: top - 10, class: "touch" }),
    svg("rect", { x: x - 21, y: 3, width: 42, height: 22, rx: 11, class: "host" }),
    label(x, 18, host.name, { class: "small" }),
    port.link ? line(x, 25, x, top, { class: "wire" })
      : [line(x, 25, x, 30, { class: "wire" }), line(x - 6, 36, x + 6, 30, { class: "gap" }),
        line(x - 6, 41, x + 6, 35, { class: "gap" })]);
  };

  stop() {
    this.#running += 1;
    at("stop").disabled = true;
    document.body.classList.remove("moving");
  }

  // Again and again until it is stopped; each answer is said, and "data-state" has it for programs.
  async #run(stream) {
    this.stop();
    const mine = this.#running;
    at("stop").disabled = false;
    const args = { host: at("ping-from").value, to: at("ping-to").value, ...(stream ? { count: 50, size: 1400 } : {}) };
    while (mine === this.#running) {
      const pong = at("pong");
      try {
        const said = await ask("lab", "ping", args);
        if (mine !== this.#running) return;
        pong.dataset.state = said.answered ? "answer" : "lost";
        pong.textContent = stream ? say("streamed", said) : said.answered
          ? say("pong", { ms: said.ms, hops: say(said.ttl < 64 ? "routed" : "direct") }) : say("lost");
      } catch (trouble) {
        pong.textContent = troubleText(trouble);
      }
      document.body.classList.toggle("moving", pong.dataset.state === "answer");
      await new Promise((resolve) => { setTimeout(resolve, stream ? 0 : PAUSE_MS); });
    }
  }

  async #raise() {
    const pong = at("pong");
    pong.textContent = say("raising");
    try {
      await ask("lab", "raise", { board: at("raise-board").value, config: at("raise-config").value });
      location.reload();
    } catch (trouble) {
      pong.textContent = troubleText(trouble);
    }
  }
}

// What only a virtual board has: cables to pull, hosts to ping from, other boards to raise, recordings to play. Served by
// the lab alone.
import { box, label, line } from "./board.js";
import { at, button, h, pressed, rest, show } from "./dom.js";
import { ask, call } from "./rpc.js";
import { troubleText } from "./texts.js";

const INTERNET = "198.51.100.1";
const PAUSE_MS = 1000;
const TEXTS = { head: "Between hosts", internet: `the internet (${INTERNET})`, pong: "answered after {ms} ms, {hops} on the way",
  streamed: "{answered} of {sent} frames of 1400 bytes answered", raising: "Raising the board\u2026",
  pull: "Pull the cable of {host} from port {port}", plug: "Plug the cable of {host} into port {port}",
  playing: "{count} events so far\u2026", played: "{count} events. {words}", past: "recorded at {time}", moment: "{time} {said}",
  nobody: "Choose a recording first: /tmp/ivarode.rec of a router." };
const say = (key, values = {}) => (TEXTS[key] ?? key).replace(/\{(\w+)\}/g, (_, name) => String(values[name]));

// A file as base64.
const content = (file) => new Promise((done, fail) => {
  const reader = new FileReader();
  reader.onload = () => done(reader.result.split(",")[1] ?? "");
  reader.onerror = fail;
  reader.readAsDataURL(file);
});

export class Lab {
  #about = { hosts: [], boards: [], configs: [] };
  #running = 0;
  #moving = [];
  #moments = [];
  #look;

  // What the page shows instead of the present: { status, text }.
  past;

  // look: takes a sample at once, of the "links" or of "all".
  constructor(look) {
    this.#look = look;
    document.head.append(h("link", { rel: "stylesheet", href: "lab.css" }));
  }

  async start(place) {
    this.#about = await ask("lab", "about");
    const { board, config, boards, configs } = this.#about;
    const hosts = this.#about.hosts.filter((host) => host.name !== "router");
    const field = (id, name, input) => h("div.field", null, h("label", { for: id }, say(name)), input);
    const choice = (id, name, options) => field(id, name, h("select", { id }, options));
    const pick = (id, name, options, now) => choice(id, name, options.map((one) => h("option", { selected: one === now }, one)));
    show(place, h("h2", null, say("head")), h("div.fields", null,
      choice("ping-from", "From", hosts.map((host) => h("option", { value: host.name }, host.name))),
      choice("ping-to", "To", [h("option", { value: INTERNET }, say("internet")), hosts.filter((host) => host.address).map((host) =>
        h("option", { value: host.address }, `${host.name} (${host.address})`))])),
    h("p.buttons", null, button(say("Ping"), () => this.#run(false), { id: "ping" }),
      button(say("Stream"), () => this.#run(true), { id: "stream" }), button(say("Stop"), () => this.stop(), { id: "stop", disabled: true })),
    h("p", { id: "pong", role: "status" }),
    h("details", null, h("summary", null, say("Another board")), h("div.fields", null,
      pick("raise-board", "Board", boards, board), pick("raise-config", "Configuration", configs, config)),
    h("p.buttons", null, button(say("Raise"), () => this.#raise(), { id: "raise" })), h("p", { id: "raised", role: "status" })),
    h("details", null, h("summary", null, say("A recording")), field("recording", "File", h("input", { id: "recording", type: "file" })),
      h("p.buttons", null, button(say("Play"), () => this.#play(), { id: "play" })), h("p", { id: "played", role: "status" }),
      h("div", { id: "time", hidden: true }, field("moment", "Event", h("input", { id: "moment", type: "range", min: 0, max: 0, value: 0,
        oninput: () => this.#show() })), h("p", { id: "said", role: "status" }))));
    at("place").textContent = `${board}, ${config}`;
  }

  // Who sits on a port, and the cable, which is broken where it is pulled.
  above = (port, x, top) => {
    const host = this.#about.hosts.find((one) => one.port === port.port);
    if (!host) return null;
    const act = () => call("lab", "link", { port: port.port, up: port.link ? 0 : 1 }).then(this.#look.links, () => {});
    return h("g", { id: `cable-${port.port}`, class: this.#moving.includes(host.name) ? "cable moving" : "cable",
      ...pressed(act, say(port.link ? "pull" : "plug", { port: port.port, host: host.name })) },
    box("touch", x - 26, 2, 52, top - 10), box("host", x - 21, 3, 42, 22, 11), label("small", x, 18, host.name),
    port.link ? line("wire", x, 25, x, top)
      : [line("wire", x, 25, x, 30), line("gap", x - 6, 36, x + 6, 30), line("gap", x - 6, 41, x + 6, 35)]);
  };

  stop() {
    this.#running += 1;
    this.#moving = [];
    at("stop").disabled = true;
  }

  // Again and again until it is stopped; each answer is said, and "data-state" has it for programs.
  async #run(stream) {
    this.stop();
    const mine = this.#running;
    at("stop").disabled = false;
    const [from, to] = [at("ping-from").value, at("ping-to").value];
    const ends = [from, to === INTERNET ? "isp" : this.#about.hosts.find((host) => host.address === to)?.name];
    const pong = at("pong");
    while (mine === this.#running) {
      try {
        const said = await ask("lab", "ping", { host: from, to, ...(stream ? { count: 50, size: 1400 } : {}) });
        if (mine !== this.#running) return;
        pong.dataset.state = said.answered ? "answer" : "lost";
        this.#moving = said.answered ? ends : [];
        const answer = said.answered ? say("pong", { ms: said.ms, hops: say(said.ttl < 64 ? "a router" : "no router") }) : say("no answer");
        pong.textContent = stream ? say("streamed", said) : answer;
      } catch (trouble) {
        pong.textContent = troubleText(trouble);
      }
      await rest(stream ? 0 : PAUSE_MS);
    }
  }

  async #raise() {
    const raised = at("raised");
    raised.textContent = say("raising");
    this.stop();
    try {
      await ask("lab", "raise", { board: at("raise-board").value, config: at("raise-config").value });
      location.reload();
    } catch (trouble) {
      raised.textContent = troubleText(trouble);
    }
  }

  // The board of the recording is raised, and what came to its router comes again; behind each event there is a picture.
  async #play() {
    const [file] = at("recording").files;
    const played = at("played");
    played.textContent = say(file ? "raising" : "nobody");
    if (!file) return;
    this.stop();
    this.past = undefined;
    try {
      await ask("lab", "play", { recording: await content(file) });
      for (let state = { playing: true }; state.playing;) {
        await rest(PAUSE_MS);
        state = await ask("lab", "played");
        this.#came(state);
      }
      this.#about = await ask("lab", "about");
    } catch (trouble) {
      played.textContent = troubleText(trouble);
    }
  }

  #came({ playing, moments, words }) {
    const slider = at("moment");
    const now = !this.past;
    this.#moments = moments;
    slider.max = moments.length;
    if (now) slider.value = moments.length;
    at("time").hidden = moments.length === 0;
    if (moments.length || !playing) at("played").textContent = say(playing ? "playing" : "played", { count: moments.length, words: words.join(" ") });
    if (now) this.#tell();
  }

  // The end of the slider is the present.
  #tell() {
    const moment = this.#moments[at("moment").value];
    at("said").textContent = moment ? say("moment", moment) : say("the board now");
    at("moment").setAttribute("aria-valuetext", at("said").textContent);
  }

  async #show() {
    const index = +at("moment").value;
    this.#tell();
    const found = index < this.#moments.length && await ask("lab", "moment", { at: index });
    if (index !== +at("moment").value) return;
    this.past = found ? { status: found.status, text: say("past", found) } : undefined;
    this.#look.all();
  }
}

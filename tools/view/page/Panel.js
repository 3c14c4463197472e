/** Numbers and the agent's log, beside the picture. */

const MOST_LINES = 500;
const PERIOD = 1000;

export class Panel {
  #element;
  #log;
  #level;
  #connection;
  #screen;
  #timer = 0;
  #then = null;

  /** What the server last told. */
  stats = {};

  /** chosen(level) tells which lines of the log are wanted. */
  constructor(element, connection, screen, chosen) {
    this.#element = element;
    this.#connection = connection;
    this.#screen = screen;
    this.#log = element.querySelector("#log");
    this.#level = element.querySelector("#log-level");
    this.#level.addEventListener("change", () => {
      const { level } = this;
      this.level = level;
      chosen(level);
    });
    element.querySelector("#log-clear").addEventListener("click", () => this.#log.replaceChildren());
  }

  get level() {
    return Number(this.#level.value);
  }

  set level(level) {
    this.#level.value = level;
    this.#log.className = `up-to-${level}`;
  }

  get isOpen() {
    return !this.#element.hidden;
  }

  set isOpen(isOpen) {
    this.#element.hidden = !isOpen;
    clearInterval(this.#timer);
    this.#connection.lifeInterval = isOpen ? PERIOD : 10000;
    if (!isOpen) return;
    this.#then = null;
    this.#timer = setInterval(() => this.#show(), PERIOD);
    this.#show();
    this.#log.scrollTop = this.#log.scrollHeight;
  }

  addLine({ level, source, text, time }) {
    const make = (kind, textContent) => Object.assign(document.createElement(kind), { textContent });
    const line = make("li");
    line.className = level === 0 ? "error" : level > 30 ? "detail" : "";
    line.append(make("time", new Date(time).toTimeString().slice(0, 8)), " ", make("b", source), " ", text);
    const list = this.#log;
    const isAtEnd = list.scrollHeight - list.scrollTop - list.clientHeight < 20;
    list.append(line);
    if (list.childElementCount > MOST_LINES) list.firstElementChild.remove();
    if (isAtEnd) list.scrollTop = list.scrollHeight;
  }

  #show() {
    const { frames, rectangles } = this.#screen;
    const { bytes, latency } = this.#connection;
    const now = { time: performance.now(), frames, bytes, rectangles: { ...rectangles } };
    // A new connection begins at nothing.
    const then = this.#then?.frames <= frames ? this.#then : now;
    this.#then = now;
    const seconds = (now.time - then.time) / 1000 || 1;
    const values = {
      updates: ((frames - then.frames) / seconds).toFixed(0),
      latency: latency === null ? "–" : `${latency.toFixed(1)} ms`,
      rate: `${size((bytes - then.bytes) / seconds)}/s`,
      mode: this.stats.mode ?? "–",
      encodings: Object.entries(rectangles)
        .map(([name, count]) => [name, count - (then.rectangles[name] ?? 0)])
        .filter(([, count]) => count > 0)
        .map((pair) => pair.join(" ")).join(", ") || "–",
    };
    for (const [name, text] of Object.entries(values)) {
      this.#element.querySelector(`[data-value=${name}]`).textContent = text;
    }
  }
}

function size(bytes) {
  if (bytes < 1000) return `${bytes.toFixed(0)} B`;
  return bytes < 1e6 ? `${(bytes / 1e3).toFixed(1)} KB` : `${(bytes / 1e6).toFixed(1)} MB`;
}

/** Numbers and the agent's log, beside the picture. */

const MOST_LINES = 500;
const AVERAGE = 1000;

export class Panel {
  #element;
  #values = {};
  #log;
  #level;
  #connection;
  #screen;
  #timer = 0;
  #then = null;
  #stats = {};

  /** chosen(level) tells which lines of the log are wanted. */
  constructor(element, connection, screen, chosen) {
    this.#element = element;
    this.#connection = connection;
    this.#screen = screen;
    for (const value of element.querySelectorAll("[data-value]")) {
      this.#values[value.dataset.value] = value;
    }
    this.#log = element.querySelector("#log");
    this.#level = element.querySelector("#log-level");
    this.#level.addEventListener("change", () => {
      this.#filter();
      chosen(this.level);
    });
    element.querySelector("#log-clear").addEventListener("click", () => this.#log.replaceChildren());
  }

  get level() {
    return Number(this.#level.value);
  }

  set level(level) {
    if (level !== undefined) this.#level.value = String(level);
    this.#filter();
  }

  get isOpen() {
    return !this.#element.hidden;
  }

  set isOpen(isOpen) {
    this.#element.hidden = !isOpen;
    clearInterval(this.#timer);
    this.#connection.lifeInterval = isOpen ? 1000 : 10000;
    this.#connection.refresh();
    if (!isOpen) return;
    this.#then = null;
    this.#timer = setInterval(() => this.#show(), AVERAGE);
    this.#show();
  }

  stats(stats) {
    this.#stats = stats;
  }

  addLine({ level, source, text }) {
    const line = document.createElement("li");
    const kind = level === 0 ? "error" : level <= 30 ? "fact" : "detail";
    line.className = kind;
    line.dataset.level = level;
    line.hidden = level > this.level;
    const time = document.createElement("time");
    time.textContent = new Date().toTimeString().slice(0, 8);
    const name = document.createElement("b");
    name.textContent = source;
    line.append(time, " ", name, " ", text);
    const list = this.#log;
    const isAtEnd = list.scrollHeight - list.scrollTop - list.clientHeight < 20;
    list.append(line);
    while (list.childElementCount > MOST_LINES) list.firstElementChild.remove();
    if (isAtEnd) list.scrollTop = list.scrollHeight;
  }

  #filter() {
    for (const line of this.#log.children) line.hidden = Number(line.dataset.level) > this.level;
  }

  #show() {
    const now = {
      time: performance.now(), frames: this.#screen.frames, bytes: this.#connection.bytes,
      rectangles: { ...this.#screen.rectangles },
    };
    const then = this.#then?.frames <= now.frames ? this.#then : null;
    this.#then = now;
    const seconds = then ? (now.time - then.time) / 1000 : 1;
    const rate = (name) => (then ? (now[name] - then[name]) / seconds : 0);
    const recent = Object.entries(now.rectangles)
      .map(([name, count]) => [name, count - (then?.rectangles[name] ?? 0)])
      .filter(([, count]) => count > 0);
    const { latency, isOpen } = this.#connection;
    this.#set({
      updates: rate("frames").toFixed(0),
      latency: latency === null || !isOpen ? "–" : `${latency.toFixed(latency < 10 ? 1 : 0)} ms`,
      rate: `${size(rate("bytes"))}/s`,
      bytes: size(now.bytes),
      encodings: recent.map(([name, count]) => `${name} ${count}`).join(", ") || "–",
      mode: this.#stats.mode ?? "–",
      queue: this.#stats.queue === undefined ? "–" : size(this.#stats.queue),
      size: `${this.#screen.width} × ${this.#screen.height}`,
    });
  }

  #set(values) {
    for (const [name, text] of Object.entries(values)) {
      const element = this.#values[name];
      if (element.textContent !== text) element.textContent = text;
    }
  }
}

function size(bytes) {
  if (bytes < 1000) return `${bytes.toFixed(0)} B`;
  return bytes < 1e6 ? `${(bytes / 1e3).toFixed(1)} KB` : `${(bytes / 1e6).toFixed(1)} MB`;
}

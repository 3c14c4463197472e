/** The line to the server: session, WebSocket, life signs, and coming back by itself. */

const PROTOCOL = "ruvo-view-1";
const FIRST_PAUSE = 250;
const LONGEST_PAUSE = 5000;
const SILENCE = 15000;

export class Connection {
  #handler;
  #socket = null;
  #attempt = 0;
  #pause = FIRST_PAUSE;
  #timer = 0;
  #lifeTimer = 0;
  #lifeInterval = 10000;
  #pinged = null;
  #lastHeard = 0;
  #token = "";

  /** Bytes received and the last round trip in milliseconds. */
  bytes = 0;
  latency = null;

  /**
   * The handler has connected(), message(object), binary(buffer) and lost(kind, text) with the kind
   * "server" (not reachable, tried again) or "session" (not allowed, a new address is needed).
   */
  constructor(handler) {
    this.#handler = handler;
    addEventListener("hashchange", () => this.start());
    addEventListener("online", () => this.retryNow());
    addEventListener("visibilitychange", () => document.hidden || this.retryNow());
  }

  /** Takes the token out of the address, where nobody shall find it, and connects. */
  start() {
    if (location.hash.length > 1) {
      this.#token = location.hash.slice(1);
      history.replaceState(null, "", location.pathname);
    } else if (this.#socket) {
      return;
    }
    this.#close();
    this.#connect();
  }

  /** Cuts a pause between two attempts short. */
  retryNow() {
    if (!this.#timer) return;
    this.#pause = FIRST_PAUSE;
    this.#connect();
  }

  restart() {
    this.#close();
    this.#again("The connection was lost.");
  }

  get isOpen() {
    return this.#socket?.readyState === WebSocket.OPEN;
  }

  /** Bytes not on the line yet. */
  get waiting() {
    return this.#socket?.bufferedAmount ?? 0;
  }

  /** Milliseconds between life signs. */
  set lifeInterval(interval) {
    this.#lifeInterval = interval;
    this.#live();
  }

  send(message) {
    if (this.isOpen) this.#socket.send(JSON.stringify(message));
  }

  async #connect() {
    clearTimeout(this.#timer);
    this.#timer = 0;
    const attempt = ++this.#attempt;
    const isAllowed = await this.#openSession();
    if (attempt !== this.#attempt) return;
    if (isAllowed === null) return this.#again("The server can't be reached.");
    if (!isAllowed) {
      this.#handler.lost("session",
        "This page isn't let in (any more). Open the address that ruvoview prints.");
      return this.#later(LONGEST_PAUSE);
    }
    const socket = new WebSocket(new URL("desktop", location.href.replace("http", "ws")), PROTOCOL);
    socket.binaryType = "arraybuffer";
    this.#socket = socket;
    socket.onopen = () => {
      this.bytes = 0;
      this.latency = this.#pinged = null;
      this.#lastHeard = performance.now();
      this.#handler.connected();
      this.#live();
    };
    socket.onmessage = ({ data }) => this.#heard(data);
    socket.onclose = ({ reason }) => {
      if (socket !== this.#socket) return;
      this.#close();
      this.#again(reason || "The server is gone.");
    };
  }

  /** Whether the server lets us in; null when it does not answer. */
  async #openSession() {
    const ask = async (options) => {
      const signal = AbortSignal.timeout(10000);
      const { ok, status } = await fetch("session", { cache: "no-store", signal, ...options });
      return ok || (status === 403 ? false : null);
    };
    try {
      if (this.#token) {
        const answer = await ask({ method: "POST", body: this.#token });
        if (answer === null) return null;
        this.#token = "";
        if (answer) return true;
      }
      return await ask();
    } catch {
      return null;
    }
  }

  #heard(data) {
    this.#lastHeard = performance.now();
    this.#pause = FIRST_PAUSE;
    this.bytes += data.byteLength ?? data.length;
    if (typeof data !== "string") return this.#handler.binary(data);
    const message = JSON.parse(data);
    if (message.t !== "pong") return this.#handler.message(message);
    if (this.#pinged) this.latency = this.#lastHeard - this.#pinged;
    this.#pinged = null;
  }

  /** A line that died without a word is known by its silence. */
  #live() {
    clearTimeout(this.#lifeTimer);
    if (!this.isOpen) return;
    const now = performance.now();
    // A page that slept has heard nothing either: it asks before it believes that.
    if (this.#pinged && now - this.#lastHeard > SILENCE) return this.restart();
    this.#pinged ??= now;
    this.send({ t: "ping", n: Math.round(now) });
    this.#lifeTimer = setTimeout(() => this.#live(), this.#lifeInterval);
  }

  #close() {
    const socket = this.#socket;
    this.#socket = null;
    ++this.#attempt;
    clearTimeout(this.#timer);
    clearTimeout(this.#lifeTimer);
    this.#timer = 0;
    socket?.close();
  }

  #again(text) {
    this.#handler.lost("server", `${text} Trying again …`);
    this.#later(this.#pause * (0.75 + Math.random() / 2));
    this.#pause = Math.min(2 * this.#pause, LONGEST_PAUSE);
  }

  #later(milliseconds) {
    this.#timer = setTimeout(() => this.#connect(), milliseconds);
  }
}

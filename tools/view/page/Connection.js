/** The line to the server: session, WebSocket, life signs, and coming back by itself. */

const PROTOCOL = "ruvo-view-1";
const FIRST_PAUSE = 250;
const LONGEST_PAUSE = 5000;
const SILENCE = 15000;

export class Connection {
  #handler;
  #socket = null;
  #pause = FIRST_PAUSE;
  #timer = 0;
  #lifeTimer = 0;
  #pings = new Map();
  #pingNumber = 0;
  #lastHeard = 0;
  #token = "";
  #attempt = 0;

  /** Bytes received and the last round trip in milliseconds. */
  bytes = 0;
  latency = null;
  /** Milliseconds between life signs. */
  lifeInterval = 10000;

  /**
   * The handler has connected(), message(object), binary(buffer) and lost(kind, text), where kind is
   * "server" (not reachable; it is tried again) or "session" (not allowed; a new address is needed).
   */
  constructor(handler) {
    this.#handler = handler;
    addEventListener("hashchange", () => this.start());
    addEventListener("online", () => this.retryNow());
    addEventListener("pagehide", () => this.#close());
    addEventListener("pageshow", (event) => event.persisted && this.start());
    document.addEventListener("visibilitychange", () => document.hidden || this.retryNow());
  }

  /** Takes the token out of the address, where nobody shall find it, and connects. */
  start() {
    if (location.hash.length > 1) {
      this.#token = decodeURIComponent(location.hash.slice(1));
      history.replaceState(null, "", location.pathname);
    } else if (this.#socket) {
      return;
    }
    this.#pause = FIRST_PAUSE;
    this.#close();
    this.#connect();
  }

  /** Cuts a pause between two attempts short. */
  retryNow() {
    if (!this.#timer) return;
    this.#pause = FIRST_PAUSE;
    this.#connect();
  }

  /** Gives the line up and makes a new one. */
  restart() {
    this.#close();
    this.#again("server", "The connection was lost.");
  }

  get isOpen() {
    return this.#socket?.readyState === WebSocket.OPEN;
  }

  /** Bytes that the line has not taken yet. */
  get waiting() {
    return this.#socket?.bufferedAmount ?? 0;
  }

  send(message) {
    if (this.isOpen) this.#socket.send(JSON.stringify(message));
  }

  async #connect() {
    clearTimeout(this.#timer);
    this.#timer = 0;
    const attempt = ++this.#attempt;
    const allowed = await this.#openSession();
    if (attempt !== this.#attempt) return;
    if (allowed === null) return this.#again("server", "The server can't be reached.");
    if (!allowed) {
      this.#handler.lost("session", "This page isn't allowed in (any more). " +
        "Open the address that ruvoview prints when it starts.");
      return this.#later(LONGEST_PAUSE);
    }
    const address = new URL("desktop", location.href);
    address.protocol = address.protocol.replace("http", "ws");
    const socket = new WebSocket(address, PROTOCOL);
    socket.binaryType = "arraybuffer";
    this.#socket = socket;
    socket.onopen = () => {
      this.bytes = 0;
      this.latency = null;
      this.#lastHeard = performance.now();
      this.#pings.clear();
      this.#handler.connected();
      this.#live();
    };
    socket.onmessage = (event) => this.#heard(event.data);
    socket.onclose = (event) => {
      if (socket !== this.#socket) return;
      this.#close();
      this.#again("server", event.reason || (event.code === 1001 ? "The server has ended." :
        event.code === 1008 ? "The server has refused this page." : "The server is gone."));
    };
  }

  /** Whether the server lets us in; null when it does not answer. */
  async #openSession() {
    const options = { cache: "no-store", signal: AbortSignal.timeout(10000) };
    try {
      if (this.#token) {
        const answer = await fetch("session", { ...options, method: "POST", body: this.#token });
        if (answer.ok || answer.status === 403) this.#token = "";
        if (answer.ok) return true;
        if (answer.status !== 403) return null;
      }
      const answer = await fetch("session", options);
      return answer.ok ? true : answer.status === 403 ? false : null;
    } catch {
      return null;
    }
  }

  #heard(data) {
    this.#lastHeard = performance.now();
    this.#pause = FIRST_PAUSE;
    if (typeof data !== "string") {
      this.bytes += data.byteLength;
      return this.#handler.binary(data);
    }
    this.bytes += data.length;
    const message = JSON.parse(data);
    if (message.t === "pong") {
      const sent = this.#pings.get(message.n);
      this.#pings.clear();
      if (sent !== undefined) this.latency = performance.now() - sent;
    } else {
      this.#handler.message(message);
    }
  }

  /** A line that died without a word is known by its silence. */
  #live = () => {
    clearTimeout(this.#lifeTimer);
    if (!this.isOpen) return;
    // A tab that slept has heard nothing either: one more sign is asked for before it is believed.
    if (this.#pings.size && performance.now() - this.#lastHeard > SILENCE) return this.restart();
    this.#pings.set(++this.#pingNumber, performance.now());
    this.send({ t: "ping", n: this.#pingNumber });
    this.#lifeTimer = setTimeout(this.#live, this.lifeInterval);
  };

  /** Makes a change of lifeInterval felt. */
  refresh() {
    this.#live();
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

  #again(kind, text) {
    this.#handler.lost(kind, text);
    this.#later(this.#pause * (0.75 + Math.random() / 2));
    this.#pause = Math.min(2 * this.#pause, LONGEST_PAUSE);
  }

  #later(milliseconds) {
    clearTimeout(this.#timer);
    this.#timer = setTimeout(() => this.#connect(), milliseconds);
  }
}

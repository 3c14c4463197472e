/** Text that is copied here and there. */

export class Clipboard {
  #send;
  #last = null;     // what both sides have
  #unwritten = null;

  enabled = true;
  /** Called with the desktop's text, and with whether the browser has taken it. */
  changed = () => {};

  /** send(text) offers text to the desktop. */
  constructor(send) {
    this.#send = send;
    // What the browser did not take without a gesture, it takes with one.
    for (const name of ["pointerdown", "keydown"]) {
      addEventListener(name, () => this.#unwritten !== null && this.#write(), { capture: true });
    }
    addEventListener("focus", () => this.#arrive());
  }

  /** The desktop may have another agent now. */
  forget() {
    this.#last = null;
  }

  /** Text was copied in the desktop. */
  take(text) {
    if (text === this.#last) return;
    this.#last = this.#unwritten = text;
    this.#write();
  }

  /** Text was copied here. */
  offer(text) {
    if (!this.enabled || !text || text === this.#last) return;
    this.#last = text;
    this.#unwritten = null;
    this.#send(text);
    this.changed(text, true);
  }

  /** Asks the browser for its text; it may ask the user. Whether it was allowed. */
  async read() {
    try {
      this.offer(await navigator.clipboard.readText());
      return true;
    } catch {
      return false;
    }
  }

  async #arrive() {
    if (this.#unwritten !== null) return this.#write();
    try {
      const { state } = await navigator.permissions.query({ name: "clipboard-read" });
      if (state === "granted") await this.read();
    } catch {
      // Such a browser asks at each paste.
    }
  }

  async #write() {
    const text = this.#unwritten;
    try {
      await navigator.clipboard.writeText(text);
      if (this.#unwritten === text) this.#unwritten = null;
    } catch {
      // Without focus, permission or a gesture; the menu has it.
    }
    this.changed(text, this.#unwritten === null);
  }
}

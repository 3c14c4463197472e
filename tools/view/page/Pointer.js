/** Mouse, pen and wheel over the picture. Fingers are for Touch. */

/** Pixels of a wheel's notch, and from where on a small step of a touchpad counts. */
const NOTCH = 100;
const LINES_PER_NOTCH = 3;
const STEP = 50;
const MOST_STEPS = 10;
const PAUSE = 400;
/** Beyond this many bytes that the line has not taken, only the last place counts. */
const CROWDED = 4096;

export const WHEEL = { up: 8, down: 16, left: 32, right: 64 };

/** Of the browser's mask of buttons, the desktop's. */
const BUTTONS = [[1, 1], [4, 2], [2, 4], [8, 128]];

export class Pointer {
  #canvas;
  #send;
  #waiting;
  #buttons = 0;
  #moved = null;
  #timer = 0;
  #rest = [0, 0];
  #lastWheel = 0;

  enabled = true;
  /** Before something is pressed or turned: called with the event. */
  before = () => {};
  /** A zoom gesture of a touchpad: factor, and the place in the window. */
  zoomed = () => {};
  /** Where the pointer was seen, in the desktop. */
  seen = () => {};

  /** send(x, y, buttons) passes it on; waiting() tells the bytes that the line has not taken. */
  constructor(canvas, send, waiting) {
    this.#canvas = canvas;
    this.#send = send;
    this.#waiting = waiting;
    const on = (name, handler) => canvas.addEventListener(name, (event) => {
      if (event.pointerType !== "touch") handler(event);
    });
    on("pointerdown", (event) => this.#pressed(event));
    on("pointermove", (event) => this.#pressed(event));
    on("pointerup", (event) => this.#pressed(event));
    on("pointercancel", () => this.release());
    canvas.addEventListener("contextmenu", (event) => event.preventDefault());
    canvas.addEventListener("auxclick", (event) => event.preventDefault());
    canvas.addEventListener("wheel", (event) => this.#wheel(event), { passive: false });
  }

  /** The place in the desktop, inside it, of one in the window. */
  place({ clientX, clientY }) {
    const { left, top, width, height } = this.#canvas.getBoundingClientRect();
    const along = (at, length, count) =>
      Math.max(0, Math.min(count - 1, Math.floor(at * count / (length || 1))));
    return [along(clientX - left, width, this.#canvas.width), along(clientY - top, height, this.#canvas.height)];
  }

  /** Buttons as the desktop counts them, at a place there. */
  put([x, y], buttons) {
    if (!this.enabled) return;
    this.#flush();
    this.#buttons = buttons;
    this.#send(x, y, buttons);
    this.seen(x, y);
  }

  turn([x, y], wheel, steps) {
    for (let step = 0; step < Math.min(steps, MOST_STEPS); ++step) {
      this.put([x, y], this.#buttons | wheel);
      this.put([x, y], this.#buttons & ~wheel);
    }
  }

  /** All buttons up, here. */
  release() {
    this.#buttons = 0;
    this.#moved = null;
  }

  #pressed(event) {
    if (!this.enabled) return;
    const place = this.place(event);
    // What the browser says is down counts, since a release may have gone elsewhere.
    const buttons = BUTTONS.reduce((sum, [theirs, ours]) => sum | (event.buttons & theirs ? ours : 0), 0);
    if (event.type === "pointerdown") this.#canvas.setPointerCapture(event.pointerId);
    if (buttons !== this.#buttons) {
      this.before(event);
      this.put(place, buttons);
    } else if (event.type === "pointermove") {
      this.#move(place);
    }
  }

  #move([x, y]) {
    this.seen(x, y);
    this.#moved = [x, y];
    if (this.#waiting() < CROWDED) this.#flush();
    else if (!this.#timer) this.#timer = setTimeout(() => this.#retry(), 20);
  }

  #retry() {
    this.#timer = 0;
    if (this.#moved) this.#move(this.#moved);
  }

  #flush() {
    if (this.#moved) this.#send(...this.#moved, this.#buttons);
    this.#moved = null;
  }

  #wheel(event) {
    event.preventDefault();
    if (!this.enabled) return;
    // Two fingers that move apart on a touchpad come as a wheel with a Control that nobody holds.
    if (event.ctrlKey && Math.abs(event.deltaY) < STEP && event.deltaMode === 0) {
      return this.zoomed(Math.exp(-event.deltaY / NOTCH), event);
    }
    this.before(event);
    let { deltaX, deltaY } = event;
    // Browsers turn the wheel sideways themselves; the desktop's programs do it, too.
    if (event.shiftKey && !deltaY) [deltaX, deltaY] = [0, deltaX];
    if (event.timeStamp - this.#lastWheel > PAUSE) this.#rest = [0, 0];
    this.#lastWheel = event.timeStamp;
    const unit = [1, NOTCH / LINES_PER_NOTCH, NOTCH][event.deltaMode];
    const place = this.place(event);
    [deltaX, deltaY].forEach((delta, axis) => {
      const steps = this.#steps(delta * unit, axis);
      const wheel = axis ? (steps < 0 ? WHEEL.up : WHEEL.down) : (steps < 0 ? WHEEL.left : WHEEL.right);
      this.turn(place, wheel, Math.abs(steps));
    });
  }

  /** A notch is one step whatever the browser makes of it; small steps add up. */
  #steps(delta, axis) {
    if (Math.abs(delta) >= STEP) {
      this.#rest[axis] = 0;
      return Math.sign(delta) * Math.max(1, Math.round(Math.abs(delta) / NOTCH));
    }
    if (this.#rest[axis] * delta < 0) this.#rest[axis] = 0;
    const steps = Math.trunc((this.#rest[axis] += delta) / STEP);
    this.#rest[axis] -= steps * STEP;
    return steps;
  }
}

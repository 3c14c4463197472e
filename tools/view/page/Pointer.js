/** Mouse, pen and wheel over the picture. Fingers are for Touch. */

/** Pixels of a wheel's notch, and of a touchpad's small steps that make one. */
const NOTCH = 100;
const STEP = 50;
const LINES_PER_NOTCH = 3;
const MOST_STEPS = 10;
const PAUSE = 400;
/** With more bytes waiting for the line, only the last place counts. */
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
  /** Called with the event before something is pressed or turned. */
  before = () => {};
  /** A zoom gesture of a touchpad: factor, and the place in the window. */
  zoomed = () => {};
  /** Where the pointer was seen, in the desktop. */
  seen = () => {};

  /** send(x, y, buttons) passes it on; waiting() tells the bytes that are not on the line. */
  constructor(canvas, send, waiting) {
    this.#canvas = canvas;
    this.#send = send;
    this.#waiting = waiting;
    const on = (name, handler) => canvas.addEventListener(name, handler, { passive: false });
    for (const name of ["pointerdown", "pointermove", "pointerup", "pointercancel"]) {
      on(name, (event) => this.enabled && event.pointerType !== "touch" && this.#changed(event));
    }
    for (const name of ["contextmenu", "auxclick"]) on(name, (event) => event.preventDefault());
    on("wheel", (event) => {
      event.preventDefault();
      if (this.enabled) this.#wheel(event);
    });
  }

  /** The place in the desktop, inside it, of one in the window. */
  place({ clientX, clientY }) {
    const { left, top, width, height } = this.#canvas.getBoundingClientRect();
    const along = (part, count) => Math.max(0, Math.min(count - 1, Math.floor(part * count)));
    return [along((clientX - left) / width, this.#canvas.width),
      along((clientY - top) / height, this.#canvas.height)];
  }

  /** Buttons as the desktop counts them, at a place there. */
  put([x, y], buttons) {
    if (!this.enabled) return;
    this.#flush();
    this.#buttons = buttons;
    this.#send(x, y, buttons);
    this.seen(x, y);
  }

  turn(place, wheel, steps) {
    for (let step = 0; step < Math.min(steps, MOST_STEPS); ++step) {
      this.put(place, this.#buttons | wheel);
      this.put(place, this.#buttons & ~wheel);
    }
  }

  /** All buttons up, here. */
  release() {
    this.#buttons = 0;
    this.#moved = null;
  }

  #changed(event) {
    const place = this.place(event);
    // What the browser says is down counts, since a release may have gone elsewhere.
    const buttons = BUTTONS.reduce((sum, [theirs, ours]) => sum | (event.buttons & theirs && ours), 0);
    if (event.type === "pointerdown") this.#canvas.setPointerCapture(event.pointerId);
    if (buttons !== this.#buttons) {
      this.before(event);
      this.put(place, buttons);
    } else if (event.type === "pointermove") {
      this.seen(...place);
      this.#moved = place;
      this.#move();
    }
  }

  #move() {
    clearTimeout(this.#timer);
    if (this.#waiting() < CROWDED) this.#flush();
    else this.#timer = setTimeout(() => this.#move(), 20);
  }

  #flush() {
    if (this.#moved) this.#send(...this.#moved, this.#buttons);
    this.#moved = null;
  }

  #wheel(event) {
    let { deltaX, deltaY } = event;
    // Two fingers that move apart on a touchpad come as a wheel with a Control that nobody holds.
    if (event.ctrlKey && Math.abs(deltaY) < STEP && !event.deltaMode) {
      return this.zoomed(Math.exp(-deltaY / NOTCH), event);
    }
    this.before(event);
    // Browsers turn the wheel sideways themselves; the desktop's programs do it, too.
    if (event.shiftKey && !deltaY) [deltaX, deltaY] = [0, deltaX];
    if (event.timeStamp - this.#lastWheel > PAUSE) this.#rest = [0, 0];
    this.#lastWheel = event.timeStamp;
    const unit = [1, NOTCH / LINES_PER_NOTCH, NOTCH][event.deltaMode];
    const x = this.#steps(deltaX * unit, 0);
    const y = this.#steps(deltaY * unit, 1);
    this.turn(this.place(event), x < 0 ? WHEEL.left : WHEEL.right, Math.abs(x));
    this.turn(this.place(event), y < 0 ? WHEEL.up : WHEEL.down, Math.abs(y));
  }

  /** A notch is one step whatever the browser makes of it; small steps add up. */
  #steps(delta, axis) {
    const rest = this.#rest;
    if (Math.abs(delta) >= STEP) {
      rest[axis] = 0;
      return Math.sign(delta) * Math.max(1, Math.round(Math.abs(delta) / NOTCH));
    }
    rest[axis] = rest[axis] * delta < 0 ? delta : rest[axis] + delta;
    const steps = Math.trunc(rest[axis] / STEP);
    rest[axis] -= steps * STEP;
    return steps;
  }
}

/** Fingers on the picture: tap, drag, long press, two that scroll or zoom. */

import { WHEEL } from "./Pointer.js";

const SLOP = 10;
const LONG_PRESS = 500;
const DOUBLE_TAP = 400;
const DOUBLE_TAP_DISTANCE = 24;
const DECIDE = 16;
const SCROLL_STEP = 30;
const LEFT = 1;
const RIGHT = 4;

export class Touch {
  #pointer;
  #fingers = new Map();
  #state = "none";  // or: down, drag, right, two, scroll, zoom, done
  #timer = 0;
  #start = null;
  #lastTap = { time: -DOUBLE_TAP, at: null };
  #two = null;

  enabled = true;
  before = () => {};
  /** zoomed(factor, place in the window) and moved(dx, dy), in pixels of the window. */
  zoomed = () => {};
  moved = () => {};

  constructor(canvas, pointer) {
    this.#pointer = pointer;
    const on = (name, handler) => canvas.addEventListener(name, (event) => {
      if (event.pointerType !== "touch") return;
      event.preventDefault();
      handler.call(this, event);
    });
    on("pointerdown", this.#down);
    on("pointermove", this.#move);
    on("pointerup", this.#up);
    on("pointercancel", this.#cancel);
  }

  #down(event) {
    this.before(event);
    this.#fingers.set(event.pointerId, event);
    clearTimeout(this.#timer);
    if (this.#fingers.size === 1) {
      this.#state = "down";
      this.#start = event;
      this.#timer = setTimeout(() => this.#longPress(), LONG_PRESS);
    } else if (this.#fingers.size === 2 && this.#state === "down") {
      this.#state = "two";
      this.#two = this.#measure();
    } else {
      this.#end();
    }
  }

  #move(event) {
    if (!this.#fingers.has(event.pointerId)) return;
    this.#fingers.set(event.pointerId, event);
    if (this.#state === "down" && distance(event, this.#start) > SLOP) {
      clearTimeout(this.#timer);
      this.#state = "drag";
      this.#pointer.put(this.#pointer.place(this.#start), 0);
      this.#pointer.put(this.#pointer.place(this.#start), LEFT);
    }
    if (this.#state === "drag") this.#pointer.put(this.#pointer.place(event), LEFT);
    else if (this.#state === "right") this.#pointer.put(this.#pointer.place(event), RIGHT);
    else if (["two", "scroll", "zoom"].includes(this.#state)) this.#moveTwo();
  }

  #up(event) {
    this.#fingers.delete(event.pointerId);
    clearTimeout(this.#timer);
    if (this.#state === "down") this.#tap(event);
    else if (this.#state === "drag" || this.#state === "right") this.#pointer.put(this.#pointer.place(event), 0);
    this.#state = this.#fingers.size ? "done" : "none";
  }

  #cancel(event) {
    this.#end();
    this.#fingers.delete(event.pointerId);
    if (!this.#fingers.size) this.#state = "none";
  }

  #end() {
    clearTimeout(this.#timer);
    if (this.#state === "drag" || this.#state === "right") {
      this.#pointer.put(this.#pointer.place(this.#start), 0);
    }
    this.#state = "done";
  }

  #tap(event) {
    // The second tap of two counts where the first did, else programs take them for two.
    const last = this.#lastTap;
    const again = event.timeStamp - last.time < DOUBLE_TAP && distance(event, last.at) < DOUBLE_TAP_DISTANCE;
    const at = again ? last.at : this.#start;
    this.#lastTap = { time: event.timeStamp, at };
    const place = this.#pointer.place(at);
    for (const buttons of [0, LEFT, 0]) this.#pointer.put(place, buttons);
  }

  #longPress() {
    if (this.#state !== "down") return;
    this.#state = "right";
    navigator.vibrate?.(20);
    const place = this.#pointer.place(this.#start);
    this.#pointer.put(place, 0);
    this.#pointer.put(place, RIGHT);
  }

  #measure() {
    const [one, other] = this.#fingers.values();
    return {
      clientX: (one.clientX + other.clientX) / 2,
      clientY: (one.clientY + other.clientY) / 2,
      apart: Math.max(1, distance(one, other)),
    };
  }

  #moveTwo() {
    if (this.#fingers.size !== 2) return;
    const now = this.#measure();
    if (this.#state === "two") {
      if (Math.abs(now.apart - this.#two.apart) > DECIDE) this.#state = "zoom";
      else if (distance(now, this.#two) > DECIDE) this.#state = "scroll";
      else return;
    }
    if (this.#state === "zoom") {
      this.zoomed(now.apart / this.#two.apart, now);
      this.moved(now.clientX - this.#two.clientX, now.clientY - this.#two.clientY);
      this.#two = now;
    } else {
      const place = this.#pointer.place(now);
      const scroll = (name, less, more) => {
        const steps = Math.trunc((now[name] - this.#two[name]) / SCROLL_STEP);
        if (!steps) return;
        this.#two[name] += steps * SCROLL_STEP;
        this.#pointer.turn(place, steps > 0 ? less : more, Math.abs(steps));
      };
      scroll("clientX", WHEEL.left, WHEEL.right);
      scroll("clientY", WHEEL.up, WHEEL.down);
    }
  }
}

const distance = (one, other) =>
  Math.hypot(one.clientX - other.clientX, one.clientY - other.clientY);

/** Fingers on the picture: tap, drag, long press, two that scroll or zoom. */

import { WHEEL } from "./Pointer.js";

const SLOP = 10;
const LONG_PRESS = 500;
const DOUBLE_TAP = 400;
const DOUBLE_TAP_DISTANCE = 24;
const SCROLL_STEP = 30;
const LEFT = 1;
const RIGHT = 4;

export class Touch {
  #pointer;
  #fingers = new Map();
  #state = "";  // or: down, left, right, two, scroll, zoom
  #timer = 0;
  #start = null;
  #lastTap = null;
  #two = null;

  /** zoomed(factor, place in the window) and moved(dx, dy), in pixels of the window. */
  zoomed = () => {};
  moved = () => {};

  constructor(canvas, pointer) {
    this.#pointer = pointer;
    const on = (name, handler) => canvas.addEventListener(name, (event) => {
      if (event.pointerType === "touch") handler.call(this, event);
    });
    on("pointerdown", this.#down);
    on("pointermove", this.#move);
    on("pointerup", this.#up);
    on("pointercancel", this.#end);
  }

  #down(event) {
    this.#fingers.set(event.pointerId, event);
    if (this.#fingers.size === 1) {
      this.#state = "down";
      this.#start = event;
      this.#timer = setTimeout(() => this.#press("right", RIGHT), LONG_PRESS);
    } else if (this.#fingers.size === 2 && this.#state === "down") {
      clearTimeout(this.#timer);
      this.#state = "two";
      this.#two = this.#measure();
    }
  }

  #move(event) {
    if (!this.#fingers.has(event.pointerId)) return;
    this.#fingers.set(event.pointerId, event);
    if (this.#state === "down" && distance(event, this.#start) > SLOP) this.#press("left", LEFT);
    if (this.#two) this.#moveTwo();
    else if (event.pointerId === this.#start.pointerId) {
      if (this.#state === "left") this.#put(event, LEFT);
      if (this.#state === "right") this.#put(event, RIGHT);
    }
  }

  #up(event) {
    if (this.#state === "down") this.#tap(event);
    this.#end(event);
  }

  #end(event) {
    clearTimeout(this.#timer);
    this.#fingers.delete(event.pointerId);
    if (this.#state === "left" || this.#state === "right") this.#put(event, 0);
    this.#state = "";
    this.#two = null;
  }

  #put(event, ...buttons) {
    for (const mask of buttons) this.#pointer.put(this.#pointer.place(event), mask);
  }

  #press(state, button) {
    clearTimeout(this.#timer);
    this.#state = state;
    this.#put(this.#start, 0, button);
  }

  #tap(event) {
    // The second tap of two counts where the first did, else programs take them for two.
    const last = this.#lastTap;
    const isSecond = last && event.timeStamp - last.timeStamp < DOUBLE_TAP &&
      distance(event, last) < DOUBLE_TAP_DISTANCE;
    this.#lastTap = isSecond ? null : event;
    this.#put(isSecond ? last : event, 0, LEFT, 0);
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
    const [now, then] = [this.#measure(), this.#two];
    if (this.#state === "two") {
      if (Math.abs(now.apart - then.apart) > 2 * SLOP) this.#state = "zoom";
      else if (distance(now, then) > SLOP) this.#state = "scroll";
    }
    if (this.#state === "zoom") {
      this.zoomed(now.apart / then.apart, now);
      this.moved(now.clientX - then.clientX, now.clientY - then.clientY);
      this.#two = now;
    } else if (this.#state === "scroll") {
      this.#scroll(now, "clientX", WHEEL.left, WHEEL.right);
      this.#scroll(now, "clientY", WHEEL.up, WHEEL.down);
    }
  }

  #scroll(now, axis, back, on) {
    const steps = Math.trunc((now[axis] - this.#two[axis]) / SCROLL_STEP);
    this.#two[axis] += steps * SCROLL_STEP;
    this.#pointer.turn(this.#pointer.place(now), steps > 0 ? back : on, Math.abs(steps));
  }
}

const distance = (one, other) => Math.hypot(one.clientX - other.clientX, one.clientY - other.clientY);

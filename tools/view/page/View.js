/** How large the picture is shown, and how large the desktop is asked to be. */

const ASK_PAUSE = 150;
const LARGEST_ZOOM = 8;

export class View {
  #stage;
  #canvas;
  #ask;
  #mode = "fit";
  #zoom = 1;
  #follows = false;
  #timer = 0;

  /** Called after the picture has taken another size in the window. */
  changed = () => {};

  /** ask(width, height) wants the desktop to take this size. */
  constructor(stage, canvas, ask) {
    this.#stage = stage;
    this.#canvas = canvas;
    this.#ask = ask;
    new ResizeObserver(() => {
      this.layOut();
      this.#askLater();
    }).observe(stage);
  }

  /** "fit", or "actual" for a pixel of the desktop in one of the window. */
  set mode(mode) {
    this.#mode = mode;
    this.#zoom = 1;
    this.layOut();
  }

  /** Whether the desktop is to be as large as the window, whenever that changes. */
  set follows(follows) {
    this.#follows = follows;
    this.#askLater();
  }

  zoomAt(factor, { clientX, clientY }) {
    const before = this.#canvas.getBoundingClientRect();
    this.#zoom = Math.max(1, Math.min(LARGEST_ZOOM, this.#zoom * factor));
    this.layOut();
    const after = this.#canvas.getBoundingClientRect();
    const grown = after.width / before.width;
    this.moveBy(clientX - after.left - (clientX - before.left) * grown,
      clientY - after.top - (clientY - before.top) * grown);
  }

  moveBy(dx, dy) {
    this.#stage.scrollBy(-dx, -dy);
  }

  layOut() {
    const { width, height, style } = this.#canvas;
    const fits = this.#mode === "fit";
    // A bar for scrolling would take the room that made it needless.
    this.#stage.classList.toggle("whole", fits && this.#zoom === 1);
    const fit = Math.min(this.#stage.clientWidth / width, this.#stage.clientHeight / height);
    const scale = (fits ? fit : 1) * this.#zoom;
    style.width = `${width * scale}px`;
    style.height = `${height * scale}px`;
    style.imageRendering = Number.isInteger(scale * devicePixelRatio) ? "pixelated" : "auto";
    this.changed();
  }

  #askLater() {
    clearTimeout(this.#timer);
    this.#timer = setTimeout(() => {
      const { offsetWidth, offsetHeight } = this.#stage;
      const isThere = offsetWidth === this.#canvas.width && offsetHeight === this.#canvas.height;
      if (this.#follows && offsetWidth && offsetHeight && !isThere) this.#ask(offsetWidth, offsetHeight);
    }, ASK_PAUSE);
  }
}

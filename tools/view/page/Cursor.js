/** The desktop's cursor as the browser's own, which never lags; drawn where browsers can't. */

/** Browsers ignore larger ones. */
const LARGEST = 128;

export class Cursor {
  #canvas;
  #image;
  #hotspot = [0, 0];
  #place = [0, 0];
  #hasImage = false;
  #isTooBig = false;
  #isElsewhere = false;

  /** When this page only watches, the cursor is always drawn. */
  isWatching = false;

  constructor(canvas, image) {
    this.#canvas = canvas;
    this.#image = image;
  }

  set({ width, height, x, y, png }) {
    this.#hasImage = width > 0;
    this.#isTooBig = Math.max(width, height) > LARGEST;
    this.#hotspot = [x, y];
    const address = `data:image/png;base64,${png}`;
    if (this.#hasImage) {
      this.#image.src = address;
      this.#image.width = width;
      this.#image.height = height;
    }
    this.#canvas.style.cursor =
      this.isWatching ? "default" :
      this.#hasImage && !this.#isTooBig ? `url(${address}) ${x} ${y}, default` : "none";
    this.draw();
  }

  /** Somebody else moved it, or a finger did: then it is nowhere else to be seen. */
  moveTo(x, y, isElsewhere) {
    this.#place = [x, y];
    this.#isElsewhere = isElsewhere;
    this.draw();
  }

  draw() {
    const isDrawn = this.#hasImage && (this.#isTooBig || this.isWatching || this.#isElsewhere);
    this.#image.hidden = !isDrawn;
    if (!isDrawn) return;
    const scale = this.#canvas.clientWidth / (this.#canvas.width || 1);
    const left = this.#canvas.offsetLeft + this.#place[0] * scale - this.#hotspot[0];
    const top = this.#canvas.offsetTop + this.#place[1] * scale - this.#hotspot[1];
    this.#image.style.transform = `translate(${left}px, ${top}px)`;
  }
}

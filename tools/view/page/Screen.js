/** The desktop's picture: decodes what arrives, in parallel, and draws it in its order. */

const HEADER = 16;
const RECTANGLE = 16;
const SOLID = 0;
const COPY = 1;
const JPEG = 2;
const PNG = 3;
const RAW = 4;
const TYPES = { [JPEG]: "image/jpeg", [PNG]: "image/png" };
const NAMES = ["solid", "copy", "jpeg", "png", "raw"];
const LAST_PIECE = 1;

export class Screen {
  #canvas;
  #context;
  #drawn;
  #failed;
  #queue = [];
  #working = false;
  #pieces = [];
  #generation = 0;
  #unsaid = [];

  /** Since the last connect. */
  frames = 0;
  rectangles = {};
  /** Called after the canvas has taken another size. */
  resized = () => {};

  /** drawn(frame) tells that a frame is on the canvas, failed(text) that a picture can't be read. */
  constructor(canvas, drawn, failed) {
    this.#canvas = canvas;
    this.#context = canvas.getContext("2d", { alpha: false });
    this.#drawn = drawn;
    this.#failed = failed;
    // Nobody sees a hidden page: the server rests until it is shown.
    document.addEventListener("visibilitychange", () => {
      if (!document.hidden) this.#unsaid.splice(0).forEach(this.#drawn);
    });
  }

  get width() {
    return this.#canvas.width;
  }

  get height() {
    return this.#canvas.height;
  }

  /** Forgets what was under way; the picture stays. */
  reset() {
    ++this.#generation;
    for (const entry of [...this.#queue.splice(0), { pieces: this.#pieces.splice(0) }]) discard(entry);
    this.#unsaid = [];
    this.frames = 0;
    this.rectangles = {};
  }

  setSize(width, height) {
    this.#enqueue({ size: [width, height] });
  }

  /** Takes a piece of a frame. */
  update(buffer) {
    try {
      const view = new DataView(buffer);
      if (view.getUint8(0) !== 1) throw new Error("unknown kind of update");
      const flags = view.getUint8(1);
      this.#pieces.push(...this.#parse(buffer, view, view.getUint16(2, true)));
      if (flags & LAST_PIECE) {
        this.#enqueue({ frame: view.getUint32(4, true), pieces: this.#pieces.splice(0) });
      }
    } catch (error) {
      this.#failed(error.message);
    }
  }

  #parse(buffer, view, count) {
    const list = [];
    for (let at = HEADER; count > 0; --count) {
      const [x, y, width, height] = [0, 2, 4, 6].map((offset) => view.getUint16(at + offset, true));
      const encoding = view.getUint8(at + 8);
      const length = view.getUint32(at + 12, true);
      const data = new Uint8Array(buffer, at + RECTANGLE, length);
      const piece = { x, y, width, height, encoding, data, image: null };
      if (TYPES[encoding]) {
        piece.image = createImageBitmap(new Blob([data], { type: TYPES[encoding] }),
          { colorSpaceConversion: "none", premultiplyAlpha: "none" });
        piece.image.catch(() => {});  // it is told when its turn comes
      } else if (encoding > RAW) {
        throw new Error("unknown encoding " + encoding);
      }
      const name = NAMES[encoding];
      this.rectangles[name] = (this.rectangles[name] ?? 0) + 1;
      list.push(piece);
      at += RECTANGLE + length;
    }
    return list;
  }

  #enqueue(entry) {
    this.#queue.push(entry);
    if (!this.#working) this.#work();
  }

  async #work() {
    this.#working = true;
    while (this.#queue.length) {
      const generation = this.#generation;
      const entry = this.#queue[0];
      const pending = (entry.pieces ?? []).filter((piece) => piece.image);
      if (pending.length) {
        const outcomes = await Promise.allSettled(pending.map((piece) => piece.image));
        if (generation !== this.#generation) continue;
        const bad = outcomes.find((outcome) => outcome.status === "rejected");
        if (bad) {
          this.#working = false;
          this.#failed(String(bad.reason));
          return;
        }
        outcomes.forEach((outcome, index) => (pending[index].image = outcome.value));
      }
      this.#queue.shift();
      this.#draw(entry);
    }
    this.#working = false;
  }

  #draw({ size, frame, pieces }) {
    if (size) {
      if (size[0] === this.width && size[1] === this.height) return;
      [this.#canvas.width, this.#canvas.height] = size;
      return this.resized();
    }
    pieces.forEach(this.#drawPiece, this);
    ++this.frames;
    if (document.hidden) this.#unsaid.push(frame);
    else this.#drawn(frame);
  }

  #drawPiece({ x, y, width, height, encoding, data, image }) {
    const context = this.#context;
    if (image) {
      context.drawImage(image, x, y);
      image.close();
    } else if (encoding === SOLID) {
      context.fillStyle = `rgb(${data[2]},${data[1]},${data[0]})`;
      context.fillRect(x, y, width, height);
    } else if (encoding === COPY) {
      const [fromX, fromY] = [data[0] | data[1] << 8, data[2] | data[3] << 8];
      context.drawImage(this.#canvas, fromX, fromY, width, height, x, y, width, height);
    } else {
      const pixels = new Uint8ClampedArray(data.buffer, data.byteOffset, data.byteLength);
      context.putImageData(new ImageData(pixels, width, height), x, y);
    }
  }
}

function discard({ pieces = [] }) {
  for (const { image } of pieces) Promise.resolve(image).then((bitmap) => bitmap?.close(), () => {});
}

/** The desktop's picture: decodes what arrives, in parallel, and draws it in its order. */

const HEADER = 16;
const LAST_PIECE = 1;
const ENCODINGS = ["solid", "copy", "jpeg", "png", "raw"];

export class Screen {
  #canvas;
  #context;
  #drawn;
  #failed;
  #queue = [];
  #isWorking = false;
  #parts = [];
  #generation = 0;
  #unsaid = [];

  /** Since the last reset; rectangles by encoding. */
  frames = 0;
  rectangles = {};
  /** Called after the canvas has taken another size. */
  resized = () => {};

  /** drawn(frame) tells that a frame is on the canvas, failed(text) that one can't be. */
  constructor(canvas, drawn, failed) {
    this.#canvas = canvas;
    this.#context = canvas.getContext("2d", { alpha: false });
    this.#drawn = drawn;
    this.#failed = failed;
    // Nobody sees a hidden page: the server rests until it is shown.
    document.addEventListener("visibilitychange", () => this.#say());
  }

  get width() {
    return this.#canvas.width;
  }

  get height() {
    return this.#canvas.height;
  }

  /** Forgets what is under way; the picture stays. */
  reset() {
    ++this.#generation;
    for (const { image } of [...this.#queue.flatMap(({ parts }) => parts ?? []), ...this.#parts]) {
      Promise.resolve(image).then((bitmap) => bitmap?.close(), () => {});
    }
    this.#queue = [];
    this.#parts = [];
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
      this.#parse(view, view.getUint16(2, true));
      if (view.getUint8(1) & LAST_PIECE) {
        this.#enqueue({ frame: view.getUint32(4, true), parts: this.#parts });
        this.#parts = [];
      }
    } catch (error) {
      this.#failed(error.message);
    }
  }

  #parse(view, count) {
    for (let at = HEADER; count > 0; --count) {
      const [x, y, width, height] = [0, 2, 4, 6].map((offset) => view.getUint16(at + offset, true));
      const encoding = ENCODINGS[view.getUint8(at + 8)];
      const data = new Uint8Array(view.buffer, at + 16, view.getUint32(at + 12, true));
      if (!encoding) throw new Error("unknown encoding");
      this.rectangles[encoding] = (this.rectangles[encoding] ?? 0) + 1;
      let image = null;
      if (encoding === "jpeg" || encoding === "png") {
        image = createImageBitmap(new Blob([data], { type: `image/${encoding}` }),
          { colorSpaceConversion: "none", premultiplyAlpha: "none" });
        image.catch(() => {});  // it is told when its turn comes
      }
      this.#parts.push({ x, y, width, height, encoding, data, image });
      at += 16 + data.length;
    }
  }

  #enqueue(entry) {
    this.#queue.push(entry);
    if (!this.#isWorking) this.#work();
  }

  async #work() {
    this.#isWorking = true;
    while (this.#queue.length) {
      const generation = this.#generation;
      const entry = this.#queue[0];
      try {
        const images = entry.parts?.some(({ image }) => image) &&
          await Promise.all(entry.parts.map(({ image }) => image));
        if (generation !== this.#generation) continue;
        this.#queue.shift();
        this.#draw(entry, images || []);
      } catch (error) {
        if (generation === this.#generation) {
          this.#queue.shift();
          this.#failed(String(error));
        }
      }
    }
    this.#isWorking = false;
  }

  #draw({ size, frame, parts }, images) {
    if (size) {
      if (size[0] === this.width && size[1] === this.height) return;
      [this.#canvas.width, this.#canvas.height] = size;
      return this.resized();
    }
    parts.forEach((part, index) => this.#drawPart(part, images[index]));
    ++this.frames;
    this.#unsaid.push(frame);
    this.#say();
  }

  #say() {
    if (!document.hidden) this.#unsaid.splice(0).forEach(this.#drawn);
  }

  #drawPart({ x, y, width, height, encoding, data }, image) {
    const context = this.#context;
    if (image) {
      context.drawImage(image, x, y);
      image.close();
    } else if (encoding === "solid") {
      context.fillStyle = `rgb(${data[2]},${data[1]},${data[0]})`;
      context.fillRect(x, y, width, height);
    } else if (encoding === "copy") {
      const [fromX, fromY] = [data[0] | data[1] << 8, data[2] | data[3] << 8];
      context.drawImage(this.#canvas, fromX, fromY, width, height, x, y, width, height);
    } else {
      const pixels = new Uint8ClampedArray(data.buffer, data.byteOffset, data.length);
      context.putImageData(new ImageData(pixels, width, height), x, y);
    }
  }
}

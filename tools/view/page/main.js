/** Puts the page together. */

import { Clipboard } from "./Clipboard.js";
import { Connection } from "./Connection.js";
import { Cursor } from "./Cursor.js";
import { Keyboard } from "./Keyboard.js";
import { Panel } from "./Panel.js";
import { Pointer } from "./Pointer.js";
import { Screen } from "./Screen.js";
import { Touch } from "./Touch.js";
import { View } from "./View.js";

const KEYS = ["Control+Alt+Delete", "Alt+Tab", "Alt+F4", "Meta", "Control+w", "Control+t", "Control+n",
  "Control+Tab", "Escape", "Tab", "F11", "PrintScreen", "ContextMenu", "Delete"];
const STATES = {
  connecting: "Connecting …",
  live: "Live",
  "capture-broken": "Capture is broken: polling",
  "no-agent": "The agent is gone. It is being started again.",
  "no-display": "The display is gone. Waiting for it.",
};
const TOAST_TIME = 6000;

const find = (id) => document.getElementById(id);
const findAll = (selector) => [...document.querySelectorAll(selector)];
const make = (kind, properties) => Object.assign(document.createElement(kind), properties);
const on = (target, name, handler) => target.addEventListener(name, handler);

const canvas = find("desktop");
const field = find("keys");
const { body } = document;
const settings = { mode: "fit", panel: false, level: 30, ...JSON.parse(localStorage.view ?? "{}") };
let isViewOnly = false;
let sizes = [];

const send = (message) => connection.send(message);
const connection = new Connection({ connected, message, lost: show, binary: (data) => screen.update(data) });
const screen = new Screen(canvas, (frame) => send({ t: "drawn", frame }), (text) => {
  console.error(text);
  connection.restart();
});
const pointer = new Pointer(canvas, (x, y, buttons) => send({ t: "pointer", x, y, buttons }),
  () => connection.waiting);
const touch = new Touch(canvas, pointer);
const keyboard = new Keyboard(field, (sym, down) => send({ t: "key", sym, down }), () => {
  pointer.release();
  send({ t: "release" });
});
const cursor = new Cursor(canvas, find("cursor"));
const clipboard = new Clipboard((text) => send({ t: "clipboard", text }));
const view = new View(find("stage"), canvas, (width, height) => send({ t: "resize", width, height }));
const panel = new Panel(find("panel"), connection, screen, (level) => {
  keep({ level });
  send({ t: "logLevel", level });
});

function keep(changes) {
  Object.assign(settings, changes);
  localStorage.view = JSON.stringify(settings);
}

/* What the server says. */

function show(state, text = STATES[state]) {
  const isLive = ["live", "capture-broken"].includes(state);
  if (isLive && !body.classList.contains("live")) setFollows(settings.follows);
  body.dataset.state = state;
  body.classList.toggle("live", isLive);
  find("status").textContent = isLive && isViewOnly ? `${text} (view only)` : text;
  find("notice").hidden = isLive;
  find("notice-text").textContent = text;
  find("retry").hidden = !["server", "session"].includes(state);
  if (!isLive) keyboard.releaseAll();
  keyboard.enabled = pointer.enabled = clipboard.enabled = isLive && !isViewOnly;
}

function toast(text) {
  find("toast").textContent = text;
  find("toast").hidden = false;
  clearTimeout(toast.timer);
  toast.timer = setTimeout(() => (find("toast").hidden = true), TOAST_TIME);
}

function connected() {
  screen.reset();
  clipboard.forget();
  show("connecting");
  send({ t: "logLevel", level: panel.level });
}

const actions = {
  hello({ viewOnly, display }) {
    isViewOnly = cursor.isWatching = viewOnly;
    body.classList.toggle("view-only", viewOnly);
    document.title = `${display} – ruvoview`;
    if (document.activeElement === body) focusField();
  },
  size: ({ width, height }) => screen.setSize(width, height),
  state({ state, text }) {
    show(state, state === "live" || !text ? STATES[state] : `${STATES[state]} (${text})`);
  },
  cursor: (image) => cursor.set(image),
  cursorPos: ({ x, y }) => cursor.moveTo(x, y, true),
  clipboard: ({ text }) => clipboard.take(text),
  bell: () => find("bar").animate([{ backgroundColor: "var(--accent)" }, {}], 400),
  modes({ modes }) {
    const could = !!sizes[0];
    sizes = modes;
    find("sizes").hidden = !sizes[0];
    showSizes();
    if (could !== !!sizes[0]) setFollows(settings.follows);
  },
  monitors: ({ list, selected }) => showMonitors(list, selected),
  log: (line) => panel.addLine(line),
  stats: (stats) => (panel.stats = stats),
  refused: ({ text }) => toast(text),
};

function message(object) {
  actions[object.t]?.(object);
}

/* The picture and what it takes. */

function focusField() {
  field.focus({ preventScroll: true });
}

screen.resized = () => {
  view.layOut();
  showSizes();
};
view.changed = () => cursor.draw();
pointer.before = (event) => keyboard.prepare(event);
pointer.zoomed = touch.zoomed = (factor, place) => view.zoomAt(factor, place);
pointer.seen = (x, y) => cursor.moveTo(x, y, body.classList.contains("touch"));
touch.moved = (dx, dy) => view.moveBy(dx, dy);
on(canvas, "pointerdown", ({ pointerType }) => {
  body.classList.toggle("touch", pointerType === "touch");
  // A finger must not bring up the keyboard of a phone; its button does.
  if (pointerType !== "touch") focusField();
});
// The focus would leave the field again.
on(canvas, "mousedown", (event) => event.preventDefault());
on(canvas, "focus", focusField);
keyboard.pasted = (event) => clipboard.offer(event.clipboardData.getData("text/plain"));
keyboard.escaped = () => find("keys-button").focus();
for (const name of ["focus", "blur"]) {
  on(field, name, () => body.classList.toggle("typing", name === "focus"));
}

/* Menus. */

for (const menu of findAll("[popover]")) {
  on(menu, "toggle", ({ newState }) => newState === "closed" && document.activeElement === body && focusField());
}

function addKeys(group, keys, clicked) {
  const textContent = keys.replace("Control", "Ctrl").replace("Delete", "Del").replace("Meta", "Super")
    .replace(/\+.$/, (key) => key.toUpperCase());
  const button = make("button", { textContent });
  on(button, "click", () => clicked(button));
  find(group).append(button);
  return button;
}

for (const keys of KEYS) addKeys("press", keys, () => keyboard.press(keys));
for (const name of ["Control", "Alt", "Shift", "Meta"]) {
  addKeys("arm", name, (button) => {
    button.ariaPressed = button.ariaPressed !== "true";
    keyboard.arm(name, button.ariaPressed === "true");
  }).ariaPressed = false;
}
keyboard.disarmed = () => findAll("#arm button").forEach((button) => (button.ariaPressed = false));
on(find("keyboard-button"), "click", focusField);
on(find("retry"), "click", () => connection.retryNow());

function showSizes() {
  const current = `${screen.width} × ${screen.height}`;
  const texts = new Set([...sizes.map((size) => size.join(" × ")), current]);
  find("size").replaceChildren(...[...texts].map((text) => new Option(text)));
  find("size").value = current;
}

on(find("size"), "change", ({ target }) => {
  setFollows(find("follow").checked = false);
  const [width, height] = target.value.split(" × ").map(Number);
  send({ t: "resize", width, height });
});

function setFollows(follows) {
  keep({ follows });
  view.follows = follows && !isViewOnly && sizes[0];
}

find("follow").checked = settings.follows;
on(find("follow"), "change", ({ target }) => setFollows(target.checked));

for (const choice of findAll("[name=mode]")) {
  choice.checked = choice.value === settings.mode;
  on(choice, "change", () => {
    keep({ mode: choice.value });
    view.mode = choice.value;
  });
}

function showMonitors(list, selected) {
  const box = find("monitors");
  box.hidden = list.length < 2;
  box.lastElementChild.replaceChildren(...list.map(({ id, name, width, height, primary }) => {
    const checked = !selected.length || selected.includes(id);
    const input = make("input", { type: "checkbox", value: id, checked });
    const label = make("label");
    label.append(input, ` ${name} (${width} × ${height}${primary ? ", primary" : ""})`);
    return label;
  }));
}

on(find("monitors"), "change", () => {
  const all = findAll("#monitors input");
  const chosen = all.filter((input) => input.checked).map((input) => Number(input.value));
  send({ t: "monitors", selected: chosen.length === all.length ? [] : chosen });
});

const tellClipboard = (text) => (find("clip-state").textContent = text);
clipboard.changed = (text, isTaken) => {
  find("clip").value = text;
  tellClipboard(isTaken ? "" : "The browser takes it with the next key or click.");
};
on(find("clip-send"), "click", () => clipboard.offer(find("clip").value));
on(find("clip-read"), "click", async () => {
  if (!await clipboard.read()) tellClipboard("The browser refuses. Press Ctrl+V on the desktop, or paste above.");
});
on(find("clip-type"), "click", () => keyboard.type(find("clip").value));

function setPanel(isOpen) {
  panel.isOpen = isOpen;
  keep({ panel: isOpen });
  find("panel-button").ariaExpanded = isOpen;
}

on(find("panel-button"), "click", () => setPanel(!panel.isOpen));

find("full-screen").hidden = !document.fullscreenEnabled;
on(find("full-screen"), "click", async () => {
  if (document.fullscreenElement) return document.exitFullscreen();
  await document.documentElement.requestFullscreen();
  focusField();
  // Then Escape, Alt+Tab and their like go to the desktop, too.
  await navigator.keyboard?.lock?.().catch(() => {});
});
on(document, "fullscreenchange", () => body.classList.toggle("full", !!document.fullscreenElement));

show("connecting");
panel.level = settings.level;
setPanel(settings.panel);
view.mode = settings.mode;
connection.start();

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

const SIZES = [[800, 600], [1024, 768], [1280, 720], [1280, 800], [1440, 900], [1600, 900],
  [1920, 1080], [2560, 1440]];
const KEYS = ["Control+Alt+Delete", "Alt+Tab", "Alt+F4", "Meta", "Control+w", "Control+t", "Control+n",
  "Control+Tab", "Control+Shift+t", "Control+Alt+F1", "Escape", "Tab", "F11", "PrintScreen", "ContextMenu",
  "Delete"];
const STATES = {
  connecting: "Connecting …",
  live: "Live",
  "no-agent": "The agent is gone. It is being started again.",
  "no-display": "The display is gone. Waiting for it.",
  "capture-broken": "Live. The display reports changes incompletely, so the agent compares pixels.",
};
const TOAST_TIME = 6000;

const find = (id) => document.getElementById(id);
const canvas = find("desktop");
const field = find("keys");
const status = find("status");
const settings = {
  mode: "fit", follows: false, panel: false, level: 30, ...JSON.parse(localStorage.view ?? "{}"),
};
let isViewOnly = false;
let state = "";

const connection = new Connection({ connected, message, binary: (data) => screen.update(data), lost });
const send = (message) => connection.send(message);
const screen = new Screen(canvas, (frame) => send({ t: "drawn", frame }), (text) => {
  console.error(text);
  connection.restart();
});
const keyboard = new Keyboard(field, (sym, down) => send({ t: "key", sym, down }), () => {
  pointer.release();
  send({ t: "release" });
});
const pointer = new Pointer(canvas, (x, y, buttons) => send({ t: "pointer", x, y, buttons }),
  () => connection.waiting);
const touch = new Touch(canvas, pointer);
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

function show(newState, text) {
  state = newState;
  document.body.dataset.state = state;
  const isLive = state === "live" || state === "capture-broken";
  const words = text || STATES[state] || "";
  status.textContent = isLive && isViewOnly ? `${words} (view only)` : words;
  find("notice").hidden = isLive;
  find("notice-text").textContent = words;
  find("retry").hidden = state !== "server" && state !== "session";
  keyboard.enabled = pointer.enabled = touch.enabled = clipboard.enabled = isLive && !isViewOnly;
}

function toast(text) {
  const element = find("toast");
  element.textContent = text;
  element.hidden = false;
  clearTimeout(toast.timer);
  toast.timer = setTimeout(() => (element.hidden = true), TOAST_TIME);
}

function connected() {
  screen.reset();
  clipboard.forget();
  show("connecting", "Waiting for the picture …");
  send({ t: "logLevel", level: panel.level });
}

function lost(kind, text) {
  keyboard.releaseAll();
  show(kind, kind === "server" ? `${text} Trying again …` : text);
}

const actions = {
  hello({ viewOnly, display }) {
    isViewOnly = cursor.watching = viewOnly;
    document.body.classList.toggle("view-only", viewOnly);
    document.title = `${display} – ruvoview`;
    show("live");
    if (!viewOnly && settings.follows) view.askAgain();
    if ([null, document.body].includes(document.activeElement)) focusField();
  },
  size: ({ width, height }) => screen.setSize(width, height),
  state({ state: newState, text }) {
    const wasLive = state === "live";
    if (newState !== "live") keyboard.releaseAll();
    show(newState, newState === "live" ? "" : text);
    if (!wasLive && newState === "live" && settings.follows) view.askAgain();
  },
  cursor: (message) => cursor.set(message),
  cursorPos: ({ x, y }) => cursor.moveTo(x, y, true),
  clipboard: ({ text }) => clipboard.take(text),
  bell() {
    find("bar").getAnimations().forEach((animation) => animation.cancel());
    find("bar").animate([{ backgroundColor: "var(--accent)" }, {}], 400);
  },
  modes: ({ modes, current }) => showSizes(modes, current),
  monitors: ({ list, selected }) => showMonitors(list, selected),
  log: (line) => panel.addLine(line),
  stats: (stats) => panel.stats(stats),
  refused: ({ text }) => toast(text),
};

function message(object) {
  if (Object.hasOwn(actions, object.t)) actions[object.t](object);
}

function focusField() {
  field.focus({ preventScroll: true });
}

/* The picture and what it takes. */

screen.resized = () => {
  view.layOut();
  showSizes();
};
view.changed = () => cursor.draw();
pointer.before = touch.before = (event) => {
  if (event.pointerType !== "touch") keyboard.prepare(event);
};
pointer.zoomed = touch.zoomed = (factor, place) => view.zoomAt(factor, place);
pointer.seen = (x, y) => cursor.moveTo(x, y, document.body.classList.contains("touch"));
touch.moved = (dx, dy) => view.moveBy(dx, dy);
canvas.addEventListener("pointerdown", (event) => {
  document.body.classList.toggle("touch", event.pointerType === "touch");
  // A finger must not bring up the keyboard of a phone; its button does.
  if (event.pointerType !== "touch") focusField();
});
// The focus would leave the field again.
canvas.addEventListener("mousedown", (event) => event.preventDefault());
canvas.addEventListener("focus", focusField);
keyboard.pasted = (event) => clipboard.offer(event.clipboardData.getData("text/plain"));
keyboard.escaped = () => find("keys-button").focus();
for (const name of ["focus", "blur"]) {
  field.addEventListener(name, () => document.body.classList.toggle("typing", name === "focus"));
}

/* Menus. */

for (const menu of document.querySelectorAll("[popover]")) {
  menu.addEventListener("toggle", (event) => event.newState === "closed" &&
    [menu, document.body].includes(document.activeElement) && focusField());
}

function addButton(group, keys, clicked) {
  const button = document.createElement("button");
  button.textContent = keys.replace("Control", "Ctrl").replace("Delete", "Del").replace("Meta", "Super");
  button.addEventListener("click", () => clicked(button));
  find(group).append(button);
  return button;
}

const setPressed = (button, isOn) => button.setAttribute("aria-pressed", isOn);
for (const keys of KEYS) addButton("press", keys, () => keyboard.press(keys));
for (const name of ["Control", "Alt", "Shift", "Meta"]) {
  setPressed(addButton("arm", name, (button) => {
    const isOn = button.getAttribute("aria-pressed") === "false";
    setPressed(button, isOn);
    keyboard.arm(name, isOn);
  }), false);
}
keyboard.disarmed = () => [...find("arm").children].forEach((button) => setPressed(button, false));
find("keyboard-button").addEventListener("click", focusField);
find("retry").addEventListener("click", () => connection.retryNow());

function showSizes(modes = showSizes.modes, current) {
  showSizes.modes = modes;
  const list = modes?.length ? modes : SIZES;
  const [width, height] = current ?? [screen.width, screen.height];
  const all = [...list, [width, height]].map((size) => size.join(" × "));
  const select = find("size");
  select.replaceChildren(...[...new Set(all)].map((text) => new Option(text)));
  select.value = `${width} × ${height}`;
}

find("size").addEventListener("change", (event) => {
  find("follow").checked = false;
  setFollows(false);
  const [width, height] = event.target.value.split(" × ").map(Number);
  send({ t: "resize", width, height });
});

function setFollows(follows) {
  keep({ follows });
  view.follows = follows && !isViewOnly;
}

find("follow").checked = settings.follows;
find("follow").addEventListener("change", (event) => setFollows(event.target.checked));

for (const choice of document.querySelectorAll("[name=mode]")) {
  choice.checked = choice.value === settings.mode;
  choice.addEventListener("change", () => {
    keep({ mode: choice.value });
    view.mode = choice.value;
  });
}

function showMonitors(list, selected) {
  const box = find("monitors");
  box.hidden = list.length < 2;
  const choices = list.map(({ id, name, width, height, primary }) => {
    const input = document.createElement("input");
    input.type = "checkbox";
    input.value = id;
    input.checked = !selected.length || selected.includes(id);
    input.addEventListener("change", () => {
      const chosen = [...box.querySelectorAll("input:checked")].map(({ value }) => Number(value));
      send({ t: "monitors", selected: chosen.length === list.length ? [] : chosen });
    });
    const label = document.createElement("label");
    label.append(input, ` ${name} (${width} × ${height}${primary ? ", primary" : ""})`);
    return label;
  });
  box.querySelector("div").replaceChildren(...choices);
}

clipboard.changed = (text, isTaken) => {
  find("clip").value = text;
  find("clip-state").textContent = isTaken ? "" : "The browser takes it with the next key or click.";
};
find("clip-send").addEventListener("click", () => clipboard.offer(find("clip").value));
find("clip-read").addEventListener("click", async () => {
  if (!await clipboard.read()) {
    find("clip-state").textContent = "The browser does not allow it. Paste with Ctrl+V on the desktop, " +
      "or write the text above.";
  }
});
find("clip-type").addEventListener("click", () => keyboard.type(find("clip").value));

function togglePanel(isOpen) {
  panel.isOpen = isOpen;
  keep({ panel: isOpen });
  find("panel-button").setAttribute("aria-expanded", isOpen);
}

find("panel-button").addEventListener("click", () => togglePanel(!panel.isOpen));

if (!document.fullscreenEnabled) find("full-screen").hidden = true;
find("full-screen").addEventListener("click", async () => {
  if (document.fullscreenElement) return document.exitFullscreen();
  await document.documentElement.requestFullscreen();
  focusField();
  // Where there is this, Escape, Alt+Tab and their like go to the desktop, too.
  await navigator.keyboard?.lock?.().catch(() => {});
});
document.addEventListener("fullscreenchange", () => {
  const isFull = Boolean(document.fullscreenElement);
  document.body.classList.toggle("full", isFull);
  if (!isFull) navigator.keyboard?.unlock?.();
});

show("connecting");
panel.level = settings.level;
togglePanel(settings.panel);
view.mode = settings.mode;
view.follows = settings.follows;
connection.start();

/**
 * Turns what browsers tell about the keyboard into keys of the desktop.
 *
 * A key that makes a character goes as that, whatever layout made it. What input methods, dead keys
 * and phones make comes as text in the field, and is typed. What went down at a position goes up.
 */

import { KEY, isText, latinSymbol, symbolOf, symbolOfEvent } from "./keysyms.js";

/** A Control that AltGr brings along comes right before it. */
const CONTROL_PAUSE = 20;
const PASTE_PAUSE = 50;

const MODIFIERS = ["Shift", "Control", "Alt", "Meta", "AltGraph"];

/** Text that is made with Option has nothing to do with Alt. */
const isMac = navigator.platform.startsWith("Mac");
const isLevel3 = (name) => name === "AltGraph" || (isMac && name === "Alt");

export class Keyboard {
  #field;
  #send;
  #pressed = new Map();    // symbol by position
  #modifiers = new Map();  // name of a modifier by position
  #control = false;        // whether the left one waits for what comes
  #controlTimer = 0;
  #level3 = null;          // position of an AltGr or Option that has not been sent
  #armed = new Set();      // modifiers for the next key only
  #deadKey = false;
  #composing = false;
  #awaited = null;         // a key that waits for text, or for a paste
  #pasteTimer = 0;
  #chord = false;

  /** When false, nothing is sent. */
  enabled = true;
  /** Called with the event of a paste, before its key goes. */
  pasted = () => {};
  /** Called when armed modifiers have been used. */
  disarmed = () => {};
  /** Called when Control, Alt and Shift were pressed together and nothing else. */
  escaped = () => {};

  /** The field takes the keys; send(symbol, isDown) passes them on, released() that all go up. */
  constructor(field, send, released) {
    this.#field = field;
    this.#send = send;
    this.released = released;
    const on = (name, handler) => field.addEventListener(name, (event) => this.enabled && handler(event));
    on("keydown", (event) => this.#down(event));
    on("keyup", (event) => this.#up(event));
    on("compositionstart", () => {
      this.#settle();
      this.flush();
      this.#composing = true;
    });
    on("compositionend", () => {
      this.#composing = false;
      // The field has the text after this event: then, or before the next key.
      this.#awaited = { text: "" };
      setTimeout(() => this.#awaited?.text === "" && this.#takeText());
    });
    on("beforeinput", (event) => this.#beforeInput(event));
    on("input", () => this.#composing || this.#takeText());
    on("paste", (event) => {
      event.preventDefault();
      this.pasted(event);
      this.#settle();
    });
    field.addEventListener("blur", () => this.releaseAll());
    for (const name of ["blur", "pagehide", "visibilitychange"]) {
      addEventListener(name, () => this.releaseAll());
    }
  }

  /** Holds a modifier for the next key, or no longer. */
  arm(name, isOn) {
    if (isOn) this.#armed.add(name);
    else this.#armed.delete(name);
  }

  type(text) {
    for (const character of text) this.#stroke(symbolOf(character));
  }

  /** Presses named keys and characters together, such as "Control+Alt+Delete". */
  press(combination) {
    const symbols = combination.split("+").map((name) => KEY[name] ?? symbolOf(name));
    const last = symbols.pop();
    for (const symbol of symbols) this.#send(symbol, true);
    this.#stroke(last);
    for (const symbol of symbols.reverse()) this.#send(symbol, false);
  }

  /** Everything goes up, here and there. */
  releaseAll() {
    if (this.enabled) this.#settle();
    this.#dropControl();
    this.#pressed.clear();
    this.#modifiers.clear();
    this.#level3 = null;
    this.#deadKey = this.#chord = this.#composing = false;
    this.#field.value = "";
    if (this.enabled) this.released();
  }

  /** What waits goes out, before something else that came later. */
  flush() {
    if (!this.#control) return;
    this.#dropControl();
    this.#press("ControlLeft", KEY.ControlLeft);
  }

  /** Before a button or the wheel: what is held counts. */
  prepare(event) {
    if (!this.enabled) return;
    this.#settle();
    this.flush();
    this.#matchModifiers(event);
    this.#pressLevel3();
    this.#chord = false;
  }

  #down(event) {
    const code = event.code || event.key;
    this.#settle();
    if (event.isComposing || ["Process", "Unidentified"].includes(event.key) || event.keyCode === 229) return;
    if (event.key === "Dead") {
      this.#deadKey = true;
      this.flush();
      return;  // the browser keeps it and makes the text
    }
    if (MODIFIERS.includes(event.key)) {
      event.preventDefault();
      return this.#modifierDown(code, event.key, event);
    }
    this.flush();
    this.#matchModifiers(event);
    this.#chord = false;
    const text = isText(event.key);
    if (this.#deadKey && text) {
      // The field gets the composed text; else the key itself stands.
      this.#awaited = { code, text: event.key };
      return;
    }
    this.#deadKey = false;
    let symbol = symbolOfEvent(event);
    if (symbol === null) return;
    if (isPaste(event)) {
      // Lets the paste come, which brings the clipboard's text, and then the key.
      if (event.repeat) return;
      this.#awaited = { code, symbol };
      this.#pasteTimer = setTimeout(() => this.#settle(), PASTE_PAUSE);
      return;
    }
    event.preventDefault();
    const isShortcut = event.ctrlKey || event.metaKey || (event.altKey && !isMac);
    if (!text) this.#pressLevel3();
    else if (isShortcut && !this.#hasLevel3(event) && event.key.codePointAt(0) > 0x24f) {
      symbol = latinSymbol(code) ?? symbol;
    }
    this.#press(code, symbol);
    // The release of a key is not told while this one is held.
    if (event.metaKey && isMac) this.#release(code);
  }

  #up(event) {
    const code = event.code || event.key;
    if (this.#awaited?.code === code) this.#settle();
    if (code === "ControlLeft") this.flush();
    if (this.#level3 === code) this.#level3 = null;
    if (!event.isComposing) event.preventDefault();
    const name = this.#modifiers.get(code);
    this.#release(code);
    if (name === "Meta") {
      for (const other of this.#pressed.keys()) if (!this.#modifiers.has(other)) this.#release(other);
    }
    this.#matchModifiers(event);
    if (this.#modifiers.size || !this.#chord) return;
    this.#chord = false;
    this.escaped();
  }

  #modifierDown(code, name, event) {
    // Some know AltGr only as the two keys that come at once.
    if (name === "Alt" && code === "AltRight" && this.#control) name = "AltGraph";
    if (name === "AltGraph") {
      this.#dropControl();
      this.#release("ControlLeft");
    }
    if (event.repeat) return;
    if (isLevel3(name)) {
      this.#level3 = code;
      this.#modifiers.set(code, name);
      return;
    }
    this.flush();
    this.#matchModifiers(event, name);
    this.#modifiers.set(code, name);
    const names = [...this.#modifiers.values()];
    this.#chord = ["Control", "Alt", "Shift"].every((one) => names.includes(one));
    if (name === "Control" && code === "ControlLeft") {
      this.#control = true;
      this.#controlTimer = setTimeout(() => this.flush(), CONTROL_PAUSE);
    } else {
      this.#press(code, symbolOfEvent(event));
    }
  }

  #dropControl() {
    clearTimeout(this.#controlTimer);
    this.#control = false;
  }

  #hasLevel3(event) {
    return event.getModifierState("AltGraph") || [...this.#modifiers.values()].includes("AltGraph");
  }

  #pressLevel3() {
    if (!this.#level3) return;
    const code = this.#level3;
    this.#level3 = null;
    this.#press(code, this.#modifiers.get(code) === "Alt" ? KEY.Alt : KEY.AltGraph);
  }

  /** Modifiers whose release or press went elsewhere; SKIP is the one that the event is about. */
  #matchModifiers(event, skip) {
    const level3 = this.#hasLevel3(event);
    const isOn = (name) => event.getModifierState(name) ||
      // where AltGr is only known as these two
      (name === "AltGraph" && event.ctrlKey && event.altKey);
    for (const name of MODIFIERS) {
      // With AltGr, flags of its own two keys say nothing.
      if (name === skip || (level3 && (name === "Control" || name === "Alt"))) continue;
      const codes = [...this.#modifiers].filter(([, one]) => one === name).map(([code]) => code);
      if (!isOn(name)) {
        for (const code of codes) {
          if (this.#level3 === code) this.#level3 = null;
          if (code === "ControlLeft") this.#dropControl();
          this.#release(code);
        }
      } else if (!codes.length && event.type !== "keyup" && !isLevel3(name)) {
        this.#modifiers.set(name, name);
        this.#press(name, KEY[name]);
      }
    }
  }

  #press(code, symbol) {
    const former = this.#pressed.get(code);
    if (former !== undefined && former !== symbol) this.#send(former, false);
    if (this.#armed.size && !this.#modifiers.has(code)) return this.#stroke(symbol);
    this.#pressed.set(code, symbol);
    this.#send(symbol, true);
  }

  #release(code) {
    this.#modifiers.delete(code);
    const symbol = this.#pressed.get(code);
    if (symbol === undefined) return;
    this.#pressed.delete(code);
    this.#send(symbol, false);
  }

  #stroke(symbol) {
    const armed = [...this.#armed].map((name) => KEY[name]);
    this.#armed.clear();
    for (const modifier of armed) this.#send(modifier, true);
    this.#send(symbol, true);
    this.#send(symbol, false);
    for (const modifier of armed.reverse()) this.#send(modifier, false);
    if (armed.length) this.disarmed();
  }

  /** What is waited for comes no more, or must not be overtaken. */
  #settle() {
    clearTimeout(this.#pasteTimer);
    const { code, symbol, text } = this.#awaited ?? {};
    if (text !== undefined) this.#takeText(text);
    this.#awaited = null;
    if (symbol) this.#press(code, symbol);
  }

  #takeText(fallback = "") {
    const text = this.#field.value || fallback;
    this.#field.value = "";
    this.#deadKey = false;
    this.#awaited = null;
    this.type(text);
  }

  /** What phones tell instead of keys. */
  #beforeInput(event) {
    if (this.#composing) return;
    const name = { insertLineBreak: "Enter", insertParagraph: "Enter", deleteContentBackward: "Backspace",
      deleteContentForward: "Delete" }[event.inputType];
    if (!name) return;
    event.preventDefault();
    this.press(name);
  }
}

function isPaste({ key, code, ctrlKey, metaKey, altKey, shiftKey }) {
  if (altKey) return false;
  return ctrlKey || metaKey ? code === "KeyV" || /^v$/i.test(key) : shiftKey && key === "Insert";
}

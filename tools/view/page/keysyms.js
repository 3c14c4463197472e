/** X key symbols of keys and characters. */

const range = (prefix, first, last, symbol) =>
  Object.fromEntries(Array.from({ length: last - first + 1 }, (_, i) => [prefix + (first + i), symbol + i]));

/** By the side of the keyboard, for those that come in pairs. */
const MODIFIERS = {
  ShiftLeft: 0xffe1, ShiftRight: 0xffe2, ControlLeft: 0xffe3, ControlRight: 0xffe4,
  AltLeft: 0xffe9, AltRight: 0xffea, MetaLeft: 0xffeb, MetaRight: 0xffec,
};

/** By what the key means; also of a modifier whose position is unknown. */
const NAMED = {
  Shift: 0xffe1, Control: 0xffe3, Alt: 0xffe9, Meta: 0xffeb, AltGraph: 0xfe03,
  Backspace: 0xff08, Tab: 0xff09, Clear: 0xff0b, Enter: 0xff0d, Pause: 0xff13, ScrollLock: 0xff14,
  Escape: 0xff1b, Home: 0xff50, ArrowLeft: 0xff51, ArrowUp: 0xff52, ArrowRight: 0xff53,
  ArrowDown: 0xff54, PageUp: 0xff55, PageDown: 0xff56, End: 0xff57, PrintScreen: 0xff61,
  Insert: 0xff63, ContextMenu: 0xff67, Delete: 0xffff,
  ...range("F", 1, 24, 0xffbe),
};

const KEYPAD = {
  ...range("", 0, 9, 0xffb0),
  "*": 0xffaa, "+": 0xffab, "-": 0xffad, "/": 0xffaf, "=": 0xffbd, Enter: 0xff8d,
  Home: 0xff95, ArrowLeft: 0xff96, ArrowUp: 0xff97, ArrowRight: 0xff98, ArrowDown: 0xff99,
  PageUp: 0xff9a, PageDown: 0xff9b, End: 0xff9c, Clear: 0xff9d, Insert: 0xff9e, Delete: 0xff9f,
};

/** Whether the key makes text. */
export const isText = (key) => [...key].length === 1;

/** The symbol of a character. */
export function symbolOf(character) {
  const point = character.codePointAt(0);
  if (character === "\n" || character === "\r") return NAMED.Enter;
  if (character === "\t") return NAMED.Tab;
  return (point >= 0x20 && point < 0x7f) || (point >= 0xa0 && point < 0x100) ? point : 0x1000000 + point;
}

/** The symbol of a keyboard event, null when it has none. */
export function symbolOfEvent({ key, code, location }) {
  if (location === KeyboardEvent.DOM_KEY_LOCATION_NUMPAD && KEYPAD[key]) return KEYPAD[key];
  if (isText(key)) return symbolOf(key);
  const symbol = NAMED[key];  // locks have none: they have had their effect on the text already
  return MODIFIERS[key + /(Left|Right)?$/.exec(code)[0]] || symbol || null;
}

/** The Latin letter or digit on the physical key, as shortcuts want it; null elsewhere. */
export function latinSymbol(code) {
  const match = /^(?:Key([A-Z])|Digit([0-9]))$/.exec(code);
  return match ? symbolOf((match[1] ?? match[2]).toLowerCase()) : null;
}

/** Symbols by the name of a key, or by the position of a modifier. */
export const KEY = { ...NAMED, ...MODIFIERS };

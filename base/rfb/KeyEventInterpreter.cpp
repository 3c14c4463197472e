#include "rfb/KeyEventInterpreter.h"

#include "plat/config/BoolParameter.h"
#include "plat/log/LogSrc.h"
#include "rfb/KeysymAlternates.h"

namespace rfb {

namespace {

plat::LogSrc vlog("KeyEventInterpreter");
plat::BoolParameter alterShiftWithMods("AlterShiftWithMods",
                                       "Whether to alter the Shift and AltGr key state when "
                                       "modifiers such as Ctrl and Alt are pressed",
                                       true, true);

// X keysyms.
enum : uint32_t {
  kTab = 0xff09,
  kMultiKey = 0xff20,
  kModeSwitch = 0xff7e,
  kNumLock = 0xff7f,
  kKpFirst = 0xff80,  // KP_Space
  kF1 = 0xffbe,       // follows KP_Equal
  kF12 = 0xffc9,
  kShiftL = 0xffe1,
  kShiftR = 0xffe2,
  kControlL = 0xffe3,
  kCapsLock = 0xffe5,
  kAltL = 0xffe9,
  kSuperL = 0xffeb,
  kHyperR = 0xffee,
  kIsoLock = 0xfe01,
  kIsoLevel3Shift = 0xfe03,
  kIsoLastGroup = 0xfe0e,
};

// Bits of a level.
enum { kShiftBit = 1, kLevel3Bit = 2 };

bool isModifier(uint32_t keysym) {
  return keysym == kModeSwitch || keysym == kNumLock || (keysym >= kShiftL && keysym <= kHyperR) ||
         (keysym >= kIsoLock && keysym <= kIsoLastGroup);
}

bool isKeypad(uint32_t keysym) {
  return keysym >= kKpFirst && keysym < kF1;
}

bool isFunctionKey(uint32_t keysym) {
  return keysym >= kF1 && keysym <= kF12;
}

int withBit(int level, int bit, bool set) {
  return set ? level | bit : level & ~bit;
}

}  // namespace

bool KeyEventInterpreter::isShiftPressed() const {
  return isPressed(kShiftL) || isPressed(kShiftR);
}

bool KeyEventInterpreter::isHeld(uint32_t keysym) const {
  return isPressed(keysym) || isPressed(alternateKeysym(keysym));
}

bool KeyEventInterpreter::keyEvent(uint32_t keysym, bool down) {
  // Every empty slot of the keyboard's map would match it.
  if (keysym == 0) return false;

  if (composePending_ && down && !isModifier(keysym)) {
    composePending_ = false;
    if (const uint32_t dead = deadKeys_.deadKeysym(keysym)) {
      pressAndRelease(dead);
      return true;
    }
  }

  const bool handled = handleKeysym(keysym, down);
  if (handled || !down) return true;
  if (spell(keysym)) return true;
  if (const std::optional<int> keycode = keyboard_.graft(keysym)) {
    injectKey(*keycode, keysym, true);
    return true;
  }
  if (keysym == kMultiKey) {
    composePending_ = true;
    return true;
  }
  return false;
}

KeyEventInterpreter::Way KeyEventInterpreter::wayTo(uint32_t keysym) const {
  if (keysym == 0 || keysym == kCapsLock || isPressed(keysym)) return Way::kKey;
  if (composePending_ && deadKeys_.deadKeysym(keysym)) return Way::kKey;
  if (hasKey(keysym)) return Way::kKey;
  const uint32_t alternate = alternateKeysym(keysym);
  if (alternate != 0 && hasKey(alternate)) return Way::kKey;
  return spellingOnKeys(keysym) ? Way::kSpelling : Way::kGraft;
}

bool KeyEventInterpreter::handleKeysym(uint32_t keysym, bool down) {
  const auto pressed = pressedKeysyms_.find(keysym);
  if (pressed != pressedKeysyms_.end()) {
    if (!down) {
      injectKey(pressed->second, keysym, false);
      return true;
    }
    // A held modifier is not pressed twice; any other key repeats.
    if (isModifier(keysym)) return true;
  } else if (!down) {
    return true;
  }
  if (pressKeysym(keysym, keysym)) return true;
  const uint32_t alternate = alternateKeysym(keysym);
  return alternate != 0 && pressKeysym(alternate, keysym);
}

void KeyEventInterpreter::pressAndRelease(uint32_t keysym) {
  handleKeysym(keysym, true);
  handleKeysym(keysym, false);
}

const DeadKeyUtil::Spelling* KeyEventInterpreter::spellingOnKeys(uint32_t keysym) const {
  const DeadKeyUtil::Spelling* spelling = deadKeys_.spelling(keysym);
  return spelling && hasKey(spelling->dead) && hasKey(spelling->base) ? spelling : nullptr;
}

bool KeyEventInterpreter::spell(uint32_t keysym) {
  const DeadKeyUtil::Spelling* spelling = spellingOnKeys(keysym);
  if (!spelling) return false;
  pressAndRelease(spelling->dead);
  pressAndRelease(spelling->base);
  return true;
}

bool KeyEventInterpreter::pressKeysym(uint32_t target, uint32_t recordAs) {
  // The viewer's Caps Lock is in the keysyms that it sends already, and the level chosen for each
  // decides about its case; a lock of our own would invert that.
  if (target == kCapsLock) return true;
  if (keyboard_.isCapsLockOn()) tapLock(kCapsLock);

  const bool keypad = isKeypad(target);
  const bool numLock = keypad && keyboard_.isNumLockOn();
  int wantedLevel = 0;
  if (keypad) {
    wantedLevel = withBit(0, kShiftBit, numLock);
  } else {
    wantedLevel = withBit(0, kShiftBit, isShiftPressed());
    wantedLevel =
        withBit(wantedLevel, kLevel3Bit, isPressed(kIsoLevel3Shift) || isPressed(kModeSwitch));
  }
  const std::optional<Keyboard::Key> key = keyboard_.find(target, wantedLevel);
  if (!key) return false;

  // Key combinations mean what the viewer holds, whatever the key's symbols are.
  int level = key->level;
  if (isFunctionKey(target)) level = wantedLevel;
  if (!alterShiftWithMods.value() && (isHeld(kControlL) || isHeld(kAltL) || isHeld(kSuperL))) {
    level = wantedLevel;
  }
  if (target == kTab && isShiftPressed()) level |= kShiftBit;

  ModifierChanges changes;
  if (!keypad) {
    adjustModifier(changes, kShiftL, kShiftR, level & kShiftBit);
    adjustModifier(changes, kIsoLevel3Shift, kModeSwitch, level & kLevel3Bit);
  } else if (numLock != ((level & kShiftBit) != 0)) {
    toggleNumLock();
  }
  injectKey(key->keycode, recordAs, true);
  undo(changes);
  return true;
}

void KeyEventInterpreter::tapLock(uint32_t keysym) {
  const std::optional<Keyboard::Key> lock = keyboard_.find(keysym, 0);
  if (!lock) return;
  injectKey(lock->keycode, 0, true);
  injectKey(lock->keycode, 0, false);
}

void KeyEventInterpreter::toggleNumLock() {
  // With Shift held the key may be another one. Num Lock itself stays as it is then: it is no part
  // of what is undone.
  ModifierChanges changes;
  adjustModifier(changes, kShiftL, kShiftR, false);
  tapLock(kNumLock);
  undo(changes);
}

void KeyEventInterpreter::adjustModifier(ModifierChanges& changes, uint32_t first, uint32_t second,
                                         bool down) {
  if (!down) {
    for (const uint32_t keysym : {first, second}) {
      const auto pressed = pressedKeysyms_.find(keysym);
      if (pressed != pressedKeysyms_.end()) changeModifier(changes, pressed->second, false);
    }
    return;
  }
  if (isPressed(first) || isPressed(second)) return;
  std::optional<Keyboard::Key> key = keyboard_.find(first, 0);
  if (!key) key = keyboard_.find(second, 0);
  if (key) changeModifier(changes, key->keycode, true);
}

void KeyEventInterpreter::changeModifier(ModifierChanges& changes, int keycode, bool down) {
  changes.emplace_back(keycode, down);
  injectKey(keycode, 0, down);
}

void KeyEventInterpreter::undo(const ModifierChanges& changes) {
  for (auto change = changes.rbegin(); change != changes.rend(); ++change) {
    injectKey(change->first, 0, !change->second);
  }
}

void KeyEventInterpreter::injectKey(int keycode, uint32_t keysym, bool down) {
  if (keysym && down) {
    // A repeat on another key than before: the map or the level has changed. Nothing would ever
    // release the former key.
    const auto pressed = pressedKeysyms_.find(keysym);
    if (pressed != pressedKeysyms_.end() && pressed->second != keycode) {
      injectKey(pressed->second, keysym, false);
    }
  }
  vlog.debug("keysym 0x%04x keycode %3d down %d", keysym, keycode, down ? 1 : 0);
  // Applications see a repeat as another press, which needs a release.
  if (down && isKeycodePressed(keycode)) keyboard_.send(keycode, false);
  keyboard_.send(keycode, down);
  if (keysym) {
    if (down) {
      pressedKeysyms_[keysym] = keycode;
    } else {
      pressedKeysyms_.erase(keysym);
    }
  }
  pressedKeycodes_.set(static_cast<size_t>(keycode), down);
}

void KeyEventInterpreter::releasePressedKeys() {
  while (!pressedKeysyms_.empty()) {
    const auto [keysym, keycode] = *pressedKeysyms_.begin();
    vlog.debug("releasePressedKeys: keycode %3d", keycode);
    injectKey(keycode, keysym, false);
  }
}

}  // namespace rfb

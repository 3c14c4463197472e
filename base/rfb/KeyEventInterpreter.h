#pragma once

#include <bitset>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "rfb/DeadKeyUtil.h"
#include "rfb/Keyboard.h"

namespace rfb {

// Turns the key events of a viewer, which name symbols, into presses of physical keys: it finds a
// key and a shift level for each symbol, holds the modifiers that the level needs just as long as
// the press takes, spells symbols that no key has with dead keys, and as a last resort asks for a
// spare key to be given the symbol.
class KeyEventInterpreter {
 public:
  // The keyboard is not owned, and not used before the first event.
  explicit KeyEventInterpreter(Keyboard& keyboard) : keyboard_(keyboard) {}
  KeyEventInterpreter(const KeyEventInterpreter&) = delete;
  KeyEventInterpreter& operator=(const KeyEventInterpreter&) = delete;

  // A key event from a viewer. False if there is no way to produce the symbol.
  bool keyEvent(uint32_t keysym, bool down);
  // How a press of the keysym would be produced now.
  enum class Way {
    kKey,       // by the key that carries it, if there is one
    kSpelling,  // by a dead key and another
    kGraft,     // by a spare key
  };
  Way wayTo(uint32_t keysym) const;
  // Releases every key that is held for the viewer, that of the smallest keysym first.
  void releasePressedKeys();

  // Whether any key is held for the viewer.
  bool hasPressedKeysyms() const { return !pressedKeysyms_.empty(); }
  // Whether a key is down, be it as a temporary modifier.
  bool isKeycodePressed(int keycode) const {
    return pressedKeycodes_.test(static_cast<size_t>(keycode));
  }

 private:
  // Modifiers that were pressed (true) or released around a press, in their order.
  using ModifierChanges = std::vector<std::pair<int, bool>>;

  bool handleKeysym(uint32_t keysym, bool down);
  // Presses the key for a keysym and records it under another.
  bool pressKeysym(uint32_t target, uint32_t recordAs);
  void pressAndRelease(uint32_t keysym);
  bool spell(uint32_t keysym);
  void tapLock(uint32_t keysym);
  void toggleNumLock();
  void adjustModifier(ModifierChanges& changes, uint32_t first, uint32_t second, bool down);
  void changeModifier(ModifierChanges& changes, int keycode, bool down);
  void undo(const ModifierChanges& changes);
  // Keysym 0 is a temporary modifier.
  void injectKey(int keycode, uint32_t keysym, bool down);

  bool hasKey(uint32_t keysym) const { return keyboard_.find(keysym, 0).has_value(); }
  // Null unless there are keys for both parts.
  const DeadKeyUtil::Spelling* spellingOnKeys(uint32_t keysym) const;
  bool isPressed(uint32_t keysym) const { return pressedKeysyms_.count(keysym) != 0; }
  bool isShiftPressed() const;
  // Whether a keysym or its alternate is pressed.
  bool isHeld(uint32_t keysym) const;

  Keyboard& keyboard_;
  // By the keysyms that the viewer sent.
  std::map<uint32_t, int> pressedKeysyms_;
  std::bitset<256> pressedKeycodes_;
  DeadKeyUtil deadKeys_;
  // A compose key without a keycode was pressed: an accent comes next.
  bool composePending_ = false;
};

}  // namespace rfb

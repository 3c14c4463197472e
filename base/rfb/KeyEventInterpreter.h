#pragma once

#include <cstdint>
#include <map>
#include <set>

#include "plat/KeyStateModifier.h"
#include "rfb/DeadKeyUtil.h"

namespace rfb {

// Turns the key events of a viewer, which name symbols, into presses of physical keys: it finds a
// key and a shift level for each symbol, holds the modifiers that the level needs just as long as
// the press takes, spells symbols that no key has with dead keys, and as a last resort asks for a
// spare key to be given the symbol.
//
// Keysyms are those of the X protocol. Keycodes are the callback's; a negative one is none. Levels
// are 0..3: bit 0 is Shift, bit 1 the third level (AltGr).
class KeyEventInterpreter : private plat::KeyStateModifier::Callback {
 public:
  // The keyboard.
  class Callback {
   public:
    virtual ~Callback() = default;
    // The symbol of a key at a level; 0 for none.
    virtual uint32_t keycodeToKeysym(int keycode, int level) = 0;
    // Presses or releases a key. Called before the interpreter's own records change.
    virtual void fakeKeyEvent(int keycode, bool down) = 0;
    virtual bool isNumLockOn() { return false; }
    virtual bool isCapsLockOn() { return false; }
    // The lowest keycode from minKeycode to maxKeycode that carries a keysym, at *level if one is
    // given and any key does, else at the lowest level at which one does, which is stored in
    // *level. -1 if there is none.
    virtual int keysymToKeycode(uint32_t keysym, int* level);
    // Gives a keysym that no key carries a keycode of its own; -1 if that can't be.
    virtual int addKeysym(uint32_t) { return -1; }

    // The range to search, both inclusive; empty at first.
    int minKeycode = 0;
    int maxKeycode = -1;
  };

  // The callback is not owned. It is called at once, to find the lock keys.
  explicit KeyEventInterpreter(KeyEventInterpreter::Callback& callback);
  KeyEventInterpreter(const KeyEventInterpreter&) = delete;
  KeyEventInterpreter& operator=(const KeyEventInterpreter&) = delete;

  // A key event from a viewer. False if there is no way to produce the symbol.
  bool keyEvent(uint32_t keysym, bool down);
  // Releases every key that is held for the viewer.
  void releasePressedKeys();
  // To be called whenever the keyboard's map has changed.
  void findLockKeys();

  // Keycodes, -1 if there is no such key.
  int numLockKeycode() const { return numLockKeycode_; }
  int capsLockKeycode() const { return capsLockKeycode_; }
  // Whether any key is held for the viewer.
  bool hasPressedKeysyms() const { return !pressedKeysyms_.empty(); }
  // Whether a key is held down at all, be it as a temporary modifier.
  bool isKeycodePressed(int keycode) const { return pressedKeycodes_.count(keycode) != 0; }

 private:
  void changeKeyState(int keycode, bool down) noexcept override { injectKey(keycode, 0, down); }

  bool handleKeysym(uint32_t keysym, bool down);
  // Presses the key for a keysym and records it under another.
  bool pressKeysym(uint32_t target, uint32_t recordAs);
  void pressAndRelease(uint32_t keysym);
  bool spell(uint32_t keysym);
  void turnCapsLockOff();
  void toggleNumLock();
  void adjustModifier(plat::KeyStateModifier& scope, uint32_t first, uint32_t second, bool down);
  // Keysym 0 is a temporary modifier.
  void injectKey(int keycode, uint32_t keysym, bool down);

  bool isPressed(uint32_t keysym) const { return pressedKeysyms_.count(keysym) != 0; }
  bool isShiftPressed() const;
  // Whether a keysym or its alternate is pressed.
  bool isHeld(uint32_t keysym) const;

  KeyEventInterpreter::Callback& callback_;
  int numLockKeycode_ = -1;
  int capsLockKeycode_ = -1;
  // By the keysyms that the viewer sent.
  std::map<uint32_t, int> pressedKeysyms_;
  std::set<int> pressedKeycodes_;
  DeadKeyUtil deadKeys_;
  // A compose key without a keycode was pressed: an accent comes next.
  bool composePending_ = false;
};

}  // namespace rfb

#pragma once

#include <cstdint>
#include <optional>

namespace rfb {

// The keyboard that a KeyEventInterpreter plays. Keysyms are those of the X protocol, keycodes are
// 0..255, levels 0..3: bit 0 is Shift, bit 1 the third level (AltGr).
class Keyboard {
 public:
  struct Key {
    int keycode;
    int level;
  };

  virtual ~Keyboard() = default;

  // The lowest keycode that carries a keysym at the preferred level, else at the lowest level at
  // which one does; null if none does.
  virtual std::optional<Key> find(uint32_t keysym, int preferredLevel) = 0;
  // Presses or releases a key.
  virtual void send(int keycode, bool down) = 0;
  virtual bool isNumLockOn() = 0;
  virtual bool isCapsLockOn() = 0;
  // Gives a keysym that no key carries a keycode of its own; null if that can't be.
  virtual std::optional<int> graft(uint32_t keysym) = 0;
};

}  // namespace rfb

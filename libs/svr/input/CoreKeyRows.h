#pragma once

#include <X11/Xlib.h>

#include <cstdint>

#include "tx/XResources.h"

namespace svr {

// The core map of the X keyboard as it is when this is made. One round trip.
class CoreKeyRows {
 public:
  CoreKeyRows(int minKeycode, int maxKeycode);

  // No key carries any symbol of an empty map.
  bool empty() const { return !rows_ || symsPerKeycode_ < 1; }
  int minKeycode() const { return minKeycode_; }
  int maxKeycode() const { return maxKeycode_; }

  bool isSpare(int keycode) const { return carriesOnly(keycode, NoSymbol); }
  // Whether a key's first symbol is this one, and there is no other.
  bool carriesOnly(int keycode, KeySym keysym) const;
  // Makes it the only symbol of a key in the X server's map.
  void assign(int keycode, KeySym keysym);

 private:
  KeySym* row(int keycode) const { return rows_.get() + (keycode - minKeycode_) * symsPerKeycode_; }

  int minKeycode_;
  int maxKeycode_;
  int symsPerKeycode_ = 0;
  tx::XMemory<KeySym> rows_;
};

}  // namespace svr

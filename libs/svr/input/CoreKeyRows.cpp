#include "svr/input/CoreKeyRows.h"

#include <algorithm>

#include "tx/TXDisplay.h"

namespace svr {

CoreKeyRows::CoreKeyRows(int minKeycode, int maxKeycode)
    : minKeycode_(minKeycode),
      maxKeycode_(maxKeycode),
      rows_(XGetKeyboardMapping(tx::TXDisplay::display(), static_cast<KeyCode>(minKeycode),
                                maxKeycode - minKeycode + 1, &symsPerKeycode_)) {}

bool CoreKeyRows::carriesOnly(int keycode, KeySym keysym) const {
  if (empty() || keycode < minKeycode_ || keycode > maxKeycode_) return false;
  const KeySym* const first = row(keycode);
  return *first == keysym && std::all_of(first, first + symsPerKeycode_, [keysym](KeySym other) {
    return other == keysym || other == NoSymbol;
  });
}

void CoreKeyRows::assign(int keycode, KeySym keysym) {
  KeySym* const symbols = row(keycode);
  std::fill(symbols, symbols + symsPerKeycode_, NoSymbol);
  symbols[0] = keysym;
  // A letter alone is taken for both of its cases.
  KeySym lower, upper;
  XConvertCase(keysym, &lower, &upper);
  if (lower != upper && symsPerKeycode_ > 1) symbols[1] = keysym;
  XChangeKeyboardMapping(tx::TXDisplay::display(), keycode, symsPerKeycode_, symbols, 1);
}

}  // namespace svr

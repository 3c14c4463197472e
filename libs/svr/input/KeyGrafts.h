#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "svr/input/KeyMapX11.h"

namespace svr {

class CoreKeyRows;

// The symbols that agents gave to spare keycodes of the X keyboard. A property of the root window
// keeps them for the next agent of the display. With the parameter `_ReuseGrafts` those that rest
// give their keycodes to new symbols when no spare one is left.
class KeyGrafts {
 public:
  // The map is not owned. The display must be open.
  explicit KeyGrafts(KeyMapX11& map);

  enum class Outcome { kGrafted, kLater, kFull };
  struct Result {
    Outcome outcome;
    int waitMs;  // for kLater: when a keycode has rested
  };
  // Gives the symbols, which no key carries, keycodes in one change of the map: the first ones, as
  // many as there is room for. Impatient, it takes keycodes that have not rested.
  Result graft(const std::vector<uint32_t>& keysyms, bool patient);
  // A key was pressed or released.
  void keySent(int keycode, bool down);

 private:
  struct Graft {
    int keycode;
    uint32_t keysym;
    int64_t lastUse;
    bool held;
  };

  void load();
  void save() const;
  void add(int keycode, uint32_t keysym);
  void forgetChanged(const CoreKeyRows& rows);
  // The keycodes to take, best first, and when there are none how long to wait for one.
  std::vector<int> freeKeycodes(const CoreKeyRows& rows, int64_t rest, int* waitMs) const;

  KeyMapX11& map_;
  std::vector<Graft> grafts_;
  // The map in which there was no keycode to take.
  std::optional<unsigned> fullRevision_;
};

}  // namespace svr

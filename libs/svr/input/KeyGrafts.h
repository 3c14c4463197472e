#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "svr/input/KeyMapX11.h"

namespace svr {

class CoreKeyRows;

// The symbols that agents gave to spare keycodes of the X keyboard. A property of the root window
// keeps them for the next agent of the display. With the parameter `_ReuseGrafts` those that have
// rested give their keycodes to new symbols when no spare one is left. They have when the client
// with the input focus says that it has handled their keys, or after some time when it doesn't say.
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
  // As graft(), without asking anybody.
  Result graftNow(const std::vector<uint32_t>& keysyms, bool patient);
  // The own grafts that are not held, that of the longest rest first.
  std::vector<Graft> unheld() const;
  // When a graft will have rested; a time that is past if it has. Many: several symbols wait.
  int64_t restedAt(const Graft& graft, bool many) const;
  // How long until one will have rested, and those that were pressed in one go with it. 0: one has,
  // or there is none.
  int msUntilRested(bool many) const;
  void askClient();

  KeyMapX11& map_;
  std::vector<Graft> grafts_;
  // The map in which there was no spare keycode left.
  std::optional<unsigned> fullRevision_;
};

}  // namespace svr

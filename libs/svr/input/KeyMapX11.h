#pragma once

#include <X11/XKBlib.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "rfb/Keyboard.h"
#include "tx/TXEventHandler.h"

namespace svr {

class CoreKeyRows;

// The map of the X keyboard (XKB's, else the core one) and its state, followed by their events. The
// display must be open.
class KeyMapX11 : private tx::TXEventHandler {
 public:
  // The only symbol that a keycode is to carry.
  struct Assignment {
    int keycode;
    uint32_t keysym;
  };

  KeyMapX11();

  // Takes over what the X server has sent by now, dispatched or not.
  void follow();

  // As rfb::Keyboard::find(), in the current group.
  std::optional<rfb::Keyboard::Key> find(uint32_t keysym, int preferredLevel) const;
  bool isNumLockOn();
  bool isCapsLockOn() const;
  // The last request pressed or released a key.
  void keySent(int keycode, bool down);

  // Reads the map, whether it is known to have changed or not.
  void refresh();
  // Changes the map of the X server. It must be grabbed since refresh(); rows are the core map.
  void assign(const std::vector<Assignment>& assignments, CoreKeyRows& rows);
  // Another number after each reading of the map.
  unsigned revision() const { return revision_; }
  int minKeycode() const { return minKeycode_; }
  int maxKeycode() const { return maxKeycode_; }

 private:
  struct XkbDescDeleter {
    void operator()(XkbDescPtr desc) const { XkbFreeKeyboard(desc, 0, True); }
  };
  // A symbol's place in the current group.
  struct Place {
    uint32_t keysym;
    rfb::Keyboard::Key key;
  };

  // tx::TXEventHandler
  void handleEvent(const XEvent& event) override;

  void openXkb();
  void readMap();
  bool assignXkb(const std::vector<Assignment>& assignments);
  bool sendXkbRows(int first, int last);
  void readModifiers();
  void indexSymbols();
  uint32_t keysymAt(int keycode, int level) const;
  uint32_t xkbKeysymAt(int keycode, int level) const;

  unsigned revision_ = 0;
  int minKeycode_ = 0;
  int maxKeycode_ = -1;
  std::unique_ptr<XkbDescRec, XkbDescDeleter> xkbDesc_;  // null: the core map is used
  int xkbEventBase_ = -1;
  int xkbGroup_ = 0;
  // By keysym, level and keycode.
  std::vector<Place> places_;
  bool level3Present_ = false;

  // The first request that asked for the map when it was read last.
  unsigned long mapRequest_ = 0;
  bool coreMapChanged_ = false;
  bool xkbMapChanged_ = false;
  bool groupChanged_ = false;

  // Keycode 0 is none.
  int numLockKeycode_ = 0;
  int capsLockKeycode_ = 0;
  unsigned numLockMask_ = 0;
  unsigned modState_ = 0;
  // The request that pressed or released a lock key last.
  unsigned long lockKeyRequest_ = 0;
};

}  // namespace svr

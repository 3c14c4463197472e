#pragma once

#include <X11/XKBlib.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "plat/timer/Timer.h"
#include "rfb/KeyEventInterpreter.h"
#include "tx/TXEventHandler.h"

namespace svr {

// Types a viewer's key events on the X display through XTEST: looks keys up in the keyboard's map
// (XKB, else core), gives symbols that no key carries a spare keycode, and keeps the X server from
// repeating injected keys by itself. The display must be open.
class SKeyboardX11 : private plat::Timer::Callback,
                     private tx::TXEventHandler,
                     private rfb::KeyEventInterpreter::Callback {
 public:
  SKeyboardX11();
  // Releases every key that is held, and gives the X server time to see that.
  ~SKeyboardX11() override;
  SKeyboardX11(const SKeyboardX11&) = delete;
  SKeyboardX11& operator=(const SKeyboardX11&) = delete;

  // A press or release of an X keysym. Dropped without XTEST.
  void keyEvent(uint32_t keysym, bool down);
  // Releases every key that is held for the viewer.
  void releaseKeys();

 private:
  struct XkbDescDeleter {
    void operator()(XkbDescPtr desc) const { XkbFreeKeyboard(desc, 0, True); }
  };
  // A keycode that was given a keysym here.
  struct Graft {
    int keycode;
    uint32_t keysym;
  };

  // plat::Timer::Callback
  void timerCallback(plat::Timer& timer) override;
  // tx::TXEventHandler
  void handleEvent(const XEvent& event) override;
  // rfb::KeyEventInterpreter::Callback
  uint32_t keycodeToKeysym(int keycode, int level) override;
  void fakeKeyEvent(int keycode, bool down) override;
  bool isNumLockOn() override;
  bool isCapsLockOn() override;
  int keysymToKeycode(uint32_t keysym, int* level) override;
  int addKeysym(uint32_t keysym) override;

  void openXkb();
  // Takes note of events that have arrived and wait to be dispatched.
  void lookAhead();
  // Takes over what mapping events have told since the last look.
  void followMapping();
  void findLockKeys();
  uint32_t xkbKeysym(int keycode, int level) const;
  void setAutoRepeatOff(bool off);

  rfb::KeyEventInterpreter interpreter_;
  unsigned numLockMask_ = 0;
  unsigned modState_ = 0;
  // The request that pressed or released a lock key last.
  unsigned long lockKeyRequest_ = 0;
  plat::Timer autoRepeatTimer_;
  bool autoRepeatOff_ = false;
  bool level3Present_ = false;
  std::unique_ptr<XkbDescRec, XkbDescDeleter> xkbDesc_;  // null: the core map is used
  int xkbEventBase_ = -1;
  int xkbGroup_ = 0;
  // The first request that asked for the map when it was read last.
  unsigned long mapRequest_ = 0;
  bool coreMapChanged_ = false;
  bool xkbMapChanged_ = false;
  std::vector<Graft> grafts_;
};

}  // namespace svr

#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "rfb/KeyEventInterpreter.h"
#include "rfb/Keyboard.h"
#include "svr/input/AutoRepeat.h"
#include "svr/input/InputTrace.h"
#include "svr/input/KeyGrafts.h"
#include "svr/input/KeyMapX11.h"

namespace svr {

// Types a viewer's key events on the X display through XTEST. The display must be open.
class SKeyboardX11 : private rfb::Keyboard {
 public:
  SKeyboardX11();
  // Releases every key that is held, and gives the X server time to see that.
  ~SKeyboardX11() override;
  SKeyboardX11(const SKeyboardX11&) = delete;
  SKeyboardX11& operator=(const SKeyboardX11&) = delete;

  // A press or release of an X keysym. Dropped without XTEST. False, and nothing is done, for a
  // press that has to wait, for a spare keycode or until timeToSpell(), unless it must not.
  bool keyEvent(uint32_t keysym, bool down, bool atOnce);
  // For how many ms a press that is spelled with a dead key has to wait after other keys, to be
  // asked again then; null if it isn't spelled. Toolkits insert what a dead key makes when they
  // read its events, and before letters that they have read and not handled yet.
  std::optional<int> timeToSpell(uint32_t keysym);
  // Gives keycodes to those of the symbols that need one.
  KeyGrafts::Result graftAll(std::span<const uint32_t> keysyms, bool patient);
  // Releases every key that is held for the viewer.
  void releaseKeys();

 private:
  // rfb::Keyboard
  std::optional<Key> find(uint32_t keysym, int preferredLevel) override;
  void send(int keycode, bool down) override;
  bool isNumLockOn() override { return map_.isNumLockOn(); }
  bool isCapsLockOn() override { return map_.isCapsLockOn(); }
  std::optional<int> graft(uint32_t keysym) override;

  // How long keys that spell have to wait in ms.
  int restBeforeSpelling() const;

  InputTrace& trace_;
  KeyMapX11 map_;
  KeyGrafts grafts_;
  rfb::KeyEventInterpreter interpreter_;
  AutoRepeat autoRepeat_;
  int64_t lastPlainPress_ = 0;  // of a key that spells nothing
  // A press that is spelled waits for the client to say that it has come so far.
  bool askedToSpell_ = false;
};

}  // namespace svr

#pragma once

#include "x11/TXFixture.h"

#include <X11/XF86keysym.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "support/InputWitness.h"
#include "tx/XResources.h"

// A keyboard with a layout, and another client that gets what is injected.
class InputFixture : public TXFixture {
 protected:
  using Strings = std::vector<std::string>;

  void begin(const std::string& screen) {
    start(screen);
    load("us");
    witness_ = std::make_unique<support::InputWitness>(server().display());
  }
  void TearDown() override {
    witness_.reset();
    TXFixture::TearDown();
  }
  void load(const std::string& layout) {
    server().run({"setxkbmap", "-option", "", "-layout", layout});
  }
  // What has been injected.
  Strings take() {
    XSync(display(), False);
    return witness_->take();
  }
  std::set<int> spareKeycodes() {
    std::set<int> spare;
    for (int keycode = 8; keycode < 256; ++keycode) {
      int width = 0;
      const tx::XMemory<KeySym> map(
          XGetKeyboardMapping(client(), static_cast<KeyCode>(keycode), 1, &width));
      if (std::count(map.get(), map.get() + width, NoSymbol) == width) spare.insert(keycode);
    }
    return spare;
  }
  // Leaves so many keycodes without a symbol, the highest ones.
  void leaveSpare(size_t number) {
    std::set<int> spare = spareKeycodes();
    while (number-- > 0) spare.erase(std::prev(spare.end()));
    KeySym symbol = XF86XK_Launch0;
    for (const int keycode : spare) XChangeKeyboardMapping(client(), keycode, 1, &symbol, 1);
    XSync(client(), False);
    take();
  }

  std::unique_ptr<support::InputWitness> witness_;
};

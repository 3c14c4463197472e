#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "rfb/KeyEventInterpreter.h"
#include "rfb/KeyboardLayouts.h"

// A keyboard as the X server keeps it, with a client behind it that turns presses into text. It
// fails the running test by itself when
// - a key is pressed or released that is outside the range of keycodes, or pressed while it is
// down;
// - a symbol is put on a keycode that is down, or was used a moment ago (a slow client would look
//   the old press up in the new map);
// - a key is still down, or expected text was not typed, when it goes.
class FakeKeyboard : public rfb::KeyEventInterpreter::Callback {
 public:
  explicit FakeKeyboard(const KeyboardLayout& layout);
  ~FakeKeyboard() override;
  FakeKeyboard(const FakeKeyboard&) = delete;
  FakeKeyboard& operator=(const FakeKeyboard&) = delete;

  // To be called before the first event.
  void attach(rfb::KeyEventInterpreter& interpreter) { interpreter_ = &interpreter; }

  // Text that is to be typed from here on, until the keyboard goes.
  void expect(const std::u32string& text) { expected_ += text; }
  // What was typed so far; a dead key that nothing followed is not in it.
  const std::u32string& text() const { return text_; }
  // Presses and releases since the last call, such as "+Shift +2 -Shift": each key by its plain
  // symbol of the first group.
  std::string takeEvents();
  // The symbols of all presses since the last call, as a client sees them.
  std::vector<uint32_t> takeSymbols() { return std::exchange(symbols_, {}); }

  // Puts a symbol on a keycode, or takes all from it (0).
  void bind(int keycode, uint32_t keysym);
  bool shiftDown() const { return isDown({0xffe1, 0xffe2}); }
  bool level3Down() const { return isDown({0xfe03, 0xff7e}); }

  bool numLock = false;
  bool capsLock = false;
  // Whether a keysym may be put on a spare key.
  bool grafting = true;
  int grafts = 0;

  // Whether a key of one level shows its symbol with Shift as well. The core map does not say so.
  bool oneLevelServesShift = true;

  uint32_t keycodeToKeysym(int keycode, int level) override;
  void fakeKeyEvent(int keycode, bool down) override;
  bool isNumLockOn() override { return numLock; }
  bool isCapsLockOn() override { return capsLock; }
  int addKeysym(uint32_t keysym) override;

 private:
  using Symbols = std::array<uint32_t, 4>;
  struct Key {
    std::array<Symbols, 2> groups{};
    int groupCount = 0;

    bool empty() const { return groupCount == 0; }
  };

  void set(int keycode, const Symbols& symbols, int group = 0);
  const Symbols& symbols(int keycode) const;
  bool isDown(std::initializer_list<uint32_t> keysyms) const;
  void press(int keycode);
  void release(int keycode);
  void typed(uint32_t keysym);
  std::string nameOf(int keycode) const;

  const rfb::KeyEventInterpreter* interpreter_ = nullptr;
  int group_;
  std::map<int, Key> keys_;
  std::set<int> down_;
  std::deque<int> recent_;  // keycodes of the last presses
  std::string events_;
  std::vector<uint32_t> symbols_;
  std::u32string text_;
  std::u32string expected_;
  char32_t pendingMark_ = 0;
};

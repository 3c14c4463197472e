#pragma once

#include <array>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "rfb/KeyEventInterpreter.h"
#include "support/Composer.h"

// Neighbouring keys. Each level is a string with a character for each key; a blank is no symbol, a
// combining mark the dead key of that accent. Levels: plain, Shift, AltGr, both.
struct KeyboardRow {
  int group;
  int firstKeycode;
  const char32_t* levels[4];
};

// Keyboard layouts as tables: a new one is one more row of the list.
struct KeyboardLayout {
  const char* name;
  uint32_t altGr;  // the keysym of the key right of the space bar
  bool spareKeys;  // whether there are keycodes without symbols
  int group;       // the one in force
  std::vector<KeyboardRow> rows;
  const char32_t* sample;  // text that can be typed on it
};
extern const std::vector<KeyboardLayout> keyboardLayouts;

// A keyboard as the X server keeps it, with a client behind it that turns presses into text. It
// fails the running test by itself when
// - a key is pressed or released outside the range of keycodes, or pressed while it is down;
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

  // Text that is to be typed until the keyboard goes.
  void expect(const std::string& text) { expected_ = text; }
  // Presses and releases since the last call, such as "+Shift +2 -Shift": each key by its plain
  // symbol of the first group.
  std::string takeEvents();
  // The symbol of the last press, as a client sees it.
  uint32_t lastSymbol() const { return lastSymbol_; }

  // Puts a symbol on a keycode.
  void bind(int keycode, uint32_t keysym);
  bool shiftDown() const { return isDown(XKB_KEY_Shift_L) || isDown(XKB_KEY_Shift_R); }

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

  void set(int keycode, const Symbols& symbols, int group = 0);
  const Symbols& symbols(int keycode) const;
  bool isDown(uint32_t keysym) const;
  void press(int keycode);
  void release(int keycode);
  void typed(uint32_t keysym);
  std::string nameOf(int keycode) const;

  const support::Composer composer_;
  const rfb::KeyEventInterpreter* interpreter_ = nullptr;
  size_t group_;
  std::map<int, std::vector<Symbols>> keys_;  // by group
  std::set<int> down_;
  std::deque<int> recent_;  // keycodes of the last presses
  std::string events_;
  uint32_t lastSymbol_ = 0;
  std::string text_;
  std::string expected_;
  uint32_t pendingDead_ = 0;
};

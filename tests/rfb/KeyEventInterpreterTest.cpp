#include "rfb/KeyEventInterpreter.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/ParameterValue.h"

namespace rfb {
namespace {

// Signed: a minus makes a release of a press, see Keys.
constexpr int64_t Tab = 0xff09, Multi_key = 0xff20, Num_Lock = 0xff7f, KP_9 = 0xffb9;
constexpr int64_t F5 = 0xffc2, Shift_L = 0xffe1, Shift_R = 0xffe2, Control_L = 0xffe3;
constexpr int64_t Control_R = 0xffe4, Caps_Lock = 0xffe5, Alt_L = 0xffe9;
constexpr int64_t ISO_Level3_Shift = 0xfe03;

// From keycode 8 on. What clients make of the keys is a matter of the tests with an X server.
const struct {
  const char* name;
  uint32_t symbols[4];  // plain, Shift, AltGr, both
} kKeys[] = {{"Shift", {Shift_L}},     {"ShiftR", {Shift_R, Shift_R}},
             {"Ctrl", {Control_L}},    {"CtrlR", {Control_R}},
             {"Alt", {Alt_L}},         {"AltGr", {ISO_Level3_Shift}},
             {"Caps", {Caps_Lock}},    {"Num", {Num_Lock}},
             {"Tab", {Tab}},           {"F5", {F5}},
             {"Space", {' '}},         {"dead", {0xfe51, 0xfe57}},  // dead_acute, dead_diaeresis
             {"1", {'1', '!'}},        {"9", {'9', '('}},
             {"q", {'q', 'Q', '@'}},   {"a", {'a', 'A'}},
             {"b", {'b', 'B', '9'}},   {"e", {'e', 'E'}},
             {"another e", {'e', 'E'}}};

class Keyboard : public KeyEventInterpreter::Callback {
 public:
  Keyboard() {
    minKeycode = 8;
    maxKeycode = 8 + static_cast<int>(std::size(kKeys)) - 1;
  }
  uint32_t keycodeToKeysym(int keycode, int level) override {
    return kKeys[keycode - 8].symbols[level];
  }
  void fakeKeyEvent(int keycode, bool down) override {
    events_ += std::string(down ? " +" : " -") + kKeys[keycode - 8].name;
  }
  std::string takeEvents() { return std::exchange(events_, {}); }

 private:
  std::string events_;
};

// A list of presses (positive) and releases (negative) of keysyms.
using Keys = std::vector<int64_t>;

struct KeyEventInterpreterTest : testing::Test {
  std::string eventsOf(const Keys& keys) {
    for (const int64_t key : keys)
      EXPECT_TRUE(interpreter.keyEvent(static_cast<uint32_t>(std::abs(key)), key > 0)) << key;
    return keyboard.takeEvents();
  }

  Keyboard keyboard;
  KeyEventInterpreter interpreter{keyboard};
};

TEST_F(KeyEventInterpreterTest, FindsKeysAndTheirModifiers) {
  const std::pair<Keys, const char*> cases[] = {
      // Modifiers last as long as the press.
      {{'A', 'b', -'A', -'b'}, " +Shift +a -Shift +b -a -b"},
      {{Shift_L, Shift_R, '1', -'1', -Shift_R, -Shift_L},
       " +Shift +ShiftR -Shift -ShiftR +1 +ShiftR +Shift -1 -ShiftR -Shift"},
      {{ISO_Level3_Shift, 'q', -'q', -ISO_Level3_Shift}, " +AltGr -AltGr +q +AltGr -q -AltGr"},
      {{Shift_L, '@', -'@', -Shift_L}, " +Shift -Shift +AltGr +q -AltGr +Shift -q -Shift"},
      {{Control_L, Shift_L, '1', -'1', -Shift_L, -Control_L},
       " +Ctrl +Shift -Shift +1 +Shift -1 -Shift -Ctrl"},
      // No key has these with Shift, but combinations keep it.
      {{Shift_L, Tab, -Tab, F5, -F5, -Shift_L}, " +Shift +Tab -Tab +F5 -F5 -Shift"},
      {{Num_Lock, Num_Lock, -Num_Lock, -Num_Lock}, " +Num -Num"},
      {{Caps_Lock, -Caps_Lock}, ""},
      // A symbol of the keypad that it lacks is on another key, and found again on release.
      {{KP_9, '9', -KP_9, -'9'}, " +9 +9 -9 -9"},
      // A key that repeats elsewhere is not left behind.
      {{'9', ISO_Level3_Shift, '9', -'9', -ISO_Level3_Shift}, " +9 +AltGr -9 +b -b -AltGr"},
      // Spelled with dead keys, under a Shift that the viewer holds.
      {{Shift_L, 0xc9, -0xc9, -Shift_L}, " +Shift -Shift +dead +Shift -dead +e -e -Shift"},
      // A compose key that the keyboard lacks makes dead keys of accents. What is not an accent
      // ends it, an accent without a key is lost.
      {{Multi_key, -Multi_key, Shift_L, '"', -'"', -Shift_L, 'a', -'a'},
       " +Shift +dead -dead -Shift +a -a"},
      {{Multi_key, 'e', -'e', '\'', -'\''}, " +e -e +dead -dead +Space -Space"},
      {{Multi_key, 0x1b7, -0x1b7, 'a', -'a'}, " +a -a"}};
  for (const auto& [keys, events] : cases) EXPECT_EQ(eventsOf(keys), events);
  EXPECT_FALSE(interpreter.keyEvent(0x7eb, true)) << "nowhere, and no key to spare";
}

TEST_F(KeyEventInterpreterTest, ShiftIsLeftAloneWithModifiersWhenToldSo) {
  const test::ParameterValue parameter("AlterShiftWithMods", "0");
  const std::pair<Keys, const char*> cases[] = {
      {{Control_L, Shift_L, '1', -'1', -Shift_L, -Control_L}, " +Ctrl +Shift +1 -1 -Shift -Ctrl"},
      {{Control_R, 'A', -'A', -Control_R}, " +CtrlR +a -a -CtrlR"},
      {{Alt_L, '@', -'@', -Alt_L}, " +Alt +q -q -Alt"},
      {{Shift_L, '1', -'1', -Shift_L}, " +Shift -Shift +1 +Shift -1 -Shift"}};
  for (const auto& [keys, events] : cases) EXPECT_EQ(eventsOf(keys), events);
}

TEST_F(KeyEventInterpreterTest, ReleasesEverythingSmallestKeysymFirst) {
  eventsOf({Shift_L, 'B', 'a', Control_L});
  interpreter.releasePressedKeys();
  EXPECT_EQ(keyboard.takeEvents(), " -b -a -Shift -Ctrl");
}

}  // namespace
}  // namespace rfb

#include "rfb/KeyEventInterpreter.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/ParameterValue.h"

namespace rfb {
namespace {

// Signed: a minus makes a release of a press, see Keys.
constexpr int64_t kTab = 0xff09, kMultiKey = 0xff20, kNumLock = 0xff7f, kKp9 = 0xffb9;
constexpr int64_t kF1 = 0xffbe, kF12 = 0xffc9, kShiftL = 0xffe1, kShiftR = 0xffe2,
                  kControlL = 0xffe3;
constexpr int64_t kControlR = 0xffe4, kCapsLock = 0xffe5, kAltL = 0xffe9;
constexpr int64_t kIsoLevel3Shift = 0xfe03;

// From keycode 8 on. What clients make of the keys is a matter of the tests with an X server.
const struct {
  const char* name;
  uint32_t symbols[4];  // plain, Shift, AltGr, both
} kKeys[] = {{"Shift", {kShiftL}},
             {"ShiftR", {kShiftR, kShiftR}},
             {"Ctrl", {kControlL}},
             {"CtrlR", {kControlR}},
             {"Alt", {kAltL}},
             {"AltGr", {kIsoLevel3Shift}},
             {"Caps", {kCapsLock}},
             {"Num", {kNumLock}},
             {"Tab", {kTab}},
             {"F1", {kF1}},
             {"F12", {kF12}},
             {"Space", {' '}},
             {"dead", {0xfe51, 0xfe57}},  // dead_acute, dead_diaeresis
             {"1", {'1', '!'}},
             {"9", {'9', '('}},
             {"q", {'q', 'Q', '@'}},
             {"a", {'a', 'A'}},
             {"b", {'b', 'B', '9'}},
             {"e", {'e', 'E'}},
             {"another e", {'e', 'E'}}};

class FakeKeyboard : public Keyboard {
 public:
  std::optional<Key> find(uint32_t keysym, int preferredLevel) override {
    for (const int level : {preferredLevel, 0, 1, 2, 3}) {
      for (int i = 0; i < static_cast<int>(std::size(kKeys)); ++i) {
        if (kKeys[i].symbols[level] == keysym) return Key{8 + i, level};
      }
    }
    return std::nullopt;
  }
  void send(int keycode, bool down) override {
    events += std::string(down ? " +" : " -") + kKeys[keycode - 8].name;
  }
  bool isNumLockOn() override { return false; }
  bool isCapsLockOn() override { return std::exchange(capsLockOn, false); }
  std::optional<int> graft(uint32_t) override { return std::nullopt; }

  std::string events;
  bool capsLockOn = false;
};

// A list of presses (positive) and releases (negative) of keysyms.
using Keys = std::vector<int64_t>;

struct KeyEventInterpreterTest : testing::Test {
  std::string eventsOf(const Keys& keys) {
    for (const int64_t key : keys) {
      EXPECT_TRUE(interpreter.keyEvent(static_cast<uint32_t>(std::abs(key)), key > 0)) << key;
    }
    return std::exchange(keyboard.events, {});
  }

  FakeKeyboard keyboard;
  KeyEventInterpreter interpreter{keyboard};
};

TEST_F(KeyEventInterpreterTest, FindsKeysAndTheirModifiers) {
  const std::pair<Keys, const char*> cases[] = {
      // Modifiers last as long as the press.
      {{'A', 'b', -'A', -'b'}, " +Shift +a -Shift +b -a -b"},
      {{kShiftL, kShiftR, '1', -'1', -kShiftR, -kShiftL},
       " +Shift +ShiftR -Shift -ShiftR +1 +ShiftR +Shift -1 -ShiftR -Shift"},
      {{kIsoLevel3Shift, 'q', -'q', -kIsoLevel3Shift}, " +AltGr -AltGr +q +AltGr -q -AltGr"},
      {{kShiftL, '@', -'@', -kShiftL}, " +Shift -Shift +AltGr +q -AltGr +Shift -q -Shift"},
      {{kControlL, kShiftL, '1', -'1', -kShiftL, -kControlL},
       " +Ctrl +Shift -Shift +1 +Shift -1 -Shift -Ctrl"},
      // No key has these with Shift, but combinations keep it.
      {{kShiftL, kTab, -kTab, kF1, -kF1, kF12, -kF12, -kShiftL},
       " +Shift +Tab -Tab +F1 -F1 +F12 -F12 -Shift"},
      {{kNumLock, kNumLock, -kNumLock, -kNumLock}, " +Num -Num"},
      {{kCapsLock, -kCapsLock}, ""},
      {{'a', 'a', -'a'}, " +a -a +a -a"},
      // A symbol of the keypad that it lacks is on another key, and found again on release.
      {{kKp9, '9', -kKp9, -'9'}, " +9 -9 +9 -9 -9"},
      // A key that repeats elsewhere is not left behind.
      {{'9', kIsoLevel3Shift, '9', -'9', -kIsoLevel3Shift}, " +9 +AltGr -9 +b -b -AltGr"},
      // Spelled with dead keys, under a Shift that the viewer holds.
      {{kShiftL, 0xc9, -0xc9, -kShiftL}, " +Shift -Shift +dead +Shift -dead +e -e -Shift"},
      // A compose key that the keyboard lacks makes dead keys of accents. What is not an accent
      // ends it, an accent without a key is lost.
      {{kMultiKey, -kMultiKey, kShiftL, '"', -'"', -kShiftL, 'a', -'a'},
       " +Shift +dead -dead -Shift +a -a"},
      {{kMultiKey, 'e', -'e', '\'', -'\''}, " +e -e +dead -dead +Space -Space"},
      {{kMultiKey, 0x1b7, -0x1b7, 'a', -'a'}, " +a -a"}};
  for (const auto& [keys, events] : cases) EXPECT_EQ(eventsOf(keys), events);
  EXPECT_FALSE(interpreter.keyEvent(0x7eb, true)) << "nowhere, and no key to spare";

  keyboard.capsLockOn = true;
  EXPECT_EQ(eventsOf({'a', -'a'}), " +Caps -Caps +a -a");
}

TEST_F(KeyEventInterpreterTest, ShiftIsLeftAloneWithModifiersWhenToldSo) {
  const support::ParameterValue parameter("AlterShiftWithMods", "0");
  const std::pair<Keys, const char*> cases[] = {
      {{kControlL, kShiftL, '1', -'1', -kShiftL, -kControlL}, " +Ctrl +Shift +1 -1 -Shift -Ctrl"},
      {{kControlR, 'A', -'A', -kControlR}, " +CtrlR +a -a -CtrlR"},
      {{kAltL, '@', -'@', -kAltL}, " +Alt +q -q -Alt"},
      {{kShiftL, '1', -'1', -kShiftL}, " +Shift -Shift +1 +Shift -1 -Shift"}};
  for (const auto& [keys, events] : cases) EXPECT_EQ(eventsOf(keys), events);
}

TEST_F(KeyEventInterpreterTest, ReleasesEverythingSmallestKeysymFirst) {
  eventsOf({kShiftL, 'B', 'a', kControlL});
  interpreter.releasePressedKeys();
  EXPECT_EQ(keyboard.events, " -b -a -Shift -Ctrl");
}

}  // namespace
}  // namespace rfb

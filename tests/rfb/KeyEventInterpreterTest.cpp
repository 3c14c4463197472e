#include "rfb/KeyEventInterpreter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "rfb/FakeKeyboard.h"
#include "support/ParameterValue.h"

namespace rfb {
namespace {

// Signed: a minus makes a release of a press, see Keys.
constexpr int64_t Tab = 0xff09, Multi_key = 0xff20, Mode_switch = 0xff7e, Num_Lock = 0xff7f;
constexpr int64_t KP_Add = 0xffab, KP_5 = 0xffb5, KP_9 = 0xffb9, KP_Home = 0xff95, F5 = 0xffc2;
constexpr int64_t Shift_L = 0xffe1, Shift_R = 0xffe2, Control_L = 0xffe3, Control_R = 0xffe4;
constexpr int64_t Caps_Lock = 0xffe5, Alt_L = 0xffe9, ISO_Level3_Shift = 0xfe03;

const KeyboardLayout& layoutOf(const std::string& name) {
  for (const KeyboardLayout& layout : keyboardLayouts)
    if (layout.name == name) return layout;
  throw std::out_of_range(name);
}

// A viewer at a keyboard.
struct Typist {
  explicit Typist(const char* layout) : Typist(layoutOf(layout)) {}
  explicit Typist(const KeyboardLayout& layout) : keyboard(layout), interpreter(keyboard) {
    keyboard.attach(interpreter);
  }

  bool press(uint32_t keysym) { return interpreter.keyEvent(keysym, true); }
  void release(uint32_t keysym) { EXPECT_TRUE(interpreter.keyEvent(keysym, false)); }
  std::string events() { return keyboard.takeEvents(); }

  FakeKeyboard keyboard;
  KeyEventInterpreter interpreter;
};

TEST(KeyEventInterpreter, TypesEveryLayoutsText) {
  // How the viewer holds its own modifiers while it types.
  enum { nothingHeld, shiftForCapitals, altGrForForeign, shiftAlways };
  for (const KeyboardLayout& layout : keyboardLayouts) {
    for (const int habit : {nothingHeld, shiftForCapitals, altGrForForeign, shiftAlways}) {
      SCOPED_TRACE(layout.name + std::string(", habit ") + std::to_string(habit));
      Typist typist(layout);
      std::string expected;
      if (habit == shiftAlways) typist.press(Shift_L);
      for (const char32_t c : std::u32string(layout.sample)) {
        const uint32_t keysym = xkb_utf32_to_keysym(c);
        uint32_t held = 0;
        if (habit == shiftForCapitals && (c < 'a' || c > 'z')) held = Shift_L;
        if (habit == altGrForForeign && c > 0x7e) held = ISO_Level3_Shift;
        if (held && !typist.press(held)) held = 0;
        EXPECT_TRUE(typist.press(keysym)) << uint32_t{c};
        EXPECT_EQ(typist.keyboard.shiftDown(), habit == shiftAlways || held == Shift_L);
        typist.release(keysym);
        if (held) typist.release(held);
        expected += support::textOf(keysym);
      }
      if (habit == shiftAlways) typist.release(Shift_L);
      typist.keyboard.expect(expected);
    }
  }
}

// A list of presses (positive) and releases (negative) of keysyms.
using Keys = std::vector<int64_t>;

void run(Typist& typist, const Keys& keys) {
  for (const int64_t key : keys) {
    if (key < 0)
      typist.release(static_cast<uint32_t>(-key));
    else
      EXPECT_TRUE(typist.press(static_cast<uint32_t>(key))) << key;
  }
}

struct Case {
  const char* layout;
  Keys keys;
  const char* events;
};

void expectEvents(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    Typist typist(c.layout);
    run(typist, c.keys);
    EXPECT_EQ(typist.events(), c.events) << c.layout;
  }
}

TEST(KeyEventInterpreter, ModifiersLastAsLongAsThePress) {
  expectEvents(
      {{"us", {'@', -'@'}, "+Shift +2 -Shift -2"},
       {"us", {Shift_L, '@', -'@', -Shift_L}, "+Shift +2 -2 -Shift"},
       {"us", {Shift_L, '1', -'1', -Shift_L}, "+Shift -Shift +1 +Shift -1 -Shift"},
       {"us",
        {Shift_L, Shift_R, '1', -'1', -Shift_R, -Shift_L},
        "+Shift +ShiftR -Shift -ShiftR +1 +ShiftR +Shift -1 -ShiftR -Shift"},
       {"de", {'@', -'@'}, "+AltGr +q -AltGr -q"},
       {"de with Mode_switch", {'@', -'@'}, "+AltGr +q -AltGr -q"},
       {"de",
        {ISO_Level3_Shift, 'q', -'q', -ISO_Level3_Shift},
        "+AltGr -AltGr +q +AltGr -q -AltGr"},
       {"us(intl)", {0xa7, -0xa7}, "+Shift +AltGr +s -AltGr -Shift -s"},
       {"de", {Shift_L, '@', -'@', -Shift_L}, "+Shift -Shift +AltGr +q -AltGr +Shift -q -Shift"},
       // Pressed together, released the other way round.
       {"us", {'A', 'b', -'A', -'b'}, "+Shift +a -Shift +b -a -b"}});
}

TEST(KeyEventInterpreter, PressesAndReleasesPair) {
  expectEvents(
      {{"us", {Shift_L, Shift_L, -Shift_L, -Shift_L}, "+Shift -Shift"},
       {"us", {Num_Lock, Num_Lock, -Num_Lock}, "+Num -Num"},
       {"de", {ISO_Level3_Shift, ISO_Level3_Shift, -ISO_Level3_Shift}, "+AltGr -AltGr"},
       {"us", {-'a', -Control_L}, ""},
       {"us", {'a', 'a', 'a', -'a'}, "+a -a +a -a +a -a"},
       // The keyboard has no such key: the other one is pressed, and found again on release.
       {"de", {Mode_switch, '@', -'@', -Mode_switch}, "+AltGr +q -q -AltGr"},
       {"us", {KP_9, -KP_9}, "+9 -9"},
       {"us", {KP_9, '9', -KP_9, -'9'}, "+9 -9 +9 -9 -9"}});
}

TEST(KeyEventInterpreter, CombinationsKeepTheirShift) {
  expectEvents({{"us", {Shift_L, Tab, -Tab, -Shift_L}, "+Shift +Tab -Tab -Shift"},
                {"us", {Shift_L, F5, -F5, -Shift_L}, "+Shift +F5 -F5 -Shift"},
                {"us", {F5, -F5}, "+F5 -F5"},
                {"us",
                 {Control_L, Shift_L, '1', -'1', -Shift_L, -Control_L},
                 "+Ctrl +Shift -Shift +1 +Shift -1 -Shift -Ctrl"}});
  // Also where a function key has no symbol with Shift.
  Typist typist("us");
  typist.keyboard.oneLevelServesShift = false;
  run(typist, {Shift_L, F5, -F5, -Shift_L});
  EXPECT_EQ(typist.events(), "+Shift +F5 -F5 -Shift");
}

TEST(KeyEventInterpreter, ShiftIsLeftAloneWithModifiersWhenToldSo) {
  const test::ParameterValue parameter("AlterShiftWithMods", "0");
  expectEvents({{"us",
                 {Control_L, Shift_L, '1', -'1', -Shift_L, -Control_L},
                 "+Ctrl +Shift +1 -1 -Shift -Ctrl"},
                {"us", {Control_R, 'A', -'A', -Control_R}, "+CtrlR +a -a -CtrlR"},
                {"de", {Alt_L, '@', -'@', -Alt_L}, "+Alt +q -q -Alt"},
                {"us", {Shift_L, '1', -'1', -Shift_L}, "+Shift -Shift +1 +Shift -1 -Shift"}});
}

TEST(KeyEventInterpreter, CapsLockStaysOff) {
  Typist typist("us");
  typist.keyboard.expect("aB");
  run(typist, {Caps_Lock, -Caps_Lock});
  EXPECT_EQ(typist.events(), "");
  typist.keyboard.capsLock = true;
  run(typist, {'a', -'a'});
  EXPECT_EQ(typist.events(), "+Caps -Caps +a -a");
  typist.keyboard.capsLock = true;
  run(typist, {Shift_L, 'B', -'B', -Shift_L});
  EXPECT_EQ(typist.events(), "+Caps -Caps +Shift +b -b -Shift");
}

TEST(KeyEventInterpreter, NumLockFollowsTheKeypadSymbol) {
  const struct {
    bool numLock;
    Keys keys;
    const char* events;
    uint32_t symbol;
  } cases[] = {{true, {KP_5, -KP_5}, "+KP5 -KP5", KP_5},
               {false, {KP_5, -KP_5}, "+Num -Num +KP5 -KP5", KP_5},
               {true, {KP_Home, -KP_Home}, "+Num -Num +KP7 -KP7", KP_Home},
               {false, {KP_Home, -KP_Home}, "+KP7 -KP7", KP_Home},
               // A single symbol serves for both states.
               {true, {KP_Add, -KP_Add}, "+KP+ -KP+", KP_Add}};
  for (const auto& c : cases) {
    Typist typist("us");
    typist.keyboard.numLock = c.numLock;
    run(typist, c.keys);
    EXPECT_EQ(typist.events(), c.events);
    EXPECT_EQ(typist.keyboard.lastSymbol(), c.symbol);
  }

  // Held shifts are lifted while Num Lock is toggled, and Num Lock stays toggled.
  Typist typist("us");
  run(typist, {Shift_L, Shift_R, KP_5, -KP_5, -Shift_R, -Shift_L});
  EXPECT_EQ(typist.events(),
            "+Shift +ShiftR -Shift -ShiftR +Num -Num +ShiftR +Shift +KP5 -KP5 -ShiftR -Shift");
  EXPECT_TRUE(typist.keyboard.numLock);
}

TEST(KeyEventInterpreter, SpellsWithDeadKeysOrGrafts) {
  Typist spelled("us(intl)");
  spelled.keyboard.expect("éÉ'");
  run(spelled, {0xe9, -0xe9});
  EXPECT_EQ(spelled.events(), "+dead' -dead' +e -e");
  run(spelled, {Shift_L, 0xc9, -0xc9, -Shift_L});
  EXPECT_EQ(spelled.events(), "+Shift -Shift +dead' +Shift -dead' +e -e -Shift");
  run(spelled, {'\'', -'\''});
  EXPECT_EQ(spelled.events(), "+dead' -dead' +Space -Space");
  EXPECT_EQ(spelled.keyboard.grafts, 0);

  Typist grafted("us");
  grafted.keyboard.expect("ééλ");
  run(grafted, {0xe9, -0xe9, 0xe9, -0xe9, 0x7eb, -0x7eb});
  EXPECT_EQ(grafted.events(), "+é -é +é -é +λ -λ");
  EXPECT_EQ(grafted.keyboard.grafts, 2);
}

TEST(KeyEventInterpreter, ComposeMakesDeadKeys) {
  const struct {
    Keys keys;
    const char* events;
  } cases[] = {
      {{Multi_key, -Multi_key, '\'', -'\'', 'e', -'e'}, "+dead' -dead' +e -e"},
      {{Multi_key, Shift_L, '"', -'"', -Shift_L, 'u', -'u'}, "+Shift +dead' -dead' -Shift +u -u"},
      // Not an accent: the letter itself, and compose is over.
      {{Multi_key, 'e', -'e', '^', -'^', 'a', -'a'},
       "+e -e +Shift +6 -Shift -6 +Space -Space +a -a"},
      // No key for the accent: it is lost, but dealt with.
      {{Multi_key, 0x1b7, -0x1b7, 'c', -'c'}, "+c -c"}};
  for (const auto& c : cases) {
    Typist typist("us(intl)");
    typist.keyboard.grafting = false;
    run(typist, c.keys);
    EXPECT_EQ(typist.events(), c.events);
  }
  // With a spare key the compose key itself is put on it.
  Typist typist("us(intl)");
  run(typist, {Multi_key, -Multi_key});
  EXPECT_EQ(typist.keyboard.lastSymbol(), uint32_t{Multi_key});
}

TEST(KeyEventInterpreter, ChoosesTheHeldLevelThenTheLowestThenTheLowestKey) {
  Typist typist("de");
  typist.keyboard.bind(200, '@');
  typist.keyboard.bind(201, '@');
  const struct {
    int level, keycode, found;
  } cases[] = {{0, 200, 0}, {1, 200, 1}, {2, 24, 2}, {3, 200, 0}};
  for (const auto& c : cases) {
    int level = c.level;
    EXPECT_EQ(typist.keyboard.keysymToKeycode('@', &level), c.keycode) << c.level;
    EXPECT_EQ(level, c.found);
  }
  EXPECT_EQ(typist.keyboard.keysymToKeycode('@', nullptr), 200);
  int level = 2;
  EXPECT_EQ(typist.keyboard.keysymToKeycode(0x7eb, &level), -1);
  EXPECT_EQ(level, 2);
}

TEST(KeyEventInterpreter, ReleasesEverythingSmallestKeysymFirst) {
  Typist typist("us");
  run(typist, {Shift_L, 'B', 'a', Control_L});
  typist.events();
  typist.interpreter.releasePressedKeys();
  EXPECT_EQ(typist.events(), "-b -a -Shift -Ctrl");
}

}  // namespace
}  // namespace rfb

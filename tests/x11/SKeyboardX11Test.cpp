#include "x11/TXFixture.h"

#include "svr/SKeyboardX11.h"

#include <X11/XF86keysym.h>
#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <signal.h>

#include <optional>
#include <set>

#include "io/FdManager.h"
#include "plat/Exception.h"
#include "plat/TimerManager.h"
#include "support/InputWitness.h"
#include "support/ManualClock.h"

namespace {

using Strings = std::vector<std::string>;

constexpr uint32_t kEuro = 0x20ac;
constexpr uint32_t kGrin = 0x101f600;  // U+1F600
constexpr uint32_t kCyrillicA = 0x6c1;

class SKeyboardX11Test : public TXFixture {
 protected:
  SKeyboardX11Test() { io::FdManager::instance(); }
  void TearDown() override {
    keyboard_.reset();
    witness_.reset();
    TXFixture::TearDown();
  }

  void begin(const std::string& layout = "us", const Strings& extra = {}) {
    if (!tx::TXDisplay::isOpen()) start("64x64x24", extra);
    load(layout);
    witness_ = std::make_unique<support::InputWitness>(server().display());
    keyboard_.emplace();
    take();
    log_.clear();
  }
  // "de", "de nodeadkeys", "us,ru"
  void load(const std::string& layout) {
    const size_t blank = layout.find(' ');
    Strings arguments{"setxkbmap", "-option", "", "-layout", layout.substr(0, blank)};
    if (blank != std::string::npos)
      arguments.insert(arguments.end(), {"-variant", layout.substr(blank + 1)});
    server().run(arguments);
  }
  // A map of one's own: symbols of keys, in xkbcomp's notation.
  void loadSymbols(const std::string& symbols) {
    support::Program::Options options;
    options.input =
        "xkb_keymap { xkb_keycodes { include \"evdev+aliases(qwerty)\" };"
        " xkb_types { include \"complete\" }; xkb_compat { include \"complete\" };"
        " xkb_symbols { include \"pc+us+inet(evdev)\" " +
        symbols + " }; };";
    server().run({"xkbcomp", "-w", "0", "-", server().display()}, options);
  }

  void press(uint32_t keysym) { keyboard_->keyEvent(keysym, true); }
  void release(uint32_t keysym) { keyboard_->keyEvent(keysym, false); }
  void tap(uint32_t keysym) {
    press(keysym);
    release(keysym);
  }
  Strings take() {
    XSync(display(), False);
    return witness_->take();
  }
  Strings tapped(uint32_t keysym) {
    tap(keysym);
    return take();
  }
  // The text that the keys make in the other client. The events of all of them are waiting when
  // the last is handled.
  std::string typed(const std::vector<uint32_t>& keysyms) {
    for (const uint32_t keysym : keysyms) tap(keysym);
    take();
    return witness_->text();
  }
  // While the X server has no say. Auto-repeat must be off by an earlier key.
  void typeBlindly(const std::vector<uint32_t>& keysyms) {
    release('z');  // has the map read again, if it has changed: later it could not
    kill(server().pid(), SIGSTOP);
    for (const uint32_t keysym : keysyms) tap(keysym);
    kill(server().pid(), SIGCONT);
  }
  // Presses and releases of a key at the keyboard itself.
  void local(int keycode) {
    for (const Bool down : {True, False})
      XTestFakeKeyEvent(client(), static_cast<unsigned>(keycode), down, CurrentTime);
    XSync(client(), False);
    take();
    dispatchAll();
  }

  unsigned lockedModifiers() {
    XkbStateRec state;
    XkbGetState(client(), XkbUseCoreKbd, &state);
    return state.locked_mods;
  }
  void lockGroup(unsigned group) {
    XkbLockGroup(client(), XkbUseCoreKbd, group);
    XSync(client(), False);
    XSync(client(), False);
  }
  int autoRepeat() {
    XKeyboardState state;
    XGetKeyboardControl(client(), &state);
    return state.global_auto_repeat;
  }
  std::set<unsigned> heldKeys() {
    char keys[32];
    XQueryKeymap(client(), keys);
    std::set<unsigned> held;
    for (unsigned i = 0; i < 256; i++)
      if (keys[i / 8] >> i % 8 & 1) held.insert(i);
    return held;
  }
  std::set<int> spareKeycodes() {
    int first, last, width;
    XDisplayKeycodes(client(), &first, &last);
    KeySym* const map =
        XGetKeyboardMapping(client(), static_cast<KeyCode>(first), last - first + 1, &width);
    std::set<int> spare;
    for (int i = 0; i <= last - first; i++)
      if (std::all_of(map + i * width, map + (i + 1) * width, [](KeySym s) { return s == 0; }))
        spare.insert(first + i);
    XFree(map);
    return spare;
  }
  void fillMap() {
    KeySym symbol = XF86XK_Launch0;
    for (const int keycode : spareKeycodes())
      XChangeKeyboardMapping(client(), keycode, 1, &symbol, 1);
    XSync(client(), False);
    take();
    dispatchAll();
  }

  std::unique_ptr<support::InputWitness> witness_;
  std::optional<svr::SKeyboardX11> keyboard_;
};

TEST_F(SKeyboardX11Test, WhatAnotherClientReceives) {
  const struct {
    const char* layout;
    std::vector<uint32_t> held;
    uint32_t keysym;
    const char* events;
  } cases[] = {
      {"us", {}, 'a', "+a 38; -a 38"},
      {"us", {}, 'A', "+Shift_L 50; +A 38 S; -Shift_L 50 S; -a 38"},
      {"us", {XK_Shift_L}, 'A', "+A 38 S; -A 38 S"},
      // What the viewer holds is lifted for a symbol that would be another one with it.
      {"us", {XK_Shift_R}, '1', "-Shift_R 62 S; +1 10; +Shift_R 62; -exclam 10 S"},
      {"us", {XK_Shift_L}, XK_Tab, "+ISO_Left_Tab 23 S; -ISO_Left_Tab 23 S"},
      {"us", {}, XK_ISO_Left_Tab, "+Shift_L 50; +ISO_Left_Tab 23 S; -Shift_L 50 S; -Tab 23"},
      {"de", {}, '@', "+ISO_Level3_Shift 92; +at 24 5; -ISO_Level3_Shift 92 5; -q 24"},
      {"de", {XK_Mode_switch}, '@', "+at 24 5; -at 24 5"},
      {"de",
       {},
       XK_Greek_OMEGA,
       "+Shift_L 50; +ISO_Level3_Shift 92 S; +Greek_OMEGA 24 S5; -ISO_Level3_Shift 92 S5; "
       "-Shift_L 50 S; -q 24"},
      {"de", {}, 0xe9, "+dead_acute 21; -dead_acute 21; +e 26; -e 26"},
      {"ru", {}, kCyrillicA, "+Cyrillic_a 41; -Cyrillic_a 41"},
  };
  std::string layout;
  for (const auto& c : cases) {
    SCOPED_TRACE(plat::format("%s 0x%x", c.layout, c.keysym));
    if (layout != c.layout) begin(layout = c.layout);
    for (const uint32_t keysym : c.held) press(keysym);
    take();
    std::string events;
    for (const std::string& event : tapped(c.keysym))
      events += (events.empty() ? "" : "; ") + event;
    EXPECT_EQ(events, c.events);
    for (const uint32_t keysym : c.held) release(keysym);
    take();
    EXPECT_EQ(heldKeys(), (std::set<unsigned>{}));
  }
  EXPECT_EQ(log_.count("Added unknown"), 0) << log_.str();
}

TEST_F(SKeyboardX11Test, RepeatsAreReleasesAndPresses) {
  begin();
  press('a');
  press('a');
  press('a');
  press(XK_Shift_L);
  press(XK_Shift_L);
  release('a');
  release('a');
  release('b');
  release(XK_Shift_L);
  EXPECT_EQ(take(), (Strings{"+a 38", "-a 38", "+a 38", "-a 38", "+a 38", "+Shift_L 50", "-A 38 S",
                             "-Shift_L 50 S"}));
}

TEST_F(SKeyboardX11Test, Composes) {
  begin("us intl");
  // The map that dead keys are looked up in belongs to the application.
  EXPECT_EQ(typed({XK_dead_acute, 'e', 0xe8, 0xf1, '\'', '"', '~'}), "éèñ'\"~");
  load("us");
  server().run({"setxkbmap", "-option", "compose:ralt"});
  EXPECT_EQ(typed({XK_Multi_key, '\'', 'e', XK_Multi_key, 'o', 'c'}), "é©");
  EXPECT_EQ(log_.count("Added unknown"), 0);
  // Without a key for it, and none to spare, the accent that comes next becomes a dead key.
  load("us intl");
  fillMap();
  EXPECT_EQ(typed({XK_Multi_key, '"', 'a', XK_Multi_key, 'b'}), "äb");
}

TEST_F(SKeyboardX11Test, UnknownSymbolsGetSpareKeys) {
  begin();
  const std::set<int> spare = spareKeycodes();
  ASSERT_GE(spare.size(), 16u);
  // Before the map's events have been looked at, and after it.
  typed({'x'});
  dispatchAll();
  EXPECT_EQ(typed({kEuro, kEuro, kGrin, kCyrillicA, kGrin}), "€€😀а😀");
  dispatchAll();
  EXPECT_EQ(typed({kCyrillicA, kEuro}), "а€");
  auto highest = spare.rbegin();
  for (const uint32_t keysym : {kEuro, kGrin, kCyrillicA}) {
    EXPECT_EQ(
        log_.count(plat::format("Added unknown keysym 0x%x to keycode %d", keysym, *highest++), 30,
                   "SKeyboardX11"),
        1)
        << log_.str();
  }
  EXPECT_EQ(log_.count("Added unknown"), 3);

  // Both cases of a letter, with and without Shift.
  EXPECT_EQ(typed({0xe9, 0xc9}), "éÉ");
  press(XK_Shift_L);
  EXPECT_EQ(typed({0xe9, 0xc9, kEuro}), "éÉ€");
  release(XK_Shift_L);
  EXPECT_EQ(log_.count("Added unknown"), 5);

  // Another layout ends them.
  load("de");
  EXPECT_EQ(typed({kEuro, kGrin, kGrin}), "€😀😀");
  EXPECT_EQ(log_.count("Added unknown"), 6);
}

TEST_F(SKeyboardX11Test, FullMap) {
  begin();
  fillMap();
  for (int i = 1; i <= 2; i++) {
    EXPECT_EQ(tapped(kGrin), Strings{});
    EXPECT_EQ(
        log_.count("Keyboard mapping full - ignoring unknown keysym 0x101f600", 30, "SKeyboardX11"),
        i);
  }
  EXPECT_EQ(typed({'a', 0x1ff, 0xffffffff, 'b'}), "ab");

  // No keysym is too odd.
  load("us");
  EXPECT_EQ(tapped(0), Strings{});
  tap(0xffffffff);
  tapped(0x1ffffff);
  EXPECT_EQ(typed({'o', 'k'}), "ok");
  EXPECT_FALSE(log_.has("Error")) << log_.str();
}

TEST_F(SKeyboardX11Test, GroupsThatAKeyDoesNotHave) {
  begin();
  loadSymbols(
      "replace key <AE01> { symbols[Group1] = [ 1 ], symbols[Group2] = [ 2 ], symbols[Group3] = [ "
      "3 ] }; "
      "replace key <AE02> { groupsWrap, symbols[Group1] = [ 4 ], symbols[Group2] = [ 5 ] }; "
      "replace key <AE03> { groupsClamp, symbols[Group1] = [ 6 ], symbols[Group2] = [ 7 ] }; "
      "replace key <AE04> { groupsRedirect = 2, symbols[Group1] = [ 8 ], symbols[Group2] = [ 9 ] };"
      "replace key <AE05> { symbols[Group1] = [ 0 ] };");
  const struct {
    unsigned group;
    std::vector<uint32_t> here;
    std::vector<uint32_t> missing;
  } cases[] = {{0, {'1', '4', '6', '8', '0'}, {'2', '5', '7', '9'}},
               {1, {'2', '5', '7', '9', '0'}, {'1', '4', '6', '8'}},
               {2, {'3', '4', '7', '9', '0'}, {'2', '5', '6', '8'}}};
  for (const auto& c : cases) {
    lockGroup(c.group);
    for (size_t i = 0; i < c.here.size(); i++) {
      const std::string text(1, static_cast<char>(c.here[i]));
      const std::string event = tapped(c.here[i]).at(0);
      EXPECT_EQ(witness_->text(), text) << c.group;
      EXPECT_NE(event.find(" " + std::to_string(10 + i)), std::string::npos) << event;
    }
  }
}

TEST_F(SKeyboardX11Test, KeypadFollowsNumLock) {
  begin();
  EXPECT_EQ(tapped(XK_KP_5),
            (Strings{"+Num_Lock 77", "-Num_Lock 77 2", "+KP_5 84 2", "-KP_5 84 2"}));
  EXPECT_EQ(typed({XK_KP_1, XK_KP_Add, XK_KP_2, 'x'}), "1+2x");
  EXPECT_EQ(tapped(XK_KP_Home),
            (Strings{"+Num_Lock 77 2", "-Num_Lock 77 2", "+KP_Home 79", "-KP_Home 79"}));
  EXPECT_EQ(tapped(XK_KP_Home), (Strings{"+KP_Home 79", "-KP_Home 79"}));
  // Another one at the keyboard switches it.
  local(77);
  EXPECT_EQ(tapped(XK_KP_5), (Strings{"+KP_5 84 2", "-KP_5 84 2"}));
  // Held shifts are lifted from Num Lock alone.
  press(XK_Shift_L);
  take();
  EXPECT_EQ(tapped(XK_KP_Left), (Strings{"-Shift_L 50 S2", "+Num_Lock 77 2", "-Num_Lock 77 2",
                                         "+Shift_L 50", "+KP_Left 83 S", "-KP_Left 83 S"}));
  release(XK_Shift_L);
  // Several before anything of it has been reported.
  typeBlindly({XK_KP_5, XK_KP_Home, XK_KP_1, XK_KP_2});
  take();
  EXPECT_EQ(witness_->text(), "512");
}

TEST_F(SKeyboardX11Test, CapsLockAtTheKeyboardIsSwitchedOff) {
  begin();
  typed({'a'});
  for (int i = 0; i < 2; i++) {
    XTestFakeKeyEvent(client(), 66, True, CurrentTime);
    XTestFakeKeyEvent(client(), 66, False, CurrentTime);
    XSync(client(), False);
    take();
    ASSERT_EQ(lockedModifiers(), unsigned{LockMask});
    typeBlindly({'x', 'X'});
    EXPECT_EQ(take(), (Strings{"+Caps_Lock 66 L", "-Caps_Lock 66 L", "+x 53", "-x 53",
                               "+Shift_L 50", "+X 53 S", "-Shift_L 50 S", "-x 53"}));
    EXPECT_EQ(lockedModifiers(), 0u);
    dispatchAll();
  }
}

TEST_F(SKeyboardX11Test, AutoRepeatRestsWhileKeysAreHeld) {
  test::ManualClock clock;
  begin();
  const auto after = [&](int ms) {
    clock.advanceMs(ms);
    plat::TimerManager::instance().runExpired();
    XSync(display(), False);
    return autoRepeat();
  };
  ASSERT_EQ(autoRepeat(), AutoRepeatModeOn);
  press('a');
  EXPECT_EQ(after(0), AutoRepeatModeOff);
  EXPECT_EQ(after(10000), AutoRepeatModeOff);
  release('a');
  EXPECT_EQ(after(2999), AutoRepeatModeOff);
  press('b');  // under a key that is held the timer of the former one has no say
  EXPECT_EQ(after(5000), AutoRepeatModeOff);
  release('b');
  EXPECT_EQ(after(2999), AutoRepeatModeOff);
  EXPECT_EQ(after(1), AutoRepeatModeOn);

  // Whoever has switched it off keeps it.
  XAutoRepeatOff(client());
  XSync(client(), False);
  tap('a');
  EXPECT_EQ(after(4000), AutoRepeatModeOff);
  keyboard_.reset();
  EXPECT_EQ(after(0), AutoRepeatModeOff);

  XAutoRepeatOn(client());
  XSync(client(), False);
  keyboard_.emplace();
  tap('a');
  press('a');
  keyboard_->releaseKeys();
  EXPECT_EQ(after(2999), AutoRepeatModeOff);
  EXPECT_EQ(after(1), AutoRepeatModeOn);
}

TEST_F(SKeyboardX11Test, ReleasesWhatItPressed) {
  begin();
  // Whatever the key is called by now.
  press('y');
  EXPECT_EQ(take(), (Strings{"+y 29"}));
  load("de");
  release('y');
  press('z');
  EXPECT_EQ(take(), (Strings{"-z 29", "+z 29"}));
  load("us");
  press('z');
  release('z');
  EXPECT_EQ(take(), (Strings{"-y 29", "+z 52", "-z 52"}));

  press(XK_Control_R);
  press('c');
  take();
  EXPECT_EQ(heldKeys(), (std::set<unsigned>{54, 105}));
  keyboard_.reset();
  EXPECT_EQ(log_.count("releasePressedKeys: keycode", 100, "KeyEventInterpreter"), 2);
  EXPECT_EQ(heldKeys(), (std::set<unsigned>{}));
  EXPECT_EQ(autoRepeat(), AutoRepeatModeOn);
}

TEST_F(SKeyboardX11Test, WithoutXkb) {
  XkbIgnoreExtension(True);
  begin();
  XkbIgnoreExtension(False);
  EXPECT_EQ(typed({'a', 'A', kEuro, kEuro, 0xe9}), "aA€€é");
  EXPECT_EQ(log_.count("Added unknown"), 2);
  EXPECT_EQ(tapped(XK_KP_5),
            (Strings{"+Num_Lock 77", "-Num_Lock 77 2", "+KP_5 84 2", "-KP_5 84 2"}));
  local(77);
  EXPECT_EQ(tapped(XK_KP_Home), (Strings{"+KP_Home 79", "-KP_Home 79"}));
  load("de");
  take();
  dispatchAll();
  EXPECT_EQ(tapped('z'), (Strings{"+z 29", "-z 29"}));
  EXPECT_EQ(typed({'Y', kEuro, 0xe4}), "Y€ä");
}

}  // namespace

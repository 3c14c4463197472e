#include "x11/InputFixture.h"

#include "svr/input/SKeyboardX11.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <signal.h>
#include <unistd.h>

#include <optional>
#include <set>

#include "plat/Exception.h"
#include "plat/timer/TimerManager.h"
#include "support/ManualClock.h"

namespace {

constexpr uint32_t kEuro = 0x20ac;
constexpr uint32_t kGrin = 0x101f600;  // U+1F600
constexpr uint32_t kCyrillicA = 0x6c1;

class SKeyboardX11Test : public InputFixture {
 protected:
  void TearDown() override {
    keyboard_.reset();
    InputFixture::TearDown();
  }

  void begin() {
    InputFixture::begin("64x64x24");
    keyboard_.emplace();
    take();
    log_.clear();
  }
  void press(uint32_t keysym) { keyboard_->keyEvent(keysym, true, true); }
  void release(uint32_t keysym) { keyboard_->keyEvent(keysym, false, true); }
  void tap(uint32_t keysym) {
    press(keysym);
    release(keysym);
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
  int autoRepeat() {
    XKeyboardState state;
    XGetKeyboardControl(client(), &state);
    return state.global_auto_repeat;
  }
  std::optional<svr::SKeyboardX11> keyboard_;
};

TEST_F(SKeyboardX11Test, UnknownSymbolsGetSpareKeys) {
  begin();
  const std::set<int> spare = spareKeycodes();
  // Before the map's events have been looked at, and after it.
  EXPECT_EQ(typed({kEuro, kEuro, kGrin, kGrin}), "€€😀😀");
  dispatchAll();
  EXPECT_EQ(typed({kEuro}), "€");
  auto highest = spare.rbegin();
  for (const uint32_t keysym : {kEuro, kGrin}) {
    EXPECT_EQ(
        log_.count(plat::format("Added unknown keysym 0x%x to keycode %d", keysym, *highest++), 30,
                   "SKeyboardX11"),
        1)
        << log_.str();
  }
  // Both cases of a letter, with and without Shift.
  EXPECT_EQ(typed({0xe9, 0xc9}), "éÉ");
  press(XK_Shift_L);
  EXPECT_EQ(typed({0xe9, 0xc9, kEuro}), "éÉ€");
  release(XK_Shift_L);
  EXPECT_EQ(log_.count("Added unknown"), 4);
  // Another layout ends them.
  load("de");
  EXPECT_EQ(typed({kEuro, kGrin}), "€😀");
  EXPECT_EQ(log_.count("Added unknown"), 5);

  leaveSpare(0);
  dispatchAll();
  EXPECT_EQ(tapped(kCyrillicA), Strings{});
  EXPECT_TRUE(
      log_.has("Keyboard mapping full - ignoring unknown keysym 0x6c1", 30, "SKeyboardX11"));
  // No keysym is too odd.
  load("us");
  for (const uint32_t keysym : {0u, 0x1ffu, 0x1ffffffu, 0xffffffffu}) tap(keysym);
  take();
  EXPECT_EQ(typed({'o', 'k'}), "ok");
  EXPECT_FALSE(log_.has("Error")) << log_.str();
}

TEST_F(SKeyboardX11Test, GroupsThatAKeyDoesNotHave) {
  begin();
  support::Program::Options options;
  options.input =
      "xkb_keymap { xkb_keycodes { include \"evdev+aliases(qwerty)\" };"
      "xkb_types { include \"complete\" }; xkb_compat { include \"complete\" };"
      "xkb_symbols { include \"pc+us+inet(evdev)\""
      "replace key <AE01> { symbols[1] = [ 1 ], symbols[2] = [ 2 ], symbols[3] = [ 3 ] };"
      "replace key <AE02> { groupsWrap, symbols[1] = [ 4 ], symbols[2] = [ 5 ] };"
      "replace key <AE03> { groupsClamp, symbols[1] = [ 6 ], symbols[2] = [ 7 ] };"
      "replace key <AE04> { groupsRedirect = 2, symbols[1] = [ 8 ], symbols[2] = [ 9 ] };"
      "replace key <AE05> { symbols[1] = [ 0 ] }; }; };";
  server().run({"xkbcomp", "-w", "0", "-", server().display()}, options);
  const std::string symbols[] = {"14680", "25790", "34790"};
  for (unsigned group = 0; group < 3; ++group) {
    XkbLockGroup(client(), XkbUseCoreKbd, group);
    XSync(client(), False);
    XSync(client(), False);
    for (size_t i = 0; i < 5; ++i) {
      const char symbol = symbols[group][i];
      const std::string event = tapped(static_cast<uint8_t>(symbol)).at(0);
      EXPECT_EQ(witness_->text(), std::string(1, symbol)) << group;
      EXPECT_NE(event.find(" " + std::to_string(10 + i)), std::string::npos) << event;
    }
  }
}

TEST_F(SKeyboardX11Test, LocksAtTheKeyboard) {
  begin();
  EXPECT_EQ(tapped(XK_KP_5),
            (Strings{"+Num_Lock 77", "-Num_Lock 77 2", "+KP_5 84 2", "-KP_5 84 2"}));
  for (const int keycode : {77, 66}) {  // Num Lock off, Caps Lock on
    for (const Bool down : {True, False}) {
      XTestFakeKeyEvent(client(), static_cast<unsigned>(keycode), down, CurrentTime);
    }
    XSync(client(), False);
  }
  take();
  dispatchAll();
  // Several before the X server has reported anything of it.
  press(0);  // has the map read again, if it has changed: later it could not
  kill(server().pid(), SIGSTOP);
  for (const uint32_t keysym : {XK_KP_5, XK_KP_Home, XK_KP_1, XK_x, XK_X}) tap(keysym);
  kill(server().pid(), SIGCONT);
  take();
  EXPECT_EQ(witness_->text(), "51xX");
  XkbStateRec state;
  XkbGetState(client(), XkbUseCoreKbd, &state);
  EXPECT_EQ(state.locked_mods, unsigned{Mod2Mask}) << "Num Lock alone";
}

// What is sent goes out at the end of the loop's turn.
TEST_F(SKeyboardX11Test, NothingIsFlushedForTheSakeOfEventsThatWait) {
  begin();
  load("de");
  ASSERT_TRUE(support::waitFor([&] { return XEventsQueued(display(), QueuedAfterReading) > 0; }));
  tap('z');
  tap('y');
  EXPECT_EQ(witness_->take(), Strings{});
  take();
  EXPECT_EQ(witness_->text(), "zy");
}

TEST_F(SKeyboardX11Test, AutoRepeatRestsWhileKeysAreHeld) {
  support::ManualClock clock;
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
}

TEST_F(SKeyboardX11Test, WithoutXkb) {
  XkbIgnoreExtension(True);
  begin();
  XkbIgnoreExtension(False);
  EXPECT_EQ(typed({'a', 'A', kEuro, kEuro, 0xe9}), "aA€€é");
  EXPECT_EQ(log_.count("Added unknown"), 2);
  EXPECT_EQ(typed({XK_KP_5, XK_KP_Home, XK_KP_1}), "51");
  load("de");
  take();
  dispatchAll();
  EXPECT_EQ(typed({'z', 'Y', kEuro, 0xe4}), "zY€ä");
}

}  // namespace

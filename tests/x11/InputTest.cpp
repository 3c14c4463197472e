#include "x11/TXFixture.h"

#include <X11/XF86keysym.h>
#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <signal.h>

#include <functional>
#include <set>

#include "plat/Exception.h"
#include "plat/timer/TimerManager.h"
#include "support/InputWitness.h"
#include "support/ManualClock.h"
#include "svr/input/InputQueue.h"
#include "svr/input/SKeyboardX11.h"
#include "svr/input/SPointerX11.h"
#include "tx/EventSieve.h"
#include "tx/XResources.h"

namespace {

using Strings = std::vector<std::string>;

constexpr uint32_t kEuro = 0x20ac;
constexpr uint32_t kGrin = 0x101f600;  // U+1F600
constexpr uint32_t kCyrillicA = 0x6c1;

// What a viewer's input goes through, and another client that gets what is injected.
class InputTest : public TXFixture, private svr::SPointerX11Callback {
 protected:
  struct Input {
    explicit Input(svr::SPointerX11Callback* callback) : pointer(callback) {}

    svr::SKeyboardX11 keyboard;
    svr::SPointerX11 pointer;
    svr::InputQueue queue{keyboard, pointer};
  };

  // The map of the buttons is read when the display is opened.
  void begin(const std::string& buttons = "") {
    end();
    auto started = support::XServer::xvfb("200x100x24");
    if (!buttons.empty()) started->run({"xmodmap", "-e", "pointer = " + buttons});
    use(std::move(started));
    load("us");
    witness_ = std::make_unique<support::InputWitness>(server().display());
    warp(50, 50);
    renew();
    take();
    log_.clear();
  }
  void beginQueue() {
    begin();
    tap('x');  // later the core keyboard does not change any more
    pointer({1, 1}, 0);
    take();
  }
  void renew() {
    input_.reset();
    svr::SPointerX11Callback* const callback = this;
    input_.emplace(callback);
  }
  void end() {
    input_.reset();
    witness_.reset();
  }
  void TearDown() override {
    end();
    TXFixture::TearDown();
  }
  void load(const std::string& layout) {
    server().run({"setxkbmap", "-option", "", "-layout", layout});
  }
  void syncClient() {
    XSync(client(), False);
    XSync(client(), False);
  }

  // Through the queue, where new symbols wait.
  void key(uint32_t keysym, bool down) { input_->queue.keyEvent(keysym, down); }
  void tap(uint32_t keysym) {
    key(keysym, true);
    key(keysym, false);
  }
  // Characters of the Latin-1, Greek, Cyrillic and further blocks.
  void type(const std::u32string& text) {
    for (const char32_t c : text) tap(c < 0x100 ? c : 0x1000000 + c);
  }
  void pointer(rfb::Point at, uint32_t buttons) { input_->queue.pointerEvent(at, buttons, false); }
  // What has been injected.
  Strings take() {
    XSync(display(), False);
    return witness_->take();
  }
  // Turns of the loop until the new map is made, and so many milliseconds.
  Strings after(int ms) {
    for (int i = 0; i < 3; ++i) plat::TimerManager::instance().runExpired();
    clock_.advanceMs(ms);
    plat::TimerManager::instance().runExpired();
    return take();
  }
  std::string typedAfter(int ms) {
    after(ms);
    return witness_->text();
  }

  // Straight to the keyboard.
  void press(uint32_t keysym) { input_->keyboard.keyEvent(keysym, true, true); }
  void release(uint32_t keysym) { input_->keyboard.keyEvent(keysym, false, true); }
  // The text in the other client, to which the events of all keys come together.
  std::string typed(const std::vector<uint32_t>& keysyms) {
    for (const uint32_t keysym : keysyms) {
      press(keysym);
      release(keysym);
    }
    events_ = take();
    return witness_->text();
  }
  // Leaves so many keycodes without a symbol, the highest ones.
  void leaveSpare(size_t number) {
    for (int keycode = 255; keycode >= 8; --keycode) {
      int width = 0;
      const tx::XMemory<KeySym> map(
          XGetKeyboardMapping(client(), static_cast<KeyCode>(keycode), 1, &width));
      if (std::count(map.get(), map.get() + width, NoSymbol) != width) continue;
      KeySym symbol = XF86XK_Launch0;
      if (number == 0) XChangeKeyboardMapping(client(), keycode, 1, &symbol, 1);
      if (number > 0) --number;
    }
    syncClient();
    take();
  }

  Strings moved(int32_t x, int32_t y, uint32_t buttons = 0, bool relative = false) {
    input_->pointer.pointerEvent({x, y}, buttons, relative);
    return take();
  }
  void warp(int x, int y) {
    XWarpPointer(client(), None, tx::TXDisplay::root(), 0, 0, 0, 0, x, y);
    XSync(client(), False);
  }
  std::string heardAfter(int ms) {
    heard_.clear();
    clock_.advanceMs(ms);
    plat::TimerManager::instance().runExpired();
    return heard_;
  }
  void pointerPosition(int x, int y) override { heard_ += plat::format("at %d,%d;", x, y); }
  void pointerMoved() override { heard_ += "moved;"; }

  support::ManualClock clock_;
  std::unique_ptr<support::InputWitness> witness_;
  std::optional<Input> input_;
  Strings events_;
  std::string heard_;
};

TEST_F(InputTest, UnknownSymbolsGetSpareKeys) {
  begin();
  // Before the map's events have been looked at, and after it.
  EXPECT_EQ(typed({kEuro, kEuro, kGrin, kGrin}), "€€😀😀");
  dispatchAll();
  // Both cases of a letter, with and without Shift.
  EXPECT_EQ(typed({kEuro, 0xe9, 0xc9}), "€éÉ");
  press(XK_Shift_L);
  EXPECT_EQ(typed({0xe9, 0xc9, kEuro}), "éÉ€");
  release(XK_Shift_L);
  EXPECT_EQ(log_.count("Added unknown"), 4);
  EXPECT_TRUE(log_.has("Added unknown keysym 0x20ac to keycode 248", 30));
  // Another layout ends them.
  load("de");
  EXPECT_EQ(typed({kEuro, kGrin}), "€😀");
  EXPECT_EQ(log_.count("Added unknown"), 5);

  leaveSpare(0);
  dispatchAll();
  EXPECT_EQ(typed({kCyrillicA}), "");
  EXPECT_TRUE(
      log_.has("Keyboard mapping full - ignoring unknown keysym 0x6c1", 30, "SKeyboardX11"));
  // No keysym is too odd.
  load("us");
  typed({0u, 0x1ffu, 0x1ffffffu, 0xffffffffu});
  EXPECT_EQ(typed({'o', 'k'}), "ok");
  EXPECT_FALSE(log_.has("Error")) << log_.str();
}

TEST_F(InputTest, GroupsThatAKeyDoesNotHave) {
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
    syncClient();
    for (size_t i = 0; i < 5; ++i) {
      const char symbol = symbols[group][i];
      EXPECT_EQ(typed({static_cast<uint8_t>(symbol)}), std::string(1, symbol)) << group;
      EXPECT_NE(events_.at(0).find(" " + std::to_string(10 + i)), std::string::npos) << events_[0];
    }
  }
}

TEST_F(InputTest, LocksAtTheKeyboard) {
  begin();
  typed({XK_KP_5});
  EXPECT_EQ(events_, (Strings{"+Num_Lock 77", "-Num_Lock 77 2", "+KP_5 84 2", "-KP_5 84 2"}));
  for (const unsigned keycode : {77u, 66u}) {  // Num Lock off, Caps Lock on
    for (const Bool down : {True, False}) XTestFakeKeyEvent(client(), keycode, down, CurrentTime);
  }
  XSync(client(), False);
  take();
  dispatchAll();
  // Several before the X server has reported anything of it.
  press(0);  // has the map read again, if it has changed: later it could not
  kill(server().pid(), SIGSTOP);
  for (const uint32_t keysym : {XK_KP_5, XK_KP_Home, XK_KP_1, XK_x, XK_X}) {
    press(keysym);
    release(keysym);
  }
  kill(server().pid(), SIGCONT);
  take();
  EXPECT_EQ(witness_->text(), "51xX");
  XkbStateRec state;
  XkbGetState(client(), XkbUseCoreKbd, &state);
  EXPECT_EQ(state.locked_mods, unsigned{Mod2Mask}) << "Num Lock alone";
}

TEST_F(InputTest, AutoRepeatRestsWhileKeysAreHeld) {
  begin();
  const auto modeAfter = [&](int ms) {
    after(ms);
    XKeyboardState state;
    XGetKeyboardControl(client(), &state);
    return state.global_auto_repeat;
  };
  press('a');
  EXPECT_EQ(modeAfter(10000), AutoRepeatModeOff);
  release('a');
  EXPECT_EQ(modeAfter(2999), AutoRepeatModeOff);
  press('b');  // under a key that is held the timer of the former one has no say
  EXPECT_EQ(modeAfter(5000), AutoRepeatModeOff);
  release('b');
  EXPECT_EQ(modeAfter(2999), AutoRepeatModeOff);
  EXPECT_EQ(modeAfter(1), AutoRepeatModeOn);
  // Whoever has switched it off keeps it.
  XAutoRepeatOff(client());
  XSync(client(), False);
  typed({'a'});
  EXPECT_EQ(modeAfter(4000), AutoRepeatModeOff);
}

TEST_F(InputTest, WithoutXkb) {
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

TEST_F(InputTest, TheNewSymbolsOfABurstAreOneChangeOfTheMap) {
  beginQueue();
  XkbSelectEvents(client(), XkbUseCoreKbd, XkbMapNotifyMask, XkbMapNotifyMask);
  const auto mapEvents = [&] {
    syncClient();
    const int count = XPending(client());
    XSync(client(), True);
    return count;
  };
  mapEvents();
  type(U"λ");
  typedAfter(30);
  const int eventsOfOne = mapEvents();
  ASSERT_GT(eventsOfOne, 0);

  type(U"aαβ");
  EXPECT_EQ(take(), (Strings{"+a 38", "-a 38"})) << "at once";
  type(U"bγαδεζηθ");
  EXPECT_EQ(typedAfter(29), "");
  EXPECT_EQ(typedAfter(1), "αβbγαδεζηθ");
  EXPECT_EQ(mapEvents(), eventsOfOne);
  // Other keys are what they were, and nothing waits for the symbols any more.
  type(U"qQ.βΩ");
  EXPECT_EQ(typedAfter(0), "qQ.β");
}

TEST_F(InputTest, WhatComesBehindWaitsInOrder) {
  beginQueue();
  key(XK_Shift_L, true);
  take();
  type(U"α");
  pointer({5, 5}, 0);
  EXPECT_EQ(take(), (Strings{"5,5"})) << "motion need not";
  type(U"b");
  pointer({6, 6}, 1);
  pointer({7, 7}, 1);
  pointer({8, 8}, 0);
  key(XK_Shift_L, false);
  EXPECT_EQ(after(29), Strings{});
  const Strings events = after(1);
  ASSERT_EQ(events.size(), 12u);
  EXPECT_EQ(events[0].substr(0, 12), "+U03B1 248 S");
  EXPECT_EQ(Strings(events.begin() + 2, events.end()),
            (Strings{"-Shift_L 50 S", "+b 56", "+Shift_L 50", "-B 56 S", "6,6", "+1", "7,7", "8,8",
                     "-1", "-Shift_L 50 S"}));

  key(XK_Control_L, true);
  pointer({8, 8}, 4);
  take();
  type(U"βc");
  input_->queue.releaseAll();
  EXPECT_EQ(after(1000), (Strings{"-3", "-Control_L 37 C"})) << "what waited is gone";
}

TEST_F(InputTest, NotMoreThanSoManyWait) {
  beginQueue();
  leaveSpare(1);
  type(U"α");
  for (size_t i = 0; i < svr::InputQueue::kMaxWaiting / 2 - 1; ++i) tap('n');
  EXPECT_EQ(take(), Strings{});
  key('n', true);
  take();
  EXPECT_EQ(witness_->text().substr(0, 4), "αnn");
  for (int i = 0; i < 700; ++i) plat::TimerManager::instance().runExpired();
  take();
  EXPECT_GT(witness_->text().size(), 30000u) << "in further turns of the loop";
}

TEST_F(InputTest, RestedGraftsAreUsedAgain) {
  setParam("_ReuseGrafts", "1");
  beginQueue();
  leaveSpare(2);
  type(U"αβ");
  EXPECT_EQ(typedAfter(30), "αβ");
  clock_.advanceMs(150);
  type(U"αγδ");  // several wait for β to rest longer
  EXPECT_EQ(typedAfter(0), "α");
  EXPECT_EQ(typedAfter(349), "");
  after(2);
  EXPECT_EQ(typedAfter(30), "γ");
  EXPECT_EQ(typedAfter(30), "δ") << "alone, in α's place";
  type(U"β");
  EXPECT_EQ(typedAfter(160), "") << "γ has not rested";
  after(20);
  EXPECT_EQ(typedAfter(30), "β");

  // A held one stays.
  clock_.advanceMs(400);
  key(0x1000000 + U'δ', true);
  clock_.advanceMs(1000);
  type(U"εζ");
  EXPECT_EQ(typedAfter(31), "δε");
  after(600);
  EXPECT_EQ(typedAfter(31), "ζ");

  // The next agent knows them, too.
  input_->queue.releaseAll();
  renew();
  clock_.advanceMs(1000);
  type(U"ηθ");
  EXPECT_EQ(typedAfter(31), "ηθ");
}

TEST_F(InputTest, GraftsRestUntilAClientHasHandledThem) {
  setParam("_ReuseGrafts", "1");
  beginQueue();
  leaveSpare(2);
  witness_->answerPings();
  tx::sieveEvents();
  // The witness is behind until its events are taken. The agent reads an answer before it is due.
  const auto pass = [&](int ms) {
    for (; ms > 0; ms -= 10) {
      clock_.advanceMs(10);
      XSync(display(), False);
      plat::TimerManager::instance().runExpired();
    }
  };
  type(U"αβγδ");
  pass(1500);
  const auto typedIn = [&](int ms) {
    std::string text;
    for (; ms > 0; ms -= 10) {
      take();
      text += witness_->text();
      pass(10);
    }
    return text;
  };
  EXPECT_EQ(typedIn(10), "αβ") << "though they would have rested by now";
  EXPECT_EQ(typedIn(120), "γδ") << "as soon as it has come so far";
  type(U"ε");
  EXPECT_EQ(typedIn(100), "") << "not at once all the same";
  EXPECT_EQ(typedIn(160), "ε");

  // One that never answers is waited for once.
  type(U"ζη");
  pass(4000);
  type(U"θι");
  pass(700);
  take();
  EXPECT_EQ(witness_->text().substr(witness_->text().size() - 4), "θι");
}

TEST_F(InputTest, KeysThatSpellWaitForOthers) {
  beginQueue();
  load("fr");
  syncClient();
  take();
  dispatchAll();
  clock_.advanceMs(60);
  type(U"\u00fb\u00f4");
  EXPECT_EQ(take().size(), 8u) << "no other key was just pressed";
  type(U"ax\u00fb\u00fba\u00fb");
  EXPECT_EQ(take().size(), 4u);
  EXPECT_EQ(typedAfter(59), "");
  EXPECT_EQ(typedAfter(2), "ûûa");
  EXPECT_EQ(typedAfter(61), "û");
}

TEST_F(InputTest, ThePointerMovesToTheEdgesAtMost) {
  begin();
  EXPECT_EQ(moved(50, 50), Strings{}) << "it is there already";
  EXPECT_EQ(moved(10, 20), (Strings{"10,20"}));
  EXPECT_EQ(moved(-100, 0, 0, true), (Strings{"0,20"}));
  EXPECT_EQ(moved(0, 20), Strings{}) << "where it really went";
  EXPECT_EQ(moved(0, 0, 0, true), Strings{});
  EXPECT_EQ(moved(INT32_MIN, INT32_MIN), (Strings{"0,0"}));
  EXPECT_EQ(moved(INT32_MAX, 70000), (Strings{"199,99"}));
  EXPECT_EQ(moved(INT32_MIN, INT32_MAX, 0, true), (Strings{"0,99"}));
}

TEST_F(InputTest, Buttons) {
  begin();
  EXPECT_EQ(moved(60, 60, 1), (Strings{"60,60", "+1"})) << "first the place, then the button";
  EXPECT_EQ(moved(1, 1, 0x16, true), (Strings{"61,61", "-1", "+2", "+3", "+5"}));
  // There are eight at the most.
  EXPECT_EQ(moved(61, 61, 0xffffffff), (Strings{"+1", "+4", "+6", "+7", "+8"}));
  input_->pointer.releaseButtons();
  EXPECT_EQ(take(), (Strings{"-1", "-2", "-3", "-4", "-5", "-6", "-7", "-8"}));
  // Physical button 1 is 3 for applications, 2 is dead.
  begin("3 0 1");
  EXPECT_EQ(moved(50, 50, 4), (Strings{"+3"}));
  EXPECT_EQ(moved(50, 50, 1 | 2), (Strings{"-3", "+1"}));
  EXPECT_EQ(moved(50, 50, 0), (Strings{"-1"}));
  setParam("UsePointerMapping", "0");
  EXPECT_EQ(moved(50, 50, 4), (Strings{"+1"}));
}

TEST_F(InputTest, ThePointerIsWatched) {
  begin();
  input_->pointer.setPolling(true);
  EXPECT_EQ(heardAfter(100), "");
  warp(2, 3);
  EXPECT_EQ(heardAfter(99), "");
  EXPECT_EQ(heardAfter(1), "moved;at 2,3;");
  // What was injected is reported, but not as somebody else's motion.
  moved(2, 2, 0, true);
  EXPECT_EQ(heardAfter(100), "at 4,5;");
  moved(33, 33);
  warp(40, 40);
  EXPECT_EQ(heardAfter(100), "moved;at 40,40;");
  setParam("PollCursorTime", "0");
  for (int i = 0; i < 2; ++i) {
    warp(43 + i, 40);
    EXPECT_EQ(heardAfter(1000), "");
    input_->pointer.setPolling(true);
  }
  setParam("PollCursorTime", "20");
  warp(46, 40);
  EXPECT_EQ(heardAfter(20), "moved;at 46,40;") << "at once, not only at the next start";
}

// While nobody moves the pointer nothing wakes the agent, and then it hears at once.
TEST_F(InputTest, SleepsWhileThePointerRests) {
  begin();
  const plat::TimerManager& timers = plat::TimerManager::instance();
  input_->pointer.setPolling(true);
  const std::function<void()> uses[] = {
      [&] { warp(60, 40); },
      [&] {
        XTestFakeMotionEvent(client(), 0, 61, 40, CurrentTime);
        XSync(client(), False);
      },
      [&] { moved(62, 40); },
  };
  const char* const heard[] = {"moved;at 60,40;", "moved;at 61,40;", "at 62,40;"};
  for (size_t i = 0; i < std::size(uses); ++i) {
    // The X server's clock goes by itself.
    ASSERT_TRUE(support::waitFor([&] {
      heardAfter(5);
      return timers.millisecondsUntilNext() < 0;
    })) << i;
    uses[i]();
    dispatchAll();
    EXPECT_EQ(heardAfter(1), heard[i]);
  }
}

}  // namespace

#include "x11/InputFixture.h"

#include "svr/input/InputQueue.h"

#include <X11/XKBlib.h>
#include <X11/keysym.h>

#include <optional>

#include "plat/timer/TimerManager.h"
#include "support/ManualClock.h"
#include "svr/input/SKeyboardX11.h"
#include "svr/input/SPointerX11.h"

namespace {

class InputQueueTest : public InputFixture, private svr::SPointerX11Callback {
 protected:
  // Everything that a viewer's input goes through.
  struct Input {
    explicit Input(svr::SPointerX11Callback* callback) : pointer(callback) {}

    svr::SKeyboardX11 keyboard;
    svr::SPointerX11 pointer;
    svr::InputQueue queue{keyboard, pointer};
  };

  void SetUp() override {
    begin("200x100x24");
    renew();
    input_->queue.keyEvent('x', true);  // Later the core keyboard does not change any more.
    input_->queue.keyEvent('x', false);
    input_->queue.pointerEvent({1, 1}, 0, false);
    take();
  }
  void TearDown() override {
    input_.reset();
    InputFixture::TearDown();
  }
  void renew() {
    input_.reset();
    svr::SPointerX11Callback* const callback = this;
    input_.emplace(callback);
  }
  void pointerPosition(int, int) override {}
  void pointerMoved() override {}

  void tap(uint32_t keysym) {
    input_->queue.keyEvent(keysym, true);
    input_->queue.keyEvent(keysym, false);
  }
  // Characters of the Latin-1, Greek, Cyrillic and further blocks.
  void type(const std::u32string& text) {
    for (const char32_t c : text) tap(c < 0x100 ? c : 0x1000000 + c);
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
  support::ManualClock clock_;
  std::optional<Input> input_;
};

TEST_F(InputQueueTest, TheNewSymbolsOfABurstAreOneChangeOfTheMap) {
  XkbSelectEvents(client(), XkbUseCoreKbd, XkbMapNotifyMask, XkbMapNotifyMask);
  XSync(client(), True);
  type(U"λ");
  typedAfter(30);
  XSync(client(), False);
  const int eventsOfOne = XPending(client());
  ASSERT_GT(eventsOfOne, 0);
  XSync(client(), True);

  type(U"aαβ");
  EXPECT_EQ(take(), (Strings{"+a 38", "-a 38"})) << "at once";
  type(U"bγαδεζηθ");
  EXPECT_EQ(typedAfter(29), "");
  EXPECT_EQ(typedAfter(1), "αβbγαδεζηθ");
  XSync(client(), False);
  EXPECT_EQ(XPending(client()), eventsOfOne);
  // Other keys are what they were, and nothing waits for the symbols any more.
  type(U"qQ.βΩ");
  EXPECT_EQ(typedAfter(0), "qQ.β");
}

TEST_F(InputQueueTest, WhatComesBehindWaitsInOrder) {
  input_->queue.keyEvent(XK_Shift_L, true);
  take();
  type(U"α");
  input_->queue.pointerEvent({5, 5}, 0, false);
  EXPECT_EQ(take(), (Strings{"5,5"})) << "motion need not";
  type(U"b");
  input_->queue.pointerEvent({6, 6}, 1, false);
  input_->queue.pointerEvent({7, 7}, 1, false);
  input_->queue.pointerEvent({8, 8}, 0, false);
  input_->queue.keyEvent(XK_Shift_L, false);
  EXPECT_EQ(after(29), Strings{});
  const Strings events = after(1);
  ASSERT_EQ(events.size(), 12u);
  EXPECT_EQ(events[0].substr(0, 12), "+U03B1 248 S");
  EXPECT_EQ(Strings(events.begin() + 2, events.end()),
            (Strings{"-Shift_L 50 S", "+b 56", "+Shift_L 50", "-B 56 S", "6,6", "+1", "7,7", "8,8",
                     "-1", "-Shift_L 50 S"}));

  input_->queue.keyEvent(XK_Control_L, true);
  input_->queue.pointerEvent({8, 8}, 4, false);
  take();
  type(U"β");
  input_->queue.keyEvent('c', true);
  input_->queue.releaseAll();
  EXPECT_EQ(after(1000), (Strings{"-3", "-Control_L 37 C"})) << "what waited is gone";
}

TEST_F(InputQueueTest, NotMoreThanSoManyWait) {
  leaveSpare(1);
  type(U"α");
  for (size_t i = 0; i < svr::InputQueue::kMaxWaiting / 2 - 1; ++i) tap('n');
  EXPECT_EQ(take(), Strings{});
  input_->queue.keyEvent('n', true);
  take();
  EXPECT_EQ(witness_->text().substr(0, 4), "αnn");
  const std::string rest = [&] {
    for (int i = 0; i < 700; ++i) plat::TimerManager::instance().runExpired();
    take();
    return witness_->text();
  }();
  EXPECT_GT(rest.size(), 30000u) << "in further turns of the loop";
}

TEST_F(InputQueueTest, RestedGraftsAreUsedAgain) {
  setParam("_ReuseGrafts", "1");
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
  for (int i = 0; i < 4; ++i) after(100);
  EXPECT_EQ(typedAfter(0), "");
  input_->queue.keyEvent(0x1000000 + U'δ', true);
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

}  // namespace

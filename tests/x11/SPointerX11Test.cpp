#include "x11/TXFixture.h"

#include "svr/input/SPointerX11.h"

#include <X11/extensions/XTest.h>

#include <optional>

#include "plat/Exception.h"
#include "plat/timer/TimerManager.h"
#include "support/InputWitness.h"
#include "support/ManualClock.h"

namespace {

using Strings = std::vector<std::string>;

class SPointerX11Test : public TXFixture, private svr::SPointerX11Callback {
 protected:
  void TearDown() override {
    pointer_.reset();
    witness_.reset();
    TXFixture::TearDown();
  }

  // Before the display is opened, the buttons are mapped.
  void begin(const std::string& map = "") {
    auto server = support::XServer::xvfb("200x100x24");
    if (!map.empty()) server->run({"xmodmap", "-e", "pointer = " + map});
    use(std::move(server));
    witness_ = std::make_unique<support::InputWitness>(this->server().display());
    warp(50, 50);
    svr::SPointerX11Callback* const callback = this;
    pointer_.emplace(callback);
    take();
  }

  void pointerPosition(int x, int y) override { heard_ += plat::format("at %d,%d;", x, y); }
  void pointerMoved() override { heard_ += "moved;"; }

  Strings take() {
    XSync(display(), False);
    return witness_->take();
  }
  Strings absolute(int32_t x, int32_t y, uint32_t buttons = 0) {
    pointer_->pointerEvent({x, y}, buttons, false);
    return take();
  }
  Strings relative(int32_t x, int32_t y, uint32_t buttons = 0) {
    pointer_->pointerEvent({x, y}, buttons, true);
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

  support::ManualClock clock_;
  std::unique_ptr<support::InputWitness> witness_;
  std::optional<svr::SPointerX11> pointer_;
  std::string heard_;
};

TEST_F(SPointerX11Test, MovesToTheEdgesAtMost) {
  begin();
  EXPECT_EQ(absolute(50, 50), Strings{}) << "it is there already";
  EXPECT_EQ(absolute(10, 20), (Strings{"10,20"}));
  EXPECT_EQ(relative(-100, 0), (Strings{"0,20"}));
  EXPECT_EQ(absolute(0, 20), Strings{}) << "where it really went";
  EXPECT_EQ(relative(0, 0), Strings{});
  EXPECT_EQ(absolute(5000, 50), (Strings{"199,50"}));
  EXPECT_EQ(absolute(INT32_MIN, INT32_MIN), (Strings{"0,0"}));
  EXPECT_EQ(absolute(INT32_MAX, 70000), (Strings{"199,99"}));
  EXPECT_EQ(relative(INT32_MIN, INT32_MAX), (Strings{"0,99"}));
}

TEST_F(SPointerX11Test, Buttons) {
  begin();
  EXPECT_EQ(absolute(60, 60, 1), (Strings{"60,60", "+1"})) << "first the place, then the button";
  EXPECT_EQ(relative(1, 1, 0x16), (Strings{"61,61", "-1", "+2", "+3", "+5"}));
  // There are eight at the most.
  EXPECT_EQ(absolute(61, 61, 0xffffff16), Strings{});
  EXPECT_EQ(absolute(61, 61, 0xffffffff), (Strings{"+1", "+4", "+6", "+7", "+8"}));
  pointer_->releaseButtons();
  EXPECT_EQ(take(), (Strings{"-1", "-2", "-3", "-4", "-5", "-6", "-7", "-8"}));
}

TEST_F(SPointerX11Test, PointerMap) {
  // Physical button 1 is 3 for applications, 2 is dead.
  begin("3 0 1");
  EXPECT_EQ(absolute(50, 50, 4), (Strings{"+3"}));
  EXPECT_EQ(absolute(50, 50, 1 | 2), (Strings{"-3", "+1"}));
  EXPECT_EQ(absolute(50, 50, 0), (Strings{"-1"}));
  setParam("UsePointerMapping", "0");
  EXPECT_EQ(absolute(50, 50, 4), (Strings{"+1"}));
}

TEST_F(SPointerX11Test, Watches) {
  begin();
  pointer_->setPolling(true);
  EXPECT_EQ(heardAfter(100), "");
  warp(2, 3);
  EXPECT_EQ(heardAfter(99), "");
  EXPECT_EQ(heardAfter(1), "moved;at 2,3;");
  // What was injected is reported, but not as somebody else's motion.
  relative(2, 2);
  EXPECT_EQ(heardAfter(100), "at 4,5;");
  absolute(33, 33);
  warp(40, 40);
  EXPECT_EQ(heardAfter(100), "moved;at 40,40;");

  setParam("PollCursorTime", "30");
  pointer_->setPolling(true);
  warp(42, 40);
  EXPECT_EQ(heardAfter(30), "moved;at 42,40;");
  setParam("PollCursorTime", "0");
  for (int i = 0; i < 2; ++i) {
    warp(43 + i, 40);
    EXPECT_EQ(heardAfter(1000), "");
    pointer_->setPolling(true);
  }
  setParam("PollCursorTime", "20");
  warp(46, 40);
  EXPECT_EQ(heardAfter(20), "moved;at 46,40;") << "at once, not only at the next start";
}

// While nobody moves the pointer nothing wakes the agent, and then it hears at once.
TEST_F(SPointerX11Test, SleepsWhileThePointerRests) {
  begin();
  plat::TimerManager& timers = plat::TimerManager::instance();
  pointer_->setPolling(true);
  int at = 60;
  const std::pair<const char*, std::function<void()>> uses[] = {
      {"warp", [&] { warp(at, 40); }},
      {"XTEST",
       [&] {
         XTestFakeMotionEvent(client(), 0, at, 40, CurrentTime);
         XSync(client(), False);
       }},
      {"injection", [&] { absolute(at, 40); }},
  };
  for (const auto& [name, use] : uses) {
    // The X server's clock goes by itself.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (timers.millisecondsUntilNext() >= 0 && std::chrono::steady_clock::now() < deadline) {
      usleep(10000);
      heardAfter(100);
    }
    ASSERT_EQ(timers.millisecondsUntilNext(), -1) << name;
    ++at;
    use();
    dispatchAll();
    EXPECT_EQ(heardAfter(1), plat::format("%sat %d,40;", *name == 'i' ? "" : "moved;", at)) << name;
  }
}

}  // namespace

#include "plat/timer/Timer.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "plat/Time.h"
#include "plat/timer/TimerManager.h"
#include "support/ActionTimer.h"
#include "support/ManualClock.h"

namespace plat {
namespace {

using support::ActionTimer;

class TimerTest : public testing::Test {
 protected:
  std::unique_ptr<ActionTimer> logging(char name) {
    return std::make_unique<ActionTimer>([this, name] { fired_ += name; });
  }

  std::string run() {
    fired_.clear();
    manager_.runExpired();
    return fired_;
  }

  support::ManualClock clock_;
  std::string fired_;
  TimerManager manager_{nullptr, true};
};

TEST_F(TimerTest, FireInOrderOfDueTimeThenOfStart) {
  auto a = logging('a'), b = logging('b'), c = logging('c'), d = logging('d');
  c->timer.start(20);  // and again, behind a
  a->timer.start(20);
  b->timer.start(10);
  c->timer.start(20);
  d->timer.start(10);
  EXPECT_EQ(run(), "");
  clock_.advanceMs(10);
  EXPECT_EQ(run(), "bd");
  clock_.advanceMs(10);
  EXPECT_EQ(run(), "ac");
}

TEST_F(TimerTest, CallbacksStopDestroyAndStartOthersOfTheSamePass) {
  auto stopped = logging('s'), destroyed = logging('d'), restarted = logging('r'),
       last = logging('l'), again = logging('a');
  auto self = std::unique_ptr<ActionTimer>();
  self = std::make_unique<ActionTimer>([&] {
    fired_ += 'x';
    stopped->timer.stop();
    destroyed.reset();
    restarted->timer.start(7);
    again->timer.start(0);
    self.reset();
  });
  for (ActionTimer* timer :
       {self.get(), stopped.get(), destroyed.get(), restarted.get(), last.get()}) {
    timer->timer.start(1);
  }
  clock_.advanceMs(1);
  EXPECT_EQ(run(), "xl") << "one started with 0 waits for the next pass";
  EXPECT_EQ(manager_.millisecondsUntilNext(), 0);
  clock_.advanceMs(7);
  EXPECT_EQ(run(), "ar");
}

TEST_F(TimerTest, JumpRestartsEveryTimerAtItsOwnInterval) {
  for (TimeJump jump : {TimeJump::kForwards, TimeJump::kBackwards}) {
    auto a = logging('a'), b = logging('b');
    a->timer.start(100);
    clock_.advanceMs(60);
    b->timer.start(50);  // due after a
    clock_.advanceMs(jump == TimeJump::kForwards ? 3600000 : -3600000);
    clock_.setJump(jump);
    EXPECT_EQ(run(), "");
    clock_.advanceMs(50);
    EXPECT_EQ(run(), "b");
    clock_.advanceMs(50);
    EXPECT_EQ(run(), "a");
  }
}

TEST(MonotonicClockTest, ReportsJumps) {
  MonotonicClock clock;
  const auto overdueBy = [&](int64_t ticks) { return clock.read(clock.now() - ticks).jump; };
  EXPECT_EQ(clock.read(ClockReader::kNoTimer).jump, TimeJump::kNone);
  EXPECT_EQ(overdueBy(299 * kTicksPerSecond), TimeJump::kNone);
  EXPECT_EQ(overdueBy(301 * kTicksPerSecond), TimeJump::kForwards);
}

}  // namespace
}  // namespace plat

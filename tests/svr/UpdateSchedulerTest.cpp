#include "svr/UpdateScheduler.h"

#include <gtest/gtest.h>

#include "io/FdSelectManager.h"
#include "plat/timer/TimerManager.h"
#include "support/ManualClock.h"

namespace {

const rfb::Rect kFirst(0, 0, 10, 10), kSecond(20, 0, 30, 10), kDamage(0, 50, 5, 55);

class UpdateSchedulerTest : public testing::Test, protected svr::UpdateScheduler::Callback {
 protected:
  bool isUpdateWanted() override { return wanted; }
  void performUpdate(const rfb::UpdateInfo& update) override { updates.push_back(update.changed); }
  void preUpdate() override { scheduler.tracker().addChanged(kDamage); }

  void change(const rfb::Rect& rect) {
    scheduler.tracker().addChanged(rect);
    scheduler.changed();
  }
  // Lets time pass and runs what is due; then the number of updates so far.
  size_t after(int ms) {
    clock.advanceMs(ms);
    loop.process(0);
    return updates.size();
  }

  io::FdSelectManager loop;
  support::ManualClock clock;
  bool wanted = true;
  std::vector<rfb::Region> updates;
  svr::UpdateScheduler scheduler{*this};
};

TEST_F(UpdateSchedulerTest, BatchesAndKeepsThePeriod) {
  change(kFirst);
  EXPECT_EQ(after(0), 0u);
  change(kSecond);  // does not put the batch off
  ASSERT_EQ(after(1), 1u);
  EXPECT_EQ(updates[0], rfb::Region(kFirst) | rfb::Region(kSecond) | rfb::Region(kDamage));
  change(kFirst);
  EXPECT_EQ(plat::TimerManager::instance().millisecondsUntilNext(), 25)
      << "nor does it wake before";
  EXPECT_EQ(after(24), 1u);
  EXPECT_EQ(after(1), 2u);
  EXPECT_EQ(after(100), 2u) << "nothing has changed";
}

// Of a change that is collected when what came before it goes out.
TEST_F(UpdateSchedulerTest, KeepsThePeriodAfterABatchThatWaited) {
  wanted = false;
  change(kFirst);
  after(1);
  change(kSecond);
  wanted = true;
  scheduler.tryUpdate();
  EXPECT_EQ(after(1), 1u);
  EXPECT_EQ(after(23), 1u);
  EXPECT_EQ(after(1), 2u);
}

TEST_F(UpdateSchedulerTest, ResetDropsEverything) {
  change(kFirst);
  after(1);
  change(kSecond);
  scheduler.reset();
  scheduler.changed();
  ASSERT_EQ(after(1), 2u) << "the period is over, too";
  EXPECT_EQ(updates[1], rfb::Region(kDamage));
}

}  // namespace

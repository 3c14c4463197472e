#include "svr/UpdateScheduler.h"

#include <gtest/gtest.h>

#include "io/FdManager.h"
#include "support/ManualClock.h"
#include "support/ParameterValue.h"

namespace {

class UpdateSchedulerTest : public testing::Test,
                            protected svr::UpdateScheduler::Callback,
                            protected svr::UpdateScheduler::PreUpdateHook {
 protected:
  bool isUpdateWanted() override { return wanted; }
  void performUpdate(const rfb::UpdateInfo& update) override { updates.push_back(update); }
  void preUpdate() override { scheduler.tracker().addChanged(damage); }

  void change(const rfb::Rect& rect) {
    scheduler.tracker().addChanged(rect);
    scheduler.changed();
  }
  // Lets time pass and runs what is due.
  void pass(int ms) {
    clock.advanceMs(ms);
    loop.process(0);
  }

  io::FdManager& loop = io::FdManager::instance();
  test::ManualClock clock;
  bool wanted = true;
  rfb::Region damage;
  std::vector<rfb::UpdateInfo> updates;
  svr::UpdateScheduler scheduler{this, this};
};

const rfb::Rect kFirst(0, 0, 10, 10);
const rfb::Rect kSecond(20, 0, 30, 10);

TEST_F(UpdateSchedulerTest, BatchesAndKeepsThePeriod) {
  change(kFirst);
  pass(0);
  EXPECT_TRUE(updates.empty());
  change(kSecond);  // does not put the batch off
  pass(1);
  ASSERT_EQ(updates.size(), 1u);
  EXPECT_EQ(updates[0].changed, rfb::Region(kFirst) | rfb::Region(kSecond));

  change(kFirst);
  pass(1);
  pass(23);
  EXPECT_EQ(updates.size(), 1u);
  pass(1);
  EXPECT_EQ(updates.size(), 2u);
  pass(100);
  EXPECT_EQ(updates.size(), 2u) << "nothing has changed";
}

TEST_F(UpdateSchedulerTest, WaitsForARequest) {
  wanted = false;
  change(kFirst);
  pass(50);
  EXPECT_TRUE(updates.empty());

  wanted = true;
  damage = rfb::Rect(0, 50, 5, 55);
  scheduler.tryUpdate();
  ASSERT_EQ(updates.size(), 1u);
  EXPECT_EQ(updates[0].changed.numRects(), 2) << "what the hook adds goes out with it";
  scheduler.tryUpdate();
  EXPECT_EQ(updates.size(), 1u);
}

TEST_F(UpdateSchedulerTest, WithoutPeriodGoesAtOnce) {
  const test::ParameterValue period("UpdatePeriod", "0");
  for (size_t i = 1; i <= 3; i++) {
    change(kFirst);
    pass(1);
    EXPECT_EQ(updates.size(), i);
  }
}

TEST_F(UpdateSchedulerTest, ResetDropsEverything) {
  change(kFirst);
  pass(1);
  change(kSecond);
  scheduler.reset();
  pass(100);
  EXPECT_EQ(updates.size(), 1u);
  scheduler.changed();
  pass(1);
  ASSERT_EQ(updates.size(), 2u) << "the period is over, too";
  EXPECT_TRUE(updates[1].isEmpty());
}

}  // namespace

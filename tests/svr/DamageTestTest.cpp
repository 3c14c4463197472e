#include "svr/DamageTest.h"

#include <gtest/gtest.h>

#include <memory>

#include "io/FdSelectManager.h"
#include "support/ManualClock.h"
#include "svr/FakeBuffer.h"

namespace {

// Not a multiple of the block size, and not at the origin.
const rfb::Rect kRect(5, 3, 105, 83);

class DamageTestTest : public testing::Test, public svr::DamageTest::Callback {
 protected:
  void collectDamageNow() override {
    if (!late.isEmpty()) test->damageReported(late);
  }
  void damageTestResult(svr::DamageTest& decided, bool any, bool all, bool nonFull) override {
    EXPECT_EQ(&decided, test.get());
    result = plat::format("any %d all %d non full %d", any, all, nonFull);
    test.reset();
  }
  void captureLost(const tx::CaptureLostException&) override { FAIL(); }
  void pass(int ms) {
    clock.advanceMs(ms);
    loop.process(0);
  }

  io::FdSelectManager loop;
  support::ManualClock clock;
  FakeBuffer buffer{rfb::PixelFormat(32, 24, false, true, 255, 255, 255, 16, 8, 0), kRect};
  std::unique_ptr<svr::DamageTest> test{std::make_unique<svr::DamageTest>(*this, buffer)};
  rfb::Region late;
  std::string result;
};

TEST_F(DamageTestTest, ComparesChangeWithDamage) {
  const rfb::Rect none;
  const struct {
    std::vector<rfb::Point> drawn;
    rfb::Rect damage, late;
    const char* result;
  } cases[] = {
      {{{50, 50}}, none, none, "any 0 all 0 non full 0"},
      // One pixel stands for its block, but not for its neighbour.
      {{{21, 3}, {36, 18}}, {30, 10, 31, 11}, none, "any 1 all 1 non full 1"},
      {{{21, 3}}, {20, 3, 21, 4}, none, "any 1 all 0 non full 1"},
      {{{50, 50}}, kRect, none, "any 1 all 1 non full 0"},
      {{{50, 50}}, none, {50, 50, 51, 51}, "any 1 all 1 non full 1"},
  };
  for (const auto& c : cases) {
    test = std::make_unique<svr::DamageTest>(*this, buffer);
    result.clear();
    EXPECT_TRUE(test->changedBefore().isEmpty());
    pass(5000);
    test->wake();
    pass(5000);
    EXPECT_EQ(result, "") << "a still screen decides nothing";
    for (const rfb::Point& p : c.drawn) buffer.drawOnScreen(p.x, p.y);
    if (!c.damage.isEmpty()) test->damageReported(c.damage);
    late = c.late;
    pass(2000);
    test->wake();
    pass(2999);
    EXPECT_EQ(result, "");
    pass(1);
    EXPECT_EQ(result, c.result) << c.damage.str();
  }
}

TEST_F(DamageTestTest, TellsWhatChangedBefore) {
  buffer.drawOnScreen(50, 50);
  test = std::make_unique<svr::DamageTest>(*this, buffer);
  EXPECT_TRUE(test->changedBefore() == rfb::Region(rfb::Rect(37, 35, 53, 51)));
}

TEST_F(DamageTestTest, DamageThatNobodyCollectsKeepsItAwake) {
  test->damageNotified();
  pass(5000);
  EXPECT_EQ(result, "");
  // Of this the X server does not tell again.
  buffer.drawOnScreen(50, 50);
  late = rfb::Rect(50, 50, 51, 51);
  pass(5000);
  EXPECT_EQ(result, "any 1 all 1 non full 1");
}

}  // namespace

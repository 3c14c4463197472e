#include "rfb/SimpleUpdateTracker.h"

#include <gtest/gtest.h>

namespace rfb {
namespace {

const Region kA(Rect(0, 0, 10, 10));
const Region kB(Rect(50, 0, 60, 10));
const Region kC(Rect(100, 0, 110, 10));
const Point kRight(5, 0), kFar(50, 0);

void expectUpdate(SimpleUpdateTracker& tracker, const char* what, const Region& copied,
                  const Point& delta, const Region& changed) {
  const UpdateInfo info = tracker.take();
  EXPECT_EQ(info.copied, copied) << what;
  EXPECT_EQ(info.delta, delta) << what;
  EXPECT_EQ(info.changed, changed) << what;
  EXPECT_TRUE(tracker.isEmpty()) << what;
}

TEST(SimpleUpdateTracker, KeepsAtMostOneMove) {
  SimpleUpdateTracker t;
  t.addCopied(kA, kRight), t.addChanged({}), t.addCopied({}, {1, 1});
  expectUpdate(t, "nothing changes", kA, kRight, {});
  t.addChanged(kA), t.addCopied(kB, kRight);
  expectUpdate(t, "move after change", kB, kRight, kA);
  t.addCopied(kB, kRight), t.addChanged(kA);
  expectUpdate(t, "change after move", {}, {}, kA | kB);
  t.addCopied(kA, kRight), t.addCopied(kB, kRight);
  expectUpdate(t, "same way", kA | kB, kRight, {});
  t.addCopied(kA, kFar), t.addCopied(kB, kFar);
  expectUpdate(t, "same way, out of what just moved in", kB, kFar, kA);
  t.addChanged(kC), t.addCopied(kA, kRight), t.addCopied(kB, -kRight);
  expectUpdate(t, "another way", kB, -kRight, kA | kC);
}

TEST(SimpleUpdateTracker, ClipsSourceAndDestination) {
  // 20 wide, moved right by 30: from 0..20 to 30..50.
  struct Case {
    Rect clip, copied, changed;
  };
  for (const Case& test : {Case{{0, 0, 40, 5}, {30, 0, 40, 5}, {}},
                           Case{{5, 0, 100, 100}, {35, 0, 50, 10}, {30, 0, 35, 10}},
                           Case{{25, 0, 45, 10}, {}, {30, 0, 45, 10}}}) {
    SimpleUpdateTracker tracker;
    tracker.addChanged(Region(Rect(200, 0, 210, 10)));
    tracker.addCopied(Region(Rect(30, 0, 50, 10)), Point(30, 0));
    const UpdateInfo info = tracker.take(Region(test.clip));
    EXPECT_EQ(info.copied, Region(test.copied)) << test.clip.str();
    EXPECT_EQ(info.changed, Region(test.changed)) << test.clip.str();
    EXPECT_EQ(info.delta, test.copied.isEmpty() ? Point() : Point(30, 0)) << test.clip.str();
  }
}

}  // namespace
}  // namespace rfb

#include "rfb/SimpleUpdateTracker.h"

#include <gtest/gtest.h>

#include <functional>

namespace rfb {
namespace {

const Region a(Rect(0, 0, 10, 10));
const Region b(Rect(50, 0, 60, 10));
const Region c(Rect(100, 0, 110, 10));
const Point right(5, 0);

struct Case {
  const char* what;
  std::function<void(SimpleUpdateTracker&)> calls;
  Region copied;
  Point delta;
  Region changed;
};

TEST(SimpleUpdateTracker, KeepsAtMostOneMove) {
  using Tracker = SimpleUpdateTracker;
  const Point far(50, 0);
  const Case cases[] = {
      {"nothing", [](Tracker&) {}, {}, {}, {}},
      {"empty",
       [](Tracker& t) {
         t.addCopied(a, right), t.addChanged({}), t.addCopied({}, {1, 1});
       },
       a,
       right,
       {}},
      {"changes", [](Tracker& t) { t.addChanged(a), t.addChanged(b); }, {}, {}, a | b},
      {"move after change", [](Tracker& t) { t.addChanged(a), t.addCopied(b, right); }, b, right,
       a},
      {"change after move",
       [](Tracker& t) { t.addCopied(b, right), t.addChanged(a); },
       {},
       {},
       a | b},
      {"same way",
       [](Tracker& t) { t.addCopied(a, right), t.addCopied(b, right); },
       a | b,
       right,
       {}},
      {"same way, out of what just moved in",
       [&](Tracker& t) { t.addCopied(a, far), t.addCopied(b, far); }, b, far, a},
      {"another way",
       [](Tracker& t) { t.addChanged(c), t.addCopied(a, right), t.addCopied(b, -right); }, b,
       -right, a | c}};
  for (const Case& test : cases) {
    SimpleUpdateTracker tracker;
    test.calls(tracker);
    const UpdateInfo info = tracker.take();
    EXPECT_EQ(info.copied, test.copied) << test.what;
    EXPECT_EQ(info.delta, test.delta) << test.what;
    EXPECT_EQ(info.changed, test.changed) << test.what;
    EXPECT_TRUE(tracker.isEmpty()) << test.what;
    EXPECT_TRUE(tracker.take().isEmpty()) << test.what;
  }
}

TEST(SimpleUpdateTracker, ClipsSourceAndDestination) {
  // 20 wide, moved right by 30: from 0..20 to 30..50.
  const Rect destination(30, 0, 50, 10);
  struct ClipCase {
    Rect clip, copied, changed;
  };
  for (const ClipCase& test :
       {ClipCase{{0, 0, 100, 100}, destination, {}}, ClipCase{{0, 0, 40, 5}, {30, 0, 40, 5}, {}},
        ClipCase{{5, 0, 100, 100}, {35, 0, 50, 10}, {30, 0, 35, 10}},
        ClipCase{{25, 0, 45, 10}, {}, {30, 0, 45, 10}}, ClipCase{{0, 0, 20, 10}, {}, {}}}) {
    SimpleUpdateTracker tracker;
    tracker.addChanged(Region(Rect(200, 0, 210, 10)));
    tracker.addCopied(Region(destination), Point(30, 0));
    const UpdateInfo info = tracker.take(Region(test.clip));
    EXPECT_EQ(info.copied, Region(test.copied)) << test.clip.str();
    EXPECT_EQ(info.changed, Region(test.changed)) << test.clip.str();
    EXPECT_EQ(info.delta, test.copied.isEmpty() ? Point() : Point(30, 0)) << test.clip.str();
    EXPECT_TRUE(tracker.isEmpty());
  }
}

}  // namespace
}  // namespace rfb

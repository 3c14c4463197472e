#include "rfb/SimpleUpdateTracker.h"

#include <gtest/gtest.h>

namespace rfb {
namespace {

TEST(SimpleUpdateTracker, KeepsAtMostOneMove) {
  const Region a(Rect(0, 0, 10, 10)), b(Rect(50, 0, 60, 10)), c(Rect(100, 0, 110, 10));
  const Point right(5, 0), far(50, 0);
  SimpleUpdateTracker t;
  const auto expectUpdate = [&t](const char* what, const Region& copied, const Region& changed) {
    const UpdateInfo info = t.take();
    EXPECT_EQ(info.copied, copied) << what;
    EXPECT_EQ(info.changed, changed) << what;
    EXPECT_TRUE(t.isEmpty()) << what;
  };
  t.addChanged(a), t.addCopied(b, right);
  expectUpdate("move after change", b, a);
  t.addCopied(b, right), t.addChanged(a);
  expectUpdate("change after move", {}, a | b);
  t.addCopied(a, right), t.addCopied(b, right);
  expectUpdate("same way", a | b, {});
  t.addCopied(a, far), t.addCopied(b, far);
  expectUpdate("same way, out of what just moved in", b, a);
  t.addChanged(c), t.addCopied(a, right), t.addCopied(b, -right);
  expectUpdate("another way", b, a | c);
}

}  // namespace
}  // namespace rfb

#include "x11/TXFixture.h"

#include "support/Thrown.h"
#include "tx/ErrorCatcher.h"

namespace {

using tx::ErrorCatcher;

constexpr Window kNoWindow = 0x7fffff;

class ErrorCatcherTest : public TXFixture {
 protected:
  void SetUp() override { start(); }
  static void badRequest(Display* on = nullptr) { XMapWindow(on ? on : display(), kNoWindow); }
};

TEST_F(ErrorCatcherTest, UntrappedErrorsAreLoggedAndSurvived) {
  badRequest();
  {
    // One whose error comes late is not the trap's.
    ErrorCatcher trap;
    EXPECT_FALSE(trap.failed());
    badRequest();
    XFreePixmap(display(), kNoWindow);
    const std::string text = support::thrownBy([&] { trap.check("mapping"); });
    EXPECT_TRUE(text.starts_with("XErrorException: mapping: BadWindow")) << text;
  }
  badRequest();
  XSync(display(), False);
  EXPECT_EQ(log_.count("request 8.0 (X_MapWindow), resource 0x7fffff", 0, "ErrorCatcher"), 2)
      << log_.str();
}

TEST_F(ErrorCatcherTest, ErrorsBelongToTheTrapThatWasThereForTheRequest) {
  ErrorCatcher outer;
  badRequest();
  {
    ErrorCatcher inner;
    EXPECT_FALSE(inner.failed());
    XFreePixmap(display(), kNoWindow);
    EXPECT_TRUE(inner.failed());
  }
  ASSERT_TRUE(outer.error());
  EXPECT_EQ(outer.error()->error_code, BadWindow);
  // A request of another connection is nobody's here.
  badRequest(client());
  XSync(client(), False);
  EXPECT_EQ(log_.count("BadWindow", 0, "ErrorCatcher"), 1) << log_.str();
}

// Whoever waits for nothing pays for nothing: no request is made for the trap's sake.
TEST_F(ErrorCatcherTest, ErrorsThatComeAfterTheTrapHasGoneAreItsOwnAllTheSame) {
  badRequest();
  const unsigned long before = NextRequest(display());
  {
    const ErrorCatcher outer;
    const ErrorCatcher inner;
    badRequest();
  }
  badRequest();
  EXPECT_EQ(NextRequest(display()), before + 2);
  XSync(display(), False);
  EXPECT_EQ(log_.count("BadWindow", 0, "ErrorCatcher"), 2) << log_.str();
  // The numbers of the trap before are not those of the next.
  ErrorCatcher trap;
  EXPECT_FALSE(trap.failed());
  badRequest();
  EXPECT_TRUE(trap.failed());
}

}  // namespace

#include "x11/TXFixture.h"

#include "tx/DamageExtension.h"
#include "tx/FixesExtension.h"
#include "tx/RandrExtension.h"
#include "tx/XResources.h"
#include "tx/XTestExtension.h"

namespace {

class ExtensionsTest : public TXFixture {};

TEST_F(ExtensionsTest, AreWhatTheServerHas) {
  const struct {
    const char* missing;
    const char* present;
  } servers[] = {{"DAMAGE", "fixes randr xtest "},
                 {"XFIXES", "damage randr xtest "},
                 {"RANDR", "damage fixes xtest "},
                 {"XTEST", "damage fixes randr "}};
  for (const auto& server : servers) {
    SCOPED_TRACE(server.missing);
    start("64x64x24", {"-extension", server.missing});
    std::string present;
    if (tx::DamageExtension::get() != nullptr) present += "damage ";
    if (tx::FixesExtension::get() != nullptr) present += "fixes ";
    if (tx::RandrExtension::get() != nullptr) present += "randr ";
    if (tx::XTestExtension::present()) present += "xtest ";
    EXPECT_EQ(present, server.present);
  }
}

TEST_F(ExtensionsTest, DamageMayGoWithItsWindow) {
  start();
  const Window window = XCreateSimpleWindow(display(), tx::TXDisplay::root(), 0, 0, 9, 9, 0, 0, 0);
  {
    const tx::XDamageHandle handle(
        tx::DamageExtension::get()->create(display(), window, XDamageReportNonEmpty));
    XDestroyWindow(display(), window);
  }
  XSync(display(), False);
  EXPECT_FALSE(log_.has("", 0)) << log_.str();
}

TEST_F(ExtensionsTest, ServerGrabHoldsOthersOff) {
  start();
  const auto othersAreServed = [this] {
    auto other = server().start({"xdpyinfo"});
    return other->wait(support::Milliseconds(300)).has_value();
  };
  {
    const tx::ServerGrab grab;
    XSync(display(), False);
    EXPECT_FALSE(othersAreServed());
  }
  setParam("_NoGrab", "1");
  const tx::ServerGrab grab;
  XSync(display(), False);
  EXPECT_TRUE(support::waitFor(othersAreServed));
}

}  // namespace

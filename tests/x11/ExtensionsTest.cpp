#include "x11/TXFixture.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tx/DamageExtension.h"
#include "tx/FixesExtension.h"
#include "tx/RandrExtension.h"
#include "tx/XResources.h"
#include "tx/XTestExtension.h"

namespace {

std::string present() {
  std::string text;
  if (tx::DamageExtension::get() != nullptr) text += "damage ";
  if (tx::FixesExtension::get() != nullptr) text += "fixes ";
  if (tx::RandrExtension::get() != nullptr) text += "randr ";
  if (tx::XTestExtension::present()) text += "xtest ";
  return text;
}

class ExtensionsTest : public TXFixture {};

TEST_F(ExtensionsTest, AreWhatTheServerHas) {
  start();
  EXPECT_EQ(present(), "damage fixes randr xtest ");
  EXPECT_EQ(tx::DamageExtension::get()->majorVersion, 1);
  EXPECT_GE(tx::FixesExtension::get()->majorVersion, 2);
  EXPECT_GT(tx::FixesExtension::get()->eventBase, 0);
  EXPECT_GE(tx::RandrExtension::get()->minorVersion, 2);
  EXPECT_EQ(tx::XTestExtension::get().majorVersion, 2);

  const struct {
    std::vector<std::string> arguments;
    const char* present;
  } servers[] = {{{"-extension", "DAMAGE"}, "fixes randr xtest "},
                 {{"-extension", "XFIXES"}, "damage randr xtest "},
                 {{"-extension", "RANDR"}, "damage fixes xtest "},
                 {{"-extension", "XTEST"}, "damage fixes randr "}};
  for (const auto& server : servers) {
    SCOPED_TRACE(server.arguments[1]);
    start("64x64x24", server.arguments);
    EXPECT_EQ(present(), server.present);
  }
}

TEST_F(ExtensionsTest, HandlesAreReleased) {
  start();
  const auto* const damage = tx::DamageExtension::get();
  const auto* const fixes = tx::FixesExtension::get();
  const Window window = XCreateSimpleWindow(display(), tx::TXDisplay::root(), 0, 0, 9, 9, 0, 0, 0);
  {
    const tx::XDamageHandle handle(damage->create(display(), window, XDamageReportNonEmpty));
    tx::XFixesRegion region(fixes->createRegion(display(), nullptr, 0));
    const tx::XFixesRegion taken(std::move(region));
    EXPECT_FALSE(region);
    damage->subtract(display(), handle.get(), None, taken.get());
    int count = -1;
    XRectangle bounds;
    tx::XMemory<XRectangle> boxes(
        fixes->fetchRegionAndBounds(display(), taken.get(), &count, &bounds));
    EXPECT_EQ(count, 0);
    // The server takes the damage object along.
    XDestroyWindow(display(), window);
  }
  XSync(display(), False);
  EXPECT_FALSE(log_.has("", 0)) << log_.str();

  const tx::XRRResources resources =
      tx::RandrExtension::get()->resources(display(), tx::TXDisplay::root());
  ASSERT_TRUE(resources);
  EXPECT_GT(resources->ncrtc, 0);
  const tx::XRRCrtc crtc(
      tx::RandrExtension::get()->getCrtcInfo(display(), resources.get(), resources->crtcs[0]));
  EXPECT_EQ(crtc->width, 640u);
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
  EXPECT_TRUE(support::waitFor(othersAreServed));
  setParam("_NoGrab", "1");
  const tx::ServerGrab grab;
  XSync(display(), False);
  EXPECT_TRUE(support::waitFor(othersAreServed));
}

// Also run by the test below, in a process of its own, which finds other libraries.
TEST_F(ExtensionsTest, Report) {
  const bool isChild = getenv("EXTENSIONS_TEST_CHILD") != nullptr;
  if (isChild) {
    tx::TXDisplay::open();
  } else {
    start();
    EXPECT_EQ(present(), "damage fixes randr xtest ");
  }
  printf("present: %s.\n", present().c_str());
}

TEST_F(ExtensionsTest, AMissingLibraryOrSymbolIsAnAbsentExtension) {
  if (sizeof(void*) == 4) GTEST_SKIP() << "the search path of the 32-bit program comes first";
  start();
  char name[] = "/tmp/extensions-XXXXXX";
  ASSERT_NE(mkdtemp(name), nullptr);
  const std::filesystem::path directory(name);
  std::ofstream(directory / "empty");
  // A library that has none of the functions.
  const std::string other = support::Program::run(
      {"sh", "-c", "ldd /proc/" + std::to_string(getpid()) + "/exe | awk '/libXext/ {print $3}'"},
      {});
  const std::filesystem::path stranger(other.substr(0, other.find('\n')));
  ASSERT_TRUE(std::filesystem::exists(stranger)) << other;

  const auto report = [&] {
    support::Program::Options options;
    options.environment["LD_LIBRARY_PATH"] = directory.string();
    options.environment["EXTENSIONS_TEST_CHILD"] = "1";
    const std::string text =
        server().run({"/proc/self/exe", "--gtest_filter=ExtensionsTest.Report"}, options);
    const size_t start = text.find("present: ");
    return start == std::string::npos ? text
                                      : text.substr(start + 9, text.find('.', start) - start - 9);
  };
  const auto use = [&](const std::string& library, const std::filesystem::path& target) {
    for (const char* suffix : {".so", ".so.1", ".so.2", ".so.3"}) {
      std::filesystem::remove(directory / (library + suffix));
      if (!target.empty()) {
        std::filesystem::create_symlink(target, directory / (library + suffix));
      }
    }
  };
  EXPECT_EQ(report(), "damage fixes randr xtest ");
  const struct {
    const char* library;
    const char* present;
  } cases[] = {{"libXdamage", "fixes randr xtest "},
               {"libXfixes", "damage randr xtest "},
               {"libXrandr", "damage fixes xtest "}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.library);
    for (const auto& target : {directory / "empty", stranger}) {
      use(c.library, target);
      EXPECT_EQ(report(), c.present) << target;
    }
    use(c.library, {});
  }
  std::filesystem::remove_all(directory);
}

}  // namespace

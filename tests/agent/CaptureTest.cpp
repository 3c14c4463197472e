#include <sys/shm.h>

#include <chrono>

#include "agent/Agent.h"

namespace {

const rfb::Rect kFirst(10, 20, 50, 40);
const rfb::Rect kSecond(300, 200, 301, 201);

// One server for most tests.
class CaptureTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { server = support::XServer::xvfb("641x480x24"); }
  static void TearDownTestSuite() { server.reset(); }

  static std::unique_ptr<support::XServer> server;
};
std::unique_ptr<support::XServer> CaptureTest::server;

TEST_F(CaptureTest, ConversationUpToTheFirstUpdate) {
  Painter painter(*server);
  painter.fill(rfb::Rect(0, 0, 641, 480), 0x123456);
  Agent agent(server->display(), {{"CaptureMethod", "2"}});
  ASSERT_TRUE(agent.waitForLog("XDamage extension present"));
  EXPECT_EQ(agent.seen.beforeLog, (std::vector<std::string>{"init 7cca9ecb", "initRectAndPf"}));
  EXPECT_EQ(agent.seen.initialRect, rfb::Rect(0, 0, 641, 480));
  EXPECT_EQ(agent.seen.initialFormat.str(), "depth 24 (32 bpp) little-endian rgb888");

  agent.connection->fbUpdateRequest();  // before the start: waits
  agent.connection->start();
  ASSERT_TRUE(agent.waitForLog("Using damage extension"));
  agent.sync();
  EXPECT_EQ(agent.seen.events,
            (std::vector<std::string>{"init 7cca9ecb", "initRectAndPf", "setPixelBuffer",
                                      "monitorsUpdated", "setCursorImage"}))
      << "nothing has changed since the buffer was published";
  EXPECT_EQ(painter.difference(*agent.connection), "");

  painter.fill(kFirst, 0xFF0000);
  ASSERT_TRUE(agent.waitFor([&] { return !agent.seen.updates.empty(); }));
  EXPECT_EQ(agent.seen.updates[0].changed, rfb::Region(kFirst));
  EXPECT_TRUE(agent.seen.updates[0].copied.isEmpty());
  EXPECT_EQ(painter.difference(*agent.connection), "");

  // Unasked, nothing is said; what happens meanwhile goes into the next answer.
  painter.fill(kFirst, 0x00FF00);
  painter.fill(kSecond, 0x0000FF);
  agent.sync();
  EXPECT_EQ(agent.seen.updates.size(), 1u);
  EXPECT_EQ(agent.update().changed, rfb::Region(kFirst) | rfb::Region(kSecond));
  EXPECT_EQ(painter.difference(*agent.connection), "");

  agent.connection->stop();
  ASSERT_TRUE(agent.waitForEvent("captureBroken 0"));
  painter.fill(kFirst, 0xFFFFFF);
  agent.connection->fbUpdateRequest();
  agent.sync();
  EXPECT_EQ(agent.seen.updates.size(), 2u);
}

TEST_F(CaptureTest, KeepsThePeriodBetweenUpdates) {
  Painter painter(*server);
  Agent agent(server->display(), {{"CaptureMethod", "2"}, {"UpdatePeriod", "300"}});
  agent.start();
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 3; i++) {
    painter.fill(kFirst, static_cast<unsigned long>(i));
    agent.update();
  }
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(600));
}

TEST(CaptureVariantsTest, CapturesWithWhatThereIs) {
  const struct {
    std::string screen;
    std::vector<std::string> missing;
    Agent::Parameters parameters;
    std::vector<std::string> log;
    bool polls;
  } cases[] = {
      {"641x480x24", {}, {}, {"Using shared memory Pixmap", "Using damage extension"}, false},
      {"641x480x24",
       {"DAMAGE"},
       {},
       {"XDamage disabled / not present - unable to optimize capture"},
       true},
      {"641x480x24", {"RANDR"}, {}, {"Using damage extension"}, false},
      {"641x480x24",
       {"XTEST"},
       {},
       {"XTest extension not present - unable to inject events or display while server is grabbed"},
       false},
      {"641x480x24", {"MIT-SHM"}, {}, {"No XShm extension", "Using non-shm XImage"}, false},
      {"641x480x24", {}, {{"_UseXShm", "0"}}, {"Using non-shm XImage"}, false},
      {"641x480x24", {}, {{"CaptureMethod", "1"}}, {"Using polling"}, true},
      {"641x480x24",
       {},
       {{"UseXFixes", "0"}},
       {"XFixes disabled / not present - unable to track cursor changes",
        "XDamage disabled / not present - unable to optimize capture", "Using polling"},
       true},
      {"641x480x16", {}, {}, {"pf depth 16 (16 bpp) little-endian rgb565"}, false},
      {"641x480x8", {}, {}, {"pf depth 8 (8 bpp) colour-map", "setColourMapEntries: 0,0"}, false},
  };
  for (const auto& c : cases) {
    std::string name = c.screen;
    std::vector<std::string> extra;
    for (const std::string& extension : c.missing) {
      name += " without " + extension;
      extra.insert(extra.end(), {"-extension", extension});
    }
    for (const auto& [parameter, value] : c.parameters) name += " " + parameter + "=" + value;
    SCOPED_TRACE(name);
    const auto server = support::XServer::xvfb(c.screen, extra);
    Painter painter(*server);
    Agent agent(server->display(), c.parameters);
    agent.start();
    for (const std::string& line : c.log) EXPECT_TRUE(agent.seen.hasLog(line)) << line;
    EXPECT_EQ(painter.difference(*agent.connection), "");
    painter.fill(kFirst, 0x15);
    if (c.polls) {
      EXPECT_EQ(agent.update().changed, rfb::Region(rfb::Rect(0, 0, 641, 480)));
      EXPECT_FALSE(agent.seen.hasLog("Using damage extension"));
    } else {
      EXPECT_TRUE(agent.updateUntilChanged(kFirst));
    }
    EXPECT_EQ(painter.difference(*agent.connection), "");
    agent.disconnect();
    EXPECT_EQ(agent.exitStatus(), 0);
  }
}

TEST_F(CaptureTest, DamageTestDecidesOnRealChange) {
  Painter painter(*server);
  Agent agent(server->display());
  agent.start();
  painter.fill(kFirst, 0xABCDEF);
  ASSERT_TRUE(agent.waitForEvent("captureBroken 0")) << agent.seen.logText();
  EXPECT_TRUE(agent.seen.hasLog("Damage test: any 1 all 1 non full 1", 30));
  painter.fill(kSecond, 0x13579B);
  EXPECT_TRUE(agent.updateUntilChanged(kSecond));
}

TEST_F(CaptureTest, ParametersCountAtTheNextStart) {
  Agent agent(server->display());
  agent.start();
  agent.connection->setParams({{"CaptureMethod", "1", 10}});
  agent.connection->start();
  EXPECT_TRUE(agent.waitForLog("Using polling"));
  EXPECT_TRUE(agent.seen.hasLog("Stopping desktop"));
}

TEST_F(CaptureTest, FollowsTheCursor) {
  Painter painter(*server);
  Display* display = painter.display.get();
  XWarpPointer(display, None, painter.root, 0, 0, 0, 0, 300, 300);
  Agent agent(server->display());
  agent.start();
  agent.seen.cursors.clear();

  // A white column on black, drawn where the mask is set: all but the right half.
  const char bits[] = {1, 1, 1, 1};
  const char mask[] = {15, 15, 15, 15};
  const Pixmap source = XCreateBitmapFromData(display, painter.root, bits, 8, 4);
  const Pixmap shape = XCreateBitmapFromData(display, painter.root, mask, 8, 4);
  XColor white{}, black{};
  white.red = white.green = white.blue = 0xFFFF;
  const Cursor cursor = XCreatePixmapCursor(display, source, shape, &white, &black, 2, 1);
  XDefineCursor(display, painter.root, cursor);
  XSync(display, False);
  ASSERT_TRUE(agent.waitFor([&] { return !agent.seen.cursors.empty(); }));
  const host::CursorImage& image = agent.seen.cursors.back();
  EXPECT_TRUE(image.visible);
  EXPECT_EQ(image.rect, rfb::Rect(-2, -1, 6, 3));
  EXPECT_EQ(image.threshold, 128);
  EXPECT_EQ(image.format.str(), "depth 32 (32 bpp) little-endian argb8888");
  std::vector<uint8_t> row(32, 0);
  for (size_t i : {0, 1, 2, 3, 7, 11, 15}) row[i] = 0xFF;
  std::vector<uint8_t> expected;
  for (int y = 0; y < 4; y++) expected.insert(expected.end(), row.begin(), row.end());
  EXPECT_EQ(image.pixels, expected);
  XUndefineCursor(display, painter.root);
  XFreeCursor(display, cursor);
  XFreePixmap(display, source);
  XFreePixmap(display, shape);
  XSync(display, False);

  Agent blind(server->display(), {{"UseXFixes", "0"}});
  blind.start();
  ASSERT_EQ(blind.seen.cursors.size(), 1u);
  EXPECT_EQ(blind.seen.cursors[0].rect, rfb::Rect(0, 0, 12, 21));
}

TEST_F(CaptureTest, RingsTheBell) {
  Painter painter(*server);
  Agent agent(server->display());
  agent.start();
  XBell(painter.display.get(), 50);
  XSync(painter.display.get(), False);
  EXPECT_TRUE(agent.waitForEvent("bell"));
  agent.connection->stop();
  agent.sync();
  agent.seen.events.clear();
  XBell(painter.display.get(), 50);
  XSync(painter.display.get(), False);
  agent.sync();
  EXPECT_FALSE(agent.seen.has("bell"));
}

TEST_F(CaptureTest, FollowsTheScreenSize) {
  const auto own = support::XServer::xvfb("1280x800x24");
  addMode(*own, "800x600");
  addMode(*own, "641x479");
  Painter painter(*own);
  Agent agent(own->display());
  agent.start();
  for (int i = 0; i < 10; i++) {
    const bool narrow = i % 2;
    const rfb::Rect rect = narrow ? rfb::Rect(0, 0, 641, 479) : rfb::Rect(0, 0, 800, 600);
    own->run({"xrandr", "--output", "screen", "--mode", narrow ? "641x479" : "800x600"});
    ASSERT_TRUE(agent.waitFor([&] { return agent.connection->pixelBuffer().rect == rect; }));
    agent.sync();
    EXPECT_EQ(agent.seen.monitors.back().monitors.at(0).right, rect.br.x);
    painter.fill(kFirst, static_cast<unsigned long>(i));
    EXPECT_TRUE(agent.updateUntilChanged(kFirst));
    EXPECT_EQ(painter.difference(*agent.connection), "");
  }
  EXPECT_TRUE(agent.seen.hasLog("Restarting damage test due to resolution change", 30));
  EXPECT_EQ(segmentsOf(agent.pid()), 1);
}

}  // namespace

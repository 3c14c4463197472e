#include "agent/Agent.h"

#include <X11/extensions/XTest.h>

#include "agent/SharedDisplay.h"

namespace {

using Names = std::vector<std::string>;

const rfb::Rect kFirst(10, 20, 50, 40);
const rfb::Rect kSecond(300, 200, 301, 201);

class CaptureTest : public SharedDisplay {};

TEST_F(CaptureTest, ConversationUpToTheFirstUpdate) {
  Painter painter(*server);
  painter.fill(rfb::Rect(0, 0, 641, 480), 0x123456);
  Agent agent(server->display(), {{"CaptureMethod", "2"}});
  ASSERT_TRUE(agent.waitForLog("XDamage extension present"));
  EXPECT_EQ(agent.seen.initialRect, rfb::Rect(0, 0, 641, 480));
  EXPECT_EQ(agent.seen.initialFormat.str(), "depth 24 (32 bpp) little-endian rgb888");

  agent.connection->fbUpdateRequest();  // before the start: waits
  agent.connection->start();
  ASSERT_TRUE(agent.waitForLog("Using damage extension"));
  agent.sync();
  EXPECT_EQ(agent.seen.events,
            (Names{"init", "initRectAndPf", "setPixelBuffer", "monitorsUpdated", "setCursorImage"}))
      << "nothing has changed since the buffer was published";
  EXPECT_EQ(painter.difference(*agent.connection), "");

  painter.fill(kFirst, 0xFF0000);
  ASSERT_TRUE(agent.waitForMessage("fbUpdate"));
  EXPECT_EQ(agent.seen.updates[0].changed, rfb::Region(kFirst));
  EXPECT_TRUE(agent.seen.updates[0].copied.isEmpty());
  EXPECT_EQ(painter.difference(*agent.connection), "");

  // Unasked, nothing is said; what happens meanwhile goes into the next answer.
  painter.fill(kFirst, 0x00FF00);
  painter.fill(kSecond, 0x0000FF);
  EXPECT_FALSE(agent.waitFor([&] { return agent.seen.updates.size() > 1; }, 100));
  EXPECT_EQ(agent.update().changed, rfb::Region(kFirst) | rfb::Region(kSecond));
  EXPECT_EQ(painter.difference(*agent.connection), "");
  XBell(painter.display.get(), 50);
  XFlush(painter.display.get());
  EXPECT_TRUE(agent.waitForMessage("bell"));

  agent.connection->stop();
  ASSERT_TRUE(agent.waitForMessage("captureBroken"));
  agent.seen.events.clear();
  painter.fill(kFirst, 0xFFFFFF);
  XBell(painter.display.get(), 50);
  XSync(painter.display.get(), False);
  agent.connection->fbUpdateRequest();
  agent.sync();
  EXPECT_EQ(agent.seen.events, Names{});
}

TEST(CaptureVariantsTest, CapturesWithWhatThereIs) {
  const char* const noDamage = "XDamage disabled / not present - unable to optimize capture";
  const char* const noFixes = "XFixes disabled / not present - unable to track cursor changes";
  const struct {
    std::string depth;
    std::string missing;  // server extension or client library
    Agent::Parameters parameters;
    Names log;
  } cases[] = {
      {"24", "", {}, {"Using shared memory Pixmap", "Using damage extension"}},
      {"24", "DAMAGE", {}, {noDamage, "Using polling"}},
      {"24", "MIT-SHM", {}, {"No XShm extension", "Using non-shm XImage"}},
      {"24", "", {{"UseXFixes", "0"}}, {noFixes, noDamage, "Using polling"}},
      {"24", "libXfixes.so.3", {}, {noFixes, noDamage, "Using polling"}},
      {"15", "", {}, {"pf depth 15 (16 bpp) little-endian rgb555"}},
      {"30", "", {}, {"pf depth 30 (32 bpp) little-endian rgb101010"}},
      {"8", "", {}, {"pf depth 8 (8 bpp) colour-map", "setColourMapEntries: 0,0"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.depth + " without " + c.missing + ": " + c.log[0]);
    const bool isLibrary = c.missing.starts_with("lib");
    // The search path of the 32-bit program comes before the environment's.
    if (isLibrary && sizeof(void*) == 4) continue;
    const support::TempDir libraries;
    if (isLibrary) std::ofstream(libraries / c.missing) << "";
    Names extra;
    if (!isLibrary && !c.missing.empty()) extra = {"-extension", c.missing};
    const auto server = support::XServer::xvfb("641x480x" + c.depth, extra);
    Painter painter(*server);
    host::LaunchOptions options = Agent::options(server->display(), c.parameters);
    options.environment.emplace_back("LD_LIBRARY_PATH", libraries.path());
    Agent agent(options);
    agent.start();
    for (const std::string& line : c.log) EXPECT_EQ(agent.seen.countLog(line), 1) << line;
    const rfb::Rect arrow(0, 0, 12, 21);
    EXPECT_EQ(agent.seen.cursors.at(0).rect == arrow, c.log[0] == noFixes);
    EXPECT_EQ(painter.difference(*agent.connection), "");
    painter.fill(kFirst, 0x15);
    if (c.log.back() == "Using polling") {
      EXPECT_EQ(agent.update().changed, rfb::Region(rfb::Rect(0, 0, 641, 480)));
    } else {
      EXPECT_TRUE(agent.updateUntilChanged(kFirst));
    }
    EXPECT_EQ(painter.difference(*agent.connection), "");
  }
}

TEST_F(CaptureTest, FollowsTheCursor) {
  Painter painter(*server);
  Display* display = painter.display.get();
  XWarpPointer(display, None, painter.root, 0, 0, 0, 0, 300, 300);
  Agent agent(server->display(), {{"PollCursorTime", "20"}});
  agent.start();
  agent.seen.cursors.clear();

  // A white column on black, drawn where the mask is set: all but the right half.
  const char bits[] = {1, 1, 1, 1}, mask[] = {15, 15, 15, 15};
  const Pixmap source = XCreateBitmapFromData(display, painter.root, bits, 8, 4);
  const Pixmap shape = XCreateBitmapFromData(display, painter.root, mask, 8, 4);
  XColor black{}, white{0, 0xFFFF, 0xFFFF, 0xFFFF, 0, 0};
  XDefineCursor(display, painter.root,
                XCreatePixmapCursor(display, source, shape, &white, &black, 2, 1));
  XSync(display, False);
  ASSERT_TRUE(agent.waitFor([&] { return !agent.seen.cursors.empty(); }));
  const host::CursorImage& image = agent.seen.cursors.back();
  EXPECT_EQ(image.rect, rfb::Rect(-2, -1, 6, 3));
  EXPECT_EQ(image.format.str(), "depth 32 (32 bpp) little-endian argb8888");
  std::vector<uint8_t> row(32, 0);
  for (size_t i : {0, 1, 2, 3, 7, 11, 15}) row[i] = 0xFF;
  EXPECT_EQ(std::vector<uint8_t>(image.pixels.end() - 32, image.pixels.end()), row);
  XUndefineCursor(display, painter.root);

  const auto comesTo = [&](rfb::Point at) {
    return agent.waitFor([&] {
      return !agent.seen.cursorPositions.empty() && agent.seen.cursorPositions.back() == at;
    });
  };
  const int before = agent.seen.count("localInput");
  agent.connection->pointerEvent(30, 40, 0);
  EXPECT_TRUE(comesTo({30, 40}));
  EXPECT_EQ(agent.seen.count("localInput"), before) << "its own motion";
  XTestFakeMotionEvent(display, 0, 50, 60, 0);
  XSync(display, False);
  EXPECT_TRUE(comesTo({50, 60}));
  EXPECT_EQ(agent.seen.count("localInput"), before + 1);
}

TEST_F(CaptureTest, FollowsTheScreenSize) {
  const auto own = support::XServer::xvfb("1280x800x24");
  for (const std::string size : {"800x600", "641x479"}) {
    const std::string width = size.substr(0, 3), height = size.substr(4);
    own->run({"xrandr", "--newmode", size, "40", width, "1300", "1300", "1300", height, "805",
              "805", "805"});
    own->run({"xrandr", "--addmode", "screen", size});
  }
  Painter painter(*own);
  Agent agent(own->display());
  agent.start();
  for (int i = 0; i < 4; ++i) {
    const rfb::Rect rect = i % 2 ? rfb::Rect(0, 0, 641, 479) : rfb::Rect(0, 0, 800, 600);
    own->run({"xrandr", "--output", "screen", "--mode", i % 2 ? "641x479" : "800x600"});
    ASSERT_TRUE(agent.waitFor([&] { return agent.connection->pixelBuffer().rect == rect; }));
    agent.sync();
    EXPECT_EQ(agent.seen.monitors.back().monitors.at(0).right, rect.br.x);
    painter.fill(kFirst, static_cast<unsigned long>(i));
    EXPECT_TRUE(agent.updateUntilChanged(kFirst));
    EXPECT_EQ(painter.difference(*agent.connection), "");
  }
  EXPECT_TRUE(agent.seen.hasLog("Restarting damage test due to resolution change", 30));
  EXPECT_EQ(support::segmentsOf(agent.pid()), 1);
}

}  // namespace

#include <array>
#include <chrono>
#include <random>

#include "agent/Agent.h"

namespace {

constexpr int kPeriodMs = 10;

// Draws at random: in the root window and in windows that come, go, move and cover each other.
class Chaos {
 public:
  explicit Chaos(Painter& painter) : display_(painter.display.get()), root_(painter.root) {
    XSetGraphicsExposures(display_, gc_, False);
    for (Window& window : windows_) window = create();
  }

  void step() {
    Window& window = windows_[static_cast<size_t>(pick(0, 5))];
    switch (pick(0, 5)) {
      case 0:
        XMapRaised(display_, window);
        break;
      case 1:
        XMoveResizeWindow(display_, window, place(), place(), size(), size());
        break;
      case 2:
        XDestroyWindow(display_, window);
        window = create();
        break;
      case 3:  // scrolls
        XCopyArea(display_, window, window, gc_, pick(0, 50), pick(0, 50), size(), size(),
                  pick(0, 50), pick(0, 50));
        break;
      default:
        XSetForeground(display_, gc_, random_());
        XSetSubwindowMode(display_, gc_, pick(0, 1) ? IncludeInferiors : ClipByChildren);
        XFillRectangle(display_, pick(0, 2) ? window : root_, gc_, place(), place(), size(),
                       size());
    }
    XFlush(display_);
  }
  int pick(int from, int to) { return std::uniform_int_distribution<int>(from, to)(random_); }

 private:
  int place() { return pick(-50, 450); }
  unsigned size() { return static_cast<unsigned>(pick(1, 200)); }
  Window create() {
    XSetWindowAttributes attributes{};
    attributes.override_redirect = True;
    attributes.background_pixel = random_();
    return XCreateWindow(display_, root_, place(), place(), size(), size(), size() % 4,
                         CopyFromParent, InputOutput, CopyFromParent,
                         CWOverrideRedirect | CWBackPixel, &attributes);
  }

  Display* const display_;
  const Window root_;
  const GC gc_ = DefaultGC(display_, 0);
  std::array<Window, 6> windows_;
  std::mt19937 random_{20};
};

// Screen, CaptureMethod, _UseXShm.
using Case = std::array<const char*, 3>;
class MirrorTest : public testing::TestWithParam<Case> {};

// A server that takes only the changed regions over comes to show what the screen does.
TEST_P(MirrorTest, ChangedRegionsTellEverything) {
  const auto server = support::XServer::xvfb(GetParam()[0]);
  Painter painter(*server);
  Agent agent(server->display(), {{"CaptureMethod", GetParam()[1]},
                                  {"_UseXShm", GetParam()[2]},
                                  {"PollInterval", "20"},
                                  {"UpdatePeriod", std::to_string(kPeriodMs)}});
  agent.start();
  const host::PixelBufferInfo info = agent.connection->pixelBuffer();
  const auto bytes = static_cast<size_t>(info.format.bytesPerPixel());
  const auto offset = [&](int x, int y) {
    return (static_cast<size_t>(y) * info.stride + static_cast<size_t>(x)) * bytes;
  };
  const uint8_t* const pixels = agent.connection->pixels();
  std::vector<uint8_t> mirror(pixels, pixels + offset(0, info.rect.br.y));
  const size_t before = agent.seen.updates.size();
  size_t taken = before;
  // Takes over what has been sent, and asks for more.
  const auto pump = [&](int timeoutMs) {
    agent.connection->process(timeoutMs);
    EXPECT_LE(agent.seen.updates.size(), taken + 1) << "an update that nobody asked for";
    for (; taken < agent.seen.updates.size(); ++taken) {
      EXPECT_TRUE(agent.seen.updates[taken].copied.isEmpty());
      for (const rfb::Rect& r : agent.seen.updates[taken].changed.rects()) {
        ASSERT_TRUE(info.rect.encloses(r)) << r.str();
        for (int y = r.tl.y; y < r.br.y; ++y) {
          memcpy(&mirror[offset(r.tl.x, y)], pixels + offset(r.tl.x, y),
                 static_cast<size_t>(r.width()) * bytes);
        }
      }
      agent.connection->fbUpdateRequest();
    }
  };
  agent.connection->fbUpdateRequest();
  const auto begin = std::chrono::steady_clock::now();
  Chaos chaos(painter);
  for (int quietPoint = 0; quietPoint < 25; ++quietPoint) {
    const int steps = chaos.pick(1, 80);
    for (int i = 0; i < steps; ++i) {
      chaos.step();
      // Some of it happens while the agent looks.
      if (i % 4 == 0) pump(0);
    }
    XSync(painter.display.get(), True);
    ASSERT_TRUE(support::waitFor([&] {
      pump(kPeriodMs);
      return painter.difference(info, mirror.data()).empty();
    })) << "quiet point "
        << quietPoint;
  }
  const std::chrono::duration<double, std::milli> ms = std::chrono::steady_clock::now() - begin;
  EXPECT_LE(static_cast<double>(taken - before), ms.count() / kPeriodMs + 1);
}

// Each depth, each way to learn of changes, shared and plain images.
INSTANTIATE_TEST_SUITE_P(All, MirrorTest,
                         testing::Values(Case{"641x479x24", "0", "1"}, Case{"333x251x24", "1", "1"},
                                         Case{"333x251x8", "1", "0"}, Case{"333x251x15", "2", "1"},
                                         Case{"333x251x16", "2", "0"},
                                         Case{"333x251x30", "2", "1"}));

}  // namespace

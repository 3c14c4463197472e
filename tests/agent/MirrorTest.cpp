#include <chrono>
#include <ostream>
#include <random>

#include "agent/Agent.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kPeriodMs = 10;

// Draws at random: in the root window and in windows that come, go, move and cover each other.
class Chaos {
 public:
  Chaos(const support::XServer& server, uint32_t seed)
      : connection_(server.connect()),
        display_(connection_.get()),
        root_(DefaultRootWindow(display_)),
        width_(DisplayWidth(display_, 0)),
        height_(DisplayHeight(display_, 0)),
        gc_(XCreateGC(display_, root_, 0, nullptr)),
        random_(seed) {
    XSetGraphicsExposures(display_, gc_, False);
    for (Window& window : windows_) window = create();
  }
  ~Chaos() { XFreeGC(display_, gc_); }

  void step() {
    Window& window = windows_[static_cast<size_t>(pick(0, kWindows - 1))];
    switch (pick(0, 5)) {
      case 0:
        XMapRaised(display_, window);
        break;
      case 1:
        XMoveResizeWindow(display_, window, pick(-50, width_), pick(-50, height_), size(), size());
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
        XSetForeground(display_, gc_, pixel());
        XSetSubwindowMode(display_, gc_, pick(0, 1) ? IncludeInferiors : ClipByChildren);
        XFillRectangle(display_, pick(0, 2) ? window : root_, gc_, pick(-20, width_),
                       pick(-20, height_), size(), size());
    }
    XFlush(display_);
  }
  // Until the X server has done everything.
  void settle() { XSync(display_, True); }
  int pick(int from, int to) { return std::uniform_int_distribution<int>(from, to)(random_); }

 private:
  static constexpr int kWindows = 6;

  unsigned size() { return static_cast<unsigned>(pick(1, 200)); }
  unsigned long pixel() { return random_() & ((1ul << DefaultDepth(display_, 0)) - 1); }
  Window create() {
    XSetWindowAttributes attributes{};
    attributes.override_redirect = True;
    attributes.background_pixel = pixel();
    return XCreateWindow(display_, root_, pick(0, width_), pick(0, height_), size(), size(),
                         static_cast<unsigned>(pick(0, 3)), CopyFromParent, InputOutput,
                         CopyFromParent, CWOverrideRedirect | CWBackPixel, &attributes);
  }

  const support::XConnection connection_;
  Display* const display_;
  const Window root_;
  const int width_, height_;
  const GC gc_;
  Window windows_[kWindows];
  std::mt19937 random_;
};

// What a server has that takes only the changed regions over.
class Mirror {
 public:
  explicit Mirror(Agent& agent)
      : agent_(agent),
        info_(agent.connection->pixelBuffer()),
        pixels_(agent.connection->pixels(), at(agent.connection->pixels(), 0, info_.rect.br.y)) {
    request();
  }

  // Takes over what has been sent, and asks for more.
  void pump(int timeoutMs) {
    agent_.connection->process(timeoutMs);
    for (; taken_ < agent_.seen.updates.size(); ++taken_) {
      const host::UpdateMessage& update = agent_.seen.updates[taken_];
      EXPECT_TRUE(update.copied.isEmpty());
      EXPECT_LT(taken_, requests_) << "an update that nobody asked for";
      for (const rfb::Rect& r : update.changed.rects()) {
        ASSERT_TRUE(info_.rect.encloses(r)) << r.str();
        for (int y = r.tl.y; y < r.br.y; ++y) {
          memcpy(at(pixels_.data(), r.tl.x, y), at(agent_.connection->pixels(), r.tl.x, y),
                 static_cast<size_t>(r.width()) * bytes());
        }
      }
      request();
    }
  }
  // Whether it comes to show what the screen does.
  bool becomesEqualTo(Painter& painter) {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (!painter.difference(info_, pixels_.data()).empty()) {
      if (Clock::now() > deadline || !agent_.connection->isConnected()) return false;
      pump(kPeriodMs);
    }
    return true;
  }

 private:
  size_t bytes() const { return static_cast<size_t>(info_.format.bytesPerPixel()); }
  template <typename Byte>
  Byte* at(Byte* pixels, int x, int y) const {
    return pixels + (static_cast<size_t>(y) * info_.stride + static_cast<size_t>(x)) * bytes();
  }
  void request() {
    agent_.connection->fbUpdateRequest();
    ++requests_;
  }

  Agent& agent_;
  const host::PixelBufferInfo info_;
  std::vector<uint8_t> pixels_;
  size_t requests_ = 0;
  size_t taken_ = 0;
};

struct MirrorCase {
  const char* screen;
  const char* captureMethod;
  const char* useXShm;
};

void PrintTo(const MirrorCase& c, std::ostream* out) {
  *out << c.screen << " CaptureMethod=" << c.captureMethod << " _UseXShm=" << c.useXShm;
}

class MirrorTest : public testing::TestWithParam<MirrorCase> {};

TEST_P(MirrorTest, ChangedRegionsTellEverything) {
  const auto server = support::XServer::xvfb(GetParam().screen);
  Painter painter(*server);
  Agent agent(server->display(), {{"CaptureMethod", GetParam().captureMethod},
                                  {"_UseXShm", GetParam().useXShm},
                                  {"PollInterval", "20"},
                                  {"UpdatePeriod", std::to_string(kPeriodMs)}});
  agent.start();
  const size_t before = agent.seen.updates.size();
  const auto begin = Clock::now();
  Mirror mirror(agent);
  Chaos chaos(*server, 20);
  for (int quietPoint = 0; quietPoint < 25; ++quietPoint) {
    const int steps = chaos.pick(1, 80);
    for (int i = 0; i < steps; ++i) {
      chaos.step();
      // Some of it happens while the agent looks.
      if (i % 4 == 0) mirror.pump(0);
    }
    chaos.settle();
    ASSERT_TRUE(mirror.becomesEqualTo(painter)) << "quiet point " << quietPoint;
  }
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
  EXPECT_LE(static_cast<int64_t>(agent.seen.updates.size() - before), ms.count() / kPeriodMs + 1);
}

// Each depth, each way to learn of changes, shared and plain images.
INSTANTIATE_TEST_SUITE_P(
    All, MirrorTest,
    testing::Values(MirrorCase{"641x479x24", "0", "1"}, MirrorCase{"333x251x24", "1", "1"},
                    MirrorCase{"333x251x8", "1", "0"}, MirrorCase{"333x251x15", "2", "1"},
                    MirrorCase{"333x251x16", "2", "0"}, MirrorCase{"333x251x30", "2", "1"}));

}  // namespace

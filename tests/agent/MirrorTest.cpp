#include <chrono>
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
  Chaos(const Chaos&) = delete;
  Chaos& operator=(const Chaos&) = delete;

  void step() {
    Window& window = windows_[static_cast<size_t>(pick(0, kWindows - 1))];
    switch (pick(0, 11)) {
      case 0:
        XMapRaised(display_, window);
        break;
      case 1:
        XUnmapWindow(display_, window);
        break;
      case 2:
        XMoveWindow(display_, window, pick(-50, width_), pick(-50, height_));
        break;
      case 3:
        XResizeWindow(display_, window, size(300), size(200));
        break;
      case 4:
        XCirculateSubwindows(display_, root_, pick(0, 1) ? RaiseLowest : LowerHighest);
        break;
      case 5:
        XDestroyWindow(display_, window);
        window = create();
        break;
      case 6:  // scrolls
        XCopyArea(display_, window, window, gc_, pick(0, 50), pick(0, 50), size(200), size(200),
                  pick(0, 50), pick(0, 50));
        break;
      case 7:
        XClearArea(display_, window, pick(0, 100), pick(0, 100), size(100), size(100), False);
        break;
      case 8:
        XDrawPoint(display_, root_, brush(true), pick(0, width_ - 1), pick(0, height_ - 1));
        break;
      case 9:
        XDrawLine(display_, window, brush(false), pick(-20, 320), pick(-20, 220), pick(-20, 320),
                  pick(-20, 220));
        break;
      default:
        XFillRectangle(display_, pick(0, 2) ? window : root_, brush(pick(0, 1)), pick(-20, width_),
                       pick(-20, height_), size(80), size(80));
    }
    XFlush(display_);
  }
  // Until the X server has done everything.
  void settle() { XSync(display_, True); }
  int pick(int from, int to) { return std::uniform_int_distribution<int>(from, to)(random_); }

 private:
  static constexpr int kWindows = 6;

  unsigned size(int most) { return static_cast<unsigned>(pick(1, most)); }
  unsigned long pixel() { return random_() & ((1ul << DefaultDepth(display_, 0)) - 1); }
  GC brush(bool overWindows) {
    XSetForeground(display_, gc_, pixel());
    XSetSubwindowMode(display_, gc_, overWindows ? IncludeInferiors : ClipByChildren);
    return gc_;
  }
  Window create() {
    XSetWindowAttributes attributes{};
    attributes.override_redirect = True;
    attributes.background_pixel = pixel();
    return XCreateWindow(display_, root_, pick(0, width_), pick(0, height_), size(300), size(200),
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
        pixels_(agent.connection->pixels(), agent.connection->pixels() + rowBytes() * rows()) {
    request();
  }

  // Takes over what has been sent, and asks for more.
  void pump(int timeoutMs) {
    agent_.connection->process(timeoutMs);
    for (; taken_ < agent_.seen.updates.size(); taken_++) {
      const host::UpdateMessage& update = agent_.seen.updates[taken_];
      EXPECT_TRUE(update.copied.isEmpty());
      EXPECT_TRUE((update.changed - rfb::Region(info_.rect)).isEmpty());
      EXPECT_LT(taken_, requests_) << "an update that nobody asked for";
      for (const rfb::Rect& r : update.changed.rects()) {
        for (int y = r.tl.y; y < r.br.y; y++) {
          const size_t at =
              static_cast<size_t>(y) * rowBytes() + static_cast<size_t>(r.tl.x) * bytes();
          std::copy_n(agent_.connection->pixels() + at, static_cast<size_t>(r.width()) * bytes(),
                      pixels_.begin() + static_cast<ptrdiff_t>(at));
        }
      }
      request();
    }
  }
  // Whether it comes to show what the screen does.
  bool becomesEqualTo(Painter& painter) {
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (!equals(painter)) {
      if (Clock::now() > deadline || !agent_.connection->isConnected()) return false;
      pump(kPeriodMs);
    }
    return true;
  }

 private:
  size_t bytes() const { return static_cast<size_t>(info_.format.bytesPerPixel()); }
  size_t rowBytes() const { return info_.stride * bytes(); }
  size_t rows() const { return static_cast<size_t>(info_.rect.height()); }

  void request() {
    agent_.connection->fbUpdateRequest();
    requests_++;
  }
  bool equals(Painter& painter) const {
    const auto width = static_cast<unsigned>(info_.rect.width());
    XImage* image = XGetImage(painter.display.get(), painter.root, 0, 0, width,
                              static_cast<unsigned>(rows()), AllPlanes, ZPixmap);
    bool equal = true;
    for (size_t y = 0; y < rows() && equal; y++)
      equal = memcmp(&pixels_[y * rowBytes()],
                     image->data + y * static_cast<size_t>(image->bytes_per_line),
                     width * bytes()) == 0;
    XDestroyImage(image);
    return equal;
  }

  Agent& agent_;
  const host::PixelBufferInfo info_;
  std::vector<uint8_t> pixels_;
  size_t requests_ = 0;
  size_t taken_ = 0;
};

struct MirrorCase {
  const char* name;
  const char* screen;
  const char* captureMethod;
  const char* useXShm;
};
void PrintTo(const MirrorCase& c, std::ostream* out) {
  *out << c.name;
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
  for (int quietPoint = 0; quietPoint < 25; quietPoint++) {
    const int steps = chaos.pick(1, 80);
    for (int i = 0; i < steps; i++) {
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

INSTANTIATE_TEST_SUITE_P(All, MirrorTest,
                         testing::Values(MirrorCase{"Damage24", "641x479x24", "2", "1"},
                                         MirrorCase{"Tested24", "641x479x24", "0", "1"},
                                         MirrorCase{"Damage16", "333x251x16", "2", "1"},
                                         MirrorCase{"Damage8", "333x251x8", "2", "1"},
                                         MirrorCase{"Plain24", "333x251x24", "2", "0"},
                                         MirrorCase{"Plain16", "333x251x16", "2", "0"},
                                         MirrorCase{"Polled24", "333x251x24", "1", "1"},
                                         MirrorCase{"Polled8", "333x251x8", "1", "0"}),
                         [](const testing::TestParamInfo<MirrorCase>& one) {
                           return one.param.name;
                         });

}  // namespace

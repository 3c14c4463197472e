#include "x11/TXFixture.h"

#include "tx/PixelBufferX11.h"

#include <unistd.h>

#include <tuple>

#include "plat/Exception.h"
#include "plat/SharedMemPosix.h"
#include "support/Segments.h"
#include "x11/Interpose.h"

namespace {

using Mode = tx::PixelBufferX11::Mode;
using rfb::Rect;
using rfb::Region;

constexpr Mode kModes[] = {Mode::kSharedPixmap, Mode::kSharedImage, Mode::kPlainImage};

class PixelBufferX11Test : public TXFixture {
 protected:
  // Whether the buffer's memory holds what the screen shows, with the first difference.
  testing::AssertionResult isShown(tx::PixelBufferX11& buffer, const Rect& r) {
    const tx::XOwnImage image(XGetImage(client(), root(), r.tl.x, r.tl.y,
                                        static_cast<unsigned>(r.width()),
                                        static_cast<unsigned>(r.height()), AllPlanes, ZPixmap));
    const int bytes = buffer.getPF().bytesPerPixel();
    const Rect& all = buffer.getRect();
    for (int y = r.tl.y; y < r.br.y; ++y) {
      const uint8_t* have = buffer.getSharedMem()->data() +
                            ((y - all.tl.y) * buffer.getStride() + r.tl.x - all.tl.x) * bytes;
      const char* want = image->data + (y - r.tl.y) * image->bytes_per_line;
      if (memcmp(have, want, static_cast<size_t>(r.width() * bytes)) != 0) {
        return testing::AssertionFailure() << r.str() << " differs in row " << y;
      }
    }
    return testing::AssertionSuccess();
  }

  // A pattern in all pixel values.
  void draw() {
    const GC gc = DefaultGC(client(), 0);
    for (int y = 0; y < whole().br.y; ++y) {
      XSetForeground(client(), gc, static_cast<unsigned long>(y + 1) * 0x31415927u);
      XDrawLine(client(), root(), gc, 0, y, whole().br.x, y / 2);
    }
    XSync(client(), False);
  }

  Window root() const { return DefaultRootWindow(client()); }
  Rect whole() const { return {0, 0, DisplayWidth(client(), 0), DisplayHeight(client(), 0)}; }
  void useMode(Mode mode) {
    calls_->noShmPixmaps = mode == Mode::kSharedImage;
    setParam("_UseXShm", mode == Mode::kPlainImage ? "0" : "1");
  }

  InterposeScope calls_;
};

// Servers that share images but not pixmaps.
TEST_F(PixelBufferX11Test, SharedImagesShowEveryPixel) {
  useMode(Mode::kSharedImage);
  for (const char* screen : {"641x479x8", "1001x67x16", "641x479x24"}) {
    SCOPED_TRACE(screen);
    start(screen);
    draw();
    tx::PixelBufferX11 buffer(root(), nullptr);
    ASSERT_EQ(buffer.mode(), Mode::kSharedImage) << log_.str();
    buffer.grabRegion(whole());
    EXPECT_TRUE(isShown(buffer, whole()));

    // A part of the screen, with regions that stick out of it.
    const Rect part(11, 7, whole().br.x - 5, whole().br.y - 3);
    tx::PixelBufferX11 offset(root(), nullptr, part);
    offset.grabRegion(Rect(0, 0, 33, 21));
    EXPECT_TRUE(isShown(offset, {11, 7, 33, 21}));
    offset.grabRegion(Rect(-100, -100, 30000, 30000));
    EXPECT_TRUE(isShown(offset, part));
  }
  EXPECT_FALSE(log_.has("grab of")) << log_.str();
}

TEST_F(PixelBufferX11Test, ManyRectanglesAreFetchedAsTheirBox) {
  start();
  draw();
  const auto gapIsFetched = [this](int rectangles) {
    tx::PixelBufferX11 buffer(root(), nullptr);
    Region region;
    for (int i = 0; i < rectangles; ++i) region |= Region(Rect(i * 10, 0, i * 10 + 5, 5));
    buffer.grabRegion(region);
    return buffer.getPixel(7, 0) != 0;
  };
  EXPECT_FALSE(gapIsFetched(20));
  EXPECT_TRUE(gapIsFetched(21));
  setParam("_MaxGrabRects", "0");
  EXPECT_TRUE(gapIsFetched(2));
}

TEST_F(PixelBufferX11Test, OneRoundTripForAGrabAndNoneForNothing) {
  start();
  tx::PixelBufferX11 buffer(root(), nullptr);
  XSync(display(), False);
  calls_->syncs = 0;
  const unsigned long before = NextRequest(display());
  Region region;
  for (int i = 0; i < 5; ++i) region |= Region(Rect(i * 10, 0, i * 10 + 5, 5));
  buffer.grabRegion(region);
  buffer.grabRegion(Region());
  buffer.grabRegion(Rect(5000, 0, 5010, 10));
  EXPECT_EQ(calls_->syncs, 1);
  EXPECT_EQ(NextRequest(display()) - before, 6u);
}

TEST_F(PixelBufferX11Test, AVanishedOrShrunkenDrawableIsIgnored) {
  start();
  for (const Mode mode : kModes) {
    useMode(mode);
    const Window window = XCreateSimpleWindow(client(), root(), 0, 0, 100, 100, 0, 0, 0xff);
    XMapWindow(client(), window);
    XSync(client(), False);
    tx::PixelBufferX11 buffer(window, nullptr);
    EXPECT_EQ(buffer.getRect(), Rect(0, 0, 100, 100));
    XResizeWindow(client(), window, 50, 50);
    XSync(client(), False);
    buffer.grabRegion(buffer.getRect());
    XDestroyWindow(client(), window);
    XSync(client(), False);
    log_.clear();
    buffer.grabRegion(buffer.getRect());
    EXPECT_EQ(log_.count("grab of 0,0 to 100,100: Bad", 100, "PixelBufferX11"), 1) << log_.str();
    EXPECT_FALSE(log_.has("", 0)) << log_.str();
  }
  EXPECT_THROW(tx::PixelBufferX11(0x7fffff, nullptr), plat::Exception);
}

TEST_F(PixelBufferX11Test, FallsBackToPlainImagesWhenTheServerCannotAttach) {
  start();
  draw();
  calls_->badAttach = true;
  tx::PixelBufferX11 buffer(root(), nullptr);
  buffer.grabRegion(whole());
  EXPECT_TRUE(isShown(buffer, whole()));
  EXPECT_NE(dynamic_cast<plat::SharedMemPosix*>(buffer.getSharedMem()), nullptr);
  EXPECT_TRUE(log_.has("XShm extension present - version 1.2 (with pixmaps)", 30)) << log_.str();
  EXPECT_TRUE(log_.has("Using non-shm XImage", 30, "PixelBufferX11")) << log_.str();
  EXPECT_FALSE(log_.has("Using shared memory")) << log_.str();
  EXPECT_EQ(support::segmentsOf(getpid()), 0);
}

TEST_F(PixelBufferX11Test, ColourMapFollowsTheServer) {
  start("64x64x8");
  tx::PixelBufferX11 buffer(root(), nullptr);
  tx::ColourMapX11* const map = buffer.colourMapX11();
  ASSERT_NE(map, nullptr);
  EXPECT_EQ(map->size(), 256);
  EXPECT_FALSE(map->update());

  unsigned long pixel = 0;
  const Colormap colours = DefaultColormap(client(), 0);
  ASSERT_TRUE(XAllocColorCells(client(), colours, False, nullptr, 0, &pixel, 1));
  const auto store = [&](unsigned short red) {
    XColor colour{pixel, red, 0xab00, 0xfffe, DoRed | DoGreen | DoBlue, 0};
    XStoreColor(client(), colours, &colour);
    XSync(client(), False);
    return map->update();
  };
  EXPECT_TRUE(store(0x12ff));
  int r = 0, g = 0, b = 0;
  map->lookup(static_cast<int>(pixel), &r, &g, &b);
  EXPECT_EQ(std::tuple(r, g, b), std::tuple(0x12, 0xab, 0xff));
  EXPECT_FALSE(store(0x1200)) << "below the eight bits that are kept";
}

}  // namespace

#include "x11/TXFixture.h"

#include "tx/CaptureLostException.h"
#include "tx/PixelBufferX11.h"

#include <X11/extensions/XShm.h>
#include <dlfcn.h>
#include <unistd.h>

#include <tuple>

#include "plat/Exception.h"
#include "plat/shm/SharedMemPosix.h"
#include "support/Segments.h"
#include "support/Thrown.h"

namespace {

// Servers that are not at hand: without shared pixmaps, and such as cannot attach a segment.
bool noShmPixmaps, badAttach;

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// The toolkit is linked statically, so that its calls come here first.
extern "C" {

Bool XShmQueryVersion(Display* display, int* major, int* minor, Bool* pixmaps) {
  const auto query = next<decltype(XShmQueryVersion)>("XShmQueryVersion");
  const Bool result = query(display, major, minor, pixmaps);
  if (noShmPixmaps) *pixmaps = False;
  return result;
}

Bool XShmAttach(Display* display, XShmSegmentInfo* info) {
  XShmSegmentInfo sent = *info;
  if (badAttach) sent.shmid = -1;
  const Bool result = next<decltype(XShmAttach)>("XShmAttach")(display, &sent);
  info->shmseg = sent.shmseg;
  return result;
}

}  // extern "C"

namespace {

using Mode = tx::PixelBufferX11::Mode;
using rfb::Rect;
using rfb::Region;

constexpr Mode kModes[] = {Mode::kSharedPixmap, Mode::kSharedImage, Mode::kPlainImage};

class PixelBufferX11Test : public TXFixture {
 protected:
  PixelBufferX11Test() { noShmPixmaps = badAttach = false; }
  // Whether the buffer holds what the screen shows.
  testing::AssertionResult isShown(tx::PixelBufferX11& buffer, const Rect& r) {
    const tx::XOwnImage image(XGetImage(client(), root(), 0, 0, static_cast<unsigned>(whole().br.x),
                                        static_cast<unsigned>(whole().br.y), AllPlanes, ZPixmap));
    for (int y = r.tl.y; y < r.br.y; ++y) {
      for (int x = r.tl.x; x < r.br.x; ++x) {
        if (buffer.getPixel(x, y) != XGetPixel(image.get(), x, y)) {
          return testing::AssertionFailure() << "different at " << x << "," << y;
        }
      }
    }
    return testing::AssertionSuccess();
  }

  // A pattern in all pixel values.
  void draw() {
    const GC gc = DefaultGC(client(), 0);
    for (int y = 0; y < whole().br.y; ++y) {
      XSetForeground(client(), gc, static_cast<unsigned long>(y + 1) * 0x314159 % 0xffffff);
      XDrawLine(client(), root(), gc, 0, y, whole().br.x, y / 2);
    }
    XSync(client(), False);
  }

  Window root() const { return DefaultRootWindow(client()); }
  Rect whole() const { return {0, 0, DisplayWidth(client(), 0), DisplayHeight(client(), 0)}; }
  void useMode(Mode mode) {
    noShmPixmaps = mode == Mode::kSharedImage;
    setParam("_UseXShm", mode == Mode::kPlainImage ? "0" : "1");
  }
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

TEST_F(PixelBufferX11Test, OneRoundTripForAGrabAndNoneForNothing) {
  start();
  tx::PixelBufferX11 buffer(root(), nullptr);
  const auto requests = [&](const Region& region) {
    const unsigned long before = NextRequest(display());
    buffer.grabRegion(region);
    return NextRequest(display()) - before;
  };
  const auto row = [](int rectangles) {
    Region region;
    for (int i = 0; i < rectangles; ++i) region |= Region(Rect(i * 10, 0, i * 10 + 5, 5));
    return region;
  };
  EXPECT_EQ(requests(row(20)), 20u + 1) << "and one that is answered";
  EXPECT_EQ(requests(Region()), 0u);
  buffer.clear();
  EXPECT_EQ(buffer.getPixel(0, 0), 0u);
  EXPECT_EQ(requests(Rect(5000, 0, 5010, 10)), 0u);
  // Many are fetched as their box.
  EXPECT_EQ(requests(row(21)), 1u + 1);
  // What is there already is not fetched.
  const Region fresh = row(2);
  buffer.setFresh(&fresh);
  EXPECT_EQ(requests(row(2)), 0u);
  EXPECT_EQ(requests(row(1)), 1u + 1);
  setParam("_MaxGrabRects", "0");
  EXPECT_EQ(requests(row(2)), 1u + 1);
}

TEST_F(PixelBufferX11Test, AShrunkenDrawableIsIgnoredAndAVanishedOneReported) {
  start();
  for (const Mode mode : kModes) {
    useMode(mode);
    const Window window = XCreateSimpleWindow(client(), root(), 0, 0, 100, 100, 0, 0, 0xff);
    XMapWindow(client(), window);
    XSync(client(), False);
    tx::PixelBufferX11 buffer(window, nullptr);
    XResizeWindow(client(), window, 50, 50);
    XSync(client(), False);
    buffer.grabRegion(buffer.getRect());
    XDestroyWindow(client(), window);
    XSync(client(), False);
    log_.clear();
    EXPECT_THROW(buffer.grabRegion(buffer.getRect()), tx::CaptureLostException);
    EXPECT_EQ(log_.count("grab of 0,0 to 100,100: Bad", 100, "PixelBufferX11"), 1) << log_.str();
    EXPECT_FALSE(log_.has("", 0)) << log_.str();
  }
  EXPECT_THROW(tx::PixelBufferX11(0x7fffff, nullptr), plat::Exception);
  for (const unsigned length : {32767u, 32768u}) {
    for (const bool isWide : {true, false}) {
      const Window window = XCreateSimpleWindow(client(), root(), 0, 0, isWide ? length : 1,
                                                isWide ? 1 : length, 0, 0, 0);
      XSync(client(), False);
      const std::string thrown = support::thrownBy([&] { tx::PixelBufferX11(window, nullptr); });
      EXPECT_EQ(thrown == "nothing", length == 32767) << thrown;
    }
  }
}

TEST_F(PixelBufferX11Test, FallsBackToPlainImagesWhenTheServerCannotAttach) {
  start();
  draw();
  badAttach = true;
  tx::PixelBufferX11 buffer(root(), nullptr);
  buffer.grabRegion(whole());
  EXPECT_TRUE(isShown(buffer, whole()));
  EXPECT_NE(dynamic_cast<plat::SharedMemPosix*>(buffer.getSharedMem()), nullptr);
  EXPECT_TRUE(log_.has("Using non-shm XImage", 30, "PixelBufferX11")) << log_.str();
  EXPECT_FALSE(log_.has("Using shared memory")) << log_.str();
  EXPECT_EQ(support::segmentsOf(getpid()), 0);
}

TEST_F(PixelBufferX11Test, ColourMapFollowsTheServer) {
  start("64x64x8");
  tx::PixelBufferX11 buffer(root(), nullptr);
  tx::ColourMapX11* const map = buffer.colourMapX11();
  ASSERT_NE(map, nullptr);
  EXPECT_FALSE(map->update());
  XColor colour{0, 0x12ff, 0xab00, 0xfffe, DoRed | DoGreen | DoBlue, 0};
  const Colormap colours = DefaultColormap(client(), 0);
  ASSERT_TRUE(XAllocColorCells(client(), colours, False, nullptr, 0, &colour.pixel, 1));
  XStoreColor(client(), colours, &colour);
  XSync(client(), False);
  EXPECT_TRUE(map->update());
  int r = 0, g = 0, b = 0;
  map->lookup(static_cast<int>(colour.pixel), &r, &g, &b);
  EXPECT_EQ(std::tuple(r, g, b), std::tuple(0x12, 0xab, 0xff));
}

}  // namespace

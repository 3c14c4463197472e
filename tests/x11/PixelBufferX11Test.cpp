#include "x11/TXFixture.h"

#include "tx/PixelBufferX11.h"

#include <dirent.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstring>
#include <iterator>
#include <random>
#include <tuple>

#include "plat/Exception.h"
#include "plat/SharedMemPosix.h"
#include "plat/SharedMemSysV.h"
#include "x11/Interpose.h"
#include "x11/SegmentCount.h"
#include "x11/XResourceCount.h"

namespace {

using Mode = tx::PixelBufferX11::Mode;
using rfb::Rect;
using rfb::Region;

class PixelBufferX11Test : public TXFixture {
 protected:
  // What the server shows, row by row without padding.
  std::vector<std::string> screen(const Rect& r) {
    const tx::XOwnImage image(XGetImage(client(), root(), r.tl.x, r.tl.y,
                                        static_cast<unsigned>(r.width()),
                                        static_cast<unsigned>(r.height()), AllPlanes, ZPixmap));
    std::vector<std::string> rows;
    for (int y = 0; y < r.height(); ++y) {
      rows.emplace_back(image->data + y * image->bytes_per_line,
                        static_cast<size_t>(r.width() * image->bits_per_pixel / 8));
    }
    return rows;
  }
  static std::vector<std::string> contents(tx::PixelBufferX11& buffer, const Rect& r) {
    const int bytes = buffer.getPF().bytesPerPixel();
    const uint8_t* const memory = buffer.getSharedMem()->data();
    std::vector<std::string> rows;
    for (int y = r.tl.y; y < r.br.y; ++y) {
      const int offset =
          (y - buffer.getRect().tl.y) * buffer.getStride() + r.tl.x - buffer.getRect().tl.x;
      rows.emplace_back(reinterpret_cast<const char*>(memory) + offset * bytes,
                        static_cast<size_t>(r.width() * bytes));
    }
    return rows;
  }
  // Whether the buffer holds what the screen shows, with the first difference.
  testing::AssertionResult isShown(tx::PixelBufferX11& buffer, const Rect& r) {
    const auto have = contents(buffer, r);
    const auto want = screen(r);
    for (size_t y = 0; y < want.size(); ++y) {
      const auto at = std::mismatch(want[y].begin(), want[y].end(), have[y].begin());
      if (at.first == want[y].end()) continue;
      return testing::AssertionFailure()
             << r.str() << ": row " << y << " byte " << at.first - want[y].begin() << " is "
             << (*at.second & 0xff) << ", not " << (*at.first & 0xff);
    }
    return testing::AssertionSuccess();
  }

  // The parts of a region, for comparison as one value.
  template <typename Rows>
  static std::vector<std::string> parts(const Region& region, Rows rows) {
    std::vector<std::string> all;
    for (const Rect& r : region.rects()) {
      for (std::string& row : rows(r)) all.push_back(std::move(row));
    }
    return all;
  }

  // Random shapes on the root and on windows above it, in all pixel values.
  void draw(unsigned seed, int shapes = 60) {
    std::mt19937 random(seed);
    const auto below = [&random](int n) { return static_cast<int>(random() % unsigned(n)); };
    const int width = DisplayWidth(client(), 0);
    const int height = DisplayHeight(client(), 0);
    if (windows_.empty()) {
      windows_.push_back(root());
      for (int i = 0; i < 3; ++i) {
        XSetWindowAttributes attributes{};
        attributes.override_redirect = True;
        attributes.background_pixel = random();
        const Window parent = i == 2 ? windows_.back() : root();
        windows_.push_back(
            XCreateWindow(client(), parent, below(width / 2) - 4, below(height / 2) - 4,
                          static_cast<unsigned>(1 + width / 2),
                          static_cast<unsigned>(1 + height / 2), 0, CopyFromParent, InputOutput,
                          CopyFromParent, CWOverrideRedirect | CWBackPixel, &attributes));
        XMapWindow(client(), windows_.back());
      }
    }
    for (int i = 0; i < shapes; ++i) {
      const Window window = windows_[static_cast<size_t>(below(static_cast<int>(windows_.size())))];
      const GC gc = DefaultGC(client(), 0);
      XSetForeground(client(), gc, random());
      const int x = below(width) - 8;
      const int y = below(height) - 8;
      const auto w = static_cast<unsigned>(1 + below(width / 3 + 1));
      const auto h = static_cast<unsigned>(1 + below(height / 3 + 1));
      switch (below(4)) {
        case 0:
          XFillRectangle(client(), window, gc, x, y, w, h);
          break;
        case 1:
          XFillArc(client(), window, gc, x, y, w, h, 0, 360 * 64);
          break;
        case 2:
          XDrawLine(client(), window, gc, x, y, below(width), below(height));
          break;
        default:
          XCopyArea(client(), window, window, gc, x, y, w, h, below(width), below(height));
          break;
      }
    }
    XSync(client(), False);
  }

  GC whiteGC() const {
    XSetForeground(client(), DefaultGC(client(), 0), 0xffffff);
    return DefaultGC(client(), 0);
  }
  Window root() const { return DefaultRootWindow(client()); }
  Rect whole() const { return {0, 0, DisplayWidth(client(), 0), DisplayHeight(client(), 0)}; }
  void useMode(Mode mode) {
    calls_->noShmPixmaps = mode == Mode::kSharedImage;
    if (mode == Mode::kPlainImage) setParam("_UseXShm", "0");
  }

  InterposeScope calls_;

 private:
  std::vector<Window> windows_;
};

struct Screen {
  const char* size;
  int depth;
  int stride;
};

class PixelEquality : public PixelBufferX11Test,
                      public testing::WithParamInterface<std::tuple<Screen, Mode>> {};

TEST_P(PixelEquality, EveryPixelIsTheOneShown) {
  const auto& [size, mode] = GetParam();
  start(std::string(size.size) + "x" + std::to_string(size.depth));
  useMode(mode);
  draw(1);

  tx::PixelBufferX11 buffer(root(), nullptr);
  ASSERT_EQ(buffer.mode(), mode) << log_.str();
  EXPECT_EQ(buffer.getRect(), whole());
  EXPECT_EQ(buffer.getStride(), size.stride);
  EXPECT_EQ(buffer.getPF().depth, size.depth);
  EXPECT_EQ(buffer.getPF().trueColour, size.depth > 8);
  EXPECT_EQ(buffer.getPixelsRW(whole(), nullptr), buffer.getSharedMem()->data());
  const std::string black(static_cast<size_t>(whole().width() * buffer.getPF().bytesPerPixel()),
                          '\0');
  for (const std::string& row : contents(buffer, whole())) ASSERT_EQ(row, black);
  buffer.grabRegion(whole());
  EXPECT_TRUE(isShown(buffer, whole()));

  // A part of the screen, with regions that stick out of it.
  const Rect part(11, 7, whole().br.x - 5, whole().br.y - 3);
  tx::PixelBufferX11 offset(root(), nullptr, part);
  offset.grabRegion(Region(Rect(-100, -100, 30000, 30000)));
  EXPECT_TRUE(isShown(offset, part));

  // Only the region changes, except that a shared image is fetched whole.
  for (unsigned seed = 2; seed < 6; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    Region region;
    for (int i = 0; i < 4; ++i) {
      const int x = static_cast<int>(random() % 50);
      const int y = static_cast<int>(random() % 40);
      region |= Region(Rect(x, y, x + 1 + static_cast<int>(random() % 15), y + 5));
    }
    const Region rest = Region(part) - region;
    const auto of = [&](const Rect& r) { return contents(offset, r); };
    const auto before = parts(rest, of);
    draw(seed);
    offset.grabRegion(region);
    const Region inside = region & Region(part);
    for (const Rect& r : inside.rects()) EXPECT_TRUE(isShown(offset, r));
    if (mode == Mode::kSharedImage) {
      EXPECT_TRUE(isShown(offset, part));
    } else {
      EXPECT_TRUE(parts(rest, of) == before);
    }
  }
  EXPECT_FALSE(log_.has("grab of")) << log_.str();
  offset.clear();
  EXPECT_EQ(offset.getPixel(part.tl.x, part.tl.y), 0u);
}

std::string nameOf(const testing::TestParamInfo<std::tuple<Screen, Mode>>& test) {
  const auto& [size, mode] = test.param;
  std::string name = "Pixmap";
  if (mode == Mode::kSharedImage) name = "Image";
  if (mode == Mode::kPlainImage) name = "Plain";
  return name + size.size + "x" + std::to_string(size.depth);
}

INSTANTIATE_TEST_SUITE_P(
    Screens, PixelEquality,
    testing::Combine(testing::Values(Screen{"641x479", 8, 644}, Screen{"641x479", 16, 642},
                                     Screen{"641x479", 24, 641}, Screen{"1001x67", 8, 1004},
                                     Screen{"1001x67", 16, 1002}, Screen{"1001x67", 24, 1001},
                                     Screen{"640x64", 16, 640}),
                     testing::Values(Mode::kSharedPixmap, Mode::kSharedImage, Mode::kPlainImage)),
    nameOf);

TEST_F(PixelBufferX11Test, ClipLimitsWhatIsFetched) {
  start();
  for (const Mode mode : {Mode::kSharedPixmap, Mode::kPlainImage}) {
    useMode(mode);
    tx::PixelBufferX11 buffer(root(), nullptr, Rect(20, 10, 220, 210));
    draw(3);
    const Rect clip(50, 60, 120, 130);
    buffer.setClip(Region(clip));
    buffer.grabRegion(whole());
    EXPECT_TRUE(isShown(buffer, clip));
    const Region rest = Region(buffer.getRect()) - Region(clip);
    for (const std::string& row : parts(rest, [&](const Rect& r) { return contents(buffer, r); })) {
      EXPECT_EQ(row.find_first_not_of('\0'), std::string::npos);
    }
    buffer.setClip(Region());
    buffer.grabRegion(whole());
    EXPECT_TRUE(isShown(buffer, buffer.getRect()));
  }
}

TEST_F(PixelBufferX11Test, ManyRectanglesAreFetchedAsTheirBox) {
  start();
  XFillRectangle(client(), root(), whiteGC(), 0, 0, 640, 20);
  XSync(client(), False);
  const auto gapIsFetched = [this](int rectangles) {
    tx::PixelBufferX11 buffer(root(), nullptr);
    Region region;
    for (int i = 0; i < rectangles; ++i) region |= Region(Rect(i * 10, 0, i * 10 + 5, 5));
    buffer.grabRegion(region);
    const Rect box = region.boundingRect();
    EXPECT_TRUE(isShown(buffer, Rect(0, 0, 5, 5)));
    return static_cast<bool>(isShown(buffer, box));
  };
  EXPECT_FALSE(gapIsFetched(20));
  EXPECT_TRUE(gapIsFetched(21));
  setParam("_MaxGrabRects", "3");
  EXPECT_FALSE(gapIsFetched(3));
  EXPECT_TRUE(gapIsFetched(4));
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
  EXPECT_EQ(calls_->syncs, 1);
  EXPECT_EQ(NextRequest(display()) - before, 6u);
  buffer.grabRegion(Region());
  buffer.grabRegion(Rect(5000, 0, 5010, 10));
  EXPECT_EQ(NextRequest(display()) - before, 6u);
}

TEST_F(PixelBufferX11Test, AVanishedOrShrunkenDrawableIsIgnored) {
  for (const Mode mode : {Mode::kSharedPixmap, Mode::kSharedImage, Mode::kPlainImage}) {
    start();
    useMode(mode);
    const Window window = XCreateSimpleWindow(client(), root(), 0, 0, 100, 100, 0, 0, 0xff);
    XMapWindow(client(), window);
    XSync(client(), False);
    tx::PixelBufferX11 buffer(window, nullptr);
    EXPECT_EQ(buffer.getRect(), Rect(0, 0, 100, 100));
    log_.clear();
    XResizeWindow(client(), window, 50, 50);
    XSync(client(), False);
    EXPECT_NO_THROW(buffer.grabRegion(buffer.getRect()));
    if (mode != Mode::kSharedPixmap) {
      EXPECT_EQ(log_.count("BadMatch", 100, "PixelBufferX11"), 1) << log_.str();
    }
    XDestroyWindow(client(), window);
    XSync(client(), False);
    log_.clear();
    EXPECT_NO_THROW(buffer.grabRegion(buffer.getRect()));
    EXPECT_EQ(log_.count("grab of 0,0 to 100,100: Bad", 100, "PixelBufferX11"), 1) << log_.str();
    EXPECT_FALSE(log_.has("", 0)) << log_.str();
  }
  EXPECT_THROW(tx::PixelBufferX11(0x7fffff, nullptr), plat::Exception);
}

TEST_F(PixelBufferX11Test, FallsBackToPlainImages) {
  start();
  draw(5);
  const auto grabs = [this] {
    tx::PixelBufferX11 buffer(root(), nullptr);
    buffer.grabRegion(whole());
    return buffer.mode() == Mode::kPlainImage && isShown(buffer, whole()) &&
           dynamic_cast<plat::SharedMemPosix*>(buffer.getSharedMem()) != nullptr;
  };
  calls_->badAttach = true;
  EXPECT_TRUE(grabs());
  EXPECT_TRUE(log_.has("XShm extension present - version 1.2 (with pixmaps)", 30)) << log_.str();
  EXPECT_TRUE(log_.has("Using non-shm XImage", 30, "PixelBufferX11")) << log_.str();
  EXPECT_FALSE(log_.has("Using shared memory")) << log_.str();
  EXPECT_EQ(ownSegments(), 0);
  calls_->badAttach = false;

  start("640x480x24", {"-extension", "MIT-SHM"});
  log_.clear();
  EXPECT_TRUE(grabs());
  EXPECT_EQ(log_.count("No XShm extension", 0, "PixelBufferX11"), 1) << log_.str();
  EXPECT_TRUE(log_.has("Using non-shm XImage")) << log_.str();
  EXPECT_EQ(ownSegments(), 0);
}

TEST_F(PixelBufferX11Test, MemoryHasTheGivenPermissions) {
  start();
  plat::SharedMemPermissions permissions;
  permissions.mode = 0640;
  const tx::PixelBufferX11 buffer(root(), &permissions);
  auto& memory =
      dynamic_cast<plat::SharedMemSysV&>(*const_cast<tx::PixelBufferX11&>(buffer).getSharedMem());
  shmid_ds status{};
  ASSERT_EQ(shmctl(memory.id(), IPC_STAT, &status), 0);
  EXPECT_EQ(status.shm_perm.mode & 0777, 0640);
  EXPECT_EQ(status.shm_nattch, 2u);
}

TEST_F(PixelBufferX11Test, ColourMapFollowsTheServer) {
  start("64x64x8");
  tx::PixelBufferX11 buffer(root(), nullptr);
  tx::ColourMapX11* const map = buffer.colourMapX11();
  ASSERT_NE(map, nullptr);
  EXPECT_EQ(buffer.getColourMap(), map);
  EXPECT_EQ(map->size(), 256);
  EXPECT_FALSE(map->update());

  unsigned long pixel = 0;
  const Colormap colours = DefaultColormap(client(), 0);
  ASSERT_TRUE(XAllocColorCells(client(), colours, False, nullptr, 0, &pixel, 1));
  XColor colour{pixel, 0x12ff, 0xab00, 0xfffe, DoRed | DoGreen | DoBlue, 0};
  XStoreColor(client(), colours, &colour);
  XSync(client(), False);
  EXPECT_TRUE(map->update());
  EXPECT_FALSE(map->update());
  int r = 0;
  int g = 0;
  int b = 0;
  map->lookup(static_cast<int>(pixel), &r, &g, &b);
  EXPECT_EQ(std::tuple(r, g, b), std::tuple(0x12, 0xab, 0xff));
  map->lookup(256, &r, &g, &b);
  EXPECT_EQ(std::tuple(r, g, b), std::tuple(0, 0, 0));
  // A change below the eight bits that are kept is none.
  colour.red = 0x1200;
  XStoreColor(client(), colours, &colour);
  XSync(client(), False);
  EXPECT_FALSE(map->update());
}

TEST_F(PixelBufferX11Test, AHundredBuffersLeaveNothing) {
  start();
  const auto descriptors = [] {
    int count = 0;
    DIR* const directory = opendir("/proc/self/fd");
    while (readdir(directory) != nullptr) ++count;
    closedir(directory);
    return count;
  };
  for (const Mode mode : {Mode::kSharedPixmap, Mode::kSharedImage, Mode::kPlainImage}) {
    useMode(mode);
    int fds = 0;
    std::string resources;
    for (int i = 0; i < 100; ++i) {
      tx::PixelBufferX11 buffer(root(), nullptr, Rect(0, 0, 100 + i, 100));
      ASSERT_EQ(buffer.mode(), mode);
      buffer.grabRegion(buffer.getRect());
      if (i > 0) continue;
      fds = descriptors();
      resources = xResources(display());
    }
    // The buffer that was counted with is gone, too.
    EXPECT_EQ(ownSegments(), 0);
    EXPECT_LT(descriptors(), fds + 1);
    tx::PixelBufferX11 buffer(root(), nullptr);
    buffer.grabRegion(buffer.getRect());
    EXPECT_EQ(descriptors(), fds);
    EXPECT_EQ(xResources(display()), resources);
  }
}

}  // namespace

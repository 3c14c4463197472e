#include "rfb/PixelBufferComparer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "rfb/Pixels.h"

namespace rfb {
namespace {

const PixelFormat k8(8, 8, false, false);
const PixelFormat k16(16, 16, true, true, 31, 63, 31, 11, 5, 0);
const PixelFormat k24(24, 24, false, true, 255, 255, 255, 16, 8, 0);
const PixelFormat k32(32, 24, false, true, 255, 255, 255, 16, 8, 0);

// A frame with its own memory, wider than what is shown.
class Frame {
 public:
  Frame(const PixelFormat& format, const Rect& rect, int spare = 0)
      : bytes_(static_cast<size_t>((rect.width() + spare) * rect.height() * format.bpp / 8)),
        buffer(format, rect, bytes_.data(), nullptr, rect.width() + spare) {}

  uint8_t* at(int x, int y) { return buffer.getPixelsRW(Rect(x, y, x + 1, y + 1), nullptr); }
  // Whether the pixels of a row from x1 to before x2 are those of the other frame.
  bool sameRow(Frame& other, int x1, int x2, int y) {
    return x1 == x2 || std::memcmp(at(x1, y), other.at(x1, y), rowBytes(x1, x2)) == 0;
  }
  void copyFrom(Frame& other, const Rect& r) {
    for (int y = r.tl.y; y < r.br.y; y++)
      std::memcpy(at(r.tl.x, y), other.at(r.tl.x, y), rowBytes(r.tl.x, r.br.x));
  }

 private:
  size_t rowBytes(int x1, int x2) const {
    return static_cast<size_t>((x2 - x1) * buffer.getPF().bpp / 8);
  }

  std::vector<uint8_t> bytes_;

 public:
  FullFramePixelBuffer buffer;
};

// What the comparison means, pixel by pixel: blocks of changed that differ between the frame and a
// copy, which takes over from the frame the rows that the comparer does.
Region expectedChange(Frame& frame, Frame& copy, const Region& changed) {
  std::vector<Rect> found;
  for (const Rect& r : changed.rects()) {
    for (int y = r.tl.y; y < r.br.y; y += 16) {
      for (int x = r.tl.x; x < r.br.x; x += 16) {
        const Rect block = Rect(x, y, x + 16, y + 16).intersect(r);
        for (int row = block.tl.y; row < block.br.y; row++) {
          if (frame.sameRow(copy, block.tl.x, block.br.x, row)) continue;
          copy.copyFrom(frame, Rect(block.tl.x, row, block.br.x, block.br.y));
          found.push_back(block);
          break;
        }
      }
    }
  }
  Region region;
  region.addRects(found);
  return region;
}

TEST(PixelBufferComparer, FindsWhatANaiveComparisonFinds) {
  std::mt19937 random(11);
  const auto below = [&](int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit));
  };
  const Rect rects[] = {{0, 0, 64, 48}, {-20, 7, 51, 60}, {100, 50, 117, 67}, {3, 3, 4, 4}};
  for (const PixelFormat& format : {k8, k16, k24, k32}) {
    for (const Rect& rect : rects) {
      Frame frame(format, rect, below(5)),
          copy(format, rect, frame.buffer.getStride() - rect.width());
      PixelBufferComparer comparer;
      comparer.setSource(&frame.buffer);
      ASSERT_EQ(comparer.compare(Region()), Region(rect));
      for (int round = 0; round < 60; round++) {
        for (int i = below(8); i > 0; i--) {
          uint8_t* pixel =
              frame.at(rect.tl.x + below(rect.width()), rect.tl.y + below(rect.height()));
          pixel[below(format.bpp / 8)] ^= 0x55;
        }
        // Parts that are not looked at stay as they were in the copy, and are found later.
        Region looked(rect);
        if (below(2)) {
          looked.clear();
          for (int i = 0; i < 3; i++) {
            const int x = rect.tl.x + below(rect.width()), y = rect.tl.y + below(rect.height());
            looked |= Region(Rect(x, y, x + below(40), y + below(40)).intersect(rect));
          }
        }
        ASSERT_EQ(comparer.compare(looked), expectedChange(frame, copy, looked))
            << rect.str() << " " << format.str() << " round " << round << "\n"
            << looked.debugText();
      }
      EXPECT_TRUE((comparer.compare(rect), comparer.compare(rect)).isEmpty());
    }
  }
}

TEST(PixelBufferComparer, FollowsItsSource) {
  PixelBufferComparer comparer;
  EXPECT_TRUE(comparer.compare(Rect(0, 0, 5, 5)).isEmpty());

  struct Step {
    const char* what;
    PixelFormat format;
    Rect rect;
    Region expected;
  };
  PixelFormat deeper = k32;
  deeper.depth = 32;
  const Step steps[] = {
      {"first", k32, {0, 0, 40, 40}, Rect(0, 0, 40, 40)},
      {"the same", k32, {0, 0, 40, 40}, {}},
      {"equal format", deeper, {0, 0, 40, 40}, {}},
      {"wider", k32, {0, 0, 60, 40}, Rect(40, 0, 60, 40)},
      {"lower", k32, {0, 0, 60, 30}, {}},
      {"moved", k32, {10, 5, 70, 35}, Region(Rect(10, 5, 70, 35)) - Region(Rect(0, 0, 60, 30))},
      {"moved away", k32, {100, 100, 110, 110}, Rect(100, 100, 110, 110)},
      {"other format", k16, {100, 100, 110, 110}, Rect(100, 100, 110, 110)},
      {"other format and size", k32, {100, 100, 120, 110}, Rect(100, 100, 120, 110)},
      {"nothing", k32, {100, 100, 100, 100}, {}},
      {"back", k32, {0, 0, 9, 9}, Rect(0, 0, 9, 9)},
  };
  std::vector<std::unique_ptr<Frame>> frames;
  for (const Step& step : steps) {
    frames.push_back(std::make_unique<Frame>(step.format, step.rect));
    Frame& frame = *frames.back();
    // The picture depends on the place alone, so that it stays when the buffer moves over it.
    test::forEachPixel(frame.buffer, [&](int x, int y) {
      *frame.at(x, y) = static_cast<uint8_t>(x * 7 + y * 31);
    });
    comparer.setSource(&frame.buffer);
    EXPECT_EQ(comparer.compare(step.rect), step.expected) << step.what;
    EXPECT_TRUE(comparer.compare(step.rect).isEmpty()) << step.what;
  }
  comparer.setSource(nullptr);
  EXPECT_TRUE(comparer.compare(Rect(0, 0, 9, 9)).isEmpty());
}

TEST(PixelBufferComparer, SimpleRegionsLeaveOutSolidBlocksOfOneColour) {
  const PixelFormat big(32, 24, true, true, 255, 255, 255, 16, 8, 0);
  for (const PixelFormat& format : {k32, big}) {
    const size_t unused = format.bigEndian ? 0 : 3, used = 3 - unused;
    Frame frame(format, Rect(0, 0, 64, 16));
    PixelBufferComparer comparer;
    comparer.setSource(&frame.buffer);
    comparer.compare(frame.buffer.getRect());
    const auto change = [&] {
      for (int x = 0; x < 64; x += 3) frame.at(x, 5)[unused] ^= 0xff;  // in every block
      frame.at(20, 15)[used] ^= 1;                                     // no longer solid
      for (int y = 0; y < 16; y++) {
        for (int x = 32; x < 48; x++) frame.at(x, y)[used] ^= 1;  // another solid colour
      }
    };
    change();
    EXPECT_EQ(comparer.compare(frame.buffer.getRect()), Region(Rect(0, 0, 64, 16)));
    comparer.setSimpleRegions(true);
    change();
    EXPECT_EQ(comparer.compare(frame.buffer.getRect()), Region(Rect(16, 0, 48, 16)));
    // Left out, but taken over into the copy.
    comparer.setSimpleRegions(false);
    EXPECT_TRUE(comparer.compare(frame.buffer.getRect()).isEmpty());
  }
}

}  // namespace
}  // namespace rfb

#include "rfb/PixelBufferComparer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "rfb/Pixels.h"
#include "support/ParameterValue.h"

namespace rfb {
namespace {

const PixelFormat k8(8, 8, false, false);
const PixelFormat k16(16, 16, true, true, 31, 63, 31, 11, 5, 0);
const PixelFormat k24(24, 24, false, true, 255, 255, 255, 16, 8, 0);
const PixelFormat k32(32, 24, false, true, 255, 255, 255, 16, 8, 0);

struct Frame {
  Frame(const PixelFormat& format, const Rect& rect) : buffer(format, rect) {
    support::forEachPixel(buffer, [&](int x, int y) { buffer.setPixel(x, y, 0); });
  }
  uint8_t* at(int x, int y) { return buffer.getPixelsRW(Rect(x, y, x + 1, y + 1), nullptr); }

  ManagedPixelBuffer buffer;
};

// What the comparison means, block by block: those of changed that differ between the frame and a
// copy, which takes over from the frame the rows that the comparer does.
Region expectedChange(Frame& frame, Frame& copy, const Region& changed) {
  const auto pixel = static_cast<size_t>(frame.buffer.getPF().bytesPerPixel());
  Region found;
  for (const Rect& r : changed.rects()) {
    for (int y = r.tl.y; y < r.br.y; y += 16) {
      for (int x = r.tl.x; x < r.br.x; x += 16) {
        const Rect block = Rect(x, y, x + 16, y + 16).intersect(r);
        const size_t bytes = static_cast<size_t>(block.width()) * pixel;
        bool differs = false;
        for (int row = block.tl.y; row < block.br.y; ++row) {
          differs |= std::memcmp(frame.at(x, row), copy.at(x, row), bytes) != 0;
          if (differs) std::memcpy(copy.at(x, row), frame.at(x, row), bytes);
        }
        if (differs) found |= block;
      }
    }
  }
  return found;
}

TEST(PixelBufferComparer, FindsWhatANaiveComparisonFinds) {
  std::mt19937 random(11);
  const auto below = [&](int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit));
  };
  for (const PixelFormat& format : {k8, k16, k24, k32}) {
    for (const Rect& rect : {Rect(0, 0, 64, 48), Rect(-20, 7, 51, 60), Rect(3, 3, 4, 4)}) {
      Frame frame(format, rect), copy(format, rect);
      PixelBufferComparer comparer;
      comparer.setSource(&frame.buffer);
      ASSERT_EQ(comparer.compare(Region()), Region(rect));
      const auto pick = [&] { return rect.tl + Point(below(rect.width()), below(rect.height())); };
      for (int round = 0; round < 60; ++round) {
        for (int i = below(8); i > 0; --i) {
          const Point at = pick();
          frame.at(at.x, at.y)[below(format.bpp / 8)] ^= 0x55;
        }
        // Parts that are not looked at stay as they were in the copy, and are found later.
        Region looked;
        for (int i = below(4); i > 0; --i) {
          const Point at = pick();
          looked |= Rect(at, at + Point(below(40), below(40))).intersect(rect);
        }
        if (looked.isEmpty()) looked = rect;
        ASSERT_EQ(comparer.compare(looked), expectedChange(frame, copy, looked))
            << rect.str() << " " << format.str() << " round " << round << "\n"
            << looked.debugText();
      }
    }
  }
}

TEST(PixelBufferComparer, FollowsItsSource) {
  PixelBufferComparer comparer;
  struct Step {
    const char* what;
    PixelFormat format;
    Rect rect;
    Region expected;
  };
  const Step steps[] = {
      {"first", k32, {0, 0, 40, 40}, Rect(0, 0, 40, 40)},
      {"wider", k32, {0, 0, 60, 30}, Rect(40, 0, 60, 30)},
      {"moved", k32, {10, 5, 70, 35}, Region(Rect(10, 5, 70, 35)) - Region(Rect(0, 0, 60, 30))},
      {"other format and size", k16, {100, 100, 120, 110}, Rect(100, 100, 120, 110)},
      {"nothing", k16, {100, 100, 100, 100}, {}},
  };
  std::vector<std::unique_ptr<Frame>> frames;
  for (const Step& step : steps) {
    frames.push_back(std::make_unique<Frame>(step.format, step.rect));
    Frame& frame = *frames.back();
    // The picture depends on the place alone, so that it stays when the buffer moves over it.
    support::forEachPixel(frame.buffer, [&](int x, int y) {
      *frame.at(x, y) = static_cast<uint8_t>(x * 7 + y * 31);
    });
    comparer.setSource(&frame.buffer);
    EXPECT_EQ(comparer.compare(step.rect), step.expected) << step.what;
    EXPECT_TRUE(comparer.compare(step.rect).isEmpty()) << step.what;
  }
}

TEST(PixelBufferComparer, SimpleRegionsLeaveOutSolidBlocksOfOneColour) {
  const PixelFormat big(32, 24, true, true, 255, 255, 255, 16, 8, 0);
  for (const PixelFormat& format : {k32, big}) {
    const size_t unused = format.bigEndian ? 0 : 3, used = 3 - unused;
    Frame frame(format, Rect(0, 0, 64, 16));
    PixelBufferComparer comparer;
    comparer.setSource(&frame.buffer);
    comparer.compare(frame.buffer.getRect());
    support::ParameterValue simpleRegions("SimpleRegions", "1");
    for (int x = 0; x < 64; x += 3) frame.at(x, 5)[unused] ^= 0xff;  // in every block
    frame.at(20, 15)[used] ^= 1;                                     // no longer solid
    for (int y = 0; y < 16; ++y) {
      for (int x = 32; x < 48; ++x) frame.at(x, y)[used] ^= 1;  // another solid colour
    }
    EXPECT_EQ(comparer.compare(frame.buffer.getRect()), Region(Rect(16, 0, 48, 16)));
    // Left out, but taken over into the copy.
    simpleRegions.set("0");
    EXPECT_TRUE(comparer.compare(frame.buffer.getRect()).isEmpty());
  }
}

}  // namespace
}  // namespace rfb

#include "rfb/Region.h"

#include <gtest/gtest.h>

#include <bitset>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "rdr/Exceptions.h"
#include "rdr/MemInStream.h"
#include "rdr/MemOutStream.h"
#include "support/DripStream.h"
#include "support/Frames.h"

namespace rfb {
namespace {

using Boxes = std::vector<mi::Box>;

Region regionOf(std::initializer_list<Rect> rects) {
  Region region;
  region.addRects(rects);
  return region;
}

std::string bytesOf(const Region& region) {
  rdr::MemOutStream out;
  region.write(out);
  return {reinterpret_cast<const char*>(out.data()), out.size()};
}

std::string u16s(std::initializer_list<int> values) {
  std::string bytes;
  for (const int value : values) bytes += support::u16(static_cast<unsigned>(value));
  return bytes;
}

Region read(const std::string& bytes) {
  rdr::MemInStream in(bytes.data(), bytes.size());
  Region region(Rect(1, 1, 2, 2));
  region.read(in);
  EXPECT_EQ(in.available(), 0u);
  return region;
}

// What a region means, without any of its cleverness: the pixels of a square at the origin.
constexpr int kSize = 24;
using Pixels = std::bitset<kSize * kSize>;

Pixels pixelsOf(std::span<const Rect> rects, const Point& origin) {
  Pixels pixels;
  for (const Rect& rect : rects) {
    const Rect r = rect.translate(-origin).intersect(Rect(0, 0, kSize, kSize));
    for (int y = r.tl.y; y < r.br.y; ++y) {
      for (int x = r.tl.x; x < r.br.x; ++x) pixels.set(static_cast<size_t>(y * kSize + x));
    }
  }
  return pixels;
}

Pixels pixelsOf(const Region& region, const Point& origin) {
  EXPECT_TRUE(mi::Region::isBanded(region.boxes())) << region.debugText();
  std::vector<Rect> rects;
  for (const Rect& rect : region.rects()) rects.push_back(rect);
  return pixelsOf(rects, origin);
}

TEST(Region, CombinesAndMovesLikeItsPixels) {
  std::mt19937 random(20);
  const auto number = [&](int from, int to) {
    return std::uniform_int_distribution<int>(from, to)(random);
  };
  for (const Point& origin :
       {Point(-12, -12), Point(-32768, -32768), Point(32767 - kSize, 32767 - kSize)}) {
    SCOPED_TRACE(origin.x);
    const auto randomise = [&](Region& region) {
      std::vector<Rect> rects(static_cast<size_t>(number(0, 12)));
      const int maxSize = number(1, kSize);
      for (Rect& rect : rects) {
        const Point at = origin + Point(number(0, kSize - 1), number(0, kSize - 1));
        const Rect square(origin, origin + Point(kSize, kSize));
        rect = Rect(at, at + Point(number(0, maxSize), number(0, maxSize))).intersect(square);
      }
      region.addRects(rects);
      const Pixels pixels = pixelsOf(rects, origin);
      EXPECT_EQ(pixelsOf(region, origin), pixels);
      return pixels;
    };
    for (int i = 0; i < 400; ++i) {
      Region a, b;
      const Pixels inA = randomise(a), inB = randomise(b);
      ASSERT_EQ(pixelsOf(a | b, origin), inA | inB);
      ASSERT_EQ(pixelsOf(a & b, origin), inA & inB);
      ASSERT_EQ(pixelsOf(a - b, origin), inA & ~inB);
      ASSERT_EQ(a == b, inA == inB);
      ASSERT_EQ(read(bytesOf(a)), a);
      // The target is an operand.
      Region target = a;
      ASSERT_EQ((target |= b) -= b, a - b);
      target = a;
      ASSERT_EQ(target &= b, a & b);

      // What leaves the range is cut off.
      const Point delta(number(-10, 10), number(-10, 10));
      const Rect range(-32768, -32768, 32767, 32767);
      const Region kept = a & Region(range.translate(-delta));
      a.translate(delta);
      ASSERT_EQ(pixelsOf(a, origin + delta), pixelsOf(kept, origin)) << delta.x << "," << delta.y;
    }
  }
}

// Lists long enough for every way to build a region, compared with adding one by one.
TEST(Region, ListsOfManyRectanglesAreTheirUnion) {
  std::mt19937 random(7);
  const auto below = [&](int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit));
  };
  // Small ones, many of a row, and all over the range.
  for (const auto& [place, size] : {Point(500, 20), Point(40, 9), Point(65536, 9000)}) {
    std::vector<Rect> rects;
    Region oneByOne(Rect(-40, -40, 40, 40)), added = oneByOne;
    for (int i = 0; i < 500; ++i) {
      const int x = below(place) - place / 2, y = below(place) - place / 2;
      rects.emplace_back(x, y, x + below(size), y + below(size));
      oneByOne |= Region(rects.back());
    }
    added.addRects(rects);
    EXPECT_EQ(added, oneByOne);
  }
}

TEST(Region, ClampsRectanglesAndDropsEmptyOnes) {
  const Rect range(-32768, -32768, 32767, 32767);
  EXPECT_EQ(Region(Rect(INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX)).boundingRect(), range);
  for (const Rect& empty : {Rect(40000, 0, 50000, 10), Rect(5, 5, 5, 9), Rect(9, 5, 5, 9)}) {
    EXPECT_EQ(Region(empty), Region()) << empty.str();
  }
  Region far(Rect(0, 0, 10, 10));
  far.translate({0, INT32_MAX});
  EXPECT_EQ(far, Region());
}

TEST(Region, UnitesBoxesThatAreNotBanded) {
  Region region;
  // Touching in a band, bands that should be one, out of order, overlapping, empty.
  region.setBanded(Boxes{{5, 0, 9, 5}, {0, 0, 5, 5}, {0, 5, 9, 7}, {2, 1, 3, 6}, {4, 9, 4, 12}});
  EXPECT_EQ(region, Region(Rect(0, 0, 9, 7)));
}

TEST(Region, RoundsOutToAGrid) {
  EXPECT_EQ(Region(Rect(-1, -17, 1, -16)).roundOut(16, 16), Region(Rect(-16, -32, 16, -16)));
  EXPECT_EQ(regionOf({{10, 10, 11, 11}, {20, 14, 21, 15}}).roundOut(16, 8, {3, 5}),
            regionOf({{3, 5, 19, 13}, {19, 13, 35, 21}}));
  const Point far(INT32_MIN, INT32_MIN);
  EXPECT_EQ(Region(Rect(0, 0, 1, 1)).roundOut(INT32_MAX, INT32_MAX, far),
            Region(Rect(-1, -1, 32767, 32767)));
}

TEST(RegionStream, WritesCountExtentsAndBoxes) {
  EXPECT_EQ(bytesOf(Region()), u16s({0, 0, 0, 0, 0}));
  EXPECT_EQ(bytesOf(regionOf({{5, 5, 9, 9}, {-1, 0, 2, 1}, {4, 0, 6, 1}})),
            u16s({3, 0xffff, 0, 9, 9, 0xffff, 0, 2, 1, 4, 0, 6, 1, 5, 5, 9, 9}));

  // A chequered area of 256 by 256 cells has one box more than can be counted.
  Boxes boxes;
  for (int16_t y = 0; y < 256; ++y) {
    for (int16_t x = 0; x < 256; ++x) {
      const auto x1 = static_cast<int16_t>(4 * x + y % 2 * 2);
      boxes.push_back({x1, y, static_cast<int16_t>(x1 + 1), static_cast<int16_t>(y + 1)});
    }
  }
  Region region;
  region.setBanded(boxes);
  EXPECT_EQ(bytesOf(region), u16s({1, 0, 0, 1023, 256}));
  region -= Region(Rect(0, 0, 1, 1));
  ASSERT_EQ(region.numRects(), 65535);
  EXPECT_EQ(read(bytesOf(region)), region);
}

TEST(RegionStream, ReadingGoesOnWhereTheStreamRanShort) {
  const Region expected = regionOf({{0, 0, 5, 5}, {9, 0, 12, 5}, {-3, 7, 4, 9}});
  const Region former(Rect(7, 7, 8, 8));
  support::DripStream in(bytesOf(expected));
  Region::Reader reader;
  Region target = former;
  while (in.arrive(1)) {
    ASSERT_EQ(target, former);
    try {
      reader.read(in, target);
    } catch (const rdr::BlockException&) {
    }
  }
  EXPECT_EQ(target, expected);
}

TEST(Region, IsHandedOutInPieces) {
  const auto pieces = [](const Region& region, int64_t maxPixels, int32_t multipleOf) {
    Region::Pieces left(region, maxPixels, multipleOf);
    std::vector<Rect> all;
    for (Rect piece; left.next(&piece);) all.push_back(piece);
    return all;
  };
  const auto wide = pieces(Rect(0, 0, 1000, 50), 10000, 16);
  ASSERT_EQ(wide.size(), 8u);
  EXPECT_EQ(wide[0], Rect(0, 0, 624, 16));
  EXPECT_EQ(wide[1], Rect(624, 0, 1000, 16));
  EXPECT_EQ(wide[7], Rect(624, 48, 1000, 50));
  const auto tall = pieces(Rect(5, 0, 25, 1000), 10000, 16);
  ASSERT_EQ(tall.size(), 3u);
  EXPECT_EQ(tall[0], Rect(5, 0, 25, 496));
  EXPECT_EQ(tall[2], Rect(5, 992, 25, 1000));
  EXPECT_EQ(pieces(regionOf({{0, 0, 5, 5}, {20, 9, 40, 12}}), 61, 0),
            (std::vector<Rect>{{0, 0, 5, 5}, {20, 9, 40, 12}}))
      << "each whole";
  EXPECT_TRUE(pieces(Region(), 1, 1).empty());
}

TEST(RegionStream, BytesAreNotTrusted) {
  const Region two = regionOf({{0, 0, 1, 1}, {0, 5, 1, 6}});
  EXPECT_EQ(read(u16s({0, 1, 2, 3, 4})), Region(Rect(1, 2, 3, 4))) << "extents alone";
  EXPECT_EQ(read(u16s({1, 9, 9, 5, 5})), Region()) << "inside out";
  EXPECT_EQ(read(u16s({2, 0, 0, 99, 99, 0, 5, 1, 6, 0, 0, 1, 1})), two) << "extents, order";
  EXPECT_EQ(read(u16s({3, 0, 0, 9, 9, 0, 0, 6, 6, 3, 0, 9, 6, 8, 8, 1, 1})),
            Region(Rect(0, 0, 9, 6)))
      << "overlapping, empty";
  // Stripes both ways would take a million rectangles.
  std::string grid = u16s({2000, 0, 0, 0, 0});
  for (int i = 0; i < 1000; ++i) {
    grid += u16s({2 * i, 0, 2 * i + 1, 2000, 0, 2 * i, 2000, 2 * i + 1});
  }
  EXPECT_EQ(read(grid), Region(Rect(0, 0, 2000, 2000)));
}

}  // namespace
}  // namespace rfb

#include "rfb/Region.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "rdr/Exceptions.h"
#include "rdr/MemInStream.h"
#include "rdr/MemOutStream.h"
#include "rfb/RegionModel.h"
#include "support/DripStream.h"
#include "support/Frames.h"

namespace rfb {
namespace {

using test::RegionModel;
using Boxes = std::vector<mi::Box>;

Boxes boxesOf(const Region& region) {
  return {region.boxes().begin(), region.boxes().end()};
}

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
  for (const int value : values) bytes += test::u16(static_cast<unsigned>(value));
  return bytes;
}

Region read(const std::string& bytes) {
  rdr::MemInStream in(bytes.data(), bytes.size());
  Region region(Rect(1, 1, 2, 2));
  region.read(in);
  EXPECT_EQ(in.available(), 0u);
  return region;
}

class RandomRegions : public testing::TestWithParam<Point> {
 protected:
  void SetUp() override {
    const char* given = std::getenv("REGION_SEED");
    const unsigned seed =
        given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
    RecordProperty("seed", std::to_string(seed));
    std::cout << "seed " << seed << " (set REGION_SEED to repeat)\n";
    random_.seed(seed);
  }

  int number(int from, int to) { return std::uniform_int_distribution<int>(from, to)(random_); }

  Rect randomRect(int maxSize) {
    const int x = origin().x + number(0, RegionModel::kSize - 1);
    const int y = origin().y + number(0, RegionModel::kSize - 1);
    const Point limit = origin() + Point(RegionModel::kSize, RegionModel::kSize);
    return {x, y, std::min(x + number(0, maxSize), limit.x),
            std::min(y + number(0, maxSize), limit.y)};
  }

  void randomise(Region& region, RegionModel& model) {
    std::vector<Rect> rects(static_cast<size_t>(number(0, 12)));
    const int maxSize = number(1, RegionModel::kSize);
    for (Rect& rect : rects) {
      rect = randomRect(maxSize);
      model.add(rect);
    }
    region.addRects(rects);
  }

  const Point& origin() const { return GetParam(); }

  std::mt19937 random_;
};

TEST_P(RandomRegions, CombineLikeTheirPixels) {
  for (int i = 0; i < 500; i++) {
    Region a, b;
    RegionModel modelA(origin()), modelB(origin());
    randomise(a, modelA);
    randomise(b, modelB);
    ASSERT_EQ(boxesOf(a), modelA.boxes());

    const auto all = RegionModel(origin()).fill(
        [&](int x, int y) { return modelA.at(x, y) || modelB.at(x, y); });
    const auto common = RegionModel(origin()).fill(
        [&](int x, int y) { return modelA.at(x, y) && modelB.at(x, y); });
    const auto rest = RegionModel(origin()).fill(
        [&](int x, int y) { return modelA.at(x, y) && !modelB.at(x, y); });
    ASSERT_EQ(boxesOf(a | b), all.boxes());
    ASSERT_EQ(boxesOf(a & b), common.boxes());
    ASSERT_EQ(boxesOf(a - b), rest.boxes());

    Rect bounds;
    for (const Rect& rect : a.rects()) bounds = bounds.unionBoundary(rect);
    ASSERT_EQ(a.boundingRect(), bounds);

    // The target is an operand, or holds another list.
    Region target = a;
    target |= b;
    ASSERT_EQ(target, a | b);
    target -= b;
    ASSERT_EQ(target, a - b);
    target = b;
    target &= a;
    ASSERT_EQ(target, a & b);
    ASSERT_EQ(a == b, modelA.boxes() == modelB.boxes());
    ASSERT_EQ(read(bytesOf(a)), a);
  }
}

TEST_P(RandomRegions, MoveAndClampLikeTheirPixels) {
  for (int i = 0; i < 500; i++) {
    Region region;
    RegionModel model(origin());
    randomise(region, model);
    const Point delta(number(-10, 10), number(-10, 10));
    RegionModel moved(origin() + delta);
    moved.fill([&](int x, int y) {
      return x >= -32768 && x < 32767 && y >= -32768 && y < 32767 &&
             model.at(x - delta.x, y - delta.y);
    });
    region.translate(delta);
    ASSERT_EQ(boxesOf(region), moved.boxes()) << delta.x << "," << delta.y;
  }
}

INSTANTIATE_TEST_SUITE_P(Places, RandomRegions,
                         testing::Values(Point(0, 0), Point(-12, -12), Point(-32768, -32768),
                                         Point(32767 - RegionModel::kSize,
                                               32767 - RegionModel::kSize)));

// Lists long enough for every way to build a region, compared with adding one by one.
TEST(Region, ListsOfManyRectanglesAreTheirUnion) {
  struct Shape {
    int count, width, height, maxWidth, maxHeight;
  };
  std::mt19937 random(7);
  const auto below = [&](int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit));
  };
  for (const Shape& s : {Shape{600, 500, 500, 20, 20}, Shape{400, 65536, 65536, 9000, 9000},
                         Shape{500, 300, 4, 60, 3}, Shape{500, 4, 300, 3, 60}}) {
    std::vector<Rect> rects;
    Region oneByOne;
    for (int i = 0; i < s.count; i++) {
      const int x = below(s.width) - s.width / 2, y = below(s.height) - s.height / 2;
      rects.emplace_back(x, y, x + below(s.maxWidth), y + below(s.maxHeight));
      oneByOne |= Region(rects.back());
    }
    Region region, added(Rect(-40, -40, 40, 40));
    region.addRects(rects);
    EXPECT_EQ(region, oneByOne);
    added.addRects(rects);
    EXPECT_EQ(added, oneByOne | Region(Rect(-40, -40, 40, 40)));
  }
}

TEST(Region, ClampsRectanglesAndDropsEmptyOnes) {
  struct Case {
    Rect given, expected;
  };
  for (const Case& c :
       {Case{{-40000, -5, 40000, 5}, {-32768, -5, 32767, 5}},
        Case{{INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX}, {-32768, -32768, 32767, 32767}},
        Case{{40000, 0, 50000, 10}, {}}, Case{{5, 5, 5, 9}, {}}, Case{{9, 5, 5, 9}, {}}}) {
    const Region region(c.given);
    EXPECT_EQ(region.boundingRect(), c.expected) << c.given.str();
    EXPECT_EQ(region.numRects(), c.expected.isEmpty() ? 0 : 1);
    EXPECT_EQ(region, regionOf({c.given}));
    EXPECT_EQ(region.isEmpty(), region == Region());
  }
}

TEST(Region, TakesBandedBoxesAsTheyAreAndUnitesOthers) {
  const Boxes banded{{0, 0, 5, 5}, {7, 0, 9, 5}, {0, 5, 9, 6}};
  Region region;
  region.setBanded(banded);
  EXPECT_EQ(boxesOf(region), banded);
  region.setBanded(Boxes{{3, 3, 4, 4}});
  EXPECT_EQ(region, Region(Rect(3, 3, 4, 4)));
  region.setBanded({});
  EXPECT_TRUE(region.isEmpty());
  EXPECT_EQ(region.boundingRect(), Rect());

  // Touching in a band, bands that should be one, out of order, overlapping, empty.
  region.setBanded(Boxes{{5, 0, 9, 5}, {0, 0, 5, 5}, {0, 5, 9, 7}, {2, 1, 3, 6}, {4, 9, 4, 12}});
  EXPECT_EQ(region, Region(Rect(0, 0, 9, 7)));
}

TEST(Region, TranslateByMoreThanTheRange) {
  Region region = regionOf({{0, 0, 10, 10}, {20, 0, 30, 10}});
  region.translate({0, INT32_MAX});
  EXPECT_TRUE(region.isEmpty());
  EXPECT_EQ(region.boundingRect(), Rect());
  region = Region(Rect(-5, -32760, 5, -32750));
  region.translate({INT32_MIN, INT32_MIN});
  EXPECT_TRUE(region.isEmpty());
}

TEST(Region, RoundOutClamps) {
  struct Case {
    Rect given;
    int cw, ch;
    Point origin;
    Rect expected;
  };
  for (const Case& c :
       {Case{{1, 1, 2, 2}, 16, 16, {0, 0}, {0, 0, 16, 16}},
        Case{{16, 32, 32, 48}, 16, 16, {0, 0}, {16, 32, 32, 48}},
        Case{{-1, -17, 1, -16}, 16, 16, {0, 0}, {-16, -32, 16, -16}},
        Case{{10, 10, 11, 11}, 16, 8, {3, 5}, {3, 5, 19, 13}},
        Case{{-5, -5, -4, -4}, 4, 4, {1, 1}, {-7, -7, -3, -3}},
        Case{{32760, 0, 32767, 1}, 16, 16, {0, 0}, {32752, 0, 32767, 16}},
        Case{{-32768, -32768, -32767, -32767}, 100, 100, {0, 0}, {-32768, -32768, -32700, -32700}},
        Case{{0, 0, 1, 1}, INT32_MAX, INT32_MAX, {INT32_MIN, INT32_MIN}, {-1, -1, 32767, 32767}}}) {
    EXPECT_EQ(Region(c.given).roundOut(c.cw, c.ch, c.origin), Region(c.expected)) << c.given.str();
  }
  EXPECT_EQ(regionOf({{1, 1, 2, 2}, {17, 3, 18, 4}}).roundOut(16, 16), Region(Rect(0, 0, 32, 16)));
}

TEST(RegionPieces, CutRectanglesToTheLimit) {
  struct Case {
    Rect rect;
    int64_t maxPixels;
    int multipleOf;
    std::vector<Rect> expected;
  };
  std::vector<Rect> wide, tall;
  for (int y = 0; y < 50; y += 16) {
    wide.emplace_back(0, y, 624, std::min(y + 16, 50));
    wide.emplace_back(624, y, 1000, std::min(y + 16, 50));
  }
  for (int y = 0; y < 1000; y += 496) tall.emplace_back(0, y, 20, std::min(y + 496, 1000));
  const std::vector<Case> cases{
      {{0, 0, 1000, 50}, 10000, 16, wide},
      {{0, 0, 20, 1000}, 10000, 16, tall},
      {{3, 4, 8, 8}, 21, 0, {{3, 4, 8, 8}}},
      {{3, 4, 8, 8}, 20, 4, {{3, 4, 7, 8}, {7, 4, 8, 8}}},  // as many: cut all the same
      {{0, 0, 20, 20}, 0, 16, {{0, 0, 16, 16}, {16, 0, 20, 16}, {0, 16, 16, 20}, {16, 16, 20, 20}}},
      {{0, 0, 4, 20}, 8, 16, {{0, 0, 4, 16}, {0, 16, 4, 20}}},
      {{-5, -5, 3, -2}, -1, INT32_MAX, {{-5, -5, 3, -2}}},
  };
  for (const Case& c : cases) {
    const Region region(c.rect);
    Region::Pieces pieces(region, c.maxPixels, c.multipleOf);
    std::vector<Rect> got;
    for (Rect piece; got.size() < 100 && pieces.next(&piece);) got.push_back(piece);
    EXPECT_EQ(got, c.expected) << c.rect.str() << " " << c.maxPixels;
  }

  // Each rectangle is judged by itself; the largest one has more pixels than 32 bits can count.
  const Region two = regionOf({{0, 0, 4, 4}, {0, 8, 8, 9}});
  Region::Pieces pieces(two, 9, 2);
  std::vector<Rect> got;
  for (Rect piece; pieces.next(&piece);) got.push_back(piece);
  EXPECT_EQ(got, (std::vector<Rect>{{0, 0, 4, 2}, {0, 2, 4, 4}, {0, 8, 8, 9}}));
  const Region everything(Rect(-32768, -32768, 32767, 32767));
  Rect piece;
  EXPECT_TRUE(Region::Pieces(everything, 4294836225, 32768).next(&piece));
  EXPECT_EQ(piece, Rect(-32768, -32768, 32767, 0));
}

TEST(RegionStream, WritesCountExtentsAndBoxes) {
  EXPECT_EQ(bytesOf(Region()), u16s({0, 0, 0, 0, 0}));
  EXPECT_EQ(bytesOf(Region(Rect(-1, 2, 3, 32767))), u16s({1, 0xffff, 2, 3, 32767}));
  EXPECT_EQ(bytesOf(regionOf({{5, 5, 9, 9}, {0, 0, 2, 1}, {4, 0, 6, 1}})),
            u16s({3, 0, 0, 9, 9, 0, 0, 2, 1, 4, 0, 6, 1, 5, 5, 9, 9}));
}

TEST(RegionStream, TooManyRectanglesAreWrittenAsTheirExtents) {
  // A chequered area of 256 by 256 cells and one more below.
  Boxes boxes;
  for (int16_t y = 0; y < 256; y++) {
    for (int16_t x = 0; x < 256; x++) {
      const auto x1 = static_cast<int16_t>(4 * x + y % 2 * 2);
      boxes.push_back({x1, y, static_cast<int16_t>(x1 + 1), static_cast<int16_t>(y + 1)});
    }
  }
  Region region;
  region.setBanded(boxes);
  ASSERT_EQ(region.numRects(), 65536);
  EXPECT_EQ(bytesOf(region), u16s({1, 0, 0, 1023, 256}));
  region -= Region(Rect(0, 0, 1, 1));
  ASSERT_EQ(region.numRects(), 65535);
  EXPECT_EQ(read(bytesOf(region)), region);
}

TEST(RegionStream, ReadingGoesOnWhereTheStreamRanShort) {
  const Region regions[] = {regionOf({{0, 0, 5, 5}, {9, 0, 12, 5}, {-3, 7, 4, 9}}), Region(),
                            Region(Rect(1, 2, 3, 4))};
  std::string bytes;
  for (const Region& region : regions) bytes += bytesOf(region);
  test::DripStream in(bytes);
  Region::Reader reader;
  size_t blocked = 0;
  for (const Region& expected : regions) {
    const Region former(Rect(7, 7, 8, 8));
    Region target = former;
    for (bool complete = false; !complete;) {
      try {
        reader.read(in, target);
        complete = true;
      } catch (const rdr::BlockException&) {
        blocked++;
        ASSERT_EQ(target, former);
        in.arrive(1);
      }
    }
    EXPECT_FALSE(reader.inProgress());
    EXPECT_EQ(target, expected);
  }
  EXPECT_EQ(blocked, bytes.size());
}

TEST(RegionStream, BytesAreNotTrusted) {
  struct Case {
    const char* what;
    std::string bytes;
    Region expected;
  };
  const Case cases[] = {
      {"no boxes but extents", u16s({0, 1, 2, 3, 4}), Region(Rect(1, 2, 3, 4))},
      {"one box, empty", u16s({1, 5, 5, 5, 9}), Region()},
      {"inside out", u16s({1, 9, 9, 5, 5}), Region()},
      {"wrong extents", u16s({2, 0, 0, 99, 99, 0, 0, 1, 1, 0, 5, 1, 6}),
       regionOf({{0, 0, 1, 1}, {0, 5, 1, 6}})},
      {"unordered", u16s({2, 0, 0, 1, 6, 0, 5, 1, 6, 0, 0, 1, 1}),
       regionOf({{0, 0, 1, 1}, {0, 5, 1, 6}})},
      {"overlapping", u16s({2, 0, 0, 9, 9, 0, 0, 6, 6, 3, 0, 9, 6}), Region(Rect(0, 0, 9, 6))},
      {"touching bands", u16s({2, 0, 0, 9, 9, 0, 0, 9, 5, 0, 5, 9, 9}), Region(Rect(0, 0, 9, 9))},
      {"empty boxes", u16s({3, 0, 0, 9, 9, 4, 4, 4, 4, 0, 5, 9, 9, 8, 8, 1, 1}),
       Region(Rect(0, 5, 9, 9))},
      {"all empty", u16s({2, 0, 0, 9, 9, 4, 4, 4, 4, 8, 8, 1, 1}), Region()},
  };
  for (const Case& c : cases) EXPECT_EQ(read(c.bytes), c.expected) << c.what;

  // Stripes both ways would take a million rectangles.
  std::string grid = u16s({2000, 0, 0, 0, 0});
  for (int i = 0; i < 1000; i++)
    grid += u16s({2 * i, 0, 2 * i + 1, 2000, 0, 2 * i, 2000, 2 * i + 1});
  EXPECT_EQ(read(grid), Region(Rect(0, 0, 2000, 2000)));
}

TEST(Region, DebugTextNamesEachRectangle) {
  EXPECT_EQ(regionOf({{-1, 0, 2, 1}, {4, 0, 6, 1}}).debugText(),
            "num rects   2 extents -1,0 to 6,1\n    rect -1,0 to 2,1\n    rect 4,0 to 6,1\n");
}

}  // namespace
}  // namespace rfb

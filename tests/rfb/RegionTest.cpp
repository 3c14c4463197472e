#include "rfb/Region.h"

#include <gtest/gtest.h>

#include <random>
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

// A square of pixels, each in or out: what a region means, without any of its cleverness.
class RegionModel {
 public:
  static constexpr int kSize = 24;

  explicit RegionModel(Point origin) : origin_(origin), pixels_(kSize * kSize) {}

  bool at(int x, int y) const {
    const Point p = Point(x, y) - origin_;
    return Rect(0, 0, kSize, kSize).contains(p) && pixels_[index(p.x, p.y)];
  }
  template <typename F>
  RegionModel& fill(const F& inside) {
    for (int y = 0; y < kSize; ++y) {
      for (int x = 0; x < kSize; ++x) pixels_[index(x, y)] = inside(x + origin_.x, y + origin_.y);
    }
    return *this;
  }
  void add(const Rect& r) {
    fill([&](int x, int y) { return at(x, y) || r.contains({x, y}); });
  }

  // The only list of boxes that obeys the banding rule and covers these pixels.
  Boxes boxes() const {
    Boxes all, above;
    for (int y = 0; y <= kSize; ++y) {
      Boxes row;
      for (int x = 0; y < kSize && x < kSize; ++x) {
        if (!pixels_[index(x, y)]) continue;
        const int x1 = x;
        while (x < kSize && pixels_[index(x, y)]) x++;
        const Rect run(x1, y, x, y + 1);
        row.push_back(RgnRect(run.translate(origin_)).box);
      }
      bool same = row.size() == above.size();
      for (size_t i = 0; same && i < row.size(); ++i) {
        same = row[i].x1 == above[i].x1 && row[i].x2 == above[i].x2;
      }
      for (mi::Box& box : above) box.y2 = static_cast<int16_t>(box.y2 + same);
      if (same) continue;
      all.insert(all.end(), above.begin(), above.end());
      above = row;
    }
    return all;
  }

 private:
  static size_t index(int x, int y) { return static_cast<size_t>(y * kSize + x); }

  Point origin_;
  std::vector<bool> pixels_;
};

TEST(Region, CombinesAndMovesLikeItsPixels) {
  std::mt19937 random(20);
  const auto number = [&](int from, int to) {
    return std::uniform_int_distribution<int>(from, to)(random);
  };
  constexpr int kSize = RegionModel::kSize;
  for (const Point& origin :
       {Point(-12, -12), Point(-32768, -32768), Point(32767 - kSize, 32767 - kSize)}) {
    SCOPED_TRACE(origin.x);
    const auto randomise = [&](Region& region, RegionModel& model) {
      std::vector<Rect> rects(static_cast<size_t>(number(0, 12)));
      const int maxSize = number(1, kSize);
      for (Rect& rect : rects) {
        const Point at = origin + Point(number(0, kSize - 1), number(0, kSize - 1));
        const Rect square(origin, origin + Point(kSize, kSize));
        rect = Rect(at, at + Point(number(0, maxSize), number(0, maxSize))).intersect(square);
        model.add(rect);
      }
      region.addRects(rects);
    };
    for (int i = 0; i < 400; ++i) {
      Region a, b;
      RegionModel modelA(origin), modelB(origin);
      randomise(a, modelA);
      randomise(b, modelB);
      ASSERT_EQ(boxesOf(a), modelA.boxes());
      const auto combined = [&](auto inside) {
        return RegionModel(origin)
            .fill([&](int x, int y) { return inside(modelA.at(x, y), modelB.at(x, y)); })
            .boxes();
      };
      ASSERT_EQ(boxesOf(a | b), combined([](bool inA, bool inB) { return inA || inB; }));
      ASSERT_EQ(boxesOf(a & b), combined([](bool inA, bool inB) { return inA && inB; }));
      ASSERT_EQ(boxesOf(a - b), combined([](bool inA, bool inB) { return inA && !inB; }));
      Rect bounds;
      for (const Rect& rect : a.rects()) bounds = bounds.unionBoundary(rect);
      ASSERT_EQ(a.boundingRect(), bounds);
      ASSERT_EQ(a == b, modelA.boxes() == modelB.boxes());
      ASSERT_EQ(read(bytesOf(a)), a);

      // The target is an operand.
      Region target = a;
      target |= b;
      ASSERT_EQ(target, a | b);
      target -= b;
      ASSERT_EQ(target, a - b);

      // What leaves the range is cut off.
      const Point delta(number(-10, 10), number(-10, 10));
      RegionModel moved(origin + delta);
      moved.fill([&](int x, int y) {
        return x >= -32768 && x < 32767 && y >= -32768 && y < 32767 &&
               modelA.at(x - delta.x, y - delta.y);
      });
      a.translate(delta);
      ASSERT_EQ(boxesOf(a), moved.boxes()) << delta.x << "," << delta.y;
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
  EXPECT_EQ(Region(Rect(-40000, -5, 40000, 5)).boundingRect(), Rect(-32768, -5, 32767, 5));
  EXPECT_EQ(Region(Rect(INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX)).boundingRect(), range);
  for (const Rect& empty : {Rect(40000, 0, 50000, 10), Rect(5, 5, 5, 9), Rect(9, 5, 5, 9)}) {
    EXPECT_EQ(Region(empty), Region()) << empty.str();
    EXPECT_EQ(regionOf({empty}).boundingRect(), Rect()) << empty.str();
  }
  Region far = regionOf({{0, 0, 10, 10}, {20, 0, 30, 10}});
  far.translate({0, INT32_MAX});
  EXPECT_EQ(far, Region());
}

TEST(Region, TakesBandedBoxesAsTheyAreAndUnitesOthers) {
  Region region;
  region.setBanded(Boxes{{0, 0, 5, 5}, {7, 0, 9, 5}});
  EXPECT_EQ(region.debugText(),
            "num rects   2 extents 0,0 to 9,5\n    rect 0,0 to 5,5\n    rect 7,0 to 9,5\n");
  region.setBanded({});
  EXPECT_EQ(region, Region());
  // Touching in a band, bands that should be one, out of order, overlapping, empty.
  region.setBanded(Boxes{{5, 0, 9, 5}, {0, 0, 5, 5}, {0, 5, 9, 7}, {2, 1, 3, 6}, {4, 9, 4, 12}});
  EXPECT_EQ(region, Region(Rect(0, 0, 9, 7)));
}

TEST(Region, RoundsOutToAGrid) {
  struct Case {
    Rect given;
    int cw, ch;
    Point origin;
    Rect expected;
  };
  for (const Case& c :
       {Case{{-1, -17, 1, -16}, 16, 16, {0, 0}, {-16, -32, 16, -16}},
        Case{{10, 10, 11, 11}, 16, 8, {3, 5}, {3, 5, 19, 13}},
        Case{{32760, 0, 32767, 1}, 16, 16, {0, 0}, {32752, 0, 32767, 16}},
        Case{{0, 0, 1, 1}, INT32_MAX, INT32_MAX, {INT32_MIN, INT32_MIN}, {-1, -1, 32767, 32767}}}) {
    EXPECT_EQ(Region(c.given).roundOut(c.cw, c.ch, c.origin), Region(c.expected)) << c.given.str();
  }
  EXPECT_EQ(regionOf({{1, 1, 2, 2}, {17, 3, 18, 4}}).roundOut(16, 16), Region(Rect(0, 0, 32, 16)));
}

TEST(RegionPieces, CutRectanglesToTheLimit) {
  const struct {
    Region region;
    int64_t maxPixels;
    int multipleOf;
    std::vector<Rect> expected;
  } cases[] = {
      {Rect(0, 0, 20, 6), 60, 4, {{0, 0, 12, 4}, {12, 0, 20, 4}, {0, 4, 12, 6}, {12, 4, 20, 6}}},
      {Rect(0, 0, 20, 100), 1000, 8, {{0, 0, 20, 48}, {0, 48, 20, 96}, {0, 96, 20, 100}}},
      {Rect(3, 4, 8, 8), 20, 4, {{3, 4, 7, 8}, {7, 4, 8, 8}}},  // as many: cut all the same
      {Rect(0, 0, 20, 16), 0, 16, {{0, 0, 16, 16}, {16, 0, 20, 16}}},
      {Rect(0, 0, 4, 20), 8, 16, {{0, 0, 4, 16}, {0, 16, 4, 20}}},
      // Each rectangle is judged by itself.
      {regionOf({{0, 0, 4, 4}, {0, 8, 8, 9}}), 9, 2, {{0, 0, 4, 2}, {0, 2, 4, 4}, {0, 8, 8, 9}}},
      // More pixels than 32 bits can count.
      {Rect(-32768, -32768, 32767, 32767),
       4294836225,
       32768,
       {{-32768, -32768, 32767, 0}, {-32768, 0, 32767, 32767}}},
  };
  for (const auto& c : cases) {
    Region::Pieces pieces(c.region, c.maxPixels, c.multipleOf);
    std::vector<Rect> got;
    for (Rect piece; got.size() < 100 && pieces.next(&piece);) got.push_back(piece);
    EXPECT_EQ(got, c.expected) << c.region.debugText() << c.maxPixels;
  }
}

TEST(RegionStream, WritesCountExtentsAndBoxes) {
  EXPECT_EQ(bytesOf(Region()), u16s({0, 0, 0, 0, 0}));
  EXPECT_EQ(bytesOf(Region(Rect(-1, 2, 3, 32767))), u16s({1, 0xffff, 2, 3, 32767}));
  EXPECT_EQ(bytesOf(regionOf({{5, 5, 9, 9}, {0, 0, 2, 1}, {4, 0, 6, 1}})),
            u16s({3, 0, 0, 9, 9, 0, 0, 2, 1, 4, 0, 6, 1, 5, 5, 9, 9}));

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
  const Region regions[] = {regionOf({{0, 0, 5, 5}, {9, 0, 12, 5}, {-3, 7, 4, 9}}), Region()};
  const Region former(Rect(7, 7, 8, 8));
  support::DripStream in(bytesOf(regions[0]) + bytesOf(regions[1]));
  Region::Reader reader;
  for (const Region& expected : regions) {
    Region target = former;
    for (bool complete = false; !complete;) {
      try {
        reader.read(in, target);
        complete = true;
      } catch (const rdr::BlockException&) {
        ASSERT_EQ(target, former);
        in.arrive(1);
      }
    }
    EXPECT_FALSE(reader.inProgress());
    EXPECT_EQ(target, expected);
  }
  EXPECT_FALSE(in.arrive(1));
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

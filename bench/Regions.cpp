// Region algebra beside pixman's on the same rectangles.

#include <benchmark/benchmark.h>
#include <pixman.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "RatioReporter.h"
#include "Xregion/miregion.h"

namespace {

using Boxes = std::vector<mi::Box>;

enum class Shape { kScattered, kText, kGrid, kChequered, kBig };
enum class Operation { kUnite, kIntersect, kSubtract };

mi::Box box(int x, int y, int width, int height) {
  return {static_cast<int16_t>(x), static_cast<int16_t>(y), static_cast<int16_t>(x + width),
          static_cast<int16_t>(y + height)};
}

// About count rectangles on a screen that grows with their number.
Boxes makeBoxes(Shape shape, int count, unsigned seed) {
  std::mt19937 random(seed);
  const auto upTo = [&](int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit)) + 1;
  };
  const int side = static_cast<int>(std::lround(std::sqrt(count)));
  const int shift = static_cast<int>(seed % 7);
  Boxes boxes;
  switch (shape) {
    case Shape::kScattered:
      for (int i = 0; i < count; ++i) {
        boxes.push_back(box(upTo(side * 40), upTo(side * 22), upTo(30), upTo(20)));
      }
      break;
    case Shape::kText:  // words of several lengths on lines of one height
      for (int y = shift; static_cast<int>(boxes.size()) < count; y += 16) {
        for (int x = upTo(20), i = 0; i < 20 && static_cast<int>(boxes.size()) < count; ++i) {
          boxes.push_back(box(x, y, 8 * upTo(10), 14));
          x = boxes.back().x2 + 8;
        }
      }
      break;
    case Shape::kGrid:
      for (int i = 0; i < count; ++i) {
        boxes.push_back(box(shift + i % side * 32, shift + i / side * 32, 20, 20));
      }
      break;
    case Shape::kChequered:
      for (int i = 0; i < count; ++i) {
        const int row = i / side;
        boxes.push_back(box(shift * 2 + (i % side * 2 + row % 2) * 16, row * 16, 16, 16));
      }
      break;
    case Shape::kBig:
      for (int i = 0; i < count; ++i) {
        boxes.push_back(box(upTo(1600), upTo(900), 100 + upTo(800), 100 + upTo(500)));
      }
      break;
  }
  return boxes;
}

const pixman_box16_t* pixmanBoxes(const Boxes& boxes) {
  static_assert(sizeof(pixman_box16_t) == sizeof(mi::Box));
  return reinterpret_cast<const pixman_box16_t*>(boxes.data());
}

class PixmanRegion {
 public:
  PixmanRegion() { pixman_region_init(&region); }
  explicit PixmanRegion(const Boxes& boxes) {
    pixman_region_init_rects(&region, pixmanBoxes(boxes), static_cast<int>(boxes.size()));
  }
  ~PixmanRegion() { pixman_region_fini(&region); }
  PixmanRegion(const PixmanRegion&) = delete;
  PixmanRegion& operator=(const PixmanRegion&) = delete;

  pixman_region16_t region;
};

mi::Region uniteAll(const Boxes& boxes) {
  mi::Region region;
  region.setUnion(boxes);
  return region;
}

void combine(Operation operation, mi::Region& target, const mi::Region& a, const mi::Region& b) {
  switch (operation) {
    case Operation::kUnite:
      target.unite(a, b);
      break;
    case Operation::kIntersect:
      target.intersect(a, b);
      break;
    case Operation::kSubtract:
      target.subtract(a, b);
      break;
  }
}

void combine(Operation operation, PixmanRegion& target, PixmanRegion& a, PixmanRegion& b) {
  switch (operation) {
    case Operation::kUnite:
      pixman_region_union(&target.region, &a.region, &b.region);
      break;
    case Operation::kIntersect:
      pixman_region_intersect(&target.region, &a.region, &b.region);
      break;
    case Operation::kSubtract:
      pixman_region_subtract(&target.region, &a.region, &b.region);
      break;
  }
}

// A ratio of times means nothing unless both did the same.
void mustEqual(const mi::Region& ours, PixmanRegion& theirs) {
  int count = 0;
  const pixman_box16_t* boxes = pixman_region_rectangles(&theirs.region, &count);
  bool same = count == ours.numRects();
  for (int i = 0; same && i < count; ++i) {
    const mi::Box& mine = ours.boxes()[static_cast<size_t>(i)];
    same = mine == mi::Box{boxes[i].x1, boxes[i].y1, boxes[i].x2, boxes[i].y2};
  }
  if (same) return;
  std::cerr << "The regions differ.\n";
  std::exit(1);
}

constexpr unsigned kFirst = 1;
constexpr unsigned kSecond = 2;

void ours(benchmark::State& state, Shape shape, Operation operation) {
  const int count = static_cast<int>(state.range(0));
  const Boxes boxesA = makeBoxes(shape, count, kFirst), boxesB = makeBoxes(shape, count, kSecond);
  const mi::Region a = uniteAll(boxesA), b = uniteAll(boxesB);
  mi::Region target;
  for (auto _ : state) {
    combine(operation, target, a, b);
    benchmark::DoNotOptimize(target.numRects());
  }
  PixmanRegion theirs, theirA(boxesA), theirB(boxesB);
  combine(operation, theirs, theirA, theirB);
  mustEqual(target, theirs);
  state.counters["boxes"] = target.numRects();
}

void pixman(benchmark::State& state, Shape shape, Operation operation) {
  const int count = static_cast<int>(state.range(0));
  PixmanRegion target, a(makeBoxes(shape, count, kFirst)), b(makeBoxes(shape, count, kSecond));
  for (auto _ : state) {
    combine(operation, target, a, b);
    benchmark::DoNotOptimize(pixman_region_n_rects(&target.region));
  }
}

void oursBuild(benchmark::State& state, Shape shape) {
  const Boxes boxes = makeBoxes(shape, static_cast<int>(state.range(0)), kFirst);
  for (auto _ : state) benchmark::DoNotOptimize(uniteAll(boxes).numRects());
  PixmanRegion theirs(boxes);
  mustEqual(uniteAll(boxes), theirs);
}

void pixmanBuild(benchmark::State& state, Shape shape) {
  const Boxes boxes = makeBoxes(shape, static_cast<int>(state.range(0)), kFirst);
  for (auto _ : state) {
    PixmanRegion region(boxes);
    benchmark::DoNotOptimize(pixman_region_n_rects(&region.region));
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::pair<const char*, Shape> shapes[] = {{"scattered", Shape::kScattered},
                                                  {"text", Shape::kText},
                                                  {"grid", Shape::kGrid},
                                                  {"chequered", Shape::kChequered},
                                                  {"big", Shape::kBig}};
  const std::pair<const char*, Operation> operations[] = {{"unite", Operation::kUnite},
                                                          {"intersect", Operation::kIntersect},
                                                          {"subtract", Operation::kSubtract}};
  for (const auto& [shapeName, shape] : shapes) {
    for (const int count : {10, 100, 1000, 10000}) {
      for (const auto& [name, operation] : operations) {
        const std::string what = std::string(shapeName) + "-" + name;
        benchmark::RegisterBenchmark((what + "/ours").c_str(), ours, shape, operation)->Arg(count);
        benchmark::RegisterBenchmark((what + "/pixman").c_str(), pixman, shape, operation)
            ->Arg(count);
      }
      const std::string what = std::string(shapeName) + "-build";
      benchmark::RegisterBenchmark((what + "/ours").c_str(), oursBuild, shape)->Arg(count);
      benchmark::RegisterBenchmark((what + "/pixman").c_str(), pixmanBuild, shape)->Arg(count);
    }
  }
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
}

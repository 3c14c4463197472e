// Comparing a 1920 by 1080 frame with its copy, beside one memcmp of the whole frame (and, where
// all of it changed, one memcpy more).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "RatioReporter.h"
#include "rfb/PixelBufferComparer.h"

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

enum class Change { kNone, kWords, kEverything };

rfb::PixelFormat formatOf(int bitsPerPixel) {
  if (bitsPerPixel == 16) return {16, 16, false, true, 31, 63, 31, 11, 5, 0};
  return {32, 24, false, true, 255, 255, 255, 16, 8, 0};
}

class Frame {
 public:
  explicit Frame(int bitsPerPixel)
      : pixels_(static_cast<size_t>(kWidth * kHeight * bitsPerPixel / 8)),
        buffer_(formatOf(bitsPerPixel), rfb::Rect(0, 0, kWidth, kHeight), pixels_.data()),
        rowBytes_(static_cast<size_t>(kWidth * bitsPerPixel / 8)) {
    for (size_t i = 0; i < pixels_.size(); ++i) pixels_[i] = static_cast<uint8_t>(i * 31 >> 3);
  }

  void change(Change change) {
    switch (change) {
      case Change::kNone:
        break;
      case Change::kWords:  // fifty spots all over the frame
        for (size_t i = 0; i < 50; ++i) pixels_[(20 + 21 * i) * rowBytes_ + 67 * i]++;
        break;
      case Change::kEverything:
        for (size_t i = 0; i < pixels_.size(); i += 16) pixels_[i]++;
        break;
    }
  }

  const std::vector<uint8_t>& pixels() const { return pixels_; }
  size_t rowBytes() const { return rowBytes_; }
  rfb::PixelBuffer& buffer() { return buffer_; }

 private:
  std::vector<uint8_t> pixels_;
  rfb::FullFramePixelBuffer buffer_;
  size_t rowBytes_;
};

// Changes before a round are not part of its time.
template <typename Round>
void run(benchmark::State& state, Frame& frame, Change change, const Round& round) {
  for (auto _ : state) {
    if (change != Change::kNone) {
      state.PauseTiming();
      frame.change(change);
      state.ResumeTiming();
    }
    round();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(frame.pixels().size()));
}

void ours(benchmark::State& state, Change change) {
  Frame frame(static_cast<int>(state.range(0)));
  rfb::PixelBufferComparer comparer;
  comparer.setSource(&frame.buffer());
  const rfb::Region whole(frame.buffer().getRect());
  comparer.compare(whole);
  int32_t found = 0;
  run(state, frame, change, [&] { found = comparer.compare(whole).numRects(); });
  if ((change == Change::kNone) != (found == 0)) {
    std::cerr << "The comparer found " << found << " rectangles.\n";
    std::exit(1);
  }
}

void memcmpAlone(benchmark::State& state, Change change) {
  Frame frame(static_cast<int>(state.range(0)));
  std::vector<uint8_t> copy = frame.pixels();
  const std::vector<uint8_t>& pixels = frame.pixels();
  run(state, frame, change, [&] {
    if (change == Change::kNone) {
      benchmark::DoNotOptimize(std::memcmp(pixels.data(), copy.data(), copy.size()));
    } else {
      // memcmp stops at the first change: row by row it reads nearly all the same.
      for (size_t at = 0; at < copy.size(); at += frame.rowBytes()) {
        benchmark::DoNotOptimize(std::memcmp(&pixels[at], &copy[at], frame.rowBytes()));
        if (change == Change::kEverything) std::memcpy(&copy[at], &pixels[at], frame.rowBytes());
      }
    }
    benchmark::ClobberMemory();
  });
}

}  // namespace

int main(int argc, char** argv) {
  const std::pair<const char*, Change> changes[] = {
      {"unchanged", Change::kNone}, {"words", Change::kWords}, {"all", Change::kEverything}};
  for (const auto& [name, change] : changes) {
    for (const int bitsPerPixel : {32, 16}) {
      const std::string what = name;
      benchmark::RegisterBenchmark((what + "/ours").c_str(), ours, change)->Arg(bitsPerPixel);
      benchmark::RegisterBenchmark((what + "/memcmp").c_str(), memcmpAlone, change)
          ->Arg(bitsPerPixel);
    }
  }
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
}

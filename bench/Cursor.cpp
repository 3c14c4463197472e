// Drawing a cursor onto a frame, beside pixman's OVER of the same pixels.

#include <benchmark/benchmark.h>
#include <pixman.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "RatioReporter.h"
#include "rfb/CursorWithAlpha.h"

namespace {

const rfb::PixelFormat kScreenFormat(32, 24, false, true, 255, 255, 255, 16, 8, 0);

// What a cursor's pixels are like decides how much there is to blend.
enum class Kind { kDisc, kBlended };

// Premultiplied argb: a filled disc with a soft edge, or alpha everywhere.
std::vector<uint32_t> cursorPixels(int size, Kind kind) {
  std::vector<uint32_t> pixels;
  for (int y = 0; y < size; ++y) {
    for (int x = 0; x < size; ++x) {
      const int dx = 2 * x - size, dy = 2 * y - size;
      const int inside = size * size - (dx * dx + dy * dy);
      const int edge = std::min(255, std::max(0, inside * 8 / size));
      const uint32_t alpha =
          static_cast<uint32_t>(kind == Kind::kDisc ? edge : (x * 7 + y * 13) % 254 + 1);
      pixels.push_back(alpha << 24 | alpha / 2 << 16 | alpha / 3 << 8 | alpha);
    }
  }
  return pixels;
}

std::vector<uint32_t> framePixels(int size) {
  std::vector<uint32_t> pixels;
  for (int i = 0; i < size * size; ++i) {
    pixels.push_back(static_cast<uint32_t>(i) * 2654435761u >> 8);
  }
  return pixels;
}

uint8_t* bytes(std::vector<uint32_t>& pixels) {
  return reinterpret_cast<uint8_t*>(pixels.data());
}

void countPixels(benchmark::State& state, int size) {
  state.SetItemsProcessed(state.iterations() * size * size);
}

void drawCursor(benchmark::State& state, Kind kind, const rfb::PixelFormat& format) {
  const int size = static_cast<int>(state.range(0));
  rfb::CursorWithAlpha cursor(rfb::Cursor::alphaFormat(), size, size, rfb::Point(0, 0));
  cursor.setArgb(cursorPixels(size, kind).data());
  std::vector<uint32_t> pixels = framePixels(size);
  rfb::FullFramePixelBuffer frame(format, rfb::Rect(0, 0, size, size), bytes(pixels));
  for (auto _ : state) {
    cursor.draw(frame, rfb::Point(0, 0));
    benchmark::ClobberMemory();
  }
  countPixels(state, size);
}

void pixmanOver(benchmark::State& state, Kind kind) {
  const int size = static_cast<int>(state.range(0));
  std::vector<uint32_t> cursor = cursorPixels(size, kind), frame = framePixels(size);
  pixman_image_t* source =
      pixman_image_create_bits(PIXMAN_a8r8g8b8, size, size, cursor.data(), size * 4);
  pixman_image_t* destination =
      pixman_image_create_bits(PIXMAN_x8r8g8b8, size, size, frame.data(), size * 4);
  for (auto _ : state) {
    pixman_image_composite32(PIXMAN_OP_OVER, source, nullptr, destination, 0, 0, 0, 0, 0, 0, size,
                             size);
    benchmark::ClobberMemory();
  }
  pixman_image_unref(source);
  pixman_image_unref(destination);
  countPixels(state, size);
}

}  // namespace

int main(int argc, char** argv) {
  const rfb::PixelFormat rgb565(16, 16, false, true, 31, 63, 31, 11, 5, 0);
  for (const int size : {32, 64, 256}) {
    benchmark::RegisterBenchmark("disc/ours", drawCursor, Kind::kDisc, kScreenFormat)->Arg(size);
    benchmark::RegisterBenchmark("disc/pixman", pixmanOver, Kind::kDisc)->Arg(size);
    benchmark::RegisterBenchmark("blended/ours", drawCursor, Kind::kBlended, kScreenFormat)
        ->Arg(size);
    benchmark::RegisterBenchmark("blended/pixman", pixmanOver, Kind::kBlended)->Arg(size);
    benchmark::RegisterBenchmark("rgb565/ours", drawCursor, Kind::kDisc, rgb565)->Arg(size);
  }
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
}

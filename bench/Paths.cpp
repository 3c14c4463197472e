// The hot paths on inputs that are always the same, for counting instructions.
//
//   bench-paths PATH TIMES

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "rdr/MemOutStream.h"
#include "rfb/CursorWithAlpha.h"
#include "rfb/ManagedPixelBuffer.h"
#include "rfb/PixelBufferComparer.h"
#include "rfb/Region.h"

namespace {

const rfb::PixelFormat kFormat(32, 24, false, true, 255, 255, 255, 16, 8, 0);

rfb::Region scattered(unsigned seed) {
  std::mt19937 random(seed);
  const auto pick = [&](unsigned range) { return static_cast<int>(random() % range); };
  rfb::Region region;
  for (int i = 0; i < 300; ++i) {
    const int x = pick(1800), y = pick(1000);
    region |= rfb::Rect(x, y, x + 1 + pick(60), y + 1 + pick(40));
  }
  return region;
}

// What the program does not use it must still do.
void use(const rfb::Region& region) {
  if (region.numRects() < 0) std::abort();
}

}  // namespace

int main(int argc, char** argv) {
  const rfb::Region a = scattered(1), b = scattered(2);
  rfb::ManagedPixelBuffer frame(kFormat, 640, 480);
  rfb::PixelBufferComparer comparer;
  comparer.setSource(&frame);
  comparer.compare(frame.getRect());
  rfb::CursorWithAlpha cursor(rfb::Cursor::alphaFormat(), 64, 64, rfb::Point(3, 3));
  const std::vector<uint32_t> argb(64 * 64, 0x80402010);
  cursor.setArgb(argb.data());
  rdr::MemOutStream out;

  const std::map<std::string, std::function<void(int)>> paths = {
      {"union", [&](int) { use(a | b); }},
      {"intersection", [&](int) { use(a & b); }},
      {"subtraction", [&](int) { use(a - b); }},
      {"comparison, unchanged", [&](int) { use(comparer.compare(frame.getRect())); }},
      {"comparison, changed",
       [&](int turn) {
         frame.getPixelsRW(frame.getRect(), nullptr)[turn * 977 % 1000000] ^= 0xFF;
         use(comparer.compare(frame.getRect()));
       }},
      {"cursor", [&](int turn) { cursor.draw(frame, rfb::Point(turn % 500, turn % 400)); }},
      {"region on the wire",
       [&](int) {
         out.clear();
         a.write(out);
       }},
  };
  const auto path = paths.find(argc == 3 ? argv[1] : "");
  if (path == paths.end()) {
    for (const auto& [name, step] : paths) std::puts(name.c_str());
    return argc == 1 ? 0 : 2;
  }
  for (int turn = 0, times = std::atoi(argv[2]); turn < times; ++turn) path->second(turn);
}

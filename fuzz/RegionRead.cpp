// Regions as they come over the channel, whole and in two halves, and what may be done with them.

#include <cstdint>
#include <cstdlib>

#include "rdr/Exceptions.h"
#include "rdr/MemInStream.h"
#include "rdr/MemOutStream.h"
#include "rfb/Region.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  rfb::Region region;
  rdr::MemInStream in(data, size);
  try {
    region.read(in);
  } catch (const rdr::EndOfStream&) {
    check(region.isEmpty());
    return 0;
  }
  check(mi::Region::isBanded(region.boxes()));

  rfb::Region resumed;
  rfb::Region::Reader reader;
  rdr::MemInStream firstHalf(data, in.pos() / 2);
  try {
    reader.read(firstHalf, resumed);
    check(false);
  } catch (const rdr::EndOfStream&) {
  }
  rdr::MemInStream rest(data + firstHalf.pos(), in.pos() - firstHalf.pos());
  reader.read(rest, resumed);
  check(resumed == region);

  rdr::MemOutStream out;
  region.write(out);
  rdr::MemInStream again(out.data(), out.size());
  resumed.read(again);
  check(resumed == region);

  rfb::Region moved = region;
  moved.translate({INT16_MAX / 2, -100});
  check(mi::Region::isBanded(moved.boxes()));
  const rfb::Region common = region & moved;
  check((region - moved | common) == region);
  check(((region | moved) - moved | common) == region);
  check((region - region.roundOut(16, 16)).isEmpty());
  return 0;
}

#include "rdr/OutStreamV4.h"

namespace rdr {

namespace {
constexpr size_t kLastFrame = 0x8000;
}

void OutStreamV4::writeHeader(OutStream& out, size_t frameLength, bool last, bool /*first*/) {
  out.writeU16(static_cast<uint16_t>(frameLength | (last ? kLastFrame : 0)));
}

}  // namespace rdr

#include "rdr/OutStreamV4.h"

namespace rdr {

namespace {
constexpr uint8_t kLastFrame = 0x80;
}

void OutStreamV4::writeHeader(OutStream& out, size_t frameLength, bool last, bool /*first*/) {
  out.check(kHeaderSize);
  uint8_t* const p = out.getPtr();
  p[0] = static_cast<uint8_t>(frameLength >> 8 | (last ? kLastFrame : 0));
  p[1] = static_cast<uint8_t>(frameLength);
  out.setPtr(p + kHeaderSize);
}

}  // namespace rdr

#include "rdr/InStreamV4.h"

namespace rdr {

void InStreamV4::readHeader(InStream& in, size_t& length, bool& last) {
  const uint16_t header = in.readU16();
  length = header & 0x7FFF;
  last = (header & 0x8000) != 0;
}

}  // namespace rdr

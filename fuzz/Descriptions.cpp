// What messages describe: monitors, pixel formats, shared memory. What has been read is written as
// the same bytes.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Check.h"
#include "plat/Exception.h"
#include "rdr/DisplayInfo.h"
#include "rdr/MemInStream.h"
#include "rdr/MemOutStream.h"
#include "rdr/SharedMemDescriptor.h"
#include "rfb/PixelFormat.h"

namespace {

void readMonitor(rdr::MemInStream& in) {
  plat::DisplayInfo monitor;
  monitor.read(in);
  rdr::MemOutStream out;
  monitor.write(out);
  // Flags and padding have one spelling on the way out.
  rdr::MemInStream again(out.data(), out.size());
  plat::DisplayInfo copy;
  copy.read(again);
  check(again.available() == 0);
  rdr::MemOutStream outAgain;
  copy.write(outAgain);
  check(out.size() == outAgain.size() && memcmp(out.data(), outAgain.data(), out.size()) == 0);
}

void readFormat(rdr::MemInStream& in) {
  const rfb::PixelFormat format = rfb::PixelFormat::read(in);
  rdr::MemOutStream out;
  format.write(out);
  rdr::MemInStream again(out.data(), out.size());
  check(rfb::PixelFormat::read(again) == format && out.size() == 16);
  check(format.str().size() < 200);
  check(!format.is888() || format.bpp == 32 || format.bpp == 24);
  if (const auto bytes = format.byteChannels()) {
    for (const int byte : {bytes->red, bytes->green, bytes->blue}) {
      check(byte >= 0 && byte < format.bytesPerPixel());
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  rdr::MemInStream in(data + 1, size - 1);
  try {
    while (in.available() > 0) {
      switch (data[0] % 3) {
        case 0:
          readMonitor(in);
          break;
        case 1:
          readFormat(in);
          break;
        default:
          rdr::readSharedMemDescriptor(in);
      }
    }
  } catch (const plat::Exception&) {
    // Too short, too long, or nothing that there is.
  }
  return 0;
}

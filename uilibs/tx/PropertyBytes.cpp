#include "tx/PropertyBytes.h"

#include <cstdint>

#include "tx/ErrorCatcher.h"
#include "tx/TXDisplay.h"
#include "tx/XResources.h"

namespace tx {

namespace {

// Xlib hands out items of 32 bits as longs.
std::string unpack(const unsigned char* items, unsigned long count, int format) {
  std::string data;
  if (format == 8) {
    data.assign(reinterpret_cast<const char*>(items), count);
  } else if (format == 16) {
    data.assign(reinterpret_cast<const char*>(items), count * 2);
  } else if (format == 32) {
    const auto* const longs = reinterpret_cast<const unsigned long*>(items);
    for (unsigned long i = 0; i < count; ++i) {
      const auto item = static_cast<uint32_t>(longs[i]);
      data.append(reinterpret_cast<const char*>(&item), sizeof item);
    }
  }
  return data;
}

}  // namespace

PropertyBytes readProperty(Window window, Atom property, bool deleting) {
  Display* const display = TXDisplay::display();
  PropertyBytes bytes;
  unsigned long count = 0;
  unsigned long left = 0;
  unsigned char* memory = nullptr;
  // The window may be gone.
  const ErrorCatcher trap;
  if (XGetWindowProperty(display, window, property, 0, kMaxPropertyBytes / 4, deleting,
                         AnyPropertyType, &bytes.type, &bytes.format, &count, &left,
                         &memory) != Success) {
    return {};
  }
  const XMemory<unsigned char> items(memory);
  bytes.data = unpack(items.get(), count, bytes.format);
  bytes.isCut = left > 0;
  // Only what has been read to its end is deleted by reading.
  if (deleting && bytes.isCut) XDeleteProperty(display, window, property);
  return bytes;
}

bool fitsInRequest(size_t bytes) {
  Display* const display = TXDisplay::display();
  long units = XExtendedMaxRequestSize(display);
  if (units == 0) units = XMaxRequestSize(display);
  constexpr size_t kHeader = 32;  // ChangeProperty, with the longer length field
  return bytes + kHeader <= static_cast<size_t>(units) * 4;
}

}  // namespace tx

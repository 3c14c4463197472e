#pragma once

#include <X11/Xlib.h>

#include <cstddef>
#include <string>

namespace tx {

// Bytes of a property that are taken at most.
constexpr size_t kMaxPropertyBytes = 256 * 1024;

struct PropertyBytes {
  Atom type = None;  // None when the property does not exist
  int format = 0;
  // Items of format 16 and 32 as uint16_t and uint32_t; at most kMaxPropertyBytes.
  std::string data;
  bool isCut = false;  // there was more
};

// The beginning of a property of any type, with one round trip. Deleting deletes it whole.
PropertyBytes readProperty(Window window, Atom property, bool deleting);

// Whether a property of that many bytes can be set in one request.
bool fitsInRequest(size_t bytes);

}  // namespace tx

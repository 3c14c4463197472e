#pragma once

#include <X11/Xlib.h>

#include <cstdint>
#include <string>

namespace tx {

// The current time of the X server, in milliseconds; wraps after 49.7 days. One round trip.
// CurrentTime when the connection is lost.
uint32_t getServerTime();

// Whether X time a is later than b, in the half of the 32-bit range after it.
inline bool isLater(uint32_t a, uint32_t b) {
  return static_cast<int32_t>(a - b) > 0;
}

// The atom of the name (static storage), interned once for each display.
Atom internAtom(const char* name);
// The name of an atom; "0x..." for one that does not exist.
std::string atomName(Atom atom);

}  // namespace tx

#pragma once

#include <string>

#include "plat/Exception.h"

namespace support {

// Text of the exception that f throws, "nothing" if none.
template <typename F>
std::string thrownText(F f) {
  try {
    f();
  } catch (const plat::Exception& e) {
    return e.text();
  }
  return "nothing";
}

// The same as "<kind>: <text>".
template <typename F>
std::string thrownBy(F f) {
  try {
    f();
  } catch (const plat::Exception& e) {
    return std::string(e.kind()) + ": " + e.text();
  }
  return "nothing";
}

}  // namespace support

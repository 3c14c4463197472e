#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "rfb/PixelFormat.h"

// Reading and writing single pixels in memory. Pixels of 1, 2 and 4 bytes are integers in the
// machine's own byte order, possibly swapped; those of 3 bytes always begin with the least
// significant one.

namespace rfb {

// Whether the pixels of a format have to be swapped on this machine.
inline bool isSwapped(const PixelFormat& format) {
  return format.bigEndian != (std::endian::native == std::endian::big);
}

template <int Bytes>
inline uint32_t loadPixel(const uint8_t* p) {
  if constexpr (Bytes == 1) {
    return *p;
  } else if constexpr (Bytes == 2) {
    uint16_t value;
    std::memcpy(&value, p, 2);
    return value;
  } else if constexpr (Bytes == 3) {
    return static_cast<uint32_t>(p[0] | p[1] << 8 | p[2] << 16);
  } else {
    static_assert(Bytes == 4);
    uint32_t value;
    std::memcpy(&value, p, 4);
    return value;
  }
}

template <int Bytes>
inline void storePixel(uint8_t* p, uint32_t value) {
  if constexpr (Bytes == 1) {
    *p = static_cast<uint8_t>(value);
  } else if constexpr (Bytes == 2) {
    const uint16_t narrow = static_cast<uint16_t>(value);
    std::memcpy(p, &narrow, 2);
  } else if constexpr (Bytes == 3) {
    p[0] = static_cast<uint8_t>(value);
    p[1] = static_cast<uint8_t>(value >> 8);
    p[2] = static_cast<uint8_t>(value >> 16);
  } else {
    static_assert(Bytes == 4);
    std::memcpy(p, &value, 4);
  }
}

template <int Bytes>
inline uint32_t swapPixel(uint32_t value) {
  if constexpr (Bytes == 2) return __builtin_bswap16(static_cast<uint16_t>(value));
  if constexpr (Bytes == 4) return __builtin_bswap32(value);
  return value;
}

// For a width known only at run time; 0 for an unknown one.
inline uint32_t loadPixel(const uint8_t* p, int bytes) {
  switch (bytes) {
    case 1:
      return loadPixel<1>(p);
    case 2:
      return loadPixel<2>(p);
    case 3:
      return loadPixel<3>(p);
    case 4:
      return loadPixel<4>(p);
    default:
      return 0;
  }
}

// Does nothing for an unknown width.
inline void storePixel(uint8_t* p, int bytes, uint32_t value) {
  switch (bytes) {
    case 1:
      return storePixel<1>(p, value);
    case 2:
      return storePixel<2>(p, value);
    case 3:
      return storePixel<3>(p, value);
    case 4:
      return storePixel<4>(p, value);
    default:
      return;
  }
}

inline uint32_t swapPixel(uint32_t value, int bytes) {
  return bytes == 2 ? swapPixel<2>(value) : bytes == 4 ? swapPixel<4>(value) : value;
}

}  // namespace rfb

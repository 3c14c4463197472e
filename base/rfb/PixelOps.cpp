#include "rfb/PixelOps.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace rfb {

namespace {

// x / 255 to the nearest, for each 16-bit half whose value is at most 255 * 255. There are no ties,
// so this is the same as (x + 127) / 255.
inline uint32_t divideHalves(uint32_t x) {
  x += 0x00800080;
  return ((x + ((x >> 8) & 0x00ff00ff)) >> 8) & 0x00ff00ff;
}

// Adds halves of up to 255 each, stopping at 255.
inline uint32_t addHalves(uint32_t a, uint32_t b) {
  const uint32_t sum = a + b;
  const uint32_t carries = (sum >> 8) & 0x00010001;
  return (sum | ((carries << 8) - carries)) & 0x00ff00ff;
}

inline uint32_t overPixel(uint32_t s, uint32_t d) {
  const uint32_t through = 255 - (s >> 24);
  const uint32_t even = divideHalves((d & 0x00ff00ff) * through);
  const uint32_t odd = divideHalves(((d >> 8) & 0x00ff00ff) * through);
  return addHalves(s & 0x00ff00ff, even) | addHalves((s >> 8) & 0x00ff00ff, odd) << 8;
}

#ifdef __SSE2__
// Two pixels in 16-bit lanes: the share of the destination that shows through the source.
inline __m128i showThrough(__m128i s, __m128i d) {
  const __m128i alpha = _mm_shufflehi_epi16(_mm_shufflelo_epi16(s, 0xff), 0xff);
  const __m128i through = _mm_xor_si128(alpha, _mm_set1_epi16(0x00ff));
  const __m128i x = _mm_add_epi16(_mm_mullo_epi16(d, through), _mm_set1_epi16(0x0080));
  // The high half of x * 257 is (x + x / 256) / 256.
  return _mm_mulhi_epu16(x, _mm_set1_epi16(0x0101));
}

// Four pixels at a time; returns how many were done.
inline int overRowStart(const uint8_t* from, uint8_t* to, int width, uint32_t keep) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i ones = _mm_cmpeq_epi8(zero, zero);
  const __m128i keepMask = _mm_set1_epi32(static_cast<int>(keep));
  constexpr int kAlphaBytes = 0x8888;
  int x = 0;
  for (; x + 4 <= width; x += 4) {
    const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + x * 4));
    __m128i* const out = reinterpret_cast<__m128i*>(to + x * 4);
    __m128i result;
    if (_mm_movemask_epi8(_mm_cmpeq_epi8(s, zero)) == 0xffff) {
      result = _mm_loadu_si128(out);
    } else if ((_mm_movemask_epi8(_mm_cmpeq_epi8(s, ones)) & kAlphaBytes) == kAlphaBytes) {
      result = s;
    } else {
      const __m128i d = _mm_loadu_si128(out);
      const __m128i low = showThrough(_mm_unpacklo_epi8(s, zero), _mm_unpacklo_epi8(d, zero));
      const __m128i high = showThrough(_mm_unpackhi_epi8(s, zero), _mm_unpackhi_epi8(d, zero));
      result = _mm_adds_epu8(s, _mm_packus_epi16(low, high));
    }
    _mm_storeu_si128(out, _mm_and_si128(result, keepMask));
  }
  return x;
}
#else
inline int overRowStart(const uint8_t*, uint8_t*, int, uint32_t) {
  return 0;
}
#endif

}  // namespace

bool OverOp::combineRows(const CombineArea& area, const PixelFormat& source,
                         const PixelFormat& destination) const {
  if (source.bpp != 32 || destination.bpp != 32 || isSwapped(source) || isSwapped(destination)) {
    return false;
  }
  // Full channels in bytes of their own, the alpha in the topmost.
  const auto channels = source.byteChannels();
  if (!channels || !source.is888() || channels->alpha != 0) return false;
  PixelFormat withAlpha = destination;
  withAlpha.alphaMax = source.alphaMax;
  withAlpha.alphaShift = source.alphaShift;
  if (!(withAlpha == source)) return false;
  if (destination.alphaMax != 0 && !(destination == source)) return false;

  const uint32_t keep = destination.alphaMax ? 0xffffffff : 0x00ffffff;
  for (int y = 0; y < area.height; ++y) {
    const uint8_t* from = area.source + y * area.sourceStep;
    uint8_t* to = area.destination + y * area.destinationStep;
    for (int x = overRowStart(from, to, area.width, keep); x < area.width; ++x) {
      storePixel<4>(to + x * 4,
                    overPixel(loadPixel<4>(from + x * 4), loadPixel<4>(to + x * 4)) & keep);
    }
  }
  return true;
}

}  // namespace rfb

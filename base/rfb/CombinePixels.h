#pragma once

#include <cstddef>
#include <cstdint>

#include "rfb/PixelAccess.h"
#include "rfb/PixelCodec.h"
#include "rfb/Point.h"
#include "rfb/WritablePixelBuffer.h"

// The combining copies: a rectangle of one buffer is combined into a rectangle of another, pixel by
// pixel, through an operation on colours. The operation is called as op(source, destination) with
// two Colours and leaves its result in the destination's.
//
// An operation may offer a short cut of its own for some pairs of formats: a member
// bool combineRows(const CombineArea&, const PixelFormat& source, const PixelFormat& destination)
// that does the whole rectangle, with the same result, or returns false.

namespace rfb {

// The two rectangles in memory. Steps from row to row are in bytes.
struct CombineArea {
  const uint8_t* source;
  ptrdiff_t sourceStep;
  uint8_t* destination;
  ptrdiff_t destinationStep;
  int width;
  int height;
};

// Which pixels take part: a bit for each pixel of the source rectangle, rows of `step` bytes, the
// most significant bit leftmost, beginning `offset` bits into the first row.
struct CombineMask {
  const uint8_t* bits;
  ptrdiff_t step;
  int offset;

  bool at(int x, int y) const {
    const int bit = offset + x;
    return (bits[y * step + bit / 8] >> (7 - bit % 8) & 1) != 0;
  }
};

namespace combine {

// One pair of pixel widths in bytes, known when compiling.
template <int SourceBytes, int DestinationBytes, class Op>
void fixed(const CombineArea& area, const PixelCodec& source, const PixelCodec& destination,
           Op& op) {
  const bool swapSource = source.swapped();
  const bool swapDestination = destination.swapped();
  const uint8_t* fromRow = area.source;
  uint8_t* toRow = area.destination;
  for (int y = 0; y < area.height; ++y) {
    const uint8_t* from = fromRow;
    uint8_t* to = toRow;
    for (int x = 0; x < area.width; x++, from += SourceBytes, to += DestinationBytes) {
      uint32_t s = loadPixel<SourceBytes>(from);
      uint32_t d = loadPixel<DestinationBytes>(to);
      if (swapSource) s = swapPixel<SourceBytes>(s);
      if (swapDestination) d = swapPixel<DestinationBytes>(d);
      Colour colour = destination.decode(d);
      op(source.decode(s), colour);
      d = destination.encode(colour);
      if (swapDestination) d = swapPixel<DestinationBytes>(d);
      storePixel<DestinationBytes>(to, d);
    }
    fromRow += area.sourceStep;
    toRow += area.destinationStep;
  }
}

// One pixel of any widths.
template <class Op>
inline void one(const uint8_t* from, int sourceBytes, const PixelCodec& source, uint8_t* to,
                int destinationBytes, const PixelCodec& destination, Op& op) {
  uint32_t s = loadPixel(from, sourceBytes);
  uint32_t d = loadPixel(to, destinationBytes);
  if (source.swapped()) s = swapPixel(s, sourceBytes);
  if (destination.swapped()) d = swapPixel(d, destinationBytes);
  Colour colour = destination.decode(d);
  op(source.decode(s), colour);
  d = destination.encode(colour);
  if (destination.swapped()) d = swapPixel(d, destinationBytes);
  storePixel(to, destinationBytes, d);
}

// Any pair of widths.
template <class Op>
void generic(const CombineArea& area, int sourceBytes, const PixelCodec& source,
             int destinationBytes, const PixelCodec& destination, Op& op) {
  for (int y = 0; y < area.height; ++y) {
    const uint8_t* from = area.source + y * area.sourceStep;
    uint8_t* to = area.destination + y * area.destinationStep;
    for (int x = 0; x < area.width; x++, from += sourceBytes, to += destinationBytes) {
      one(from, sourceBytes, source, to, destinationBytes, destination, op);
    }
  }
}

// Any pair of widths, through a mask.
template <class Op>
void masked(const CombineArea& area, const CombineMask& mask, int sourceBytes,
            const PixelCodec& source, int destinationBytes, const PixelCodec& destination, Op& op) {
  for (int y = 0; y < area.height; ++y) {
    const uint8_t* from = area.source + y * area.sourceStep;
    uint8_t* to = area.destination + y * area.destinationStep;
    for (int x = 0; x < area.width; x++, from += sourceBytes, to += destinationBytes) {
      if (mask.at(x, y)) one(from, sourceBytes, source, to, destinationBytes, destination, op);
    }
  }
}

}  // namespace combine

// Combines the pixels of source at sourceTopLeft and on into destinationRect of destination, all of
// them or those that the mask names. Both rectangles must lie inside their buffers, and must not
// share memory.
template <class Op>
void combinePixels(WritablePixelBuffer& destination, const Rect& destinationRect,
                   PixelBuffer& source, const Point& sourceTopLeft, Op op,
                   const CombineMask* mask = nullptr) {
  if (destinationRect.isEmpty()) return;
  const PixelFormat& sourcePF = source.getPF();
  const PixelFormat& destinationPF = destination.getPF();
  const int sourceBytes = sourcePF.bytesPerPixel();
  const int destinationBytes = destinationPF.bytesPerPixel();
  const Rect sourceRect = destinationRect.translate(sourceTopLeft - destinationRect.tl);
  int sourceStride, destinationStride;
  CombineArea area;
  area.source = source.getPixelsR(sourceRect, &sourceStride);
  area.destination = destination.getPixelsRW(destinationRect, &destinationStride);
  area.sourceStep = static_cast<ptrdiff_t>(sourceStride) * sourceBytes;
  area.destinationStep = static_cast<ptrdiff_t>(destinationStride) * destinationBytes;
  area.width = destinationRect.width();
  area.height = destinationRect.height();

  if constexpr (requires { op.combineRows(area, sourcePF, destinationPF); }) {
    if (!mask && op.combineRows(area, sourcePF, destinationPF)) return;
  }

  const PixelCodec from(sourcePF, source.getColourMap());
  const PixelCodec to(destinationPF, destination.getColourMap());
  if (mask) return combine::masked(area, *mask, sourceBytes, from, destinationBytes, to, op);
  // Sources are mostly cursors in full colour, destinations the usual depths of a screen.
  switch (sourceBytes * 8 + destinationBytes) {
    case 2 * 8 + 1:
      return combine::fixed<2, 1>(area, from, to, op);
    case 2 * 8 + 2:
      return combine::fixed<2, 2>(area, from, to, op);
    case 2 * 8 + 4:
      return combine::fixed<2, 4>(area, from, to, op);
    case 3 * 8 + 1:
      return combine::fixed<3, 1>(area, from, to, op);
    case 3 * 8 + 2:
      return combine::fixed<3, 2>(area, from, to, op);
    case 3 * 8 + 4:
      return combine::fixed<3, 4>(area, from, to, op);
    case 4 * 8 + 1:
      return combine::fixed<4, 1>(area, from, to, op);
    case 4 * 8 + 2:
      return combine::fixed<4, 2>(area, from, to, op);
    case 4 * 8 + 4:
      return combine::fixed<4, 4>(area, from, to, op);
    default:
      return combine::generic(area, sourceBytes, from, destinationBytes, to, op);
  }
}

}  // namespace rfb

#pragma once

#include <memory>

#include "rfb/ManagedPixelBuffer.h"
#include "rfb/Point.h"

namespace rfb {

class CursorWithAlpha;
class CursorWithMask;

// The image of a pointer. Its rectangle lies so that the hotspot is at 0,0.
class Cursor : public ManagedPixelBuffer {
 public:
  // The format of cursor images in messages: 32 bits per pixel, little-endian, argb8888.
  static const PixelFormat& alphaFormat();

  // Position inside the image, from its top-left.
  Point hotspot() const { return Point(-getRect().tl.x, -getRect().tl.y); }

  // Draws the part of the cursor that meets the buffer, with the hotspot at position.
  virtual void draw(WritablePixelBuffer& buffer, const Point& position) = 0;
  virtual std::unique_ptr<Cursor> copy() = 0;
  // The same image as the other kinds, in a format given. For a mask, pixels whose alpha is below
  // the threshold are left out; a masked pixel becomes fully transparent.
  virtual std::unique_ptr<CursorWithAlpha> toAlpha(const PixelFormat& format) = 0;
  virtual std::unique_ptr<CursorWithMask> toMask(const PixelFormat& format) = 0;

 protected:
  Cursor(const PixelFormat& format, int width, int height, const Point& hotspot,
         ColourMap* colourMap = nullptr);

  // Copies the pixels of a cursor of the same format and size.
  void copyPixels(Cursor& from);
};

}  // namespace rfb

#pragma once

#include <memory>

#include "rfb/ConfigurablePixelBuffer.h"

namespace rfb {

// A pixel buffer that owns its memory. Coordinates must fit 16 bits, because regions of the buffer
// must; a size beyond 2^31-1 bytes is an out-of-memory error (std::bad_alloc).
class ManagedPixelBuffer : public ConfigurablePixelBuffer {
 public:
  // A block of memory with the means to free it, which may do nothing for memory from elsewhere.
  using Block = std::unique_ptr<uint8_t[], void (*)(uint8_t*)>;

  // Empty, in the default format.
  ManagedPixelBuffer();
  // The pixels are left as allocated.
  ManagedPixelBuffer(const PixelFormat& format, const Rect& rect, ColourMap* colourMap = nullptr);
  ManagedPixelBuffer(const PixelFormat& format, int width, int height);
  // A copy, at 0,0, of all that the getter shows.
  explicit ManagedPixelBuffer(ImageGetter& getter);

  // Does nothing when the formats are equal; otherwise the pixels become zero.
  void setPF(const PixelFormat& format) override;
  // Does nothing when the size stays; otherwise the pixels become zero, except for those of the
  // common area when the buffer preserves its contents.
  void setSize(int width, int height) override;

  // Whether setSize keeps the pixels of the common area. At first it does not.
  void setPreserveOnResize(bool preserve) { preserveOnResize_ = preserve; }
  bool preserveOnResize() const { return preserveOnResize_; }

  // Puts a block of capacity bytes in place of the buffer's own, which is freed. Fatal when it
  // cannot hold the buffer's rectangle.
  void setBuffer(Block block, int capacity);
  // Hands over the block and leaves the buffer empty, at its top-left.
  Block releaseBuffer();

  // Bytes in the block.
  int capacity() const { return capacity_; }
  // Bytes that the rectangle needs.
  int64_t sizeBytes() const;

 private:
  // Takes on a format and a rectangle, with a block that holds them: the present one when it is
  // large enough and need not be fresh. Returns the former block if there is a new one. Changes
  // nothing when it fails.
  Block configure(const PixelFormat& format, const Rect& rect, bool fresh);
  void zero();

  Block block_;
  bool preserveOnResize_ = false;
  int capacity_ = 0;
};

}  // namespace rfb

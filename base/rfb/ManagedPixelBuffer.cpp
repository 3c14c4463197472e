#include "rfb/ManagedPixelBuffer.h"

#include <climits>
#include <cstring>
#include <new>
#include <utility>

#include "plat/Assert.h"
#include "rfb/RgnRect.h"

namespace rfb {

namespace {

void freeArray(uint8_t* bytes) {
  delete[] bytes;
}

int64_t bytesFor(const PixelFormat& format, const Rect& rect) {
  return static_cast<int64_t>(rect.area()) * format.bytesPerPixel();
}

}  // namespace

ManagedPixelBuffer::ManagedPixelBuffer() : block_(nullptr, freeArray) {}

ManagedPixelBuffer::ManagedPixelBuffer(const PixelFormat& format, const Rect& rect,
                                       ColourMap* colourMap)
    : block_(nullptr, freeArray) {
  colourMap_ = colourMap;
  configure(format, rect, true);
}

ManagedPixelBuffer::ManagedPixelBuffer(const PixelFormat& format, int width, int height)
    : ManagedPixelBuffer(format, Rect(0, 0, width, height)) {}

ManagedPixelBuffer::ManagedPixelBuffer(ImageGetter& getter)
    : ManagedPixelBuffer(getter.getPF(), getter.width(), getter.height()) {
  if (data_) getter.getImage(data_, getter.getRect(), stride_);
}

int64_t ManagedPixelBuffer::sizeBytes() const {
  return bytesFor(format_, rect_);
}

ManagedPixelBuffer::Block ManagedPixelBuffer::configure(const PixelFormat& format, const Rect& rect,
                                                        bool fresh) {
  // Regions of the buffer hold 16-bit coordinates.
  PLAT_ASSERT(Rect(RgnRect(rect)) == rect);
  const int64_t needed = bytesFor(format, rect);
  if (needed > INT_MAX) throw std::bad_alloc();

  Block former(nullptr, freeArray);
  if (fresh || needed == 0 || capacity_ < needed) {
    Block block(needed ? new uint8_t[static_cast<size_t>(needed)] : nullptr, freeArray);
    former = std::exchange(block_, std::move(block));
    capacity_ = static_cast<int>(needed);
  }
  format_ = format;
  rect_ = rect;
  data_ = block_.get();
  stride_ = rect.width();
  return former;
}

void ManagedPixelBuffer::zero() {
  if (data_) std::memset(data_, 0, static_cast<size_t>(capacity_));
}

void ManagedPixelBuffer::setPF(const PixelFormat& format) {
  if (format == format_) return;
  configure(format, rect_, false);
  zero();
}

void ManagedPixelBuffer::setSize(int newWidth, int newHeight) {
  if (newWidth == width() && newHeight == height()) return;
  const Rect oldRect = rect_;
  const int oldStride = stride_;
  const Rect newRect(rect_.tl, rect_.tl + Point(newWidth, newHeight));
  const Block former = configure(format_, newRect, preserveOnResize_);
  zero();
  if (!preserveOnResize_ || !former) return;
  FullFramePixelBuffer before(format_, oldRect, former.get(), nullptr, oldStride);
  const Rect common = oldRect.intersect(rect_);
  before.getImage(getPixelsRW(common, nullptr), common, stride_);
}

void ManagedPixelBuffer::setBuffer(Block block, int capacity) {
  block_ = std::move(block);
  capacity_ = capacity;
  PLAT_ASSERT(capacity_ >= sizeBytes());
  data_ = block_.get();
  stride_ = rect_.width();
}

ManagedPixelBuffer::Block ManagedPixelBuffer::releaseBuffer() {
  data_ = nullptr;
  capacity_ = 0;
  stride_ = 0;
  rect_.br = rect_.tl;
  return std::exchange(block_, Block(nullptr, freeArray));
}

}  // namespace rfb

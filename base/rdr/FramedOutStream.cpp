#include "rdr/FramedOutStream.h"

#include <algorithm>

#include "plat/Assert.h"
#include "rdr/Exceptions.h"

namespace rdr {

FramedOutStream::FramedOutStream(OutStream* underlying, size_t headerSize, size_t maxFrame)
    : hdrSize_(headerSize), maxFrame_(maxFrame) {
  setUnderlying(underlying);
}

void FramedOutStream::setUnderlying(OutStream* underlying) {
  dropFrame();
  inMsg_ = false;
  underlying_ = underlying;
  nested_ = dynamic_cast<FramedOutStream*>(underlying) != nullptr;
}

void FramedOutStream::startMsg() {
  if (inMsg_) throw FrameException("FramedOutStream::startMsg: already in msg");
  PLAT_ASSERT_TEXT(underlying_, "underlying");
  inMsg_ = true;
  first_ = true;
  startFrame(1);
}

void FramedOutStream::endFrame(bool last) {
  if (!frame_) throw FrameException("FramedOutStream::endFrame: not in frame");
  if (underlying_->space() < hdrSize_) {
    throw FrameException("FramedOutStream::endFrame: no space for header");
  }
  const size_t frameLength = static_cast<size_t>(ptr_ - frame_);
  PLAT_ASSERT_TEXT(frame_ == underlying_->getPtr() + hdrSize_,
                   "ptr == underlying->getPtr() + hdrSize");
  writeHeader(*underlying_, frameLength, last, first_);
  PLAT_ASSERT_TEXT(frame_ == underlying_->getPtr(), "ptr == underlying->getPtr()");
  underlying_->setPtr(ptr_);
  written_ += frameLength;
  first_ = false;
  dropFrame();
}

void FramedOutStream::endMsg(bool flushIt) {
  if (!frame_) throw FrameException("FramedOutStream::endMsg: not in frame");
  endFrame(true);
  inMsg_ = false;
  if (flushIt) underlying_->flush();
}

void FramedOutStream::flush() {
  if (!inMsg_) {
    if (underlying_) underlying_->flush();
    return;
  }
  if (ptr_ != frame_) endFrame(false);
  dropFrame();
  underlying_->flush();
  startFrame(1);
}

uint64_t FramedOutStream::length() const {
  return written_ + static_cast<uint64_t>(ptr_ - frame_);
}

size_t FramedOutStream::underlyingSpace() const {
  if (!underlying_) return 0;
  const auto* framed = dynamic_cast<const FramedOutStream*>(underlying_);
  const size_t space =
      framed ? std::min(framed->underlyingSpace(), framed->space()) : underlying_->space();
  return space - std::min(space, hdrSize_);
}

size_t FramedOutStream::overrun(size_t itemSize, size_t nItems) {
  if (!frame_) throw FrameException("FramedOutStream: not in msg");
  if (itemSize > maxFrame_) throw OutStreamFull::sizeExceeded();
  if (ptr_ != frame_) endFrame(false);
  dropFrame();
  startFrame(itemSize);
  return std::min(nItems, space() / itemSize);
}

// The whole of the largest frame must fit, or frames would become shorter the fuller the underlying
// buffer is.
void FramedOutStream::startFrame(size_t itemSize) {
  underlying_->check(hdrSize_ + (nested_ ? itemSize : maxFrame_));
  frame_ = ptr_ = underlying_->getPtr() + hdrSize_;
  end_ = ptr_ + std::min(maxFrame_, underlyingSpace());
}

// The underlying stream may move its buffer only while no frame is open.
void FramedOutStream::dropFrame() {
  frame_ = ptr_ = end_ = nullptr;
}

}  // namespace rdr

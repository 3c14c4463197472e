#include "rdr/FramedInStream.h"

#include <algorithm>
#include <cstring>

#include "rdr/Exceptions.h"
#include "rdr/MemInStream.h"

namespace rdr {

FramedInStream::FramedInStream(InStream* underlying, size_t headerSize)
    : hdrSize_(headerSize), underlying_(underlying) {}

void FramedInStream::setUnderlying(InStream* underlying) {
  dropSpan();
  abandonMsg();
  underlying_ = underlying;
}

void FramedInStream::startMsg() {
  if (inMsg_) throw FrameException("FramedInStream::startMsg: already in msg");
  inMsg_ = true;
}

bool FramedInStream::atEndOfMsg() {
  if (!isEndKnown()) throw BlockException();
  return !inMsg_ || (available() == 0 && left_ == 0);
}

bool FramedInStream::isEndKnown() {
  if (!inMsg_ || available() > 0) return true;
  giveBackSpan();
  while (left_ == 0 && !last_) {
    if (!nextFrame(!bufferedOnly_)) return false;
  }
  return true;
}

bool FramedInStream::skipToEndOfMsg(bool wait) {
  if (!inMsg_) throw FrameException("FramedInStream::skipToEndOfMsg: not in msg");
  giveBackSpan();
  dropSpan();
  for (;;) {
    if (left_ == 0) {
      if (last_) return true;
      if (!nextFrame(wait)) return false;
      continue;
    }
    const size_t n = takeUnderlying(1, left_, wait);
    if (n == 0) return false;
    underlying_->setPtr(underlying_->getPtr() + n);
    left_ -= n;
  }
}

void FramedInStream::endMsg() {
  if (!inMsg_) throw FrameException("FramedInStream::endMsg: not in msg");
  if (!atEndOfMsg()) throw FrameException("FramedInStream::endMsg: data left in msg");
  abandonMsg();
}

void FramedInStream::abandonMsg() {
  if (inMsg_ && underlying_) giveBackSpan();
  inMsg_ = false;
  last_ = false;
  left_ = 0;
  scanned_ = 0;
  scannedLast_ = false;
}

bool FramedInStream::isMsgBuffered() {
  if (!underlying_) return false;
  const size_t buffered = underlying_->available();
  while (!scannedLast_ && buffered >= scanned_ && buffered - scanned_ >= hdrSize_) {
    MemInStream header(underlying_->getPtr() + scanned_, hdrSize_);
    size_t length;
    readHeader(header, length, scannedLast_);
    scanned_ += hdrSize_ + length;
  }
  return scannedLast_ && buffered >= scanned_;
}

size_t FramedInStream::overrun(size_t itemSize, size_t nItems, bool wait) {
  if (!underlying_) throw EndOfStream();
  if (!inMsg_) throw FrameException("FramedInStream: not in msg");
  if (itemSize == 0) return nItems;
  giveBackSpan();
  for (;;) {
    const size_t held = available();
    if (held >= itemSize) return held / itemSize;
    if (left_ == 0) {
      if (last_) throw EndOfMsg();
      if (!nextFrame(wait)) return 0;
      continue;
    }
    if (held == 0 && left_ >= itemSize) {
      if (takeUnderlying(itemSize, nItems, wait) == 0) return 0;
      const size_t n = std::min(left_, underlying_->available());
      ptr_ = underlying_->getPtr();
      end_ = ptr_ + n;
      left_ -= n;
      spanIsItem_ = false;
      return std::min(nItems, n / itemSize);
    }
    // The item is spread over frames.
    if (itemSize > kMaxItem) throw plat::Exception("Too much data for InStream buffer");
    const size_t n = takeUnderlying(1, std::min(left_, itemSize - held), wait);
    if (n == 0) return 0;
    if (held > 0) std::memmove(item_, ptr_, held);
    std::memcpy(item_ + held, underlying_->getPtr(), n);
    underlying_->setPtr(underlying_->getPtr() + n);
    left_ -= n;
    ptr_ = item_;
    end_ = item_ + held + n;
    spanIsItem_ = true;
  }
}

// Reads the next header. False when it has not arrived and wait is false.
bool FramedInStream::nextFrame(bool wait) {
  if (takeUnderlying(hdrSize_, 1, wait) == 0) return false;
  readHeader(*underlying_, left_, last_);
  return true;
}

// The underlying stream's check(), within what this stream may make it do.
size_t FramedInStream::takeUnderlying(size_t itemSize, size_t nItems, bool wait) {
  if (bufferedOnly_ && underlying_->available() < itemSize) {
    if (wait) throw BlockException();
    return 0;
  }
  return underlying_->check(itemSize, nItems, wait);
}

// Returns to the underlying stream what of its span was not read. A span in item_ stays.
void FramedInStream::giveBackSpan() {
  if (spanIsItem_ || !ptr_) return;
  underlying_->setPtr(ptr_);
  left_ += available();
  dropSpan();
}

void FramedInStream::dropSpan() {
  ptr_ = end_ = nullptr;
}

}  // namespace rdr

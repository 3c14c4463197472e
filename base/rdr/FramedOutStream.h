#pragma once

#include "rdr/OutStream.h"

namespace rdr {

// Cuts messages into frames, each built in place in the underlying stream's buffer: room for the
// header is left first, and filled in when the frame's length is known. Writing outside a message,
// and calls out of order, throw FrameException.
class FramedOutStream : public OutStream {
 public:
  // Not owned; may be null while nothing is written. A message that was begun is given up.
  void setUnderlying(OutStream* underlying);
  OutStream* underlying() const { return underlying_; }

  void startMsg();
  // Ends the current frame; a non-last one without bytes is dropped only by flush().
  void endFrame(bool last);
  void endMsg(bool flushIt = true);
  bool inMsg() const { return inMsg_; }

  // Inside a message: delivers what was written so far.
  void flush() override;
  // Payload bytes.
  uint64_t length() const override;
  // The underlying stream's free space less the header, at least 0.
  size_t underlyingSpace() const;

 protected:
  FramedOutStream(OutStream* underlying, size_t headerSize, size_t maxFrame);

  // Writes the header of a frame; there is room for it.
  virtual void writeHeader(OutStream& out, size_t frameLength, bool last, bool first) = 0;
  size_t overrun(size_t itemSize, size_t nItems) override;

 private:
  void startFrame(size_t itemSize);
  void dropFrame();

  const size_t hdrSize_;
  const size_t maxFrame_;
  OutStream* underlying_ = nullptr;
  bool nested_ = false;  // underlying_ is itself framed, so its spans are limited
  bool inMsg_ = false;
  bool first_ = false;
  uint8_t* frame_ = nullptr;  // the current frame's payload
  uint64_t written_ = 0;
};

}  // namespace rdr

#pragma once

#include "rdr/InStream.h"

namespace rdr {

// Reads messages from the frames of an underlying stream. Frames may be cut anywhere, also inside
// an integer, and may be empty. A typed read that fails leaves the stream where it was.
//
// Errors: EndOfMsg at the end of the message, FrameException for calls out of order, and what the
// underlying stream throws.
class FramedInStream : public InStream {
 public:
  // The longest item that is put together from several frames.
  static constexpr size_t kMaxItem = 256;

  // Not owned; may be null while nothing is read. A message that was begun is given up.
  void setUnderlying(InStream* underlying);
  // Takes only what the underlying stream has buffered and never makes it read; when that runs out,
  // BlockException.
  void setBufferedOnly(bool bufferedOnly) { bufferedOnly_ = bufferedOnly; }

  void startMsg();
  bool inMsg() const { return inMsg_; }
  // Whether all of the message has been read. BlockException when that cannot be known yet.
  bool atEndOfMsg();
  // Whether atEndOfMsg() can be known yet.
  bool isEndKnown();
  // Discards the rest of the message. Returns false when, with wait false, the rest has not arrived
  // yet.
  bool skipToEndOfMsg(bool wait = true);
  // Leaves the message; FrameException "FramedInStream::endMsg: data left in msg" when it was not
  // read to its end.
  void endMsg();
  // Leaves the message wherever reading stands.
  void abandonMsg();
  // To be called before anyone else makes the underlying stream read while a message is being read:
  // the bytes at hand may move then.
  void giveBackSpan();

  // Between messages: whether the next one lies in the underlying stream's buffer as a whole.
  // Consumes nothing, and looks at no frame twice.
  bool isMsgBuffered();

 protected:
  FramedInStream(InStream* underlying, size_t headerSize);

  virtual void readHeader(InStream& in, size_t& length, bool& last) = 0;
  size_t overrun(size_t itemSize, size_t nItems, bool wait) override;

 private:
  bool nextFrame(bool wait);
  size_t takeUnderlying(size_t itemSize, size_t nItems, bool wait);
  void dropSpan();

  const size_t hdrSize_;
  InStream* underlying_ = nullptr;
  bool bufferedOnly_ = false;
  bool inMsg_ = false;
  bool last_ = false;         // the current frame is the message's last
  size_t left_ = 0;           // bytes of the current frame after the span
  bool spanIsItem_ = false;   // the span lies in item_
  size_t scanned_ = 0;        // offset of the first header that isMsgBuffered() has not seen
  bool scannedLast_ = false;  // ... or of the message's end
  uint8_t item_[kMaxItem];
};

}  // namespace rdr

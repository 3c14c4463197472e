#pragma once

#include <string>

#include "plat/Exception.h"

namespace rdr {

// The source is exhausted: the peer closed its end, or the block of memory is used up.
class EndOfStream : public plat::Exception {
 public:
  explicit EndOfStream(const std::string& text = "End of IO stream")
      : Exception(Kind{"EndOfStream"}, text) {}
};

// More bytes are wanted than the framed message has.
class EndOfMsg : public plat::Exception {
 public:
  EndOfMsg() : Exception(Kind{"EndOfMsg"}, "End of message") {}
};

// Framing calls out of order.
class FrameException : public plat::Exception {
 public:
  explicit FrameException(const std::string& text) : Exception(Kind{"FrameException"}, text) {}
};

// The bytes have not arrived yet, and the stream may not wait for them.
class BlockException : public plat::Exception {
 public:
  BlockException() : Exception(Kind{"BlockException"}, "Reading from InStream would block") {}
};

// A string or line is longer than the caller takes.
class StringTooLongException : public plat::Exception {
 public:
  StringTooLongException()
      : Exception(Kind{"StringTooLongException"}, "String exceeds maximum length") {}
};

// A bounded output buffer cannot take more.
class OutStreamFull : public plat::Exception {
 public:
  explicit OutStreamFull(const std::string& text) : Exception(Kind{"OutStreamFull"}, text) {}
  static OutStreamFull sizeExceeded() {
    return OutStreamFull("BufferedOutStream overrun: buffer size exceeded");
  }
  static OutStreamFull unableToWrite() {
    return OutStreamFull("BufferedOutStream overrun: unable to write");
  }
};

// A descriptor was not ready within the time limit.
class TimedOut : public plat::Exception {
 public:
  TimedOut() : Exception(Kind{"TimedOut"}, "Timed out") {}
};

}  // namespace rdr

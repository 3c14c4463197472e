#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "rdr/FileInStream.h"
#include "rdr/TransactedFileOutStream.h"
#include "rfb/Rect.h"

namespace drive {

// A recorded session: what passed between a server and its agent, with times. The file begins with
// "ruvosession 1\n"; then come records, integers big-endian: U64 microseconds since the beginning,
// U8 kind, U32 length, that many bytes.
struct SessionRecord {
  enum class Kind : uint8_t {
    kNote = 0,    // text
    kAgent = 1,   // a message of the agent, as its frames; at the very end perhaps only a part
    kServer = 2,  // one of the server
    kPixels = 3,  // S32 x1, y1, x2, y2, then a PNG file of that part of the screen
  };

  uint64_t microseconds = 0;
  Kind kind = Kind::kNote;
  std::vector<uint8_t> bytes;

  // Of a message: the payloads of its frames, joined.
  std::vector<uint8_t> payload() const;
};

// The name that a message's payload begins with.
std::string_view nameOfMessage(const std::vector<uint8_t>& payload);

// Cuts the bytes of one direction into messages.
class MessageCutter {
 public:
  void add(const uint8_t* bytes, size_t length) {
    held_.insert(held_.end(), bytes, bytes + length);
  }
  // The next complete message, as its frames; empty when there is none.
  std::vector<uint8_t> take();
  // What is left.
  std::vector<uint8_t> takeRest() { return std::exchange(held_, {}); }

 private:
  std::vector<uint8_t> held_;
  size_t scanned_ = 0;  // whole frames
};

// Writes a recorded session, whole or not at all. Throws plat::Exception.
class SessionWriter {
 public:
  // When redacting, key symbols and clipboard texts become x's of the same number, and so do the
  // log lines that name symbols.
  SessionWriter(const std::string& path, bool redact);

  void note(std::string_view text);
  // Bytes that passed now, cut anywhere. Kind is that of a message.
  void passed(SessionRecord::Kind from, const uint8_t* bytes, size_t length);
  void pixels(const rfb::Rect& rect, const std::vector<uint8_t>& png);
  void commit();

 private:
  void write(SessionRecord::Kind kind, const std::vector<uint8_t>& bytes);
  MessageCutter& cutter(SessionRecord::Kind from) {
    return from == SessionRecord::Kind::kAgent ? agent_ : server_;
  }

  const bool redact_;
  const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  MessageCutter agent_, server_;
  rdr::TransactedFileOutStream out_;
};

// Reads a recorded session. Throws plat::Exception, also for files that are none.
class SessionReader {
 public:
  explicit SessionReader(const std::string& path);

  // False at the end.
  bool read(SessionRecord& record);

 private:
  rdr::FileInStream in_;
};

}  // namespace drive

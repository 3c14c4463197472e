#pragma once

#include <cstddef>
#include <string>

#include "rdr/InStream.h"

namespace svr {

// Collects a stated number of bytes that may arrive in pieces. Memory grows with what arrives, not
// with what was announced. Of a text that is too long nothing is kept.
class ByteReader {
 public:
  static constexpr size_t kMaxSize = 32 * 1024 * 1024;

  // Begins a text of that many bytes.
  void begin(size_t length);
  bool isInProgress() const { return inProgress_; }
  // Takes what the stream has; true when the text is complete. Throws what the stream throws, and
  // std::bad_alloc; the text is then forgotten.
  bool read(rdr::InStream& in);
  // How many bytes the announced text is too long.
  size_t dropped() const { return expected_ > kMaxSize ? expected_ - kMaxSize : 0; }
  // The complete text, which is forgotten here.
  std::string take();
  // Forgets the text, complete or not.
  void reset();

 private:
  std::string text_;
  size_t expected_ = 0;
  size_t received_ = 0;
  bool inProgress_ = false;
};

}  // namespace svr

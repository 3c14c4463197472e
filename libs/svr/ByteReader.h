#pragma once

#include <cstddef>
#include <vector>

#include "rdr/InStream.h"

namespace svr {

// Collects a stated number of bytes that may arrive in pieces. Memory grows with what arrives, not
// with what was announced.
class ByteReader {
 public:
  // Begins, or goes on with, a text of that many bytes. Throws plat::Exception when a text of
  // another length is under way.
  void init(size_t length);
  // Takes what the stream has; true when the text is complete. Throws what the stream throws.
  bool read(rdr::InStream& in);
  // Forgets the text, complete or not.
  void reset();

  const char* data() const { return buffer_.data(); }
  size_t size() const { return buffer_.size(); }

 private:
  std::vector<char> buffer_;
  size_t expected_ = 0;
  bool inProgress_ = false;
};

}  // namespace svr

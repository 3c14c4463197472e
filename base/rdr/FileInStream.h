#pragma once

#include <memory>
#include <string>

#include "plat/FileDescriptor.h"
#include "rdr/InStream.h"

namespace rdr {

// Reads a file. Errors: SystemException "open" or "read", EndOfStream "End of file",
// plat::Exception "InStream overrun: buffer size exceeded" for an item above kBufferSize.
class FileInStream : public InStream {
 public:
  static constexpr size_t kBufferSize = 64 * 1024;

  explicit FileInStream(const std::string& path);

  // Whether all has been read.
  bool atEnd();

 protected:
  size_t overrun(size_t itemSize, size_t nItems, bool wait) override;

 private:
  // One read behind what is buffered; false at the end of the file.
  bool readMore();

  plat::FileDescriptor fd_;
  std::unique_ptr<uint8_t[]> buffer_;
};

}  // namespace rdr

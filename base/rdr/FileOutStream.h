#pragma once

#include <memory>
#include <string>

#include "plat/FileDescriptor.h"
#include "rdr/OutStream.h"

namespace rdr {

// Writes a file, through a buffer that flush() empties. Errors: SystemException "open", "write" or
// "close".
class FileOutStream : public OutStream {
 public:
  // Makes the file, or empties the one that is there.
  explicit FileOutStream(const std::string& path);

  void flush() override;
  uint64_t length() const override;
  // Flushes and closes; what is still buffered without it is lost.
  void close();

 protected:
  explicit FileOutStream(plat::FileDescriptor fd);

  int fd() const { return fd_.get(); }
  size_t overrun(size_t itemSize, size_t nItems) override;

 private:
  plat::FileDescriptor fd_;
  uint64_t written_ = 0;
  std::unique_ptr<uint8_t[]> buffer_;
};

}  // namespace rdr

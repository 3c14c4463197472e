#include "rdr/FileOutStream.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "plat/Exception.h"

namespace rdr {

namespace {

constexpr size_t kBufferSize = 64 * 1024;

}  // namespace

FileOutStream::FileOutStream(const std::string& path)
    : FileOutStream(plat::FileDescriptor(
          open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666))) {}

FileOutStream::FileOutStream(plat::FileDescriptor fd)
    : fd_(std::move(fd)), buffer_(std::make_unique_for_overwrite<uint8_t[]>(kBufferSize)) {
  if (!fd_) throw plat::SystemException("open", errno);
  ptr_ = buffer_.get();
  end_ = ptr_ + kBufferSize;
}

uint64_t FileOutStream::length() const {
  return written_ + static_cast<uint64_t>(ptr_ - buffer_.get());
}

void FileOutStream::flush() {
  const uint8_t* from = buffer_.get();
  const uint8_t* const end = ptr_;
  ptr_ = buffer_.get();
  while (from < end) {
    const ssize_t n = write(fd_.get(), from, static_cast<size_t>(end - from));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) throw plat::SystemException("write", errno);
    from += n;
    written_ += static_cast<uint64_t>(n);
  }
}

void FileOutStream::close() {
  flush();
  if (::close(fd_.release()) != 0) throw plat::SystemException("close", errno);
}

size_t FileOutStream::overrun(size_t itemSize, size_t nItems) {
  flush();
  return std::min(nItems, space() / itemSize);
}

}  // namespace rdr

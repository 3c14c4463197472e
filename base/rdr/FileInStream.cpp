#include "rdr/FileInStream.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "plat/Exception.h"
#include "rdr/Exceptions.h"

namespace rdr {

FileInStream::FileInStream(const std::string& path)
    : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC)),
      buffer_(std::make_unique_for_overwrite<uint8_t[]>(kBufferSize)) {
  if (!fd_) throw plat::SystemException("open", errno);
  ptr_ = end_ = buffer_.get();
}

bool FileInStream::atEnd() {
  return available() == 0 && !readMore();
}

size_t FileInStream::overrun(size_t itemSize, size_t nItems, bool) {
  if (itemSize > kBufferSize) throw plat::Exception("InStream overrun: buffer size exceeded");
  while (available() < itemSize) {
    if (!readMore()) throw EndOfStream("End of file");
  }
  return std::min(nItems, available() / itemSize);
}

bool FileInStream::readMore() {
  const size_t held = available();
  std::memmove(buffer_.get(), ptr_, held);
  ptr_ = buffer_.get();
  end_ = ptr_ + held;
  ssize_t got;
  do {
    got = read(fd_.get(), buffer_.get() + held, kBufferSize - held);
  } while (got < 0 && errno == EINTR);
  if (got < 0) throw plat::SystemException("read", errno);
  end_ += got;
  return got > 0;
}

}  // namespace rdr

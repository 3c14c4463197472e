#pragma once

#include "plat/FileDescriptor.h"
#include "rdr/FdInStream.h"

namespace rdr {

// Closes its descriptor when destroyed.
class FdInStreamOwn : public FdInStream {
 public:
  explicit FdInStreamOwn(plat::FileDescriptor fd, size_t maxBuffer = kDefaultMaxBuffer)
      : FdInStream(fd.get(), maxBuffer), owned_(std::move(fd)) {}

 private:
  plat::FileDescriptor owned_;
};

}  // namespace rdr

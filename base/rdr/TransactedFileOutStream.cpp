#include "rdr/TransactedFileOutStream.h"

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "plat/Exception.h"

namespace rdr {

namespace {

std::string targetOf(const std::string& path) {
  char resolved[PATH_MAX];
  if (!realpath(path.c_str(), resolved)) return path;
  struct stat status;
  // A device or a pipe is not to be replaced.
  if (stat(resolved, &status) == 0 && !S_ISREG(status.st_mode)) {
    throw plat::Exception("not a regular file");
  }
  return resolved;
}

}  // namespace

// A new file beside another one.
struct TransactedFileOutStream::Beside {
  explicit Beside(const std::string& path)
      : name(path + ".XXXXXX"), fd(mkostemp(name.data(), O_CLOEXEC)) {}

  std::string name;
  plat::FileDescriptor fd;
};

TransactedFileOutStream::TransactedFileOutStream(const std::string& path)
    : TransactedFileOutStream(targetOf(path), Beside(targetOf(path))) {}

TransactedFileOutStream::TransactedFileOutStream(std::string target, Beside beside)
    : FileOutStream(std::move(beside.fd)),
      target_(std::move(target)),
      temporary_(std::move(beside.name)) {}

TransactedFileOutStream::~TransactedFileOutStream() {
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

void TransactedFileOutStream::commit() {
  flush();
  if (fsync(fd()) != 0) throw plat::SystemException("fsync", errno);
  close();
  if (std::rename(temporary_.c_str(), target_.c_str()) != 0) {
    throw plat::SystemException("rename", errno);
  }
  temporary_.clear();
}

}  // namespace rdr

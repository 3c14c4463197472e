#include "plat/shm/LockDir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <set>

#include "plat/Exception.h"
#include "plat/FileDescriptor.h"

namespace plat {

namespace {

constexpr const char* kBase = "/tmp";
constexpr const char* kProgram = "ruvo";

std::string& base() {
  static std::string base = kBase;
  return base;
}

std::set<std::string>& used() {
  static std::set<std::string> used;
  return used;
}

// Opens a directory below another (or at an absolute path), which is made if need be. Relative to
// its parent's descriptor, so that nothing can be put in the place of what was checked.
FileDescriptor openOwn(int parent, const std::string& name, const std::string& path) {
  if (mkdirat(parent, name.c_str(), 0700) != 0 && errno != EEXIST) {
    throw SystemException("mkdir " + path, errno);
  }
  FileDescriptor fd(openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!fd) throw SystemException("open " + path, errno);
  struct stat status {};
  if (fstat(fd.get(), &status) != 0) throw SystemException("fstat " + path, errno);
  if (status.st_uid != geteuid()) throw SystemException("open " + path, EPERM);
  if ((status.st_mode & 07777) != 0700 && fchmod(fd.get(), 0700) != 0) {
    throw SystemException("chmod " + path, errno);
  }
  return fd;
}

}  // namespace

std::string LockDir::path(const char* kind) {
  std::string path = format("%s/.%s-%u", base().c_str(), kProgram, unsigned{geteuid()});
  FileDescriptor fd = openOwn(AT_FDCWD, path, path);
  for (const char* name : {"shm", kind}) {
    path = path + "/" + name;
    fd = openOwn(fd.get(), name, path);
  }
  return path;
}

bool LockDir::firstUse(const char* kind) {
  return used().insert(kind).second;
}

void LockDir::setBase(const std::string& directory) {
  base() = directory.empty() ? kBase : directory;
  used().clear();
}

}  // namespace plat

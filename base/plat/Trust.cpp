#include "plat/Trust.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "plat/Exception.h"
#include "plat/Files.h"

namespace plat {

namespace {

constexpr int kDirectory = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
// Not to be blocked by a pipe without a reader.
constexpr int kAppend = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;

struct stat statusOf(int fd) {
  struct stat status;
  if (fstat(fd, &status) != 0) throw SystemException("fstat", errno);
  return status;
}

void requireOwned(const struct stat& status) {
  if (status.st_uid != 0) throw Exception("not owned by root");
}

// Root's own group is as good as root, and may write where the umask lets it.
bool othersCanWrite(const struct stat& status) {
  return (status.st_mode & (status.st_gid == 0 ? S_IWOTH : S_IWGRP | S_IWOTH)) != 0;
}

FileDescriptor openDirectory(int parent, const std::string& name) {
  const bool isRoot = geteuid() == 0;
  FileDescriptor fd(openat(parent, name.c_str(), kDirectory | (isRoot ? O_NOFOLLOW : 0)));
  struct stat link;
  if (!fd && isRoot && (errno == ELOOP || errno == ENOTDIR) &&
      fstatat(parent, name.c_str(), &link, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(link.st_mode)) {
    requireOwned(link);
    fd.reset(openat(parent, name.c_str(), kDirectory));
  }
  if (!fd) throw SystemException("open", errno);
  return fd;
}

}  // namespace

void requireTrusted(int fd) {
  if (geteuid() != 0) return;
  const struct stat status = statusOf(fd);
  requireOwned(status);
  if (othersCanWrite(status)) throw Exception("writable by other users");
}

FileDescriptor openTrustedDirectory(int parent, const std::string& name) {
  FileDescriptor fd = openDirectory(parent, name);
  requireTrusted(fd.get());
  return fd;
}

FileDescriptor openTrustedLog(const std::string& path, mode_t mode, int flags) {
  if (geteuid() != 0) {
    FileDescriptor file(open(path.c_str(), kAppend | flags, mode));
    if (!file) throw SystemException("open", errno);
    return file;
  }
  const size_t slash = path.rfind('/');
  std::string parent = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  // With a slash at the end a link would be followed.
  while (parent.size() > 1 && parent.back() == '/') parent.pop_back();
  const FileDescriptor directory = openDirectory(AT_FDCWD, parent);
  const struct stat status = statusOf(directory.get());
  const bool sticky = (status.st_mode & S_ISVTX) != 0;
  requireOwned(status);
  if (!sticky) requireTrusted(directory.get());
  FileDescriptor file(
      openat(directory.get(), path.c_str() + slash + 1, kAppend | O_NOFOLLOW | flags, mode));
  if (!file) throw SystemException("open", errno);
  requireRegularFile(file.get());
  if (sticky) {
    const struct stat own = statusOf(file.get());
    requireOwned(own);
    if (own.st_nlink != 1) throw Exception("has other names");
  }
  return file;
}

}  // namespace plat

#include "plat/shm/LockFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "plat/Exception.h"
#include "plat/log/LogSrc.h"

namespace plat {

namespace {

LogSrc vlog("LockFile");

// Whether the path still names the file that is open: another process may have removed it between
// our opening and locking it.
bool isSameFile(int fd, const std::string& path) {
  struct stat opened {
  }, named{};
  if (fstat(fd, &opened) != 0) throw SystemException("fstat " + path, errno);
  if (lstat(path.c_str(), &named) != 0) {
    if (errno == ENOENT) return false;
    throw SystemException("lstat " + path, errno);
  }
  return opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

}  // namespace

std::unique_ptr<LockFile> LockFile::create(const std::string& path) {
  return lock(path, O_CREAT);
}

std::unique_ptr<LockFile> LockFile::openStale(const std::string& path) {
  try {
    return lock(path, 0);
  } catch (const SystemException&) {
    return nullptr;
  }
}

std::unique_ptr<LockFile> LockFile::lock(const std::string& path, int flags) {
  while (true) {
    FileDescriptor fd(::open(
        path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | flags, 0600));
    if (!fd) throw SystemException("open " + path, errno);
    if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
      if (errno == EWOULDBLOCK) return nullptr;
      if (errno == EINTR) continue;
      throw SystemException("flock " + path, errno);
    }
    if (isSameFile(fd.get(), path)) {
      return std::unique_ptr<LockFile>(new LockFile(path, std::move(fd)));
    }
  }
}

// Removed first, then unlocked: nobody can lock a file that is about to go.
LockFile::~LockFile() {
  if (unlink(path_.c_str()) != 0 && errno != ENOENT) {
    vlog.error("Failed to remove %s: %s", path_.c_str(), SystemException("unlink", errno).text());
  }
}

std::string LockFile::readNote() const {
  char note[64];
  const ssize_t n = pread(fd_.get(), note, sizeof note - 1, 0);
  return n > 0 ? std::string(note, static_cast<size_t>(n)) : std::string();
}

void LockFile::writeNote(const std::string& note) {
  if (ftruncate(fd_.get(), 0) != 0 ||
      pwrite(fd_.get(), note.data(), note.size(), 0) != static_cast<ssize_t>(note.size())) {
    throw SystemException("write " + path_, errno);
  }
}

}  // namespace plat

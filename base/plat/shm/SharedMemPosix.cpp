#include "plat/shm/SharedMemPosix.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <system_error>
#include <utility>

#include "plat/Assert.h"
#include "plat/Exception.h"
#include "plat/log/LogSrc.h"
#include "plat/shm/LockDir.h"

namespace plat {

namespace {

LogSrc vlog("SharedMemPosix");

constexpr const char* kKind = "Posix";
constexpr const char* kProgram = "ruvo";

// Whether a lock file's name is that of a block, "ruvo-<process>-<serial>".
bool isBlockName(const std::string& name) {
  const std::string prefix = std::string(kProgram) + "-";
  if (!name.starts_with(prefix)) return false;
  const std::string rest = name.substr(prefix.size());
  const size_t hyphen = rest.find('-');
  const auto isNumber = [](const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
  };
  return hyphen != std::string::npos && isNumber(rest.substr(0, hyphen)) &&
         isNumber(rest.substr(hyphen + 1));
}

}  // namespace

SharedMemPosix::SharedMemPosix(std::string name, uint32_t size, bool isFile, uint64_t pos,
                               std::nullptr_t)
    : SharedMem(size), name_(std::move(name)), isFile_(isFile), pos_(pos) {}

// The destructor runs, and undoes what was done, when the rest of a constructor throws.
SharedMemPosix::SharedMemPosix(uint32_t size, const SharedMemPermissions* permissions)
    : SharedMemPosix(std::string(), size, false, 0, nullptr) {
  const std::string directory = LockDir::path(kKind);
  if (LockDir::firstUse(kKind)) cleanStale();
  name_ = format("/%s-%ld-%lld", kProgram, static_cast<long>(getpid()),
                 static_cast<long long>(serial()));
  // Before the block is there: one that is not locked can never be seen.
  lock_ = LockFile::create(directory + name_);
  if (!lock_) throw SystemException("open/shm_open failed", EEXIST);
  vlog.debug("Create %s size %#x", name_.c_str(), size);
  map(true);
  if (permissions) applyPermissions(*permissions);
}

SharedMemPosix::SharedMemPosix(const std::string& name, uint32_t size, bool isFile, uint64_t pos)
    : SharedMemPosix(name, size, isFile, pos, nullptr) {
  if (isFile) {
    vlog.debug("Open file %s size %#x pos %#llx", name.c_str(), size,
               static_cast<unsigned long long>(pos));
  }
  map(false);
}

void SharedMemPosix::map(bool create) {
  PLAT_ASSERT(!isFile_ || !create);
  if (isFile_) {
    fd_.reset(::open(name_.c_str(), O_RDWR | O_SYNC | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  } else {
    fd_.reset(shm_open(name_.c_str(), O_RDWR | (create ? O_CREAT | O_EXCL : 0), 0600));
  }
  if (!fd_) throw SystemException("open/shm_open failed", errno);
  if (create) {
    unlinkName_ = name_;
    leftover_.setPosixMemory(name_.c_str());
    // Space is taken now: without it, a full file system would be met as SIGBUS when drawing.
    const auto length = static_cast<off_t>(size_);
    int error = ftruncate(fd_.get(), length) == 0 ? 0 : errno;
    if (error == 0) {
      do {
        error = posix_fallocate(fd_.get(), 0, length);
      } while (error == EINTR);
      if (error != ENOSPC) error = 0;
    }
    if (error != 0) throw SystemException(format("ftruncate(%u) failed", size_), error);
  }

  const uint64_t end = pos_ + size_;
  struct stat status {};
  if (fstat(fd_.get(), &status) != 0) throw SystemException("fstat", errno);
  if (end < pos_ || end > static_cast<uint64_t>(std::numeric_limits<off_t>::max()) ||
      !S_ISREG(status.st_mode) || static_cast<uint64_t>(status.st_size) < end) {
    throw Exception("invalid shared memory size");
  }
  const auto pageSize = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  const uint64_t offset = pos_ % pageSize;
  if (size_ + offset > std::numeric_limits<size_t>::max()) {
    throw SystemException("mmap failed", ENOMEM);
  }
  mappedSize_ = static_cast<size_t>(size_ + offset);
  void* const mapped = mmap(nullptr, mappedSize_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_.get(),
                            static_cast<off_t>(pos_ - offset));
  if (mapped == MAP_FAILED) throw SystemException("mmap failed", errno);
  mapped_ = mapped;
  data_ = static_cast<uint8_t*>(mapped) + offset;
  vlog.debug("Map %s = %p", name_.c_str(), static_cast<void*>(data_));
}

void SharedMemPosix::applyPermissions(const SharedMemPermissions& permissions) {
  if ((permissions.uid != -1 || permissions.gid != -1) &&
      fchown(fd_.get(), static_cast<uid_t>(permissions.uid), static_cast<gid_t>(permissions.gid)) !=
          0) {
    vlog.error("Unable to give %s to user %d: %s", name_.c_str(), permissions.uid,
               SystemException("fchown", errno).text());
  }
  if (fchmod(fd_.get(), permissions.mode & 0777) != 0) {
    vlog.error("Unable to set the mode of %s: %s", name_.c_str(),
               SystemException("fchmod", errno).text());
  }
}

SharedMemPosix::~SharedMemPosix() {
  if (mapped_) {
    vlog.debug("Unmap %s %p", name_.c_str(), static_cast<void*>(data_));
    if (munmap(mapped_, mappedSize_) != 0) {
      vlog.error("%s", SystemException("munmap", errno).text());
    }
  }
  if (!unlinkName_.empty() && shm_unlink(unlinkName_.c_str()) != 0 && errno != ENOENT) {
    vlog.error("%s", SystemException("shm_unlink " + unlinkName_, errno).text());
  }
  lock_.reset();
}

SharedMemDescriptor SharedMemPosix::descriptor() const {
  SharedMemDescriptor descriptor;
  descriptor.kind = SharedMemDescriptor::Kind::kPosix;
  descriptor.size = size_;
  descriptor.name = name_;
  descriptor.isFile = isFile_;
  descriptor.pos = pos_;
  return descriptor;
}

void SharedMemPosix::cleanStale() {
  try {
    const std::string directory = LockDir::path(kKind);
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
      const std::string name = entry.path().filename();
      if (!isBlockName(name)) continue;
      // Held until the block is gone, and removed with the lock.
      const std::unique_ptr<LockFile> lock = LockFile::openStale(entry.path());
      if (!lock) continue;
      vlog.debug("Cleaning old shared memory /%s", name.c_str());
      shm_unlink(("/" + name).c_str());
    }
  } catch (const std::filesystem::filesystem_error&) {
  } catch (const Exception&) {
  }
}

}  // namespace plat

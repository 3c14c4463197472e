#include "plat/shm/SharedMemPosix.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <limits>
#include <system_error>
#include <utility>

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

uint64_t randomNumber() {
  uint64_t number = 0;
  while (getrandom(&number, sizeof number, 0) < 0 && errno == EINTR) {
  }
  return number;
}

}  // namespace

SharedMemPosix::SharedMemPosix(std::string name, uint32_t size, bool isFile, uint64_t pos,
                               std::nullptr_t)
    : SharedMem(size), name_(std::move(name)), isFile_(isFile), pos_(pos) {}

// The destructor runs, and undoes what was done, when the rest of a constructor throws.
SharedMemPosix::SharedMemPosix(uint32_t size, const SharedMemPermissions* permissions)
    : SharedMemPosix(std::string(), size, false, 0, nullptr) {
  if (LockDir::firstUse(kKind)) cleanStale();
  create();
  map();
  if (permissions) applyPermissions(*permissions);
}

SharedMemPosix::SharedMemPosix(const std::string& name, uint32_t size, bool isFile, uint64_t pos)
    : SharedMemPosix(name, size, isFile, pos, nullptr) {
  if (isFile) {
    vlog.debug("Open file %s size %#x pos %#llx", name.c_str(), size,
               static_cast<unsigned long long>(pos));
  }
  fd_.reset(isFile ? ::open(name_.c_str(), O_RDWR | O_SYNC | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)
                   : shm_open(name_.c_str(), O_RDWR, 0));
  if (!fd_) throw SystemException("open/shm_open failed", errno);
  map();
}

void SharedMemPosix::create() {
  // Anybody may have taken a name that can be guessed.
  for (const uint64_t number : {serial(), randomNumber()}) {
    name_ = format("/%s-%ld-%llu", kProgram, static_cast<long>(getpid()),
                   static_cast<unsigned long long>(number));
    // Before the block is there: one that is not locked can never be seen.
    lock_ = LockDir::lock(kKind, name_.substr(1));
    vlog.debug("Create %s size %#x", name_.c_str(), size_);
    fd_.reset(shm_open(name_.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600));
    if (fd_ || errno != EEXIST) break;
  }
  if (!fd_) throw SystemException("open/shm_open failed", errno);
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

void SharedMemPosix::map() {
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
  LockDir::clean(kKind, isBlockName, [](const LockFile&, const std::string& name) {
    vlog.debug("Cleaning old shared memory /%s", name.c_str());
    shm_unlink(("/" + name).c_str());
  });
}

}  // namespace plat

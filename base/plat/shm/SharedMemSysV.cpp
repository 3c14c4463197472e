#include "plat/shm/SharedMemSysV.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>

#include "plat/Exception.h"
#include "plat/FileDescriptor.h"
#include "plat/Files.h"
#include "plat/Text.h"
#include "plat/log/LogSrc.h"
#include "plat/shm/LockDir.h"

namespace plat {

namespace {

LogSrc vlog("SharedMemSysV");

constexpr const char* kKind = "SysV";

// The segment id that a lock file is named after; -1 for another name.
int idOf(const std::string& name) {
  if (name.empty() || name.size() > 10 ||
      name.find_first_not_of("0123456789") != std::string::npos) {
    return -1;
  }
  const long long id = std::atoll(name.c_str());
  return id <= INT_MAX ? static_cast<int>(id) : -1;
}

// Empty when the system does not tell.
const std::string& bootId() {
  static const std::string id = [] {
    const FileDescriptor file(open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
    try {
      return file ? std::string(trimmed(readUpTo(file.get(), 36))) : std::string();
    } catch (const SystemException&) {
      return std::string();
    }
  }();
  return id;
}

// Ids are reused, after a restart of the machine from the beginning: the note in the lock file says
// which process made the segment that it stands for, and since which start of the machine.
std::string noteOf(pid_t creator) {
  return format("%lld %s", static_cast<long long>(creator), bootId().c_str());
}

bool isNotedCreator(const LockFile& lock, int id) {
  shmid_ds status{};
  return !bootId().empty() && shmctl(id, IPC_STAT, &status) == 0 &&
         lock.readNote() == noteOf(status.shm_cpid);
}

}  // namespace

SharedMemSysV::SharedMemSysV(uint32_t size, std::nullptr_t) : SharedMem(size) {}

// The destructor runs, and undoes what was done, when the rest of a constructor throws.
SharedMemSysV::SharedMemSysV(uint32_t size, const SharedMemPermissions* permissions)
    : SharedMemSysV(size, nullptr) {
  if (LockDir::firstUse(kKind)) cleanStale();
  id_ = shmget(IPC_PRIVATE, size, IPC_CREAT | 0600);
  if (id_ < 0) throw NoneLeft(format("shmget(%u) failed", size), errno);
  created_ = true;
  leftover_.setSysVMemory(id_);
  vlog.debug("Create %d size %#x", id_, size);
  lock_ = LockDir::lock(kKind, std::to_string(id_));
  if (lock_) lock_->writeNote(noteOf(getpid()));
  attach(permissions);
}

SharedMemSysV::SharedMemSysV(int id, uint32_t size) : SharedMemSysV(size, nullptr) {
  if (id < 0) throw Exception("Bad SharedMemSysV id %d", id);
  id_ = id;
  attach(nullptr);
}

void SharedMemSysV::attach(const SharedMemPermissions* permissions) {
  void* const address = shmat(id_, nullptr, 0);
  if (address == reinterpret_cast<void*>(-1)) throw SystemException("shmat failed", errno);
  data_ = static_cast<uint8_t*>(address);
  attachedId_ = id_;
  vlog.debug("Attached %d = %p", id_, address);
  shmid_ds status{};
  if (shmctl(id_, IPC_STAT, &status) != 0) throw SystemException("shmctl(IPC_STAT)", errno);
  if (status.shm_segsz < size_) throw Exception("invalid shared memory size");
  if (!permissions) return;
  if (permissions->uid != -1) status.shm_perm.uid = static_cast<uid_t>(permissions->uid);
  if (permissions->gid != -1) status.shm_perm.gid = static_cast<gid_t>(permissions->gid);
  status.shm_perm.mode = static_cast<decltype(status.shm_perm.mode)>(permissions->mode & 0777);
  if (shmctl(id_, IPC_SET, &status) != 0) throw SystemException("shmctl(IPC_SET)", errno);
}

SharedMemSysV::~SharedMemSysV() {
  if (attachedId_ >= 0) {
    vlog.debug("Detaching %p", static_cast<void*>(data_));
    if (shmdt(data_) != 0) vlog.error("%s", SystemException("shmdt", errno).text());
  }
  if (created_) {
    vlog.debug("Removing %d", id_);
    if (shmctl(id_, IPC_RMID, nullptr) != 0) {
      vlog.error("%s", SystemException("shmctl(IPC_RMID)", errno).text());
    }
  }
}

SharedMemDescriptor SharedMemSysV::descriptor() const {
  SharedMemDescriptor descriptor;
  descriptor.kind = SharedMemDescriptor::Kind::kSysV;
  descriptor.size = size_;
  descriptor.id = id_;
  return descriptor;
}

void SharedMemSysV::cleanStale() {
  LockDir::clean(
      kKind, [](const std::string& name) { return idOf(name) >= 0; },
      [](const LockFile& lock, const std::string& name) {
        const int id = idOf(name);
        if (!isNotedCreator(lock, id)) return;
        vlog.debug("Cleaning old shared memory %d", id);
        shmctl(id, IPC_RMID, nullptr);
      });
}

}  // namespace plat

#include "plat/shm/SharedMemSysV.h"

#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "plat/Exception.h"
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

// Ids are reused, after a restart of the machine from the beginning: the note in the lock file says
// which process made the segment that it stands for.
bool isNotedCreator(const LockFile& lock, int id) {
  const std::string note = lock.readNote();
  shmid_ds status{};
  return note.empty() || (shmctl(id, IPC_STAT, &status) == 0 &&
                          note == std::to_string(static_cast<long long>(status.shm_cpid)));
}

}  // namespace

SharedMemSysV::SharedMemSysV(uint32_t size, std::nullptr_t) : SharedMem(size) {}

// The destructor runs, and undoes what was done, when the rest of a constructor throws.
SharedMemSysV::SharedMemSysV(uint32_t size, const SharedMemPermissions* permissions)
    : SharedMemSysV(size, nullptr) {
  const std::string directory = LockDir::path(kKind);
  if (LockDir::firstUse(kKind)) cleanStale();
  id_ = shmget(IPC_PRIVATE, size, IPC_CREAT | 0600);
  if (id_ < 0) throw SystemException(format("shmget(%u) failed", size), errno);
  created_ = true;
  leftover_.setSysVMemory(id_);
  vlog.debug("Create %d size %#x", id_, size);
  const std::string path = format("%s/%d", directory.c_str(), id_);
  lock_ = LockFile::create(path);
  if (!lock_) throw SystemException("lock " + path, EWOULDBLOCK);
  lock_->writeNote(std::to_string(static_cast<long long>(getpid())));
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
  try {
    const std::string directory = LockDir::path(kKind);
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
      const int id = idOf(entry.path().filename());
      if (id < 0) continue;
      // Held until the segment is gone, and removed with the lock.
      const std::unique_ptr<LockFile> lock = LockFile::openStale(entry.path());
      if (!lock || !isNotedCreator(*lock, id)) continue;
      vlog.debug("Cleaning old shared memory %d", id);
      shmctl(id, IPC_RMID, nullptr);
    }
  } catch (const std::filesystem::filesystem_error&) {
  } catch (const Exception&) {
  }
}

}  // namespace plat

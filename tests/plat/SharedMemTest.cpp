#include "plat/shm/SharedMem.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "plat/Exception.h"
#include "plat/FileDescriptor.h"
#include "plat/shm/LockDir.h"
#include "plat/shm/SharedMemPosix.h"
#include "plat/shm/SharedMemSysV.h"
#include "plat/shm/openSharedMem.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

namespace plat {
namespace {

bool posixExists(const std::string& name) {
  return FileDescriptor(shm_open(name.c_str(), O_RDONLY, 0)).get() >= 0;
}

class SharedMemTest : public testing::Test {
 protected:
  SharedMemTest() { LockDir::setBase(base_.path()); }
  ~SharedMemTest() override { LockDir::setBase(""); }

  const support::TempDir base_;
  const std::string locks_ = base_ / ".ruvo-" + std::to_string(geteuid()) + "/shm";
};

TEST_F(SharedMemTest, BlocksAreShared) {
  const support::LogCapture lines;
  const mode_t mask = umask(0);
  const SharedMemPosix posix(5000);
  umask(mask);
  const SharedMemSysV sysV(5000);
  EXPECT_EQ(posix.name(),
            "/ruvo-" + std::to_string(getpid()) + "-" + std::to_string(sysV.serial() - 1));
  struct stat status {};
  ASSERT_EQ(stat(("/dev/shm" + posix.name()).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u) << "nobody else sees the screen";
  for (const SharedMem* block : std::initializer_list<const SharedMem*>{&posix, &sysV}) {
    EXPECT_EQ(std::count(block->data(), block->data() + 5000, 0), 5000);
    const auto peer = openSharedMem(block->descriptor());
    peer->data()[4999] = 42;
    EXPECT_EQ(block->data()[4999], 42);
  }
  EXPECT_EQ(1, lines.count("Create " + posix.name() + " size 0x1388", 100, "SharedMemPosix"));
  EXPECT_EQ(1, lines.count(format("Create %d size 0x1388", sysV.id()), 100, "SharedMemSysV"));
}

TEST_F(SharedMemTest, Errors) {
  const SharedMemSysV small(100);
  const std::string path = base_ / "file";
  std::ofstream(path) << std::string(100, 'a');
  using Kind = SharedMemDescriptor::Kind;
  const std::pair<SharedMemDescriptor, const char*> cases[] = {
      {{Kind::kSysV, 100, {}, false, 0, INT32_MIN}, "Bad SharedMemSysV id -2147483648"},
      {{Kind::kSysV, 8192, {}, false, 0, small.id()}, "invalid shared memory size"},
      {{Kind::kPosix, 100, path, true, 1, -1}, "invalid shared memory size"},
      {{Kind::kPosix, 100, path, true, UINT64_MAX, -1}, "invalid shared memory size"},
      {{Kind::kPosix, 0, "/dev/zero", true, 0, -1}, "invalid shared memory size"},
  };
  for (const auto& [descriptor, text] : cases) {
    const std::string thrown = support::thrownText([&] { openSharedMem(descriptor); });
    EXPECT_TRUE(thrown.starts_with(text)) << thrown;
  }
}

TEST_F(SharedMemTest, OnlyBlocksOfCrashedProcessesAreCleaned) {
  const SharedMemPosix held(100);
  const SharedMemSysV heldSysV(100);
  // What is there without a lock, as after a crash.
  const std::string name = "/ruvo-1-" + std::to_string(getpid());
  close(shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600));
  const std::string lock = locks_ + "/Posix" + name;
  std::ofstream(lock) << "";
  // Segments that came to an id which once was ours, before the machine was started again, too; and
  // one of a process that has gone.
  const auto segment = [this](const std::string& note) {
    const int id = shmget(IPC_PRIVATE, 100, IPC_CREAT | 0600);
    std::ofstream(locks_ + "/SysV/" + std::to_string(id)) << note;
    return id;
  };
  std::string bootId;
  std::getline(std::ifstream("/proc/sys/kernel/random/boot_id"), bootId);
  const std::string pid = std::to_string(getpid());
  const int foreign[] = {segment("1 " + bootId), segment(pid + " 0" + bootId.substr(1)),
                         segment("")};
  const int stale = segment(pid + " " + bootId);

  SharedMemPosix::cleanStale();
  SharedMemSysV::cleanStale();
  EXPECT_FALSE(posixExists(name) || std::filesystem::exists(lock));
  EXPECT_TRUE(posixExists(held.name()));
  shmid_ds status;
  EXPECT_EQ(shmctl(heldSysV.id(), IPC_STAT, &status), 0);
  EXPECT_EQ(shmctl(stale, IPC_STAT, &status), -1);
  for (const int id : foreign) EXPECT_EQ(shmctl(id, IPC_RMID, nullptr), 0);
}

TEST_F(SharedMemTest, NobodyPreventsIt) {
  // The next name, as anybody can guess it.
  const uint64_t next = SharedMemPosix(1).serial() + 1;
  const std::string taken =
      format("/ruvo-%ld-%llu", static_cast<long>(getpid()), static_cast<unsigned long long>(next));
  close(shm_open(taken.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600));
  const SharedMemPosix posix(5000);
  EXPECT_NE(posix.name(), taken);
  EXPECT_EQ(openSharedMem(posix.descriptor())->size(), 5000u);
  shm_unlink(taken.c_str());
}

}  // namespace
}  // namespace plat

#include "plat/SharedMem.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <string>

#include "plat/Exception.h"
#include "plat/FileDescriptor.h"
#include "plat/LockDir.h"
#include "plat/SharedMemPosix.h"
#include "plat/SharedMemSysV.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace plat {
namespace {

bool posixExists(const std::string& name) {
  return FileDescriptor(shm_open(name.c_str(), O_RDONLY, 0)).get() >= 0;
}

bool sysVExists(int id) {
  shmid_ds status{};
  return shmctl(id, IPC_STAT, &status) == 0;
}

bool fileExists(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

class SharedMemTest : public testing::Test {
 protected:
  SharedMemTest() { LockDir::setBase(base_.path()); }
  ~SharedMemTest() override { LockDir::setBase(""); }

  const test::TempDir base_;
  const std::string locks_ = base_ / ".ruvo-" + std::to_string(geteuid()) + "/shm";
};

TEST_F(SharedMemTest, BlocksAreSharedAndRemoved) {
  const support::LogCapture lines;
  std::string name, lock, sysVLock;
  int id = -1;
  {
    const SharedMemPosix posix(5000);
    const SharedMemSysV sysV(5000);
    EXPECT_EQ(sysV.serial(), posix.serial() + 1);
    name = posix.name();
    EXPECT_EQ(name, "/ruvo-" + std::to_string(getpid()) + "-" + std::to_string(posix.serial()));
    id = sysV.id();
    lock = locks_ + "/Posix" + name;
    sysVLock = locks_ + "/SysV/" + std::to_string(id);
    EXPECT_TRUE(fileExists(lock) && fileExists(sysVLock));
    for (const SharedMem* block : std::initializer_list<const SharedMem*>{&posix, &sysV}) {
      EXPECT_EQ(std::count(block->data(), block->data() + 5000, 0), 5000);
      const auto peer = SharedMem::open(block->descriptor());
      peer->data()[4999] = 42;
      EXPECT_EQ(block->data()[4999], 42);
    }
    EXPECT_EQ(1, lines.count("Create " + name + " size 0x1388", 100, "SharedMemPosix"));
    EXPECT_EQ(1, lines.count(format("Create %d size 0x1388", id), 100, "SharedMemSysV"));
  }
  EXPECT_FALSE(posixExists(name) || fileExists(lock));
  EXPECT_FALSE(sysVExists(id) || fileExists(sysVLock));
}

TEST_F(SharedMemTest, Errors) {
  const SharedMemSysV small(100);
  int removed = -1;
  { removed = SharedMemSysV(100).id(); }
  const std::string path = base_ / "file";
  std::ofstream(path) << std::string(100, 'a');
  using Kind = SharedMemDescriptor::Kind;
  struct {
    SharedMemDescriptor descriptor;
    const char* text;
    int code;
  } const cases[] = {
      {{Kind::sysV, 100, {}, false, 0, INT32_MIN}, "Bad SharedMemSysV id -2147483648", 0},
      {{Kind::sysV, 100, {}, false, 0, removed}, "shmat failed", EINVAL},
      {{Kind::sysV, 8192, {}, false, 0, small.id()}, "invalid shared memory size", 0},
      {{Kind::posix, 100, "/ruvo-none", false, 0, -1}, "open/shm_open failed", ENOENT},
      {{Kind::posix, 100, path, true, 1, -1}, "invalid shared memory size", 0},
      {{Kind::posix, 100, path, true, UINT64_MAX, -1}, "invalid shared memory size", 0},
      {{Kind::posix, 0, "/dev/zero", true, 0, -1}, "invalid shared memory size", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    try {
      SharedMem::open(c.descriptor);
      ADD_FAILURE() << "no exception";
    } catch (const Exception& e) {
      EXPECT_TRUE(std::string(e.text()).starts_with(c.text)) << e.text();
      EXPECT_EQ(e.code(), c.code);
    }
  }
}

// What fails half-way leaves nothing.
TEST_F(SharedMemTest, FailedCreation) {
  EXPECT_THROW(SharedMemSysV(0), SystemException);
  const uint64_t serial = SharedMemPosix(1).serial();
  // An object in the way is neither used nor removed.
  const std::string taken =
      format("/ruvo-%d-%d", static_cast<int>(getpid()), static_cast<int>(serial) + 1);
  close(shm_open(taken.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600));
  EXPECT_THROW(SharedMemPosix(100), SystemException);
  EXPECT_EQ(shm_unlink(taken.c_str()), 0);
  EXPECT_TRUE(std::filesystem::is_empty(locks_ + "/Posix"));
  EXPECT_TRUE(std::filesystem::is_empty(locks_ + "/SysV"));
}

TEST_F(SharedMemTest, OnlyBlocksOfCrashedProcessesAreCleaned) {
  const SharedMemPosix held(100);
  const SharedMemSysV heldSysV(100);
  // What is there without a lock, as after a crash.
  const std::string name = "/ruvo-1-" + std::to_string(getpid());
  close(shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600));
  const int stale = shmget(IPC_PRIVATE, 100, IPC_CREAT | 0600);
  const std::string lock = locks_ + "/Posix" + name;
  const std::string sysVLock = locks_ + "/SysV/" + std::to_string(stale);
  // A segment of another program that came to an id which once was ours.
  const int foreign = shmget(IPC_PRIVATE, 100, IPC_CREAT | 0600);
  std::ofstream(locks_ + "/SysV/" + std::to_string(foreign)) << "1";
  std::ofstream(sysVLock) << getpid();
  // Things that have no business there.
  const std::string strange[] = {locks_ + "/Posix/ruvo-1-x", locks_ + "/SysV/99999999999"};
  for (const std::string& path : {strange[0], strange[1], lock}) std::ofstream(path) << "";

  { const SharedMemPosix later(100); }
  EXPECT_TRUE(posixExists(name)) << "only the first block of a process cleans";
  const support::LogCapture lines;
  SharedMemPosix::cleanStale();
  SharedMemSysV::cleanStale();
  EXPECT_EQ(1, lines.count("Cleaning old shared memory " + name));
  EXPECT_EQ(1, lines.count(format("Cleaning old shared memory %d", stale)));
  EXPECT_FALSE(posixExists(name) || fileExists(lock));
  EXPECT_FALSE(sysVExists(stale) || fileExists(sysVLock));
  EXPECT_TRUE(posixExists(held.name()) && sysVExists(heldSysV.id()) && sysVExists(foreign));
  EXPECT_TRUE(fileExists(strange[0]) && fileExists(strange[1]));
  shmctl(foreign, IPC_RMID, nullptr);
}

}  // namespace
}  // namespace plat

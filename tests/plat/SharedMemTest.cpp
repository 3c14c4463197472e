#include "plat/SharedMem.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

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

// A process that makes one block of each kind, and keeps them until it is killed.
class Maker {
 public:
  Maker() {
    int ends[2];
    if (pipe(ends) != 0) throw SystemException("pipe", errno);
    process_ = fork();
    if (process_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      const SharedMemPosix posix(4096);
      const SharedMemSysV sysV(4096);
      const int sysVId = sysV.id();
      char name[64] = "";
      std::strncpy(name, posix.name().c_str(), sizeof name - 1);
      if (write(ends[1], &sysVId, sizeof sysVId) < 0 || write(ends[1], name, sizeof name) < 0)
        _exit(1);
      while (true) pause();
    }
    close(ends[1]);
    char name[64] = "";
    const bool ok = read(ends[0], &id, sizeof id) == sizeof id &&
                    read(ends[0], name, sizeof name) == sizeof name;
    close(ends[0]);
    posixName = name;
    if (!ok) throw Exception("no blocks were made");
  }
  ~Maker() { crash(); }

  void crash() {
    if (process_ <= 0) return;
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    process_ = -1;
  }

  int id = -1;
  std::string posixName;

 private:
  pid_t process_;
};

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
    const SharedMemPosix next(1);
    EXPECT_EQ(next.serial(), posix.serial() + 1);
    name = posix.name();
    EXPECT_EQ(name, "/ruvo-" + std::to_string(getpid()) + "-" + std::to_string(posix.serial()));
    lock = locks_ + "/Posix" + name;
    EXPECT_TRUE(fileExists(lock));
    struct stat object {};
    ASSERT_EQ(fstat(posix.fd(), &object), 0);
    EXPECT_EQ(object.st_size, 5000);
    EXPECT_EQ(object.st_mode & 0777, 0600u);
    const SharedMemSysV sysV(5000);
    id = sysV.id();
    sysVLock = locks_ + "/SysV/" + std::to_string(id);
    EXPECT_TRUE(fileExists(sysVLock));
    shmid_ds segment{};
    ASSERT_EQ(shmctl(id, IPC_STAT, &segment), 0);
    EXPECT_EQ(segment.shm_segsz, 5000u);
    EXPECT_EQ(segment.shm_perm.mode & 0777, 0600);
    for (const SharedMem* block : std::initializer_list<const SharedMem*>{&posix, &sysV}) {
      EXPECT_EQ(std::count(block->data(), block->data() + 5000, 0), 5000);
      const auto peer = SharedMem::open(block->descriptor());
      EXPECT_NE(peer->data(), block->data());
      peer->data()[4999] = 42;
      EXPECT_EQ(block->data()[4999], 42);
    }
    EXPECT_EQ(1, lines.count("Create " + name + " size 0x1388"));
    EXPECT_EQ(1, lines.count(format("Create %d size 0x1388", id)));
  }
  EXPECT_EQ(1, lines.count(format("Removing %d", id)));
  EXPECT_FALSE(posixExists(name) || fileExists(lock));
  EXPECT_FALSE(sysVExists(id) || fileExists(sysVLock));
}

TEST_F(SharedMemTest, PartOfAFile) {
  const std::string path = base_ / "file";
  std::ofstream(path) << std::string(9000, 'a') << "hello" << std::string(10995, 'a');
  {
    const SharedMemPosix block(path, 11000, true, 9000);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(block.data()), 5), "hello");
    block.data()[10999] = 'z';
    EXPECT_EQ(block.descriptor().pos, 9000u);
  }
  std::string after;
  std::ifstream(path) >> after;
  EXPECT_EQ(after.substr(19998), "az");
}

TEST_F(SharedMemTest, Permissions) {
  SharedMemPermissions permissions;
  permissions.mode = 0640;
  if (geteuid() == 0) permissions.uid = 12345;
  for (const int gid : {-1, geteuid() == 0 ? 23456 : static_cast<int>(getegid())}) {
    permissions.gid = gid;
    const auto expectedUid = geteuid() == 0 ? 12345u : geteuid();
    const auto expectedGid = gid == -1 ? getegid() : static_cast<gid_t>(gid);
    const SharedMemSysV sysV(100, &permissions);
    shmid_ds segment{};
    ASSERT_EQ(shmctl(sysV.id(), IPC_STAT, &segment), 0);
    EXPECT_EQ(segment.shm_perm.uid, expectedUid);
    EXPECT_EQ(segment.shm_perm.gid, expectedGid);
    EXPECT_EQ(segment.shm_perm.mode & 0777, 0640);

    const SharedMemPosix posix(100, &permissions);
    struct stat object {};
    ASSERT_EQ(fstat(posix.fd(), &object), 0);
    EXPECT_EQ(object.st_uid, expectedUid);
    EXPECT_EQ(object.st_gid, expectedGid);
    EXPECT_EQ(object.st_mode & 0777, 0640u);
  }
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
      {{Kind::posix, 100, base_ / "none", true, 0, -1}, "open/shm_open failed", ENOENT},
      {{Kind::posix, 100, path, true, 1, -1}, "invalid shared memory size", 0},
      {{Kind::posix, 100, path, true, UINT64_MAX, -1}, "invalid shared memory size", 0},
      {{Kind::posix, 0, "/dev/zero", true, 0, -1}, "invalid shared memory size", 0},
      {{Kind::posix, 0, path, true, 0, -1}, "mmap failed", EINVAL},
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
  EXPECT_THROW(SharedMemPosix(0), SystemException);
  const uint64_t serial = SharedMemPosix(1).serial();
  EXPECT_FALSE(
      posixExists(format("/ruvo-%d-%d", static_cast<int>(getpid()), static_cast<int>(serial) - 1)));
  // An object in the way is neither used nor removed.
  const std::string taken =
      format("/ruvo-%d-%d", static_cast<int>(getpid()), static_cast<int>(serial) + 1);
  close(shm_open(taken.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600));
  EXPECT_THROW(SharedMemPosix(100), SystemException);
  EXPECT_EQ(shm_unlink(taken.c_str()), 0);
  EXPECT_TRUE(std::filesystem::is_empty(locks_ + "/Posix"));
  EXPECT_TRUE(std::filesystem::is_empty(locks_ + "/SysV"));
}

TEST_F(SharedMemTest, BlocksOfCrashedProcessesAreRemoved) {
  // The first block of a process cleans: forget that this one may have made blocks.
  LockDir::setBase(base_.path());
  Maker crashed, alive;
  crashed.crash();
  ASSERT_TRUE(posixExists(crashed.posixName));
  ASSERT_TRUE(sysVExists(crashed.id));

  const std::string posixLock = locks_ + "/Posix" + crashed.posixName;
  const std::string sysVLock = locks_ + "/SysV/" + std::to_string(crashed.id);
  // A segment of another program that came to an id which once was ours.
  const int foreign = shmget(IPC_PRIVATE, 100, IPC_CREAT | 0600);
  const std::string foreignLock = locks_ + "/SysV/" + std::to_string(foreign);
  std::ofstream(foreignLock) << "1";
  // Things that have no business there.
  const std::string strange[] = {locks_ + "/Posix/ruvo-1-x", locks_ + "/Posix/other-1-1",
                                 locks_ + "/SysV/12x", locks_ + "/SysV/99999999999"};
  for (const std::string& path : strange) std::ofstream(path) << "";
  const std::string link = locks_ + "/Posix/ruvo-1-1";
  ASSERT_EQ(symlink(strange[0].c_str(), link.c_str()), 0);

  const support::LogCapture lines;
  const SharedMemPosix posix(100);
  const SharedMemSysV sysV(100);
  EXPECT_EQ(1, lines.count("Cleaning old shared memory " + crashed.posixName));
  EXPECT_EQ(1, lines.count(format("Cleaning old shared memory %d", crashed.id)));
  EXPECT_FALSE(posixExists(crashed.posixName));
  EXPECT_FALSE(sysVExists(crashed.id));
  EXPECT_FALSE(fileExists(posixLock));
  EXPECT_FALSE(fileExists(sysVLock));
  EXPECT_TRUE(posixExists(alive.posixName));
  EXPECT_TRUE(sysVExists(alive.id));
  EXPECT_TRUE(sysVExists(foreign));
  EXPECT_FALSE(fileExists(foreignLock));
  for (const std::string& path : strange) EXPECT_TRUE(fileExists(path)) << path;
  EXPECT_TRUE(fileExists(link));

  // Later blocks do not clean again.
  alive.crash();
  { const SharedMemPosix later(100); }
  EXPECT_TRUE(posixExists(alive.posixName));
  SharedMemPosix::cleanStale();
  SharedMemSysV::cleanStale();
  EXPECT_FALSE(posixExists(alive.posixName));
  EXPECT_FALSE(sysVExists(alive.id));
  shmctl(foreign, IPC_RMID, nullptr);
}

}  // namespace
}  // namespace plat

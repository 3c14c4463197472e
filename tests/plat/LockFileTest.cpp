#include "plat/LockFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <thread>
#include <vector>

#include "plat/Exception.h"
#include "plat/LockDir.h"
#include "support/TempDir.h"

namespace plat {
namespace {

uint32_t modeOf(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST(LockFileTest, HeldWhileItLivesThenRemoved) {
  const test::TempDir dir;
  const std::string path = dir / "lock";
  EXPECT_EQ(LockFile::openStale(path), nullptr);
  EXPECT_EQ(modeOf(path), 0u);
  {
    const auto lock = LockFile::create(path);
    ASSERT_NE(lock, nullptr);
    EXPECT_EQ(modeOf(path), 0600u);
    EXPECT_EQ(LockFile::create(path), nullptr);
    EXPECT_EQ(LockFile::openStale(path), nullptr);
  }
  EXPECT_EQ(modeOf(path), 0u);
  std::ofstream(path) << "left behind";
  const auto lock = LockFile::openStale(path);
  ASSERT_NE(lock, nullptr);
  EXPECT_EQ(lock->readNote(), "left behind");
}

// A file that its holder removes between another's opening and locking it must not be taken for the
// lock by that other one.
TEST(LockFileTest, OneHolderWhileOthersRemove) {
  const test::TempDir dir;
  const std::string path = dir / "lock";
  std::atomic<int> holders = 0, taken = 0;
  std::atomic<bool> shared = false;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 3000; i++) {
        const auto lock = t == 0 ? LockFile::openStale(path) : LockFile::create(path);
        if (!lock) continue;
        if (++holders != 1) shared = true;
        taken++;
        std::this_thread::yield();
        holders--;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(shared);
  EXPECT_GT(taken, 0);
  EXPECT_EQ(modeOf(path), 0u);
}

class LockDirTest : public testing::Test {
 protected:
  LockDirTest() { LockDir::setBase(base_.path()); }
  ~LockDirTest() override { LockDir::setBase(""); }

  const test::TempDir base_;
  const std::string top_ = base_ / ".ruvo-" + std::to_string(geteuid());
};

TEST_F(LockDirTest, IsMadePrivate) {
  ASSERT_EQ(mkdir(top_.c_str(), 0777), 0);
  ASSERT_EQ(chmod(top_.c_str(), 0777), 0);
  EXPECT_EQ(LockDir::path("Posix"), top_ + "/shm/Posix");
  EXPECT_EQ(LockDir::path("SysV"), top_ + "/shm/SysV");
  for (const char* name : {"", "/shm", "/shm/Posix", "/shm/SysV"})
    EXPECT_EQ(modeOf(top_ + name), 0700u) << name;
}

TEST_F(LockDirTest, RefusesWhatIsNotOurDirectory) {
  const std::string elsewhere = base_ / "elsewhere";
  ASSERT_EQ(mkdir(elsewhere.c_str(), 0700), 0);
  ASSERT_EQ(symlink(elsewhere.c_str(), top_.c_str()), 0);
  EXPECT_THROW(LockDir::path("Posix"), SystemException);
  ASSERT_EQ(unlink(top_.c_str()), 0);
  ASSERT_EQ(mkdir(top_.c_str(), 0700), 0);
  ASSERT_EQ(symlink(elsewhere.c_str(), (top_ + "/shm").c_str()), 0);
  EXPECT_THROW(LockDir::path("Posix"), SystemException);
  ASSERT_EQ(unlink((top_ + "/shm").c_str()), 0);
  if (geteuid() == 0 && chown(top_.c_str(), 1, 1) == 0) {
    EXPECT_THROW(LockDir::path("Posix"), SystemException);
  }
  EXPECT_TRUE(std::filesystem::is_empty(elsewhere));
}

}  // namespace
}  // namespace plat

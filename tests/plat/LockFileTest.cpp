#include "plat/shm/LockFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "plat/Exception.h"
#include "plat/shm/LockDir.h"
#include "support/TempDir.h"

namespace plat {
namespace {

uint32_t modeOf(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

// A file that its holder removes between another's opening and locking it must not be taken for the
// lock by that other one.
TEST(LockFileTest, OneHolderWhileOthersRemove) {
  const test::TempDir dir;
  const std::string path = dir / "lock";
  std::atomic<int> holders = 0, taken = 0;
  std::atomic<bool> shared = false;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 3000; ++i) {
        const auto lock = t == 0 ? LockFile::openStale(path) : LockFile::create(path);
        if (!lock) continue;
        if (++holders != 1) shared = true;
        ++taken;
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

// Only a directory that is our own will do, and nobody else may look into it.
TEST(LockDirTest, IsPrivate) {
  const test::TempDir base;
  LockDir::setBase(base.path());
  const std::string top = base / ".ruvo-" + std::to_string(geteuid());
  const std::string elsewhere = base / "elsewhere";
  std::filesystem::create_directory(elsewhere);
  std::filesystem::create_symlink(elsewhere, top);
  EXPECT_THROW(LockDir::path("Posix"), SystemException);
  std::filesystem::remove(top);
  std::filesystem::create_directory(top);
  std::filesystem::create_symlink(elsewhere, top + "/shm");
  EXPECT_THROW(LockDir::path("Posix"), SystemException);
  std::filesystem::remove(top + "/shm");
  if (geteuid() == 0) {
    ASSERT_EQ(chown(top.c_str(), 1, 1), 0);
    EXPECT_THROW(LockDir::path("Posix"), SystemException);
    ASSERT_EQ(chown(top.c_str(), 0, 0), 0);
  }
  EXPECT_TRUE(std::filesystem::is_empty(elsewhere));

  ASSERT_EQ(chmod(top.c_str(), 0777), 0);
  EXPECT_EQ(LockDir::path("Posix"), top + "/shm/Posix");
  for (const char* name : {"", "/shm", "/shm/Posix"}) EXPECT_EQ(modeOf(top + name), 0700u) << name;
  LockDir::setBase("");
}

}  // namespace
}  // namespace plat

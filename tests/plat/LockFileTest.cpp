#include "plat/shm/LockFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>
#include <vector>

#include "plat/shm/LockDir.h"
#include "support/LogCapture.h"
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
  const support::TempDir dir;
  const std::string path = dir / "lock";
  std::atomic<int> holders = 0, taken = 0;
  std::atomic<bool> shared = false;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 1000; ++i) {
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

// Only a directory that is our own will do, and nobody else may look into it; another place is
// found or none, and each fault is told once.
TEST(LockDirTest, IsPrivate) {
  const support::TempDir base;
  const std::string user = std::to_string(geteuid());
  const std::string top = base / ".ruvo-" + user, elsewhere = base / "elsewhere";
  // Root's second place belongs to the machine.
  setenv("XDG_RUNTIME_DIR", base.path().c_str(), 1);
  const std::string second = geteuid() == 0 ? "/run/ruvo" : base / "ruvo";
  const bool wasThere = std::filesystem::exists(second);
  std::filesystem::create_directory(elsewhere);
  std::vector<std::function<void()>> attacks{
      [&] { std::filesystem::create_symlink(elsewhere, top); },
      [&] {
        std::filesystem::create_directory(top);
        std::filesystem::create_symlink(elsewhere, top + "/shm");
      },
      [&] { std::ofstream(top) << "a file"; }};
  if (geteuid() == 0) {
    attacks.emplace_back([&] {
      std::filesystem::create_directory(top);
      EXPECT_EQ(chown(top.c_str(), 1, 1), 0);
    });
  }
  for (const auto& attack : attacks) {
    attack();
    LockDir::setBase(base.path());
    support::LogCapture log;
    const auto lock = LockDir::lock("Posix", "a"), other = LockDir::lock("Posix", "b");
    EXPECT_EQ(log.count("No lock files in " + top + ": ", 0, "LockFile"), 1) << log.str();
    EXPECT_EQ(log.count("Shared memory goes without lock files", 0), lock ? 0 : 1);
    EXPECT_EQ(lock ? lock->path() : "", lock ? second + "/shm/Posix/a" : "");
    EXPECT_TRUE(std::filesystem::is_empty(elsewhere));
    std::filesystem::remove_all(top);
  }
  if (!wasThere) std::filesystem::remove_all(second);

  LockDir::setBase(base.path());
  std::filesystem::create_directory(top);
  ASSERT_EQ(chmod(top.c_str(), 0777), 0);
  EXPECT_EQ(LockDir::lock("Posix", "a")->path(), top + "/shm/Posix/a");
  for (const char* name : {"", "/shm", "/shm/Posix"}) EXPECT_EQ(modeOf(top + name), 0700u) << name;
  LockDir::setBase("");
}

}  // namespace
}  // namespace plat

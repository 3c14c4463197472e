#include "os/ProcessInfo.h"

#include <gtest/gtest.h>

#include <fstream>

#include "support/TempDir.h"

namespace {

TEST(ProcessInfoTest, ReadsWhatTheSystemWrites) {
  using namespace std::string_literals;
  const struct {
    std::string status;
    std::optional<uid_t> userId;
    std::string environment, xauthority;
  } cases[] = {
      {"Name:\tx\nUid:\t1000\t0\t7\t8\nGid:\t1\t1\t1\t1\n", 1000, "A=b\0XAUTHORITY=/home/x\0"s,
       "/home/x"},
      {"Name:\tUid:\t5\nUid:\t4294967294\t0\t0\t0", 4294967294, "XAUTHORITY=/no end", "/no end"},
      {"Uid:\t99999999999\n", std::nullopt, "OLDXAUTHORITY=/x\0=\0\0XAUTHORITY=a\0XAUTHORITY=b"s,
       "a"},
      {"Uid:\tnobody\n", std::nullopt, std::string(5 << 20, 'A') + "\0XAUTHORITY=far"s, ""},
  };
  const support::TempDir proc;
  std::filesystem::create_directory(proc / "42");
  const os::ProcessInfo info(42, proc.path());
  EXPECT_EQ(info.userId(), std::nullopt) << "a process that has ended";
  for (const auto& c : cases) {
    std::ofstream(proc / "42/status") << c.status;
    std::ofstream(proc / "42/environ") << c.environment;
    EXPECT_EQ(info.userId(), c.userId) << c.status;
    EXPECT_EQ(info.environment("XAUTHORITY"), c.xauthority) << c.status;
  }
}

}  // namespace

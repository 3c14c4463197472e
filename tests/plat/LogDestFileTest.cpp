#include "plat/LogDestFile.h"

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <string>

#include "plat/Exception.h"
#include "plat/LogManager.h"
#include "support/Environment.h"
#include "support/TempDir.h"

namespace plat {
namespace {

std::string contents(const std::string& path) {
  std::ifstream in(path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

LogLine line(const std::string& text, int level = 30) {
  return {1700000000007, level, "Src", text};
}

TEST(LogDestFileTest, FullLines) {
  char host[256] = "";
  gethostname(host, sizeof host - 1);
  struct {
    int level, number;
  } const cases[] = {{0, 11}, {1, 12}, {5, 12}, {6, 13}, {10, 13}, {11, 14}, {30, 14}, {31, 15}};
  for (const auto& c : cases) {
    EXPECT_EQ(LogDestFile::formatLine(line("a: %s\nb", c.level), false),
              format("<%d> 2023-11-14T22:13:20.007Z %s ruvoagent[%d]: Src: a: %%s\nb\n", c.number,
                     host, static_cast<int>(getpid())));
  }
}

TEST(LogDestFileTest, CompactLinesAreInLocalTime) {
  const test::Environment zone("TZ", "TST-05:30");
  EXPECT_EQ(LogDestFile::formatLine(line("text"), true), "03:43:20.007 Src: text\n");
}

TEST(LogDestFileTest, ColoursOnATerminalOnly) {
  int master = -1, slave = -1;
  ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
  char name[128];
  ASSERT_EQ(ttyname_r(slave, name, sizeof name), 0);
  LogDestFile dest("t", LogDestFile::Kind::file);
  dest.setCompact(true);
  dest.setPath("", name);
  struct {
    int level;
    const char* colour;
  } const cases[] = {{0, "31;1"}, {5, "31;1"}, {6, "31"}, {10, "31"},
                     {11, "36"},  {30, "36"},  {31, "0"}, {100, "0"}};
  for (const auto& c : cases) {
    dest.write(line("text", c.level));
    char buffer[256];
    const ssize_t n = read(master, buffer, sizeof buffer);
    ASSERT_GT(n, 0);
    EXPECT_TRUE(std::regex_match(
        std::string(buffer, static_cast<size_t>(n)),
        std::regex(std::string("\033\\[") + c.colour + "m[0-9:.]+ Src: text\033\\[0m\r?\n")))
        << c.level;
  }
  close(slave);
  close(master);
}

TEST(LogDestFileTest, FileIsPrivateAndAppendedTo) {
  const test::TempDir dir;
  for (int i = 0; i < 2; i++) {
    LogDestFile dest("t", LogDestFile::Kind::file);
    dest.setCompact(true);
    dest.setPath(dir.path() + "/", "log");
    EXPECT_EQ(dest.path(), dir / "log");
    EXPECT_EQ(access((dir / "log").c_str(), F_OK) == 0, i == 1);  // opened when needed
    dest.write(line("text"));
  }
  EXPECT_TRUE(std::regex_match(contents(dir / "log"),
                               std::regex("[0-9:.]+ Src: text\n[0-9:.]+ Src: text\n")));
  struct stat status {};
  ASSERT_EQ(stat((dir / "log").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST(LogDestFileTest, Rotation) {
  const test::TempDir dir;
  LogDestFile dest("t", LogDestFile::Kind::file);
  dest.setCompact(true);
  dest.setPath(dir.path(), "log");
  const size_t length = LogDestFile::formatLine(line("1"), true).size();
  dest.setSizeLimit(2 * length);
  for (const char* text : {"1", "2", "3", "4", "5"}) dest.write(line(text));
  const auto texts = [&](const char* name) {
    std::string all;
    std::istringstream in(contents(dir / name));
    for (std::string l; std::getline(in, l);) all += l.back();
    return all;
  };
  EXPECT_EQ(texts("log"), "5");
  EXPECT_EQ(texts("log.bak"), "34");
}

TEST(LogDestFileTest, PathsAndFallback) {
  const test::TempDir dir;
  const test::Environment home("HOME", dir.path());
  LogDestFile dest("t", LogDestFile::Kind::file);
  EXPECT_EQ(dest.path(), dir / ".ruvo/ruvoagent.log");
  dest.setPath("", "other");
  EXPECT_EQ(dest.path(), dir / ".ruvo/other");
  dest.setPath(dir / "d", "");
  EXPECT_EQ(dest.path(), dir / "d/ruvoagent.log");

  testing::internal::CaptureStderr();
  dest.setPath("", dir / "missing/log");
  dest.write(line("one"));
  dest.write(line("two"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Error opening log file: " + (dir / "missing/log: No such file or directory (2)\n") +
                "Reverting to default log file " + (dir / ".ruvo/ruvoagent.log\n"));
  EXPECT_EQ(dest.path(), dir / ".ruvo/ruvoagent.log");
  EXPECT_NE(contents(dest.path()).find("one\n"), std::string::npos);

  testing::internal::CaptureStderr();
  dest.setPath(dir / "missing", "");
  dest.write(line("three"));
  dest.write(line("four"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Error opening default log file: " +
                (dir / "missing/ruvoagent.log: No such file or directory (2)\n"));
}

}  // namespace
}  // namespace plat

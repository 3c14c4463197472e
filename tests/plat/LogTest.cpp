// Log sources, specifications and the file destination.

#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "plat/Exception.h"
#include "plat/FileDescriptor.h"
#include "plat/config/Configuration.h"
#include "plat/log/LogDestFile.h"
#include "plat/log/LogManager.h"
#include "plat/log/LogSrc.h"
#include "support/Environment.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace plat {
namespace {

LogLine line(const std::string& text, int level = 30) {
  return {1700000000007, level, "Src", text};
}

TEST(LogDestFileTest, Lines) {
  char host[256] = "";
  gethostname(host, sizeof host - 1);
  const std::pair<int, int> cases[] = {{0, 11}, {5, 12}, {10, 13}, {11, 14}, {31, 15}};
  for (const auto& [level, number] : cases) {
    EXPECT_EQ(LogDestFile::formatLine(line("a: %s\nb", level), false),
              format("<%d> 2023-11-14T22:13:20.007Z %s ruvoagent[%d]: Src: a: %%s\nb\n", number,
                     host, static_cast<int>(getpid())));
  }
  const support::Environment zone("TZ", "TST-05:30");
  EXPECT_EQ(LogDestFile::formatLine(line("text"), true), "03:43:20.007 Src: text\n");
}

TEST(LogDestFileTest, ColoursOnATerminalOnly) {
  int master = -1, slave = -1;
  ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
  const FileDescriptor standardError(dup(STDERR_FILENO)), terminal(slave), reader(master);
  ASSERT_EQ(dup2(terminal.get(), STDERR_FILENO), STDERR_FILENO);
  LogDestFile dest("t", LogDestFile::Kind::kStandardError);
  std::string expected;
  const std::pair<int, const char*> cases[] = {{5, "31;1"}, {10, "31"}, {30, "36"}, {31, "0"}};
  for (const auto& [level, colour] : cases) {
    dest.write(line("text", level));
    std::string plain = LogDestFile::formatLine(line("text", level), false);
    plain.pop_back();
    expected += format("\033[%sm%s\033[0m\r\n", colour, plain.c_str());
  }
  dup2(standardError.get(), STDERR_FILENO);
  std::string written;
  while (written.size() < expected.size()) {
    char buffer[256];
    const ssize_t n = ::read(reader.get(), buffer, sizeof buffer);
    ASSERT_GT(n, 0);
    written.append(buffer, static_cast<size_t>(n));
  }
  EXPECT_EQ(written, expected);
}

TEST(LogDestFileTest, FilesGrowAndRotate) {
  const support::TempDir dir;
  const size_t length = LogDestFile::formatLine(line("1"), true).size();
  for (const char* texts : {"12", "345"}) {
    LogDestFile dest("t", LogDestFile::Kind::kFile);
    dest.setCompact(true);
    dest.setPath(dir.path() + "/", "log");
    dest.setSizeLimit(2 * length);
    for (; *texts; ++texts) dest.write(line(std::string(1, *texts)));
  }
  const auto texts = [&](const char* name) {
    std::string all;
    std::ifstream in(dir / name);
    for (std::string l; std::getline(in, l);) all += l.back();
    return all;
  };
  EXPECT_EQ(texts("log"), "5");
  EXPECT_EQ(texts("log.bak"), "34");
  EXPECT_EQ(std::filesystem::status(dir / "log").permissions(), std::filesystem::perms(0600));
}

TEST(LogDestFileTest, FallsBackToTheDefaultFile) {
  const support::TempDir dir;
  const support::Environment home("HOME", dir.path());
  LogDestFile dest("t", LogDestFile::Kind::kFile);
  testing::internal::CaptureStderr();
  dest.setPath("", dir / "missing/log");
  dest.write(line("one"));
  dest.write(line("two"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Error opening log file: " + (dir / "missing/log: No such file or directory (2)\n") +
                "Reverting to default log file " + (dir / ".ruvo/ruvoagent.log\n"));
  std::string first;
  std::getline(std::ifstream(dir / ".ruvo/ruvoagent.log"), first);
  EXPECT_TRUE(first.ends_with("Src: one")) << first;
}

LogSrc alpha("TestAlpha");
LogSrc beta("TestBeta");

TEST(LogManagerTest, Specifications) {
  LogManager& manager = LogManager::instance();
  // What setting the specification writes on standard error.
  const auto set = [&](const std::string& spec) {
    testing::internal::CaptureStderr();
    manager.setLogSpec(spec);
    return testing::internal::GetCapturedStderr();
  };
  const support::LogCapture capture;
  struct {
    const char* spec;
    const char* errors;
    int alphaLevel;
    int betaLevel;
  } const cases[] = {
      // The later element holds, and the most verbose destination decides.
      {"TestAlpha:capture:100,*:capture:10", "", 10, 10},
      {"*:stderr:30,TestAlpha:capture:5,TestBeta:capture:100", "", 30, 100},
      {"", "", -1, -1},
      // Bad elements change nothing, the good ones beside them hold.
      {"*:nowhere:200,*:capture:7,,TestBeta:capture:8",
       "No LogDest found: 'nowhere'\nFailed to parse log param element: ''\n", 7, 8},
  };
  manager.setStartUpSpec("*:stderr:10");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.spec);
    EXPECT_EQ(set(c.spec), c.errors);
    EXPECT_EQ(alpha.level(), c.alphaLevel);
    EXPECT_EQ(beta.level(), c.betaLevel);
  }
  EXPECT_EQ(set("*:capture:99999999999"),
            "Failed to parse log param element: '*:capture:99999999999'\n");
  EXPECT_EQ(alpha.level(), 7) << "one without a good element changes nothing";
  EXPECT_EQ(LogSrc("TestLate").level(), 7);
}

// Needs a process that has not configured its logging yet, which the death test starts.
TEST(LogReplayDeathTest, LinesBeforeTheFirstSpecificationAreHeldAndFiltered) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        alpha.write(120, "too verbose");
        alpha.debug("held debug");
        beta.error("held error");
        Configuration::global().setParam("CompactLog", "1", kPriorityPreference);
        LogManager::instance().setStartUpSpec("TestAlpha:stderr:100,ruvoagent:stderr:100");
        beta.error("not taken");
        alpha.info("direct");
        std::_Exit(0);
      },
      testing::ExitedWithCode(0),
      "^[0-9:.]+ TestAlpha: held debug\n"
      "[0-9:.]+ ruvoagent: Finished replaying stored messages\n"
      "[0-9:.]+ TestAlpha: direct\n$");
}

}  // namespace
}  // namespace plat

// Log sources, specifications and the file destination.

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "plat/Configuration.h"
#include "plat/Exception.h"
#include "plat/LogDestFile.h"
#include "plat/LogManager.h"
#include "plat/LogSrc.h"
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

TEST(LogDestFileTest, Lines) {
  char host[256] = "";
  gethostname(host, sizeof host - 1);
  const std::pair<int, int> cases[] = {{0, 11},  {1, 12},  {5, 12},  {6, 13},
                                       {10, 13}, {11, 14}, {30, 14}, {31, 15}};
  for (const auto& [level, number] : cases)
    EXPECT_EQ(LogDestFile::formatLine(line("a: %s\nb", level), false),
              format("<%d> 2023-11-14T22:13:20.007Z %s ruvoagent[%d]: Src: a: %%s\nb\n", number,
                     host, static_cast<int>(getpid())));
  const test::Environment zone("TZ", "TST-05:30");
  EXPECT_EQ(LogDestFile::formatLine(line("text"), true), "03:43:20.007 Src: text\n");
}

TEST(LogDestFileTest, ColoursOnATerminalOnly) {
  int master = -1, slave = -1;
  char name[128];
  ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
  LogDestFile dest("t", LogDestFile::Kind::file);
  dest.setCompact(true);
  dest.setPath("", name);
  const std::pair<int, const char*> cases[] = {{0, "31;1"}, {5, "31;1"}, {6, "31"}, {10, "31"},
                                               {11, "36"},  {30, "36"},  {31, "0"}};
  for (const auto& [level, colour] : cases) {
    dest.write(line("text", level));
    char buffer[256];
    const ssize_t n = read(master, buffer, sizeof buffer);
    ASSERT_GT(n, 0);
    EXPECT_TRUE(
        std::regex_match(std::string(buffer, static_cast<size_t>(n)),
                         std::regex(format("\033\\[%sm[0-9:.]+ Src: text\033\\[0m\r?\n", colour))));
  }
  close(slave);
  close(master);
}

TEST(LogDestFileTest, FilesGrowAndRotate) {
  const test::TempDir dir;
  const size_t length = LogDestFile::formatLine(line("1"), true).size();
  for (const char* texts : {"12", "345"}) {
    LogDestFile dest("t", LogDestFile::Kind::file);
    dest.setCompact(true);
    dest.setPath(dir.path() + "/", "log");
    dest.setSizeLimit(2 * length);
    for (; *texts; texts++) dest.write(line(std::string(1, *texts)));
  }
  const auto texts = [&](const char* name) {
    std::string all;
    std::istringstream in(contents(dir / name));
    for (std::string l; std::getline(in, l);) all += l.back();
    return all;
  };
  EXPECT_EQ(texts("log"), "5");
  EXPECT_EQ(texts("log.bak"), "34");
  struct stat status {};
  ASSERT_EQ(stat((dir / "log").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST(LogDestFileTest, PathsAndFallback) {
  const test::TempDir dir;
  const test::Environment home("HOME", dir.path());
  LogDestFile dest("t", LogDestFile::Kind::file);
  dest.setPath("", "other");
  EXPECT_EQ(dest.path(), dir / ".ruvo/other");
  testing::internal::CaptureStderr();
  dest.setPath("", dir / "missing/log");
  dest.write(line("one"));
  dest.write(line("two"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Error opening log file: " + (dir / "missing/log: No such file or directory (2)\n") +
                "Reverting to default log file " + (dir / ".ruvo/ruvoagent.log\n"));
  EXPECT_NE(contents(dir / ".ruvo/ruvoagent.log").find("one\n"), std::string::npos);

  testing::internal::CaptureStderr();
  dest.setPath(dir / "missing", "");
  dest.write(line("three"));
  dest.write(line("four"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Error opening default log file: " +
                (dir / "missing/ruvoagent.log: No such file or directory (2)\n"));
}

LogSrc alpha("TestAlpha");
LogSrc beta("TestBeta");

class RecordingDest : public LogDest {
 public:
  RecordingDest() : LogDest("record") {}
  bool isUsable() override { return usable; }
  void write(const LogLine& line) override { bytes += line.text.size(); }

  bool usable = true;
  size_t bytes = 0;
};

class LogManagerTest : public testing::Test {
 protected:
  LogManagerTest() {
    manager_.addDest(dest_);
    manager_.setStartUpSpec("*:stderr:10");
  }
  ~LogManagerTest() override {
    manager_.removeDest(dest_);
    manager_.setStartUpSpec("*:stderr:10");
  }

  // What setting the specification writes on standard error.
  std::string set(const std::string& spec) {
    testing::internal::CaptureStderr();
    manager_.setLogSpec(spec);
    return testing::internal::GetCapturedStderr();
  }

  LogManager& manager_ = LogManager::instance();
  RecordingDest dest_;
};

TEST_F(LogManagerTest, Specifications) {
  struct {
    const char* spec;
    const char* errors;
    int alphaLevel;
    int betaLevel;
  } const cases[] = {
      {"*:record:200", "", 200, 200},
      {"*:record:10,TestAlpha:record:100", "", 100, 10},
      // The later element holds.
      {"TestAlpha:record:100,*:record:10", "", 10, 10},
      // The most verbose destination decides.
      {"*:stderr:30,TestAlpha:record:5,TestBeta:record:100", "", 30, 100},
      {"", "", -1, -1},
      // Bad elements change nothing, the good ones beside them hold.
      {"*:nowhere:200,*:record:7", "No LogDest found: 'nowhere'\n", 7, 7},
      {"*:record:7,,TestBeta:record:8", "Failed to parse log param element: ''\n", 7, 8},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.spec);
    EXPECT_EQ(set(c.spec), c.errors);
    EXPECT_EQ(alpha.level(), c.alphaLevel);
    EXPECT_EQ(beta.level(), c.betaLevel);
  }
  for (const char* bad : {"*:record:-1", "*:record:10x", "*:record:0x10", "*:record:1:2",
                          "*:record:", "*:record", "*:record:99999999999"})
    EXPECT_EQ(set(bad), std::string("Failed to parse log param element: '") + bad + "'\n");
  EXPECT_EQ(alpha.level(), 7) << "one without a good element changes nothing";
  EXPECT_EQ(LogSrc("TestLate").level(), 7);
  dest_.usable = false;
  EXPECT_EQ(set("*:record:200"), "");
  EXPECT_EQ(alpha.level(), 7);
}

TEST_F(LogManagerTest, LinesFromSeveralThreads) {
  set("*:record:100");
  const std::string longText(5000, 'x');
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++) {
    threads.emplace_back([&] {
      for (int i = 0; i < 250; i++) {
        const LogSrc source("TestThread");
        beta.debug("%s", longText.c_str());
      }
    });
  }
  for (int i = 0; i < 100; i++) manager_.setLevel(dest_, "TestGamma", i);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(dest_.bytes, 1000 * longText.size());
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

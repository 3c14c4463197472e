#include "plat/LogManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "plat/Configuration.h"
#include "plat/Exception.h"
#include "plat/LogSrc.h"

namespace plat {
namespace {

LogSrc alpha("TestAlpha");
LogSrc beta("TestBeta");

class RecordingDest : public LogDest {
 public:
  RecordingDest() : LogDest("record") {}
  bool isUsable() override { return usable; }
  void write(const LogLine& line) override {
    lines.push_back(std::string(line.source) + " " + std::to_string(line.level) + " " + line.text);
  }

  bool usable = true;
  std::vector<std::string> lines;
};

class LogManagerTest : public testing::Test {
 protected:
  LogManagerTest() {
    manager_.addDest(dest_);
    manager_.setStartUpSpec("*:stderr:10");
  }
  ~LogManagerTest() override {
    Configuration::global().getParam("Log").unsetParam(kPriorityPreference, true);
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
      {"TestAlpha:record:30", "", 30, -1},
      {"*:record:10,TestAlpha:record:100", "", 100, 10},
      // The later element holds.
      {"TestAlpha:record:100,*:record:10", "", 10, 10},
      {"TestBeta:record:100,TestBeta:record:5", "", -1, 5},
      // The most verbose destination decides.
      {"*:stderr:30,TestAlpha:record:5,TestBeta:record:100", "", 30, 100},
      {"", "", -1, -1},
      // Bad elements change nothing, the good ones beside them hold.
      {"*:nowhere:200,*:record:7", "No LogDest found: 'nowhere'\n", 7, 7},
      {"*:record:7,", "", 7, 7},
      {"*:record:7,,TestBeta:record:8", "Failed to parse log param element: ''\n", 7, 8},
      {"*:record:2147483647", "", INT_MAX, INT_MAX},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.spec);
    EXPECT_EQ(set(c.spec), c.errors);
    EXPECT_EQ(alpha.level(), c.alphaLevel);
    EXPECT_EQ(beta.level(), c.betaLevel);
  }
  for (const char* bad : {"*:record:-1", "*:record:10x", "*:record:0x10", "*:record:1:2",
                          "*:record:", "*:record", "*:record:99999999999"}) {
    EXPECT_EQ(set(std::string("*:record:7,") + bad),
              std::string("Failed to parse log param element: '") + bad + "'\n");
    EXPECT_EQ(alpha.level(), 7);
  }
}

TEST_F(LogManagerTest, SpecificationWithoutAGoodElementKeepsTheFormerOne) {
  set("*:record:50");
  EXPECT_EQ(set("*:nowhere:200"), "No LogDest found: 'nowhere'\n");
  EXPECT_EQ(alpha.level(), 50);
  dest_.usable = false;
  EXPECT_EQ(set("*:record:200"), "");
  EXPECT_EQ(alpha.level(), 50);
}

TEST_F(LogManagerTest, LinesReachTheDestinationsOfTheirLevel) {
  set("*:record:30,TestBeta:record:100,TestLate:record:40");
  EXPECT_EQ(LogSrc("TestLate").level(), 40);
  alpha.error("number %d", 1);
  alpha.info("two");
  alpha.write(31, "three");
  alpha.debug("four");
  beta.debug("five");
  beta.write(101, "six");
  beta.write(-3, "seven");
  const std::string longText(5000, 'x');
  beta.debug("%s", longText.c_str());
  const std::vector<std::string> expected = {"TestAlpha 0 number 1", "TestAlpha 30 two",
                                             "TestBeta 100 five", "TestBeta 0 seven",
                                             "TestBeta 100 " + longText};
  EXPECT_EQ(dest_.lines, expected);
}

TEST_F(LogManagerTest, LogParameterAndStartUpSpecification) {
  ConfigParameter& log = Configuration::global().getParam("log");
  EXPECT_EQ(log.getValueStr(), "");
  manager_.setStartUpSpec("*:record:200");
  EXPECT_EQ(alpha.level(), 200);
  ASSERT_TRUE(log.setParam("TestAlpha:record:5", kPriorityPreference));
  EXPECT_EQ(alpha.level(), 5);
  EXPECT_EQ(beta.level(), -1);
  // Levels that were set meanwhile go with the specification that they belong to.
  manager_.setLevel(dest_, "TestBeta", 77);
  EXPECT_EQ(beta.level(), 77);
  ASSERT_TRUE(log.unsetParam(kPriorityPreference, true));
  EXPECT_EQ(alpha.level(), 200);
  EXPECT_EQ(beta.level(), 200);
  // A change that has no effect leaves them alone.
  manager_.setLevel(dest_, "*", 3);
  EXPECT_TRUE(log.setParam("", kPriorityPreference));
  EXPECT_EQ(alpha.level(), 3);
}

TEST_F(LogManagerTest, Names) {
  const LogSrc twin("TestAlpha");
  const std::vector<std::string> names = manager_.sourceNames();
  EXPECT_EQ(std::count(names.begin(), names.end(), "TestAlpha"), 1);
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
  EXPECT_EQ(manager_.destNames(), (std::vector<std::string>{"file", "record", "stderr"}));
}

// A destination that fails, or logs itself, harms neither the source nor other destinations.
TEST_F(LogManagerTest, DestinationsMayThrowAndLog) {
  class Nasty : public LogDest {
   public:
    Nasty() : LogDest("nasty") {}
    void write(const LogLine& line) override {
      if (line.level == 0) beta.write(1, "inner");
      throw Exception("no");
    }
  } nasty;
  manager_.addDest(nasty);
  set("*:nasty:100,*:record:100");
  errno = ENOTTY;
  alpha.error("outer");
  EXPECT_EQ(errno, ENOTTY);
  manager_.removeDest(nasty);
  std::sort(dest_.lines.begin(), dest_.lines.end());
  const std::vector<std::string> expected = {"TestAlpha 0 outer", "TestBeta 1 inner"};
  EXPECT_EQ(dest_.lines, expected);
}

TEST_F(LogManagerTest, LinesFromSeveralThreads) {
  set("*:record:100");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++) {
    threads.emplace_back([] {
      for (int i = 0; i < 250; i++) {
        const LogSrc source("TestThread");
        beta.debug("line");
      }
    });
  }
  for (int i = 0; i < 100; i++) manager_.setLevel(dest_, "TestGamma", i);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(dest_.lines.size(), 1000u);
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

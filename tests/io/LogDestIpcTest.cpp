#include "io/LogDestIpc.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "io/TestChannel.h"
#include "plat/Time.h"
#include "plat/log/LogManager.h"
#include "plat/log/LogSrc.h"
#include "support/Frames.h"

namespace io {
namespace {

using support::message;
using support::shortString;
using support::TestChannel;
using support::u32;

plat::LogSrc vlog("TestIpc");

std::string logMsg(uint32_t level, std::string_view source, std::string_view text) {
  return message("logMsg", u32(level) + shortString(source) + support::longString(text));
}
std::string debugLine(std::string_view text) {
  return logMsg(100, "TestIpc", text);
}

class LogDestIpcTest : public testing::Test {
 protected:
  LogDestIpcTest() { plat::LogManager::instance().setLogSpec("TestIpc:ipc:200"); }
  ~LogDestIpcTest() override {
    plat::LogManager::instance().setLogSpec("*:stderr:10");
    dest_.detach();
  }

  // What the peer gets until it is as much as given.
  std::string receive(size_t size) {
    std::string bytes;
    const int64_t limit = plat::monotonicTime() + 30 * plat::kTicksPerSecond;
    while ((bytes += channel_.take()).size() < size && plat::monotonicTime() < limit) {
      channel_.loop->process(10);
    }
    return bytes;
  }

  TestChannel channel_;
  LogDestIpc dest_;
};

TEST_F(LogDestIpcTest, LineInTheMiddleOfAMessage) {
  dest_.attach(channel_.ipc);
  rdr::OutStream& out = channel_.ipc.writeMsg("other");
  out.writeU32(1);
  vlog.debug("0");
  out.writeU32(2);
  vlog.debug("1");
  channel_.ipc.endMsg();
  const std::string expected = message("other", u32(1) + u32(2)) + debugLine("0") + debugLine("1");
  EXPECT_EQ(receive(expected.size()), expected);
}

TEST_F(LogDestIpcTest, LinesFromOtherThreads) {
  dest_.attach(channel_.ipc);
  std::thread other([] {
    for (int i = 0; i < 100; ++i) vlog.debug("line");
  });
  std::string expected;
  for (int i = 0; i < 100; ++i) expected += debugLine("line");
  EXPECT_EQ(receive(expected.size()), expected);
  other.join();
}

TEST_F(LogDestIpcTest, RefusedLines) {
  dest_.attach(channel_.ipc);
  int tried = 0;
  channel_.allow = [&](std::string_view name) {
    tried += name == "logMsg";
    return name != "logMsg";
  };
  vlog.debug("refused");
  vlog.debug("not tried");
  channel_.allow = nullptr;
  channel_.pump();
  EXPECT_EQ(channel_.take(), "");
  EXPECT_EQ(tried, 1);
}

// What the channel itself logs about a line must not become an endless talk.
TEST_F(LogDestIpcTest, LinesAboutLines) {
  plat::LogManager::instance().setLogSpec("*:ipc:200");
  int asked = 0;
  channel_.allow = [&](std::string_view) {
    ++asked;
    vlog.debug("about");
    return true;
  };
  dest_.attach(channel_.ipc);
  vlog.debug("line");
  EXPECT_EQ(asked, 1);
  receive(3 * debugLine("line").size());
  EXPECT_LE(asked, 4);
  channel_.allow = nullptr;
}

}  // namespace
}  // namespace io

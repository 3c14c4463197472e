#include "io/LogDestIpc.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "io/TestChannel.h"
#include "plat/LogManager.h"
#include "plat/LogSrc.h"
#include "plat/Time.h"
#include "support/Frames.h"

namespace io {
namespace {

using test::message;
using test::shortString;
using test::TestChannel;
using test::u32;

plat::LogSrc vlog("TestIpc");

std::string logMsg(uint32_t level, std::string_view source, std::string_view text) {
  return message("logMsg", u32(level) + shortString(source) + test::longString(text));
}
std::string debugLine(std::string_view text) {
  return logMsg(100, "TestIpc", text);
}
// The lines "from" to "to" - 1.
std::string numbered(int from, int to) {
  std::string bytes;
  for (int i = from; i < to; i++) bytes += debugLine(std::to_string(i));
  return bytes;
}
const std::string kNotice = logMsg(0, "LogDestIpc", "Too many messages, discarding further ones");
constexpr int kMaxQueued = static_cast<int>(LogDestIpc::kMaxQueued);

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
    while ((bytes += channel_.take()).size() < size && plat::monotonicTime() < limit)
      FdManager::instance().process(10);
    return bytes;
  }

  TestChannel channel_;
  LogDestIpc dest_;
};

TEST_F(LogDestIpcTest, LinesAreMessages) {
  dest_.attach(channel_.ipc);
  vlog.write(30, "hello %d", 1);
  dest_.setPrefix("peer");
  vlog.error("caf\xc3\xa9\n");
  vlog.write(201, "too verbose");
  dest_.setPrefix(std::string(300, 'p'));
  vlog.debug("text");
  EXPECT_EQ(channel_.take(), logMsg(30, "TestIpc", "hello 1") +
                                 logMsg(0, "peer: TestIpc", "caf\xc3\xa9\n") +
                                 logMsg(100, std::string(255, 'p'), "text"));
}

TEST_F(LogDestIpcTest, LinesAreKeptUntilThereIsAChannel) {
  vlog.debug("1");
  dest_.attach(channel_.ipc);
  dest_.detach();
  vlog.debug("2");
  {
    MsgIpc unconnected("none");
    dest_.attach(unconnected);
    vlog.debug("3");
  }
  EXPECT_FALSE(dest_.isAttached()) << "the channel went first";
  vlog.debug("4");
  dest_.attach(channel_.ipc);
  EXPECT_EQ(channel_.take(), numbered(1, 5));
}

TEST_F(LogDestIpcTest, QueueLimit) {
  for (int round = 0; round < 2; round++) {
    for (int i = 0; i < 2000; i++) vlog.debug("%d", i);
    dest_.attach(channel_.ipc);
    vlog.debug("again");
    const std::string expected = numbered(0, kMaxQueued + 1) + kNotice + debugLine("again");
    EXPECT_EQ(receive(expected.size()), expected);
    dest_.detach();
  }
}

TEST_F(LogDestIpcTest, LineInTheMiddleOfAMessage) {
  dest_.attach(channel_.ipc);
  rdr::OutStream& out = channel_.ipc.writeMsg("other");
  out.writeU32(1);
  vlog.debug("0");
  out.writeU32(2);
  vlog.debug("1");
  channel_.ipc.endMsg();
  const std::string expected = message("other", u32(1) + u32(2)) + numbered(0, 2);
  EXPECT_EQ(receive(expected.size()), expected);
}

TEST_F(LogDestIpcTest, LinesFromOtherThreads) {
  dest_.attach(channel_.ipc);
  std::vector<std::thread> threads;
  std::string expected;
  for (int i = 0; i < 300; i++) expected += debugLine("line");
  for (int t = 0; t < 3; t++) {
    threads.emplace_back([] {
      for (int i = 0; i < 100; i++) vlog.debug("line");
    });
  }
  EXPECT_EQ(receive(expected.size()), expected);
  for (std::thread& thread : threads) thread.join();
  std::thread([] { vlog.debug("last, and kept"); }).join();
  dest_.detach();
  EXPECT_EQ(channel_.take(), debugLine("last, and kept"));
}

// What the channel itself logs about a line must not become an endless talk.
TEST_F(LogDestIpcTest, LinesAboutLines) {
  plat::LogManager::instance().setLogSpec("*:ipc:200");
  int asked = 0;
  channel_.allow = [&](std::string_view) {
    asked++;
    vlog.debug("about");
    return true;
  };
  dest_.attach(channel_.ipc);
  vlog.debug("line");
  EXPECT_EQ(asked, 1);
  receive(3 * debugLine("line").size());
  EXPECT_LE(asked, 4);

  // A line that is refused is not tried again, nor is the one that says so.
  asked = 0;
  channel_.allow = [&](std::string_view) { return asked++ < 0; };
  channel_.take();
  vlog.debug("refused");
  for (int i = 0; i < 5; i++) FdManager::instance().process(0);
  EXPECT_EQ(asked, 1);
  channel_.allow = nullptr;
  dest_.attach(channel_.ipc);
  EXPECT_TRUE(
      channel_.take().ends_with(logMsg(0, "FdIo", "Peer: Message 'logMsg' not currently allowed")));
}

}  // namespace
}  // namespace io

#include "io/MsgIpc.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "io/TestChannel.h"
#include "plat/Time.h"
#include "rdr/Exceptions.h"
#include "support/Frames.h"
#include "support/LogCapture.h"
#include "support/Thrown.h"

namespace io {
namespace {

using support::message;
using support::shortString;
using support::TestChannel;
using support::thrownBy;
using support::u32;
using Lines = std::vector<std::string>;

std::string number(uint32_t value) {
  return message("number", u32(value));
}

TEST(MsgIpc, WritesMessages) {
  TestChannel channel;
  channel.ipc.writeMsg("greeting").writeU32(7);
  channel.ipc.endMsg(false);
  EXPECT_EQ(channel.take(), "");
  channel.ipc.writeMsg(std::string(300, 'n'));
  channel.ipc.endMsg();
  EXPECT_EQ(channel.take(), message("greeting", u32(7)) + message(std::string(255, 'n')));

  support::LogCapture log;
  channel.ipc.detach();
  for (const char* name : {"big", "logMsg"}) {
    channel.ipc.writeMsg(name);
    channel.ipc.endMsg();
  }
  EXPECT_EQ(log.take(), Lines{"100 FdIo: Peer: Discarding message 'big'"});
}

TEST(MsgIpc, ReadsOneMessageSynchronously) {
  TestChannel channel;
  const auto readNumber = [&](int timeoutMs) {
    return thrownBy([&] { channel.ipc.readMessage("number", timeoutMs); });
  };
  channel.pair.put(message("who") + message("badMsg", shortString("mine")) + number(5) + number(6) +
                   message("list"));
  EXPECT_EQ(readNumber(1000), ": MsgIpc: expected message number, got who");
  EXPECT_EQ(readNumber(1000),
            ": MsgIpc: expected message number, peer reports bad msg name 'mine'");
  EXPECT_EQ(readNumber(1000), "nothing");
  EXPECT_EQ(channel.seen(), "5 ");
  // The rest is held by the channel and must reach the loop all the same.
  channel.pump();
  EXPECT_EQ(channel.seen(), "6  ");

  EXPECT_EQ(readNumber(1), "TimedOut: Timed out");
  channel.pair.peer.reset();
  EXPECT_EQ(readNumber(1000), "EndOfStream: End of IO stream");
  channel.pump();
  EXPECT_EQ(channel.seen(), "closed ");
}

TEST(MsgIpc, FailuresAndRefusals) {
  support::LogCapture log;
  TestChannel channel;
  channel.ipc.setReplyBadMsg(false);
  channel.feed(message("who", "body"));
  channel.ipc.setReplyBadMsg(true);
  EXPECT_EQ(log.take(), Lines{"0 FdIo: Peer: Bad msg name 'who'"});
  channel.allow = [](std::string_view name) { return name != "number"; };
  channel.feed(number(1) + message("list"));
  EXPECT_EQ(channel.seen(), " ");
  EXPECT_EQ(thrownBy([&] { channel.ipc.writeMsg("number"); }),
            ": MsgIpc::writeMsg: Message not currently allowed");
  EXPECT_EQ(log.take(), Lines(2, "0 FdIo: Peer: Message 'number' not currently allowed"));
  channel.allow = nullptr;

  // Also when the failure looks like the endpoint's.
  for (int i = 0; i < 3; ++i) {
    channel.onRead = [&](std::string_view) {
      channel.onRead = {};
      if (i == 0) throw plat::SystemException("shmget", ENOSPC);
      if (i == 1) throw rdr::EndOfStream("of another stream");
      throw rdr::TimedOut();
    };
    channel.feed(number(1) + number(2));
    EXPECT_EQ(channel.seen(), "2 ");
  }
  EXPECT_EQ(channel.take(), "");
  channel.ipc.setSkipFailed(false);
  channel.feed(message("number") + number(1));
  EXPECT_EQ(channel.seen(), "closed ");
}

TEST(MsgIpc, AnswersThatCannotBeWritten) {
  TestChannel channel;
  channel.onRead = [&](std::string_view) {
    channel.pair.peer.reset();
    channel.ipc.writeMsg("answer");
    channel.ipc.endMsg();
  };
  support::LogCapture log;
  channel.feed(number(1));
  EXPECT_EQ(channel.seen(), "closed ");
  EXPECT_EQ(log.take(), Lines{"0 FdIo: Peer: write: Broken pipe (32)"});
}

// Writes until the peer takes no more.
void block(TestChannel& channel) {
  const std::string large(100000, 'x');
  while (!channel.ipc.isBlocked()) {
    rdr::OutStream& out = channel.ipc.writeMsg("large");
    out.writeBytes(large.data(), large.size());
    channel.ipc.endMsg();
    channel.pump();
  }
}

TEST(MsgIpc, DetachedWithOutputLeft) {
  TestChannel channel;
  block(channel);
  channel.take();
  const support::SocketPair former = std::move(channel.pair);
  channel.ipc.detach();
  EXPECT_NE(former.take(), "");
  // What is written to nobody is not kept.
  channel.ipc.writeMsg("nobody");
  channel.ipc.endMsg();
  channel.connect();
  EXPECT_EQ(channel.take(), "");
  rdr::OutStream& half = channel.ipc.writeMsg("half");
  channel.ipc.detach();
  EXPECT_THROW(half.writeU32(1), rdr::FrameException);
}

TEST(MsgIpc, UnblockedWithNobodyToTell) {
  TestChannel channel;
  channel.ipc.setCallback(nullptr);
  block(channel);
  // Looking for input does not wait until the output is given up.
  const int64_t before = plat::monotonicTime();
  EXPECT_THROW(channel.ipc.readMessage("number", 0), rdr::TimedOut);
  EXPECT_LT(plat::monotonicTime() - before, 10 * plat::kTicksPerSecond);
  while (channel.ipc.isBlocked()) {
    channel.take();
    channel.pump();
  }
}

TEST(MsgIpc, ReadersComeAndGo) {
  const std::string refusal = message("badMsg", shortString("number"));
  {
    TestChannel channel;
    channel.registration.reset();
    support::LogCapture log;
    channel.feed(number(3));
    EXPECT_EQ(channel.take(), refusal);
    EXPECT_EQ(log.take(), Lines{});
  }
  TestChannel channel;
  channel.onRead = [&](std::string_view) { channel.registration.reset(); };
  channel.feed(number(1) + number(2));
  EXPECT_EQ(channel.seen(), "1 ");
  EXPECT_EQ(channel.take(), refusal);
}

// A failed write closes the channel from the loop, never in the writer's stack.
TEST(MsgIpc, FailedWrites) {
  for (const char* thrown : {"SystemException: write: Broken pipe (32)",
                             "FrameException: FramedOutStream::startMsg: already in msg"}) {
    support::LogCapture log;
    TestChannel channel;
    if (thrown[0] == 'S') {
      channel.pair.peer.reset();
    } else {
      channel.ipc.writeMsg("given up");
    }
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(thrownBy([&] {
                  channel.ipc.writeMsg("x");
                  channel.ipc.endMsg();
                }),
                i == 0 ? thrown : "nothing");  // discarded the second time
      EXPECT_EQ(channel.seen(), "");
    }
    channel.pump();
    EXPECT_EQ(channel.seen(), "closed ");
  }
}

TEST(MsgIpc, ReattachedOrDestroyedFromInside) {
  support::LogCapture log;
  auto channel = std::make_unique<TestChannel>();
  channel->onRead = [&](std::string_view) { channel->connect(); };
  channel->feed(message("list") + number(4));
  EXPECT_EQ(channel->seen(), " ") << "the rest was lost with its endpoint";
  channel->onRead = {};
  channel->feed(number(5));
  EXPECT_EQ(channel->seen(), "5 ");
  channel->onClosed = [&] { channel.reset(); };
  channel->hangUp();
  EXPECT_EQ(channel, nullptr);
  EXPECT_EQ(log.take(), Lines{});
}

}  // namespace
}  // namespace io

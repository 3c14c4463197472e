#include "io/MsgIpc.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "io/TestChannel.h"
#include "rdr/Exceptions.h"
#include "support/Frames.h"
#include "support/LogCapture.h"
#include "support/ManualClock.h"
#include "support/ParameterValue.h"
#include "support/Thrown.h"

namespace io {
namespace {

using test::longString;
using test::message;
using test::shortString;
using test::TestChannel;
using test::thrownBy;
using test::u32;
using Lines = std::vector<std::string>;

std::string number(uint32_t value) {
  return message("number", u32(value));
}

std::string text(size_t length) {
  return message("text", longString(std::string(length, 't')));
}

// A message of any length, in full frames.
std::string bigMessage(std::string_view name, std::string_view body) {
  std::vector<size_t> cuts;
  for (size_t at = 30000; at < body.size(); at += 30000) cuts.push_back(at);
  return message(name, body, cuts);
}

TEST(MsgIpc, MessagesCutAnywhere) {
  const std::vector<std::pair<std::string, std::string>> messages = {
      {number(1234), "1234 "},
      {message("number", u32(77), {0, 1, 4, 4, 8, 9}), "77 "},
      {message("text", longString("hello"), {3, 7, 12}), "'hello' "},
      {message("list"), " "},
      {message("list", shortString("a") + shortString("bc"), {5, 6}), "a,bc, "}};
  std::string bytes, seen;
  for (const auto& m : messages) {
    bytes += m.first;
    seen += m.second;
  }
  for (size_t at = 0; at <= bytes.size(); at++) {
    // Arriving in two pieces, then cut short.
    TestChannel split;
    split.feed({bytes.data(), at});
    split.feed({bytes.data() + at, bytes.size() - at});
    ASSERT_EQ(split.seen(), seen) << at;

    support::LogCapture log;
    TestChannel ended;
    ended.feed({bytes.data(), at}, 3);
    ended.hangUp();
    std::string expected;
    size_t end = 0;
    for (const auto& m : messages) {
      if (end + m.first.size() > at) break;
      end += m.first.size();
      expected += m.second;
    }
    ASSERT_EQ(ended.seen(), expected + "closed ") << at;
    ASSERT_EQ(log.take(), Lines(end == at ? 0 : 1, "0 FdIo: Peer: End of IO stream")) << at;
  }
}

TEST(MsgIpc, WritesMessages) {
  TestChannel channel;
  channel.ipc.writeMsg("greeting").writeU32(7);
  channel.ipc.endMsg(false);
  EXPECT_EQ(channel.take(), "");
  channel.ipc.writeMsg(std::string(300, 'n'));
  channel.ipc.endMsg();
  EXPECT_EQ(channel.take(), message("greeting", u32(7)) + message(std::string(255, 'n')));
}

TEST(MsgIpc, UnknownNames) {
  support::LogCapture log;
  TestChannel channel;
  const std::string longest(255, 'u');
  channel.feed(message("who", "body") + number(1) + message(longest) + message(""));
  EXPECT_EQ(channel.take(), message("badMsg", shortString("who")) +
                                message("badMsg", shortString(longest)) +
                                message("badMsg", shortString("")));
  channel.ipc.setReplyBadMsg(false);
  channel.feed(message("who", "body") + number(2));
  EXPECT_EQ(channel.take(), "");
  EXPECT_EQ(channel.seen(), "1 2 ");
  EXPECT_TRUE(log.has("Peer: Bad msg name 'who'", 0, "FdIo"));

  // The peer's reports are not answered.
  log.clear();
  const std::string report = message("badMsg", shortString("mine"));
  const std::string error = "peer reports bad msg name 'mine'";
  channel.feed(report + number(1));
  EXPECT_EQ(channel.seen(), "1 ");
  EXPECT_EQ(log.take(), (Lines{"0 FdIo: Peer: Peer reports bad msg name 'mine'",
                               "0 FdIo: Peer: MsgIpc: expected message <null>, " + error}));
  channel.pair.put(report);
  EXPECT_EQ(thrownBy([&] { channel.ipc.readMessage("number", 1000); }),
            ": MsgIpc: expected message number, " + error);
  EXPECT_EQ(channel.take(), "");
}

TEST(MsgIpc, ReadsOneMessageSynchronously) {
  TestChannel channel;
  const auto readNumber = [&](int timeoutMs) {
    return thrownBy([&] { channel.ipc.readMessage("number", timeoutMs); });
  };
  channel.pair.put(message("who") + number(5) + number(6) + text(1));
  EXPECT_EQ(readNumber(1000), ": MsgIpc: expected message number, got who");
  channel.ipc.readMessage("number", 1000);
  EXPECT_EQ(channel.seen(), "5 ");
  // The rest is held by the channel and must reach the loop all the same.
  TestChannel::pump();
  EXPECT_EQ(channel.seen(), "6 't' ");

  EXPECT_EQ(readNumber(1), "TimedOut: Timed out");
  channel.feed(text(2));
  EXPECT_EQ(channel.seen(), "'tt' ") << "nothing is expected any more";
  std::string inside;
  channel.onRead = [&](std::string_view) { inside = readNumber(-1); };
  channel.feed(number(1));
  EXPECT_EQ(inside, ": MsgIpc::readMessage: not in state startMsg");

  channel.pair.peer.reset();
  EXPECT_EQ(readNumber(1000), "EndOfStream: End of IO stream");
  TestChannel::pump();
  EXPECT_EQ(channel.seen(), "1 closed ");
}

TEST(MsgIpc, MessagesTooLongToHold) {
  support::LogCapture log;
  TestChannel channel;
  channel.feed(bigMessage("text", longString(std::string(5 * MsgIpc::kMaxHeld, 't'))) + number(1));
  EXPECT_EQ(channel.seen(), "5242880 bytes 1 ");

  // For readers that want all of it, or none.
  const std::string body(3 * MsgIpc::kMaxHeld, 'x');
  channel.feed(bigMessage("list", body) + number(1), 50000);
  EXPECT_EQ(channel.seen().substr(0, 3), "xxx");
  EXPECT_EQ(log.take(), Lines{"0 FdIo: Peer: Reading from InStream would block"});
  struct Stubborn : MsgIpc::Reader {
    bool readMsg(const char*, rdr::InStream&, MsgIpc&) override { return false; }
  } stubborn;
  channel.ipc.addReader("stubborn", &stubborn);
  channel.feed(bigMessage("stubborn", body) + number(2) + bigMessage("who", body) + number(3));
  EXPECT_EQ(channel.seen(), "2 3 ");
  EXPECT_EQ(channel.take(), message("badMsg", shortString("who")));
  channel.ipc.removeReader("stubborn");

  // Nothing but empty frames where the name should be.
  std::string empty;
  for (int i = 0; i < 600000; i++) empty += test::frame("", false);
  channel.feed(empty + number(4) + number(5), 50000);
  EXPECT_EQ(channel.seen(), "5 ");
}

TEST(MsgIpc, ReaderThatFails) {
  const struct {
    std::string bytes, seen, error;
  } cases[] = {
      {message("number", "abc", {1, 1, 2, 4, 7}), "", "End of message"},
      {test::framed("\x05numb"), "", "End of message"},
      {test::framed(""), "", "End of message"},
      {message("number", u32(9) + "rest"), "9 ", "FramedInStream::endMsg: data left in msg"},
      {message("odd", "12345", {4, 5, 6}), "odd ", "FramedInStream::endMsg: data left in msg"},
      {message("text", u32(100) + "short"), "", "End of message"},
      {message("list", "\4abc"), "", "End of message"}};
  for (const auto& c : cases) {
    support::LogCapture log;
    TestChannel channel;
    channel.feed(c.bytes + number(1));
    EXPECT_EQ(channel.seen(), c.seen + "1 ");
    EXPECT_EQ(log.take(), Lines{"0 FdIo: Peer: " + c.error});
    EXPECT_EQ(channel.take(), "");
  }

  // Also when the failure looks like the endpoint's.
  TestChannel channel;
  for (int i = 0; i < 3; i++) {
    channel.onRead = [&](std::string_view) {
      channel.onRead = {};
      if (i == 0) throw plat::SystemException("shmget", ENOSPC);
      if (i == 1) throw rdr::EndOfStream("of another stream");
      throw rdr::TimedOut();
    };
    channel.feed(number(1) + number(2));
    EXPECT_EQ(channel.seen(), "2 ");
  }
  channel.ipc.setSkipFailed(false);
  channel.feed(message("number") + number(1));
  EXPECT_EQ(channel.seen(), "closed ");
}

TEST(MsgIpc, ForbiddenMessages) {
  support::LogCapture log;
  TestChannel channel;
  channel.allow = [](std::string_view name) { return name != "number"; };
  channel.feed(number(1) + text(1));
  EXPECT_EQ(channel.seen(), "'t' ");
  EXPECT_EQ(thrownBy([&] { channel.ipc.writeMsg("number"); }),
            ": MsgIpc::writeMsg: Message not currently allowed");
  EXPECT_EQ(log.take(), Lines(2, "0 FdIo: Peer: Message 'number' not currently allowed"));
  channel.ipc.writeMsg("other");
  channel.ipc.endMsg();
  EXPECT_EQ(channel.take(), message("other"));
}

TEST(MsgIpc, ReadersComeAndGo) {
  TestChannel channel;
  channel.onRead = [&](std::string_view name) { channel.ipc.removeReader(name); };
  channel.feed(number(1) + number(2));
  EXPECT_EQ(channel.seen(), "1 ");
  EXPECT_EQ(channel.take(), message("badMsg", shortString("number")));
  channel.onRead = {};

  // One that leaves without reading.
  struct Leaver : MsgIpc::Reader {
    bool readMsg(const char* name, rdr::InStream&, MsgIpc& ipc) override {
      ipc.removeReader(name);
      return complete;
    }
    bool complete = false;
  } leaver;
  for (const bool complete : {false, true}) {
    leaver.complete = complete;
    channel.ipc.addReader("leave", &leaver);
    channel.feed(message("leave", "body") + message("odd", "1"));
    EXPECT_EQ(channel.seen(), "odd ");
  }

  // In the middle of a message.
  const std::string bytes = bigMessage("text", longString(std::string(2000000, 't')));
  channel.feed({bytes.data(), 1500000});
  channel.ipc.removeReader("text");
  channel.feed(bytes.substr(1500000) + message("odd", "1"));
  EXPECT_EQ(channel.seen(), "odd ");

  // While the channel goes.
  struct Reader : MsgIpc::Reader {
    bool readMsg(const char*, rdr::InStream&, MsgIpc&) override { return true; }
    void detached(MsgIpc& ipc) override {
      ++count;
      ipc.removeReader("a");
    }
    int count = 0;
  } reader;
  {
    MsgIpc ipc("Other");
    ipc.addReader("a", &reader);
    ipc.addReader("b", &reader);
  }
  EXPECT_EQ(reader.count, 1);
}

TEST(MsgIpc, NotConnected) {
  support::LogCapture log;
  TestChannel channel;
  channel.ipc.detach();
  for (const char* name : {"big", "logMsg"}) {
    channel.ipc.writeMsg(name).pad(1000000);
    channel.ipc.endMsg();
  }
  EXPECT_EQ(log.take(), Lines{"100 FdIo: Peer: Discarding message 'big'"});
  EXPECT_FALSE(channel.ipc.wait(-1));
  channel.ipc.setDiscardWhenUnconnected(false);
  EXPECT_NE(thrownBy([&] { channel.ipc.writeMsg("x"); }), "nothing");
  channel.connect();
  channel.feed(number(1));
  EXPECT_EQ(channel.seen(), "1 ");
}

// A failed write closes the channel from the loop, never in the writer's stack.
TEST(MsgIpc, FailedWrites) {
  const auto write = [](TestChannel& channel) {
    channel.ipc.writeMsg("x").writeU32(1);
    channel.ipc.endMsg();
  };
  const auto begunTwice = [](TestChannel& channel) {
    channel.ipc.writeMsg("given up");
    channel.ipc.writeMsg("next");
  };
  const struct {
    bool hangUp;
    std::function<void(TestChannel&)> write;
    const char* thrown;
  } cases[] = {{true, write, "SystemException: write: Broken pipe (32)"},
               {false, begunTwice, "FrameException: FramedOutStream::startMsg: already in msg"},
               {false, [](TestChannel& channel) { channel.ipc.endMsg(); },
                "FrameException: FramedOutStream::endMsg: not in frame"}};
  for (const auto& c : cases) {
    support::LogCapture log;
    TestChannel channel;
    if (c.hangUp) channel.pair.peer.reset();
    EXPECT_EQ(thrownBy([&] { c.write(channel); }), c.thrown);
    EXPECT_EQ(channel.seen(), "");
    EXPECT_FALSE(channel.ipc.isConnected());
    write(channel);  // discarded
    TestChannel::pump();
    EXPECT_EQ(channel.seen(), "closed ");
  }
  // A message that is never ended.
  support::LogCapture log;
  TestChannel channel;
  channel.ipc.writeMsg("given up");
  channel.feed(number(1));
  EXPECT_EQ(channel.seen(), "closed ");
}

// Writes more than sockets hold, and returns it.
std::string stall(TestChannel& channel) {
  const std::string body(1000, 'b');
  std::string written;
  for (int i = 0; i < 1000; i++) {
    channel.ipc.writeMsg("data").writeBytes(body.data(), body.size());
    channel.ipc.endMsg();
    written += message("data", body);
  }
  return written;
}

TEST(MsgIpc, PeerThatStopsReadingStallsNothing) {
  TestChannel channel;
  std::string expected, received;
  for (int i = 0; i < 5; i++) {
    expected += stall(channel);
    channel.feed(number(1));
  }
  EXPECT_EQ(channel.seen(), "1 1 1 1 1 ");
  while (received.size() < expected.size()) {
    const std::string some = channel.take();
    ASSERT_FALSE(some.empty());
    received += some;
    TestChannel::pump();
  }
  EXPECT_TRUE(received == expected);
}

TEST(MsgIpc, UnresponsivePeer) {
  support::LogCapture log;
  test::ManualClock clock;
  TestChannel channel;
  stall(channel);
  const auto pass = [&](int ms) {
    clock.advanceMs(ms);
    TestChannel::pump();
    return channel.seen();
  };
  EXPECT_EQ(pass(59999), "");
  // Reading a little is a sign of life.
  EXPECT_NE(channel.pair.take(100000), "");
  TestChannel::pump();
  EXPECT_EQ(pass(59999), "");
  EXPECT_EQ(pass(1), "closed ");
  EXPECT_TRUE(log.has("Peer: Timed out", 0, "FdIo"));

  const test::ParameterValue limit("MaxOutBufferSize", "100000");
  channel.connect();
  EXPECT_EQ(thrownBy([&] { stall(channel); }),
            "OutStreamFull: BufferedOutStream overrun: buffer size exceeded");
  TestChannel::pump();
  EXPECT_EQ(channel.seen(), "closed ");
}

TEST(MsgIpc, ReattachedFromInside) {
  TestChannel channel;
  test::SocketPair former;
  channel.onRead = [&](std::string_view) {
    channel.onRead = {};
    former = std::move(channel.pair);
    channel.connect();
  };
  channel.feed(number(1) + number(2));
  channel.feed(number(3));
  EXPECT_EQ(channel.seen(), "3 ") << "the message was lost with its endpoint";
  char byte;
  EXPECT_EQ(read(former.peer.get(), &byte, 1), 0);

  channel.onRead = [&](std::string_view) { channel.ipc.detach(); };
  channel.feed(text(5) + number(4));
  EXPECT_FALSE(channel.ipc.isConnected());
  EXPECT_EQ(channel.seen(), "");

  channel.onRead = {};
  channel.connect();
  channel.onClosed = [&] { channel.connect(); };
  channel.hangUp();
  channel.feed(number(5));
  EXPECT_EQ(channel.seen(), "closed 5 ");
}

TEST(MsgIpc, DestroyedWhenClosed) {
  auto channel = std::make_unique<TestChannel>();
  channel->onClosed = [&] { channel.reset(); };
  channel->pair.peer.reset();
  TestChannel::pump();
  EXPECT_EQ(channel, nullptr);
}

TEST(MsgIpc, DrivenByHand) {
  support::LogCapture log;
  TestChannel channel(MsgIpc::kManual);
  EXPECT_FALSE(channel.ipc.wait(0));
  channel.pair.put(message("number", "x") + number(1) + number(2) + number(3));
  EXPECT_EQ(thrownBy([&] { channel.ipc.processMessages(); }), "EndOfMsg: End of message");
  channel.ipc.readMessage("number", 0);
  EXPECT_EQ(channel.seen(), "1 ");
  EXPECT_TRUE(channel.ipc.wait(0));
  EXPECT_EQ(channel.seen(), "2 3 ");

  // Output that was left behind goes out while waiting.
  const size_t written = stall(channel).size();
  for (size_t received = 0; received < written;) {
    received += channel.take().size();
    EXPECT_FALSE(channel.ipc.wait(0));
  }
  EXPECT_EQ(thrownBy([&] { channel.ipc.flush(0); }), "nothing");
  stall(channel);
  EXPECT_EQ(thrownBy([&] { channel.ipc.flush(1); }), "TimedOut: Timed out");
  channel.pair.peer.reset();
  EXPECT_TRUE(channel.ipc.wait(-1));
  EXPECT_EQ(channel.seen(), "closed ");
}

}  // namespace
}  // namespace io

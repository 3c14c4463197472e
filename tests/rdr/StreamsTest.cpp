#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "rdr/Exceptions.h"
#include "rdr/FdInStream.h"
#include "rdr/FdOutStream.h"
#include "rdr/MemInStream.h"
#include "rdr/MemOutStream.h"
#include "support/Frames.h"
#include "support/ManualClock.h"
#include "support/ParameterValue.h"
#include "support/SocketPair.h"
#include "support/Thrown.h"

namespace rdr {
namespace {

using test::SocketPair;
using test::thrownBy;

std::string written(const MemOutStream& out) {
  return {reinterpret_cast<const char*>(out.data()), out.size()};
}

TEST(Streams, TypedValuesAreBigEndianAndReadBack) {
  MemOutStream out(1);
  out.writeU8(0xFE);
  out.writeU16(0x0102);
  out.writeU32(0x80000001u);
  out.writeS32(-2);
  out.writeU64(0x1122334455667788u);
  out.writeString("h\xC3\xA9");
  out.writeShortString("name");
  out.pad(3);
  out.writeBytes("xyz", 3);
  EXPECT_EQ(written(out),
            std::string("\xFE\x01\x02\x80\0\0\x01\xFF\xFF\xFF\xFE\x11\x22\x33\x44\x55\x66\x77\x88"
                        "\0\0\0\x03h\xC3\xA9\x04name\0\0\0xyz",
                        37));
  EXPECT_EQ(out.length(), 37u);

  MemInStream in(out.data(), out.size());
  EXPECT_EQ(in.readU8(), 0xFE);
  EXPECT_EQ(in.readU16(), 0x0102);
  EXPECT_EQ(in.readU32(), 0x80000001u);
  EXPECT_EQ(in.readS32(), -2);
  EXPECT_EQ(in.readU64(), 0x1122334455667788u);
  EXPECT_EQ(in.readString(3), plat::String("h\xC3\xA9"));
  EXPECT_EQ(in.readShortString(), plat::String("name"));
  in.skip(3);
  EXPECT_EQ(thrownBy([&] { in.readU32(); }), "EndOfStream: End of in-memory input stream");
  char rest[3];
  in.readBytes(rest, 3);
  EXPECT_EQ(std::string(rest, 3), "xyz") << "the failed read must consume nothing";
}

TEST(Streams, Strings) {
  const std::string counted = test::longString("four");
  MemInStream in(counted.data(), counted.size());
  EXPECT_EQ(thrownBy([&] { in.readString(3); }),
            "StringTooLongException: String exceeds maximum length");
  EXPECT_EQ(in.available(), 4u) << "the text must not be consumed";

  // An absurd count costs no memory.
  const std::string lie = test::u32(0xFFFFFFFF) + "ab";
  MemInStream liar(lie.data(), lie.size());
  EXPECT_EQ(thrownBy([&] { liar.readString(0xFFFFFFFF); }),
            "EndOfStream: End of in-memory input stream");

  const std::string empty = test::longString("");
  MemInStream nothing(empty.data(), empty.size());
  EXPECT_FALSE(nothing.readString(0).isNull());

  MemOutStream out;
  out.writeShortString(std::string(300, 'n'));
  EXPECT_EQ(written(out), '\xFF' + std::string(255, 'n'));
}

TEST(Streams, Lines) {
  const std::string longest(0x40000, 'x');
  const struct {
    std::string text;
    size_t limit;
    std::string first;  // or what is thrown
  } cases[] = {
      {"one\r\ntwo\n", 3, "one"},
      {"\r\r\n", 1, ""},
      {"four\n", 3, "StringTooLongException: String exceeds maximum length"},
      {longest + "\n", 0, longest},
      {longest + "x\n", 0, "StringTooLongException: String exceeds maximum length"},
      {"no end", 0, "EndOfStream: End of in-memory input stream"},
  };
  for (const auto& c : cases) {
    MemInStream in(c.text.data(), c.text.size());
    std::string line;
    const std::string thrown = thrownBy([&] { line = in.readLine(c.limit).str(); });
    EXPECT_EQ(thrown == "nothing" ? line : thrown, c.first);
  }
}

TEST(FdInStream, WaitsOnlyWhenToldTo) {
  SocketPair pair;
  FdInStream in(pair.ours.get());
  EXPECT_EQ(in.check(1, 1, false), 0u);
  EXPECT_EQ(thrownBy([&] { in.readU8(); }), "BlockException: Reading from InStream would block");
  pair.put("\x01\x02");
  EXPECT_EQ(thrownBy([&] { in.readU32(); }), "BlockException: Reading from InStream would block");
  in.setWaiting(true, 1);
  EXPECT_EQ(thrownBy([&] { in.readU32(); }), "TimedOut: Timed out");
  pair.put("\x03\x04");
  EXPECT_EQ(in.readU32(), 0x01020304u) << "failed reads must consume nothing";
  pair.peer.reset();
  EXPECT_EQ(thrownBy([&] { in.check(1, 1, false); }), "EndOfStream: End of IO stream");
}

TEST(FdInStream, CheckpointedBytesSurviveRefills) {
  SocketPair pair;
  FdInStream in(pair.ours.get(), 100000);
  EXPECT_EQ(thrownBy([&] { in.check(100001, 1, false); }),
            ": InStream overrun: buffer size exceeded");
  pair.put(std::string(30000, 'a') + "bc");
  in.skip(30000);
  in.checkpoint();
  for (int i = 0; i < 6; i++) {
    pair.put(std::string(10000, static_cast<char>('0' + i)));
    while (in.check(1, 1, false) > 0) in.skip(in.available());
  }
  EXPECT_EQ(in.pos(), 90002u);
  in.setPos(30000);
  EXPECT_EQ(in.readU16(), 'b' << 8 | 'c');
  in.skip(59999);
  EXPECT_EQ(in.readU8(), '5');
  EXPECT_EQ(thrownBy([&] { in.setPos(29999); }), ": Can't reposition before checkpoint");
  in.releaseCheckpoint();
  EXPECT_EQ(thrownBy([&] { in.setPos(30000); }), ": Can't reposition before checkpoint");
}

class RecordingCallback final : public FdOutStream::Callback {
 public:
  void pendingChanged(FdOutStream&, bool pending) override {
    record += pending ? "pending " : "written ";
  }
  void writeFailed(FdOutStream&, const plat::Exception& reason) override {
    record += std::string("failed: ") + reason.text() + " ";
  }
  std::string record;
};

TEST(FdOutStream, KeepsWhatThePeerDoesNotTake) {
  // A peer that takes nothing until the end, and slow ones.
  const struct {
    size_t backlog;
    size_t taken;
  } cases[] = {{10000000, 0}, {40000, 30000}, {100000, 50000}, {400000, 100000}};
  for (const auto& c : cases) {
    SocketPair pair;
    RecordingCallback callback;
    FdOutStream out(pair.ours.get(), &callback);
    std::string sent;
    std::string received;
    while (sent.size() < 2000000) {
      std::string line;
      while (line.size() < 1000) line += std::to_string(sent.size() + line.size()) + ' ';
      out.writeBytes(line.data(), line.size());
      sent += line;
      out.flush();
      if (out.pending() > c.backlog) received += pair.take(c.taken);
    }
    EXPECT_EQ(out.length(), sent.size());
    if (c.taken == 0) {
      EXPECT_GT(out.pending(), 1000000u);
      EXPECT_EQ(callback.record, "pending ");
    }
    while (received.size() < sent.size()) {
      const std::string some = pair.take();
      ASSERT_FALSE(some.empty());
      received += some;
      out.flush();
    }
    EXPECT_TRUE(received == sent);
    EXPECT_EQ(out.pending(), 0u);
    EXPECT_EQ(callback.record.substr(callback.record.size() - 16), "pending written ");
  }
}

TEST(FdOutStream, GivesUpOnAPeerThatTakesNothing) {
  test::ManualClock clock;
  test::ParameterValue timeout("LazyFlushTimeout", "2000000000");
  SocketPair pair;
  RecordingCallback callback;
  FdOutStream out(pair.ours.get(), &callback);
  const auto write = [&] {
    out.pad(10000);
    out.flush();
  };
  while (!out.isBlocked()) write();
  EXPECT_EQ(out.msUntilTimeout(), 2000000000000);
  timeout.set("60");
  clock.advanceMs(59999);
  write();
  EXPECT_EQ(out.msUntilTimeout(), 1);
  // Taking something starts the time anew.
  pair.take();
  write();
  while (!out.isBlocked()) write();
  clock.advanceMs(59999);
  write();
  clock.advanceMs(1);
  EXPECT_EQ(thrownBy(write), "TimedOut: Timed out");
  EXPECT_EQ(callback.record, "pending written pending written failed: Timed out ");
  EXPECT_EQ(thrownBy(write), "OutStreamFull: BufferedOutStream overrun: unable to write");
  EXPECT_EQ(out.pending(), 0u);
}

}  // namespace
}  // namespace rdr

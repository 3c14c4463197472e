#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "plat/Exception.h"
#include "rdr/InStreamV4.h"
#include "rdr/MemInStream.h"
#include "rdr/MemOutStream.h"
#include "rdr/OutStreamV4.h"
#include "support/DripStream.h"
#include "support/Frames.h"
#include "support/Thrown.h"

namespace rdr {
namespace {

using support::framed;
using support::thrownBy;

// The frames that were written, such as "32766 1!"; the last of a message has the mark.
std::string framesOf(const MemOutStream& out, size_t from = 0) {
  MemInStream in(out.data() + from, out.size() - from);
  std::string frames;
  while (in.available() > 0) {
    const unsigned header = in.readU16();
    in.skip(header & 0x7FFF);
    frames += std::to_string(header & 0x7FFF) + (header & 0x8000 ? "!" : " ");
  }
  return frames;
}

TEST(FramedOut, FrameLengths) {
  const struct {
    size_t payload;
    const char* frames;
  } cases[] = {{0, "0!"}, {32766, "32766!"}, {32767, "32766 1!"}, {65532, "32766 32766!"}};
  // Whatever room the underlying buffer has left.
  for (const size_t before : {0u, 1u, 65535u}) {
    for (const auto& c : cases) {
      MemOutStream mem(65536);
      mem.pad(before);
      OutStreamV4 out(&mem);
      out.startMsg();
      out.pad(c.payload);
      out.endMsg();
      EXPECT_EQ(framesOf(mem, before), c.frames) << c.payload << " after " << before;
    }
  }
}

TEST(FramedOut, IntegersAreNotSplitAndFlushDeliversWhatIsThere) {
  MemOutStream mem;
  OutStreamV4 out(&mem);
  out.startMsg();
  out.flush();
  out.pad(32764);
  out.writeU32(1);
  out.flush();
  EXPECT_EQ(framesOf(mem), "32764 4 ");
  out.flush();
  out.writeU8(2);
  out.endMsg();
  EXPECT_EQ(framesOf(mem), "32764 4 1!");
  EXPECT_EQ(thrownBy([&] { out.writeU8(3); }), "FrameException: FramedOutStream: not in msg");
}

TEST(FramedOut, FramesInFrames) {
  MemOutStream mem;
  OutStreamV4 outer(&mem), inner(&outer);
  outer.startMsg();
  inner.startMsg();
  inner.writeU8('a');
  inner.flush();
  EXPECT_EQ(framesOf(mem), "3 ") << "the inner frame and its header";
  inner.pad(40000);
  inner.writeU8('b');
  inner.endMsg();
  outer.endMsg();
  MemInStream bytes(mem.data(), mem.size());
  InStreamV4 outerIn(&bytes), innerIn(&outerIn);
  outerIn.startMsg();
  innerIn.startMsg();
  EXPECT_EQ(innerIn.readU8(), 'a');
  innerIn.skip(40000);
  EXPECT_EQ(innerIn.readU8(), 'b');
  innerIn.endMsg();
  outerIn.endMsg();
}

TEST(FramedIn, MessageEndsInsideAnItem) {
  const std::string bytes = framed("abc", {2}) + framed("x");
  MemInStream mem(bytes.data(), bytes.size());
  InStreamV4 in(&mem);
  in.startMsg();
  EXPECT_EQ(thrownBy([&] { in.readU32(); }), "EndOfMsg: End of message");
  EXPECT_EQ(in.readU8(), 'a') << "the failed read must consume nothing";
  EXPECT_FALSE(in.atEndOfMsg());
  in.skipToEndOfMsg();
  in.endMsg();
  in.startMsg();
  EXPECT_EQ(in.readU8(), 'x');
}

// What is left of an item that was spread over frames comes before what lies in the next one.
TEST(FramedIn, ItemsThatOverlap) {
  const std::string bytes = framed("abcdefghijkl", {2, 10});
  for (size_t read = 1; read <= 4; ++read) {
    MemInStream mem(bytes.data(), bytes.size());
    InStreamV4 in(&mem);
    in.startMsg();
    in.check(4);
    in.skip(read);
    EXPECT_EQ(in.readU32() >> 24, 'a' + read) << read;
  }
}

TEST(FramedIn, MessagesThatHaveNotArrived) {
  const std::string first = framed("some bytes", {0, 3, 3, 7});
  support::DripStream drip(first + framed(std::string(5000, 's'), {100, 100, 4000}) + framed("t"));
  InStreamV4 in(&drip);
  in.setBufferedOnly(true);
  for (size_t i = 0; i < first.size(); ++i) {
    ASSERT_FALSE(in.isMsgBuffered()) << i;
    drip.arrive(1);
  }
  ASSERT_TRUE(in.isMsgBuffered());
  EXPECT_EQ(drip.available(), first.size()) << "looking must consume nothing";
  in.startMsg();
  EXPECT_TRUE(in.isMsgBuffered());
  in.skipToEndOfMsg();
  in.endMsg();
  EXPECT_FALSE(in.isMsgBuffered());

  in.startMsg();
  EXPECT_EQ(thrownBy([&] { in.readU32(); }), "BlockException: Reading from InStream would block");
  drip.arrive(60);
  in.readU32();
  drip.arrive(42);
  in.skip(96);
  EXPECT_EQ(in.check(1, 1, false), 0u) << "all of the first frame has been read";
  while (!in.skipToEndOfMsg(false)) drip.arrive(7);
  in.endMsg();
  drip.arrive(10);
  ASSERT_TRUE(in.isMsgBuffered());
  in.startMsg();
  EXPECT_EQ(in.readU8(), 't');
  EXPECT_EQ(drip.reads(), 0u);
}

// In the middle of a frame that has arrived in part, and the former one has gone already.
TEST(FramedIn, AnotherUnderlyingStream) {
  const std::string bytes = framed("some bytes", {3, 7});
  auto former = std::make_unique<support::DripStream>(bytes);
  former->arrive(4);
  InStreamV4 in(former.get());
  in.startMsg();
  EXPECT_EQ(in.readU8(), 's');
  former.reset();
  MemInStream other(bytes.data(), bytes.size());
  in.setUnderlying(&other);
  in.startMsg();
  EXPECT_EQ(in.readU8(), 's');
}

}  // namespace
}  // namespace rdr

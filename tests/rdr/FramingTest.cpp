#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "rdr/Exceptions.h"
#include "rdr/InStreamV4.h"
#include "rdr/MemInStream.h"
#include "rdr/MemOutStream.h"
#include "rdr/OutStreamV4.h"
#include "support/DripStream.h"
#include "support/Frames.h"
#include "support/Thrown.h"

namespace rdr {
namespace {

using test::DripStream;
using test::framed;
using test::thrownBy;

struct Frame {
  size_t length;
  bool last;
  bool operator==(const Frame&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Frame& f) {
  return out << f.length << (f.last ? "!" : "");
}

std::vector<Frame> framesOf(const MemOutStream& out, size_t from = 0) {
  MemInStream in(out.data() + from, out.size() - from);
  std::vector<Frame> frames;
  while (in.available() > 0) {
    const unsigned header = in.readU16();
    frames.push_back({header & 0x7FFF, (header & 0x8000) != 0});
    in.skip(header & 0x7FFF);
  }
  return frames;
}

TEST(FramedOut, FrameLengths) {
  const struct {
    size_t payload;
    std::vector<Frame> frames;
  } cases[] = {{0, {{0, true}}},
               {32766, {{32766, true}}},
               {32767, {{32766, false}, {1, true}}},
               {65532, {{32766, false}, {32766, true}}}};
  // Whatever room the underlying buffer has left.
  for (const size_t before : {0u, 1u, 30000u, 65535u}) {
    for (const auto& c : cases) {
      MemOutStream mem(65536);
      mem.pad(before);
      OutStreamV4 out(&mem);
      const std::string payload(c.payload, 'p');
      out.startMsg();
      out.writeBytes(payload.data(), payload.size());
      out.endMsg();
      EXPECT_EQ(framesOf(mem, before), c.frames) << c.payload << " after " << before;
      EXPECT_EQ(out.length(), c.payload);
    }
  }
}

TEST(FramedOut, IntegersAreNotSplit) {
  MemOutStream mem;
  OutStreamV4 out(&mem);
  out.startMsg();
  out.pad(32764);
  out.writeU32(1);
  out.endMsg();
  EXPECT_EQ(framesOf(mem), (std::vector<Frame>{{32764, false}, {4, true}}));
}

TEST(FramedOut, FlushInsideAMessageDeliversWhatIsThere) {
  MemOutStream mem;
  OutStreamV4 out(&mem);
  out.startMsg();
  out.flush();
  out.writeU16(1);
  out.flush();
  EXPECT_EQ(framesOf(mem), (std::vector<Frame>{{2, false}}));
  out.flush();
  out.writeU8(2);
  out.endMsg();
  EXPECT_EQ(framesOf(mem), (std::vector<Frame>{{2, false}, {1, true}}));
}

TEST(FramedOut, MisuseIsRefused) {
  MemOutStream mem;
  OutStreamV4 out(&mem);
  EXPECT_EQ(thrownBy([&] { out.endFrame(false); }),
            "FrameException: FramedOutStream::endFrame: not in frame");
  EXPECT_EQ(thrownBy([&] { out.endMsg(); }),
            "FrameException: FramedOutStream::endMsg: not in frame");
  EXPECT_NE(thrownBy([&] { out.writeU8(1); }), "nothing");
  out.startMsg();
  EXPECT_EQ(thrownBy([&] { out.startMsg(); }),
            "FrameException: FramedOutStream::startMsg: already in msg");
  mem.pad(mem.space());
  EXPECT_EQ(thrownBy([&] { out.endMsg(); }),
            "FrameException: FramedOutStream::endFrame: no space for header");
}

const char kText[] = "some text";

std::string sampleBody() {
  return "\x01" + test::u16(0x0203) + test::u32(0x04050607) + test::longString(kText) + "\xFF";
}

// Reads the sample's items one at a time, each as often as it takes, and notes them.
class SampleReader {
 public:
  bool step(InStream& in) {
    if (next_ == 5) return false;
    if (next_ == 4) {
      for (; textLeft_ > 0; textLeft_--) {
        if (in.check(1, textLeft_, false) == 0) throw BlockException();
        seen_ += static_cast<char>(in.readU8());
      }
    }
    const uint32_t value = next_ % 4 == 0 ? in.readU8() : next_ == 1 ? in.readU16() : in.readU32();
    if (next_++ == 3) textLeft_ = value;
    seen_ += " " + std::to_string(value) + " ";
    return true;
  }
  std::string seen_;

 private:
  int next_ = 0;
  size_t textLeft_ = 0;
};

TEST(FramedIn, FramesMayBeCutAnywhereAndArriveInAnyPieces) {
  const std::string body = sampleBody();
  std::vector<std::string> streams = {framed(body)};
  for (size_t a = 0; a <= body.size(); a++) {
    for (size_t b = a; b <= body.size(); b++) streams.push_back(framed(body, {a, b}));
  }
  std::vector<size_t> everywhere;
  for (size_t i = 0; i <= body.size(); i++) everywhere.insert(everywhere.end(), {i, i});
  streams.push_back(framed(body, everywhere));

  for (const std::string& bytes : streams) {
    for (const size_t piece : {size_t{1}, size_t{2}, size_t{5}, bytes.size()}) {
      for (const bool bufferedOnly : {false, true}) {
        DripStream drip(bytes + framed("next"));
        InStreamV4 in(&drip);
        in.setBufferedOnly(bufferedOnly);
        SampleReader reader;
        in.startMsg();
        for (;;) {
          try {
            while (reader.step(in)) {
            }
            in.endMsg();
            break;
          } catch (const BlockException&) {
            ASSERT_TRUE(drip.arrive(piece));
          }
        }
        ASSERT_EQ(reader.seen_, " 1  515  67438087  9 some text 255 ");
        if (bufferedOnly) {
          EXPECT_EQ(drip.reads(), 0u);
        }
        while (drip.arrive(100)) {
        }
        in.startMsg();
        char next[4];
        in.readBytes(next, 4);
        ASSERT_EQ(std::string(next, 4), "next");
        in.endMsg();
      }
    }
  }
}

TEST(FramedIn, TruncatedAnywhere) {
  const std::string body = sampleBody();
  const std::string whole = framed(body, {2, 2, 9});
  for (size_t length = 0; length < whole.size(); length++) {
    // The stream ends too early ...
    MemInStream cut(whole.data(), length);
    InStreamV4 in(&cut);
    SampleReader reader;
    in.startMsg();
    EXPECT_EQ(thrownBy([&] {
                while (reader.step(in)) {
                }
                in.endMsg();
              }),
              "EndOfStream: End of in-memory input stream")
        << length;
  }
  for (size_t length = 0; length < body.size(); length++) {
    // ... or the message does.
    const std::string bytes = framed(body.substr(0, length), {length / 2}) + framed("x");
    MemInStream mem(bytes.data(), bytes.size());
    InStreamV4 in(&mem);
    SampleReader reader;
    in.startMsg();
    EXPECT_EQ(thrownBy([&] {
                while (reader.step(in)) {
                }
              }),
              "EndOfMsg: End of message")
        << length;
    in.skipToEndOfMsg();
    in.endMsg();
    in.startMsg();
    EXPECT_EQ(in.readU8(), 'x');
  }
}

TEST(FramedIn, EndOfMessage) {
  // The last one is as long as its header can say.
  const std::string bytes =
      framed("ab", {1, 2, 2}) + framed("") + framed("", {0}) + framed(std::string(32767, 'f'));
  MemInStream mem(bytes.data(), bytes.size());
  InStreamV4 in(&mem);
  in.startMsg();
  EXPECT_EQ(thrownBy([&] { in.startMsg(); }),
            "FrameException: FramedInStream::startMsg: already in msg");
  in.readU8();
  EXPECT_FALSE(in.atEndOfMsg());
  EXPECT_EQ(thrownBy([&] { in.endMsg(); }),
            "FrameException: FramedInStream::endMsg: data left in msg");
  in.readU8();
  EXPECT_TRUE(in.atEndOfMsg());
  EXPECT_EQ(thrownBy([&] { in.check(1, 1, false); }), "EndOfMsg: End of message");
  in.endMsg();
  for (int i = 0; i < 2; i++) {
    in.startMsg();
    EXPECT_TRUE(in.atEndOfMsg());
    in.endMsg();
  }
  in.startMsg();
  in.skipToEndOfMsg();
  in.endMsg();
  EXPECT_EQ(mem.available(), 0u);
  EXPECT_NE(thrownBy([&] { in.readU8(); }), "nothing");
}

TEST(FramedIn, ItemThatIsTooLongToPutTogether) {
  const std::string bytes = framed(std::string(1000, 'i'), {10});
  MemInStream mem(bytes.data(), bytes.size());
  InStreamV4 in(&mem);
  in.startMsg();
  EXPECT_EQ(in.check(256), 1u);
  EXPECT_EQ(thrownBy([&] { in.check(257); }), ": Too much data for InStream buffer");
}

TEST(FramedIn, KnowsWhenAWholeMessageIsBuffered) {
  const std::string first = framed("some bytes", {0, 3, 3, 7});
  const std::string second = framed("");
  DripStream drip(first + second + "\x80");
  InStreamV4 in(&drip);
  in.setBufferedOnly(true);
  for (size_t i = 0; i < first.size(); i++) {
    ASSERT_FALSE(in.isMsgBuffered()) << i;
    drip.arrive(1);
  }
  ASSERT_TRUE(in.isMsgBuffered());
  EXPECT_EQ(drip.available(), first.size()) << "looking must consume nothing";
  in.startMsg();
  in.skipToEndOfMsg();
  in.endMsg();
  EXPECT_FALSE(in.isMsgBuffered());
  drip.arrive(3);
  ASSERT_TRUE(in.isMsgBuffered());
  in.startMsg();
  in.endMsg();
  EXPECT_FALSE(in.isMsgBuffered());
  EXPECT_EQ(drip.reads(), 0u);
}

TEST(FramedIn, SkippingWhatHasNotArrived) {
  const std::string body(5000, 's');
  DripStream drip(framed(body, {100, 100, 4000}) + framed("t"));
  InStreamV4 in(&drip);
  in.setBufferedOnly(true);
  in.startMsg();
  drip.arrive(60);
  in.readU32();
  while (!in.skipToEndOfMsg(false)) drip.arrive(7);
  in.endMsg();
  drip.arrive(10);
  in.startMsg();
  EXPECT_EQ(in.readU8(), 't');
}

}  // namespace
}  // namespace rdr

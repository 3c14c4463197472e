#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "rdr/DisplayInfo.h"
#include "rdr/FdInStream.h"
#include "rdr/FdOutStream.h"
#include "rdr/FileInStream.h"
#include "rdr/MemInStream.h"
#include "rdr/MemOutStream.h"
#include "rdr/TransactedFileOutStream.h"
#include "support/ManualClock.h"
#include "support/ParameterValue.h"
#include "support/SocketPair.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

namespace rdr {
namespace {

using support::SocketPair;
using support::TempDir;
using support::thrownBy;

TEST(DisplayInfo, ComesBackAsItWent) {
  plat::DisplayInfo sent;
  sent.primary = sent.flag3 = true;
  sent.flag4 = false;
  sent.left = -1;
  sent.bottom = 2160;
  sent.secondName = "1";
  sent.thirdName = "odd";
  MemOutStream out;
  sent.write(out);
  MemInStream in(out.data(), out.size());
  plat::DisplayInfo got;
  got.read(in);
  EXPECT_EQ(got.primary, sent.primary);
  EXPECT_EQ(got.flag2, sent.flag2);
  EXPECT_EQ(got.flag3, sent.flag3);
  EXPECT_EQ(got.flag4, sent.flag4);
  EXPECT_EQ(got.left, -1);
  EXPECT_EQ(got.bottom, 2160);
  EXPECT_EQ(got.secondName, sent.secondName);
  EXPECT_EQ(got.thirdName, sent.thirdName);
}

TEST(InStream, Lines) {
  const std::string text = "one\r\ntwo\nthree\n";
  MemInStream in(text.data(), text.size());
  EXPECT_EQ(in.readLine(), "one");
  EXPECT_EQ(in.readLine(3), "two");
  EXPECT_NE(thrownBy([&] { in.readLine(3); }), "nothing");
}

TEST(MemOutStream, KeepsWhatItHoldsAsItGrows) {
  MemOutStream out(1);
  out.writeU8(7);
  out.pad(100000);
  EXPECT_EQ(out.data()[0], 7);
}

TEST(MemInStream, IsPlacedAnywhereUpToItsEnd) {
  MemInStream in("abc", 3);
  in.setPos(3);
  EXPECT_EQ(thrownBy([&] { in.readU8(); }), "EndOfStream: End of in-memory input stream");
  in.setPos(1);
  EXPECT_EQ(in.readU8(), 'b');
  EXPECT_EQ(thrownBy([&] { in.setPos(4); }), ": Can't reposition beyond the end");
  in.checkpoint();
  EXPECT_EQ(thrownBy([&] { in.setPos(1); }), ": Can't reposition before checkpoint");
}

TEST(FdInStream, CheckpointedBytesSurviveRefills) {
  SocketPair pair;
  FdInStream in(pair.ours.get(), 100000);
  pair.put(std::string(30000, 'a') + "bc");
  in.skip(30000);
  EXPECT_EQ(thrownBy([&] { in.readU32(); }), "BlockException: Reading from InStream would block");
  in.checkpoint();
  for (int i = 0; i < 6; ++i) {
    pair.put(std::string(10000, static_cast<char>('0' + i)));
    while (in.check(1, 1, false) > 0) in.skip(in.available());
  }
  in.setPos(30000);
  EXPECT_EQ(in.readU16(), 'b' << 8 | 'c');
}

TEST(FdInStream, ABlockingDescriptorIsNotWaitedFor) {
  SocketPair pair;
  fcntl(pair.ours.get(), F_SETFL, 0);
  FdInStream in(pair.ours.get());
  EXPECT_EQ(in.check(1, 1, false), 0u);
  pair.put("ab");
  EXPECT_EQ(in.readU8(), 'a');
  EXPECT_EQ(in.check(2, 1, false), 0u);
}

TEST(FdOutStream, KeepsWhatThePeerDoesNotTake) {
  // A peer that takes nothing until the end, and slow ones.
  const struct {
    size_t backlog;
    size_t taken;
  } cases[] = {{10000000, 0}, {40000, 30000}, {400000, 100000}};
  for (const auto& c : cases) {
    SocketPair pair;
    FdOutStream out(pair.ours.get());
    std::string sent;
    std::string received;
    while (sent.size() < 2000000) {
      std::string line;
      while (line.size() < 1000) line += std::to_string(sent.size() + line.size()) + ' ';
      out.writeBytes(line.data(), line.size());
      sent += line;
      out.flush();
      ASSERT_EQ(out.length(), sent.size());
      if (out.pending() > c.backlog) received += pair.take(c.taken);
    }
    while (received.size() < sent.size()) {
      const std::string some = pair.take();
      ASSERT_FALSE(some.empty());
      received += some;
      out.flush();
    }
    EXPECT_TRUE(received == sent);
    EXPECT_EQ(out.pending(), 0u);
    out.writeU8('.');
    out.flush();
    EXPECT_EQ(pair.take(), ".");
  }
}

TEST(FdOutStream, GivesUpAPeerThatTakesTooLittle) {
  const auto give = [](FdOutStream& out, size_t size) {
    out.writeBytes(std::string(size, 'x').data(), size);
    out.flush();
  };
  support::ManualClock clock;
  support::ParameterValue limit("MaxOutBufferSize", "1000000"), seconds("LazyFlushTimeout", "10");
  {
    SocketPair pair;
    FdOutStream out(pair.ours.get());
    give(out, 900000);
    for (int i = 0; i < 2; ++i) {
      clock.advanceMs(9900);
      pair.take(100000);
      out.flush();
    }
    ASSERT_GT(out.pending(), 0u);
    clock.advanceMs(9900);
    out.flush();
    clock.advanceMs(100);
    EXPECT_EQ(thrownBy([&] { out.flush(); }), "TimedOut: Timed out");
  }
  limit.set("16384");
  SocketPair pair;
  FdOutStream out(pair.ours.get());
  size_t most = 0;
  EXPECT_NE(thrownBy([&] {
              for (;; most = std::max(most, out.pending())) give(out, 1000);
            }).find("buffer size exceeded"),
            std::string::npos);
  EXPECT_GT(most, 16384u - 1000);
  EXPECT_LE(most, 16384u);
}

TEST(FileStreams, ATransactionChangesAllOrNothing) {
  const TempDir directory;
  const std::string target = directory / "target", link = directory / "link";
  std::ofstream(target) << "old";
  std::filesystem::create_symlink(target, link);
  for (const bool commits : {false, true}) {
    {
      TransactedFileOutStream out(link);
      for (uint32_t i = 0; i < 50000; ++i) out.writeU32(i);
      out.flush();
      EXPECT_EQ(std::filesystem::file_size(target), 3u);
      if (commits) out.commit();
    }
    const std::filesystem::directory_iterator all(directory.path());
    EXPECT_EQ(std::distance(begin(all), end(all)), 2);
    EXPECT_EQ(std::filesystem::file_size(target), commits ? 200000u : 3u);
  }
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  FileInStream in(target);
  for (uint32_t i = 0; i < 50000; ++i) {
    ASSERT_FALSE(in.atEnd());
    ASSERT_EQ(in.readU32(), i);
  }
  EXPECT_TRUE(in.atEnd());
  EXPECT_EQ(thrownBy([&] { in.readU8(); }), "EndOfStream: End of file");
  std::ofstream(target) << "x";
  EXPECT_EQ(FileInStream(target).readU8(), 'x') << "no more is needed than asked for";
  EXPECT_EQ(thrownBy([] { FileInStream("/").readU8(); }),
            "SystemException: read: Is a directory (21)");
  // Devices stay devices.
  EXPECT_EQ(thrownBy([] { TransactedFileOutStream("/dev/null"); }), ": not a regular file");
}

}  // namespace
}  // namespace rdr

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "rdr/Exceptions.h"
#include "rdr/FdInStream.h"
#include "rdr/FdOutStream.h"
#include "rdr/FileInStream.h"
#include "rdr/MemInStream.h"
#include "rdr/MemOutStream.h"
#include "rdr/TransactedFileOutStream.h"
#include "support/Frames.h"
#include "support/SocketPair.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

namespace rdr {
namespace {

using test::SocketPair;
using test::TempDir;
using test::thrownBy;

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
  const std::string written(reinterpret_cast<const char*>(out.data()), out.size());
  EXPECT_EQ(written,
            std::string("\xFE\x01\x02\x80\0\0\x01\xFF\xFF\xFF\xFE\x11\x22\x33\x44\x55\x66\x77\x88"
                        "\0\0\0\x03h\xC3\xA9\x04name\0\0\0xyz",
                        37));

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
  EXPECT_EQ(in.available(), 3u) << "the failed read must consume nothing";
}

TEST(Streams, StringLimits) {
  const std::string text = "\rone\r\ntwo";
  MemInStream lines(text.data(), text.size());
  EXPECT_EQ(lines.readLine(3).str(), "one");
  EXPECT_EQ(thrownBy([&] { lines.readLine(2); }),
            "StringTooLongException: String exceeds maximum length");
  // An absurd count costs no memory.
  const std::string lie = test::u32(0xFFFFFFFF) + "ab";
  MemInStream liar(lie.data(), lie.size());
  EXPECT_EQ(thrownBy([&] { liar.readString(0xFFFFFFFF); }),
            "EndOfStream: End of in-memory input stream");
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
  in.skip(59999);
  EXPECT_EQ(in.readU8(), '5');
  in.releaseCheckpoint();
  EXPECT_EQ(thrownBy([&] { in.setPos(30000); }), ": Can't reposition before checkpoint");
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
      if (out.pending() > c.backlog) received += pair.take(c.taken);
    }
    EXPECT_EQ(out.length(), sent.size());
    while (received.size() < sent.size()) {
      const std::string some = pair.take();
      ASSERT_FALSE(some.empty());
      received += some;
      out.flush();
    }
    EXPECT_TRUE(received == sent);
    EXPECT_EQ(out.pending(), 0u);
  }
}

TEST(FileStreams, ATransactionChangesAllOrNothing) {
  const TempDir directory;
  const std::string target = directory / "target", link = directory / "link";
  std::ofstream(target) << "old";
  std::filesystem::create_symlink(target, link);
  const auto files = [&] {
    const std::filesystem::directory_iterator all(directory.path());
    return std::distance(begin(all), end(all));
  };
  const auto write = [](TransactedFileOutStream& out) {
    for (uint32_t i = 0; i < 50000; ++i) out.writeU32(i);
    out.flush();
  };
  {
    TransactedFileOutStream out(link);
    write(out);
    EXPECT_EQ(files(), 3);
  }
  EXPECT_EQ(files(), 2);
  EXPECT_EQ(std::filesystem::file_size(target), 3u);
  {
    TransactedFileOutStream out(link);
    write(out);
    out.commit();
  }
  EXPECT_EQ(files(), 2);
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  FileInStream in(target);
  for (uint32_t i = 0; i < 50000; ++i) ASSERT_EQ(in.readU32(), i);
  EXPECT_TRUE(in.atEnd());
  EXPECT_EQ(thrownBy([&] { in.readU8(); }), "EndOfStream: End of file");
  // Devices stay devices.
  EXPECT_EQ(thrownBy([] { TransactedFileOutStream("/dev/null"); }), ": not a regular file");
}

}  // namespace
}  // namespace rdr

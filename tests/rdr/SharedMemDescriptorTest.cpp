#include "rdr/SharedMemDescriptor.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "plat/LockDir.h"
#include "plat/SharedMemPosix.h"
#include "plat/SharedMemSysV.h"
#include "rdr/MemInStream.h"
#include "rdr/MemOutStream.h"
#include "support/Frames.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

namespace rdr {
namespace {

using test::longString;
using test::u32;

std::string written(const plat::SharedMem& memory) {
  MemOutStream out;
  writeSharedMem(out, memory);
  return {reinterpret_cast<const char*>(out.data()), static_cast<size_t>(out.length())};
}

class SharedMemDescriptorTest : public testing::Test {
 protected:
  SharedMemDescriptorTest() { plat::LockDir::setBase(base_.path()); }
  ~SharedMemDescriptorTest() override { plat::LockDir::setBase(""); }

  const test::TempDir base_;
};

TEST_F(SharedMemDescriptorTest, RoundTrip) {
  const plat::SharedMemPosix posix(5000);
  const plat::SharedMemSysV sysV(5000);
  const std::string path = base_ / "file";
  std::ofstream(path) << std::string(20000, 'a');
  const plat::SharedMemPosix file(path, 5000, true, 9000);
  const std::string pos = std::string(4, '\0') + u32(9000);
  const std::string posixLog = "100 SharedMemPosix: ";
  const std::string sysVLog = "100 SharedMemSysV: ";
  const std::string id = std::to_string(sysV.id());
  struct {
    const plat::SharedMem& memory;
    std::string bytes, lines;
  } const cases[] = {
      {posix, std::string(1, '\0') + u32(5000) + longString(posix.name()) + std::string(9, '\0'),
       posixLog + "Receive " + posix.name() + " size 0x1388 pos 0 isFile 0\n" + posixLog + "Map "},
      {file, std::string(1, '\0') + u32(5000) + longString(path) + "\1" + pos,
       posixLog + "Receive " + path + " size 0x1388 pos 0x2328 isFile 1\n" + posixLog +
           "Open file " + path + " size 0x1388 pos 0x2328\n" + posixLog + "Map "},
      {sysV, "\1" + u32(5000) + u32(static_cast<uint32_t>(sysV.id())),
       sysVLog + "sending " + id + " size 0x1388\n" + sysVLog + "Receive " + id + " size 0x1388\n" +
           sysVLog + "Attached "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.lines);
    support::LogCapture lines;
    const std::string bytes = written(c.memory);
    EXPECT_EQ(bytes, c.bytes);
    MemInStream in(bytes.data(), bytes.size());
    const auto peer = readSharedMem(in);
    EXPECT_EQ(in.available(), 0u);
    EXPECT_TRUE(lines.str().starts_with(c.lines)) << lines.str();
    c.memory.data()[4999] = 77;
    EXPECT_EQ(peer->data()[4999], 77);
  }
}

TEST_F(SharedMemDescriptorTest, BadInput) {
  struct {
    std::string bytes;
    const char* text;
  } const cases[] = {{"\2" + u32(1) + u32(1), "Unsupported memory type received"},
                     {"\1" + u32(1) + u32(0xffffffff), "Bad SharedMemSysV id -1"},
                     {std::string(1, '\0') + u32(1) + longString("/no") + std::string(9, '\0'),
                      "open/shm_open failed: No such file or directory (2)"},
                     {std::string(1, '\0') + u32(1) + longString("a/b") + std::string(9, '\0'),
                      "open/shm_open failed: "},
                     {std::string(1, '\0') + u32(1) + longString(std::string(5000, 'a')),
                      "String exceeds maximum length"}};
  for (const auto& c : cases) {
    MemInStream in(c.bytes.data(), c.bytes.size());
    const std::string thrown = test::thrownText([&] { readSharedMem(in); });
    EXPECT_TRUE(thrown.starts_with(c.text)) << thrown;
  }
}

}  // namespace
}  // namespace rdr

#include "rdr/SharedMemDescriptor.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "plat/shm/SharedMemPosix.h"
#include "rdr/MemInStream.h"
#include "rdr/MemOutStream.h"
#include "support/Frames.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

namespace rdr {
namespace {

using support::longString;
using support::u32;

// The other kinds pass between agents and servers in the tests of the whole program.
TEST(SharedMemDescriptor, FileAtAPosition) {
  const support::TempDir directory;
  const std::string path = directory / "file";
  std::ofstream(path) << std::string(20000, 'a');
  const plat::SharedMemPosix file(path, 5000, true, 9000);
  MemOutStream out;
  writeSharedMem(out, file);
  const std::string bytes(reinterpret_cast<const char*>(out.data()), out.size());
  EXPECT_EQ(bytes, std::string(1, '\0') + u32(5000) + longString(path) + "\1" +
                       std::string(4, '\0') + u32(9000));

  const support::LogCapture log;
  MemInStream in(bytes.data(), bytes.size());
  const auto peer = readSharedMem(in);
  EXPECT_TRUE(log.str().starts_with(
      "100 SharedMemPosix: Receive " + path + " size 0x1388 pos 0x2328 isFile 1\n" +
      "100 SharedMemPosix: Open file " + path + " size 0x1388 pos 0x2328\n"))
      << log.str();
  file.data()[4999] = 77;
  EXPECT_EQ(peer->data()[4999], 77);
}

TEST(SharedMemDescriptor, BadInput) {
  const std::string rest = std::string(9, '\0');
  struct {
    std::string bytes;
    const char* text;
  } const cases[] = {{"\2" + u32(1) + u32(1), "Unsupported memory type received"},
                     {"\1" + u32(1) + u32(0xffffffff), "Bad SharedMemSysV id -1"},
                     {std::string(1, '\0') + u32(1) + longString("/no") + rest,
                      "open/shm_open failed: No such file or directory (2)"}};
  for (const auto& c : cases) {
    MemInStream in(c.bytes.data(), c.bytes.size());
    EXPECT_EQ(support::thrownText([&] { readSharedMem(in); }), c.text);
  }
}

}  // namespace
}  // namespace rdr

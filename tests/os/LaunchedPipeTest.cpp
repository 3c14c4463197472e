#include "os/LaunchedPipe.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "plat/Exception.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"
#include "support/Thrown.h"

namespace {

using os::LaunchedPipe;
using support::thrownText;

constexpr const char* kHash = "630dcd2966c4336691125448bbb25b4ff412a49c732db2c8abc1b8581bd710dd";

// A listening socket in a directory of its own.
class LaunchedSocketTest : public testing::Test {
 protected:
  LaunchedSocketTest() {
    settings_.debugFile = debugFile_.c_str();
    listener_.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::copy(path_.begin(), path_.end(), address.sun_path);
    bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
    listen(listener_.get(), 1);
  }
  ~LaunchedSocketTest() override { dup2(standardError_.get(), STDERR_FILENO); }

  plat::FileDescriptor open(std::vector<const char*> options) {
    options.push_back(path_.c_str());
    return LaunchedPipe(static_cast<int>(options.size()), options.data(), 0).open(settings_);
  }

  support::TempDir directory_;
  std::string path_ = directory_ / "pipe", debugFile_ = directory_ / "debug.log";
  LaunchedPipe::Settings settings_;
  plat::FileDescriptor listener_, standardError_{fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)};
};

TEST_F(LaunchedSocketTest, DebugFileIsAppendedToUnlessItIsALink) {
  std::ofstream(debugFile_) << "before\n";
  const plat::FileDescriptor fd = open({"-lppDebug"});
  std::fprintf(stderr, "later\n");
  std::ifstream file(debugFile_);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  const std::regex expected(R"(before\n\d{4}-\d\d-\d\d \d\d:\d\d:\d\dZ: connecting to ')" + path_ +
                            "'\nlater\n");
  EXPECT_TRUE(std::regex_match(text, expected)) << text;

  const std::string target = directory_ / "target";
  std::filesystem::remove(debugFile_);
  std::filesystem::create_symlink(target, debugFile_);
  const support::LogCapture log;
  EXPECT_TRUE(open({"-lppDebug"})) << "errors go nowhere, and all else goes on";
  EXPECT_FALSE(std::filesystem::exists(target));
  EXPECT_TRUE(
      log.has("Not writing to " + debugFile_ + ": open: Too many levels of symbolic links (40)", 0,
              "LaunchProcess"));
}

TEST_F(LaunchedSocketTest, FailureToConnectNamesTheCall) {
  for (const auto& [name, text] :
       {std::pair<std::string, const char*>{"/none", "connect: No such file or directory (2)"},
        {std::string(108, 'a'), "connect: File name too long (36)"}}) {
    path_ = name;
    EXPECT_EQ(thrownText([&] { open({}); }), text);
  }
}

TEST_F(LaunchedSocketTest, SecretMustMatchTheHash) {
  std::string secret;
  for (char byte = 0; byte < 32; ++byte) secret += byte;
  for (const std::string& sent : {secret + "more", secret.substr(1) + "x", secret.substr(1)}) {
    std::thread peer([&] {
      const plat::FileDescriptor accepted(accept(listener_.get(), nullptr, nullptr));
      EXPECT_GT(write(accepted.get(), sent.data(), sent.size()), 0);
    });
    char rest[9] = "";
    EXPECT_EQ(thrownText([&] {
                const plat::FileDescriptor fd = open({"-hash", kHash});
                EXPECT_EQ(read(fd.get(), rest, sizeof rest - 1), 4);
              }),
              sent.size() > 32 ? "nothing" : "Bad hash");
    EXPECT_STREQ(rest, sent.size() > 32 ? "more" : "");
    peer.join();
  }
  settings_.limit = std::chrono::milliseconds(50);
  EXPECT_EQ(thrownText([&] { open({"-hash", kHash}); }), "Bad hash") << "a silent listener";
}

}  // namespace

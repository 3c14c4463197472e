#include "os/LaunchedPipe.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
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
#include "support/TempDir.h"
#include "support/Thrown.h"

namespace os {
namespace {

using std::chrono::milliseconds;
using test::thrownText;

constexpr const char* kHash = "630dcd2966c4336691125448bbb25b4ff412a49c732db2c8abc1b8581bd710dd";

LaunchedPipe parse(const std::vector<const char*>& arguments) {
  return LaunchedPipe(static_cast<int>(arguments.size()), arguments.data(), 0);
}

TEST(LaunchedPipeTest, Arguments) {
  const std::string got = "Bad command-line: got ", name = " instead of pipe name";
  const std::string hash = "-hash argument bad or missing";
  const std::string notHex = std::string(63, '0') + "g", tooLong(65, '0');
  const struct {
    std::vector<const char*> arguments;
    std::string name;  // or the refusal
    int next;          // 0: refused
  } cases[] = {{{"-dummy"}, "", 1},
               {{"some/pipe", "-fork"}, "some/pipe", 1},
               {{"-lppDebug", "-hash", kHash, "-fork", "p", "x=1"}, "p", 5},
               {{}, got + "<null>" + name, 0},
               {{"-fork"}, got + "<null>" + name, 0},
               {{"-Fork", "7"}, got + "-Fork" + name, 0},
               {{"-lppDebug", "-dummy"}, got + "-dummy" + name, 0},
               {{"-hash"}, hash, 0},
               {{"-hash", notHex.c_str(), "7"}, hash, 0},
               {{"-hash", tooLong.c_str(), "7"}, hash, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.arguments));
    if (c.next == 0) {
      EXPECT_EQ(thrownText([&] { parse(c.arguments); }), c.name);
      continue;
    }
    const LaunchedPipe pipe = parse(c.arguments);
    EXPECT_EQ(pipe.name(), c.name);
    EXPECT_EQ(pipe.isDummy(), c.name.empty());
    EXPECT_EQ(pipe.nextArgument(), c.next);
  }
}

TEST(LaunchedPipeTest, InheritedDescriptor) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
  const plat::FileDescriptor peer(ends[1]);
  const std::string name = std::to_string(ends[0]);
  struct stat before, after;
  ASSERT_EQ(fstat(STDERR_FILENO, &before), 0);
  // The hash is checked for its form only; no exchange, so this does not wait.
  plat::FileDescriptor fd = parse({"-hash", kHash, name.c_str()}).open();
  EXPECT_EQ(fd.get(), ends[0]);
  EXPECT_TRUE(fcntl(fd.get(), F_GETFD) & FD_CLOEXEC);
  EXPECT_TRUE(fcntl(fd.get(), F_GETFL) & O_NONBLOCK);
  ASSERT_EQ(fstat(STDERR_FILENO, &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  fd.reset();
  for (const std::string& bad : {name, std::string("99999999999999999999")})
    EXPECT_EQ(thrownText([&] { parse({bad.c_str()}).open(); }),
              "Pipe name '" + bad + "' is not an open descriptor");
}

// A listening socket in a directory of its own; keeps standard error as it was.
class LaunchedSocketTest : public testing::Test {
 protected:
  void SetUp() override {
    path_ = directory_ / "pipe";
    debugFile_ = directory_ / "debug.log";
    settings_.debugFile = debugFile_.c_str();
    settings_.limit = milliseconds(5000);
    standardError_.reset(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3));

    listener_.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::copy(path_.begin(), path_.end(), address.sun_path);
    ASSERT_EQ(bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener_.get(), 0), 0);
  }

  void TearDown() override { restoreErrors(); }
  void restoreErrors() { dup2(standardError_.get(), STDERR_FILENO); }

  plat::FileDescriptor open(std::vector<const char*> options) {
    options.push_back(path_.c_str());
    return parse(options).open(settings_);
  }

  test::TempDir directory_;
  std::string path_, debugFile_;
  LaunchedPipe::Settings settings_;
  plat::FileDescriptor listener_, standardError_;
};

TEST_F(LaunchedSocketTest, DebugFileIsAppendedTo) {
  std::ofstream(debugFile_) << "before\n";
  const plat::FileDescriptor fd = open({"-lppDebug"});
  std::fprintf(stderr, "later\n");
  restoreErrors();
  const std::regex expected(
      R"(before\n\d{4}-\d\d-\d\d \d\d:\d\d:\d\dZ: connecting to '(.*)'\nlater\n)");
  std::smatch match;
  std::ifstream file(debugFile_);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  ASSERT_TRUE(std::regex_match(text, match, expected)) << text;
  EXPECT_EQ(match[1], path_);
}

TEST_F(LaunchedSocketTest, DebugFileThatIsNoneIsRefused) {
  const std::string target = directory_ / "target";
  ASSERT_EQ(symlink(target.c_str(), debugFile_.c_str()), 0);
  EXPECT_NE(thrownText([&] { open({"-lppDebug"}); }), "nothing");
  EXPECT_FALSE(std::filesystem::exists(target));
  ASSERT_EQ(unlink(debugFile_.c_str()), 0);
  ASSERT_EQ(mkfifo(debugFile_.c_str(), 0600), 0);
  EXPECT_NE(thrownText([&] { open({"-lppDebug"}); }), "nothing");
}

TEST_F(LaunchedSocketTest, FailureToConnectNamesTheCall) {
  const std::pair<std::string, const char*> cases[] = {
      {directory_ / "none", "connect: No such file or directory (2)"},
      {directory_.path(), "connect: Connection refused (111)"},
      {"", "connect: No such file or directory (2)"},
      {std::string(108, 'a'), "connect: File name too long (36)"}};
  for (const auto& [name, text] : cases)
    EXPECT_EQ(thrownText([&] { parse({name.c_str()}).open(settings_); }), text);
}

TEST_F(LaunchedSocketTest, SecretMustMatchTheHash) {
  std::string secret;
  for (char byte = 0; byte < 32; byte++) secret += byte;
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
}

TEST_F(LaunchedSocketTest, ListenerThatDoesNothingIsGivenUp) {
  settings_.limit = milliseconds(50);
  EXPECT_EQ(thrownText([&] { open({"-hash", kHash}); }), "Bad hash");
  std::vector<plat::FileDescriptor> waiting;
  const std::string text = thrownText([&] {
    // The listener's queue takes one or two.
    for (int i = 0; i < 10; ++i) waiting.push_back(open({}));
  });
  restoreErrors();
  EXPECT_EQ(text.rfind("connect", 0), 0u) << text;
}

}  // namespace
}  // namespace os

#include "plat/ConfigStoreFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "plat/BoolParameter.h"
#include "plat/Configuration.h"
#include "plat/IntParameter.h"
#include "plat/StringParameter.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using nbutil::ConfigStoreFile;
using Lines = std::vector<std::string>;

class ConfigStoreFileTest : public testing::Test {
 protected:
  void SetUp() override { config_.setLogChanges(false); }

  std::string path(const std::string& relative) const { return root_ / relative; }
  void write(const std::string& relative, const std::string& content) {
    const fs::path file = path(relative);
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
  }
  void load() { ConfigStoreFile({path("program"), path("first"), path("second")}).load(config_); }

  test::TempDir root_;
  plat::Configuration config_{"Test"};
  plat::StringParameter text_{"Text", "", "", false, nullptr, &config_};
  plat::IntParameter number_{"Number", "", 1, 0, 99, false, nullptr, &config_};
  plat::BoolParameter flag_{"Flag", "", false, false, nullptr, &config_};
};

TEST_F(ConfigStoreFileTest, LaterSourcesWin) {
  const char* const steps[] = {"program/config.d/common",        "program/policy.d/common",
                               "program/policy.d/common.custom", "first/config.d/common",
                               "first/config.d/common.custom",   "second/config.d/common",
                               "second/config.d/common.custom",  "first/policy.d/common",
                               "first/policy.d/common.custom"};
  int preference = -1;
  int policy = -1;
  for (int i = 0; i < static_cast<int>(std::size(steps)); ++i) {
    write(steps[i], "Number=" + std::to_string(10 + i) + "\n");
    const bool isPolicy = std::string(steps[i]).find("policy.d") != std::string::npos;
    (isPolicy ? policy : preference) = 10 + i;
    load();
    EXPECT_EQ(number_.getValueStrAt(10), plat::String(std::to_string(preference))) << steps[i];
    EXPECT_EQ(number_.hasValueAt(30), policy >= 0) << steps[i];
    if (policy >= 0) {
      EXPECT_EQ(number_.getValueStrAt(30), plat::String(std::to_string(policy))) << steps[i];
    }
  }
  write("second/policy.d/common", "Number=99\n");
  load();
  EXPECT_NE(number_.value(), 99) << "the second scope has no policy";
}

TEST_F(ConfigStoreFileTest, ReadsLinesAndReportsBadOnes) {
  support::LogCapture log(200);
  using namespace std::string_literals;
  write("first/config.d/common",
        "# Number=9\n\n \t \n  Text\t=  a = \"b\" # c \t\r\n  # more\nno value\nUnknown=1\n"
        "Number=100\nText=\xFF\nText=a\0b\n=x\nnUmBeR=0x10\nFlag="s);
  load();
  EXPECT_EQ(text_.value(), "a = \"b\" # c");
  EXPECT_EQ(number_.value(), 16);
  EXPECT_TRUE(flag_.value());
  const std::string directory = path("first/config.d");
  Lines expected{"30 FileConfig: Reading common config from " + directory};
  for (const int line : {6, 7, 8, 9, 10, 11}) {
    expected.push_back("0 FileConfig: Bad line " + std::to_string(line) + " in " + directory +
                       "/common");
  }
  EXPECT_EQ(log.take(), expected);
}

TEST_F(ConfigStoreFileTest, SkipsWhatItCannotRead) {
  const std::string common = path("first/config.d/common");
  const struct {
    const char* what;
    void (*make)(const std::string& path);
    const char* reason;
  } cases[] = {
      {"directory", [](const std::string& p) { fs::create_directory(p); }, "Is a directory"},
      // Reading it would wait for a writer.
      {"FIFO", [](const std::string& p) { mkfifo(p.c_str(), 0600); }, "not a regular file"},
      {"device", [](const std::string& p) { fs::create_symlink("/dev/zero", p); },
       "not a regular file"},
      {"loop", [](const std::string& p) { fs::create_symlink(p, p); },
       "Too many levels of symbolic links"},
      {"huge", [](const std::string& p) { std::ofstream(p) << std::string((1 << 20) + 1, '\n'); },
       "File too large"},
  };
  for (const auto& c : cases) {
    write("first/config.d/common.custom", "Number=7\n");
    c.make(common);
    support::LogCapture log(200);
    number_.unsetParam(10, false);
    load();
    EXPECT_TRUE(log.has("Error reading " + common + ": " + c.reason, 0, "FileConfig")) << c.what;
    EXPECT_EQ(number_.value(), 7) << c.what << ": the next file is read all the same";
    fs::remove_all(common);
  }
  support::LogCapture log(200);
  write("second", "a file in place of the directory");
  load();
  EXPECT_TRUE(log.has("Error reading " + path("second") + ": Not a directory", 0, "FileConfig"));
}

TEST_F(ConfigStoreFileTest, AbsenceIsSilent) {
  support::LogCapture log(200);
  load();
  ConfigStoreFile({"", "", ""}).load(config_);
  fs::create_directories(path("first/config.d"));
  load();
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(ConfigStoreFileTest, RootTrustsOnlyWhatNobodyElseCanWrite) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const std::string file = path("first/policy.d/common");
  write("first/policy.d/common", "Number=7\n");
  const struct {
    std::string path;
    uid_t owner;
    gid_t group;
    mode_t mode;
    const char* reason;  // null: trusted
  } cases[] = {
      {file, 12345, 0, 0644, "not owned by root"},
      {file, 0, 12345, 0664, "writable by other users"},
      {file, 0, 0, 0664, nullptr},
      {file, 0, 0, 0646, "writable by other users"},
      {path("first/policy.d"), 12345, 0, 0755, "not owned by root"},
      {path("first/policy.d"), 0, 0, 0777, "writable by other users"},
      {path("first"), 12345, 0, 0755, "not owned by root"},
      {path("first"), 0, 0, 01777, "writable by other users"},
  };
  for (const auto& c : cases) {
    struct stat before;
    ASSERT_EQ(stat(c.path.c_str(), &before), 0);
    ASSERT_EQ(chown(c.path.c_str(), c.owner, c.group), 0);
    ASSERT_EQ(chmod(c.path.c_str(), c.mode), 0);
    number_.unsetParam(30, false);
    support::LogCapture log(200);
    load();
    EXPECT_EQ(number_.hasValueAt(30), !c.reason) << c.path;
    if (c.reason) {
      EXPECT_TRUE(log.has("Error reading " + c.path + ": " + c.reason, 0, "FileConfig")) << c.path;
    }
    ASSERT_EQ(chown(c.path.c_str(), before.st_uid, before.st_gid), 0);
    ASSERT_EQ(chmod(c.path.c_str(), before.st_mode & 07777), 0);
  }
  load();
  EXPECT_EQ(number_.value(), 7);
}

}  // namespace

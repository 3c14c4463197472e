#include "plat/config/ConfigStoreFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "plat/config/BoolParameter.h"
#include "plat/config/Configuration.h"
#include "plat/config/IntParameter.h"
#include "plat/config/StringParameter.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;
using nbutil::ConfigStoreFile;
using Lines = std::vector<std::string>;

class ConfigStoreFileTest : public testing::Test {
 protected:
  ConfigStoreFileTest() { config_.setLogChanges(false); }

  std::string path(const std::string& relative) const { return root_ / relative; }
  void write(const std::string& relative, const std::string& content) {
    const fs::path file = path(relative);
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
  }
  void load() { ConfigStoreFile({path("program"), path("first"), path("second")}).load(config_); }

  support::TempDir root_;
  plat::Configuration config_{"Test"};
  plat::StringParameter text_{"Text", "", "", false, nullptr, &config_};
  plat::IntParameter number_{"Number", "", 1, 0, 99, false, nullptr, &config_};
  plat::BoolParameter flag_{"Flag", "", false, false, nullptr, &config_};
};

TEST_F(ConfigStoreFileTest, LaterSourcesWin) {
  // The second scope has no policy.
  const std::pair<const char*, int> steps[] = {
      {"second/policy.d/common", 0},       {"program/config.d/common", 10},
      {"program/policy.d/common", 30},     {"first/config.d/common", 10},
      {"second/config.d/common", 10},      {"second/config.d/common.custom", 10},
      {"first/policy.d/common.custom", 30}};
  for (int i = 0; i < static_cast<int>(std::size(steps)); ++i) {
    const auto& [file, priority] = steps[i];
    write(file, "Number=" + std::to_string(1 + i) + "\n");
    load();
    EXPECT_EQ(number_.getValueStrAt(priority), plat::String(std::to_string(1 + i))) << file;
  }
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
  for (const char* line : {"6", "7", "8", "9", "10", "11"}) {
    expected.push_back("0 FileConfig: Bad line "s + line + " in " + directory + "/common");
  }
  EXPECT_EQ(log.take(), expected);
}

TEST_F(ConfigStoreFileTest, SkipsWhatItCannotRead) {
  write("program/config.d/common", std::string((1 << 20) + 1, '\n'));
  fs::create_directories(path("first/config.d"));
  const std::string pipe = path("first/config.d/common");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);  // reading it would wait for a writer
  write("first/config.d/common.custom", "Number=7\n");
  support::LogCapture log(0);
  load();
  EXPECT_EQ(log.take(), (Lines{"0 FileConfig: Error reading " + path("program/config.d/common") +
                                   ": File too large",
                               "0 FileConfig: Error reading " + pipe + ": not a regular file"}));
  EXPECT_EQ(number_.value(), 7) << "the next file is read all the same";
}

TEST_F(ConfigStoreFileTest, RootTrustsOnlyWhatNobodyElseCanWrite) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  write("first/policy.d/common", "Number=7\n");
  const struct {
    std::string path;
    uid_t owner;
    mode_t mode;
    const char* reason;  // null: trusted
  } cases[] = {{path("first/policy.d/common"), 12345, 0644, "not owned by root"},
               {path("first/policy.d/common"), 0, 0664, nullptr},
               {path("first/policy.d"), 0, 0777, "writable by other users"},
               {path("first"), 12345, 0755, "not owned by root"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    ASSERT_EQ(chown(c.path.c_str(), c.owner, 0), 0);
    ASSERT_EQ(chmod(c.path.c_str(), c.mode), 0);
    number_.unsetParam(30, false);
    const support::LogCapture log;
    load();
    EXPECT_EQ(number_.hasValueAt(30), !c.reason);
    EXPECT_TRUE(!c.reason || log.has("Error reading " + c.path + ": " + c.reason, 0, "FileConfig"));
    ASSERT_EQ(chown(c.path.c_str(), 0, 0), 0);
    ASSERT_EQ(chmod(c.path.c_str(), 0755), 0);
  }
}

}  // namespace

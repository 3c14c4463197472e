#include <gtest/gtest.h>

#include <csignal>

#include "support/XServer.h"

namespace {

using support::Program;

Program::Options capturing(const std::string& input = {}) {
  Program::Options options;
  options.input = input;
  options.captureOutput = true;
  options.captureErrors = true;
  options.environment["HOME"] = "/nonexistent";
  return options;
}

// The commands for people, in a desktop with another client.
class ClipCommandsTest : public testing::Test {
 protected:
  std::unique_ptr<Program> clip(std::vector<std::string> arguments, const std::string& input = {}) {
    arguments.insert(arguments.begin(), {RUVO_DRIVE, "clip"});
    return server_->start(arguments, capturing(input));
  }
  std::unique_ptr<Program> copy(const std::string& text, const std::string& selection) {
    return server_->start({"xclip", "-quiet", "-i", "-selection", selection}, capturing(text));
  }
  bool canPaste(const std::string& text) {
    return support::waitFor([&] {
      return server_->run({"xclip", "-o", "-selection", "clipboard"}, capturing()) == text;
    });
  }

  const std::unique_ptr<support::XServer> server_ = support::XServer::xvfb("641x480x24");
};

TEST_F(ClipCommandsTest, GetPrintsTheNextCopy) {
  const auto before = copy("before", "clipboard");
  ASSERT_TRUE(canPaste("before"));
  const auto get = clip({"get", "--clipboard"});
  // It does not say when it begins to listen: copied until it has heard, each time another text
  // since one that was there before is no news.
  int copies = 0;
  std::unique_ptr<Program> primary, clipboard;
  EXPECT_TRUE(support::waitFor([&] {
    primary = copy("selected", "primary");
    clipboard = copy(std::to_string(++copies) + " copied\xff", "clipboard");
    return get->wait(support::Milliseconds(300)).has_value();
  }));
  EXPECT_EQ(get->wait(), 0);
  EXPECT_TRUE(get->output().ends_with(" copied\xff")) << get->output();

  const auto none = clip({"get", "--timeout", "0.2"});
  EXPECT_EQ(none->wait(), 1);
  EXPECT_EQ(none->output(), "");
  EXPECT_EQ(none->errors(), "ruvodrive: nothing was copied\n");
}

TEST_F(ClipCommandsTest, SetServesUntilInterrupted) {
  const auto set = clip({"set"}, "to be pasted\n");
  EXPECT_TRUE(canPaste("to be pasted\n"));
  EXPECT_TRUE(set->isRunning());
  set->signal(SIGINT);
  EXPECT_EQ(set->wait(), 0) << set->errors();
  EXPECT_EQ(clip({"set", "--for", "0.2"}, "briefly")->wait(), 0);
}

TEST_F(ClipCommandsTest, WatchGoesBothWays) {
  const auto watch = clip({"watch"}, "first\nlast");
  EXPECT_TRUE(canPaste("last"));
  const auto one = copy("one", "primary");
  EXPECT_TRUE(support::waitFor([&] { return watch->output() == "one\n"; })) << watch->output();
  const auto two = copy("two\n", "clipboard");
  EXPECT_TRUE(support::waitFor([&] { return watch->output() == "one\ntwo\n"; }));
  watch->signal(SIGTERM);
  EXPECT_EQ(watch->wait(), 0) << watch->errors();
}

}  // namespace

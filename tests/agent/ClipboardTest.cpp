#include "agent/Agent.h"

#include <csignal>

namespace {

using support::Program;
using Command = std::vector<std::string>;

Command xclip(const std::string& selection) {
  return {"xclip", "-quiet", "-i", "-selection", selection};
}
const Command kXsel = {"xsel", "-n", "-i", "-b"};  // says when it copied

class ClipboardTest : public testing::Test {
 protected:
  void begin(const Command& extra = {}) { server = support::XServer::xvfb("641x480x24", extra); }
  std::unique_ptr<Program> start(const Command& command, const std::string& input) {
    Program::Options options;
    options.input = input;
    options.captureOutput = options.captureErrors = true;
    options.environment["HOME"] = "/nonexistent";
    return server->start(command, options);
  }
  // A client owns a selection from here on, until another takes it.
  void copy(const Command& command, const std::string& text) {
    owners.push_back(start(command, text));
  }
  // The next text that the agent reports.
  static std::string next(Agent& agent) {
    Command& texts = agent.seen.cutTexts;
    if (!agent.waitFor([&] { return !texts.empty(); })) return "<none>\n" + agent.seen.logText();
    const std::string text = texts.front();
    texts.erase(texts.begin());
    return text;
  }
  // An owner that another has replaced may leave without an answer.
  std::string pasted(const std::string& selection, const std::string& more = "-o") {
    return server->run({"timeout", "5", "xclip", "-o", more, "-selection", selection});
  }
  // Copied before now, as far as all clients can see.
  bool canBePasted(const std::string& text, const std::string& selection) {
    return support::waitFor([&] { return pasted(selection) == text; });
  }

  std::unique_ptr<support::XServer> server;
  std::vector<std::unique_ptr<Program>> owners;
};

TEST_F(ClipboardTest, ReportsOnlyWhileEnabledAndStarted) {
  begin();
  Agent agent(server->display());
  agent.start();
  copy(xclip("primary"), "while not enabled");
  ASSERT_TRUE(canBePasted("while not enabled", "primary"));
  agent.connection->setParams({{"EnableClipboard", "1", 10}});
  copy(xclip("primary"), "enabled after the start");
  ASSERT_TRUE(canBePasted("enabled after the start", "primary"));
  agent.connection->stop();
  agent.start();
  copy(xclip("primary"), "enabled");
  EXPECT_EQ(next(agent), "enabled");
  agent.connection->setParams({{"SendPrimary", "0", 10}});
  agent.sync();
  copy(xclip("primary"), "selected by mouse");
  ASSERT_TRUE(canBePasted("selected by mouse", "primary"));
  copy(xclip("clipboard"), "copied");
  EXPECT_EQ(next(agent), "copied");

  agent.connection->stop();
  agent.sync();
  copy(xclip("clipboard"), "while stopped");
  ASSERT_TRUE(canBePasted("while stopped", "clipboard"));
  agent.connection->clientCutText("while stopped, from a viewer");
  agent.sync();
  EXPECT_EQ(pasted("clipboard"), "while stopped, from a viewer");
  EXPECT_EQ(agent.seen.countLog("selection change event"), 3);
  EXPECT_TRUE(agent.seen.cutTexts.empty());
}

TEST_F(ClipboardTest, OffersViewersText) {
  begin();
  Agent agent(server->display(), {{"EnableClipboard", "1"}, {"poll", "20"}, {"UseCutBuffer", "1"}});
  agent.start();
  using std::string;
  const string large(10000000, 'x');
  for (const auto& [text, latin1] :
       {std::pair<string, string>{"Gr\u00fc\u00dfe, 5 \u20ac \U0001F600", "Gr\xfc\xdf\x65, 5 ? ?"},
        {string("a\0b\0", 4), string("a\0b\0", 4)},
        {"a\xff\xc3z", "a??z"},
        {"", ""},
        {large, large}}) {
    SCOPED_TRACE(text.substr(0, 20));
    agent.connection->clientCutText(text);
    agent.sync();
    EXPECT_TRUE(pasted("primary") == text);
    EXPECT_TRUE(pasted("clipboard") == text);
    EXPECT_TRUE(pasted("buffer-cut") == latin1);
    EXPECT_TRUE(pasted("primary", "-noutf8") == latin1);
  }
  // None of it comes back, by events, polls or the cut buffer.
  agent.seen.log.clear();
  EXPECT_TRUE(agent.waitForLog("PRIMARY selection owned by us"));
  // Another client takes CLIPBOARD alone, so that the cut buffer is looked at as well.
  copy(kXsel, "in CLIPBOARD");
  EXPECT_EQ(next(agent), "in CLIPBOARD");
  server->run({"sh", "-c", "printf 'in the cut buffer' | xclip -i -selection buffer-cut"});
  EXPECT_EQ(next(agent), "in the cut buffer");
  EXPECT_TRUE(agent.seen.cutTexts.empty());
}

TEST_F(ClipboardTest, WithoutXFixesIsPolled) {
  begin({"-extension", "XFIXES"});
  Agent agent(server->display(), {{"EnableClipboard", "1"}, {"SendPrimary", "0"}});
  agent.start();
  EXPECT_TRUE(agent.seen.hasLog("XFixes extension not present", 30));
  EXPECT_TRUE(agent.seen.hasLog("Polling for clipboard updates every 2000ms", 30));
  // What is copied during the first check counts as there before.
  EXPECT_TRUE(agent.waitForLog("No CLIPBOARD selection timestamp"));
  agent.sync();
  copy(kXsel, "one");
  EXPECT_EQ(next(agent), "one");
}

TEST_F(ClipboardTest, CommandsGetSetAndWatch) {
  begin();
  copy(xclip("clipboard"), "before");
  ASSERT_TRUE(canBePasted("before", "clipboard"));
  const auto get = start({RUVO_DRIVE, "clip", "get", "--clipboard"}, "");
  // It does not say when it begins to listen: copied until it has heard, each time another text
  // since one that was there before is no news.
  EXPECT_TRUE(support::waitFor([&] {
    copy(xclip("primary"), "selected");
    copy(xclip("clipboard"), std::to_string(owners.size()) + " copied\xff");
    return get->wait(support::Milliseconds(300)).has_value();
  }));
  EXPECT_EQ(get->wait(), 0);
  EXPECT_TRUE(get->output().ends_with(" copied\xff")) << get->output();

  const auto none = start({RUVO_DRIVE, "clip", "get", "--timeout", "0.2"}, "");
  EXPECT_EQ(none->wait(), 1);
  EXPECT_EQ(none->errors(), "ruvodrive: nothing was copied\n");

  // Those that serve until they are interrupted.
  const auto set = start({RUVO_DRIVE, "clip", "set"}, "to be pasted\n");
  EXPECT_TRUE(canBePasted("to be pasted\n", "clipboard"));
  set->signal(SIGINT);
  EXPECT_EQ(set->wait(), 0) << set->errors();
  const auto watch = start({RUVO_DRIVE, "clip", "watch"}, "first\nlast");
  EXPECT_TRUE(canBePasted("last", "clipboard"));
  copy(xclip("primary"), "one");
  EXPECT_TRUE(support::waitFor([&] { return watch->output() == "one\n"; })) << watch->output();
  watch->signal(SIGTERM);
  EXPECT_EQ(watch->wait(), 0) << watch->errors();
}

}  // namespace

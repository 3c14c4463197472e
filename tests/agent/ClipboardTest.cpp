#include "agent/Agent.h"
#include "support/Program.h"

namespace {

using support::Program;
using Command = std::vector<std::string>;

const Agent::Parameters kEnabled = {{"EnableClipboard", "1"}};
// Accents, a letter beyond Latin-1, one beyond the first plane.
const std::string kInternational = "Gr\u00fc\u00dfe, 5 \u20ac \U0001F600\n";

Agent::Parameters enabledWith(const Agent::Parameters& more) {
  Agent::Parameters all = kEnabled;
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

std::string pattern(size_t size) {
  std::string text(size, ' ');
  for (size_t i = 0; i < size; i++) text[i] = static_cast<char>('!' + (i * 7 + i / 90) % 90);
  return text;
}

// A client that owns a selection while this exists (or until another takes it).
class Copied {
 public:
  Copied(const support::XServer& server, const std::string& text, const Command& command) {
    Program::Options options;
    options.input = text;
    options.captureErrors = true;
    owner_ = server.start(command, options);
  }

 private:
  std::unique_ptr<Program> owner_;
};

Command xclip(const std::string& selection) {
  return {"xclip", "-quiet", "-i", "-selection", selection};
}
Command xsel(const std::string& selection) {
  return {"xsel", "-n", "-i", selection == "primary" ? "-p" : "-b"};
}

class ClipboardTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { server = support::XServer::xvfb("641x480x24"); }
  static void TearDownTestSuite() { server.reset(); }

  static Copied copy(const std::string& text, const std::string& selection = "primary") {
    return {*server, text, xclip(selection)};
  }
  // The next text that the agent reports.
  static std::string next(Agent& agent) {
    std::vector<std::string>& texts = agent.seen.cutTexts;
    if (!agent.waitFor([&] { return !texts.empty(); })) return "<none>\n" + agent.seen.logText();
    const std::string text = texts.front();
    texts.erase(texts.begin());
    return text;
  }
  static std::string paste(const Command& command, int* status = nullptr) {
    Program::Options options;
    options.captureOutput = true;
    options.captureErrors = true;
    options.environment["DISPLAY"] = server->display();
    return Program::run(command, options, support::Milliseconds(20000), status);
  }
  static Command xclipOut(const std::string& selection) {
    return {"xclip", "-o", "-selection", selection};
  }
  // Copied before now, as far as all clients can see.
  static bool canBePasted(const std::string& text, const std::string& selection) {
    return support::waitFor([&] { return paste(xclipOut(selection)) == text; });
  }

  static std::unique_ptr<support::XServer> server;
};
std::unique_ptr<support::XServer> ClipboardTest::server;

TEST_F(ClipboardTest, ReportsWhatIsCopied) {
  Agent agent(server->display(), kEnabled);
  agent.start();
  using std::string;
  const struct {
    const char* what;
    Command command;
    string text;
    string reported;
  } cases[] = {
      {"plain", xclip("primary"), "plain text", "plain text"},
      {"CLIPBOARD", xclip("clipboard"), "from CLIPBOARD", "from CLIPBOARD"},
      {"UTF-8", xclip("primary"), kInternational, kInternational},
      {"another client", xsel("primary"), "xsel: " + kInternational, "xsel: " + kInternational},
      {"Latin-1 only", {"xclip", "-quiet", "-noutf8"}, "caf\xe9", "caf\u00e9"},
      {"NULs", xclip("primary"), string("a\0b\0", 4), string("a\0b\0", 4)},
      {"invalid UTF-8", xclip("primary"), "a\xff\xc3z", "a\xff\xc3z"},
      {"long", xclip("primary"), pattern(200000), pattern(200000)},
      {"longer than is taken", xclip("primary"), pattern(300000), pattern(262144)},
      {"in increments", xclip("primary"), pattern(1500000), ""},
  };
  std::vector<Copied> owners;
  for (const auto& c : cases) {
    owners.emplace_back(*server, c.text, c.command);
    EXPECT_TRUE(next(agent) == c.reported) << c.what << "\n" << agent.seen.logText();
    agent.seen.log.clear();
  }
}

TEST_F(ClipboardTest, PrimaryCountsWhenItIsPreferred) {
  for (const bool preferred : {true, false}) {
    Agent agent(server->display(), enabledWith({{"SendPrimary", preferred ? "1" : "0"}}));
    agent.start();
    const Copied primary = copy("selected by mouse");
    if (preferred) {
      EXPECT_EQ(next(agent), "selected by mouse");
    } else {
      EXPECT_TRUE(agent.waitForLog("selection change event, selection PRIMARY"));
    }
    const Copied clipboard = copy("copied", "clipboard");
    EXPECT_EQ(next(agent), "copied");
  }
}

TEST_F(ClipboardTest, ReportsOnlyWhileEnabledAndStarted) {
  Agent agent(server->display());
  agent.start();
  const Copied first = copy("while not enabled");
  ASSERT_TRUE(canBePasted("while not enabled", "primary"));
  agent.sync();
  // A viewer's text is offered all the same.
  agent.connection->clientCutText("from a viewer");
  agent.sync();
  EXPECT_EQ(paste(xclipOut("primary")), "from a viewer");
  EXPECT_FALSE(agent.seen.hasLog("selection change event"));

  agent.connection->setParams({{"EnableClipboard", "1", 10}});
  const Copied second = copy("enabled after the start");
  ASSERT_TRUE(canBePasted("enabled after the start", "primary"));
  agent.connection->stop();
  agent.start();
  const Copied third = copy("enabled");
  EXPECT_EQ(next(agent), "enabled");

  agent.connection->stop();
  agent.sync();
  agent.seen.log.clear();
  const Copied fourth = copy("while stopped", "clipboard");
  ASSERT_TRUE(canBePasted("while stopped", "clipboard"));
  agent.connection->clientCutText("while stopped, from a viewer");
  agent.sync();
  EXPECT_EQ(paste(xclipOut("clipboard")), "while stopped, from a viewer");
  EXPECT_FALSE(agent.seen.hasLog("selection change event"));
  agent.start();
  const Copied fifth = copy("started again");
  EXPECT_EQ(next(agent), "started again");
  EXPECT_TRUE(agent.seen.cutTexts.empty());
}

TEST_F(ClipboardTest, ReportsTheSameTextOnce) {
  Agent agent(server->display(), kEnabled);
  agent.start();
  const Copied first = copy("once");
  EXPECT_EQ(next(agent), "once");
  const Copied second = copy("once");
  EXPECT_TRUE(agent.waitForLog("Filtering out duplicate cut text"));
  const Copied third = copy("twice");
  EXPECT_EQ(next(agent), "twice");
}

TEST_F(ClipboardTest, WhatWasThereBeforeIsNotReported) {
  for (const Command& command : {xclip("primary"), xsel("primary")}) {
    for (const char* poll : {"0", "20"}) {
      const Copied old(*server, "old", command);
      ASSERT_TRUE(canBePasted("old", "primary"));
      Agent agent(server->display(), enabledWith({{"poll", poll}}));
      agent.start();
      const bool polls = agent.seen.hasLog("Polling for clipboard updates every 20ms", 30);
      EXPECT_EQ(polls, *poll != '0');
      // Some polls.
      for (int i = 0; polls && i < 3; i++) {
        agent.seen.log.clear();
        EXPECT_TRUE(agent.waitForLog("No CLIPBOARD selection timestamp"));
      }
      const Copied text(*server, "new", command);
      EXPECT_EQ(next(agent), "new") << command[0] << " " << poll;
    }
  }
}

TEST_F(ClipboardTest, OffersViewersText) {
  Agent agent(server->display(), kEnabled);
  agent.start();
  using std::string;
  const struct {
    const char* what;
    string text;
    string latin1;
  } cases[] = {
      {"plain", "plain text", "plain text"},
      {"UTF-8", kInternational,
       "Gr\xfc\xdf"
       "e, 5 ? ?\n"},
      {"NULs", string("a\0b\0", 4), string("a\0b\0", 4)},
      {"1 MB", pattern(1 << 20), pattern(1 << 20)},
      {"read in pieces", pattern(3 << 20), pattern(3 << 20)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    agent.connection->clientCutText(c.text);
    agent.sync();
    EXPECT_TRUE(paste(xclipOut("primary")) == c.text);
    EXPECT_TRUE(paste(xclipOut("clipboard")) == c.text);
    EXPECT_TRUE(paste(xclipOut("buffer-cut")) == c.latin1);
    EXPECT_TRUE(paste({"xclip", "-o", "-noutf8"}) == c.latin1);
    if (c.text.find('\0') == string::npos) {
      EXPECT_TRUE(paste({"xsel", "-o", "-b"}) == c.text);
    }
  }
  // Not valid UTF-8: whatever becomes of it in Latin-1.
  agent.connection->clientCutText("a\xff\xc3z");
  agent.sync();
  EXPECT_EQ(paste(xclipOut("clipboard")), "a\xff\xc3z");
  agent.connection->clientCutText("");
  agent.sync();
  EXPECT_EQ(paste(xclipOut("primary")), "");

  // None of it comes back.
  const Copied text = copy("copied after all that");
  EXPECT_EQ(next(agent), "copied after all that");
}

TEST_F(ClipboardTest, ViewersTextIsNoNewTextToPolls) {
  Agent agent(server->display(), enabledWith({{"poll", "20"}, {"UseCutBuffer", "1"}}));
  agent.start();
  const Copied before = copy("copied before");
  EXPECT_EQ(next(agent), "copied before");
  agent.connection->clientCutText(kInternational);
  agent.sync();
  for (int i = 0; i < 3; i++) {
    agent.seen.log.clear();
    EXPECT_TRUE(agent.waitForLog("PRIMARY selection owned by us"));
  }
  // Another client takes CLIPBOARD alone, so that the cut buffer is looked at as well.
  const Copied clipboard(*server, "in CLIPBOARD", xsel("clipboard"));
  EXPECT_EQ(next(agent), "in CLIPBOARD");
  server->run({"sh", "-c", "printf 'in the cut buffer' | xclip -i -selection buffer-cut"});
  EXPECT_EQ(next(agent), "in the cut buffer");
  EXPECT_TRUE(agent.seen.cutTexts.empty());
}

TEST(ClipboardLimitsTest, TextLongerThanARequest) {
  const auto server = support::XServer::xvfb("641x480x24", {"-maxbigreqsize", "1"});
  Agent agent(server->display(), kEnabled);
  agent.start();
  const auto paste = [&](int* status) {
    Program::Options options;
    options.captureOutput = true;
    options.captureErrors = true;
    options.environment["DISPLAY"] = server->display();
    return Program::run({"xclip", "-o"}, options, support::Milliseconds(10000), status);
  };
  agent.connection->clientCutText(pattern(5 << 20));
  agent.sync();
  EXPECT_TRUE(agent.seen.hasLog("Unable to offer 5242880 bytes of text", 0));
  int status = 0;
  EXPECT_EQ(paste(&status), "");
  EXPECT_NE(status, 0);
  agent.connection->clientCutText("shorter");
  agent.sync();
  EXPECT_EQ(paste(&status), "shorter");
  EXPECT_EQ(status, 0);
}

TEST(ClipboardWithoutXfixesTest, IsPolled) {
  const auto server = support::XServer::xvfb("641x480x24", {"-extension", "XFIXES"});
  Agent agent(server->display(), kEnabled);
  agent.start();
  EXPECT_TRUE(agent.seen.hasLog("XFixes extension not present", 30));
  EXPECT_TRUE(agent.seen.hasLog("Polling for clipboard updates every 2000ms", 30));
  // Clients that stay, and say when they copied.
  const Copied primary(*server, "one", xsel("primary"));
  ASSERT_TRUE(agent.waitFor([&] { return agent.seen.cutTexts.size() == 1; }));
  const Copied clipboard(*server, "two", xsel("clipboard"));
  ASSERT_TRUE(agent.waitFor([&] { return agent.seen.cutTexts.size() == 2; }));
  EXPECT_EQ(agent.seen.cutTexts, (std::vector<std::string>{"one", "two"}));
}

}  // namespace

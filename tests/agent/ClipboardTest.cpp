#include "agent/Agent.h"

#include <chrono>
#include <csignal>
#include <set>

#include "support/FakeOwner.h"
#include "support/Program.h"

namespace {

using support::Program;
using Command = std::vector<std::string>;

// Accents, a letter beyond Latin-1, one beyond the first plane.
const std::string kInternational = "Gr\u00fc\u00dfe, 5 \u20ac \U0001F600\n";

Agent::Parameters enabledWith(Agent::Parameters more = {}) {
  more.push_back({"EnableClipboard", "1"});
  return more;
}

std::string pattern(size_t size) {
  std::string text(size, ' ');
  for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>('!' + (i * 7 + i / 90) % 90);
  return text;
}

Command xclip(const std::string& selection) {
  return {"xclip", "-quiet", "-i", "-selection", selection};
}
Command xsel(const std::string& selection) {
  return {"xsel", "-n", "-i", selection == "primary" ? "-p" : "-b"};
}

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
  std::string paste(const Command& command, int* status = nullptr) {
    Program::Options options;
    options.captureOutput = options.captureErrors = true;
    options.environment["DISPLAY"] = server->display();
    return Program::run(command, options, support::Milliseconds(20000), status);
  }
  std::string pasted(const std::string& selection) {
    return paste({"xclip", "-o", "-selection", selection});
  }
  // Copied before now, as far as all clients can see. An owner that another has replaced may leave
  // without an answer.
  bool canBePasted(const std::string& text, const std::string& selection) {
    const Command patiently = {"timeout", "1", "xclip", "-o", "-selection", selection};
    return support::waitFor([&] { return paste(patiently) == text; }, support::Milliseconds(20000));
  }

  std::unique_ptr<support::XServer> server;
  std::vector<std::unique_ptr<Program>> owners;
};

TEST_F(ClipboardTest, ReportsWhatIsCopied) {
  begin();
  Agent agent(server->display(), enabledWith());
  agent.start();
  using std::string;
  const struct {
    const char* what;
    Command command;
    string text;
    string reported;
  } cases[] = {
      {"CLIPBOARD", xclip("clipboard"), "from CLIPBOARD", "from CLIPBOARD"},
      {"UTF-8", xclip("primary"), kInternational, kInternational},
      {"Latin-1 only", {"xclip", "-quiet", "-noutf8"}, "caf\xe9", "caf\u00e9"},
      {"NULs", xclip("primary"), string("a\0b\0", 4), string("a\0b\0", 4)},
      {"invalid UTF-8", xclip("primary"), "a\xff\xc3z", "a\xff\xc3z"},
      {"longer than is taken", xclip("primary"), pattern(300000), pattern(262144)},
      {"in increments", xclip("primary"), pattern(10000000), ""},
      {"after that", xclip("primary"), "once", "once"},
  };
  for (const auto& c : cases) {
    copy(c.command, c.text);
    EXPECT_TRUE(next(agent) == c.reported) << c.what << "\n" << agent.seen.logText();
    agent.seen.log.clear();
  }
  copy(xsel("primary"), "once");
  EXPECT_TRUE(agent.waitForLog("Filtering out duplicate cut text"));
  agent.connection->setParams({{"SendPrimary", "0", 10}});
  agent.seen.log.clear();
  copy(xclip("primary"), "selected by mouse");
  EXPECT_TRUE(agent.waitForLog("selection change event, selection PRIMARY, timestamp "));
  copy(xclip("clipboard"), "copied");
  EXPECT_EQ(next(agent), "copied");
}

TEST_F(ClipboardTest, ReportsOnlyWhileEnabledAndStarted) {
  begin();
  Agent agent(server->display());
  agent.start();
  copy(xclip("primary"), "while not enabled");
  ASSERT_TRUE(canBePasted("while not enabled", "primary"));
  agent.sync();
  EXPECT_FALSE(agent.seen.hasLog("selection change event"));

  agent.connection->setParams({{"EnableClipboard", "1", 10}});
  copy(xclip("primary"), "enabled after the start");
  ASSERT_TRUE(canBePasted("enabled after the start", "primary"));
  agent.connection->stop();
  agent.start();
  copy(xclip("primary"), "enabled");
  EXPECT_EQ(next(agent), "enabled");

  agent.connection->stop();
  agent.sync();
  agent.seen.log.clear();
  copy(xclip("clipboard"), "while stopped");
  ASSERT_TRUE(canBePasted("while stopped", "clipboard"));
  agent.connection->clientCutText("while stopped, from a viewer");
  agent.sync();
  EXPECT_EQ(pasted("clipboard"), "while stopped, from a viewer");
  EXPECT_FALSE(agent.seen.hasLog("selection change event"));
  EXPECT_TRUE(agent.seen.cutTexts.empty());
}

TEST_F(ClipboardTest, WhatWasThereBeforeIsNotReported) {
  begin();
  // Without a timestamp, and with one.
  for (const Command& command : {xclip("primary"), xsel("primary")}) {
    copy(command, "old");
    ASSERT_TRUE(canBePasted("old", "primary"));
    Agent agent(server->display(), enabledWith({{"poll", "20"}}));
    agent.start();
    EXPECT_TRUE(agent.seen.hasLog("Polling for clipboard updates every 20ms", 30));
    // Some polls.
    for (int i = 0; i < 3; ++i) {
      agent.seen.log.clear();
      EXPECT_TRUE(agent.waitForLog("No CLIPBOARD selection timestamp"));
    }
    copy(command, "new");
    EXPECT_EQ(next(agent), "new") << command[0];
  }
}

TEST_F(ClipboardTest, OffersViewersText) {
  begin();
  Agent agent(server->display(), enabledWith({{"poll", "20"}, {"UseCutBuffer", "1"}}));
  agent.start();
  using std::string;
  for (const auto& [text, latin1] : {std::pair<string, string>{kInternational,
                                                               "Gr\xfc\xdf"
                                                               "e, 5 ? ?\n"},
                                     {string("a\0b\0", 4), string("a\0b\0", 4)},
                                     {"a\xff\xc3z", "a??z"},
                                     {"", ""},
                                     {pattern(10000000), pattern(10000000)}}) {
    SCOPED_TRACE(text.substr(0, 20));
    agent.connection->clientCutText(text);
    agent.sync();
    EXPECT_TRUE(pasted("primary") == text);
    EXPECT_TRUE(pasted("clipboard") == text);
    EXPECT_TRUE(pasted("buffer-cut") == latin1);
    EXPECT_TRUE(paste({"xclip", "-o", "-noutf8"}) == latin1);
  }
  // None of it comes back, by events, polls or the cut buffer.
  agent.seen.log.clear();
  EXPECT_TRUE(agent.waitForLog("PRIMARY selection owned by us"));
  // Another client takes CLIPBOARD alone, so that the cut buffer is looked at as well.
  copy(xsel("clipboard"), "in CLIPBOARD");
  EXPECT_EQ(next(agent), "in CLIPBOARD");
  server->run({"sh", "-c", "printf 'in the cut buffer' | xclip -i -selection buffer-cut"});
  EXPECT_EQ(next(agent), "in the cut buffer");
  EXPECT_TRUE(agent.seen.cutTexts.empty());
}

TEST_F(ClipboardTest, TextLongerThanARequest) {
  begin({"-maxbigreqsize", "1"});  // 4 MB
  Agent agent(server->display(), enabledWith());
  agent.start();
  for (const auto& [size, served] : {std::pair(4194400u, false), {4194200u, true}}) {
    agent.seen.log.clear();
    agent.connection->clientCutText(pattern(size));
    agent.sync();
    EXPECT_EQ(agent.seen.hasLog("Unable to offer 4194400 bytes of text", 0), !served);
    int status = 0;
    EXPECT_TRUE(paste({"xclip", "-o"}, &status) == (served ? pattern(size) : ""));
    EXPECT_EQ(status == 0, served);
  }
}

TEST_F(ClipboardTest, WithoutXFixesIsPolled) {
  begin({"-extension", "XFIXES"});
  Agent agent(server->display(), enabledWith());
  agent.start();
  EXPECT_TRUE(agent.seen.hasLog("XFixes extension not present", 30));
  EXPECT_TRUE(agent.seen.hasLog("Polling for clipboard updates every 2000ms", 30));
  // What is copied during the first check counts as there before.
  EXPECT_TRUE(agent.waitForLog("No CLIPBOARD selection timestamp"));
  agent.sync();
  // A client that stays, and says when it copied.
  copy(xsel("primary"), "one");
  EXPECT_EQ(next(agent), "one");
}

// Owners that copy faster than they are asked, and answer as they like: the last text arrives, and
// none that nobody copied.
TEST_F(ClipboardTest, CopiesThatOverlap) {
  begin();
  Agent agent(server->display(), enabledWith());
  agent.start();
  FakeOwner owner(server->display()), other(server->display());
  std::set<std::string> copied;
  const auto copyAs = [&](FakeOwner& who, const std::string& what, const Command& selections) {
    const std::string text = kInternational + what;
    copied.insert(text);
    who.answerBoth(text);
    for (const std::string& selection : selections) who.own(selection);
  };
  const auto pumpFor = [&](int ms) {
    const auto end = std::chrono::steady_clock::now() + support::Milliseconds(ms);
    do {
      owner.pump();
      other.pump();
      agent.connection->process(1);
    } while (std::chrono::steady_clock::now() < end);
  };
  const auto arrives = [&](const std::string& what) {
    const bool last = support::waitFor(
        [&] {
          pumpFor(1);
          return !agent.seen.cutTexts.empty() &&
                 agent.seen.cutTexts.back() == kInternational + what;
        },
        support::Milliseconds(8000));
    pumpFor(300);
    if (!last || agent.seen.cutTexts.back() != kInternational + what) {
      ADD_FAILURE() << what << " is not the last of " << agent.seen.cutTexts.size();
    }
    for (const std::string& text : agent.seen.cutTexts) {
      if (copied.count(text) == 0) ADD_FAILURE() << what << ": nobody copied " << text;
    }
    agent.seen.cutTexts.clear();
  };
  for (int i = 0; i < 200; ++i) {
    copyAs(owner, std::to_string(i), {"PRIMARY", "CLIPBOARD"});
    pumpFor(i % 3);
  }
  arrives("199");
  for (int i = 0; i < 100; ++i) {
    copyAs(owner, "drag " + std::to_string(i), {"PRIMARY"});
    pumpFor(2);
  }
  arrives("drag 99");

  // What is asked first is answered only after the selections have changed again, by the same owner
  // or by another one; once or twice, in that order or the other.
  for (int way = 0; way < 16; ++way) {
    SCOPED_TRACE(way);
    FakeOwner& second = way & 1 ? other : owner;
    const std::string name = std::to_string(way);
    const auto isAsked = [&] {
      return support::waitFor([&] {
        pumpFor(1);
        return !owner.held.empty();
      });
    };
    owner.isHolding = true;
    copyAs(owner, "slow " + name, {"PRIMARY", "CLIPBOARD"});
    EXPECT_TRUE(isAsked());
    if (way & 8) {
      owner.answerHeld();
      EXPECT_TRUE(isAsked()) << "for the text";
    }
    copyAs(second, "late " + name, {"CLIPBOARD", "PRIMARY"});
    pumpFor(way & 4 ? 600 : 20);
    owner.isHolding = false;
    owner.answerHeld(way & 2, way & 4 ? 2 : 1);
    arrives("late " + name);
  }
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

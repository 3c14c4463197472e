#include "x11/ClipboardFixture.h"

#include <X11/Xatom.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "plat/Exception.h"
#include "tx/XResources.h"

namespace {

using support::waitFor;

class ClipboardFetchTest : public ClipboardFixture {};

using Kind = FakeOwner::Answer::Kind;

FakeOwner::Answer text(const char* type, const std::string& data, int format = 8) {
  return {Kind::kProperty, type, format, data, {}};
}
FakeOwner::Answer numbers(const char* type, std::vector<long> items) {
  return {Kind::kProperty, type, 32, "", std::move(items)};
}
FakeOwner::Answer just(Kind kind) {
  return {kind, "STRING", 8, "x", {}};
}

TEST_F(ClipboardFetchTest, FetchesWhatOwnersOffer) {
  begin();
  const std::string nul("a\0b", 3);
  const struct {
    const char* what;
    std::vector<std::string> targets;
    std::map<std::string, FakeOwner::Answer> answers;
    std::string expected;
    const char* asked;
  } cases[] = {
      {"UTF-8",
       {"TIMESTAMP", "UTF8_STRING", "STRING"},
       {{"UTF8_STRING", text("UTF8_STRING", "€ \u00e9")}},
       "€ \u00e9",
       "TARGETS UTF8_STRING"},
      {"STRING only",
       {"STRING"},
       {{"STRING", text("STRING", "caf\xe9")}},
       "café",
       "TARGETS STRING"},
      {"no TARGETS", {}, {{"STRING", text("STRING", "plain")}}, "plain", "TARGETS STRING"},
      {"TARGETS of format 8",
       {},
       {{"TARGETS", text("ATOM", "UTF8_STRING")}, {"STRING", text("STRING", "eight")}},
       "eight",
       "TARGETS STRING"},
      {"TARGETS of format 16",
       {},
       {{"TARGETS", text("ATOM", "UTF8_STRING!", 16)}, {"STRING", text("STRING", "sixteen")}},
       "sixteen",
       "TARGETS STRING"},
      {"empty TARGETS",
       {},
       {{"TARGETS", numbers("ATOM", {})}, {"STRING", text("STRING", "empty")}},
       "empty",
       "TARGETS STRING"},
      {"silly TARGETS",
       {},
       {{"TARGETS", numbers("INTEGER", {0, -1, 1 << 30})}, {"STRING", text("STRING", "silly")}},
       "silly",
       "TARGETS STRING"},
      {"invalid UTF-8",
       {"UTF8_STRING"},
       {{"UTF8_STRING", text("UTF8_STRING", "a\xff\xc3z\xf0\x9f")}},
       "a\xff\xc3z\xf0\x9f",
       "TARGETS UTF8_STRING"},
      {"embedded NUL",
       {"UTF8_STRING"},
       {{"UTF8_STRING", text("UTF8_STRING", nul)}},
       nul,
       "TARGETS UTF8_STRING"},
      {"empty text",
       {"UTF8_STRING"},
       {{"UTF8_STRING", text("UTF8_STRING", "")}},
       "",
       "TARGETS UTF8_STRING"},
      {"256 KB and more",
       {"UTF8_STRING"},
       {{"UTF8_STRING", text("UTF8_STRING", std::string(262143, 'x') + "€" + "more")}},
       std::string(262143, 'x'),
       "TARGETS UTF8_STRING"},
      {"256 KB of Latin-1",
       {"STRING"},
       {{"STRING", text("STRING", std::string(262144, '\xe9') + "more")}},
       [] {
         std::string s;
         for (int i = 0; i < 262144; ++i) s += "é";
         return s;
       }(),
       "TARGETS STRING"},
  };
  for (const char* selection : {"PRIMARY", "CLIPBOARD"}) {
    for (const auto& c : cases) {
      SCOPED_TRACE(c.what);
      owner_.reset();
      if (!c.targets.empty()) owner().answerTargets(c.targets);
      for (const auto& [target, answer] : c.answers) owner().answer(target, answer);
      owner().own(selection);
      EXPECT_TRUE(nextText() == c.expected);
      std::string asked;
      std::string word;
      for (std::istringstream words(c.asked); words >> word;) {
        asked += std::string(selection) + ":" + word + " ";
      }
      EXPECT_EQ(owner().asked, asked);
      EXPECT_EQ(callback_.done, "");
      // The data do not stay on our window.
      int count = 0;
      const tx::XMemory<Atom> left(XListProperties(display(), manager_->window().id(), &count));
      EXPECT_EQ(count, 0);
    }
  }
  EXPECT_FALSE(log_.has("", 0)) << log_.str();
}

TEST_F(ClipboardFetchTest, RefusedAndWrongAnswersEndTheCheck) {
  begin();
  const FakeOwner::Answer answers[] = {just(Kind::kRefuse), just(Kind::kOtherProperty),
                                       text("STRING", "1234", 16), numbers("STRING", {1, 2})};
  for (const auto& answer : answers) {
    owner_.reset();
    owner().answer("STRING", answer);
    owner().own("PRIMARY");
    EXPECT_EQ(nextDone(), "nothing ");
  }
  // Nobody owns it any more.
  owner_.reset();
  manager_->window().check(XA_PRIMARY, 1);
  EXPECT_EQ(nextDone(), "nothing ");
  EXPECT_EQ(callback_.texts.size(), 0u);
  EXPECT_THROW(manager_->window().check(XA_SECONDARY), plat::Exception);
}

TEST_F(ClipboardFetchTest, IncrementalTextIsDrainedAndArrivesEmpty) {
  begin();
  owner().answerTargets({"UTF8_STRING"});
  owner().answer("UTF8_STRING",
                 {Kind::kIncremental, "UTF8_STRING", 8, std::string(450000, 'x'), {}});
  owner().own("CLIPBOARD");
  EXPECT_EQ(nextText(), "");
  EXPECT_EQ(log_.count("Ignoring large selection - replacing with empty string", 30, "TXWindow"),
            1);
  // Five pieces, the empty one, and its deletion.
  EXPECT_TRUE(pumpUntil([this] { return owner().piecesTaken == 7; })) << owner().piecesTaken;

  // Owners that stop in the middle hold up nothing, and neither does one that disappears.
  for (int i = 0; i < 6; ++i) {
    SCOPED_TRACE(i);
    owner().piecesTaken = 0;
    owner().maxPieces = 2;
    owner().own("CLIPBOARD");
    EXPECT_TRUE(pumpUntil([this] { return owner().piecesTaken == 2; }));
    settle();
    FakeOwner next(server().display());
    if (i == 5) owner_.reset();
    const std::string fresh = "text" + std::to_string(i);
    next.answerText("STRING", fresh);
    next.own("PRIMARY");
    EXPECT_TRUE(waitFor([&] {
      next.pump();
      pump();
      return !callback_.texts.empty() && callback_.texts.back() == fresh;
    })) << log_.str();
    callback_.texts.clear();
  }
}

TEST_F(ClipboardFetchTest, ATransferUnderWayGoesOnBesideTheNextText) {
  begin();
  owner().answerTargets({"UTF8_STRING"});
  owner().answer("UTF8_STRING",
                 {Kind::kIncremental, "UTF8_STRING", 8, std::string(450000, 'x'), {}});
  owner().maxPieces = 2;
  owner().own("CLIPBOARD");
  EXPECT_EQ(nextText(), "");
  EXPECT_TRUE(pumpUntil([this] { return owner().piecesTaken == 2; }));
  // The next owner's answer and the former owner's next piece come at the same time.
  FakeOwner next(server().display());
  next.answerTargets({"UTF8_STRING"});
  next.answerText("UTF8_STRING", "next");
  next.own("CLIPBOARD");
  owner().maxPieces = 100;
  owner().resume();
  EXPECT_TRUE(waitFor([&] {
    dispatchAll();
    next.pump();
    owner().pump();
    return !callback_.texts.empty() && owner().piecesTaken == 7;
  })) << log_.str();
  EXPECT_EQ(callback_.texts, std::vector<std::string>{"next"});
}

TEST_F(ClipboardFetchTest, PollingTakesOnlyNewTimestamps) {
  begin();
  manager_->setEnabled(false);
  constexpr uint32_t kLast = 0xfffffff0;
  const struct {
    uint32_t primary;
    uint32_t clipboard;
    const char* chosen;  // null: nothing is new
  } cases[] = {
      {kLast, kLast, nullptr},
      {kLast - 1, 5, "CLIPBOARD"},
      {kLast + 1, kLast, "PRIMARY"},
      {0x10, 0, "PRIMARY"},
      {5, 4, "PRIMARY"},
      {5, 6, "CLIPBOARD"},
      {5, 5, "PRIMARY"},
      {0x7fffffff, 0, nullptr},
      {kLast - 0x80000000, 0, nullptr},
      {0x7fffffef, 0x7fffffee, "PRIMARY"},
  };
  owner().own("PRIMARY");
  FakeOwner clipboard(server().display());
  clipboard.own("CLIPBOARD");
  dispatchAll();
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(n);
    const std::string fresh = "text" + std::to_string(n++);
    owner().answerTimestamp(c.primary);
    owner().answerText("STRING", "PRIMARY" + fresh);
    clipboard.answerTimestamp(c.clipboard);
    clipboard.answerText("STRING", "CLIPBOARD" + fresh);
    manager_->window().setLastTime(kLast);
    callback_.done.clear();
    manager_->window().check();
    EXPECT_TRUE(waitFor([&] {
      clipboard.pump();
      pump();
      return !callback_.done.empty() || !callback_.texts.empty();
    }));
    if (c.chosen == nullptr) {
      EXPECT_EQ(callback_.done, "nothing ") << log_.str();
      EXPECT_TRUE(log_.has("Selections were old; ignoring", 100, "TXClipboardWindow"));
    } else {
      ASSERT_EQ(callback_.texts.size(), 1u) << log_.str();
      EXPECT_EQ(callback_.texts[0], c.chosen + fresh);
    }
    callback_.texts.clear();
    log_.clear();
  }
}

TEST_F(ClipboardFetchTest, OwnersWithoutATimestampAreAskedForTheirText) {
  begin();
  manager_->setEnabled(false);
  owner().answerText("STRING", "untimed");
  owner().own("PRIMARY");
  manager_->window().check();
  EXPECT_EQ(nextText(), "untimed");
  EXPECT_EQ(owner().asked, "PRIMARY:TIMESTAMP PRIMARY:TARGETS PRIMARY:STRING ");
  EXPECT_TRUE(log_.has("No PRIMARY selection timestamp", 100)) << log_.str();
  manager_->window().check();
  EXPECT_EQ(nextDone(), "got ");
  EXPECT_EQ(log_.count("Filtering out duplicate cut text", 100, "TXClipboardWindow"), 1);
  // Timestamps that are none.
  owner().answerText("STRING", "zero");
  for (const auto& answer : {numbers("INTEGER", {0}), numbers("INTEGER", {1, 2}),
                             numbers("INTEGER", {}), text("INTEGER", "1234")}) {
    owner().answer("TIMESTAMP", answer);
    const size_t before = callback_.texts.size() + callback_.done.size();
    manager_->window().check();
    pumpUntil([&] { return callback_.texts.size() + callback_.done.size() > before; });
  }
  EXPECT_EQ(callback_.texts, std::vector<std::string>{"zero"});
  EXPECT_EQ(callback_.done, "got got got ");
  EXPECT_TRUE(log_.has("PRIMARY selection time is 0, new 0", 100));
}

TEST_F(ClipboardFetchTest, TextOfTheStartIsNotReported) {
  start("64x64x24");
  FakeOwner& first = owner();
  first.answerTimestamp(5);
  first.answerTargets({"UTF8_STRING"});
  first.answerText("UTF8_STRING", "old");
  first.own("PRIMARY");
  manager_.emplace(&callback_, 0);
  EXPECT_TRUE(pumpUntil([this] { return log_.has("Got initial selection timestamps", 100); }));
  manager_->window().check();
  EXPECT_EQ(nextDone(), "nothing ");
  // Without timestamps the text itself is what later texts are compared with.
  first.answer("TIMESTAMP", just(Kind::kRefuse));
  manager_.emplace(&callback_, 0);
  EXPECT_TRUE(pumpUntil([this] { return log_.has("Got PRIMARY selection as UTF8_STRING", 100); }));
  EXPECT_EQ(callback_.texts.size(), 0u);
  manager_->setEnabled(true);
  dispatchAll();
  first.own("PRIMARY");
  EXPECT_EQ(nextDone(), "got ");
  first.answerText("UTF8_STRING", "new");
  first.own("PRIMARY");
  EXPECT_EQ(nextText(), "new");
}

TEST_F(ClipboardFetchTest, OwnersThatDoNotAnswerTimeOut) {
  start("64x64x24");
  for (const char* target : {"TIMESTAMP", "TARGETS", "STRING"}) {
    SCOPED_TRACE(target);
    callback_.done.clear();
    owner_.reset();
    owner().answerTargets({"STRING"});
    owner().answer("TIMESTAMP", just(Kind::kRefuse));
    owner().answer(target, just(Kind::kSilence));
    owner().own("PRIMARY");
    manager_.emplace(&callback_, 0);
    EXPECT_TRUE(pumpUntil(
        [&] { return owner().asked.find(std::string(":") + target) != std::string::npos; }));
    clock_.advance(4900);
    settle();
    EXPECT_EQ(callback_.done, "");
    clock_.advance(101);
    EXPECT_EQ(nextDone(), "timeout ");
    // The next copy is not taken for the text of the start.
    manager_->setEnabled(true);
    dispatchAll();
    owner_.reset();
    owner().answerText("STRING", target);
    owner().own("PRIMARY");
    EXPECT_EQ(nextText(), target);
    clock_.advance(6000);
    settle();
    EXPECT_EQ(callback_.done, "");
  }
}

TEST_F(ClipboardFetchTest, ACopyDuringTheFirstCheckIsReported) {
  start("64x64x24");
  owner().answer("TIMESTAMP", just(Kind::kSilence));
  owner().answerText("STRING", "copied");
  owner().own("PRIMARY");
  manager_.emplace(&callback_, 0);
  manager_->setEnabled(true);
  EXPECT_TRUE(pumpUntil([this] { return !owner().asked.empty(); }));
  owner().own("PRIMARY");
  EXPECT_EQ(nextText(), "copied");
}

TEST_F(ClipboardFetchTest, ALateAnswerIsStillTaken) {
  begin();
  owner().answer("TARGETS", just(Kind::kSilence));
  owner().own("CLIPBOARD");
  EXPECT_TRUE(pumpUntil([this] { return !owner().asked.empty(); }));
  clock_.advance(5001);
  EXPECT_EQ(nextDone(), "timeout ");
  XEvent late{};
  late.xselection.type = SelectionNotify;
  late.xselection.requestor = manager_->window().id();
  late.xselection.selection = owner().atom("CLIPBOARD");
  late.xselection.target = owner().atom("TARGETS");
  XSendEvent(owner().display(), manager_->window().id(), False, NoEventMask, &late);
  owner().answerText("STRING", "late");
  EXPECT_EQ(nextText(), "late");
}

TEST_F(ClipboardFetchTest, PrimaryCountsOnlyWhenItIsPreferred) {
  begin();
  callback_.primary = false;
  owner().answerText("STRING", "mouse");
  owner().own("PRIMARY");
  settle();
  EXPECT_TRUE(
      log_.has("selection change event, selection PRIMARY, timestamp ", 100, "TXClipboardMgr"));
  EXPECT_EQ(owner().asked, "");
  owner().own("CLIPBOARD");
  EXPECT_EQ(nextText(), "mouse");
  manager_->setEnabled(false);
  owner().answerText("STRING", "disabled");
  owner().own("CLIPBOARD");
  settle();
  EXPECT_EQ(callback_.texts.size(), 0u);
}

TEST_F(ClipboardFetchTest, WithoutXFixesThereIsPolling) {
  start("64x64x24", {"-extension", "XFIXES"});
  manager_.emplace(&callback_, 0);
  EXPECT_TRUE(log_.has("XFixes extension not present", 30, "TXClipboardMgr"));
  nextDone();
  manager_->setEnabled(true);
  EXPECT_TRUE(log_.has("Polling for clipboard updates every 2000ms", 30, "TXClipboardMgr"));
  owner().answerText("STRING", "one");
  owner().own("PRIMARY");
  settle();
  clock_.advance(1900);
  settle();
  EXPECT_EQ(owner().asked, "");
  clock_.advance(101);
  EXPECT_EQ(nextText(), "one");
  owner().answerText("STRING", "two");
  clock_.advance(2001);
  EXPECT_EQ(nextText(), "two");
  manager_->setEnabled(false);
  owner().asked.clear();
  clock_.advance(10000);
  settle();
  EXPECT_EQ(owner().asked, "");
}

TEST_F(ClipboardFetchTest, PollsOnRequestToo) {
  start("64x64x24");
  manager_.emplace(&callback_, 50);
  EXPECT_TRUE(log_.has("XFixes extension present - version ", 30, "TXClipboardMgr"));
  nextDone();
  manager_->setEnabled(true);
  manager_->setEnabled(true);
  EXPECT_EQ(log_.count("Polling for clipboard updates every 50ms"), 1);
  clock_.advance(51);
  EXPECT_EQ(nextDone(), "nothing ");
  manager_.emplace(&callback_, 0);
  log_.clear();
  manager_->setEnabled(true);
  EXPECT_FALSE(log_.has("Polling for clipboard updates"));
}

}  // namespace

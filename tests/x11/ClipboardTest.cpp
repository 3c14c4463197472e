#include "x11/TXFixture.h"

#include <functional>
#include <set>

#include "support/ManualClock.h"
#include "tx/ServerTime.h"
#include "tx/TXClipboardMgr.h"
#include "tx/XResources.h"
#include "x11/FakeOwner.h"

namespace {

using support::waitFor;
using Answer = FakeOwner::Answer;
using Texts = std::vector<std::string>;

// What owners and requestors of selections do, right and wrong.
class ClipboardTest : public TXFixture, private tx::TXClipboardWindow::Callback {
 protected:
  void begin() {
    if (!isStarted()) start("64x64x24");
    construct();
    // The first check ends with the refusals of selections that nobody owns.
    EXPECT_EQ(nextDone(), "nothing ");
    enable();
    log_.clear();
  }
  void construct() {
    tx::TXClipboardWindow::Callback* const callback = this;
    manager_.emplace(callback, 0);
  }
  void enable() {
    manager_->setEnabled(true);
    dispatchAll();
  }
  void TearDown() override {
    manager_.reset();
    owner_.reset();
    other_.reset();
    TXFixture::TearDown();
  }

  // A new owner has a text.
  FakeOwner& copy(const std::string& target, const std::string& text,
                  const std::string& selection = "PRIMARY") {
    owner_.reset();
    owner().answerText(target, text);
    owner().own(selection);
    return owner();
  }
  FakeOwner& owner() { return owner_ ? *owner_ : owner_.emplace(server().display()); }
  FakeOwner& other() { return other_ ? *other_ : other_.emplace(server().display()); }
  tx::TXClipboardWindow& window() { return manager_->window(); }

  void pump() {
    dispatchAll();
    if (owner_) owner_->pump();
    if (other_) other_->pump();
    loop_.process(0);
  }
  bool pumpUntil(const std::function<bool()>& predicate) {
    return waitFor([&] {
      pump();
      return predicate();
    });
  }
  // Until nothing happens any more.
  void settle() {
    for (int quiet = 0; quiet < 3; ++quiet) {
      pump();
      if (XPending(display()) > 0 || (owner_ && XPending(owner_->display) > 0)) quiet = 0;
    }
  }
  // The next text reported.
  std::string nextText() {
    if (!pumpUntil([this] { return !texts_.empty(); })) return "<none>\n" + log_.str();
    const std::string text = texts_.front();
    texts_.erase(texts_.begin());
    return text;
  }
  std::string nextDone() {
    if (!pumpUntil([this] { return !done_.empty(); })) return "<none>\n" + log_.str();
    return std::exchange(done_, {});
  }

  Texts texts_;
  bool isTaking_ = true;
  std::string done_;
  std::optional<tx::TXClipboardMgr> manager_;
  std::optional<FakeOwner> owner_, other_;
  support::ManualClock clock_;

 private:
  bool sendPrimary() override { return true; }
  bool clipboardChanged(size_t length, const char* text) override {
    EXPECT_EQ(text[length], '\0');
    texts_.emplace_back(text, length);
    return isTaking_;
  }
  void requestDone(bool gotText, bool timedOut) override {
    done_ += gotText ? "got " : timedOut ? "timeout " : "nothing ";
  }
};

TEST_F(ClipboardTest, FetchesWhatOwnersOffer) {
  begin();
  std::string wide;  // 256 KB of Latin-1
  for (int i = 0; i < 262144; ++i) wide += "é";
  const Answer silly{Answer::kProperty, "INTEGER", 32, "", {0, -1, 1 << 30}};
  const struct {
    const char* target;
    std::string text;
    Answer targets;
    std::string expected;
  } cases[] = {
      {"STRING", "empty", {Answer::kProperty, "ATOM", 32, "", {}}, "empty"},
      {"STRING", "silly", silly, "silly"},
      {"UTF8_STRING", "", {}, ""},
      {"UTF8_STRING", std::string("a\0b\xff\0", 5), {}, std::string("a\0b\xff\0", 5)},
      {"UTF8_STRING", std::string(262143, 'x') + "€ and more", {}, std::string(262143, 'x')},
      {"STRING", std::string(262144, '\xe9') + "more", {}, wide},
  };
  for (const auto& c : cases) {
    copy(c.target, c.text);
    if (*c.target == 'S') owner().answer("TARGETS", c.targets);
    EXPECT_TRUE(nextText() == c.expected) << c.text.substr(0, 20);
    EXPECT_EQ(owner().asked, std::string("PRIMARY:TARGETS PRIMARY:") + c.target + " ");
    EXPECT_EQ(done_, "");
    // The data do not stay on our window.
    int count = 0;
    const tx::XMemory<Atom> left(XListProperties(display(), window().id(), &count));
    EXPECT_EQ(count, 0);
  }
  // Answers that are none.
  for (const Answer& answer :
       {Answer{}, Answer{Answer::kElsewhere}, Answer{Answer::kProperty, "STRING", 16, "1234", {}},
        Answer{Answer::kProperty, "STRING", 32, "", {1, 2}}}) {
    copy("STRING", "").answer("STRING", answer);
    EXPECT_EQ(nextDone(), "nothing ");
  }
  EXPECT_TRUE(texts_.empty());
  EXPECT_FALSE(log_.has("", 0)) << log_.str();
}

TEST_F(ClipboardTest, IncrementalTextIsDrainedAndArrivesEmpty) {
  begin();
  copy("UTF8_STRING", "", "CLIPBOARD")
      .answer("UTF8_STRING", {Answer::kIncremental, "", 8, std::string(450000, 'x')});
  EXPECT_EQ(nextText(), "");
  EXPECT_EQ(log_.count("Ignoring large selection - replacing with empty string", 30, "TXWindow"),
            1);
  // Five pieces, the empty one, and its deletion.
  EXPECT_TRUE(pumpUntil([this] { return owner().piecesTaken == 7; })) << owner().piecesTaken;

  // Owners that stop in the middle hold up nothing. One goes on just when the next owner answers,
  // which does not spoil that text; one disappears.
  for (const char* text : {"goes on", "disappears"}) {
    SCOPED_TRACE(text);
    owner().piecesTaken = 0;
    owner().maxPieces = 2;
    owner().own("CLIPBOARD");
    EXPECT_TRUE(pumpUntil([this] { return owner().piecesTaken == 2; }));
    settle();
    other().answerText("UTF8_STRING", text);
    other().own("CLIPBOARD");
    owner().maxPieces = 100;
    owner().sendPiece();
    if (*text == 'd') owner_.reset();
    EXPECT_TRUE(pumpUntil([&] { return !texts_.empty() && texts_.back() == text; })) << log_.str();
    EXPECT_TRUE(!owner_ || pumpUntil([this] { return owner().piecesTaken == 7; }));
    texts_.clear();
  }
}

TEST_F(ClipboardTest, PollingTakesOnlyNewTimestamps) {
  begin();
  manager_->setEnabled(false);
  owner().own("PRIMARY");
  other().own("CLIPBOARD");
  const auto check = [&](uint32_t primary, uint32_t clipboard, const std::string& chosen) {
    const std::string fresh = std::to_string(primary) + " " + std::to_string(clipboard);
    owner().answerTimestamp(primary);
    owner().answerText("STRING", "PRIMARY" + fresh);
    other().answerTimestamp(clipboard);
    other().answerText("STRING", "CLIPBOARD" + fresh);
    window().check();
    EXPECT_TRUE(pumpUntil([&] { return !done_.empty() || !texts_.empty(); })) << log_.str();
    EXPECT_EQ(std::exchange(texts_, {}), chosen.empty() ? Texts{} : Texts{chosen + fresh});
    EXPECT_EQ(std::exchange(done_, {}), chosen.empty() ? "nothing " : "");
    EXPECT_EQ(log_.has("Selections were old; ignoring", 100), chosen.empty());
    log_.clear();
  };
  const uint32_t last = tx::getServerTime() - 1000;
  for (const auto& [primary, clipboard, chosen] : {std::tuple(last, last, ""),
                                                   {last - 1, last + 21, "CLIPBOARD"},
                                                   {last + 21, last + 22, "CLIPBOARD"},
                                                   {last + 21, last + 21, "PRIMARY"},
                                                   {last - 0x80000000, 0u, ""},
                                                   {last + 0x7fffffff, last, "PRIMARY"}}) {
    window().setLastTime(last);
    check(primary, clipboard, chosen);
  }
  // A time that is still to come does not make the next copies old.
  const uint32_t now = tx::getServerTime();
  ASSERT_TRUE(waitFor([&] { return tx::isLater(tx::getServerTime(), now + 1); }));
  check(last, now + 1, "CLIPBOARD");
}

TEST_F(ClipboardTest, OwnersWithoutATimestampAreAskedForTheirText) {
  begin();
  manager_->setEnabled(false);
  copy("STRING", "untimed");
  // No timestamp, and some that are none.
  for (const Answer& answer : {Answer{}, Answer{Answer::kProperty, "INTEGER", 32, "", {0}},
                               Answer{Answer::kProperty, "INTEGER", 32, "", {1, 2}},
                               Answer{Answer::kProperty, "INTEGER", 8, "1234", {}}}) {
    owner().answer("TIMESTAMP", answer);
    owner().asked.clear();
    window().check();
    EXPECT_TRUE(pumpUntil([&] { return !done_.empty() || !texts_.empty(); })) << log_.str();
    EXPECT_EQ(owner().asked, "PRIMARY:TIMESTAMP PRIMARY:TARGETS PRIMARY:STRING ");
    EXPECT_EQ(std::exchange(texts_, {}),
              std::exchange(done_, {}) == "" ? Texts{"untimed"} : Texts{});
  }
  EXPECT_EQ(log_.count("Filtering out duplicate cut text", 100, "TXClipboardWindow"), 3);
}

TEST_F(ClipboardTest, OwnersThatDoNotAnswerTimeOut) {
  start("64x64x24");
  for (const char* target : {"TIMESTAMP", "TARGETS", "STRING"}) {
    SCOPED_TRACE(target);
    copy("STRING", "").answer(target, {Answer::kSilence});
    construct();
    EXPECT_TRUE(pumpUntil(
        [&] { return owner().asked.find(std::string(":") + target) != std::string::npos; }));
    clock_.advanceMs(4900);
    settle();
    EXPECT_EQ(done_, "");
    clock_.advanceMs(101);
    EXPECT_EQ(nextDone(), "timeout ");
    // The next copy is not taken for the text of the start.
    enable();
    copy("STRING", target);
    EXPECT_EQ(nextText(), target);
    clock_.advanceMs(6000);
    settle();
    EXPECT_EQ(done_, "");
  }
}

TEST_F(ClipboardTest, AnswersRequests) {
  use(support::XServer::xvfb("64x64x24", {"-maxbigreqsize", "1"}));  // 4 MB
  begin();
  const uint32_t time = tx::getServerTime();
  window().setSelectionText("offered", time);
  using Items = std::vector<unsigned long>;  // the type and what is in it
  const auto ask = [&](const char* target, Atom property) {
    XConvertSelection(other().display, XA_PRIMARY, other().atom(target), property, other().window,
                      CurrentTime);
    XFlush(other().display);
    XEvent event{};
    EXPECT_TRUE(waitFor([&] {
      dispatchAll();
      return XCheckTypedWindowEvent(other().display, other().window, SelectionNotify, &event);
    }));
    const Atom answered = event.xselection.property;
    if (answered == None) return Items();
    // Requestors of old name no property.
    EXPECT_EQ(answered, property ? property : other().atom(target));
    Atom type = None;
    int format = 0;
    unsigned long count = 0, left = 0;
    unsigned char* data = nullptr;
    XGetWindowProperty(other().display, other().window, answered, 0, 100, True, AnyPropertyType,
                       &type, &format, &count, &left, &data);
    const tx::XMemory<unsigned char> memory(data);
    Items items{type};
    for (unsigned long i = 0; format == 32 && i < count; ++i) {
      items.push_back(reinterpret_cast<unsigned long*>(data)[i]);
    }
    return items;
  };
  const Atom timestamp = other().atom("TIMESTAMP");
  EXPECT_EQ(ask("TARGETS", None),
            (Items{XA_ATOM, timestamp, other().atom("UTF8_STRING"), XA_STRING}));
  EXPECT_EQ(ask("TIMESTAMP", XA_CUT_BUFFER7), (Items{XA_INTEGER, time}));
  EXPECT_EQ(ask("MULTIPLE", XA_CUT_BUFFER7), Items{}) << "refused";
  EXPECT_FALSE(log_.has("", 0)) << log_.str();
  window().setSelectionText(std::string(4194200, 'x'), time);
  EXPECT_EQ(ask("STRING", XA_CUT_BUFFER7), Items{XA_STRING});
  window().setSelectionText(std::string(4194400, 'x'), time);
  EXPECT_EQ(ask("STRING", XA_CUT_BUFFER7), Items{}) << "longer than a request can be";
  EXPECT_TRUE(log_.has("Unable to offer 4194400 bytes of text", 0));
}

TEST_F(ClipboardTest, OursMeanwhile) {
  begin();
  // An answer of the former owner that arrives when the selection is ours is no news.
  copy("UTF8_STRING", "former text");
  ASSERT_TRUE(waitFor([this] {
    dispatchAll();
    owner().pump();
    return owner().asked.find("PRIMARY:UTF8_STRING") != std::string::npos;
  }));
  window().setSelectionText("viewer", tx::getServerTime());
  settle();
  EXPECT_TRUE(texts_.empty());
  EXPECT_NE(done_.find("got "), std::string::npos);

  // Lost, and ours again by the time that the event says so.
  owner().own("PRIMARY");
  window().setSelectionText("two", tx::getServerTime());
  dispatchAll();
  EXPECT_TRUE(tx::SelectionOwner::find(XA_PRIMARY));
}

TEST_F(ClipboardTest, WhatWasThereBeforeIsNoNews) {
  start("64x64x24");
  for (const bool isTimed : {false, true}) {
    copy("STRING", "old");
    if (isTimed) owner().answerTimestamp(tx::getServerTime());
    construct();
    EXPECT_TRUE(pumpUntil([&] { return !owner().asked.empty(); }));
    settle();
    enable();
    window().check();
    settle();
    EXPECT_EQ(texts_, Texts{}) << isTimed;
    copy("STRING", "new");
    EXPECT_EQ(nextText(), "new");
  }
}

// Owners that copy faster than they are asked, and answer as they like: the last text arrives, and
// none that nobody copied.
TEST_F(ClipboardTest, CopiesThatOverlap) {
  begin();
  std::set<std::string> copied;
  const auto copyAs = [&](FakeOwner& who, const std::string& what, const Texts& selections) {
    who.answerText("UTF8_STRING", "5 € " + what);
    who.answerText("STRING", "5 ? " + what);
    for (const std::string& selection : selections) who.own(selection);
    copied.insert("5 € " + what);
  };
  const auto pumpFor = [&](int ms) {
    for (int i = 0; i < ms; ++i) {
      pump();
      clock_.advanceMs(1);
    }
  };
  const auto arrives = [&](const std::string& what) {
    EXPECT_TRUE(waitFor([&] {
      pumpFor(1);
      return !texts_.empty() && texts_.back() == "5 € " + what;
    })) << what;
    pumpFor(300);
    for (const std::string& text : texts_)
      EXPECT_EQ(copied.count(text), 1u) << what << ": " << text;
    EXPECT_EQ(texts_.empty() ? "" : texts_.back(), "5 € " + what);
    texts_.clear();
  };
  for (int i = 0; i < 300; ++i) {
    const bool isDrag = i >= 200;
    copyAs(owner(), std::to_string(i), isDrag ? Texts{"PRIMARY"} : Texts{"PRIMARY", "CLIPBOARD"});
    pumpFor(isDrag ? 2 : i % 3);
    if (i % 200 == 99) arrives(std::to_string(i));
  }
  // What is asked first is answered only after the selections have changed again, by the same owner
  // or by another one; once or twice, in that order or the other.
  for (int way = 0; way < 16; ++way) {
    SCOPED_TRACE(way);
    FakeOwner& second = way & 1 ? other() : owner();
    const std::string name = std::to_string(way);
    owner().isHolding = true;
    copyAs(owner(), "slow " + name, {"PRIMARY", "CLIPBOARD"});
    const auto isAsked = [&] { return pumpUntil([&] { return !owner().held.empty(); }); };
    EXPECT_TRUE(isAsked());
    if (way & 8) {
      owner().answerHeld();
      EXPECT_TRUE(isAsked()) << "for the text";
    }
    copyAs(second, "late " + name, {"CLIPBOARD", "PRIMARY"});
    pumpFor(way & 4 ? 600 : 20);
    owner().isHolding = false;
    owner().answerHeld(way & 2, way & 4 ? 2 : 1);
    arrives("late " + name);
  }
}

// Pieces without an end, or owners that stop sending them, keep no property.
TEST_F(ClipboardTest, EndlessTransfersAreGivenUp) {
  begin();
  for (const bool stops : {false, true}) {
    SCOPED_TRACE(stops);
    const Window before = window().id();
    const std::string text(stops ? 8000000 : 80000000, 'x');
    copy("UTF8_STRING", "", "CLIPBOARD").answer("UTF8_STRING", {Answer::kIncremental, "", 8, text});
    owner().maxPieces = stops ? 1 : 1 << 30;
    owner().pieceSize = 4000000;
    EXPECT_EQ(nextText(), "");
    EXPECT_TRUE(pumpUntil([this] { return owner().piecesTaken > 0; }));
    settle();
    if (stops) clock_.advanceMs(5001);
    EXPECT_TRUE(pumpUntil([&] { return window().id() != before; }));
    EXPECT_LE(owner().piecesTaken, 17);
    settle();
    copy("UTF8_STRING", stops ? "after it" : "after them");
    EXPECT_EQ(nextText(), stops ? "after it" : "after them");
  }
}

TEST_F(ClipboardTest, AnswersAreReadAsWhatTheyAre) {
  begin();
  // An owner whose UTF-8 is Latin-1, and the other way round.
  copy("UTF8_STRING", "").answer("UTF8_STRING", {Answer::kProperty, "STRING", 8, "caf\xe9"});
  EXPECT_EQ(nextText(), "café");
  owner().answer("TARGETS", {});
  owner().answer("STRING", {Answer::kProperty, "UTF8_STRING", 8, "naïve", {}});
  owner().own("PRIMARY");
  EXPECT_EQ(nextText(), "naïve");
  // An answer that has gone from our window is asked for again, once.
  owner().answer("STRING", {Answer::kNothing});
  owner().asked.clear();
  owner().own("PRIMARY");
  EXPECT_EQ(nextDone(), "nothing ");
  EXPECT_EQ(owner().asked, "PRIMARY:TARGETS PRIMARY:STRING PRIMARY:STRING ");
  // What nobody took is still new.
  owner().answer("STRING", {Answer::kProperty, "STRING", 8, "twice", {}});
  isTaking_ = false;
  owner().own("PRIMARY");
  EXPECT_EQ(nextText(), "twice");
  isTaking_ = true;
  owner().own("PRIMARY");
  EXPECT_EQ(nextText(), "twice");
}

}  // namespace

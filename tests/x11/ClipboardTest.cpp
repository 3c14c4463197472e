#include "x11/TXFixture.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/FakeOwner.h"
#include "support/ManualClock.h"
#include "tx/ServerTime.h"
#include "tx/TXClipboardMgr.h"
#include "tx/XResources.h"

namespace {

using support::waitFor;
using Answer = FakeOwner::Answer;
using Texts = std::vector<std::string>;

// What owners of selections do wrong, and what needs the toolkit's own view. Real clients are the
// matter of the agent's tests.
class ClipboardTest : public TXFixture, private tx::TXClipboardWindow::Callback {
 protected:
  void begin() {
    start("64x64x24");
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
  const Answer empty{Answer::kProperty, "ATOM", 32, "", {}};
  const Answer silly{Answer::kProperty, "INTEGER", 32, "", {0, -1, 1 << 30}};
  const struct {
    const char* target;
    std::string text;
    std::optional<Answer> targets;  // else as it should be
    std::string expected;
  } cases[] = {
      {"STRING", "empty", empty, "empty"},
      {"STRING", "silly", silly, "silly"},
      {"UTF8_STRING", "", {}, ""},
      {"UTF8_STRING", std::string(262143, 'x') + "€ and more", {}, std::string(262143, 'x')},
      {"STRING", std::string(262144, '\xe9') + "more", Answer{}, wide},
  };
  for (const auto& c : cases) {
    owner_.reset();
    owner().answerText(c.target, c.text);
    if (c.targets) owner().answer("TARGETS", *c.targets);
    owner().own("PRIMARY");
    EXPECT_TRUE(nextText() == c.expected) << c.text.substr(0, 20);
    EXPECT_EQ(owner().asked, std::string("PRIMARY:TARGETS PRIMARY:") + c.target + " ");
    EXPECT_EQ(done_, "");
    // The data do not stay on our window.
    int count = 0;
    const tx::XMemory<Atom> left(XListProperties(display(), window().id(), &count));
    EXPECT_EQ(count, 0);
  }
  // Answers that are none.
  for (const Answer& answer : {Answer{}, Answer{Answer::kProperty, "STRING", 16, "1234", {}},
                               Answer{Answer::kProperty, "STRING", 32, "", {1, 2}}}) {
    owner_.reset();
    owner().answer("STRING", answer);
    owner().own("PRIMARY");
    EXPECT_EQ(nextDone(), "nothing ");
  }
  EXPECT_TRUE(texts_.empty());
  EXPECT_FALSE(log_.has("", 0)) << log_.str();
}

TEST_F(ClipboardTest, IncrementalTextIsDrainedAndArrivesEmpty) {
  begin();
  owner().answerText("UTF8_STRING", "");
  owner().answer("UTF8_STRING", {Answer::kIncremental, "", 8, std::string(450000, 'x'), {}});
  owner().own("CLIPBOARD");
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
  const uint32_t last = tx::getServerTime() - 1000;
  const struct {
    uint32_t primary;
    uint32_t clipboard;
    const char* chosen;  // null: nothing is new
  } cases[] = {{last, last, nullptr},
               {last - 1, last + 21, "CLIPBOARD"},
               {last + 21, last + 22, "CLIPBOARD"},
               {last + 21, last + 21, "PRIMARY"},
               {last - 0x80000000, 0, nullptr},
               {last + 0x7fffffff, last, "PRIMARY"}};
  owner().own("PRIMARY");
  other().own("CLIPBOARD");
  dispatchAll();
  int n = 0;
  const auto check = [&](uint32_t primary, uint32_t clipboard, const char* chosen) {
    SCOPED_TRACE(n);
    const std::string fresh = "text" + std::to_string(n++);
    owner().answerTimestamp(primary);
    owner().answerText("STRING", "PRIMARY" + fresh);
    other().answerTimestamp(clipboard);
    other().answerText("STRING", "CLIPBOARD" + fresh);
    window().check();
    EXPECT_TRUE(pumpUntil([&] { return !done_.empty() || !texts_.empty(); })) << log_.str();
    EXPECT_EQ(std::exchange(texts_, {}), chosen ? Texts{chosen + fresh} : Texts{});
    EXPECT_EQ(std::exchange(done_, {}), chosen ? "" : "nothing ");
    EXPECT_EQ(log_.has("Selections were old; ignoring", 100, "TXClipboardWindow"), !chosen);
    log_.clear();
  };
  for (const auto& c : cases) {
    window().setLastTime(last);
    check(c.primary, c.clipboard, c.chosen);
  }
  // A time that is still to come does not make the next copies old.
  const uint32_t now = tx::getServerTime();
  ASSERT_TRUE(waitFor([&] { return tx::isLater(tx::getServerTime(), now + 1); }));
  check(last, now + 1, "CLIPBOARD");
}

TEST_F(ClipboardTest, OwnersWithoutATimestampAreAskedForTheirText) {
  begin();
  manager_->setEnabled(false);
  owner().answerText("STRING", "untimed");
  owner().own("PRIMARY");
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
    owner_.reset();
    owner().answer(target, {Answer::kSilence});
    owner().own("PRIMARY");
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
    owner_.reset();
    owner().answerText("STRING", target);
    owner().own("PRIMARY");
    EXPECT_EQ(nextText(), target);
    clock_.advanceMs(6000);
    settle();
    EXPECT_EQ(done_, "");
  }
}

TEST_F(ClipboardTest, AnswersRequests) {
  begin();
  const uint32_t time = tx::getServerTime();
  window().setLastTime(time);
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

  // A requestor that is gone when its request arrives.
  XEvent request{};
  request.xselectionrequest.type = SelectionRequest;
  request.xselectionrequest.owner = window().id();
  request.xselectionrequest.requestor = 0x7fffff;
  request.xselectionrequest.selection = XA_PRIMARY;
  request.xselectionrequest.target = XA_STRING;
  tx::TXEventHandler::dispatch(request);
  dispatchAll();
  EXPECT_FALSE(log_.has("", 0)) << log_.str();
}

TEST_F(ClipboardTest, OursMeanwhile) {
  begin();
  // An answer of the former owner that arrives when the selection is ours is no news.
  owner().answerText("UTF8_STRING", "former text");
  owner().own("PRIMARY");
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
  EXPECT_EQ(tx::SelectionOwner::find(XA_PRIMARY) != nullptr, true);
}

// Pieces without an end, or owners that stop sending them, keep no property.
TEST_F(ClipboardTest, EndlessTransfersAreGivenUp) {
  begin();
  for (const bool stops : {false, true}) {
    SCOPED_TRACE(stops);
    const Window before = window().id();
    owner_.reset();
    owner().answerText("UTF8_STRING", "");
    owner().answer("UTF8_STRING",
                   {Answer::kIncremental, "", 8, std::string(stops ? 8000000 : 80000000, 'x'), {}});
    owner().maxPieces = stops ? 1 : 1 << 30;
    owner().own("CLIPBOARD");
    owner().pieceSize = 4000000;
    EXPECT_EQ(nextText(), "");
    EXPECT_TRUE(pumpUntil([this] { return owner().piecesTaken > 0; }));
    settle();
    if (stops) clock_.advanceMs(5001);
    EXPECT_TRUE(pumpUntil([&] { return window().id() != before; }));
    EXPECT_LE(owner().piecesTaken, 17);
    settle();
    other().answerText("UTF8_STRING", stops ? "after it" : "after them");
    other().own("CLIPBOARD");
    EXPECT_EQ(nextText(), stops ? "after it" : "after them");
  }
}

TEST_F(ClipboardTest, AnswersAreReadAsWhatTheyAre) {
  begin();
  // An owner whose UTF-8 is Latin-1, and the other way round.
  owner().answerText("UTF8_STRING", "");
  owner().answer("UTF8_STRING", {Answer::kProperty, "STRING", 8, "caf\xe9", {}});
  owner().own("PRIMARY");
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

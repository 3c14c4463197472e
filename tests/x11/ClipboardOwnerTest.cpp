#include "x11/ClipboardFixture.h"

#include <X11/Xatom.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "tx/TXUtil.h"
#include "tx/XResources.h"

namespace {

using support::waitFor;

class ClipboardOwnerTest : public ClipboardFixture {};

TEST_F(ClipboardOwnerTest, ServesTheTextOfTheViewer) {
  begin();
  const std::string utf8 = "€uro café\nsecond";
  const uint32_t time = tx::getServerTime();
  manager_->window().setLastTime(time);
  manager_->window().setSelectionText(utf8, time);
  EXPECT_TRUE(
      log_.has("Acquiring PRIMARY and CLIPBOARD selections timestamp " + std::to_string(time), 100,
               "TXWindow"));
  for (const char* selection : {"primary", "clipboard"}) {
    EXPECT_EQ(read({"xclip", "-o", "-selection", selection, "-t", "UTF8_STRING"}), utf8);
    EXPECT_EQ(read({"xclip", "-o", "-selection", selection, "-t", "STRING"}),
              "?uro caf\xe9\nsecond");
    EXPECT_EQ(read({"xclip", "-o", "-selection", selection, "-t", "TARGETS"}),
              "TIMESTAMP\nUTF8_STRING\nSTRING\n");
    EXPECT_EQ(read({"xclip", "-o", "-selection", selection, "-t", "text/html"}), "");
  }
  EXPECT_EQ(read({"xsel", "-o", "-b"}), utf8);
  int length = 0;
  const tx::XMemory<char> cut(XFetchBytes(client(), &length));
  EXPECT_EQ(std::string(cut.get(), static_cast<size_t>(length)), "?uro caf\xe9\nsecond");
  // Our own text is not news.
  EXPECT_EQ(callback_.texts.size(), 0u);
  EXPECT_TRUE(log_.has("PRIMARY selection owned by us", 100, "TXClipboardWindow"));

  // Requests by hand: the time, and no property named.
  const Window requestor = owner().window();
  Display* const other = owner().display();
  const auto ask = [&](const char* target, Atom property, Atom* answered) {
    XConvertSelection(other, XA_PRIMARY, owner().atom(target), property, requestor, CurrentTime);
    XFlush(other);
    XEvent event{};
    EXPECT_TRUE(waitFor([&] {
      dispatchAll();
      return XCheckTypedWindowEvent(other, requestor, SelectionNotify, &event) == True;
    }));
    *answered = event.xselection.property;
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long left = 0;
    unsigned char* data = nullptr;
    if (*answered == None) return std::tuple(type, format, std::vector<unsigned long>());
    XGetWindowProperty(other, requestor, *answered, 0, 100, True, AnyPropertyType, &type, &format,
                       &count, &left, &data);
    const tx::XMemory<unsigned char> memory(data);
    std::vector<unsigned long> items;
    if (format == 32) {
      const auto* const longs = reinterpret_cast<unsigned long*>(data);
      items.assign(longs, longs + count);
    }
    return std::tuple(type, format, items);
  };
  Atom answered = None;
  EXPECT_EQ(ask("TIMESTAMP", XA_CUT_BUFFER7, &answered),
            std::tuple(Atom{XA_INTEGER}, 32, std::vector<unsigned long>{time}));
  EXPECT_EQ(answered, Atom{XA_CUT_BUFFER7});
  EXPECT_EQ(std::get<0>(ask("TARGETS", None, &answered)), Atom{XA_ATOM});
  EXPECT_EQ(answered, owner().atom("TARGETS"));
  ask("MULTIPLE", XA_CUT_BUFFER7, &answered);
  EXPECT_EQ(answered, Atom{None});
}

TEST_F(ClipboardOwnerTest, AnAnswerOfTheFormerOwnerIsNoNews) {
  begin();
  owner().answerTargets({"UTF8_STRING"});
  owner().answerText("UTF8_STRING", "former text");
  owner().own("PRIMARY");
  // Until the answer with the text waits to be handled.
  ASSERT_TRUE(waitFor([this] {
    dispatchAll();
    owner().pump();
    return owner().asked.find("PRIMARY:UTF8_STRING") != std::string::npos;
  }));
  const uint32_t time = tx::getServerTime();
  manager_->window().setLastTime(time);
  manager_->window().setSelectionText("the viewer's", time);
  settle();
  EXPECT_EQ(callback_.texts.size(), 0u);
  EXPECT_NE(callback_.done.find("got "), std::string::npos);
}

TEST_F(ClipboardOwnerTest, ServesLargeTextAndRefusesWhatNoRequestHolds) {
  begin();
  std::string large;
  while (large.size() < 10000000) large += "0123456789 äöü ";
  manager_->window().setSelectionText(large, tx::getServerTime());
  EXPECT_TRUE(read({"xclip", "-o", "-selection", "clipboard", "-t", "UTF8_STRING"}) == large);
  manager_.reset();

  // A server that takes requests of 4 MB.
  start("64x64x24", {"-maxbigreqsize", "1"});
  begin();
  for (const auto& [size, served] : {std::pair(4194200, true), std::pair(4194400, false)}) {
    large = std::string(static_cast<size_t>(size), 'x');
    manager_->window().setSelectionText(large, tx::getServerTime());
    const std::string got = read({"xclip", "-o", "-selection", "clipboard", "-t", "UTF8_STRING"});
    EXPECT_TRUE(got == (served ? large : "")) << got.size();
    EXPECT_EQ(read({"xclip", "-o", "-selection", "clipboard", "-t", "TARGETS"}),
              "TIMESTAMP\nUTF8_STRING\nSTRING\n");
  }
  EXPECT_EQ(log_.count("", 0), 1) << log_.str();
  EXPECT_TRUE(log_.has("Unable to offer 4194400 bytes of text", 0, "TXWindow"));
  log_.clear();

  // A requestor that is gone when its request arrives.
  XEvent request{};
  request.xselectionrequest.type = SelectionRequest;
  request.xselectionrequest.owner = manager_->window().id();
  request.xselectionrequest.requestor = 0x7fffff;
  request.xselectionrequest.selection = XA_PRIMARY;
  request.xselectionrequest.target = XA_STRING;
  tx::TXEventHandler::dispatch(request);
  dispatchAll();
  EXPECT_FALSE(log_.has("", 0)) << log_.str();
}

TEST_F(ClipboardOwnerTest, ALostSelectionIsFetchedAgain) {
  begin();
  manager_->window().setSelectionText("viewer", tx::getServerTime());
  settle();
  EXPECT_EQ(tx::TXWindow::selectionOwner(XA_PRIMARY), &manager_->window());
  owner().answerText("STRING", "client");
  owner().own("PRIMARY");
  EXPECT_EQ(nextText(), "client");
  EXPECT_EQ(tx::TXWindow::selectionOwner(XA_PRIMARY), nullptr);
  // The other selection is still the viewer's.
  EXPECT_EQ(read({"xclip", "-o", "-selection", "clipboard"}), "viewer");
  // With PRIMARY, CLIPBOARD is not asked as long as it is ours.
  callback_.done.clear();
  owner().asked.clear();
  manager_->setEnabled(false);
  manager_->window().check();
  nextDone();
  EXPECT_EQ(owner().asked.find("CLIPBOARD"), std::string::npos);
  owner().own("CLIPBOARD");
  settle();
  manager_->window().setSelectionText("viewer", tx::getServerTime());
  // One by one: PRIMARY ours, CLIPBOARD the client's and new.
  owner().answerTimestamp(tx::getServerTime() + 1000);
  owner().answerText("STRING", "copied");
  owner().own("CLIPBOARD");
  settle();
  manager_->window().check();
  EXPECT_EQ(nextText(), "copied");
}

TEST_F(ClipboardOwnerTest, RetakingOutrunsAnOlderClear) {
  begin();
  tx::TXClipboardWindow& window = manager_->window();
  window.setSelectionText("one", tx::getServerTime());
  owner().own("PRIMARY");
  // Our event says that PRIMARY is lost, but it is ours again by now.
  window.setSelectionText("two", tx::getServerTime());
  dispatchAll();
  EXPECT_EQ(tx::TXWindow::selectionOwner(XA_PRIMARY), &window);
  EXPECT_EQ(read({"xclip", "-o"}), "two");
}

TEST_F(ClipboardOwnerTest, CutBuffer) {
  begin();
  const auto store = [this](const char* bytes) {
    const uint32_t before = tx::getServerTime();
    EXPECT_TRUE(waitFor([&] { return tx::isLater(tx::getServerTime(), before); }));
    XStoreBytes(client(), bytes, static_cast<int>(strlen(bytes)));
    XSync(client(), False);
    dispatchAll();
  };
  store("caf\xe9");
  manager_->window().check();
  EXPECT_EQ(nextDone(), "nothing ");  // not used unless asked for
  setParam("UseCutBuffer", "1");
  manager_->window().check();
  EXPECT_EQ(nextText(), "café");
  EXPECT_TRUE(log_.has("Using X cut buffer string", 100, "TXClipboardWindow"));
  // Not again, and not when it is older than a selection.
  log_.clear();
  manager_->window().check();
  nextDone();
  EXPECT_TRUE(log_.has(", later 0", 100, "TXClipboardWindow")) << log_.str();
  store("new");
  manager_->window().setLastTime(tx::getServerTime() + 1000);
  manager_->window().check();
  EXPECT_EQ(nextDone(), "nothing ");
  // The viewer's text comes back as Latin-1.
  const uint32_t time = tx::getServerTime();
  manager_->window().setLastTime(time);
  EXPECT_TRUE(waitFor([&] { return tx::isLater(tx::getServerTime(), time); }));
  manager_->window().setSelectionText("€uro", time);
  owner().own("PRIMARY");
  owner().own("CLIPBOARD");
  manager_->setEnabled(false);
  settle();
  manager_->window().setLastTime(time);
  callback_.done.clear();
  manager_->window().check();
  EXPECT_EQ(nextDone(), "got ");
  EXPECT_EQ(callback_.texts.size(), 0u);
}

TEST_F(ClipboardOwnerTest, RealClients) {
  begin();
  const auto copy = [this](const std::vector<std::string>& command, const std::string& text) {
    support::Program::Options options;
    options.input = text;
    options.captureErrors = true;
    return server().start(command, options);
  };
  const auto xclip = copy({"xclip", "-quiet", "-i", "-selection", "clipboard"}, "from xclip €");
  EXPECT_EQ(nextText(), "from xclip €");
  const auto xsel = copy({"xsel", "-i", "-n", "-p"}, "from xsel é");
  EXPECT_EQ(nextText(), "from xsel é");
  // The same text once more.
  const auto again = copy({"xclip", "-quiet", "-i"}, "from xsel é");
  EXPECT_EQ(nextDone(), "got ");
  EXPECT_TRUE(log_.has("Filtering out duplicate cut text"));
  // xclip sends this in pieces, and xsel, too.
  const auto large = copy({"xclip", "-quiet", "-i"}, std::string(10000000, 'x'));
  EXPECT_EQ(nextText(), "");
  EXPECT_TRUE(log_.has("Ignoring large selection", 30, "TXWindow"));
  const auto last = copy({"xclip", "-quiet", "-i"}, "last");
  EXPECT_EQ(nextText(), "last");
}

}  // namespace

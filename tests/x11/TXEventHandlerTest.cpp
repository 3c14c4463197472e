#include "x11/TXFixture.h"

#include "tx/TXEventHandler.h"

#include <X11/Xatom.h>

#include <functional>
#include <memory>
#include <string>

#include "tx/RootEventMask.h"
#include "tx/TXUtil.h"
#include "tx/TXWindow.h"

namespace {

class Recorder : public tx::TXEventHandler {
 public:
  Recorder(std::string name, std::string* calls) : name_(std::move(name)), calls_(calls) {}
  void handleEvent(const XEvent&) override {
    *calls_ += name_;
    if (then) then();
  }
  std::function<void()> then;

 private:
  std::string name_;
  std::string* calls_;
};

class RecordingWindow : public tx::TXWindow {
 public:
  explicit RecordingWindow(std::string* calls) : calls_(calls) {}
  void handleEvent(const XEvent& event) override {
    *calls_ += "W";
    tx::TXWindow::handleEvent(event);
  }

 private:
  std::string* calls_;
};

class TXEventHandlerTest : public TXFixture {
 protected:
  void SetUp() override { start(); }

  static XEvent eventFor(Window window) {
    XEvent event{};
    event.type = ClientMessage;
    event.xany.window = window;
    return event;
  }
  std::string dispatched(Window window = 1) {
    calls_.clear();
    tx::TXEventHandler::dispatch(eventFor(window));
    return calls_;
  }

  std::string calls_;
};

TEST_F(TXEventHandlerTest, AllHandlersInOrderThenTheWindow) {
  const Recorder a("a", &calls_);
  auto b = std::make_unique<Recorder>("b", &calls_);
  const Recorder c("c", &calls_);
  const RecordingWindow window(&calls_);
  EXPECT_EQ(dispatched(window.id()), "abcW");
  EXPECT_EQ(dispatched(tx::TXDisplay::root()), "abc");
  b.reset();
  EXPECT_EQ(dispatched(), "ac");
  b = std::make_unique<Recorder>("b", &calls_);
  EXPECT_EQ(dispatched(), "acb");
}

TEST_F(TXEventHandlerTest, ChangesDuringDispatch) {
  auto a = std::make_unique<Recorder>("a", &calls_);
  auto b = std::make_unique<Recorder>("b", &calls_);
  auto c = std::make_unique<Recorder>("c", &calls_);
  std::unique_ptr<Recorder> d;
  b->then = [&] {
    a.reset();
    c.reset();
    if (!d) d = std::make_unique<Recorder>("d", &calls_);
  };
  EXPECT_EQ(dispatched(), "ab");
  EXPECT_EQ(dispatched(), "bd");
  // Inside its own call, and with a dispatch inside the dispatch.
  b->then = [&] {
    b->setHandlesEvents(false);
    tx::TXEventHandler::dispatch(eventFor(1));
  };
  EXPECT_EQ(dispatched(), "bdd");
  b->setHandlesEvents(true);
  b->then = nullptr;
  EXPECT_EQ(dispatched(), "db");
  d->then = [&] { b.reset(); };
  EXPECT_EQ(dispatched(), "d");
}

TEST_F(TXEventHandlerTest, DebugEventsLogsEachEvent) {
  dispatched(0x123);
  EXPECT_EQ(log_.count("event ClientMessage window 0x123"), 0);
  setParam("_DebugEvents", "1");
  dispatched(0x123);
  EXPECT_EQ(log_.count("event ClientMessage window 0x123", 100, "TXWindow"), 1) << log_.str();
}

TEST_F(TXEventHandlerTest, RootMaskIsTheUnionOfWhatIsAsked) {
  const auto selected = [this] {
    XWindowAttributes attributes;
    XGetWindowAttributes(display(), tx::TXDisplay::root(), &attributes);
    return attributes.your_event_mask;
  };
  {
    const tx::RootEventMask property(PropertyChangeMask);
    {
      tx::RootEventMask structure;
      EXPECT_EQ(selected(), PropertyChangeMask);
      structure.set(StructureNotifyMask | PropertyChangeMask);
      EXPECT_EQ(selected(), PropertyChangeMask | StructureNotifyMask);
      structure.set(0);
      EXPECT_EQ(selected(), PropertyChangeMask);
      structure.set(StructureNotifyMask);
    }
    EXPECT_EQ(selected(), PropertyChangeMask);
  }
  EXPECT_EQ(selected(), 0);
}

TEST_F(TXEventHandlerTest, WindowMovesAreReported) {
  struct Tracker : tx::WindowPosTracker {
    void windowMoved(const rfb::Rect& from, const rfb::Rect& to) override {
      text += from.str() + " -> " + to.str() + ";";
    }
    std::string text;
  } tracker;
  const tx::TXWindow window(rfb::Rect(10, 20, 40, 50));
  tx::TXWindow::setPosTracker(&tracker);
  XMoveResizeWindow(display(), window.id(), 15, 20, 30, 40);
  dispatchAll();
  tx::TXWindow::setPosTracker(nullptr);
  EXPECT_EQ(tracker.text, "10,20 to 40,50 -> 15,20 to 45,60;");
}

TEST_F(TXEventHandlerTest, ServerTime) {
  const uint32_t first = tx::getServerTime();
  EXPECT_NE(first, 0u);
  EXPECT_TRUE(support::waitFor([&] { return tx::isLater(tx::getServerTime(), first); }));
  EXPECT_EQ(XPending(display()), 0);
  // The same clock as everybody's.
  const tx::RootEventMask mask(PropertyChangeMask);
  XSync(display(), False);
  const Atom atom = XInternAtom(client(), "TEST", False);
  XChangeProperty(client(), tx::TXDisplay::root(), atom, XA_INTEGER, 32, PropModeAppend, nullptr,
                  0);
  XSync(client(), False);
  XEvent event;
  XNextEvent(display(), &event);
  EXPECT_FALSE(tx::isLater(static_cast<uint32_t>(event.xproperty.time), tx::getServerTime()));

  EXPECT_TRUE(tx::isLater(5, 0xfffffff0));
  EXPECT_FALSE(tx::isLater(0xfffffff0, 5));
  EXPECT_FALSE(tx::isLater(7, 7));
}

}  // namespace

#include "x11/TXFixture.h"

#include "tx/TXEventHandler.h"

#include <functional>
#include <memory>
#include <string>

#include "tx/RootEventMask.h"
#include "tx/TXUtil.h"
#include "tx/TXWindow.h"

namespace {

class TXEventHandlerTest : public TXFixture {
 protected:
  struct Recorder : tx::TXEventHandler {
    Recorder(const char* text, std::string* calls) : name(text), all(calls) {}
    void handleEvent(const XEvent&) override {
      *all += name;
      if (then) then();
    }
    std::function<void()> then;
    const char* const name;
    std::string* const all;
  };
  struct RecordingWindow : tx::TXWindow {
    explicit RecordingWindow(std::string* calls) : all(calls) {}
    void handleEvent(const XEvent&) override { *all += "W"; }
    std::string* const all;
  };

  void SetUp() override { start(); }

  std::unique_ptr<Recorder> recorder(const char* name) {
    return std::make_unique<Recorder>(name, &calls_);
  }
  std::string dispatched(Window window = 1) {
    calls_.clear();
    dispatch(window);
    return calls_;
  }
  static void dispatch(Window window) {
    XEvent event{};
    event.type = ClientMessage;
    event.xany.window = window;
    tx::TXEventHandler::dispatch(event);
  }

  std::string calls_;
};

TEST_F(TXEventHandlerTest, AllHandlersInOrderThenTheWindow) {
  setParam("_DebugEvents", "1");
  auto a = recorder("a"), b = recorder("b"), c = recorder("c");
  const RecordingWindow window(&calls_);
  EXPECT_EQ(dispatched(window.id()), "abcW");
  EXPECT_EQ(dispatched(0x123), "abc");
  EXPECT_EQ(log_.count("event ClientMessage window 0x123", 100, "TXWindow"), 1) << log_.str();

  // Changes during dispatch.
  std::unique_ptr<Recorder> d;
  b->then = [&] {
    a.reset();
    c.reset();
    if (!d) d = recorder("d");
  };
  EXPECT_EQ(dispatched(), "ab");
  EXPECT_EQ(dispatched(), "bd");
  // With a dispatch inside the dispatch.
  b->then = [&] {
    b.reset();
    dispatch(1);
  };
  EXPECT_EQ(dispatched(), "bdd");
}

TEST_F(TXEventHandlerTest, RootMaskIsTheUnionOfWhatIsAsked) {
  const auto selected = [] {
    XWindowAttributes attributes;
    XGetWindowAttributes(display(), tx::TXDisplay::root(), &attributes);
    return attributes.your_event_mask;
  };
  {
    const tx::RootEventMask property(PropertyChangeMask);
    tx::RootEventMask structure(StructureNotifyMask | PropertyChangeMask);
    EXPECT_EQ(selected(), PropertyChangeMask | StructureNotifyMask);
    structure.set(0);
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

}  // namespace

#include "x11/TXFixture.h"

#include "tx/TXDisplay.h"

#include <stdlib.h>

#include <fstream>
#include <functional>
#include <sstream>

#include "os/AppLoop.h"
#include "plat/Exception.h"
#include "plat/Timer.h"
#include "tx/PixelBufferX11.h"
#include "tx/RootEventMask.h"
#include "tx/TXUtil.h"
#include "tx/TXWindow.h"
#include "ui/AppLoopImpl.h"
#include "x11/SegmentCount.h"

namespace {

class TXDisplayTest : public TXFixture {};

// Calls a function when it expires.
class Later : private plat::Timer::Callback {
 public:
  Later(int ms, std::function<void()> function) : function_(std::move(function)), timer_(this) {
    timer_.start(ms);
  }

 private:
  void timerCallback(plat::Timer&) override { function_(); }
  std::function<void()> function_;
  plat::Timer timer_;
};

TEST_F(TXDisplayTest, FailureNamesTheDisplayAndHasTriedLocalhost) {
  unsetenv("XAUTHLOCALHOSTNAME");
  try {
    ui::AppLoopImpl loop(true, ":9876");
    FAIL() << "no exception";
  } catch (const plat::Exception& e) {
    EXPECT_STREQ(e.text(), "unable to open display \":9876\"");
  }
  ASSERT_NE(getenv("XAUTHLOCALHOSTNAME"), nullptr);
  EXPECT_STREQ(getenv("XAUTHLOCALHOSTNAME"), "localhost");
  unsetenv("XAUTHLOCALHOSTNAME");
  EXPECT_FALSE(tx::TXDisplay::isOpen());
  EXPECT_NO_THROW(ui::AppLoopImpl(false));
}

TEST_F(TXDisplayTest, OpensOnceWithWhatIsAskedFor) {
  start("320x200x8");
  EXPECT_STREQ(getenv("DISPLAY"), server().display().c_str());
  Display* const first = tx::TXDisplay::display();
  tx::TXDisplay::open(":9876");
  EXPECT_EQ(tx::TXDisplay::display(), first);
  EXPECT_EQ(tx::TXDisplay::depth(), 8);
  EXPECT_NE(tx::TXDisplay::font(), nullptr);
  EXPECT_EQ(tx::TXDisplay::colourMap(), DefaultColormap(first, 0));
  uint8_t map[tx::TXDisplay::kMaxButtons];
  EXPECT_EQ(tx::TXDisplay::pointerButtons(map), 8);
  EXPECT_EQ(map[2], 3);

  setParam("owncmap", "1");
  setParam("xsync", "1");
  start("320x200x8");
  EXPECT_NE(tx::TXDisplay::colourMap(), DefaultColormap(tx::TXDisplay::display(), 0));
  // Synchronous: the error is here before anything waits.
  XMapWindow(display(), 0x7fffff);
  EXPECT_TRUE(log_.has("BadWindow", 0, "ErrorCatcher"));
}

TEST_F(TXDisplayTest, EventsReachTheLoop) {
  use(support::XServer::xvfb());
  tx::TXDisplay::close();
  os::AppLoop loop(std::make_unique<ui::AppLoopImpl>(true, server().display().c_str()));
  ASSERT_TRUE(tx::TXDisplay::isOpen());
  struct Quitter : tx::TXEventHandler {
    void handleEvent(const XEvent& event) override {
      if (event.type == PropertyNotify && event.xproperty.window == tx::TXDisplay::root()) {
        os::AppLoop::quit(7);
      }
    }
  } quitter;
  const tx::RootEventMask mask(PropertyChangeMask);
  // Sent by the drain before the wait; the event comes while the loop waits.
  const Later store(20, [this] {
    XStoreBytes(client(), "x", 1);
    XFlush(client());
  });
  const Later guard(20000, [] { os::AppLoop::quit(1); });
  EXPECT_EQ(loop.run(), 7);
}

TEST_F(TXDisplayTest, AFloodOfEventsLeavesTheLoopItsTurns) {
  use(support::XServer::xvfb());
  tx::TXDisplay::close();
  os::AppLoop loop(std::make_unique<ui::AppLoopImpl>(true, server().display().c_str()));
  const tx::TXWindow window;
  // Each event brings two more.
  struct Flood : tx::TXEventHandler {
    void handleEvent(const XEvent& event) override {
      if (event.type == ClientMessage) send(event.xany.window);
    }
    static void send(Window window) {
      XEvent event{};
      event.xclient.type = ClientMessage;
      event.xclient.window = window;
      event.xclient.format = 32;
      for (int i = 0; i < 2; ++i) {
        XSendEvent(tx::TXDisplay::display(), window, False, NoEventMask, &event);
      }
      XSync(tx::TXDisplay::display(), False);
    }
  } flood;
  Flood::send(window.id());
  const Later stop(1, [] { os::AppLoop::quit(3); });
  EXPECT_EQ(loop.run(), 3);
}

TEST_F(TXDisplayTest, EventsThatRoundTripsFetchedAreNotForgotten) {
  use(support::XServer::xvfb());
  tx::TXDisplay::close();
  os::AppLoop loop(std::make_unique<ui::AppLoopImpl>(true, server().display().c_str()));
  const tx::TXWindow window;
  struct Chain : tx::TXEventHandler {
    void handleEvent(const XEvent& event) override {
      if (event.type != ClientMessage) return;
      if (++count == 5) os::AppLoop::quit(3);
      send(event.xany.window);
    }
    // Leaves the event in Xlib's queue, where no descriptor shows it.
    static void send(Window window) {
      XEvent event{};
      event.xclient.type = ClientMessage;
      event.xclient.window = window;
      event.xclient.format = 32;
      XSendEvent(tx::TXDisplay::display(), window, False, NoEventMask, &event);
      XSync(tx::TXDisplay::display(), False);
    }
    int count = 0;
  } chain;
  Chain::send(window.id());
  const Later guard(20000, [] { os::AppLoop::quit(9); });
  EXPECT_EQ(loop.run(), 3);
}

TEST_F(TXDisplayTest, LostConnectionEndsTheLoopWithStatusOne) {
  use(support::XServer::xvfb());
  tx::TXDisplay::close();
  {
    os::AppLoop loop(std::make_unique<ui::AppLoopImpl>(true, server().display().c_str()));
    tx::PixelBufferX11 buffer(tx::TXDisplay::root(), nullptr);
    EXPECT_EQ(ownSegments(), 1);
    const tx::TXWindow window;
    tx::RootEventMask mask(PropertyChangeMask);
    tx::getServerTime();
    const Later kill(1, [this] { killServer(); });
    const Later guard(20000, [] { os::AppLoop::quit(9); });
    EXPECT_EQ(loop.run(), 1);
    EXPECT_TRUE(tx::TXDisplay::isLost());
    EXPECT_FALSE(tx::TXDisplay::isOpen());
    // What is still called on the way out.
    buffer.grabRegion(buffer.getRect());
    buffer.clear();
    mask.set(0);
    EXPECT_EQ(tx::getServerTime(), 0u);
  }
  EXPECT_EQ(log_.count("Lost connection to X display", 0, "AgentAppX11"), 1) << log_.str();
  EXPECT_EQ(ownSegments(), 0);
  EXPECT_FALSE(tx::TXDisplay::isLost());

  // In the middle of work, without a loop.
  start();
  tx::PixelBufferX11 buffer(tx::TXDisplay::root(), nullptr);
  killServer();
  buffer.grabRegion(buffer.getRect());
  EXPECT_TRUE(tx::TXDisplay::isLost());
}

}  // namespace

#include "x11/TXFixture.h"

#include "tx/TXDisplay.h"

#include <stdlib.h>

#include "os/AppLoop.h"
#include "plat/Exception.h"
#include "support/ActionTimer.h"
#include "support/Thrown.h"
#include "tx/PixelBufferX11.h"
#include "tx/RootEventMask.h"
#include "tx/TXUtil.h"
#include "tx/TXWindow.h"
#include "ui/AppLoopImpl.h"

namespace {

// Runs a function later.
class Later : public test::ActionTimer {
 public:
  Later(int ms, std::function<void()> action) : ActionTimer(std::move(action)) { timer.start(ms); }
};

class TXDisplayTest : public TXFixture {
 protected:
  // A loop with the display of a new server.
  std::unique_ptr<os::AppLoop> startLoop() {
    use(support::XServer::xvfb());
    tx::TXDisplay::close();
    return std::make_unique<os::AppLoop>(
        std::make_unique<ui::AppLoopImpl>(true, server().display().c_str()));
  }
};

TEST_F(TXDisplayTest, FailureNamesTheDisplayAndHasTriedLocalhost) {
  unsetenv("XAUTHLOCALHOSTNAME");
  EXPECT_EQ(test::thrownText([] { ui::AppLoopImpl loop(true, ":9876"); }),
            "unable to open display \":9876\"");
  EXPECT_STREQ(getenv("XAUTHLOCALHOSTNAME"), "localhost");
  unsetenv("XAUTHLOCALHOSTNAME");
  EXPECT_FALSE(tx::TXDisplay::isOpen());
  EXPECT_NO_THROW(ui::AppLoopImpl(false));
}

TEST_F(TXDisplayTest, OpensWithWhatIsAskedFor) {
  start("320x200x8");
  EXPECT_STREQ(getenv("DISPLAY"), server().display().c_str());
  EXPECT_NE(tx::TXDisplay::font(), nullptr);
  EXPECT_EQ(tx::TXDisplay::colourMap(), DefaultColormap(display(), 0));

  setParam("owncmap", "1");
  setParam("xsync", "1");
  start("320x200x8");
  EXPECT_NE(tx::TXDisplay::colourMap(), DefaultColormap(display(), 0));
  // Synchronous: the error is here before anything waits.
  XMapWindow(display(), 0x7fffff);
  EXPECT_TRUE(log_.has("BadWindow", 0, "ErrorCatcher"));
}

// Answers each client message with others, which stay in Xlib's queue where no descriptor shows
// them.
struct Answerer : tx::TXEventHandler {
  explicit Answerer(int number) : copies(number) { send(); }
  void handleEvent(const XEvent& event) override {
    if (event.type != ClientMessage) return;
    count++;
    send();
  }
  void send() {
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = window.id();
    event.xclient.format = 32;
    for (int i = 0; i < copies; ++i) {
      XSendEvent(tx::TXDisplay::display(), window.id(), False, NoEventMask, &event);
    }
    XSync(tx::TXDisplay::display(), False);
  }
  const int copies;
  const tx::TXWindow window;
  int count = 0;
};

TEST_F(TXDisplayTest, AFloodOfEventsIsHandledAndLeavesTheLoopItsTurns) {
  for (const int copies : {1, 2}) {
    const auto loop = startLoop();
    Answerer flood(copies);
    const Later stop(300, [] { os::AppLoop::quit(3); });
    EXPECT_EQ(loop->run(), 3);
    EXPECT_GT(flood.count, 5);
  }
}

TEST_F(TXDisplayTest, LosesItsServerInTheMiddleOfWork) {
  start();
  tx::PixelBufferX11 buffer(tx::TXDisplay::root(), nullptr);
  tx::RootEventMask mask(PropertyChangeMask);
  killServer();
  buffer.grabRegion(buffer.getRect());
  EXPECT_TRUE(tx::TXDisplay::isLost());
  EXPECT_FALSE(tx::TXDisplay::isOpen());
  // What is still called on the way out.
  buffer.grabRegion(buffer.getRect());
  mask.set(0);
  EXPECT_EQ(tx::getServerTime(), 0u);
}

}  // namespace

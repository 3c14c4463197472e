#include "x11/TXFixture.h"

#include "tx/TXDisplay.h"

#include <X11/Xatom.h>
#include <stdlib.h>

#include "os/AppLoop.h"
#include "plat/Exception.h"
#include "support/ActionTimer.h"
#include "support/Environment.h"
#include "tx/Atoms.h"
#include "tx/EventPatience.h"
#include "tx/RootEventMask.h"
#include "ui/AppLoopImpl.h"

namespace {

using TXDisplayTest = TXFixture;

TEST_F(TXDisplayTest, FailureHasTriedLocalhost) {
  const support::Environment restored("XAUTHLOCALHOSTNAME", std::nullopt);
  EXPECT_THROW(ui::AppLoopImpl(true, ":9876"), plat::Exception);
  EXPECT_STREQ(getenv("XAUTHLOCALHOSTNAME"), "localhost");
  EXPECT_FALSE(tx::TXDisplay::isOpen());
}

TEST_F(TXDisplayTest, OpensWithWhatIsAskedFor) {
  setParam("owncmap", "1");
  setParam("xsync", "1");
  start("320x200x8");
  EXPECT_NE(tx::TXDisplay::colourMap(), DefaultColormap(display(), 0));
  // Synchronous: the error is here before anything waits.
  XMapWindow(display(), 0x7fffff);
  EXPECT_TRUE(log_.has("BadWindow", 0, "ErrorCatcher"));
}

// Events that may wait wake nobody, and are handled when they may not any more.
TEST_F(TXDisplayTest, SleepsThroughEventsThatCanWait) {
  struct Patient : tx::EventPatience {
    Patient() { askMe(true); }
    bool canEventsWait() const override { return isPatient; }
    bool isPatient = true;
  };
  struct Quitter : tx::TXEventHandler {
    void handleEvent(const XEvent& event) override {
      if (event.type == PropertyNotify) os::AppLoop::quit(3);
    }
    const tx::RootEventMask mask{PropertyChangeMask};
  };
  start();
  closeDisplay();
  os::AppLoop loop(std::make_unique<ui::AppLoopImpl>(true, server().display().c_str()));
  Patient patient;
  Quitter quitter;
  support::ActionTimer change([&] {
    XChangeProperty(client(), DefaultRootWindow(client()), XA_CUT_BUFFER7, XA_STRING, 8,
                    PropModeReplace, nullptr, 0);
    XSync(client(), False);
  });
  change.timer.start(50);
  support::ActionTimer enough([&] { patient.isPatient = false; });
  enough.timer.start(300);
  EXPECT_EQ(loop.run(), 3);
  EXPECT_FALSE(patient.isPatient) << "it was woken";
}

// Clients choose them, and they stand in log lines.
TEST_F(TXDisplayTest, NamesOfAtoms) {
  start();
  const Atom odd = XInternAtom(display(), "a\n0 Somebody: forged\x1b[2J", False);
  EXPECT_EQ(tx::atomName(odd), "a\\n0 Somebody: forged\\x1b[2J");
  EXPECT_EQ(tx::atomName(XA_PRIMARY), "PRIMARY");
  EXPECT_EQ(tx::atomName(0x7FFFFFF), "0x7ffffff");
}

}  // namespace

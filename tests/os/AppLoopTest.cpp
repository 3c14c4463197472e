#include "os/AppLoop.h"

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <string>

#include "io/FdSelectManager.h"
#include "os/AppLoopImpl.h"
#include "os/SignalHandler.h"
#include "support/ActionTimer.h"

namespace os {
namespace {

using support::ActionTimer;

TEST(AppLoopTest, QuitEndsTheLoopAfterTheTurn) {
  io::FdSelectManager descriptors;
  for (const int code : {7, 0}) {
    AppLoop loop(std::make_unique<AppLoopImpl>());
    std::string calls;
    ActionTimer quitting([&] {
      calls += "q";
      AppLoop::quit(code);
    });
    ActionTimer other([&] { calls += "o"; });
    quitting.timer.start(0);
    other.timer.start(0);
    EXPECT_EQ(loop.run(), code);
    EXPECT_EQ(calls, "qo");
  }
  EXPECT_EQ(AppLoop::instance(), nullptr);
}

TEST(SignalHandlerTest, BringsSignalsIntoTheLoopAndRestoresTheirDisposition) {
  struct QuitOnSignal : SignalHandler::Callback {
    virtual ~QuitOnSignal() { SignalHandler::instance().remove(this); }
    void gotSignal(int signal) override {
      name = SignalHandler::name(signal);
      AppLoop::quit(0);
    }
    std::string name;
  };
  struct sigaction ignored = {}, original, now;
  ignored.sa_handler = SIG_IGN;
  ASSERT_EQ(sigaction(SIGUSR2, &ignored, &original), 0);
  io::FdSelectManager descriptors;
  {
    AppLoop loop(std::make_unique<AppLoopImpl>());
    QuitOnSignal bridge;
    SignalHandler::instance().add(SIGUSR2, &bridge);
    raise(SIGUSR2);
    EXPECT_EQ(bridge.name, "");
    EXPECT_EQ(loop.run(), 0);
    EXPECT_EQ(bridge.name, "SIGUSR2");
    raise(SIGUSR2);  // its callback goes before the loop sees it
  }
  ASSERT_EQ(sigaction(SIGUSR2, nullptr, &now), 0);
  EXPECT_EQ(now.sa_handler, SIG_IGN);
  descriptors.process(0);
  sigaction(SIGUSR2, &original, nullptr);
}

}  // namespace
}  // namespace os

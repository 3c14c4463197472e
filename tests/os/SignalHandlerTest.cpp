#include "os/SignalHandler.h"

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <string>

#include "io/FdSelectManager.h"
#include "os/AppLoop.h"
#include "os/AppLoopImpl.h"

namespace {

using os::AppLoop;
using os::SignalHandler;

TEST(SignalHandlerTest, BringsSignalsIntoTheLoopAndRestoresTheirDisposition) {
  struct QuitOnSignal : SignalHandler::Callback {
    virtual ~QuitOnSignal() { SignalHandler::instance().remove(this); }
    void gotSignal(int signal) override {
      name = SignalHandler::name(signal);
      AppLoop::quit(0);
    }
    std::string name;
  };
  std::signal(SIGUSR2, SIG_IGN);
  io::FdSelectManager descriptors;
  {
    AppLoop loop(std::make_unique<os::AppLoopImpl>());
    QuitOnSignal bridge;
    SignalHandler::instance().add(SIGUSR2, &bridge);
    raise(SIGUSR2);
    EXPECT_EQ(loop.run(), 0);
    EXPECT_EQ(bridge.name, "SIGUSR2");
    raise(SIGUSR2);  // its callback goes before the loop sees it
  }
  EXPECT_EQ(std::signal(SIGUSR2, SIG_DFL), SIG_IGN);
  descriptors.process(0);
}

}  // namespace

#include "os/AppLoop.h"

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <memory>
#include <string>

#include "io/FdSelectManager.h"
#include "os/AppLoopImpl.h"
#include "os/SignalHandler.h"
#include "support/ActionTimer.h"

namespace os {
namespace {

using test::ActionTimer;

class HookedLoop : public AppLoopImpl {
 public:
  explicit HookedLoop(std::function<bool()> hook) : hook_(std::move(hook)) {}

 protected:
  NextWait beforeWait() override { return hook_() ? NextWait::kPoll : NextWait::kUnlimited; }

 private:
  std::function<bool()> hook_;
};

TEST(AppLoopTest, QuitEndsTheLoopAfterTheTurn) {
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

TEST(AppLoopTest, HookRunsBeforeEveryWaitAndMayAskForAPoll) {
  int drains = 0;
  ActionTimer periodic;
  AppLoop loop(std::make_unique<HookedLoop>([&] {
    if (++drains == 5) periodic.timer.start(0);
    if (drains == 6) AppLoop::quit(0);
    return drains < 5;
  }));
  const auto before = loop.impl().fdManager().statistics();
  loop.run();
  const auto& after = loop.impl().fdManager().statistics();
  EXPECT_EQ(drains, 6);
  EXPECT_EQ(after.turns - before.turns, 6u);
  EXPECT_EQ(after.requestedPolls - before.requestedPolls, 4u);
  EXPECT_EQ(after.wakeUps, before.wakeUps);
}

class QuitOnSignal : public SignalHandler::Callback {
 public:
  virtual ~QuitOnSignal() { SignalHandler::instance().remove(this); }
  void gotSignal(int signal) override {
    names += SignalHandler::name(signal);
    AppLoop::quit(0);
  }
  std::string names;
};

TEST(SignalHandlerTest, BringsSignalsIntoTheLoopAndRestoresTheirDisposition) {
  struct sigaction ignored = {}, original, now;
  ignored.sa_handler = SIG_IGN;
  ASSERT_EQ(sigaction(SIGUSR2, &ignored, &original), 0);
  {
    AppLoop loop(std::make_unique<AppLoopImpl>());
    QuitOnSignal bridge;
    SignalHandler::instance().add(SIGUSR2, &bridge);
    ActionTimer timer([&] {
      raise(SIGUSR2);
      EXPECT_EQ(bridge.names, "");
    });
    timer.timer.start(0);
    EXPECT_EQ(loop.run(), 0);
    EXPECT_EQ(bridge.names, "SIGUSR2");
    raise(SIGUSR2);  // its callback goes before the loop sees it
  }
  ASSERT_EQ(sigaction(SIGUSR2, nullptr, &now), 0);
  EXPECT_EQ(now.sa_handler, SIG_IGN);
  io::FdManager::instance().process(0);
  sigaction(SIGUSR2, &original, nullptr);
}

}  // namespace
}  // namespace os

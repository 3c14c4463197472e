#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "io/FdHandler.h"
#include "io/FdKicker.h"
#include "io/FdSelectManager.h"
#include "plat/Time.h"
#include "support/ActionTimer.h"
#include "support/ManualClock.h"
#include "support/SocketPair.h"

namespace io {
namespace {

class TestHandler : public FdHandler {
 public:
  using Action = std::function<void()>;

  using FdHandler::FdHandler;
  void readReady() override {
    if (onRead) onRead();
  }
  void writeReady() override {
    if (onWrite) onWrite();
  }
  void deferredCall() override {
    if (onDeferred) onDeferred();
  }
  using FdHandler::setFd;

  Action onRead, onWrite, onDeferred;
};

// Timers by the real clock would make the counts depend on the machine's load.
class FdManagerTest : public testing::Test {
 protected:
  test::ManualClock clock_;
  test::SocketPair pair_;
  FdSelectManager manager_{true};
};

TEST_F(FdManagerTest, WaitIsTheShorterOfTimerAndCaller) {
  pair_.put("x");  // so that no wait lasts
  TestHandler handler(pair_.ours.get());
  manager_.setWants(handler, true, false);
  test::ActionTimer action;
  const auto waited = [&](int timeoutMs) {
    EXPECT_TRUE(manager_.process(timeoutMs));
    return manager_.lastTimeoutMs();
  };
  EXPECT_EQ(waited(-1), -1);
  EXPECT_EQ(waited(5), 6);
  action.timer.start(20);
  EXPECT_EQ(waited(-1), 21);
  EXPECT_EQ(waited(5), 6);
  EXPECT_EQ(waited(30), 21);
  clock_.advanceTicks(20 * plat::kTicksPerMs - 1);
  EXPECT_EQ(waited(-1), 2);
  clock_.advanceTicks(1);
  EXPECT_EQ(waited(-1), 0);
  EXPECT_EQ(waited(-1), -1);
}

TEST_F(FdManagerTest, TimersThenDeferredThenReadsThenWritesFromTheBack) {
  pair_.put("x");
  std::string calls;
  std::vector<TestHandler> handlers(2);  // ascending addresses
  for (size_t i = 0; i < handlers.size(); ++i) {
    TestHandler& handler = handlers[i];
    const std::string name = std::to_string(i);
    handler.setFd(i == 0 ? pair_.ours.get() : pair_.peer.get());
    handler.onRead = [&calls, name] { calls += "r" + name; };
    handler.onWrite = [&calls, name] { calls += "w" + name; };
    handler.onDeferred = [&, name] {
      // It comes on the next turn, once.
      if (name == "0" && calls.size() < 8) manager_.defer(handlers[0]);
      calls += "d" + name;
    };
    manager_.setWants(handler, i == 0, i == 1);
    manager_.defer(handler);
    manager_.defer(handler);
  }
  test::ActionTimer action([&calls] { calls += "t"; });
  action.timer.start(0);
  manager_.process(-1);
  EXPECT_EQ(calls, "td1d0r0w1");
  manager_.process(-1);
  EXPECT_EQ(calls, "td1d0r0w1d0r0w1");
}

TEST_F(FdManagerTest, HandlersGoneInTheSameTurnAreNotCalled) {
  enum Way { kUnregister, kDestroy, kDestroyItself, kDropInterest };
  enum Set { kRead, kWrite, kDeferred };
  for (Way way : {kUnregister, kDestroy, kDestroyItself, kDropInterest}) {
    for (Set set : {kRead, kWrite, kDeferred}) {
      if (set == kDeferred && way == kDropInterest) continue;
      const test::SocketPair pair;
      pair.put("x");
      auto a = std::make_unique<TestHandler>(pair.ours.get());
      auto b = std::make_unique<TestHandler>(pair.ours.get());
      int calls = 0;
      const auto removing = [&](std::unique_ptr<TestHandler>& own,
                                std::unique_ptr<TestHandler>& other) {
        return [&] {
          ++calls;
          if (way == kUnregister) manager_.unregister(*other);
          if (way == kDropInterest) manager_.setWants(*other, set != kRead, set != kWrite);
          if (way == kDestroy || way == kDestroyItself) other.reset();
          if (way == kDestroyItself) own.reset();
        };
      };
      // Whichever comes first removes the other one.
      a->onRead = a->onWrite = a->onDeferred = removing(a, b);
      b->onRead = b->onWrite = b->onDeferred = removing(b, a);
      for (auto* handler : {a.get(), b.get()}) {
        manager_.setWants(*handler, set == kRead, set == kWrite);
        if (set == kDeferred) manager_.defer(*handler);
      }
      manager_.process(0);
      EXPECT_EQ(calls, 1) << way << set;
    }
  }
}

TEST_F(FdManagerTest, KickerWakesFromAnotherThread) {
  struct KickCounter : FdKicker::Callback {
    virtual ~KickCounter() = default;
    void kicked(FdKicker&) override { ++calls; }
    int calls = 0;
  } counter;
  FdKicker kicker(&counter);
  std::thread thread([&] { kicker.kick(); });
  EXPECT_TRUE(manager_.process(-1));
  thread.join();
  EXPECT_EQ(counter.calls, 1);
  EXPECT_FALSE(manager_.process(0));
  // More than the pipe holds: the kicks fail quietly.
  for (int i = 0; i < 100000; ++i) kicker.kick();
  EXPECT_TRUE(manager_.process(-1));
  EXPECT_EQ(counter.calls, 2);
}

}  // namespace
}  // namespace io

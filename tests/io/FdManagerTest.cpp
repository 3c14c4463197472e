#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "io/BeforeWait.h"
#include "io/FdHandler.h"
#include "io/FdKicker.h"
#include "io/FdPollManager.h"
#include "io/FdSelectManager.h"
#include "plat/Exception.h"
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
template <typename Manager>
class FdManagerTest : public testing::Test {
 protected:
  support::ManualClock clock_;
  support::SocketPair pair_;
  Manager manager_{true};
};
using Managers = testing::Types<FdSelectManager, FdPollManager>;
TYPED_TEST_SUITE(FdManagerTest, Managers);

TEST(FdManager, WaitIsTheShorterOfTimerAndCaller) {
  struct NeverWaiting : FdManager {
    NeverWaiting() : FdManager(true) {}
    void interestChanged(FdHandler&, bool, bool, bool) override {}
    bool wait(int timeoutMs) override {
      waitMs = timeoutMs;
      return true;
    }
    int waitMs = -2;
  } manager;
  support::ManualClock clock_;
  support::ActionTimer action;
  const auto waited = [&](int timeoutMs) {
    EXPECT_TRUE(manager.process(timeoutMs));
    return manager.waitMs;
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

TYPED_TEST(FdManagerTest, TimersThenDeferredThenReadsThenWritesFromTheBack) {
  this->pair_.put("x");
  std::string calls;
  std::vector<TestHandler> handlers(2);  // ascending addresses
  for (size_t i = 0; i < handlers.size(); ++i) {
    TestHandler& handler = handlers[i];
    const std::string name = std::to_string(i);
    handler.setFd(i == 0 ? this->pair_.ours.get() : this->pair_.peer.get());
    handler.onRead = [&calls, name] { calls += "r" + name; };
    handler.onWrite = [&calls, name] { calls += "w" + name; };
    handler.onDeferred = [&, name] {
      // It comes on the next turn, once.
      if (name == "0" && calls.size() < 8) this->manager_.defer(handlers[0]);
      calls += "d" + name;
    };
    this->manager_.setWants(handler, i == 0, i == 1);
    this->manager_.defer(handler);
    this->manager_.defer(handler);
  }
  support::ActionTimer action([&calls] { calls += "t"; });
  action.timer.start(0);
  this->manager_.process(-1);
  EXPECT_EQ(calls, "td1d0r0w1");
  this->manager_.process(-1);
  EXPECT_EQ(calls, "td1d0r0w1d0r0w1");
}

TYPED_TEST(FdManagerTest, HandlersGoneInTheSameTurnAreNotCalled) {
  enum Way { kUnregister, kDestroy, kDestroyItself, kDropInterest };
  enum Set { kRead, kWrite, kDeferred };
  for (Way way : {kUnregister, kDestroy, kDestroyItself, kDropInterest}) {
    for (Set set : {kRead, kWrite, kDeferred}) {
      if (set == kDeferred && way == kDropInterest) continue;
      const support::SocketPair pair;
      pair.put("x");
      auto a = std::make_unique<TestHandler>(pair.ours.get());
      auto b = std::make_unique<TestHandler>(pair.ours.get());
      int calls = 0;
      const auto removing = [&](std::unique_ptr<TestHandler>& own,
                                std::unique_ptr<TestHandler>& other) {
        return [&] {
          ++calls;
          if (way == kUnregister) this->manager_.unregister(*other);
          if (way == kDropInterest) this->manager_.setWants(*other, set != kRead, set != kWrite);
          if (way == kDestroy || way == kDestroyItself) other.reset();
          if (way == kDestroyItself) own.reset();
        };
      };
      // Whichever comes first removes the other one.
      a->onRead = a->onWrite = a->onDeferred = removing(a, b);
      b->onRead = b->onWrite = b->onDeferred = removing(b, a);
      for (auto* handler : {a.get(), b.get()}) {
        this->manager_.setWants(*handler, set == kRead, set == kWrite);
        if (set == kDeferred) this->manager_.defer(*handler);
      }
      this->manager_.process(0);
      EXPECT_EQ(calls, 1) << way << set;
    }
  }
}

TYPED_TEST(FdManagerTest, KickerWakesFromAnotherThread) {
  struct KickCounter : FdKicker::Callback {
    virtual ~KickCounter() = default;
    void kicked(FdKicker&) override { ++calls; }
    int calls = 0;
  } counter;
  FdKicker kicker(&counter);
  std::thread thread([&] { kicker.kick(); });
  EXPECT_TRUE(this->manager_.process(-1));
  thread.join();
  EXPECT_EQ(counter.calls, 1);
  EXPECT_FALSE(this->manager_.process(0));
  // More than the pipe holds: the kicks fail quietly.
  for (int i = 0; i < 100000; ++i) kicker.kick();
  EXPECT_TRUE(this->manager_.process(-1));
  EXPECT_EQ(counter.calls, 2);
}

// What is put off is done once, before the loop sleeps, and not for those that have gone.
TYPED_TEST(FdManagerTest, WorkBeforeTheWait) {
  struct Counter : BeforeWait::Callback {
    void beforeWait() override {
      ++calls;
      if (again) due.request();
    }
    BeforeWait due{*this};
    int calls = 0;
    bool again = false;
  } counter;
  {
    Counter gone;
    gone.due.request();
  }
  counter.due.request();
  counter.due.request();
  EXPECT_FALSE(this->manager_.process(0));
  EXPECT_EQ(counter.calls, 1);
  counter.again = true;
  counter.due.request();
  // Also one that never has enough leaves the loop its turns.
  EXPECT_TRUE(this->manager_.process(-1));
  EXPECT_EQ(counter.calls, 2);
}

// A descriptor above what a set of descriptors holds, as servers have.
TEST(FdManager, HighDescriptors) {
  const support::SocketPair pair;
  pair.put("x");
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit more{std::max<rlim_t>(limit.rlim_cur, 2048), limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &more), 0);
  TestHandler handler(plat::FileDescriptor(fcntl(pair.ours.get(), F_DUPFD_CLOEXEC, 1500)));
  ASSERT_GE(handler.fd(), 1500);
  int reads = 0;
  handler.onRead = [&] { ++reads; };
  {
    FdPollManager manager(true);
    manager.requirePollable(handler.fd());
    manager.setWants(handler, true, false);
    EXPECT_TRUE(manager.process(-1));
  }
  FdSelectManager manager(true);
  EXPECT_THROW(manager.requirePollable(handler.fd()), plat::Exception);
  manager.setWants(handler, true, false);
  EXPECT_FALSE(manager.process(0));
  EXPECT_EQ(reads, 1);
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace
}  // namespace io

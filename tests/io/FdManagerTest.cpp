#include <fcntl.h>
#include <gtest/gtest.h>

#include <csignal>
#include <ctime>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
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
  void managerGone() override {
    if (onManagerGone) onManagerGone();
  }
  using FdHandler::setFd;

  Action onRead, onWrite, onDeferred, onManagerGone;
};

// Timers by the real clock would make the counts depend on the machine's load.
class FdManagerTest : public testing::Test {
 protected:
  const FdManager::Statistics& statistics() const { return manager_.statistics(); }

  test::ManualClock clock_;
  test::SocketPair pair_;
  FdSelectManager manager_{true};
};

TEST_F(FdManagerTest, TimeoutConversion) {
  const int most = std::numeric_limits<int>::max();
  for (auto [ms, expected] : {std::pair{-5, -1},
                              {-1, -1},
                              {0, 0},
                              {1, 2},
                              {5, 6},
                              {999, 1000},
                              {most - 1, most},
                              {most, most}}) {
    EXPECT_EQ(FdSelectManager::waitMs(ms), expected) << ms;
  }
}

TEST_F(FdManagerTest, WaitIsTheShorterOfTimerAndCaller) {
  pair_.put("x");  // so that no wait lasts
  TestHandler handler(pair_.ours.get());
  manager_.setWants(handler, true, false);
  test::ActionTimer action;
  plat::Timer& timer = action.timer;
  const auto waited = [&](int timeoutMs) {
    EXPECT_TRUE(manager_.process(timeoutMs));
    return statistics().lastTimeoutMs;
  };
  EXPECT_EQ(waited(-1), -1);
  EXPECT_EQ(waited(5), 6);
  timer.start(20);
  EXPECT_EQ(waited(-1), 21);
  EXPECT_EQ(waited(5), 6);
  EXPECT_EQ(waited(30), 21);
  clock_.advanceTicks(20 * plat::kTicksPerMs - 1);
  EXPECT_EQ(waited(-1), 2);
  EXPECT_EQ(statistics().zeroTimeoutWaits, 0u);
  EXPECT_EQ(statistics().wakeUps, 6u);
  clock_.advanceTicks(1);
  EXPECT_EQ(waited(-1), 0);
  EXPECT_FALSE(timer.isRunning());
  EXPECT_EQ(waited(-1), -1);
  EXPECT_EQ(statistics().zeroTimeoutWaits, 1u);
  EXPECT_EQ(statistics().requestedPolls, 0u);
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
    handler.onDeferred = [&calls, name] { calls += "d" + name; };
    manager_.setWants(handler, i == 0, i == 1);
    manager_.defer(handler);
  }
  test::ActionTimer action([&calls] { calls += "t"; });
  action.timer.start(0);
  manager_.process(-1);
  EXPECT_EQ(calls, "td1d0r0w1");

  // Several readers of one descriptor, and one that does not want to read.
  calls.clear();
  handlers[1].setFd(pair_.ours.get());
  for (TestHandler& handler : handlers) manager_.setWants(handler, true, false);
  manager_.process(-1);
  EXPECT_EQ(calls, "r1r0");
  calls.clear();
  manager_.setWants(handlers[0], false, false);
  manager_.process(-1);
  EXPECT_EQ(calls, "r1");
}

TEST_F(FdManagerTest, HandlersGoneInTheSameTurnAreNotCalled) {
  enum Way { kUnregister, kDestroy, kDropInterest };
  enum Set { kRead, kWrite, kDeferred };
  for (Way way : {kUnregister, kDestroy, kDropInterest}) {
    for (Set set : {kRead, kWrite, kDeferred}) {
      if (set == kDeferred && way == kDropInterest) continue;
      const test::SocketPair pair;
      pair.put("x");
      auto a = std::make_unique<TestHandler>(pair.ours.get());
      auto b = std::make_unique<TestHandler>(pair.ours.get());
      int calls = 0;
      const auto removing = [&](std::unique_ptr<TestHandler>& other) {
        return [&] {
          ++calls;
          if (way == kUnregister) manager_.unregister(*other);
          if (way == kDestroy) other.reset();
          if (way == kDropInterest) manager_.setWants(*other, set != kRead, set != kWrite);
        };
      };
      // Whichever comes first removes the other one.
      a->onRead = a->onWrite = a->onDeferred = removing(b);
      b->onRead = b->onWrite = b->onDeferred = removing(a);
      for (auto* handler : {a.get(), b.get()}) {
        manager_.setWants(*handler, set == kRead, set == kWrite);
        if (set == kDeferred) manager_.defer(*handler);
      }
      manager_.process(0);
      EXPECT_EQ(calls, 1) << way << set;
    }
  }
}

TEST_F(FdManagerTest, HandlerDestroyedInItsOwnCallback) {
  pair_.put("x");
  for (const bool deferred : {false, true}) {
    auto handler = std::make_unique<TestHandler>(pair_.ours.get());
    handler->onRead = handler->onDeferred = [&] { handler.reset(); };
    manager_.setWants(*handler, true, true);
    if (deferred) manager_.defer(*handler);
    EXPECT_TRUE(manager_.process(-1));
    EXPECT_EQ(handler, nullptr);
    EXPECT_FALSE(manager_.process(0));
  }
}

TEST_F(FdManagerTest, DeferredCallsComeOnTheNextTurnOnce) {
  TestHandler handler;
  int calls = 0;
  handler.onDeferred = [&] {
    if (++calls == 1) manager_.defer(handler);
  };
  manager_.defer(handler);
  manager_.defer(handler);
  manager_.process(-1);
  EXPECT_EQ(calls, 1);
  manager_.process(-1);
  EXPECT_EQ(calls, 2);
  EXPECT_FALSE(manager_.process(0));
  EXPECT_EQ(calls, 2);
}

TEST_F(FdManagerTest, ExceptionOfACallbackLosesNothing) {
  pair_.put("x");
  std::vector<TestHandler> handlers(2);
  std::string calls;
  handlers[1].onDeferred = [] { throw std::runtime_error("test"); };
  handlers[0].onDeferred = [&] { calls += "d"; };
  handlers[0].setFd(pair_.ours.get());
  handlers[0].onRead = [&] { calls += "r"; };
  manager_.setWants(handlers[0], true, false);
  for (TestHandler& handler : handlers) manager_.defer(handler);
  EXPECT_THROW(manager_.process(-1), std::runtime_error);
  EXPECT_EQ(calls, "");
  manager_.process(-1);
  EXPECT_EQ(calls, "dr");
}

TEST_F(FdManagerTest, TurnInsideACallback) {
  pair_.put("x");
  std::vector<TestHandler> handlers(3);
  std::string calls;
  int depth = 0;
  for (TestHandler& handler : handlers) {
    handler.setFd(pair_.ours.get());
    handler.onRead = [&] {
      calls += 'r';
      if (depth++ == 0) manager_.process(-1);
    };
    manager_.setWants(handler, true, false);
  }
  manager_.process(-1);
  // The inner turn calls all three; nothing of the outer one is called on old news.
  EXPECT_EQ(calls, "rrrr");
}

void ignoreSignal(int) {}

TEST_F(FdManagerTest, DescriptorsThatSelectCannotTakeAreNeverPolled) {
  pair_.peer.reset();
  for (const int fd : {1023, 1024}) {
    TestHandler handler{plat::FileDescriptor(fcntl(pair_.ours.get(), F_DUPFD_CLOEXEC, fd))};
    if (handler.fd() != fd) GTEST_SKIP() << "needs more descriptors";
    manager_.setWants(handler, true, true, true);
    EXPECT_EQ(manager_.process(0), fd < 1024);
  }
}

TEST_F(FdManagerTest, InterruptedWaitIsATurnWithoutNews) {
  struct sigaction action = {}, former;
  action.sa_handler = ignoreSignal;
  ASSERT_EQ(sigaction(SIGUSR1, &action, &former), 0);
  TestHandler handler(pair_.ours.get());
  handler.onRead = [] { ADD_FAILURE(); };
  manager_.setWants(handler, true, false);
  // Interrupts again and again, so that one falls into the wait.
  sigevent event = {};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = SIGUSR1;
  timer_t timer;
  ASSERT_EQ(timer_create(CLOCK_MONOTONIC, &event, &timer), 0);
  const itimerspec period = {{0, 2000000}, {0, 2000000}};
  ASSERT_EQ(timer_settime(timer, 0, &period, nullptr), 0);
  EXPECT_FALSE(manager_.process(-1));
  timer_delete(timer);
  sigaction(SIGUSR1, &former, nullptr);
}

TEST_F(FdManagerTest, HandlersThatOutliveTheirManager) {
  TestHandler handler(pair_.ours.get());
  int gone = 0;
  handler.onManagerGone = [&] { ++gone; };
  {
    FdSelectManager nested(true);
    EXPECT_EQ(&FdManager::instance(), &nested);
    nested.setWants(handler, true, false);
    nested.defer(handler);
  }
  EXPECT_EQ(gone, 1);
  EXPECT_FALSE(handler.isRegistered());
  EXPECT_EQ(&FdManager::instance(), &manager_);
  manager_.setWants(handler, true, false);
}

class KickCounter : public FdKicker::Callback {
 public:
  virtual ~KickCounter() = default;
  void kicked(FdKicker&) override {
    ++calls;
    if (owner) owner->reset();
  }
  int calls = 0;
  std::unique_ptr<FdKicker>* owner = nullptr;
};

TEST_F(FdManagerTest, KickerWakesFromAnotherThread) {
  KickCounter counter;
  auto kicker = std::make_unique<FdKicker>(&counter);
  std::thread thread([&] { kicker->kick(); });
  EXPECT_TRUE(manager_.process(-1));
  thread.join();
  EXPECT_EQ(counter.calls, 1);
  EXPECT_FALSE(manager_.process(0));

  // More than the pipe holds: the kicks fail quietly, the drain is complete.
  for (int i = 0; i < 100000; ++i) kicker->kick();
  EXPECT_TRUE(manager_.process(-1));
  EXPECT_EQ(counter.calls, 2);
  EXPECT_FALSE(manager_.process(0));

  counter.owner = &kicker;
  kicker->kick();
  EXPECT_TRUE(manager_.process(-1));
  EXPECT_EQ(kicker, nullptr);
}

}  // namespace
}  // namespace io

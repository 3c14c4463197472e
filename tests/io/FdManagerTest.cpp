#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <csignal>
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
#include "plat/FileDescriptor.h"
#include "plat/Time.h"
#include "support/ActionTimer.h"
#include "support/ManualClock.h"
#include "support/SocketPair.h"

namespace io {
namespace {

struct TestHandler : FdHandler {
  using FdHandler::FdHandler;
  void readReady() override { call('r'); }
  void writeReady() override { call('w'); }
  void deferredCall() override { call('d'); }
  using FdHandler::setFd;

  std::function<void(char what)> call;
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
  support::ManualClock clock;
  support::ActionTimer action;
  const auto waited = [&](int timeoutMs) {
    EXPECT_TRUE(manager.process(timeoutMs));
    return manager.waitMs;
  };
  EXPECT_EQ(waited(-1), -1);
  action.timer.start(20);
  EXPECT_EQ(waited(-1), 21);
  EXPECT_EQ(waited(5), 6);
  clock.advanceTicks(20 * plat::kTicksPerMs - 1);
  EXPECT_EQ(waited(30), 2);
  clock.advanceTicks(1);
  EXPECT_EQ(waited(-1), 0);
}

TYPED_TEST(FdManagerTest, TimersThenDeferredThenReadsThenWritesFromTheBack) {
  this->pair_.put("x");
  std::string calls;
  std::vector<TestHandler> handlers(2);  // ascending addresses
  for (size_t i = 0; i < handlers.size(); ++i) {
    TestHandler& handler = handlers[i];
    const std::string name = std::to_string(i);
    handler.setFd(i == 0 ? this->pair_.ours.get() : this->pair_.peer.get());
    handler.call = [&, name](char what) {
      // It comes on the next turn, once.
      if (what == 'd' && name == "0" && calls.size() < 8) this->manager_.defer(handlers[0]);
      calls += what + name;
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
  for (Way way : {kUnregister, kDestroy, kDestroyItself, kDropInterest}) {
    for (const char set : {'r', 'w', 'd'}) {
      if (set == 'd' && way == kDropInterest) continue;
      const support::SocketPair pair;
      pair.put("x");
      std::unique_ptr<TestHandler> handlers[2];
      int calls = 0;
      for (int i = 0; i < 2; ++i) {
        handlers[i] = std::make_unique<TestHandler>(pair.ours.get());
        // Whichever comes first removes the other one.
        handlers[i]->call = [&, i](char) {
          auto& other = handlers[1 - i];
          ++calls;
          if (way == kUnregister) this->manager_.unregister(*other);
          if (way == kDropInterest) this->manager_.setWants(*other, set != 'r', set != 'w');
          if (way == kDestroy || way == kDestroyItself) other.reset();
          if (way == kDestroyItself) handlers[i].reset();
        };
        this->manager_.setWants(*handlers[i], set == 'r', set == 'w');
        if (set == 'd') this->manager_.defer(*handlers[i]);
      }
      this->manager_.process(0);
      EXPECT_EQ(calls, 1) << way << set;
    }
  }
}

// They would be written beyond the sets.
TEST(FdSelectManager, SkipsWhatSetsCannotHold) {
  FdSelectManager manager;
  for (const int fd : {-1, FD_SETSIZE}) {
    TestHandler handler(fd);
    manager.setWants(handler, true, true);
    EXPECT_FALSE(manager.process(0)) << fd;
  }
}

TYPED_TEST(FdManagerTest, WantingMoreLosesNothing) {
  this->pair_.put("x");
  std::vector<TestHandler> handlers(2);
  int calls = 0;
  for (TestHandler& handler : handlers) {
    handler.setFd(this->pair_.ours.get());
    handler.call = [&](char) {
      ++calls;
      for (TestHandler& each : handlers) this->manager_.setWants(each, true, false);
    };
    this->manager_.setWants(handler, true, false);
  }
  this->manager_.process(0);
  EXPECT_EQ(calls, 2);
}

TYPED_TEST(FdManagerTest, UrgentDataIsExceptional) {
  const plat::FileDescriptor listener(socket(AF_INET, SOCK_STREAM, 0));
  const plat::FileDescriptor client(socket(AF_INET, SOCK_STREAM, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  socklen_t length = sizeof address;
  ASSERT_EQ(bind(listener.get(), any, length), 0);
  ASSERT_EQ(listen(listener.get(), 1), 0);
  ASSERT_EQ(getsockname(listener.get(), any, &length), 0);
  ASSERT_EQ(connect(client.get(), any, length), 0);
  const plat::FileDescriptor accepted(accept(listener.get(), nullptr, nullptr));
  TestHandler handler(accepted.get());
  std::string calls;
  handler.call = [&](char what) { calls += what; };
  this->manager_.setWants(handler, false, false, true);
  ASSERT_EQ(send(client.get(), "x", 1, 0), 1);
  this->manager_.process(0);
  EXPECT_EQ(calls, "");
  ASSERT_EQ(send(client.get(), "!", 1, MSG_OOB), 1);
  this->manager_.process(0);
  EXPECT_EQ(calls, "r");
}

TYPED_TEST(FdManagerTest, WritersThatAReaderStops) {
  this->pair_.put("x");
  std::string calls;
  TestHandler handler(this->pair_.ours.get());
  handler.call = [&](char what) {
    calls += what;
    this->manager_.setWants(handler, true, false);
  };
  this->manager_.setWants(handler, true, true);
  this->manager_.process(0);
  EXPECT_EQ(calls, "r");
}

TYPED_TEST(FdManagerTest, WhatAnExceptionLeftIsDoneOnce) {
  std::string calls;
  std::vector<TestHandler> handlers(2);
  for (size_t i = 0; i < handlers.size(); ++i) {
    handlers[i].call = [&calls, i](char) {
      calls += std::to_string(i);
      if (i == 1) throw plat::Exception("expected");
    };
    this->manager_.defer(handlers[i]);
  }
  EXPECT_THROW(this->manager_.process(0), plat::Exception);
  EXPECT_EQ(calls, "1");
  for (int turn = 0; turn < 3; ++turn) this->manager_.process(0);
  EXPECT_EQ(calls, "10");
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
  // More than the pipe holds: the kicks fail quietly.
  for (int i = 0; i < 100000; ++i) kicker.kick();
  EXPECT_TRUE(this->manager_.process(-1));
  EXPECT_EQ(counter.calls, 2);
  EXPECT_FALSE(this->manager_.process(0));
}

TYPED_TEST(FdManagerTest, SignalsAreNoFailures) {
  const auto former = std::signal(SIGALRM, [](int) {});
  const itimerval often{{0, 1000}, {0, 1000}}, never{};
  setitimer(ITIMER_REAL, &often, nullptr);
  EXPECT_NO_THROW(EXPECT_FALSE(this->manager_.process(10000)));
  setitimer(ITIMER_REAL, &never, nullptr);
  std::signal(SIGALRM, former);
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
  std::make_unique<Counter>()->due.request();  // of one that has gone
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

}  // namespace
}  // namespace io

#pragma once

#include <cstdint>
#include <vector>

#include "plat/timer/Timer.h"
#include "plat/timer/TimerManager.h"

namespace io {

class FdHandler;

// A thread's descriptors and timers: waits until a descriptor is ready or a timer is due, then
// calls those concerned. Managers nest; the last one made on a thread is the thread's manager until
// it is destroyed. Only defer(), registration and process() of the thread's own manager may be
// called; an FdKicker is the way in from elsewhere.
class FdManager : private plat::Timer::Callback, private plat::TimerManager::Observer {
 public:
  virtual ~FdManager();
  FdManager(const FdManager&) = delete;
  FdManager& operator=(const FdManager&) = delete;

  // The thread's manager. The first call in a process without one makes the FdSelectManager that
  // lives until exit; on a further thread a manager must exist.
  static FdManager& instance();

  // Registers the handler (not owned), or changes what it waits for. Exceptional conditions are
  // reported as readable. A handler that wants nothing stays registered and can be deferred.
  void setWants(FdHandler& handler, bool read, bool write, bool exceptions = false);
  // Harmless for a handler that is not registered here. Nothing is called on it afterwards.
  void unregister(FdHandler& handler);

  // Has the handler (registered or not) called back with deferredCall() on the next turn, which
  // comes at once.
  void defer(FdHandler& handler);
  // Makes the next wait return at once.
  void wake();

  // One turn: waits at most timeoutMs (-1 without limit), runs the timers that are due, then the
  // deferred, readable and writable handlers. Returns whether a descriptor was ready or a timer
  // ran. Throws SystemException "select".
  virtual bool process(int timeoutMs) = 0;

  // Milliseconds given to the last wait, -1 without limit.
  int lastTimeoutMs() const { return lastTimeoutMs_; }

 protected:
  // Handlers sorted by address, without duplicates.
  class HandlerSet {
   public:
    void insert(FdHandler& handler);
    void erase(const FdHandler& handler);
    bool contains(const FdHandler& handler) const;
    bool empty() const { return handlers_.empty(); }
    void clear() { handlers_.clear(); }
    // Removes and returns the last one.
    FdHandler& takeLast();
    void swap(HandlerSet& other) noexcept { handlers_.swap(other.handlers_); }
    const std::vector<FdHandler*>& handlers() const { return handlers_; }

   private:
    std::vector<FdHandler*> handlers_;
  };

  explicit FdManager(bool nested);

  virtual void interestChanged(FdHandler& handler, bool read, bool write, bool exceptions) = 0;
  // For the destructor of each derived class: tells the handlers that are left.
  void unregisterAll();

  // Puts back what a turn that ended in an exception left undone.
  void beginTurn();
  // Timers, then the three ready sets. Returns whether a timer ran.
  bool dispatch();

  std::vector<FdHandler*> registered_;
  HandlerSet readReady_;
  HandlerSet writeReady_;
  HandlerSet deferred_;
  HandlerSet readWorking_;
  HandlerSet writeWorking_;
  HandlerSet deferredWorking_;
  plat::TimerManager timers_;
  int lastTimeoutMs_ = -1;

 private:
  friend class FdHandler;

  void timerCallback(plat::Timer& timer) override;
  void nextTimerChanged(int msUntilNext) override;
  void enroll(FdHandler& handler);
  // What is known of its descriptor does not hold any more.
  void dropReadiness(FdHandler& handler);

  plat::Timer wakeTimer_;
  FdManager* previous_;
};

}  // namespace io

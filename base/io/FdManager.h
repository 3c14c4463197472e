#pragma once

#include <cstdint>
#include <vector>

#include "io/FdHandler.h"
#include "plat/timer/TimerManager.h"

namespace io {

// A thread's descriptors and timers: waits until a descriptor is ready or a timer is due, then
// calls those concerned. Managers nest; the last one made on a thread is the thread's manager until
// it is destroyed. Only defer(), registration and process() of the thread's own manager may be
// called; an FdKicker is the way in from elsewhere.
class FdManager : private FdHandler::Registry {
 public:
  // What is done once before the next wait, see BeforeWait.
  class Due {
   public:
    virtual void due() = 0;
    // The manager ends first.
    virtual void forgotten() = 0;

   protected:
    ~Due() = default;
  };

  virtual ~FdManager();
  FdManager(const FdManager&) = delete;
  FdManager& operator=(const FdManager&) = delete;

  // The thread's manager, which must exist: the application makes it.
  static FdManager& instance();

  // Registers the handler (not owned), or changes what it waits for. Exceptional conditions are
  // reported as readable. A handler that wants nothing stays registered and can be deferred.
  void setWants(FdHandler& handler, bool read, bool write, bool exceptions = false);
  // Harmless for a handler that is not registered here. Nothing is called on it afterwards.
  void unregister(FdHandler& handler) override;
  // Throws Exception for a descriptor that would never be polled.
  virtual void requirePollable(int /*fd*/) const {}

  // Has the handler (registered or not) called back with deferredCall() on the next turn, which
  // comes at once.
  void defer(FdHandler& handler);
  // Makes the next wait return at once.
  void wake();
  // Neither owned nor asked for twice.
  void doBeforeWait(Due& due) { beforeWait_.push_back(&due); }
  void cancelBeforeWait(const Due& due) { std::erase(beforeWait_, &due); }
  // Part of each turn; for what is due when no turn follows.
  void runBeforeWait();

  // One turn: does what is due before the wait, waits at most timeoutMs (-1 without limit), runs
  // the timers that are due, then the deferred, readable and writable handlers. Returns whether a
  // descriptor was ready or a timer ran. Throws SystemException, named after the call that waits.
  bool process(int timeoutMs);

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
  // Waits that long (-1 without limit) and fills the sets of handlers that are ready. Returns
  // whether a descriptor was.
  virtual bool wait(int timeoutMs) = 0;
  // For the destructor of each derived class.
  void unregisterAll();

  std::vector<FdHandler*> registered_;
  HandlerSet readReady_;
  HandlerSet writeReady_;

 private:
  void dropReadiness(FdHandler& handler) override;
  void enroll(FdHandler& handler);
  // Puts back what a turn that ended in an exception left undone.
  void beginTurn();
  // Timers, then the three ready sets. Returns whether a timer ran.
  bool dispatch();

  std::vector<Due*> beforeWait_;
  HandlerSet deferred_;
  HandlerSet readWorking_;
  HandlerSet writeWorking_;
  HandlerSet deferredWorking_;
  plat::TimerManager timers_;
  bool woken_ = false;
  FdManager* previous_;
};

}  // namespace io

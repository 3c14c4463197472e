#pragma once

#include <cstdint>
#include <optional>

#include "plat/timer/Timer.h"
#include "rfb/SimpleUpdateTracker.h"

namespace svr {

// Releases changes in batches at a bounded rate: a batch is ready `UpdateBatchDelay` ms after its
// first change, waits until an update is wanted, and goes out `UpdatePeriod` ms after the one
// before at the earliest.
class UpdateScheduler : private plat::Timer::Callback {
 public:
  // The consumer of updates.
  class Callback {
   public:
    virtual bool isUpdateWanted() = 0;
    // Called just before each update is taken from the tracker; may add to it.
    virtual void preUpdate() = 0;
    virtual void performUpdate(const rfb::UpdateInfo& update) = 0;

   protected:
    ~Callback() = default;
  };

  // The callback is not owned.
  explicit UpdateScheduler(Callback& callback) : callback_(callback) {}

  rfb::SimpleUpdateTracker& tracker() { return tracker_; }

  // There is, or may be, something new in the tracker.
  void changed();
  // Whether a batch is waited for that will be ready in so short a time that all else may wait,
  // too.
  bool isBatchNear() const;
  // Releases a ready batch if an update is wanted and may go out by now.
  void tryUpdate();
  // Drops everything: the tracker's contents, the batch, the running timers.
  void reset();

 private:
  void timerCallback(plat::Timer& timer) override;
  // What is left of the time in which no update may follow the last one, rounded up.
  int pauseLeftMs() const;

  Callback& callback_;
  rfb::SimpleUpdateTracker tracker_;
  plat::Timer periodTimer_{this};  // runs only while a wanted batch waits for the period's end
  plat::Timer batchTimer_{this};
  std::optional<int64_t> lastUpdate_;  // monotonic time
  bool pending_ = false;               // a batch is ready
};

}  // namespace svr

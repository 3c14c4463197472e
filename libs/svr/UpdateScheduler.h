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
  // Called just before each update is taken from the tracker; may add to it.
  class PreUpdateHook {
   public:
    virtual void preUpdate() = 0;

   protected:
    ~PreUpdateHook() = default;
  };

  // The consumer of updates.
  class Callback {
   public:
    virtual bool isUpdateWanted() = 0;
    virtual void performUpdate(const rfb::UpdateInfo& update) = 0;

   protected:
    ~Callback() = default;
  };

  // The hook may be null; neither is owned.
  UpdateScheduler(Callback* callback, PreUpdateHook* hook);

  rfb::SimpleUpdateTracker& tracker() { return tracker_; }

  // There is, or may be, something new in the tracker.
  void changed();
  // Releases a ready batch if an update is wanted and may go out by now.
  void tryUpdate();
  // Drops everything: the tracker's contents, the batch, the running timers.
  void reset();

 private:
  void timerCallback(plat::Timer& timer) override;

  rfb::SimpleUpdateTracker tracker_;
  PreUpdateHook* hook_;
  plat::Timer periodTimer_{this};  // runs only while a wanted batch waits for the period's end
  plat::Timer batchTimer_{this};
  std::optional<int64_t> lastUpdate_;  // monotonic time
  Callback* callback_;
  bool pending_ = false;
};

}  // namespace svr

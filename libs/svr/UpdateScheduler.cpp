#include "svr/UpdateScheduler.h"

#include <climits>

#include "plat/Time.h"
#include "plat/config/IntParameter.h"

namespace svr {

namespace {

plat::IntParameter updatePeriod("UpdatePeriod", "Minimum time in milliseconds between updates", 25,
                                0, INT_MAX, true);
plat::IntParameter updateBatchDelay("UpdateBatchDelay",
                                    "Time in milliseconds to delay in order to batch updates", 1, 0,
                                    INT_MAX, true);

}  // namespace

void UpdateScheduler::changed() {
  if (!batchTimer_.isRunning()) batchTimer_.start(updateBatchDelay.value());
}

void UpdateScheduler::tryUpdate() {
  if (periodTimer_.isRunning() || !pending_ || !callback_.isUpdateWanted()) return;
  const int64_t now = plat::monotonicTime();
  const int64_t period = updatePeriod.value() * plat::kTicksPerMs;
  const int64_t elapsed = lastUpdate_ ? now - *lastUpdate_ : period;
  if (elapsed >= 0 && elapsed < period) {
    const int64_t left = period - elapsed + plat::kTicksPerMs - 1;
    periodTimer_.start(static_cast<int>(left / plat::kTicksPerMs));
    return;
  }
  pending_ = false;
  lastUpdate_ = now;
  callback_.preUpdate();
  // Moves are sent as changes: their source may have changed since.
  tracker_.flattenCopied();
  callback_.performUpdate(tracker_.take());
}

void UpdateScheduler::reset() {
  periodTimer_.stop();
  lastUpdate_.reset();
  batchTimer_.stop();
  pending_ = false;
  tracker_.clear();
}

void UpdateScheduler::timerCallback(plat::Timer& timer) {
  if (&timer == &batchTimer_) pending_ = true;
  tryUpdate();
}

}  // namespace svr

#include "svr/UpdateScheduler.h"

#include <algorithm>
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

// An update that is this near is waited for without looking at what else changes.
constexpr int kNearMs = 2;

}  // namespace

bool UpdateScheduler::isBatchNear() const {
  return batchTimer_.isRunning() && batchTimer_.intervalMs() <= kNearMs;
}

void UpdateScheduler::changed() {
  // A batch that would be ready within the period is waited for to the period's end at once.
  if (batchTimer_.isRunning()) return;
  batchTimer_.start(std::max(updateBatchDelay.value(), pauseLeftMs()));
}

int UpdateScheduler::pauseLeftMs() const {
  if (!lastUpdate_) return 0;
  const int64_t elapsed = plat::monotonicTime() - *lastUpdate_;
  if (elapsed < 0) return 0;
  return static_cast<int>(plat::msRoundedUp(updatePeriod.value() * plat::kTicksPerMs - elapsed));
}

void UpdateScheduler::tryUpdate() {
  if (periodTimer_.isRunning() || !pending_ || !callback_.isUpdateWanted()) return;
  if (const int left = pauseLeftMs()) {
    periodTimer_.start(left);
    return;
  }
  pending_ = false;
  lastUpdate_ = plat::monotonicTime();
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

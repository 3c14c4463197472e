#include "svr/DamageTest.h"

#include "plat/Time.h"

namespace svr {

namespace {

// From its begin on, the test looks at multiples of this time, if at all.
constexpr int64_t kCheckIntervalMs = 5000;

}  // namespace

DamageTest::DamageTest(Callback& callback, rfb::PixelBuffer& buffer)
    : callback_(callback), buffer_(buffer), begin_(plat::monotonicTime()) {
  const rfb::Region all(buffer_.getRect());
  comparer_.setSource(&buffer_);
  comparer_.compare(all);
  buffer_.grabRegion(all);
  changedBefore_ = comparer_.compare(all);
}

void DamageTest::wake() {
  if (timer_.isRunning()) return;
  const int64_t elapsedMs = (plat::monotonicTime() - begin_) / plat::kTicksPerMs;
  timer_.start(static_cast<int>(kCheckIntervalMs - elapsedMs % kCheckIntervalMs));
}

void DamageTest::damageNotified() {
  isUncollected_ = true;
  wake();
}

void DamageTest::damageReported(const rfb::Region& region) {
  isUncollected_ = false;
  if (!(region == rfb::Region(buffer_.getRect()))) nonFull_ = true;
  seen_ |= region;
}

void DamageTest::timerCallback(plat::Timer&) {
  const rfb::Region all(buffer_.getRect());
  try {
    buffer_.grabRegion(all);
  } catch (const tx::CaptureLostException& e) {
    callback_.captureLost(e);
    return;
  }
  const rfb::Region changed = comparer_.compare(all);
  if (changed.isEmpty()) {
    if (isUncollected_) wake();
    return;
  }
  callback_.collectDamageNow();
  // The comparison counts its blocks from the buffer's corner.
  constexpr int kBlock = rfb::PixelBufferComparer::kBlockSize;
  const rfb::Region missed = changed - seen_.roundOut(kBlock, kBlock, buffer_.getRect().tl);
  // The callback destroys this object.
  callback_.damageTestResult(*this, !seen_.isEmpty(), missed.isEmpty(), nonFull_);
}

}  // namespace svr

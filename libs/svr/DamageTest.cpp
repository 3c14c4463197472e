#include "svr/DamageTest.h"

namespace svr {

namespace {

constexpr int kCheckIntervalMs = 5000;

}  // namespace

DamageTest::DamageTest(Callback& callback, rfb::PixelBuffer& buffer)
    : callback_(callback), buffer_(buffer) {
  const rfb::Region all(buffer_.getRect());
  buffer_.grabRegion(all);
  comparer_.setSource(&buffer_);
  comparer_.compare(all);
  timer_.start(kCheckIntervalMs);
}

void DamageTest::damageReported(const rfb::Region& region) {
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
    timer_.start(kCheckIntervalMs);
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

#pragma once

#include "plat/timer/Timer.h"
#include "rfb/PixelBuffer.h"
#include "rfb/PixelBufferComparer.h"
#include "rfb/Region.h"
#include "svr/DamageTestCallback.h"

namespace svr {

// Finds out whether the X server reports damage completely: at the first real change of the screen,
// found by comparing pixels every 5 seconds, all of it must have been reported.
class DamageTest : private plat::Timer::Callback {
 public:
  // Takes the reference copy. Neither the callback nor the buffer, which must outlive the test, is
  // owned.
  DamageTest(DamageTestCallback* callback, rfb::PixelBuffer* buffer);
  virtual ~DamageTest() = default;
  DamageTest(const DamageTest&) = delete;
  DamageTest& operator=(const DamageTest&) = delete;

  // To be called with every damage that was collected.
  void damageReported(const rfb::Region& region);

 private:
  void timerCallback(plat::Timer& timer) override;

  DamageTestCallback* callback_;
  rfb::PixelBuffer* buffer_;
  plat::Timer timer_{this};
  rfb::Region seen_;
  rfb::PixelBufferComparer comparer_;
  bool nonFull_ = false;
};

}  // namespace svr

#pragma once

#include <cstdint>

#include "plat/timer/Timer.h"
#include "rfb/PixelBuffer.h"
#include "rfb/PixelBufferComparer.h"
#include "rfb/Region.h"
#include "tx/CaptureLostException.h"

namespace svr {

// Finds out whether the X server reports damage completely: at the first real change of the screen,
// found by comparing pixels every 5 seconds, all of it must have been reported. On a screen that is
// not said to change it sleeps.
class DamageTest final : private plat::Timer::Callback {
 public:
  class Callback {
   public:
    // Hand all damage up to this moment to the test.
    virtual void collectDamageNow() = 0;
    // The test has decided: any damage was reported, all of the change was, and some of it was not
    // just the whole buffer. The callback destroys the test.
    virtual void damageTestResult(DamageTest& test, bool any, bool all, bool nonFull) = 0;
    // The buffer cannot show the screen any more; the test waits for its end.
    virtual void captureLost(const tx::CaptureLostException& error) = 0;

   protected:
    ~Callback() = default;
  };

  // Grabs the buffer, and takes the reference copy. Neither the callback nor the buffer, which must
  // outlive the test, is owned. Throws what grabbing throws.
  DamageTest(Callback& callback, rfb::PixelBuffer& buffer);
  DamageTest(const DamageTest&) = delete;
  DamageTest& operator=(const DamageTest&) = delete;

  // Where the screen had changed since the buffer was last grabbed, when this was made.
  const rfb::Region& changedBefore() const { return changedBefore_; }

  // The screen may change: looks at it once more.
  void wake();
  // There is damage to be collected. Until then the X server tells of no more in the same place, so
  // that the test has to go on looking.
  void damageNotified();
  // To be called with every damage that was collected.
  void damageReported(const rfb::Region& region);

 private:
  void timerCallback(plat::Timer& timer) override;

  Callback& callback_;
  rfb::PixelBuffer& buffer_;
  plat::Timer timer_{this};
  rfb::Region seen_;
  rfb::Region changedBefore_;
  rfb::PixelBufferComparer comparer_;
  const int64_t begin_;  // monotonic time
  bool nonFull_ = false;
  bool isUncollected_ = false;
};

}  // namespace svr

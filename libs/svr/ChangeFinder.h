#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "plat/timer/Timer.h"
#include "svr/DamageTest.h"
#include "svr/DamageTracker.h"
#include "svr/UpdateScheduler.h"
#include "tx/EventPatience.h"
#include "tx/PixelBufferX11.h"

namespace svr {

class SServer;

// Finds what changes on the screen, and has updates sent: by the DAMAGE extension as long as a test
// does not find that it misses changes, else by reporting everything as changed now and then. What
// is used is chosen by the parameter `CaptureMethod`.
class ChangeFinder : private plat::Timer::Callback,
                     private DamageTest::Callback,
                     private tx::EventPatience,
                     private UpdateScheduler::Callback {
 public:
  class Callback {
   public:
    // Changes are about to be collected; what has to be known before them can be told to the server
    // now.
    virtual void collectingChanges() = 0;
    // Another X client has destroyed what capture works with. The buffer has to be replaced, but
    // not from within this call.
    virtual void captureLost() = 0;

   protected:
    ~Callback() = default;
  };

  // The callback is not owned.
  ChangeFinder(Callback& callback, bool hasDamage);
  ChangeFinder(const ChangeFinder&) = delete;
  ChangeFinder& operator=(const ChangeFinder&) = delete;

  // Begins to report changes of what the buffer shows. Neither is owned.
  void start(SServer& server, tx::PixelBufferX11& buffer);
  // Releases what finding changes takes. Tells the server that capture is not broken unless the
  // method is the optimal one.
  void stop();

  // The buffer is about to be replaced: what had changed is forgotten, since it is part of the new
  // one's first contents.
  void releaseBuffer();
  // The buffer has been replaced.
  void setBuffer(tx::PixelBufferX11& buffer);

  // Everything is reported as changed now and then.
  bool isPolling() const { return pollTimer_.isRunning(); }
  // Nothing is found until the buffer has been replaced.
  bool isLost() const { return lost_; }

  // True for an event that tells of damage.
  bool handleEvent(const XEvent& event);
  // Somebody uses the desktop, so it may change.
  void desktopUsed();
  // The server wants an update.
  void updateRequested();
  // What capture works with was destroyed; the buffer has to be replaced.
  void captureLost(const tx::CaptureLostException& error) override;

 private:
  // plat::Timer::Callback
  void timerCallback(plat::Timer& timer) override;
  // DamageTest::Callback
  void collectDamageNow() override;
  void damageTestResult(DamageTest& test, bool any, bool all, bool nonFull) override;
  // tx::EventPatience
  bool canEventsWait() const override { return damage_ && scheduler_.isBatchNear(); }
  // UpdateScheduler::Callback
  bool isUpdateWanted() override;
  void preUpdate() override;
  void performUpdate(const rfb::UpdateInfo& update) override;

  bool tryDamage();
  void startDamageTest();
  void startPolling();
  void stopDamage();
  // Adds the damage so far to the tracker. With grabbing, the buffer shows it already if fresh_ is
  // not empty.
  void collect(bool grabbing);
  // The same without grabbing; what was found is scheduled.
  void collectNow();
  // Has damage looked at after this time at the latest.
  void watch(int ms);
  void watchDamage();
  // After a loss: begins again, or gives damage up when that happens too often.
  void recover();

  Callback& callback_;
  const bool hasDamage_;
  SServer* server_ = nullptr;             // null while stopped
  tx::PixelBufferX11* buffer_ = nullptr;  // null while stopped, or being replaced
  UpdateScheduler scheduler_{*this};
  std::optional<DamageTracker> damage_;
  std::unique_ptr<DamageTest> test_;
  rfb::Region fresh_;
  bool testing_ = false;             // a test runs, or will when there is a buffer again
  bool lost_ = false;                // until the buffer has been replaced
  std::optional<int64_t> lastLoss_;  // monotonic time
  plat::Timer pollTimer_{this};
  int64_t lastFetch_ = 0;  // of damage; monotonic time
  plat::Timer watchTimer_{this};
};

}  // namespace svr

#pragma once

#include <memory>
#include <optional>

#include "plat/timer/Timer.h"
#include "svr/DamageTest.h"
#include "svr/DamageTracker.h"
#include "svr/UpdateScheduler.h"

namespace svr {

class SServer;

// Finds what changes on the screen, and has updates sent: by the DAMAGE extension as long as a test
// does not find that it misses changes, else by reporting everything as changed now and then. What
// is used is chosen by the parameter `CaptureMethod`.
class ChangeFinder : private plat::Timer::Callback,
                     private DamageTest::Callback,
                     private UpdateScheduler::Callback {
 public:
  class Callback {
   public:
    // Changes are about to be collected; what has to be known before them can be told to the server
    // now.
    virtual void collectingChanges() = 0;

   protected:
    ~Callback() = default;
  };

  // The callback is not owned.
  ChangeFinder(Callback& callback, bool hasDamage);
  ChangeFinder(const ChangeFinder&) = delete;
  ChangeFinder& operator=(const ChangeFinder&) = delete;

  // Begins to report changes of what the buffer shows. Neither is owned.
  void start(SServer& server, rfb::PixelBuffer& buffer);
  // Releases what finding changes takes. Tells the server that capture is not broken unless the
  // method is the optimal one.
  void stop();

  // The buffer is about to be replaced: what had changed is forgotten, since it is part of the new
  // one's first contents.
  void releaseBuffer();
  // The buffer has been replaced.
  void setBuffer(rfb::PixelBuffer& buffer);

  // True for an event that tells of damage.
  bool handleEvent(const XEvent& event);
  // The server wants an update.
  void updateRequested() { scheduler_.tryUpdate(); }

 private:
  // plat::Timer::Callback
  void timerCallback(plat::Timer& timer) override;
  // DamageTest::Callback
  void collectDamageNow() override;
  void damageTestResult(DamageTest& test, bool any, bool all, bool nonFull) override;
  // UpdateScheduler::Callback
  bool isUpdateWanted() override;
  void preUpdate() override;
  void performUpdate(const rfb::UpdateInfo& update) override;

  bool tryDamage();
  void startDamageTest();
  void startPolling();
  void stopDamage();

  Callback& callback_;
  const bool hasDamage_;
  SServer* server_ = nullptr;           // null while stopped
  rfb::PixelBuffer* buffer_ = nullptr;  // null while stopped, or being replaced
  UpdateScheduler scheduler_{*this};
  std::optional<DamageTracker> damage_;
  std::unique_ptr<DamageTest> test_;
  bool testing_ = false;  // a test runs, or will when there is a buffer again
  plat::Timer pollTimer_{this};
};

}  // namespace svr

#include "svr/ChangeFinder.h"

#include <climits>

#include "plat/Time.h"
#include "plat/config/IntParameter.h"
#include "plat/log/LogSrc.h"
#include "svr/SServer.h"
#include "tx/TXDisplay.h"

namespace svr {

namespace {

// Part of the desktop, as far as a reader of the log is concerned.
plat::LogSrc vlog("SDesktopX11");

// Losses that follow each other faster are an attack that damage does not survive.
constexpr int kLossesApartMs = 5000;
// Nobody is told that damage was destroyed: it is looked at so long after the screen was last seen
// to change or the desktop to be used, and now and then while nothing happens.
constexpr int kWatchMs = 1500;
constexpr int kRareWatchMs = 60000;

enum CaptureMethod { kOptimal = 0, kPoll = 1, kForceDamage = 2 };

plat::IntParameter captureMethod("CaptureMethod",
                                 plat::MessageId{"svr_param_sdesktopx11_capturemethod"}, kOptimal,
                                 kOptimal, kForceDamage);
plat::IntParameter pollInterval("PollInterval", plat::MessageId{"svr_param_pollinterval"}, 50, 1,
                                INT_MAX);

}  // namespace

ChangeFinder::ChangeFinder(Callback& callback, bool hasDamage)
    : callback_(callback), hasDamage_(hasDamage) {}

void ChangeFinder::start(SServer& server, tx::PixelBufferX11& buffer) {
  server_ = &server;
  buffer_ = &buffer;
  askMe(true);
  try {
    if (!tryDamage()) startPolling();
  } catch (const tx::CaptureLostException& e) {
    captureLost(e);
  }
}

void ChangeFinder::stop() {
  if (tx::TXDisplay::current()) askMe(false);
  stopDamage();
  pollTimer_.stop();
  scheduler_.reset();
  if (server_ && captureMethod.value() != kOptimal) server_->captureBroken(false);
  server_ = nullptr;
  buffer_ = nullptr;
  lost_ = false;
  lastLoss_.reset();
}

void ChangeFinder::releaseBuffer() {
  scheduler_.tracker().clear();
  test_.reset();
  buffer_ = nullptr;
}

void ChangeFinder::setBuffer(tx::PixelBufferX11& buffer) {
  if (!server_) return;
  buffer_ = &buffer;
  try {
    if (lost_) {
      recover();
    } else if (testing_) {
      vlog.info("Restarting damage test due to resolution change");
      startDamageTest();
    }
  } catch (const tx::CaptureLostException& e) {
    captureLost(e);
  }
}

bool ChangeFinder::tryDamage() {
  if (captureMethod.value() == kPoll || !hasDamage_) return false;
  if (!damage_) {
    vlog.info("Using damage extension");
    damage_.emplace();
    lastFetch_ = plat::monotonicTime();
    watch(kWatchMs);
  }
  startDamageTest();
  if (captureMethod.value() != kOptimal) {
    // Nothing is to be decided, but the buffer had to be brought up to date.
    test_.reset();
    testing_ = false;
  }
  return true;
}

void ChangeFinder::startDamageTest() {
  test_.reset();
  DamageTest::Callback& callback = *this;
  test_ = std::make_unique<DamageTest>(callback, *buffer_);
  testing_ = true;
  // Between the buffer's first contents and the start of damage nobody told of changes.
  if (test_->changedBefore().isEmpty()) return;
  scheduler_.tracker().addChanged(test_->changedBefore());
  scheduler_.changed();
}

void ChangeFinder::startPolling() {
  vlog.info("Using polling");
  pollTimer_.start(pollInterval.value());
}

void ChangeFinder::stopDamage() {
  test_.reset();
  testing_ = false;
  damage_.reset();
  watchTimer_.stop();
}

bool ChangeFinder::handleEvent(const XEvent& event) {
  if (!damage_ || !damage_->isNewDamage(event)) return false;
  if (test_) test_->damageNotified();
  scheduler_.changed();
  return true;
}

void ChangeFinder::watch(int ms) {
  if (!damage_ || (watchTimer_.isRunning() && watchTimer_.intervalMs() <= ms)) return;
  watchTimer_.start(ms);
}

void ChangeFinder::desktopUsed() {
  if (test_) test_->wake();
  watch(kWatchMs);
}

void ChangeFinder::updateRequested() {
  watch(kWatchMs);
  scheduler_.tryUpdate();
}

void ChangeFinder::watchDamage() {
  if (lost_ || !buffer_) return;
  const int64_t sinceMs = (plat::monotonicTime() - lastFetch_) / plat::kTicksPerMs;
  if (sinceMs < kWatchMs) {
    watchTimer_.start(kWatchMs);
    return;
  }
  const int interval = watchTimer_.intervalMs();
  watchTimer_.start(kRareWatchMs);
  // Perhaps nothing at all is reported.
  if (test_ && interval == kRareWatchMs) test_->wake();
  collectNow();
}

void ChangeFinder::timerCallback(plat::Timer& timer) {
  if (&timer == &watchTimer_) {
    watchDamage();
    return;
  }
  pollTimer_.start(pollInterval.value());
  scheduler_.tracker().addChanged(buffer_->getRect());
  scheduler_.changed();
}

bool ChangeFinder::isUpdateWanted() {
  return server_ && !lost_ && server_->isUpdateRequested();
}

void ChangeFinder::preUpdate() {
  callback_.collectingChanges();
  collect(true);
}

void ChangeFinder::collect(bool grabbing) {
  fresh_.clear();
  if (!damage_) return;
  // What was added before has to be grabbed, too.
  grabbing = grabbing && scheduler_.tracker().isEmpty();
  bool isGrabbed = false;
  rfb::Region damaged;
  try {
    damaged = damage_->fetch(grabbing ? buffer_ : nullptr, isGrabbed);
  } catch (const tx::CaptureLostException& e) {
    captureLost(e);
  }
  lastFetch_ = plat::monotonicTime();
  if (damaged.isEmpty()) return;
  if (test_) test_->wake();
  watch(kWatchMs);
  damaged &= buffer_->getRect();
  if (isGrabbed) fresh_ = damaged;
  scheduler_.tracker().addChanged(damaged);
  if (test_) test_->damageReported(damaged);
}

void ChangeFinder::performUpdate(const rfb::UpdateInfo& update) {
  if (lost_) return;
  if (!fresh_.isEmpty()) buffer_->setFresh(&fresh_);
  try {
    server_->writeUpdate(update);
  } catch (const tx::CaptureLostException& e) {
    captureLost(e);
  }
  buffer_->setFresh(nullptr);
}

void ChangeFinder::captureLost(const tx::CaptureLostException& error) {
  if (lost_) return;
  vlog.error("Capture was destroyed: %s", error.text());
  lost_ = true;
  callback_.captureLost();
}

void ChangeFinder::recover() {
  const int64_t now = plat::monotonicTime();
  const bool tooOften = lastLoss_ && now - *lastLoss_ < kLossesApartMs * plat::kTicksPerMs;
  lastLoss_ = now;
  lost_ = false;
  if (!damage_) return;
  stopDamage();
  if (tooOften) {
    startPolling();
    server_->captureBroken(true);
  } else {
    tryDamage();
  }
}

void ChangeFinder::collectDamageNow() {
  callback_.collectingChanges();
  collectNow();
}

void ChangeFinder::collectNow() {
  collect(false);
  if (!scheduler_.tracker().isEmpty()) scheduler_.changed();
}

void ChangeFinder::damageTestResult(DamageTest&, bool any, bool all, bool nonFull) {
  if (lost_) return;
  vlog.info("Damage test: any %d all %d non full %d", any, all, nonFull);
  server_->captureBroken(!all);
  test_.reset();
  testing_ = false;
  if (all) return;
  stopDamage();
  startPolling();
}

}  // namespace svr

#include "svr/ChangeFinder.h"

#include <climits>

#include "plat/config/IntParameter.h"
#include "plat/log/LogSrc.h"
#include "svr/SServer.h"

namespace svr {

namespace {

// Part of the desktop, as far as a reader of the log is concerned.
plat::LogSrc vlog("SDesktopX11");

enum CaptureMethod { kOptimal = 0, kPoll = 1, kForceDamage = 2 };

plat::IntParameter captureMethod("CaptureMethod",
                                 plat::MessageId{"svr_param_sdesktopx11_capturemethod"}, kOptimal,
                                 kOptimal, kForceDamage);
plat::IntParameter pollInterval("PollInterval", plat::MessageId{"svr_param_pollinterval"}, 50, 1,
                                INT_MAX);

}  // namespace

ChangeFinder::ChangeFinder(Callback& callback, bool hasDamage)
    : callback_(callback), hasDamage_(hasDamage) {}

void ChangeFinder::start(SServer& server, rfb::PixelBuffer& buffer) {
  buffer_ = &buffer;
  if (!tryDamage()) startPolling();
  server_ = &server;
}

void ChangeFinder::stop() {
  stopDamage();
  pollTimer_.stop();
  scheduler_.reset();
  if (server_ && captureMethod.value() != kOptimal) server_->captureBroken(false);
  server_ = nullptr;
  buffer_ = nullptr;
}

void ChangeFinder::releaseBuffer() {
  scheduler_.tracker().clear();
  test_.reset();
  buffer_ = nullptr;
}

void ChangeFinder::setBuffer(rfb::PixelBuffer& buffer) {
  if (!server_) return;
  buffer_ = &buffer;
  if (!testing_) return;
  vlog.info("Restarting damage test due to resolution change");
  startDamageTest();
}

bool ChangeFinder::tryDamage() {
  if (captureMethod.value() == kPoll || !hasDamage_) return false;
  if (!damage_) {
    vlog.info("Using damage extension");
    damage_.emplace();
  }
  if (captureMethod.value() == kOptimal) {
    startDamageTest();
  } else {
    // Changes between the buffer's first contents and the start of damage are lost otherwise.
    buffer_->grabRegion(buffer_->getRect());
  }
  return true;
}

void ChangeFinder::startDamageTest() {
  test_.reset();
  DamageTest::Callback& callback = *this;
  test_ = std::make_unique<DamageTest>(callback, *buffer_);
  testing_ = true;
}

void ChangeFinder::startPolling() {
  vlog.info("Using polling");
  pollTimer_.start(pollInterval.value());
}

void ChangeFinder::stopDamage() {
  test_.reset();
  testing_ = false;
  damage_.reset();
}

bool ChangeFinder::handleEvent(const XEvent& event) {
  if (!damage_ || !damage_->isNewDamage(event)) return false;
  scheduler_.changed();
  return true;
}

void ChangeFinder::timerCallback(plat::Timer&) {
  pollTimer_.start(pollInterval.value());
  scheduler_.tracker().addChanged(buffer_->getRect());
  scheduler_.changed();
}

bool ChangeFinder::isUpdateWanted() {
  return server_ && server_->isUpdateRequested();
}

void ChangeFinder::preUpdate() {
  callback_.collectingChanges();
  if (!damage_) return;
  rfb::Region damaged = damage_->fetch();
  if (damaged.isEmpty()) return;
  damaged &= buffer_->getRect();
  scheduler_.tracker().addChanged(damaged);
  if (test_) test_->damageReported(damaged);
}

void ChangeFinder::performUpdate(const rfb::UpdateInfo& update) {
  server_->writeUpdate(update);
}

void ChangeFinder::collectDamageNow() {
  preUpdate();
  if (!scheduler_.tracker().isEmpty()) scheduler_.changed();
}

void ChangeFinder::damageTestResult(DamageTest&, bool any, bool all, bool nonFull) {
  vlog.info("Damage test: any %d all %d non full %d", any, all, nonFull);
  server_->captureBroken(!all);
  test_.reset();
  testing_ = false;
  if (all) return;
  stopDamage();
  startPolling();
}

}  // namespace svr

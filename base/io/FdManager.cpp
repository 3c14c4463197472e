#include "io/FdManager.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <utility>

#include "plat/Assert.h"

namespace io {

namespace {

thread_local FdManager* thrInst = nullptr;

// A limited wait is made one longer, so that the timer it waits for is due when it ends.
int waitMs(int timeoutMs) {
  if (timeoutMs < 0) return -1;
  const bool limited = timeoutMs > 0 && timeoutMs < std::numeric_limits<int>::max();
  return limited ? timeoutMs + 1 : timeoutMs;
}

}  // namespace

void FdManager::HandlerSet::insert(FdHandler& handler) {
  const auto place =
      std::lower_bound(handlers_.begin(), handlers_.end(), &handler, std::less<const FdHandler*>());
  if (place == handlers_.end() || *place != &handler) handlers_.insert(place, &handler);
}

void FdManager::HandlerSet::erase(const FdHandler& handler) {
  const auto place =
      std::lower_bound(handlers_.begin(), handlers_.end(), &handler, std::less<const FdHandler*>());
  if (place != handlers_.end() && *place == &handler) handlers_.erase(place);
}

bool FdManager::HandlerSet::contains(const FdHandler& handler) const {
  return std::binary_search(handlers_.begin(), handlers_.end(), &handler,
                            std::less<const FdHandler*>());
}

FdHandler& FdManager::HandlerSet::takeLast() {
  FdHandler* handler = handlers_.back();
  handlers_.pop_back();
  return *handler;
}

FdManager::FdManager(bool nested) : timers_(nullptr, nested), previous_(thrInst) {
  thrInst = this;
}

FdManager::~FdManager() {
  for (Due* due : beforeWait_) due->forgotten();
  if (thrInst == this) thrInst = previous_;
}

FdManager& FdManager::instance() {
  PLAT_ASSERT(thrInst);
  return *thrInst;
}

void FdManager::enroll(FdHandler& handler) {
  PLAT_ASSERT(!handler.registry_ || handler.registry_ == this);
  if (handler.registry_) return;
  registered_.push_back(&handler);
  handler.registry_ = this;
}

void FdManager::setWants(FdHandler& handler, bool read, bool write, bool exceptions) {
  enroll(handler);
  if (!read && !exceptions) {
    readReady_.erase(handler);
    readWorking_.erase(handler);
  }
  if (!write) {
    writeReady_.erase(handler);
    writeWorking_.erase(handler);
  }
  interestChanged(handler, read, write, exceptions);
}

void FdManager::unregister(FdHandler& handler) {
  if (handler.registry_ != this) return;
  setWants(handler, false, false, false);
  deferred_.erase(handler);
  deferredWorking_.erase(handler);
  std::erase(registered_, &handler);
  handler.registry_ = nullptr;
}

void FdManager::unregisterAll() {
  while (!registered_.empty()) unregister(*registered_.back());
}

void FdManager::dropReadiness(FdHandler& handler) {
  readReady_.erase(handler);
  readWorking_.erase(handler);
  writeReady_.erase(handler);
  writeWorking_.erase(handler);
}

void FdManager::defer(FdHandler& handler) {
  enroll(handler);
  deferred_.insert(handler);
  wake();
}

void FdManager::wake() {
  woken_ = true;
}

bool FdManager::process(int timeoutMs) {
  beginTurn();
  runBeforeWait();
  const int untilNext = timers_.millisecondsUntilNext();
  if (untilNext >= 0 && (timeoutMs < 0 || timeoutMs > untilNext)) timeoutMs = untilNext;
  const bool woken = std::exchange(woken_, false);
  const bool ready = wait(woken ? 0 : waitMs(timeoutMs));
  return dispatch() || ready || woken;
}

void FdManager::beginTurn() {
  // Readiness is reported again; a deferred call would be lost.
  readReady_.clear();
  writeReady_.clear();
  readWorking_.clear();
  writeWorking_.clear();
  if (deferredWorking_.empty()) return;
  for (FdHandler* handler : deferredWorking_.handlers()) deferred_.insert(*handler);
  deferredWorking_.clear();
  wake();
}

void FdManager::runBeforeWait() {
  for (size_t left = beforeWait_.size(); left > 0 && !beforeWait_.empty(); --left) {
    Due& due = *beforeWait_.front();
    beforeWait_.erase(beforeWait_.begin());
    due.due();
  }
  // What was asked for meanwhile must not keep the loop from going on.
  if (!beforeWait_.empty()) wake();
}

bool FdManager::dispatch() {
  const bool timersRan = timers_.runExpired();
  deferred_.swap(deferredWorking_);
  while (!deferredWorking_.empty()) deferredWorking_.takeLast().deferredCall();
  readReady_.swap(readWorking_);
  while (!readWorking_.empty()) readWorking_.takeLast().readReady();
  writeReady_.swap(writeWorking_);
  while (!writeWorking_.empty()) writeWorking_.takeLast().writeReady();
  return timersRan;
}

}  // namespace io

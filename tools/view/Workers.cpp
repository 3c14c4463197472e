#include "Workers.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>

namespace view {

namespace {

constexpr unsigned kMaxThreads = 3;

}  // namespace

Workers::~Workers() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ending_ = true;
  }
  wake_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

void Workers::run(size_t count, bool helped, const std::function<void(size_t)>& job) {
  const unsigned cores = std::thread::hardware_concurrency();
  if (!helped || count < 2 || cores < 2) {
    for (size_t i = 0; i < count; ++i) job(i);
    return;
  }
  if (threads_.empty()) {
    // Signals are the loop's.
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    for (unsigned i = 0; i < std::min(cores - 1, kMaxThreads); ++i) {
      threads_.emplace_back([this] { help(); });
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }
  std::unique_lock<std::mutex> lock(mutex_);
  job_ = &job;
  next_ = 0;
  count_ = count;
  wake_.notify_all();
  work(lock);
  finished_.wait(lock, [this] { return running_ == 0; });
  job_ = nullptr;
  count_ = 0;
}

void Workers::work(std::unique_lock<std::mutex>& lock) {
  while (next_ < count_) {
    const size_t mine = next_++;
    const auto& job = *job_;
    ++running_;
    lock.unlock();
    job(mine);
    lock.lock();
    --running_;
  }
}

void Workers::help() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    wake_.wait(lock, [this] { return ending_ || next_ < count_; });
    if (ending_) return;
    work(lock);
    if (running_ == 0) finished_.notify_one();
  }
}

}  // namespace view

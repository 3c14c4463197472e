#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace view {

// Threads that help with work that falls apart. They start when there is much of it, and sleep when
// there is none.
class Workers {
 public:
  Workers() = default;
  ~Workers();
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  // Does job(0) to job(count - 1), in any order, on this thread and, if `helped`, on others;
  // returns when all are done. The jobs must not throw.
  void run(size_t count, bool helped, const std::function<void(size_t)>& job);

 private:
  void help();
  // Takes and does jobs until none is left. The lock is held before and after.
  void work(std::unique_lock<std::mutex>& lock);

  std::mutex mutex_;
  std::condition_variable wake_, finished_;
  std::vector<std::thread> threads_;
  const std::function<void(size_t)>* job_ = nullptr;
  size_t next_ = 0, count_ = 0, running_ = 0;
  bool ending_ = false;
};

}  // namespace view

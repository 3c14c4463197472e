#pragma once

#include <pthread.h>

#include <atomic>

#include "plat/FileDescriptor.h"

namespace svr {

// Ends the process when it should end and cannot: when a signal has asked for it, or the channel
// has ended, and then the loop has not turned for kPatienceMs because a request waits for an X
// server that is stopped. Segments and lock files are removed first; what the X server holds for
// us goes with the connection.
//
// A thread, since nothing else sees both events without waking up while all is well: signal
// handlers are not told of the channel, and a helper process would cost as much memory as the
// agent. It makes nothing but system calls (no memory, no lock, no log), so the state in which the
// loop's thread hangs does not matter.
class Watchdog {
 public:
  static constexpr int kPatienceMs = 5000;

  // channel is the descriptor to the server, -1 for none; it is duplicated. Throws SystemException.
  explicit Watchdog(int channel);
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  // To be called on each turn of the loop.
  void loopTurned() { turns_.fetch_add(1, std::memory_order_relaxed); }
  // The descriptor that a signal handler writes eight bytes to (the number 1) when the process
  // shall end.
  int alarmFd() const { return alarm_.get(); }

 private:
  static void* run(void* self);
  void watch();
  // Waits at most timeoutMs (-1 without limit) for a signal, the channel's end or the object's.
  bool waitFor(int timeoutMs, bool withChannel);
  [[noreturn]] static void end();

  plat::FileDescriptor alarm_;
  plat::FileDescriptor channel_;
  std::atomic<unsigned> turns_ = 0;
  std::atomic<bool> over_ = false;
  pthread_t thread_{};
};

}  // namespace svr

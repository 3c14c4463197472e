#pragma once

#include "io/FdHandler.h"

namespace io {

// Wakes the loop of the thread that made it, from any thread or a signal handler. Several kicks may
// arrive as one callback, never as none.
class FdKicker : public FdHandler {
 public:
  class Callback {
   public:
    // On the loop's thread. May destroy the kicker.
    virtual void kicked(FdKicker& kicker) = 0;

   protected:
    ~Callback() = default;
  };

  // Registers with the thread's FdManager. The callback is not owned. Throws SystemException,
  // and Exception when the descriptor is too large to be polled.
  explicit FdKicker(Callback* callback);

  // Safe in signal handlers; leaves errno alone.
  void kick() noexcept;

  void readReady() override;

 private:
  Callback* callback_;
  plat::FileDescriptor writeEnd_;
};

}  // namespace io

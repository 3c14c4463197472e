#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "plat/FileDescriptor.h"

namespace drive {

// Carries bytes between two sockets until both directions have ended. Each direction waits for its
// own receiver only.
class Relay {
 public:
  // Bytes, before they are passed on.
  using Witness = std::function<void(const uint8_t* bytes, size_t length)>;

  // Throws plat::Exception.
  Relay(plat::FileDescriptor agent, plat::FileDescriptor server);

  // Ends early when interrupted. Throws plat::Exception, and what the witnesses throw.
  void run(const Witness& fromAgent, const Witness& fromServer);

 private:
  plat::FileDescriptor agent_, server_;
};

}  // namespace drive

#pragma once

#include <memory>

#include "io/Io.h"

namespace io {

// Takes over a connected endpoint.
class IoAcceptor {
 public:
  virtual ~IoAcceptor() = default;

  virtual void accept(std::unique_ptr<Io> io) = 0;
};

}  // namespace io

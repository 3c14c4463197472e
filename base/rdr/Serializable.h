#pragma once

#include "rdr/InStream.h"
#include "rdr/OutStream.h"

namespace rdr {

// An object that has a form on a stream.
class Serializable {
 public:
  virtual ~Serializable() = default;

  virtual void read(InStream& in) = 0;
  virtual void write(OutStream& out) const = 0;
};

}  // namespace rdr

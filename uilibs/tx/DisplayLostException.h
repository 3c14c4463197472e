#pragma once

#include "plat/Exception.h"

namespace tx {

// The connection to the X server broke. Thrown out of Xlib calls where libX11 offers no other way
// to go on; elsewhere TXDisplay::isLost() tells.
class DisplayLostException : public plat::Exception {
 public:
  DisplayLostException()
      : plat::Exception(Kind{"DisplayLostException"}, "Lost connection to X display") {}
};

}  // namespace tx

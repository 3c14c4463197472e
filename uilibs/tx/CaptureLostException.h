#pragma once

#include "plat/Exception.h"

namespace tx {

// What capture works with at the X server does not exist any more: any X client may destroy it.
class CaptureLostException : public plat::Exception {
 public:
  explicit CaptureLostException(const std::string& what)
      : plat::Exception(Kind{"CaptureLostException"}, what) {}
};

}  // namespace tx

#include "Xregion/BandBuilder.h"

namespace mi {

void BandBuilder::grow(size_t count) {
  const size_t used = this->count();
  const size_t last = static_cast<size_t>(lastBand_ - first_);
  const size_t capacity = block_ ? static_cast<size_t>(block_->size) : 0;
  block_ = allocateData(block_, std::max(used + count, capacity * 2));
  attach(used, last);
}

}  // namespace mi

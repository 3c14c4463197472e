#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory_resource>
#include <span>
#include <vector>

#include "Xregion/BandBuilder.h"

namespace mi {

// The union of many boxes in any order, by one sweep from top to bottom.
//
// The sweep keeps a profile: for each x, how far down the boxes met so far cover the column below
// the present row. It changes only at rows where boxes begin or end, and the columns that it covers
// there are the spans of the next band.
class BulkUnion {
 public:
  explicit BulkUnion(std::span<const Box> boxes);

  // Adds the bands of the union to an empty builder. Gives up and returns false as soon as there
  // are more than maxBoxes boxes.
  bool run(BandBuilder& out, size_t maxBoxes);

  Box bounds() const;

 private:
  // From x on, up to the next step, columns are covered down to row y2 (exclusive).
  struct Step {
    int32_t x;
    int32_t y2;
  };
  static constexpr int32_t kNothing = std::numeric_limits<int32_t>::min();
  static constexpr int32_t kEnd = std::numeric_limits<int32_t>::max();
  // What ends each profile.
  static constexpr Step kEndMark{kEnd, kNothing};
  using Steps = std::pmr::vector<Step>;

  void sort();
  void startProfile(size_t first, size_t end);
  static void join(const Step* a, const Step* b, Steps& out);
  Box* advance(int32_t y, const Step* added, Box* out, int32_t* nextY);

  // Most lists are short: their work needs no memory from the heap.
  std::array<std::byte, 4096> buffer_;
  std::pmr::monotonic_buffer_resource memory_{buffer_.data(), buffer_.size()};

  // The boxes; in numerical order they are sorted by y1, then x1.
  std::pmr::vector<uint64_t> keys_{&memory_};
  Steps profile_{&memory_};   // up to the end mark, see profileSize_
  Steps starting_{&memory_};  // profile of the boxes that begin at the present row
  Steps scratch_{&memory_};
  std::pmr::vector<size_t> runs_{&memory_};
  size_t profileSize_ = 0;
};

}  // namespace mi

#pragma once

#include <cstddef>
#include <cstdint>

namespace mi {

// x2 and y2 are exclusive.
struct Box {
  constexpr bool isEmpty() const { return x2 <= x1 || y2 <= y1; }
  friend constexpr bool operator==(const Box&, const Box&) = default;

  int16_t x1 = 0;
  int16_t y1 = 0;
  int16_t x2 = 0;
  int16_t y2 = 0;
};

// A block of boxes: this header, then the boxes themselves.
struct Data {
  Box* boxes() { return reinterpret_cast<Box*>(this + 1); }
  const Box* boxes() const { return reinterpret_cast<const Box*>(this + 1); }

  int32_t size;      // capacity in boxes
  int32_t numRects;  // boxes in use
};

// Allocates a block for at least count boxes, or changes the capacity of one; throws std::bad_alloc
// and leaves the given block alone when it can't.
Data* allocateData(Data* block, size_t count);
// The block with no room to spare, or as it is when that can't be had.
Data* shrinkData(Data* block, size_t count) noexcept;
void freeData(Data* block) noexcept;

}  // namespace mi

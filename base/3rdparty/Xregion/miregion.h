#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "Xregion/Box.h"

// Regions of 16-bit boxes in bands, the form in which X servers describe sets of pixels. This
// system's own code throughout. The form is the one that the X protocol calls YXBanded (request
// SetClipRectangles), with the additions that make a set's list unique (see Region); combining two
// regions walks their bands side by side, and the union of many boxes is a plane sweep (BulkUnion).
namespace mi {

class BandBuilder;

// A set of pixels as a list of boxes with these properties (the banding rule):
// - boxes are sorted by y1, then x1;
// - boxes whose rows overlap have the same y1 and y2: they form a band;
// - within a band boxes neither overlap nor touch;
// - two bands that touch differ in their x spans.
// So a set has just one such list, and equal sets compare equal box by box.
//
// A region of one box has no data block; the empty region points at one shared block and has the
// extents 0,0,0,0. Any operand may be the target itself. All functions that build a list throw
// std::bad_alloc when memory runs out; the target is then as it was, or empty.
class Region {
 public:
  Region() noexcept;
  // An empty box gives the empty region.
  explicit Region(const Box& box) noexcept;
  Region(const Region& other);
  Region(Region&& other) noexcept;
  Region& operator=(const Region& other);
  Region& operator=(Region&& other) noexcept;
  ~Region();
  void swap(Region& other) noexcept;

  bool isEmpty() const { return data_ && data_->numRects == 0; }
  int32_t numRects() const { return data_ ? data_->numRects : 1; }
  const Box& extents() const { return extents_; }
  // The boxes in band order; valid until the region is changed.
  std::span<const Box> boxes() const {
    if (!data_) return {&extents_, 1};
    return {data_->boxes(), static_cast<size_t>(data_->numRects)};
  }
  // The boxes that fit without another allocation.
  int32_t capacity() const { return data_ ? data_->size : 1; }

  void clear() noexcept;
  // Replaces the contents by boxes that are banded already; the block is grown only when it is too
  // small. The boxes may lie in this region's own block.
  void setBanded(std::span<const Box> boxes);
  // Replaces the contents by the union of boxes in any order; empty boxes do not count. A union of
  // more than maxBoxes boxes becomes its bounding box.
  void setUnion(std::span<const Box> boxes, size_t maxBoxes = SIZE_MAX);

  // Replace the contents by a combination of two regions.
  void unite(const Region& a, const Region& b);
  void intersect(const Region& a, const Region& b);
  // a without b.
  void subtract(const Region& a, const Region& b);

  // Moves all boxes. What leaves the range of coordinates is cut off.
  void translate(int32_t dx, int32_t dy);

  bool operator==(const Region& other) const;

  // Whether boxes (none of them empty) obey the banding rule.
  static bool isBanded(std::span<const Box> boxes);

 private:
  void setBox(const Box& box) noexcept;
  Data* takeBlock() noexcept;
  Data* blockFor(const Region& a, const Region& b) noexcept;
  void finish(BandBuilder& built, const Box* bounds = nullptr) noexcept;
  void release() noexcept;
#ifdef NDEBUG
  void check() const {}
#else
  // Aborts when the boxes break the banding rule.
  void check() const;
#endif

  Box extents_;
  Data* data_;
};

}  // namespace mi

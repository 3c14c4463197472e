#include "Xregion/miregion.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "Xregion/BandBuilder.h"
#include "Xregion/BandOperations.h"
#include "Xregion/BulkUnion.h"
#include "plat/Assert.h"

namespace mi {

namespace {

// A block may have this many boxes to spare, or four times those in use.
constexpr size_t kSpareBoxes = 512;

Data emptyData{0, 0};

int16_t clampCoordinate(int64_t v) {
  return static_cast<int16_t>(std::clamp<int64_t>(v, INT16_MIN, INT16_MAX));
}

bool encloses(const Box& outer, const Box& inner) {
  return outer.x1 <= inner.x1 && outer.y1 <= inner.y1 && outer.x2 >= inner.x2 &&
         outer.y2 >= inner.y2;
}

bool overlaps(const Box& a, const Box& b) {
  return a.x1 < b.x2 && b.x1 < a.x2 && a.y1 < b.y2 && b.y1 < a.y2;
}

Box boundsOf(const Box& a, const Box& b) {
  return {std::min(a.x1, b.x1), std::min(a.y1, b.y1), std::max(a.x2, b.x2), std::max(a.y2, b.y2)};
}

Box boundsOf(const Box* boxes, size_t count) {
  Box bounds = boxes[0];
  for (size_t i = 1; i < count; ++i) {
    bounds.x1 = std::min(bounds.x1, boxes[i].x1);
    bounds.x2 = std::max(bounds.x2, boxes[i].x2);
  }
  bounds.y2 = boxes[count - 1].y2;
  return bounds;
}

}  // namespace

Region::Region() noexcept : data_(&emptyData) {}

Region::Region(const Box& box) noexcept : data_(&emptyData) {
  setBox(box);
}

Region::Region(const Region& other) : data_(&emptyData) {
  *this = other;
}

Region::Region(Region&& other) noexcept : data_(&emptyData) {
  swap(other);
}

Region& Region::operator=(const Region& other) {
  if (this != &other) setBanded(other.boxes());
  return *this;
}

Region& Region::operator=(Region&& other) noexcept {
  if (this != &other) {
    clear();
    swap(other);
  }
  return *this;
}

Region::~Region() {
  release();
}

void Region::swap(Region& other) noexcept {
  std::swap(extents_, other.extents_);
  std::swap(data_, other.data_);
}

void Region::clear() noexcept {
  release();
  extents_ = Box();
  data_ = &emptyData;
}

void Region::setBanded(std::span<const Box> boxes) {
  if (boxes.size() < 2) {
    setBox(boxes.empty() ? Box() : boxes[0]);
    return;
  }
  if (data_ && static_cast<size_t>(data_->size) >= boxes.size()) {
    std::memmove(data_->boxes(), boxes.data(), boxes.size_bytes());
  } else {
    Data* block = allocateData(nullptr, boxes.size());
    std::memcpy(block->boxes(), boxes.data(), boxes.size_bytes());
    release();
    data_ = block;
  }
  data_->numRects = static_cast<int32_t>(boxes.size());
  extents_ = boundsOf(data_->boxes(), boxes.size());
  check();
}

void Region::setUnion(std::span<const Box> boxes, size_t maxBoxes) {
  if (boxes.size() <= maxBoxes && isBanded(boxes)) {
    setBanded(boxes);
    return;
  }
  BulkUnion bulk(boxes);  // takes the boxes before their memory, which may be our block, is reused
  BandBuilder out(takeBlock());
  out.reserve(2 * boxes.size());
  if (bulk.run(out, maxBoxes)) {
    finish(out);
  } else {
    setBox(bulk.bounds());
  }
  check();
}

void Region::unite(const Region& a, const Region& b) {
  if (a.isEmpty() || (!b.data_ && encloses(b.extents_, a.extents_))) {
    *this = b;
    return;
  }
  if (b.isEmpty() || &a == &b || (!a.data_ && encloses(a.extents_, b.extents_))) {
    *this = a;
    return;
  }
  const Box bounds = boundsOf(a.extents_, b.extents_);
  BandBuilder out(blockFor(a, b));
  combine<Unite>(out, a.boxes(), b.boxes());
  finish(out, &bounds);
  check();
}

void Region::intersect(const Region& a, const Region& b) {
  if (a.isEmpty() || b.isEmpty() || !overlaps(a.extents_, b.extents_)) {
    clear();
  } else if (&a == &b || (!b.data_ && encloses(b.extents_, a.extents_))) {
    *this = a;
  } else if (!a.data_ && encloses(a.extents_, b.extents_)) {
    *this = b;
  } else {
    BandBuilder out(blockFor(a, b));
    combine<Intersect>(out, a.boxes(), b.boxes());
    finish(out);
    check();
  }
}

void Region::subtract(const Region& a, const Region& b) {
  if (a.isEmpty() || b.isEmpty() || !overlaps(a.extents_, b.extents_)) {
    *this = a;
  } else if (&a == &b || (!b.data_ && encloses(b.extents_, a.extents_))) {
    clear();
  } else {
    BandBuilder out(blockFor(a, b));
    combine<Subtract>(out, a.boxes(), b.boxes());
    finish(out);
    check();
  }
}

void Region::translate(int32_t dx, int32_t dy) {
  if (isEmpty() || (dx == 0 && dy == 0)) return;
  const auto moved = [dx, dy](const Box& box) {
    return Box{clampCoordinate(int64_t{box.x1} + dx), clampCoordinate(int64_t{box.y1} + dy),
               clampCoordinate(int64_t{box.x2} + dx), clampCoordinate(int64_t{box.y2} + dy)};
  };
  Box* boxes = data_ ? data_->boxes() : &extents_;
  const size_t count = static_cast<size_t>(numRects());
  const Box bounds = moved(extents_);
  const bool cut = bounds.x2 - bounds.x1 != extents_.x2 - extents_.x1 ||
                   bounds.y2 - bounds.y1 != extents_.y2 - extents_.y1;
  if (!cut) {
    for (size_t i = 0; i < count; ++i) {
      boxes[i].x1 = static_cast<int16_t>(boxes[i].x1 + dx);
      boxes[i].y1 = static_cast<int16_t>(boxes[i].y1 + dy);
      boxes[i].x2 = static_cast<int16_t>(boxes[i].x2 + dx);
      boxes[i].y2 = static_cast<int16_t>(boxes[i].y2 + dy);
    }
    extents_ = bounds;
  } else {
    // What is left of a band may equal the next one.
    BandBuilder out(nullptr);
    out.reserve(count);
    for (size_t i = 0; i < count;) {
      const int16_t y1 = boxes[i].y1;
      Box* next = out.reserve(0);
      for (; i < count && boxes[i].y1 == y1; ++i) {
        *next = moved(boxes[i]);
        next += !next->isEmpty();
      }
      out.finishBand(next);
    }
    finish(out);
  }
  check();
}

bool Region::operator==(const Region& other) const {
  const std::span<const Box> mine = boxes();
  return mine.size() == other.boxes().size() && extents_ == other.extents_ &&
         std::memcmp(mine.data(), other.boxes().data(), mine.size_bytes()) == 0;
}

bool Region::isBanded(std::span<const Box> boxes) {
  const Box* band = boxes.data();
  const Box* const end = band + boxes.size();
  const Box* above = nullptr;
  const Box* aboveEnd = nullptr;
  while (band != end) {
    if (band->isEmpty()) return false;
    const Box* bandEnd = band + 1;
    for (; bandEnd != end && bandEnd->y1 == band->y1; ++bandEnd) {
      if (bandEnd->isEmpty() || bandEnd->y2 != band->y2 || bandEnd->x1 <= bandEnd[-1].x2) {
        return false;
      }
    }
    if (above) {
      if (band->y1 < above->y2) return false;
      if (band->y1 == above->y2 && bandEnd - band == aboveEnd - above &&
          sameSpans(above, band, static_cast<size_t>(bandEnd - band))) {
        return false;
      }
    }
    above = band;
    aboveEnd = bandEnd;
    band = bandEnd;
  }
  return true;
}

// Gives up the block, if there is one of our own, for another list to be built in it.
Data* Region::takeBlock() noexcept {
  Data* block = data_ == &emptyData ? nullptr : data_;
  data_ = &emptyData;
  extents_ = Box();
  return block;
}

// The block to build a combination in: a new one when ours is still to be read.
Data* Region::blockFor(const Region& a, const Region& b) noexcept {
  return this == &a || this == &b ? nullptr : takeBlock();
}

void Region::release() noexcept {
  if (data_ && data_ != &emptyData) freeData(data_);
}

// Takes over the list built, whose bounds may be known already.
void Region::finish(BandBuilder& built, const Box* bounds) noexcept {
  if (built.count() < 2) {
    setBox(built.count() == 0 ? Box() : *built.first());
    return;
  }
  Data* block = built.release();
  const size_t count = static_cast<size_t>(block->numRects);
  if (static_cast<size_t>(block->size) > 4 * count + kSpareBoxes) block = shrinkData(block, count);
  release();
  data_ = block;
  extents_ = bounds ? *bounds : boundsOf(block->boxes(), count);
}

void Region::setBox(const Box& box) noexcept {
  const Box copy = box;
  clear();
  if (copy.isEmpty()) return;
  extents_ = copy;
  data_ = nullptr;
}

#ifndef NDEBUG
void Region::check() const {
  PLAT_ASSERT(isBanded(boxes()) || (isEmpty() && extents_ == Box()));
  if (isEmpty()) return;
  PLAT_ASSERT(extents_ == boundsOf(boxes().data(), boxes().size()));
  PLAT_ASSERT(!data_ || (data_->numRects > 1 && data_->numRects <= data_->size));
}
#endif

}  // namespace mi

#include "rfb/Region.h"

#include <algorithm>
#include <new>

#include "plat/Assert.h"
#include "plat/Exception.h"
#include "rdr/InStream.h"
#include "rdr/OutStream.h"

namespace rfb {

namespace {

constexpr int32_t kMaxSerialised = 65535;  // the count is a u16

void writeBox(rdr::OutStream& out, const mi::Box& box) {
  out.writeU16(static_cast<uint16_t>(box.x1));
  out.writeU16(static_cast<uint16_t>(box.y1));
  out.writeU16(static_cast<uint16_t>(box.x2));
  out.writeU16(static_cast<uint16_t>(box.y2));
}

// Takes all of the box or, when the stream runs short, nothing.
mi::Box readBox(rdr::InStream& in) {
  in.check(8);
  mi::Box box;
  box.x1 = static_cast<int16_t>(in.readU16());
  box.y1 = static_cast<int16_t>(in.readU16());
  box.x2 = static_cast<int16_t>(in.readU16());
  box.y2 = static_cast<int16_t>(in.readU16());
  return box;
}

// The largest coordinate of the grid (a corner at origin) that is not above v.
int64_t gridBelow(int64_t v, int64_t origin, int64_t cell) {
  int64_t rest = (v - origin) % cell;
  if (rest < 0) rest += cell;
  return v - rest;
}

}  // namespace

void Region::addRects(std::span<const Rect> rects) {
  std::vector<mi::Box> boxes;
  boxes.reserve(rects.size());
  for (const Rect& rect : rects) boxes.push_back(RgnRect(rect).box);
  if (isEmpty()) {
    region_.setUnion(boxes);
  } else {
    mi::Region added;
    added.setUnion(boxes);
    region_.unite(region_, added);
  }
}

void Region::setBanded(std::span<const mi::Box> boxes) {
  // setUnion copies a banded list as it is.
  region_.setUnion(boxes);
}

Region& Region::operator|=(const Region& r) {
  region_.unite(region_, r.region_);
  return *this;
}

Region& Region::operator&=(const Region& r) {
  region_.intersect(region_, r.region_);
  return *this;
}

Region& Region::operator-=(const Region& r) {
  region_.subtract(region_, r.region_);
  return *this;
}

Region operator|(const Region& a, const Region& b) {
  Region result;
  result.region_.unite(a.region_, b.region_);
  return result;
}

Region operator&(const Region& a, const Region& b) {
  Region result;
  result.region_.intersect(a.region_, b.region_);
  return result;
}

Region operator-(const Region& a, const Region& b) {
  Region result;
  result.region_.subtract(a.region_, b.region_);
  return result;
}

Region Region::roundOut(int32_t cw, int32_t ch, const Point& origin) const {
  std::vector<mi::Box> grown;
  grown.reserve(static_cast<size_t>(numRects()));
  for (const mi::Box& box : boxes()) {
    grown.push_back({RgnRect::clamp(gridBelow(box.x1, origin.x, cw)),
                     RgnRect::clamp(gridBelow(box.y1, origin.y, ch)),
                     RgnRect::clamp(gridBelow(int64_t{box.x2} + cw - 1, origin.x, cw)),
                     RgnRect::clamp(gridBelow(int64_t{box.y2} + ch - 1, origin.y, ch))});
  }
  Region result;
  result.region_.setUnion(grown);
  return result;
}

void Region::write(rdr::OutStream& out) const {
  const bool boxesToo = numRects() > 1 && numRects() <= kMaxSerialised;
  out.writeU16(isEmpty() ? 0 : boxesToo ? static_cast<uint16_t>(numRects()) : 1);
  writeBox(out, region_.extents());
  if (!boxesToo) return;
  for (const mi::Box& box : boxes()) writeBox(out, box);
}

void Region::read(rdr::InStream& in) {
  Reader().read(in, *this);
}

std::string Region::debugText() const {
  std::string text = plat::format("num rects %3d extents %s\n", static_cast<int>(numRects()),
                                  boundingRect().str().c_str());
  for (const Rect& rect : rects()) text += plat::format("    rect %s\n", rect.str().c_str());
  return text;
}

bool Region::Pieces::next(Rect* piece) {
  if (rect_.isEmpty()) {
    if (boxes_.empty()) return false;
    rect_ = Rect(RgnRect(boxes_.front()));
    boxes_ = boxes_.subspan(1);
    setUp();
  }
  const auto end = [](int32_t at, int32_t size, int32_t limit) {
    return static_cast<int32_t>(std::min<int64_t>(int64_t{at} + size, limit));
  };
  *piece =
      Rect(at_.x, at_.y, end(at_.x, pieceWidth_, rect_.br.x), end(at_.y, pieceHeight_, rect_.br.y));
  at_.x = piece->br.x;
  if (at_.x == rect_.br.x) {
    at_ = Point(rect_.tl.x, piece->br.y);
    if (at_.y == rect_.br.y) rect_ = Rect();
  }
  return true;
}

// Chooses the size of the pieces of a new rectangle.
void Region::Pieces::setUp() {
  at_ = rect_.tl;
  pieceWidth_ = rect_.width();
  pieceHeight_ = rect_.height();
  if (maxPixels_ > int64_t{pieceWidth_} * pieceHeight_) return;

  const int32_t multipleOf = multipleOf_;
  PLAT_ASSERT(multipleOf > 0);
  // At least one cell, or there would be no end of pieces.
  const auto cells = [multipleOf](int64_t pixels) {
    return std::max<int64_t>(pixels / multipleOf * multipleOf, multipleOf);
  };
  const int64_t width = cells(maxPixels_ / multipleOf);
  if (width <= pieceWidth_) {
    pieceWidth_ = static_cast<int32_t>(width);
    pieceHeight_ = multipleOf;
  } else {
    pieceHeight_ = static_cast<int32_t>(cells(maxPixels_ / pieceWidth_));
  }
}

void Region::Reader::reset() {
  progress_ = -1;
  boxes_ = std::vector<mi::Box>();
  dropped_ = false;
}

void Region::Reader::read(rdr::InStream& in, Region& target) {
  if (progress_ < 0) {
    count_ = in.readU16();
    progress_ = 0;
  }
  if (progress_ == 0) {
    extents_ = readBox(in);
    progress_ = 1;
  }
  if (count_ > 1) {
    while (progress_ <= count_) {
      const mi::Box box = readBox(in);
      ++progress_;
      keep(box);
    }
  } else {
    keep(extents_);
  }

  if (!dropped_) {
    try {
      target.region_.setUnion(boxes_, kMaxSerialised);
    } catch (const std::bad_alloc&) {
      dropped_ = true;
    }
  }
  if (dropped_) target.clear();
  reset();
}

void Region::Reader::keep(const mi::Box& box) {
  if (dropped_) return;
  try {
    boxes_.push_back(box);
  } catch (const std::bad_alloc&) {
    dropped_ = true;
    boxes_ = std::vector<mi::Box>();
  }
}

}  // namespace rfb

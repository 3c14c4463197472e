#pragma once

#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <span>
#include <string>
#include <vector>

#include "Xregion/miregion.h"
#include "rfb/Rect.h"
#include "rfb/RgnRect.h"

namespace rdr {
class InStream;
class OutStream;
}  // namespace rdr

namespace rfb {

// A set of pixels, kept as a banded list of rectangles (see mi::Region). Coordinates are limited to
// -32768..32767: everything that comes from 32-bit rectangles is clamped to that range.
class Region {
 public:
  class Rects;
  class Pieces;
  class Reader;

  Region() = default;
  // An empty rectangle gives the empty region.
  // NOLINTNEXTLINE(google-explicit-constructor): a rectangle is a region
  Region(const Rect& rect) : region_(RgnRect(rect).box) {}

  void swap(Region& other) noexcept { region_.swap(other.region_); }
  void clear() noexcept { region_.clear(); }

  // Adds the union of the rectangles, which may overlap and come in any order.
  void addRects(std::span<const Rect> rects);
  void addRects(std::initializer_list<Rect> rects) { addRects({rects.begin(), rects.size()}); }
  // Replaces the contents by boxes that should obey the banding rule (as the X server delivers
  // them); allocates only when the present block is too small. Boxes that break the rule are
  // united.
  void setBanded(std::span<const mi::Box> boxes);

  Region& operator|=(const Region& r);
  Region& operator&=(const Region& r);
  // This without r.
  Region& operator-=(const Region& r);
  friend Region operator|(const Region& a, const Region& b);
  friend Region operator&(const Region& a, const Region& b);
  friend Region operator-(const Region& a, const Region& b);

  // Moves the region; what leaves the range of coordinates is cut off.
  void translate(const Point& delta) { region_.translate(delta.x, delta.y); }

  friend bool operator==(const Region& a, const Region& b) { return a.region_ == b.region_; }

  bool isEmpty() const { return region_.isEmpty(); }
  // Rect() when empty.
  Rect boundingRect() const { return Rect(RgnRect(region_.extents())); }
  // 0 when empty.
  int32_t numRects() const { return region_.numRects(); }
  // The rectangles in band order (top to bottom, then left to right), for range-for and [i]; valid
  // until the region is changed.
  Rects rects() const;
  std::span<const mi::Box> boxes() const { return region_.boxes(); }

  // The region grown to the cells of a grid: width cw and height ch (at least 1), with a corner of
  // one cell at origin.
  Region roundOut(int32_t cw, int32_t ch, const Point& origin = {}) const;

  // u16 number of rectangles, the extents as four u16 (x1, y1, x2, y2), then the boxes when there
  // are two or more. A region of more than 65535 rectangles is written as its extents.
  void write(rdr::OutStream& out) const;
  // Reads what write wrote from a stream that holds all of it; see Reader for one that may block.
  void read(rdr::InStream& in);

  // Many lines of text, for debugging.
  std::string debugText() const;

 private:
  mi::Region region_;
};

// The rectangles of a region, in band order.
class Region::Rects {
 public:
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Rect;
    using difference_type = std::ptrdiff_t;
    using pointer = const Rect*;
    using reference = Rect;

    Iterator() = default;
    explicit Iterator(const mi::Box* box) : box_(box) {}
    Rect operator*() const { return Rect(RgnRect(*box_)); }
    Iterator& operator++() {
      ++box_;
      return *this;
    }
    Iterator operator++(int) { return Iterator(box_++); }
    friend bool operator==(const Iterator&, const Iterator&) = default;

   private:
    const mi::Box* box_ = nullptr;
  };

  explicit Rects(std::span<const mi::Box> boxes) : boxes_(boxes) {}
  Iterator begin() const { return Iterator(boxes_.data()); }
  Iterator end() const { return Iterator(boxes_.data() + boxes_.size()); }
  size_t size() const { return boxes_.size(); }
  bool empty() const { return boxes_.empty(); }
  Rect operator[](size_t i) const { return Rect(RgnRect(boxes_[i])); }

 private:
  std::span<const mi::Box> boxes_;
};

// Hands out a region's rectangles in band order, each cut into pieces of at most maxPixels pixels
// whose width and height are multiples of multipleOf (the last ones of a row and column may be
// smaller). A rectangle of fewer than maxPixels pixels is one piece. The region must outlive this
// object and stay unchanged.
//
// When maxPixels is too small for even one cell, the pieces are multipleOf wide and high all the
// same.
class Region::Pieces {
 public:
  // multipleOf must be above 0 as soon as a rectangle has to be cut.
  Pieces(const Region& region, int64_t maxPixels, int32_t multipleOf)
      : boxes_(region.boxes()), maxPixels_(maxPixels), multipleOf_(multipleOf) {}

  // Stores the next piece; false when there is none.
  bool next(Rect* piece);

 private:
  void setUp();

  std::span<const mi::Box> boxes_;
  int64_t maxPixels_;
  int32_t multipleOf_;
  Rect rect_;
  Point at_;
  int32_t pieceWidth_ = 0;
  int32_t pieceHeight_ = 0;
};

// Resumable reading: when the stream runs short, its exception passes through, and the next call
// goes on after the last complete item.
//
// The bytes are not trusted: the extents are those of the boxes, and boxes that break the banding
// rule are united (should that take more than 65535 rectangles, to their bounding rectangle).
class Region::Reader {
 public:
  // Changes target only when the region is complete. If there is no memory for it, the region is
  // consumed and target becomes empty.
  void read(rdr::InStream& in, Region& target);
  bool inProgress() const { return progress_ >= 0; }
  // Gives up the read under way.
  void reset();

 private:
  void keep(const mi::Box& box);

  int32_t progress_ = -1;  // items taken: the count, the extents, then boxes
  uint16_t count_ = 0;
  mi::Box extents_;
  std::vector<mi::Box> boxes_;
  bool dropped_ = false;
};

inline Region::Rects Region::rects() const {
  return Rects(region_.boxes());
}

}  // namespace rfb

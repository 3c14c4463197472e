#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "Xregion/BandBuilder.h"
#include "Xregion/BandCursor.h"
#include "Xregion/Box.h"
#include "Xregion/Rows.h"

namespace mi {

// The operations in the rows that both operands cover: each gets one band of either, writes at most
// as many boxes as there are in both, and returns the end of what it wrote.

struct Unite {
  static constexpr bool kKeepsA = true;
  static constexpr bool kKeepsB = true;

  static Box* merge(Box* out, const Box* a, const Box* aEnd, const Box* b, const Box* bEnd,
                    const Rows& rows) {
    if (aEnd - a == 1 && bEnd - b == 1 && a->x1 <= b->x2 && b->x1 <= a->x2) {
      rows.put(out, std::min(a->x1, b->x1), std::max(a->x2, b->x2));
      return out + 1;
    }
    int16_t x1 = std::min(a->x1, b->x1);
    int16_t x2 = x1;
    const auto take = [&](const Box& box) {
      if (box.x1 > x2) {
        rows.put(out++, x1, x2);
        x1 = box.x1;
        x2 = box.x2;
      } else {
        x2 = std::max(x2, box.x2);
      }
    };
    for (;;) {
      if (a->x1 < b->x1) {
        take(*a);
        if (++a == aEnd) break;
      } else {
        take(*b);
        if (++b == bEnd) break;
      }
    }
    const Box* rest = a != aEnd ? a : b;
    const Box* const restEnd = a != aEnd ? aEnd : bEnd;
    for (; rest != restEnd && rest->x1 <= x2; ++rest) x2 = std::max(x2, rest->x2);
    rows.put(out, x1, x2);
    return rows.putAll(out + 1, rest, restEnd);
  }
};

struct Intersect {
  static constexpr bool kKeepsA = false;
  static constexpr bool kKeepsB = false;

  static Box* merge(Box* out, const Box* a, const Box* aEnd, const Box* b, const Box* bEnd,
                    const Rows& rows) {
    for (;;) {
      const int16_t x1 = std::max(a->x1, b->x1);
      const int16_t x2 = std::min(a->x2, b->x2);
      rows.put(out, x1, x2);
      out += x1 < x2;
      if (a->x2 == x2) {
        b += b->x2 == x2;
        if (++a == aEnd || b == bEnd) return out;
      } else if (++b == bEnd) {
        return out;
      }
    }
  }
};

struct Subtract {
  static constexpr bool kKeepsA = true;
  static constexpr bool kKeepsB = false;

  static Box* merge(Box* out, const Box* a, const Box* aEnd, const Box* b, const Box* bEnd,
                    const Rows& rows) {
    int16_t x1 = a->x1;  // what is left of a begins here
    while (a != aEnd && b != bEnd) {
      const int16_t cut = std::min(b->x1, a->x2);
      rows.put(out, x1, cut);
      out += x1 < cut;
      x1 = std::max(x1, b->x2);
      if (x1 >= a->x2) {
        ++a;
        if (a != aEnd) x1 = a->x1;
      } else {
        ++b;
      }
    }
    if (a == aEnd) return out;
    rows.put(out, x1, a->x2);
    return rows.putAll(out + 1, a + 1, aEnd);
  }
};

// Passes over rows in which one operand stands alone, from top to at most limit, and keeps them if
// asked to. Returns the row that has been reached, unless that is the cursor's.
template <bool kKeep>
[[gnu::always_inline]] inline int32_t passRows(BandBuilder& out, BandCursor& cursor, int32_t top,
                                               int32_t limit) {
  if (cursor.y2() > limit) {
    if (kKeep) {
      out.addBand(cursor.band(), cursor.bandEnd(), static_cast<int16_t>(top),
                  static_cast<int16_t>(limit));
    }
    return limit;
  }
  if (!kKeep) {
    cursor.moveTo(cursor.firstBelow(limit));
  } else if (cursor.y1() < top) {
    out.addBand(cursor.band(), cursor.bandEnd(), static_cast<int16_t>(top), cursor.y2());
    cursor.advance();
  } else {
    const Box* next = cursor.firstBelow(limit);
    out.addBands(cursor.band(), cursor.bandEnd(), next);
    cursor.moveTo(next);
  }
  return top;
}

// Keeps all that is left of one operand, below row done.
inline void keepRest(BandBuilder& out, BandCursor& cursor, int32_t done) {
  if (!cursor.atEnd() && cursor.y1() < done) {
    out.addBand(cursor.band(), cursor.bandEnd(), static_cast<int16_t>(done), cursor.y2());
    cursor.advance();
  }
  out.addBands(cursor.band(), cursor.bandEnd(), cursor.end());
}

// Adds the bands of a combination of two banded lists to an empty builder.
//
// Inlined, so that the builder, local to the caller, stays in registers.
template <typename Op>
[[gnu::always_inline]] inline void combine(BandBuilder& out, std::span<const Box> a,
                                           std::span<const Box> b) {
  out.reserve(a.size() + b.size());
  BandCursor ca(a);
  BandCursor cb(b);
  int32_t done = INT16_MIN;  // the rows above are finished
  while (!ca.atEnd() && !cb.atEnd()) {
    const int32_t aTop = std::max<int32_t>(ca.y1(), done);
    const int32_t bTop = std::max<int32_t>(cb.y1(), done);
    if (aTop < bTop) {
      done = passRows<Op::kKeepsA>(out, ca, aTop, bTop);
    } else if (bTop < aTop) {
      done = passRows<Op::kKeepsB>(out, cb, bTop, aTop);
    } else {
      const int16_t bottom = std::min(ca.y2(), cb.y2());
      Box* band = out.reserve(ca.length() + cb.length());
      out.finishBand(Op::merge(band, ca.band(), ca.bandEnd(), cb.band(), cb.bandEnd(),
                               Rows(static_cast<int16_t>(aTop), bottom)));
      done = bottom;
      if (ca.y2() == bottom) ca.advance();
      if (cb.y2() == bottom) cb.advance();
    }
  }
  if (Op::kKeepsA) keepRest(out, ca, done);
  if (Op::kKeepsB) keepRest(out, cb, done);
}

}  // namespace mi

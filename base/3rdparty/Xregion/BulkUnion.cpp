#include "Xregion/BulkUnion.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

namespace mi {

namespace {

constexpr size_t kRadixSortMinimum = 256;

uint64_t toKey(const Box& box) {
  const auto biased = [](int16_t v) { return uint64_t{static_cast<uint16_t>(v - INT16_MIN)}; };
  return biased(box.y1) << 48 | biased(box.x1) << 32 | biased(box.y2) << 16 | biased(box.x2);
}

int32_t coordinate(uint64_t key, int shift) {
  return static_cast<int32_t>(key >> shift & 0xffff) + INT16_MIN;
}
int32_t y1Of(uint64_t key) {
  return coordinate(key, 48);
}
int32_t x1Of(uint64_t key) {
  return coordinate(key, 32);
}
int32_t y2Of(uint64_t key) {
  return coordinate(key, 16);
}
int32_t x2Of(uint64_t key) {
  return coordinate(key, 0);
}

Box toBox(uint64_t key) {
  return {static_cast<int16_t>(x1Of(key)), static_cast<int16_t>(y1Of(key)),
          static_cast<int16_t>(x2Of(key)), static_cast<int16_t>(y2Of(key))};
}

}  // namespace

BulkUnion::BulkUnion(std::span<const Box> boxes) {
  keys_.reserve(boxes.size());
  bool sorted = true;
  uint64_t last = 0;
  for (const Box& box : boxes) {
    if (box.isEmpty()) continue;
    const uint64_t key = toKey(box);
    sorted = sorted && last <= key;
    last = key;
    keys_.push_back(key);
  }
  if (!sorted) sort();
}

void BulkUnion::sort() {
  if (keys_.size() < kRadixSortMinimum) {
    std::sort(keys_.begin(), keys_.end());
    return;
  }
  // By the four bytes of x1 and y1, least significant first. The order of boxes that begin at the
  // same pixel does not matter.
  std::pmr::vector<uint64_t> sorted(keys_.size(), &memory_);
  std::array<std::array<uint32_t, 256>, 4> places{};
  for (const uint64_t key : keys_) {
    for (size_t byte = 0; byte < 4; ++byte) places[byte][key >> (32 + 8 * byte) & 0xff]++;
  }
  for (size_t byte = 0; byte < 4; ++byte) {
    const size_t shift = 32 + 8 * byte;
    if (places[byte][keys_[0] >> shift & 0xff] == keys_.size()) continue;
    uint32_t next = 0;
    for (uint32_t& place : places[byte]) next += std::exchange(place, next);
    for (const uint64_t key : keys_) sorted[places[byte][key >> shift & 0xff]++] = key;
    keys_.swap(sorted);
  }
}

// Adds the profile that reaches as far down as the deeper of two in each column.
void BulkUnion::join(const Step* a, const Step* b, Steps& out) {
  int32_t aDepth = kNothing;
  int32_t bDepth = kNothing;
  int32_t depth = kNothing;
  for (;;) {
    const int32_t x = std::min(a->x, b->x);
    if (x == kEnd) break;
    if (a->x == x) aDepth = (a++)->y2;
    if (b->x == x) bDepth = (b++)->y2;
    const int32_t deeper = std::max(aDepth, bDepth);
    if (deeper != depth) out.push_back({x, deeper});
    depth = deeper;
  }
  out.push_back(kEndMark);
}

// Sets starting_ to the profile of boxes that begin at the same row.
void BulkUnion::startProfile(size_t first, size_t end) {
  // Boxes that overlap can't stand in one profile: begin another one for each, then join them by
  // twos.
  starting_.clear();
  runs_.clear();
  runs_.push_back(0);
  int32_t x2 = kNothing;
  for (size_t i = first; i < end; ++i) {
    const uint64_t key = keys_[i];
    const int32_t x1 = x1Of(key);
    if (x1 == x2) {
      starting_.pop_back();
    } else if (x1 < x2) {
      starting_.push_back(kEndMark);
      runs_.push_back(starting_.size());
    }
    x2 = x2Of(key);
    starting_.push_back({x1, y2Of(key)});
    starting_.push_back({x2, kNothing});
  }
  starting_.push_back(kEndMark);

  while (runs_.size() > 1) {
    scratch_.clear();
    size_t joined = 0;
    for (size_t i = 0; i < runs_.size(); i += 2) {
      const Step* other = i + 1 < runs_.size() ? &starting_[runs_[i + 1]] : &kEndMark;
      const Step* run = &starting_[runs_[i]];
      runs_[joined++] = scratch_.size();
      join(run, other, scratch_);
    }
    runs_.resize(joined);
    starting_.swap(scratch_);
  }
}

// Goes on to row y: drops what ends there, adds what starts there, and writes the spans covered,
// without y2. Stores the row where the profile changes next, kEnd for a profile that is empty.
Box* BulkUnion::advance(int32_t y, const Step* added, Box* out, int32_t* nextY) {
  const Step* old = profile_.data();
  Step* step = scratch_.data();
  const Rows rows(static_cast<int16_t>(y), static_cast<int16_t>(y));
  int32_t oldDepth = kNothing;
  int32_t addedDepth = kNothing;
  int32_t depth = kNothing;
  int32_t shallowest = kEnd;
  int32_t x1 = 0;
  for (;;) {
    const int32_t x = std::min(old->x, added->x);
    if (x == kEnd) break;
    if (old->x == x) {
      oldDepth = old->y2 > y ? old->y2 : kNothing;
      ++old;
    }
    if (added->x == x) addedDepth = (added++)->y2;
    const int32_t deeper = std::max(oldDepth, addedDepth);
    if (deeper == depth) continue;
    *step++ = {x, deeper};
    if (deeper == kNothing) {
      rows.put(out++, static_cast<int16_t>(x1), static_cast<int16_t>(x));
    } else {
      shallowest = std::min(shallowest, deeper);
      if (depth == kNothing) x1 = x;
    }
    depth = deeper;
  }
  *step++ = kEndMark;
  profileSize_ = static_cast<size_t>(step - scratch_.data());
  profile_.swap(scratch_);
  *nextY = shallowest;
  return out;
}

bool BulkUnion::run(BandBuilder& out, size_t maxBoxes) {
  if (keys_.empty()) return true;
  profile_.assign(1, kEndMark);
  profileSize_ = 1;
  starting_.reserve(32);
  scratch_.resize(32);
  Step one[3] = {{0, 0}, {0, 0}, kEndMark};  // profile of a single box
  size_t next = 0;
  int32_t y = y1Of(keys_[0]);
  while (y != kEnd) {
    const size_t first = next;
    while (next < keys_.size() && y1Of(keys_[next]) == y) ++next;
    const Step* added = one;
    size_t addedSize = std::size(one);
    if (next - first == 1) {
      const uint64_t key = keys_[first];
      one[0] = {x1Of(key), y2Of(key)};
      one[1] = {x2Of(key), kNothing};
    } else if (next == first) {
      added = one + 2;
      addedSize = 1;
    } else {
      startProfile(first, next);
      added = starting_.data();
      addedSize = starting_.size();
    }

    const size_t most = profileSize_ + addedSize;
    if (scratch_.size() < most) scratch_.resize(2 * most);
    Box* band = out.reserve(most / 2);
    int32_t nextY = kEnd;
    Box* end = advance(y, added, band, &nextY);
    if (next < keys_.size()) nextY = std::min(nextY, y1Of(keys_[next]));
    for (Box* box = band; box != end; ++box) box->y2 = static_cast<int16_t>(nextY);
    out.finishBand(end);
    if (out.count() > maxBoxes) return false;
    y = nextY;
  }
  return true;
}

Box BulkUnion::bounds() const {
  Box bounds;
  for (const uint64_t key : keys_) {
    const Box box = toBox(key);
    if (bounds.isEmpty()) bounds = box;
    bounds = {std::min(bounds.x1, box.x1), std::min(bounds.y1, box.y1), std::max(bounds.x2, box.x2),
              std::max(bounds.y2, box.y2)};
  }
  return bounds;
}

}  // namespace mi

#include "Replica.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <unordered_map>
#include <utility>

namespace view {

namespace {

constexpr int kCell = Frame::kCellWidth;
constexpr int kRows = Frame::kTileRows;

constexpr size_t kRawArea = 400;  // a glyph: a page draws it at once

// Pieces are no larger than this, in pixels: several are encoded at a time, and a page can show the
// first while the next comes.
constexpr int kMaxArea = 256 * 1024;
// Of a picture that is new: beyond it, it comes lossy first.
constexpr size_t kLossyFirst = 64 * 1024;
// Of what has rested, in one frame: what changes meanwhile shall not wait for long.
constexpr size_t kRestBudget = 384 * 1024;
// Fewer tiles of another kind between two are taken along.
constexpr int kShortRun = 8;
constexpr size_t kFilmColours = 20;
// Rows that make a copy worth looking for.
constexpr int kMinCopyRows = 48;
// Rows that are taken together, and how many such places must agree.
constexpr size_t kWindow = 24;
constexpr int kMinVotes = 4;
constexpr uint64_t kFactor = 0x9e3779b97f4a7c15;
// Work beyond this is shared with other threads.
constexpr size_t kManyPixels = 96 * 1024;

size_t areaOf(const Rect& rect) {
  return static_cast<size_t>(rect.width()) * static_cast<size_t>(rect.height());
}

// Smooth parts of a film have few colours, too, but more than what is drawn mostly has.
bool mayBeFilm(const Pixels& pixels) {
  std::array<uint32_t, kFilmColours> colours{};
  size_t count = 0;
  for (int y = 0; y < pixels.height; y += 2) {
    const uint8_t* row = pixels.row(y);
    for (int x = 0; x < pixels.width; ++x) {
      uint32_t colour;
      std::memcpy(&colour, row + static_cast<size_t>(x) * 4, sizeof colour);
      colour &= 0xffffff;
      const auto end = colours.begin() + static_cast<ptrdiff_t>(count);
      if (std::find(colours.begin(), end, colour) != end) continue;
      if (count == colours.size()) return true;
      colours[count++] = colour;
    }
  }
  return false;
}

std::vector<uint8_t> copyFrom(int x, int y) {
  return {static_cast<uint8_t>(x), static_cast<uint8_t>(x >> 8), static_cast<uint8_t>(y),
          static_cast<uint8_t>(y >> 8)};
}

}  // namespace

Replica::Replica(const Frame& frame)
    : frame_(frame),
      columns_(frame.columns()),
      tileRows_((frame.height() + kRows - 1) / kRows),
      have_(static_cast<size_t>(columns_) * static_cast<size_t>(frame.height())),
      dirty_(static_cast<size_t>(columns_) * static_cast<size_t>(tileRows_)),
      lossy_(dirty_.size()),
      needs_(dirty_.size()) {
  changed(frame.bounds());
}

void Replica::changed(const Rect& area) {
  const int left = std::max(area.x1, 0) / kCell;
  const int right = std::min((area.x2 + kCell - 1) / kCell, columns_);
  const int top = std::max(area.y1, 0) / kRows;
  const int bottom = std::min((area.y2 + kRows - 1) / kRows, tileRows_);
  for (int row = top; row < bottom; ++row) {
    for (int column = left; column < right; ++column) dirty_[tileIndex(column, row)] = 1;
  }
  if (left >= right || top >= bottom) return;
  anyDirty_ = true;
  changedArea_ = changedArea_.isEmpty()
                     ? area
                     : Rect{std::min(changedArea_.x1, area.x1), std::min(changedArea_.y1, area.y1),
                            std::max(changedArea_.x2, area.x2), std::max(changedArea_.y2, area.y2)};
}

bool Replica::isBehind(int64_t nowMs) const {
  return anyDirty_ || msUntilRest(nowMs) == 0;
}

int Replica::msUntilRest(int64_t nowMs) const {
  if (!anyLossy_) return -1;
  int64_t next = -1;
  for (int row = 0; row < tileRows_; ++row) {
    for (int column = 0; column < columns_; ++column) {
      if (!lossy_[tileIndex(column, row)]) continue;
      const int64_t left = frame_.lastChangeMs(column, row * kRows) + Frame::kRestMs - nowMs;
      if (left <= 0) return 0;
      if (next < 0 || left < next) next = left;
    }
  }
  return static_cast<int>(next);
}

Rect Replica::rectOf(const Group& group) const {
  Rect rect{group.left * kCell, group.top, std::min(group.right * kCell, frame_.width()),
            group.bottom};
  if (!group.whole) {
    rect.x1 = std::max(rect.x1, changedArea_.x1);
    rect.x2 = std::min(rect.x2, changedArea_.x2);
  }
  return rect;
}

// The distance that most of these columns' rows have moved by. Single rows of text look alike, so
// that each is taken together with those below it: one that is unlike all others tells where it
// was.
std::optional<int> Replica::findShift(int first, int last) const {
  const int height = frame_.height();
  if (height <= static_cast<int>(kWindow)) return std::nullopt;
  const auto mix = [](uint64_t sum, uint64_t value) {
    return sum * kFactor + (value ^ value >> 29);
  };
  std::vector<uint64_t> was(static_cast<size_t>(height)), is(was.size());
  for (int y = 0; y < height; ++y) {
    uint64_t before = 0, now = 0;
    for (int column = first; column < last; ++column) {
      before = mix(before, have_[frame_.index(column, y)] & ~uint64_t{1});
      now = mix(now, frame_.hash(column, y));
    }
    was[static_cast<size_t>(y)] = before;
    is[static_cast<size_t>(y)] = now;
  }
  uint64_t power = 1;
  for (size_t i = 0; i < kWindow; ++i) power *= kFactor;
  const auto join = [power, mix](std::vector<uint64_t>& rows) {
    std::vector<uint64_t> windows;
    uint64_t sum = 0;
    for (size_t y = 0; y < rows.size(); ++y) {
      const uint64_t gone = y < kWindow ? 0 : rows[y - kWindow];
      sum = mix(sum, rows[y]) - (y < kWindow ? 0 : (gone ^ gone >> 29) * power);
      if (y + 1 >= kWindow) windows.push_back(sum);
    }
    rows = std::move(windows);
  };
  join(was);
  join(is);

  std::unordered_map<uint64_t, int> places;
  for (size_t y = 0; y < was.size(); ++y) {
    const auto [known, isNew] = places.try_emplace(was[y], static_cast<int>(y));
    if (!isNew) known->second = -1;
  }
  std::unordered_map<int, int> votes;
  for (size_t y = 0; y < is.size(); ++y) {
    if (is[y] == was[y]) continue;
    const auto found = places.find(is[y]);
    if (found != places.end() && found->second >= 0) ++votes[found->second - static_cast<int>(y)];
  }
  const auto best = std::max_element(
      votes.begin(), votes.end(), [](const auto& x, const auto& y) { return x.second < y.second; });
  if (best == votes.end() || best->second < kMinVotes || best->first == 0) return std::nullopt;
  return best->first;
}

bool Replica::copyColumns(int first, int last, int shift, std::vector<Piece>& pieces) {
  const int height = frame_.height();
  const auto old = [&](int column, int y) { return have_[frame_.index(column, y)] & ~uint64_t{1}; };
  // From the first to the last row that has come from there.
  int top = height, bottom = 0;
  for (int y = std::max(0, -shift); y < height - std::max(0, shift); ++y) {
    int other = 0, came = 0;
    for (int column = first; column < last; ++column) {
      if (!differs(column, y)) continue;
      ++other;
      if (old(column, y + shift) == frame_.hash(column, y)) ++came;
    }
    if (came == 0 || came * 2 < other) continue;
    top = std::min(top, y);
    bottom = y + 1;
  }
  if (bottom - top < kMinCopyRows / 2) return false;
  size_t before = 0, after = 0;
  for (int y = top; y < bottom; ++y) {
    for (int column = first; column < last; ++column) {
      before += differs(column, y);
      after += old(column, y + shift) != frame_.hash(column, y);
    }
  }
  if (after * 2 > before) return false;

  const auto move = [&](int y) {
    std::copy_n(have_.begin() + static_cast<ptrdiff_t>(frame_.index(first, y + shift)),
                last - first, have_.begin() + static_cast<ptrdiff_t>(frame_.index(first, y)));
  };
  if (shift > 0) {
    for (int y = top; y < bottom; ++y) move(y);
  } else {
    for (int y = bottom - 1; y >= top; --y) move(y);
  }
  const Rect rect = rectOf({Kind::kNone, first, last, top, bottom, 0, true});
  changed(rect);
  if (anyLossy_) {
    for (int row = top / kRows; row <= (bottom - 1) / kRows; ++row) {
      for (int column = first; column < last; ++column) lossy_[tileIndex(column, row)] = 1;
    }
  }
  pieces.push_back({rect, Encoding::kCopy, copyFrom(rect.x1, rect.y1 + shift)});
  return true;
}

// Scrolled areas: columns that differ over many rows, next to each other.
void Replica::findCopies(std::vector<Piece>& pieces) {
  std::vector<bool> tall(static_cast<size_t>(columns_));
  for (int column = 0; column < columns_; ++column) {
    int rows = 0;
    for (int row = 0; row < tileRows_; ++row) {
      if (dirty_[tileIndex(column, row)]) rows += kRows;
    }
    tall[static_cast<size_t>(column)] = rows >= kMinCopyRows;
  }
  for (int first = 0; first < columns_;) {
    if (!tall[static_cast<size_t>(first)]) {
      ++first;
      continue;
    }
    int last = first;
    while (last < columns_ && tall[static_cast<size_t>(last)]) ++last;
    // At the sides of what was scrolled something else may stand.
    const int side = last - first > 2 ? 1 : 0;
    if (const std::optional<int> shift = findShift(first + side, last - side)) {
      if (!copyColumns(first, last, *shift, pieces) && side > 0) {
        copyColumns(first + 1, last - 1, *shift, pieces);
      }
    }
    first = last;
  }
}

void Replica::findNeeds(bool copied, int64_t nowMs) {
  size_t pictures = 0, rested = 0;
  bool lossyLeft = false;
  std::vector<uint8_t> scratch;
  for (int row = 0; row < tileRows_; ++row) {
    const int top = row * kRows;
    const int bottom = std::min(top + kRows, frame_.height());
    for (int column = 0; column < columns_; ++column) {
      const size_t index = tileIndex(column, row);
      Need& need = needs_[index];
      need = {};
      if (!dirty_[index] && !lossy_[index]) continue;
      const bool rests =
          lossy_[index] && nowMs - frame_.lastChangeMs(column, top) >= Frame::kRestMs;
      if (!dirty_[index] && !rests) {
        lossyLeft = true;
        continue;
      }
      bool stays = false, wasLossy = false, isUnknown = false;
      for (int y = top; y < bottom; ++y) {
        const uint64_t have = have_[frame_.index(column, y)];
        const uint64_t wanted = frame_.hash(column, y);
        wasLossy = wasLossy || (have & 1);
        if (have == wanted) continue;
        isUnknown = isUnknown || have == 0;
        const bool lossy = have == (wanted | 1);
        if (lossy && !rests) {
          stays = true;
          continue;
        }
        if (need.bottom == 0) need.top = y;
        need.bottom = y + 1;
      }
      dirty_[index] = 0;
      lossy_[index] = stays;
      lossyLeft = lossyLeft || stays;
      if (need.bottom == 0) continue;
      need.whole = rests || copied || isUnknown;
      const bool moves = !rests && frame_.keepsChanging(column, top, nowMs);
      const int x = column * kCell;
      const Pixels pixels =
          pixelsOf(frame_.framebuffer(),
                   {x, need.top, std::min(x + kCell, frame_.width()), need.bottom}, scratch);
      // What was a film stays one as long as it moves, without another look at its colours.
      switch (moves && wasLossy && !isSolid(pixels) ? Content::kManyColours : contentOf(pixels)) {
        case Content::kSolid: {
          need.kind = Kind::kSolid;
          const std::vector<uint8_t> colour = encodeSolid(pixels);
          need.colour = static_cast<uint32_t>(colour[0] | colour[1] << 8 | colour[2] << 16);
          break;
        }
        case Content::kFewColours:
          need.kind = moves && mayBeFilm(pixels) ? Kind::kLossy : Kind::kFew;
          break;
        case Content::kManyColours: {
          const size_t area =
              static_cast<size_t>(pixels.width) * static_cast<size_t>(pixels.height);
          if (rests) {
            if (rested >= kRestBudget) {
              need = {};
              lossy_[index] = 1;
              lossyLeft = true;
              break;
            }
            rested += area;
            need.kind = Kind::kMany;
          } else if (moves) {
            need.kind = Kind::kLossy;
          } else {
            pictures += area;
            need.kind = Kind::kMany;
          }
          break;
        }
      }
    }
  }
  if (pictures > kLossyFirst && rested == 0) {
    for (Need& need : needs_) {
      if (need.kind == Kind::kMany) need.kind = Kind::kLossy;
    }
  }
  anyDirty_ = false;
  anyLossy_ = lossyLeft;
}

// Fewer, larger rectangles: what lies between two of a kind goes along.
void Replica::smooth() {
  const auto bridge = [this](int row, Kind kind, auto&& mayJoin) {
    int last = -1;
    for (int column = 0; column < columns_; ++column) {
      if (needs_[tileIndex(column, row)].kind != kind) continue;
      if (last >= 0 && column - last > 1 && column - last <= kShortRun) {
        bool all = true;
        for (int between = last + 1; all && between < column; ++between) {
          all = mayJoin(needs_[tileIndex(between, row)].kind);
        }
        for (int between = last + 1; all && between < column; ++between) {
          needs_[tileIndex(between, row)].kind = kind;
        }
      }
      last = column;
    }
  };
  for (int row = 0; row < tileRows_; ++row) {
    bridge(row, Kind::kLossy, [](Kind kind) { return kind != Kind::kNone; });
    bridge(row, Kind::kMany, [](Kind kind) { return kind == Kind::kFew || kind == Kind::kSolid; });
    bridge(row, Kind::kFew, [](Kind kind) { return kind == Kind::kSolid; });
  }
}

// Joins runs of a row of tiles with the groups above that they continue.
void Replica::joinRow(int tileRow, bool lossy, std::vector<Group>& open, std::vector<Group>& done) {
  std::vector<Group> now;
  for (int column = 0; column < columns_;) {
    const Need& need = needs_[tileIndex(column, tileRow)];
    if (need.kind == Kind::kNone || (need.kind == Kind::kLossy) != lossy) {
      ++column;
      continue;
    }
    Group group{need.kind, column, column, frame_.height(), 0, need.colour, false};
    while (column < columns_) {
      Need& each = needs_[tileIndex(column, tileRow)];
      if (each.kind != group.kind) break;
      if (each.kind == Kind::kSolid &&
          (each.colour != need.colour || each.top != need.top || each.bottom != need.bottom)) {
        break;  // its other rows are not solid
      }
      if ((column - group.left) * kCell * kRows >= kMaxArea) break;
      if (each.bottom > 0) {  // a bridged one may have nothing of its own
        group.top = std::min(group.top, each.top);
        group.bottom = std::max(group.bottom, each.bottom);
        group.whole = group.whole || each.whole;
      }
      ++column;
    }
    group.right = column;
    now.push_back(group);
  }
  for (Group& group : now) {
    for (Group& above : open) {
      if (above.kind != group.kind || above.bottom != group.top || above.bottom < 0) continue;
      if (above.kind == Kind::kSolid && above.colour != group.colour) continue;
      const int left = std::min(above.left, group.left), right = std::max(above.right, group.right);
      const bool fits = group.kind == Kind::kLossy
                            ? (right - left) * 4 <=
                                  std::min(above.right - above.left, group.right - group.left) * 5
                            : above.left == group.left && above.right == group.right;
      const int limit = group.kind == Kind::kSolid ? INT32_MAX : kMaxArea;
      if (!fits || (right - left) * kCell * (group.bottom - above.top) > limit) continue;
      group.left = left;
      group.right = right;
      group.top = above.top;
      group.whole = group.whole || above.whole;
      above.bottom = -1;  // goes on in this one
      break;
    }
  }
  for (const Group& group : open) {
    if (group.bottom >= 0) done.push_back(group);
  }
  open = std::move(now);
}

std::vector<Replica::Group> Replica::group() {
  std::vector<Group> done, open;
  for (const bool lossy : {true, false}) {
    for (int row = 0; row < tileRows_; ++row) joinRow(row, lossy, open, done);
    done.insert(done.end(), open.begin(), open.end());
    open.clear();
  }
  return done;
}

void Replica::markSent(const Rect& rect, bool lossy, bool moving) {
  const int left = rect.x1 / kCell, right = (rect.x2 + kCell - 1) / kCell;
  for (int column = left; column < right; ++column) {
    const bool isWhole =
        rect.x1 <= column * kCell && rect.x2 >= std::min((column + 1) * kCell, frame_.width());
    for (int y = rect.y1; y < rect.y2; ++y) {
      uint64_t& have = have_[frame_.index(column, y)];
      const uint64_t hash = frame_.hash(column, y);
      const bool isSure = !moving || frame_.hashNow(column, y) == hash;
      // Beside what was sent, the cell is as it was.
      const bool staysLossy = !isWhole && (have & 1);
      if (!isSure || (!isWhole && have == 0)) {
        have = 0;
      } else if (lossy || staysLossy) {
        have = hash | 1;
        lossy_[tileIndex(column, y / kRows)] = 1;
        anyLossy_ = true;
      } else {
        have = hash;
      }
    }
  }
}

std::vector<Piece> Replica::next(Workers& workers, int quality, bool moving, int64_t nowMs) {
  std::vector<Piece> pieces;
  if (anyDirty_) findCopies(pieces);
  const size_t copies = pieces.size();
  findNeeds(copies > 0, nowMs);
  smooth();
  size_t work = 0;
  for (const Group& each : group()) {
    const Rect rect = rectOf(each);
    if (rect.isEmpty()) continue;
    const Encoding encoding = each.kind == Kind::kSolid   ? Encoding::kSolid
                              : each.kind == Kind::kLossy ? Encoding::kJpeg
                              : areaOf(rect) <= kRawArea  ? Encoding::kRaw
                                                          : Encoding::kPng;
    if (encoding != Encoding::kSolid) work += areaOf(rect);
    pieces.push_back({rect, encoding, {}});
  }
  changedArea_ = {};
  workers.run(pieces.size() - copies, work > kManyPixels, [&](size_t i) {
    Piece& piece = pieces[copies + i];
    std::vector<uint8_t> scratch;
    const Pixels source = pixelsOf(frame_.framebuffer(), piece.rect, scratch);
    piece.data = piece.encoding == Encoding::kSolid  ? encodeSolid(source)
                 : piece.encoding == Encoding::kRaw  ? encodeRaw(source)
                 : piece.encoding == Encoding::kJpeg ? encodeJpeg(source, quality)
                                                     : encodePng(source);
  });
  for (size_t i = copies; i < pieces.size(); ++i) {
    markSent(pieces[i].rect, pieces[i].encoding == Encoding::kJpeg, moving);
  }
  return pieces;
}

}  // namespace view

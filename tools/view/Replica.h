#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "Encoder.h"
#include "Frame.h"
#include "Workers.h"

namespace view {

// What one page has of a frame, and what it is to get next. Each page catches up at its own pace:
// what it misses is not kept, only where it misses something.
class Replica {
 public:
  explicit Replica(const Frame& frame);

  // The frame is another in this area.
  void changed(const Rect& area);
  // Whether there is something to send now.
  bool isBehind(int64_t nowMs) const;
  // Milliseconds until something lossy has rested long enough to be sent as it is; -1 for never.
  int msUntilRest(int64_t nowMs) const;

  // What brings the page up to date, and is taken as sent. `moving` tells that the agent may be
  // writing pixels meanwhile: what it has written is found, and sent again after its update.
  std::vector<Piece> next(Workers& workers, int quality, bool moving, int64_t nowMs);

 private:
  enum class Kind : uint8_t { kNone, kSolid, kFew, kMany, kLossy };

  // A tile that is to be sent, with the rows of it that differ.
  struct Need {
    Kind kind = Kind::kNone;
    int top = 0, bottom = 0;
    uint32_t colour = 0;  // of a solid one
    bool whole = false;   // may differ beyond what the agent says has changed
  };
  struct Group {
    Kind kind;
    int left, right;  // columns
    int top, bottom;  // pixels
    uint32_t colour;
    bool whole;
  };

  size_t tileIndex(int column, int tileRow) const {
    return static_cast<size_t>(tileRow) * static_cast<size_t>(columns_) +
           static_cast<size_t>(column);
  }
  bool differs(int column, int y) const {
    return (have_[frame_.index(column, y)] & ~uint64_t{1}) != frame_.hash(column, y);
  }
  Rect rectOf(const Group& group) const;

  void findCopies(std::vector<Piece>& pieces);
  std::optional<int> findShift(int first, int last) const;
  bool copyColumns(int first, int last, int shift, std::vector<Piece>& pieces);

  void findNeeds(bool copied, int64_t nowMs);
  void smooth();
  std::vector<Group> group();
  void joinRow(int tileRow, bool lossy, std::vector<Group>& open, std::vector<Group>& done);
  void markSent(const Rect& rect, bool lossy, bool moving);

  const Frame& frame_;
  const int columns_, tileRows_;
  std::vector<uint64_t> have_;          // as the frame's hashes; odd for lossy, 0 for unknown
  std::vector<uint8_t> dirty_, lossy_;  // of tiles
  std::vector<Need> needs_;
  bool anyDirty_ = false, anyLossy_ = false;
  Rect changedArea_;  // around all that has changed since the last frame
};

}  // namespace view

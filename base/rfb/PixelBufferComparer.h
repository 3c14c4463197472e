#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "rfb/ManagedPixelBuffer.h"
#include "rfb/Region.h"

namespace rfb {

// Finds what really changed in a pixel buffer since the last comparison, in blocks of 16 by 16
// pixels counted from the top-left of each rectangle that is compared. Keeps a copy of the buffer
// for that.
class PixelBufferComparer {
 public:
  static constexpr int kBlockSize = 16;  // pixels

  PixelBufferComparer();

  // The buffer to look at, which must stay until another one (or null) is set. The copy is kept, so
  // that a buffer of the same rectangle and format goes on where the former one stopped.
  void setSource(PixelBuffer* source) { source_ = source; }
  PixelBuffer* source() const { return source_; }

  // Looks at the pixels of changed, which must lie inside the source, and returns the blocks that
  // differ from the copy, which is brought up to date there. What the copy did not hold (all of it
  // after a change of format) counts as changed. Empty without a source. With the parameter
  // `SimpleRegions`, changed blocks that show one and the same solid colour before and after are
  // left out: only bits that do not count differ there.
  Region compare(const Region& changed);

 private:
  enum BlockState : uint8_t { kSame, kChanged, kLeftOut };
  // Neighbouring blocks of a band, by number.
  struct Run {
    size_t begin;
    size_t end;
    bool same;
  };

  Region followSource();
  void moveCopy();
  void compareRect(const Rect& r);
  void compareBand(const uint8_t* from, uint8_t* to, const Rect& band);
  void findRuns();
  BlockState judge(const uint8_t* from, const uint8_t* to, size_t rowBytes, int rows) const;
  bool isSolid(const uint8_t* block, ptrdiff_t stride, size_t rowBytes, int rows,
               const uint8_t* colour) const;
  void addBlocks(const Rect& band);

  PixelBuffer* source_ = nullptr;
  std::unique_ptr<ManagedPixelBuffer> copy_;

  // For the comparison under way; sizes are in bytes.
  bool simpleRegions_ = false;
  size_t pixelSize_ = 0;
  ptrdiff_t sourceStride_ = 0;
  ptrdiff_t copyStride_ = 0;
  uint8_t significant_[4] = {};     // the bits of a pixel that count, as they lie in memory
  std::vector<BlockState> blocks_;  // of one band
  std::vector<Run> runs_;
  std::vector<mi::Box> found_;
};

}  // namespace rfb

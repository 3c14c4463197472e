#include "rfb/PixelBufferComparer.h"

#include <algorithm>
#include <cstring>

#include "plat/Assert.h"
#include "plat/config/BoolParameter.h"

namespace rfb {

namespace {

plat::BoolParameter simpleRegions(
    "SimpleRegions",
    "Whether to try to simplify update regions containing blocks of solid colour which haven't "
    "actually changed",
    false, true);

std::unique_ptr<ManagedPixelBuffer> makeCopy(const PixelFormat& format, const Rect& rect) {
  auto copy = std::make_unique<ManagedPixelBuffer>(format, rect);
  copy->setPreserveOnResize(true);
  return copy;
}

uint32_t significantBits(const PixelFormat& format) {
  if (!format.trueColour) return (1u << std::min<int>(format.depth, 31)) - 1;
  const auto bits = [](uint16_t max, uint8_t shift) {
    return shift < 32 ? uint32_t{max} << shift : 0;
  };
  return bits(format.redMax, format.redShift) | bits(format.greenMax, format.greenShift) |
         bits(format.blueMax, format.blueShift) | bits(format.alphaMax, format.alphaShift);
}

template <size_t bytes>
bool isSame(const uint8_t* a, const uint8_t* b) {
  uint64_t difference = 0;
  for (size_t i = 0; i < bytes; i += sizeof difference) {
    uint64_t x, y;
    std::memcpy(&x, a + i, sizeof x);
    std::memcpy(&y, b + i, sizeof y);
    difference |= x ^ y;
  }
  return difference == 0;
}

// Of a block's row, which is too short for a call each.
bool isSame(const uint8_t* a, const uint8_t* b, size_t bytes) {
  switch (bytes) {
    case PixelBufferComparer::kBlockSize * 4:
      return isSame<PixelBufferComparer::kBlockSize * 4>(a, b);
    case PixelBufferComparer::kBlockSize * 2:
      return isSame<PixelBufferComparer::kBlockSize * 2>(a, b);
    default:
      return std::memcmp(a, b, bytes) == 0;
  }
}

}  // namespace

PixelBufferComparer::PixelBufferComparer() : copy_(makeCopy(PixelFormat(), Rect())) {}

Region PixelBufferComparer::compare(const Region& changed) {
  if (!source_) return Region();
  Region result = followSource();

  const PixelBuffer* pb = copy_.get();
  for (const Rect& r : changed.rects()) {
    PLAT_ASSERT_MSG(pb->getRect().encloses(r), "rect %s outside pb %s", r.str().c_str(),
                    pb->getRect().str().c_str());
  }
  if ((changed - result).isEmpty()) return result;

  simpleRegions_ = simpleRegions.value();
  const PixelFormat& format = copy_->getPF();
  pixelSize_ = static_cast<size_t>(format.bytesPerPixel());
  const uint32_t bits = significantBits(format);
  const bool mostSignificantFirst = format.bigEndian && pixelSize_ != 3;
  for (size_t i = 0; i < pixelSize_; ++i) {
    const size_t byte = mostSignificantFirst ? pixelSize_ - 1 - i : i;
    significant_[i] = static_cast<uint8_t>(bits >> (8 * byte));
  }

  found_.clear();
  for (const Rect& r : changed.rects()) compareRect(r);
  Region found;
  found.setBanded(found_);
  result |= found;
  return result;
}

// Gives the copy the source's format and rectangle, and returns the part of it that is new.
Region PixelBufferComparer::followSource() {
  const Rect rect = source_->getRect();
  const Rect oldRect = copy_->getRect();
  Region exposed;
  if (source_->getPF() != copy_->getPF()) {
    copy_ = makeCopy(source_->getPF(), rect);
    exposed = rect;
  } else if (rect != oldRect) {
    moveCopy();
    exposed = Region(rect) - Region(oldRect);
  }
  for (const Rect& r : exposed.rects()) {
    int stride = 0;
    uint8_t* to = copy_->getPixelsRW(r, &stride);
    source_->getImage(to, r, stride);
  }
  return exposed;
}

// Moves or resizes the copy to the source's rectangle; pixels in both stay where they are.
void PixelBufferComparer::moveCopy() {
  const Rect rect = source_->getRect();
  if (rect.tl == copy_->getRect().tl) {
    copy_->setSize(rect.width(), rect.height());
    return;
  }
  auto moved = makeCopy(copy_->getPF(), rect);
  const Rect common = rect.intersect(copy_->getRect());
  int stride = 0;
  uint8_t* to = moved->getPixelsRW(common, &stride);
  if (to) copy_->getImage(to, common, stride);
  copy_ = std::move(moved);
}

void PixelBufferComparer::compareRect(const Rect& r) {
  int stride = 0;
  const uint8_t* from = source_->getPixelsR(r, &stride);
  sourceStride_ = stride * static_cast<ptrdiff_t>(pixelSize_);
  uint8_t* to = copy_->getPixelsRW(r, &stride);
  copyStride_ = stride * static_cast<ptrdiff_t>(pixelSize_);
  for (int y = r.tl.y; y < r.br.y; y += kBlockSize) {
    const Rect band(r.tl.x, y, r.br.x, std::min(y + kBlockSize, r.br.y));
    compareBand(from, to, band);
    from += kBlockSize * sourceStride_;
    to += kBlockSize * copyStride_;
  }
}

// Compares a row of blocks. The rows are read from end to end, which is what memory is fastest at;
// single blocks matter only from the first row that differs.
void PixelBufferComparer::compareBand(const uint8_t* from, uint8_t* to, const Rect& band) {
  const size_t rowBytes = static_cast<size_t>(band.width()) * pixelSize_;
  const uint8_t* const fromTop = from;
  const uint8_t* const toTop = to;
  int rows = band.height();
  while (std::memcmp(from, to, rowBytes) == 0) {
    if (--rows == 0) return;
    from += sourceStride_;
    to += copyStride_;
  }

  const size_t blockBytes = kBlockSize * pixelSize_;
  blocks_.assign((rowBytes + blockBytes - 1) / blockBytes, kSame);
  findRuns();
  for (; rows > 0; rows--, from += sourceStride_, to += copyStride_) {
    bool more = false;
    for (const Run& run : runs_) {
      const size_t begin = run.begin * blockBytes;
      const size_t end = std::min(run.end * blockBytes, rowBytes);
      if (!run.same) {
        std::memcpy(to + begin, from + begin, end - begin);
        continue;
      }
      if (std::memcmp(from + begin, to + begin, end - begin) == 0) continue;
      more = true;
      size_t firstChanged = end;
      size_t endOfChanged = begin;
      for (size_t i = run.begin; i < run.end; ++i) {
        const size_t at = i * blockBytes;
        const size_t bytes = std::min(blockBytes, end - at);
        if (isSame(from + at, to + at, bytes)) continue;
        // Up to here the block's former pixels are untouched.
        blocks_[i] = judge(fromTop + at, toTop + at, bytes, band.height());
        firstChanged = std::min(firstChanged, at);
        endOfChanged = at + bytes;
      }
      std::memcpy(to + firstChanged, from + firstChanged, endOfChanged - firstChanged);
    }
    if (more) findRuns();
  }
  addBlocks(band);
}

// Sorts the blocks of a band into neighbours that have been found to differ and those that have
// not.
void PixelBufferComparer::findRuns() {
  runs_.clear();
  for (size_t i = 0; i < blocks_.size(); ++i) {
    const bool same = blocks_[i] == kSame;
    if (runs_.empty() || runs_.back().same != same) runs_.push_back({i, i, same});
    runs_.back().end = i + 1;
  }
}

PixelBufferComparer::BlockState PixelBufferComparer::judge(const uint8_t* from, const uint8_t* to,
                                                           size_t rowBytes, int rows) const {
  const bool sameColour = simpleRegions_ && isSolid(from, sourceStride_, rowBytes, rows, from) &&
                          isSolid(to, copyStride_, rowBytes, rows, from);
  return sameColour ? kLeftOut : kChanged;
}

// Whether all pixels of a block show the colour of a given pixel.
bool PixelBufferComparer::isSolid(const uint8_t* block, ptrdiff_t stride, size_t rowBytes, int rows,
                                  const uint8_t* colour) const {
  for (; rows > 0; rows--, block += stride) {
    for (size_t i = 0; i < rowBytes; i += pixelSize_) {
      for (size_t byte = 0; byte < pixelSize_; ++byte) {
        if ((block[i + byte] ^ colour[byte]) & significant_[byte]) return false;
      }
    }
  }
  return true;
}

// Adds the changed blocks of a band to those found, neighbours as one box.
void PixelBufferComparer::addBlocks(const Rect& band) {
  for (size_t i = 0; i < blocks_.size(); ++i) {
    if (blocks_[i] != kChanged) continue;
    const size_t first = i;
    while (i + 1 < blocks_.size() && blocks_[i + 1] == kChanged) i++;
    const Rect run(band.tl.x + static_cast<int>(first) * kBlockSize, band.tl.y,
                   band.tl.x + static_cast<int>(i + 1) * kBlockSize, band.br.y);
    found_.push_back(RgnRect(run.intersect(band)).box);
  }
}

}  // namespace rfb

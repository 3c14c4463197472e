#include "ruvohost/Framebuffer.h"

#include <algorithm>
#include <string>

#include "host/ColourTable.h"
#include "rfb/PixelAccess.h"
#include "rfb/PixelCodec.h"

namespace ruvohost {

namespace {

rfb::PixelFormat modelFormat(const PixelFormat& f) {
  return {f.bitsPerPixel, f.depth,    f.bigEndian,  f.trueColour, f.redMax,     f.greenMax,
          f.blueMax,      f.redShift, f.greenShift, f.blueShift,  f.alphaShift, f.alphaMax};
}

}  // namespace

Framebuffer::Framebuffer(std::shared_ptr<const void> memory, const uint8_t* pixels,
                         const Rect& rect, size_t stride, const PixelFormat& format,
                         std::vector<Colour> colours)
    : memory_(std::move(memory)),
      pixels_(pixels),
      rect_(rect),
      stride_(stride),
      format_(format),
      colours_(std::move(colours)) {}

std::span<const uint8_t> Framebuffer::row(int y) const {
  if (isEmpty() || y < 0 || y >= height()) {
    throw Error("the framebuffer has no row " + std::to_string(y));
  }
  const auto bytes = static_cast<size_t>(format_.bitsPerPixel / 8);
  return {pixels_ + static_cast<size_t>(y) * stride_ * bytes, static_cast<size_t>(width()) * bytes};
}

std::vector<uint8_t> Framebuffer::rgba(const Rect& area, Rect* clipped) const {
  Rect inside{std::max(area.x1, rect_.x1), std::max(area.y1, rect_.y1), std::min(area.x2, rect_.x2),
              std::min(area.y2, rect_.y2)};
  if (isEmpty() || inside.isEmpty()) inside = Rect();
  if (clipped) *clipped = inside;
  std::vector<uint8_t> result(static_cast<size_t>(inside.width()) *
                              static_cast<size_t>(inside.height()) * 4);
  if (result.empty()) return result;

  std::vector<host::ColourMapEntry> entries;
  for (const Colour& c : colours_) entries.push_back({c.red, c.green, c.blue});
  const host::ColourTable table(entries);
  const rfb::PixelCodec codec(modelFormat(format_), &table);
  const int bytes = format_.bitsPerPixel / 8;
  uint8_t* out = result.data();
  for (int y = inside.y1; y < inside.y2; ++y) {
    const uint8_t* in = row(y - rect_.y1).data() + (inside.x1 - rect_.x1) * bytes;
    for (int x = inside.x1; x < inside.x2; ++x, in += bytes, out += 4) {
      uint32_t value = rfb::loadPixel(in, bytes);
      if (codec.swapped()) value = rfb::swapPixel(value, bytes);
      const rfb::Colour colour = codec.decode(value);
      out[0] = colour.red;
      out[1] = colour.green;
      out[2] = colour.blue;
      out[3] = 255;
    }
  }
  return result;
}

}  // namespace ruvohost

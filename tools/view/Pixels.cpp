#include "Pixels.h"

namespace view {

Pixels pixelsOf(const ruvohost::Framebuffer& framebuffer, const Rect& area,
                std::vector<uint8_t>& scratch) {
  Pixels pixels;
  pixels.width = area.width();
  pixels.height = area.height();
  const ruvohost::PixelFormat& format = framebuffer.format();
  const bool is888 = format.bitsPerPixel == 32 && !format.bigEndian && format.trueColour &&
                     format.redMax == 255 && format.greenMax == 255 && format.blueMax == 255 &&
                     format.greenShift == 8;
  const bool bgr = is888 && format.redShift == 16 && format.blueShift == 0;
  const bool rgb = is888 && format.redShift == 0 && format.blueShift == 16;
  if (bgr || rgb) {
    const auto first = framebuffer.row(area.y1);
    pixels.data = first.data() + static_cast<size_t>(area.x1) * 4;
    pixels.stride = area.height() > 1
                        ? static_cast<size_t>(framebuffer.row(area.y1 + 1).data() - first.data())
                        : first.size();
    pixels.order = bgr ? Pixels::Order::kBgr : Pixels::Order::kRgb;
    return pixels;
  }
  const Rect& whole = framebuffer.rect();
  scratch = framebuffer.rgba(
      {area.x1 + whole.x1, area.y1 + whole.y1, area.x2 + whole.x1, area.y2 + whole.y1});
  pixels.data = scratch.data();
  pixels.stride = static_cast<size_t>(area.width()) * 4;
  pixels.order = Pixels::Order::kRgb;
  return pixels;
}

}  // namespace view

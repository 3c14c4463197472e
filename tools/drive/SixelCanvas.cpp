#include "SixelCanvas.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "Failure.h"
#include "Scaling.h"
#ifdef RUVO_SIXEL
#include <sixel.h>
#endif

namespace drive {

namespace {

#ifdef RUVO_SIXEL
void check(SIXELSTATUS status) {
  if (SIXEL_FAILED(status)) {
    throw Failure(std::string("Sixel: ") + sixel_helper_format_error(status));
  }
}

std::string encode(std::vector<uint8_t> rgb, const Extent& extent, int colours) {
  std::string text;
  const auto append = [](char* bytes, int length, void* to) {
    static_cast<std::string*>(to)->append(bytes, static_cast<size_t>(length));
    return length;
  };
  sixel_output_t* madeOutput = nullptr;
  check(sixel_output_new(&madeOutput, append, &text, nullptr));
  const std::unique_ptr<sixel_output_t, decltype(&sixel_output_unref)> output(madeOutput,
                                                                              sixel_output_unref);
  sixel_dither_t* madeDither = nullptr;
  check(sixel_dither_new(&madeDither, colours, nullptr));
  const std::unique_ptr<sixel_dither_t, decltype(&sixel_dither_unref)> dither(madeDither,
                                                                              sixel_dither_unref);
  check(sixel_dither_initialize(dither.get(), rgb.data(), extent.width, extent.height,
                                SIXEL_PIXELFORMAT_RGB888, SIXEL_LARGE_AUTO, SIXEL_REP_AUTO,
                                SIXEL_QUALITY_LOW));
  // Patterns of dots would move with every change.
  sixel_dither_set_diffusion_type(dither.get(), SIXEL_DIFFUSE_NONE);
  check(sixel_encode(rgb.data(), extent.width, extent.height, 3, dither.get(), output.get()));
  return text;
}
#else
std::string encode(const std::vector<uint8_t>&, const Extent&, int) {
  return {};
}
#endif

}  // namespace

bool SixelCanvas::isAvailable() {
#ifdef RUVO_SIXEL
  return true;
#else
  return false;
#endif
}

void SixelCanvas::draw(const Picture& picture, const TerminalSize& size) {
  // The cursor goes to the line behind the picture: in the last one the screen would scroll.
  int width = size.width;
  int height = size.height - size.height / size.rows;
  if (graphics().maxSixelWidth > 0) width = std::min(width, graphics().maxSixelWidth);
  if (graphics().maxSixelHeight > 0) height = std::min(height, graphics().maxSixelHeight);
  const Extent extent = fitting(picture, width, height);
  // A picture does not cover what a larger one has left beside it.
  if (size != size_ || extent != extent_) put("\033[2J");
  size_ = size;
  extent_ = extent;
  const std::vector<uint8_t> pixels = scaled(picture, extent);
  put("\033[H");
  put(encode(withoutAlpha(pixels.data(), extent.width, extent.height), extent,
             graphics().sixelColours));
}

}  // namespace drive

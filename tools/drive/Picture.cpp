#include "Picture.h"

#include <png.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "Session.h"
#include "host/ColourTable.h"
#include "rfb/CursorWithAlpha.h"
#include "rfb/PixelOps.h"

namespace drive {

namespace {

// The bytes red, green, blue, alpha in this order.
const rfb::PixelFormat& rgbaFormat() {
  static const rfb::PixelFormat format(32, 32, true, true, 255, 255, 255, 24, 16, 8, 0, 255);
  return format;
}

std::unique_ptr<rfb::CursorWithAlpha> cursorOf(const host::CursorImage& image) {
  const rfb::Rect& rect = image.rect;
  auto cursor = std::make_unique<rfb::CursorWithAlpha>(image.format, rect.width(), rect.height(),
                                                       rfb::Point(-rect.tl.x, -rect.tl.y));
  std::memcpy(cursor->getPixelsRW(cursor->getRect(), nullptr), image.pixels.data(),
              image.pixels.size());
  return cursor;
}

struct File {
  explicit File(const std::string& path)
      : handle(path == "-" ? stdout : std::fopen(path.c_str(), "wb")) {}
  ~File() {
    if (handle && handle != stdout) std::fclose(handle);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  std::FILE* handle;
};

}  // namespace

Picture::Picture(const rfb::Rect& rect)
    : pixels_(std::make_unique<rfb::ManagedPixelBuffer>(rgbaFormat(), rect)) {}

Picture Picture::ofFramebuffer(const host::AgentConnection& agent, const rfb::Rect& area) {
  const host::PixelBufferInfo& info = agent.pixelBuffer();
  host::ColourTable colours(agent.colourMap());
  rfb::FullFramePixelBuffer source(info.format, info.rect, agent.segment()->data(), &colours,
                                   static_cast<int>(info.stride));
  const rfb::Rect visible = area.intersect(info.rect);
  if (visible.isEmpty()) throw Failure("nothing of the region is on the screen");
  Picture picture(visible);
  rfb::combinePixels(*picture.pixels_, visible, source, visible.tl, rfb::CopyOp());
  return picture;
}

Picture Picture::ofCursor(const host::CursorImage& image) {
  const std::unique_ptr<rfb::CursorWithAlpha> cursor = cursorOf(image);
  Picture picture(cursor->getRect());
  const auto straight = [](const rfb::Colour& source, rfb::Colour& destination) {
    const unsigned alpha = source.alpha;
    const auto full = [alpha](unsigned v) {
      return static_cast<uint8_t>(alpha == 0 ? v : std::min(255u, (v * 255 + alpha / 2) / alpha));
    };
    destination = {full(source.red), full(source.green), full(source.blue), source.alpha};
  };
  rfb::combinePixels(*picture.pixels_, cursor->getRect(), *cursor, cursor->getRect().tl, straight);
  return picture;
}

void Picture::drawCursor(const host::CursorImage& image, const rfb::Point& position) {
  if (image.visible && !image.rect.isEmpty()) cursorOf(image)->draw(*pixels_, position);
}

void Picture::writePng(const std::string& path, bool withAlpha) const {
  const File file(path);
  if (!file.handle) throw Failure(path + ": " + std::strerror(errno));
  std::vector<uint8_t> rgb;
  const uint8_t* const all = rgba();
  const size_t pixels = static_cast<size_t>(width()) * static_cast<size_t>(height());
  if (!withAlpha) {
    rgb.reserve(pixels * 3);
    for (size_t i = 0; i < pixels; ++i) rgb.insert(rgb.end(), all + i * 4, all + i * 4 + 3);
  }
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(width());
  image.height = static_cast<png_uint_32>(height());
  image.format = withAlpha ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
  if (!png_image_write_to_stdio(&image, file.handle, 0, withAlpha ? all : rgb.data(),
                                width() * (withAlpha ? 4 : 3), nullptr) ||
      std::fflush(file.handle) != 0) {
    throw Failure(path + ": " + (image.message[0] ? image.message : std::strerror(errno)));
  }
}

}  // namespace drive

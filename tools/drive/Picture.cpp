#include "Picture.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "Failure.h"
#include "host/ColourTable.h"
#include "plat/Exception.h"
#include "rdr/FileOutStream.h"
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

std::vector<uint8_t> Picture::encode(PictureFormat format, bool withAlpha) const {
  return encodePicture(format, rgba(), width(), height(), withAlpha);
}

void Picture::write(const std::string& path, bool withAlpha) const {
  const std::vector<uint8_t> bytes = encode(pictureFormatOf(path), withAlpha);
  if (path == "-") {
    // Whether it was written is looked at when the command is over.
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
    return;
  }
  try {
    rdr::FileOutStream file(path);
    file.writeBytes(bytes.data(), bytes.size());
    file.close();
  } catch (const plat::Exception& e) {
    throw Failure(path + ": " + e.text());
  }
}

}  // namespace drive

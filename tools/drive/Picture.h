#pragma once

#include <memory>
#include <string>
#include <vector>

#include "PictureFormat.h"
#include "host/AgentConnection.h"
#include "rfb/ManagedPixelBuffer.h"

namespace drive {

// A copy of an image as 8-bit red, green, blue and alpha, in the coordinates of the desktop.
class Picture {
 public:
  // The part of an area that the shared framebuffer has, as it is now.
  static Picture ofFramebuffer(const host::AgentConnection& agent, const rfb::Rect& area);
  // A cursor image, its premultiplied colours undone.
  static Picture ofCursor(const host::CursorImage& cursor);

  int width() const { return pixels_->width(); }
  int height() const { return pixels_->height(); }
  // Rows of width() * 4 bytes.
  const uint8_t* rgba() const { return pixels_->getPixelsR(pixels_->getRect(), nullptr); }

  // Blends a cursor whose hotspot is at a position of the desktop.
  void drawCursor(const host::CursorImage& cursor, const rfb::Point& position);
  std::vector<uint8_t> encode(PictureFormat format, bool withAlpha = false) const;
  // Writes a file in the format of its suffix, PNG to standard output for "-". Throws Failure
  // naming the file.
  void write(const std::string& path, bool withAlpha) const;

 private:
  explicit Picture(const rfb::Rect& rect);

  std::unique_ptr<rfb::ManagedPixelBuffer> pixels_;
};

}  // namespace drive

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/AgentConnection.h"

namespace drive {

// A copy of an image as 8-bit red, green, blue and alpha.
struct Picture {
  int width = 0, height = 0;
  std::vector<uint8_t> rgba;

  // The shared framebuffer as it is now.
  static Picture ofFramebuffer(const host::AgentConnection& agent);
  // A cursor image, its premultiplied colours undone.
  static Picture ofCursor(const host::CursorImage& cursor);

  // Blends a cursor whose hotspot is at x, y.
  void drawCursor(const host::CursorImage& cursor, int x, int y);
  // Writes a PNG file. Throws Failure naming the file.
  void writePng(const std::string& path, bool withAlpha) const;
};

}  // namespace drive

#include "Picture.h"

#include <png.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Session.h"

namespace drive {

namespace {

uint8_t scaled(uint32_t value, uint32_t max) {
  if (max == 0) return 0;
  return static_cast<uint8_t>((value * 255 + max / 2) / max);
}

// Any pixel format to RGBA.
class Decoder {
 public:
  Decoder(const rfb::PixelFormat& format, const std::vector<host::ColourMapEntry>& colours)
      : format_(format), colours_(colours) {}

  void decode(const uint8_t* pixel, uint8_t* rgba) const {
    const int bytes = format_.bytesPerPixel();
    uint32_t value = 0;
    const bool highFirst = format_.bigEndian && bytes != 3;
    for (int i = 0; i < bytes; ++i) {
      value |= static_cast<uint32_t>(pixel[i]) << 8 * (highFirst ? bytes - 1 - i : i);
    }
    rgba[3] = 255;
    if (!format_.trueColour) {
      const host::ColourMapEntry entry =
          value < colours_.size() ? colours_[value] : host::ColourMapEntry{};
      rgba[0] = entry.red;
      rgba[1] = entry.green;
      rgba[2] = entry.blue;
      return;
    }
    rgba[0] = scaled(value >> format_.redShift & format_.redMax, format_.redMax);
    rgba[1] = scaled(value >> format_.greenShift & format_.greenMax, format_.greenMax);
    rgba[2] = scaled(value >> format_.blueShift & format_.blueMax, format_.blueMax);
    if (format_.alphaMax) {
      rgba[3] = scaled(value >> format_.alphaShift & format_.alphaMax, format_.alphaMax);
    }
  }

 private:
  const rfb::PixelFormat& format_;
  const std::vector<host::ColourMapEntry>& colours_;
};

Picture decoded(const rfb::PixelFormat& format, const std::vector<host::ColourMapEntry>& colours,
                const uint8_t* pixels, int width, int height, uint32_t stride) {
  Picture picture{width, height, std::vector<uint8_t>(size_t(width) * size_t(height) * 4)};
  const Decoder decoder(format, colours);
  const auto bytes = static_cast<size_t>(format.bytesPerPixel());
  uint8_t* out = picture.rgba.data();
  for (int y = 0; y < height; ++y) {
    const uint8_t* in = pixels + static_cast<size_t>(y) * stride * bytes;
    for (int x = 0; x < width; ++x, in += bytes, out += 4) decoder.decode(in, out);
  }
  return picture;
}

struct File {
  explicit File(const std::string& path) : handle(std::fopen(path.c_str(), "wb")) {}
  ~File() {
    if (handle) std::fclose(handle);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  std::FILE* handle;
};

}  // namespace

Picture Picture::ofFramebuffer(const host::AgentConnection& agent) {
  const host::PixelBufferInfo& info = agent.pixelBuffer();
  return decoded(info.format, agent.colourMap(), agent.pixels(), info.rect.width(),
                 info.rect.height(), info.stride);
}

Picture Picture::ofCursor(const host::CursorImage& cursor) {
  Picture picture = decoded(cursor.format, {}, cursor.pixels.data(), cursor.rect.width(),
                            cursor.rect.height(), static_cast<uint32_t>(cursor.rect.width()));
  for (size_t i = 0; i < picture.rgba.size(); i += 4) {
    const uint8_t alpha = picture.rgba[i + 3];
    for (size_t c = 0; c < 3 && alpha != 0; ++c) {
      picture.rgba[i + c] =
          static_cast<uint8_t>(std::min(255, (picture.rgba[i + c] * 255 + alpha / 2) / alpha));
    }
  }
  return picture;
}

void Picture::drawCursor(const host::CursorImage& cursor, int x, int y) {
  if (!cursor.visible) return;
  const Picture image = decoded(cursor.format, {}, cursor.pixels.data(), cursor.rect.width(),
                                cursor.rect.height(), static_cast<uint32_t>(cursor.rect.width()));
  for (int row = 0; row < image.height; ++row) {
    for (int column = 0; column < image.width; ++column) {
      const int toX = x + cursor.rect.tl.x + column, toY = y + cursor.rect.tl.y + row;
      if (toX < 0 || toY < 0 || toX >= width || toY >= height) continue;
      const uint8_t* from = &image.rgba[(size_t(row) * size_t(image.width) + size_t(column)) * 4];
      uint8_t* to = &rgba[(size_t(toY) * size_t(width) + size_t(toX)) * 4];
      for (int c = 0; c < 3; ++c) {
        to[c] =
            static_cast<uint8_t>(std::min(255, from[c] + (to[c] * (255 - from[3]) + 127) / 255));
      }
    }
  }
}

void Picture::writePng(const std::string& path, bool withAlpha) const {
  File file(path);
  if (!file.handle) throw Failure(path + ": " + std::strerror(errno));
  std::vector<uint8_t> rgb;
  const size_t channels = withAlpha ? 4 : 3;
  if (!withAlpha) {
    rgb.reserve(rgba.size() / 4 * 3);
    for (size_t i = 0; i < rgba.size(); i += 4) {
      rgb.insert(rgb.end(), rgba.begin() + static_cast<std::ptrdiff_t>(i),
                 rgba.begin() + static_cast<std::ptrdiff_t>(i) + 3);
    }
  }
  const uint8_t* bytes = withAlpha ? rgba.data() : rgb.data();
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(width);
  image.height = static_cast<png_uint_32>(height);
  image.format = withAlpha ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
  if (!png_image_write_to_stdio(&image, file.handle, 0, bytes,
                                static_cast<png_int_32>(width) * static_cast<int>(channels),
                                nullptr) ||
      std::fflush(file.handle) != 0) {
    throw Failure(path + ": " + (image.message[0] ? image.message : std::strerror(errno)));
  }
}

}  // namespace drive

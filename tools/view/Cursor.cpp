#include "Cursor.h"

#include <openssl/evp.h>
#include <png.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace view {

std::string encodeCursor(const ruvohost::Cursor& cursor) {
  std::vector<uint8_t> pixels = cursor.rgba;
  // A PNG's colours are not premultiplied.
  for (size_t i = 0; i + 3 < pixels.size(); i += 4) {
    const unsigned alpha = pixels[i + 3];
    if (alpha == 0 || alpha == 255) continue;
    for (size_t channel = i; channel < i + 3; ++channel) {
      pixels[channel] =
          static_cast<uint8_t>(std::min(255U, (pixels[channel] * 255U + alpha / 2) / alpha));
    }
  }
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(cursor.rect.width());
  image.height = static_cast<png_uint_32>(cursor.rect.height());
  image.format = PNG_FORMAT_RGBA;
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
  std::vector<uint8_t> png(size);
  if (!png_image_write_to_memory(&image, png.data(), &size, 0, pixels.data(), 0, nullptr)) {
    throw std::runtime_error(std::string("libpng: ") + image.message);
  }
  std::vector<unsigned char> text((size + 2) / 3 * 4 + 1);
  const int length = EVP_EncodeBlock(text.data(), png.data(), static_cast<int>(size));
  return std::string(text.begin(), text.begin() + length);
}

}  // namespace view

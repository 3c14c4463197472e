#include "PictureFormat.h"

#include <png.h>

#include <cstdio>
#include <cstdlib>

#include "Failure.h"
#ifdef RUVO_JPEG
#include <jpeglib.h>
#endif
#ifdef RUVO_WEBP
#include <webp/encode.h>
#endif

namespace drive {

namespace {

std::vector<uint8_t> encodePng(const uint8_t* rows, int width, int height, bool withAlpha) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(width);
  image.height = static_cast<png_uint_32>(height);
  image.format = withAlpha ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
  std::vector<uint8_t> bytes(PNG_IMAGE_PNG_SIZE_MAX(image));
  png_alloc_size_t length = bytes.size();
  if (!png_image_write_to_memory(&image, bytes.data(), &length, 0, rows, 0, nullptr)) {
    throw Failure(std::string("PNG: ") + image.message);
  }
  bytes.resize(length);
  return bytes;
}

#ifdef RUVO_JPEG
std::vector<uint8_t> encodeJpeg(const uint8_t* rows, int width, int height) {
  jpeg_error_mgr errors;
  jpeg_compress_struct encoder{};
  encoder.err = jpeg_std_error(&errors);
  jpeg_create_compress(&encoder);
  unsigned char* memory = nullptr;
  unsigned long length = 0;
  jpeg_mem_dest(&encoder, &memory, &length);
  encoder.image_width = static_cast<JDIMENSION>(width);
  encoder.image_height = static_cast<JDIMENSION>(height);
  encoder.input_components = 3;
  encoder.in_color_space = JCS_RGB;
  jpeg_set_defaults(&encoder);
  jpeg_set_quality(&encoder, 90, TRUE);
  jpeg_start_compress(&encoder, TRUE);
  while (encoder.next_scanline < encoder.image_height) {
    auto* row =
        const_cast<JSAMPROW>(rows + size_t{encoder.next_scanline} * 3 * static_cast<size_t>(width));
    jpeg_write_scanlines(&encoder, &row, 1);
  }
  jpeg_finish_compress(&encoder);
  jpeg_destroy_compress(&encoder);
  std::vector<uint8_t> bytes(memory, memory + length);
  std::free(memory);
  return bytes;
}
#endif

#ifdef RUVO_WEBP
std::vector<uint8_t> encodeWebp(const uint8_t* rgba, int width, int height, bool withAlpha) {
  uint8_t* memory = nullptr;
  const size_t length = withAlpha ? WebPEncodeLosslessRGBA(rgba, width, height, width * 4, &memory)
                                  : WebPEncodeLosslessRGB(withoutAlpha(rgba, width, height).data(),
                                                          width, height, width * 3, &memory);
  if (length == 0) throw Failure("WebP: a picture has at most 16383 pixels in a row and a column");
  std::vector<uint8_t> bytes(memory, memory + length);
  WebPFree(memory);
  return bytes;
}
#endif

}  // namespace

PictureFormat pictureFormatOf(const std::string& file) {
  if (file == "-" || file.ends_with(".png")) return PictureFormat::kPng;
  const bool jpeg = file.ends_with(".jpg") || file.ends_with(".jpeg");
  const bool webp = file.ends_with(".webp");
  if (!jpeg && !webp) {
    throw Failure(file + ": pictures are PNG, JPEG or WebP files (.png, .jpg, .webp)");
  }
#ifdef RUVO_JPEG
  if (jpeg) return PictureFormat::kJpeg;
#endif
#ifdef RUVO_WEBP
  if (webp) return PictureFormat::kWebp;
#endif
  throw Failure(file + ": this ruvodrive was built without the library for this format");
}

std::vector<uint8_t> withoutAlpha(const uint8_t* rgba, int width, int height) {
  const size_t pixels = static_cast<size_t>(width) * static_cast<size_t>(height);
  std::vector<uint8_t> rgb;
  rgb.reserve(pixels * 3);
  for (size_t i = 0; i < pixels; ++i) rgb.insert(rgb.end(), rgba + i * 4, rgba + i * 4 + 3);
  return rgb;
}

std::vector<uint8_t> encodePicture([[maybe_unused]] PictureFormat format, const uint8_t* rgba,
                                   int width, int height, bool withAlpha) {
#ifdef RUVO_WEBP
  if (format == PictureFormat::kWebp) return encodeWebp(rgba, width, height, withAlpha);
#endif
#ifdef RUVO_JPEG
  if (format == PictureFormat::kJpeg) {
    return encodeJpeg(withoutAlpha(rgba, width, height).data(), width, height);
  }
#endif
  if (withAlpha) return encodePng(rgba, width, height, true);
  return encodePng(withoutAlpha(rgba, width, height).data(), width, height, false);
}

}  // namespace drive

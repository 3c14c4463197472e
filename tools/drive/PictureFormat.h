#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace drive {

enum class PictureFormat { kPng, kJpeg, kWebp };

// By the suffix of a file's name; PNG for "-". Throws Failure for other names, and for formats that
// this program was built without.
PictureFormat pictureFormatOf(const std::string& file);

// Rows of width * 4 bytes red, green, blue, alpha as rows of width * 3.
std::vector<uint8_t> withoutAlpha(const uint8_t* rgba, int width, int height);

// Encodes rows of width * 4 bytes red, green, blue, alpha. JPEG has no alpha; WebP is lossless.
// Throws Failure.
std::vector<uint8_t> encodePicture(PictureFormat format, const uint8_t* rgba, int width, int height,
                                   bool withAlpha);

}  // namespace drive

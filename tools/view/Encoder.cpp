#include "Encoder.h"

#include <png.h>
#include <turbojpeg.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

namespace view {

namespace {

constexpr size_t kFewColours = 80;
constexpr size_t kMaxPalette = 256;

uint32_t pixelAt(const uint8_t* bytes) {
  uint32_t value;
  std::memcpy(&value, bytes, sizeof value);
  return value & 0xffffff;  // little-endian, as the formats that are read in place
}

// Counts colours up to a limit.
template <size_t kLimit>
class ColourSet {
 public:
  ColourSet() { slots_.fill(kEmpty); }

  // The colour's number, or -1 when there are too many.
  int add(uint32_t colour) {
    size_t slot = (colour * 2654435761U) >> (32 - kBits);
    while (slots_[slot] != kEmpty) {
      if (slots_[slot] == colour) return numbers_[slot];
      slot = (slot + 1) % slots_.size();
    }
    if (count_ == kLimit) return -1;
    slots_[slot] = colour;
    numbers_[slot] = static_cast<uint16_t>(count_);
    colours_[count_] = colour;
    return static_cast<int>(count_++);
  }
  size_t count() const { return count_; }
  uint32_t operator[](size_t number) const { return colours_[number]; }

 private:
  static constexpr unsigned kBits = 10;
  static constexpr uint32_t kEmpty = 0xffffffff;
  static_assert(kLimit * 2 <= size_t{1} << kBits);

  std::array<uint32_t, size_t{1} << kBits> slots_;
  std::array<uint16_t, size_t{1} << kBits> numbers_;
  std::array<uint32_t, kLimit> colours_;
  size_t count_ = 0;
};

void appendBytes(png_structp png, png_bytep bytes, size_t length) {
  auto& data = *static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png));
  data.insert(data.end(), bytes, bytes + length);
}

[[noreturn]] void failed(png_structp, png_const_charp text) {
  throw std::runtime_error(std::string("libpng: ") + text);
}

class PngWriter {
 public:
  explicit PngWriter(std::vector<uint8_t>& data)
      : png_(png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, failed, nullptr)),
        info_(png_ ? png_create_info_struct(png_) : nullptr) {
    if (!info_) {
      png_destroy_write_struct(&png_, nullptr);
      throw std::runtime_error("libpng: no memory");
    }
    png_set_write_fn(png_, &data, appendBytes, nullptr);
  }
  ~PngWriter() { png_destroy_write_struct(&png_, &info_); }
  PngWriter(const PngWriter&) = delete;
  PngWriter& operator=(const PngWriter&) = delete;

  png_structp png() const { return png_; }
  png_infop info() const { return info_; }

 private:
  png_structp png_;
  png_infop info_;
};

void setHeader(const PngWriter& writer, const Pixels& pixels, int bits, int type) {
  png_set_IHDR(writer.png(), writer.info(), static_cast<png_uint_32>(pixels.width),
               static_cast<png_uint_32>(pixels.height), bits, type, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
}

// Empty when there are too many colours.
std::vector<uint8_t> encodePalette(const Pixels& pixels) {
  ColourSet<kMaxPalette> colours;
  std::vector<uint8_t> numbers;
  numbers.reserve(static_cast<size_t>(pixels.width) * static_cast<size_t>(pixels.height));
  uint32_t last = 0xffffffff;
  int number = 0;
  for (int y = 0; y < pixels.height; ++y) {
    const uint8_t* row = pixels.row(y);
    for (int x = 0; x < pixels.width; ++x) {
      const uint32_t colour = pixelAt(row + static_cast<size_t>(x) * 4);
      if (colour != last) {
        number = colours.add(colour);
        if (number < 0) return {};
        last = colour;
      }
      numbers.push_back(static_cast<uint8_t>(number));
    }
  }
  std::array<png_color, kMaxPalette> palette;
  for (size_t i = 0; i < colours.count(); ++i) {
    const auto low = static_cast<uint8_t>(colours[i]);
    const auto middle = static_cast<uint8_t>(colours[i] >> 8);
    const auto high = static_cast<uint8_t>(colours[i] >> 16);
    palette[i] = pixels.order == Pixels::Order::kBgr ? png_color{high, middle, low}
                                                     : png_color{low, middle, high};
  }
  std::vector<uint8_t> data;
  PngWriter writer(data);
  const size_t count = colours.count();
  setHeader(writer, pixels,
            count <= 2    ? 1
            : count <= 4  ? 2
            : count <= 16 ? 4
                          : 8,
            PNG_COLOR_TYPE_PALETTE);
  png_set_PLTE(writer.png(), writer.info(), palette.data(), static_cast<int>(count));
  png_set_compression_level(writer.png(), 1);
  png_set_filter(writer.png(), PNG_FILTER_TYPE_BASE, PNG_FILTER_NONE);
  png_write_info(writer.png(), writer.info());
  png_set_packing(writer.png());
  for (int y = 0; y < pixels.height; ++y) {
    png_write_row(writer.png(),
                  numbers.data() + static_cast<size_t>(y) * static_cast<size_t>(pixels.width));
  }
  png_write_end(writer.png(), nullptr);
  return data;
}

}  // namespace

bool isSolid(const Pixels& pixels) {
  const uint32_t colour = pixelAt(pixels.data);
  for (int y = 0; y < pixels.height; ++y) {
    const uint8_t* row = pixels.row(y);
    for (int x = 0; x < pixels.width; ++x) {
      if (pixelAt(row + static_cast<size_t>(x) * 4) != colour) return false;
    }
  }
  return true;
}

Content contentOf(const Pixels& pixels) {
  if (isSolid(pixels)) return Content::kSolid;
  ColourSet<kFewColours> colours;
  uint32_t last = 0xffffffff;
  for (int y = 0; y < pixels.height; y += 2) {
    const uint8_t* row = pixels.row(y);
    for (int x = 0; x < pixels.width; ++x) {
      const uint32_t colour = pixelAt(row + static_cast<size_t>(x) * 4);
      if (colour == last) continue;
      if (colours.add(colour) < 0) return Content::kManyColours;
      last = colour;
    }
  }
  return Content::kFewColours;
}

std::vector<uint8_t> encodeSolid(const Pixels& pixels) {
  const uint8_t* p = pixels.data;
  if (pixels.order == Pixels::Order::kBgr) return {p[0], p[1], p[2], 0};
  return {p[2], p[1], p[0], 0};
}

std::vector<uint8_t> encodeRaw(const Pixels& pixels) {
  std::vector<uint8_t> data;
  data.reserve(static_cast<size_t>(pixels.width) * static_cast<size_t>(pixels.height) * 4);
  const bool bgr = pixels.order == Pixels::Order::kBgr;
  for (int y = 0; y < pixels.height; ++y) {
    const uint8_t* p = pixels.row(y);
    for (int x = 0; x < pixels.width; ++x, p += 4) {
      data.insert(data.end(), {p[bgr ? 2 : 0], p[1], p[bgr ? 0 : 2], 255});
    }
  }
  return data;
}

std::vector<uint8_t> encodePng(const Pixels& pixels) {
  std::vector<uint8_t> data = encodePalette(pixels);
  if (!data.empty()) return data;
  PngWriter writer(data);
  setHeader(writer, pixels, 8, PNG_COLOR_TYPE_RGB);
  png_set_compression_level(writer.png(), 1);
  png_set_filter(writer.png(), PNG_FILTER_TYPE_BASE, PNG_FILTER_SUB);
  png_write_info(writer.png(), writer.info());
  png_set_filler(writer.png(), 0, PNG_FILLER_AFTER);
  if (pixels.order == Pixels::Order::kBgr) png_set_bgr(writer.png());
  for (int y = 0; y < pixels.height; ++y) png_write_row(writer.png(), pixels.row(y));
  png_write_end(writer.png(), nullptr);
  return data;
}

std::vector<uint8_t> encodeJpeg(const Pixels& pixels, int quality) {
  struct Destroy {
    void operator()(void* handle) const { tjDestroy(handle); }
  };
  // Making one costs as much as a small picture.
  thread_local const std::unique_ptr<void, Destroy> compressor(tjInitCompress());
  if (!compressor) throw std::runtime_error("libjpeg-turbo: no memory");
  thread_local std::vector<uint8_t> room;
  room.resize(std::max(room.size(), tjBufSize(pixels.width, pixels.height, TJSAMP_420)));
  unsigned char* target = room.data();
  unsigned long size = room.size();  // NOLINT(google-runtime-int)
  if (tjCompress2(compressor.get(), pixels.data, pixels.width, static_cast<int>(pixels.stride),
                  pixels.height, pixels.order == Pixels::Order::kBgr ? TJPF_BGRX : TJPF_RGBX,
                  &target, &size, TJSAMP_420, quality, TJFLAG_NOREALLOC | TJFLAG_FASTDCT) != 0) {
    throw std::runtime_error(std::string("libjpeg-turbo: ") + tjGetErrorStr2(compressor.get()));
  }
  return {room.begin(), room.begin() + static_cast<ptrdiff_t>(size)};
}

}  // namespace view

#include "svr/DisplaySize.h"

#include <charconv>

#include "plat/Exception.h"

namespace svr {

namespace {

constexpr size_t kMaxDigits = 5;

// 0 for anything but a decimal number of a few digits.
uint32_t parseNumber(std::string_view text) {
  uint32_t number = 0;
  if (text.size() > kMaxDigits) return 0;
  const char* const end = text.data() + text.size();
  const auto [stopped, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stopped == end ? number : 0;
}

}  // namespace

std::optional<DisplaySize> DisplaySize::of(uint32_t width, uint32_t height) {
  if (width < 1 || height < 1 || width > kMax || height > kMax) return std::nullopt;
  return DisplaySize{static_cast<int>(width), static_cast<int>(height)};
}

std::optional<DisplaySize> DisplaySize::parse(std::string_view text) {
  const size_t x = text.find('x');
  if (x == std::string_view::npos) return std::nullopt;
  return of(parseNumber(text.substr(0, x)), parseNumber(text.substr(x + 1)));
}

std::string DisplaySize::str() const {
  return plat::format("%dx%d", width, height);
}

DisplaySize DisplaySize::physical() const {
  // 25.4 / 96, without the rounding of floating point.
  return {width * 254 / 960, height * 254 / 960};
}

}  // namespace svr

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace svr {

// Width and height of a screen or a display mode.
struct DisplaySize {
  // X's coordinates are signed 16-bit numbers.
  static constexpr int kMax = 32767;

  int width = 0;
  int height = 0;

  // Nothing unless both are from 1 to kMax.
  static std::optional<DisplaySize> of(uint32_t width, uint32_t height);
  // From "1600x900"; nothing for any other text.
  static std::optional<DisplaySize> parse(std::string_view text);

  // "1600x900".
  std::string str() const;
  // What is seen of it after a turn by a quarter.
  DisplaySize turned() const { return {height, width}; }
  // In millimetres at 96 dots per inch, truncated.
  DisplaySize physical() const;

  friend bool operator==(const DisplaySize&, const DisplaySize&) = default;
};

}  // namespace svr

#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace plat {

// The text without blanks at either end.
constexpr std::string_view trimmed(std::string_view text, std::string_view blanks = " \t\r\n") {
  text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
  return text.substr(0, text.find_last_not_of(blanks) + 1);
}

enum class Newlines { kKept, kEscaped };

// The UTF-8 text with control characters as "\\n", "\\x1b" or "\\u009b".
std::string escapedControls(std::string text, Newlines newlines = Newlines::kEscaped);

}  // namespace plat

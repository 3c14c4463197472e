#include "plat/Text.h"

#include "plat/Exception.h"

namespace plat {

std::string escapedControls(std::string text, Newlines newlines) {
  const auto byteAt = [&text](size_t i) { return static_cast<unsigned char>(text[i]); };
  const auto isControl = [&](size_t i) {
    if (byteAt(i) == '\n') return newlines == Newlines::kEscaped;
    // The second group of them, U+0080 to U+009F, takes two bytes.
    return byteAt(i) < 0x20 || byteAt(i) == 0x7F ||
           (byteAt(i) == 0xC2 && i + 1 < text.size() && byteAt(i + 1) >= 0x80 &&
            byteAt(i + 1) < 0xA0);
  };
  size_t i = 0;
  while (i < text.size() && !isControl(i)) ++i;
  if (i == text.size()) return text;
  std::string escaped = text.substr(0, i);
  for (; i < text.size(); ++i) {
    if (!isControl(i)) {
      escaped += text[i];
    } else if (byteAt(i) == 0xC2) {
      escaped += format("\\u%04x", unsigned{byteAt(++i)});
    } else if (text[i] == '\n') {
      escaped += "\\n";
    } else {
      escaped += format("\\x%02x", unsigned{byteAt(i)});
    }
  }
  return escaped;
}

}  // namespace plat

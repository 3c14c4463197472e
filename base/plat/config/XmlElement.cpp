#include "plat/config/XmlElement.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "plat/Exception.h"
#include "plat/Utf8.h"

namespace plat {

namespace {

constexpr size_t kMaxDocument = 16 << 20;
constexpr int kMaxDepth = 8;

void appendUtf8(std::string& out, uint32_t character) {
  const auto add = [&out](uint32_t byte) { out += static_cast<char>(byte); };
  if (character < 0x80) {
    add(character);
  } else if (character < 0x800) {
    add(0xC0 | character >> 6);
    add(0x80 | (character & 0x3F));
  } else if (character < 0x10000) {
    add(0xE0 | character >> 12);
    add(0x80 | (character >> 6 & 0x3F));
    add(0x80 | (character & 0x3F));
  } else {
    add(0xF0 | character >> 18);
    add(0x80 | (character >> 12 & 0x3F));
    add(0x80 | (character >> 6 & 0x3F));
    add(0x80 | (character & 0x3F));
  }
}

class Parser {
 public:
  explicit Parser(std::string_view document) : text_(document) {}

  XmlElement parse() {
    if (text_.size() > kMaxDocument) fail("document too large");
    if (!isValidUtf8(text_)) fail("not UTF-8");
    if (text_.find('\0') != std::string_view::npos) fail("zero byte");
    take("\xEF\xBB\xBF");
    if (take("<?xml")) {
      if (!atSpace()) fail("bad XML declaration");
      skipPast("?>");
    }
    skipMisc();
    XmlElement root = parseElement(1);
    skipMisc();
    if (at_ != text_.size()) fail("something after the root element");
    return root;
  }

 private:
  XmlElement parseElement(int depth) {
    if (depth > kMaxDepth) fail("elements nested too deeply");
    if (!take("<")) fail("element expected");
    XmlElement element;
    element.name = parseName();
    if (parseAttributes(element)) return element;
    for (;;) {
      skipMisc();
      if (take("</")) break;
      element.children.push_back(parseElement(depth + 1));
    }
    if (parseName() != element.name) fail("end tag does not match");
    skipSpace();
    if (!take(">")) fail("end tag not closed");
    return element;
  }

  // The rest of a start tag. True when the element ends with it.
  bool parseAttributes(XmlElement& element) {
    for (;;) {
      const bool separated = skipSpace();
      if (take("/>")) return true;
      if (take(">")) return false;
      if (!separated) fail("blank expected before an attribute");
      std::string name = parseName();
      if (element.attribute(name)) fail("attribute given twice");
      skipSpace();
      if (!take("=")) fail("'=' expected");
      skipSpace();
      element.attributes.emplace_back(std::move(name), parseValue());
    }
  }

  std::string parseName() {
    const size_t start = at_;
    while (at_ < text_.size() && isNameCharacter(text_[at_], at_ == start)) ++at_;
    if (at_ == start) fail("name expected");
    return std::string(text_.substr(start, at_ - start));
  }

  static bool isNameCharacter(char c, bool first) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':') return true;
    if (static_cast<unsigned char>(c) >= 0x80) return true;
    return !first && ((c >= '0' && c <= '9') || c == '-' || c == '.');
  }

  std::string parseValue() {
    const char quote = at_ < text_.size() ? text_[at_] : '\0';
    if (quote != '"' && quote != '\'') fail("quoted value expected");
    ++at_;
    std::string value;
    for (;;) {
      if (at_ == text_.size()) fail("value not closed");
      const char c = text_[at_++];
      if (c == quote) return value;
      if (c == '<') fail("'<' in a value");
      if (c == '&') {
        parseReference(value);
      } else {
        value += c;
      }
    }
  }

  // Behind a '&'.
  void parseReference(std::string& value) {
    const size_t end = text_.find(';', at_);
    if (end == std::string_view::npos) fail("reference not closed");
    const std::string_view name = text_.substr(at_, end - at_);
    at_ = end + 1;
    static constexpr std::pair<std::string_view, char> kEntities[] = {
        {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
    for (const auto& [entity, character] : kEntities) {
      if (name == entity) {
        value += character;
        return;
      }
    }
    if (!name.starts_with('#')) fail("unknown entity");
    const bool hexadecimal = name.starts_with("#x");
    const std::string_view digits = name.substr(hexadecimal ? 2 : 1);
    uint32_t character = 0;
    const auto [last, error] = std::from_chars(digits.data(), digits.data() + digits.size(),
                                               character, hexadecimal ? 16 : 10);
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    if (error != std::errc() || last != digits.data() + digits.size() || character == 0 ||
        character > 0x10FFFF || surrogate) {
      fail("bad character reference");
    }
    appendUtf8(value, character);
  }

  void skipMisc() {
    for (;;) {
      skipSpace();
      if (!take("<!--")) return;
      skipPast("-->");
    }
  }

  bool atSpace() const {
    return at_ < text_.size() && std::string_view(" \t\r\n").find(text_[at_]) != text_.npos;
  }

  bool skipSpace() {
    const size_t start = at_;
    while (atSpace()) ++at_;
    return at_ != start;
  }

  bool take(std::string_view token) {
    if (!text_.substr(at_).starts_with(token)) return false;
    at_ += token.size();
    return true;
  }

  void skipPast(std::string_view token) {
    const size_t found = text_.find(token, at_);
    if (found == std::string_view::npos) fail("end of file");
    at_ = found + token.size();
  }

  [[noreturn]] void fail(const char* reason) const {
    const auto line =
        1 + std::count(text_.begin(), text_.begin() + static_cast<ptrdiff_t>(at_), '\n');
    throw Exception("Line %lld: %s", static_cast<long long>(line), reason);
  }

  std::string_view text_;
  size_t at_ = 0;
};

}  // namespace

const std::string* XmlElement::attribute(std::string_view attributeName) const {
  for (const auto& [key, value] : attributes) {
    if (key == attributeName) return &value;
  }
  return nullptr;
}

XmlElement XmlElement::parse(std::string_view document) {
  return Parser(document).parse();
}

}  // namespace plat

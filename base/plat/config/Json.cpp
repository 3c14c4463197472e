#include "plat/config/Json.h"

#include <charconv>
#include <cstdint>
#include <system_error>

#include "plat/Exception.h"
#include "plat/Utf8.h"

namespace plat {

// Recursive descent; the depth is limited, so that a document can't exhaust the stack.
class JsonParser {
 public:
  explicit JsonParser(std::string_view text) : text_(text) {}

  Json document() {
    if (!isValidUtf8(text_)) fail("not UTF-8");
    Json result = value(0);
    skipSpace();
    if (!atEnd()) fail("something follows the document");
    return result;
  }

 private:
  bool atEnd() const { return pos_ >= text_.size(); }
  // 0 at the end; a 0 in the text is never expected either.
  char peek() const { return atEnd() ? '\0' : text_[pos_]; }

  [[noreturn]] void fail(const char* what) const {
    int line = 1, column = 1;
    for (const char c : text_.substr(0, pos_)) {
      column = c == '\n' ? 1 : column + 1;
      line += c == '\n';
    }
    throw Exception("line %d, column %d: %s", line, column, what);
  }

  void skipSpace() {
    while (peek() == ' ' || peek() == '\t' || peek() == '\n' || peek() == '\r') pos_++;
  }

  bool accept(char c) {
    if (peek() != c || atEnd()) return false;
    ++pos_;
    return true;
  }

  bool acceptWord(std::string_view word) {
    if (text_.substr(pos_, word.size()) != word) return false;
    pos_ += word.size();
    return true;
  }

  Json value(int depth) {
    skipSpace();
    Json result;
    if (peek() == '{' || peek() == '[') {
      if (depth >= Json::kMaxNesting) fail("nested too deep");
      return peek() == '{' ? object(depth) : array(depth);
    }
    if (peek() == '"') {
      result.type_ = Json::Type::kString;
      result.string_ = string();
    } else if (peek() == '-' || isDigit(peek())) {
      result.type_ = Json::Type::kNumber;
      result.number_ = number();
    } else if (acceptWord("true")) {
      result.type_ = Json::Type::kBool;
      result.boolean_ = true;
    } else if (acceptWord("false")) {
      result.type_ = Json::Type::kBool;
    } else if (!acceptWord("null")) {
      fail(atEnd() ? "the document ends too early" : "a value is expected");
    }
    return result;
  }

  Json object(int depth) {
    Json result;
    result.type_ = Json::Type::kObject;
    ++pos_;
    skipSpace();
    if (accept('}')) return result;
    do {
      skipSpace();
      if (peek() != '"') fail("the name of a member is expected");
      std::string name = string();
      skipSpace();
      if (!accept(':')) fail("':' is expected");
      result.members_.emplace_back(std::move(name), value(depth + 1));
      skipSpace();
    } while (accept(','));
    if (!accept('}')) fail("',' or '}' is expected");
    return result;
  }

  Json array(int depth) {
    Json result;
    result.type_ = Json::Type::kArray;
    ++pos_;
    skipSpace();
    if (accept(']')) return result;
    do {
      result.array_.push_back(value(depth + 1));
      skipSpace();
    } while (accept(','));
    if (!accept(']')) fail("',' or ']' is expected");
    return result;
  }

  static bool isDigit(char c) { return c >= '0' && c <= '9'; }

  void digits() {
    if (!isDigit(peek())) fail("a digit is expected");
    while (isDigit(peek())) pos_++;
  }

  double number() {
    const size_t start = pos_;
    accept('-');
    if (!accept('0')) digits();
    if (accept('.')) digits();
    if (accept('e') || accept('E')) {
      if (!accept('+')) accept('-');
      digits();
    }
    double result = 0;
    const char* const first = text_.data() + start;
    const char* const last = text_.data() + pos_;
    if (std::from_chars(first, last, result).ec != std::errc()) fail("the number is out of range");
    return result;
  }

  std::string string() {
    std::string result;
    ++pos_;
    while (!accept('"')) {
      if (atEnd()) fail("the string does not end");
      const char c = text_[pos_];
      if (static_cast<unsigned char>(c) < 0x20) fail("a control character in a string");
      ++pos_;
      if (c == '\\') {
        escape(result);
      } else {
        result += c;
      }
    }
    return result;
  }

  void escape(std::string& result) {
    constexpr std::string_view kEscapes = "\"\\/bfnrt", kMeanings = "\"\\/\b\f\n\r\t";
    const size_t which = atEnd() ? std::string_view::npos : kEscapes.find(peek());
    if (which != std::string_view::npos) {
      result += kMeanings[which];
      ++pos_;
      return;
    }
    if (!accept('u')) fail("an unknown escape");
    uint32_t c = hex4();
    if (c >= 0xd800 && c < 0xdc00) {
      if (!acceptWord("\\u")) fail("half a surrogate pair");
      const uint32_t low = hex4();
      if (low < 0xdc00 || low > 0xdfff) fail("half a surrogate pair");
      c = 0x10000 + ((c - 0xd800) << 10) + (low - 0xdc00);
    } else if (c >= 0xdc00 && c <= 0xdfff) {
      fail("half a surrogate pair");
    }
    appendUtf8(result, c);
  }

  uint32_t hex4() {
    const std::string_view four = text_.substr(pos_, 4);
    uint32_t result = 0;
    const auto parsed = std::from_chars(four.data(), four.data() + four.size(), result, 16);
    if (four.size() < 4 || parsed.ptr != four.data() + 4) fail("four hexadecimal digits expected");
    pos_ += 4;
    return result;
  }

  static void appendUtf8(std::string& text, uint32_t c) {
    const auto put = [&text](uint32_t byte) { text += static_cast<char>(byte); };
    if (c < 0x80) {
      put(c);
      return;
    }
    if (c < 0x800) {
      put(0xc0 | c >> 6);
    } else {
      if (c < 0x10000) {
        put(0xe0 | c >> 12);
      } else {
        put(0xf0 | c >> 18);
        put(0x80 | (c >> 12 & 0x3f));
      }
      put(0x80 | (c >> 6 & 0x3f));
    }
    put(0x80 | (c & 0x3f));
  }

  std::string_view text_;
  size_t pos_ = 0;
};

Json Json::parse(std::string_view text) {
  return JsonParser(text).document();
}

const Json* Json::find(std::string_view name) const {
  for (auto it = members_.rbegin(); it != members_.rend(); ++it) {
    if (it->first == name) return &it->second;
  }
  return nullptr;
}

}  // namespace plat

#include "plat/Exception.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace plat {

namespace {

__attribute__((format(printf, 1, 0))) std::string formatList(const char* format, va_list args) {
  va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(nullptr, 0, format, args);
  std::string text;
  if (length > 0) {
    text.resize(static_cast<size_t>(length));
    std::vsnprintf(text.data(), text.size() + 1, format, again);
  }
  va_end(again);
  return text;
}

}  // namespace

std::string format(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string text = formatList(format, args);
  va_end(args);
  return text;
}

Exception::Exception(const char* format, ...) : text_{}, kind_{} {
  va_list args;
  va_start(args, format);
  std::vsnprintf(text_, sizeof text_, format, args);
  va_end(args);
}

Exception::Exception(Kind kind, const std::string& text, int code) noexcept
    : text_{}, kind_{}, code_(code) {
  setText(text.c_str());
  std::strncpy(kind_, kind.name, sizeof kind_ - 1);
}

Exception Exception::ofKind(const char* kind, const std::string& text) {
  return Exception(Kind{kind}, text);
}

void Exception::setText(const char* text) noexcept {
  std::strncpy(text_, text, sizeof text_ - 1);
}

SystemException::SystemException(const std::string& callText, int errorNumber)
    : Exception(Kind{"SystemException"},
                format("%s: %s (%d)", callText.c_str(),
                       std::generic_category().message(errorNumber).c_str(), errorNumber),
                errorNumber) {}

BadUtf8::BadUtf8(const std::string& text) : Exception(Kind{"BadUtf8"}, text) {}

}  // namespace plat

#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace plat {

// Owned UTF-8 text. Null is distinct from empty.
class String {
 public:
  String() = default;
  // NOLINTBEGIN(google-explicit-constructor): a text argument converts freely.
  String(std::nullptr_t) {}
  String(const char* text) : text_(text ? text : ""), null_(text == nullptr) {}
  String(std::string text) : text_(std::move(text)), null_(false) {}
  String(std::string_view text) : text_(text), null_(false) {}
  // NOLINTEND(google-explicit-constructor)
  String(const char* bytes, size_t length) : text_(bytes, length), null_(false) {}

  bool isNull() const { return null_; }
  // True for null and for empty.
  bool empty() const { return text_.empty(); }
  size_t size() const { return text_.size(); }
  // Never null: "" for a null string.
  const char* c_str() const { return text_.c_str(); }
  // Null for a null string.
  const char* get() const { return null_ ? nullptr : text_.c_str(); }
  const std::string& str() const { return text_; }
  std::string_view view() const { return text_; }

  friend bool operator==(const String&, const String&) = default;

 private:
  std::string text_;
  bool null_ = true;
};

}  // namespace plat

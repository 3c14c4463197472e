#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace plat {

// A value of a JSON document (RFC 8259), which has been read whole.
class Json {
 public:
  enum class Type { kNull, kBool, kNumber, kString, kArray, kObject };
  using Member = std::pair<std::string, Json>;

  // Arrays and objects may stand in each other this many deep.
  static constexpr int kMaxNesting = 64;

  // Throws Exception, saying what is wrong where, for a text that is not exactly one JSON value in
  // UTF-8.
  static Json parse(std::string_view text);

  Type type() const { return type_; }
  bool isString() const { return type_ == Type::kString; }
  bool isArray() const { return type_ == Type::kArray; }
  bool isObject() const { return type_ == Type::kObject; }

  // Each is for values of that type, and false, 0 or empty for all others.
  bool boolean() const { return boolean_; }
  double number() const { return number_; }
  const std::string& string() const { return string_; }
  const std::vector<Json>& array() const { return array_; }
  // In the document's order.
  const std::vector<Member>& members() const { return members_; }

  // The member of an object; null if there is none, or this is no object. Of several with one name
  // it is the last.
  const Json* find(std::string_view name) const;

 private:
  friend class JsonParser;

  Type type_ = Type::kNull;
  bool boolean_ = false;
  double number_ = 0;
  std::string string_;
  std::vector<Json> array_;
  std::vector<Member> members_;
};

}  // namespace plat

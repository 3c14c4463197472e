#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace plat {

// An element of a small XML document without text: attributes and child elements only.
struct XmlElement {
  std::string name;
  std::vector<std::pair<std::string, std::string>> attributes;
  std::vector<XmlElement> children;

  // Null when there is none.
  const std::string* attribute(std::string_view attributeName) const;

  // Parses a whole document and returns its root. Comments and the XML declaration are skipped; the
  // five named entities and character references are known. There are no document types, so nothing
  // expands. Throws Exception, naming the line, for anything else that is not well-formed, for text
  // between the elements, for bytes that are no UTF-8, and beyond 16 MiB or 8 levels.
  static XmlElement parse(std::string_view document);
};

}  // namespace plat

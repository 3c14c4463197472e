#pragma once

#include <string_view>

namespace view {

// A file of the page, as it lies in the program.
struct PageFile {
  std::string_view path;  // of the URL: "/" for index.html
  const char* type;
  std::string_view bytes;
};

// Null when there is none.
const PageFile* findPageFile(std::string_view path);

}  // namespace view

// JSON documents.

#include "plat/config/Json.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "plat/Exception.h"
#include "plat/Utf8.h"

namespace {

// Visits all of the document; its texts must be UTF-8.
size_t visit(const plat::Json& value) {
  size_t count = 1;
  if (!plat::isValidUtf8(value.string())) abort();
  for (const plat::Json& item : value.array()) count += visit(item);
  for (const auto& [name, member] : value.members()) {
    if (!plat::isValidUtf8(name) || !value.find(name)) abort();
    count += visit(member);
  }
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    const plat::Json document =
        plat::Json::parse(std::string_view(reinterpret_cast<const char*>(data), size));
    // Each value takes a byte at least.
    if (visit(document) > size) abort();
  } catch (const plat::Exception&) {
  }
  return 0;
}

// Texts of selections and lines, in every encoding that X clients and the server may send.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Check.h"
#include "plat/Exception.h"
#include "plat/Utf8.h"
#include "rdr/MemInStream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::string utf8 = plat::latin1ToUtf8(bytes);
  check(plat::isValidUtf8(utf8) && plat::utf8ToLatin1(utf8) == bytes);
  check(plat::utf8ToLatin1(bytes).size() <= size);

  const bool valid = plat::isValidUtf8(bytes);
  for (const size_t limit : {size_t{0}, size_t{1}, size / 2, size - size / 4}) {
    const std::string_view kept = plat::utf8Cut(bytes, limit);
    check(kept.size() <= limit && kept.size() + 3 >= limit && bytes.starts_with(kept));
    check(!valid || plat::isValidUtf8(kept));
  }

  rdr::MemInStream in(data, size);
  try {
    while (in.available() > 0) check(in.readLine(64).size() <= 64);
  } catch (const plat::Exception&) {
    // A line that is too long or does not end.
  }
  return 0;
}

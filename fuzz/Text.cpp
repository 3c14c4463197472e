// Texts of selections and lines, in every encoding that X clients and the server may send; names of
// modes as any X client may make them, and lists of sizes and monitors.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Check.h"
#include "plat/Exception.h"
#include "plat/Utf8.h"
#include "rdr/MemInStream.h"
#include "svr/MonitorList.h"
#include "svr/WantedModes.h"

namespace {

void checkEncodings(std::string_view bytes) {
  const std::string utf8 = plat::latin1ToUtf8(bytes);
  check(plat::isValidUtf8(utf8) && plat::utf8ToLatin1(utf8) == bytes);
  check(plat::utf8ToLatin1(bytes).size() <= bytes.size());

  const bool valid = plat::isValidUtf8(bytes);
  for (const size_t limit : {size_t{0}, size_t{1}, bytes.size() / 2, bytes.size() * 3 / 4}) {
    const std::string_view kept = plat::utf8Cut(bytes, limit);
    check(kept.size() <= limit && kept.size() + 3 >= limit && bytes.starts_with(kept));
    check(!valid || plat::isValidUtf8(kept));
  }
}

void checkModes(std::string_view text) {
  const svr::WantedModes wanted({{800, 600}}, text);
  for (const std::string& name : wanted.names()) {
    const auto size = svr::WantedModes::sizeOf(name);
    check(svr::WantedModes::isOwnName(name) && size && size->width > 0 && size->height > 0);
  }
  if (const auto size = svr::WantedModes::sizeOf(text)) {
    check(svr::DisplaySize::parse(size->str()) == size);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  checkEncodings(text);
  checkModes(text);
  const svr::MonitorList monitors({rfb::Rect(0, 0, 800, 600), rfb::Rect(800, 0, 1440, 480)});
  try {
    const rfb::Rect chosen = monitors.select(plat::String(text.c_str()));
    check(chosen.isEmpty() || rfb::Rect(0, 0, 1440, 600).encloses(chosen));
  } catch (const plat::Exception&) {
    // No such monitor.
  }
  rdr::MemInStream in(data, size);
  try {
    while (in.available() > 0) check(in.readLine(64).size() <= 64);
  } catch (const plat::Exception&) {
    // A line that is too long or does not end.
  }
  return 0;
}

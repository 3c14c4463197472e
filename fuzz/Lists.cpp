// Lists of monitors and sizes, and names of modes as any X client may make them.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Check.h"
#include "plat/Exception.h"
#include "svr/MonitorList.h"
#include "svr/WantedModes.h"

namespace {

void checkModes(std::string_view text) {
  const svr::WantedModes wanted({{800, 600}}, text);
  for (const std::string& name : wanted.names()) {
    check(wanted.contains(name) && svr::WantedModes::isOwnName(name));
    const auto size = svr::WantedModes::sizeOf(name);
    check(size && size->width > 0 && size->height > 0);
    check(std::count(wanted.names().begin(), wanted.names().end(), name) == 1);
  }
  if (const auto size = svr::WantedModes::sizeOf(text)) {
    check(svr::DisplaySize::parse(size->str()) == size);
  }
}

void checkMonitors(const std::string& text) {
  const svr::MonitorList monitors({rfb::Rect(0, 0, 800, 600), rfb::Rect(800, 0, 1440, 480)});
  try {
    const rfb::Rect chosen = monitors.select(plat::String(text.c_str()));
    check(chosen.isEmpty() || rfb::Rect(0, 0, 1440, 600).encloses(chosen));
  } catch (const plat::Exception&) {
    // No such monitor.
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, data + size);
  checkModes(text);
  checkMonitors(text);
  return 0;
}

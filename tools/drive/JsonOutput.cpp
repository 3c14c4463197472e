#include "JsonOutput.h"

#include <cstdio>

namespace drive {

Json rectJson(const rfb::Rect& rect) {
  return Json::array({rect.tl.x, rect.tl.y, rect.br.x, rect.br.y});
}

Json monitorJson(const plat::DisplayInfo& monitor) {
  return {{"name", monitor.name.str()},
          {"primary", monitor.primary},
          {"depth", monitor.depth},
          {"rect", {monitor.left, monitor.top, monitor.right, monitor.bottom}}};
}

void printJsonLine(const Json& object) {
  const std::string text = object.dump(-1, ' ', false, Json::error_handler_t::replace);
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

}  // namespace drive

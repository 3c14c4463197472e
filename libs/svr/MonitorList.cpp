#include "svr/MonitorList.h"

#include <charconv>
#include <string_view>

#include "plat/Exception.h"
#include "plat/Text.h"
#include "svr/CrtcInfo.h"
#include "tx/ErrorCatcher.h"
#include "tx/RandrExtension.h"
#include "tx/TXDisplay.h"

namespace svr {

MonitorList MonitorList::query() {
  std::vector<rfb::Rect> rects;
  const tx::RandrExtension* randr = tx::RandrExtension::get();
  if (!randr) {
    rects.push_back(screenRect());
    return MonitorList(std::move(rects));
  }

  Display* display = tx::TXDisplay::display();
  tx::ErrorCatcher catcher;
  const tx::XRRResources resources = randr->resources(display, tx::TXDisplay::root());
  catcher.check("XRRGetScreenResources");
  if (!resources) throw plat::Exception("XRRGetScreenResources failed");
  for (const CrtcInfo& crtc : fetchCrtcs(*randr, *resources)) {
    if (crtc.rect.isEmpty()) continue;
    rects.push_back(crtc.rect);
  }
  return MonitorList(std::move(rects));
}

rfb::Rect MonitorList::screenRect() {
  Window root;
  int x, y;
  unsigned width, height, border, depth;
  if (!XGetGeometry(tx::TXDisplay::display(), tx::TXDisplay::root(), &root, &x, &y, &width, &height,
                    &border, &depth)) {
    throw plat::Exception("XGetGeometry failed");
  }
  return rfb::Rect(0, 0, static_cast<int>(width), static_cast<int>(height));
}

rfb::Region MonitorList::region() const {
  rfb::Region region;
  region.addRects(rects_);
  return region;
}

std::vector<plat::DisplayInfo> MonitorList::displayInfo() const {
  std::vector<plat::DisplayInfo> infos;
  for (const rfb::Rect& rect : rects_) {
    plat::DisplayInfo& info = infos.emplace_back();
    info.primary = infos.size() == 1;
    info.depth = static_cast<uint32_t>(tx::TXDisplay::depth());
    info.left = rect.tl.x;
    info.top = rect.tl.y;
    info.right = rect.br.x;
    info.bottom = rect.br.y;
    info.name = plat::format("%d", static_cast<int>(infos.size()));
  }
  return infos;
}

rfb::Rect MonitorList::select(const plat::String& selection) const {
  rfb::Rect bounds;
  std::string_view rest = plat::trimmed(selection.view());
  if (rest.empty()) return bounds;
  for (bool more = true; more;) {
    const size_t comma = rest.find(',');
    more = comma != std::string_view::npos;
    const std::string_view item = plat::trimmed(rest.substr(0, comma));
    if (more) rest.remove_prefix(comma + 1);

    size_t number = 0;
    const char* end = item.data() + item.size();
    const auto [stopped, error] = std::from_chars(item.data(), end, number);
    if (error != std::errc() || stopped != end || number < 1 || number > rects_.size()) {
      throw plat::Exception("No monitor '%s'", std::string(item).c_str());
    }
    bounds = bounds.unionBoundary(rects_[number - 1]);
  }
  return bounds;
}

}  // namespace svr

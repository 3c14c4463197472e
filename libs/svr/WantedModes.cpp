#include "svr/WantedModes.h"

#include <algorithm>

#include "plat/Text.h"

namespace svr {

namespace {

constexpr std::string_view kSuffix = "_ruvo";

}  // namespace

WantedModes::WantedModes(const std::vector<DisplaySize>& requested, std::string_view list) {
  for (const DisplaySize& size : requested) add(size.str());
  for (bool more = true; more;) {
    const size_t comma = list.find(',');
    more = comma != std::string_view::npos;
    const std::string_view entry = plat::trimmed(list.substr(0, comma));
    if (more) list.remove_prefix(comma + 1);
    if (DisplaySize::parse(entry)) add(entry);
  }
}

void WantedModes::add(std::string_view text) {
  std::string name = std::string(text).append(kSuffix);
  if (!contains(name)) names_.push_back(std::move(name));
}

bool WantedModes::contains(std::string_view name) const {
  return std::find(names_.begin(), names_.end(), name) != names_.end();
}

bool WantedModes::isOwnName(std::string_view name) {
  return name.ends_with(kSuffix);
}

std::optional<DisplaySize> WantedModes::sizeOf(std::string_view name) {
  return DisplaySize::parse(name.substr(0, name.find('_')));
}

}  // namespace svr

#include "DisplaySizes.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace view {

namespace {

constexpr std::array<DisplaySizes::Size, 8> kUsual{{{800, 600},
                                                    {1024, 768},
                                                    {1280, 720},
                                                    {1280, 800},
                                                    {1600, 900},
                                                    {1920, 1080},
                                                    {2560, 1440},
                                                    {3840, 2160}}};
// The first are the desktop's own; a page that follows its window asks for many.
constexpr size_t kMostHad = 2;

}  // namespace

void DisplaySizes::has(const Size& size) {
  refused_.erase(size);
  if (had_.size() < kMostHad) had_.insert(size);
}

bool DisplaySizes::refuses(const Size& size) {
  const bool usual = std::find(kUsual.begin(), kUsual.end(), size) != kUsual.end();
  return (usual || had_.contains(size)) && refused_.insert(size).second;
}

std::vector<DisplaySizes::Size> DisplaySizes::offered() const {
  if (!supported_) return {};
  std::set<Size> all = had_;
  all.insert(kUsual.begin(), kUsual.end());
  std::vector<Size> offered;
  for (const Size& size : all) {
    if (!refused_.contains(size)) offered.push_back(size);
  }
  return offered;
}

}  // namespace view

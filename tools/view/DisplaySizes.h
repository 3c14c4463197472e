#pragma once

#include <cstdint>
#include <set>
#include <utility>
#include <vector>

namespace view {

// The sizes that pages are offered for the desktop, in pixels: usual ones, and those that it has
// had, but none that the X server has refused.
class DisplaySizes {
 public:
  using Size = std::pair<uint32_t, uint32_t>;

  // Whether the agent can change the size at all; it says so when it starts.
  void setSupported(bool supported) { supported_ = supported; }
  void has(const Size& size);
  // Returns whether fewer are offered than before. Of others, which a page may name without end,
  // nothing is kept.
  bool refuses(const Size& size);
  // Others may be possible now.
  void forgetRefusals() { refused_.clear(); }

  // By width; empty when there is no choice.
  std::vector<Size> offered() const;

 private:
  bool supported_ = false;
  std::set<Size> had_, refused_;
};

}  // namespace view

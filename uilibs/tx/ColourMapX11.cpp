#include "tx/ColourMapX11.h"

#include "plat/Assert.h"
#include "tx/TXDisplay.h"

namespace tx {

namespace {

int checkedSize(const Visual* visual) {
  PLAT_ASSERT_TEXT(visual->map_entries <= 256, "numColours() <= 256");
  return visual->map_entries;
}

}  // namespace

ColourMapX11::ColourMapX11(Visual* visual)
    : map_(DefaultColormap(TXDisplay::display(), TXDisplay::screen())), size_(checkedSize(visual)) {
  update();
}

void ColourMapX11::lookup(int index, int* r, int* g, int* b) const {
  const Colour colour =
      index >= 0 && index < size_ ? colours_[static_cast<size_t>(index)] : Colour{};
  *r = colour.r;
  *g = colour.g;
  *b = colour.b;
}

bool ColourMapX11::update() {
  if (!TXDisplay::isOpen()) return false;
  std::array<XColor, 256> cells{};
  for (size_t i = 0; i < cells.size(); ++i) cells[i].pixel = i;
  XQueryColors(TXDisplay::display(), map_, cells.data(), size_);

  bool changed = false;
  for (size_t i = 0; i < static_cast<size_t>(size_); ++i) {
    const auto high = [](unsigned short channel) { return static_cast<uint8_t>(channel >> 8); };
    const Colour colour{high(cells[i].red), high(cells[i].green), high(cells[i].blue)};
    changed |= colour != colours_[i];
    colours_[i] = colour;
  }
  return changed;
}

}  // namespace tx

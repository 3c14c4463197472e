#include "BlockCanvas.h"

#include <algorithm>

#include "plat/Exception.h"

namespace drive {

void BlockCanvas::draw(const Picture& picture, const TerminalSize& size) {
  const double scale =
      std::min(double(size.columns) / picture.width(), 2.0 * size.rows / picture.height());
  const int columns = std::max(1, static_cast<int>(picture.width() * scale));
  const int rows = std::max(1, static_cast<int>(picture.height() * scale / 2));
  const size_t count = static_cast<size_t>(columns) * static_cast<size_t>(rows);
  const bool all = size != size_ || columns != columns_ || count != cells_.size();
  if (all) put("\033[0m\033[2J");
  size_ = size;
  columns_ = columns;
  cells_.resize(count);
  const auto x = [&](int column) { return column * picture.width() / columns; };
  const auto y = [&](int half) { return half * picture.height() / (2 * rows); };
  for (int row = 0; row < rows; ++row) {
    bool here = false;  // the terminal's cursor
    for (int column = 0; column < columns; ++column) {
      Cell& cell = cells_[size_t(row) * size_t(columns) + size_t(column)];
      const Cell now{meanOf(picture, x(column), y(2 * row), x(column + 1), y(2 * row + 1)),
                     meanOf(picture, x(column), y(2 * row + 1), x(column + 1), y(2 * row + 2))};
      if (now == cell && !all) {
        here = false;
        continue;
      }
      cell = now;
      if (!here) put(plat::format("\033[%d;%dH", row + 1, column + 1));
      here = true;
      put(plat::format("\033[38;2;%d;%d;%d;48;2;%d;%d;%dm\u2580", now.top.red, now.top.green,
                       now.top.blue, now.bottom.red, now.bottom.green, now.bottom.blue));
    }
  }
}

}  // namespace drive

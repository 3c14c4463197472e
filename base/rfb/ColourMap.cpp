#include "rfb/ColourMap.h"

#include <climits>

namespace rfb {

int ColourMap::nearest(int red, int green, int blue) const {
  int best = 0;
  int bestDistance = INT_MAX;
  const int entries = size();
  for (int i = 0; i < entries; ++i) {
    int r, g, b;
    lookup(i, &r, &g, &b);
    const int distance =
        (r - red) * (r - red) + (g - green) * (g - green) + (b - blue) * (b - blue);
    if (distance < bestDistance) {
      bestDistance = distance;
      best = i;
    }
  }
  return best;
}

}  // namespace rfb

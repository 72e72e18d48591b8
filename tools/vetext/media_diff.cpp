#include "media_diff.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace vetext_tool {

DiffStats DiffPixels(const uint8_t* a, const uint8_t* b, size_t pixels, int first, int count,
                     int tolerance) {
  DiffStats s;
  uint64_t sum = 0, sq = 0, n = 0, outside = 0;
  for (size_t i = 0; i < pixels * 4; i += 4) {
    int pixel_max = 0;
    for (size_t c = i + size_t(first); c < i + size_t(first + count); ++c, ++n) {
      const int d = std::abs(int(a[c]) - int(b[c]));
      pixel_max = std::max(pixel_max, d);
      sum += uint64_t(d);
      sq += uint64_t(d * d);
    }
    s.max_abs = std::max(s.max_abs, pixel_max);
    if (pixel_max > tolerance) ++outside;
  }
  s.within = pixels ? 1.0 - double(outside) / double(pixels) : 1.0;
  s.mean_abs = n ? double(sum) / double(n) : 0;
  s.psnr = sq == 0 ? std::numeric_limits<double>::infinity()
                   : 10.0 * std::log10(255.0 * 255.0 * double(n) / double(sq));
  return s;
}

}  // namespace vetext_tool

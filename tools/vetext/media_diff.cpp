#include "media_diff.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace vetext_tool {

DiffStats DiffPixels(const uint8_t* a, const uint8_t* b, size_t pixels, int first, int count) {
  DiffStats s;
  uint64_t sum = 0, sq = 0, n = 0;
  for (size_t i = 0; i < pixels * 4; i += 4)
    for (size_t c = i + size_t(first); c < i + size_t(first + count); ++c, ++n) {
      const int d = std::abs(int(a[c]) - int(b[c]));
      s.max_abs = std::max(s.max_abs, d);
      sum += uint64_t(d);
      sq += uint64_t(d * d);
    }
  s.mean_abs = n ? double(sum) / double(n) : 0;
  s.psnr = sq == 0 ? std::numeric_limits<double>::infinity()
                   : 10.0 * std::log10(255.0 * 255.0 * double(n) / double(sq));
  return s;
}

}  // namespace vetext_tool

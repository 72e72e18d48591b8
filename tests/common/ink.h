// Ink: the pixels of a rendered picture that differ from what lies under the text (a uniform
// background or a reference picture), with their count, extent and centroid.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>

namespace vetext_test {

struct Ink {
  int64_t count = 0;
  int32_t left = 0, top = 0, right = 0, bottom = 0;   // exclusive right/bottom; all 0 when none
  double mean_x = 0, mean_y = 0;                      // centroid of the pixels themselves
  double cx() const { return (left + right) / 2.0; }  // centre of the extent
  double cy() const { return (top + bottom) / 2.0; }
  int32_t width() const { return right - left; }
  int32_t height() const { return bottom - top; }
};

// Compares the first three bytes of `pixel(x, y)` with those of `ref(x, y)` (4-byte pixels); a
// pixel is ink when any of them differs by more than `tolerance`.
template <class Pixel, class Ref>
Ink InkAgainst(int32_t width, int32_t height, Pixel pixel, Ref ref, int tolerance) {
  Ink ink;
  int32_t l = width, t = height, r = -1, b = -1;
  double sx = 0, sy = 0;
  for (int32_t y = 0; y < height; ++y)
    for (int32_t x = 0; x < width; ++x) {
      const uint8_t* p = pixel(x, y);
      const uint8_t* q = ref(x, y);
      int d = 0;
      for (int c = 0; c < 3; ++c) d = std::max(d, std::abs(int(p[c]) - int(q[c])));
      if (d <= tolerance) continue;
      ++ink.count;
      sx += x, sy += y;
      l = std::min(l, x), r = std::max(r, x);
      t = std::min(t, y), b = std::max(b, y);
    }
  if (ink.count > 0) {
    ink.left = l, ink.top = t, ink.right = r + 1, ink.bottom = b + 1;
    ink.mean_x = sx / double(ink.count), ink.mean_y = sy / double(ink.count);
  }
  return ink;
}

}  // namespace vetext_test

// The picture comparison behind `vetext diff` and the render tests: how far two pictures of the
// same size are apart.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vetext_tool {

struct DiffStats {
  int max_abs = 0;      // the largest absolute difference of one byte
  double mean_abs = 0;  // the mean absolute difference over the bytes compared
  double psnr = 0;      // peak signal-to-noise ratio in dB; infinity for identical bytes
  double within = 1;    // the share of pixels whose every compared byte is within the tolerance
};

// Compares bytes [first, first + count) of each of the `pixels` 4-byte pixels of `a` and `b`:
// 0, 4 every channel; 0, 3 colour only; 3, 1 alpha alone. `tolerance` is the largest difference
// a byte may have for its pixel to count as within.
DiffStats DiffPixels(const uint8_t* a, const uint8_t* b, size_t pixels, int first = 0,
                     int count = 4, int tolerance = 0);

}  // namespace vetext_tool

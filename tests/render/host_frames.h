// Host frames as test buffers, for the tests that render through the reference host.
#pragma once

#include <cstring>

#include "test_layouts.h"
#include "vetext/host/host.h"

namespace vetext_test {

// The frame's rows in visual order, packed.
inline Buffer ToBuffer(const vxhost::Frame& f) {
  Buffer b(f.width(), f.height());
  for (int32_t y = 0; y < f.height(); ++y)
    std::memcpy(&b.px[size_t(y) * f.width() * 4], f.row(y), size_t(f.width()) * 4);
  return b;
}

}  // namespace vetext_test

// RGB -> Y'CbCr, BT.709 full range. The reference host's 'vuya' frames use the same matrix,
// so a colour written through here reads back through the host's conversion within rounding.
#include <algorithm>
#include <cmath>

#include "vetext/vxcore.h"

namespace {
int RoundClamp(double v, int lo, int hi) {
  return std::clamp(static_cast<int>(std::lround(v)), lo, hi);
}
}  // namespace

VxYUV ColorRGBtoYUV(uint32_t rgb) {
  const double r = rgb & 0xFF, g = (rgb >> 8) & 0xFF, b = (rgb >> 16) & 0xFF;
  const double y = 0.2126 * r + 0.7152 * g + 0.0722 * b;
  const double cb = (b - y) / 1.8556;
  const double cr = (r - y) / 1.5748;
  VxYUV out;
  out.y = static_cast<uint8_t>(RoundClamp(y, 0, 255));
  out.u = static_cast<int8_t>(RoundClamp(cb, -128, 127));
  out.v = static_cast<int8_t>(RoundClamp(cr, -128, 127));
  return out;
}

VxRGB ColorYUVtoRGB(VxYUV yuv) {
  const double y = yuv.y, cb = yuv.u, cr = yuv.v;
  const double r = y + 1.5748 * cr;
  const double b = y + 1.8556 * cb;
  const double g = (y - 0.2126 * r - 0.0722 * b) / 0.7152;
  VxRGB out;
  out.r = static_cast<uint8_t>(RoundClamp(r, 0, 255));
  out.g = static_cast<uint8_t>(RoundClamp(g, 0, 255));
  out.b = static_cast<uint8_t>(RoundClamp(b, 0, 255));
  return out;
}

#include "render/rasterize.h"

#include <cmath>
#include <memory>
#include <thread>
#include <vector>

#include "render/color.h"
#include "render/glyph_cache.h"
#include "vetext/effect.h"

namespace vetext {
namespace {

// x / 255 rounded, exact for 0 <= x <= 255 * 255.
inline uint32_t Div255(uint32_t x) {
  x += 128;
  return (x + (x >> 8)) >> 8;
}

struct Placed {
  std::shared_ptr<const GlyphMask> mask;
  int32_t x = 0, y = 0;  // the mask's top-left pixel in the unflipped buffer
  GlyphPaint paint;
  bool fill_first = false;
};

// Blends one placed glyph over the rows [row_begin, row_end) of the buffer (visual rows of the
// unflipped picture; with `flip` row y lands at H - 1 - y).
void Blend(const Placed& p, uint8_t* buf, int32_t row_bytes, int32_t W, int32_t H, bool flip,
           int32_t row_begin, int32_t row_end) {
  const GlyphMask& m = *p.mask;
  int32_t y0 = std::max(p.y, row_begin), y1 = std::min<int64_t>(int64_t(p.y) + m.height, row_end);
  int32_t x0 = std::max(p.x, 0), x1 = std::min<int64_t>(int64_t(p.x) + m.width, W);
  if (y0 >= y1 || x0 >= x1) return;
  const bool stroked = !m.stroke.empty();
  // The glyph's own two layers: `top` painted over `bottom`.
  const uint8_t* top_c = p.paint.fill;
  const uint8_t* bot_c = p.paint.stroke;
  if (stroked && p.fill_first) std::swap(top_c, bot_c);
  for (int32_t y = y0; y < y1; ++y) {
    int32_t by = flip ? H - 1 - y : y;
    uint8_t* d = buf + int64_t(by) * row_bytes + int64_t(x0) * 4;
    size_t off = size_t(y - p.y) * size_t(m.width) + size_t(x0 - p.x);
    const uint8_t* f = m.fill.data() + off;
    if (!stroked) {
      for (int32_t x = x0; x < x1; ++x, d += 4, ++f) {
        uint32_t a = *f;
        if (a == 0) continue;
        uint32_t inv = 255 - a;
        for (int c = 0; c < 3; ++c) d[c] = uint8_t(Div255(top_c[c] * a + d[c] * inv));
        d[3] = uint8_t(a + Div255(d[3] * inv));
      }
      continue;
    }
    const uint8_t* s = m.stroke.data() + off;
    for (int32_t x = x0; x < x1; ++x, d += 4, ++f, ++s) {
      uint32_t fa = *f, sa = *s;
      uint32_t ta = p.fill_first ? sa : fa;  // coverage of the upper layer
      uint32_t ba = p.fill_first ? fa : sa;
      if ((ta | ba) == 0) continue;
      uint32_t bweight = Div255(ba * (255 - ta));  // what shows of the lower layer
      uint32_t a = ta + bweight;
      uint32_t inv = 255 - a;
      for (int c = 0; c < 3; ++c)
        d[c] = uint8_t(std::min<uint32_t>(
            255, Div255(top_c[c] * ta + bot_c[c] * bweight) + Div255(d[c] * inv)));
      d[3] = uint8_t(a + Div255(d[3] * inv));
    }
  }
}

void BlendBand(const std::vector<Placed>& placed, uint8_t* buf, int32_t row_bytes, int32_t W,
               int32_t H, bool flip, int32_t row_begin, int32_t row_end) {
  for (const Placed& p : placed) Blend(p, buf, row_bytes, W, H, flip, row_begin, row_end);
}

}  // namespace

void RasterizeLayout(const LayoutRecord& layout, uint8_t* buf, int32_t row_bytes, bool gpu_variant,
                     int32_t W, int32_t H, float ox, float oy) {
  RasterizeLayout(layout, buf, row_bytes, gpu_variant, W, H, ox, oy, kPixelFormatBGRA);
}

void RasterizeLayout(const LayoutRecord& layout, uint8_t* buf, int32_t row_bytes, bool gpu_variant,
                     int32_t W, int32_t H, float ox, float oy, uint32_t pixel_format) {
  if (buf == nullptr || W <= 0 || H <= 0) return;
  std::vector<Placed> placed;
  placed.reserve(layout.mCharacters.size());
  for (const CharacterRecord& c : layout.mCharacters) {
    // The origin in buffer pixels, split into a whole pixel and a quantised phase.
    double gx = double(c.mOriginX) + double(ox), gy = double(c.mOriginY) + double(oy);
    if (!std::isfinite(gx) || !std::isfinite(gy) || std::fabs(gx) > 1e8 || std::fabs(gy) > 1e8)
      continue;
    double qx = std::round(gx * kGlyphPhases), qy = std::round(gy * kGlyphPhases);
    int64_t ix = int64_t(std::floor(qx / kGlyphPhases)),
            iy = int64_t(std::floor(qy / kGlyphPhases));
    int phase_x = int(int64_t(qx) - ix * kGlyphPhases),
        phase_y = int(int64_t(qy) - iy * kGlyphPhases);
    float stroke = c.mStrokeWidth > 0.0f ? c.mStrokeWidth : 0.0f;
    auto mask = GetGlyphMask(c.mFontName, c.mGlyphID, c.mFontSize, stroke, phase_x, phase_y);
    if (!mask) continue;
    int64_t x = ix + mask->left, y = iy + mask->top;
    if (x >= W || y >= H || x + mask->width <= 0 || y + mask->height <= 0) continue;
    Placed p;
    p.mask = std::move(mask);
    p.x = int32_t(x);
    p.y = int32_t(y);
    p.paint = PaintForRecord(c, pixel_format);
    p.fill_first = c.mFillFirst;
    placed.push_back(std::move(p));
  }
  if (placed.empty()) return;
  if (int64_t(W) * H < kRasterizeParallelPixels || H < 2) {
    BlendBand(placed, buf, row_bytes, W, H, gpu_variant, 0, H);
    return;
  }
  // Two bands of rows: every glyph is blended in record order within each band, so the result
  // is the same as one pass.
  int32_t mid = H / 2;
  std::thread other([&] { BlendBand(placed, buf, row_bytes, W, H, gpu_variant, mid, H); });
  BlendBand(placed, buf, row_bytes, W, H, gpu_variant, 0, mid);
  other.join();
}

}  // namespace vetext

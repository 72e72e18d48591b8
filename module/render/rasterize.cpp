#include "render/rasterize.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "render/color.h"
#include "render/glyph_cache.h"
#include "vetext/effect.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vetext {
namespace {

// x / 255 rounded, exact for 0 <= x <= 255 * 255.
inline uint32_t Div255(uint32_t x) {
  x += 128;
  return (x + (x >> 8)) >> 8;
}

// A record's glyph where it lands in a W x H buffer: the full (4x) mask and its top-left pixel.
struct Placed {
  const CharacterRecord* record = nullptr;
  std::shared_ptr<const GlyphMask> mask;
  int32_t x = 0, y = 0;  // the mask's top-left pixel in the unflipped buffer
  int phase_x = 0, phase_y = 0;
  float stroke = 0;  // the stroke width asked of the mask, 0 for none
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

// A record's origin in 4x pixels, split into a whole pixel and a quantised phase; false for
// origins no buffer can hold.
bool SplitOrigin(const CharacterRecord& c, float ox, float oy, int64_t* ix, int64_t* iy,
                 int* phase_x, int* phase_y) {
  double gx = double(c.mOriginX) + double(ox), gy = double(c.mOriginY) + double(oy);
  if (!std::isfinite(gx) || !std::isfinite(gy) || std::fabs(gx) > 1e8 || std::fabs(gy) > 1e8)
    return false;
  // Ties round up, not away from zero: a glyph drawn into a window of the buffer (the GPU path's
  // record images, whose origins may lie left of or above them) then takes the same phase as in
  // the whole buffer, whatever whole-pixel offset the window has.
  double qx = std::floor(gx * kGlyphPhases + 0.5), qy = std::floor(gy * kGlyphPhases + 0.5);
  *ix = int64_t(std::floor(qx / kGlyphPhases));
  *iy = int64_t(std::floor(qy / kGlyphPhases));
  *phase_x = int(int64_t(qx) - *ix * kGlyphPhases);
  *phase_y = int(int64_t(qy) - *iy * kGlyphPhases);
  return true;
}

// Every record's glyph placed in a W x H buffer, in record order. Glyphs whose font or outline
// cannot be had, or that fall wholly outside the buffer, are left out; *clipped tells whether a
// placed glyph reaches past an edge.
std::vector<Placed> PlaceGlyphs(const LayoutRecord& layout, int32_t W, int32_t H, float ox,
                                float oy, uint32_t pixel_format, bool* clipped) {
  std::vector<Placed> placed;
  placed.reserve(layout.mCharacters.size());
  *clipped = false;
  for (const CharacterRecord& c : layout.mCharacters) {
    int64_t ix, iy;
    Placed p;
    if (!SplitOrigin(c, ox, oy, &ix, &iy, &p.phase_x, &p.phase_y)) continue;
    p.stroke = c.mStrokeWidth > 0.0f ? c.mStrokeWidth : 0.0f;
    p.mask = GetGlyphMask(c.mFontName, c.mGlyphID, c.mFontSize, p.stroke, p.phase_x, p.phase_y);
    if (!p.mask) continue;
    const int64_t x = ix + p.mask->left, y = iy + p.mask->top;
    if (x >= W || y >= H || x + p.mask->width <= 0 || y + p.mask->height <= 0) continue;
    if (x < 0 || y < 0 || x + p.mask->width > W || y + p.mask->height > H) *clipped = true;
    p.record = &c;
    p.x = int32_t(x);
    p.y = int32_t(y);
    p.paint = PaintForRecord(c, pixel_format);
    p.fill_first = c.mFillFirst;
    placed.push_back(std::move(p));
  }
  return placed;
}

// One row of a reduced glyph over the reduced image: colour = top T + bottom B (both
// premultiplied weights), then over the destination. The scalar form is the reference.
void BlendReducedRowScalar(const uint8_t* t, const uint8_t* b, const uint8_t top[4],
                           const uint8_t bot[4], uint8_t* d, int32_t n) {
  for (int32_t x = 0; x < n; ++x, d += 4) {
    const uint32_t ta = t[x], bw = b ? b[x] : 0;
    if ((ta | bw) == 0) continue;
    const uint32_t inv = 255 - (ta + bw);
    for (int c = 0; c < 4; ++c)
      d[c] =
          uint8_t(std::min<uint32_t>(255, Div255(top[c] * ta + bot[c] * bw) + Div255(d[c] * inv)));
  }
}

#if defined(__SSE2__)
inline __m128i Div255x16(__m128i x) {
  x = _mm_add_epi16(x, _mm_set1_epi16(128));
  return _mm_srli_epi16(_mm_add_epi16(x, _mm_srli_epi16(x, 8)), 8);
}

void BlendReducedRowSse2(const uint8_t* t, const uint8_t* b, const uint8_t top[4],
                         const uint8_t bot[4], uint8_t* d, int32_t n) {
  const __m128i zero = _mm_setzero_si128(), c255 = _mm_set1_epi16(255);
  const __m128i tc = _mm_setr_epi16(top[0], top[1], top[2], top[3], top[0], top[1], top[2], top[3]);
  const __m128i bc = _mm_setr_epi16(bot[0], bot[1], bot[2], bot[3], bot[0], bot[1], bot[2], bot[3]);
  // Four weights, one a pixel, spread over the four channels of each pixel: low and high half.
  auto spread = [zero](uint32_t w4, __m128i* lo, __m128i* hi) {
    __m128i x = _mm_cvtsi32_si128(int32_t(w4));
    x = _mm_unpacklo_epi8(x, x);
    x = _mm_unpacklo_epi16(x, x);
    *lo = _mm_unpacklo_epi8(x, zero);
    *hi = _mm_unpackhi_epi8(x, zero);
  };
  int32_t x = 0;
  for (; x + 4 <= n; x += 4, d += 16) {
    uint32_t t4, b4 = 0;
    std::memcpy(&t4, t + x, 4);
    if (b) std::memcpy(&b4, b + x, 4);
    if ((t4 | b4) == 0) continue;
    __m128i tl, th, bl, bh;
    spread(t4, &tl, &th);
    spread(b4, &bl, &bh);
    const __m128i dp = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d));
    __m128i out[2];
    if (_mm_movemask_epi8(_mm_cmpeq_epi8(dp, zero)) == 0xFFFF) {
      // Nothing drawn here yet (most of a glyph: glyphs seldom share pixels): the colour alone,
      // as the full formula gives with d = 0.
      for (int h = 0; h < 2; ++h) {
        const __m128i tw = h ? th : tl, bw = h ? bh : bl;
        out[h] = Div255x16(_mm_add_epi16(_mm_mullo_epi16(tc, tw), _mm_mullo_epi16(bc, bw)));
      }
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(out[0], out[1]));
      continue;
    }
    for (int h = 0; h < 2; ++h) {
      const __m128i tw = h ? th : tl, bw = h ? bh : bl;
      const __m128i d16 = h ? _mm_unpackhi_epi8(dp, zero) : _mm_unpacklo_epi8(dp, zero);
      const __m128i col =
          Div255x16(_mm_add_epi16(_mm_mullo_epi16(tc, tw), _mm_mullo_epi16(bc, bw)));
      const __m128i inv = _mm_sub_epi16(c255, _mm_add_epi16(tw, bw));
      out[h] = _mm_add_epi16(col, Div255x16(_mm_mullo_epi16(d16, inv)));
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(out[0], out[1]));
  }
  BlendReducedRowScalar(t + x, b ? b + x : nullptr, top, bot, d, n - x);
}
#endif

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
  bool clipped;  // the literal picture simply clips at the edges
  const std::vector<Placed> placed = PlaceGlyphs(layout, W, H, ox, oy, pixel_format, &clipped);
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

namespace vetext {

void BlendReducedRow(const uint8_t* t, const uint8_t* b, const uint8_t top[4], const uint8_t bot[4],
                     uint8_t* d, int32_t n, bool simd) {
#if defined(__SSE2__)
  if (simd) {
    BlendReducedRowSse2(t, b, top, bot, d, n);
    return;
  }
#endif
  (void)simd;
  BlendReducedRowScalar(t, b, top, bot, d, n);
}

// Why the reduction can be assembled from reduced glyphs: the 4 x 4 mean is linear, and a
// glyph painted alone over transparency gives, per 4x pixel, colour top * ta + bottom * bw and
// alpha ta + bw (its own stroke/fill order is applied at 4x, before the mean, in
// GetReducedGlyphMask). The mean of that is top * mean(ta) + bottom * mean(bw): the reduced
// glyph painted with the same colours. Where glyphs do not share a block the result is the
// reduction of the 4x picture up to rounding; where they do, "over" multiplies the coverages
// of the two glyphs, and the product of the means stands in for the mean of the products,
// which differs only along edges that cross inside one block.
bool RasterizeLayoutReduced(const LayoutRecord& layout, int32_t W, int32_t H, float ox, float oy,
                            uint32_t pixel_format, uint8_t* out) {
  if (out == nullptr || W <= 0 || H <= 0) return false;
  const int32_t rw = (W + 3) / 4, rh = (H + 3) / 4;
  const size_t stride = size_t(rw + 2) * 4;
  struct Item {
    std::shared_ptr<const GlyphMask> mask;
    int32_t x, y;  // top-left pixel of the reduced mask in the bordered image
    uint8_t top[4], bot[4];
  };
  // The full masks' placement decides each glyph's block phase. The literal picture clips a
  // glyph at the buffer's edges, so a glyph reaching past one is cut the same way at 4x before it
  // is reduced (not cached: only the glyphs at the edges of a block ever are).
  bool clipped;
  const std::vector<Placed> placed = PlaceGlyphs(layout, W, H, ox, oy, pixel_format, &clipped);
  std::vector<Item> items;
  items.reserve(placed.size());
  for (const Placed& p : placed) {
    const CharacterRecord& c = *p.record;
    const bool stroked = !p.mask->stroke.empty();
    const GlyphMask& full = *p.mask;
    const int32_t x0 = std::max(p.x, 0), y0 = std::max(p.y, 0);
    const int32_t x1 = std::min(p.x + full.width, W), y1 = std::min(p.y + full.height, H);
    std::shared_ptr<const GlyphMask> mask;
    if (x0 == p.x && y0 == p.y && x1 == p.x + full.width && y1 == p.y + full.height) {
      mask = GetReducedGlyphMask(c.mFontName, c.mGlyphID, c.mFontSize, p.stroke, p.phase_x,
                                 p.phase_y, p.x & 3, p.y & 3, stroked && p.fill_first);
    } else {
      GlyphMask cut;
      cut.width = x1 - x0;
      cut.height = y1 - y0;
      const size_t n = size_t(cut.width) * size_t(cut.height);
      cut.fill.resize(n);
      if (stroked) cut.stroke.resize(n);
      for (int32_t r = 0; r < cut.height; ++r) {
        const size_t from = size_t(y0 - p.y + r) * size_t(full.width) + size_t(x0 - p.x);
        const size_t to = size_t(r) * size_t(cut.width);
        std::memcpy(cut.fill.data() + to, full.fill.data() + from, size_t(cut.width));
        if (stroked)
          std::memcpy(cut.stroke.data() + to, full.stroke.data() + from, size_t(cut.width));
      }
      mask = ReduceMask(cut, x0 & 3, y0 & 3, stroked && p.fill_first);
    }
    if (!mask) continue;
    Item it;
    it.mask = std::move(mask);
    it.x = (x0 >> 2) + 1;
    it.y = (y0 >> 2) + 1;
    const uint8_t* tc = p.paint.fill;
    const uint8_t* bc = p.paint.stroke;
    if (stroked && p.fill_first) std::swap(tc, bc);
    for (int k = 0; k < 3; ++k) it.top[k] = tc[k], it.bot[k] = bc[k];
    it.top[3] = it.bot[3] = 255;
    items.push_back(std::move(it));
  }
  for (const Item& it : items) {
    const GlyphMask& m = *it.mask;
    const int32_t w = std::min(m.width, rw + 1 - it.x), h = std::min(m.height, rh + 1 - it.y);
    for (int32_t r = 0; r < h; ++r) {
      const size_t off = size_t(r) * size_t(m.width);
      uint8_t* d = out + size_t(it.y + r) * stride + size_t(it.x) * 4;
      BlendReducedRow(m.fill.data() + off, m.stroke.empty() ? nullptr : m.stroke.data() + off,
                      it.top, it.bot, d, w, true);
    }
  }
  return true;
}

}  // namespace vetext

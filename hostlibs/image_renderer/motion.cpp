// IR_Motion: places a premultiplied source over a straight destination with scale, rotation and
// opacity.
//
// Two passes. The source is first box-reduced by integer factors chosen so that the remaining
// scale is close to 1 (for the usual 4x oversampled text at 100% the reduction is exact and the
// second pass is a plain bilinear lookup); that is what keeps shrunken, rotated text free of
// aliasing, at a cost proportional to the source once. The second pass visits only destination
// pixels whose centre maps near the reduction, maps each back through the inverse transform and
// samples bilinearly. The reduction carries a transparent one-pixel border, so the inner loop
// needs no edge tests: samples are clamped into the border, where everything reads as zero.
#include "image_renderer/motion.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <thread>
#include <utility>
#include <vector>

#include "vetext/vxcore.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace ir {
namespace {

// Below four times this many source pixels the reduction runs on one thread: a second costs
// more to start than it saves.
constexpr int64_t kParallelPixels = 1 << 17;
// The same for the resample, in destination pixels. A resampled pixel costs several times a
// reduced one (a 2 x 2 footprint, weights, a blend), so the second thread pays off much
// earlier: a turned 160 px title (about 90,000 pixels) takes 30% less time on two.
constexpr int64_t kParallelResample = 1 << 15;
constexpr int32_t kMaxFactor = 4096;

int32_t FactorFor(float scale) {
  const double s = std::fabs(static_cast<double>(scale));
  if (!(s > 0) || !std::isfinite(s)) return 1;
  double f = std::floor(1.0 / s + 1e-9);
  if (f < 1) f = 1;
  // Between 1/2 and 3/4 of the reduced size bilinear sampling starts to alias; one more step of
  // reduction leaves a scale above 1 instead, which only softens.
  if (s * f < 0.75) f += 1;
  return static_cast<int32_t>(std::min<double>(f, kMaxFactor));
}

// acc[i] (+)= row[i] over n bytes: most of the reduction's time. Written out in SSE2 because
// the compiler does not vectorize a widening add of unknown length at the default level; the
// sums are exact either way.
template <bool kAdd>
void AccumulateRow(uint32_t* acc, const uint8_t* row, size_t n) {
  size_t i = 0;
#if defined(__SSE2__)
  const __m128i z = _mm_setzero_si128();
  for (; i + 16 <= n; i += 16) {
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + i));
    const __m128i lo = _mm_unpacklo_epi8(b, z), hi = _mm_unpackhi_epi8(b, z);
    const __m128i parts[4] = {_mm_unpacklo_epi16(lo, z), _mm_unpackhi_epi16(lo, z),
                              _mm_unpacklo_epi16(hi, z), _mm_unpackhi_epi16(hi, z)};
    auto* a = reinterpret_cast<__m128i*>(acc + i);
    for (int k = 0; k < 4; ++k)
      _mm_storeu_si128(a + k, kAdd ? _mm_add_epi32(_mm_loadu_si128(a + k), parts[k]) : parts[k]);
  }
#endif
  for (; i < n; ++i) acc[i] = kAdd ? acc[i] + row[i] : row[i];
}

// Sums fx x fy blocks of source rows into one reduced row. `acc` holds rw * fx pixels of
// 32-bit sums; the part beyond the source width is zero and stays zero, so the last, partial
// block needs no special case.
void ReduceOneRow(const uint8_t* src, ptrdiff_t src_row_bytes, int32_t w, int32_t h, int32_t fx,
                  int32_t fy, int32_t r, uint8_t* out_row, uint32_t* acc) {
  const int32_t rw = ReducedExtent(w, fx);
  const size_t n = static_cast<size_t>(w) * 4;
  const int32_t y0 = r * fy, y1 = std::min(h, y0 + fy);
  AccumulateRow<false>(acc, src + static_cast<ptrdiff_t>(y0) * src_row_bytes, n);
  for (int32_t y = y0 + 1; y < y1; ++y)
    AccumulateRow<true>(acc, src + static_cast<ptrdiff_t>(y) * src_row_bytes, n);
  uint8_t* o = out_row + 4;  // past the left border pixel
  if (fx == 4 && fy == 4) {
    // The usual case, 4x oversampled text at 100%: a shift divides exactly.
    for (int32_t j = 0; j < rw; ++j) {
      const uint32_t* a = acc + static_cast<size_t>(j) * 16;
      for (int c = 0; c < 4; ++c)
        o[j * 4 + c] = static_cast<uint8_t>((a[c] + a[4 + c] + a[8 + c] + a[12 + c] + 8) >> 4);
    }
    return;
  }
  // Division by the full block area, with rounding, as a multiply (exact for powers of two).
  const uint64_t area = static_cast<uint64_t>(fx) * static_cast<uint64_t>(fy);
  const uint64_t mul = ((uint64_t{1} << 32) + area / 2) / area;
  for (int32_t j = 0; j < rw; ++j) {
    uint64_t sum[4] = {0, 0, 0, 0};
    const uint32_t* a = acc + static_cast<size_t>(j) * fx * 4;
    for (int32_t k = 0; k < fx; ++k)
      for (int c = 0; c < 4; ++c) sum[c] += a[k * 4 + c];
    for (int c = 0; c < 4; ++c)
      o[j * 4 + c] =
          static_cast<uint8_t>(std::min<uint64_t>((sum[c] * mul + (uint64_t{1} << 31)) >> 32, 255));
  }
}

double Wrap360(double deg) {
  double r = std::fmod(deg, 360.0);
  return r < 0 ? r + 360.0 : r;
}

// Exact values at the quarter turns, so that upright and quarter-turned placements land on
// pixel centres exactly.
void CosSin(double deg, double* c, double* s) {
  const double r = Wrap360(deg);
  if (r == 0) {
    *c = 1, *s = 0;
  } else if (r == 90) {
    *c = 0, *s = 1;
  } else if (r == 180) {
    *c = -1, *s = 0;
  } else if (r == 270) {
    *c = 0, *s = -1;
  } else {
    const double a = r * (M_PI / 180.0);
    *c = std::cos(a), *s = std::sin(a);
  }
}

// Integer pixel indices X with lo < c0 + b * X < hi, widened by one on each side (samples just
// outside read the transparent border, so being generous costs a little time and no accuracy).
bool SolveSpan(double c0, double b, double lo, double hi, double* xmin, double* xmax) {
  if (std::fabs(b) < 1e-12) {
    if (c0 > lo - 1e-6 && c0 < hi + 1e-6) {
      *xmin = -std::numeric_limits<double>::infinity();
      *xmax = std::numeric_limits<double>::infinity();
      return true;
    }
    return false;
  }
  const double t0 = (lo - c0) / b, t1 = (hi - c0) / b;
  *xmin = std::min(t0, t1);
  *xmax = std::max(t0, t1);
  return true;
}

// The inverse mapping of a placement onto a reduction with factors (fx, fy), displaced by
// (shift_x, shift_y) reduced pixels. False when it is not finite.
bool MakeMapping(const Placement& pl, int32_t fx, int32_t fy, double shift_x, double shift_y,
                 Mapping* out) {
  double c, s;
  CosSin(pl.rotation_deg, &c, &s);
  const double kx = 1.0 / (pl.scale_x * fx), ky = 1.0 / (pl.scale_y * fy);
  const double ox = 0.5 - pl.dst_x, oy = 0.5 - pl.dst_y;
  Mapping m;
  m.bx = c * kx;
  m.cx = -s * kx;
  m.by = s * ky;
  m.cy = c * ky;
  m.ax = pl.src_x / fx + 1.0 + (c * ox - s * oy) * kx - 0.5 + shift_x;
  m.ay = pl.src_y / fy + 1.0 + (s * ox + c * oy) * ky - 0.5 + shift_y;
  for (double v : {m.ax, m.bx, m.cx, m.ay, m.by, m.cy})
    if (!std::isfinite(v)) return false;
  *out = m;
  return true;
}

// Whether a mapping takes destination pixels one to one onto reduced pixels (upright, unit
// step): the rotation is exactly a whole turn and the scale exactly the inverse factor.
bool OneToOne(const Mapping& m) {
  return m.bx == 1.0 && m.cy == 1.0 && m.cx == 0.0 && m.by == 0.0;
}

// What the 2 x 2 footprint of a bilinear sample (two pixels at p, two at q) holds. All zero:
// the sample leaves the destination as it is (d * 1 + 0 + 0.5, truncated, is d), so the kernels
// skip it; most of a turned text's bounding box is the transparent space around the glyphs.
// Four equal pixels: the sample is that pixel whatever the weights, which both kernels take as
// it is (the inside of a glyph's fill or stroke, most of what is not transparent).
enum class Footing { kClear, kUniform, kMixed };

inline Footing FootingOf(const uint8_t* p, const uint8_t* q) {
  uint64_t a, b;
  std::memcpy(&a, p, 8);
  std::memcpy(&b, q, 8);
  if ((a | b) == 0) return Footing::kClear;
  if (a == b && static_cast<uint32_t>(a) == static_cast<uint32_t>(a >> 32))
    return Footing::kUniform;
  return Footing::kMixed;
}

}  // namespace

// The 2x2 source footprint of one sample at (u, v), in the padded reduction of wp x hp pixels:
// its top-left pixel and the bilinear fractions. Shared by both row kernels so that they read
// exactly the same pixels with the same weights.
struct Footprint {
  const uint8_t* p;
  float fu, fv;
};

inline Footprint FootprintAt(const uint8_t* base, int32_t wp, int32_t hp, float u, float v) {
  u = std::min(std::max(u, -1.0f), static_cast<float>(wp));
  v = std::min(std::max(v, -1.0f), static_cast<float>(hp));
  // Truncation instead of floor is fine: whatever it gets wrong lies below zero, where the
  // clamp to the border and the clamped weight make the sample read transparent anyway.
  const int32_t ix = std::min(std::max(static_cast<int32_t>(u), 0), wp - 2);
  const int32_t iy = std::min(std::max(static_cast<int32_t>(v), 0), hp - 2);
  Footprint f;
  f.fu = std::min(std::max(u - static_cast<float>(ix), 0.0f), 1.0f);
  f.fv = std::min(std::max(v - static_cast<float>(iy), 0.0f), 1.0f);
  f.p = base + (static_cast<size_t>(iy) * static_cast<size_t>(wp) + static_cast<size_t>(ix)) * 4;
  return f;
}

void BlendRowScalar(const uint8_t* base, int32_t wp, int32_t hp, float u0, float du, float v0,
                    float dv, uint8_t* d, int32_t n, float opacity) {
  const float k255 = opacity / 255.0f;
  const size_t stride = static_cast<size_t>(wp) * 4;
  for (int32_t i = 0; i < n; ++i) {
    const Footprint f =
        FootprintAt(base, wp, hp, u0 + du * static_cast<float>(i), v0 + dv * static_cast<float>(i));
    const uint8_t* p = f.p;
    const uint8_t* q = f.p + stride;
    const float fu = f.fu, fv = f.fv;
    const Footing footing = FootingOf(p, q);
    if (footing == Footing::kClear) {
      d += 4;
      continue;
    }
    float s[4];
    if (footing == Footing::kUniform) {
      for (int c = 0; c < 4; ++c) s[c] = p[c];
    } else {
      const float w00 = (1 - fu) * (1 - fv), w01 = fu * (1 - fv), w10 = (1 - fu) * fv,
                  w11 = fu * fv;
      for (int c = 0; c < 4; ++c) s[c] = w00 * p[c] + w01 * p[4 + c] + w10 * q[c] + w11 * q[4 + c];
    }
    // Colour and alpha follow the same rule: out = dst * (1 - a * op) + src * op, the source
    // being premultiplied (its alpha channel is a itself).
    const float keep = 1.0f - s[3] * k255;
    for (int c = 0; c < 4; ++c) {
      const float o = static_cast<float>(d[c]) * keep + s[c] * opacity + 0.5f;
      d[c] = static_cast<uint8_t>(std::min(o, 255.0f));
    }
    d += 4;
  }
}

#if defined(__SSE2__)
// The same arithmetic as BlendRowScalar, in the same order, four channels at a time: the
// results are bit-identical (there is no fused multiply-add on the baseline instruction set).
void BlendRowSse2(const uint8_t* base, int32_t wp, int32_t hp, float u0, float du, float v0,
                  float dv, uint8_t* d, int32_t n, float opacity) {
  const float k255 = opacity / 255.0f;
  const size_t stride = static_cast<size_t>(wp) * 4;
  const __m128i zero = _mm_setzero_si128();
  const __m128 one = _mm_set1_ps(1.0f), half = _mm_set1_ps(0.5f), top = _mm_set1_ps(255.0f);
  const __m128 op = _mm_set1_ps(opacity), k = _mm_set1_ps(k255);
  // Whether an opaque uniform sample is a plain copy (see below); checked, not assumed.
  const bool opaque_copy = opacity == 1.0f && 1.0f - 255.0f * k255 == 0.0f;
  auto load = [zero](const uint8_t* p) {
    int32_t v;
    std::memcpy(&v, p, 4);
    __m128i x = _mm_cvtsi32_si128(v);
    x = _mm_unpacklo_epi16(_mm_unpacklo_epi8(x, zero), zero);
    return _mm_cvtepi32_ps(x);
  };
  for (int32_t i = 0; i < n; ++i) {
    const Footprint f =
        FootprintAt(base, wp, hp, u0 + du * static_cast<float>(i), v0 + dv * static_cast<float>(i));
    const uint8_t* p = f.p;
    const uint8_t* q = f.p + stride;
    const float fu = f.fu, fv = f.fv;
    const Footing footing = FootingOf(p, q);
    if (footing == Footing::kClear) {
      d += 4;
      continue;
    }
    __m128 s;
    if (footing == Footing::kUniform) {
      if (opaque_copy && p[3] == 255) {
        // keep = 1 - 255 * (1 / 255) is exactly 0 in single precision, so the formula gives
        // p + 0.5 truncated: the pixel itself.
        std::memcpy(d, p, 4);
        d += 4;
        continue;
      }
      s = load(p);
    } else {
      const __m128 w00 = _mm_set1_ps((1 - fu) * (1 - fv)), w01 = _mm_set1_ps(fu * (1 - fv)),
                   w10 = _mm_set1_ps((1 - fu) * fv), w11 = _mm_set1_ps(fu * fv);
      s = _mm_mul_ps(w00, load(p));
      s = _mm_add_ps(s, _mm_mul_ps(w01, load(p + 4)));
      s = _mm_add_ps(s, _mm_mul_ps(w10, load(q)));
      s = _mm_add_ps(s, _mm_mul_ps(w11, load(q + 4)));
    }
    const __m128 a = _mm_shuffle_ps(s, s, _MM_SHUFFLE(3, 3, 3, 3));
    const __m128 keep = _mm_sub_ps(one, _mm_mul_ps(a, k));
    __m128 o = _mm_add_ps(_mm_add_ps(_mm_mul_ps(load(d), keep), _mm_mul_ps(s, op)), half);
    o = _mm_min_ps(o, top);
    __m128i oi = _mm_cvttps_epi32(o);
    oi = _mm_packus_epi16(_mm_packs_epi32(oi, zero), zero);
    const int32_t packed = _mm_cvtsi128_si32(oi);
    std::memcpy(d, &packed, 4);
    d += 4;
  }
}
#endif

// Whole-pixel blend, opacity 1: d = s + d (255 - a) / 255 rounded, saturated. The resampling
// path computes the same in single precision, and since d (255 - a) / 255 is never within its
// rounding error of a half, both give the same bytes.
void BlendExactRowScalar(const uint8_t* s, uint8_t* d, int32_t n) {
  for (int32_t i = 0; i < n; ++i, s += 4, d += 4) {
    const uint32_t inv = 255u - s[3];
    for (int c = 0; c < 4; ++c) {
      uint32_t t = d[c] * inv + 128u;
      t = (t + (t >> 8)) >> 8;
      d[c] = static_cast<uint8_t>(std::min<uint32_t>(s[c] + t, 255u));
    }
  }
}

#if defined(__SSE2__)
// Four pixels at a time; fully transparent groups are skipped and fully opaque ones copied,
// which is most of a text image.
void BlendExactRowSse2(const uint8_t* s, uint8_t* d, int32_t n) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i amask = _mm_set1_epi32(static_cast<int32_t>(0xff000000u));
  const __m128i c255 = _mm_set1_epi16(255), c128 = _mm_set1_epi16(128);
  int32_t i = 0;
  for (; i + 4 <= n; i += 4, s += 16, d += 16) {
    const __m128i sp = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
    if (_mm_movemask_epi8(_mm_cmpeq_epi8(sp, zero)) == 0xffff) continue;
    const __m128i alpha = _mm_and_si128(sp, amask);
    if (_mm_movemask_epi8(_mm_cmpeq_epi32(alpha, amask)) == 0xffff) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d), sp);
      continue;
    }
    const __m128i dp = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d));
    __m128i half[2];
    for (int h = 0; h < 2; ++h) {
      const __m128i s16 = h ? _mm_unpackhi_epi8(sp, zero) : _mm_unpacklo_epi8(sp, zero);
      const __m128i d16 = h ? _mm_unpackhi_epi8(dp, zero) : _mm_unpacklo_epi8(dp, zero);
      __m128i a = _mm_shufflelo_epi16(s16, _MM_SHUFFLE(3, 3, 3, 3));
      a = _mm_shufflehi_epi16(a, _MM_SHUFFLE(3, 3, 3, 3));
      __m128i t = _mm_add_epi16(_mm_mullo_epi16(d16, _mm_sub_epi16(c255, a)), c128);
      t = _mm_srli_epi16(_mm_add_epi16(t, _mm_srli_epi16(t, 8)), 8);
      half[h] = t;
    }
    const __m128i out = _mm_adds_epu8(sp, _mm_packus_epi16(half[0], half[1]));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), out);
  }
  BlendExactRowScalar(s, d, n - i);
}
#endif

// Whole-pixel blend at another opacity: the resampling path's arithmetic with the sample
// falling exactly on one pixel.
void BlendExactRowOpacity(const uint8_t* s, uint8_t* d, int32_t n, float opacity) {
  const float k255 = opacity / 255.0f;
  for (int32_t i = 0; i < n; ++i, s += 4, d += 4) {
    if ((s[0] | s[1] | s[2] | s[3]) == 0) continue;
    const float keep = 1.0f - static_cast<float>(s[3]) * k255;
    for (int c = 0; c < 4; ++c) {
      const float o = static_cast<float>(d[c]) * keep + static_cast<float>(s[c]) * opacity + 0.5f;
      d[c] = static_cast<uint8_t>(std::min(o, 255.0f));
    }
  }
}

namespace {

// Chosen once: SSE2 is part of every x86-64, so no run-time check is needed.
#if defined(__SSE2__)
constexpr BlendRowFn kBlendRow = &BlendRowSse2;
constexpr BlendExactRowFn kBlendExactRow = &BlendExactRowSse2;
#else
constexpr BlendRowFn kBlendRow = &BlendRowScalar;
constexpr BlendExactRowFn kBlendExactRow = &BlendExactRowScalar;
#endif

// The one-to-one path: destination pixel (X, Y) takes bordered reduced pixel (u0 + X, v0 + Y).
void CompositeExact(const IR_Prefiltered& src, int64_t u0, int64_t v0, uint8_t* dst,
                    ptrdiff_t dst_row_bytes, int32_t dst_width, int32_t dst_height, float opacity) {
  const auto* base = static_cast<const uint8_t*>(src.data);
  const size_t stride = static_cast<size_t>(src.width + 2) * 4;
  for (int32_t i = 0; i < src.height; ++i) {
    const int64_t y = int64_t{i} + 1 - v0;
    if (y < 0 || y >= dst_height) continue;
    int64_t a = 0, b = src.width;
    if (src.row_spans) {
      a = std::max<int64_t>(src.row_spans[2 * i], 0);
      b = std::min<int64_t>(src.row_spans[2 * i + 1], src.width);
    }
    a = std::max<int64_t>(a, u0 - 1);                       // x >= 0
    b = std::min<int64_t>(b, int64_t{dst_width} + u0 - 1);  // x < dst_width
    if (a >= b) continue;
    const uint8_t* s = base + static_cast<size_t>(i + 1) * stride + static_cast<size_t>(a + 1) * 4;
    uint8_t* d =
        dst + static_cast<ptrdiff_t>(y) * dst_row_bytes + static_cast<ptrdiff_t>(a + 1 - u0) * 4;
    const int32_t n = static_cast<int32_t>(b - a);
    if (opacity == 1.0f)
      kBlendExactRow(s, d, n);
    else
      BlendExactRowOpacity(s, d, n, opacity);
  }
}

// Resamples rows [y_begin, y_end) of the destination; destination pixel (X, Y) is written at
// out + (Y - y_origin) * out_row_bytes + (X - x_origin) * 4, so that a caller can draw into a
// buffer covering only part of the destination.
void BlendRows(const IR_Prefiltered& src, const Mapping& m, const std::vector<Span>& spans,
               int32_t y_begin, int32_t y_end, uint8_t* out, ptrdiff_t out_row_bytes,
               int32_t x_origin, int32_t y_origin, float opacity) {
  const auto* base = static_cast<const uint8_t*>(src.data);
  const int32_t wp = src.width + 2, hp = src.height + 2;
  for (int32_t y = y_begin; y < y_end; ++y) {
    const Span sp = spans[static_cast<size_t>(y)];
    if (sp.x1 <= sp.x0) continue;
    const double u0 = m.ax + m.bx * sp.x0 + m.cx * y;
    const double v0 = m.ay + m.by * sp.x0 + m.cy * y;
    uint8_t* d = out + static_cast<ptrdiff_t>(y - y_origin) * out_row_bytes +
                 static_cast<ptrdiff_t>(sp.x0 - x_origin) * 4;
    kBlendRow(base, wp, hp, static_cast<float>(u0), static_cast<float>(m.bx),
              static_cast<float>(v0), static_cast<float>(m.by), d, sp.x1 - sp.x0, opacity);
  }
}

}  // namespace

int64_t DestinationSpans(const IR_Prefiltered& src, const Mapping& m, int32_t dst_width,
                         int32_t dst_height, std::vector<Span>* spans) {
  const double uhi = src.width + 1.0, vhi = src.height + 1.0;
  spans->assign(static_cast<size_t>(dst_height), Span{0, 0});
  int64_t total = 0;
  for (int32_t y = 0; y < dst_height; ++y) {
    double a0, a1, b0, b1;
    if (!SolveSpan(m.ax + m.cx * y, m.bx, 0.0, uhi, &a0, &a1)) continue;
    if (!SolveSpan(m.ay + m.cy * y, m.by, 0.0, vhi, &b0, &b1)) continue;
    const double lo = std::max(a0, b0), hi = std::min(a1, b1);
    if (!(lo <= hi)) continue;
    const double x0 = std::max(std::ceil(lo) - 1.0, 0.0);
    const double x1 = std::min(std::floor(hi) + 2.0, static_cast<double>(dst_width));
    if (x0 >= x1) continue;
    (*spans)[static_cast<size_t>(y)] = Span{static_cast<int32_t>(x0), static_cast<int32_t>(x1)};
    total += static_cast<int64_t>(x1 - x0);
  }
  return total;
}

namespace {

// BlendRows over every row, in two bands of about equal pixel count on two threads when the
// work is large.
void Resample(const IR_Prefiltered& src, const Mapping& m, const std::vector<Span>& spans,
              int64_t total, uint8_t* out, ptrdiff_t out_row_bytes, int32_t x_origin,
              int32_t y_origin, float opacity) {
  const auto rows = static_cast<int32_t>(spans.size());
  if (total < kParallelResample) {
    BlendRows(src, m, spans, 0, rows, out, out_row_bytes, x_origin, y_origin, opacity);
    return;
  }
  int32_t mid = 0;
  for (int64_t acc = 0; mid < rows && acc * 2 < total; ++mid) {
    const Span& sp = spans[static_cast<size_t>(mid)];
    acc += sp.x1 - sp.x0;
  }
  std::thread other([&] {
    BlendRows(src, m, spans, mid, rows, out, out_row_bytes, x_origin, y_origin, opacity);
  });
  BlendRows(src, m, spans, 0, mid, out, out_row_bytes, x_origin, y_origin, opacity);
  other.join();
}

}  // namespace

void ReduceRows(const uint8_t* src, ptrdiff_t src_row_bytes, int32_t w, int32_t h, int32_t fx,
                int32_t fy, uint8_t* out, int32_t row_begin, int32_t row_end) {
  const int32_t rw = ReducedExtent(w, fx), rh = ReducedExtent(h, fy);
  const size_t out_stride = static_cast<size_t>(rw + 2) * 4;
  std::vector<uint32_t> acc(static_cast<size_t>(rw) * fx * 4, 0u);
  for (int32_t r = row_begin; r < row_end; ++r) {
    uint8_t* row = out + static_cast<size_t>(r) * out_stride;
    if (r == 0 || r == rh + 1) {
      std::fill(row, row + out_stride, uint8_t{0});
      continue;
    }
    std::fill(row, row + 4, uint8_t{0});
    std::fill(row + out_stride - 4, row + out_stride, uint8_t{0});
    ReduceOneRow(src, src_row_bytes, w, h, fx, fy, r - 1, row, acc.data());
  }
}

void Reduce(const uint8_t* src, ptrdiff_t src_row_bytes, int32_t w, int32_t h, int32_t fx,
            int32_t fy, uint8_t* out) {
  const int32_t rows = ReducedExtent(h, fy) + 2;
  if (static_cast<int64_t>(w) * h < kParallelPixels * 4 || rows < 4) {
    ReduceRows(src, src_row_bytes, w, h, fx, fy, out, 0, rows);
    return;
  }
  const int32_t mid = rows / 2;
  std::thread other([&] { ReduceRows(src, src_row_bytes, w, h, fx, fy, out, mid, rows); });
  ReduceRows(src, src_row_bytes, w, h, fx, fy, out, 0, mid);
  other.join();
}

void RowExtent(const uint8_t* row, int32_t n, int32_t* first, int32_t* end) {
  auto zero_at = [row](int32_t i) {
    uint32_t v;
    std::memcpy(&v, row + static_cast<size_t>(i) * 4, 4);
    return v == 0;
  };
  int32_t a = 0, b = n;
#if defined(__SSE2__)
  // Four pixels at a time: most of a text row is transparent, and a row between two lines is
  // transparent throughout.
  const __m128i zero = _mm_setzero_si128();
  auto empty4 = [row, zero](int32_t i) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + size_t(i) * 4));
    return _mm_movemask_epi8(_mm_cmpeq_epi32(v, zero)) == 0xffff;
  };
  while (a + 4 <= b && empty4(a)) a += 4;
#endif
  while (a < b && zero_at(a)) ++a;
#if defined(__SSE2__)
  while (b - 4 >= a && empty4(b - 4)) b -= 4;
#endif
  while (b > a && zero_at(b - 1)) --b;
  *first = a;
  *end = b;
}

void ComputeSpans(const IR_Prefiltered& src, int32_t* spans) {
  const auto* base = static_cast<const uint8_t*>(src.data);
  const size_t stride = static_cast<size_t>(src.width + 2) * 4;
  for (int32_t i = 0; i < src.height; ++i)
    RowExtent(base + static_cast<size_t>(i + 1) * stride + 4, src.width, &spans[2 * i],
              &spans[2 * i + 1]);
}

bool AlignedShift(const Placement& pl, int32_t fx, int32_t fy, int32_t steps, int32_t* shift_x,
                  int32_t* shift_y) {
  Mapping m;
  if (!MakeMapping(pl, fx, fy, 0.0, 0.0, &m) || !OneToOne(m)) return false;
  // The displacement that brings the sample offset to a whole pixel, rounded to a step.
  auto step_of = [steps](double a) {
    const double f = std::ceil(a) - a;  // in [0, 1)
    return static_cast<int32_t>(std::lround(f * steps) % steps);
  };
  *shift_x = step_of(m.ax);
  *shift_y = step_of(m.ay);
  return true;
}

bool PlanPlacement(const IR_Prefiltered& src, const Placement& pl, bool allow_exact, Mapping* m,
                   bool* exact, int64_t* u0, int64_t* v0) {
  const bool shifted = src.shift_steps > 0;
  const double step = shifted ? 1.0 / src.shift_steps : 0.0;
  if (!MakeMapping(pl, src.factor_x, src.factor_y, shifted ? src.shift_x * step : 0.0,
                   shifted ? src.shift_y * step : 0.0, m))
    return false;
  *exact = false;
  if (allow_exact && OneToOne(*m)) {
    // A displaced image was drawn at the nearest step to whole pixels: the rest is below the
    // precision it was drawn with.
    const double tol = shifted ? 0.5 * step + 1e-9 : 1e-9;
    const double ru = std::round(m->ax), rv = std::round(m->ay);
    if (std::fabs(m->ax - ru) <= tol && std::fabs(m->ay - rv) <= tol && std::fabs(ru) < 1e9 &&
        std::fabs(rv) < 1e9) {
      *exact = true;
      *u0 = static_cast<int64_t>(ru);
      *v0 = static_cast<int64_t>(rv);
    }
  }
  return true;
}

bool PlacementIsFinite(const Placement& pl) {
  const double vals[] = {pl.src_x,   pl.src_y,   pl.dst_x,        pl.dst_y,
                         pl.scale_x, pl.scale_y, pl.rotation_deg, pl.opacity};
  for (double v : vals)
    if (!std::isfinite(v)) return false;
  return true;
}

bool Composite(const IR_Prefiltered& src, const Placement& pl, uint8_t* dst,
               ptrdiff_t dst_row_bytes, int32_t dst_width, int32_t dst_height, bool allow_exact) {
  if (!PlacementIsFinite(pl)) return false;
  if (pl.scale_x == 0 || pl.scale_y == 0 || !(pl.opacity > 0)) return true;
  if (src.width <= 0 || src.height <= 0 || dst_width <= 0 || dst_height <= 0) return true;
  const float opacity = std::min(pl.opacity, 1.0f);
  Mapping m;
  bool exact;
  int64_t u0 = 0, v0 = 0;
  if (!PlanPlacement(src, pl, allow_exact, &m, &exact, &u0, &v0)) return false;
  if (exact) {
    CompositeExact(src, u0, v0, dst, dst_row_bytes, dst_width, dst_height, opacity);
    return true;
  }
  std::vector<Span> spans;
  const int64_t total = DestinationSpans(src, m, dst_width, dst_height, &spans);
  if (total > 0) Resample(src, m, spans, total, dst, dst_row_bytes, 0, 0, opacity);
  return true;
}

int32_t PlaceBounds(const IR_Prefiltered& src, const Placement& pl, int32_t dst_width,
                    int32_t dst_height, int32_t rect[4]) {
  if (!PlacementIsFinite(pl)) return -1;
  if (pl.scale_x == 0 || pl.scale_y == 0) return 0;
  if (src.width <= 0 || src.height <= 0 || dst_width <= 0 || dst_height <= 0) return 0;
  Mapping m;
  bool exact;
  int64_t u0, v0;
  if (!PlanPlacement(src, pl, true, &m, &exact, &u0, &v0)) return -1;
  if (exact) return 0;
  std::vector<Span> spans;
  if (DestinationSpans(src, m, dst_width, dst_height, &spans) == 0) return 0;
  int32_t x0 = dst_width, x1 = 0, y0 = -1, y1 = 0;
  for (int32_t y = 0; y < dst_height; ++y) {
    const Span& sp = spans[static_cast<size_t>(y)];
    if (sp.x1 <= sp.x0) continue;
    if (y0 < 0) y0 = y;
    y1 = y + 1;
    x0 = std::min(x0, sp.x0);
    x1 = std::max(x1, sp.x1);
  }
  rect[0] = x0;
  rect[1] = y0;
  rect[2] = x1;
  rect[3] = y1;
  return 1;
}

bool Place(const IR_Prefiltered& src, const Placement& pl, int32_t dst_width, int32_t dst_height,
           const int32_t rect[4], uint8_t* layer) {
  Mapping m;
  bool exact;
  int64_t u0, v0;
  if (!PlanPlacement(src, pl, true, &m, &exact, &u0, &v0) || exact) return false;
  std::vector<Span> spans;
  DestinationSpans(src, m, dst_width, dst_height, &spans);
  // Rows and columns outside the rectangle are left out; inside it the spans are the ones the
  // direct composite resamples, so the layer holds exactly what it would have blended.
  int64_t kept = 0;
  for (int32_t y = 0; y < dst_height; ++y) {
    Span& sp = spans[static_cast<size_t>(y)];
    if (y < rect[1] || y >= rect[3]) {
      sp = Span{0, 0};
      continue;
    }
    sp.x0 = std::max(sp.x0, rect[0]);
    sp.x1 = std::min(sp.x1, rect[2]);
    if (sp.x1 > sp.x0) kept += sp.x1 - sp.x0;
  }
  const ptrdiff_t row_bytes = static_cast<ptrdiff_t>(rect[2] - rect[0] + 2) * 4;
  // The layer's interior starts one bordered pixel in.
  if (kept > 0)
    Resample(src, m, spans, kept, layer + row_bytes + 4, row_bytes, rect[0], rect[1], 1.0f);
  return true;
}

void CompositeLayer(const IR_Prefiltered& layer, int32_t x, int32_t y, uint8_t* dst,
                    ptrdiff_t dst_row_bytes, int32_t dst_width, int32_t dst_height, float opacity) {
  CompositeExact(layer, int64_t{1} - x, int64_t{1} - y, dst, dst_row_bytes, dst_width, dst_height,
                 opacity);
}

}  // namespace ir

namespace {

bool SupportedFormat(int32_t f) {
  return f == kIRFormatBGRA8 || f == kIRFormatVUYA8;
}

bool RowBytesFit(int32_t row_bytes, int32_t width) {
  return std::llabs(static_cast<long long>(row_bytes)) >= static_cast<long long>(width) * 4;
}

}  // namespace

void IR_PrefilterFactors(IR_Point scale, int32_t* factor_x, int32_t* factor_y) {
  if (factor_x) *factor_x = ir::FactorFor(scale.x);
  if (factor_y) *factor_y = ir::FactorFor(scale.y);
}

uint64_t IR_PrefilterSize(int32_t src_width, int32_t src_height, int32_t factor_x,
                          int32_t factor_y) {
  if (src_width <= 0 || src_height <= 0 || factor_x <= 0 || factor_y <= 0) return 0;
  const uint64_t w = static_cast<uint64_t>(ir::ReducedExtent(src_width, factor_x)) + 2;
  const uint64_t h = static_cast<uint64_t>(ir::ReducedExtent(src_height, factor_y)) + 2;
  return w * h * 4;
}

int32_t IR_Prefilter(const void* src, int32_t src_row_bytes, int32_t src_width, int32_t src_height,
                     int32_t factor_x, int32_t factor_y, void* out, uint64_t out_size,
                     IR_Prefiltered* result) {
  const uint64_t need = IR_PrefilterSize(src_width, src_height, factor_x, factor_y);
  if (!src || !out || !result || need == 0 || out_size < need ||
      !RowBytesFit(src_row_bytes, src_width))
    return -1;
  try {
    ir::Reduce(static_cast<const uint8_t*>(src), src_row_bytes, src_width, src_height, factor_x,
               factor_y, static_cast<uint8_t*>(out));
  } catch (...) {
    return -1;
  }
  result->data = out;
  result->width = ir::ReducedExtent(src_width, factor_x);
  result->height = ir::ReducedExtent(src_height, factor_y);
  result->factor_x = factor_x;
  result->factor_y = factor_y;
  result->src_width = src_width;
  result->src_height = src_height;
  result->row_spans = nullptr;
  result->shift_steps = result->shift_x = result->shift_y = 0;
  return 0;
}

int32_t IR_PrefilterSpans(const IR_Prefiltered* src, int32_t* spans) {
  if (!src || !spans || !src->data || src->width <= 0 || src->height <= 0) return -1;
  ir::ComputeSpans(*src, spans);
  return 0;
}

int32_t IR_AlignedShift(int32_t src_width, int32_t src_height, int32_t factor_x, int32_t factor_y,
                        int32_t dst_width, int32_t dst_height, IR_Point dst_point,
                        IR_Point src_point, IR_Point scale, double rotation_deg, int32_t steps,
                        int32_t* shift_x, int32_t* shift_y) {
  if (src_width <= 0 || src_height <= 0 || factor_x <= 0 || factor_y <= 0 || dst_width <= 0 ||
      dst_height <= 0 || steps <= 0 || !shift_x || !shift_y || !std::isfinite(rotation_deg))
    return 0;
  for (float v : {dst_point.x, dst_point.y, src_point.x, src_point.y, scale.x, scale.y})
    if (!std::isfinite(v)) return 0;
  ir::Placement pl;
  pl.src_x = static_cast<double>(src_point.x) * src_width;
  pl.src_y = static_cast<double>(src_point.y) * src_height;
  pl.dst_x = static_cast<double>(dst_point.x) * dst_width;
  pl.dst_y = static_cast<double>(dst_point.y) * dst_height;
  pl.scale_x = scale.x;
  pl.scale_y = scale.y;
  pl.rotation_deg = rotation_deg;
  pl.opacity = 1.0f;
  return ir::AlignedShift(pl, factor_x, factor_y, steps, shift_x, shift_y) ? 1 : 0;
}

namespace {

// Checks a prefiltered source; false when it cannot be drawn from.
bool ValidPrefiltered(const IR_Prefiltered* src) {
  if (!src->data || src->factor_x <= 0 || src->factor_y <= 0 ||
      ir::ReducedExtent(src->src_width, src->factor_x) != src->width ||
      ir::ReducedExtent(src->src_height, src->factor_y) != src->height)
    return false;
  return !(src->shift_steps < 0 ||
           (src->shift_steps > 0 && (src->shift_x < 0 || src->shift_x >= src->shift_steps ||
                                     src->shift_y < 0 || src->shift_y >= src->shift_steps)));
}

// The placement of IR_MotionPrefiltered's geometry arguments; false when one is not finite.
bool PlacementOf(const IR_Prefiltered* src, int32_t dst_width, int32_t dst_height,
                 IR_Point dst_point, IR_Point src_point, IR_Point scale, double rotation_deg,
                 float opacity, ir::Placement* pl) {
  for (float v : {dst_point.x, dst_point.y, src_point.x, src_point.y, scale.x, scale.y, opacity})
    if (!std::isfinite(v)) return false;
  if (!std::isfinite(rotation_deg)) return false;
  pl->src_x = static_cast<double>(src_point.x) * src->src_width;
  pl->src_y = static_cast<double>(src_point.y) * src->src_height;
  pl->dst_x = static_cast<double>(dst_point.x) * dst_width;
  pl->dst_y = static_cast<double>(dst_point.y) * dst_height;
  pl->scale_x = scale.x;
  pl->scale_y = scale.y;
  pl->rotation_deg = rotation_deg;
  pl->opacity = opacity;
  return true;
}

}  // namespace

int32_t IR_MotionPrefiltered(const IR_Prefiltered* src, int32_t format, void* dst,
                             int32_t dst_row_bytes, int32_t dst_width, int32_t dst_height,
                             IR_Point dst_point, IR_Point src_point, IR_Point scale,
                             double rotation_deg, float opacity) {
  if (!src || !SupportedFormat(format)) return -1;
  if (dst_width <= 0 || dst_height <= 0) return 0;
  if (!dst || !RowBytesFit(dst_row_bytes, dst_width)) return -1;
  if (src->width <= 0 || src->height <= 0) return 0;
  if (!ValidPrefiltered(src)) return -1;
  ir::Placement pl;
  if (!PlacementOf(src, dst_width, dst_height, dst_point, src_point, scale, rotation_deg, opacity,
                   &pl))
    return -1;
  try {
    return ir::Composite(*src, pl, static_cast<uint8_t*>(dst), dst_row_bytes, dst_width, dst_height)
               ? 0
               : -1;
  } catch (...) {
    return -1;
  }
}

int32_t IR_PlaceBounds(const IR_Prefiltered* src, int32_t dst_width, int32_t dst_height,
                       IR_Point dst_point, IR_Point src_point, IR_Point scale, double rotation_deg,
                       int32_t rect[4]) {
  if (!src || !rect) return -1;
  if (dst_width <= 0 || dst_height <= 0 || src->width <= 0 || src->height <= 0) return 0;
  if (!ValidPrefiltered(src)) return -1;
  ir::Placement pl;
  if (!PlacementOf(src, dst_width, dst_height, dst_point, src_point, scale, rotation_deg, 1.0f,
                   &pl))
    return -1;
  try {
    return ir::PlaceBounds(*src, pl, dst_width, dst_height, rect);
  } catch (...) {
    return -1;
  }
}

int32_t IR_PlacePrefiltered(const IR_Prefiltered* src, int32_t dst_width, int32_t dst_height,
                            IR_Point dst_point, IR_Point src_point, IR_Point scale,
                            double rotation_deg, const int32_t rect[4], void* layer,
                            uint64_t layer_size) {
  if (!src || !rect || !layer) return -1;
  int32_t want[4];
  if (IR_PlaceBounds(src, dst_width, dst_height, dst_point, src_point, scale, rotation_deg, want) !=
          1 ||
      std::memcmp(want, rect, sizeof want) != 0)
    return -1;
  const uint64_t need = (static_cast<uint64_t>(rect[2] - rect[0]) + 2) *
                        (static_cast<uint64_t>(rect[3] - rect[1]) + 2) * 4;
  if (layer_size < need) return -1;
  ir::Placement pl;
  PlacementOf(src, dst_width, dst_height, dst_point, src_point, scale, rotation_deg, 1.0f, &pl);
  try {
    return ir::Place(*src, pl, dst_width, dst_height, rect, static_cast<uint8_t*>(layer)) ? 0 : -1;
  } catch (...) {
    return -1;
  }
}

int32_t IR_CompositeLayer(const IR_Prefiltered* layer, int32_t format, void* dst,
                          int32_t dst_row_bytes, int32_t dst_width, int32_t dst_height, int32_t x,
                          int32_t y, float opacity) {
  if (!layer || !SupportedFormat(format) || !std::isfinite(opacity)) return -1;
  if (dst_width <= 0 || dst_height <= 0) return 0;
  if (!dst || !RowBytesFit(dst_row_bytes, dst_width)) return -1;
  if (layer->width <= 0 || layer->height <= 0) return 0;
  if (layer->factor_x != 1 || layer->factor_y != 1 || layer->shift_steps != 0 ||
      !ValidPrefiltered(layer))
    return -1;
  if (!(opacity > 0)) return 0;
  ir::CompositeLayer(*layer, x, y, static_cast<uint8_t*>(dst), dst_row_bytes, dst_width, dst_height,
                     std::min(opacity, 1.0f));
  return 0;
}

int32_t IR_Motion(const void* src, int32_t src_row_bytes, int32_t src_width, int32_t src_height,
                  int32_t src_format, int32_t /*src_flags*/, const int32_t* src_rect, void* dst,
                  int32_t dst_row_bytes, int32_t dst_width, int32_t dst_height, int32_t dst_format,
                  int32_t /*dst_flags*/, int32_t /*par_num*/, uint32_t /*par_den*/,
                  IR_Point dst_point, IR_Point src_point, IR_Point scale, double rotation_deg,
                  float opacity, bool blend, double /*shutter_angle*/, bool /*motion_blur*/,
                  int32_t /*motion_samples*/, int32_t /*quality*/, bool use_alpha) {
  try {
    if (!SupportedFormat(src_format) || dst_format != src_format) return -1;
    if (!blend || !use_alpha) return -1;
    if (dst_width <= 0 || dst_height <= 0) return 0;
    if (!dst || !RowBytesFit(dst_row_bytes, dst_width)) return -1;
    if (src_width <= 0 || src_height <= 0) return 0;
    if (!src || !RowBytesFit(src_row_bytes, src_width)) return -1;
    for (float v : {dst_point.x, dst_point.y, src_point.x, src_point.y, scale.x, scale.y, opacity})
      if (!std::isfinite(v)) return -1;
    if (!std::isfinite(rotation_deg)) return -1;

    ir::Placement pl;
    pl.src_x = static_cast<double>(src_point.x) * src_width;
    pl.src_y = static_cast<double>(src_point.y) * src_height;
    pl.dst_x = static_cast<double>(dst_point.x) * dst_width;
    pl.dst_y = static_cast<double>(dst_point.y) * dst_height;
    pl.scale_x = scale.x;
    pl.scale_y = scale.y;
    pl.rotation_deg = rotation_deg;
    pl.opacity = opacity;
    if (pl.scale_x == 0 || pl.scale_y == 0 || !(opacity > 0)) return 0;

    // The source rectangle crops the source; the placement stays in whole-source pixels.
    const auto* base = static_cast<const uint8_t*>(src);
    int32_t w = src_width, h = src_height;
    if (src_rect) {
      const int32_t l = std::clamp(src_rect[0], 0, src_width);
      const int32_t t = std::clamp(src_rect[1], 0, src_height);
      const int32_t r = std::clamp(src_rect[2], 0, src_width);
      const int32_t b = std::clamp(src_rect[3], 0, src_height);
      if (r <= l || b <= t) return 0;
      base += static_cast<ptrdiff_t>(t) * src_row_bytes + static_cast<ptrdiff_t>(l) * 4;
      w = r - l;
      h = b - t;
      pl.src_x -= l;
      pl.src_y -= t;
    }

    int32_t fx, fy;
    IR_PrefilterFactors(scale, &fx, &fy);
    const uint64_t bytes = IR_PrefilterSize(w, h, fx, fy);
    if (bytes == 0 || bytes > std::numeric_limits<size_t>::max()) return -1;
    vxcore::RecycledMemory reduced(static_cast<size_t>(bytes));
    ir::Reduce(base, src_row_bytes, w, h, fx, fy, static_cast<uint8_t*>(reduced.data()));
    IR_Prefiltered pf;
    pf.data = reduced.data();
    pf.width = ir::ReducedExtent(w, fx);
    pf.height = ir::ReducedExtent(h, fy);
    pf.factor_x = fx;
    pf.factor_y = fy;
    pf.src_width = w;
    pf.src_height = h;
    pf.row_spans = nullptr;
    pf.shift_steps = pf.shift_x = pf.shift_y = 0;
    return ir::Composite(pf, pl, static_cast<uint8_t*>(dst), dst_row_bytes, dst_width, dst_height)
               ? 0
               : -1;
  } catch (...) {
    // Out of memory, or no thread to be had: the second band is started before the first is
    // drawn, so the destination is as it was.
    return -1;
  }
}

bool IR_IsOriginBottomLeft(int32_t format) {
  return format == kIRFormatBGRA8;
}

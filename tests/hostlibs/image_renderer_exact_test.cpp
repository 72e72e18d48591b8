// The compositor's one-to-one path (whole-pixel blend over row spans) against the resampling
// path for the same placement, the aligned displacement, row spans, and the SIMD whole-pixel
// kernel against its scalar reference.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "image_renderer/motion.h"
#include "vetext/image_renderer.h"

namespace {

// A premultiplied source with opaque, partial and empty regions (text-like), reduced 4 x 4.
struct Reduced {
  int32_t W, H;
  std::vector<uint8_t> src, image;
  std::vector<int32_t> spans;
  IR_Prefiltered pf{};
  Reduced(int32_t w, int32_t h, uint32_t seed) : W(w), H(h), src(size_t(w) * h * 4, 0) {
    std::mt19937 rng(seed);
    for (int32_t y = 0; y < h; ++y)
      for (int32_t x = 0; x < w; ++x) {
        uint8_t* p = &src[(size_t(y) * w + x) * 4];
        const bool inside = x > w / 5 && x < w * 4 / 5 && y > h / 4 && y < h * 3 / 4;
        if (!inside || (x / 16 + y / 16) % 3 == 0) continue;  // transparent runs
        const uint8_t a = (x / 8) % 2 ? 255 : uint8_t(rng() % 256);
        p[3] = a;
        for (int c = 0; c < 3; ++c) p[c] = uint8_t(rng() % (a + 1));
      }
    image.resize(IR_PrefilterSize(w, h, 4, 4));
    EXPECT_EQ(IR_Prefilter(src.data(), 4 * w, w, h, 4, 4, image.data(), image.size(), &pf), 0);
    spans.resize(size_t(pf.height) * 2);
    EXPECT_EQ(IR_PrefilterSpans(&pf, spans.data()), 0);
    pf.row_spans = spans.data();
  }
};

std::vector<uint8_t> Background(int32_t w, int32_t h) {
  std::vector<uint8_t> d(size_t(w) * h * 4);
  for (size_t i = 0; i < d.size(); ++i) d[i] = uint8_t((i * 37) >> 3);
  return d;
}

ir::Placement PlaceAt(double dst_x, double dst_y, const IR_Prefiltered& pf, float opacity) {
  ir::Placement pl{};
  pl.src_x = pf.src_width / 2.0;
  pl.src_y = pf.src_height / 2.0;
  pl.dst_x = dst_x;
  pl.dst_y = dst_y;
  pl.scale_x = pl.scale_y = 0.25;
  pl.rotation_deg = 0;
  pl.opacity = opacity;
  return pl;
}

TEST(IRExactPath, SameBytesAsResamplingForWholePixelPlacements) {
  Reduced r(400, 160, 1);  // a 100 x 40 reduction
  for (float opacity : {1.0f, 0.6f}) {
    // Centred, near the edges (clipped on every side) and off the frame.
    for (auto [x, y] : {std::pair{120.0, 50.0}, {10.0, 5.0}, {230.0, 95.0}, {-80.0, 50.0}}) {
      std::vector<uint8_t> fast = Background(240, 100), slow = fast, before = fast;
      ASSERT_TRUE(
          ir::Composite(r.pf, PlaceAt(x, y, r.pf, opacity), fast.data(), 240 * 4, 240, 100, true));
      ASSERT_TRUE(
          ir::Composite(r.pf, PlaceAt(x, y, r.pf, opacity), slow.data(), 240 * 4, 240, 100, false));
      EXPECT_EQ(fast, slow) << x << "," << y << " opacity " << opacity;
      if (x > 0) {
        EXPECT_NE(fast, before);
      }
    }
  }
}

TEST(IRExactPath, BottomUpDestinationsToo) {
  Reduced r(200, 120, 2);
  std::vector<uint8_t> fast = Background(120, 60), slow = fast;
  const ptrdiff_t rb = -120 * 4;
  uint8_t* top_f = fast.data() + size_t(59) * 120 * 4;
  uint8_t* top_s = slow.data() + size_t(59) * 120 * 4;
  ASSERT_TRUE(ir::Composite(r.pf, PlaceAt(60, 30, r.pf, 1), top_f, rb, 120, 60, true));
  ASSERT_TRUE(ir::Composite(r.pf, PlaceAt(60, 30, r.pf, 1), top_s, rb, 120, 60, false));
  EXPECT_EQ(fast, slow);
}

TEST(IRExactPath, AlignedShiftPutsADisplacedImageOnWholePixels) {
  // A source point that falls between pixels: the shift says how far to displace the image.
  int32_t sx = -1, sy = -1;
  // 402 / 2 / 4 = 50.25 reduced pixels to the source point: a quarter pixel off.
  ASSERT_EQ(IR_AlignedShift(402, 160, 4, 4, 240, 100, IR_Point{0.5f, 0.5f}, IR_Point{0.5f, 0.5f},
                            IR_Point{0.25f, 0.25f}, 0.0, 16, &sx, &sy),
            1);
  EXPECT_EQ(sx, 12);  // displaced by 3/4: 50.25 + 0.75 is whole
  EXPECT_EQ(sy, 0);
  // Not one to one: turned, or scaled other than 1 / factor.
  EXPECT_EQ(IR_AlignedShift(402, 160, 4, 4, 240, 100, IR_Point{0.5f, 0.5f}, IR_Point{0.5f, 0.5f},
                            IR_Point{0.25f, 0.25f}, 30.0, 16, &sx, &sy),
            0);
  EXPECT_EQ(IR_AlignedShift(402, 160, 4, 4, 240, 100, IR_Point{0.5f, 0.5f}, IR_Point{0.5f, 0.5f},
                            IR_Point{0.24f, 0.25f}, 0.0, 16, &sx, &sy),
            0);
  EXPECT_EQ(IR_AlignedShift(402, 160, 4, 4, 240, 100, IR_Point{0.5f, 0.5f}, IR_Point{0.5f, 0.5f},
                            IR_Point{0.25f, 0.25f}, 0.0, 0, &sx, &sy),
            0);
}

TEST(IRExactPath, ADisplacedImageLandsWhereTheShiftSays) {
  // A single opaque reduced pixel, declared displaced by half a pixel, with a placement half a
  // pixel off: the one-to-one path puts it on exactly one destination pixel.
  const int32_t w = 8, h = 8;
  std::vector<uint8_t> image(size_t(w + 2) * (h + 2) * 4, 0);
  uint8_t* p = &image[(size_t(1 + 3) * (w + 2) + 1 + 3) * 4];
  p[0] = p[1] = p[2] = p[3] = 255;
  IR_Prefiltered pf{image.data(), w, h, 4, 4, 4 * w - 2, 4 * h, nullptr, 2, 1, 0};
  std::vector<uint8_t> dst(size_t(20) * 20 * 4, 0);
  // Source point at the centre: 15 / 4 = 3.75 reduced pixels; with the half-pixel shift the
  // sample offset is a whole pixel.
  ASSERT_EQ(
      IR_MotionPrefiltered(&pf, kIRFormatBGRA8, dst.data(), 20 * 4, 20, 20, IR_Point{0.5f, 0.5f},
                           IR_Point{0.5f, 0.5f}, IR_Point{0.25f, 0.25f}, 0.0, 1.0f),
      0);
  int lit = 0;
  for (size_t i = 3; i < dst.size(); i += 4) lit += dst[i] == 255 ? 1 : dst[i] != 0 ? 100 : 0;
  EXPECT_EQ(lit, 1);  // one whole pixel, no bilinear spread
  pf.shift_x = 2;     // a shift at or past its step count is refused
  EXPECT_EQ(
      IR_MotionPrefiltered(&pf, kIRFormatBGRA8, dst.data(), 20 * 4, 20, 20, IR_Point{0.5f, 0.5f},
                           IR_Point{0.5f, 0.5f}, IR_Point{0.25f, 0.25f}, 0.0, 1.0f),
      -1);
}

TEST(IRExactPath, SpansBoundTheVisiblePixelsOfEachRow) {
  Reduced r(200, 80, 3);
  const uint8_t* base = r.image.data();
  const size_t stride = size_t(r.pf.width + 2) * 4;
  for (int32_t i = 0; i < r.pf.height; ++i) {
    const int32_t a = r.spans[size_t(2 * i)], b = r.spans[size_t(2 * i + 1)];
    const uint8_t* row = base + (i + 1) * stride + 4;
    for (int32_t x = 0; x < r.pf.width; ++x) {
      const bool any = row[x * 4] | row[x * 4 + 1] | row[x * 4 + 2] | row[x * 4 + 3];
      if (x < a || x >= b) {
        ASSERT_FALSE(any) << i << "," << x;
      }
      if (a < b && (x == a || x == b - 1)) {
        ASSERT_TRUE(any) << i << "," << x;
      }
    }
  }
  EXPECT_EQ(IR_PrefilterSpans(nullptr, r.spans.data()), -1);
}

TEST(IRExactPath, SimdKernelEqualsScalar) {
  std::mt19937 rng(5);
  for (int n : {1, 4, 5, 19, 64}) {
    std::vector<uint8_t> s(size_t(n) * 4), d(size_t(n) * 4);
    for (int i = 0; i < n; ++i) {
      const int kind = (i + 2) % 3;  // partial, transparent, opaque
      uint8_t a = kind == 0 ? 0 : kind == 1 ? 255 : uint8_t(rng() % 256);
      s[size_t(i) * 4 + 3] = a;
      for (int c = 0; c < 3; ++c) s[size_t(i) * 4 + c] = uint8_t(rng() % (a + 1));
    }
    for (auto& x : d) x = uint8_t(rng());
    std::vector<uint8_t> a = d, b = d;
    ir::BlendExactRowScalar(s.data(), a.data(), n);
#if defined(__SSE2__)
    ir::BlendExactRowSse2(s.data(), b.data(), n);
    EXPECT_EQ(a, b) << n;
#endif
    EXPECT_NE(a, d) << n;
  }
}

}  // namespace

namespace {

// A placed layer made and blended through the public calls; false when the placement is not one
// for a layer.
bool DrawThroughLayer(const IR_Prefiltered& pf, uint8_t* dst, int32_t row_bytes, int32_t w,
                      int32_t h, IR_Point dp, IR_Point sp, IR_Point scale, double rot,
                      float opacity, int32_t rect[4]) {
  if (IR_PlaceBounds(&pf, w, h, dp, sp, scale, rot, rect) != 1) return false;
  const int32_t lw = rect[2] - rect[0], lh = rect[3] - rect[1];
  std::vector<uint8_t> layer(size_t(lw + 2) * size_t(lh + 2) * 4, 0);
  EXPECT_EQ(IR_PlacePrefiltered(&pf, w, h, dp, sp, scale, rot, rect, layer.data(), layer.size()),
            0);
  std::vector<int32_t> spans(size_t(lh) * 2);
  IR_Prefiltered view{layer.data(), lw, lh, 1, 1, lw, lh, nullptr, 0, 0, 0};
  EXPECT_EQ(IR_PrefilterSpans(&view, spans.data()), 0);
  view.row_spans = spans.data();
  EXPECT_EQ(
      IR_CompositeLayer(&view, kIRFormatBGRA8, dst, row_bytes, w, h, rect[0], rect[1], opacity), 0);
  return true;
}

}  // namespace

TEST(IRPlacedLayer, BlendsWithinOneOfTheDirectCompositeAndTouchesNothingOutsideItsRectangle) {
  Reduced r(400, 160, 3);
  const int32_t w = 240, h = 140;
  struct Case {
    IR_Point dst;
    IR_Point scale;
    double rot;
    float opacity;
  } cases[] = {
      {{0.5f, 0.5f}, {0.25f, 0.25f}, 30.0, 1.0f},     // turned
      {{0.5f, 0.5f}, {0.25f, 0.25f}, -75.5, 0.4f},    // turned the other way, faded
      {{0.47f, 0.52f}, {0.21f, 0.3f}, 0.0, 1.0f},     // upright but scaled off the pixel grid
      {{0.05f, 0.95f}, {0.25f, 0.25f}, 200.0, 1.0f},  // mostly off the frame
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.rot);
    for (bool bottom_up : {false, true}) {
      std::vector<uint8_t> direct = Background(w, h), layered = direct, before = direct;
      const int32_t rb = bottom_up ? -w * 4 : w * 4;
      const size_t first = bottom_up ? size_t(h - 1) * w * 4 : 0;
      ASSERT_EQ(IR_MotionPrefiltered(&r.pf, kIRFormatBGRA8, direct.data() + first, rb, w, h, c.dst,
                                     {0.5f, 0.5f}, c.scale, c.rot, c.opacity),
                0);
      int32_t rect[4];
      ASSERT_TRUE(DrawThroughLayer(r.pf, layered.data() + first, rb, w, h, c.dst, {0.5f, 0.5f},
                                   c.scale, c.rot, c.opacity, rect));
      EXPECT_NE(direct, before);
      int worst = 0;
      for (size_t i = 0; i < direct.size(); ++i) {
        worst = std::max(worst, std::abs(int(direct[i]) - int(layered[i])));
        // What the direct composite changed lies inside the layer's rectangle.
        if (direct[i] != before[i]) {
          const int32_t px = int32_t((i / 4) % size_t(w));
          int32_t row = int32_t((i / 4) / size_t(w));
          if (bottom_up) row = h - 1 - row;
          EXPECT_TRUE(px >= rect[0] && px < rect[2] && row >= rect[1] && row < rect[3])
              << px << "," << row;
        }
      }
      EXPECT_LE(worst, 1);
    }
  }
}

TEST(IRPlacedLayer, WholePixelPlacementsAndBadArgumentsAreNotForALayer) {
  Reduced r(400, 160, 4);
  int32_t rect[4] = {};
  // Upright at 1 / factor on whole pixels: the direct path copies pixel for pixel already.
  EXPECT_EQ(IR_PlaceBounds(&r.pf, 240, 100, {0.5f, 0.5f}, {0.5f, 0.5f}, {0.25f, 0.25f}, 0.0, rect),
            0);
  // Entirely off the frame: nothing to draw.
  EXPECT_EQ(IR_PlaceBounds(&r.pf, 240, 100, {5.0f, 5.0f}, {0.5f, 0.5f}, {0.25f, 0.25f}, 30.0, rect),
            0);
  EXPECT_EQ(IR_PlaceBounds(&r.pf, 240, 100, {0.5f, 0.5f}, {0.5f, 0.5f}, {NAN, 0.25f}, 30.0, rect),
            -1);
  EXPECT_EQ(
      IR_PlaceBounds(nullptr, 240, 100, {0.5f, 0.5f}, {0.5f, 0.5f}, {0.25f, 0.25f}, 30.0, rect),
      -1);

  ASSERT_EQ(IR_PlaceBounds(&r.pf, 240, 100, {0.5f, 0.5f}, {0.5f, 0.5f}, {0.25f, 0.25f}, 30.0, rect),
            1);
  const int32_t lw = rect[2] - rect[0], lh = rect[3] - rect[1];
  std::vector<uint8_t> layer(size_t(lw + 2) * size_t(lh + 2) * 4, 0);
  // A rectangle other than the placement's, or a layer too small for it, is refused untouched.
  int32_t other[4] = {rect[0] + 1, rect[1], rect[2], rect[3]};
  EXPECT_EQ(IR_PlacePrefiltered(&r.pf, 240, 100, {0.5f, 0.5f}, {0.5f, 0.5f}, {0.25f, 0.25f}, 30.0,
                                other, layer.data(), layer.size()),
            -1);
  EXPECT_EQ(IR_PlacePrefiltered(&r.pf, 240, 100, {0.5f, 0.5f}, {0.5f, 0.5f}, {0.25f, 0.25f}, 30.0,
                                rect, layer.data(), layer.size() - 1),
            -1);
  EXPECT_EQ(std::count(layer.begin(), layer.end(), 0), std::ptrdiff_t(layer.size()));
  // A layer is blended only as a factor-1 image.
  IR_Prefiltered wrong = r.pf;
  std::vector<uint8_t> dst = Background(240, 100);
  EXPECT_EQ(IR_CompositeLayer(&wrong, kIRFormatBGRA8, dst.data(), 240 * 4, 240, 100, 0, 0, 1.0f),
            -1);
}

// The compositor: IR_Motion's placement, filtering, blending, row order, formats and edges; its
// other paths against the direct resample; the SIMD kernels against the scalar ones, bytewise.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <tuple>
#include <vector>

#include "image_renderer/motion.h"
#include "vetext/image_renderer.h"

namespace {

// Pixels as 0xAARRGGBB: the bytes B, G, R, A in memory.
constexpr uint32_t kClear = 0, kWhite = 0xFFFFFFFF, kBlack = 0xFF000000, kRed = 0xFFFF0000,
                   kGrey = 0xFF463C32;

uint32_t Px(uint32_t b, uint32_t g, uint32_t r, uint32_t a) {
  return (b & 255) | (g & 255) << 8 | (r & 255) << 16 | (a & 255) << 24;
}

// Bottom-up images store the last row first; base() is the visual top row, row bytes negative.
struct Image {
  int32_t w, h;
  bool bottom_up;
  std::vector<uint32_t> px;
  Image(int32_t w_, int32_t h_, uint32_t fill = kClear, bool bu = false)
      : w(w_), h(h_), bottom_up(bu), px(size_t(w_) * h_, fill) {}
  int32_t row_bytes() const { return bottom_up ? -4 * w : 4 * w; }
  uint32_t* base() { return px.data() + (bottom_up ? size_t(h - 1) * w : 0); }
  uint8_t* bytes() { return reinterpret_cast<uint8_t*>(base()); }
  uint32_t& at(int32_t x, int32_t y) { return base()[ptrdiff_t(y) * (bottom_up ? -w : w) + x]; }
};

template <typename F>
Image Paint(int32_t w, int32_t h, F f, bool bottom_up = false) {
  Image img(w, h, kClear, bottom_up);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) img.at(x, y) = f(x, y);
  return img;
}
// A premultiplied source with every alpha, and a straight destination.
uint32_t Pattern(int32_t x, int32_t y) {
  const int32_t a = (x * 7 + y * 13) % 256;
  return Px(a * (x % 3) / 2, a / 2, a * (y % 2), a);
}
uint32_t Backdrop(int32_t x, int32_t y) {
  return Px(x * 3, y * 5, x * y + 90, (x * 37 + y * 11) / 2);
}

struct Place {
  IR_Point dst{0.5f, 0.5f}, src{0.5f, 0.5f}, scale{1, 1};
  double rot = 0;
  float opacity = 1;
  int32_t format = kIRFormatBGRA8;
  const int32_t* rect = nullptr;
};

int32_t Draw(Image& src, Image& dst, const Place& p) {
  return IR_Motion(src.base(), src.row_bytes(), src.w, src.h, p.format, 0, p.rect, dst.base(),
                   dst.row_bytes(), dst.w, dst.h, p.format, 0, 1, 1, p.dst, p.src, p.scale, p.rot,
                   p.opacity, true, 0.0, false, 0, 4, true);
}
int32_t Draw(const IR_Prefiltered& pf, Image& dst, const Place& p) {
  return IR_MotionPrefiltered(&pf, p.format, dst.base(), dst.row_bytes(), dst.w, dst.h, p.dst,
                              p.src, p.scale, p.rot, p.opacity);
}

void ExpectPixels(Image& img, const std::vector<uint32_t>& probes) {  // (x, y, pixel) triples
  for (size_t i = 0; i + 2 < probes.size(); i += 3)
    EXPECT_EQ(img.at(probes[i], probes[i + 1]), probes[i + 2]) << probes[i] << "," << probes[i + 1];
}

TEST(IRMotion, IdentityPlacesEachPixelExactlyAndBlendsWithOpacity) {
  Image src(8, 6), dst(20, 20, kGrey), want(20, 20, kGrey);
  src.at(2, 3) = kRed;
  src.at(7, 5) = Px(10, 20, 30, 40);
  ASSERT_EQ(Draw(src, dst, {.dst = {5.0f / 20, 7.0f / 20}, .src = {0, 0}}), 0);  // origin at (5, 7)
  want.at(7, 10) = kRed;
  want.at(12, 12) = Px(52, 71, 89, 255);  // grey * (1 - 40/255) + (10, 20, 30)
  EXPECT_EQ(dst.px, want.px);

  // keep = 1 - 160/255 * opacity; out = dst * keep + src * opacity, alpha alike.
  const uint32_t s = Px(40, 80, 120, 160);
  struct Case {
    uint32_t src, dst;
    float opacity;
    uint32_t want;
  } cases[] = {{s, Px(200, 100, 0, 255), 0.5f, Px(157, 109, 60, 255)},
               {s, kClear, 0.5f, Px(20, 40, 60, 80)},
               {s, kGrey, 0, kGrey},
               {kClear, kGrey, 1, kGrey}};
  for (const Case& c : cases) {
    Image a(3, 3, c.src), b(3, 3, c.dst);
    ASSERT_EQ(Draw(a, b, {.opacity = c.opacity}), 0);
    EXPECT_EQ(b.px, Image(3, 3, c.want).px) << c.opacity;
  }
}

TEST(IRMotion, RotatesCounterClockwiseAndScalesAboutTheSourcePoint) {
  Image bar(40, 4, kWhite);  // a red marker on its right end
  for (int32_t y = 0; y < 4; ++y)
    for (int32_t x = 36; x < 40; ++x) bar.at(x, y) = kRed;
  struct Case {
    Place p;
    std::vector<uint32_t> probes;
  } cases[] = {
      // Turned about its centre: vertical through x = 50, the marker up for +90, down for -90.
      {{.rot = 90}, {50,     32, kRed, 49,     31, kRed, 50,     66, kWhite, 50,    50,
                     kWhite, 65, 50,   kBlack, 35, 50,   kBlack, 50, 75,     kBlack}},
      {{.rot = -90}, {50, 67, kRed, 50, 33, kWhite}},
      // Doubled about its top-left corner placed at (10, 10): it covers [10, 90) x [10, 18).
      {{.dst = {0.1f, 0.1f}, .src = {0, 0}, .scale = {2, 2}},
       {11,     11, kWhite, 80,     16, kWhite, 84,     16, kRed, 8,     12,
        kBlack, 91, 12,     kBlack, 50, 19,     kBlack, 50, 8,    kBlack}},
  };
  for (const Case& c : cases) {
    Image dst(100, 100, kBlack);
    ASSERT_EQ(Draw(bar, dst, c.p), 0);
    ExpectPixels(dst, c.probes);
  }
}

TEST(IRMotion, QuarterScaleCheckerboardIsFlatGrey) {
  Image src = Paint(128, 128, [](int32_t x, int32_t y) { return ((x + y) & 1) ? kWhite : kBlack; });
  // Aligned, off by a fraction of a pixel (with factors 3 x 4), turned: the inside is grey.
  const float cases[][4] = {
      {0, 0, 0, 0.25f}, {0.37f, 0.81f, 0, 0.3f}, {0, 0, 30, 0.25f}, {0.5f, 0, 77, 0.25f}};
  for (auto [dx, dy, rot, sx] : cases) {  // offsets, degrees, x scale
    Image dst(64, 64, kClear);
    const Place p{.dst = {(32 + dx) / 64, (32 + dy) / 64}, .scale = {sx, 0.25f}, .rot = rot};
    ASSERT_EQ(Draw(src, dst, p), 0);
    for (int32_t y = 22; y < 42; ++y)
      for (int32_t x = 22; x < 42; ++x)
        for (int ch = 0; ch < 32; ch += 8)
          EXPECT_NEAR(int(dst.at(x, y) >> ch & 255), ch == 24 ? 255 : 128, 1) << x << "," << y;
    ExpectPixels(dst, {2, 2, kClear, 61, 32, kClear});  // nothing outside the placed 32 x 32
  }
}

TEST(IRMotion, RowOrderFormatAndAKeptReductionGiveTheSameBytes) {
  Place p{.dst = {0.45f, 0.55f}, .src = {0.25f, 0.75f}, .scale = {0.25f, 0.26f}, .rot = 21};
  Image src = Paint(300, 120, Pattern), src_bu = Paint(300, 120, Pattern, true);
  const Image before = Paint(100, 60, Backdrop);
  Image want = before, bu = Paint(100, 60, Backdrop, true), vuya = before;
  ASSERT_EQ(Draw(src, want, p), 0);
  int changed = 0;
  for (size_t i = 0; i < want.px.size(); ++i) changed += want.px[i] != before.px[i];
  EXPECT_GT(changed, 300);
  ASSERT_EQ(Draw(src_bu, bu, p), 0);
  for (int32_t y = 0; y < 60; ++y)
    EXPECT_TRUE(std::equal(&want.at(0, y), &want.at(0, y) + 100, &bu.at(0, y))) << y;
  Place as_vuya = p;
  as_vuya.format = kIRFormatVUYA8;
  ASSERT_EQ(Draw(src, vuya, as_vuya), 0);
  EXPECT_EQ(vuya.px, want.px);  // the same bytes, read as VUYA

  int32_t fx = 0, fy = 0;
  IR_PrefilterFactors({0.35f, 0.375f}, &fx, &fy);  // below 3/4 of the reduced size one more step
  EXPECT_EQ(std::pair(fx, fy), std::pair(3, 2));
  IR_PrefilterFactors(p.scale, &fx, &fy);
  ASSERT_EQ(std::pair(fx, fy), std::pair(4, 3));
  const uint64_t size = IR_PrefilterSize(300, 120, fx, fy);
  EXPECT_EQ(size, (75u + 2) * (40u + 2) * 4);
  EXPECT_EQ(IR_PrefilterSize(300, 120, 0, 3), 0u);
  std::vector<uint8_t> reduced(size);
  IR_Prefiltered pf;
  for (uint64_t n : {size - 1, size})
    EXPECT_EQ(
        IR_Prefilter(src_bu.base(), src_bu.row_bytes(), 300, 120, fx, fy, reduced.data(), n, &pf),
        n < size ? -1 : 0);
  EXPECT_EQ(std::pair(pf.width, pf.height), std::pair(75, 40));
  for (int i = 0; i < 2; ++i) {  // the reduction is not consumed
    Image again = before;
    ASSERT_EQ(Draw(pf, again, p), 0);
    EXPECT_EQ(again.px, want.px);
  }
  EXPECT_EQ(Draw(pf, want, {.format = 5}), -1);
  pf.width = 74;  // does not describe the source any more
  EXPECT_EQ(Draw(pf, want, p), -1);
  // Factors 3 x 4 over a ramp: reduced pixel j is the mean of source columns 3j to 3j + 2.
  Image ramp = Paint(30, 8, [](int32_t x, int32_t) { return Px(x, 0, 0, 255); });
  std::vector<uint32_t> ramp3(12 * 4);
  ASSERT_EQ(IR_Prefilter(ramp.base(), 120, 30, 8, 3, 4, ramp3.data(), 12 * 4 * 4, &pf), 0);
  for (int32_t j = 0; j < 10; ++j) EXPECT_EQ(ramp3[12 + 1 + j], Px(3 * j + 1, 0, 0, 255)) << j;
}

TEST(IRMotion, RefusesBadArgumentsAndDrawsOnlyWhatIsInFrameAndInTheSourceRect) {
  Image src(16, 16, kWhite), none(4, 0), small(8, 8, kBlack), dst = Paint(32, 32, Backdrop);
  const std::vector<uint32_t> before = dst.px;
  auto motion = [&](int32_t sf, int32_t df, int32_t src_rb, int32_t dst_rb, void* d, float sx,
                    bool blend) {
    return IR_Motion(src.base(), src_rb, 16, 16, sf, 0, nullptr, d, dst_rb, 32, 32, df, 0, 1, 1,
                     {0.5f, 0.5f}, {0.5f, 0.5f}, {sx, 1}, 0.0, 1.0f, blend, 0.0, false, 0, 4, true);
  };
  const int32_t B = kIRFormatBGRA8;
  void* d = dst.base();
  EXPECT_EQ(motion(0x61726762, 0x61726762, 64, 128, d, 1, true), -1);  // a code, not a format
  EXPECT_EQ(motion(5, 5, 64, 128, d, 1, true), -1);
  EXPECT_EQ(motion(B, kIRFormatVUYA8, 64, 128, d, 1, true), -1);
  EXPECT_EQ(motion(B, B, 60, 128, d, 1, true), -1);
  EXPECT_EQ(motion(B, B, 64, -124, d, 1, true), -1);
  EXPECT_EQ(motion(B, B, 64, 128, nullptr, 1, true), -1);
  EXPECT_EQ(motion(B, B, 64, 128, d, NAN, true), -1);
  EXPECT_EQ(motion(B, B, 64, 128, d, 1, false), -1);
  // Nothing to draw: off the frame, zero scale, an empty source rect, an empty source.
  const int32_t empty[4] = {5, 5, 5, 9}, rect[4] = {2, 1, 7, 5};
  for (const Place& p : {Place{.dst = {3.0f, 0.5f}}, Place{.dst = {0.5f, -0.3f}},
                         Place{.scale = {0, 1}}, Place{.rect = empty}})
    EXPECT_EQ(Draw(src, dst, p), 0);
  EXPECT_EQ(Draw(none, dst, {}), 0);
  EXPECT_EQ(dst.px, before);
  EXPECT_EQ(Draw(src, dst, {.dst = {0, 0}}), 0);  // partly visible: only that part is drawn
  ExpectPixels(dst, {0, 0, kWhite, 7, 7, kWhite, 9, 9, before[9 * 32 + 9]});
  for (int32_t y = 0; y < 8; ++y) src.at(6, y) = kRed;  // then columns 2..6, rows 1..4 in place
  ASSERT_EQ(Draw(src, small, {.dst = {0, 0}, .src = {0, 0}, .rect = rect}), 0);
  ExpectPixels(small,
               {1, 2, kBlack, 2, 1, kWhite, 6, 4, kRed, 7, 4, kBlack, 3, 0, kBlack, 3, 5, kBlack});
  EXPECT_TRUE(IR_IsOriginBottomLeft(kIRFormatBGRA8));
}

TEST(IRMotion, BandsOnTwoThreadsCoverTheWholeFrame) {
  // A flat opaque source blown up over a full HD frame, not axis-aligned: every pixel is drawn.
  const uint32_t colour = Px(12, 34, 56, 255);
  Image src(64, 36, colour), dst(1920, 1080, kClear, true);
  ASSERT_EQ(Draw(src, dst, {.scale = {40, 40}, .rot = 0.0001}), 0);
  EXPECT_EQ(std::count(dst.px.begin(), dst.px.end(), colour), 1920 * 1080);
}

// A text-like source (opaque, partial and empty regions), reduced 4 x 4, with its row spans.
struct Reduced {
  Image src{0, 0};
  std::vector<uint8_t> image;
  std::vector<int32_t> spans;
  IR_Prefiltered pf{};
  Reduced(int32_t w, int32_t h, uint32_t seed) {
    std::mt19937 rng(seed);
    src = Paint(w, h, [&](int32_t x, int32_t y) {
      const bool inside = x > w / 5 && x < w * 4 / 5 && y > h / 4 && y < h * 3 / 4;
      if (!inside || (x / 16 + y / 16) % 3 == 0) return kClear;  // transparent runs
      const uint32_t a = (x / 8) % 2 ? 255 : rng() % 256;
      const uint32_t b = rng() % (a + 1), g = rng() % (a + 1), r = rng() % (a + 1);
      return Px(b, g, r, a);
    });
    image.resize(IR_PrefilterSize(w, h, 4, 4));
    EXPECT_EQ(IR_Prefilter(src.base(), 4 * w, w, h, 4, 4, image.data(), image.size(), &pf), 0);
    spans.resize(size_t(pf.height) * 2);
    EXPECT_EQ(IR_PrefilterSpans(&pf, spans.data()), 0);
    pf.row_spans = spans.data();
  }
};

TEST(IRExactPath, SameBytesAsResamplingForWholePixelPlacements) {
  Reduced r(400, 160, 1);  // a 100 x 40 reduction
  for (bool bottom_up : {false, true})
    for (float opacity : {1.0f, 0.6f})
      // Centred, near the edges (clipped on every side) and off the frame.
      for (auto [x, y] : {std::pair{120.0, 50.0}, {10.0, 5.0}, {230.0, 95.0}, {-80.0, 50.0}}) {
        const Image before = Paint(240, 100, Backdrop, bottom_up);
        Image fast = before, slow = before;
        const ir::Placement pl{200, 80, x, y, 0.25, 0.25, 0, opacity};
        ASSERT_TRUE(ir::Composite(r.pf, pl, fast.bytes(), fast.row_bytes(), 240, 100, true));
        ASSERT_TRUE(ir::Composite(r.pf, pl, slow.bytes(), slow.row_bytes(), 240, 100, false));
        EXPECT_EQ(fast.px, slow.px) << x << "," << y << " opacity " << opacity;
        EXPECT_EQ(fast.px != before.px, x > 0);
      }
}

TEST(IRExactPath, AlignedShiftPutsADisplacedImageOnWholePixels) {
  // 402 / 2 / 4 = 50.25 reduced pixels to the source point: displaced by 3/4 (12 of 16 steps)
  // it is whole. Turned, scaled other than 1 / factor, or without steps: not one to one.
  int32_t sx = -1, sy = -1;
  auto shift = [&](float scale_x, double rot, int32_t steps) {
    return IR_AlignedShift(402, 160, 4, 4, 240, 100, {0.5f, 0.5f}, {0.5f, 0.5f}, {scale_x, 0.25f},
                           rot, steps, &sx, &sy);
  };
  ASSERT_EQ(shift(0.25f, 0, 16), 1);
  EXPECT_EQ(std::pair(sx, sy), std::pair(12, 0));
  EXPECT_EQ(shift(0.25f, 30, 16), 0);
  EXPECT_EQ(shift(0.24f, 0, 16), 0);
  EXPECT_EQ(shift(0.25f, 0, 0), 0);

  // One opaque reduced pixel displaced by half a pixel, placed half a pixel off (15 / 4 = 3.75):
  // the one-to-one path puts it on exactly one destination pixel, with no bilinear spread.
  std::vector<uint32_t> image(10 * 10, kClear);
  image[4 * 10 + 4] = kWhite;
  IR_Prefiltered pf{image.data(), 8, 8, 4, 4, 30, 32, nullptr, 2, 1, 0};
  Image dst(20, 20);
  ASSERT_EQ(Draw(pf, dst, {.scale = {0.25f, 0.25f}}), 0);
  EXPECT_EQ(std::count(dst.px.begin(), dst.px.end(), kWhite), 1);
  EXPECT_EQ(std::count(dst.px.begin(), dst.px.end(), kClear), 399);
  pf.shift_x = 2;  // a shift at or past its step count is refused
  EXPECT_EQ(Draw(pf, dst, {.scale = {0.25f, 0.25f}}), -1);
}

TEST(IRExactPath, SpansBoundTheVisiblePixelsOfEachRow) {
  Reduced r(200, 80, 3);
  const auto* image = reinterpret_cast<const uint32_t*>(r.image.data());
  const int32_t w = r.pf.width;
  for (int32_t i = 0; i < r.pf.height; ++i) {
    const int32_t a = r.spans[size_t(2 * i)], b = r.spans[size_t(2 * i + 1)];
    const uint32_t* row = image + (i + 1) * (w + 2) + 1;
    // Within the row, from a visible pixel to one past a visible pixel, nothing visible outside.
    ASSERT_TRUE(a == b || (0 <= a && a < b && b <= w && row[a] && row[b - 1])) << i;
    ASSERT_EQ(std::count(row, row + a, 0u) + std::count(row + b, row + w, 0u), a + w - b) << i;
  }
  EXPECT_EQ(IR_PrefilterSpans(nullptr, r.spans.data()), -1);
}

TEST(IRPlacedLayer, BlendsWithinOneOfTheDirectCompositeOnlyInsideItsRectangle) {
  Reduced r(400, 160, 3);
  // Turned; the other way and faded; upright but scaled off the pixel grid; mostly off the frame.
  const Place cases[] = {{.scale = {0.25f, 0.25f}, .rot = 30},
                         {.scale = {0.25f, 0.25f}, .rot = -75.5, .opacity = 0.4f},
                         {.dst = {0.47f, 0.52f}, .scale = {0.21f, 0.3f}},
                         {.dst = {0.05f, 0.95f}, .scale = {0.25f, 0.25f}, .rot = 200}};
  for (const Place& c : cases)
    for (bool bottom_up : {false, true}) {
      SCOPED_TRACE(testing::Message() << c.rot << (bottom_up ? " bottom-up" : ""));
      Image before = Paint(240, 140, Backdrop, bottom_up);
      Image direct = before, layered = before;
      ASSERT_EQ(Draw(r.pf, direct, c), 0);
      EXPECT_NE(direct.px, before.px);
      int32_t rect[4];
      ASSERT_EQ(IR_PlaceBounds(&r.pf, 240, 140, c.dst, c.src, c.scale, c.rot, rect), 1);
      const int32_t lw = rect[2] - rect[0], lh = rect[3] - rect[1];
      std::vector<uint8_t> layer(size_t(lw + 2) * size_t(lh + 2) * 4, 0);
      ASSERT_EQ(IR_PlacePrefiltered(&r.pf, 240, 140, c.dst, c.src, c.scale, c.rot, rect,
                                    layer.data(), layer.size()),
                0);
      std::vector<int32_t> spans(size_t(lh) * 2);
      IR_Prefiltered view{layer.data(), lw, lh, 1, 1, lw, lh, nullptr, 0, 0, 0};
      ASSERT_EQ(IR_PrefilterSpans(&view, spans.data()), 0);
      view.row_spans = spans.data();
      ASSERT_EQ(IR_CompositeLayer(&view, kIRFormatBGRA8, layered.base(), layered.row_bytes(), 240,
                                  140, rect[0], rect[1], c.opacity),
                0);
      for (int32_t y = 0; y < 140; ++y)
        for (int32_t x = 0; x < 240; ++x) {
          for (int ch = 0; ch < 32; ch += 8)
            EXPECT_NEAR(int(direct.at(x, y) >> ch & 255), int(layered.at(x, y) >> ch & 255), 1);
          // What the direct composite changed lies inside the layer's rectangle.
          const bool inside = x >= rect[0] && x < rect[2] && y >= rect[1] && y < rect[3];
          EXPECT_TRUE(inside || direct.at(x, y) == before.at(x, y)) << x << "," << y;
        }
    }

  // Not for a layer: upright at 1 / factor on whole pixels (a plain copy), or off the frame.
  const IR_Point c{0.5f, 0.5f}, q{0.25f, 0.25f};
  int32_t rect[4] = {};
  EXPECT_EQ(IR_PlaceBounds(&r.pf, 240, 100, c, c, q, 0.0, rect), 0);
  EXPECT_EQ(IR_PlaceBounds(&r.pf, 240, 100, {5.0f, 5.0f}, c, q, 30.0, rect), 0);
  EXPECT_EQ(IR_PlaceBounds(&r.pf, 240, 100, c, c, {NAN, 0.25f}, 30.0, rect), -1);
  EXPECT_EQ(IR_PlaceBounds(nullptr, 240, 100, c, c, q, 30.0, rect), -1);
  ASSERT_EQ(IR_PlaceBounds(&r.pf, 240, 100, c, c, q, 30.0, rect), 1);
  std::vector<uint8_t> layer(size_t(rect[2] - rect[0] + 2) * size_t(rect[3] - rect[1] + 2) * 4, 0);
  // A rectangle other than the placement's, or a layer too small for it, is refused untouched.
  int32_t other[4] = {rect[0] + 1, rect[1], rect[2], rect[3]};
  EXPECT_EQ(IR_PlacePrefiltered(&r.pf, 240, 100, c, c, q, 30.0, other, layer.data(), layer.size()),
            -1);
  EXPECT_EQ(
      IR_PlacePrefiltered(&r.pf, 240, 100, c, c, q, 30.0, rect, layer.data(), layer.size() - 1),
      -1);
  EXPECT_EQ(std::count(layer.begin(), layer.end(), 0), std::ptrdiff_t(layer.size()));
  // A layer is blended only as a factor-1 image, and only onto a destination.
  Image dst = Paint(240, 100, Backdrop);
  const IR_Prefiltered one{layer.data(), 1, 1, 1, 1, 1, 1, nullptr, 0, 0, 0};
  EXPECT_EQ(IR_CompositeLayer(&r.pf, kIRFormatBGRA8, dst.base(), 960, 240, 100, 0, 0, 1.0f), -1);
  EXPECT_EQ(IR_CompositeLayer(&one, kIRFormatBGRA8, nullptr, 960, 240, 100, 0, 0, 1.0f), -1);
}

// One opaque pixel in an otherwise transparent padded reduction. A row of samples a quarter
// pixel right of the grid and halfway between two rows touches it from exactly two samples;
// every other destination pixel stays as it was, and so does every one past the row's end.
TEST(IRKernels, OnlySamplesWithATransparentFootprintAreLeftAlone) {
  constexpr int32_t wp = 24, hp = 10, px = 9, py = 4;
  Image src(wp, hp);
  src.at(px, py) = Px(200, 100, 50, 255);
  std::vector<ir::BlendRowFn> kernels = {&ir::BlendRowScalar};
#if defined(__SSE2__)
  kernels.push_back(&ir::BlendRowSse2);
#endif
  for (ir::BlendRowFn blend : kernels)
    for (float opacity : {1.0f, 0.6f})
      for (int32_t n : {wp - 2, px})
        for (int32_t iy : {py - 1, py}) {  // the pixel in the lower, then the upper footprint row
          Image d(wp, 1, kGrey), before = d;
          blend(src.bytes(), wp, hp, 0.25f, 1.0f, float(iy) + 0.5f, 0.0f, d.bytes(), n, opacity);
          for (int32_t i = 0; i < wp; ++i)
            EXPECT_EQ(d.px[i] == before.px[i], (i != px - 1 && i != px) || i >= n)
                << "sample " << i << " of " << n << " row " << iy << " opacity " << opacity;
        }
}

TEST(IRKernels, RowExtentsMatchAPixelByPixelScan) {
  // Every width from 0 to 40 with zero, one or two marked pixels anywhere, the first and last
  // included; a marked pixel has one non-zero byte, so that a test of some channels misses it.
  // Pixels past the end are not zero: a scan beyond the row finds them.
  std::mt19937 rng(17);
  for (int32_t n = 0; n <= 40; ++n)
    for (int trial = 0; trial < 60; ++trial) {
      std::vector<uint32_t> row(size_t(n) + 4, 0xeeeeeeee);
      std::fill_n(row.begin(), n, 0u);
      for (int k = 0; k < (n == 0 ? 0 : trial % 3); ++k) {
        const int32_t x = trial < 6 ? (k ? n - 1 : 0) : int32_t(rng() % uint32_t(n));
        row[size_t(x)] |= (1 + rng() % 255) << (rng() % 4 * 8);
      }
      int32_t want_a = 0, want_b = n, a = -1, b = -1;
      while (want_a < n && row[want_a] == 0) ++want_a;
      while (want_b > want_a && row[want_b - 1] == 0) --want_b;
      ir::RowExtent(reinterpret_cast<const uint8_t*>(row.data()), n, &a, &b);
      ASSERT_EQ(std::tuple(a, b), std::tuple(want_a, want_b)) << "width " << n << " " << trial;
    }
}

#if defined(__SSE2__)
TEST(IRKernels, SimdResampleRowEqualsScalar) {
  // Padded reductions with a transparent border. One has a right half of 4 x 4 blocks of one
  // pixel, opaque and translucent, so that many samples see four equal pixels (inside a glyph);
  // the other islands of coverage in transparency, the shape of turned text, where the SIMD
  // kernel must skip and blend exactly where the reference does.
  const int32_t wp = 40, hp = 30;
  auto border = [](int32_t x, int32_t y) { return x == 0 || y == 0 || x == wp - 1 || y == hp - 1; };
  Image blocks = Paint(wp, hp, [&](int32_t x, int32_t y) {
    if (border(x, y)) return kClear;
    const int32_t bx = x < wp / 2 ? x : x / 4 * 4, by = x < wp / 2 ? y : y / 4 * 4;
    const uint32_t a = (x >= wp / 2 && (bx / 4) % 2 == 0) ? 255 : (bx * 37 + by * 11) % 256;
    return Px(a * (bx % 5) / 4, a * ((bx + by) % 5) / 4, a * ((bx + 2 * by) % 5) / 4, a);
  });
  Image islands = Paint(wp, hp, [&](int32_t x, int32_t y) {
    if (border(x, y) || (x / 5 + y / 4) % 3 == 0 || (x * 7 + y) % 4 == 0) return kClear;
    const uint32_t a = 40 + (x * 13 + y * 5) % 216;
    return Px(a * ((x + y) % 4) / 3, a * ((x + y + 1) % 4) / 3, a * ((x + y + 2) % 4) / 3, a);
  });
  // Upright, turned, magnified, off every edge, half opaque; across the blocks, opaque, faded.
  struct Row {
    float u0, du, v0, dv, opacity;
  } rows[] = {{0.0f, 1.0f, 5.0f, 0.0f, 1.0f},      {-3.5f, 0.87f, 2.2f, 0.5f, 0.7f},
              {30.0f, -0.31f, 28.9f, -0.2f, 1.0f}, {-5.0f, 0.25f, -2.0f, 0.6f, 0.5f},
              {10.3f, 0.0f, 3.7f, 0.0f, 0.33f},    {-1e6f, 1e5f, 1e6f, -1e5f, 1.0f},
              {18.0f, 0.3f, 4.1f, 0.2f, 1.0f},     {21.3f, 0.27f, 24.0f, -0.31f, 0.8f},
              {-2.3f, 0.71f, 14.7f, -0.87f, 0.8f}, {-2.3f, 0.71f, 3.2f, 0.13f, 0.8f}};
  for (Image* src : {&blocks, &islands})
    for (const Row& r : rows) {
      Image a = Paint(64, 1, Backdrop), b = a, before = a;
      const uint8_t* p = src->bytes();
      ir::BlendRowScalar(p, wp, hp, r.u0, r.du, r.v0, r.dv, a.bytes(), 64, r.opacity);
      ir::BlendRowSse2(p, wp, hp, r.u0, r.du, r.v0, r.dv, b.bytes(), 64, r.opacity);
      EXPECT_EQ(a.px, b.px) << r.u0 << " " << r.du << " " << r.v0;
      EXPECT_TRUE(r.u0 != 0 || a.px != before.px);  // the upright row draws
    }
}

TEST(IRKernels, SimdWholePixelRowEqualsScalar) {
  std::mt19937 rng(5);
  for (int n : {1, 4, 5, 19, 64}) {
    std::vector<uint8_t> s(size_t(n) * 4), d(size_t(n) * 4);
    for (int i = 0; i < n; ++i) {
      const int kind = (i + 2) % 3;  // partial, transparent, opaque
      const uint8_t a = kind == 0 ? 0 : kind == 1 ? 255 : uint8_t(rng() % 256);
      s[size_t(i) * 4 + 3] = a;
      for (int c = 0; c < 3; ++c) s[size_t(i) * 4 + c] = uint8_t(rng() % (a + 1));
    }
    for (auto& x : d) x = uint8_t(rng());
    std::vector<uint8_t> a = d, b = d;
    ir::BlendExactRowScalar(s.data(), a.data(), n);
    ir::BlendExactRowSse2(s.data(), b.data(), n);
    EXPECT_EQ(a, b) << n;
    EXPECT_NE(a, d) << n;
  }
}
#endif

}  // namespace

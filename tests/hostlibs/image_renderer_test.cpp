// IR_Motion: placement, filtering, rotation direction, blending, row order, formats, edges.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "vetext/image_renderer.h"

namespace {

struct Px {
  uint8_t c[4];
  bool operator==(const Px& o) const { return std::memcmp(c, o.c, 4) == 0; }
};

std::ostream& operator<<(std::ostream& os, const Px& p) {
  return os << '(' << int(p.c[0]) << ',' << int(p.c[1]) << ',' << int(p.c[2]) << ',' << int(p.c[3])
            << ')';
}

// A 4-byte image; when bottom_up, rows are stored last row first and `base` points at the
// visual top row with a negative row step, as hosts with bottom-up frames hand them over.
struct Image {
  int32_t w, h;
  bool bottom_up;
  std::vector<uint8_t> bytes;
  Image(int32_t w_, int32_t h_, Px fill = Px{{0, 0, 0, 0}}, bool bottom_up_ = false)
      : w(w_), h(h_), bottom_up(bottom_up_), bytes(static_cast<size_t>(w_) * h_ * 4) {
    for (int32_t y = 0; y < h; ++y)
      for (int32_t x = 0; x < w; ++x) at(x, y) = fill;
  }
  int32_t row_bytes() const { return bottom_up ? -4 * w : 4 * w; }
  uint8_t* base() { return bytes.data() + (bottom_up ? static_cast<size_t>(h - 1) * 4 * w : 0); }
  Px& at(int32_t x, int32_t y) {
    return *reinterpret_cast<Px*>(base() + static_cast<ptrdiff_t>(y) * row_bytes() + x * 4);
  }
};

struct Place {
  IR_Point dst{0.5f, 0.5f};
  IR_Point src{0.5f, 0.5f};
  IR_Point scale{1, 1};
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

const Px kClear{{0, 0, 0, 0}};
const Px kWhite{{255, 255, 255, 255}};
const Px kBlack{{0, 0, 0, 255}};
const Px kRed{{0, 0, 255, 255}};  // B, G, R, A
const Px kGrey{{50, 60, 70, 255}};

struct Probe {
  int32_t x, y;
  Px want;
};
void ExpectPixels(Image& img, std::initializer_list<Probe> probes) {
  for (const Probe& p : probes) EXPECT_EQ(img.at(p.x, p.y), p.want) << "at " << p.x << "," << p.y;
}

TEST(IRMotionGeometry, IdentityPlacesEachPixelExactly) {
  Image src(8, 6);
  src.at(2, 3) = kRed;
  src.at(7, 5) = Px{{10, 20, 30, 40}};
  Image dst(20, 20, kGrey);
  Place p;
  p.src = {0, 0};
  p.dst = {5.0f / 20, 7.0f / 20};  // source origin lands on destination pixel corner (5, 7)
  ASSERT_EQ(Draw(src, dst, p), 0);
  for (int32_t y = 0; y < 20; ++y) {
    for (int32_t x = 0; x < 20; ++x) {
      Px want = kGrey;
      if (x == 7 && y == 10) want = kRed;
      // premultiplied (10,20,30) at alpha 40 over grey: g * (1 - 40/255) + s
      if (x == 12 && y == 12) want = Px{{52, 71, 89, 255}};
      EXPECT_EQ(dst.at(x, y), want) << x << "," << y;
    }
  }
}

TEST(IRMotionGeometry, RotationIsCounterClockwiseOnScreen) {
  // A horizontal bar 40 x 4 with a red marker on its right end, centred, turned by +90.
  Image src(40, 4, kWhite);
  for (int32_t y = 0; y < 4; ++y)
    for (int32_t x = 36; x < 40; ++x) src.at(x, y) = kRed;
  Image dst(100, 100, kBlack);
  Place p;
  p.rot = 90;
  ASSERT_EQ(Draw(src, dst, p), 0);
  // The bar is now vertical through x = 50, its right end up.
  ExpectPixels(dst, {{50, 32, kRed},
                     {49, 31, kRed},
                     {50, 66, kWhite},
                     {50, 50, kWhite},
                     {65, 50, kBlack},
                     {35, 50, kBlack},
                     {50, 75, kBlack}});
  // The same bar turned by -90 points its marker down.
  Image dst2(100, 100, kBlack);
  p.rot = -90;
  ASSERT_EQ(Draw(src, dst2, p), 0);
  ExpectPixels(dst2, {{50, 67, kRed}, {50, 33, kWhite}});
}

TEST(IRMotionGeometry, ScaleActsAboutTheSourcePoint) {
  // A 20 x 20 opaque square scaled by 2 about its top-left corner placed at (10, 10) covers
  // [10, 50) on both axes.
  Image src(20, 20, kWhite);
  Image dst(64, 64, kBlack);
  Place p;
  p.src = {0, 0};
  p.dst = {10.0f / 64, 10.0f / 64};
  p.scale = {2, 2};
  ASSERT_EQ(Draw(src, dst, p), 0);
  ExpectPixels(
      dst,
      {{11, 11, kWhite}, {48, 48, kWhite}, {8, 30, kBlack}, {51, 30, kBlack}, {30, 51, kBlack}});
}

Image Checkerboard(int32_t n) {
  Image img(n, n);
  for (int32_t y = 0; y < n; ++y)
    for (int32_t x = 0; x < n; ++x) img.at(x, y) = ((x + y) & 1) ? kWhite : kBlack;
  return img;
}

TEST(IRMotionFiltering, QuarterScaleCheckerboardIsFlatGrey) {
  Image src = Checkerboard(128);
  struct Case {
    float dx, dy;
    double rot;
  };
  // Aligned, off by a fraction of a pixel, and turned: the interior is grey every time.
  for (const Case& c : {Case{0, 0, 0}, Case{0.37f, 0.81f, 0}, Case{0, 0, 30}, Case{0.5f, 0, 77}}) {
    Image dst(64, 64, kClear);
    Place p;
    p.scale = {0.25f, 0.25f};
    p.dst = {(32 + c.dx) / 64, (32 + c.dy) / 64};
    p.rot = c.rot;
    ASSERT_EQ(Draw(src, dst, p), 0);
    int checked = 0;
    for (int32_t y = 22; y < 42; ++y) {
      for (int32_t x = 22; x < 42; ++x) {
        const Px& px = dst.at(x, y);
        for (int ch = 0; ch < 3; ++ch) EXPECT_NEAR(px.c[ch], 128, 1) << x << "," << y;
        EXPECT_EQ(px.c[3], 255);
        ++checked;
      }
    }
    EXPECT_EQ(checked, 400);
    // Outside the placed 32 x 32 block nothing is drawn.
    ExpectPixels(dst, {{2, 2, kClear}, {61, 32, kClear}});
  }
}

TEST(IRMotionBlend, OpacityAndCoverage) {
  Image src(3, 3, Px{{40, 80, 120, 160}});  // premultiplied, alpha 160
  Image opaque(3, 3, Px{{200, 100, 0, 255}});
  Image clear(3, 3, kClear);
  Place p;
  p.opacity = 0.5f;
  ASSERT_EQ(Draw(src, opaque, p), 0);
  ASSERT_EQ(Draw(src, clear, p), 0);
  // keep = 1 - (160/255) * 0.5 = 0.68627; colour = dst * keep + src * 0.5
  EXPECT_EQ(opaque.at(1, 1), (Px{{157, 109, 60, 255}}));
  // alpha = 255 * 0.31373 + dst alpha * keep = 80 on a transparent destination
  EXPECT_EQ(clear.at(1, 1), (Px{{20, 40, 60, 80}}));

  // Opacity 0 and a fully transparent source leave the destination as it was.
  Image keep(3, 3, kGrey);
  p.opacity = 0;
  ASSERT_EQ(Draw(src, keep, p), 0);
  EXPECT_EQ(keep.at(1, 1), kGrey);
  Image none(3, 3, kClear);
  p.opacity = 1;
  ASSERT_EQ(Draw(none, keep, p), 0);
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 3; ++x) EXPECT_EQ(keep.at(x, y), kGrey);
}

Image Pattern(int32_t w, int32_t h, bool bottom_up) {
  Image img(w, h, kClear, bottom_up);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      const auto a = static_cast<uint8_t>((x * 7 + y * 13) % 256);
      img.at(x, y) = Px{{static_cast<uint8_t>(a * (x % 3) / 2), static_cast<uint8_t>(a / 2),
                         static_cast<uint8_t>(a * (y % 2)), a}};
    }
  return img;
}

Image Background(int32_t w, int32_t h, bool bottom_up) {
  Image img(w, h, kClear, bottom_up);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x)
      img.at(x, y) = Px{{static_cast<uint8_t>(x * 3), static_cast<uint8_t>(y * 5), 90, 255}};
  return img;
}

TEST(IRMotionRows, NegativeAndPositiveRowBytesGiveTheSameVisualResult) {
  Place p;
  p.scale = {0.3f, 0.25f};
  p.rot = 33;
  p.dst = {0.4f, 0.6f};
  p.src = {0.25f, 0.75f};
  Image src_td = Pattern(160, 90, false), src_bu = Pattern(160, 90, true);
  Image dst_td = Background(70, 50, false), dst_bu = Background(70, 50, true);
  ASSERT_EQ(Draw(src_td, dst_td, p), 0);
  ASSERT_EQ(Draw(src_bu, dst_bu, p), 0);
  int changed = 0;
  Image before = Background(70, 50, false);
  for (int32_t y = 0; y < 50; ++y)
    for (int32_t x = 0; x < 70; ++x) {
      ASSERT_EQ(dst_td.at(x, y), dst_bu.at(x, y)) << x << "," << y;
      changed += !(dst_td.at(x, y) == before.at(x, y));
    }
  EXPECT_GT(changed, 300);
}

TEST(IRMotionFormats, VuyaMatchesBgraOnTheSameBytes) {
  Place p;
  p.scale = {0.25f, 0.25f};
  p.rot = -12;
  Image src = Pattern(120, 60, false);
  Image a = Background(50, 40, false), b = Background(50, 40, false);
  ASSERT_EQ(Draw(src, a, p), 0);
  p.format = kIRFormatVUYA8;
  ASSERT_EQ(Draw(src, b, p), 0);
  EXPECT_EQ(a.bytes, b.bytes);
  EXPECT_NE(a.bytes, Background(50, 40, false).bytes);
}

TEST(IRMotionFormats, UnsupportedOrBadArgumentsLeaveTheDestinationUntouched) {
  Image src(4, 4, kWhite);
  Image dst = Background(8, 8, false);
  const std::vector<uint8_t> before = dst.bytes;
  const IR_Point c{0.5f, 0.5f}, one{1, 1};
  auto call = [&](int32_t sf, int32_t df, int32_t src_rb, int32_t dst_rb, void* d, IR_Point sc,
                  bool blend) {
    return IR_Motion(src.base(), src_rb, 4, 4, sf, 0, nullptr, d, dst_rb, 8, 8, df, 0, 1, 1, c, c,
                     sc, 0.0, 1.0f, blend, 0.0, false, 0, 4, true);
  };
  EXPECT_EQ(call(0x61726762, 0x61726762, 16, 32, dst.base(), one, true), -1);  // 'bgra' code
  EXPECT_EQ(call(5, 5, 16, 32, dst.base(), one, true), -1);
  EXPECT_EQ(call(kIRFormatBGRA8, kIRFormatVUYA8, 16, 32, dst.base(), one, true), -1);
  EXPECT_EQ(call(kIRFormatBGRA8, kIRFormatBGRA8, 12, 32, dst.base(), one, true), -1);
  EXPECT_EQ(call(kIRFormatBGRA8, kIRFormatBGRA8, 16, -28, dst.base(), one, true), -1);
  EXPECT_EQ(call(kIRFormatBGRA8, kIRFormatBGRA8, 16, 32, nullptr, one, true), -1);
  EXPECT_EQ(call(kIRFormatBGRA8, kIRFormatBGRA8, 16, 32, dst.base(), IR_Point{NAN, 1}, true), -1);
  EXPECT_EQ(call(kIRFormatBGRA8, kIRFormatBGRA8, 16, 32, dst.base(), one, false), -1);
  EXPECT_EQ(dst.bytes, before);
  EXPECT_TRUE(IR_IsOriginBottomLeft(kIRFormatBGRA8));
  EXPECT_FALSE(IR_IsOriginBottomLeft(kIRFormatVUYA8));
}

TEST(IRMotionEdges, OffFrameZeroScaleAndEmptyRectDrawNothing) {
  Image src(16, 16, kWhite);
  Image dst = Background(32, 32, false);
  const std::vector<uint8_t> before = dst.bytes;
  Place p;
  p.dst = {3.0f, 0.5f};  // far right of the frame
  EXPECT_EQ(Draw(src, dst, p), 0);
  p.dst = {0.5f, -0.3f};  // above, just out of reach of a 16-pixel source
  EXPECT_EQ(Draw(src, dst, p), 0);
  p.dst = {0.5f, 0.5f};
  p.scale = {0, 1};
  EXPECT_EQ(Draw(src, dst, p), 0);
  p.scale = {1, 1};
  const int32_t empty[4] = {5, 5, 5, 9};
  p.rect = empty;
  EXPECT_EQ(Draw(src, dst, p), 0);
  EXPECT_EQ(dst.bytes, before);

  // A partly visible source draws only its visible part, without touching memory outside.
  p.rect = nullptr;
  p.dst = {0, 0};
  EXPECT_EQ(Draw(src, dst, p), 0);
  ExpectPixels(dst, {{0, 0, kWhite}, {7, 7, kWhite}});
  EXPECT_EQ(dst.at(9, 9), Background(32, 32, false).at(9, 9));
}

TEST(IRMotionEdges, SourceRectLimitsTheSource) {
  Image src(8, 8, kWhite);
  for (int32_t y = 0; y < 8; ++y) src.at(6, y) = kRed;
  Image dst(8, 8, kBlack);
  Place p;
  p.src = {0, 0};
  p.dst = {0, 0};
  const int32_t rect[4] = {2, 1, 7, 5};  // columns 2..6, rows 1..4 in place
  p.rect = rect;
  ASSERT_EQ(Draw(src, dst, p), 0);
  ExpectPixels(dst, {{1, 2, kBlack},
                     {2, 1, kWhite},
                     {6, 4, kRed},
                     {7, 4, kBlack},
                     {3, 0, kBlack},
                     {3, 5, kBlack}});
}

TEST(IRMotionPrefiltered, KeptReductionGivesTheSameResultAsADirectCall) {
  Image src = Pattern(300, 120, true);
  Place p;
  p.scale = {0.25f, 0.26f};
  p.rot = 21;
  p.dst = {0.45f, 0.55f};
  int32_t fx = 0, fy = 0;
  IR_PrefilterFactors(p.scale, &fx, &fy);
  EXPECT_EQ(fx, 4);
  EXPECT_EQ(fy, 3);
  const uint64_t size = IR_PrefilterSize(300, 120, fx, fy);
  EXPECT_EQ(size, (75u + 2) * (40u + 2) * 4);
  std::vector<uint8_t> reduced(size);
  IR_Prefiltered pf;
  EXPECT_EQ(
      IR_Prefilter(src.base(), src.row_bytes(), 300, 120, fx, fy, reduced.data(), size - 1, &pf),
      -1);
  ASSERT_EQ(IR_Prefilter(src.base(), src.row_bytes(), 300, 120, fx, fy, reduced.data(), size, &pf),
            0);
  EXPECT_EQ(pf.width, 75);
  EXPECT_EQ(pf.height, 40);
  Image a = Background(100, 60, false), b = Background(100, 60, false);
  ASSERT_EQ(Draw(src, a, p), 0);
  for (int i = 0; i < 2; ++i)  // reused: the reduction is not consumed
  {
    b = Background(100, 60, false);
    ASSERT_EQ(IR_MotionPrefiltered(&pf, kIRFormatBGRA8, b.base(), b.row_bytes(), b.w, b.h, p.dst,
                                   p.src, p.scale, p.rot, p.opacity),
              0);
    EXPECT_EQ(a.bytes, b.bytes);
  }
  pf.width = 74;  // does not describe the source any more
  EXPECT_EQ(IR_MotionPrefiltered(&pf, kIRFormatBGRA8, b.base(), b.row_bytes(), b.w, b.h, p.dst,
                                 p.src, p.scale, p.rot, p.opacity),
            -1);
}

TEST(IRMotionLarge, BandsOnTwoThreadsCoverTheWholeFrame) {
  // A flat opaque source blown up over a full HD frame: every pixel must be drawn once.
  const Px colour{{12, 34, 56, 255}};
  Image src(64, 36, colour);
  Image dst(1920, 1080, kClear, true);
  Place p;
  p.scale = {40, 40};
  p.rot = 0.0001;  // not axis-aligned
  ASSERT_EQ(Draw(src, dst, p), 0);
  int wrong = 0;
  for (int32_t y = 0; y < 1080; ++y)
    for (int32_t x = 0; x < 1920; ++x) wrong += !(dst.at(x, y) == colour);
  EXPECT_EQ(wrong, 0);
}

}  // namespace

#if defined(__SSE2__)
#include "image_renderer/motion.h"

namespace {

TEST(IRMotionKernels, SimdRowEqualsScalarRow) {
  // A padded 40 x 30 reduction with arbitrary premultiplied content and a transparent border.
  const int32_t wp = 40, hp = 30;
  std::vector<uint8_t> src(static_cast<size_t>(wp) * hp * 4, 0);
  for (int32_t y = 1; y < hp - 1; ++y)
    for (int32_t x = 1; x < wp - 1; ++x) {
      uint8_t* p = &src[(static_cast<size_t>(y) * wp + x) * 4];
      // The right half is made of 4 x 4 blocks of one pixel each, opaque and translucent, so
      // that many samples see four equal pixels (the inside of a glyph).
      const int32_t bx = x < wp / 2 ? x : x / 4 * 4, by = x < wp / 2 ? y : y / 4 * 4;
      p[3] = (x >= wp / 2 && (bx / 4) % 2 == 0) ? 255
                                                : static_cast<uint8_t>((bx * 37 + by * 11) % 256);
      for (int c = 0; c < 3; ++c) p[c] = static_cast<uint8_t>(p[3] * ((bx + c * by) % 5) / 4);
    }
  struct Row {
    float u0, du, v0, dv, opacity;
  };
  // Upright, turned, magnified, running off every edge, half opaque.
  const Row rows[] = {{0.0f, 1.0f, 5.0f, 0.0f, 1.0f},
                      {-3.5f, 0.87f, 2.2f, 0.5f, 0.7f},
                      {30.0f, -0.31f, 28.9f, -0.2f, 1.0f},
                      {-5.0f, 0.25f, -2.0f, 0.6f, 0.5f},
                      {10.3f, 0.0f, 3.7f, 0.0f, 0.33f},
                      {-1e6f, 1e5f, 1e6f, -1e5f, 1.0f},
                      // Across the blocks, opaque and faded.
                      {18.0f, 0.3f, 4.1f, 0.2f, 1.0f},
                      {21.3f, 0.27f, 24.0f, -0.31f, 0.8f}};
  for (const Row& r : rows) {
    std::vector<uint8_t> a(64 * 4), b;
    for (size_t i = 0; i < a.size(); ++i) a[i] = static_cast<uint8_t>(i * 29 + 3);
    b = a;
    const std::vector<uint8_t> before = a;
    ir::BlendRowScalar(src.data(), wp, hp, r.u0, r.du, r.v0, r.dv, a.data(), 64, r.opacity);
    ir::BlendRowSse2(src.data(), wp, hp, r.u0, r.du, r.v0, r.dv, b.data(), 64, r.opacity);
    EXPECT_EQ(a, b) << r.u0 << " " << r.du;
    if (r.u0 == 0.0f) {
      EXPECT_NE(a, before);
    }
  }
}

}  // namespace
#endif

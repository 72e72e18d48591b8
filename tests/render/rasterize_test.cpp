// The rasterizer: placement, paint order, colour order, flipping, banding, anti-aliasing
// quality, damaged records, and the glyph cache under concurrent use.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <thread>

#include "image_diff.h"
#include "render/color.h"
#include "render/glyph_cache.h"
#include "render/rasterize.h"
#include "test_layouts.h"
#include "vetext/effect.h"
#include "vetext/vxcore.h"

namespace vetext {
namespace {

using vetext_test::Buffer;
using vetext_test::MakeLayout;
using vetext_test::Style;

Buffer Draw(const LayoutRecord& l, int32_t W, int32_t H, float ox = 0, float oy = 0,
            bool gpu = false, uint32_t format = kPixelFormatBGRA) {
  Buffer b(W, H);
  RasterizeLayout(l, b.data(), 4 * W, gpu, W, H, ox, oy, format);
  return b;
}

TEST(Rasterize, GlyphLandsOnItsBoxPremultiplied) {
  Style st;
  st.fill[0] = 1.0f;
  st.fill[1] = 0.5f;
  st.fill[2] = 0.0f;
  LayoutRecord l = MakeLayout("H", st, 20, 150);
  ASSERT_EQ(l.mCharacters.size(), 1u);
  ASSERT_NE(l.mCharacters[0].mGlyphID, 0);
  Buffer b = Draw(l, 200, 200, 5, 7);
  int32_t box[4];
  b.InkBox(box);
  const CharacterRecord& c = l.mCharacters[0];
  EXPECT_NEAR(box[0], c.mLeft + 5, 1.0);
  EXPECT_NEAR(box[1], c.mTop + 7, 1.0);
  EXPECT_NEAR(box[2], c.mLeft + c.mWidth + 5, 1.0);
  EXPECT_NEAR(box[3], c.mTop + c.mHeight + 7, 1.0);
  int full = 0;
  for (int32_t y = 0; y < b.H; ++y)
    for (int32_t x = 0; x < b.W; ++x) {
      const uint8_t* p = b.at(x, y);
      ASSERT_LE(p[0], p[3]);
      ASSERT_LE(p[1], p[3]);
      ASSERT_LE(p[2], p[3]);
      if (p[3] == 255) {
        ++full;
        ASSERT_EQ(p[0], 0);  // B
        ASSERT_EQ(p[1], 128);
        ASSERT_EQ(p[2], 255);  // R
      }
    }
  EXPECT_GT(full, 1000);
}

TEST(Rasterize, StrokeWidensTheInkByHalfItsWidth) {
  Style st;
  LayoutRecord fill = MakeLayout("H", st, 40, 170);
  st.stroke_width = 12;
  LayoutRecord stroked = MakeLayout("H", st, 40, 170);
  int32_t a[4], b[4];
  Draw(fill, 240, 240).InkBox(a, 127);
  Draw(stroked, 240, 240).InkBox(b, 127);
  EXPECT_NEAR(a[0] - b[0], 6, 1);
  EXPECT_NEAR(a[1] - b[1], 6, 1);
  EXPECT_NEAR(b[2] - a[2], 6, 1);
  EXPECT_NEAR(b[3] - a[3], 6, 1);
  // The square corners of "H" keep their miter (a round or bevel join would leave the corner
  // of the stroked box empty).
  Buffer s = Draw(stroked, 240, 240);
  EXPECT_GT(s.at(b[0] + 1, b[1] + 1)[3], 127);
}

TEST(Rasterize, PaintOrderDecidesWhatShowsWhereFillAndStrokeOverlap) {
  Style st;
  st.fill[0] = 1;
  st.fill[1] = st.fill[2] = 0;  // red
  st.stroke[2] = 1;             // blue
  st.stroke_width = 16;
  LayoutRecord fill_only = MakeLayout("O", Style{}, 40, 170);
  st.fill_first = true;
  LayoutRecord ff = MakeLayout("O", st, 40, 170);
  st.fill_first = false;
  LayoutRecord sf = MakeLayout("O", st, 40, 170);
  Buffer F = Draw(fill_only, 240, 240), A = Draw(ff, 240, 240), B = Draw(sf, 240, 240);
  int blue_inside_ff = 0, inside = 0, outside = 0;
  for (int32_t y = 0; y < 240; ++y)
    for (int32_t x = 0; x < 240; ++x) {
      const uint8_t *f = F.at(x, y), *a = A.at(x, y), *b = B.at(x, y);
      if (f[3] == 255) {
        ++inside;
        // Stroke first: the fill covers the inner half of the stroke completely.
        ASSERT_EQ(b[2], 255) << x << "," << y;
        ASSERT_EQ(b[0], 0) << x << "," << y;
        if (a[0] == 255) ++blue_inside_ff;
      } else if (f[3] == 0 && a[3] > 0) {
        ++outside;
        // Where there is no fill the order cannot matter.
        ASSERT_EQ(0, std::memcmp(a, b, 4)) << x << "," << y;
        ASSERT_EQ(a[2], 0);
      }
    }
  EXPECT_GT(inside, 1000);
  EXPECT_GT(outside, 1000);
  EXPECT_GT(blue_inside_ff, 500);
}

TEST(Rasterize, GpuVariantIsTheVerticalMirror) {
  Style st;
  st.stroke_width = 6;
  LayoutRecord l = MakeLayout("gAy", st, 10, 150);
  Buffer a = Draw(l, 300, 211, 3, 3), b = Draw(l, 300, 211, 3, 3, true);
  ASSERT_GT(a.AlphaSum(), 0u);
  for (int32_t y = 0; y < a.H; ++y)
    ASSERT_EQ(0, std::memcmp(a.at(0, y), b.at(0, a.H - 1 - y), size_t(a.W) * 4)) << y;
}

TEST(Rasterize, VuyaBuffersCarryVUYInThatOrder) {
  Style st;
  st.fill[0] = 1;
  st.fill[1] = 0;
  st.fill[2] = 0;
  LayoutRecord l = MakeLayout("I", st, 20, 150);
  Buffer b = Draw(l, 120, 200, 0, 0, false, kPixelFormatVUYA);
  VxYUV red = ColorRGBtoYUV(0xff);
  int full = 0;
  for (int32_t y = 0; y < b.H; ++y)
    for (int32_t x = 0; x < b.W; ++x)
      if (b.at(x, y)[3] == 255) {
        ++full;
        EXPECT_NEAR(b.at(x, y)[0], red.v + 128, 1);
        EXPECT_NEAR(b.at(x, y)[1], red.u + 128, 1);
        EXPECT_EQ(b.at(x, y)[2], red.y);
      }
  EXPECT_GT(full, 500);
}

TEST(Rasterize, TwoBandsPaintWhatOnePassPaints) {
  // 1100 x 600 is above the threshold for two threads; the same glyphs drawn into a buffer
  // below it (shifted by whole pixels, so every phase is the same) must match pixel for pixel,
  // including across the seam between the bands at row 300.
  static_assert(int64_t(1100) * 600 >= kRasterizeParallelPixels);
  Style st;
  st.size = 300;
  st.stroke_width = 10;
  LayoutRecord l = MakeLayout("Seam", st, 0, 0);
  Buffer big = Draw(l, 1100, 600, 100, 400);
  Buffer small = Draw(l, 900, 400, 50, 250);
  ASSERT_LT(int64_t(900) * 400, kRasterizeParallelPixels);
  ASSERT_GT(big.AlphaSum(), 0u);
  EXPECT_EQ(big.AlphaSum(), small.AlphaSum());
  for (int32_t y = 0; y < small.H; ++y)
    ASSERT_EQ(0, std::memcmp(small.at(0, y), big.at(50, y + 150), size_t(small.W) * 4)) << y;
}

// Coverage against a reference drawn at 4x the size and reduced by 4x4 box averaging.
TEST(Rasterize, AntiAliasingMatchesAnAreaReducedSupersample) {
  for (float size : {48.0f, 160.0f}) {
    Style st;
    st.size = size;
    st.stroke_width = size / 16;
    LayoutRecord l = MakeLayout("Wag&", st, 0, 0);
    Style big_st = st;
    big_st.size = size * 4;
    big_st.stroke_width = st.stroke_width * 4;
    LayoutRecord lb = MakeLayout("Wag&", big_st, 0, 0);
    const int32_t W = int32_t(size * 3.2f), H = int32_t(size * 1.5f);
    Buffer small = Draw(l, W, H, 10.25f, size * 1.1f);
    Buffer big = Draw(lb, W * 4, H * 4, 41, size * 4.4f);
    Buffer reduced = vetext_test::BoxReduce(big, 4);
    double psnr = vetext_test::Psnr(small, reduced, 3);
    EXPECT_GT(psnr, 34.0) << "size " << size;
  }
}

TEST(Rasterize, DamagedRecordsDrawNothingAndNeverWriteOutside) {
  Style st;
  LayoutRecord l = MakeLayout("A", st, 0, 150);
  CharacterRecord good = l.mCharacters[0];
  std::vector<CharacterRecord> bad(8, good);
  bad[0].mGlyphID = -1;
  bad[1].mGlyphID = 1 << 30;
  bad[2].mFontSize = -3;
  bad[3].mFontSize = NAN;
  bad[4].mFontSize = 1e30f;
  bad[5].mOriginX = INFINITY;
  bad[6].mOriginY = NAN;
  bad[7].mStrokeWidth = 1e30f;
  bad[7].mFontSize = 10;
  for (size_t i = 0; i < bad.size(); ++i) {
    LayoutRecord one;
    one.mCharacters = {bad[i]};
    Buffer b = Draw(one, 64, 64);
    if (i != 7) {
      EXPECT_EQ(b.AlphaSum(), 0u) << i;
    }
  }
  // A glyph hanging over every edge is clipped to the buffer: a 40 x 40 window inside a larger
  // canvas (row bytes of the canvas) leaves everything around the window untouched.
  st.size = 400;
  st.stroke_width = 100;
  LayoutRecord wide = MakeLayout("H", st, -60, 200);
  std::vector<uint8_t> canvas(200 * 200 * 4, 0xAB);
  uint8_t* window = canvas.data() + (80 * 200 + 80) * 4;
  for (int32_t y = 0; y < 40; ++y) std::memset(window + y * 800, 0, 160);
  RasterizeLayout(wide, window, 800, false, 40, 40, 0, 0);
  RasterizeLayout(wide, window, 800, true, 40, 40, 0, 0);
  size_t inside = 0;
  for (int32_t y = 0; y < 200; ++y)
    for (int32_t x = 0; x < 200; ++x) {
      bool in = x >= 80 && x < 120 && y >= 80 && y < 120;
      const uint8_t* p = &canvas[(size_t(y) * 200 + x) * 4];
      if (in)
        inside += p[3];
      else
        ASSERT_EQ(p[0] & p[1] & p[2] & p[3], 0xAB) << x << "," << y;
    }
  EXPECT_GT(inside, 0u);
  RasterizeLayout(wide, nullptr, 0, false, 40, 40, 0, 0);  // no buffer: nothing happens
}

TEST(GlyphCache, ReusesMasksAcrossFramesAndColours) {
  ClearGlyphCache();
  Style st;
  st.stroke_width = 4;
  LayoutRecord l = MakeLayout("glyph", st, 3.3f, 140);
  GlyphCacheStats s0 = GetGlyphCacheStats();
  Buffer first = Draw(l, 500, 200);
  GlyphCacheStats s1 = GetGlyphCacheStats();
  EXPECT_EQ(s1.misses, s0.misses + 5);
  EXPECT_EQ(s1.entries, 5u);
  for (auto& c : l.mCharacters) c.mFillGreen = 0.25f;  // colour change: same masks
  Buffer second = Draw(l, 500, 200);
  GlyphCacheStats s2 = GetGlyphCacheStats();
  EXPECT_EQ(s2.misses, s1.misses);
  EXPECT_EQ(s2.hits, s1.hits + 5);
  EXPECT_EQ(first.AlphaSum(), second.AlphaSum());
  EXPECT_NE(first.px, second.px);
  // A quarter-pixel move is a new phase and so a new mask.
  for (auto& c : l.mCharacters) c.mOriginX += 0.25f;
  Draw(l, 500, 200);
  EXPECT_EQ(GetGlyphCacheStats().misses, s1.misses + 5);
}

TEST(GlyphCache, FourThreadsWhileTheBudgetForcesEvictions) {
  ClearGlyphCache();
  const char* texts[4] = {"The quick", "brown fox", "jumps over", "lazy dogs"};
  std::vector<LayoutRecord> layouts;
  std::vector<Buffer> expected;
  for (int i = 0; i < 4; ++i) {
    Style st;
    st.size = 60 + 10 * i;
    st.stroke_width = float(i);
    st.fill_first = i % 2 == 0;
    layouts.push_back(MakeLayout(texts[i], st, 2.1f * i, 90));
    expected.push_back(Draw(layouts.back(), 600, 120));
  }
  SetGlyphCacheBudget(16 << 10);  // a few masks at most
  uint64_t evictions_before = GetGlyphCacheStats().evictions;
  std::atomic<int> mismatches{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (int round = 0; round < 30; ++round) {
        int i = (t + round) % 4;
        LayoutRecord l = layouts[i];
        for (auto& c : l.mCharacters) c.mOriginX += 0.25f * float(round % 4);
        Buffer b = Draw(l, 600, 120);
        if (round % 4 == 0 && b.px != expected[i].px) ++mismatches;
      }
    });
  for (auto& th : threads) th.join();
  GlyphCacheStats s = GetGlyphCacheStats();
  SetGlyphCacheBudget(64 << 20);
  EXPECT_EQ(mismatches.load(), 0);
  EXPECT_GT(s.evictions, evictions_before + 100);
  EXPECT_LE(s.bytes, size_t(16 << 10) + (64 << 10));  // at most the one mask just added
}

}  // namespace
}  // namespace vetext

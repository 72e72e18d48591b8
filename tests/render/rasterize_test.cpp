// The rasterizer (placement, paint order, banding, flipping, damaged records), the glyph cache,
// and the reduction assembled from reduced glyphs against the literal one.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <random>
#include <thread>
#include <tuple>

#include "ink.h"
#include "render/glyph_cache.h"
#include "render/rasterize.h"
#include "test_layouts.h"
#include "vetext/effect.h"
#include "vetext/image_renderer.h"

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

// Extent of the pixels whose alpha exceeds `threshold` (bytes 1 to 3: G and R never exceed A).
vetext_test::Ink InkOf(const Buffer& b, int threshold) {
  static const uint8_t zero[4] = {};
  return vetext_test::InkAgainst(
      b.W, b.H, [&](int32_t x, int32_t y) { return b.at(x, y) + 1; },
      [](int32_t, int32_t) { return zero; }, threshold);
}

Style Colours(float size, float stroke_width, bool fill_first = false) {
  Style st;
  st.size = size, st.stroke_width = stroke_width, st.fill_first = fill_first;
  st.fill[0] = 1, st.fill[1] = 0.5f, st.fill[2] = 0, st.stroke[2] = 1;  // orange, blue stroke
  return st;
}

TEST(Rasterize, GlyphsLandOnTheirBoxesAndPaintOrderDecidesTheOverlap) {
  LayoutRecord fill = MakeLayout("H", Colours(160, 0), 40, 170);
  LayoutRecord ff = MakeLayout("H", Colours(160, 12, true), 40, 170);
  LayoutRecord sf = MakeLayout("H", Colours(160, 12, false), 40, 170);
  Buffer F = Draw(fill, 240, 240, 5, 7), A = Draw(ff, 240, 240, 5, 7), B = Draw(sf, 240, 240, 5, 7);
  const CharacterRecord& c = fill.mCharacters[0];
  const vetext_test::Ink box = InkOf(F, 0), core = InkOf(F, 127), wide = InkOf(B, 127);
  EXPECT_NEAR(box.left, c.mLeft + 5, 1.0);
  EXPECT_NEAR(box.top, c.mTop + 7, 1.0);
  EXPECT_NEAR(box.right, c.mLeft + c.mWidth + 5, 1.0);
  EXPECT_NEAR(box.bottom, c.mTop + c.mHeight + 7, 1.0);
  for (int32_t grown : {core.left - wide.left, core.top - wide.top, wide.right - core.right,
                        wide.bottom - core.bottom})
    EXPECT_NEAR(grown, 6, 1);  // half the stroke width on every side
  // Square corners keep their miter (a round or bevel join leaves the box's corner empty).
  EXPECT_GT(B.at(wide.left + 1, wide.top + 1)[3], 127);
  const uint8_t orange[4] = {0, 128, 255, 255};  // B, G, R, A
  int blue_inside_ff = 0, inside = 0;
  for (int32_t y = 0; y < 240; ++y)
    for (int32_t x = 0; x < 240; ++x)
      if (F.at(x, y)[3] == 255) {
        ++inside;
        // Stroke first: the fill covers the inner half of the stroke completely.
        ASSERT_EQ(0, std::memcmp(F.at(x, y), orange, 4)) << x << "," << y;
        ASSERT_EQ(0, std::memcmp(B.at(x, y), orange, 4)) << x << "," << y;
        blue_inside_ff += A.at(x, y)[0] == 255;
      }
  EXPECT_GT(inside, 1000);
  EXPECT_GT(blue_inside_ff, 500);
}

TEST(Rasterize, TwoBandsPaintWhatOnePassPaintsAndTheGpuVariantIsItsMirror) {
  // 1100 x 600 is painted in two bands, 900 x 400 in one: the same glyphs (shifted by whole
  // pixels) match pixel for pixel, across the seam at row 300 too.
  static_assert(int64_t(1100) * 600 >= kRasterizeParallelPixels);
  static_assert(int64_t(900) * 400 < kRasterizeParallelPixels);
  LayoutRecord l = MakeLayout("Seam", Colours(300, 10), 0, 0);
  Buffer big = Draw(l, 1100, 600, 100, 400), flipped = Draw(l, 1100, 600, 100, 400, true);
  Buffer small = Draw(l, 900, 400, 50, 250);
  ASSERT_GT(big.AlphaSum(), 0u);
  EXPECT_EQ(big.AlphaSum(), small.AlphaSum());
  for (int32_t y = 0; y < small.H; ++y)
    ASSERT_EQ(0, std::memcmp(small.at(0, y), big.at(50, y + 150), size_t(small.W) * 4)) << y;
  for (int32_t y = 0; y < big.H; ++y)
    ASSERT_EQ(0, std::memcmp(big.at(0, y), flipped.at(0, big.H - 1 - y), size_t(big.W) * 4));
}

TEST(Rasterize, DamagedRecordsDrawNothingAndNeverWriteOutside) {
  // Placed so that a glyph drawn at any size about its origin would show.
  LayoutRecord good = MakeLayout("A", Style{}, 100, 150), bad, wide_stroke = good;
  std::vector<CharacterRecord>& r = bad.mCharacters;
  r.assign(7, good.mCharacters[0]);
  r[0].mGlyphID = -1, r[1].mGlyphID = 1 << 30, r[2].mFontSize = -3, r[3].mFontSize = NAN;
  r[4].mFontSize = 1e30f, r[5].mOriginX = INFINITY, r[6].mOriginY = NAN;
  EXPECT_EQ(Draw(bad, 200, 200).AlphaSum(), 0u);
  // No mask can hold this stroke: the fill alone is drawn.
  wide_stroke.mCharacters[0].mStrokeWidth = 1e30f;
  ASSERT_GT(Draw(good, 200, 200).AlphaSum(), 0u);
  EXPECT_EQ(Draw(wide_stroke, 200, 200).px, Draw(good, 200, 200).px);
  // A glyph hanging over every edge is clipped to the buffer: a 40 x 40 window inside a larger
  // canvas (row bytes of the canvas) leaves everything around the window untouched.
  LayoutRecord wide = MakeLayout("H", Colours(400, 100), -60, 200);
  Buffer canvas(200, 200);
  std::fill(canvas.px.begin(), canvas.px.end(), 0xAB);
  uint8_t* window = canvas.data() + (80 * 200 + 80) * 4;
  for (int32_t y = 0; y < 40; ++y) std::memset(window + y * 800, 0, 160);
  const Buffer before = canvas;
  RasterizeLayout(wide, window, 800, false, 40, 40, 0, 0);
  RasterizeLayout(wide, window, 800, true, 40, 40, 0, 0);
  uint64_t inside = 0;
  for (int32_t y = 0; y < 40; ++y) {
    for (int32_t x = 0; x < 40; ++x) inside += window[y * 800 + x * 4 + 3];
    std::memset(window + y * 800, 0, 160);
  }
  EXPECT_GT(inside, 0u);
  EXPECT_EQ(canvas.px, before.px);                         // nothing around the window was touched
  RasterizeLayout(wide, nullptr, 0, false, 40, 40, 0, 0);  // no buffer: nothing happens
}

TEST(GlyphCache, FourThreadsWhileTheBudgetForcesEvictions) {
  ClearGlyphCache();
  const char* texts[4] = {"The quick", "brown fox", "jumps over", "lazy dogs"};
  std::vector<LayoutRecord> layouts;
  std::vector<Buffer> expected;
  for (int i = 0; i < 4; ++i) {
    layouts.push_back(MakeLayout(texts[i], Colours(60 + 10 * i, i, i % 2 == 0), 2.1f * i, 90));
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

TEST(ReducedRaster, MatchesTheLiteralReductionWithinRoundingFromCachedMasks) {
  struct Case {
    const char* text;  // spaced glyphs share no 4 x 4 block; "TEXT Wgij" overlap their strokes
    float size, stroke, ox, oy;
    int32_t W, H, max_diff;
    double mean_diff;
    bool fill_first;
    uint32_t format;
  };
  const Case cases[] = {
      {"W  g  e", 96, 0, 8, 100.5f, 400, 140, 2, 0.05, false, kPixelFormatBGRA},
      {"O", 120, 10, 13.25f, 130.5f, 140, 160, 3, 0.1, false, kPixelFormatBGRA},
      {"O", 120, 10, 13.25f, 130.5f, 140, 160, 3, 0.1, true, kPixelFormatBGRA},
      {"H", 100, 0, 10, 100, 120, 120, 2, 0.05, false, kPixelFormatVUYA},
      {"TEXT Wgij", 160, 16, 20, 180, 900, 240, 255, 0.2, false, kPixelFormatBGRA},
      // Cut by the buffer: left and right (a width that ends inside a block), top and bottom.
      {"W", 100, 0, -10, 80, 62, 100, 2, 0.05, false, kPixelFormatBGRA},
      {"Wg", 100, 8, 3, 60, 150, 70, 3, 0.1, true, kPixelFormatBGRA},
  };
  for (const Case& k : cases)
    for (float dx : {0.0f, 1.25f, 2.5f, 3.75f}) {  // every sub-block position and phase
      SCOPED_TRACE(testing::Message() << k.text << " fill first " << k.fill_first << " " << dx);
      LayoutRecord l = MakeLayout(k.text, Colours(k.size, k.stroke, k.fill_first), 0, 0);
      Buffer full = Draw(l, k.W, k.H, k.ox + dx, k.oy, false, k.format);
      Buffer literal((k.W + 3) / 4 + 2, (k.H + 3) / 4 + 2), direct = literal;
      IR_Prefiltered pf;
      ASSERT_EQ(IR_Prefilter(full.data(), 4 * k.W, k.W, k.H, 4, 4, literal.data(),
                             literal.px.size(), &pf),
                0);
      ASSERT_TRUE(RasterizeLayoutReduced(l, k.W, k.H, k.ox + dx, k.oy, k.format, direct.data()));
      const vetext_tool::DiffStats d = vetext_test::Diff(direct, literal);
      EXPECT_LE(d.max_abs, k.max_diff);
      EXPECT_LT(d.mean_abs, k.mean_diff);
      EXPECT_NEAR(double(direct.AlphaSum()) / double(literal.AlphaSum()), 1.0, 0.002);  // drawn
      // Drawn again (a later frame, here in another colour): the same masks, no new ones.
      const uint64_t misses = GetGlyphCacheStats().misses;
      for (auto& c : l.mCharacters) c.mFillGreen = 0.25f;
      Buffer again(direct.W, direct.H);
      ASSERT_TRUE(RasterizeLayoutReduced(l, k.W, k.H, k.ox + dx, k.oy, k.format, again.data()));
      EXPECT_EQ(GetGlyphCacheStats().misses, misses);
      EXPECT_NE(again.px, direct.px);
    }
  LayoutRecord l = MakeLayout("W", Colours(100, 0), 0, 0);
  EXPECT_FALSE(RasterizeLayoutReduced(l, 60, 60, 0, 80, kPixelFormatBGRA, nullptr));
}

TEST(ReducedRaster, SimdRowBlendEqualsScalar) {
  std::mt19937 rng(7);
  const uint8_t top[4] = {250, 20, 128, 255}, bot[4] = {0, 200, 33, 255};
  for (int n : {1, 3, 4, 7, 16, 33})
    for (bool stroked : {false, true}) {
      std::vector<uint8_t> t(n), b(n), d(4 * n);
      for (size_t i = 0; i < size_t(n); ++i) {
        // Weights that sum to a coverage, some groups fully empty, over a premultiplied
        // destination (colour <= alpha) with some groups not drawn yet.
        const bool empty = (i / 4) % 3 == 1, fresh = (i / 4) % 2 == 0;
        t[i] = empty ? 0 : uint8_t(rng());
        b[i] = stroked && !empty ? uint8_t(rng() % (256 - t[i])) : 0;
        d[i * 4 + 3] = fresh ? 0 : uint8_t(rng());
        for (int k = 0; k < 3; ++k) d[i * 4 + k] = fresh ? 0 : uint8_t(rng() % (d[i * 4 + 3] + 1));
      }
      std::vector<uint8_t> a = d, s = d;
      BlendReducedRow(t.data(), stroked ? b.data() : nullptr, top, bot, a.data(), n, true);
      BlendReducedRow(t.data(), stroked ? b.data() : nullptr, top, bot, s.data(), n, false);
      EXPECT_EQ(a, s) << n << " " << stroked;
      EXPECT_NE(a, d) << n;  // something was blended
    }
}

TEST(ReducedGlyphMask, EqualsTheBlockMeansOfTheFullMaskAtEveryOffset) {
  // Glyphs wide and narrow (rows longer and shorter than one SIMD step), plain and stroked in
  // both orders, at every sub-block offset and several phases. The means are computed here
  // pixel by pixel, the lower layer showing through the upper as the literal blend paints it.
  const std::u16string font = u"Liberation Sans";
  // Each font has its own masks, also for the same glyph index at the same size.
  const int32_t w = vetext_test::GlyphOf(font, 'W');
  EXPECT_NE(GetGlyphMask(font, w, 100, 0, 0, 0)->fill,
            GetGlyphMask(u"Liberation Serif", w, 100, 0, 0, 0)->fill);
  for (auto [ch, size, stroke, fill_first] :
       {std::tuple{'W', 200.0f, 0.0f, false}, std::tuple{'g', 160.0f, 12.0f, false},
        std::tuple{'O', 120.0f, 9.0f, true}, std::tuple{'.', 14.0f, 0.0f, false},
        std::tuple{'i', 18.0f, 3.0f, true}}) {
    const int32_t glyph = vetext_test::GlyphOf(font, char32_t(ch));
    ASSERT_NE(glyph, 0) << ch;
    const bool stroked = stroke != 0;
    for (int phase : {0, 1, 3}) {
      auto m = GetGlyphMask(font, glyph, size, stroke, phase, 3 - phase);
      ASSERT_TRUE(m) << ch;
      for (int sub = 0; sub < 16; ++sub) {
        const int sx = sub % 4, sy = sub / 4;
        auto red =
            GetReducedGlyphMask(font, glyph, size, stroke, phase, 3 - phase, sx, sy, fill_first);
        ASSERT_TRUE(red);
        ASSERT_EQ(red->width, (sx + m->width + 3) / 4);
        ASSERT_EQ(red->height, (sy + m->height + 3) / 4);
        std::vector<long> top(size_t(red->width) * size_t(red->height)), bot(top.size());
        for (int32_t y = 0; y < m->height; ++y)
          for (int32_t x = 0; x < m->width; ++x) {
            const size_t i = size_t(y) * size_t(m->width) + size_t(x);
            const int f = m->fill[i], st = stroked ? m->stroke[i] : 0;
            const int ta = fill_first ? st : f, ba = fill_first ? f : st;
            const size_t o = size_t((y + sy) / 4) * size_t(red->width) + size_t((x + sx) / 4);
            top[o] += ta;
            bot[o] += std::lround(double(ba) * double(255 - ta) / 255.0);
          }
        std::vector<uint8_t> want_top(top.size()), want_bot(stroked ? top.size() : 0);
        for (size_t i = 0; i < top.size(); ++i) {
          want_top[i] = uint8_t(std::floor(double(top[i]) / 16.0 + 0.5));
          if (stroked)
            want_bot[i] =
                uint8_t(std::min(std::floor(double(bot[i]) / 16.0 + 0.5), 255.0 - want_top[i]));
        }
        SCOPED_TRACE(testing::Message() << ch << " phase " << phase << " sub " << sub);
        EXPECT_EQ(red->fill, want_top);
        EXPECT_EQ(red->stroke, want_bot);
      }
    }
  }
}

}  // namespace
}  // namespace vetext

// The reduction assembled from reduced glyphs against the literal one (the 4x picture reduced
// 4 x 4 by the compositor's prefilter), and the SIMD row blend against its scalar reference.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>
#include <vector>

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

struct Compared {
  int max_diff = 0;
  double mean_diff = 0;
  uint64_t alpha_direct = 0, alpha_literal = 0;
};

// Both reductions of `l` in a W x H buffer drawn from (ox, oy); false when the direct path
// refuses the layout.
bool Compare(const LayoutRecord& l, int32_t W, int32_t H, float ox, float oy, Compared* c,
             uint32_t format = kPixelFormatBGRA) {
  Buffer full(W, H);
  RasterizeLayout(l, full.data(), 4 * W, false, W, H, ox, oy, format);
  const uint64_t size = IR_PrefilterSize(W, H, 4, 4);
  std::vector<uint8_t> literal(size), direct(size, 0);
  IR_Prefiltered pf;
  EXPECT_EQ(IR_Prefilter(full.data(), 4 * W, W, H, 4, 4, literal.data(), size, &pf), 0);
  if (!RasterizeLayoutReduced(l, W, H, ox, oy, format, direct.data())) return false;
  uint64_t sum = 0;
  for (size_t i = 0; i < size; ++i) {
    int d = std::abs(int(direct[i]) - int(literal[i]));
    c->max_diff = std::max(c->max_diff, d);
    sum += uint64_t(d);
    if (i % 4 == 3) c->alpha_direct += direct[i], c->alpha_literal += literal[i];
  }
  c->mean_diff = double(sum) / double(size);
  return true;
}

TEST(ReducedRaster, SeparateGlyphsMatchTheLiteralReductionWithinRounding) {
  // Wide letter spacing: no two glyphs share a 4 x 4 block. Every sub-block position and
  // phase is met across the origins tried.
  Style s;
  s.size = 96;
  s.fill[0] = 1, s.fill[1] = 0.5f, s.fill[2] = 0.25f;
  for (float ox : {8.0f, 9.25f, 10.5f, 11.75f}) {
    LayoutRecord l;
    for (int i = 0; i < 3; ++i) {
      LayoutRecord one = MakeLayout(i == 0 ? "W" : i == 1 ? "g" : "e", s, float(i) * 120.0f, 0);
      l.mCharacters.push_back(one.mCharacters[0]);
    }
    Compared c;
    ASSERT_TRUE(Compare(l, 400, 140, ox, 100.5f, &c)) << ox;
    EXPECT_LE(c.max_diff, 2) << ox;
    EXPECT_LT(c.mean_diff, 0.05) << ox;
    EXPECT_GT(c.alpha_direct, 50000u);  // the glyphs were drawn at all
  }
}

TEST(ReducedRaster, StrokedGlyphsKeepTheirOwnPaintOrder) {
  for (bool fill_first : {false, true}) {
    Style s;
    s.size = 120;
    s.stroke_width = 10;
    s.fill_first = fill_first;
    s.fill[0] = 1, s.fill[1] = 1, s.fill[2] = 0;
    s.stroke[0] = 0.9f, s.stroke[1] = 0.1f, s.stroke[2] = 0.1f;
    LayoutRecord l = MakeLayout("O", s, 0, 0);
    Compared c;
    ASSERT_TRUE(Compare(l, 140, 160, 13.25f, 130.5f, &c));
    EXPECT_LE(c.max_diff, 3) << fill_first;
    EXPECT_LT(c.mean_diff, 0.1) << fill_first;
  }
}

TEST(ReducedRaster, TouchingGlyphsStayCloseToTheLiteralReduction) {
  // A title with strokes that overlap their neighbours: differences only along shared edges.
  Style s;
  s.size = 160;
  s.stroke_width = 16;
  s.fill_first = false;
  LayoutRecord l = MakeLayout("TEXT Wgij", s, 0, 0);
  Compared c;
  ASSERT_TRUE(Compare(l, 900, 240, 20, 180, &c));
  EXPECT_LT(c.mean_diff, 0.2);
  const double ratio = double(c.alpha_direct) / double(c.alpha_literal);
  EXPECT_NEAR(ratio, 1.0, 0.002);
}

TEST(ReducedRaster, VuyaColoursGoInTheFormatsOrder) {
  Style s;
  s.size = 100;
  s.fill[0] = 0.2f, s.fill[1] = 0.7f, s.fill[2] = 0.4f;
  LayoutRecord l = MakeLayout("H", s, 0, 0);
  Compared c;
  ASSERT_TRUE(Compare(l, 120, 120, 10, 100, &c, kPixelFormatVUYA));
  EXPECT_LE(c.max_diff, 2);
}

TEST(ReducedRaster, GlyphsPastTheEdgeAreRefusedAndNothingIsDrawn) {
  Style s;
  s.size = 100;
  LayoutRecord l = MakeLayout("W", s, 0, 0);
  const uint64_t size = IR_PrefilterSize(60, 60, 4, 4);
  std::vector<uint8_t> out(size, 0);
  EXPECT_FALSE(RasterizeLayoutReduced(l, 60, 60, -10, 80, kPixelFormatBGRA, out.data()));
  for (uint8_t b : out) ASSERT_EQ(b, 0);
  EXPECT_FALSE(RasterizeLayoutReduced(l, 60, 60, 0, 80, kPixelFormatBGRA, nullptr));
}

TEST(ReducedRaster, SimdRowBlendEqualsScalar) {
  std::mt19937 rng(7);
  for (int n : {1, 3, 4, 7, 16, 33}) {
    for (bool stroked : {false, true}) {
      std::vector<uint8_t> t(static_cast<size_t>(n)), b(static_cast<size_t>(n)),
          d(static_cast<size_t>(n) * 4);
      for (int i = 0; i < n; ++i) {
        // Weights that sum to a coverage, some groups fully empty.
        t[size_t(i)] = (i / 4) % 3 == 1 ? 0 : uint8_t(rng() % 256);
        b[size_t(i)] = stroked ? uint8_t(rng() % (256 - t[size_t(i)])) : 0;
        if ((i / 4) % 3 == 1) b[size_t(i)] = 0;
      }
      for (auto& x : d) x = uint8_t(rng());
      for (int i = 0; i < n; ++i) {  // destination premultiplied: colour <= alpha
        uint8_t* p = &d[size_t(i) * 4];
        for (int k = 0; k < 3; ++k) p[k] = std::min(p[k], p[3]);
        if ((i / 4) % 2 == 0) std::fill(p, p + 4, uint8_t{0});  // nothing drawn here yet
      }
      const uint8_t top[4] = {250, 20, 128, 255}, bot[4] = {0, 200, 33, 255};
      std::vector<uint8_t> a = d, s = d;
      BlendReducedRow(t.data(), stroked ? b.data() : nullptr, top, bot, a.data(), n, true);
      BlendReducedRow(t.data(), stroked ? b.data() : nullptr, top, bot, s.data(), n, false);
      EXPECT_EQ(a, s) << n << " " << stroked;
      EXPECT_NE(a, d) << n;  // something was blended
    }
  }
}

// The block means of a full mask, computed pixel by pixel: the reduced mask must equal them.
struct Means {
  int32_t w = 0, h = 0;
  std::vector<int> top, bot;
};
Means BlockMeans(const GlyphMask& m, int sub_x, int sub_y, bool fill_first) {
  Means r;
  r.w = (sub_x + m.width + 3) / 4;
  r.h = (sub_y + m.height + 3) / 4;
  std::vector<long> top(size_t(r.w) * size_t(r.h)), bot(top.size());
  const bool stroked = !m.stroke.empty();
  for (int32_t y = 0; y < m.height; ++y)
    for (int32_t x = 0; x < m.width; ++x) {
      const size_t i = size_t(y) * size_t(m.width) + size_t(x);
      const int f = m.fill[i], st = stroked ? m.stroke[i] : 0;
      const int ta = stroked && fill_first ? st : f, ba = stroked && fill_first ? f : st;
      const size_t o = size_t((y + sub_y) / 4) * size_t(r.w) + size_t((x + sub_x) / 4);
      top[o] += ta;
      bot[o] += int(std::lround(double(ba) * double(255 - ta) / 255.0));
    }
  for (size_t i = 0; i < top.size(); ++i) {
    r.top.push_back(int(std::floor(double(top[i]) / 16.0 + 0.5)));
    r.bot.push_back(std::min(int(std::floor(double(bot[i]) / 16.0 + 0.5)), 255 - r.top.back()));
  }
  return r;
}

TEST(ReducedGlyphMask, EqualsTheBlockMeansOfTheFullMaskAtEveryOffset) {
  // Glyphs wide and narrow (rows longer and shorter than one SIMD step), plain and stroked in
  // both orders, at every sub-block offset and several phases.
  const std::u16string font = u"Liberation Sans";
  struct Case {
    char ch;
    float size, stroke;
    bool fill_first;
  };
  for (const Case& c : {Case{'W', 200, 0, false}, Case{'g', 160, 12, false},
                        Case{'O', 120, 9, true}, Case{'.', 14, 0, false}, Case{'i', 18, 3, true}}) {
    const int32_t glyph = vetext_test::GlyphOf(font, char32_t(c.ch));
    ASSERT_NE(glyph, 0) << c.ch;
    for (int phase : {0, 1, 3}) {
      auto full = GetGlyphMask(font, glyph, c.size, c.stroke, phase, 3 - phase);
      ASSERT_TRUE(full) << c.ch;
      ASSERT_EQ(full->stroke.empty(), c.stroke == 0) << c.ch;
      for (int sub = 0; sub < 16; ++sub) {
        const int sx = sub % 4, sy = sub / 4;
        auto red = GetReducedGlyphMask(font, glyph, c.size, c.stroke, phase, 3 - phase, sx, sy,
                                       c.fill_first);
        ASSERT_TRUE(red);
        const Means want = BlockMeans(*full, sx, sy, c.fill_first);
        ASSERT_EQ(red->width, want.w);
        ASSERT_EQ(red->height, want.h);
        std::vector<int> got_top(red->fill.begin(), red->fill.end());
        EXPECT_EQ(got_top, want.top) << c.ch << " phase " << phase << " sub " << sx << sy;
        if (c.stroke == 0) {
          EXPECT_TRUE(red->stroke.empty());
        } else {
          std::vector<int> got_bot(red->stroke.begin(), red->stroke.end());
          EXPECT_EQ(got_bot, want.bot) << c.ch << " phase " << phase << " sub " << sx << sy;
        }
      }
    }
  }
}

TEST(ReducedGlyphMask, ALaterFrameWithTheSameGlyphsAtTheSamePhasesReducesNothingNew) {
  // A title redrawn every frame: the same glyphs at the same place, then moved by whole
  // reduced pixels (a buffer placed elsewhere), make no new masks and the same picture, moved.
  ClearGlyphCache();
  Style s;
  s.size = 160;
  s.stroke_width = 16;
  LayoutRecord l = MakeLayout("TEXT 1201", s, 0, 0);
  const int32_t W = 1000, H = 260, rw = W / 4 + 2, rh = H / 4 + 2;
  auto draw = [&](float ox, float oy) {
    std::vector<uint8_t> out(size_t(rw) * size_t(rh) * 4, 0);
    EXPECT_TRUE(RasterizeLayoutReduced(l, W, H, ox, oy, kPixelFormatBGRA, out.data()));
    return out;
  };
  const std::vector<uint8_t> first = draw(10.3f, 190.6f);
  const GlyphCacheStats s1 = GetGlyphCacheStats();
  EXPECT_GT(s1.misses, 0u);
  const std::vector<uint8_t> again = draw(10.3f, 190.6f);
  const GlyphCacheStats s2 = GetGlyphCacheStats();
  EXPECT_EQ(s2.misses, s1.misses);
  EXPECT_GT(s2.hits, s1.hits);
  EXPECT_EQ(again, first);
  const std::vector<uint8_t> moved = draw(10.3f + 8, 190.6f + 12);  // 2 and 3 reduced pixels
  EXPECT_EQ(GetGlyphCacheStats().misses, s1.misses);
  uint64_t alpha = 0;
  for (int32_t y = 0; y + 3 < rh; ++y)
    for (int32_t x = 0; x + 2 < rw; ++x)
      for (int k = 0; k < 4; ++k) {
        const uint8_t a = first[(size_t(y) * rw + x) * 4 + k];
        ASSERT_EQ(moved[(size_t(y + 3) * rw + x + 2) * 4 + k], a) << x << "," << y;
        if (k == 3) alpha += a;
      }
  EXPECT_GT(alpha, 100000u);
  // A move by a quarter of a reduced pixel lands every glyph on another sub-block offset.
  draw(11.3f, 190.6f);
  EXPECT_GT(GetGlyphCacheStats().misses, s1.misses);
}

}  // namespace
}  // namespace vetext

// The rasterizer's cost for a title (20 glyphs, 4x of 48 px, stroked) and a paragraph (300
// glyphs, 4x of 24 px, stroked), against the floor of one 1080p frame copy in the same run:
//   - FreeType: coverage made from the outlines every time (the glyph cache cleared first);
//   - FreeType, cached: coverage masks from the glyph cache, blended (text that changes every
//     frame but reuses its glyphs);
//   - Cairo: the same glyphs as paths, filled and stroked with a miter join, limit 4.
// Run: FONTCONFIG_FILE=fonts/fonts.conf build/bench/rasterize/bench_rasterize
#include <benchmark/benchmark.h>
#include <cairo-ft.h>
#include <cairo.h>

#include <cstring>
#include <string>
#include <vector>

#include "render/geometry.h"
#include "render/glyph_cache.h"
#include "render/rasterize.h"
#include "test_layouts.h"

namespace {

using vetext::LayoutRecord;

struct Case {
  LayoutRecord layout;
  vetext::RasterGeometry g;
};

Case MakeCase(bool paragraph) {
  vetext_test::Style st;
  st.stroke_width = 8;
  Case c;
  if (!paragraph) {
    st.size = 192;
    c.layout = vetext_test::MakeLayout("Breaking News Tonight", st, 0, 0);
  } else {
    st.size = 96;
    std::string text =
        "The quick brown fox jumps over the lazy dog while the band plays on and on, ";
    float y = 0;
    LayoutRecord all;
    for (int line = 0; line < 4; ++line, y += 115) {
      LayoutRecord l = vetext_test::MakeLayout(text, st, 0, y);
      all.mCharacters.insert(all.mCharacters.end(), l.mCharacters.begin(), l.mCharacters.end());
      if (line == 0) {
        all.mLeft = l.mLeft;
        all.mTop = l.mTop;
        all.mRight = l.mRight;
      }
      all.mBottom = l.mBottom;
    }
    c.layout = all;
  }
  c.g = vetext::ComputeRasterGeometry(c.layout);
  return c;
}

const Case& Title() {
  static Case c = MakeCase(false);
  return c;
}
const Case& Paragraph() {
  static Case c = MakeCase(true);
  return c;
}

void RunFreeType(benchmark::State& state, const Case& c, bool cached) {
  std::vector<uint8_t> buf(size_t(c.g.W) * c.g.H * 4);
  for (auto _ : state) {
    if (!cached) {
      state.PauseTiming();
      vetext::ClearGlyphCache();
      state.ResumeTiming();
    }
    std::memset(buf.data(), 0, buf.size());
    vetext::RasterizeLayout(c.layout, buf.data(), 4 * c.g.W, false, c.g.W, c.g.H, c.g.ox, c.g.oy);
    benchmark::DoNotOptimize(buf.data());
  }
  state.counters["glyphs"] = double(c.layout.mCharacters.size());
}

void RunCairo(benchmark::State& state, const Case& c) {
  std::vector<uint8_t> buf(size_t(c.g.W) * c.g.H * 4);
  int index = 0;
  std::string file = vetext::ResolveFontFile(c.layout.mCharacters[0].mFontName, &index);
  FT_Library lib;
  FT_Init_FreeType(&lib);
  FT_Face face;
  FT_New_Face(lib, file.c_str(), index, &face);
  cairo_font_face_t* ff = cairo_ft_font_face_create_for_ft_face(face, FT_LOAD_NO_HINTING);
  for (auto _ : state) {
    std::memset(buf.data(), 0, buf.size());
    cairo_surface_t* s = cairo_image_surface_create_for_data(buf.data(), CAIRO_FORMAT_ARGB32, c.g.W,
                                                             c.g.H, 4 * c.g.W);
    cairo_t* cr = cairo_create(s);
    cairo_set_font_face(cr, ff);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_MITER);
    cairo_set_miter_limit(cr, 4.0);
    for (const vetext::CharacterRecord& ch : c.layout.mCharacters) {
      cairo_set_font_size(cr, ch.mFontSize);
      cairo_glyph_t glyph{static_cast<unsigned long>(ch.mGlyphID), ch.mOriginX + c.g.ox,
                          ch.mOriginY + c.g.oy};
      cairo_new_path(cr);
      cairo_glyph_path(cr, &glyph, 1);
      cairo_set_line_width(cr, ch.mStrokeWidth);
      cairo_set_source_rgb(cr, ch.mStrokeRed, ch.mStrokeGreen, ch.mStrokeBlue);
      cairo_stroke_preserve(cr);
      cairo_set_source_rgb(cr, ch.mFillRed, ch.mFillGreen, ch.mFillBlue);
      cairo_fill(cr);
    }
    cairo_destroy(cr);
    cairo_surface_destroy(s);
    benchmark::DoNotOptimize(buf.data());
  }
  cairo_font_face_destroy(ff);
  FT_Done_Face(face);
  FT_Done_FreeType(lib);
  state.counters["glyphs"] = double(c.layout.mCharacters.size());
}

void BM_FrameCopy1080p(benchmark::State& state) {
  std::vector<uint8_t> a(1920 * 1080 * 4, 7), b(a.size());
  for (auto _ : state) {
    std::memcpy(b.data(), a.data(), a.size());
    benchmark::DoNotOptimize(b.data());
  }
}
BENCHMARK(BM_FrameCopy1080p);

void BM_Title_FreeType(benchmark::State& s) {
  RunFreeType(s, Title(), false);
}
void BM_Title_FreeTypeCached(benchmark::State& s) {
  RunFreeType(s, Title(), true);
}
void BM_Title_Cairo(benchmark::State& s) {
  RunCairo(s, Title());
}
void BM_Paragraph_FreeType(benchmark::State& s) {
  RunFreeType(s, Paragraph(), false);
}
void BM_Paragraph_FreeTypeCached(benchmark::State& s) {
  RunFreeType(s, Paragraph(), true);
}
void BM_Paragraph_Cairo(benchmark::State& s) {
  RunCairo(s, Paragraph());
}
BENCHMARK(BM_Title_FreeType)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Title_FreeTypeCached)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Title_Cairo)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Paragraph_FreeType)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Paragraph_FreeTypeCached)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Paragraph_Cairo)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();

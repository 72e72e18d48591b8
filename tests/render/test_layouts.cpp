#include "test_layouts.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <algorithm>
#include <cmath>
#include <limits>
#include <mutex>

#include "render/glyph_cache.h"

namespace vetext_test {
namespace {

struct Font {
  FT_Library lib = nullptr;
  FT_Face face = nullptr;
};

// Every font opened here, released at exit so the leak checker sees nothing of ours.
struct FontTable {
  std::vector<std::pair<std::u16string, Font>> fonts;
  ~FontTable() {
    for (auto& [name, f] : fonts) {
      if (f.face != nullptr) FT_Done_Face(f.face);
      if (f.lib != nullptr) FT_Done_FreeType(f.lib);
    }
  }
};

// Test-side FreeType access, to learn glyph indices, advances and boxes independently of the
// renderer's own face table.
Font& FontFor(const std::u16string& name) {
  static std::mutex m;
  static FontTable table;
  auto& fonts = table.fonts;
  std::lock_guard<std::mutex> lock(m);
  for (auto& f : fonts)
    if (f.first == name) return f.second;
  Font f;
  int index = 0;
  std::string file = vetext::ResolveFontFile(name, &index);
  FT_Init_FreeType(&f.lib);
  if (!file.empty()) FT_New_Face(f.lib, file.c_str(), index, &f.face);
  fonts.emplace_back(name, f);
  return fonts.back().second;
}

}  // namespace

int32_t GlyphOf(const std::u16string& font, char32_t ch) {
  Font& f = FontFor(font);
  return f.face ? int32_t(FT_Get_Char_Index(f.face, FT_ULong(ch))) : 0;
}

vetext::LayoutRecord MakeLayout(const std::string& text, const Style& style, float x, float y) {
  vetext::LayoutRecord layout;
  Font& f = FontFor(style.font);
  float left = std::numeric_limits<float>::max(), top = left, right = -left, bottom = -left;
  for (char ch : text) {
    FT_Set_Char_Size(f.face, 0, FT_F26Dot6(std::lround(style.size * 64)), 72, 72);
    FT_UInt gid = FT_Get_Char_Index(f.face, FT_ULong(uint8_t(ch)));
    FT_Load_Glyph(f.face, gid, FT_LOAD_NO_HINTING);
    const FT_Glyph_Metrics& gm = f.face->glyph->metrics;
    float adv = float(f.face->glyph->advance.x) / 64.0f;
    if (ch != ' ') {
      vetext::CharacterRecord c;
      c.mGlyphID = int32_t(gid);
      c.mFontName = style.font;
      c.mFontSize = style.size;
      c.mOriginX = x;
      c.mOriginY = y;
      c.mLeft = x + float(gm.horiBearingX) / 64.0f;
      c.mTop = y - float(gm.horiBearingY) / 64.0f;
      c.mWidth = float(gm.width) / 64.0f;
      c.mHeight = float(gm.height) / 64.0f;
      c.mFillRed = style.fill[0];
      c.mFillGreen = style.fill[1];
      c.mFillBlue = style.fill[2];
      c.mStrokeRed = style.stroke[0];
      c.mStrokeGreen = style.stroke[1];
      c.mStrokeBlue = style.stroke[2];
      c.mStrokeWidth = style.stroke_width;
      c.mFillFirst = style.fill_first;
      c.mAlignment = 2;
      left = std::min(left, c.mLeft);
      top = std::min(top, c.mTop);
      right = std::max(right, c.mLeft + c.mWidth);
      bottom = std::max(bottom, c.mTop + c.mHeight);
      layout.mCharacters.push_back(c);
    }
    x += adv;
  }
  if (!layout.mCharacters.empty()) {
    layout.mLeft = left;
    layout.mTop = top;
    layout.mRight = right;
    layout.mBottom = bottom;
  }
  return layout;
}

void Buffer::InkBox(int32_t box[4], uint8_t threshold) const {
  int32_t l = W, t = H, r = -1, b = -1;
  for (int32_t y = 0; y < H; ++y)
    for (int32_t x = 0; x < W; ++x)
      if (at(x, y)[3] > threshold) {
        l = std::min(l, x);
        t = std::min(t, y);
        r = std::max(r, x);
        b = std::max(b, y);
      }
  if (r < 0) {
    box[0] = box[1] = box[2] = box[3] = 0;
    return;
  }
  box[0] = l;
  box[1] = t;
  box[2] = r + 1;
  box[3] = b + 1;
}

uint64_t Buffer::AlphaSum() const {
  uint64_t s = 0;
  for (size_t i = 3; i < px.size(); i += 4) s += px[i];
  return s;
}

}  // namespace vetext_test

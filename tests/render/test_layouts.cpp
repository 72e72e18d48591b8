#include "test_layouts.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <mutex>

#include "render/glyph_cache.h"

namespace vetext_test {
namespace {

// Test-side FreeType faces (independent of the renderer's), released at exit with the library,
// which frees its faces, so the leak checker sees nothing of ours.
FT_Face FaceFor(const std::u16string& name) {
  struct Fonts {
    FT_Library lib = nullptr;
    std::map<std::u16string, FT_Face> faces;
    Fonts() { FT_Init_FreeType(&lib); }
    ~Fonts() { FT_Done_FreeType(lib); }
  };
  static std::mutex m;
  static Fonts fonts;
  std::lock_guard<std::mutex> lock(m);
  auto [it, fresh] = fonts.faces.try_emplace(name, nullptr);
  int index = 0;
  std::string file = fresh ? vetext::ResolveFontFile(name, &index) : "";
  if (!file.empty() && FT_New_Face(fonts.lib, file.c_str(), index, &it->second) != 0)
    it->second = nullptr;
  return it->second;
}

}  // namespace

int32_t GlyphOf(const std::u16string& font, char32_t ch) {
  FT_Face face = FaceFor(font);
  return face ? int32_t(FT_Get_Char_Index(face, FT_ULong(ch))) : 0;
}

vetext::LayoutRecord MakeLayout(const std::string& text, const Style& style, float x, float y) {
  vetext::LayoutRecord layout;
  FT_Face face = FaceFor(style.font);
  float left = std::numeric_limits<float>::max(), top = left, right = -left, bottom = -left;
  for (char ch : text) {
    FT_Set_Char_Size(face, 0, FT_F26Dot6(std::lround(style.size * 64)), 72, 72);
    FT_UInt gid = FT_Get_Char_Index(face, FT_ULong(uint8_t(ch)));
    FT_Load_Glyph(face, gid, FT_LOAD_NO_HINTING);
    const FT_Glyph_Metrics& gm = face->glyph->metrics;
    if (ch != ' ') {
      vetext::CharacterRecord& c = layout.mCharacters.emplace_back();
      c.mGlyphID = int32_t(gid), c.mFontName = style.font, c.mFontSize = style.size;
      c.mOriginX = x, c.mOriginY = y, c.mAlignment = 2;
      c.mLeft = x + float(gm.horiBearingX) / 64.0f, c.mTop = y - float(gm.horiBearingY) / 64.0f;
      c.mWidth = float(gm.width) / 64.0f, c.mHeight = float(gm.height) / 64.0f;
      c.mFillRed = style.fill[0], c.mFillGreen = style.fill[1], c.mFillBlue = style.fill[2];
      c.mStrokeRed = style.stroke[0], c.mStrokeGreen = style.stroke[1];
      c.mStrokeBlue = style.stroke[2], c.mStrokeWidth = style.stroke_width;
      c.mFillFirst = style.fill_first;
      left = std::min(left, c.mLeft), top = std::min(top, c.mTop);
      right = std::max(right, c.mLeft + c.mWidth), bottom = std::max(bottom, c.mTop + c.mHeight);
    }
    x += float(face->glyph->advance.x) / 64.0f;
  }
  if (!layout.mCharacters.empty())
    layout.mLeft = left, layout.mTop = top, layout.mRight = right, layout.mBottom = bottom;
  return layout;
}

uint64_t Buffer::AlphaSum() const {
  uint64_t s = 0;
  for (size_t i = 3; i < px.size(); i += 4) s += px[i];
  return s;
}

}  // namespace vetext_test

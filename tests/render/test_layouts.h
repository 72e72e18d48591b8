// Hand-made layouts for the render tests (glyphs of a real font placed along a baseline) and the
// buffers they are drawn into, compared.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "document/records.h"
#include "media_diff.h"

namespace vetext_test {

struct Style {
  std::u16string font = u"Liberation Sans";
  float size = 160.0f;  // oversampled pixels
  float fill[3] = {1, 1, 1}, stroke[3] = {0, 0, 0};
  float stroke_width = 0.0f;
  bool fill_first = false;
};

// Glyphs of `text` (ASCII) from (x, y) along the baseline, advancing by the font's advances;
// bounds enclose the glyph boxes.
vetext::LayoutRecord MakeLayout(const std::string& text, const Style& style, float x = 0,
                                float y = 0);
// The glyph index of a character in a font (0 when the font has none).
int32_t GlyphOf(const std::u16string& font, char32_t ch);

// A W x H premultiplied 4-byte buffer.
struct Buffer {
  int32_t W = 0, H = 0;
  std::vector<uint8_t> px;
  Buffer(int32_t w, int32_t h) : W(w), H(h), px(size_t(w) * size_t(h) * 4, 0) {}
  uint8_t* data() { return px.data(); }
  const uint8_t* at(int32_t x, int32_t y) const { return px.data() + (size_t(y) * W + x) * 4; }
  uint64_t AlphaSum() const;
};

// How far two buffers are apart, by the comparison behind `vetext diff` (bytes [first, first +
// count) of each pixel); a size mismatch is as far apart as can be.
inline vetext_tool::DiffStats Diff(const Buffer& a, const Buffer& b, int first = 0, int count = 4) {
  if (a.W != b.W || a.H != b.H) return {255, 255, 0};
  return vetext_tool::DiffPixels(a.px.data(), b.px.data(), a.px.size() / 4, first, count);
}

}  // namespace vetext_test

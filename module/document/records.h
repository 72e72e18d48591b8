// The effect's plain records: the text document (what the Source Text parameter persists) and
// the composed layout (what the renderers and the overlay draw from). Private to the module.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vetext {

// Character style of one run. Colours are 0..1; sizes and widths in frame pixels; kerning and
// tracking in thousandths of an em; baseline shift in frame pixels, positive raises the text.
struct StyleParam {
  std::u16string mFontName;  // filled with the font server's default font when made
  float mFontSize = 40.0f;
  float mFillRed = 1.0f, mFillGreen = 1.0f, mFillBlue = 1.0f;
  float mStrokeRed = 1.0f, mStrokeGreen = 1.0f, mStrokeBlue = 1.0f;
  float mStrokeWidth = 0.0f;
  bool mAutoLeading = true;
  float mLeading = 0.0f;  // frame pixels, baseline to baseline, when mAutoLeading is false
  float mKerning = 0.0f;
  float mTracking = 0.0f;
  float mBaselineShift = 0.0f;
  bool mFillOverStroke = true;
  bool operator==(const StyleParam&) const = default;
};

// Paragraph alignment values: the index into the list of alignment names.
enum Alignment : uint32_t {
  kAlignLeft = 0,
  kAlignRight = 1,
  kAlignCenter = 2,
  kAlignJustifyLastLeft = 3,
  kAlignJustifyLastCenter = 4,
  kAlignJustifyLastRight = 5,
  kAlignJustifyAll = 6
};

struct ParaParam {
  uint32_t mAlignment = kAlignCenter;
  bool operator==(const ParaParam&) const = default;
};

struct TextRun {
  std::u16string mText;
  StyleParam mStyleParam;
  ParaParam mParaParam;
  bool operator==(const TextRun&) const = default;
};

struct TextParam {
  std::vector<TextRun> mTextRuns;
  int32_t mWidth = 0;  // box width in frame pixels; 0 by 0 is point text
  int32_t mHeight = 0;
  bool operator==(const TextParam&) const = default;
};

struct DocumentRecord {
  int32_t mVersion = 1;
  TextParam mTextParam;
  bool operator==(const DocumentRecord&) const = default;
};

// One drawn glyph with its whole style. Units (the same for the CPU and GPU paths):
// origin, glyph box, font size and stroke width in oversampled pixels (frame pixels times
// mOverSampling of the layout), y down, origin on the baseline; baseline shift in frame pixels.
struct CharacterRecord {
  int32_t mGlyphID = 0;
  std::u16string mFontName;
  float mFontSize = 0.0f;
  float mOriginX = 0.0f;
  float mOriginY = 0.0f;
  float mLeft = 0.0f;
  float mTop = 0.0f;
  float mWidth = 0.0f;
  float mHeight = 0.0f;
  float mFillRed = 0.0f, mFillGreen = 0.0f, mFillBlue = 0.0f;
  float mStrokeRed = 0.0f, mStrokeGreen = 0.0f, mStrokeBlue = 0.0f;
  float mStrokeWidth = 0.0f;
  bool mFillFirst = false;
  float mBaselineShift = 0.0f;
  uint32_t mAlignment = 0;
  bool operator==(const CharacterRecord&) const = default;
};

// The composed text: bounds in oversampled pixels, enclosing every glyph box (strokes add
// their margin at render time).
struct LayoutRecord {
  std::vector<CharacterRecord> mCharacters;
  float mLeft = 0.0f;
  float mTop = 0.0f;
  float mRight = 0.0f;
  float mBottom = 0.0f;
  float mOverSampling = 4.0f;
  bool mTextInABox = false;
  bool operator==(const LayoutRecord&) const = default;
};

}  // namespace vetext

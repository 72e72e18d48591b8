// The composer, measured on the records it produces: each document property moves glyphs the
// way it should.
#include <ft2build.h>
#include FT_FREETYPE_H
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "engine/compose_internal.h"
#include "engine/kte.h"
#include "overlay/text_edit.h"

namespace {

using vetext::CharacterRecord;
using vetext::LayoutRecord;
using vetext::TextRun;

TextRun Text(std::u16string text, float size = 40.0f, uint32_t align = vetext::kAlignCenter,
             std::u16string font = u"Liberation Sans") {
  TextRun r;
  r.mText = std::move(text);
  r.mStyleParam.mFontName = std::move(font);
  r.mStyleParam.mFontSize = size;
  r.mParaParam.mAlignment = align;
  return r;
}

LayoutRecord Lay(std::vector<TextRun> runs, int32_t w = 0, int32_t h = 0) {
  KTE::Document d;
  d.data.mTextParam.mTextRuns = std::move(runs);
  d.data.mTextParam.mWidth = w;
  d.data.mTextParam.mHeight = h;
  LayoutRecord l;
  KTE::Compose(d, l);
  return l;
}

double Right(const CharacterRecord& c) {
  return double(c.mLeft) + c.mWidth;
}

// Distinct baselines, top to bottom.
std::vector<float> Baselines(const LayoutRecord& l) {
  std::set<float> s;
  for (const auto& c : l.mCharacters) s.insert(c.mOriginY);
  return {s.begin(), s.end()};
}

std::vector<CharacterRecord> OnLine(const LayoutRecord& l, float baseline) {
  std::vector<CharacterRecord> out;
  for (const auto& c : l.mCharacters)
    if (c.mOriginY == baseline) out.push_back(c);
  return out;
}

const std::u16string kLong =
    u"The quick brown fox jumps over the lazy dog while five boxing wizards jump quickly and "
    u"a wizard's job is to vex chumps quickly in fog.";

TEST(ComposeBasics, DefaultTitleGivesOneRecordPerVisibleGlyphAtOversampledSize) {
  std::vector<TextRun> runs;
  for (char16_t c : std::u16string(u"TEXT Wgij"))
    runs.push_back(Text(std::u16string(1, c), 40, vetext::kAlignCenter, u"ArialUnicodeMS"));
  LayoutRecord l = Lay(runs);
  ASSERT_EQ(l.mCharacters.size(), 8u);  // the space draws nothing
  for (size_t i = 0; i < l.mCharacters.size(); ++i) {
    const auto& c = l.mCharacters[i];
    EXPECT_EQ(c.mFontName, u"Liberation Sans");  // the alias resolves to a real family
    EXPECT_EQ(c.mFontSize, 160.0f);
    EXPECT_EQ(c.mOriginY, 0.0f);  // point text: the first baseline is y 0
    EXPECT_EQ(c.mAlignment, vetext::kAlignCenter);
    EXPECT_GT(c.mGlyphID, 0);
    EXPECT_TRUE(i == 0 || c.mOriginX > l.mCharacters[i - 1].mOriginX) << i;
    EXPECT_GE(c.mLeft, l.mLeft);
    EXPECT_GE(c.mTop, l.mTop);
    EXPECT_LE(Right(c), l.mRight + 1e-3);
    EXPECT_LE(c.mTop + c.mHeight, l.mBottom + 1e-3);
  }
  // 'g' and 'j' descend below the baseline, capitals rise above it; centred on x 0.
  EXPECT_LT(l.mTop, -100.0f);
  EXPECT_GT(l.mBottom, 20.0f);
  EXPECT_NEAR(l.mLeft + l.mRight, 0.0f, 40.0f);
}

TEST(ComposeBasics, StyleAndBaselineShiftAreCarriedPerRun) {
  TextRun a = Text(u"A");
  a.mStyleParam.mFillRed = 0.25f;
  a.mStyleParam.mStrokeWidth = 3.0f;
  a.mStyleParam.mFillOverStroke = true;
  TextRun b = Text(u"B");
  b.mStyleParam.mFillOverStroke = false;
  b.mStyleParam.mBaselineShift = 10;
  TextRun c = Text(u"C");
  c.mStyleParam.mBaselineShift = -5;
  LayoutRecord l = Lay({a, b, c});
  ASSERT_EQ(l.mCharacters.size(), 3u);
  const CharacterRecord &ra = l.mCharacters[0], &rb = l.mCharacters[1], &rc = l.mCharacters[2];
  EXPECT_EQ(ra.mFillRed, 0.25f);
  // The stroke width is oversampled; fill over stroke means the stroke comes first.
  EXPECT_EQ(std::vector<float>({ra.mStrokeWidth, rb.mStrokeWidth}), std::vector<float>({12, 0}));
  EXPECT_EQ(std::vector<bool>({ra.mFillFirst, rb.mFillFirst}), std::vector<bool>({false, true}));
  // The shift (frame px, up) moves the origin and the glyph box, times 4, and nothing else.
  EXPECT_EQ(std::vector<float>(
                {ra.mOriginY, rb.mOriginY, rc.mOriginY, rb.mBaselineShift, rc.mBaselineShift}),
            std::vector<float>({0, -40, 20, 10, -5}));
  EXPECT_EQ(rb.mTop, Lay({Text(u"A"), Text(u"B")}).mCharacters[1].mTop - 40.0f);
}

TEST(ComposeBasics, EmptyAndBlankTextDrawNothing) {
  EXPECT_TRUE(Lay({}).mCharacters.empty());
  LayoutRecord blank = Lay({Text(u"   \n  ")});
  EXPECT_TRUE(blank.mCharacters.empty());
  EXPECT_EQ(blank.mRight - blank.mLeft, 0.0f);
  // Box text keeps the box as its bounds even when empty.
  LayoutRecord box = Lay({Text(u" ")}, 100, 50);
  EXPECT_TRUE(box.mTextInABox);
  EXPECT_EQ(std::vector<float>({box.mLeft, box.mTop, box.mRight, box.mBottom}),
            std::vector<float>({0, 0, 400, 200}));
}

TEST(ComposeCharacter, TrackingAndKerningAddToTheFontsOwnKerning) {
  auto span = [](float tracking, float kerning) {
    TextRun r = Text(u"HHHH", 40);
    r.mStyleParam.mTracking = tracking;
    r.mStyleParam.mKerning = kerning;
    LayoutRecord l = Lay({r});
    return l.mCharacters.back().mOriginX - l.mCharacters.front().mOriginX;
  };
  // Thousandths of an em of a 160 px (oversampled) font after each of three gaps.
  const double plain = span(0, 0);
  EXPECT_NEAR(span(100, 0) - plain, 48.0, 0.5);
  EXPECT_NEAR(span(0, 100) - plain, 48.0, 0.5);
  EXPECT_NEAR(span(50, 50) - plain, 48.0, 0.5);
  EXPECT_NEAR(span(-100, 0) - plain, -48.0, 0.5);
  // The font's own kerning stays on: V sits closer to A than H would.
  auto gap = [](std::u16string pair) {
    LayoutRecord l = Lay({Text(pair, 40)});
    return l.mCharacters[1].mOriginX - l.mCharacters[0].mOriginX;
  };
  EXPECT_LT(gap(u"AV"), gap(u"AH") - 4.0f);
}

TEST(ComposeLines, LeadingIsAutoOrExplicitAndTheLargestOnTheLine) {
  // Every kind of line break; 1.2 times the 160 px (oversampled) size.
  EXPECT_EQ(Baselines(Lay({Text(u"A\nB\r\nC\rD", 40)})), std::vector<float>({0, 192, 384, 576}));
  // A bigger run on the second line pushes it down, and both runs share one baseline.
  LayoutRecord mixed = Lay({Text(u"A\nb", 40), Text(u"C", 80)});
  EXPECT_EQ(Baselines(mixed), std::vector<float>({0, 384}));
  EXPECT_EQ(OnLine(mixed, 384).size(), 2u);
  // Explicit leading; an empty paragraph keeps its line.
  TextRun r = Text(u"A\nB\n\nC", 40);
  r.mStyleParam.mAutoLeading = false;
  r.mStyleParam.mLeading = 60;
  EXPECT_EQ(Baselines(Lay({r})), std::vector<float>({0, 240, 720}));
}

TEST(ComposeLines, PointTextAnchorsEachLineAtItsParagraphsAlignmentPoint) {
  std::map<uint32_t, LayoutRecord> laid;
  for (uint32_t a : {vetext::kAlignLeft, vetext::kAlignCenter, vetext::kAlignRight})
    laid[a] = Lay({Text(u"Wide line\nab", 40, a)});
  std::vector<float> b = Baselines(laid[vetext::kAlignLeft]);
  ASSERT_EQ(b.size(), 2u);
  for (float y : b) {
    const auto l = OnLine(laid[vetext::kAlignLeft], y), c = OnLine(laid[vetext::kAlignCenter], y),
               r = OnLine(laid[vetext::kAlignRight], y);
    ASSERT_EQ(l.size(), r.size());
    EXPECT_EQ(l.front().mOriginX, 0.0f);  // left: the line starts at x 0
    EXPECT_LE(Right(r.back()), 0.5);      // right: the line ends at x 0
    EXPECT_GT(Right(r.back()), -20.0);
    // Centre moves half as far as right; the whole line moves.
    const double shift = l.front().mOriginX - r.front().mOriginX;
    EXPECT_NEAR(shift, 2 * (l.front().mOriginX - c.front().mOriginX), 0.01);
    for (size_t i = 0; i < l.size(); ++i) EXPECT_NEAR(l[i].mOriginX - r[i].mOriginX, shift, 0.01);
    EXPECT_EQ(r.back().mAlignment, vetext::kAlignRight);
  }
  // Each paragraph keeps its own alignment.
  LayoutRecord two =
      Lay({Text(u"Left\n", 40, vetext::kAlignLeft), Text(u"Right", 40, vetext::kAlignRight)});
  b = Baselines(two);
  ASSERT_EQ(b.size(), 2u);
  EXPECT_EQ(OnLine(two, b[0]).front().mOriginX, 0.0f);
  EXPECT_EQ(OnLine(two, b[0]).front().mAlignment, vetext::kAlignLeft);
  EXPECT_LT(OnLine(two, b[1]).front().mOriginX, -100.0f);
  EXPECT_EQ(OnLine(two, b[1]).front().mAlignment, vetext::kAlignRight);
}

TEST(ComposeBox, WrapsAtTheBoxWidthFromTheTopLeftAndKeepsTheLinesThatFit) {
  LayoutRecord l = Lay({Text(kLong, 20, vetext::kAlignLeft)}, 300, 1000);
  EXPECT_TRUE(l.mTextInABox);
  std::vector<float> b = Baselines(l);
  ASSERT_GE(b.size(), 4u);
  EXPECT_GT(b[0], 50.0f);  // one ascent below the top
  EXPECT_LT(b[0], 90.0f);
  for (size_t i = 1; i < b.size(); ++i) EXPECT_NEAR(b[i] - b[i - 1], 96.0, 1e-3);
  for (const auto& c : l.mCharacters) {
    EXPECT_GE(c.mLeft, -2.0f);
    EXPECT_LE(Right(c), 1200.0 + 2.0);
  }
  // The bounds hold the box (and any ink that overhangs its side bearings).
  EXPECT_LE(l.mLeft, 0.0f);
  EXPECT_GT(l.mLeft, -4.0f);
  EXPECT_EQ(std::vector<float>({l.mTop, l.mRight, l.mBottom}), std::vector<float>({0, 1200, 4000}));
  // A word too long for the box still breaks, between characters.
  LayoutRecord word = Lay({Text(u"Supercalifragilisticexpialidocious", 40)}, 100, 1000);
  EXPECT_GE(Baselines(word).size(), 3u);
  for (const auto& c : word.mCharacters) EXPECT_LE(Right(c), 400.0 + 2.0);
  // A box just tall enough for two lines (plus the second line's descent) keeps two.
  const int32_t h = int32_t(std::ceil((b[1] + 0.3 * 80) / 4.0));
  LayoutRecord two = Lay({Text(kLong, 20, vetext::kAlignLeft)}, 300, h);
  EXPECT_EQ(Baselines(two), std::vector<float>(b.begin(), b.begin() + 2));
  for (const auto& c : two.mCharacters) EXPECT_LE(c.mTop + c.mHeight, h * 4.0f + 1.0f);
  // Too short for even one line: nothing is drawn.
  EXPECT_TRUE(Lay({Text(kLong, 20)}, 300, 10).mCharacters.empty());
}

TEST(ComposeBox, SevenAlignmentsPlaceLinesAndJustifyToTheBoxWidth) {
  const double width = 1200.0;  // 300 px box, oversampled
  // By alignment (left, right, centre, justified with the last line left, centre or right,
  // justified all): how the lines but the last sit, and how the last one does: l, c, r or j.
  const char* kHow[] = {"ll", "rr", "cc", "jl", "jc", "jr", "jj"};
  for (uint32_t align = 0; align < 7; ++align) {
    const char* how = kHow[align];
    SCOPED_TRACE(align);
    LayoutRecord l = Lay({Text(kLong, 20, align)}, 300, 2000);
    std::vector<float> b = Baselines(l);
    ASSERT_GE(b.size(), 3u);
    for (size_t i = 0; i < b.size(); ++i) {
      const auto line = OnLine(l, b[i]);
      const double left = line.front().mLeft, right = Right(line.back());
      const bool last = i + 1 == b.size();
      const char k = how[last ? 1 : 0];
      ASSERT_LT(right - left, width + 2);
      // Each side is either at the box edge (within 12) or, on a last line, well away from it.
      const bool at_left = k == 'l' || k == 'j', at_right = k == 'r' || k == 'j';
      EXPECT_TRUE(at_left ? std::abs(left) < 12 : !last || k == 'c' || left > 60) << left;
      EXPECT_TRUE(at_right ? std::abs(right - width) < 12 : !last || k == 'c' || right < width - 60)
          << right;
      EXPECT_TRUE(k != 'c' || std::abs((left + right) / 2 - width / 2) < 12)
          << left << " " << right;
    }
  }
}

TEST(ComposeScripts, MissingGlyphsFallBackToFontsThatHaveThemAndNameTheirFace) {
  LayoutRecord l =
      Lay({Text(u"A\u4e2dB", 40), Text(u"C", 40, vetext::kAlignCenter, u"DejaVu Sans Bold")});
  std::vector<std::u16string> names;
  for (const auto& c : l.mCharacters) names.push_back(c.mFontName);
  // Styled faces carry their style in the name.
  ASSERT_EQ(names, std::vector<std::u16string>({u"Liberation Sans", u"WenQuanYi Micro Hei",
                                                u"Liberation Sans", u"DejaVu Sans Bold"}));
  EXPECT_EQ(l.mCharacters[1].mFontSize, 160.0f);
  // The name leads back to the face that measured the glyph.
  std::string file;
  int index = -1;
  ASSERT_TRUE(KTE::FindFontFace(l.mCharacters[1].mFontName, file, index));
  EXPECT_NE(file.find("wqy"), std::string::npos);
  ASSERT_TRUE(KTE::FindFontFace(l.mCharacters[3].mFontName, file, index));
  EXPECT_NE(file.find("DejaVuSans-Bold"), std::string::npos);
  // Devanagari shapes with its font, the virama joining a conjunct: fewer glyphs than characters.
  LayoutRecord hindi = Lay({Text(u"\u0939\u093f\u0928\u094d\u0926\u0940", 40)});
  ASSERT_FALSE(hindi.mCharacters.empty());
  EXPECT_LT(hindi.mCharacters.size(), 6u);
  for (const auto& c : hindi.mCharacters) EXPECT_EQ(c.mFontName, u"Lohit Devanagari");
}

TEST(ComposeScripts, CharactersBeyondTheBasicPlaneAreOneGlyphOfTheirOwnRun) {
  // U+1D400 and U+1D7D8 (mathematical bold A, double-struck zero) as surrogate pairs, between
  // plain letters, across a run boundary and as the text's last character.
  TextRun first = Text(u"a\U0001D400", 40, 0, u"DejaVu Sans");
  TextRun second = Text(u"\U0001D7D8b\U0001D400", 40, 0, u"DejaVu Sans");
  first.mStyleParam.mFillRed = 0.25f;
  LayoutRecord l = Lay({first, second});
  ASSERT_EQ(l.mCharacters.size(), 5u);
  FT_Library ft = nullptr;
  ASSERT_EQ(FT_Init_FreeType(&ft), 0);
  const char32_t expected[] = {U'a', U'\U0001D400', U'\U0001D7D8', U'b', U'\U0001D400'};
  for (size_t i = 0; i < 5; ++i) {
    const CharacterRecord& c = l.mCharacters[i];
    std::string file;
    int index = 0;
    ASSERT_TRUE(KTE::FindFontFace(c.mFontName, file, index));
    FT_Face face = nullptr;
    ASSERT_EQ(FT_New_Face(ft, file.c_str(), index, &face), 0) << file;
    EXPECT_EQ(c.mGlyphID, int32_t(FT_Get_Char_Index(face, expected[i]))) << i;
    EXPECT_NE(c.mGlyphID, 0) << i;
    EXPECT_EQ(c.mFillRed, i < 2 ? 0.25f : 1.0f) << i;
    FT_Done_Face(face);
  }
  FT_Done_FreeType(ft);
}

TEST(ComposeScripts, RightToLeftLinesRunRightToLeftInReadingOrder) {
  for (std::u16string text : {std::u16string(u"\u0645\u0631\u062d\u0628\u0627"),
                              std::u16string(u"\u05e9\u05dc\u05d5\u05dd")}) {
    LayoutRecord l = Lay({Text(text, 40, vetext::kAlignLeft, u"DejaVu Sans")});
    ASSERT_GE(l.mCharacters.size(), 4u);
    for (size_t i = 1; i < l.mCharacters.size(); ++i)
      EXPECT_LT(l.mCharacters[i].mOriginX, l.mCharacters[i - 1].mOriginX);
  }
  // A left-aligned right-to-left paragraph in a box still starts at the box's left side.
  LayoutRecord box = Lay({Text(u"\u05e9\u05dc\u05d5\u05dd \u05e2\u05d5\u05dc\u05dd", 20,
                               vetext::kAlignLeft, u"DejaVu Sans")},
                         400, 200);
  ASSERT_FALSE(box.mCharacters.empty());
  double left = std::numeric_limits<double>::max();
  for (const auto& c : box.mCharacters) left = std::min(left, double(c.mLeft));
  EXPECT_LT(left, 20.0);
}

TEST(ComposeRobustness, HostileValuesGiveFiniteBoundedLayouts) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  std::vector<TextRun> runs;
  for (float size : {nan, inf, -5.0f, 0.0f, 1e30f}) {
    TextRun r = Text(u"Ab", size);
    r.mStyleParam.mTracking = 1e30f;
    r.mStyleParam.mLeading = nan;
    r.mStyleParam.mAutoLeading = false;
    r.mStyleParam.mBaselineShift = inf;
    r.mStyleParam.mStrokeWidth = nan;
    runs.push_back(r);
  }
  runs.push_back(Text(std::u16string(u"x\xd800y\0z\xdc00", 7), 40, 2, u""));
  runs.push_back(Text(u"q", 40, 2, u"No Such Font 12, Bold Italic ###"));
  for (auto [w, h] : {std::pair{0, 0}, {-5, -5}, {INT32_MAX, INT32_MAX}, {1, 1}}) {
    LayoutRecord l = Lay(runs, w, h);
    for (float v : {l.mLeft, l.mTop, l.mRight, l.mBottom}) EXPECT_TRUE(std::isfinite(v));
    for (const auto& c : l.mCharacters) {
      EXPECT_TRUE(std::isfinite(c.mOriginX) && std::isfinite(c.mOriginY));
      EXPECT_TRUE(std::isfinite(c.mFontSize) && c.mFontSize > 0);
      EXPECT_TRUE(std::isfinite(c.mStrokeWidth));
      EXPECT_FALSE(c.mFontName.empty());
    }
    EXPECT_EQ(l, Lay(runs, w, h));
  }
}

TEST(ComposeRobustness, ConcurrentCompositionsAgree) {
  std::vector<TextRun> runs = {Text(kLong, 30),
                               Text(u"\u4e2d\u6587 \u0645\u0631\u062d\u0628\u0627")};
  const LayoutRecord expected = Lay(runs, 250, 0);
  std::vector<LayoutRecord> got(8);
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 5; ++i) got[size_t(t)] = Lay(runs, 250, 0);
    });
  for (auto& t : threads) t.join();
  for (const auto& l : got) EXPECT_EQ(l, expected);
}

TEST(ComposeRobustness, ReleasingTheFontMapDoesNotChangeResults) {
  KTE::RetainComposer();
  const LayoutRecord held = Lay({Text(u"Held", 40)});
  KTE::ReleaseComposer();  // the last hold: the map goes, the next composition makes a new one
  KTE::ReleaseComposer();  // unbalanced: ignored
  EXPECT_EQ(Lay({Text(u"Held", 40)}), held);
}

}  // namespace

// Each record's character, and the character under a point (the Source Text overlay's hit
// test): Latin with a space (no record), right-to-left Arabic, a ligature-free second line.
TEST(ComposeCharacters, EachGlyphKnowsItsCharacterAndClicksFindThem) {
  struct Case {
    const char* name;
    std::vector<TextRun> runs;
    int32_t box_w, box_h;
    std::vector<int32_t> characters;  // in record order; empty: not checked as a list
  };
  const Case cases[] = {
      {"latin", {Text(u"Hello World")}, 0, 0, {0, 1, 2, 3, 4, 6, 7, 8, 9, 10}},
      {"two runs", {Text(u"ab"), Text(u"cd", 60)}, 0, 0, {0, 1, 2, 3}},
      {"arabic",
       {Text(u"\u0645\u0631\u062d\u0628\u0627", 40, vetext::kAlignCenter, u"DejaVu Sans")},
       0,
       0,
       {}},
      {"two lines in a box", {Text(u"first\nsecond", 40, vetext::kAlignLeft)}, 300, 200, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    KTE::Document d;
    d.data.mTextParam.mTextRuns = c.runs;
    d.data.mTextParam.mWidth = c.box_w;
    d.data.mTextParam.mHeight = c.box_h;
    LayoutRecord l;
    std::vector<int32_t> chars;
    KTE::Compose(d, l, &chars);
    ASSERT_EQ(chars.size(), l.mCharacters.size());
    LayoutRecord plain;
    KTE::Compose(d, plain);
    EXPECT_EQ(plain, l);  // asking for the characters changes nothing else
    if (!c.characters.empty()) {
      EXPECT_EQ(chars, c.characters);
    }
    // A click on the middle of a glyph's ink finds that glyph's character.
    for (size_t i = 0; i < l.mCharacters.size(); ++i) {
      const CharacterRecord& r = l.mCharacters[i];
      EXPECT_EQ(vetext::CharacterAt(l, chars, r.mLeft + r.mWidth / 2, r.mTop + r.mHeight / 2),
                chars[i]);
    }
    EXPECT_EQ(vetext::CharacterAt(l, chars, l.mRight + 400, l.mTop), -1);  // beside the text
  }
  // Arabic runs right to left: its first letter is the rightmost glyph, its last the leftmost.
  KTE::Document d;
  d.data.mTextParam.mTextRuns = {
      Text(u"\u0645\u0631\u062d\u0628\u0627", 40, vetext::kAlignCenter, u"DejaVu Sans")};
  LayoutRecord l;
  std::vector<int32_t> chars;
  KTE::Compose(d, l, &chars);
  ASSERT_FALSE(l.mCharacters.empty());
  auto by_left = [&](size_t a, size_t b) {
    return l.mCharacters[a].mLeft < l.mCharacters[b].mLeft;
  };
  std::vector<size_t> order(l.mCharacters.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(), by_left);
  EXPECT_EQ(chars[order.back()], 0);
  EXPECT_EQ(chars[order.front()], 4);
  // Left of a box's second line, on its baseline: the line's first character ('s', after
  // "first\n").
  d.data.mTextParam.mTextRuns = {Text(u"first\nsecond", 40, vetext::kAlignLeft)};
  d.data.mTextParam.mWidth = 300;
  d.data.mTextParam.mHeight = 200;
  KTE::Compose(d, l, &chars);
  const float second = Baselines(l).back();
  EXPECT_EQ(vetext::CharacterAt(l, chars, 0, second), 6);
  EXPECT_EQ(vetext::CharacterAt(l, chars, l.mRight, Baselines(l).front()), 4);  // end of "first"
}

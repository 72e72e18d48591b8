// The composer, measured on the records it produces: each document property moves glyphs the
// way it should.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "engine/compose_internal.h"
#include "engine/kte.h"

namespace {

using vetext::CharacterRecord;
using vetext::LayoutRecord;
using vetext::TextRun;

TextRun MakeRun(std::u16string text, float size = 40.0f, std::u16string font = u"Liberation Sans") {
  TextRun r;
  r.mText = std::move(text);
  r.mStyleParam.mFontName = std::move(font);
  r.mStyleParam.mFontSize = size;
  return r;
}

KTE::Document Doc(std::vector<TextRun> runs, int32_t w = 0, int32_t h = 0) {
  KTE::Document d;
  d.data.mTextParam.mTextRuns = std::move(runs);
  d.data.mTextParam.mWidth = w;
  d.data.mTextParam.mHeight = h;
  return d;
}

LayoutRecord Compose(const KTE::Document& d) {
  LayoutRecord l;
  KTE::Compose(d, l);
  return l;
}

LayoutRecord Lay(std::vector<TextRun> runs, int32_t w = 0, int32_t h = 0) {
  return Compose(Doc(std::move(runs), w, h));
}

TextRun Aligned(TextRun r, uint32_t a) {
  r.mParaParam.mAlignment = a;
  return r;
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
    runs.push_back(MakeRun(std::u16string(1, c), 40, u"ArialUnicodeMS"));
  LayoutRecord l = Lay(runs);
  ASSERT_EQ(l.mCharacters.size(), 8u);  // the space draws nothing
  EXPECT_EQ(l.mOverSampling, 4.0f);
  EXPECT_FALSE(l.mTextInABox);
  for (size_t i = 0; i < l.mCharacters.size(); ++i) {
    const auto& c = l.mCharacters[i];
    EXPECT_EQ(c.mFontName, u"Liberation Sans");  // the alias resolves to a real family
    EXPECT_EQ(c.mFontSize, 160.0f);
    EXPECT_EQ(c.mOriginY, 0.0f);  // point text: the first baseline is y 0
    EXPECT_EQ(c.mAlignment, vetext::kAlignCenter);
    EXPECT_GT(c.mGlyphID, 0);
    if (i > 0) {
      EXPECT_GT(c.mOriginX, l.mCharacters[i - 1].mOriginX);
    }
  }
  // 'g' and 'j' descend below the baseline, capitals rise above it.
  EXPECT_LT(l.mTop, -100.0f);
  EXPECT_GT(l.mBottom, 20.0f);
  // Centred: the alignment point is the middle of the line.
  EXPECT_NEAR(l.mLeft + l.mRight, 0.0f, 40.0f);
  for (const auto& c : l.mCharacters) {
    EXPECT_GE(c.mLeft, l.mLeft);
    EXPECT_GE(c.mTop, l.mTop);
    EXPECT_LE(Right(c), l.mRight + 1e-3);
    EXPECT_LE(c.mTop + c.mHeight, l.mBottom + 1e-3);
  }
}

TEST(ComposeBasics, StyleIsCarriedPerGlyphAndFillOverStrokePaintsFillLast) {
  TextRun a = MakeRun(u"A");
  a.mStyleParam.mFillRed = 0.25f;
  a.mStyleParam.mStrokeBlue = 0.5f;
  a.mStyleParam.mStrokeWidth = 3.0f;
  a.mStyleParam.mFillOverStroke = true;
  TextRun b = MakeRun(u"B");
  b.mStyleParam.mFillOverStroke = false;
  LayoutRecord l = Lay({a, b});
  ASSERT_EQ(l.mCharacters.size(), 2u);
  EXPECT_EQ(l.mCharacters[0].mFillRed, 0.25f);
  EXPECT_EQ(l.mCharacters[0].mStrokeBlue, 0.5f);
  EXPECT_EQ(l.mCharacters[0].mStrokeWidth, 12.0f);  // oversampled
  EXPECT_FALSE(l.mCharacters[0].mFillFirst);        // fill over stroke: stroke first
  EXPECT_TRUE(l.mCharacters[1].mFillFirst);
  EXPECT_EQ(l.mCharacters[1].mStrokeWidth, 0.0f);
}

TEST(ComposeBasics, EmptyAndBlankTextDrawNothing) {
  EXPECT_TRUE(Lay({}).mCharacters.empty());
  LayoutRecord blank = Lay({MakeRun(u"   \n  ")});
  EXPECT_TRUE(blank.mCharacters.empty());
  EXPECT_EQ(blank.mRight - blank.mLeft, 0.0f);
  // Box text keeps the box as its bounds even when empty.
  LayoutRecord box = Lay({MakeRun(u" ")}, 100, 50);
  EXPECT_TRUE(box.mTextInABox);
  EXPECT_EQ(box.mLeft, 0.0f);
  EXPECT_EQ(box.mTop, 0.0f);
  EXPECT_EQ(box.mRight, 400.0f);
  EXPECT_EQ(box.mBottom, 200.0f);
}

TEST(ComposeBasics, IdenticalDocumentsGiveIdenticalRecords) {
  std::vector<TextRun> runs = {MakeRun(kLong),
                               MakeRun(u"\u4e2d\u6587 \u0645\u0631\u062d\u0628\u0627", 30)};
  LayoutRecord a = Lay(runs, 300, 400);
  LayoutRecord b = Lay(runs, 300, 400);
  ASSERT_FALSE(a.mCharacters.empty());
  EXPECT_EQ(a, b);
  EXPECT_EQ(0, std::memcmp(&a.mCharacters[3].mOriginX, &b.mCharacters[3].mOriginX, sizeof(float)));
}

TEST(ComposeBasics, CountsCompositions) {
  uint64_t before = KTE::ComposeCount();
  Lay({MakeRun(u"x")});
  Lay({MakeRun(u"y")});
  EXPECT_GE(KTE::ComposeCount() - before, 2u);
}

// ---- character properties ------------------------------------------------------------------

TEST(ComposeCharacter, TrackingAndKerningWidenAdvancesByThousandthsOfAnEm) {
  auto span = [](float tracking, float kerning) {
    TextRun r = MakeRun(u"HHHH", 40);
    r.mStyleParam.mTracking = tracking;
    r.mStyleParam.mKerning = kerning;
    LayoutRecord l = Lay({r});
    return l.mCharacters.back().mOriginX - l.mCharacters.front().mOriginX;
  };
  double plain = span(0, 0);
  // 100/1000 em of a 160 px (oversampled) font after each of three gaps: 48 px.
  EXPECT_NEAR(span(100, 0) - plain, 48.0, 0.5);
  EXPECT_NEAR(span(0, 100) - plain, 48.0, 0.5);
  EXPECT_NEAR(span(50, 50) - plain, 48.0, 0.5);
  EXPECT_NEAR(span(-100, 0) - plain, -48.0, 0.5);
}

TEST(ComposeCharacter, FontKerningStaysOnWithZeroKerning) {
  auto gap = [](std::u16string pair) {
    LayoutRecord l = Lay({MakeRun(pair, 40)});
    return l.mCharacters[1].mOriginX - l.mCharacters[0].mOriginX;
  };
  // "AV" is a kerning pair: V sits closer to A than H would.
  EXPECT_LT(gap(u"AV"), gap(u"AH") - 4.0f);
}

TEST(ComposeCharacter, BiggerSizeGivesProportionallyBiggerBoxes) {
  CharacterRecord small = Lay({MakeRun(u"W", 20)}).mCharacters.at(0);
  CharacterRecord big = Lay({MakeRun(u"W", 40)}).mCharacters.at(0);
  EXPECT_EQ(big.mFontSize, 2 * small.mFontSize);
  EXPECT_NEAR(big.mWidth / small.mWidth, 2.0, 0.02);
  EXPECT_NEAR(big.mHeight / small.mHeight, 2.0, 0.02);
}

TEST(ComposeCharacter, BaselineShiftRaisesOnlyItsRun) {
  TextRun up = MakeRun(u"B");
  up.mStyleParam.mBaselineShift = 10;
  TextRun down = MakeRun(u"C");
  down.mStyleParam.mBaselineShift = -5;
  LayoutRecord l = Lay({MakeRun(u"A"), up, down});
  ASSERT_EQ(l.mCharacters.size(), 3u);
  EXPECT_EQ(l.mCharacters[0].mOriginY, 0.0f);
  EXPECT_EQ(l.mCharacters[1].mOriginY, -40.0f);  // 10 frame px up, times 4
  EXPECT_EQ(l.mCharacters[2].mOriginY, 20.0f);
  EXPECT_EQ(l.mCharacters[1].mBaselineShift, 10.0f);
  EXPECT_EQ(l.mCharacters[2].mBaselineShift, -5.0f);
  // The glyph box travels with its origin.
  LayoutRecord flat = Lay({MakeRun(u"A"), MakeRun(u"B"), MakeRun(u"C")});
  EXPECT_EQ(l.mCharacters[1].mTop, flat.mCharacters[1].mTop - 40.0f);
}

// ---- lines ---------------------------------------------------------------------------------

TEST(ComposeLines, AutoLeadingIsOnePointTwoTimesTheLargestSizeOnTheLine) {
  for (std::u16string brk : {u"\n", u"\r", u"\r\n"}) {
    LayoutRecord l = Lay({MakeRun(u"A" + brk + u"B" + brk + u"C", 40)});
    std::vector<float> b = Baselines(l);
    ASSERT_EQ(b.size(), 3u);
    EXPECT_EQ(b[0], 0.0f);
    EXPECT_NEAR(b[1] - b[0], 192.0, 1e-3);  // 1.2 * 160
    EXPECT_NEAR(b[2] - b[1], 192.0, 1e-3);
  }
  // A bigger run on the second line pushes it down, and both runs share one baseline.
  LayoutRecord mixed = Lay({MakeRun(u"A\nb", 40), MakeRun(u"C", 80)});
  std::vector<float> b = Baselines(mixed);
  ASSERT_EQ(b.size(), 2u);
  EXPECT_NEAR(b[1] - b[0], 1.2 * 320, 1e-3);
  EXPECT_EQ(OnLine(mixed, b[1]).size(), 2u);
}

TEST(ComposeLines, ExplicitLeadingSetsTheBaselineDistance) {
  TextRun r = MakeRun(u"A\nB\n\nC", 40);
  r.mStyleParam.mAutoLeading = false;
  r.mStyleParam.mLeading = 60;
  LayoutRecord l = Lay({r});
  std::vector<float> b = Baselines(l);
  ASSERT_EQ(b.size(), 3u);
  EXPECT_NEAR(b[1] - b[0], 240.0, 1e-3);
  EXPECT_NEAR(b[2] - b[1], 480.0, 1e-3);  // the empty paragraph keeps its line
}

TEST(ComposeLines, PointTextAnchorsEachLineAtItsAlignmentPoint) {
  auto origins = [](uint32_t align) {
    LayoutRecord l = Lay({Aligned(MakeRun(u"Wide line\nab", 40), align)});
    return l;
  };
  LayoutRecord left = origins(vetext::kAlignLeft);
  LayoutRecord centre = origins(vetext::kAlignCenter);
  LayoutRecord right = origins(vetext::kAlignRight);
  ASSERT_EQ(left.mCharacters.size(), centre.mCharacters.size());
  ASSERT_EQ(left.mCharacters.size(), right.mCharacters.size());
  std::vector<float> b = Baselines(left);
  ASSERT_EQ(b.size(), 2u);
  for (float baseline : b) {
    auto l = OnLine(left, baseline), c = OnLine(centre, baseline), r = OnLine(right, baseline);
    EXPECT_EQ(l.front().mOriginX, 0.0f);  // left: the line starts at x 0
    double shift_c = l.front().mOriginX - c.front().mOriginX;
    double shift_r = l.front().mOriginX - r.front().mOriginX;
    EXPECT_GT(shift_r, 0);
    EXPECT_NEAR(shift_r, 2 * shift_c, 0.01);  // centre moves half as far as right
    for (size_t i = 0; i < l.size(); ++i) {
      EXPECT_NEAR(l[i].mOriginX - r[i].mOriginX, shift_r, 0.01);
      EXPECT_EQ(r[i].mAlignment, vetext::kAlignRight);
    }
    EXPECT_LE(Right(r.back()), 0.5);  // right: the line ends at x 0
    EXPECT_GT(Right(r.back()), -20.0);
  }
  EXPECT_NEAR(centre.mLeft + centre.mRight, 0.0, 20.0);
}

TEST(ComposeLines, ParagraphsKeepTheirOwnAlignment) {
  LayoutRecord l = Lay({Aligned(MakeRun(u"Left\n"), vetext::kAlignLeft),
                        Aligned(MakeRun(u"Right"), vetext::kAlignRight)});
  std::vector<float> b = Baselines(l);
  ASSERT_EQ(b.size(), 2u);
  auto first = OnLine(l, b[0]), second = OnLine(l, b[1]);
  EXPECT_EQ(first.front().mOriginX, 0.0f);
  EXPECT_EQ(first.front().mAlignment, vetext::kAlignLeft);
  EXPECT_LT(second.front().mOriginX, -100.0f);
  EXPECT_EQ(second.front().mAlignment, vetext::kAlignRight);
}

TEST(ComposeBox, WrapsAtTheBoxWidthFromTheTopLeft) {
  LayoutRecord l = Lay({Aligned(MakeRun(kLong, 20), vetext::kAlignLeft)}, 300, 1000);
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
  EXPECT_EQ(l.mTop, 0.0f);
  EXPECT_EQ(l.mRight, 1200.0f);
  EXPECT_EQ(l.mBottom, 4000.0f);
  // A word too long for the box still breaks, between characters.
  LayoutRecord word = Lay({MakeRun(u"Supercalifragilisticexpialidocious", 40)}, 100, 1000);
  EXPECT_GE(Baselines(word).size(), 3u);
  for (const auto& c : word.mCharacters) EXPECT_LE(Right(c), 400.0 + 2.0);
}

TEST(ComposeBox, KeepsOnlyTheLinesWhoseBottomFits) {
  LayoutRecord all = Lay({MakeRun(kLong, 20)}, 300, 10000);
  std::vector<float> b = Baselines(all);
  ASSERT_GE(b.size(), 4u);
  // A box just tall enough for two lines (plus the second line's descent).
  int32_t h = int32_t(std::ceil((b[1] + 0.3 * 80) / 4.0));
  LayoutRecord two = Lay({MakeRun(kLong, 20)}, 300, h);
  std::vector<float> kept = Baselines(two);
  ASSERT_EQ(kept.size(), 2u);
  EXPECT_EQ(kept[0], b[0]);
  EXPECT_EQ(kept[1], b[1]);
  for (const auto& c : two.mCharacters) EXPECT_LE(c.mTop + c.mHeight, h * 4.0f + 1.0f);
  // Too short for even one line: nothing is drawn.
  EXPECT_TRUE(Lay({MakeRun(kLong, 20)}, 300, 10).mCharacters.empty());
}

TEST(ComposeBox, SevenAlignmentsPlaceLinesAndJustifyToTheBoxWidth) {
  const double width = 1200.0;  // 300 px box, oversampled
  struct Case {
    uint32_t align;
    bool justified;
    char last;  // 'l', 'c', 'r' or 'j': how the last line sits
  };
  const Case cases[] = {{vetext::kAlignLeft, false, 'l'},
                        {vetext::kAlignRight, false, 'r'},
                        {vetext::kAlignCenter, false, 'c'},
                        {vetext::kAlignJustifyLastLeft, true, 'l'},
                        {vetext::kAlignJustifyLastCenter, true, 'c'},
                        {vetext::kAlignJustifyLastRight, true, 'r'},
                        {vetext::kAlignJustifyAll, true, 'j'}};
  for (const Case& k : cases) {
    SCOPED_TRACE(k.align);
    LayoutRecord l = Lay({Aligned(MakeRun(kLong, 20), k.align)}, 300, 2000);
    std::vector<float> b = Baselines(l);
    ASSERT_GE(b.size(), 3u);
    for (size_t i = 0; i < b.size(); ++i) {
      auto line = OnLine(l, b[i]);
      double left = line.front().mLeft, right = Right(line.back());
      double ink = right - left;
      bool last = i + 1 == b.size();
      char how = last ? k.last : (k.justified ? 'j' : k.last);
      ASSERT_LT(ink, width + 2);
      switch (how) {
        case 'j':
          EXPECT_NEAR(left, 0.0, 12.0);
          EXPECT_NEAR(right, width, 12.0);
          break;
        case 'l':
          EXPECT_NEAR(left, 0.0, 12.0);
          if (last) {
            EXPECT_LT(right, width - 60);
          }
          break;
        case 'r':
          EXPECT_NEAR(right, width, 12.0);
          if (last) {
            EXPECT_GT(left, 60.0);
          }
          break;
        case 'c':
          EXPECT_NEAR((left + right) / 2, width / 2, 12.0);
          break;
      }
    }
  }
}

// ---- scripts and fonts ---------------------------------------------------------------------

TEST(ComposeScripts, MissingGlyphsFallBackToAFontThatHasThem) {
  LayoutRecord l = Lay({MakeRun(u"A\u4e2dB", 40)});
  ASSERT_EQ(l.mCharacters.size(), 3u);
  EXPECT_EQ(l.mCharacters[0].mFontName, u"Liberation Sans");
  EXPECT_EQ(l.mCharacters[1].mFontName, u"WenQuanYi Micro Hei");
  EXPECT_EQ(l.mCharacters[2].mFontName, u"Liberation Sans");
  EXPECT_EQ(l.mCharacters[1].mFontSize, 160.0f);
  // The name leads back to the face that measured the glyph.
  std::string file;
  int index = -1;
  ASSERT_TRUE(KTE::FindFontFace(l.mCharacters[1].mFontName, file, index));
  EXPECT_NE(file.find("wqy"), std::string::npos);
  ASSERT_TRUE(KTE::FindFontFace(u"DejaVu Sans Bold", file, index));
  EXPECT_NE(file.find("DejaVuSans-Bold"), std::string::npos);
}

TEST(ComposeScripts, StyledFacesAreNamedWithTheirStyle) {
  LayoutRecord l = Lay({MakeRun(u"A", 40, u"DejaVu Sans Bold"), MakeRun(u"B", 40, u"DejaVu Sans")});
  ASSERT_EQ(l.mCharacters.size(), 2u);
  EXPECT_EQ(l.mCharacters[0].mFontName, u"DejaVu Sans Bold");
  EXPECT_EQ(l.mCharacters[1].mFontName, u"DejaVu Sans");
}

TEST(ComposeScripts, RightToLeftLinesRunRightToLeftInReadingOrder) {
  for (std::u16string text : {std::u16string(u"\u0645\u0631\u062d\u0628\u0627"),
                              std::u16string(u"\u05e9\u05dc\u05d5\u05dd")}) {
    LayoutRecord l = Lay({Aligned(MakeRun(text, 40, u"DejaVu Sans"), vetext::kAlignLeft)});
    ASSERT_GE(l.mCharacters.size(), 4u);
    for (size_t i = 1; i < l.mCharacters.size(); ++i)
      EXPECT_LT(l.mCharacters[i].mOriginX, l.mCharacters[i - 1].mOriginX);
  }
  // A left-aligned right-to-left paragraph in a box still starts at the box's left side.
  LayoutRecord box = Lay(
      {Aligned(MakeRun(u"\u05e9\u05dc\u05d5\u05dd \u05e2\u05d5\u05dc\u05dd", 20, u"DejaVu Sans"),
               vetext::kAlignLeft)},
      400, 200);
  ASSERT_FALSE(box.mCharacters.empty());
  double left = std::numeric_limits<double>::max();
  for (const auto& c : box.mCharacters) left = std::min(left, double(c.mLeft));
  EXPECT_LT(left, 20.0);
}

TEST(ComposeScripts, DevanagariAndCjkShapeWithTheirFonts) {
  LayoutRecord hindi = Lay({MakeRun(u"\u0939\u093f\u0928\u094d\u0926\u0940", 40)});
  ASSERT_FALSE(hindi.mCharacters.empty());
  for (const auto& c : hindi.mCharacters) EXPECT_EQ(c.mFontName, u"Lohit Devanagari");
  // Shaping joins the virama into a conjunct: fewer glyphs than characters.
  EXPECT_LT(hindi.mCharacters.size(), 6u);
  LayoutRecord cjk = Lay({MakeRun(u"\u6587\u5b57\u6d4b\u8bd5", 40)});
  ASSERT_EQ(cjk.mCharacters.size(), 4u);
  for (size_t i = 1; i < 4; ++i)
    EXPECT_NEAR(cjk.mCharacters[i].mOriginX - cjk.mCharacters[i - 1].mOriginX, 160.0, 1.0);
}

// ---- robustness ----------------------------------------------------------------------------

TEST(ComposeRobustness, HostileValuesGiveFiniteBoundedLayouts) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  std::vector<TextRun> runs;
  for (float size : {nan, inf, -5.0f, 0.0f, 1e30f}) {
    TextRun r = MakeRun(u"Ab", size);
    r.mStyleParam.mTracking = 1e30f;
    r.mStyleParam.mLeading = nan;
    r.mStyleParam.mAutoLeading = false;
    r.mStyleParam.mBaselineShift = inf;
    r.mStyleParam.mStrokeWidth = nan;
    runs.push_back(r);
  }
  runs.push_back(MakeRun(std::u16string(u"x\xd800y\0z\xdc00", 7), 40, u""));
  runs.push_back(MakeRun(u"q", 40, u"No Such Font 12, Bold Italic ###"));
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
  std::vector<TextRun> runs = {MakeRun(kLong, 30),
                               MakeRun(u"\u4e2d\u6587 \u0645\u0631\u062d\u0628\u0627")};
  LayoutRecord expected = Lay(runs, 250, 0);
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
  std::vector<TextRun> runs = {MakeRun(u"Held", 40)};
  KTE::RetainComposer();
  LayoutRecord a = Lay(runs);
  KTE::ReleaseComposer();
  KTE::ReleaseComposer();  // unbalanced: ignored
  LayoutRecord b = Lay(runs);
  EXPECT_EQ(a, b);
}

}  // namespace

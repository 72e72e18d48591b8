// The layout record's JSON form.
#include <gtest/gtest.h>

#include <boost/any.hpp>

#include <limits>

#include "document/layout_json.h"
#include "engine/kte.h"
#include "vetext/vxcore.h"

namespace {

using vetext::CharacterRecord;
using vetext::LayoutRecord;

LayoutRecord FromText(const std::string& utf8) {
  const std::u16string t = vxcore::UTF8ToUTF16(utf8);
  LayoutRecord out;
  vetext::TextToLayout(t.data(), t.size(), out);
  return out;
}

LayoutRecord Sample() {
  LayoutRecord l;
  l.mLeft = -12.5f;
  l.mTop = -160.0f;
  l.mRight = 0.1f;
  l.mBottom = 3.4028235e38f;
  l.mOverSampling = 4.0f;
  l.mTextInABox = true;
  CharacterRecord c;
  c.mGlyphID = -7;
  c.mFontName = u"Liberation Sans \u00c9\U0001F600";
  c.mFontSize = 160.0f;
  c.mOriginX = 1e-7f;
  c.mOriginY = -0.3f;
  c.mLeft = 1.5f;
  c.mTop = -100.25f;
  c.mWidth = 33.3f;
  c.mHeight = 120.0f;
  c.mFillRed = 0.2f;
  c.mFillGreen = 0.4f;
  c.mFillBlue = 0.6f;
  c.mStrokeRed = 1.0f;
  c.mStrokeGreen = 0.0f;
  c.mStrokeBlue = 0.5f;
  c.mStrokeWidth = 12.0f;
  c.mFillFirst = true;
  c.mBaselineShift = -4.0f;
  c.mAlignment = 0xFFFFFFFFu;
  l.mCharacters = {c, c};
  l.mCharacters[1].mGlyphID = 2147483647;
  l.mCharacters[1].mFillFirst = false;
  l.mCharacters[1].mFontName.clear();
  return l;
}

TEST(LayoutJson, WriteThenReadGivesEveryFieldBack) {
  const LayoutRecord l = Sample();
  const std::u16string text = vetext::LayoutToText(l);
  LayoutRecord back;
  back.mCharacters.resize(3);  // replaced, not appended to
  vetext::TextToLayout(text.data(), text.size(), back);
  EXPECT_EQ(back, l);
  const std::u16string pretty = vetext::LayoutToText(l, true);
  LayoutRecord back2;
  vetext::TextToLayout(pretty.data(), pretty.size(), back2);
  EXPECT_EQ(back2, l);
  // Members in record order.
  const std::string utf8 = vxcore::UTF16ToUTF8(text);
  const size_t chars = utf8.find("\"mCharacters\"");
  const size_t left = utf8.rfind("\"mLeft\"");
  const size_t over = utf8.find("\"mOverSampling\"");
  const size_t box = utf8.find("\"mTextInABox\"");
  EXPECT_EQ(chars, 1u);
  EXPECT_LT(left, over);
  EXPECT_LT(over, box);
  EXPECT_LT(utf8.find("\"mGlyphID\""), utf8.find("\"mFontName\""));
  EXPECT_LT(utf8.find("\"mFillFirst\""), utf8.find("\"mBaselineShift\""));
  EXPECT_LT(utf8.find("\"mBaselineShift\""), utf8.find("\"mAlignment\""));
}

TEST(LayoutJson, EmptyLayoutAndMissingKeys) {
  LayoutRecord empty;
  empty.mOverSampling = 4.0f;
  const std::string text = vxcore::UTF16ToUTF8(vetext::LayoutToText(empty));
  EXPECT_NE(text.find("\"mCharacters\":[]"), std::string::npos) << text;
  EXPECT_EQ(FromText(text), empty);

  // A missing mOverSampling reads as 0, not as the constructor's 4.
  LayoutRecord bare = FromText(R"({"mCharacters":[{}],"mLeft":1})");
  EXPECT_EQ(bare.mOverSampling, 0.0f);
  EXPECT_EQ(bare.mLeft, 1.0f);
  EXPECT_FALSE(bare.mTextInABox);
  ASSERT_EQ(bare.mCharacters.size(), 1u);
  EXPECT_EQ(bare.mCharacters[0], CharacterRecord{});
  EXPECT_TRUE(FromText("{}").mCharacters.empty());
}

TEST(LayoutJson, NumberKindsAndWrapper) {
  LayoutRecord l = FromText(
      R"({"mCharacters":[{"mFontSize":40,"mGlyphID":4294967295,"mOriginX":18446744073709551615,)"
      R"("mAlignment":2.9,"mWidth":-3}],"mOverSampling":4})");
  ASSERT_EQ(l.mCharacters.size(), 1u);
  EXPECT_EQ(l.mCharacters[0].mFontSize, 40.0f);
  EXPECT_EQ(l.mCharacters[0].mGlyphID, -1);
  EXPECT_EQ(l.mCharacters[0].mOriginX, 18446744073709551615.0f);
  EXPECT_EQ(l.mCharacters[0].mAlignment, 2u);
  EXPECT_EQ(l.mCharacters[0].mWidth, -3.0f);
  EXPECT_EQ(l.mOverSampling, 4.0f);

  const LayoutRecord sample = Sample();
  const std::string bare = vxcore::UTF16ToUTF8(vetext::LayoutToText(sample));
  EXPECT_EQ(FromText("{\"SerializerWrappedObject\":" + bare + "}"), sample);
}

TEST(LayoutJson, MalformedTextAndWrongTypes) {
  LayoutRecord keep = Sample();
  const std::u16string bad = u"{\"mCharacters\":[";
  try {
    vetext::TextToLayout(bad.data(), bad.size(), keep);
    FAIL() << "no error";
  } catch (const KTE::Error& e) {
    EXPECT_STREQ(e.what(), "JSON not well-formed");
  }
  EXPECT_EQ(keep, Sample());
  EXPECT_THROW(vetext::TextToLayout(nullptr, 0, keep), KTE::Error);
  EXPECT_THROW(FromText(R"({"mLeft":"zero"})"), boost::bad_any_cast);
  EXPECT_THROW(FromText(R"({"mCharacters":[{"mFillFirst":1}]})"), boost::bad_any_cast);
  EXPECT_THROW(FromText(R"({"mCharacters":{}})"), boost::bad_any_cast);
  EXPECT_THROW(FromText("[]"), boost::bad_any_cast);
}

}  // namespace

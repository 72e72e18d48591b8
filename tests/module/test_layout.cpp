// The layout record's JSON form: the streaming reader and writer against the tree forms they
// stand in for, and the values both give.
#include <gtest/gtest.h>

#include <boost/any.hpp>

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "document/layout_json.h"
#include "engine/kte.h"
#include "vetext/vxcore.h"

namespace {

using vetext::CharacterRecord;
using vetext::LayoutRecord;

class RandomLayouts {
 public:
  explicit RandomLayouts(uint32_t seed) : rng(seed) {}
  // Any finite float, a small integer one time in four.
  float Float() {
    const float f = std::bit_cast<float>(uint32_t(rng()));
    return !std::isfinite(f) || rng() % 4 == 0 ? float(int(rng() % 200) - 100) : f;
  }
  // `n` characters, every field random, font names from a few awkward ones.
  LayoutRecord Layout(size_t n) {
    static const std::u16string kNames[] = {
        u"Liberation Sans", u"", u"DejaVu Sans Bold Oblique \u00c9\u65e5", u"\U0001F600 \"q\"\\",
        std::u16string(u"lone ") + char16_t(0xD800)};
    LayoutRecord l;
    l.mCharacters.resize(n);
    for (CharacterRecord& c : l.mCharacters) {
      c.mGlyphID = int32_t(rng());
      c.mFontName = kNames[rng() % 5];
      for (float* f : {&c.mFontSize, &c.mOriginX, &c.mOriginY, &c.mLeft, &c.mTop, &c.mWidth,
                       &c.mHeight, &c.mFillRed, &c.mFillGreen, &c.mFillBlue, &c.mStrokeRed,
                       &c.mStrokeGreen, &c.mStrokeBlue, &c.mStrokeWidth, &c.mBaselineShift})
        *f = Float();
      c.mFillFirst = rng() % 2;
      c.mAlignment = uint32_t(rng());
    }
    for (float* f : {&l.mLeft, &l.mTop, &l.mRight, &l.mBottom, &l.mOverSampling}) *f = Float();
    l.mTextInABox = rng() % 2;
    return l;
  }
  std::mt19937 rng;
};

// A record with every field set, to read over.
const LayoutRecord& Full() {
  static const LayoutRecord full = RandomLayouts(1).Layout(4);
  return full;
}

const std::string kNotWellFormed = "JSON not well-formed";

// What a reader made of a text: the record, or the failure's message.
struct Outcome {
  std::string error;
  LayoutRecord record;
};

template <typename Reader>
Outcome Run(Reader read, const std::u16string& text) {
  Outcome o{"", Full()};  // read over a full record: it is replaced, not added to
  try {
    read(text.data(), text.size(), o.record);
  } catch (const boost::bad_any_cast&) {
    o.error = "wrong type";
  } catch (const std::exception& e) {
    o.error = e.what();
  }
  // Failures must leave the caller's record as it was.
  EXPECT_TRUE(o.error.empty() || o.record == Full()) << "record changed on failure";
  return o;
}

// Reads `text` with both readers, which must agree; returns the streaming reader's outcome.
Outcome ExpectSameReading(const std::u16string& text) {
  SCOPED_TRACE(vxcore::UTF16ToUTF8(text).substr(0, 300));
  const Outcome tree = Run(vetext::TextToLayoutTree, text);
  const Outcome stream = Run(vetext::TextToLayout, text);
  EXPECT_EQ(stream.error, tree.error);
  EXPECT_EQ(stream.record, tree.record);
  return stream;
}
Outcome ExpectSameReading(const std::string& utf8) {
  return ExpectSameReading(vxcore::UTF8ToUTF16(utf8));
}

TEST(LayoutJson, WriteThenReadGivesEveryFieldBack) {
  RandomLayouts gen(7);
  std::vector<LayoutRecord> layouts = {LayoutRecord{}, Full()};
  for (int i = 0; i < 60; ++i) layouts.push_back(gen.Layout(gen.rng() % 31));
  for (const LayoutRecord& l : layouts) {
    const std::u16string text = vetext::LayoutToText(l), pretty = vetext::LayoutToText(l, true);
    EXPECT_EQ(text, vetext::LayoutToTextTree(l));
    EXPECT_EQ(pretty, vetext::LayoutToTextTree(l, true));
    // Lone surrogates in names read back as U+FFFD, as through UTF-8.
    LayoutRecord want = l;
    for (CharacterRecord& c : want.mCharacters)
      c.mFontName = vxcore::UTF8ToUTF16(vxcore::UTF16ToUTF8(c.mFontName));
    for (const std::u16string& t : {text, pretty, u"{\"SerializerWrappedObject\":" + text + u"}"})
      EXPECT_EQ(ExpectSameReading(t).record, want);
  }
  // Values JSON cannot spell are written as the tree writer writes them (null).
  LayoutRecord odd = Full();
  odd.mLeft = std::numeric_limits<float>::infinity();
  odd.mCharacters[0].mOriginX = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(vetext::LayoutToText(odd), vetext::LayoutToTextTree(odd));
}

TEST(LayoutJson, MissingKeysNumberKindsAndFailures) {
  LayoutRecord want;
  want.mCharacters.resize(1);
  want.mLeft = 1;
  want.mOverSampling = 0;  // missing: 0, not the constructor's 4
  EXPECT_EQ(ExpectSameReading(R"({"mCharacters":[{}],"mLeft":1})").record, want);

  CharacterRecord c{-1, {}, 40, 18446744073709551615.0f, 0, 0, 0, -3};
  c.mAlignment = 2;
  EXPECT_EQ(
      ExpectSameReading(
          R"({"mCharacters":[{"mFontSize":40,"mGlyphID":4294967295,"mOriginX":18446744073709551615,)"
          R"("mAlignment":2.9,"mWidth":-3}],"mOverSampling":4,"mTop":1e300})")
          .record,
      (LayoutRecord{{c}, 0, std::numeric_limits<float>::max(), 0, 0, 4, false}));

  EXPECT_EQ(ExpectSameReading("{\"mCharacters\":[").error, kNotWellFormed);
  EXPECT_EQ(ExpectSameReading("").error, kNotWellFormed);
  EXPECT_EQ(ExpectSameReading(R"({"mLeft":"zero"})").error, "wrong type");
  EXPECT_EQ(ExpectSameReading(R"({"mCharacters":[{"mFillFirst":1}]})").error, "wrong type");
  EXPECT_EQ(ExpectSameReading("[]").error, "wrong type");
}

TEST(LayoutJson, StreamReadsAsTheTreeReaderOnQuirksAndWrongTypes) {
  const char* texts[] = {
      "{}", "[]", "null", "1", "\"s\"", "", "{\"mLeft\":1", "{\"mLeft\":\"x\",",
      "{\"mLeft\":\"x\"}}", "{\"mLeft\":\"x\"} [",
      // The wrapper: anywhere in the root, first one only, root level only, never a non-object.
      R"({"SerializerWrappedObject":{"mLeft":2},"mLeft":1})",
      R"({"mLeft":1,"SerializerWrappedObject":{"mLeft":2,"mCharacters":[{"mGlyphID":3}]}})",
      R"({"mLeft":"bad","mCharacters":7,"SerializerWrappedObject":{"mTop":2}})",
      R"({"SerializerWrappedObject":{"mLeft":"bad"},"mLeft":2})",
      R"({"SerializerWrappedObject":null})", R"({"SerializerWrappedObject":[1]})",
      R"({"SerializerWrappedObject":{"SerializerWrappedObject":{"mLeft":3},"mTop":1}})",
      R"({"SerializerWrappedObject":{"mLeft":1},"SerializerWrappedObject":{"mLeft":2}})",
      R"({"SerializerWrappedObject":5,"SerializerWrappedObject":{"mLeft":2}})",
      R"({"mCharacters":[{"SerializerWrappedObject":{"mGlyphID":3}}]})",
      R"([{"SerializerWrappedObject":{}}])",
      // Duplicates: the first counts, later ones are not even type-checked.
      R"({"mLeft":1,"mLeft":2})", R"({"mLeft":1,"mLeft":"x"})", R"({"mLeft":"x","mLeft":1})",
      R"({"mCharacters":[{"mGlyphID":1}],"mCharacters":[{"mGlyphID":2},{}]})",
      R"({"mCharacters":[{"mGlyphID":1}],"mCharacters":5})",
      R"({"mCharacters":[{"mGlyphID":1,"mGlyphID":2,"mFontName":"a","mFontName":7}]})",
      R"({"mCharacters":[{"mAlignment":1,"mFillFirst":true,"mAlignment":"x","mFillFirst":0}]})",
      // Unknown members, however deep, are skipped; keys match exactly.
      R"({"x":{"mLeft":5,"y":[{"mCharacters":1}]},"mLeft":1,"mCharacters":[{"z":[[{}]],"mTop":2}]})",
      R"({"mleft":1,"mLef":2,"mLeftX":3,"mLeft ":4,"mTop":5})",
      // Wrong types.
      R"({"mCharacters":[1]})", R"({"mCharacters":[[]]})", R"({"mCharacters":null})",
      R"({"mCharacters":{}})", R"({"mTextInABox":0})",

      R"({"mCharacters":[{"mFontName":3}]})", R"({"mCharacters":[{"mGlyphID":true}]})",
      R"({"mCharacters":[{"mAlignment":"2"}]})", R"({"mCharacters":[{"mFillFirst":{}}]})",
      R"({"mOverSampling":[4]})", R"({"mCharacters":[{},{"mWidth":{}},{}]})",
      // Number kinds and ranges.
      R"({"mCharacters":[{"mGlyphID":-1e300,"mAlignment":1e300,"mFontSize":1e300,)"
      R"("mOriginX":-1e300,"mOriginY":18446744073709551615,"mLeft":-9223372036854775808,)"
      R"("mTop":4294967296.7,"mWidth":-0.0,"mHeight":1e-50}],"mOverSampling":-5,"mRight":1e-50})",
      R"({"mCharacters":[{"mGlyphID":4294967297,"mAlignment":-1,"mStrokeWidth":9223372036854775808}]})",
      R"({"mCharacters":[{"mGlyphID":2.9,"mAlignment":-2.9,"mFontSize":40}]})",
      R"({"mCharacters":[{"mFontName":"\u00e9\ud800x\ud83d\ude00","mGlyphID":1},{"mFontName":"\u00e9\ud800x\ud83d\ude00"},{"mFontName":""}]})"};
  for (const char* t : texts) ExpectSameReading(std::string(t));
  ExpectSameReading(std::u16string(u"{\"mCharacters\":[{\"mFontName\":\"") + char16_t(0xDC00) +
                    u"\"}]}");
}

TEST(LayoutJson, StreamReadsAsTheTreeReaderOnDamagedText) {
  // Random damage to a real layout text: both readers must agree on every result.
  RandomLayouts gen(23);
  const std::u16string text = vetext::LayoutToText(gen.Layout(3));
  const std::u16string swaps = u"{}[]\":,0-.e tfn\\u";
  int read = 0;
  for (int i = 0; i < 600; ++i) {
    std::u16string damaged = text;
    for (int k = 1 + int(gen.rng() % 3); k > 0; --k) {
      const size_t at = gen.rng() % damaged.size();
      const char16_t c = swaps[gen.rng() % swaps.size()];
      const int op = int(gen.rng() % 3);  // replace, erase or insert
      damaged.replace(at, op == 0 ? 1 : op == 1 ? 1 + gen.rng() % 8 : 0, op == 1 ? 0 : 1, c);
      if (damaged.empty()) damaged.push_back(u'{');
    }
    read += ExpectSameReading(damaged).error.empty();
  }
  // Some damage leaves well-formed text (a changed digit): both paths were exercised.
  EXPECT_GT(read, 10);
  EXPECT_LT(read, 590);
}

}  // namespace

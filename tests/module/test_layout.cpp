// The layout record's JSON form.
#include <gtest/gtest.h>

#include <boost/any.hpp>

#include <cstring>
#include <limits>
#include <random>
#include <vector>

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

// ---- the streaming reader and writer against the tree forms ----

// What a reader made of a text: the record, or which failure.
struct Outcome {
  enum Kind { kRead, kNotWellFormed, kBadCast, kOther } kind;
  LayoutRecord record;
  bool operator==(const Outcome&) const = default;
};

template <typename Reader>
Outcome Run(Reader read, const std::u16string& text) {
  // Failures must leave the caller's record as it was.
  Outcome o{Outcome::kRead, Sample()};
  try {
    read(text.data(), text.size(), o.record);
  } catch (const KTE::Error& e) {
    o.kind =
        std::string(e.what()) == "JSON not well-formed" ? Outcome::kNotWellFormed : Outcome::kOther;
  } catch (const boost::bad_any_cast&) {
    o.kind = Outcome::kBadCast;
  } catch (...) {
    o.kind = Outcome::kOther;
  }
  if (o.kind != Outcome::kRead) {
    EXPECT_EQ(o.record, Sample()) << "record changed on failure";
  }
  return o;
}

void ExpectSameReading(const std::u16string& text) {
  SCOPED_TRACE(vxcore::UTF16ToUTF8(text).substr(0, 300));
  const Outcome tree = Run(vetext::TextToLayoutTree, text);
  const Outcome stream = Run(vetext::TextToLayout, text);
  EXPECT_EQ(stream.kind, tree.kind);
  EXPECT_EQ(stream.record, tree.record);
}

class RandomLayouts {
 public:
  explicit RandomLayouts(uint32_t seed) : rng_(seed) {}
  float Float() {
    for (;;) {
      uint32_t bits = uint32_t(rng_());
      float f;
      std::memcpy(&f, &bits, sizeof f);
      if (std::isfinite(f)) return rng_() % 4 == 0 ? float(int(rng_() % 200) - 100) : f;
    }
  }
  LayoutRecord Layout(size_t max_chars) {
    static const std::u16string kNames[] = {
        u"Liberation Sans", u"", u"DejaVu Sans Bold Oblique \u00c9\u65e5", u"\U0001F600 \"q\"\\",
        std::u16string(u"lone ") + char16_t(0xD800)};
    LayoutRecord l;
    l.mCharacters.resize(rng_() % (max_chars + 1));
    for (CharacterRecord& c : l.mCharacters) {
      c.mGlyphID = int32_t(rng_());
      c.mFontName = kNames[rng_() % 5];
      for (float* f : {&c.mFontSize, &c.mOriginX, &c.mOriginY, &c.mLeft, &c.mTop, &c.mWidth,
                       &c.mHeight, &c.mFillRed, &c.mFillGreen, &c.mFillBlue, &c.mStrokeRed,
                       &c.mStrokeGreen, &c.mStrokeBlue, &c.mStrokeWidth, &c.mBaselineShift})
        *f = Float();
      c.mFillFirst = rng_() % 2;
      c.mAlignment = uint32_t(rng_());
    }
    for (float* f : {&l.mLeft, &l.mTop, &l.mRight, &l.mBottom, &l.mOverSampling}) *f = Float();
    l.mTextInABox = rng_() % 2;
    return l;
  }
  std::mt19937& rng() { return rng_; }

 private:
  std::mt19937 rng_;
};

TEST(LayoutJsonStream, WritesTheTreeFormsTextByteForByte) {
  RandomLayouts gen(7);
  std::vector<LayoutRecord> layouts = {LayoutRecord{}, Sample()};
  for (int i = 0; i < 60; ++i) layouts.push_back(gen.Layout(30));
  // Values JSON cannot spell are written as the tree writes them (null).
  LayoutRecord odd = Sample();
  odd.mLeft = std::numeric_limits<float>::infinity();
  odd.mCharacters[0].mOriginX = std::numeric_limits<float>::quiet_NaN();
  layouts.push_back(odd);
  for (const LayoutRecord& l : layouts) {
    EXPECT_EQ(vetext::LayoutToText(l), vetext::LayoutToTextTree(l));
    EXPECT_EQ(vetext::LayoutToText(l, true), vetext::LayoutToTextTree(l, true));
  }
}

TEST(LayoutJsonStream, ReadsAsTheTreeReaderOnRandomLayouts) {
  RandomLayouts gen(11);
  for (int i = 0; i < 60; ++i) {
    const LayoutRecord l = gen.Layout(30);
    const std::u16string text = vetext::LayoutToText(l, i % 4 == 0);
    ExpectSameReading(text);
    ExpectSameReading(u"{\"SerializerWrappedObject\":" + text + u"}");
    // Every field comes back (lone surrogates in names read as U+FFFD, as through UTF-8).
    LayoutRecord back;
    vetext::TextToLayout(text.data(), text.size(), back);
    ASSERT_EQ(back.mCharacters.size(), l.mCharacters.size());
    for (size_t k = 0; k < l.mCharacters.size(); ++k) {
      CharacterRecord want = l.mCharacters[k];
      want.mFontName = vxcore::UTF8ToUTF16(vxcore::UTF16ToUTF8(want.mFontName));
      EXPECT_EQ(back.mCharacters[k], want);
    }
    EXPECT_EQ(back.mLeft, l.mLeft);
    EXPECT_EQ(back.mOverSampling, l.mOverSampling);
    EXPECT_EQ(back.mTextInABox, l.mTextInABox);
  }
}

TEST(LayoutJsonStream, ReadsAsTheTreeReaderOnQuirksAndWrongTypes) {
  const char* texts[] = {
      "{}",
      "[]",
      "null",
      "1",
      "\"s\"",
      "",
      "{\"mLeft\":1",
      "{\"mLeft\":\"x\",",
      "{\"mLeft\":\"x\"}}",
      "{\"mLeft\":\"x\"} [",
      // The wrapper: anywhere in the root, first one only, root level only, never a non-object.
      R"({"SerializerWrappedObject":{"mLeft":2},"mLeft":1})",
      R"({"mLeft":1,"SerializerWrappedObject":{"mLeft":2,"mCharacters":[{"mGlyphID":3}]}})",
      R"({"mLeft":"bad","mCharacters":7,"SerializerWrappedObject":{"mTop":2}})",
      R"({"SerializerWrappedObject":{"mLeft":"bad"},"mLeft":2})",
      R"({"SerializerWrappedObject":null})",
      R"({"SerializerWrappedObject":[1]})",
      R"({"SerializerWrappedObject":{"SerializerWrappedObject":{"mLeft":3},"mTop":1}})",
      R"({"SerializerWrappedObject":{"mLeft":1},"SerializerWrappedObject":{"mLeft":2}})",
      R"({"SerializerWrappedObject":5,"SerializerWrappedObject":{"mLeft":2}})",
      R"({"mCharacters":[{"SerializerWrappedObject":{"mGlyphID":3}}]})",
      R"([{"SerializerWrappedObject":{}}])",
      // Duplicates: the first counts, later ones are not even type-checked.
      R"({"mLeft":1,"mLeft":2})",
      R"({"mLeft":1,"mLeft":"x"})",
      R"({"mLeft":"x","mLeft":1})",
      R"({"mCharacters":[{"mGlyphID":1}],"mCharacters":[{"mGlyphID":2},{}]})",
      R"({"mCharacters":[{"mGlyphID":1}],"mCharacters":5})",
      R"({"mCharacters":[{"mGlyphID":1,"mGlyphID":2,"mFontName":"a","mFontName":7}]})",
      R"({"mCharacters":[{"mAlignment":1,"mFillFirst":true,"mAlignment":"x","mFillFirst":0}]})",
      // Unknown members, however deep, are skipped; keys match exactly.
      R"({"x":{"mLeft":5,"y":[{"mCharacters":1}]},"mLeft":1,"mCharacters":[{"z":[[{}]],"mTop":2}]})",
      R"({"mleft":1,"mLef":2,"mLeftX":3,"mLeft ":4,"mTop":5})",
      // Wrong types.
      R"({"mCharacters":[1]})",
      R"({"mCharacters":[null]})",
      R"({"mCharacters":[[]]})",
      R"({"mCharacters":null})",
      R"({"mCharacters":{}})",
      R"({"mTextInABox":0})",
      R"({"mTextInABox":null})",
      R"({"mCharacters":[{"mFontName":null}]})",
      R"({"mCharacters":[{"mFontName":3}]})",
      R"({"mCharacters":[{"mGlyphID":true}]})",
      R"({"mCharacters":[{"mAlignment":"2"}]})",
      R"({"mCharacters":[{"mFillFirst":{}}]})",
      R"({"mCharacters":[{"mFillFirst":1}]})",
      R"({"mOverSampling":[4]})",
      R"({"mCharacters":[{},{"mWidth":{}},{}]})",
      // Number kinds and ranges.
      R"({"mCharacters":[{"mGlyphID":-1e300,"mAlignment":1e300,"mFontSize":1e300,)"
      R"("mOriginX":-1e300,"mOriginY":18446744073709551615,"mLeft":-9223372036854775808,)"
      R"("mTop":4294967296.7,"mWidth":-0.0,"mHeight":1e-50}],"mOverSampling":-5,"mRight":1e-50})",
      R"({"mCharacters":[{"mGlyphID":4294967297,"mAlignment":-1,"mStrokeWidth":9223372036854775808}]})",
      R"({"mCharacters":[{"mGlyphID":2.9,"mAlignment":-2.9,"mFontSize":40}]})",
      R"({"mCharacters":[{"mFontName":"\u00e9\ud800x\ud83d\ude00","mGlyphID":1},{"mFontName":"\u00e9\ud800x\ud83d\ude00"},{"mFontName":""}]})",
  };
  for (const char* t : texts) ExpectSameReading(vxcore::UTF8ToUTF16(t));
  ExpectSameReading(std::u16string(u"{\"mCharacters\":[{\"mFontName\":\"") + char16_t(0xDC00) +
                    u"\"}]}");
}

TEST(LayoutJsonStream, ReadsAsTheTreeReaderOnDamagedText) {
  // Random damage to a real layout text: both readers must agree on every result.
  RandomLayouts gen(23);
  const std::u16string text = vetext::LayoutToText(gen.Layout(3));
  const char16_t kSwaps[] = u"{}[]\":,0-.e tfn\\u";
  std::mt19937& rng = gen.rng();
  int read = 0;
  for (int i = 0; i < 600; ++i) {
    std::u16string damaged = text;
    for (int k = 1 + int(rng() % 3); k > 0; --k) {
      const size_t at = rng() % damaged.size();
      switch (rng() % 3) {
        case 0:
          damaged[at] = kSwaps[rng() % (sizeof kSwaps / sizeof kSwaps[0] - 1)];
          break;
        case 1:
          damaged.erase(at, 1 + rng() % 8);
          break;
        default:
          damaged.insert(at, 1, kSwaps[rng() % (sizeof kSwaps / sizeof kSwaps[0] - 1)]);
          break;
      }
      if (damaged.empty()) damaged.push_back(u'{');
    }
    ExpectSameReading(damaged);
    LayoutRecord l;
    try {
      vetext::TextToLayout(damaged.data(), damaged.size(), l);
      ++read;
    } catch (...) {
    }
  }
  // Some damage leaves well-formed text (a changed digit): both paths were exercised.
  EXPECT_GT(read, 10);
  EXPECT_LT(read, 590);
}

}  // namespace

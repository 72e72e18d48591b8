// The document and layout records' JSON forms (the layout's streaming reader and writer against
// the tree forms they stand in for), the document block, and the tool's document options parsed on
// a real CLI::App.
#include <gtest/gtest.h>

#include <boost/any.hpp>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "doc_options.h"
#include "document/document_json.h"
#include "document/layout_json.h"
#include "engine/kte.h"
#include "vetext/vxcore.h"

namespace {

using vetext::CharacterRecord;
using vetext::DocumentRecord;
using vetext::LayoutRecord;

// The tests resolve fonts through the repository's configuration, as the module does under ctest.
[[maybe_unused]] const int kFontConfig =
    (setenv("FONTCONFIG_FILE", VETEXT_SOURCE_DIR "/fonts/fonts.conf", 0), 0);

// A block: the 64-bit little-endian length field, then the text in UTF-16LE.
std::vector<uint8_t> BlockOf(const std::u16string& text, uint64_t length_field) {
  std::vector<uint8_t> b(8);
  for (int i = 0; i < 8; ++i) b[i] = uint8_t(length_field >> (8 * i));
  for (char16_t c : text) b.insert(b.end(), {uint8_t(c & 0xFF), uint8_t(c >> 8)});
  return b;
}
std::vector<uint8_t> BlockOf(const std::string& utf8) {
  const std::u16string t = vxcore::UTF8ToUTF16(utf8);
  return BlockOf(t, t.size() * 2);
}
DocumentRecord Read(const std::vector<uint8_t>& b, DocumentRecord d = {}) {
  vetext::ReadDocumentBlock(b.data(), b.size(), d);
  return d;
}
DocumentRecord Read(const std::string& json) {
  return Read(BlockOf(json));
}
std::string ErrorOf(const std::vector<uint8_t>& b) {
  try {
    Read(b);
  } catch (const KTE::Error& e) {
    return e.what();
  }
  return "";
}

TEST(Document, DefaultIsNineSingleCharacterRunsOfTheDefaultText) {
  DocumentRecord want;  // point text; centred, 40 points, white fill over a stroke of width 0
  for (char16_t c : std::u16string(u"TEXT Wgij"))
    want.mTextParam.mTextRuns.push_back({{c}, {u"Liberation Sans"}});
  EXPECT_EQ(KTE::MakeDocument(nullptr, 0)->data, want);
  // Installed families resolve to themselves; any other name to some family.
  EXPECT_EQ(KTE::FindFont(u"ArialUnicodeMS"), u"Liberation Sans");
  EXPECT_FALSE(KTE::FindFont(u"No Such Font Family 123").empty());
}

TEST(Document, WriteThenReadGivesEveryFieldBack) {
  const std::vector<uint8_t> first = KTE::WriteDocument(*KTE::MakeDefaultDocument());
  EXPECT_EQ(KTE::WriteDocument(*KTE::MakeDocument(first.data(), first.size())), first);

  vetext::TextRun run{
      u"h\u00e9llo \U0001F600\r\u4e16",
      {u"DejaVu Serif", 12.25f, 0.1f, 1, 1, 1, 1, 1e-7f, 3, false, 48.5f, -20, 75, -2.5f, false},
      {6}};
  const DocumentRecord d{7, {{run, {u"", run.mStyleParam, run.mParaParam}}, 640, -3}};
  const std::vector<uint8_t> block = vetext::WriteDocumentBlock(d);
  // Runs already in the target are replaced, not added to.
  EXPECT_EQ(Read(block, DocumentRecord{1, {std::vector<vetext::TextRun>(5)}}), d);
  EXPECT_EQ(vetext::WriteDocumentBlock(Read(block)), block);
}

TEST(Document, BlockIsTheLengthThenCompactTextInRecordOrder) {
  const DocumentRecord d{1, {{{u"a", {u"F"}}}, 2, 3}};
  EXPECT_EQ(vetext::WriteDocumentBlock(d),
            BlockOf(R"({"mVersion":1,"mTextParam":{"mTextRuns":[{"mText":"a","mStyleParam":{)"
                    R"("mFontName":"F","mFontSize":40.0,"mFillRed":1.0,"mFillGreen":1.0,)"
                    R"("mFillBlue":1.0,"mStrokeRed":1.0,"mStrokeGreen":1.0,"mStrokeBlue":1.0,)"
                    R"("mStrokeWidth":0.0,"mAutoLeading":true,"mLeading":0.0,"mKerning":0.0,)"
                    R"("mTracking":0.0,"mBaselineShift":0.0,"mFillOverStroke":true},)"
                    R"("mParaParam":{"mAlignment":2}}],"mWidth":2,"mHeight":3}})"));
}

TEST(Document, ReaderKeysWrapperAndNumberKinds) {
  // Keys of older documents at the top level win over those inside mTextParam.
  EXPECT_EQ(
      Read(
          R"({"mVersion":1,"mTextParam":{"mTextRuns":[{"mText":"inner"},{"mText":"x"}],"mWidth":10,"mHeight":20},)"
          R"("mTextRuns":[{"mText":"outer"}],"mHeight":99})"),
      (DocumentRecord{1, {{{u"outer"}}, 10, 99}}));
  EXPECT_EQ(Read(R"({"mTextRuns":[{"mText":"a"},{"mText":"b"}],"mWidth":5})"),
            (DocumentRecord{1, {{{u"a"}, {u"b"}}, 5, 0}}));
  EXPECT_EQ(
      Read(
          R"({"SerializerWrappedObject":{"mVersion":3,"mTextParam":{"mTextRuns":[{"mText":"w"}]}}})"),
      (DocumentRecord{3, {{{u"w"}}, 0, 0}}));

  // Missing members keep their defaults; integers read as floats; doubles as integers.
  vetext::TextRun want{u"q"};
  want.mStyleParam.mTracking = 18446744073709551615.0f;  // an unsigned value converts as unsigned
  want.mParaParam.mAlignment = 1;                        // truncated to 32 bits
  EXPECT_EQ(
      Read(
          R"({"mTextParam":{"mTextRuns":[{"mText":"q","mStyleParam":{"mFontSize":40,"mTracking":18446744073709551615},)"
          R"("mParaParam":{"mAlignment":4294967297}}],"mWidth":12.9}})"),
      (DocumentRecord{1, {{want}, 12, 0}}));

  // Numbers beyond the float range clamp, so the record can be written and read again.
  DocumentRecord huge = Read(
      R"({"mTextParam":{"mTextRuns":[{"mStyleParam":{"mFontSize":1e300,"mLeading":-1e39}}],"mWidth":1e30}})");
  const vetext::StyleParam& hs = huge.mTextParam.mTextRuns.at(0).mStyleParam;
  constexpr float kMax = std::numeric_limits<float>::max();
  EXPECT_EQ(std::pair(hs.mFontSize, hs.mLeading), std::pair(kMax, -kMax));
  EXPECT_EQ(Read(vetext::WriteDocumentBlock(huge)), huge);
}

TEST(Document, BadBlocksFailCleanly) {
  const std::u16string good = u"{\"mVersion\":2}";
  for (const auto& block :
       {BlockOf("{\"mVersion\":"), BlockOf(""), std::vector<uint8_t>{4, 0, 0},  // short length
        BlockOf(good, 10), BlockOf(good, good.size() * 2 - 1)})  // text cut short, odd length
    EXPECT_EQ(ErrorOf(block), "JSON not well-formed");
  // A length field far beyond the bytes present reads only what is there.
  EXPECT_EQ(Read(BlockOf(good, ~uint64_t{0})).mVersion, 2);
  // Well-formed JSON that is not a document record.
  EXPECT_NE(ErrorOf(BlockOf("[1,2]")), "");
  EXPECT_NE(ErrorOf(BlockOf(R"({"mTextParam":{"mTextRuns":{}}})")), "");
  const std::string wrong = ErrorOf(BlockOf(R"({"mTextParam":{"mTextRuns":[{"mText":5}]}})"));
  EXPECT_NE(wrong.find("mText"), std::string::npos) << wrong;
  // A failed read leaves the caller's record as it was.
  DocumentRecord keep;
  keep.mVersion = 42;
  auto bad = BlockOf(R"({"mVersion":9,"mTextParam":{"mWidth":"wide"}})");
  EXPECT_THROW(vetext::ReadDocumentBlock(bad.data(), bad.size(), keep), KTE::Error);
  EXPECT_EQ(keep.mVersion, 42);
  EXPECT_THROW(KTE::MakeDocument(bad.data(), bad.size()), KTE::Error);
}

// ---- the tool's document options ----

// `args` is split as a shell would, quotes included.
vetext::DocumentRecord Build(const std::string& args) {
  CLI::App app;
  vetext_tool::DocumentOptions o;
  vetext_tool::AddDocumentOptions(app, o);
  app.parse(args, false);
  return vetext_tool::BuildDocument(o);
}

TEST(DocOptions, ColoursBothSpellings) {
  const std::pair<const char*, vetext_tool::Rgb> kGood[] = {{"#ff8000", {1, 128 / 255.0f, 0}},
                                                            {"0.25,0.5,1", {0.25f, 0.5f, 1}}};
  for (const auto& [text, want] : kGood) {
    const vetext_tool::Rgb c = vetext_tool::ParseColor(text);
    EXPECT_EQ(std::tuple(c.r, c.g, c.b), std::tuple(want.r, want.g, want.b)) << text;
  }
  for (const char* bad :
       {"#ff80", "#ff80001", "#gg0000", "1,2,3", "0.5,0.5", "0.1,0.2,0.3x", "", "-0.1,0,0"})
    EXPECT_THROW(vetext_tool::ParseColor(bad), std::runtime_error) << bad;
}

TEST(DocOptions, TextStyleBoxAndAlignment) {
  EXPECT_EQ(Build(""), KTE::MakeDefaultDocument()->data);
  EXPECT_EQ(Build("--default"), KTE::MakeDefaultDocument()->data);

  const vetext::TextRun run{
      u"H\u00e9llo",
      {u"DejaVu Serif", 72, 0, 0, 0, 1, 0, 0, 3, false, 90, -10, 50, 4, false},
      {vetext::kAlignJustifyLastCenter}};
  EXPECT_EQ(Build("--text H\u00e9llo --font 'DejaVu Serif' --size 72 --fill #000000 "
                  "--stroke 1,0,0 --stroke-width 3 --leading 90 --tracking 50 --kerning -10 "
                  "--baseline-shift 4 --stroke-over-fill --box 640x360 "
                  "--align 'justify LAST center'"),
            (vetext::DocumentRecord{1, {{run}, 640, 360}}));

  // Style options reach every run of the base; right comes before center in the names.
  vetext::DocumentRecord all = KTE::MakeDefaultDocument()->data;
  for (auto& r : all.mTextParam.mTextRuns)
    r.mStyleParam.mFontSize = 10, r.mParaParam.mAlignment = vetext::kAlignRight;
  EXPECT_EQ(Build("--size 10 --align 'RIGHT align'"), all);
}

TEST(DocOptions, FromJsonAndFromBlock) {
  const std::string json = testing::TempDir() + "/h3_doc.json",
                    block = testing::TempDir() + "/h3_doc.bin";
  auto write = [](const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
  };
  write(json,
        R"({"mVersion":1,"mTextParam":{"mTextRuns":[{"mText":"a"},{"mText":"b"}],"mWidth":5}})");
  vetext::DocumentRecord from = Build("--from " + json + " --size 20");
  ASSERT_EQ(from.mTextParam.mTextRuns.size(), 2u);
  EXPECT_EQ(from.mTextParam.mWidth, 5);
  EXPECT_EQ(from.mTextParam.mTextRuns[1].mStyleParam.mFontSize, 20.0f);

  const std::vector<uint8_t> bytes = vetext::WriteDocumentBlock(from);
  write(block, std::string(bytes.begin(), bytes.end()));
  EXPECT_EQ(Build("--block-in " + block), from);
  EXPECT_THROW(Build("--from " + json + " --block-in " + block), CLI::ExcludesError);

  write(json, "{\"mTextParam\":");
  EXPECT_THROW(Build("--from " + json), std::runtime_error);
  std::remove(json.c_str());
  std::remove(block.c_str());
}

// ---- the layout record ----

struct RandomLayouts {
  std::mt19937 rng;
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
};

// A record with every field set, to read over.
const LayoutRecord kFull = RandomLayouts{std::mt19937(1)}.Layout(4);

const std::string kNotWellFormed = "JSON not well-formed";

// What a reader made of a text: the record, or the failure's message.
struct Outcome {
  std::string error;
  LayoutRecord record;
};

template <typename Reader>
Outcome Run(Reader read, const std::u16string& text) {
  Outcome o{"", kFull};  // read over a full record: it is replaced, not added to
  try {
    read(text.data(), text.size(), o.record);
  } catch (const boost::bad_any_cast&) {
    o.error = "wrong type";
  } catch (const std::exception& e) {
    o.error = e.what();
  }
  // Failures must leave the caller's record as it was.
  EXPECT_TRUE(o.error.empty() || o.record == kFull) << "record changed on failure";
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
  RandomLayouts gen{std::mt19937(7)};
  std::vector<LayoutRecord> layouts = {LayoutRecord{}, kFull};
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
  LayoutRecord odd = kFull;
  odd.mLeft = std::numeric_limits<float>::infinity();
  odd.mCharacters[0].mOriginX = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(vetext::LayoutToText(odd), vetext::LayoutToTextTree(odd));
}

TEST(LayoutJson, MissingKeysNumberKindsAndFailures) {
  // A missing mOverSampling reads as 0, not as the constructor's 4.
  const LayoutRecord want{std::vector<CharacterRecord>(1), 1, 0, 0, 0, 0, false};
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
  // After a few malformed ones: the wrapper (anywhere in the root, first one only, root level
  // only, never a non-object); duplicates (the first counts, later ones are not even
  // type-checked); unknown members (skipped however deep; keys match exactly); wrong types.
  const char* texts[] = {
      "{}", "[]", "null", "1", "\"s\"", "", "{\"mLeft\":1", "{\"mLeft\":\"x\",",
      "{\"mLeft\":\"x\"}}", "{\"mLeft\":\"x\"} [",
      R"({"SerializerWrappedObject":{"mLeft":2},"mLeft":1})",
      R"({"mLeft":1,"SerializerWrappedObject":{"mLeft":2,"mCharacters":[{"mGlyphID":3}]}})",
      R"({"mLeft":"bad","mCharacters":7,"SerializerWrappedObject":{"mTop":2}})",
      R"({"SerializerWrappedObject":{"mLeft":"bad"},"mLeft":2})",
      R"({"SerializerWrappedObject":null})", R"({"SerializerWrappedObject":[1]})",
      R"({"SerializerWrappedObject":{"SerializerWrappedObject":{"mLeft":3},"mTop":1}})",
      R"({"SerializerWrappedObject":{"mLeft":1},"SerializerWrappedObject":{"mLeft":2}})",
      R"({"SerializerWrappedObject":5,"SerializerWrappedObject":{"mLeft":2}})",
      R"({"mCharacters":[{"SerializerWrappedObject":{"mGlyphID":3}}]})",
      R"([{"SerializerWrappedObject":{}}])", R"({"mLeft":1,"mLeft":2})",
      R"({"mLeft":1,"mLeft":"x"})", R"({"mLeft":"x","mLeft":1})",
      R"({"mCharacters":[{"mGlyphID":1}],"mCharacters":[{"mGlyphID":2},{}]})",
      R"({"mCharacters":[{"mGlyphID":1}],"mCharacters":5})",
      R"({"mCharacters":[{"mGlyphID":1,"mGlyphID":2,"mFontName":"a","mFontName":7}]})",
      R"({"mCharacters":[{"mAlignment":1,"mFillFirst":true,"mAlignment":"x","mFillFirst":0}]})",
      R"({"x":{"mLeft":5,"y":[{"mCharacters":1}]},"mLeft":1,"mCharacters":[{"z":[[{}]],"mTop":2}]})",
      R"({"mleft":1,"mLef":2,"mLeftX":3,"mLeft ":4,"mTop":5})", R"({"mCharacters":[1]})",
      R"({"mCharacters":[[]]})", R"({"mCharacters":null})", R"({"mCharacters":{}})",
      R"({"mTextInABox":0})", R"({"mCharacters":[{"mFontName":3}]})",
      R"({"mCharacters":[{"mGlyphID":true}]})", R"({"mCharacters":[{"mAlignment":"2"}]})",
      R"({"mCharacters":[{"mFillFirst":{}}]})", R"({"mOverSampling":[4]})",
      R"({"mCharacters":[{},{"mWidth":{}},{}]})",
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
  RandomLayouts gen{std::mt19937(23)};
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

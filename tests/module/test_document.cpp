// The document record's JSON form, the document block around it, and the facade's document
// operations.
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <string>

#include "document/document_json.h"
#include "engine/kte.h"
#include "vetext/vxcore.h"

namespace {

using vetext::DocumentRecord;

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
  KTE::DocumentPtr doc = KTE::MakeDocument(nullptr, 0);
  const DocumentRecord& d = doc->data;
  EXPECT_EQ(d.mVersion, 1);
  EXPECT_EQ(d.mTextParam.mWidth, 0);
  EXPECT_EQ(d.mTextParam.mHeight, 0);
  ASSERT_EQ(d.mTextParam.mTextRuns.size(), 9u);
  vetext::TextRun want;  // centred, 40 points, white fill over a stroke of width 0
  want.mStyleParam.mFontName = u"Liberation Sans";
  for (size_t i = 0; i < 9; ++i) {
    want.mText = std::u16string(u"TEXT Wgij").substr(i, 1);
    EXPECT_EQ(d.mTextParam.mTextRuns[i], want) << i;
  }
  // Installed families resolve to themselves; any other name to some family.
  EXPECT_EQ(KTE::FindFont(u"ArialUnicodeMS"), u"Liberation Sans");
  EXPECT_EQ(KTE::FindFont(u"DejaVu Sans"), u"DejaVu Sans");
  EXPECT_FALSE(KTE::FindFont(u"No Such Font Family 123").empty());
}

TEST(Document, WriteThenReadGivesEveryFieldBack) {
  const std::vector<uint8_t> first = KTE::WriteDocument(*KTE::MakeDefaultDocument());
  EXPECT_EQ(KTE::WriteDocument(*KTE::MakeDocument(first.data(), first.size())), first);

  vetext::TextRun run{
      u"h\u00e9llo \U0001F600\r\u4e16",
      {u"DejaVu Serif", 12.25f, 0.1f, 1, 1, 1, 1, 1e-7f, 3, false, 48.5f, -20, 75, -2.5f, false},
      {6}};
  const DocumentRecord d{7, {{run, run}, 640, -3}};
  DocumentRecord partial = d;
  partial.mTextParam.mTextRuns[1].mText = u"";
  for (const DocumentRecord& want : {d, partial}) {
    const std::vector<uint8_t> block = vetext::WriteDocumentBlock(want);
    DocumentRecord many;
    many.mTextParam.mTextRuns.resize(5);  // runs in the target are replaced, not appended to
    EXPECT_EQ(Read(block, many), want);
    EXPECT_EQ(vetext::WriteDocumentBlock(Read(block)), block);
  }
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
  EXPECT_EQ(hs.mFontSize, std::numeric_limits<float>::max());
  EXPECT_EQ(hs.mLeading, -std::numeric_limits<float>::max());
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

TEST(Facade, AlignmentNamesFollowTheBox) {
  DocumentRecord d = KTE::MakeDefaultDocument()->data;
  const std::vector<std::u16string> point = {u"Left Align", u"Right Align", u"Center Align"};
  std::vector<std::u16string> boxed = point;
  boxed.insert(boxed.end(), {u"Justify Last Left", u"Justify Last Center", u"Justify Last Right",
                             u"Justify All"});
  EXPECT_EQ(KTE::AlignmentNames(d), point);
  const std::pair<int32_t, int32_t> kBoxes[] = {{300, 0}, {0, 50}, {0, 0}};
  for (auto [width, height] : kBoxes) {
    KTE::SetTextBox(d, width, height);
    EXPECT_EQ(KTE::AlignmentNames(d), width || height ? boxed : point) << width << "x" << height;
  }
  EXPECT_EQ(d.mTextParam.mWidth, 0);
}

}  // namespace

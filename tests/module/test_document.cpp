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

std::vector<uint8_t> BlockOf(const std::u16string& text, uint64_t length_field) {
  std::vector<uint8_t> b(8);
  for (int i = 0; i < 8; ++i) b[i] = uint8_t(length_field >> (8 * i));
  for (char16_t c : text) {
    b.push_back(uint8_t(c & 0xFF));
    b.push_back(uint8_t(c >> 8));
  }
  return b;
}
std::vector<uint8_t> BlockOf(const std::string& utf8) {
  std::u16string t = vxcore::UTF8ToUTF16(utf8);
  return BlockOf(t, t.size() * 2);
}
DocumentRecord Read(const std::string& json) {
  DocumentRecord d;
  auto b = BlockOf(json);
  vetext::ReadDocumentBlock(b.data(), b.size(), d);
  return d;
}
std::string ErrorOf(const std::vector<uint8_t>& b) {
  DocumentRecord d;
  try {
    vetext::ReadDocumentBlock(b.data(), b.size(), d);
  } catch (const KTE::Error& e) {
    return e.what();
  }
  return "";
}

TEST(DefaultDocument, NineSingleCharacterRunsOfTheDefaultText) {
  KTE::DocumentPtr doc = KTE::MakeDocument(nullptr, 0);
  const DocumentRecord& d = doc->data;
  EXPECT_EQ(d.mVersion, 1);
  EXPECT_EQ(d.mTextParam.mWidth, 0);
  EXPECT_EQ(d.mTextParam.mHeight, 0);
  ASSERT_EQ(d.mTextParam.mTextRuns.size(), 9u);
  const std::u16string text = u"TEXT Wgij";
  for (size_t i = 0; i < 9; ++i) {
    const vetext::TextRun& r = d.mTextParam.mTextRuns[i];
    EXPECT_EQ(r.mText, text.substr(i, 1)) << i;
    EXPECT_EQ(r.mParaParam.mAlignment, 2u);
    EXPECT_EQ(r.mStyleParam.mFontSize, 40.0f);
    EXPECT_EQ(r.mStyleParam.mFontName, u"Liberation Sans");
    EXPECT_TRUE(r.mStyleParam.mAutoLeading);
    EXPECT_TRUE(r.mStyleParam.mFillOverStroke);
    EXPECT_EQ(r.mStyleParam.mStrokeWidth, 0.0f);
  }
  EXPECT_EQ(KTE::FindFont(u"ArialUnicodeMS"), u"Liberation Sans");
}

TEST(DocumentBlock, WriteMakeWriteIsIdentical) {
  const std::vector<uint8_t> first = KTE::WriteDocument(*KTE::MakeDefaultDocument());
  const std::vector<uint8_t> second =
      KTE::WriteDocument(*KTE::MakeDocument(first.data(), first.size()));
  EXPECT_EQ(first, second);

  DocumentRecord d;
  d.mVersion = 7;
  d.mTextParam.mWidth = 640;
  d.mTextParam.mHeight = -3;
  vetext::TextRun run;
  run.mText = u"h\u00e9llo \U0001F600\r\u4e16";
  run.mStyleParam.mFontName = u"DejaVu Serif";
  run.mStyleParam.mFontSize = 12.25f;
  run.mStyleParam.mFillRed = 0.1f;
  run.mStyleParam.mStrokeBlue = 1e-7f;
  run.mStyleParam.mStrokeWidth = 3.0f;
  run.mStyleParam.mAutoLeading = false;
  run.mStyleParam.mLeading = 48.5f;
  run.mStyleParam.mKerning = -20.0f;
  run.mStyleParam.mTracking = 75.0f;
  run.mStyleParam.mBaselineShift = -2.5f;
  run.mStyleParam.mFillOverStroke = false;
  run.mParaParam.mAlignment = 6;
  d.mTextParam.mTextRuns = {run, run};
  d.mTextParam.mTextRuns[1].mText = u"";
  const std::vector<uint8_t> block = vetext::WriteDocumentBlock(d);
  DocumentRecord back;
  back.mTextParam.mTextRuns.resize(5);  // runs in the target are replaced, not appended to
  vetext::ReadDocumentBlock(block.data(), block.size(), back);
  EXPECT_EQ(back, d);
  EXPECT_EQ(vetext::WriteDocumentBlock(back), block);
}

TEST(DocumentBlock, LengthPrefixAndKeyOrder) {
  const std::vector<uint8_t> block = KTE::WriteDocument(*KTE::MakeDefaultDocument());
  ASSERT_GT(block.size(), 8u);
  uint64_t length = 0;
  for (int i = 0; i < 8; ++i) length |= uint64_t(block[i]) << (8 * i);
  EXPECT_EQ(length, block.size() - 8);
  EXPECT_EQ(length % 2, 0u);
  std::u16string text;
  for (size_t i = 8; i < block.size(); i += 2)
    text.push_back(char16_t(block[i] | block[i + 1] << 8));
  const std::string utf8 = vxcore::UTF16ToUTF8(text);
  EXPECT_EQ(utf8.find('\n'), std::string::npos) << "compact text";
  const char* keys[] = {
      "\"mVersion\"",    "\"mTextParam\"",   "\"mTextRuns\"",      "\"mText\"",
      "\"mStyleParam\"", "\"mFontName\"",    "\"mFontSize\"",      "\"mFillRed\"",
      "\"mFillGreen\"",  "\"mFillBlue\"",    "\"mStrokeRed\"",     "\"mStrokeGreen\"",
      "\"mStrokeBlue\"", "\"mStrokeWidth\"", "\"mAutoLeading\"",   "\"mLeading\"",
      "\"mKerning\"",    "\"mTracking\"",    "\"mBaselineShift\"", "\"mFillOverStroke\"",
      "\"mParaParam\"",  "\"mAlignment\""};
  size_t at = 0;
  for (const char* k : keys) {
    size_t pos = utf8.find(k, at);
    ASSERT_NE(pos, std::string::npos) << k << " after " << at;
    at = pos;
  }
  // The box follows the runs, after the last run's paragraph.
  EXPECT_GT(utf8.rfind("\"mWidth\""), utf8.rfind("\"mAlignment\""));
  EXPECT_GT(utf8.rfind("\"mHeight\""), utf8.rfind("\"mWidth\""));
  EXPECT_NE(utf8.find("\"mVersion\":1"), std::string::npos);
}

TEST(DocumentReader, LegacyTopLevelKeysWin) {
  DocumentRecord d = Read(
      R"({"mVersion":1,"mTextParam":{"mTextRuns":[{"mText":"inner"},{"mText":"x"}],"mWidth":10,"mHeight":20},)"
      R"("mTextRuns":[{"mText":"outer"}],"mHeight":99})");
  ASSERT_EQ(d.mTextParam.mTextRuns.size(), 1u);
  EXPECT_EQ(d.mTextParam.mTextRuns[0].mText, u"outer");
  EXPECT_EQ(d.mTextParam.mWidth, 10);  // absent at the top: the inner value stays
  EXPECT_EQ(d.mTextParam.mHeight, 99);

  DocumentRecord old = Read(R"({"mTextRuns":[{"mText":"a"},{"mText":"b"}],"mWidth":5})");
  ASSERT_EQ(old.mTextParam.mTextRuns.size(), 2u);
  EXPECT_EQ(old.mTextParam.mTextRuns[1].mText, u"b");
  EXPECT_EQ(old.mTextParam.mWidth, 5);
  EXPECT_EQ(old.mVersion, 1);
}

TEST(DocumentReader, WrapperMissingKeysAndNumberKinds) {
  DocumentRecord wrapped = Read(
      R"({"SerializerWrappedObject":{"mVersion":3,"mTextParam":{"mTextRuns":[{"mText":"w"}]}}})");
  EXPECT_EQ(wrapped.mVersion, 3);
  ASSERT_EQ(wrapped.mTextParam.mTextRuns.size(), 1u);
  EXPECT_EQ(wrapped.mTextParam.mTextRuns[0].mText, u"w");

  // Missing members keep their defaults; integers read as floats; doubles as integers.
  DocumentRecord d = Read(
      R"({"mTextParam":{"mTextRuns":[{"mText":"q","mStyleParam":{"mFontSize":40,"mTracking":18446744073709551615},)"
      R"("mParaParam":{"mAlignment":4294967297}}],"mWidth":12.9}})");
  ASSERT_EQ(d.mTextParam.mTextRuns.size(), 1u);
  const vetext::StyleParam& s = d.mTextParam.mTextRuns[0].mStyleParam;
  EXPECT_EQ(s.mFontSize, 40.0f);
  EXPECT_EQ(s.mTracking, 18446744073709551615.0f);  // an unsigned value converts as unsigned
  EXPECT_EQ(s.mFillGreen, 1.0f);
  EXPECT_TRUE(s.mAutoLeading);
  EXPECT_EQ(s.mFontName, u"");
  EXPECT_EQ(d.mTextParam.mTextRuns[0].mParaParam.mAlignment, 1u);  // truncated to 32 bits
  EXPECT_EQ(d.mTextParam.mWidth, 12);
  EXPECT_EQ(d.mTextParam.mHeight, 0);

  // Numbers beyond the float range clamp, so the record can be written and read again.
  DocumentRecord huge = Read(
      R"({"mTextParam":{"mTextRuns":[{"mStyleParam":{"mFontSize":1e300,"mLeading":-1e39}}],"mWidth":1e30}})");
  const vetext::StyleParam& hs = huge.mTextParam.mTextRuns.at(0).mStyleParam;
  EXPECT_EQ(hs.mFontSize, std::numeric_limits<float>::max());
  EXPECT_EQ(hs.mLeading, -std::numeric_limits<float>::max());
  const std::vector<uint8_t> again = vetext::WriteDocumentBlock(huge);
  DocumentRecord back;
  vetext::ReadDocumentBlock(again.data(), again.size(), back);
  EXPECT_EQ(back, huge);
}

TEST(DocumentReader, BadBlocksFailCleanly) {
  EXPECT_EQ(ErrorOf(BlockOf("{\"mVersion\":")), "JSON not well-formed");
  EXPECT_EQ(ErrorOf(BlockOf("")), "JSON not well-formed");
  EXPECT_EQ(ErrorOf(std::vector<uint8_t>{4, 0, 0}), "JSON not well-formed");  // truncated length
  // A length field far beyond the bytes present reads only what is there.
  const std::u16string good = u"{\"mVersion\":2}";
  DocumentRecord d;
  auto big = BlockOf(good, ~uint64_t{0});
  vetext::ReadDocumentBlock(big.data(), big.size(), d);
  EXPECT_EQ(d.mVersion, 2);
  // A length field that cuts the text short, or an odd byte count, parses only the whole units.
  EXPECT_EQ(ErrorOf(BlockOf(good, 10)), "JSON not well-formed");
  auto odd = BlockOf(good, good.size() * 2 - 1);
  EXPECT_EQ(ErrorOf(odd), "JSON not well-formed");
  // Well-formed JSON that is not a document record.
  EXPECT_NE(ErrorOf(BlockOf("[1,2]")), "");
  const std::string wrong = ErrorOf(BlockOf(R"({"mTextParam":{"mTextRuns":[{"mText":5}]}})"));
  EXPECT_NE(wrong.find("mText"), std::string::npos) << wrong;
  EXPECT_NE(ErrorOf(BlockOf(R"({"mTextParam":{"mTextRuns":{}}})")), "");
  // A failed read leaves the caller's record as it was.
  DocumentRecord keep;
  keep.mVersion = 42;
  auto bad = BlockOf(R"({"mVersion":9,"mTextParam":{"mWidth":"wide"}})");
  EXPECT_THROW(vetext::ReadDocumentBlock(bad.data(), bad.size(), keep), KTE::Error);
  EXPECT_EQ(keep.mVersion, 42);
  EXPECT_THROW(KTE::MakeDocument(bad.data(), bad.size()), KTE::Error);
}

TEST(Facade, TextBoxAndAlignmentNames) {
  DocumentRecord d = KTE::MakeDefaultDocument()->data;
  const std::vector<std::u16string> point = {u"Left Align", u"Right Align", u"Center Align"};
  EXPECT_EQ(KTE::AlignmentNames(d), point);
  KTE::SetTextBox(d, 300, 0);
  auto boxed = KTE::AlignmentNames(d);
  ASSERT_EQ(boxed.size(), 7u);
  EXPECT_EQ(boxed[3], u"Justify Last Left");
  EXPECT_EQ(boxed[4], u"Justify Last Center");
  EXPECT_EQ(boxed[5], u"Justify Last Right");
  EXPECT_EQ(boxed[6], u"Justify All");
  KTE::SetTextBox(d, 0, 50);
  EXPECT_EQ(KTE::AlignmentNames(d).size(), 7u);
  KTE::SetTextBox(d, 0, 0);
  EXPECT_EQ(KTE::AlignmentNames(d), point);
  EXPECT_EQ(d.mTextParam.mWidth, 0);
}

TEST(Facade, EngineStartStopCountsAndFindFontResolvesInstalledFonts) {
  KTE::EngineStart();
  KTE::EngineStart();
  KTE::EngineStop();
  KTE::EngineStop();
  KTE::EngineStop();  // one stop too many is harmless
  EXPECT_EQ(KTE::FindFont(u"DejaVu Sans"), u"DejaVu Sans");
  EXPECT_EQ(KTE::FindFont(u"Liberation Serif"), u"Liberation Serif");
  EXPECT_FALSE(KTE::FindFont(u"No Such Font Family 123").empty());
}

}  // namespace

// The text writer, byte for byte: separators and line mode, every token form, the name rules,
// and the real-number rules at every precision.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "engine/slo_text.h"

namespace {

using SLO::TextPDFWriter;

class TextWriterTest : public ::testing::Test {
 protected:
  std::string Out() const { return std::string(bytes_.begin(), bytes_.end()); }
  std::vector<uint8_t> bytes_;
  SLO::VectorSink sink_{bytes_};
};

TEST_F(TextWriterTest, ScalarsEachPrecededByOneSpaceOutsideLineMode) {
  TextPDFWriter w(sink_);
  w.WriteBoolean(true);
  w.WriteBoolean(false);
  w.WriteInteger(0);
  w.WriteInteger(-1);
  w.WriteInteger(1234567);
  w.WriteInteger(std::numeric_limits<int32_t>::max());
  w.WriteInteger(std::numeric_limits<int32_t>::min());
  w.WriteName("Key");
  w.WriteReal(2.0f);
  EXPECT_EQ(Out(), " true false 0 -1 1234567 2147483647 -2147483648 /Key 2.0");
}

TEST_F(TextWriterTest, LineModePutsEachKeyAndItsValueOnOneLine) {
  TextPDFWriter w(sink_, 5, true);
  w.BeginDictionary();
  w.WriteName("A");
  w.WriteInteger(1);
  w.WriteName("B");
  w.BeginDictionary();
  w.WriteName("C");
  w.WriteInteger(2);
  w.EndDictionary();
  w.WriteName("D");
  w.BeginArray();
  w.WriteInteger(1);
  w.WriteInteger(2);
  w.EndArray();
  w.WriteName("E");
  w.WriteName("F");
  w.EndDictionary();
  EXPECT_EQ(Out(), "\n<<\n/A 1\n/B\n<<\n/C 2\n>>\n/D [ 1 2 ]\n/E /F\n>>");
  EXPECT_EQ(w.dictionary_depth(), 0);
  EXPECT_EQ(w.array_depth(), 0);
}

TEST_F(TextWriterTest, DictionaryInsideArrayResetsTheArrayCounter) {
  // A dictionary begun inside an array makes the rest of that array line-separated, and the
  // end of the array does not take the counter below zero.
  TextPDFWriter w(sink_, 5, true);
  w.BeginArray();
  w.WriteInteger(7);
  w.BeginDictionary();
  w.WriteName("K");
  w.WriteInteger(1);
  w.EndDictionary();
  w.WriteInteger(3);
  w.EndArray();
  EXPECT_EQ(w.array_depth(), 0);
  w.BeginArray();
  w.WriteInteger(4);
  w.EndArray();
  EXPECT_EQ(Out(), "\n[ 7\n<<\n/K 1\n>>\n3\n]\n[ 4 ]");
}

TEST_F(TextWriterTest, NamesInsideArraysStillInvertTheOneShotFlag) {
  // One name inside the array leaves the flag set, so the next key shares the line of the
  // array and its value goes to a new line.
  TextPDFWriter w(sink_, 5, true);
  w.BeginDictionary();
  w.WriteName("K");
  w.BeginArray();
  w.WriteName("A");
  w.EndArray();
  w.WriteName("L");
  w.WriteInteger(1);
  w.EndDictionary();
  EXPECT_EQ(Out(), "\n<<\n/K [ /A ] /L\n1\n>>");
}

TEST_F(TextWriterTest, OneShotFlagIsClearedByTheSeparatorItShortens) {
  TextPDFWriter w(sink_, 5, true);
  w.SetOneShot(true);
  w.WriteInteger(1);
  EXPECT_FALSE(w.one_shot());
  w.WriteInteger(2);
  w.SetLineMode(0);
  w.WriteInteger(3);
  EXPECT_EQ(Out(), " 1\n2 3");
}

TEST_F(TextWriterTest, ArraysAndDictionariesOutsideLineModeUseSpaces) {
  TextPDFWriter w(sink_);
  w.BeginDictionary();
  w.WriteName("A");
  w.BeginArray();
  w.BeginDictionary();
  w.EndDictionary();
  w.EndArray();
  w.EndDictionary();
  EXPECT_EQ(Out(), " << /A [ << >> ] >>");
  EXPECT_EQ(w.dictionary_depth(), 0);
}

TEST_F(TextWriterTest, StringsCarryTheMarkAndEscapeEitherByte) {
  TextPDFWriter w(sink_);
  w.WriteString(u"(");
  w.WriteString(std::u16string(1, char16_t{0x285C}));
  w.WriteString(std::u16string(u"A\0", 2) + char16_t{0x5C29});
  w.WriteString(u"");
  w.WriteString(u"\U0001F600");
  const std::string expected =
      std::string(" (\xFE\xFF\x00\x5C\x28)", 8) + std::string(" (\xFE\xFF\x5C\x28\x5C\x5C)", 9) +
      std::string(
          " (\xFE\xFF\x00"
          "A\x00\x00\x5C\x5C\x5C))",
          13) +
      std::string(" (\xFE\xFF)", 5) + std::string(" (\xFE\xFF\xD8\x3D\xDE\x00)", 9);
  EXPECT_EQ(Out(), expected);
}

TEST_F(TextWriterTest, ByteAndHexStrings) {
  TextPDFWriter w(sink_);
  const uint8_t bytes[] = {'a', '(', 0, ')', '\\', 0xFF};
  w.WriteByteString(bytes, sizeof bytes);
  w.WriteHexString(bytes, sizeof bytes);
  EXPECT_EQ(Out(), std::string(" (a\\(\x00\\)\\\\\xFF) <61280029"
                               "5CFF>",
                               27));
}

TEST_F(TextWriterTest, EmptyNameWritesNothingAtAll) {
  TextPDFWriter w(sink_, 5, true);
  w.WriteName(u"", 0);
  EXPECT_TRUE(bytes_.empty());
  EXPECT_FALSE(w.one_shot());
}

TEST_F(TextWriterTest, RefusedNamesKeepOnlyTheBytesBeforeTheBadUnit) {
  struct Case {
    std::u16string name;
    int line;
    std::string written;
  };
  const Case cases[] = {
      {u"ab cd", 424, " /ab"},     {u"x\u00E9", 424, " /x"}, {u"\x7F", 424, " /"},
      {u"tab\tbed", 424, " /tab"}, {u"a/b", 439, " /a"},     {u"#", 439, " /"},
      {u"p%", 439, " /p"},         {u"(x", 439, " /"},       {u"x)", 439, " /x"},
      {u"<", 439, " /"},           {u"ok>", 439, " /ok"},    {u"[", 439, " /"},
      {u"]", 439, " /"},           {u"{", 439, " /"},        {u"}", 439, " /"},
      {u"\U0001F600", 424, " /"},
  };
  for (const Case& c : cases) {
    bytes_.clear();
    TextPDFWriter w(sink_);
    try {
      w.WriteName(c.name.data(), c.name.size());
      ADD_FAILURE() << "accepted a name, expected line " << c.line << " after " << c.written;
    } catch (const SLO::Error& e) {
      EXPECT_EQ(e.source(), "SLOTextPDFWriter");
      EXPECT_EQ(e.line(), c.line) << c.written;
    }
    EXPECT_EQ(Out(), c.written);
  }
}

TEST_F(TextWriterTest, EveryPrintableNameCharacterOutsideTheDelimitersIsAccepted) {
  TextPDFWriter w(sink_);
  std::u16string all;
  std::string expected = " /";
  for (char16_t c = 0x21; c <= 0x7E; ++c) {
    if (std::u16string(u"#%()/<>[]{}").find(c) != std::u16string::npos) continue;
    all.push_back(c);
    expected.push_back(static_cast<char>(c));
  }
  w.WriteName(all.data(), all.size());
  EXPECT_EQ(Out(), expected);
}

struct RealCase {
  float value;
  const char* text[6];  // at precision 0..5
};

TEST(TextWriterReals, EveryRuleAtEveryPrecision) {
  const float kInf = std::numeric_limits<float>::infinity();
  const char* kLimit = "1073741824.0";
  const char* kNegLimit = "-1073741824.0";
  const RealCase cases[] = {
      {0.0f, {"0.0", "0.0", "0.0", "0.0", "0.0", "0.0"}},
      {-0.0f, {"0.0", "0.0", "0.0", "0.0", "0.0", "0.0"}},
      {3.0f, {"3.0", "3.0", "3.0", "3.0", "3.0", "3.0"}},
      {0.5f, {"0.0", ".5", ".5", ".5", ".5", ".5"}},
      {-0.25f, {"0.0", "-.3", "-.25", "-.25", "-.25", "-.25"}},
      {1.1f, {"1.0", "1.1", "1.1", "1.1", "1.1", "1.1"}},
      {1.5f, {"1.0", "1.5", "1.5", "1.5", "1.5", "1.5"}},
      {1.05f, {"1.0", "1.0", "1.05", "1.05", "1.05", "1.05"}},
      {1.23456f, {"1.0", "1.2", "1.23", "1.235", "1.2346", "1.23456"}},
      // The fraction never carries into the integer part.
      {0.99999f, {"0.0", ".9", ".99", ".999", ".9999", ".99999"}},
      {0.9999f, {"0.0", ".9", ".99", ".999", ".9999", ".9999"}},
      {-2.5f, {"-2.0", "-2.5", "-2.5", "-2.5", "-2.5", "-2.5"}},
      // A negative value that rounds to zero loses its sign.
      {-0.001f, {"0.0", "0.0", "0.0", "-.001", "-.001", "-.001"}},
      {0.00001f, {"0.0", "0.0", "0.0", "0.0", "0.0", ".00001"}},
      {0.07f, {"0.0", ".1", ".07", ".07", ".07", ".07"}},
      {-123.004f, {"-123.0", "-123.0", "-123.0", "-123.004", "-123.004", "-123.004"}},
      {1000000.5f, {"1000000.0", "1000000.5", "1000000.5", "1000000.5", "1000000.5", "1000000.5"}},
      {16777217.0f,
       {"16777216.0", "16777216.0", "16777216.0", "16777216.0", "16777216.0", "16777216.0"}},
      {1073741760.0f,
       {"1073741760.0", "1073741760.0", "1073741760.0", "1073741760.0", "1073741760.0",
        "1073741760.0"}},
      // Clamped to 2^30.
      {1073741824.0f, {kLimit, kLimit, kLimit, kLimit, kLimit, kLimit}},
      {5e9f, {kLimit, kLimit, kLimit, kLimit, kLimit, kLimit}},
      {kInf, {kLimit, kLimit, kLimit, kLimit, kLimit, kLimit}},
      {-3e38f, {kNegLimit, kNegLimit, kNegLimit, kNegLimit, kNegLimit, kNegLimit}},
      {-kInf, {kNegLimit, kNegLimit, kNegLimit, kNegLimit, kNegLimit, kNegLimit}},
      {std::numeric_limits<float>::quiet_NaN(), {"0.0", "0.0", "0.0", "0.0", "0.0", "0.0"}},
  };
  for (const RealCase& c : cases) {
    for (int p = 0; p <= 5; ++p) {
      EXPECT_EQ(TextPDFWriter::FormatReal(c.value, p), c.text[p])
          << "value " << c.value << " at " << p << " places";
      // The same text comes out of the writer, after its separator.
      std::vector<uint8_t> out;
      SLO::VectorSink sink(out);
      TextPDFWriter w(sink, p);
      w.WriteReal(c.value);
      EXPECT_EQ(std::string(out.begin(), out.end()), std::string(" ") + c.text[p]);
    }
  }
}

TEST(TextWriterReals, PrecisionIsClampedToTheTable) {
  std::vector<uint8_t> out;
  SLO::VectorSink sink(out);
  TextPDFWriter w(sink, 9);
  EXPECT_EQ(w.precision(), 5);
  w.SetPrecision(-3);
  EXPECT_EQ(w.precision(), 0);
  w.WriteReal(2.75f);
  EXPECT_EQ(std::string(out.begin(), out.end()), " 2.0");
}

}  // namespace

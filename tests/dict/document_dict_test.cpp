// Documents as engine dictionaries: the tree's shape, document block -> dictionary (text or
// binary) -> document -> block giving the identical block, and how a tree is read back.
#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "engine/document_dict.h"
#include "engine/kte.h"
#include "engine/slo_binary.h"

namespace {

using SLO::Value;

const Value& At(const Value& v, std::initializer_list<const char*> path) {
  const Value* cur = &v;
  for (const char* key : path) {
    cur = cur->Find(key);
    if (cur == nullptr) throw std::runtime_error(std::string("missing /") + key);
  }
  return *cur;
}

KTE::DocumentPtr Read(const std::vector<uint8_t>& bytes) {
  return KTE::ReadDocumentDictionary(bytes.data(), bytes.size());
}

KTE::DocumentPtr Read(const std::string& text) {
  return Read(std::vector<uint8_t>(text.begin(), text.end()));
}

KTE::DocumentPtr ThroughText(const KTE::Document& doc, int precision = 5, bool line_mode = true) {
  return Read(KTE::WriteDocumentText(doc, precision, line_mode));
}

KTE::DocumentPtr ThroughBinary(const KTE::Document& doc) {
  const std::vector<uint8_t> bytes = KTE::WriteDocumentBinary(doc);
  EXPECT_TRUE(SLO::BinaryPDFReader::HasMagic(bytes.data(), bytes.size()));
  return Read(bytes);
}

// Random documents: many runs (some empty), non-ASCII text with surrogate pairs, several fonts,
// boxes of any size. With `exact_in_text` every float is a multiple of 1/32, which the text form
// at five places carries exactly; otherwise any finite float.
KTE::DocumentPtr RandomDocument(std::mt19937& rng, bool exact_in_text) {
  auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  auto real = [&]() -> float {
    if (exact_in_text) return static_cast<float>(pick(-(1 << 24), 1 << 24)) / 32.0f;
    float f;
    do {
      const uint32_t bits = static_cast<uint32_t>(rng());
      std::memcpy(&f, &bits, sizeof f);
    } while (!std::isfinite(f));
    return f;
  };
  const std::u16string fonts[] = {u"Liberation Sans", u"DejaVu Serif",
                                  u"\u6E38\u30B4\u30B7\u30C3\u30AF (x)", u""};
  auto doc = boost::make_shared<KTE::Document>();
  doc->data.mVersion = pick(0, 3);
  doc->data.mTextParam.mWidth = pick(0, 2) == 0 ? 0 : static_cast<int32_t>(rng());
  doc->data.mTextParam.mHeight = pick(0, 2) == 0 ? 0 : pick(-5, 5000);
  for (int r = pick(0, 40); r > 0; --r) {
    vetext::TextRun run;
    for (int n = pick(0, 6); n > 0; --n) {
      switch (pick(0, 3)) {
        case 0:
          run.mText += u"\U0001F600";
          break;
        case 1:
          run.mText.push_back(static_cast<char16_t>(pick(0x4E00, 0x9FFF)));
          break;
        case 2:
          run.mText.push_back(u"()\\\n\r\t "[pick(0, 6)]);
          break;
        default:
          run.mText.push_back(static_cast<char16_t>(pick(0x20, 0x7E)));
      }
    }
    vetext::StyleParam& s = run.mStyleParam;
    s.mFontName = fonts[pick(0, 3)];
    for (float* f : {&s.mFontSize, &s.mFillRed, &s.mFillGreen, &s.mFillBlue, &s.mStrokeRed,
                     &s.mStrokeGreen, &s.mStrokeBlue, &s.mStrokeWidth, &s.mLeading, &s.mKerning,
                     &s.mTracking, &s.mBaselineShift})
      *f = real();
    s.mAutoLeading = pick(0, 1) == 1;
    s.mFillOverStroke = pick(0, 1) == 1;
    run.mParaParam.mAlignment = pick(0, 4) == 0 ? static_cast<uint32_t>(rng()) : pick(0, 6);
    doc->data.mTextParam.mTextRuns.push_back(std::move(run));
  }
  return doc;
}

TEST(DocumentDictionary, DefaultDocumentTreeAndBlockThroughEveryForm) {
  const KTE::DocumentPtr doc = KTE::MakeDefaultDocument();
  const std::vector<uint8_t> block = KTE::WriteDocument(*doc);
  // The default values are exact at every precision, in either separator mode.
  for (int p = 0; p <= 5; ++p) {
    EXPECT_EQ(KTE::WriteDocument(*ThroughText(*doc, p, p % 2 == 0)), block) << p;
  }
  EXPECT_EQ(KTE::WriteDocument(*ThroughBinary(*doc)), block);

  const Value tree = KTE::DocumentDictionary(*doc);
  EXPECT_EQ(At(tree, {"Version"}), Value::Integer(1));
  EXPECT_EQ(At(tree, {"EngineDict", "Editor", "Text"}), Value::String(u"TEXT Wgij"));
  const Value& lengths = At(tree, {"EngineDict", "StyleRun", "RunLengthArray"});
  EXPECT_EQ(lengths, Value::Array(std::vector<Value>(9, Value::Integer(1))));
  EXPECT_EQ(At(tree, {"EngineDict", "ParagraphRun", "RunLengthArray"}), lengths);
  const Value& styles = At(tree, {"EngineDict", "StyleRun", "RunArray"});
  ASSERT_EQ(styles.array.size(), 9u);
  const Value& data = At(styles.array[4], {"StyleSheet", "StyleSheetData"});
  EXPECT_EQ(At(data, {"Font"}), Value::Integer(0));
  EXPECT_EQ(At(data, {"FontSize"}), Value::Real(40.0f));
  EXPECT_EQ(At(data, {"FillColor", "Values"}),
            Value::Array({Value::Real(1), Value::Real(1), Value::Real(1), Value::Real(1)}));
  EXPECT_EQ(At(data, {"StrokeFlag"}), Value::Boolean(false));
  EXPECT_EQ(At(data, {"FillFirst"}), Value::Boolean(false));
  const Value& paras = At(tree, {"EngineDict", "ParagraphRun", "RunArray"});
  ASSERT_EQ(paras.array.size(), 9u);
  EXPECT_EQ(At(paras.array[8], {"ParagraphSheet", "Properties", "Justification"}),
            Value::Integer(2));
  const Value& fonts = At(tree, {"ResourceDict", "FontSet"});
  ASSERT_EQ(fonts.array.size(), 1u);
  EXPECT_EQ(At(fonts.array[0], {"Name"}),
            Value::String(doc->data.mTextParam.mTextRuns[0].mStyleParam.mFontName));
  const Value& shape = At(tree, {"EngineDict", "Rendered", "Shapes", "Children"}).array.at(0);
  EXPECT_EQ(At(shape, {"ShapeType"}), Value::Integer(0));
}

TEST(DocumentDictionary, BoxFontsAndDrawingOrderInTheTree) {
  auto doc = boost::make_shared<KTE::Document>();
  KTE::SetTextBox(doc->data, 640, 0);
  for (const char16_t* font : {u"B", u"A", u"B"}) {
    vetext::TextRun run;
    run.mText = u"xy";
    run.mStyleParam.mFontName = font;
    run.mStyleParam.mStrokeWidth = 2.0f;
    run.mStyleParam.mFillOverStroke = false;
    doc->data.mTextParam.mTextRuns.push_back(run);
  }
  const Value tree = KTE::DocumentDictionary(*doc);
  const Value& shape = At(tree, {"EngineDict", "Rendered", "Shapes", "Children"}).array.at(0);
  EXPECT_EQ(At(shape, {"ShapeType"}), Value::Integer(1));
  EXPECT_EQ(At(shape, {"BoxBounds"}), Value::Array({Value::Integer(0), Value::Integer(0),
                                                    Value::Integer(640), Value::Integer(0)}));
  const Value& fonts = At(tree, {"ResourceDict", "FontSet"});
  ASSERT_EQ(fonts.array.size(), 2u);  // each font once, in the order of first use
  EXPECT_EQ(At(fonts.array[0], {"Name"}).string, u"B");
  const Value& runs = At(tree, {"EngineDict", "StyleRun", "RunArray"});
  EXPECT_EQ(At(runs.array[1], {"StyleSheet", "StyleSheetData", "Font"}), Value::Integer(1));
  EXPECT_EQ(At(runs.array[2], {"StyleSheet", "StyleSheetData", "Font"}), Value::Integer(0));
  const Value& data = At(runs.array[0], {"StyleSheet", "StyleSheetData"});
  EXPECT_EQ(At(data, {"FillFirst"}), Value::Boolean(true));
  EXPECT_EQ(At(data, {"StrokeFlag"}), Value::Boolean(true));
  EXPECT_EQ(At(data, {"OutlineWidth"}), Value::Real(2.0f));
  EXPECT_EQ(ThroughText(*doc)->data, doc->data);
}

TEST(DocumentDictionary, RandomAndEmptyDocumentsRoundTrip) {
  std::mt19937 rng(2024);
  for (int i = 0; i < 60; ++i) {
    const KTE::DocumentPtr exact = RandomDocument(rng, /*exact_in_text=*/true);
    const std::vector<uint8_t> block = KTE::WriteDocument(*exact);
    const KTE::DocumentPtr via_text = ThroughText(*exact, 5, i % 2 == 0);
    ASSERT_EQ(via_text->data, exact->data) << "document " << i;
    EXPECT_EQ(KTE::WriteDocument(*via_text), block);
    EXPECT_EQ(KTE::WriteDocument(*ThroughBinary(*exact)), block);
    // Any float survives the binary form.
    const KTE::DocumentPtr any = RandomDocument(rng, /*exact_in_text=*/false);
    ASSERT_EQ(ThroughBinary(*any)->data, any->data) << "document " << i;
  }
  const KTE::Document empty;
  EXPECT_EQ(ThroughText(empty)->data, empty.data);
  EXPECT_EQ(ThroughBinary(empty)->data, empty.data);
  EXPECT_EQ(Read(std::string("<< >>"))->data, vetext::DocumentRecord{});
}

TEST(DocumentDictionary, MissingKeysComeFromTheNormalSheetsThenTheDefaults) {
  const std::string text =
      "<< /EngineDict << /Editor << /Text (abcd) >> /StyleRun << /RunArray [ << /StyleSheet"
      "   << /StyleSheetData << /Font 1 /Leading 3 >> >> >> << >> << >> ]"
      "   /RunLengthArray [ 1 2 1.0 ] >>"
      " /ParagraphRun << /RunLengthArray [ 1 1 1 ] /RunArray [ << >> << /ParagraphSheet"
      "   << /Properties << /Justification 1 >> >> >>"
      "   << /ParagraphSheet << /Properties << /Justification 2 >> >> >> ] >>"
      " /Rendered << /Shapes << /Children [ << /ShapeType 1 /BoxBounds [ 10 20 110.4 70 ] >> ]"
      " >> >> >> /ResourceDict << /FontSet [ << /Name (F0) >> << /Name <FEFF00460031> >> ]"
      "   /StyleSheetSet [ << /StyleSheetData << /Font 0 /FontSize 12 /FillFirst true >> >> ]"
      "   /ParagraphSheetSet [ << >> << /Properties << /Justification 5 >> >> ]"
      "   /TheNormalParagraphSheet 1 >> >>";
  const KTE::DocumentPtr doc = Read(text);
  const auto& runs = doc->data.mTextParam.mTextRuns;
  ASSERT_EQ(runs.size(), 3u);
  EXPECT_EQ(runs[0].mText, u"a");
  EXPECT_EQ(runs[1].mText, u"bc");
  EXPECT_EQ(runs[2].mText, u"d");
  EXPECT_EQ(runs[0].mStyleParam.mFontName, u"F1");
  EXPECT_EQ(runs[1].mStyleParam.mFontName, u"F0");
  EXPECT_EQ(runs[0].mStyleParam.mLeading, 3.0f);
  EXPECT_EQ(runs[1].mStyleParam.mLeading, 0.0f);
  EXPECT_EQ(runs[1].mStyleParam.mFontSize, 12.0f);
  EXPECT_FALSE(runs[1].mStyleParam.mFillOverStroke);
  EXPECT_EQ(runs[1].mStyleParam.mFillRed, 1.0f);
  // The paragraph runs split the text otherwise than the style runs: each text run takes the
  // paragraph in force at its first code unit ("b" begins the second), past their end the
  // last; an entry without a sheet takes the normal paragraph sheet's.
  EXPECT_EQ(runs[0].mParaParam.mAlignment, 5u);
  EXPECT_EQ(runs[1].mParaParam.mAlignment, 1u);
  EXPECT_EQ(runs[2].mParaParam.mAlignment, 2u);
  EXPECT_EQ(doc->data.mTextParam.mWidth, 100);
  EXPECT_EQ(doc->data.mTextParam.mHeight, 50);
  EXPECT_EQ(doc->data.mVersion, 1);
}

TEST(DocumentDictionary, TreesThatAreNoDocumentAreRefused) {
  auto runs = [](const char* array, const char* lengths) {
    return std::string("<< /EngineDict << /Editor << /Text (ab) >> /StyleRun << /RunArray [ ") +
           array + " ] /RunLengthArray [ " + lengths + " ] >> >> >>";
  };
  auto style = [](const char* data) {
    return std::string("<< /EngineDict << /Editor << /Text (a) >> /StyleRun << /RunArray [ << ") +
           "/StyleSheet << /StyleSheetData << " + data +
           " >> >> >> ] /RunLengthArray [ 1 ] >> >> >>";
  };
  const std::string cases[] = {
      "[ ]",
      "<< /EngineDict 5 >>",
      "<< /EngineDict << /Editor << /Text 7 >> >> >>",
      runs("<< >>", "3"),
      runs("<< >>", "1"),
      runs("<< >>", "1 1"),
      runs("<< >> << >>", "-1 3"),
      style("/Font 2"),
      style("/FontSize (big)"),
      style("/FillColor << /Values [ 1 2 ] >>"),
      style("/AutoLeading 1"),
      "<< /EngineDict << /Rendered << /Shapes << /Children [ << /ShapeType 1 >> ] >> >> >> >>",
      "<< /EngineDict << /Rendered << /Shapes << /Children [ << /ShapeType 1"
      " /BoxBounds [ -2147483648 0 2147483647 0 ] >> ] >> >> >> >>",
      "<< /Version 1e20 >>"};
  for (const std::string& c : cases) {
    try {
      Read(c);
      ADD_FAILURE() << "accepted " << c;
    } catch (const SLO::Error& e) {
      EXPECT_EQ(e.source(), "KTEDocumentDictionary") << c;
    }
  }
}

}  // namespace

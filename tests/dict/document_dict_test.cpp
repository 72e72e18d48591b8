// Documents as engine dictionaries: the tree's shape and vocabulary, and document block ->
// dictionary (text or binary) -> document -> block giving the identical block.
#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "engine/document_dict.h"
#include "engine/kte.h"
#include "engine/slo_binary.h"
#include "engine/slo_text.h"
#include "tree_gen.h"

namespace {

using SLO::Value;

// Every key the engine's document, sheet and resource code writes or reads.
const std::set<std::string>& Vocabulary() {
  static const std::set<std::string> keys = {"Adjustments",
                                             "AlignLineHeightToGridFlags",
                                             "AntiAlias",
                                             "AutoHyphenate",
                                             "AutoKerning",
                                             "AutoLeading",
                                             "Axis",
                                             "Base",
                                             "BaselineDirection",
                                             "BaselineShift",
                                             "Bounds",
                                             "BoxBounds",
                                             "Burasagari",
                                             "CharacterDirection",
                                             "Children",
                                             "ConsecutiveHyphens",
                                             "Cookie",
                                             "DLigatures",
                                             "DefaultRunData",
                                             "DefaultStyleSheet",
                                             "DiacriticPos",
                                             "DocumentResources",
                                             "Editor",
                                             "EndIndent",
                                             "EngineDict",
                                             "EveryLineComposer",
                                             "FauxBold",
                                             "FauxItalic",
                                             "FillColor",
                                             "FillFirst",
                                             "FillFlag",
                                             "FirstLineIndent",
                                             "Font",
                                             "FontBaseline",
                                             "FontCaps",
                                             "FontSet",
                                             "FontSize",
                                             "FontType",
                                             "GlyphSpacing",
                                             "GridColor",
                                             "GridInfo",
                                             "GridIsOn",
                                             "GridLeading",
                                             "GridLeadingFillColor",
                                             "GridSize",
                                             "Hanging",
                                             "HindiNumbers",
                                             "HorizontalScale",
                                             "HyphenateCapitalized",
                                             "HyphenatedWordSize",
                                             "InternalName",
                                             "IsJoinable",
                                             "Justification",
                                             "Kashida",
                                             "Keep",
                                             "Kerning",
                                             "Kinsoku",
                                             "KinsokuOrder",
                                             "KinsokuSet",
                                             "Language",
                                             "Leading",
                                             "LeadingType",
                                             "LetterSpacing",
                                             "Ligatures",
                                             "Lines",
                                             "MojiKumi",
                                             "MojiKumiSet",
                                             "Name",
                                             "NoBreak",
                                             "NoEnd",
                                             "NoStart",
                                             "OldStyleFigures",
                                             "OutlineWeight",
                                             "OutlineWidth",
                                             "ParagraphRun",
                                             "ParagraphSheet",
                                             "ParagraphSheetSet",
                                             "ParagraphTextEditor",
                                             "PointBase",
                                             "PostHyphen",
                                             "PreHyphen",
                                             "Procession",
                                             "Properties",
                                             "ProportionalNumbers",
                                             "Rendered",
                                             "ResourceDict",
                                             "RowColIndex",
                                             "RowColStrike",
                                             "RunArray",
                                             "RunLengthArray",
                                             "Script",
                                             "Shape",
                                             "ShapeType",
                                             "Shapes",
                                             "ShowGrid",
                                             "SmallCapSize",
                                             "SpaceAfter",
                                             "SpaceBefore",
                                             "StartIndent",
                                             "Strikethrough",
                                             "StrokeColor",
                                             "StrokeFlag",
                                             "StyleRun",
                                             "StyleRunAlignment",
                                             "StyleSheet",
                                             "StyleSheetData",
                                             "StyleSheetSet",
                                             "SubscriptPosition",
                                             "SubscriptSize",
                                             "SubtitleScale",
                                             "SuperscriptPosition",
                                             "SuperscriptSize",
                                             "Synthetic",
                                             "Text",
                                             "TheNormalParagraphSheet",
                                             "TheNormalStyleSheet",
                                             "Tracking",
                                             "TransformPoint0",
                                             "TransformPoint1",
                                             "TransformPoint2",
                                             "Tsume",
                                             "Type",
                                             "Underline",
                                             "UseFractionalGlyphWidths",
                                             "Values",
                                             "Version",
                                             "VerticalAlign",
                                             "VerticalScale",
                                             "WordSpacing",
                                             "WritingDirection",
                                             "YUnderline",
                                             "Zone",
                                             "dflt",
                                             "kern"};
  return keys;
}

void CollectKeys(const Value& v, std::set<std::string>& out) {
  for (const Value::Entry& e : v.entries) {
    out.insert(e.key);
    CollectKeys(e.value, out);
  }
  for (const Value& item : v.array) CollectKeys(item, out);
}

const Value& At(const Value& v, std::initializer_list<const char*> path) {
  const Value* cur = &v;
  for (const char* key : path) {
    cur = cur->Find(key);
    if (cur == nullptr) throw std::runtime_error(std::string("missing /") + key);
  }
  return *cur;
}

KTE::DocumentPtr ThroughText(const KTE::Document& doc, int precision = 5, bool line_mode = true) {
  const std::vector<uint8_t> bytes = KTE::WriteDocumentText(doc, precision, line_mode);
  return KTE::ReadDocumentDictionary(bytes.data(), bytes.size());
}

KTE::DocumentPtr ThroughBinary(const KTE::Document& doc) {
  const std::vector<uint8_t> bytes = KTE::WriteDocumentBinary(doc);
  EXPECT_TRUE(SLO::BinaryPDFReader::HasMagic(bytes.data(), bytes.size()));
  return KTE::ReadDocumentDictionary(bytes.data(), bytes.size());
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
      uint32_t bits = static_cast<uint32_t>(rng());
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
    s.mFontSize = real();
    s.mFillRed = real();
    s.mFillGreen = real();
    s.mFillBlue = real();
    s.mStrokeRed = real();
    s.mStrokeGreen = real();
    s.mStrokeBlue = real();
    s.mStrokeWidth = real();
    s.mAutoLeading = pick(0, 1) == 1;
    s.mLeading = real();
    s.mKerning = real();
    s.mTracking = real();
    s.mBaselineShift = real();
    s.mFillOverStroke = pick(0, 1) == 1;
    run.mParaParam.mAlignment = pick(0, 4) == 0 ? static_cast<uint32_t>(rng()) : pick(0, 6);
    doc->data.mTextParam.mTextRuns.push_back(std::move(run));
  }
  return doc;
}

TEST(DocumentDictionary, DefaultDocumentBlockSurvivesTextAndBinary) {
  const KTE::DocumentPtr doc = KTE::MakeDefaultDocument();
  const std::vector<uint8_t> block = KTE::WriteDocument(*doc);
  for (bool line_mode : {true, false}) {
    const KTE::DocumentPtr back = ThroughText(*doc, 5, line_mode);
    EXPECT_EQ(back->data, doc->data);
    EXPECT_EQ(KTE::WriteDocument(*back), block);
  }
  const KTE::DocumentPtr back = ThroughBinary(*doc);
  EXPECT_EQ(KTE::WriteDocument(*back), block);
  // The default values are exact at every precision.
  for (int p = 0; p <= 5; ++p) EXPECT_EQ(KTE::WriteDocument(*ThroughText(*doc, p)), block) << p;
}

TEST(DocumentDictionary, TreeOfTheDefaultDocument) {
  const KTE::DocumentPtr doc = KTE::MakeDefaultDocument();
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

  std::set<std::string> keys;
  CollectKeys(tree, keys);
  for (const std::string& k : keys) EXPECT_TRUE(Vocabulary().count(k)) << "key /" << k;
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

TEST(DocumentDictionary, ManyRunsBoxesAndNonAsciiTextRoundTrip) {
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
    const KTE::DocumentPtr via_binary = ThroughBinary(*any);
    ASSERT_EQ(via_binary->data, any->data) << "document " << i;
    EXPECT_EQ(KTE::WriteDocument(*via_binary), KTE::WriteDocument(*any));
  }
}

TEST(DocumentDictionary, MissingStyleKeysComeFromTheNormalSheetThenTheDefaults) {
  const std::string text =
      "<< /EngineDict << /Editor << /Text (abc) >>"
      " /StyleRun << /RunArray [ << /StyleSheet << /StyleSheetData << /Font 1 /Leading 3 >> >> >>"
      "   << >> ] /RunLengthArray [ 1 2 ] >>"
      " /ParagraphRun << /RunArray [ << /ParagraphSheet << /Properties << /Justification 0 >> >> "
      ">> ]"
      "   /RunLengthArray [ 3 ] >>"
      " /Rendered << /Shapes << /Children [ << /ShapeType 1 /BoxBounds [ 10 20 110.4 70 ] >> ] >> "
      ">> >>"
      " /ResourceDict << /FontSet [ << /Name (F0) >> << /Name <FEFF00460031> >> ]"
      "   /StyleSheetSet [ << /StyleSheetData << /Font 0 /FontSize 12 /FillFirst true >> >> ] >> "
      ">>";
  const KTE::DocumentPtr doc =
      KTE::ReadDocumentDictionary(reinterpret_cast<const uint8_t*>(text.data()), text.size());
  const auto& runs = doc->data.mTextParam.mTextRuns;
  ASSERT_EQ(runs.size(), 2u);
  EXPECT_EQ(runs[0].mText, u"a");
  EXPECT_EQ(runs[1].mText, u"bc");
  EXPECT_EQ(runs[0].mStyleParam.mFontName, u"F1");
  EXPECT_EQ(runs[1].mStyleParam.mFontName, u"F0");
  EXPECT_EQ(runs[0].mStyleParam.mLeading, 3.0f);
  EXPECT_EQ(runs[1].mStyleParam.mLeading, 0.0f);
  EXPECT_EQ(runs[1].mStyleParam.mFontSize, 12.0f);
  EXPECT_FALSE(runs[1].mStyleParam.mFillOverStroke);
  EXPECT_EQ(runs[1].mStyleParam.mFillRed, 1.0f);
  // One paragraph run covers both text runs.
  EXPECT_EQ(runs[0].mParaParam.mAlignment, 0u);
  EXPECT_EQ(runs[1].mParaParam.mAlignment, 0u);
  EXPECT_EQ(doc->data.mTextParam.mWidth, 100);
  EXPECT_EQ(doc->data.mTextParam.mHeight, 50);
  EXPECT_EQ(doc->data.mVersion, 1);
}

TEST(DocumentDictionary, TreesThatAreNoDocumentAreRefused) {
  const char* cases[] = {
      "[ ]",
      "<< /EngineDict 5 >>",
      "<< /EngineDict << /Editor << /Text 7 >> >> >>",
      "<< /EngineDict << /Editor << /Text (ab) >> /StyleRun << /RunArray [ << >> ]"
      " /RunLengthArray [ 3 ] >> >> >>",
      "<< /EngineDict << /Editor << /Text (ab) >> /StyleRun << /RunArray [ << >> ]"
      " /RunLengthArray [ 1 ] >> >> >>",
      "<< /EngineDict << /Editor << /Text (ab) >> /StyleRun << /RunArray [ << >> ]"
      " /RunLengthArray [ 1 1 ] >> >> >>",
      "<< /EngineDict << /Editor << /Text (ab) >> /StyleRun << /RunArray [ << >> << >> ]"
      " /RunLengthArray [ -1 3 ] >> >> >>",
      "<< /EngineDict << /Editor << /Text (a) >> /StyleRun << /RunArray [ << /StyleSheet <<"
      " /StyleSheetData << /Font 2 >> >> >> ] /RunLengthArray [ 1 ] >> >> >>",
      "<< /EngineDict << /Editor << /Text (a) >> /StyleRun << /RunArray [ << /StyleSheet <<"
      " /StyleSheetData << /FontSize (big) >> >> >> ] /RunLengthArray [ 1 ] >> >> >>",
      "<< /EngineDict << /Editor << /Text (a) >> /StyleRun << /RunArray [ << /StyleSheet <<"
      " /StyleSheetData << /FillColor << /Values [ 1 2 ] >> >> >> >> ] /RunLengthArray [ 1 ] >> >> "
      ">>",
      "<< /EngineDict << /Editor << /Text (a) >> /StyleRun << /RunArray [ << /StyleSheet <<"
      " /StyleSheetData << /AutoLeading 1 >> >> >> ] /RunLengthArray [ 1 ] >> >> >>",
      "<< /EngineDict << /Rendered << /Shapes << /Children [ << /ShapeType 1 >> ] >> >> >> >>",
      "<< /EngineDict << /Rendered << /Shapes << /Children [ << /ShapeType 1"
      " /BoxBounds [ -2147483648 0 2147483647 0 ] >> ] >> >> >> >>",
      "<< /Version 1e20 >>",
  };
  for (const char* c : cases) {
    try {
      KTE::ReadDocumentDictionary(reinterpret_cast<const uint8_t*>(c), std::strlen(c));
      ADD_FAILURE() << "accepted " << c;
    } catch (const SLO::Error& e) {
      EXPECT_EQ(e.source(), "KTEDocumentDictionary") << c;
    }
  }
}

TEST(DocumentDictionary, EmptyDocumentStaysEmpty) {
  auto doc = boost::make_shared<KTE::Document>();
  EXPECT_EQ(ThroughText(*doc)->data, doc->data);
  EXPECT_EQ(ThroughBinary(*doc)->data, doc->data);
  const std::string minimal = "<< >>";
  const KTE::DocumentPtr from_minimal =
      KTE::ReadDocumentDictionary(reinterpret_cast<const uint8_t*>(minimal.data()), minimal.size());
  EXPECT_EQ(from_minimal->data, vetext::DocumentRecord{});
}

}  // namespace

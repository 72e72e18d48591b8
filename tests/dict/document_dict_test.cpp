// Documents as engine dictionaries: the tree's shape, document block -> dictionary (text or
// binary) -> document -> block giving the identical block, and how a tree is read back.
#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <cmath>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "engine/document_dict.h"
#include "engine/kte.h"
#include "tree_gen.h"

namespace {

KTE::DocumentPtr Read(const std::vector<uint8_t>& bytes) {
  return KTE::ReadDocumentDictionary(bytes.data(), bytes.size());
}

KTE::DocumentPtr ThroughText(const KTE::Document& doc, int precision = 5, bool line_mode = true) {
  return Read(KTE::WriteDocumentText(doc, precision, line_mode));
}

// Random documents: many runs (some empty), any UTF-16 text, several fonts, boxes of any size,
// finite reals (with a text-safe generator, ones that the text form carries exactly).
KTE::DocumentPtr RandomDocument(dict_test::TreeGen& gen) {
  const std::u16string fonts[] = {u"Liberation Sans", u"DejaVu Serif", u"\u6E38\u30B4 (x)", u""};
  auto doc = boost::make_shared<KTE::Document>();
  vetext::TextParam& t = doc->data.mTextParam;
  doc->data.mVersion = gen.Int(0, 3);
  t.mWidth = gen.Int(0, 2) == 0 ? 0 : gen.Int(INT32_MIN, INT32_MAX);
  t.mHeight = gen.Int(0, 2) == 0 ? 0 : gen.Int(-5, 5000);
  for (int r = gen.Int(0, 40); r > 0; --r) {
    vetext::TextRun run;
    run.mText = gen.String();
    vetext::StyleParam& s = run.mStyleParam;
    s.mFontName = fonts[gen.Int(0, 3)];
    for (float* f : {&s.mFontSize, &s.mFillRed, &s.mFillGreen, &s.mFillBlue, &s.mStrokeRed,
                     &s.mStrokeGreen, &s.mStrokeBlue, &s.mStrokeWidth, &s.mLeading, &s.mKerning,
                     &s.mTracking, &s.mBaselineShift}) {
      do *f = gen.Real();
      while (!std::isfinite(*f));
    }
    s.mAutoLeading = gen.Int(0, 1) == 1;
    s.mFillOverStroke = gen.Int(0, 1) == 1;
    run.mParaParam.mAlignment = gen.Int(0, 4) == 0 ? gen.Int(INT32_MIN, INT32_MAX) : gen.Int(0, 6);
    t.mTextRuns.push_back(std::move(run));
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
  EXPECT_EQ(KTE::WriteDocument(*Read(KTE::WriteDocumentBinary(*doc))), block);
}

// Style keys of a run (font >= 0) or of the normal sheet (font < 0), the other values default.
std::string StyleData(int font, bool stroke) {
  return std::string("<< ") + (font >= 0 ? "/Font " + std::to_string(font) : "") +
         " /FontSize 40.0 /FillColor << /Type 1 /Values [ 1.0 1.0 1.0 1.0 ] >> /StrokeColor"
         " << /Type 1 /Values [ 1.0 1.0 1.0 1.0 ] >> /FillFlag true /StrokeFlag " +
         (stroke ? "true /OutlineWidth 2.0" : "false /OutlineWidth 0.0") +
         " /AutoLeading true /Leading 0.0 /Kerning 0.0 /Tracking 0.0 /BaselineShift 0.0"
         " /FillFirst " +
         (stroke ? "true" : "false") + " >>";
}

TEST(DocumentDictionary, TheWholeTreeOfABoxDocument) {
  KTE::Document doc;
  KTE::SetTextBox(doc.data, 640, 0);
  for (const char16_t* font : {u"B", u"A", u"B"}) {
    vetext::TextRun run;
    run.mText = font == std::u16string(u"A") ? u"yz" : u"x";
    run.mStyleParam.mFontName = font;
    doc.data.mTextParam.mTextRuns.push_back(run);
  }
  auto& runs = doc.data.mTextParam.mTextRuns;
  runs[0].mStyleParam.mStrokeWidth = 2.0f;
  runs[0].mStyleParam.mFillOverStroke = false;
  const std::string para =
      "<< /ParagraphSheet << /DefaultStyleSheet 0 /Properties << /Justification 2 >> >> >>";
  auto style = [](int font, bool stroke) {
    return "<< /StyleSheet << /StyleSheetData " + StyleData(font, stroke) + " >> >>";
  };
  auto font = [](const char* name) {
    return std::string("<< /Name (") + name + ") /Script 0 /FontType 1 /Synthetic 0 >>";
  };
  // Each font once, in the order of first use; the first run strokes and fills first.
  const std::string expected =
      "<< /Version 1 /EngineDict << /Editor << /Text <FEFF0078 0079007A 0078> >>"
      " /ParagraphRun << /DefaultRunData << /ParagraphSheet << /DefaultStyleSheet 0"
      "   /Properties << >> >> >> /RunArray [ " +
      para + para + para +
      " ] /RunLengthArray [ 1 2 1 ] /IsJoinable 1 >>"
      " /StyleRun << /DefaultRunData << /StyleSheet << /StyleSheetData << >> >> >> /RunArray [ " +
      style(0, true) + style(1, false) + style(0, false) +
      " ] /RunLengthArray [ 1 2 1 ] /IsJoinable 2 >>"
      " /Rendered << /Version 1 /Shapes << /WritingDirection 0 /Children [ << /ShapeType 1"
      "   /Procession 0 /BoxBounds [ 0 0 640 0 ] >> ] >> >> >>"
      " /ResourceDict << /FontSet [ " +
      font("B") + font("A") +
      " ] /StyleSheetSet [ << /Name"
      "   <FEFF004E006F0072006D0061006C> /StyleSheetData " +
      StyleData(-1, false) +
      " >> ]"
      " /ParagraphSheetSet [ << /Name <FEFF004E006F0072006D0061006C> /DefaultStyleSheet 0"
      "   /Properties << /Justification 2 >> >> ] /TheNormalStyleSheet 0"
      " /TheNormalParagraphSheet 0 >> >>";
  EXPECT_EQ(KTE::DocumentDictionary(doc), dict_test::FromText(expected));
}

TEST(DocumentDictionary, RandomAndEmptyDocumentsRoundTrip) {
  dict_test::TreeGen exact_gen(2024, /*text_safe=*/true), any_gen(2025, /*text_safe=*/false);
  for (int i = 0; i < 60; ++i) {
    const KTE::DocumentPtr exact = RandomDocument(exact_gen);
    const std::vector<uint8_t> block = KTE::WriteDocument(*exact);
    const KTE::DocumentPtr via_text = ThroughText(*exact, 5, i % 2 == 0);
    ASSERT_EQ(via_text->data, exact->data) << "document " << i;
    EXPECT_EQ(KTE::WriteDocument(*via_text), block);
    EXPECT_EQ(KTE::WriteDocument(*Read(KTE::WriteDocumentBinary(*exact))), block);
    // Any float survives the binary form.
    const KTE::DocumentPtr any = RandomDocument(any_gen);
    ASSERT_EQ(Read(KTE::WriteDocumentBinary(*any))->data, any->data) << "document " << i;
  }
  const KTE::Document empty;
  EXPECT_EQ(ThroughText(empty)->data, empty.data);
  EXPECT_EQ(Read(KTE::WriteDocumentBinary(empty))->data, empty.data);
  EXPECT_EQ(Read({'<', '<', '>', '>'})->data, vetext::DocumentRecord{});
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
  const KTE::DocumentPtr doc = Read({text.begin(), text.end()});
  const auto& runs = doc->data.mTextParam.mTextRuns;
  ASSERT_EQ(runs.size(), 3u);
  // The paragraph runs split the text otherwise than the style runs: each text run takes the
  // paragraph in force at its first code unit ("b" begins the second), past their end the
  // last; an entry without a sheet takes the normal paragraph sheet's.
  using Run = std::tuple<std::u16string, std::u16string, float, float, bool, float, uint32_t>;
  const Run want[] = {{u"a", u"F1", 3, 12, false, 1, 5},   // text, font, leading, size, fill
                      {u"bc", u"F0", 0, 12, false, 1, 1},  // over stroke, red, alignment
                      {u"d", u"F0", 0, 12, false, 1, 2}};
  for (size_t i = 0; i < 3; ++i) {
    const vetext::StyleParam& s = runs[i].mStyleParam;
    EXPECT_EQ(Run(runs[i].mText, s.mFontName, s.mLeading, s.mFontSize, s.mFillOverStroke,
                  s.mFillRed, runs[i].mParaParam.mAlignment),
              want[i])
        << i;
  }
  EXPECT_EQ(
      std::tuple(doc->data.mTextParam.mWidth, doc->data.mTextParam.mHeight, doc->data.mVersion),
      std::tuple(100, 50, 1));
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
    EXPECT_EQ(dict_test::Refusal([&] {
                Read({c.begin(), c.end()});
              }).source(),
              "KTEDocumentDictionary")
        << c;
  }
}

}  // namespace
